#pragma once

#include <QString>
#include <QtGlobal>

namespace hue {

// What the controller knows about a bridge; persisted under "hueBridges/" + bridge id as the
// texts below, so the numbers and texts never change.
enum EBridgeState : qint32
{
    BridgeStateNew = 0,
    BridgeStatePair = 1,
    BridgeStateIgnore = 2,
    BridgeStatePaired = 3,
    BridgeStateError = 4,
    BridgeStateVersion = 5, // firmware too old
    BridgeStateDelete = 6,
    BridgeStateInvalid = 7,
};

// "new", "pair", ...; "invalid" for any value outside 0..6.
QString bridgeStateText(EBridgeState state);
// The inverse; unknown text gives BridgeStateInvalid.
EBridgeState bridgeStateFromText(const QString& text);

} // namespace hue
