#pragma once

#include <QtGlobal>

namespace hue {

// One value of a pending change request for a light. The numeric order is also the order in
// which a request body is assembled, which is why the pending commands are kept in a QMap.
enum ChangeItem : qint32
{
    ChangeOn = 0,             // bool
    ChangeX = 1,              // float, CIE x
    ChangeY = 2,              // float, CIE y
    ChangeColorTemp = 3,      // int, mired
    ChangeBrightness = 4,     // int, 1..254
    ChangeHue = 5,            // int, 0..65535
    ChangeSaturation = 6,     // int, 0..254
    ChangeTransitionTime = 7, // int, tenths of a second
    ChangeTimer = 8,          // switch-on timer of timed start/stop
};

} // namespace hue
