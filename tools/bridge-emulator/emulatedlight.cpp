#include "emulatedlight.h"

#include <algorithm>

namespace bridgeemu {

bool kindHasColor(LightKind kind)
{
    return kind == LightKind::Color || kind == LightKind::ExtendedColor;
}

bool kindHasColorTemperature(LightKind kind)
{
    return kind == LightKind::ColorTemperature || kind == LightKind::ExtendedColor;
}

bool kindSupports(LightKind kind, LightParam param)
{
    switch (param) {
    case LightParam::On:
    case LightParam::Alert:
        return true;
    case LightParam::Bri:
    case LightParam::BriInc:
    case LightParam::TransitionTime:
        return kind != LightKind::OnOff;
    case LightParam::Ct:
    case LightParam::CtInc:
        return kindHasColorTemperature(kind);
    case LightParam::Hue:
    case LightParam::Sat:
    case LightParam::Xy:
    case LightParam::Effect:
    case LightParam::HueInc:
    case LightParam::SatInc:
    case LightParam::XyInc:
        return kindHasColor(kind);
    }
    return false;
}

bool LightChange::empty() const
{
    return !on && !bri && !hue && !sat && !ct && !xy && !briInc && !hueInc && !satInc && !ctInc && !xyInc &&
           !alert && !effect && !transitionTime && !reachable;
}

EmulatedLight::EmulatedLight(std::string id, std::string name, LightDescription description)
    : m_id(std::move(id)), m_name(std::move(name)), m_description(std::move(description))
{
    if (kindHasColorTemperature(kind())) {
        m_state.ct = std::clamp(m_state.ct, m_description.ctMin, m_description.ctMax);
        applyColorTemperature(m_state.ct);
    } else if (kindHasColor(kind())) {
        applyXY(m_state.xy);
    }
}

void EmulatedLight::apply(const LightChange& change, Source source)
{
    if (change.reachable)
        m_state.reachable = *change.reachable;
    if (change.on)
        m_state.on = *change.on;
    if (change.alert && supports(LightParam::Alert))
        m_state.alert = *change.alert;
    if (source == Source::Command && !m_state.on)
        return;

    if (supports(LightParam::Bri)) {
        int bri = change.bri.value_or(m_state.bri) + change.briInc.value_or(0);
        if (change.bri || change.briInc)
            m_state.bri = std::clamp(bri, 1, 254);
    }
    if (supports(LightParam::Effect) && change.effect)
        m_state.effect = *change.effect;

    if (supports(LightParam::Hue) && (change.hue || change.sat || change.hueInc || change.satInc)) {
        // Hue wraps around the colour circle; saturation stops at its ends.
        const int hue = (change.hue.value_or(m_state.hue) + change.hueInc.value_or(0)) % 65536;
        const int sat = change.sat.value_or(m_state.sat) + change.satInc.value_or(0);
        applyHueSaturation(hue < 0 ? hue + 65536 : hue, std::clamp(sat, 0, 254));
    }
    if (supports(LightParam::Ct) && (change.ct || change.ctInc)) {
        const int ct = change.ct.value_or(m_state.ct) + change.ctInc.value_or(0);
        applyColorTemperature(std::clamp(ct, m_description.ctMin, m_description.ctMax));
    }
    if (supports(LightParam::Xy) && (change.xy || change.xyInc)) {
        XY point = change.xy.value_or(m_state.xy);
        if (change.xyInc) {
            point.x += change.xyInc->x;
            point.y += change.xyInc->y;
        }
        applyXY({std::clamp(point.x, 0.0, 1.0), std::clamp(point.y, 0.0, 1.0)});
    }
}

void EmulatedLight::applyColorTemperature(int mired)
{
    m_state.ct = mired;
    m_state.colorMode = ColorMode::ColorTemperature;
    if (kindHasColor(kind())) {
        m_state.xy = clampToGamut(xyFromMired(mired), gamutOf(m_description.gamut));
        hueSaturationFromXY(m_state.xy, m_state.hue, m_state.sat);
    }
}

void EmulatedLight::applyXY(XY point)
{
    const XY clamped = clampToGamut(point, gamutOf(m_description.gamut));
    m_state.xy = {roundXY(clamped.x), roundXY(clamped.y)};
    m_state.colorMode = ColorMode::XY;
    hueSaturationFromXY(m_state.xy, m_state.hue, m_state.sat);
    if (kindHasColorTemperature(kind()))
        m_state.ct = std::clamp(miredFromXY(m_state.xy), m_description.ctMin, m_description.ctMax);
}

void EmulatedLight::applyHueSaturation(int hue, int saturation)
{
    m_state.hue = hue;
    m_state.sat = saturation;
    m_state.colorMode = ColorMode::HueSaturation;
    const XY clamped = clampToGamut(xyFromHueSaturation(hue, saturation), gamutOf(m_description.gamut));
    m_state.xy = {roundXY(clamped.x), roundXY(clamped.y)};
    if (kindHasColorTemperature(kind()))
        m_state.ct = std::clamp(miredFromXY(m_state.xy), m_description.ctMin, m_description.ctMax);
}

} // namespace bridgeemu
