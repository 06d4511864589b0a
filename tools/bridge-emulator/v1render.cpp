#include "v1render.h"

#include <minijson.h>

namespace bridgeemu::v1 {

using namespace minijson;

namespace {

void setXY(CArray& array, XY point)
{
    array.AddNumber().SetDouble(point.x);
    array.AddNumber().SetDouble(point.y);
}

void renderCapabilities(CObject& capabilities, const LightDescription& description)
{
    capabilities.SetBoolean("certified", true);
    CObject& control = capabilities.AddObject("control");
    if (description.kind != LightKind::OnOff) {
        control.SetInt("mindimlevel", description.minDimLevel);
        control.SetInt("maxlumen", description.maxLumen);
    }
    if (kindHasColor(description.kind)) {
        control.SetString("colorgamuttype", gamutName(description.gamut));
        const Gamut gamut = gamutOf(description.gamut);
        CArray& corners = control.AddArray("colorgamut");
        for (const XY& corner : {gamut.red, gamut.green, gamut.blue})
            setXY(corners.AddArray(), corner);
    }
    if (kindHasColorTemperature(description.kind)) {
        CObject& ct = control.AddObject("ct");
        ct.SetInt("min", description.ctMin);
        ct.SetInt("max", description.ctMax);
    }
    CObject& streaming = capabilities.AddObject("streaming");
    streaming.SetBoolean("renderer", kindHasColor(description.kind));
    streaming.SetBoolean("proxy", kindHasColor(description.kind));
}

} // namespace

const char* colorModeText(ColorMode mode)
{
    switch (mode) {
    case ColorMode::HueSaturation:
        return "hs";
    case ColorMode::XY:
        return "xy";
    case ColorMode::ColorTemperature:
        return "ct";
    case ColorMode::None:
        break;
    }
    return "";
}

std::unique_ptr<CObject> renderState(const LightState& state, LightKind kind, bool withReachable)
{
    auto object = std::make_unique<CObject>();
    object->SetBoolean("on", state.on);
    if (kind != LightKind::OnOff)
        object->SetInt("bri", state.bri);
    if (kindHasColor(kind)) {
        object->SetInt("hue", state.hue);
        object->SetInt("sat", state.sat);
        object->SetString("effect", state.effect);
        setXY(object->AddArray("xy"), state.xy);
    }
    if (kindHasColorTemperature(kind))
        object->SetInt("ct", state.ct);
    object->SetString("alert", state.alert);
    if (kindHasColor(kind) || kindHasColorTemperature(kind))
        object->SetString("colormode", colorModeText(state.colorMode));
    if (withReachable) {
        object->SetString("mode", "homeautomation");
        object->SetBoolean("reachable", state.reachable);
    }
    return object;
}

std::unique_ptr<CObject> renderLight(const EmulatedLight& light)
{
    const LightDescription& description = light.description();
    auto object = std::make_unique<CObject>();
    object->Add("state", renderState(light.state(), light.kind(), true));
    CObject& swupdate = object->AddObject("swupdate");
    swupdate.SetString("state", "noupdates");
    swupdate.SetString("lastinstall", "2023-03-01T12:00:00");
    object->SetString("type", lightTypeText(light.kind()));
    object->SetString("name", light.name());
    object->SetString("modelid", description.modelId);
    object->SetString("manufacturername", description.manufacturer);
    object->SetString("productname", description.productName);
    renderCapabilities(object->AddObject("capabilities"), description);
    CObject& config = object->AddObject("config");
    config.SetString("archetype", description.archetype);
    config.SetString("function", description.kind == LightKind::OnOff ? "functional" : "mixed");
    config.SetString("direction", "omnidirectional");
    CObject& startup = config.AddObject("startup");
    startup.SetString("mode", description.kind == LightKind::OnOff ? "powerfail" : "safety");
    startup.SetBoolean("configured", true);
    object->SetString("uniqueid", description.uniqueId);
    object->SetString("swversion", description.swVersion);
    return object;
}

std::unique_ptr<CObject> renderLights(const LightStore& store)
{
    auto object = std::make_unique<CObject>();
    for (const EmulatedLight* light : store.lights())
        object->Add(light->id(), renderLight(*light));
    return object;
}

std::unique_ptr<CObject> renderGroup(const EmulatedGroup& group, const LightStore& store)
{
    auto object = std::make_unique<CObject>();
    object->SetString("name", group.name);
    CArray& lights = object->AddArray("lights");
    for (const std::string& id : group.lights)
        lights.AddString(id);
    object->AddArray("sensors");
    object->SetString("type", group.type == GroupType::Room ? "Room" : "LightGroup");
    const std::vector<const EmulatedLight*> members = store.members(group);
    bool allOn = !members.empty();
    bool anyOn = false;
    for (const EmulatedLight* member : members) {
        allOn = allOn && member->state().on;
        anyOn = anyOn || member->state().on;
    }
    CObject& state = object->AddObject("state");
    state.SetBoolean("all_on", allOn);
    state.SetBoolean("any_on", anyOn);
    object->SetBoolean("recycle", false);
    if (group.type == GroupType::Room)
        object->SetString("class", group.roomClass);
    object->Add("action", renderState(group.action, store.groupKind(group), false));
    return object;
}

std::unique_ptr<CObject> renderGroups(const LightStore& store)
{
    auto object = std::make_unique<CObject>();
    for (const EmulatedGroup* group : store.groups())
        object->Add(group->id, renderGroup(*group, store));
    return object;
}

std::unique_ptr<CObject> renderPublicConfig(const BridgeIdentity& identity)
{
    auto object = std::make_unique<CObject>();
    object->SetString("name", identity.name);
    object->SetString("datastoreversion", identity.datastoreVersion);
    object->SetString("swversion", identity.swVersion);
    object->SetString("apiversion", identity.apiVersion);
    object->SetString("mac", identity.mac);
    object->SetString("bridgeid", toUpper(identity.bridgeId));
    object->SetBoolean("factorynew", false);
    object->AddNull("replacesbridgeid");
    object->SetString("modelid", identity.modelId);
    object->SetString("starterkitid", "");
    return object;
}

std::unique_ptr<CObject> renderFullConfig(const BridgeModel& model)
{
    const BridgeIdentity& identity = model.identity;
    auto object = std::make_unique<CObject>();
    object->SetString("name", identity.name);
    object->SetInt("zigbeechannel", identity.zigbeeChannel);
    object->SetString("bridgeid", toUpper(identity.bridgeId));
    object->SetString("mac", identity.mac);
    object->SetBoolean("dhcp", true);
    object->SetString("ipaddress", "127.0.0.1");
    object->SetString("netmask", "255.0.0.0");
    object->SetString("gateway", "127.0.0.1");
    object->SetString("proxyaddress", "none");
    object->SetInt("proxyport", 0);
    const std::string now = bridgeDateNow();
    object->SetString("UTC", now);
    object->SetString("localtime", now);
    object->SetString("timezone", "UTC");
    object->SetString("modelid", identity.modelId);
    object->SetString("datastoreversion", identity.datastoreVersion);
    object->SetString("swversion", identity.swVersion);
    object->SetString("apiversion", identity.apiVersion);
    CObject& swupdate = object->AddObject("swupdate2");
    swupdate.SetBoolean("checkforupdate", false);
    swupdate.SetString("state", "noupdates");
    swupdate.SetBoolean("install", false);
    swupdate.SetString("lastchange", "2023-03-01T12:00:00");
    object->SetBoolean("linkbutton", model.pairing.linkButtonActive());
    object->SetBoolean("portalservices", false);
    object->SetString("portalconnection", "disconnected");
    CObject& portal = object->AddObject("portalstate");
    portal.SetBoolean("signedon", false);
    portal.SetBoolean("incoming", false);
    portal.SetBoolean("outgoing", false);
    portal.SetString("communication", "disconnected");
    object->SetBoolean("factorynew", false);
    object->AddNull("replacesbridgeid");
    CObject& backup = object->AddObject("backup");
    backup.SetString("status", "idle");
    backup.SetInt("errorcode", 0);
    object->SetString("starterkitid", "");
    CObject& whitelist = object->AddObject("whitelist");
    for (const WhitelistEntry& entry : model.pairing.whitelist()) {
        CObject& item = whitelist.AddObject(entry.username);
        item.SetString("last use date", entry.lastUseDate);
        item.SetString("create date", entry.createDate);
        item.SetString("name", entry.name);
    }
    return object;
}

std::unique_ptr<CObject> renderDatastore(const BridgeModel& model)
{
    auto object = std::make_unique<CObject>();
    object->Add("lights", renderLights(model.lights));
    object->Add("groups", renderGroups(model.lights));
    object->Add("config", renderFullConfig(model));
    for (const char* empty : {"schedules", "scenes", "rules", "sensors", "resourcelinks"})
        object->AddObject(empty);
    return object;
}

} // namespace bridgeemu::v1
