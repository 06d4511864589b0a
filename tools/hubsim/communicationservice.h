#pragma once

#include "deviceregistry.h"
#include "hubservice.h"
#include "writetracker.h"

#include <kovacommon/internalid.h>

// The hub's communication service "com.orlux.tamsa.communication": devices register here and
// report their output values, life signs and attributes; the hub writes their inputs and
// parameters through its signals.
//
// A registration is answered with deviceReady(id, true) right away, as the hub does once a
// device is set up; a description that is not usable XML gets deviceReady(id, false).
class CommunicationService : public HubService
{
    Q_OBJECT

public:
    explicit CommunicationService(HubEventLog* events, QObject* parent = nullptr);

    // Called by devices.
    Q_INVOKABLE void registerDevice(InternalId id, QByteArray description);
    Q_INVOKABLE void sendDataPoint(InternalId id, QString value);
    Q_INVOKABLE void confirmDataPointValueChanged(int token, int result);
    Q_INVOKABLE void sendLifeSign(InternalId id);
    Q_INVOKABLE void sendDeviceUnresponsive(InternalId id);
    Q_INVOKABLE void sendAttribute(InternalId id, QString name, QString value);

    // What the hub does on its own (hubctl asks for it). A device is named by its serial's text
    // ("BEED00010001"); datapoints and parameters as DeviceDescription::resolve() accepts.
    struct Action
    {
        bool ok = false;
        QString error;
        InternalId id;       // the identifier the signal carried
        int token = 0;       // datapoint writes
        int subscribers = 0; // clients that received the signal
    };
    Action writeDataPoint(const QString& device, const QString& dataPoint, const QString& value);
    Action writeParameter(const QString& device, const QString& parameter, const QString& value);
    Action setAttribute(const QString& device, const QString& name, const QString& value);
    Action masterReset(const QString& device);
    Action scanForLifeSigns();

    const DeviceRegistry& registry() const { return m_registry; }
    const WriteTracker& writes() const { return m_writes; }

signals:
    // A device answered a datapoint write (result 0 accepted, 2 refused).
    void writeConfirmed(int token, int result);

private:
    const RegisteredDevice* findDevice(const QString& text, QString* error) const;
    // The device's datapoint or parameter of that direction and name; sets action->id, or
    // action->error when there is none.
    const DataPointInfo* resolve(const QString& deviceText, DataPointInfo::Direction direction,
                                 const QString& name, Action* action) const;
    // Warns about reports for devices that never registered: the service got its ids wrong.
    void noteOutcome(DeviceRegistry::Outcome outcome, const InternalId& id, const char* call) const;

    DeviceRegistry m_registry;
    WriteTracker m_writes;
};
