#pragma once

#include "json/minijson.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace hue {

// What a CLIP v2 resource mirror throws when a resource cannot be read; each mirror derives its
// own type so that callers catch per kind of resource.
class API2ResourceException
{
public:
    explicit API2ResourceException(QString message) : m_message(std::move(message)) {}
    const QString& message() const { return m_message; }

private:
    QString m_message;
};

// The "rid" of every entry of a resource's "services" whose "rtype" is "light". Devices, rooms
// and zones list their lights this way; a malformed list throws the caller's exception type.
template <typename ExceptionType> QList<QByteArray> api2LightServices(const minijson::CObject& resource)
{
    const minijson::CArray* services = resource.GetArray("services");
    if (!services)
        throw ExceptionType(QStringLiteral("missing required attributes"));
    QList<QByteArray> ids;
    for (int i = 0; i < services->Count(); ++i) {
        const minijson::CEntity& entry = services->EntityAtIndex(i);
        if (!entry.IsObject())
            throw ExceptionType(QStringLiteral("service entry %1 is invalid").arg(i));
        const minijson::CObject& service = entry.Object();
        const minijson::CEntity* rtype = service.Find("rtype");
        const minijson::CEntity* rid = service.Find("rid");
        if (!rtype || !rid || !rtype->IsString() || !rid->IsString())
            throw ExceptionType(QStringLiteral("service entry %1 is missing fields").arg(i));
        if (rtype->StringValue() == "light")
            ids.append(QByteArray::fromStdString(rid->StringValue()));
    }
    return ids;
}

// The number at the end of an "id_v1" ("/lights/7" or "/groups/3" -> 7 or 3; "12" -> 12).
inline bool api2ParseV1Number(const QByteArray& idV1, int* number)
{
    const QByteArray tail = idV1.startsWith('/') ? idV1.mid(idV1.lastIndexOf('/') + 1) : idV1;
    bool ok = false;
    *number = tail.toInt(&ok, 10);
    return ok;
}

} // namespace hue
