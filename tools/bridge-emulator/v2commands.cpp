#include "v2commands.h"

#include <minijson.h>

#include <algorithm>
#include <cmath>

namespace bridgeemu::v2 {

using namespace minijson;

namespace {

std::optional<double> numberIn(const CEntity* value, double low, double high)
{
    if (!value || !value->IsNumber())
        return std::nullopt;
    const double number = value->Number().ValueDouble();
    if (number < low || number > high)
        return std::nullopt;
    return number;
}

// Names of 1 to 32 bytes, as bridges take them.
std::optional<std::string> nameIn(const CEntity* value)
{
    if (!value || !value->IsString() || value->StringValue().empty() || value->StringValue().size() > 32)
        return std::nullopt;
    return value->StringValue();
}

void readMetadata(const CEntity& value, ClipChange& change, std::vector<std::string>& errors)
{
    const auto name = value.IsObject() ? nameIn(value.Object().Find("name")) : std::nullopt;
    if (!name)
        errors.push_back("invalid value for metadata.name: a text of 1 to 32 bytes is required");
    change.name = name;
}

void readLightMember(const std::string& member, const CEntity& value, ClipChange& change,
                     std::vector<std::string>& errors)
{
    const CObject* object = value.IsObject() ? &value.Object() : nullptr;
    const auto invalid = [&](const char* what) {
        errors.push_back(std::string("invalid value for ") + what);
    };
    if (member == "on") {
        const CEntity* on = object ? object->Find("on") : nullptr;
        if (on && on->IsBoolean())
            change.on = on->Boolean().Value();
        else
            invalid("on.on: a boolean is required");
    } else if (member == "dimming") {
        if (!(change.brightness = numberIn(object ? object->Find("brightness") : nullptr, 0.0, 100.0)))
            invalid("dimming.brightness: a number from 0 to 100 is required");
    } else if (member == "color") {
        const CObject* xy = object ? object->GetObject("xy") : nullptr;
        const auto x = numberIn(xy ? xy->Find("x") : nullptr, 0.0, 1.0);
        const auto y = numberIn(xy ? xy->Find("y") : nullptr, 0.0, 1.0);
        if (x && y)
            change.xy = XY{*x, *y};
        else
            invalid("color.xy: x and y from 0 to 1 are required");
    } else if (member == "color_temperature") {
        const auto mirek = numberIn(object ? object->Find("mirek") : nullptr, 50.0, 1000.0);
        if (mirek && *mirek == std::floor(*mirek))
            change.mirek = static_cast<int>(*mirek);
        else
            invalid("color_temperature.mirek: an integer from 50 to 1000 is required");
    } else if (member == "dynamics") {
        const auto duration = numberIn(object ? object->Find("duration") : nullptr, 0.0, 6000000.0);
        if (duration)
            change.durationMs = static_cast<int>(*duration);
        else
            invalid("dynamics.duration: milliseconds from 0 to 6000000 are required");
    } else if (member == "alert") {
        if (object && object->GetString("action") == "breathe")
            change.breathe = true;
        else
            invalid("alert.action: \"breathe\" is required");
    } else if (member == "metadata") {
        readMetadata(value, change, errors);
    } else if (member != "type") {
        errors.push_back("unknown attribute " + member);
    }
}

} // namespace

ClipChange readChange(const CObject& body, bool deviceOnly, std::vector<std::string>& errors)
{
    ClipChange change;
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& member = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        change.features.push_back(member);
        if (deviceOnly) {
            if (member == "metadata")
                readMetadata(value, change, errors);
            else if (member != "type")
                errors.push_back("unknown attribute " + member);
        } else {
            readLightMember(member, value, change, errors);
        }
    }
    if (body.Count() == 0)
        errors.push_back("the body names nothing to change");
    return change;
}

void applyToLight(EmulatedLight& light, const ClipChange& change)
{
    LightChange command;
    command.on = change.on;
    if (change.brightness)
        command.bri = std::clamp(static_cast<int>(std::lround(*change.brightness * 2.54)), 1, 254);
    command.xy = change.xy;
    command.ct = change.mirek;
    if (change.durationMs)
        command.transitionTime = *change.durationMs / 100;
    if (change.breathe)
        command.alert = "select";
    light.apply(command, EmulatedLight::Source::Command);
    if (change.name)
        light.setName(*change.name);
}

void applyToDumpLight(CObject& light, const ClipChange& change)
{
    if (change.on)
        light.AddObject("on").SetBoolean("on", *change.on); // AddObject replaces the member
    if (change.brightness) {
        if (CObject* dimming = light.GetObject("dimming"))
            dimming->SetDouble("brightness", std::round(std::max(*change.brightness, 0.39) * 100.0) / 100.0);
    }
    CObject* temperature = light.GetObject("color_temperature");
    if (change.xy) {
        if (CObject* color = light.GetObject("color")) {
            CObject& xy = color->AddObject("xy");
            xy.SetDouble("x", roundXY(change.xy->x));
            xy.SetDouble("y", roundXY(change.xy->y));
        }
        if (temperature) {
            temperature->AddNull("mirek");
            temperature->SetBoolean("mirek_valid", false);
        }
    }
    if (change.mirek && temperature) {
        int mirek = *change.mirek;
        if (const CObject* schema = temperature->GetObject("mirek_schema"))
            mirek =
                std::clamp(mirek, schema->GetInt("mirek_minimum", 153), schema->GetInt("mirek_maximum", 500));
        temperature->SetInt("mirek", mirek);
        temperature->SetBoolean("mirek_valid", true);
    }
    if (change.name) {
        if (CObject* metadata = light.GetObject("metadata"))
            metadata->SetString("name", *change.name);
    }
}

bool readGeofenceClient(const CObject& body, std::optional<std::string>& name, std::optional<bool>& isAtHome,
                        std::vector<std::string>& errors)
{
    for (int i = 0; i < body.Count(); ++i) {
        const std::string& member = body.MemberNameByIndex(i);
        const CEntity& value = body.EntityAtIndex(i);
        if (member == "name") {
            if (!(name = nameIn(&value)))
                errors.push_back("invalid value for name: a text of 1 to 32 bytes is required");
        } else if (member == "is_at_home") {
            if (value.IsBoolean())
                isAtHome = value.Boolean().Value();
            else
                errors.push_back("invalid value for is_at_home: a boolean is required");
        } else if (member == "type") {
            if (!value.IsString() || value.StringValue() != "geofence_client")
                errors.push_back("invalid value for type: \"geofence_client\" is required");
        } else {
            errors.push_back("unknown attribute " + member);
        }
    }
    return errors.empty();
}

} // namespace bridgeemu::v2
