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
std::unique_ptr<CObject> changedMembers(const CObject& before, const CObject& after)
{
    auto item = skeleton(after);
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

std::string ResourceEvents::advance(const ResourceList& resources, std::chrono::system_clock::time_point now)
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
        else if (auto changes = changedMembers(*earlier->second, *resource))
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

} // namespace bridgeemu::v2
