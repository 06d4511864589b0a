#pragma once

#include "devicedescription.h"

#include <kovacommon/internalid.h>

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QMap>
#include <QString>

// The last value the hub knows of one datapoint or parameter.
struct DataPointValue
{
    QString value;
    QDateTime changed;
};

// Everything the simulated hub keeps about one registered device.
struct RegisteredDevice
{
    InternalId id; // the device serial
    QByteArray descriptionXml;
    DeviceDescription description;
    QString client; // the client that registered it last
    QDateTime registered;
    int registrations = 0;
    QHash<InternalId, DataPointValue> values; // by datapoint/parameter identifier
    QDateTime lastLifeSign;                   // invalid until the first one
    bool unresponsive = false;
    QMap<QString, QString> attributes;
};

// The devices registered with the simulated hub, by device serial. Registering a device again
// (as a restarted service does) replaces its description and keeps what the hub learnt of it.
class DeviceRegistry
{
public:
    enum class Outcome
    {
        Recorded,
        UnknownDevice,
        UnknownDataPoint, // the device is known, its description has no such datapoint
    };

    const RegisteredDevice& registerDevice(const InternalId& id, const QByteArray& descriptionXml,
                                           const QString& client, const QDateTime& now);

    // The device that `id` belongs to (any identifier of the device, or the serial itself).
    const RegisteredDevice* device(const InternalId& id) const;
    // Registered devices in identifier order.
    QList<const RegisteredDevice*> devices() const;

    // Records the last value of a datapoint or parameter. An identifier the description does
    // not list is recorded all the same (the hub shows what it got) and reported.
    Outcome recordValue(const InternalId& dataPoint, const QString& value, const QDateTime& now);
    Outcome recordLifeSign(const InternalId& id, const QDateTime& now);
    Outcome recordUnresponsive(const InternalId& id);
    Outcome recordAttribute(const InternalId& id, const QString& name, const QString& value);

private:
    RegisteredDevice* find(const InternalId& id);

    QMap<InternalId, RegisteredDevice> m_devices;
};
