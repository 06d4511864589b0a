#include "lightcatalog.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace bridgeemu {

namespace {

struct Model
{
    const char* modelId;
    const char* productName;
    const char* archetype;
    const char* swVersion;
    GamutType gamut;
    int ctMin, ctMax, maxLumen, minDimLevel;
};

// Products as bridges list them; the first one of a kind and gamut is used unless the serial
// picks another, so that a set of lights looks like a real household.
const std::vector<Model>& modelsOf(LightKind kind)
{
    static const std::vector<Model> onOff = {
        {"LOM001", "Hue Smart plug", "plug", "1.65.11_hB798F2B", GamutType::None, 0, 0, 0, 0},
    };
    static const std::vector<Model> dimmable = {
        {"LWB010", "Hue white lamp", "classicbulb", "1.90.1", GamutType::None, 0, 0, 806, 5000},
        {"LWB014", "Hue white lamp", "classicbulb", "1.90.1", GamutType::None, 0, 0, 840, 5000},
    };
    static const std::vector<Model> colorTemperature = {
        {"LTW012", "Hue ambiance candle", "candlebulb", "1.90.1", GamutType::None, 153, 454, 470, 1000},
        {"LTW001", "Hue ambiance lamp", "classicbulb", "1.90.1", GamutType::None, 153, 454, 806, 1000},
    };
    static const std::vector<Model> color = {
        {"LLC011", "Hue bloom", "huebloom", "67.116.3", GamutType::A, 0, 0, 120, 10000},
        {"LST001", "Hue lightstrip", "huelightstrip", "67.116.3", GamutType::A, 0, 0, 120, 10000},
        {"LLC012", "Hue bloom", "huebloom", "67.116.3", GamutType::B, 0, 0, 120, 10000},
    };
    static const std::vector<Model> extendedColor = {
        {"LCT015", "Hue color lamp", "sultanbulb", "1.90.1", GamutType::C, 153, 500, 806, 1000},
        {"LST002", "Hue lightstrip plus", "huelightstrip", "67.91.1", GamutType::C, 153, 500, 1600, 40},
        {"LCA001", "Hue color lamp", "sultanbulb", "1.90.1", GamutType::C, 153, 500, 806, 200},
        {"LCT001", "Hue color lamp", "sultanbulb", "5.105.0.21169", GamutType::B, 153, 500, 600, 1000},
    };
    switch (kind) {
    case LightKind::OnOff:
        return onOff;
    case LightKind::Dimmable:
        return dimmable;
    case LightKind::ColorTemperature:
        return colorTemperature;
    case LightKind::Color:
        return color;
    case LightKind::ExtendedColor:
        break;
    }
    return extendedColor;
}

GamutType defaultGamut(LightKind kind)
{
    if (kind == LightKind::Color)
        return GamutType::A;
    if (kind == LightKind::ExtendedColor)
        return GamutType::C;
    return GamutType::None;
}

const Model& pickModel(const LightSpec& wanted, int serial)
{
    const std::vector<Model>& models = modelsOf(wanted.kind);
    for (const Model& model : models) {
        if (!wanted.modelId.empty() && wanted.modelId == model.modelId)
            return model;
    }
    const GamutType gamut = wanted.gamut.value_or(defaultGamut(wanted.kind));
    std::vector<const Model*> matching;
    for (const Model& model : models) {
        if (model.gamut == gamut || !kindHasColor(wanted.kind))
            matching.push_back(&model);
    }
    if (matching.empty())
        return models.front();
    return *matching[static_cast<std::size_t>(serial) % matching.size()];
}

} // namespace

std::optional<LightKind> lightKindFromName(std::string_view name)
{
    for (const LightKind kind : {LightKind::OnOff, LightKind::Dimmable, LightKind::ColorTemperature,
                                 LightKind::Color, LightKind::ExtendedColor}) {
        if (name == lightKindName(kind))
            return kind;
    }
    return std::nullopt;
}

const char* lightKindName(LightKind kind)
{
    switch (kind) {
    case LightKind::OnOff:
        return "onoff";
    case LightKind::Dimmable:
        return "dimmable";
    case LightKind::ColorTemperature:
        return "ct";
    case LightKind::Color:
        return "color";
    case LightKind::ExtendedColor:
        break;
    }
    return "extended";
}

const char* lightTypeText(LightKind kind)
{
    switch (kind) {
    case LightKind::OnOff:
        return "On/Off plug-in unit";
    case LightKind::Dimmable:
        return "Dimmable light";
    case LightKind::ColorTemperature:
        return "Color temperature light";
    case LightKind::Color:
        return "Color light";
    case LightKind::ExtendedColor:
        break;
    }
    return "Extended color light";
}

LightDescription describeLight(const LightSpec& wanted, std::string_view bridgeId, int serial)
{
    const Model& model = pickModel(wanted, serial);
    LightDescription description;
    description.kind = wanted.kind;
    description.modelId = wanted.modelId.empty() ? model.modelId : wanted.modelId;
    description.productName = model.productName;
    description.archetype = model.archetype;
    description.swVersion = model.swVersion;
    description.gamut = kindHasColor(wanted.kind) ? wanted.gamut.value_or(model.gamut) : GamutType::None;
    description.ctMin = model.ctMin;
    description.ctMax = model.ctMax;
    description.maxLumen = model.maxLumen;
    description.minDimLevel = model.minDimLevel;

    // The vendor prefix of Hue lamps, then a byte of the bridge id (so two emulated bridges do
    // not share lamps), the kind and the serial; "-0b" is the lamp's light endpoint.
    const std::string lastByte(bridgeId.substr(bridgeId.size() >= 2 ? bridgeId.size() - 2 : 0));
    const unsigned bridgeByte = static_cast<unsigned>(std::strtoul(lastByte.c_str(), nullptr, 16));
    char uniqueId[32];
    std::snprintf(uniqueId, sizeof uniqueId, "00:17:88:01:%02x:%02x:%02x:%02x-0b", bridgeByte & 0xffu,
                  0x10u + static_cast<unsigned>(wanted.kind), (static_cast<unsigned>(serial) >> 8) & 0xffu,
                  static_cast<unsigned>(serial) & 0xffu);
    description.uniqueId = uniqueId;
    return description;
}

} // namespace bridgeemu
