#include "devicevariant.h"

#include "datapointids.h"

#include <QSet>
#include <QVariantList>

#include <algorithm>

namespace devicevariant {

QString timeText(const QDateTime& time)
{
    return time.isValid() ? time.toLocalTime().toString(Qt::ISODateWithMs) : QString();
}

namespace {

QVariantMap dataPointMap(const InternalId& id, const QString& direction, int index, const QString& functionId,
                         const QString& name, bool described, const DataPointValue* value)
{
    return QVariantMap{
        {QStringLiteral("id"), QString::fromLatin1(id.toString())},
        {QStringLiteral("direction"), direction},
        {QStringLiteral("index"), index},
        {QStringLiteral("functionId"), functionId},
        {QStringLiteral("name"), name},
        {QStringLiteral("described"), described},
        {QStringLiteral("hasValue"), value != nullptr},
        {QStringLiteral("value"), value ? value->value : QString()},
        {QStringLiteral("changed"), value ? timeText(value->changed) : QString()},
    };
}

} // namespace

QVariantMap fromDevice(const RegisteredDevice& device)
{
    QVariantList points;
    QSet<InternalId> described;
    for (const DataPointInfo& point : device.description.dataPoints()) {
        const InternalId id = datapointids::idFor(device.id, point.direction, point.index);
        described.insert(id);
        auto value = device.values.constFind(id);
        points.append(dataPointMap(id, DataPointInfo::directionName(point.direction), point.index,
                                   point.functionIdText, point.name, true,
                                   value == device.values.constEnd() ? nullptr : &*value));
    }
    // Values for identifiers the description does not list: shown, so that a wrong index in the
    // service stands out.
    QList<InternalId> others;
    for (auto it = device.values.cbegin(); it != device.values.cend(); ++it) {
        if (!described.contains(it.key()))
            others.append(it.key());
    }
    std::sort(others.begin(), others.end());
    for (const InternalId& id : others) {
        const auto address = datapointids::addressOf(id);
        const QString direction = address ? DataPointInfo::directionName(address->direction) : QString();
        points.append(dataPointMap(id, direction, address ? address->index : -1, QString(), QString(), false,
                                   &*device.values.constFind(id)));
    }

    QVariantMap attributes;
    for (auto it = device.attributes.cbegin(); it != device.attributes.cend(); ++it)
        attributes.insert(it.key(), it.value());

    return QVariantMap{
        {QStringLiteral("id"), QString::fromLatin1(device.id.toString())},
        {QStringLiteral("client"), device.client},
        {QStringLiteral("registered"), timeText(device.registered)},
        {QStringLiteral("registrations"), device.registrations},
        {QStringLiteral("descriptionValid"), device.description.isValid()},
        {QStringLiteral("descriptionError"), device.description.error()},
        {QStringLiteral("warnings"), device.description.warnings()},
        {QStringLiteral("lastLifeSign"), timeText(device.lastLifeSign)},
        {QStringLiteral("unresponsive"), device.unresponsive},
        {QStringLiteral("attributes"), attributes},
        {QStringLiteral("dataPoints"), points},
    };
}

QVariantMap fromWrite(const WriteTracker::Write& write)
{
    return QVariantMap{
        {QStringLiteral("token"), write.token},
        {QStringLiteral("id"), QString::fromLatin1(write.dataPoint.toString())},
        {QStringLiteral("value"), write.value},
        {QStringLiteral("sent"), timeText(write.sent)},
        {QStringLiteral("confirmed"), write.result.has_value()},
        {QStringLiteral("result"), write.result.value_or(-1)},
    };
}

} // namespace devicevariant
