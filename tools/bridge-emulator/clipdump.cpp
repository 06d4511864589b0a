#include "clipstate.h"

#include <minijson.h>

namespace bridgeemu {

using namespace minijson;

ClipState::ClipState() = default;
ClipState::~ClipState() = default;
ClipState::ClipState(ClipState&&) noexcept = default;
ClipState& ClipState::operator=(ClipState&&) noexcept = default;

bool loadClipDump(const std::string& path, ClipState& state, std::string* error)
{
    const auto fail = [error](const std::string& message) {
        if (error)
            *error = message;
        return false;
    };
    std::unique_ptr<CEntity> document;
    try {
        document = CParser::ParseFromFile(path);
    } catch (const CException& e) {
        return fail("cannot read the resource dump " + path + ": " + e.Message());
    }
    const CEntity* list = document.get();
    if (document->IsObject() && document->Object().GetArray("data"))
        list = document->Object().GetArray("data");
    if (!list->IsArray())
        return fail("the resource dump " + path + " is neither an array nor {\"data\":[...]}");

    std::vector<std::unique_ptr<CObject>> resources;
    std::vector<GeofenceClient> clients;
    for (int i = 0; i < list->Count(); ++i) {
        const CEntity& item = (*list)[i];
        if (!item.IsObject() || item.Object().GetString("id").empty() ||
            item.Object().GetString("type").empty())
            return fail("resource " + std::to_string(i) + " of the dump has no id or type");
        const CObject& resource = item.Object();
        // Geofence clients are the one resource type that applications create and change, so
        // they join the bridge's own list.
        if (resource.GetString("type") == "geofence_client") {
            clients.push_back(
                {resource.GetString("id"), resource.GetString("name"), resource.GetBoolean("is_at_home")});
            continue;
        }
        auto copy = resource.Copy();
        resources.emplace_back(static_cast<CObject*>(copy.release()));
    }
    state.dump = std::move(resources);
    state.geofenceClients.insert(state.geofenceClients.begin(), clients.begin(), clients.end());
    state.servingDump = true;
    return true;
}

} // namespace bridgeemu
