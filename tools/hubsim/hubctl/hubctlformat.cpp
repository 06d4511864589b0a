#include "hubctlformat.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace hubctlformat {

namespace {

QString text(const QVariant& value)
{
    return value.toString();
}

// "2024-05-01T12:00:01.234+02:00" → "12:00:01.234": the clock time is what one follows by eye.
QString clock(const QVariant& isoTime)
{
    const QString time = text(isoTime);
    const int t = time.indexOf(QLatin1Char('T'));
    return t < 0 ? time : time.mid(t + 1, 12);
}

QString pairs(const QVariantMap& map, const QStringList& skip = {})
{
    QStringList parts;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        if (skip.contains(it.key()))
            continue;
        const QVariant& value = it.value();
        QString shown;
        if (value.type() == QVariant::Map)
            shown = QLatin1Char('{') + pairs(value.toMap()) + QLatin1Char('}');
        else if (value.type() == QVariant::List || value.type() == QVariant::StringList)
            shown = QLatin1Char('[') + value.toStringList().join(QLatin1Char(',')) + QLatin1Char(']');
        else
            shown = text(value);
        parts << it.key() + QLatin1Char('=') + shown;
    }
    return parts.join(QLatin1Char(' '));
}

} // namespace

QJsonValue toJson(const QVariant& value)
{
    switch (static_cast<int>(value.type())) {
    case QMetaType::QVariantMap: {
        QJsonObject object;
        const QVariantMap map = value.toMap();
        for (auto it = map.cbegin(); it != map.cend(); ++it)
            object.insert(it.key(), toJson(it.value()));
        return object;
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        QJsonArray array;
        for (const QVariant& element : value.toList())
            array.append(toJson(element));
        return array;
    }
    case QMetaType::Bool:
        return value.toBool();
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
        return value.toLongLong();
    case QMetaType::Double:
        return value.toDouble();
    case QMetaType::UnknownType:
        return QJsonValue::Null;
    default:
        return text(value); // strings, and byte arrays as UTF-8
    }
}

QByteArray jsonLine(const QVariant& value)
{
    const QJsonValue json = toJson(value);
    QByteArray line;
    if (json.isObject())
        line = QJsonDocument(json.toObject()).toJson(QJsonDocument::Compact);
    else if (json.isArray())
        line = QJsonDocument(json.toArray()).toJson(QJsonDocument::Compact);
    else // a bare value: wrap it so that the line stays one JSON document
        line = QJsonDocument(QJsonArray{json}).toJson(QJsonDocument::Compact).mid(1).chopped(1);
    return line + '\n';
}

QString devices(const QVariantList& devices)
{
    if (devices.isEmpty())
        return QStringLiteral("no devices registered\n");
    QString out;
    for (const QVariant& entry : devices) {
        const QVariantMap device = entry.toMap();
        out += QStringLiteral("%1  registered %2 by %3 (%4 time(s))\n")
                   .arg(text(device.value("id")), clock(device.value("registered")),
                        text(device.value("client")))
                   .arg(device.value("registrations").toInt());
        const QString lifeSign = text(device.value("lastLifeSign"));
        out += QStringLiteral("  life sign: %1%2\n")
                   .arg(lifeSign.isEmpty() ? QStringLiteral("never") : clock(lifeSign),
                        device.value("unresponsive").toBool() ? QStringLiteral(", UNRESPONSIVE") : QString());
        if (!device.value("descriptionValid").toBool())
            out += QStringLiteral("  description INVALID: %1\n").arg(text(device.value("descriptionError")));
        for (const QVariant& warning : device.value("warnings").toList())
            out += QStringLiteral("  description: %1\n").arg(text(warning));
        const QVariantMap attributes = device.value("attributes").toMap();
        if (!attributes.isEmpty())
            out += QStringLiteral("  attributes: %1\n").arg(pairs(attributes));
        const QVariantList points = device.value("dataPoints").toList();
        if (points.isEmpty())
            continue;
        out += QStringLiteral("  %1 %2 %3 %4 %5\n")
                   .arg(QStringLiteral("direction"), -9)
                   .arg(QStringLiteral("index"), 5)
                   .arg(QStringLiteral("name"), -24)
                   .arg(QStringLiteral("value"), -16)
                   .arg(QStringLiteral("changed"));
        for (const QVariant& p : points) {
            const QVariantMap point = p.toMap();
            QString name = text(point.value("name"));
            if (!point.value("described").toBool())
                name = QStringLiteral("(not described) ") + text(point.value("id"));
            const bool hasValue = point.value("hasValue").toBool();
            out += QStringLiteral("  %1 %2 %3 %4 %5\n")
                       .arg(text(point.value("direction")), -9)
                       .arg(point.value("index").toInt(), 5)
                       .arg(name, -24)
                       .arg(hasValue ? text(point.value("value")) : QStringLiteral("-"), -16)
                       .arg(hasValue ? clock(point.value("changed")) : QString());
        }
    }
    return out;
}

QString configValues(const QVariantList& entries)
{
    if (entries.isEmpty())
        return QStringLiteral("no configuration values\n");
    QString out;
    for (const QVariant& e : entries) {
        const QVariantMap entry = e.toMap();
        out += QStringLiteral("%1 = %2%3\n")
                   .arg(text(entry.value("key")), text(entry.value("value")),
                        entry.value("persistent").toBool() ? QString() : QStringLiteral("   (volatile)"));
    }
    return out;
}

QString event(const QVariantMap& event)
{
    return QStringLiteral("%1 %2 %3\n")
        .arg(clock(event.value("time")), text(event.value("kind")), pairs(event, {"time", "kind"}));
}

QString pings(const QVariantList& pings)
{
    if (pings.isEmpty())
        return QStringLiteral("no pings received\n");
    QString out;
    for (const QVariant& p : pings) {
        const QVariantMap ping = p.toMap();
        out += QStringLiteral("%1 %2 health %3 (client %4)\n")
                   .arg(clock(ping.value("time")), text(ping.value("module")))
                   .arg(ping.value("health").toInt())
                   .arg(text(ping.value("client")));
    }
    return out;
}

QString supportInfo(const QVariantList& submissions, bool full)
{
    if (submissions.isEmpty())
        return QStringLiteral("no support information submitted\n");
    QString out;
    for (const QVariant& s : submissions) {
        const QVariantMap submission = s.toMap();
        const QString info = text(submission.value("info"));
        out += QStringLiteral("%1 %2: %3 bytes\n")
                   .arg(clock(submission.value("time")), text(submission.value("module")))
                   .arg(submission.value("size").toInt());
        if (full)
            out += info + (info.endsWith(QLatin1Char('\n')) ? QString() : QStringLiteral("\n"));
        else
            out += QStringLiteral("  %1\n").arg(info.left(160).replace(QLatin1Char('\n'), QLatin1Char(' ')));
    }
    return out;
}

QString status(const QVariantMap& status)
{
    QString out = QStringLiteral("socket directory: %1 (%2)\nconfiguration database: %3\n")
                      .arg(text(status.value("socketDir")), text(status.value("socketType")),
                           text(status.value("database")));
    for (const QVariant& s : status.value("services").toList()) {
        const QVariantMap service = s.toMap();
        out += QStringLiteral("service %1\n").arg(text(service.value("name")));
        for (const QVariant& c : service.value("clients").toList()) {
            const QVariantMap client = c.toMap();
            const QString name = text(client.value("name"));
            out += QStringLiteral("  client %1: %2\n")
                       .arg(name.isEmpty() ? QStringLiteral("(unnamed)") : name,
                            client.value("subscriptions").toStringList().join(QStringLiteral(", ")));
        }
    }
    for (const QVariant& w : status.value("watches").toList())
        out += QStringLiteral("watch %1\n").arg(pairs(w.toMap()));
    for (const QVariant& m : status.value("mdnsServices").toList())
        out += QStringLiteral("mdns service %1\n").arg(pairs(m.toMap()));
    const QVariantMap supervisor = status.value("supervisor").toMap();
    out += QStringLiteral("supervisor: %1\n").arg(pairs(supervisor));
    return out;
}

QString answer(const QVariantMap& answer)
{
    const QString rest = pairs(answer, {"ok", "error"});
    if (!answer.value("ok").toBool())
        return QStringLiteral("error: %1\n").arg(text(answer.value("error")));
    return rest.isEmpty() ? QStringLiteral("ok\n") : QStringLiteral("ok %1\n").arg(rest);
}

} // namespace hubctlformat
