#include "socketadaptorwithping.h"

#include "hubsocketsettings.h"
#include "socketinterface.h"

#include <common/logginginterface.h>


const char SocketAdaptorWithPing::kDiagnosisService[] = "com.orlux.tamsa.diagnosis";

SocketAdaptorWithPing::SocketAdaptorWithPing(const QString& serviceName, QObject* parent)
    : SocketAdaptor(serviceName, parent)
{
    connect(&m_heartbeatTimer, &QTimer::timeout, this, &SocketAdaptorWithPing::onHeartbeatTimeout);
    m_heartbeatTimer.start(kHeartbeatIntervalMs);
}

SocketAdaptorWithPing::~SocketAdaptorWithPing() = default;

QString SocketAdaptorWithPing::getModuleName() const
{
    return serviceName();
}

bool SocketAdaptorWithPing::connectToDiagnosis(SocketConnection::SocketType type, const QString& socketDir)
{
    delete m_diagnosis;
    m_diagnosis = new SocketInterface(type, QString::fromLatin1(kDiagnosisService), socketDir, this,
                                      getModuleName().toUtf8());
    if (m_diagnosis->isValid())
        return true;
    delete m_diagnosis;
    m_diagnosis = nullptr;
    return false;
}

bool SocketAdaptorWithPing::isConnectedToDiagnosis() const
{
    return m_diagnosis && m_diagnosis->isValid();
}

void SocketAdaptorWithPing::onHeartbeatTimeout()
{
    sendHeartbeat();
}

bool SocketAdaptorWithPing::sendHeartbeat()
{
    if (!isConnectedToDiagnosis()) {
        const HubSocketSettings hub = HubSocketSettings::read();
        if (!connectToDiagnosis(hub.type, hub.socketDir)) {
            LOG_WARNING << "Failed to connect to diagnosis, retrying with heartbeat";
            return false;
        }
    }
    m_diagnosis->call(SocketInterface::NoBlock, QStringLiteral("ping"), SocketArgument(getModuleName()),
                      SocketArgument(quint8(m_health)));
    if (m_diagnosis->hasError()) {
        LOG_WARNING << "heartbeat to diagnosis failed" << m_diagnosis->errorText();
        return false;
    }
    return true;
}
