#include "socketadaptorwithping.h"

#include "socketinterface.h"

#include <common/logginginterface.h>

#include <QSettings>

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
    if (!isConnectedToDiagnosis()) {
        const QSettings settings(QStringLiteral("vorn"), QStringLiteral("database"));
        const QString socketDir =
            settings.value(QStringLiteral("socketDir"), QStringLiteral("/tmp")).toString();
        const QString socketType =
            settings.value(QStringLiteral("socketType"), QStringLiteral("local")).toString();
        const auto type =
            socketType == QLatin1String("tcp") ? SocketConnection::TcpSocket : SocketConnection::LocalSocket;
        if (!connectToDiagnosis(type, socketDir)) {
            LOG_WARNING << "Failed to connect to diagnosis, retrying with heartbeat";
            return;
        }
    }
    sendHeartbeat();
}

bool SocketAdaptorWithPing::sendHeartbeat()
{
    if (!isConnectedToDiagnosis()) {
        LOG_DETAIL << "no heartbeat: diagnosis not connected";
        return false;
    }
    m_diagnosis->call(SocketInterface::NoBlock, QStringLiteral("ping"), SocketArgument(getModuleName()),
                      SocketArgument(quint8(m_health)));
    if (m_diagnosis->hasError()) {
        LOG_WARNING << "heartbeat to diagnosis failed" << m_diagnosis->errorText();
        return false;
    }
    return true;
}
