#pragma once

#include "emulatedlight.h"

#include <optional>
#include <string>
#include <string_view>

namespace bridgeemu {

// A light to create: its kind and, optionally, the model, gamut and name it should have.
struct LightSpec
{
    LightKind kind = LightKind::ExtendedColor;
    std::optional<GamutType> gamut; // colour kinds only; default A for colour, C for extended colour
    std::string modelId;            // empty: a real model of that kind and gamut
    std::string name;               // empty: the product name and a number
};

// The names used on the command line and in the control API: "onoff", "dimmable", "ct",
// "color", "extended".
std::optional<LightKind> lightKindFromName(std::string_view name);
const char* lightKindName(LightKind kind);
// The v1 "type" text: "On/Off plug-in unit", "Dimmable light", "Color temperature light",
// "Color light", "Extended color light".
const char* lightTypeText(LightKind kind);

// The description of a real Hue product matching what is wanted. `serial` tells lights of the same
// bridge apart in their unique ids and picks among the models of a kind.
LightDescription describeLight(const LightSpec& wanted, std::string_view bridgeId, int serial);

} // namespace bridgeemu
