#include "hue_colorconvert.h"
#include "hue_light.h"

#include <cmath>

namespace hue {

void CLight::State::setBrightness(quint8 brightness)
{
    // Remembered even when unchanged: the light may have been switched on since the last value.
    if (brightness != 0 && m_owner->isOn())
        m_lastOnBrightness = brightness;
    if (brightness == m_brightness)
        return;
    m_brightness = brightness;
    if (m_emitSignals)
        emit m_owner->brightnessChanged();
}

void CLight::State::setColorMode(VNColorMode mode)
{
    if (mode == m_colorMode)
        return;
    m_colorMode = mode;
    emitColorChanged();
}

void CLight::State::setColorTemp(quint16 mired)
{
    if (mired == m_colorTemp)
        return;
    m_colorTemp = mired;
    emitColorChanged();
}

void CLight::State::setHue(quint16 hue)
{
    if (hue == m_hue)
        return;
    m_hue = hue;
    emitColorChanged();
}

void CLight::State::setSaturation(quint8 saturation)
{
    if (saturation == m_saturation)
        return;
    m_saturation = saturation;
    emitColorChanged();
}

void CLight::State::setColor(float x, float y)
{
    constexpr float tolerance = 0.001f;
    if (std::fabs(x - m_x) <= tolerance && std::fabs(y - m_y) <= tolerance)
        return;
    m_x = x;
    m_y = y;
    emitColorChanged();
}

void CLight::State::syncFrom(const State& other)
{
    // lastOnBrightness first: setBrightness below may still replace it while the light is on.
    m_lastOnBrightness = other.m_lastOnBrightness;
    setBrightness(other.m_brightness);
    setColorMode(other.m_colorMode);
    setHue(other.m_hue);
    setSaturation(other.m_saturation);
    setColor(other.m_x, other.m_y);
    setColorTemp(other.m_colorTemp);
    m_valid = true;
}

uint CLight::State::colorAsRGB() const
{
    return ColorConvert::convertXYToRGB(m_x, m_y, m_brightness, m_owner);
}

QString CLight::State::colorAsRGBString() const
{
    return ColorConvert::convertRgbToHtmlString(colorAsRGB());
}

uint CLight::State::colorAsHSB() const
{
    return ColorConvert::convertRGBToHSB(colorAsRGB());
}

double CLight::State::vnBrightness() const
{
    return ColorConvert::convertHueBrightnessToApi(m_brightness);
}

void CLight::State::emitColorChanged()
{
    if (m_emitSignals)
        emit m_owner->colorChanged();
}

} // namespace hue
