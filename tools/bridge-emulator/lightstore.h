#pragma once

#include "emulatedlight.h"
#include "lightcatalog.h"

#include <map>
#include <string>
#include <vector>

namespace bridgeemu {

enum class GroupType
{
    Room,
    LightGroup
};

struct EmulatedGroup
{
    std::string id;
    std::string name;
    GroupType type = GroupType::Room;
    std::string roomClass = "Other"; // rooms only
    std::vector<std::string> lights; // light ids in the order they were given
    LightState action;               // the last action sent to the group
};

// The bridge's lights and groups. Ids are numbers handed out in order and never reused, as a
// bridge does. Not thread-safe: the emulator serialises access.
class LightStore
{
public:
    explicit LightStore(std::string bridgeId = "001788fffe123456") : m_bridgeId(std::move(bridgeId)) {}

    std::string addLight(const LightSpec& wanted);
    bool removeLight(const std::string& id); // also takes it out of every group
    EmulatedLight* light(const std::string& id);
    const EmulatedLight* light(const std::string& id) const;
    std::vector<const EmulatedLight*> lights() const; // by id
    std::vector<EmulatedLight*> lights();

    // Unknown light ids are dropped. Returns the new id.
    std::string addGroup(const std::string& name, GroupType type, const std::vector<std::string>& lightIds);
    bool removeGroup(const std::string& id);
    EmulatedGroup* group(const std::string& id);
    const EmulatedGroup* group(const std::string& id) const;
    std::vector<const EmulatedGroup*> groups() const; // by id; without group 0
    // Puts back a light or group as it was kept from an earlier run, with its id; an id already
    // taken is replaced. Later additions take ids after every restored one.
    void restoreLight(int number, std::string name, LightDescription description, const LightState& state);
    void restoreGroup(int number, EmulatedGroup group);
    int nextLightNumber() const { return m_nextLightId; }
    int nextGroupNumber() const { return m_nextGroupId; }
    // Ids are never reused: not even those of lights and groups removed before a restart.
    void reserveNumbers(int nextLight, int nextGroup);
    void clear();

    // Group 0 is the bridge's implicit group of all lights; it is made on demand.
    EmulatedGroup& allLightsGroup();

    std::vector<EmulatedLight*> members(const EmulatedGroup& group);
    std::vector<const EmulatedLight*> members(const EmulatedGroup& group) const;
    // The most capable kind among the members: what the group's "action" can hold.
    LightKind groupKind(const EmulatedGroup& group) const;

private:
    std::string m_bridgeId;
    std::map<int, EmulatedLight> m_lights;
    std::map<int, EmulatedGroup> m_groups;
    EmulatedGroup m_allLights;
    int m_nextLightId = 1;
    int m_nextGroupId = 1;
    std::map<LightKind, int> m_countByKind; // for default names: "Hue color lamp 3"
};

} // namespace bridgeemu
