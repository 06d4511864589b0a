#include "systemservice.h"

#include "hubeventlog.h"

#include <common/logginginterface.h>
#include <common/messaging/socketconnection.h>
#include <common/messaging/socketmessage.h>

#include <QTimer>

#include <algorithm>

namespace {

constexpr char kMdnsSignature[] =
    "mDNSServiceChanged(bool,QByteArray,QByteArray,QByteArray,QByteArray,int,QByteArray,QStringList)";

// The signal's arguments, in the order the hub's browser sends them.
QVector<SocketArgument> mdnsArguments(bool added, const SystemService::KnownService& service)
{
    return {SocketArgument(added),
            SocketArgument(service.type.toUtf8()),
            SocketArgument(service.name.toUtf8()),
            SocketArgument(QByteArrayLiteral("local")),
            SocketArgument(service.host.toUtf8()),
            SocketArgument(qint32(service.port)),
            SocketArgument(service.address.toUtf8()),
            SocketArgument(service.txt)};
}

} // namespace

SystemService::SystemService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kSystem), events, parent)
{
    connect(this, &SocketAdaptor::subscriptionReceived, this,
            [this](SocketConnection* connection, const QByteArray& signature) {
                if (signature == kMdnsSignature)
                    sendKnownServices(connection);
            });
}

void SystemService::watchMDNSServiceType(QString serviceType, QString requester)
{
    addWatch(QStringLiteral("mdns"), serviceType, requester);
}

void SystemService::watchMDNSServiceType(QByteArray serviceType, QByteArray requester)
{
    addWatch(QStringLiteral("mdns"), QString::fromUtf8(serviceType), QString::fromUtf8(requester));
}

void SystemService::watchSSDPNotificationType(QString notificationType, QString requester)
{
    addWatch(QStringLiteral("ssdp"), notificationType, requester);
}

void SystemService::watchSSDPNotificationType(QByteArray notificationType, QByteArray requester)
{
    addWatch(QStringLiteral("ssdp"), QString::fromUtf8(notificationType), QString::fromUtf8(requester));
}

void SystemService::unwatchSSDPNotificationType(QString notificationType, QString requester)
{
    removeWatch(QStringLiteral("ssdp"), notificationType, requester);
}

void SystemService::unwatchSSDPNotificationType(QByteArray notificationType, QByteArray requester)
{
    removeWatch(QStringLiteral("ssdp"), QString::fromUtf8(notificationType), QString::fromUtf8(requester));
}

void SystemService::addWatch(const QString& kind, const QString& type, const QString& requester)
{
    const SocketConnection* connection = currentCall() ? currentCall()->connection.data() : nullptr;
    // A repeated watch of one client is one watch.
    bool known = false;
    for (const Watch& watch : m_watches)
        known = known || (watch.connection == connection && watch.kind == kind && watch.type == type &&
                          watch.requester == requester);
    if (!known)
        m_watches.append(
            Watch{kind, type, requester, callerName(), QDateTime::currentDateTime(), connection});
    if (kind == QLatin1String("mdns") && connection) {
        // After the call has been answered, as a browser reports what it finds after it starts.
        m_pendingReplays.append(PendingReplay{connection, type});
        QTimer::singleShot(0, this, [this, connection] { sendKnownServices(connection); });
    }
    postCall(kind == QLatin1String("mdns") ? QStringLiteral("watchMDNSServiceType")
                                           : QStringLiteral("watchSSDPNotificationType"),
             {{"type", type}, {"requester", requester}});
}

void SystemService::removeWatch(const QString& kind, const QString& type, const QString& requester)
{
    const SocketConnection* connection = currentCall() ? currentCall()->connection.data() : nullptr;
    const int before = m_watches.size();
    m_watches.erase(std::remove_if(m_watches.begin(), m_watches.end(),
                                   [&](const Watch& watch) {
                                       return watch.connection == connection && watch.kind == kind &&
                                              watch.type == type && watch.requester == requester;
                                   }),
                    m_watches.end());
    if (m_watches.size() == before)
        LOG_WARNING << "unwatch of" << kind << type << "by" << requester << "that was not watched";
    postCall(QStringLiteral("unwatchSSDPNotificationType"), {{"type", type}, {"requester", requester}});
}

void SystemService::sendKnownServices(const SocketConnection* connection)
{
    SocketConnection* live = nullptr;
    for (SocketConnection* candidate : connections())
        live = candidate == connection ? candidate : live;
    if (!live || !subscriptions(live).contains(kMdnsSignature))
        return; // gone, or not subscribed yet: the subscription sends them
    QList<PendingReplay> due;
    for (auto it = m_pendingReplays.begin(); it != m_pendingReplays.end();) {
        if (it->connection == connection) {
            due.append(*it);
            it = m_pendingReplays.erase(it);
        } else {
            ++it;
        }
    }
    for (const PendingReplay& replay : due) {
        for (const KnownService& service : m_known) {
            if (service.type != replay.type)
                continue;
            SocketMessage message;
            message.type = socketwire::Signal;
            message.name = QByteArrayLiteral("mDNSServiceChanged");
            message.arguments = mdnsArguments(true, service);
            const QByteArray bytes = message.encode();
            const bool sent = !bytes.isEmpty() && live->writeBytesNow(bytes);
            if (!sent)
                LOG_ERROR << "cannot send known service" << service.name << "to" << clientName(live);
            events()->post(QStringLiteral("mDNSServiceReplayed"),
                           {{"type", service.type},
                            {"name", service.name},
                            {"address", service.address},
                            {"port", service.port},
                            {"client", QString::fromUtf8(clientName(live))},
                            {"sent", sent}});
        }
    }
}

void SystemService::rememberService(bool added, const KnownService& service)
{
    auto same = [&service](const KnownService& other) {
        return other.type == service.type && other.name == service.name;
    };
    auto it = std::find_if(m_known.begin(), m_known.end(), same);
    if (!added) {
        if (it != m_known.end())
            m_known.erase(it);
    } else if (it != m_known.end()) {
        *it = service; // announced again, perhaps at a new address
    } else {
        m_known.append(service);
    }
}

void SystemService::clientGone(SocketConnection* connection, const QByteArray& name)
{
    m_pendingReplays.erase(
        std::remove_if(m_pendingReplays.begin(), m_pendingReplays.end(),
                       [connection](const PendingReplay& replay) { return replay.connection == connection; }),
        m_pendingReplays.end());
    const int before = m_watches.size();
    m_watches.erase(
        std::remove_if(m_watches.begin(), m_watches.end(),
                       [connection](const Watch& watch) { return watch.connection == connection; }),
        m_watches.end());
    if (m_watches.size() != before)
        LOG_INFO << "dropped" << before - m_watches.size() << "watches of departed client" << name;
}

bool SystemService::isWatched(const QString& kind, const QString& type) const
{
    for (const Watch& watch : m_watches) {
        if (watch.kind == kind && watch.type == type)
            return true;
    }
    return false;
}

SystemService::Announcement SystemService::mdnsService(bool added, const QString& type, const QString& name,
                                                       const QString& host, const QString& address, int port,
                                                       const QStringList& txt)
{
    const KnownService service{type, name, host, address, port, txt};
    rememberService(added, service);
    Announcement result;
    result.watched = isWatched(QStringLiteral("mdns"), type);
    result.subscribers = subscriberCount(kMdnsSignature);
    result.ok =
        emitSignalWithArgumentList(QStringLiteral("mDNSServiceChanged"), mdnsArguments(added, service));
    if (!result.ok)
        result.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("mDNSServiceChanged"), {{"added", added},
                                                          {"type", type},
                                                          {"name", name},
                                                          {"host", host},
                                                          {"address", address},
                                                          {"port", port},
                                                          {"txt", txt},
                                                          {"watched", result.watched},
                                                          {"subscribers", result.subscribers}});
    return result;
}

SystemService::Announcement SystemService::ssdpDevice(SsdpKind kind, const QString& location,
                                                      const QString& usn, const QString& bridgeId, int maxAge,
                                                      const QString& notificationType)
{
    const QMap<QString, QString> headers{
        {QStringLiteral("LOCATION"), location},
        {QStringLiteral("USN"), usn},
        {QStringLiteral("HUE-BRIDGEID"), bridgeId},
        {QStringLiteral("NT"), notificationType},
        {QStringLiteral("CACHE-CONTROL"), QStringLiteral("max-age=%1").arg(maxAge)},
    };
    Announcement result;
    result.watched = isWatched(QStringLiteral("ssdp"), notificationType);
    QString signal;
    if (kind == SsdpKind::Expired) {
        signal = QStringLiteral("ssdpDiscoveryExpired");
        result.subscribers = subscriberCount("ssdpDiscoveryExpired(QByteArray,QMap<QString,QString>)");
        result.ok = emitSignal(signal, notificationType.toUtf8(), headers);
    } else {
        signal = QStringLiteral("ssdpDiscoveryReceived");
        result.subscribers =
            subscriberCount("ssdpDiscoveryReceived(bool,int,QByteArray,QMap<QString,QString>)");
        result.ok = emitSignal(signal, kind == SsdpKind::Alive, maxAge, notificationType.toUtf8(), headers);
    }
    if (!result.ok)
        result.error = QStringLiteral("the signal could not be sent");
    events()->post(signal, {{"alive", kind == SsdpKind::Alive},
                            {"location", location},
                            {"usn", usn},
                            {"bridgeId", bridgeId},
                            {"nt", notificationType},
                            {"watched", result.watched},
                            {"subscribers", result.subscribers}});
    return result;
}

SystemService::Announcement SystemService::networkEvent(int event, const QString& text)
{
    Announcement result;
    result.watched = true; // network events need no watch
    result.subscribers = subscriberCount("networkEvent(int,QByteArray)");
    result.ok = emitSignal(QStringLiteral("networkEvent"), event, text.toUtf8());
    if (!result.ok)
        result.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("networkEvent"),
                   {{"event", event}, {"text", text}, {"subscribers", result.subscribers}});
    return result;
}
