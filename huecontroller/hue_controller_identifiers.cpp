// The controller's hub identifiers of a light: its datapoint and parameter identifiers, and the
// way back from a device serial to the bridge and the light.

#include "hue_controller.h"

#include "hue_bridge.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"

namespace hue {

namespace {

// The lower 32 bits of a light's device serial: the bridge's short id, then the light's hub id.
int shortIdOf(const InternalId& device)
{
    return int(device.getNumber() >> 16);
}

quint16 velIdOf(const InternalId& device)
{
    return quint16(device.getNumber() & 0xFFFF);
}

// The light type's description has no index -1 entries: those give an empty identifier.
bool isIndex(int index)
{
    return index >= 0 && index <= 0xFF;
}

} // namespace

InternalId CController::getInputDatapointSerial(const CLight& light, quint16 channel,
                                                EInputDatapoint datapoint) const
{
    const int index = light.device() ? light.device()->inputDatapointIndex(datapoint) : -1;
    if (!isIndex(index))
        return {};
    return InternalId::makeInputDataPointSerial(light.deviceSerial(), channel, quint8(index));
}

InternalId CController::getOutputDatapointSerial(const CLight& light, quint16 channel,
                                                 EOutputDatapoint datapoint) const
{
    const int index = light.device() ? light.device()->outputDatapointIndex(datapoint) : -1;
    if (!isIndex(index))
        return {};
    return InternalId::makeOutputDataPointSerial(light.deviceSerial(), channel, quint8(index));
}

InternalId CController::getParameterSerial(const CLight& light, quint16 channel, EParameter parameter) const
{
    const int index = light.device() ? light.device()->parameterIndex(parameter) : -1;
    if (!isIndex(index))
        return {};
    return InternalId::makeChannelParameterSerial(light.deviceSerial(), channel, quint8(index));
}

CLight* CController::lightByDeviceSerial(const InternalId& id) const
{
    if (id.getKind() != InternalId::Device) {
        LOG_WARNING << "Invalid light serial" << id;
        return nullptr;
    }
    const CBridge* bridge = bridgeByShortID(shortIdOf(id));
    if (!bridge) {
        LOG_WARNING << "Bridge not found. shortID:" << shortIdOf(id);
        return nullptr;
    }
    return bridge->lightByVelId(velIdOf(id));
}

bool CController::getBridgeAndHueId(CBridge** bridge, QByteArray* hueId, const InternalId& id) const
{
    *bridge = nullptr;
    hueId->clear();
    if (id.getKind() != InternalId::Device) {
        LOG_WARNING << "Invalid device serial" << id;
        return false;
    }
    *bridge = bridgeByShortID(shortIdOf(id));
    if (!*bridge) {
        LOG_WARNING << "Have no bridge with shortId" << shortIdOf(id);
        return false;
    }
    *hueId = (*bridge)->hueIdByVelId(velIdOf(id));
    return !hueId->isEmpty();
}

} // namespace hue
