#include "v1errors.h"

#include <minijson.h>

namespace bridgeemu::v1 {

using namespace minijson;

void addError(CArray& results, int type, const std::string& address, const std::string& description)
{
    CObject& error = results.AddObject().AddObject("error");
    error.SetInt("type", type);
    error.SetString("address", address);
    error.SetString("description", description);
}

void addUnauthorized(CArray& results, const std::string& address)
{
    addError(results, UnauthorizedUser, address, "unauthorized user");
}

void addInvalidJson(CArray& results, const std::string& address)
{
    addError(results, InvalidJson, address, "body contains invalid json");
}

void addResourceNotAvailable(CArray& results, const std::string& resource)
{
    addError(results, ResourceNotAvailable, resource, "resource, " + resource + ", not available");
}

void addMethodNotAvailable(CArray& results, const std::string& method, const std::string& resource)
{
    addError(results, MethodNotAvailable, resource,
             "method, " + method + ", not available for resource, " + resource);
}

void addMissingParameters(CArray& results, const std::string& address)
{
    addError(results, MissingParameters, address, "invalid/missing parameters in body");
}

void addParameterNotAvailable(CArray& results, const std::string& address, const std::string& parameter)
{
    addError(results, ParameterNotAvailable, address, "parameter, " + parameter + ", not available");
}

void addInvalidValue(CArray& results, const std::string& address, const CEntity& value,
                     const std::string& parameter)
{
    // Bridges quote the value bare: "invalid value, abc, for parameter, bri".
    const std::string text = value.IsString() ? value.StringValue() : value.ToString();
    addError(results, InvalidValue, address, "invalid value, " + text + ", for parameter, " + parameter);
}

void addDeviceIsOff(CArray& results, const std::string& address, const std::string& parameter)
{
    addError(results, DeviceIsOff, address,
             "parameter, " + parameter + ", is not modifiable. Device is set to off.");
}

void addLinkButtonNotPressed(CArray& results)
{
    addError(results, LinkButtonNotPressed, "", "link button not pressed");
}

void addInternalError(CArray& results, const std::string& address, int code)
{
    addError(results, InternalError, address, "Internal error, " + std::to_string(code));
}

void addSuccess(CArray& results, const std::string& address, const CEntity& value)
{
    results.AddObject().AddObject("success").Add(address, value.Copy());
}

} // namespace bridgeemu::v1
