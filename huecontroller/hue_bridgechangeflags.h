#pragma once

#include <QFlags>
#include <QMetaType>

namespace hue {

// Which parts of a light a bridge reply changed; carried by CBridge::lightChanged so that the
// controller sends only the affected output datapoints.
enum ChangeFlag : int
{
    ChangedOn = 0x01,
    ChangedBrightness = 0x02,
    ChangedColor = 0x04, // hue, saturation, xy or colour temperature
    ChangedColorMode = 0x08,
    ChangedReachable = 0x10,
    ChangedName = 0x20,
    ChangedMetadata = 0x40, // type, model, manufacturer, product, software version
    ChangedMembers = 0x80,  // a group's lights
};
Q_DECLARE_FLAGS(ChangeFlags, ChangeFlag)
Q_DECLARE_OPERATORS_FOR_FLAGS(ChangeFlags)

} // namespace hue

Q_DECLARE_METATYPE(hue::ChangeFlags)
