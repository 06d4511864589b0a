// API version 2: construction, requests, the poll sequence, dispatch of poll replies and the
// quick group polls.

#include "hue_bridgeapi2.h"

#include "hue_bridgeapi1.h"
#include "hue_controller.h"
#include "hue_eventstream.h"

#include "common/logginginterface.h"

#include <QNetworkAccessManager>

namespace hue {

BridgeAPI2::BridgeAPI2(CBridge* bridge)
    : BridgeAPI(bridge), m_v1(new BridgeAPI1(bridge)), m_stream(new EventStreamConnection(bridge, this))
{
    // The delegate belongs to this dialect, not to the bridge, and goes with it.
    m_v1->setParent(this);
    m_groupPollLimiter.start();
    connect(m_stream, &EventStreamConnection::dataReceived, this, &BridgeAPI2::parseEventStreamData);
    // What is kept per light goes with the light, whichever way it leaves.
    connect(bridge, &CBridge::lightRemoved, this, [this](CLight* light) {
        m_lightsWithoutMetadata.remove(light->hueId());
        m_incompleteLights.remove(light->hueId());
        m_lightArchetypes.remove(light->hueId());
    });

    m_quickGroupPollTimer.setSingleShot(true);
    m_quickGroupPollTimer.setInterval(kQuickGroupPollDelayMs);
    connect(&m_quickGroupPollTimer, &QTimer::timeout, this, &BridgeAPI2::startQuickGroupPoll);

    connect(&m_geofenceTimer, &QTimer::timeout, this, &BridgeAPI2::updateGeofenceName);
    m_geofenceTimer.setInterval(kGeofencePingMs);
    m_geofenceTimer.start();
}

BridgeAPI2::~BridgeAPI2()
{
    // The group mirrors point at lights that the bridge owns; they go before this object.
    m_groups.clear();
    m_devices.clear();
}

QNetworkRequest BridgeAPI2::createRequest(const QString& resource)
{
    QUrl url = m_bridge->url();
    url.setPath(QStringLiteral("/clip/v2/resource/") + resource);
    QNetworkRequest request(url);
    request.setRawHeader("hue-application-key", m_bridge->userName().toUtf8());
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, m_bridge->enableHttp2());
    return request;
}

QNetworkRequest BridgeAPI2::pollNextItem(CBridge::PollType& pollType)
{
    switch (pollType) {
    case CBridge::PollDevices:
        pollType = CBridge::PollConnectivity;
        return createRequest(QStringLiteral("zigbee_connectivity"));
    case CBridge::PollConnectivity:
        pollType = CBridge::PollLights;
        return createRequest(QStringLiteral("light"));
    case CBridge::PollLights:
        if (m_bridge->useGroups()) {
            pollType = CBridge::PollGroups;
            return m_v1->createGroupPoll();
        }
        break;
    default:
        break;
    }
    // Until the program's own geofence client is known, it is looked for once per cycle.
    if (m_geofenceClientId.isEmpty() && pollType != CBridge::PollGeofenceClients) {
        pollType = CBridge::PollGeofenceClients;
        return createRequest(QStringLiteral("geofence_client"));
    }
    pollType = CBridge::PollDevices;
    return createRequest(QStringLiteral("device"));
}

void BridgeAPI2::parsePollReply(const minijson::CObject& reply, CBridge::PollType pollType)
{
    if (checkErrors(reply) > 0)
        return;
    if (pollType == CBridge::PollGroups) {
        const PollReplyScope scope(*m_v1, m_pollReply);
        m_v1->parsePollReply(reply, pollType);
        return;
    }
    const minijson::CArray* data = reply.GetArray("data");
    if (!data) {
        LOG_ERROR << "response does not contain a data array";
        return;
    }
    switch (pollType) {
    case CBridge::PollLights:
        parseLightPollReply(*data);
        break;
    case CBridge::PollDevices:
        parseDevicePollReply(*data);
        break;
    case CBridge::PollConnectivity:
        parseConnectivityPollReply(*data);
        break;
    case CBridge::PollGroupKindA:
    case CBridge::PollGroupKindB:
        parseRoomOrZonePollReply(*data, pollType);
        break;
    case CBridge::PollGeofenceClients:
        parseGeofenceClientList(reply);
        break;
    default:
        LOG_ERROR << "do not know how to parse poll type" << int(pollType);
        break;
    }
}

void BridgeAPI2::queueGroupPoll()
{
    if (!m_groupPollLimiter.hasExpired(kQuickGroupPollSpacingMs))
        return;
    m_groupPollLimiter.start();
    m_quickGroupPollTimer.start();
}

void BridgeAPI2::startQuickGroupPoll()
{
    QNetworkAccessManager* nam = m_bridge->networkAccessManager();
    if (!nam)
        return;
    QNetworkReply* reply = nam->get(m_v1->createGroupPoll());
    m_bridge->trackPollReply(reply, CBridge::PollGroups);
}

bool BridgeAPI2::allLightsReachable() const
{
    return g_Controller && g_Controller->ignoreReachability();
}

} // namespace hue
