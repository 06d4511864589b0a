#pragma once

#include <memory>
#include <string>
#include <vector>

namespace minijson {
class CObject;
}

namespace bridgeemu {

// An application's "geofence_client" resource: a named presence that apps create and rename.
struct GeofenceClient
{
    std::string id;
    std::string name;
    bool isAtHome = false;
};

// How this bridge's firmware writes a few CLIP v2 members; bridges in the field differ here and a
// client must take each way. They apply to the generated resources, not to a recorded dump.
struct ClipQuirks
{
    // A light resource carries its own "metadata" (name, archetype); firmware that deprecates it
    // leaves it to the owning device.
    bool lightMetadata = true;
    // A colour light not in colour temperature mode shows "mirek": null with "mirek_valid": true
    // (false: null with "mirek_valid": false).
    bool mirekNullInXy = false;
    // Update events carry "color_temperature" without "mirek_valid".
    bool eventsWithoutMirekValid = false;
};

// What the CLIP v2 side keeps beside the light model: geofence clients and, when the bridge
// serves a recorded resource dump, the dump's resources (which then stand in for the generated
// ones; changes to its lights are written into them).
struct ClipState
{
    ClipState();
    ~ClipState();
    ClipState(ClipState&&) noexcept;
    ClipState& operator=(ClipState&&) noexcept;

    bool enabled = true; // false: a bridge without CLIP v2, its paths answer 404
    ClipQuirks quirks;
    std::vector<GeofenceClient> geofenceClients;
    int nextGeofenceClient = 1;
    bool servingDump = false;
    std::vector<std::unique_ptr<minijson::CObject>> dump; // geofence clients moved out at load
};

// Reads a recorded answer to GET /clip/v2/resource (a JSON array of resources, or the envelope
// {"data":[...]}) into `state`. False with a message when the file cannot be used.
bool loadClipDump(const std::string& path, ClipState& state, std::string* error);

} // namespace bridgeemu
