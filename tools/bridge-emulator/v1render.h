#pragma once

#include "bridgemodel.h"

#include <memory>

namespace minijson {
class CObject;
}

namespace bridgeemu::v1 {

// The bridge's objects as REST API version 1 shows them.
std::unique_ptr<minijson::CObject> renderLight(const EmulatedLight& light);
std::unique_ptr<minijson::CObject> renderLights(const LightStore& store);
std::unique_ptr<minijson::CObject> renderGroup(const EmulatedGroup& group, const LightStore& store);
std::unique_ptr<minijson::CObject> renderGroups(const LightStore& store);
// "state" or a group's "action": only the members a light of `kind` has.
std::unique_ptr<minijson::CObject> renderState(const LightState& state, LightKind kind, bool withReachable);

// What anybody may read: enough to identify the bridge.
std::unique_ptr<minijson::CObject> renderPublicConfig(const BridgeIdentity& identity);
// What a whitelisted application reads, whitelist included.
std::unique_ptr<minijson::CObject> renderFullConfig(const BridgeModel& model);
// GET /api/<user>: lights, groups, config and the (empty) other resources.
std::unique_ptr<minijson::CObject> renderDatastore(const BridgeModel& model);

const char* colorModeText(ColorMode mode); // "hs", "xy", "ct" or ""

} // namespace bridgeemu::v1
