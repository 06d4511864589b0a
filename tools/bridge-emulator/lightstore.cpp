#include "lightstore.h"

#include <algorithm>
#include <cstdlib>

namespace bridgeemu {

namespace {

std::optional<int> parseId(const std::string& id)
{
    if (id.empty() || id.size() > 6 || id.find_first_not_of("0123456789") != std::string::npos)
        return std::nullopt;
    return std::atoi(id.c_str());
}

int kindRank(LightKind kind)
{
    return static_cast<int>(kind);
}

} // namespace

std::string LightStore::addLight(const LightSpec& wanted)
{
    const int number = m_nextLightId++;
    const int serial = ++m_countByKind[wanted.kind];
    LightDescription description = describeLight(wanted, m_bridgeId, number);
    std::string name =
        wanted.name.empty() ? description.productName + " " + std::to_string(serial) : wanted.name;
    const std::string id = std::to_string(number);
    EmulatedLight light(id, std::move(name), std::move(description));
    // Half of the lights start switched on, so that a first poll sees both states.
    LightChange power;
    power.on = number % 2 == 1;
    light.apply(power, EmulatedLight::Source::Physical);
    m_lights.emplace(number, std::move(light));
    return id;
}

void LightStore::restoreLight(int number, std::string name, LightDescription description,
                              const LightState& state)
{
    ++m_countByKind[description.kind];
    EmulatedLight light(std::to_string(number), std::move(name), std::move(description));
    light.restoreState(state);
    m_lights.erase(number);
    m_lights.emplace(number, std::move(light));
    m_nextLightId = std::max(m_nextLightId, number + 1);
}

void LightStore::restoreGroup(int number, EmulatedGroup group)
{
    group.id = std::to_string(number);
    m_groups[number] = std::move(group);
    m_nextGroupId = std::max(m_nextGroupId, number + 1);
}

void LightStore::reserveNumbers(int nextLight, int nextGroup)
{
    m_nextLightId = std::max(m_nextLightId, nextLight);
    m_nextGroupId = std::max(m_nextGroupId, nextGroup);
}

void LightStore::clear()
{
    m_lights.clear();
    m_groups.clear();
    m_countByKind.clear();
    m_nextLightId = 1;
    m_nextGroupId = 1;
}

bool LightStore::removeLight(const std::string& id)
{
    const auto number = parseId(id);
    if (!number || m_lights.erase(*number) == 0)
        return false;
    for (auto& [groupNumber, group] : m_groups) {
        (void)groupNumber;
        group.lights.erase(std::remove(group.lights.begin(), group.lights.end(), id), group.lights.end());
    }
    return true;
}

EmulatedLight* LightStore::light(const std::string& id)
{
    const auto number = parseId(id);
    if (!number)
        return nullptr;
    const auto it = m_lights.find(*number);
    return it == m_lights.end() ? nullptr : &it->second;
}

const EmulatedLight* LightStore::light(const std::string& id) const
{
    return const_cast<LightStore*>(this)->light(id);
}

std::vector<const EmulatedLight*> LightStore::lights() const
{
    std::vector<const EmulatedLight*> result;
    for (const auto& entry : m_lights)
        result.push_back(&entry.second);
    return result;
}

std::vector<EmulatedLight*> LightStore::lights()
{
    std::vector<EmulatedLight*> result;
    for (auto& entry : m_lights)
        result.push_back(&entry.second);
    return result;
}

std::string LightStore::addGroup(const std::string& name, GroupType type,
                                 const std::vector<std::string>& lightIds)
{
    const int number = m_nextGroupId++;
    EmulatedGroup group;
    group.id = std::to_string(number);
    group.name = name;
    group.type = type;
    for (const std::string& lightId : lightIds) {
        if (light(lightId) &&
            std::find(group.lights.begin(), group.lights.end(), lightId) == group.lights.end())
            group.lights.push_back(lightId);
    }
    // The action starts as the state of the most capable member, so that it holds a colour mode
    // whenever the group has colour.
    const EmulatedLight* model = nullptr;
    for (const std::string& lightId : group.lights) {
        const EmulatedLight* member = light(lightId);
        if (!model || kindRank(member->kind()) > kindRank(model->kind()))
            model = member;
    }
    if (model)
        group.action = model->state();
    m_groups.emplace(number, std::move(group));
    return std::to_string(number);
}

bool LightStore::removeGroup(const std::string& id)
{
    const auto number = parseId(id);
    return number && *number != 0 && m_groups.erase(*number) > 0;
}

EmulatedGroup* LightStore::group(const std::string& id)
{
    const auto number = parseId(id);
    if (!number)
        return nullptr;
    if (*number == 0)
        return &allLightsGroup();
    const auto it = m_groups.find(*number);
    return it == m_groups.end() ? nullptr : &it->second;
}

const EmulatedGroup* LightStore::group(const std::string& id) const
{
    return const_cast<LightStore*>(this)->group(id);
}

std::vector<const EmulatedGroup*> LightStore::groups() const
{
    std::vector<const EmulatedGroup*> result;
    for (const auto& entry : m_groups)
        result.push_back(&entry.second);
    return result;
}

EmulatedGroup& LightStore::allLightsGroup()
{
    m_allLights.id = "0";
    m_allLights.name = "Group 0";
    m_allLights.type = GroupType::LightGroup;
    m_allLights.lights.clear();
    for (const auto& entry : m_lights)
        m_allLights.lights.push_back(entry.second.id());
    return m_allLights;
}

std::vector<EmulatedLight*> LightStore::members(const EmulatedGroup& group)
{
    std::vector<EmulatedLight*> result;
    for (const std::string& id : group.lights) {
        if (EmulatedLight* member = light(id))
            result.push_back(member);
    }
    return result;
}

std::vector<const EmulatedLight*> LightStore::members(const EmulatedGroup& group) const
{
    std::vector<const EmulatedLight*> result;
    for (const std::string& id : group.lights) {
        if (const EmulatedLight* member = light(id))
            result.push_back(member);
    }
    return result;
}

LightKind LightStore::groupKind(const EmulatedGroup& group) const
{
    LightKind richest = LightKind::OnOff;
    bool hasColor = false;
    bool hasColorTemperature = false;
    for (const EmulatedLight* member : members(group)) {
        hasColor = hasColor || kindHasColor(member->kind());
        hasColorTemperature = hasColorTemperature || kindHasColorTemperature(member->kind());
        if (kindRank(member->kind()) > kindRank(richest))
            richest = member->kind();
    }
    // A colour light and a colour-temperature light together can do what an extended one can.
    if (hasColor && hasColorTemperature)
        return LightKind::ExtendedColor;
    return richest;
}

} // namespace bridgeemu
