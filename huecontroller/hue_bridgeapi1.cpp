// API version 1: requests, polling order, light types and change bodies.

#include "hue_bridgeapi1.h"

#include "hue_light.h"

#include "common/logginginterface.h"

#include <QNetworkAccessManager>

namespace hue {

BridgeAPI1::BridgeAPI1(CBridge* bridge) : BridgeAPI(bridge) {}

QString BridgeAPI1::uuidPrefix(ItemType itemType)
{
    return itemType == ItemLight ? QStringLiteral("lights/") : QStringLiteral("groups/");
}

QByteArray BridgeAPI1::itemKey(ItemType itemType, const QByteArray& number)
{
    return itemType == ItemLight ? number : QByteArrayLiteral("groups/") + number;
}

QNetworkRequest BridgeAPI1::createRequest(const QString& path)
{
    QUrl url = m_bridge->url();
    url.setPath(QStringLiteral("/api/%1/%2").arg(m_bridge->userName(), path));
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, m_bridge->enableHttp2());
    return request;
}

quint64 BridgeAPI1::sendSetStateRequest(const CLight& light, const QByteArray& body,
                                        QMap<QByteArray, QVariant> properties)
{
    const bool group = light.itemType() == ItemGroup;
    const QString path = uuidPrefix(light.itemType()) + QString::fromUtf8(light.secondId()) +
                         (group ? QStringLiteral("/action") : QStringLiteral("/state"));
    properties.insert("hueV1Request", true);
    return m_bridge->queueLightchangeRequest(createRequest(path), body, light.hueId(), properties);
}

void BridgeAPI1::setLightName(const QByteArray& lightId, const QString& name)
{
    const CLight* light = m_bridge->lightById(lightId);
    if (!light || !m_bridge->networkAccessManager())
        return;
    minijson::CObject body;
    body.SetString("name", name.toStdString());
    const QNetworkRequest request =
        createRequest(uuidPrefix(light->itemType()) + QString::fromUtf8(light->secondId()));
    QNetworkReply* reply =
        m_bridge->networkAccessManager()->put(request, QByteArray::fromStdString(body.ToString()));
    m_bridge->trackReply(reply);
}

QNetworkRequest BridgeAPI1::pollNextItem(CBridge::PollType& pollType)
{
    // With groups in use, lights and groups take turns.
    if (m_bridge->useGroups() && pollType == CBridge::PollLights) {
        pollType = CBridge::PollGroups;
        return createGroupPoll();
    }
    pollType = CBridge::PollLights;
    return createRequest(QStringLiteral("lights"));
}

LightType BridgeAPI1::determineLightType(const minijson::CObject& state)
{
    if (!state.Contains("on")) {
        LOG_WARNING << "Light has no \"on\" parameter. This is not allowed";
        return LightInvalid;
    }
    if (!state.Contains("bri"))
        return LightOnOff;
    const bool hasXY = state.Contains("xy");
    const bool hasColor = hasXY || state.Contains("hue");
    if (state.Contains("hue") && !hasXY && !m_warnedNoXY) {
        LOG_ERROR << "Bridge does not report xy colors for lights";
        m_warnedNoXY = true;
    }
    const bool hasCt = state.Contains("ct");
    if (!hasColor)
        return hasCt ? LightColorTemperature : LightDimmable;
    return hasCt ? LightExtendedColor : LightColor;
}

std::unique_ptr<minijson::CObject> BridgeAPI1::buildChangeRequest(const CLight&,
                                                                  const QMap<ChangeItem, QVariant>& changes)
{
    auto body = std::make_unique<minijson::CObject>();
    // QMap iterates in ascending item order, which is the order of the body's members.
    for (auto it = changes.cbegin(); it != changes.cend(); ++it) {
        switch (it.key()) {
        case ChangeOn:
            body->SetBoolean("on", it.value().toBool());
            break;
        case ChangeX: {
            minijson::CArray& xy = body->AddArray("xy");
            xy.AddNumber().SetFloat(it.value().toFloat());
            xy.AddNumber().SetFloat(changes.value(ChangeY, 0.0f).toFloat());
            break;
        }
        case ChangeColorTemp:
            body->SetInt("ct", it.value().toInt());
            break;
        case ChangeBrightness:
            body->SetInt("bri", it.value().toInt());
            break;
        case ChangeHue:
            body->SetInt("hue", it.value().toInt());
            break;
        case ChangeSaturation:
            body->SetInt("sat", it.value().toInt());
            break;
        case ChangeTransitionTime:
            body->SetInt("transitiontime", it.value().toInt());
            break;
        case ChangeY:     // written with x
        case ChangeTimer: // a marker for the command executor, not a bridge key
            break;
        }
    }
    return body;
}

void BridgeAPI1::gatherSupportInfo()
{
    QUrl publicConfig = m_bridge->url();
    publicConfig.setPath(QStringLiteral("/api/config"));
    m_pendingSupportInfoRequests = {QNetworkRequest(publicConfig), createRequest(QStringLiteral("config")),
                                    createRequest(QStringLiteral("lights")),
                                    createRequest(QStringLiteral("groups"))};
}

void BridgeAPI1::updateLightXY(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsArray() || value->Count() != 2 || !(*value)[0].IsNumber() ||
        !(*value)[1].IsNumber()) {
        LOG_ERROR << "invalid data type in xy value";
        return;
    }
    CLight::State& state = light.bridgeState();
    const float oldX = state.x();
    const float oldY = state.y();
    state.setColor((*value)[0].Number().ValueFloat(), (*value)[1].Number().ValueFloat());
    if (state.x() != oldX || state.y() != oldY)
        *changed = true;
}

} // namespace hue
