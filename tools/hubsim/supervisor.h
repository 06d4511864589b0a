#pragma once

#include <common/messaging/socketconnection.h>

#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>

class HubEventLog;
class SocketInterface;

// The hub's service supervisor, as far as one service sees it: it connects to the service
// "com.orlux.tamsa.huecontroller" and drives it through its run stages with the call run(int):
// 0 connect, 3 initialise, 1 start, and 2 stop at shutdown.
//
// Each stage is sent as a call with reply, without blocking: the service's stage 3 waits for
// its configuration, which this very process (the database service) has to deliver meanwhile.
// The next stage goes out when the service has answered the previous one.
//
// Supervising, it retries the connection until the service's socket appears, runs 0, 3, 1, and
// starts over when the service goes away and comes back (a restart).
class Supervisor : public QObject
{
    Q_OBJECT

public:
    static constexpr int kDefaultRetryMs = 1000;
    static constexpr int kDefaultStopLimitMs = 5000;

    Supervisor(SocketConnection::SocketType type, const QString& socketDir, HubEventLog* events,
               QObject* parent = nullptr);
    ~Supervisor() override;

    void setRetryInterval(int ms) { m_retryTimer.setInterval(ms); }

    void startSupervising();
    bool isSupervising() const { return m_supervising; }
    bool isConnected() const;

    // Sends one stage by hand, connecting first if need be (one attempt). `done` runs once
    // with whether the service answered the call, and why not.
    using StageDone = std::function<void(bool answered, const QString& error)>;
    void sendStage(int stage, const StageDone& done);

    // Sends stage 2 when the service is connected and emits stopped() once it has answered or
    // after `limitMs`; at once when there is nothing to stop.
    void stop(int limitMs = kDefaultStopLimitMs);

    // {"supervising", "connected", "lastStage" (-1: none), "answered" (stages answered, in
    // order, since the last connection)}
    QVariantMap status() const;

signals:
    void stageAnswered(int stage, bool answered);
    void stopped();

private:
    bool connectNow(bool quiet);
    void onServiceDisconnected();
    void runStartupStages();
    void tryConnect();

    SocketConnection::SocketType m_type;
    QString m_socketDir;
    HubEventLog* m_events;
    QPointer<SocketInterface> m_service;
    quint64 m_generation = 0; // tells answers of the current connection from older ones
    QTimer m_retryTimer;
    QTimer m_stopTimer;
    bool m_supervising = false;
    bool m_stopping = false;
    QList<int> m_startupStages; // still to send, in order
    int m_lastStage = -1;
    QList<int> m_answered;
};
