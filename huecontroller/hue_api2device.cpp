#include "hue_api2device.h"

#include "hue_api2services.h"
#include "hue_light.h"

#include "common/logginginterface.h"

#include <QSet>

namespace hue {

namespace {

QByteArray text(const minijson::CObject* object, const char* name)
{
    return object ? QByteArray::fromStdString(object->GetString(name)) : QByteArray();
}

} // namespace

API2Device::API2Device(const QByteArray& deviceId, const minijson::CObject& resource) : id(deviceId)
{
    if (!resource.Contains("services"))
        throw Exception(QStringLiteral("missing required attributes"));
    parseDeviceData(resource);
}

void API2Device::update(const minijson::CObject& resource)
{
    // A view of the device without its services cannot say which lights it still has.
    if (!resource.Contains("services"))
        throw Exception(QStringLiteral("missing required attributes"));
    parseDeviceData(resource);
}

void API2Device::parseDeviceData(const minijson::CObject& resource)
{
    if (const minijson::CObject* metadata = resource.GetObject("metadata")) {
        hasMetadata = true;
        if (metadata->Contains("archetype"))
            archetype = text(metadata, "archetype");
        const QByteArray newName = text(metadata, "name");
        if (newName != name) {
            name = newName;
            emit nameChanged();
        }
    }
    if (const minijson::CObject* product = resource.GetObject("product_data")) {
        manufacturerName = text(product, "manufacturer_name");
        modelId = text(product, "model_id");
        productName = text(product, "product_name");
        softwareVersion = text(product, "software_version");
    }
    if (!resource.Contains("services"))
        return;

    const QList<QByteArray> collected = api2LightServices<Exception>(resource);
    const QSet<QByteArray> current(collected.cbegin(), collected.cend());
    const QList<QByteArray> known = lights.keys();
    for (const QByteArray& lightId : known) {
        if (current.contains(lightId))
            continue;
        // Listeners still find the light under the id while they handle the signal.
        emit lightRemoved(lightId);
        lights.remove(lightId);
    }
    for (const QByteArray& lightId : collected) {
        if (lights.contains(lightId))
            continue;
        lights.insert(lightId, nullptr);
        emit lightAdded(lightId);
    }
}

void API2Device::setLight(const QByteArray& lightId, CLight* light)
{
    const auto it = lights.constFind(lightId);
    if (it != lights.constEnd() && !it->isNull()) {
        // Re-attaching the same light (each reachability update does) is routine and says nothing.
        if (it->data() != light)
            LOG_WARNING << "tried to add existing light" << lightId << "to device" << id;
        return;
    }
    lights.insert(lightId, light);
}

void API2Device::removeLight(const QByteArray& lightId)
{
    if (!lights.remove(lightId))
        LOG_WARNING << "tried to remove non-existing light" << lightId << "from device" << id;
}

} // namespace hue
