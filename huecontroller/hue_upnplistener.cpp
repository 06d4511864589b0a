// UPnP discovery of bridges through the hub's SSDP service and their description documents.

#include "hue_upnplistener.h"

#include "hue_controller.h"
#include "hue_replylimit.h"
#include "hue_upnpdescription.h"

#include "common/logginginterface.h"
#include "common/messaging/socketinterface.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace hue {

namespace {

const char* const kSystemService = "com.orlux.tamsa.system";
const char* const kNotificationTypes[] = {"upnp:rootdevice", "urn:schemas-upnp-org:device:basic:1"};
const char* const kDiscoverySignal = "ssdpDiscoveryReceived(bool,int,QByteArray,QMap<QString,QString>)";
const char* const kDiscoverySlot = "onUpnpDeviceDiscovery(bool,int,QByteArray,QMap<QString,QString>)";
const char* const kExpirySignal = "ssdpDiscoveryExpired(QByteArray,QMap<QString,QString>)";
const char* const kExpirySlot = "onUpnpDiscoveryExpired(QByteArray,QMap<QString,QString>)";

const QString kLocation = QStringLiteral("LOCATION");
const QString kUsn = QStringLiteral("USN");
const QString kBridgeIdHeader = QStringLiteral("HUE-BRIDGEID");

// A device announces itself under several notification types with USNs such as
// "uuid:X::upnp:rootdevice" and "uuid:X"; the part before "::" names the device.
QString deviceUuid(const QString& usn)
{
    return usn.section(QStringLiteral("::"), 0, 0);
}

} // namespace

int CUpnpListener::Device::port() const
{
    return location.port(location.scheme() == QLatin1String("https") ? 443 : 80);
}

CUpnpListener::CUpnpListener(SocketInterface* systemService, CController* controller, QObject* parent)
    : QObject(parent), m_system(systemService), m_controller(controller ? controller : g_Controller),
      m_nam(new QNetworkAccessManager(this))
{
    m_queryTimer.setInterval(kQueryIntervalMs);
    connect(&m_queryTimer, &QTimer::timeout, this, &CUpnpListener::onQueryTimer);
    if (m_controller)
        connect(m_controller, &CController::bridgeRemoved, this,
                [this](const QString& bridgeId) { forgetBridge(bridgeId.toUtf8()); });
}

CUpnpListener::~CUpnpListener()
{
    stop();
    for (Device& device : m_devices)
        dropReply(device);
}

void CUpnpListener::start()
{
    if (m_watching)
        return;
    if (!m_system) {
        LOG_ERROR << "no interface to" << kSystemService << "- SSDP discovery is off";
        return;
    }
    subscribe(true);
    callWatch("watchSSDPNotificationType");
    m_watching = true;
    for (const Device& device : qAsConst(m_devices)) {
        if (device.state == DeviceWaiting)
            m_queryTimer.start();
    }
}

void CUpnpListener::stop()
{
    if (!m_watching)
        return;
    m_watching = false;
    m_queryTimer.stop();
    for (Device& device : m_devices)
        dropReply(device);
    if (!m_system)
        return;
    subscribe(false);
    callWatch("unwatchSSDPNotificationType");
}

void CUpnpListener::subscribe(bool on)
{
    for (const auto& [signal, slot] :
         {std::pair{kDiscoverySignal, kDiscoverySlot}, {kExpirySignal, kExpirySlot}}) {
        if (on)
            m_system->connectDynamicSignal(signal, this, slot);
        else
            m_system->disconnectDynamicSignal(signal, this, slot);
        if (m_system->hasError()) {
            LOG_ERROR << kSystemService << (on ? "subscribing to" : "unsubscribing from") << signal
                      << "failed:" << m_system->errorText();
        }
    }
}

void CUpnpListener::callWatch(const char* method)
{
    for (const char* type : kNotificationTypes) {
        m_system->call(SocketInterface::NoBlock, QLatin1String(method), QString::fromLatin1(type),
                       QString::fromLatin1(kRequester));
        if (m_system->hasError())
            LOG_ERROR << kSystemService << method << type << "failed:" << m_system->errorText();
    }
}

QByteArray CUpnpListener::extractBridgeId(const QMap<QString, QString>& headers)
{
    return headers.value(kBridgeIdHeader).toUtf8().toLower();
}

void CUpnpListener::onUpnpDeviceDiscovery(bool alive, int maxAge, QByteArray notificationType,
                                          QMap<QString, QString> headers)
{
    Q_UNUSED(maxAge);
    if (!alive) {
        onUpnpDiscoveryExpired(notificationType, headers);
        return;
    }
    const QByteArray id = extractBridgeId(headers);
    if (id.isEmpty() || !headers.contains(kLocation) || !headers.contains(kUsn)) {
        LOG_DETAIL << "ignoring SSDP message without bridge id, location or USN" << notificationType;
        return;
    }
    const QUrl location(headers.value(kLocation));
    auto it = m_devices.find(id);
    if (it != m_devices.end() && it->location == location)
        return; // repeated announcements cause no new fetch
    if (it != m_devices.end()) {
        LOG_INFO << "bridge" << id << "moved to" << location;
        dropReply(*it);
    }
    Device device;
    device.location = location;
    device.usn = headers.value(kUsn);
    it = m_devices.insert(id, device);
    queryBridge(id, *it);
}

void CUpnpListener::onUpnpDiscoveryExpired(QByteArray notificationType, QMap<QString, QString> headers)
{
    const QByteArray id = extractBridgeId(headers);
    const auto it = m_devices.constFind(id);
    if (it == m_devices.cend())
        return;
    // Only the expiry of the device as recorded counts: not that of a location it has left.
    if (QUrl(headers.value(kLocation)) != it->location ||
        deviceUuid(headers.value(kUsn)) != deviceUuid(it->usn)) {
        LOG_DETAIL << "SSDP expiry does not match the record of bridge" << id << notificationType;
        return;
    }
    LOG_INFO << "SSDP announcement of bridge" << id << "expired";
    if (m_controller)
        m_controller->removeBridge(QString::fromUtf8(id)); // forgets the record through bridgeRemoved
    forgetBridge(id);
}

void CUpnpListener::queryBridge(const QByteArray& id)
{
    const auto it = m_devices.find(id);
    if (it != m_devices.end())
        queryBridge(id, *it);
}

void CUpnpListener::queryBridge(const QByteArray& id, Device& device)
{
    if (device.reply) {
        // Aborting finishes the request at once and counts as a failure, which may settle it.
        LOG_WARNING << "aborting hanging query on bridge" << id;
        QNetworkReply* hanging = device.reply;
        hanging->abort();
        if (device.reply == hanging)
            dropReply(device); // it had finished already; its late signal must not count
        if (device.state != DeviceWaiting)
            return;
    }
    QNetworkReply* reply = m_nam->get(QNetworkRequest(device.location));
    reply->setProperty("HUE_BRIDGE_ID", id);
    limitReplySize(reply, UpnpDescription::kMaxBytes);
    device.reply = reply;
    connect(reply, &QNetworkReply::finished, this, &CUpnpListener::onDescriptionRequestFinished);
    m_queryTimer.start();
}

void CUpnpListener::onQueryTimer()
{
    QList<QByteArray> waiting;
    for (auto it = m_devices.cbegin(); it != m_devices.cend(); ++it) {
        if (it->state == DeviceWaiting)
            waiting.append(it.key());
    }
    if (waiting.isEmpty()) {
        m_queryTimer.stop();
        return;
    }
    for (const QByteArray& id : qAsConst(waiting))
        queryBridge(id);
}

void CUpnpListener::onDescriptionRequestFinished()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply) {
        LOG_ERROR << "onDescriptionFinished with a non-Reply sender";
        return;
    }
    reply->deleteLater();
    const QByteArray id = reply->property("HUE_BRIDGE_ID").toByteArray();
    const auto it = m_devices.find(id);
    if (it == m_devices.end() || it->reply != reply)
        return; // forgotten or superseded meanwhile
    Device& device = *it;
    device.reply = nullptr;

    if (replyWasTooLarge(reply)) {
        LOG_WARNING << "description XML from device larger than" << UpnpDescription::kMaxBytes << "bytes"
                    << id;
        countFailure(id, device);
        return;
    }
    if (reply->error() == QNetworkReply::OperationCanceledError) {
        LOG_WARNING << "description query was aborted" << id;
        countFailure(id, device);
        return;
    }
    if (reply->error() != QNetworkReply::NoError) {
        LOG_WARNING << "description query failed:" << reply->errorString() << id;
        countFailure(id, device);
        return;
    }
    const UpnpDescription description = UpnpDescription::parse(reply->readAll());
    switch (description.result) {
    case UpnpDescription::Ok:
        break;
    case UpnpDescription::ParseError:
        LOG_WARNING << "Parse error in description XML from device"
                    << "line" << description.line << "column" << description.column << description.message
                    << id;
        countFailure(id, device);
        return;
    case UpnpDescription::TooDeep:
        LOG_WARNING << "description XML from device nests deeper than" << UpnpDescription::kMaxDepth
                    << "levels" << id;
        countFailure(id, device);
        return;
    case UpnpDescription::HasDoctype:
        LOG_WARNING << "description XML from device has a document type declaration, refused" << id;
        countFailure(id, device);
        return;
    }

    device.state = DeviceSettled;
    if (!description.looksLikeHueBridge()) {
        LOG_INFO << "model does not look like a bridge:" << description.modelName << id;
        return;
    }
    const QByteArray host = device.location.host().toUtf8();
    const int port = device.port();
    LOG_INFO << "found hue bridge" << id << "at" << host << port;
    if (m_controller)
        m_controller->addBridge(id, host, port);
}

void CUpnpListener::countFailure(const QByteArray& id, Device& device)
{
    ++device.failures;
    if (device.failures < kMaxFailures) {
        device.state = DeviceWaiting;
    } else {
        device.state = DeviceSettled;
        LOG_WARNING << "giving up on the description of bridge" << id << "after" << device.failures
                    << "failures";
    }
    if (!m_queryTimer.isActive())
        m_queryTimer.start();
}

void CUpnpListener::dropReply(Device& device)
{
    QNetworkReply* reply = device.reply;
    if (!reply)
        return;
    device.reply = nullptr;
    reply->disconnect(this);
    reply->abort();
    reply->deleteLater();
}

void CUpnpListener::forgetBridge(const QByteArray& id)
{
    const auto it = m_devices.find(id.toLower());
    if (it == m_devices.end())
        return;
    dropReply(*it);
    m_devices.erase(it);
}

} // namespace hue
