#pragma once

#include <string>

namespace minijson {
class CArray;
class CEntity;
} // namespace minijson

namespace bridgeemu::v1 {

// The error types of the bridge's REST API version 1 that the emulator answers with.
enum ErrorType
{
    UnauthorizedUser = 1,
    InvalidJson = 2,
    ResourceNotAvailable = 3,
    MethodNotAvailable = 4,
    MissingParameters = 5,
    ParameterNotAvailable = 6,
    InvalidValue = 7,
    LinkButtonNotPressed = 101,
    DeviceIsOff = 201,
    InternalError = 901
};

// Appends {"error":{"type":…,"address":…,"description":…}} to a result array.
void addError(minijson::CArray& results, int type, const std::string& address,
              const std::string& description);

void addUnauthorized(minijson::CArray& results, const std::string& address);
void addInvalidJson(minijson::CArray& results, const std::string& address);
void addResourceNotAvailable(minijson::CArray& results, const std::string& resource);
void addMethodNotAvailable(minijson::CArray& results, const std::string& method, const std::string& resource);
void addMissingParameters(minijson::CArray& results, const std::string& address);
void addParameterNotAvailable(minijson::CArray& results, const std::string& address,
                              const std::string& parameter);
void addInvalidValue(minijson::CArray& results, const std::string& address, const minijson::CEntity& value,
                     const std::string& parameter);
void addDeviceIsOff(minijson::CArray& results, const std::string& address, const std::string& parameter);
void addLinkButtonNotPressed(minijson::CArray& results);
void addInternalError(minijson::CArray& results, const std::string& address, int code);

// Appends {"success":{address: value}}.
void addSuccess(minijson::CArray& results, const std::string& address, const minijson::CEntity& value);

} // namespace bridgeemu::v1
