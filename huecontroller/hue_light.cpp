#include "hue_light.h"

#include "hue_bridge.h"
#include "hue_colorconvert.h"
#include "hue_controller.h"
#include "hue_lightinfo.h"

namespace hue {

namespace {

constexpr quint16 kDeviceSerialPrefix = 0xBEED;
constexpr int kDimIntervalMs = 500;

} // namespace

CLight::CLight(CBridge* bridge, const QByteArray& hueId, const QByteArray& secondId, int lightNumber,
               ItemType itemType, LightType lightType)
    : QObject(bridge), m_bridge(bridge),
      m_device(g_Controller ? g_Controller->deviceByType(lightType) : nullptr), m_bridgeState(this, false),
      m_velState(this, true), m_itemType(itemType), m_hueId(hueId), m_secondId(secondId),
      m_lightNumber(quint16(lightNumber)), m_dimTimer(new QTimer(this)), m_timedDimmingTimer(this),
      m_colourCapability(lightType == LightColor ? 3 : 1), m_commandTimer(new QTimer(this))
{
    m_commandTimer->setSingleShot(true);
    m_commandTimer->setTimerType(Qt::PreciseTimer); // a coarse timer may fire 5 % late
    m_commandTimer->setInterval(kCommandDelayMs);
    m_commandTimer->setProperty("hueLightID", m_hueId);

    // The controller connects the dim timer's timeout to its dimming step.
    m_dimTimer->setInterval(kDimIntervalMs);
    m_dimTimer->setProperty("hueLightSerial", deviceSerial().toString());

    m_timedDimmingTimer.setSingleShot(true);
    connect(&m_timedDimmingTimer, &QTimer::timeout, this, &CLight::onTimedDimmingExpired);
}

CLight::~CLight() = default;

InternalId CLight::deviceSerial() const
{
    const quint32 bridgeNumber = m_bridge ? m_bridge->number() : 0;
    return InternalId::makeDeviceSerial(kDeviceSerialPrefix, (bridgeNumber << 16) | m_lightNumber);
}

void CLight::syncVelFromBridge()
{
    if (m_on || !m_velState.isValid())
        m_velState.syncFrom(m_bridgeState);
}

void CLight::setOn(bool on)
{
    if (on == m_on)
        return;
    m_on = on;
    emit onChanged();
}

void CLight::setMetadata(const QByteArray& productName, const QByteArray& manufacturer,
                         const QByteArray& model, const QByteArray& softwareVersion)
{
    m_productName = productName;
    m_manufacturer = manufacturer;
    m_model = model;
    m_softwareVersion = softwareVersion;
    m_lightInfoFlags = CLightInfo::getFlags(manufacturer, model);
}

void CLight::setGamut(const XYGamut& colourGamut, const XYGamut& limits, const XYPoint& whitepoint)
{
    m_gamutLimits = limits;
    m_whitepoint = whitepoint;
    // Cached so that a conversion is one matrix-vector product.
    m_rgbToXyz = ColorConvert::calculateRGBtoXYZMatrix(colourGamut, whitepoint);
    m_xyzToRgb = m_rgbToXyz.inverse();
}

void CLight::setMiredLimits(int miredMin, int miredMax)
{
    m_miredMin = miredMin;
    m_miredMax = miredMax;
}

void CLight::convertColorCommands()
{
    if (!m_pendingCommands.contains(ChangeHue) && !m_pendingCommands.contains(ChangeSaturation))
        return;
    const int hue = m_pendingCommands.value(ChangeHue, int(m_velState.hue())).toInt();
    const int saturation = m_pendingCommands.value(ChangeSaturation, int(m_velState.saturation())).toInt();
    const int brightness = m_pendingCommands.value(ChangeBrightness, int(m_velState.brightness())).toInt();

    const uint rgb = ColorConvert::convertHSBToRGB(hue, saturation, brightness);
    float x = 0.0f;
    float y = 0.0f;
    ColorConvert::convertRgbToXY(&x, &y, nullptr, rgb, *this);

    m_pendingCommands.remove(ChangeHue);
    m_pendingCommands.remove(ChangeSaturation);
    m_pendingCommands.insert(ChangeX, QVariant::fromValue(x));
    m_pendingCommands.insert(ChangeY, QVariant::fromValue(y));
}

bool CLight::isGoingToTurnOff() const
{
    const auto it = m_pendingCommands.constFind(ChangeOn);
    return it != m_pendingCommands.constEnd() && !it->toBool();
}

void CLight::startDimming(DimDirection direction)
{
    m_dimDirection = direction;
    m_dimStep = 0;
    m_dimTimer->start();
    m_dimStartBrightness = float(m_bridgeState.vnBrightness());
}

void CLight::stopDimming()
{
    m_dimTimer->stop();
    m_timedDimmingTimer.stop();
}

void CLight::startTimedDimming(int value, int duration)
{
    m_timedDimmingTimer.start(duration * 100);
    setTimedDimming(value, duration);
}

void CLight::setTimedDimming(double value, int duration)
{
    if (value == m_timedDimmingValue && duration == m_timedDimmingDuration)
        return;
    m_timedDimmingDuration = quint16(duration);
    // Truncated to a whole percent; clamped first so that a wild value cannot overflow.
    m_timedDimmingValue = quint8(qBound(0.0, value, 255.0));
    emit timedDimmingChanged(m_timedDimmingValue, m_timedDimmingDuration);
}

void CLight::onTimedDimmingExpired()
{
    setTimedDimming(m_timedDimmingValue, 0);
}

} // namespace hue
