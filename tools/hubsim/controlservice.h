#pragma once

#include "hubservice.h"

#include <common/messaging/socketpromise.h>

#include <QHash>
#include <QList>
#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

class BackendService;
class CommunicationService;
class DatabaseService;
class DiagnosisService;
class QTimer;
class Supervisor;
class SystemService;

// The parts of the simulated hub that the control service reaches into.
struct HubParts
{
    CommunicationService* communication = nullptr;
    DatabaseService* database = nullptr;
    SystemService* system = nullptr;
    DiagnosisService* diagnosis = nullptr;
    BackendService* backend = nullptr;
    Supervisor* supervisor = nullptr;
    QList<HubService*> services; // all of them, for the status
    QString socketDir;
    bool tcp = false;
};

// hubsim's own service "com.orlux.tamsa.hubsim", through which hubctl looks into the simulated
// hub and makes it act. Actions answer with a map {"ok", "error", ...}; "subscribers" says how
// many clients the resulting signal reached, "watched" whether a client watches that discovery
// type. Every event of the hub goes out as the signal hubEvent(QVariantMap) (see HubEventLog).
class ControlService : public HubService
{
    Q_OBJECT

public:
    ControlService(const HubParts& parts, HubEventLog* events, QObject* parent = nullptr);
    ~ControlService() override;

    // Devices as devicevariant::fromDevice() describes them.
    Q_INVOKABLE QVariantList devices();
    // Writes an input datapoint and answers once the device has confirmed the write or waitMs
    // have passed (at once for 0, or when no client subscribed to the signal): {"ok", "error",
    // "id", "token", "subscribers", "confirmed", "result" (-1 until confirmed)}.
    Q_INVOKABLE void writeDataPoint(QString device, QString dataPoint, QString value, int waitMs,
                                    SocketPromise promise);
    Q_INVOKABLE QVariantMap writeParameter(QString device, QString parameter, QString value);
    Q_INVOKABLE QVariantMap setAttribute(QString device, QString name, QString value);
    Q_INVOKABLE QVariantMap masterReset(QString device);
    Q_INVOKABLE QVariantMap scanLifeSigns();
    Q_INVOKABLE QVariantMap mdns(bool added, QString type, QString name, QString host, QString address,
                                 int port, QStringList txt);
    // kind: "announce", "byebye" or "expire"
    Q_INVOKABLE QVariantMap ssdp(QString kind, QString location, QString usn, QString bridgeId, int maxAge,
                                 QString notificationType);
    Q_INVOKABLE QVariantMap networkEvent(int event, QString text);
    // [{"key", "value", "persistent"}] in key order
    Q_INVOKABLE QVariantList configValues();
    Q_INVOKABLE QVariantMap setConfigValue(QString key, QString value, bool persistent);
    // Answers once the service has answered the run call: {"ok", "error", "stage"}.
    Q_INVOKABLE void runStage(int stage, SocketPromise promise);
    Q_INVOKABLE QVariantList pings();
    Q_INVOKABLE QVariantList supportInfo();
    // {"socketDir", "socketType", "database", "services": [{"name", "clients": [{"name",
    // "subscriptions"}]}], "watches": [{"kind", "type", "requester", "client", "since"}],
    // "supervisor": {...}}
    Q_INVOKABLE QVariantMap status();

private:
    struct PendingWrite
    {
        SocketPromise promise;
        QVariantMap answer;
        QTimer* timer = nullptr;
    };
    void answerWrite(int token, bool confirmed, int result);
    void forwardEvent(const QVariantMap& event);

    HubParts m_parts;
    QHash<int, PendingWrite> m_pendingWrites; // by token
};
