#pragma once

#include "socketadaptor.h"
#include "socketconnection.h"

#include <QString>
#include <QTimer>

class SocketInterface;

// A service adaptor that reports the service's health to the hub's diagnosis service: every
// two minutes it sends the non-blocking call "ping" with the service's name (getModuleName())
// and its health value (255 = healthy until the service says otherwise with setHealth()).
//
// The diagnosis connection is made at heartbeat time only, from the hub-wide settings
// "socketDir" and "socketType" of the "vorn"/"database" store; when the service cannot be
// reached, the next heartbeat tries again.
class SocketAdaptorWithPing : public SocketAdaptor
{
    Q_OBJECT

public:
    static constexpr int kHeartbeatIntervalMs = 120000;
    static constexpr quint8 kHealthy = 255;
    static const char kDiagnosisService[]; // "com.orlux.tamsa.diagnosis"

    explicit SocketAdaptorWithPing(const QString& serviceName, QObject* parent = nullptr);
    ~SocketAdaptorWithPing() override;

    // The name the service reports itself by; the service name unless a subclass says otherwise.
    virtual QString getModuleName() const;

    void setHealth(quint8 health) { m_health = health; }
    quint8 health() const { return m_health; }

    // Opens the connection to the diagnosis service in socketDir; false when it cannot be reached.
    bool connectToDiagnosis(SocketConnection::SocketType type, const QString& socketDir);
    bool isConnectedToDiagnosis() const;
    // Sends "ping" now, connecting to the diagnosis service first when needed; false when it
    // cannot be reached or the call fails.
    bool sendHeartbeat();

protected slots:
    void onHeartbeatTimeout();

private:
    QTimer m_heartbeatTimer;
    SocketInterface* m_diagnosis = nullptr;
    quint8 m_health = kHealthy;
};
