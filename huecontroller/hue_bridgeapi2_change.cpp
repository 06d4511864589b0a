// API version 2: change bodies and their replies, renaming, error objects and the program's own
// geofence client.

#include "hue_bridgeapi2.h"

#include "hue_bridgeapi1.h"
#include "hue_eventstream.h"
#include "hue_light.h"

#include "common/configcache.h"
#include "common/logginginterface.h"

#include <QDateTime>
#include <QNetworkAccessManager>

namespace hue {

namespace {

// Replies of the geofence client's creation and renaming carry this property.
const char kGeofenceProperty[] = "hueGeofenceRequest";

std::string indented(const minijson::CEntity& entity)
{
    return entity.ToString(true, "  ");
}

QByteArray nameSuffix()
{
    return QByteArray::number(QDateTime::currentSecsSinceEpoch() % 10000);
}

} // namespace

std::unique_ptr<minijson::CObject> BridgeAPI2::buildChangeRequest(const CLight& light,
                                                                  const QMap<ChangeItem, QVariant>& changes)
{
    if (light.itemType() == ItemGroup)
        return m_v1->buildChangeRequest(light, changes);
    auto body = std::make_unique<minijson::CObject>();
    for (auto it = changes.cbegin(); it != changes.cend(); ++it) {
        switch (it.key()) {
        case ChangeOn:
            body->AddObject("on").SetBoolean("on", it.value().toBool());
            break;
        case ChangeX:
        case ChangeY: {
            minijson::CObject* color = body->GetObject("color");
            if (!color)
                color = &body->AddObject("color");
            minijson::CObject* xy = color->GetObject("xy");
            if (!xy)
                xy = &color->AddObject("xy");
            xy->SetFloat(it.key() == ChangeX ? "x" : "y", it.value().toFloat());
            break;
        }
        case ChangeColorTemp:
            body->AddObject("color_temperature").SetInt("mirek", it.value().toInt());
            break;
        case ChangeBrightness:
            // The program's 0-254 scale becomes the bridge's percentage.
            body->AddObject("dimming").SetFloat("brightness", float(it.value().toDouble() * 100.0 / 254.0));
            break;
        case ChangeTransitionTime:
            // Tenths of a second become milliseconds.
            body->AddObject("dynamics").SetInt("duration", it.value().toInt() * 100);
            break;
        case ChangeHue:
        case ChangeSaturation:
        case ChangeTimer:
            LOG_ERROR << "Got a hue/sat changeItem that is supposed to be rewritten:" << int(it.key());
            break;
        }
    }
    return body;
}

quint64 BridgeAPI2::sendSetStateRequest(const CLight& light, const QByteArray& body,
                                        QMap<QByteArray, QVariant> properties)
{
    if (light.itemType() == ItemGroup)
        return m_v1->sendSetStateRequest(light, body, properties); // marks "hueV1Request"
    const QNetworkRequest request =
        createRequest(QStringLiteral("light/") + QString::fromUtf8(light.hueId()));
    return m_bridge->queueLightchangeRequest(request, body, light.hueId(), properties);
}

bool BridgeAPI2::parseLightChangeReply(QNetworkReply* reply, const minijson::CEntity& document,
                                       bool dumpUpdates)
{
    if (reply && reply->property("hueV1Request").toBool())
        return m_v1->parseLightChangeReply(reply, document, dumpUpdates);
    if (!document.IsObject()) {
        LOG_ERROR << "light change reply is not an object:" << document.ToString();
        return false;
    }
    // The new state arrives with the event stream; the reply only says whether it was taken.
    return checkErrors(document.Object()) == 0;
}

int BridgeAPI2::checkErrors(const minijson::CObject& reply)
{
    const minijson::CEntity* errors = reply.Find("errors");
    if (!errors)
        return 0;
    if (!errors->IsArray()) {
        LOG_ERROR << "invalid v2 response: errors entity is not an array";
        return 1;
    }
    for (int i = 0; i < errors->Count(); ++i) {
        const minijson::CEntity& error = (*errors)[i];
        if (error.IsObject())
            LOG_ERROR << "bridge error:" << error.Object().GetString("description");
        else
            LOG_ERROR << "bridge error" << i << "is invalid:" << indented(error);
    }
    return errors->Count();
}

void BridgeAPI2::setLightName(const QByteArray& lightId, const QString& name)
{
    LOG_INFO << "setLightName" << lightId << name;
    const CLight* light = m_bridge->lightById(lightId);
    if (!light) {
        LOG_ERROR << "setLightName called with invalid light id" << lightId;
        return;
    }
    if (light->itemType() == ItemGroup) {
        if (light->secondId().isEmpty()) {
            LOG_ERROR << "light" << lightId << "has no v1 ID, cannot change name";
            return;
        }
        m_v1->setLightName(lightId, name);
        return;
    }
    QNetworkAccessManager* nam = m_bridge->networkAccessManager();
    if (!nam)
        return;
    minijson::CObject body;
    body.AddObject("metadata").SetString("name", name.toStdString());
    const QByteArray text = QByteArray::fromStdString(body.ToString());
    // The name the bridge's app shows is the device's; the light's own is kept in step.
    if (const API2Device* device = deviceOfLight(lightId))
        m_bridge->trackReply(
            nam->put(createRequest(QStringLiteral("device/") + QString::fromUtf8(device->id)), text));
    else
        LOG_ERROR << "setLightName: missing apidevice" << lightId;
    m_bridge->trackReply(
        nam->put(createRequest(QStringLiteral("light/") + QString::fromUtf8(lightId)), text));
}

QByteArray BridgeAPI2::geofenceNamePrefix()
{
    bool ok = false;
    const QString serial =
        ConfigCache::instance()->getConfigValue(QStringLiteral("generic/serialNumber"), &ok);
    if (!ok || serial.isEmpty())
        return QByteArray();
    return "Velnor_" + serial.toUtf8() + "_";
}

void BridgeAPI2::parseGeofenceClientList(const minijson::CObject& reply)
{
    const QByteArray prefix = geofenceNamePrefix();
    if (prefix.isEmpty()) {
        if (m_bridge->admitWarning("no hub serial number"))
            LOG_WARNING << "no serial number known, cannot look for the geofence client";
        return;
    }
    if (const minijson::CArray* data = reply.GetArray("data")) {
        for (int i = 0; i < data->Count(); ++i) {
            const minijson::CEntity& element = data->EntityAtIndex(i);
            if (!element.IsObject())
                continue;
            const minijson::CObject& client = element.Object();
            if (client.GetString("type") == "geofence_client" &&
                QByteArray::fromStdString(client.GetString("name")).startsWith(prefix)) {
                m_geofenceClientId = QByteArray::fromStdString(client.GetString("id"));
                LOG_INFO << "found geofence client id:" << m_geofenceClientId;
                return;
            }
        }
    }
    QNetworkAccessManager* nam = m_bridge->networkAccessManager();
    if (m_geofenceRequest || !nam)
        return;
    LOG_INFO << "registering dummy geofence client";
    LOG_INFO << "trying to register";
    QNetworkRequest request = createRequest(QStringLiteral("geofence_client"));
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    const QByteArray body = "{\"type\":\"geofence_client\",\"name\":\"" + prefix + nameSuffix() + "\"}";
    m_geofenceRequest = nam->post(request, body);
    sendGeofenceRequest(m_geofenceRequest, "create");
}

void BridgeAPI2::parseGeofenceClientCreate(const minijson::CObject& reply)
{
    if (checkErrors(reply) > 0)
        return;
    const minijson::CArray* data = reply.GetArray("data");
    for (int i = 0; data && i < data->Count(); ++i) {
        const minijson::CEntity& element = data->EntityAtIndex(i);
        if (!element.IsObject())
            continue;
        const minijson::CObject& entry = element.Object();
        if (entry.Contains("rid") && entry.GetString("rtype") == "geofence_client") {
            m_geofenceClientId = QByteArray::fromStdString(entry.GetString("rid"));
            LOG_INFO << "registered client id:" << m_geofenceClientId;
            return;
        }
    }
}

void BridgeAPI2::sendGeofenceRequest(QNetworkReply* reply, const char* kind)
{
    reply->setProperty(kGeofenceProperty, QByteArray(kind));
    m_bridge->trackReply(reply);
}

void BridgeAPI2::updateGeofenceName()
{
    // The silence limit holds with or without a geofence client: a hub that has no serial
    // number yet has none, and its stream must still be reopened when it falls silent.
    if (m_stream->abortIfSilent())
        return;
    if (m_geofenceClientId.isEmpty() || !m_stream->isOpen()) {
        LOG_DETAIL << "skipping eventstream ping" << m_stream->stateText();
        return;
    }
    const QByteArray prefix = geofenceNamePrefix();
    QNetworkAccessManager* nam = m_bridge->networkAccessManager();
    if (prefix.isEmpty() || !nam)
        return;
    // Renaming the client makes the bridge send an event, which shows that the stream lives.
    const QByteArray body = "{\"name\":\"" + prefix + nameSuffix() + "\"}";
    const QNetworkRequest request =
        createRequest(QStringLiteral("geofence_client/") + QString::fromUtf8(m_geofenceClientId));
    sendGeofenceRequest(nam->put(request, body), "rename");
}

bool BridgeAPI2::handleOtherReply(QNetworkReply* reply, bool timedOut)
{
    const QByteArray kind = reply->property(kGeofenceProperty).toByteArray();
    if (reply == m_geofenceRequest)
        m_geofenceRequest = nullptr;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (kind.isEmpty()) {
        // Renames: the bridge's answer is only logged.
        const QByteArray body = reply->isOpen() ? reply->readAll() : QByteArray();
        if (timedOut || status > 299)
            LOG_ERROR << "request" << reply->url().path() << "failed:" << status << reply->errorString()
                      << LogExcerpt(body);
        return true;
    }
    if (timedOut || status > 299 || reply->error() != QNetworkReply::NoError) {
        // The next poll cycle looks for the client again and registers a new one if needed.
        m_geofenceClientId.clear();
        LOG_ERROR << "geofenceclient request error:" << reply->errorString();
        return true;
    }
    if (!reply->isOpen()) {
        LOG_ERROR << "cannot read from reply";
        return true;
    }
    const QByteArray body = reply->readAll();
    std::unique_ptr<minijson::CEntity> document;
    try {
        document = minijson::CParser::Parse(body.constData(), body.size());
    } catch (const minijson::CException& e) {
        LOG_ERROR << "geofenceclient reply parse error:" << e.what() << "response data:" << LogExcerpt(body);
        return true;
    }
    if (!document->IsObject()) {
        LOG_ERROR << "geofenceclient reply is not an obejct:" << LogExcerpt(body);
        return true;
    }
    const minijson::CObject& object = document->Object();
    if (!object.Contains("data")) {
        LOG_ERROR << "geofenceclient reply is missing data key:" << LogExcerpt(body);
        return true;
    }
    if (kind == "create")
        parseGeofenceClientCreate(object);
    else
        checkErrors(object);
    return true;
}

} // namespace hue
