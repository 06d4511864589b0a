#include "v2events.h"

#include "resourceids.h"

#include <minijson.h>

#include <ctime>
#include <set>

namespace bridgeemu::v2 {

using namespace minijson;

namespace {

bool same(const CEntity& a, const CEntity& b)
{
    return a.ToString() == b.ToString();
}

// The identifying members every event resource carries.
std::unique_ptr<CObject> skeleton(const CObject& resource)
{
    auto item = std::make_unique<CObject>();
    item->SetString("id", resource.GetString("id"));
    if (const CEntity* idV1 = resource.Find("id_v1"))
        item->Add("id_v1", idV1->Copy());
    if (const CEntity* owner = resource.Find("owner"))
        item->Add("owner", owner->Copy());
    item->SetString("type", resource.GetString("type"));
    return item;
}

// The changed members of an updated resource, or null when nothing changed.
std::unique_ptr<CObject> changedMembers(const CObject& before, const CObject& after, bool withoutMirekValid)
{
    auto item = skeleton(after);
    const int identifying = item->Count();
    bool changed = false;
    for (int i = 0; i < after.Count(); ++i) {
        const std::string& name = after.MemberNameByIndex(i);
        const CEntity& now = after.EntityAtIndex(i);
        const CEntity* earlier = before.Find(name);
        if (earlier && same(*earlier, now))
            continue;
        changed = true;
        if (!earlier || !earlier->IsObject() || !now.IsObject()) {
            item->Add(name, now.Copy());
            continue;
        }
        CObject& part = item->AddObject(name);
        const CObject& nowObject = now.Object();
        for (int k = 0; k < nowObject.Count(); ++k) {
            const std::string& child = nowObject.MemberNameByIndex(k);
            const CEntity* old = earlier->Object().Find(child);
            if (!old || !same(*old, nowObject.EntityAtIndex(k)))
                part.Add(child, nowObject.EntityAtIndex(k).Copy());
        }
    }
    if (CObject* temperature = withoutMirekValid ? item->GetObject("color_temperature") : nullptr) {
        temperature->Remove("mirek_valid");
        if (temperature->Count() == 0)
            item->Remove("color_temperature");
        changed = item->Count() > identifying;
    }
    return changed ? std::move(item) : nullptr;
}

void addEvent(CArray& events, const char* type, std::unique_ptr<CArray> data, const std::string& time)
{
    if (data->Count() == 0)
        return;
    CObject& event = events.AddObject();
    event.SetString("creationtime", time);
    event.Add("data", std::move(data));
    event.SetString("id", randomUuid());
    event.SetString("type", type);
}

} // namespace

std::string eventTime(std::chrono::system_clock::time_point time)
{
    const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char text[40];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

void ResourceEvents::reset(const ResourceList& resources)
{
    m_last.clear();
    m_order.clear();
    for (const auto& resource : resources) {
        const std::string id = resource->GetString("id");
        m_order.push_back(id);
        m_last[id].reset(static_cast<CObject*>(resource->Copy().release()));
    }
}

std::string ResourceEvents::advance(const ResourceList& resources, std::chrono::system_clock::time_point now,
                                    bool withoutMirekValid)
{
    auto added = std::make_unique<CArray>();
    auto updated = std::make_unique<CArray>();
    auto deleted = std::make_unique<CArray>();
    std::set<std::string> present;
    for (const auto& resource : resources) {
        const std::string id = resource->GetString("id");
        present.insert(id);
        const auto earlier = m_last.find(id);
        if (earlier == m_last.end())
            added->Append(resource->Copy());
        else if (auto changes = changedMembers(*earlier->second, *resource, withoutMirekValid))
            updated->Append(std::move(changes));
    }
    for (const std::string& id : m_order) {
        if (!present.count(id))
            deleted->Append(skeleton(*m_last[id]));
    }
    reset(resources);

    CArray events;
    const std::string time = eventTime(now);
    addEvent(events, "add", std::move(added), time);
    addEvent(events, "update", std::move(updated), time);
    addEvent(events, "delete", std::move(deleted), time);
    return events.Count() ? events.ToString() : std::string();
}

namespace {

// The members a bridge sends in an update of a resource of `type`, the n-th such event.
void foreignData(CObject& data, const std::string& bridgeId, const std::string& type, int n,
                 const std::string& time)
{
    const std::string key = "other-" + std::to_string(n % 4 + 1);
    const bool sensor = type == "button" || type == "relative_rotary" || type == "motion" ||
                        type == "light_level" || type == "temperature" || type == "device_power";
    if (sensor) {
        data.SetString("id_v1", "/sensors/" + std::to_string(100 + n % 4));
        CObject& owner = data.AddObject("owner");
        owner.SetString("rid", resourceUuid(bridgeId, "device", key));
        owner.SetString("rtype", "device");
    }
    if (type == "scene") {
        data.SetString("id_v1", "/scenes/emulated" + std::to_string(n % 4 + 1));
        data.AddObject("status").SetString("active", n % 2 == 0 ? "static" : "inactive");
    } else if (type == "button") {
        CObject& button = data.AddObject("button");
        CObject& report = button.AddObject("button_report");
        report.SetString("updated", time);
        report.SetString("event", "short_release");
        button.SetString("last_event", "short_release");
    } else if (type == "smart_scene") {
        data.SetString("state", n % 2 == 0 ? "active" : "inactive");
    } else if (type == "behavior_instance") {
        data.SetBoolean("enabled", true);
        data.SetString("status", "running");
    } else if (type == "entertainment_configuration") {
        data.SetString("id_v1", "/groups/" + std::to_string(200 + n % 4));
        data.SetString("status", n % 2 == 0 ? "active" : "inactive");
    } else if (type == "relative_rotary") {
        CObject& rotary = data.AddObject("relative_rotary");
        for (const char* part : {"last_event", "rotary_report"}) {
            CObject& event = rotary.AddObject(part);
            if (part[0] == 'r')
                event.SetString("updated", time);
            event.SetString("action", n == 0 ? "start" : "repeat");
            CObject& rotation = event.AddObject("rotation");
            rotation.SetString("direction", n % 2 == 0 ? "clock_wise" : "counter_clock_wise");
            rotation.SetInt("steps", 30);
            rotation.SetInt("duration", 400);
        }
    } else if (type == "motion") {
        CObject& motion = data.AddObject("motion");
        motion.SetBoolean("motion", n % 2 == 0);
        motion.SetBoolean("motion_valid", true);
        CObject& report = motion.AddObject("motion_report");
        report.SetString("changed", time);
        report.SetBoolean("motion", n % 2 == 0);
    } else if (type == "light_level") {
        CObject& light = data.AddObject("light");
        light.SetInt("light_level", 18000 + 100 * n);
        light.SetBoolean("light_level_valid", true);
        CObject& report = light.AddObject("light_level_report");
        report.SetString("changed", time);
        report.SetInt("light_level", 18000 + 100 * n);
    } else if (type == "temperature") {
        const double celsius = 20.5 + (n % 10) / 10.0;
        CObject& temperature = data.AddObject("temperature");
        temperature.SetDouble("temperature", celsius);
        temperature.SetBoolean("temperature_valid", true);
        CObject& report = temperature.AddObject("temperature_report");
        report.SetString("changed", time);
        report.SetDouble("temperature", celsius);
    } else if (type == "device_power") {
        CObject& power = data.AddObject("power_state");
        power.SetString("battery_state", "normal");
        power.SetInt("battery_level", 90 - n % 10);
    } else if (type == "grouped_light") {
        // The bridge's home group: no light of the emulator belongs to it under this id.
        CObject& owner = data.AddObject("owner");
        owner.SetString("rid", resourceUuid(bridgeId, "bridge_home", key));
        owner.SetString("rtype", "bridge_home");
        data.AddObject("on").SetBoolean("on", n % 2 == 0);
    }
}

} // namespace

std::vector<std::string> foreignUpdateMessages(const std::string& bridgeId, const std::string& type,
                                               int count, std::chrono::system_clock::time_point now)
{
    std::vector<std::string> messages;
    const std::string time = eventTime(now);
    for (int n = 0; n < count; ++n) {
        CArray events;
        CObject& event = events.AddObject();
        event.SetString("creationtime", time);
        CObject& data = event.AddArray("data").AddObject();
        data.SetString("id", resourceUuid(bridgeId, type, "other-" + std::to_string(n % 4 + 1)));
        foreignData(data, bridgeId, type, n, time);
        data.SetString("type", type);
        event.SetString("id", randomUuid());
        event.SetString("type", "update");
        messages.push_back(events.ToString());
    }
    return messages;
}

} // namespace bridgeemu::v2
