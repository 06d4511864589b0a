// The controller's input datapoints: a value the hub writes to a light becomes a bridge command.
// Relative dimming (KNX 4-bit control) with its continuous part on the light's dim timer, timed
// dimming (KNX scaling speed), scenes and the night switch live here too.

#include "hue_controller.h"

#include "hue_bridge.h"
#include "hue_colorconvert.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"
#include "common/profiler.h"
#include "kova/kovacommon/knxscalingspeed.h"

#include <cmath>

namespace hue {

namespace {

constexpr int kBrightnessTransition = 5; // tenths of a second: smooth, yet at once
constexpr double kMinPercent = 1.0;      // the dimmest a switched-on light gets
constexpr double kMaxPercent = 100.0;
constexpr int kDirectionBrighter = 0x8; // KNX 4-bit dimming control: bit 3 is the direction
constexpr int kStepCodeMask = 0x7;      // bits 0..2 the step code
// A timed dimming lasts at most the bridge's 16-bit transition time (tenths of a second).
constexpr quint32 kMaxTransition = 0xFFFF;

// Parses a decimal number; NaN and infinities are no numbers to the hub either.
bool parseDouble(const QString& text, double* value)
{
    bool ok = false;
    *value = text.toDouble(&ok);
    return ok && std::isfinite(*value);
}

bool parseInt(const QString& text, int* value)
{
    bool ok = false;
    *value = text.toInt(&ok, 10);
    return ok;
}

double clampPercent(double percent)
{
    return qBound(kMinPercent, percent, kMaxPercent);
}

} // namespace

bool CController::dataPointValueChanged(const InternalId& id, const QString& value)
{
    ProfileScope profile("CController::dataPointValueChanged");
    if (id.getKind() == InternalId::OutputDataPoint) {
        LOG_WARNING << "output datapoint value unexpected" << id << value;
        return false;
    }
    if (id.getKind() != InternalId::InputDataPoint) {
        LOG_WARNING << "Unexpected datapoint id:" << id;
        return false;
    }
    CBridge* bridge = nullptr;
    QByteArray hueId;
    if (!getBridgeAndHueId(&bridge, &hueId, InternalId::makeDeviceSerial(id)) || !bridge->hasLight(hueId)) {
        LOG_WARNING << "deviceId not found:" << id;
        return false;
    }
    // The user has told the service to leave an ignored bridge alone: its lights take no commands.
    if (bridge->isIgnored()) {
        LOG_WARNING << "Ignoring dataPointValueChanged on ignored bridge" << id;
        return false;
    }
    CLight* light = bridge->lightById(hueId);
    if (!bridge->lightDataOf(hueId).reachable) {
        if (ignoreReachability())
            LOG_DEBUG << "not reachable, continuing" << hueId;
        else
            LOG_WARNING << "lamp possibly not reachable" << hueId;
    }
    const EInputDatapoint datapoint =
        light->device() ? light->device()->inputDatapointForIndex(id.getIndex()) : IDP_INVALID;

    double number = 0.0;
    int integer = 0;
    switch (datapoint) {
    case IDP_SWITCH_ON_OFF:
        if (!parseInt(value, &integer)) {
            LOG_WARNING << "Invalid parameter, value not a valid number:" << value;
            return false;
        }
        bridge->requestLightOn(hueId, integer != 0);
        light->stopDimming();
        return true;
    case IDP_RELATIVE_SET_VALUE_CONTROL:
        if (!parseInt(value, &integer)) {
            LOG_WARNING << "Invalid parameter, value not a valid number:" << value;
            return false;
        }
        relativeDimming(bridge, light, hueId, integer);
        return true;
    case IDP_ABSOLUTE_SET_VALUE_CONTROL:
    case IDP_BRIGHTNESS:
        if (!parseDouble(value, &number)) {
            LOG_WARNING << "Invalid parameter, value not a valid number:" << value;
            return false;
        }
        light->stopDimming();
        // Only the dimming value switches a light on; the brightness just presets it.
        bridge->requestLightBrightness(hueId, number, datapoint == IDP_ABSOLUTE_SET_VALUE_CONTROL,
                                       kBrightnessTransition);
        return true;
    case IDP_TIMED_START_STOP:
    case IDP_PRESENCE:
        light->stopDimming();
        if (value == QLatin1String("0"))
            bridge->requestLightOn(hueId, false);
        else
            bridge->requestLightOnWithTimer(hueId);
        return true;
    case IDP_SCENE:
        triggerScene(light);
        return true;
    case IDP_RGB_COLOR: {
        bool ok = false;
        ColorConvert::convertStringToRgb(value, &ok); // logs why it is no colour
        if (!ok)
            return false;
        light->stopDimming();
        bridge->requestLightRgbColor(hueId, value);
        return true;
    }
    case IDP_HSV_COLOR: {
        bool ok = false;
        ColorConvert::convertStringToHSV(value, &ok); // logs why it is no colour
        if (!ok)
            return false;
        light->stopDimming();
        bridge->requestLightHSVColor(hueId, value);
        return true;
    }
    case IDP_COLOR_TEMPERATURE:
        if (!parseDouble(value, &number)) {
            LOG_WARNING << "parameter not a valid float:" << value;
            return false;
        }
        light->stopDimming();
        bridge->requestLightColorTemperature(hueId,
                                             int(ColorConvert::convertPercentToMired(float(number), *light)));
        return true;
    case IDP_HUE:
        if (!parseDouble(value, &number)) {
            LOG_WARNING << "parameter not a valid double:" << value;
            return false;
        }
        light->stopDimming();
        bridge->requestLightHue(hueId, number);
        return true;
    case IDP_SATURATION:
        if (!parseDouble(value, &number)) {
            LOG_WARNING << "parameter not valid double:" << value;
            return false;
        }
        light->stopDimming();
        // A percent; bounded first so that rounding to an int cannot overflow.
        bridge->requestLightSaturation(hueId, int(std::lround(qBound(0.0, number, 100.0))));
        return true;
    case IDP_TIMED_DIMMING:
        return timedDimming(bridge, light, hueId, value);
    case IDP_NIGHT:
        if (!parseInt(value, &integer)) {
            LOG_WARNING << "parameter night is no valid integer" << value;
            return false;
        }
        // Night is one switch for the whole hub: every bridge caps switch-ons at night maximums.
        m_night = integer != 0;
        for (CBridge* each : bridges())
            each->setNightMode(m_night);
        LOG_INFO << "night mode" << (m_night ? "on" : "off");
        return true;
    case IDP_INVALID:
        break;
    }
    LOG_WARNING << "Unknown input datapoint" << id;
    return false;
}

void CController::relativeDimming(CBridge* bridge, CLight* light, const QByteArray& hueId, int control)
{
    // Only the low four bits carry the KNX control; anything above them is noise.
    const bool brighter = (control & kDirectionBrighter) != 0;
    const int code = control & kStepCodeMask;
    double step = 0.0;
    if (code == 0) {
        light->stopDimming();
    } else if (code == 1) {
        light->startDimming(brighter ? CLight::DimUp : CLight::DimDown);
        step = kDimStepPercent;
    } else {
        light->stopDimming();
        step = 100.0 / double(1 << (code - 1));
    }
    const double current = light->velState().vnBrightness();
    const double target = brighter ? qMin(kMaxPercent, current + step) : qMax(kMinPercent, current - step);
    // Code 0 sends the current brightness again: the hub's stop settles the lamp where it is.
    bridge->requestLightBrightness(hueId, target, true, kBrightnessTransition);
}

bool CController::timedDimming(CBridge* bridge, CLight* light, const QByteArray& hueId, const QString& value)
{
    const std::optional<kova::KNXScalingSpeed> speed = kova::KNXScalingSpeed::fromString(value.toUtf8());
    if (!speed) {
        LOG_WARNING << "value for timed dimming is not a valid" << value;
        return false;
    }
    const int duration = int(qMin(speed->timeMs() / 100, kMaxTransition));
    light->stopDimming();
    bridge->requestLightBrightness(hueId, speed->targetPercent(), false, duration);
    if (speed->timeMs() != 0)
        light->startTimedDimming(speed->targetPercent(), duration);
    return true;
}

void CController::dimTimerFired()
{
    auto* timer = qobject_cast<QTimer*>(sender());
    if (!timer) {
        LOG_ERROR << "dimTimer must be called from a timer";
        return;
    }
    const InternalId serial(timer->property("hueLightSerial").toByteArray());
    CLight* light = lightByDeviceSerial(serial);
    if (!light) {
        LOG_WARNING << "light not found for serial" << serial;
        timer->stop(); // nothing left to dim
        return;
    }
    const double step = light->dimDirection() == CLight::DimUp ? kDimStepPercent : -kDimStepPercent;
    const double target = clampPercent(light->velState().vnBrightness() + step);
    light->bridge()->requestLightBrightness(light->hueId(), target, true, kBrightnessTransition);
    if (target <= kMinPercent || target >= kMaxPercent)
        light->stopDimming();
}

void CController::triggerScene(CLight* light)
{
    // The hub keeps its scenes itself and writes their values to the datapoints; a Hue light has
    // no scene of its own to recall, so the write is taken and nothing is sent.
    LOG_DEBUG << "scene write for light" << light->deviceSerial() << "has nothing to recall";
}

} // namespace hue
