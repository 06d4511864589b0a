// The controller's light parameters (switch-on mode, day and night maximum, timer duration) and
// the one door through which output values reach the hub, with its bridge-state gates.

#include "hue_controller.h"

#include "hue_adaptor.h"
#include "hue_bridge.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"

#include <cmath>

namespace hue {

void CController::parameterValueChanged(const InternalId& id, const QString& value)
{
    if (id.getKind() != InternalId::ChannelParameter) {
        LOG_WARNING << Q_FUNC_INFO << "Unexpected parameterSerial format:" << id
                    << "expected format: <deviceid>/<channel>/<parameterIndex>";
        return;
    }
    CBridge* bridge = nullptr;
    QByteArray hueId;
    if (!getBridgeAndHueId(&bridge, &hueId, InternalId::makeDeviceSerial(id))) {
        LOG_ERROR << "deviceId not found:" << id;
        return;
    }
    CLight* light = bridge->lightById(hueId);
    if (!light) {
        LOG_WARNING << "Light with id " + hueId + " not found";
        return;
    }
    const EParameter parameter =
        light->device() ? light->device()->parameterForIndex(id.getIndex()) : PARAM_INVALID;
    bool ok = false;
    switch (parameter) {
    case PARAM_SWITCH_ON_MODE:
    case PARAM_POWER_ON_MODE: {
        const int mode = value.toInt(&ok, 10);
        if (!ok) {
            LOG_WARNING << "Failed to parse parameter value for SWITCH_ON_MODE" << value;
            return;
        }
        if (mode >= SwitchOnWhiteMaxBrightness && mode <= SwitchOnLastColor)
            bridge->setSwitchOnMode(hueId, ESwitchOnMode(mode));
        else
            LOG_DEBUG << "switch-on mode out of range, ignored:" << mode;
        return;
    }
    case PARAM_MAX_BRIGHTNESS_DAY:
    case PARAM_MAX_BRIGHTNESS_NIGHT:
    case PARAM_TIMER_DURATION: {
        const double number = value.toDouble(&ok);
        // Qt reads "nan" and "inf" as numbers; no maximum or duration can be one of them.
        if (!ok || !std::isfinite(number)) {
            LOG_WARNING << "value is not a valid number:" << value;
            return;
        }
        if (parameter == PARAM_MAX_BRIGHTNESS_DAY) {
            bridge->setMaximumBrightnessDay(hueId, number);
        } else if (parameter == PARAM_MAX_BRIGHTNESS_NIGHT) {
            bridge->setMaximumBrightnessNight(hueId, number);
        } else {
            // The start-stop timer counts milliseconds in an int: at most 24 days, never negative.
            constexpr double kMaxTimerSeconds = 24.0 * 24 * 3600;
            light->setTimerDurationSeconds(qBound(0.0, number, kMaxTimerSeconds));
            // A light already on with its timer goes off by the new duration.
            bridge->restartStartStopTimer();
        }
        return;
    }
    case PARAM_INVALID:
        break;
    }
    LOG_WARNING << "Invalid parameter account" << id << value;
}

void CController::sendDataPointValue(const InternalId& id, const QString& value)
{
    CBridge* bridge = nullptr;
    QByteArray hueId;
    const InternalId device = InternalId::makeDeviceSerial(id);
    getBridgeAndHueId(&bridge, &hueId, device);
    if (!bridge) {
        LOG_WARNING << "deviceId not found:" << id;
        return;
    }
    if (!mayReportValues(*bridge, id))
        return;
    if (!lightByDeviceSerial(device)) {
        LOG_WARNING << "light not found" << id;
        return;
    }
    if (HueAdaptor* hub = HueAdaptor::instance())
        hub->emitSendDatapointValue(id, value);
}

bool CController::mayReportValues(const CBridge& bridge, const InternalId& id) const
{
    if (bridge.isIgnored()) {
        LOG_DETAIL << "Ignoring sendDataPointValue on ignored bridge" << id;
        return false;
    }
    const EBridgeState state = bridgeState(bridge.bridgeId());
    if (state == BridgeStateInvalid) {
        LOG_WARNING << "Tried to set datapoint for unknown bridge" << id;
        return false;
    }
    if (state != BridgeStatePaired) {
        LOG_WARNING << "Tried to set datapoint for unpaired bridge" << id;
        return false;
    }
    return true;
}

} // namespace hue
