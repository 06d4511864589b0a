#include "devicedescription.h"

#include <QDomDocument>
#include <QDomElement>
#include <QRegularExpression>

namespace {

const char* shortPrefix(DataPointInfo::Direction direction)
{
    switch (direction) {
    case DataPointInfo::Input:
        return "idp";
    case DataPointInfo::Output:
        return "odp";
    case DataPointInfo::Parameter:
        return "pm";
    }
    return "";
}

QString readableName(const QDomElement& element)
{
    for (const char* attribute : {"name", "label", "description"}) {
        const QString value = element.attribute(QLatin1String(attribute)).trimmed();
        if (!value.isEmpty())
            return value;
    }
    return QString();
}

} // namespace

QString DataPointInfo::shortName() const
{
    return QLatin1String(shortPrefix(direction)) + QString::number(index);
}

QString DataPointInfo::directionName(Direction direction)
{
    switch (direction) {
    case Input:
        return QStringLiteral("input");
    case Output:
        return QStringLiteral("output");
    case Parameter:
        return QStringLiteral("parameter");
    }
    return QString();
}

DeviceDescription DeviceDescription::parse(const QByteArray& xml)
{
    DeviceDescription result;
    QDomDocument document;
    QString message;
    int line = 0;
    int column = 0;
    if (!document.setContent(xml, &message, &line, &column)) {
        result.m_error = QStringLiteral("not well-formed XML at line %1, column %2: %3")
                             .arg(line)
                             .arg(column)
                             .arg(message);
        return result;
    }
    const QDomElement channels = document.documentElement().firstChildElement(QStringLiteral("channels"));
    const QDomElement channel = channels.firstChildElement(QStringLiteral("channel"));
    if (channel.isNull()) {
        result.m_error = QStringLiteral("no \"channels\" element with a \"channel\"");
        return result;
    }
    if (!channel.nextSiblingElement(QStringLiteral("channel")).isNull())
        result.m_warnings << QStringLiteral("only the first channel is read; further channels are ignored");

    struct List
    {
        const char* container;
        const char* element;
        const char* idAttribute;
        DataPointInfo::Direction direction;
    };
    const List lists[] = {
        {"inputs", "dataPoint", "pairingId", DataPointInfo::Input},
        {"outputs", "dataPoint", "pairingId", DataPointInfo::Output},
        {"parameters", "parameter", "parameterId", DataPointInfo::Parameter},
    };
    for (const List& list : lists) {
        const QDomElement container = channel.firstChildElement(QLatin1String(list.container));
        int index = 0;
        for (QDomElement e = container.firstChildElement(QLatin1String(list.element)); !e.isNull();
             e = e.nextSiblingElement(QLatin1String(list.element)), ++index) {
            DataPointInfo point;
            point.direction = list.direction;
            point.index = index;
            point.functionIdText = e.attribute(QLatin1String(list.idAttribute));
            bool ok = false;
            const int id = point.functionIdText.toInt(&ok, 16);
            point.functionId = ok ? id : -1;
            if (!ok)
                result.m_warnings << QStringLiteral("%1 %2: unreadable %3 \"%4\"")
                                         .arg(DataPointInfo::directionName(list.direction))
                                         .arg(index)
                                         .arg(QLatin1String(list.idAttribute), point.functionIdText);
            if (index > 255) // an identifier's index is one byte
                result.m_warnings << QStringLiteral(
                                         "%1 %2: beyond the last index an identifier can carry (255)")
                                         .arg(DataPointInfo::directionName(list.direction))
                                         .arg(index);
            point.name = readableName(e);
            if (point.name.isEmpty())
                point.name = point.shortName();
            result.m_points.append(point);
        }
    }
    return result;
}

const DataPointInfo* DeviceDescription::find(DataPointInfo::Direction direction, int index) const
{
    for (const DataPointInfo& point : m_points) {
        if (point.direction == direction && point.index == index)
            return &point;
    }
    return nullptr;
}

const DataPointInfo* DeviceDescription::resolve(const QVector<DataPointInfo::Direction>& directions,
                                                const QString& key, QString* error) const
{
    const QString wanted = key.trimmed();
    bool isNumber = false;
    const int number = wanted.toInt(&isNumber, 10);
    static const QRegularExpression shortForm(QStringLiteral("^(idp|odp|pm)([0-9a-fA-F]+)$"),
                                              QRegularExpression::CaseInsensitiveOption);
    const QRegularExpressionMatch shortMatch = shortForm.match(wanted);
    int shortIndex = -1;
    if (shortMatch.hasMatch()) {
        // Four digits are the identifier's hexadecimal form ("idp000A"); anything shorter is the
        // decimal form that shortName() prints ("idp10").
        const QString digits = shortMatch.captured(2);
        bool ok = false;
        shortIndex = digits.toInt(&ok, digits.size() == 4 ? 16 : 10);
        if (!ok)
            shortIndex = -1;
    }

    const DataPointInfo* found = nullptr;
    int matches = 0;
    for (const DataPointInfo& point : m_points) {
        if (!directions.contains(point.direction))
            continue;
        bool hit = false;
        if (isNumber)
            hit = point.index == number;
        else if (shortIndex >= 0)
            hit = shortMatch.captured(1).toLower() == QLatin1String(shortPrefix(point.direction)) &&
                  shortIndex == point.index;
        if (!hit)
            hit = point.name.compare(wanted, Qt::CaseInsensitive) == 0;
        if (hit) {
            if (!found)
                found = &point;
            ++matches;
        }
    }
    if (matches > 1) {
        if (error)
            *error = QStringLiteral("\"%1\" names %2 datapoints; use the index").arg(wanted).arg(matches);
        return nullptr;
    }
    if (!found && error)
        *error = QStringLiteral("no datapoint \"%1\"").arg(wanted);
    return found;
}
