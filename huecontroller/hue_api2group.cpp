#include "hue_api2group.h"

#include "hue_api2services.h"
#include "hue_bridge.h"
#include "hue_device.h"
#include "hue_light.h"

#include <cmath>
#include <cstdlib>

namespace hue {

namespace {

// What a member contributes to the group, as its description says.
struct Capability
{
    bool brightness = false;
    bool colorTemp = false;
    bool color = false;
};

Capability capabilityOf(const CLight& light)
{
    Capability capability;
    if (const CDevice* device = light.device()) {
        capability.brightness = device->supportsBrightness();
        capability.colorTemp = device->supportsColorTemp();
        capability.color = device->supportsColor();
    }
    return capability;
}

} // namespace

API2Group::API2Group(CBridge* bridge, const QByteArray& id, const minijson::CObject& resource, Type type)
    : m_bridge(bridge), m_id(id), m_type(type)
{
    m_changeTimer.setSingleShot(true);
    m_changeTimer.setInterval(kChangeDelayMs);
    connect(&m_changeTimer, &QTimer::timeout, this, &API2Group::onChangeTimerFired);
    connect(bridge, &CBridge::lightAdded, this, &API2Group::onLightAdded);
    if (!resource.Contains("id_v1") || !resource.Contains("services"))
        throw Exception(QStringLiteral("missing required attributes"));
    m_idV1 = QByteArray::fromStdString(resource.GetString("id_v1"));
    if (!api2ParseV1Number(m_idV1, &m_v1Number))
        throw Exception(QStringLiteral("unable to parse idv1"));
    parseGroupData(resource);
}

void API2Group::update(const minijson::CObject& resource)
{
    parseGroupData(resource);
}

void API2Group::parseGroupData(const minijson::CObject& resource)
{
    if (const minijson::CObject* metadata = resource.GetObject("metadata")) {
        const QByteArray newName = QByteArray::fromStdString(metadata->GetString("name"));
        if (newName != m_name) {
            m_name = newName;
            emit nameChanged();
        }
    }
    const QList<QByteArray> members = api2LightServices<Exception>(resource);
    for (const QByteArray& memberId : members) {
        if (m_memberIds.contains(memberId))
            continue;
        if (CLight* light = m_bridge->lightById(memberId))
            connectToLight(light);
        else if (!m_pendingIds.contains(memberId))
            m_pendingIds.append(memberId);
    }
    for (const QByteArray& formerId : qAsConst(m_memberIds)) {
        if (members.contains(formerId))
            continue;
        m_pendingIds.removeAll(formerId);
        if (CLight* light = m_bridge->lightById(formerId))
            disconnectFromLight(light);
    }
    m_memberIds = members;
    updateAllStats();
}

void API2Group::setLight(CLight* light)
{
    m_groupLight = light;
}

void API2Group::connectToLight(CLight* light)
{
    connect(light, &CLight::onChanged, this, &API2Group::onLightStateChanged, Qt::UniqueConnection);
    connect(light, &CLight::brightnessChanged, this, &API2Group::onLightStateChanged, Qt::UniqueConnection);
    connect(light, &CLight::colorChanged, this, &API2Group::onLightStateChanged, Qt::UniqueConnection);
}

void API2Group::disconnectFromLight(CLight* light)
{
    disconnect(light, nullptr, this, nullptr);
}

void API2Group::onLightAdded(CLight* light)
{
    if (!light || !m_pendingIds.removeAll(light->hueId()))
        return;
    connectToLight(light);
}

void API2Group::onLightStateChanged()
{
    m_changeTimer.start();
}

void API2Group::onChangeTimerFired()
{
    updateAllStats();
}

void API2Group::updateAllStats()
{
    if (!m_groupLight)
        return;
    bool anyOn = false;
    bool anyXY = false;
    int brightnessSum = 0;
    int brightnessCount = 0;
    int miredSum = 0;
    int miredCount = 0;
    double xSum = 0.0;
    double ySum = 0.0;
    int colorCount = 0;
    for (const QByteArray& memberId : qAsConst(m_memberIds)) {
        const CLight* light = m_bridge->lightById(memberId);
        if (!light)
            continue;
        const bool on = light->isOn();
        // A switched-off lamp still shows its last colour and brightness on the hub side.
        const CLight::State& state = on ? light->bridgeState() : light->velState();
        const Capability capability = capabilityOf(*light);
        anyOn = anyOn || on;
        anyXY = anyXY || state.colorMode() == ColorModeColor;
        if (capability.brightness) {
            brightnessSum += state.brightness();
            ++brightnessCount;
        }
        if (capability.colorTemp && on && state.colorMode() == ColorModeTemperature) {
            miredSum += state.colorTemp();
            ++miredCount;
        }
        if (capability.color && on) {
            xSum += state.x();
            ySum += state.y();
            ++colorCount;
        }
    }

    CLight& group = *m_groupLight;
    CLight::State& state = group.bridgeState();
    ChangeFlags flags;
    if (group.isOn() != anyOn) {
        group.setOn(anyOn);
        flags |= ChangedOn;
    }
    if (!anyOn && state.brightness() != 0) {
        state.setBrightness(0);
        flags |= ChangedBrightness;
    }
    if (brightnessCount > 0) {
        const int mean = brightnessSum / brightnessCount;
        if (mean != state.brightness()) {
            state.setBrightness(quint8(mean));
            // A mean of 0 is stored without being reported.
            if (mean > 0)
                flags |= ChangedBrightness;
        }
    }
    if (miredCount > 0) {
        const int mean = miredSum / miredCount;
        if (std::abs(mean - int(state.colorTemp())) > 3) {
            state.setColorTemp(quint16(mean));
            flags |= ChangedColor;
        }
    }
    const float x = colorCount > 0 ? float(xSum / colorCount) : kDefaultX;
    const float y = colorCount > 0 ? float(ySum / colorCount) : kDefaultY;
    if (std::fabs(x - state.x()) > 0.001f || std::fabs(y - state.y()) > 0.001f) {
        state.setColor(x, y);
        flags |= ChangedColor;
    }
    const VNColorMode mode = anyXY ? ColorModeColor : ColorModeTemperature;
    if (state.colorMode() != mode) {
        state.setColorMode(mode);
        flags |= ChangedColorMode;
    }
    group.syncVelFromBridge();
    group.lastChange().start();
    emit valuesChanged(flags);
}

} // namespace hue
