#include "v1api.h"

#include "v1commands.h"
#include "v1errors.h"
#include "v1render.h"

#include <minijson.h>

namespace bridgeemu::v1 {

using namespace minijson;

namespace {

using Segments = std::vector<std::string>;

HttpResponse errorResponse(const std::function<void(CArray&)>& addTo)
{
    CArray results;
    addTo(results);
    return HttpResponse::json(results);
}

std::string joinPath(const Segments& segments, std::size_t from)
{
    std::string path;
    for (std::size_t i = from; i < segments.size(); ++i)
        path += "/" + segments[i];
    return path.empty() ? "/" : path;
}

// Parses a body that must hold a JSON object; on failure `error` holds the answer to give.
std::unique_ptr<CEntity> parseObjectBody(const HttpRequest& request, const std::string& address,
                                         HttpResponse& error)
{
    std::unique_ptr<CEntity> document;
    try {
        document = CParser::Parse(request.body);
    } catch (const CException&) {
    }
    if (!document || !document->IsObject()) {
        error = errorResponse([&](CArray& results) { addInvalidJson(results, address); });
        return nullptr;
    }
    return document;
}

// A PUT on `resource` with a JSON object body, answered by `apply` (which returns the result
// array); any other method, or a PUT where `allowed` is false, is "method not available".
template <typename Apply>
HttpResponse answerPut(const HttpRequest& request, const std::string& resource, bool allowed, Apply apply)
{
    if (request.method != "PUT" || !allowed)
        return errorResponse([&](CArray& r) { addMethodNotAvailable(r, request.method, resource); });
    HttpResponse error;
    const auto document = parseObjectBody(request, resource, error);
    if (!document)
        return error;
    return HttpResponse::json(*apply(document->Object()));
}

HttpResponse deletedResponse(const std::string& resource)
{
    CArray results;
    results.AddObject().SetString("success", resource + " deleted");
    return HttpResponse::json(results);
}

HttpResponse registerApplication(BridgeModel& model, const HttpRequest& request)
{
    HttpResponse error;
    const auto document = parseObjectBody(request, "", error);
    if (!document)
        return error;
    const CObject& body = document->Object();
    const CEntity* deviceType = body.Find("devicetype");
    if (!deviceType || !deviceType->IsString()) {
        return errorResponse([](CArray& results) { addMissingParameters(results, ""); });
    }
    // Bridges take "application#device" names of up to 40 bytes.
    if (deviceType->StringValue().empty() || deviceType->StringValue().size() > 40) {
        return errorResponse(
            [&](CArray& results) { addInvalidValue(results, "/devicetype", *deviceType, "devicetype"); });
    }
    const CEntity* clientKey = body.Find("generateclientkey");
    const bool withClientKey = clientKey && clientKey->IsBoolean() && clientKey->Boolean().Value();
    const auto entry = model.pairing.registerApplication(deviceType->StringValue(), withClientKey);
    if (!entry)
        return errorResponse([](CArray& results) { addLinkButtonNotPressed(results); });
    CArray results;
    CObject& success = results.AddObject().AddObject("success");
    success.SetString("username", entry->username);
    if (withClientKey)
        success.SetString("clientkey", entry->clientKey);
    return HttpResponse::json(results);
}

HttpResponse handleLights(BridgeModel& model, const HttpRequest& request, const Segments& rest)
{
    LightStore& store = model.lights;
    const std::string resource = joinPath(rest, 0);
    if (rest.size() == 1) {
        if (request.method == "GET")
            return HttpResponse::json(*renderLights(store));
        if (request.method == "POST") {
            // A search for new lights: nothing new will turn up, but the bridge accepts it.
            CArray results;
            results.AddObject().AddObject("success").SetString("/lights", "Searching for new devices");
            return HttpResponse::json(results);
        }
        return errorResponse([&](CArray& r) { addMethodNotAvailable(r, request.method, resource); });
    }
    EmulatedLight* light = store.light(rest[1]);
    if (!light || rest.size() > 3 || (rest.size() == 3 && rest[2] != "state"))
        return errorResponse([&](CArray& r) { addResourceNotAvailable(r, resource); });
    if (rest.size() == 2) {
        if (request.method == "GET")
            return HttpResponse::json(*renderLight(*light));
        if (request.method == "DELETE") {
            store.removeLight(light->id());
            return deletedResponse(resource);
        }
        return answerPut(request, resource, true,
                         [&](const CObject& body) { return applyAttributes(store, "lights", body, resource); });
    }
    return answerPut(request, resource, true,
                     [&](const CObject& body) { return applyLightState(*light, body, resource); });
}

HttpResponse createGroup(LightStore& store, const HttpRequest& request)
{
    HttpResponse error;
    const auto document = parseObjectBody(request, "/groups", error);
    if (!document)
        return error;
    const CObject& body = document->Object();
    const CEntity* lights = body.Find("lights");
    if (!lights || !lights->IsArray())
        return errorResponse([](CArray& r) { addMissingParameters(r, "/groups"); });
    std::vector<std::string> ids;
    for (int i = 0; i < lights->Count(); ++i) {
        if (!(*lights)[i].IsString() || !store.light((*lights)[i].StringValue()))
            return errorResponse([&](CArray& r) { addInvalidValue(r, "/groups/lights", *lights, "lights"); });
        ids.push_back((*lights)[i].StringValue());
    }
    const std::string type = body.GetString("type", "LightGroup");
    if (type != "LightGroup" && type != "Room") {
        return errorResponse(
            [&](CArray& r) { addInvalidValue(r, "/groups/type", *body.Find("type"), "type"); });
    }
    const std::string id = store.addGroup(body.GetString("name", "Group"),
                                          type == "Room" ? GroupType::Room : GroupType::LightGroup, ids);
    if (type == "Room")
        store.group(id)->roomClass = body.GetString("class", "Other");
    CArray results;
    results.AddObject().AddObject("success").SetString("id", id);
    return HttpResponse::json(results);
}

HttpResponse handleGroups(BridgeModel& model, const HttpRequest& request, const Segments& rest)
{
    LightStore& store = model.lights;
    const std::string resource = joinPath(rest, 0);
    if (rest.size() == 1) {
        if (request.method == "GET")
            return HttpResponse::json(*renderGroups(store));
        if (request.method == "POST")
            return createGroup(store, request);
        return errorResponse([&](CArray& r) { addMethodNotAvailable(r, request.method, resource); });
    }
    EmulatedGroup* group = store.group(rest[1]);
    if (!group || rest.size() > 3 || (rest.size() == 3 && rest[2] != "action"))
        return errorResponse([&](CArray& r) { addResourceNotAvailable(r, resource); });
    if (rest.size() == 2) {
        if (request.method == "GET")
            return HttpResponse::json(*renderGroup(*group, store));
        if (request.method == "DELETE" && group->id != "0") {
            store.removeGroup(group->id);
            return deletedResponse(resource);
        }
        return answerPut(request, resource, group->id != "0",
                         [&](const CObject& body) { return applyAttributes(store, "groups", body, resource); });
    }
    return answerPut(request, resource, true,
                     [&](const CObject& body) { return applyGroupAction(store, *group, body, resource); });
}

HttpResponse handleAuthenticated(BridgeModel& model, const HttpRequest& request, const Segments& rest)
{
    const std::string resource = joinPath(rest, 0);
    if (rest.empty()) {
        if (request.method == "GET")
            return HttpResponse::json(*renderDatastore(model));
        return errorResponse([&](CArray& r) { addMethodNotAvailable(r, request.method, resource); });
    }
    const std::string& kind = rest[0];
    if (kind == "lights")
        return handleLights(model, request, rest);
    if (kind == "groups")
        return handleGroups(model, request, rest);
    if (kind == "config" && rest.size() == 1) {
        if (request.method == "GET")
            return HttpResponse::json(*renderFullConfig(model));
        return errorResponse([&](CArray& r) { addMethodNotAvailable(r, request.method, resource); });
    }
    for (const char* empty : {"schedules", "scenes", "rules", "sensors", "resourcelinks"}) {
        if (kind == empty && rest.size() == 1 && request.method == "GET")
            return HttpResponse::json(CObject());
    }
    return errorResponse([&](CArray& r) { addResourceNotAvailable(r, resource); });
}

} // namespace

HttpResponse handleRequest(BridgeModel& model, const HttpRequest& request)
{
    Segments segments = splitPath(request.path);
    // A trailing slash ("/api/") names the same resource.
    while (segments.size() > 1 && segments.back().empty())
        segments.pop_back();
    if (segments.empty() || segments[0] != "api")
        return HttpResponse::text(404, "not found");

    if (segments.size() == 1 || (segments.size() == 2 && segments[1].empty())) {
        if (request.method == "POST")
            return registerApplication(model, request);
        return errorResponse([](CArray& r) { addUnauthorized(r, "/"); });
    }
    const std::string& user = segments[1];
    const Segments rest(segments.begin() + 2, segments.end());
    const bool whitelisted = model.pairing.isWhitelisted(user);
    // Anybody may read the public part of the configuration, with or without a valid key.
    const bool publicConfig =
        request.method == "GET" &&
        ((user == "config" && rest.empty()) || (!whitelisted && rest.size() == 1 && rest[0] == "config"));
    if (publicConfig)
        return HttpResponse::json(*renderPublicConfig(model.identity));
    if (!whitelisted)
        return errorResponse([&](CArray& r) { addUnauthorized(r, joinPath(rest, 0)); });
    model.pairing.markUsed(user);
    return handleAuthenticated(model, request, rest);
}

} // namespace bridgeemu::v1
