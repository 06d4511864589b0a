#include "controlservice.h"

#include "backendservice.h"
#include "communicationservice.h"
#include "databaseservice.h"
#include "devicevariant.h"
#include "diagnosisservice.h"
#include "hubeventlog.h"
#include "supervisor.h"
#include "systemservice.h"

#include <QTimer>

namespace {

QVariantMap failure(const QString& error)
{
    return {{"ok", false}, {"error", error}};
}

QVariantMap fromAction(const CommunicationService::Action& action)
{
    if (!action.ok)
        return failure(action.error);
    return {{"ok", true},
            {"error", QString()},
            {"id", QString::fromLatin1(action.id.toString())},
            {"subscribers", action.subscribers}};
}

QVariantMap fromAnnouncement(const SystemService::Announcement& announcement)
{
    if (!announcement.ok)
        return failure(announcement.error);
    return {{"ok", true},
            {"error", QString()},
            {"subscribers", announcement.subscribers},
            {"watched", announcement.watched}};
}

} // namespace

ControlService::ControlService(const HubParts& parts, HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kControl), events, parent), m_parts(parts)
{
    setQuietClients(true);
    connect(events, &HubEventLog::posted, this, &ControlService::forwardEvent);
    connect(m_parts.communication, &CommunicationService::writeConfirmed, this,
            [this](int token, int result) { answerWrite(token, true, result); });
}

ControlService::~ControlService()
{
    // Callers still waiting for a confirmation get the write's answer without it.
    for (int token : m_pendingWrites.keys())
        answerWrite(token, false, -1);
}

void ControlService::forwardEvent(const QVariantMap& event)
{
    if (subscriberCount("hubEvent(QVariantMap)") > 0)
        emitSignal(QStringLiteral("hubEvent"), event);
}

QVariantList ControlService::devices()
{
    QVariantList all;
    for (const RegisteredDevice* device : m_parts.communication->registry().devices())
        all.append(devicevariant::fromDevice(*device));
    return all;
}

void ControlService::writeDataPoint(QString device, QString dataPoint, QString value, int waitMs,
                                    SocketPromise promise)
{
    const CommunicationService::Action action =
        m_parts.communication->writeDataPoint(device, dataPoint, value);
    QVariantMap answer = fromAction(action);
    if (!action.ok) {
        promise.setResult(answer);
        return;
    }
    answer.insert("token", action.token);
    answer.insert("confirmed", false);
    answer.insert("result", -1);
    // Without a subscriber nobody can confirm: no point in waiting.
    if (waitMs <= 0 || action.subscribers == 0) {
        promise.setResult(answer);
        return;
    }
    auto* timer = new QTimer(this);
    timer->setSingleShot(true);
    const int token = action.token;
    connect(timer, &QTimer::timeout, this, [this, token] { answerWrite(token, false, -1); });
    m_pendingWrites.insert(token, PendingWrite{promise, answer, timer});
    timer->start(waitMs);
}

void ControlService::answerWrite(int token, bool confirmed, int result)
{
    auto it = m_pendingWrites.find(token);
    if (it == m_pendingWrites.end())
        return; // nobody waits for this one
    PendingWrite pending = it.value();
    m_pendingWrites.erase(it);
    pending.timer->deleteLater();
    pending.answer.insert("confirmed", confirmed);
    pending.answer.insert("result", result);
    pending.promise.setResult(pending.answer);
}

QVariantMap ControlService::writeParameter(QString device, QString parameter, QString value)
{
    return fromAction(m_parts.communication->writeParameter(device, parameter, value));
}

QVariantMap ControlService::setAttribute(QString device, QString name, QString value)
{
    return fromAction(m_parts.communication->setAttribute(device, name, value));
}

QVariantMap ControlService::masterReset(QString device)
{
    return fromAction(m_parts.communication->masterReset(device));
}

QVariantMap ControlService::scanLifeSigns()
{
    return fromAction(m_parts.communication->scanForLifeSigns());
}

QVariantMap ControlService::mdns(bool added, QString type, QString name, QString host, QString address,
                                 int port, QStringList txt)
{
    if (port < 0 || port > 65535)
        return failure(QStringLiteral("port %1 is out of range").arg(port));
    return fromAnnouncement(m_parts.system->mdnsService(added, type, name, host, address, port, txt));
}

QVariantMap ControlService::ssdp(QString kind, QString location, QString usn, QString bridgeId, int maxAge,
                                 QString notificationType)
{
    SystemService::SsdpKind ssdpKind;
    if (kind == QLatin1String("announce"))
        ssdpKind = SystemService::SsdpKind::Alive;
    else if (kind == QLatin1String("byebye"))
        ssdpKind = SystemService::SsdpKind::ByeBye;
    else if (kind == QLatin1String("expire"))
        ssdpKind = SystemService::SsdpKind::Expired;
    else
        return failure(QStringLiteral("unknown SSDP message \"%1\" (announce, byebye or expire)").arg(kind));
    return fromAnnouncement(
        m_parts.system->ssdpDevice(ssdpKind, location, usn, bridgeId, maxAge, notificationType));
}

QVariantMap ControlService::networkEvent(int event, QString text)
{
    return fromAnnouncement(m_parts.system->networkEvent(event, text));
}

QVariantList ControlService::configValues()
{
    QVariantList all;
    const auto entries = m_parts.database->configStore().entries();
    for (auto it = entries.cbegin(); it != entries.cend(); ++it)
        all.append(QVariantMap{{"key", it.key()}, {"value", it->value}, {"persistent", it->persistent}});
    return all;
}

QVariantMap ControlService::setConfigValue(QString key, QString value, bool persistent)
{
    if (key.isEmpty())
        return failure(QStringLiteral("the key is empty"));
    m_parts.database->store(key, value, persistent, callerName());
    return {{"ok", true}, {"error", QString()}, {"key", key}, {"value", value}, {"persistent", persistent}};
}

void ControlService::runStage(int stage, SocketPromise promise)
{
    m_parts.supervisor->sendStage(stage, [promise, stage](bool answered, const QString& error) mutable {
        promise.setResult(QVariantMap{{"ok", answered}, {"error", error}, {"stage", stage}});
    });
}

QVariantList ControlService::pings()
{
    return m_parts.diagnosis->pings();
}

QVariantList ControlService::supportInfo()
{
    return m_parts.backend->submissions();
}

QVariantMap ControlService::status()
{
    QVariantList services;
    for (HubService* service : m_parts.services) {
        QVariantList clients;
        for (SocketConnection* connection : service->connections()) {
            QStringList subscriptions;
            for (const QByteArray& signature : service->subscriptions(connection))
                subscriptions << QString::fromUtf8(signature);
            subscriptions.sort();
            clients.append(QVariantMap{{"name", QString::fromUtf8(service->clientName(connection))},
                                       {"subscriptions", subscriptions}});
        }
        services.append(QVariantMap{{"name", service->serviceName()}, {"clients", clients}});
    }
    QVariantList watches;
    for (const SystemService::Watch& watch : m_parts.system->watches())
        watches.append(QVariantMap{{"kind", watch.kind},
                                   {"type", watch.type},
                                   {"requester", watch.requester},
                                   {"client", watch.client},
                                   {"since", devicevariant::timeText(watch.since)}});
    QVariantList known;
    for (const SystemService::KnownService& service : m_parts.system->knownServices())
        known.append(QVariantMap{{"type", service.type},
                                 {"name", service.name},
                                 {"address", service.address},
                                 {"port", service.port}});
    return {{"socketDir", m_parts.socketDir},
            {"socketType", m_parts.tcp ? QStringLiteral("tcp") : QStringLiteral("local")},
            {"database", m_parts.database->configStore().databaseFile()},
            {"services", services},
            {"watches", watches},
            {"mdnsServices", known},
            {"supervisor", m_parts.supervisor->status()}};
}
