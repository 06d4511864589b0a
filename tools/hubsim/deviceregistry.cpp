#include "deviceregistry.h"

#include "datapointids.h"

const RegisteredDevice& DeviceRegistry::registerDevice(const InternalId& id, const QByteArray& descriptionXml,
                                                       const QString& client, const QDateTime& now)
{
    RegisteredDevice& device = m_devices[id.toDeviceId()];
    device.id = id.toDeviceId();
    device.descriptionXml = descriptionXml;
    device.description = DeviceDescription::parse(descriptionXml);
    device.client = client;
    device.registered = now;
    ++device.registrations;
    return device;
}

const RegisteredDevice* DeviceRegistry::device(const InternalId& id) const
{
    auto it = m_devices.constFind(id.toDeviceId());
    return it == m_devices.constEnd() ? nullptr : &*it;
}

RegisteredDevice* DeviceRegistry::find(const InternalId& id)
{
    auto it = m_devices.find(id.toDeviceId());
    return it == m_devices.end() ? nullptr : &*it;
}

QList<const RegisteredDevice*> DeviceRegistry::devices() const
{
    QList<const RegisteredDevice*> all;
    for (const RegisteredDevice& device : m_devices)
        all.append(&device);
    return all;
}

DeviceRegistry::Outcome DeviceRegistry::recordValue(const InternalId& dataPoint, const QString& value,
                                                    const QDateTime& now)
{
    RegisteredDevice* device = find(dataPoint);
    if (!device)
        return Outcome::UnknownDevice;
    device->values.insert(dataPoint, DataPointValue{value, now});
    const auto address = datapointids::addressOf(dataPoint);
    if (!address || !device->description.find(address->direction, address->index))
        return Outcome::UnknownDataPoint;
    return Outcome::Recorded;
}

DeviceRegistry::Outcome DeviceRegistry::recordLifeSign(const InternalId& id, const QDateTime& now)
{
    RegisteredDevice* device = find(id);
    if (!device)
        return Outcome::UnknownDevice;
    device->lastLifeSign = now;
    device->unresponsive = false; // a device that signs life answers again
    return Outcome::Recorded;
}

DeviceRegistry::Outcome DeviceRegistry::recordUnresponsive(const InternalId& id)
{
    RegisteredDevice* device = find(id);
    if (!device)
        return Outcome::UnknownDevice;
    device->unresponsive = true;
    return Outcome::Recorded;
}

DeviceRegistry::Outcome DeviceRegistry::recordAttribute(const InternalId& id, const QString& name,
                                                        const QString& value)
{
    RegisteredDevice* device = find(id);
    if (!device)
        return Outcome::UnknownDevice;
    device->attributes.insert(name, value);
    return Outcome::Recorded;
}
