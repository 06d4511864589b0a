#pragma once

#include "hue_api2services.h"
#include "hue_light.h"

#include "json/minijson.h"

#include <QByteArray>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QString>

namespace hue {

// The mirror of one CLIP v2 "device" resource: its name, product data and the light services
// it owns. The light objects themselves belong to the bridge; a device only points at them.
class API2Device : public QObject
{
    Q_OBJECT
public:
    // A resource that cannot be read ("services" missing or malformed).
    class Exception : public API2ResourceException
    {
        using API2ResourceException::API2ResourceException;
    };

    // Parses the resource; throws Exception when it lacks "services" or they are malformed.
    API2Device(const QByteArray& id, const minijson::CObject& resource);

    // Applies a later view of the resource (a poll entry or an update event); throws Exception.
    void update(const minijson::CObject& resource);
    void parseDeviceData(const minijson::CObject& resource);

    // Attaches the light object of one of the device's light services.
    void setLight(const QByteArray& lightId, CLight* light);
    void removeLight(const QByteArray& lightId);

    QByteArray id;
    QByteArray name;
    QByteArray archetype;
    // The resource carried "metadata": its name and archetype stand for those of light services
    // that carry none of their own.
    bool hasMetadata = false;
    QByteArray manufacturerName;
    QByteArray modelId;
    QByteArray productName;
    QByteArray softwareVersion;
    // Light service id -> light object (null until the light has been created).
    QMap<QByteArray, QPointer<CLight>> lights;
    bool reachable = false;

signals:
    void nameChanged();
    void lightAdded(QByteArray id);
    void lightRemoved(QByteArray id);
};

} // namespace hue
