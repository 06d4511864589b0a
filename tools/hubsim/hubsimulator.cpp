#include "hubsimulator.h"

#include "backendservice.h"
#include "communicationservice.h"
#include "configstore.h"
#include "controlservice.h"
#include "databaseservice.h"
#include "diagnosisservice.h"
#include "hubeventlog.h"
#include "supervisor.h"
#include "systemservice.h"

#include <common/logginginterface.h>

HubSimulator::HubSimulator(const HubSimOptions& options, QObject* parent)
    : QObject(parent), m_options(options), m_events(new HubEventLog(this))
{
    // Qt SQL names its connections process-wide; two simulators in one test must not share one.
    const QString connection = QStringLiteral("hubsim-config-%1").arg(quintptr(this), 0, 16);
    m_store = std::make_unique<ConfigStore>(databaseFile(), connection);
}

HubSimulator::~HubSimulator()
{
    // The services go first: none of them may outlive the store it works on.
    qDeleteAll(m_services);
    m_services.clear();
}

QString HubSimulator::databaseFile() const
{
    return m_options.databaseFile.isEmpty() ? m_options.socketDir + QStringLiteral("/hubsim-config.sqlite")
                                            : m_options.databaseFile;
}

bool HubSimulator::start(QString* error)
{
    QString storeError;
    if (!m_store->open(&storeError)) {
        if (error)
            *error = QStringLiteral("cannot open the configuration database %1: %2")
                         .arg(databaseFile(), storeError);
        return false;
    }
    // A real hub knows its serial number from the start; services read it from the store.
    const QString serialKey = QStringLiteral("generic/serialNumber");
    if (!m_options.serialNumber.isEmpty())
        m_store->setValue(serialKey, m_options.serialNumber, false);
    else if (!m_store->entry(serialKey))
        m_store->setValue(serialKey, QLatin1String(kDefaultHubSerialNumber), true);

    const auto type = m_options.tcp ? SocketConnection::TcpSocket : SocketConnection::LocalSocket;
    m_supervisor = new Supervisor(type, m_options.socketDir, m_events, this);
    m_supervisor->setRetryInterval(m_options.supervisorRetryMs);
    connect(m_supervisor, &Supervisor::stopped, this, &HubSimulator::finished);

    m_communication = new CommunicationService(m_events);
    m_database = new DatabaseService(m_store.get(), m_events);
    m_system = new SystemService(m_events);
    m_diagnosis = new DiagnosisService(m_events);
    m_backend = new BackendService(m_events);
    m_services = {m_communication, m_database, m_system, m_diagnosis, m_backend};

    HubParts parts;
    parts.communication = m_communication;
    parts.database = m_database;
    parts.system = m_system;
    parts.diagnosis = m_diagnosis;
    parts.backend = m_backend;
    parts.supervisor = m_supervisor;
    parts.services = m_services;
    parts.socketDir = m_options.socketDir;
    parts.tcp = m_options.tcp;
    m_control = new ControlService(parts, m_events);
    // The control service goes first on destruction: it answers waiting callers from the others.
    m_services.prepend(m_control);

    for (HubService* service : m_services) {
        const bool listening = m_options.tcp ? service->startTcpServer(m_options.socketDir, 0)
                                             : service->startLocalServer(m_options.socketDir);
        if (!listening) {
            if (error)
                *error =
                    QStringLiteral("cannot serve %1 in %2").arg(service->serviceName(), m_options.socketDir);
            return false;
        }
    }
    LOG_INFO << "hubsim serves" << m_services.size() << "services in" << m_options.socketDir
             << (m_options.tcp ? "over TCP" : "on local sockets") << "with configuration database"
             << databaseFile();
    if (m_options.supervise)
        m_supervisor->startSupervising();
    return true;
}

void HubSimulator::shutdown()
{
    // Only a supervised service is stopped with the hub; stages sent by hand stay the user's.
    if (!m_supervisor || !m_options.supervise) {
        QMetaObject::invokeMethod(this, &HubSimulator::finished, Qt::QueuedConnection);
        return;
    }
    m_supervisor->stop();
}
