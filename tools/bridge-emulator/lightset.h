#pragma once

#include "lightstore.h"

#include <optional>
#include <string>
#include <vector>

namespace bridgeemu {

// Parses "extended:3,ct:2,dimmable:1,onoff:1,color:1". A kind may carry a gamut suffix
// ("color-b:1", "extended-b:2"); a count may be left out (1). Returns nothing on a malformed text
// and sets `error`.
std::optional<std::vector<LightSpec>> parseLightSet(const std::string& text, std::string* error);
// A handful of every kind.
std::vector<LightSpec> defaultLightSet();
// Two rooms splitting the lights and a light group of the colour lights, as a household has.
void addDefaultGroups(LightStore& store);

} // namespace bridgeemu
