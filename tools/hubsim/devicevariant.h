#pragma once

#include "deviceregistry.h"
#include "writetracker.h"

#include <QVariantMap>

// The maps the control service answers with and hubctl prints (and writes as JSON). Keys:
//
// device: "id", "client", "registered", "registrations", "descriptionValid",
//         "descriptionError", "warnings" (list), "lastLifeSign" ("" before the first),
//         "unresponsive", "attributes" (map), "dataPoints" (list of datapoint maps)
// datapoint: "id", "direction" ("input"/"output"/"parameter"), "index", "functionId" (as the
//         file writes it), "name", "described" (false for a value the description does not
//         list), "hasValue", "value", "changed" ("" without value)
// write:  "token", "id", "value", "sent", "confirmed" (bool), "result" (-1 until confirmed)
//
// Times are ISO 8601 texts with milliseconds in local time.
namespace devicevariant {

QString timeText(const QDateTime& time);
QVariantMap fromDevice(const RegisteredDevice& device);
QVariantMap fromWrite(const WriteTracker::Write& write);

} // namespace devicevariant
