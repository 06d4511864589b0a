#pragma once

#include "json/minijson.h"

#include <QByteArray>

#include <memory>
#include <string>
#include <vector>

namespace hue {

// One event of an event-stream message: its type ("update", "add" or "delete") and the
// resources it carries (each an object).
struct StreamEvent
{
    std::string type;
    std::vector<const minijson::CObject*> resources;
};

// The events of one message's data, with the parsed document that they point into.
struct StreamEventBatch
{
    std::unique_ptr<minijson::CEntity> document;
    std::vector<StreamEvent> events;
};

// Reads a message's data: a JSON array of event objects, each with "type" and a "data" array of
// resources. Whatever does not have that shape (no JSON, not an array, an event without "type"
// or "data", an unknown type, a resource that is not an object) is logged and skipped; "error"
// events are logged only. Pure: tests and the fuzzer call it directly. `dump` logs the array.
StreamEventBatch parseStreamEvents(const QByteArray& data, bool dump = false);

} // namespace hue
