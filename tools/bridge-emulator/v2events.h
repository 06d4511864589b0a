#pragma once

#include "v2render.h"

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace bridgeemu::v2 {

// Turns successive views of the bridge's resources into the events a bridge streams: "add" with
// the whole new resource, "update" with id, id_v1, owner, type and only the members that changed
// (an object member with only its changed children), "delete" with id, id_v1, owner and type.
// Comparing whole views catches every change, whichever API or control made it, and folds the
// changes between two views into one set of events as a bridge does over a short window.
class ResourceEvents
{
public:
    // The view later changes are compared with.
    void reset(const ResourceList& resources);
    // The events from the last view to this one, as the JSON array text of one stream message;
    // empty when nothing changed. `resources` becomes the last view.
    // With `withoutMirekValid`, update events leave "mirek_valid" out of "color_temperature".
    std::string advance(const ResourceList& resources, std::chrono::system_clock::time_point now,
                        bool withoutMirekValid = false);

private:
    std::map<std::string, std::unique_ptr<minijson::CObject>> m_last; // by id
    std::vector<std::string> m_order;
};

// A time as bridges write "creationtime": "2024-05-01T10:20:30Z".
std::string eventTime(std::chrono::system_clock::time_point time);

// The JSON array text of `count` stream messages, each one "update" event of a resource of
// `type` that the emulated lights do not stand for (a scene, a button, a sensor ...): ids that
// rotate over four such resources of the bridge and data as a bridge sends for that type
// (only id and type for a type it does not know).
std::vector<std::string> foreignUpdateMessages(const std::string& bridgeId, const std::string& type,
                                               int count, std::chrono::system_clock::time_point now);

} // namespace bridgeemu::v2
