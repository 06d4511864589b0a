#pragma once

#include "bridgemodel.h"

#include <minijson.h>

#include <memory>
#include <string>
#include <vector>

namespace bridgeemu::v2 {

using ResourceList = std::vector<std::unique_ptr<minijson::CObject>>;

// Every resource the bridge shows under /clip/v2/resource, in the order a bridge lists them:
// generated from the light model (bridge, devices, lights, connectivity, rooms, zones, grouped
// lights, geofence clients), or the recorded dump with the geofence clients of the model.
ResourceList renderResources(const BridgeModel& model);

// The ids of the resources that stand for light `lightId` and group `groupId` of the model.
std::string deviceIdOfLight(const BridgeModel& model, const std::string& lightId);
std::string lightResourceId(const BridgeModel& model, const std::string& lightId);
std::string connectivityIdOfLight(const BridgeModel& model, const std::string& lightId);
std::string groupResourceId(const BridgeModel& model, const EmulatedGroup& group); // room or zone
std::string groupedLightId(const BridgeModel& model, const std::string& groupId);

// The v2 "archetype" of a light ("sultan_bulb") from the v1 one ("sultanbulb").
std::string archetypeName(const std::string& v1Archetype);

} // namespace bridgeemu::v2
