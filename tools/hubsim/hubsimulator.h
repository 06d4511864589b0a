#pragma once

#include <QList>
#include <QObject>
#include <QString>

#include <memory>

class BackendService;
class CommunicationService;
class ConfigStore;
class ControlService;
class DatabaseService;
class DiagnosisService;
class HubEventLog;
class HubService;
class Supervisor;
class SystemService;

// The serial number a hub reports in "generic/serialNumber" unless told otherwise.
constexpr char kDefaultHubSerialNumber[] = "0001a2b3c4d5";

struct HubSimOptions
{
    QString socketDir;
    bool tcp = false;       // TCP on 127.0.0.1 with port files instead of local sockets
    bool supervise = false; // drive com.orlux.tamsa.huecontroller through its run stages
    QString databaseFile;   // empty: socketDir + "/hubsim-config.sqlite"
    int supervisorRetryMs = 1000;
    // The hub's serial number for this run ("generic/serialNumber", not written to the
    // database). Empty: the database's value, or kDefaultHubSerialNumber written to it.
    QString serialNumber;
};

// The whole simulated hub in one object: the hub's services on one socket directory, the
// configuration store behind the database service, hubsim's control service and the
// supervisor.
class HubSimulator : public QObject
{
    Q_OBJECT

public:
    explicit HubSimulator(const HubSimOptions& options, QObject* parent = nullptr);
    ~HubSimulator() override;

    // Opens the store and starts every service's server. On failure `error` says what.
    bool start(QString* error = nullptr);
    // Supervising, sends run stage 2 to a connected service and emits finished() once it has
    // answered (or after the supervisor's limit); otherwise emits finished() at once.
    void shutdown();

    QString databaseFile() const;
    HubEventLog* events() const { return m_events; }
    CommunicationService* communication() const { return m_communication; }
    DatabaseService* database() const { return m_database; }
    SystemService* system() const { return m_system; }
    DiagnosisService* diagnosis() const { return m_diagnosis; }
    BackendService* backend() const { return m_backend; }
    ControlService* control() const { return m_control; }
    Supervisor* supervisor() const { return m_supervisor; }

signals:
    void finished();

private:
    HubSimOptions m_options;
    std::unique_ptr<ConfigStore> m_store;
    HubEventLog* m_events;
    CommunicationService* m_communication = nullptr;
    DatabaseService* m_database = nullptr;
    SystemService* m_system = nullptr;
    DiagnosisService* m_diagnosis = nullptr;
    BackendService* m_backend = nullptr;
    ControlService* m_control = nullptr;
    Supervisor* m_supervisor = nullptr;
    QList<HubService*> m_services;
};
