#include "v1commands.h"

#include "v1errors.h"

#include <minijson.h>

#include <cmath>
#include <optional>

namespace bridgeemu::v1 {

using namespace minijson;

namespace {

struct ParamInfo
{
    const char* name;
    LightParam param;
};

constexpr ParamInfo kParams[] = {
    {"on", LightParam::On},
    {"bri", LightParam::Bri},
    {"hue", LightParam::Hue},
    {"sat", LightParam::Sat},
    {"xy", LightParam::Xy},
    {"ct", LightParam::Ct},
    {"alert", LightParam::Alert},
    {"effect", LightParam::Effect},
    {"transitiontime", LightParam::TransitionTime},
    {"bri_inc", LightParam::BriInc},
    {"hue_inc", LightParam::HueInc},
    {"sat_inc", LightParam::SatInc},
    {"ct_inc", LightParam::CtInc},
    {"xy_inc", LightParam::XyInc},
};

std::optional<LightParam> paramFromName(const std::string& name)
{
    for (const ParamInfo& info : kParams) {
        if (name == info.name)
            return info.param;
    }
    return std::nullopt;
}

// Parameters that may be sent to a light that is off.
bool allowedWhileOff(LightParam param)
{
    return param == LightParam::On || param == LightParam::Alert || param == LightParam::TransitionTime;
}

std::optional<int> integerIn(const CEntity& value, int low, int high)
{
    if (!value.IsNumber())
        return std::nullopt;
    const double number = value.Number().ValueDouble();
    if (number != std::floor(number) || number < low || number > high)
        return std::nullopt;
    return static_cast<int>(number);
}

std::optional<XY> pairIn(const CEntity& value, double low, double high)
{
    if (!value.IsArray() || value.Count() != 2 || !value[0].IsNumber() || !value[1].IsNumber())
        return std::nullopt;
    const XY point{value[0].Number().ValueDouble(), value[1].Number().ValueDouble()};
    if (point.x < low || point.x > high || point.y < low || point.y > high)
        return std::nullopt;
    return point;
}

std::optional<std::string> oneOf(const CEntity& value, std::initializer_list<const char*> allowed)
{
    if (!value.IsString())
        return std::nullopt;
    for (const char* text : allowed) {
        if (value.StringValue() == text)
            return value.StringValue();
    }
    return std::nullopt;
}

// Reads one parameter into the change; false when the value is not acceptable.
bool readParam(LightParam param, const CEntity& value, LightChange& change)
{
    switch (param) {
    case LightParam::On:
        if (!value.IsBoolean())
            return false;
        change.on = value.Boolean().Value();
        return true;
    case LightParam::Bri:
        return bool(change.bri = integerIn(value, 0, 255));
    case LightParam::Hue:
        return bool(change.hue = integerIn(value, 0, 65535));
    case LightParam::Sat:
        return bool(change.sat = integerIn(value, 0, 255));
    case LightParam::Ct:
        return bool(change.ct = integerIn(value, 0, 65535));
    case LightParam::Xy:
        return bool(change.xy = pairIn(value, 0.0, 1.0));
    case LightParam::Alert:
        return bool(change.alert = oneOf(value, {"none", "select", "lselect"}));
    case LightParam::Effect:
        return bool(change.effect = oneOf(value, {"none", "colorloop"}));
    case LightParam::TransitionTime:
        return bool(change.transitionTime = integerIn(value, 0, 65535));
    case LightParam::BriInc:
        return bool(change.briInc = integerIn(value, -254, 254));
    case LightParam::SatInc:
        return bool(change.satInc = integerIn(value, -254, 254));
    case LightParam::HueInc:
        return bool(change.hueInc = integerIn(value, -65534, 65534));
    case LightParam::CtInc:
        return bool(change.ctInc = integerIn(value, -65534, 65534));
    case LightParam::XyInc:
        return bool(change.xyInc = pairIn(value, -0.5, 0.5));
    }
    return false;
}

// A group's action after a change: the same clamping as for lights, on a stand-in light of the
// group's kind.
LightState groupActionAfter(const LightState& action, LightKind kind, const LightChange& change)
{
    LightDescription description;
    description.kind = kind;
    description.gamut = GamutType::C;
    description.ctMin = 153;
    description.ctMax = 500;
    EmulatedLight standIn("0", "", description);
    standIn.restoreState(action);
    standIn.apply(change, EmulatedLight::Source::Physical);
    return standIn.state();
}

} // namespace

std::unique_ptr<CArray> applyLightState(EmulatedLight& light, const CObject& body, const std::string& address)
{
    auto results = std::make_unique<CArray>();
    if (body.Count() == 0) {
        addMissingParameters(*results, address);
        return results;
    }
    // Whether the light will be on decides which parameters it takes, wherever "on" stands.
    bool willBeOn = light.state().on;
    if (const CEntity* on = body.Find("on"); on && on->IsBoolean())
        willBeOn = on->Boolean().Value();

    LightChange change;
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& name = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        const std::string target = address + "/" + name;
        const auto param = paramFromName(name);
        if (!param || !light.supports(*param)) {
            addParameterNotAvailable(*results, target, name);
            continue;
        }
        LightChange single;
        if (!readParam(*param, value, single)) {
            addInvalidValue(*results, target, value, name);
            continue;
        }
        if (!willBeOn && !allowedWhileOff(*param)) {
            addDeviceIsOff(*results, target, name);
            continue;
        }
        readParam(*param, value, change);
        addSuccess(*results, target, value);
    }
    light.apply(change, EmulatedLight::Source::Command);
    return results;
}

std::unique_ptr<CArray> applyGroupAction(LightStore& store, EmulatedGroup& group, const CObject& body,
                                         const std::string& address)
{
    auto results = std::make_unique<CArray>();
    if (body.Count() == 0) {
        addMissingParameters(*results, address);
        return results;
    }
    LightChange change;
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& name = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        const std::string target = address + "/" + name;
        const auto param = paramFromName(name);
        if (!param) {
            addParameterNotAvailable(*results, target, name);
            continue;
        }
        if (!readParam(*param, value, change)) {
            addInvalidValue(*results, target, value, name);
            continue;
        }
        addSuccess(*results, target, value);
    }
    for (EmulatedLight* member : store.members(group))
        member->apply(change, EmulatedLight::Source::Command);
    group.action = groupActionAfter(group.action, store.groupKind(group), change);
    return results;
}

std::unique_ptr<CArray> applyAttributes(LightStore& store, const std::string& resource, const CObject& body,
                                        const std::string& address)
{
    auto results = std::make_unique<CArray>();
    if (body.Count() == 0) {
        addMissingParameters(*results, address);
        return results;
    }
    EmulatedLight* light =
        resource == "lights" ? store.light(address.substr(address.rfind('/') + 1)) : nullptr;
    EmulatedGroup* group =
        resource == "groups" ? store.group(address.substr(address.rfind('/') + 1)) : nullptr;
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& name = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        const std::string target = address + "/" + name;
        if (name == "name") {
            // Bridges take names of 1 to 32 bytes.
            if (!value.IsString() || value.StringValue().empty() || value.StringValue().size() > 32) {
                addInvalidValue(*results, target, value, name);
                continue;
            }
            if (light)
                light->setName(value.StringValue());
            if (group)
                group->name = value.StringValue();
            addSuccess(*results, target, value);
        } else if (name == "lights" && group) {
            if (!value.IsArray()) {
                addInvalidValue(*results, target, value, name);
                continue;
            }
            std::vector<std::string> ids;
            bool valid = true;
            for (int k = 0; k < value.Count(); ++k) {
                valid = valid && value[k].IsString() && store.light(value[k].StringValue());
                if (valid)
                    ids.push_back(value[k].StringValue());
            }
            if (!valid) {
                addInvalidValue(*results, target, value, name);
                continue;
            }
            group->lights = ids;
            addSuccess(*results, target, value);
        } else {
            addParameterNotAvailable(*results, target, name);
        }
    }
    return results;
}

} // namespace bridgeemu::v1
