#include "hue_bridgeapi.h"

#include "hue_light.h"

#include "common/logginginterface.h"

#include <QNetworkAccessManager>

#include <algorithm>
#include <cmath>

namespace hue {

namespace {

// The body members of each way of giving a colour, in both dialects: xy ("xy"; "color" in
// version 2), colour temperature ("ct"; "color_temperature") and hue with saturation.
const QList<QList<const char*>> kColourMemberGroups = {
    {"xy", "color"}, {"ct", "color_temperature"}, {"hue", "sat"}};

} // namespace

BridgeAPI::BridgeAPI(CBridge* bridge) : QObject(bridge), m_bridge(bridge) {}

QByteArray BridgeAPI::mergeChangeBodies(const QByteArray& older, const QByteArray& newer)
{
    std::unique_ptr<minijson::CEntity> base;
    std::unique_ptr<minijson::CEntity> update;
    try {
        base = minijson::CParser::Parse(older.constData(), older.size());
        update = minijson::CParser::Parse(newer.constData(), newer.size());
    } catch (const minijson::CException&) {
        return newer;
    }
    if (!base->IsObject() || !update->IsObject())
        return newer;
    minijson::CObject& merged = base->Object();
    const minijson::CObject& latest = update->Object();
    const QList<QList<const char*>>& groups = kColourMemberGroups;
    for (const QList<const char*>& group : groups) {
        const bool latestHasIt = std::any_of(group.cbegin(), group.cend(),
                                             [&](const char* name) { return latest.Contains(name); });
        if (!latestHasIt)
            continue;
        for (const QList<const char*>& other : groups) {
            if (other != group) {
                for (const char* name : other)
                    merged.Remove(name);
            }
        }
    }
    merged.MergeFrom(latest, true);
    return QByteArray::fromStdString(minijson::CWriter(true, "  ").Write(merged));
}

BridgeAPI::~BridgeAPI() = default;

bool BridgeAPI::hasPendingSupportInfoRequests() const
{
    return !m_pendingSupportInfoRequests.isEmpty();
}

void BridgeAPI::startNextSupportInfoRequest()
{
    if (m_pendingSupportInfoRequests.isEmpty() || !m_bridge->networkAccessManager())
        return;
    const QNetworkRequest request = m_pendingSupportInfoRequests.takeFirst();
    QNetworkReply* reply = m_bridge->networkAccessManager()->get(request);
    reply->setProperty("hueSupportInfo", true);
    m_bridge->trackReply(reply);
}

void BridgeAPI::updateLightOnOff(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsBoolean()) {
        LOG_ERROR << "invalid data type in OnOff value";
        return;
    }
    const bool on = value->Boolean().Value();
    if (on != light.isOn()) {
        light.setOn(on);
        *changed = true;
    }
}

void BridgeAPI::updateLightBrightness(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsNumber()) {
        LOG_ERROR << "invalid data type in Brightness value";
        return;
    }
    const double scaled = std::round(value->Number().ValueDouble() * double(apiBrightnessFactor()));
    const auto brightness = quint8(std::isfinite(scaled) ? qBound(0.0, scaled, 254.0) : 0.0);
    if (brightness != light.bridgeState().brightness()) {
        light.bridgeState().setBrightness(brightness);
        *changed = true;
    }
}

void BridgeAPI::updateLightColorTemperature(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsNumber()) {
        LOG_ERROR << "colortemp value is not a number:" << (value ? value->ToString() : std::string("null"));
        return;
    }
    const auto mired = quint16(qBound(0, value->Number().ValueInt(), 65535));
    if (mired != light.bridgeState().colorTemp()) {
        light.bridgeState().setColorTemp(mired);
        *changed = true;
    }
}

void BridgeAPI::updateLightName(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsString()) {
        LOG_ERROR << "invalid data type in name value";
        return;
    }
    const QString name = QString::fromStdString(value->StringValue());
    BridgeLightData& data = m_bridge->lightData(light.hueId());
    if (name != data.name) {
        data.name = name;
        *changed = true;
    }
}

bool BridgeAPI::updateLightValueCommon(CLight& light, ValueKind kind, const minijson::CEntity* value,
                                       ChangeFlags& flags)
{
    bool changed = false;
    bool valid = true;
    switch (kind) {
    case ValueOn:
        updateLightOnOff(light, value, &changed);
        valid = value && value->IsBoolean();
        if (changed)
            flags |= ChangedOn;
        break;
    case ValueBrightness:
        updateLightBrightness(light, value, &changed);
        valid = value && value->IsNumber();
        if (changed)
            flags |= ChangedBrightness;
        break;
    case ValueColorTemp:
        updateLightColorTemperature(light, value, &changed);
        valid = value && value->IsNumber();
        if (changed)
            flags |= ChangedColor;
        break;
    case ValueXY: {
        const bool wasValid = value && value->IsArray() && value->Count() == 2;
        updateLightXY(light, value, &changed);
        valid = wasValid;
        if (changed)
            flags |= ChangedColor;
        break;
    }
    case ValueHue:
    case ValueSaturation: {
        valid = value && value->IsNumber();
        if (!valid) {
            LOG_ERROR << (kind == ValueHue ? "invalid data type in hue value"
                                           : "invalid data type in sat value");
            break;
        }
        const int number = value->Number().ValueInt();
        CLight::State& state = light.bridgeState();
        if (kind == ValueHue) {
            const auto hue = quint16(qBound(0, number, 65535));
            changed = hue != state.hue();
            state.setHue(hue);
        } else {
            const auto saturation = quint8(qBound(0, number, 254));
            changed = saturation != state.saturation();
            state.setSaturation(saturation);
        }
        if (changed)
            flags |= ChangedColor;
        break;
    }
    case ValueName:
        updateLightName(light, value, &changed);
        valid = value && value->IsString();
        if (changed)
            flags |= ChangedName;
        break;
    case ValueTransitionTime:
        // Not part of the light's state: the bridge only confirms it.
        valid = value && value->IsNumber();
        break;
    }
    return valid;
}

void BridgeAPI::updateLightInController(CLight& light, bool isNew, ChangeFlags& flags)
{
    if (isNew)
        emit m_bridge->lightAdded(&light);
    else if (flags)
        emit m_bridge->lightChanged(&light, flags);
    flags = {};
}

void BridgeAPI::deleteRemovedLights(const QSet<QByteArray>& seen, ItemType itemType)
{
    QList<CLight*> gone;
    for (CLight* light : m_bridge->lights()) {
        if (light->itemType() == itemType && !seen.contains(light->hueId()))
            gone.append(light);
    }
    for (CLight* light : gone) {
        LOG_INFO << "light" << light->hueId() << "is no longer reported by bridge" << m_bridge->bridgeId()
                 << "- deleting it";
        m_bridge->deleteLight(light);
    }
}

BridgeAPI::PollReplyScope::PollReplyScope(BridgeAPI& api, QNetworkReply* reply)
    : m_api(&api), m_previous(api.m_pollReply)
{
    api.m_pollReply = reply;
}

BridgeAPI::PollReplyScope::~PollReplyScope()
{
    if (m_api)
        m_api->m_pollReply = m_previous;
}

BridgeAPI::KeptItems BridgeAPI::itemsKeptFromPoll(const CLight& light) const
{
    const QSet<ChangeItem> items = m_pollReply ? m_bridge->itemsNewerThan(light.hueId(), m_pollReply)
                                               : m_bridge->itemsUnderway(light.hueId());
    KeptItems kept;
    kept.on = items.contains(ChangeOn);
    kept.brightness = items.contains(ChangeBrightness);
    for (ChangeItem item : {ChangeX, ChangeY, ChangeColorTemp, ChangeHue, ChangeSaturation})
        kept.colour = kept.colour || items.contains(item);
    return kept;
}

void BridgeAPI::syncVelKeeping(CLight& light, const KeptItems& kept)
{
    CLight::State& bridge = light.bridgeState();
    const CLight::State& vel = light.velState();
    if ((!kept.brightness && !kept.colour) || !vel.isValid()) {
        light.syncVelFromBridge();
        return;
    }
    // The hub's values of the kept items stand in for the bridge's during the copy, so that the
    // hub state never shows the older value, not even for a moment.
    const CLight::State reported(bridge);
    if (kept.brightness)
        bridge.setBrightness(vel.brightness());
    if (kept.colour) {
        bridge.setColorMode(vel.colorMode());
        bridge.setColorTemp(vel.colorTemp());
        bridge.setHue(vel.hue());
        bridge.setSaturation(vel.saturation());
        bridge.setColor(vel.x(), vel.y());
    }
    light.syncVelFromBridge();
    bridge.setBrightness(reported.brightness());
    bridge.setLastOnBrightness(reported.lastOnBrightness());
    bridge.setColorMode(reported.colorMode());
    bridge.setColorTemp(reported.colorTemp());
    bridge.setHue(reported.hue());
    bridge.setSaturation(reported.saturation());
    bridge.setColor(reported.x(), reported.y());
}

} // namespace hue
