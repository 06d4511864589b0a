#include "v2api.h"

#include "resourceids.h"
#include "v2commands.h"
#include "v2render.h"

#include <minijson.h>

#include <algorithm>

namespace bridgeemu::v2 {

using namespace minijson;

namespace {

// Types a bridge knows; those the emulated household lacks are listed as empty.
const char* const kKnownTypes[] = {"device",
                                   "light",
                                   "zigbee_connectivity",
                                   "room",
                                   "zone",
                                   "grouped_light",
                                   "bridge",
                                   "geofence_client",
                                   "bridge_home",
                                   "scene",
                                   "smart_scene",
                                   "entertainment",
                                   "entertainment_configuration",
                                   "motion",
                                   "grouped_motion",
                                   "light_level",
                                   "grouped_light_level",
                                   "temperature",
                                   "button",
                                   "relative_rotary",
                                   "device_power",
                                   "device_software_update",
                                   "zigbee_device_discovery",
                                   "zgp_connectivity",
                                   "geolocation",
                                   "behavior_script",
                                   "behavior_instance",
                                   "homekit",
                                   "matter",
                                   "matter_fabric",
                                   "contact",
                                   "tamper",
                                   "camera_motion",
                                   "convenience_area_motion",
                                   "security_area_motion",
                                   "motion_area_configuration",
                                   "switch_input_configuration",
                                   "speaker",
                                   "clip",
                                   "service_group"};

bool isKnownType(const std::string& type)
{
    return std::any_of(std::begin(kKnownTypes), std::end(kKnownTypes),
                       [&](const char* known) { return type == known; });
}

HttpResponse dataResponse(std::unique_ptr<CArray> data, int status = 200)
{
    CObject envelope;
    envelope.Add("data", std::move(data));
    envelope.AddArray("errors");
    return HttpResponse::json(envelope, status);
}

HttpResponse referenceResponse(const std::string& rid, const std::string& rtype, int status = 200)
{
    auto data = std::make_unique<CArray>();
    CObject& reference = data->AddObject();
    reference.SetString("rid", rid);
    reference.SetString("rtype", rtype);
    return dataResponse(std::move(data), status);
}

std::unique_ptr<CEntity> parseObject(const std::string& body)
{
    try {
        auto document = CParser::Parse(body);
        if (document->IsObject())
            return document;
    } catch (const CException&) {
    }
    return nullptr;
}

const CObject* findResource(const ResourceList& resources, const std::string& type, const std::string& id)
{
    for (const auto& resource : resources) {
        if (resource->GetString("type") == type && resource->GetString("id") == id)
            return resource.get();
    }
    return nullptr;
}

EmulatedLight* lightOfResource(BridgeModel& model, const std::string& type, const std::string& id)
{
    for (EmulatedLight* light : model.lights.lights()) {
        const std::string candidate =
            type == "light" ? lightResourceId(model, light->id()) : deviceIdOfLight(model, light->id());
        if (candidate == id)
            return light;
    }
    return nullptr;
}

CObject* dumpResource(BridgeModel& model, const std::string& type, const std::string& id)
{
    for (const auto& resource : model.clip.dump) {
        if (resource->GetString("type") == type && resource->GetString("id") == id)
            return resource.get();
    }
    return nullptr;
}

HttpResponse putLightOrDevice(BridgeModel& model, const std::string& type, const std::string& id,
                              const CObject& shown, const CObject& body)
{
    std::vector<std::string> errors;
    const ClipChange change = readChange(body, type == "device", errors);
    // A light takes only what it shows: a white lamp has no "color", a plug no "dimming".
    for (const std::string& feature : change.features) {
        const bool needsFeature =
            feature == "dimming" || feature == "color" || feature == "color_temperature";
        if (needsFeature && !shown.Contains(feature))
            errors.push_back("device (" + type + ") does not support " + feature);
    }
    if (!errors.empty())
        return errorResponse(400, errors);

    if (model.clip.servingDump) {
        CObject* resource = dumpResource(model, type, id);
        if (type == "light")
            applyToDumpLight(*resource, change);
        else if (change.name) {
            CObject* metadata = resource->GetObject("metadata");
            (metadata ? *metadata : resource->AddObject("metadata")).SetString("name", *change.name);
        }
        return referenceResponse(id, type);
    }
    if (type == "device" && !lightOfResource(model, "device", id)) {
        model.identity.name = *change.name; // the bridge's own device
        return referenceResponse(id, type);
    }
    EmulatedLight* light = lightOfResource(model, type, id);
    applyToLight(*light, change);
    // The command is accepted, but a lamp that has dropped off the network may not follow it.
    if (!light->state().reachable && type == "light") {
        auto data = std::make_unique<CArray>();
        CObject& reference = data->AddObject();
        reference.SetString("rid", id);
        reference.SetString("rtype", type);
        CObject envelope;
        envelope.Add("data", std::move(data));
        envelope.AddArray("errors").AddObject().SetString(
            "description", "device (light) has communication issues, command may not have effect");
        return HttpResponse::json(envelope, 207);
    }
    return referenceResponse(id, type);
}

// A room's or zone's lights switched, dimmed or coloured at once: each member takes what it can
// use, as the bridge relays one group command to every lamp.
HttpResponse putGroupedLight(BridgeModel& model, const std::string& id, const CObject& body)
{
    std::vector<std::string> errors;
    const ClipChange change = readChange(body, false, errors);
    if (change.name)
        errors.push_back("device (grouped_light) does not support metadata");
    if (!errors.empty())
        return errorResponse(400, errors);
    for (const EmulatedGroup* group : model.lights.groups()) {
        if (groupedLightId(model, group->id) != id)
            continue;
        for (EmulatedLight* member : model.lights.members(*group))
            applyToLight(*member, change);
    }
    return referenceResponse(id, "grouped_light");
}

HttpResponse createGeofenceClient(BridgeModel& model, const CObject& body)
{
    std::optional<std::string> name;
    std::optional<bool> isAtHome;
    std::vector<std::string> errors;
    if (!readGeofenceClient(body, name, isAtHome, errors))
        return errorResponse(400, errors);
    if (!name)
        return errorResponse(400, {"missing attribute name"});
    GeofenceClient client;
    client.id = resourceUuid(model.identity.bridgeId, "geofence_client",
                             std::to_string(model.clip.nextGeofenceClient++));
    client.name = *name;
    client.isAtHome = isAtHome.value_or(false);
    model.clip.geofenceClients.push_back(client);
    return referenceResponse(client.id, "geofence_client");
}

HttpResponse changeGeofenceClient(BridgeModel& model, GeofenceClient& client, const CObject& body)
{
    std::optional<std::string> name;
    std::optional<bool> isAtHome;
    std::vector<std::string> errors;
    if (!readGeofenceClient(body, name, isAtHome, errors))
        return errorResponse(400, errors);
    if (name)
        client.name = *name;
    if (isAtHome)
        client.isAtHome = *isAtHome;
    (void)model;
    return referenceResponse(client.id, "geofence_client");
}

HttpResponse handleOne(BridgeModel& model, const HttpRequest& request, const std::string& type,
                       const std::string& id)
{
    const ResourceList resources = renderResources(model);
    const CObject* shown = findResource(resources, type, id);
    if (!shown)
        return errorResponse(404, {"Not Found"});
    if (request.method == "GET") {
        auto data = std::make_unique<CArray>();
        data->Append(shown->Copy());
        return dataResponse(std::move(data));
    }
    auto geofence = std::find_if(model.clip.geofenceClients.begin(), model.clip.geofenceClients.end(),
                                 [&](const GeofenceClient& client) { return client.id == id; });
    if (type == "geofence_client" && request.method == "DELETE") {
        model.clip.geofenceClients.erase(geofence);
        return referenceResponse(id, type);
    }
    const bool changeable = type == "light" || type == "device" || type == "geofence_client" ||
                            (type == "grouped_light" && !model.clip.servingDump);
    if (request.method != "PUT" || !changeable)
        return errorResponse(405, {"method not allowed"});
    const auto body = parseObject(request.body);
    if (!body)
        return errorResponse(400, {"body contains invalid JSON"});
    if (type == "geofence_client")
        return changeGeofenceClient(model, *geofence, body->Object());
    if (type == "grouped_light")
        return putGroupedLight(model, id, body->Object());
    return putLightOrDevice(model, type, id, *shown, body->Object());
}

} // namespace

HttpResponse errorResponse(int status, const std::vector<std::string>& descriptions)
{
    CObject envelope;
    CArray& errors = envelope.AddArray("errors");
    for (const std::string& description : descriptions)
        errors.AddObject().SetString("description", description);
    envelope.AddArray("data");
    return HttpResponse::json(envelope, status);
}

bool isAuthorized(BridgeModel& model, const HttpRequest& request)
{
    const std::string key = request.header("hue-application-key");
    if (key.empty() || !model.pairing.isWhitelisted(key))
        return false;
    model.pairing.markUsed(key);
    return true;
}

HttpResponse handleRequest(BridgeModel& model, const HttpRequest& request)
{
    std::vector<std::string> segments = splitPath(request.path);
    while (!segments.empty() && segments.back().empty())
        segments.pop_back();
    if (segments.size() < 3 || segments[0] != "clip" || segments[1] != "v2" || segments[2] != "resource" ||
        segments.size() > 5)
        return errorResponse(404, {"Not Found"});
    if (!isAuthorized(model, request))
        return errorResponse(403, {"unauthorized user"});
    if (segments.size() > 3 && !isKnownType(segments[3]))
        return errorResponse(404, {"Not Found"});
    if (segments.size() == 5)
        return handleOne(model, request, segments[3], segments[4]);

    if (request.method == "POST") {
        if (segments.size() != 4 || segments[3] != "geofence_client")
            return errorResponse(405, {"method not allowed"});
        const auto body = parseObject(request.body);
        if (!body)
            return errorResponse(400, {"body contains invalid JSON"});
        return createGeofenceClient(model, body->Object());
    }
    if (request.method != "GET")
        return errorResponse(405, {"method not allowed"});
    auto data = std::make_unique<CArray>();
    for (auto& resource : renderResources(model)) {
        if (segments.size() == 3 || resource->GetString("type") == segments[3])
            data->Append(std::move(resource));
    }
    return dataResponse(std::move(data));
}

} // namespace bridgeemu::v2
