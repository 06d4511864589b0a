#pragma once

#include "emulatedlight.h"

#include <optional>
#include <string>
#include <vector>

namespace minijson {
class CObject;
}

namespace bridgeemu::v2 {

// A PUT body for a light or device as values: which of them the target has is checked by the
// caller against the resource it shows.
struct ClipChange
{
    std::optional<bool> on;
    std::optional<double> brightness; // percent, 0..100
    std::optional<XY> xy;
    std::optional<int> mirek;
    std::optional<int> durationMs;
    std::optional<std::string> name;
    bool breathe = false;              // "alert": {"action":"breathe"}
    std::vector<std::string> features; // the top-level members the body names, in body order
};

// Reads a light's (or, with `deviceOnly`, a device's) change body. Every problem adds one error
// description; the change is usable only when none was added.
ClipChange readChange(const minijson::CObject& body, bool deviceOnly, std::vector<std::string>& errors);

// Applies a change to a light of the model, as the bridge would relay it to the lamp.
void applyToLight(EmulatedLight& light, const ClipChange& change);
// Applies it to a light resource of a recorded dump, keeping the resource's own conventions
// (null mirek while an xy colour shows, mirek within its schema).
void applyToDumpLight(minijson::CObject& light, const ClipChange& change);

// A geofence client's name and presence for POST and PUT: false with an error description.
bool readGeofenceClient(const minijson::CObject& body, std::optional<std::string>& name,
                        std::optional<bool>& isAtHome, std::vector<std::string>& errors);

} // namespace bridgeemu::v2
