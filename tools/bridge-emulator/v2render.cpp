#include "v2render.h"

#include "lightcatalog.h"
#include "resourceids.h"

#include <minijson.h>

#include <cmath>
#include <map>

namespace bridgeemu::v2 {

using namespace minijson;

namespace {

double rounded(double value, double scale)
{
    return std::round(value * scale) / scale;
}

void addReference(CArray& list, const std::string& rid, const char* rtype)
{
    CObject& reference = list.AddObject();
    reference.SetString("rid", rid);
    reference.SetString("rtype", rtype);
}

void setOwner(CObject& resource, const std::string& rid, const char* rtype)
{
    CObject& owner = resource.AddObject("owner");
    owner.SetString("rid", rid);
    owner.SetString("rtype", rtype);
}

void addPoint(CObject& parent, const char* name, XY point)
{
    CObject& object = parent.AddObject(name);
    object.SetDouble("x", roundXY(point.x));
    object.SetDouble("y", roundXY(point.y));
}

// A percentage as v2 shows brightness: 1..254 become 0.39..100 with two decimals.
double brightnessPercent(int bri)
{
    return rounded(bri * 100.0 / 254.0, 100.0);
}

std::string macOf(const LightDescription& description)
{
    return description.uniqueId.substr(0, 23); // "00:17:88:01:xx:xx:xx:xx-0b" without the endpoint
}

void renderBridge(const BridgeModel& model, ResourceList& out)
{
    const std::string& bridgeId = model.identity.bridgeId;
    const std::string deviceId = resourceUuid(bridgeId, "device", "bridge");
    const std::string bridgeResource = resourceUuid(bridgeId, "bridge", "bridge");

    auto device = std::make_unique<CObject>();
    device->SetString("id", deviceId);
    CObject& metadata = device->AddObject("metadata");
    metadata.SetString("name", model.identity.name);
    metadata.SetString("archetype", "bridge_v2");
    CObject& product = device->AddObject("product_data");
    product.SetString("model_id", model.identity.modelId);
    product.SetString("manufacturer_name", "Signify Netherlands B.V.");
    product.SetString("product_name", "Hue Bridge");
    product.SetString("product_archetype", "bridge_v2");
    product.SetBoolean("certified", true);
    product.SetString("software_version", model.identity.apiVersion);
    addReference(device->AddArray("services"), bridgeResource, "bridge");
    device->SetString("type", "device");
    out.push_back(std::move(device));

    auto bridge = std::make_unique<CObject>();
    bridge->SetString("id", bridgeResource);
    setOwner(*bridge, deviceId, "device");
    bridge->SetString("bridge_id", bridgeId);
    bridge->AddObject("time_zone").SetString("time_zone", "Europe/Amsterdam");
    bridge->SetString("type", "bridge");
    out.push_back(std::move(bridge));
}

std::unique_ptr<CObject> renderDevice(const BridgeModel& model, const EmulatedLight& light)
{
    const LightDescription& description = light.description();
    auto device = std::make_unique<CObject>();
    device->SetString("id", deviceIdOfLight(model, light.id()));
    device->SetString("id_v1", "/lights/" + light.id());
    device->AddObject("identify");
    CObject& metadata = device->AddObject("metadata");
    metadata.SetString("name", light.name());
    metadata.SetString("archetype", archetypeName(description.archetype));
    CObject& product = device->AddObject("product_data");
    product.SetString("model_id", description.modelId);
    product.SetString("manufacturer_name", description.manufacturer);
    product.SetString("product_name", description.productName);
    product.SetString("product_archetype", archetypeName(description.archetype));
    product.SetBoolean("certified", true);
    product.SetString("software_version", description.swVersion);
    CArray& services = device->AddArray("services");
    addReference(services, lightResourceId(model, light.id()), "light");
    addReference(services, connectivityIdOfLight(model, light.id()), "zigbee_connectivity");
    device->SetString("type", "device");
    return device;
}

std::unique_ptr<CObject> renderLight(const BridgeModel& model, const EmulatedLight& light)
{
    const LightDescription& description = light.description();
    const LightState& state = light.state();
    const LightKind kind = light.kind();
    auto resource = std::make_unique<CObject>();
    resource->SetString("id", lightResourceId(model, light.id()));
    resource->SetString("id_v1", "/lights/" + light.id());
    setOwner(*resource, deviceIdOfLight(model, light.id()), "device");
    const ClipQuirks& quirks = model.clip.quirks;
    if (quirks.lightMetadata) {
        CObject& metadata = resource->AddObject("metadata");
        metadata.SetString("name", light.name());
        metadata.SetString("archetype", archetypeName(description.archetype));
    }
    resource->AddObject("on").SetBoolean("on", state.on);
    if (kind != LightKind::OnOff) {
        CObject& dimming = resource->AddObject("dimming");
        dimming.SetDouble("brightness", brightnessPercent(state.bri));
        dimming.SetDouble("min_dim_level", description.minDimLevel / 1000.0);
    }
    if (kindHasColorTemperature(kind)) {
        CObject& temperature = resource->AddObject("color_temperature");
        // A light showing an xy colour has no valid colour temperature; bridges then write null,
        // some of them with "mirek_valid" still true.
        const bool valid = state.colorMode == ColorMode::ColorTemperature || !kindHasColor(kind);
        if (valid)
            temperature.SetInt("mirek", state.ct);
        else
            temperature.AddNull("mirek");
        temperature.SetBoolean("mirek_valid", valid || quirks.mirekNullInXy);
        CObject& schema = temperature.AddObject("mirek_schema");
        schema.SetInt("mirek_minimum", description.ctMin);
        schema.SetInt("mirek_maximum", description.ctMax);
    }
    if (kindHasColor(kind)) {
        CObject& color = resource->AddObject("color");
        addPoint(color, "xy", state.xy);
        const Gamut gamut = gamutOf(description.gamut);
        CObject& corners = color.AddObject("gamut");
        addPoint(corners, "red", gamut.red);
        addPoint(corners, "green", gamut.green);
        addPoint(corners, "blue", gamut.blue);
        color.SetString("gamut_type", gamutName(description.gamut));
    }
    CObject& dynamics = resource->AddObject("dynamics");
    const bool looping = state.effect == "colorloop";
    dynamics.SetString("status", looping ? "dynamic_palette" : "none");
    CArray& statusValues = dynamics.AddArray("status_values");
    statusValues.AddString("none");
    if (kindHasColor(kind))
        statusValues.AddString("dynamic_palette");
    dynamics.SetDouble("speed", looping ? 0.5 : 0.0);
    dynamics.SetBoolean("speed_valid", looping);
    resource->AddObject("alert").AddArray("action_values").AddString("breathe");
    resource->SetString("mode", "normal");
    resource->SetString("type", "light");
    return resource;
}

std::unique_ptr<CObject> renderConnectivity(const BridgeModel& model, const EmulatedLight& light)
{
    auto resource = std::make_unique<CObject>();
    resource->SetString("id", connectivityIdOfLight(model, light.id()));
    resource->SetString("id_v1", "/lights/" + light.id());
    setOwner(*resource, deviceIdOfLight(model, light.id()), "device");
    resource->SetString("status", light.state().reachable ? "connected" : "connectivity_issue");
    resource->SetString("mac_address", macOf(light.description()));
    resource->SetString("type", "zigbee_connectivity");
    return resource;
}

// A room lists its lights' devices, a zone the lights themselves; both have a grouped light.
std::unique_ptr<CObject> renderGroup(const BridgeModel& model, const EmulatedGroup& group)
{
    const bool room = group.type == GroupType::Room;
    auto resource = std::make_unique<CObject>();
    resource->SetString("id", groupResourceId(model, group));
    resource->SetString("id_v1", "/groups/" + group.id);
    CArray& children = resource->AddArray("children");
    for (const std::string& lightId : group.lights) {
        if (room)
            addReference(children, deviceIdOfLight(model, lightId), "device");
        else
            addReference(children, lightResourceId(model, lightId), "light");
    }
    addReference(resource->AddArray("services"), groupedLightId(model, group.id), "grouped_light");
    CObject& metadata = resource->AddObject("metadata");
    metadata.SetString("name", group.name);
    std::string archetype = room ? group.roomClass : "other";
    for (char& c : archetype)
        c = c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    metadata.SetString("archetype", archetype);
    resource->SetString("type", room ? "room" : "zone");
    return resource;
}

std::unique_ptr<CObject> renderGroupedLight(const BridgeModel& model, const EmulatedGroup& group)
{
    const auto members = model.lights.members(group);
    bool anyOn = false;
    int briSum = 0, briCount = 0;
    for (const EmulatedLight* light : members) {
        anyOn = anyOn || light->state().on;
        if (light->state().on && light->kind() != LightKind::OnOff) {
            briSum += light->state().bri;
            ++briCount;
        }
    }
    auto resource = std::make_unique<CObject>();
    resource->SetString("id", groupedLightId(model, group.id));
    resource->SetString("id_v1", "/groups/" + group.id);
    setOwner(*resource, groupResourceId(model, group), group.type == GroupType::Room ? "room" : "zone");
    resource->AddObject("on").SetBoolean("on", anyOn);
    resource->AddObject("dimming").SetDouble(
        "brightness", briCount ? rounded(briSum * 100.0 / 254.0 / briCount, 100.0) : 0.0);
    resource->AddObject("alert").AddArray("action_values").AddString("breathe");
    resource->SetString("type", "grouped_light");
    return resource;
}

std::unique_ptr<CObject> renderGeofenceClient(const GeofenceClient& client)
{
    auto resource = std::make_unique<CObject>();
    resource->SetString("id", client.id);
    resource->SetString("name", client.name);
    resource->SetString("type", "geofence_client");
    return resource;
}

} // namespace

std::string deviceIdOfLight(const BridgeModel& model, const std::string& lightId)
{
    return resourceUuid(model.identity.bridgeId, "device", lightId);
}

std::string lightResourceId(const BridgeModel& model, const std::string& lightId)
{
    return resourceUuid(model.identity.bridgeId, "light", lightId);
}

std::string connectivityIdOfLight(const BridgeModel& model, const std::string& lightId)
{
    return resourceUuid(model.identity.bridgeId, "zigbee_connectivity", lightId);
}

std::string groupResourceId(const BridgeModel& model, const EmulatedGroup& group)
{
    return resourceUuid(model.identity.bridgeId, group.type == GroupType::Room ? "room" : "zone", group.id);
}

std::string groupedLightId(const BridgeModel& model, const std::string& groupId)
{
    return resourceUuid(model.identity.bridgeId, "grouped_light", groupId);
}

std::string archetypeName(const std::string& v1Archetype)
{
    static const std::map<std::string, std::string> names = {
        {"sultanbulb", "sultan_bulb"}, {"classicbulb", "classic_bulb"},     {"candlebulb", "candle_bulb"},
        {"huebloom", "hue_bloom"},     {"huelightstrip", "hue_lightstrip"}, {"plug", "plug"},
    };
    const auto it = names.find(v1Archetype);
    return it != names.end() ? it->second : "classic_bulb";
}

ResourceList renderResources(const BridgeModel& model)
{
    ResourceList out;
    if (model.clip.servingDump) {
        for (const auto& resource : model.clip.dump)
            out.emplace_back(static_cast<CObject*>(resource->Copy().release()));
    } else {
        renderBridge(model, out);
        const auto lights = model.lights.lights();
        for (const EmulatedLight* light : lights)
            out.push_back(renderDevice(model, *light));
        for (const EmulatedLight* light : lights)
            out.push_back(renderLight(model, *light));
        for (const EmulatedLight* light : lights)
            out.push_back(renderConnectivity(model, *light));
        const auto groups = model.lights.groups();
        for (const EmulatedGroup* group : groups)
            out.push_back(renderGroup(model, *group));
        for (const EmulatedGroup* group : groups)
            out.push_back(renderGroupedLight(model, *group));
    }
    for (const GeofenceClient& client : model.clip.geofenceClients)
        out.push_back(renderGeofenceClient(client));
    return out;
}

} // namespace bridgeemu::v2
