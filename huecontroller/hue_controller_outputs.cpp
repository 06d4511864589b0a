// The controller's output datapoints and attributes: a light's state as the hub is shown it.
// Values come from the light's hub ("vel") state; the adaptor drops values that did not change.

#include "hue_controller.h"

#include "hue_adaptor.h"
#include "hue_bridge.h"
#include "hue_colorconvert.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"

namespace hue {

namespace {

constexpr quint16 kChannel = 0; // a light is one channel

// The hub's packed HSV text as the light's hub state has it: "hhhhssvv" in hexadecimal.
QString hsvText(const CLight::State& state)
{
    return ColorConvert::convertHSVToString(state.hue(), state.saturation(), state.brightness());
}

} // namespace

void CController::sendOutputValue(const CLight& light, EOutputDatapoint datapoint, const QString& text)
{
    const InternalId id = getOutputDatapointSerial(light, kChannel, datapoint);
    if (!id.isValid())
        return;
    // The light is at hand: no lookup of its bridge and light by the identifier, as
    // sendDataPointValue() needs, for each of the values a change sends.
    const CBridge* bridge = light.bridge();
    if (!bridge) {
        LOG_WARNING << "deviceId not found:" << id;
        return;
    }
    if (!mayReportValues(*bridge, id))
        return;
    if (HueAdaptor* hub = HueAdaptor::instance())
        hub->emitSendDatapointValue(id, text, datapoint);
}

void CController::changedLightOn(const CLight& light, bool on)
{
    if (!getOutputDatapointSerial(light, kChannel, ODP_INFO_ON_OFF).isValid()) {
        LOG_WARNING << "No index for datapoint INFO_ON_OFF" << light.deviceSerial();
        return;
    }
    sendOutputValue(light, ODP_INFO_ON_OFF, on ? QStringLiteral("1") : QStringLiteral("0"));
}

void CController::changedBrightness(const CLight& light, double percent)
{
    sendOutputValue(light, ODP_INFO_ACTUAL_DIMMING_VALUE, QString::number(double(qRound(percent)), 'g', 6));
    changedTimedDimming(light, percent, 0);
}

void CController::changedColorTemperature(const CLight& light, int mired)
{
    sendOutputValue(light, ODP_INFO_COLOR_TEMPERATURE,
                    QString::number(double(ColorConvert::convertMiredToPercent(mired, light))));
}

void CController::changedColorMode(const CLight& light, VNColorMode mode)
{
    sendOutputValue(light, ODP_INFO_COLOR_MODE,
                    mode == ColorModeTemperature ? QStringLiteral("ct") : QStringLiteral("hsv"));
}

namespace {
// The light model keeps colours as hexadecimal text; the hub's output datapoints take the number
// in decimal (the adaptor writes it back as hexadecimal of the datapoint's width).
bool hexColorToDecimal(const QString& color, QString* decimal)
{
    bool ok = false;
    const uint value = color.toUInt(&ok, 16);
    if (!ok) {
        LOG_WARNING << "Failed to convert color from string to integer" << color;
        return false;
    }
    *decimal = QString::number(value);
    return true;
}
} // namespace

void CController::changedColorRgb(const CLight& light, const QString& rgb)
{
    QString decimal;
    if (hexColorToDecimal(rgb, &decimal))
        sendOutputValue(light, ODP_INFO_RGB_COLOR, decimal);
}

void CController::changedColorHSV(const CLight& light, const QString& hsv)
{
    QString decimal;
    if (hexColorToDecimal(hsv, &decimal))
        sendOutputValue(light, ODP_INFO_HSV_COLOR, decimal);
}

void CController::changedTimedDimming(const CLight& light, double percent, int duration)
{
    // Target percent as a whole number, then the time to reach it in milliseconds, the unit of
    // the hub's own timed-dimming writes; the light counts in tenths of a second.
    sendOutputValue(light, ODP_INFO_TIMED_DIMMING,
                    QStringLiteral("%1t+%2").arg(qRound(percent)).arg(qint64(duration) * 100));
}

void CController::sendColorValues(const CLight& light, bool brightnessOnly)
{
    const CLight::State& state = light.velState();
    const CDevice* device = light.device();
    if (!device)
        return;
    if (!brightnessOnly) {
        changedColorMode(light, state.colorMode());
        if (device->supportsColorTemp())
            changedColorTemperature(light, state.colorTemp());
    }
    // Only a colour lamp has the gamut that turns its xy point into RGB.
    if (device->supportsColor()) {
        changedColorRgb(light, state.colorAsRGBString());
        changedColorHSV(light, hsvText(state));
    }
}

void CController::changedMetadata(const CLight& light)
{
    HueAdaptor* hub = reportingHub(light);
    if (!hub)
        return;
    const InternalId device = light.deviceSerial();
    hub->emitSendAttribute(device, QStringLiteral("displayName"),
                           light.bridge()->lightDataOf(light.hueId()).name);
    hub->emitSendAttribute(device, QStringLiteral("hueManufacturerName"),
                           QString::fromUtf8(light.manufacturer()));
    hub->emitSendAttribute(device, QStringLiteral("hueModelId"), QString::fromUtf8(light.model()));
    hub->emitSendAttribute(device, QStringLiteral("hueProductName"), QString::fromUtf8(light.productName()));
    hub->emitSendAttribute(device, QStringLiteral("hueSoftwareVersion"),
                           QString::fromUtf8(light.softwareVersion()));
}

void CController::sendCurrentValues(const CLight& light)
{
    changedLightOn(light, light.isOn());
    changedBrightness(light, light.velState().vnBrightness());
    sendColorValues(light);
    changedMetadata(light);
}

HueAdaptor* CController::reportingHub(const CLight& light) const
{
    // Nothing of an ignored bridge reaches the hub, as for output values.
    if (!light.bridge() || light.bridge()->isIgnored())
        return nullptr;
    return HueAdaptor::instance();
}

} // namespace hue
