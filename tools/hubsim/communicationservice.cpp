#include "communicationservice.h"

#include "datapointids.h"
#include "hubeventlog.h"

#include <common/logginginterface.h>
#include <common/messaging/socketmessage.h>

namespace {

QString text(const InternalId& id)
{
    return QString::fromLatin1(id.toString());
}

QDateTime now()
{
    return QDateTime::currentDateTime();
}

} // namespace

CommunicationService::CommunicationService(HubEventLog* events, QObject* parent)
    : HubService(QLatin1String(hubservices::kCommunication), events, parent)
{
}

void CommunicationService::registerDevice(InternalId id, QByteArray description)
{
    if (!id.isValid() || id.getKind() != InternalId::Device) {
        LOG_WARNING << "registerDevice with an identifier that is no device serial:" << id.toLoggingString();
        postCall(QStringLiteral("registerDevice"), {{"id", QString::fromLatin1(id.toLoggingString())},
                                                    {"problem", QStringLiteral("not a device serial")}});
        return;
    }
    const RegisteredDevice& device = m_registry.registerDevice(id, description, callerName(), now());
    const bool usable = device.description.isValid();
    if (!usable)
        LOG_WARNING << "device" << id
                    << "registered with an unusable description:" << device.description.error();
    for (const QString& warning : device.description.warnings())
        LOG_WARNING << "device" << id << "description:" << warning;
    postCall(QStringLiteral("registerDevice"), {{"id", text(id)},
                                                {"dataPoints", device.description.dataPoints().size()},
                                                {"descriptionValid", usable},
                                                {"registrations", device.registrations}});
    emitSignal(QStringLiteral("deviceReady"), id, usable);
}

void CommunicationService::noteOutcome(DeviceRegistry::Outcome outcome, const InternalId& id,
                                       const char* call) const
{
    if (outcome == DeviceRegistry::Outcome::UnknownDevice)
        LOG_WARNING << call << "for a device that is not registered:" << id.toLoggingString();
    else if (outcome == DeviceRegistry::Outcome::UnknownDataPoint)
        LOG_WARNING << call
                    << "for a datapoint the device's description does not list:" << id.toLoggingString();
}

void CommunicationService::sendDataPoint(InternalId id, QString value)
{
    const DeviceRegistry::Outcome outcome = m_registry.recordValue(id, value, now());
    noteOutcome(outcome, id, "sendDataPoint");
    if (id.getKind() != InternalId::OutputDataPoint)
        LOG_WARNING << "sendDataPoint for an identifier that is no output datapoint:" << id.toLoggingString();
    postCall(QStringLiteral("sendDataPoint"),
             {{"id", text(id)}, {"value", value}, {"known", outcome == DeviceRegistry::Outcome::Recorded}});
}

void CommunicationService::confirmDataPointValueChanged(int token, int result)
{
    const WriteTracker::Write* write = m_writes.confirm(token, result, now());
    if (!write)
        LOG_WARNING << "confirmDataPointValueChanged for an unknown token" << token;
    postCall(QStringLiteral("confirmDataPointValueChanged"),
             {{"token", token}, {"result", result}, {"id", write ? text(write->dataPoint) : QString()}});
    emit writeConfirmed(token, result);
}

void CommunicationService::sendLifeSign(InternalId id)
{
    noteOutcome(m_registry.recordLifeSign(id, now()), id, "sendLifeSign");
    postCall(QStringLiteral("sendLifeSign"), {{"id", text(id)}});
}

void CommunicationService::sendDeviceUnresponsive(InternalId id)
{
    noteOutcome(m_registry.recordUnresponsive(id), id, "sendDeviceUnresponsive");
    postCall(QStringLiteral("sendDeviceUnresponsive"), {{"id", text(id)}});
}

void CommunicationService::sendAttribute(InternalId id, QString name, QString value)
{
    noteOutcome(m_registry.recordAttribute(id, name, value), id, "sendAttribute");
    postCall(QStringLiteral("sendAttribute"), {{"id", text(id)}, {"name", name}, {"value", value}});
}

const RegisteredDevice* CommunicationService::findDevice(const QString& text, QString* error) const
{
    const InternalId id(text.trimmed().toLatin1());
    if (!id.isValid()) {
        *error =
            QStringLiteral("\"%1\" is no device identifier (12 hex digits, e.g. BEED00010001)").arg(text);
        return nullptr;
    }
    const RegisteredDevice* device = m_registry.device(id);
    if (!device)
        *error = QStringLiteral("device %1 is not registered").arg(QString::fromLatin1(id.getDeviceName()));
    return device;
}

const DataPointInfo* CommunicationService::resolve(const QString& deviceText, DataPointInfo::Direction direction,
                                                  const QString& name, Action* action) const
{
    const RegisteredDevice* device = findDevice(deviceText, &action->error);
    if (!device)
        return nullptr;
    const DataPointInfo* point = device->description.resolve({direction}, name, &action->error);
    if (point)
        action->id = datapointids::idFor(device->id, direction, point->index);
    return point;
}

CommunicationService::Action CommunicationService::writeDataPoint(const QString& deviceText,
                                                                  const QString& dataPoint,
                                                                  const QString& value)
{
    Action action;
    const DataPointInfo* point = resolve(deviceText, DataPointInfo::Input, dataPoint, &action);
    if (!point)
        return action;
    action.token = m_writes.start(action.id, value, now());
    m_registry.recordValue(action.id, value, now());
    action.subscribers = subscriberCount("dataPointValueChanged(InternalId,QString,int)");
    action.ok = emitSignal(QStringLiteral("dataPointValueChanged"), action.id, value, action.token);
    if (!action.ok)
        action.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("dataPointValueChanged"), {{"id", text(action.id)},
                                                             {"name", point->name},
                                                             {"value", value},
                                                             {"token", action.token},
                                                             {"subscribers", action.subscribers}});
    return action;
}

CommunicationService::Action CommunicationService::writeParameter(const QString& deviceText,
                                                                  const QString& parameter,
                                                                  const QString& value)
{
    Action action;
    const DataPointInfo* point = resolve(deviceText, DataPointInfo::Parameter, parameter, &action);
    if (!point)
        return action;
    m_registry.recordValue(action.id, value, now());
    action.subscribers = subscriberCount("parameterValueChanged(InternalId,QString)");
    action.ok = emitSignal(QStringLiteral("parameterValueChanged"), action.id, value);
    if (!action.ok)
        action.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("parameterValueChanged"), {{"id", text(action.id)},
                                                             {"name", point->name},
                                                             {"value", value},
                                                             {"subscribers", action.subscribers}});
    return action;
}

CommunicationService::Action CommunicationService::setAttribute(const QString& deviceText,
                                                                const QString& name, const QString& value)
{
    Action action;
    const RegisteredDevice* device = findDevice(deviceText, &action.error);
    if (!device)
        return action;
    action.id = device->id;
    m_registry.recordAttribute(action.id, name, value);
    action.subscribers = subscriberCount("attributeValueChanged(InternalId,QString,QString)");
    action.ok = emitSignal(QStringLiteral("attributeValueChanged"), action.id, name, value);
    if (!action.ok)
        action.error = QStringLiteral("the signal could not be sent");
    events()->post(
        QStringLiteral("attributeValueChanged"),
        {{"id", text(action.id)}, {"name", name}, {"value", value}, {"subscribers", action.subscribers}});
    return action;
}

CommunicationService::Action CommunicationService::masterReset(const QString& deviceText)
{
    Action action;
    const RegisteredDevice* device = findDevice(deviceText, &action.error);
    if (!device)
        return action;
    action.id = device->id;
    action.subscribers = subscriberCount("masterReset(InternalId)");
    action.ok = emitSignal(QStringLiteral("masterReset"), action.id);
    if (!action.ok)
        action.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("masterReset"),
                   {{"id", text(action.id)}, {"subscribers", action.subscribers}});
    return action;
}

CommunicationService::Action CommunicationService::scanForLifeSigns()
{
    Action action;
    action.subscribers = subscriberCount("scanningForLifeSigns()");
    action.ok = emitSignal(QStringLiteral("scanningForLifeSigns"));
    if (!action.ok)
        action.error = QStringLiteral("the signal could not be sent");
    events()->post(QStringLiteral("scanningForLifeSigns"), {{"subscribers", action.subscribers}});
    return action;
}
