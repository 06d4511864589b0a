#pragma once

#include "hue_clock.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace hue {

// How a light comes on when it is switched on without a colour.
enum ESwitchOnMode : qint32
{
    SwitchOnWhiteMaxBrightness = 1,  // "white_max_brightness"
    SwitchOnWhiteLastBrightness = 2, // "white_last_brightness"
    SwitchOnLastColor = 3,           // "last_color"
};

// What the bridge keeps per light beside the light model: the bridge's own words for it and the
// per-light settings of the command executor.
struct BridgeLightData
{
    QString name;
    QByteArray typeName; // the bridge's "type", e.g. "Extended color light"
    bool reachable = true;
    QList<QByteArray> memberLights; // a group's lights (bridge light ids)
    ESwitchOnMode switchOnMode = SwitchOnWhiteMaxBrightness;
    ElapsedTimer lastLifeSign;
};

} // namespace hue
