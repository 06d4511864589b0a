// API version 2: applying the events of the event stream to devices, lights and reachability,
// and the notifications of the device and group mirrors.

#include "hue_bridgeapi2.h"

#include "hue_controller.h"
#include "hue_eventstreamevents.h"
#include "hue_light.h"

#include "common/logginginterface.h"
#include "common/profiler.h"

#include <QSet>

namespace hue {

namespace {

std::string indented(const minijson::CEntity& entity)
{
    return entity.ToString(true, "  ");
}

// Resource types whose events tell this program nothing. A bridge sends many of them (a scene
// event at every recall, sensors all the time): they are skipped without a word.
bool isIgnoredType(const std::string& type)
{
    static const QSet<QByteArray> kIgnored = {"motion",
                                              "grouped_motion",
                                              "grouped_light_level",
                                              "light_level",
                                              "temperature",
                                              "button",
                                              "bridge_home",
                                              "device_power",
                                              "grouped_light",
                                              "geofence_client",
                                              "zone",
                                              "room",
                                              "scene",
                                              "smart_scene",
                                              "behavior_instance",
                                              "behavior_script",
                                              "entertainment_configuration",
                                              "entertainment",
                                              "relative_rotary",
                                              "device_software_update",
                                              "zigbee_device_discovery",
                                              "zgp_connectivity",
                                              "wifi_connectivity",
                                              "bridge",
                                              "homekit",
                                              "matter",
                                              "matter_fabric",
                                              "contact",
                                              "tamper",
                                              "camera_motion",
                                              "convenience_area_motion",
                                              "security_area_motion",
                                              "motion_area_configuration",
                                              "motion_area_candidate",
                                              "switch_input_configuration",
                                              "speaker",
                                              "geolocation",
                                              "bell_button",
                                              "clip",
                                              "public_image",
                                              "service_group"};
    return kIgnored.contains(QByteArray::fromStdString(type));
}

// Resource types whose events this program applies.
bool isUsedType(const std::string& type)
{
    return type == "device" || type == "light" || type == "zigbee_connectivity";
}

} // namespace

void BridgeAPI2::parseEventStreamData(const QByteArray& data)
{
    ProfileScope profile("BridgeAPI2::parseEventStreamData");
    const bool dump = g_Controller && g_Controller->dumpLightUpdates();
    const StreamEventBatch batch = parseStreamEvents(data, dump);
    for (const StreamEvent& event : batch.events) {
        for (const minijson::CObject* resource : event.resources)
            parseEventData(*resource, event.type);
    }
}

void BridgeAPI2::parseEventData(const minijson::CObject& resource, const std::string& eventType)
{
    const std::string type = resource.GetString("type");
    if (isIgnoredType(type))
        return;
    if (!isUsedType(type)) {
        // A type this program does not know yet: said once per bridge, then skipped quietly.
        const QByteArray name = QByteArray::fromStdString(type);
        if (m_unknownEventTypes.contains(name)) {
            LOG_DETAIL << "got unhandled event type" << type;
        } else {
            m_unknownEventTypes.insert(name);
            LOG_WARNING << "got unhandled event type" << type << "from bridge" << m_bridge->bridgeId()
                        << "- further events of this type are skipped quietly";
        }
        return;
    }
    if (type == "device") {
        parseDeviceUpdate(resource, eventType);
        return;
    }
    if (eventType == "delete") {
        // A deleted light goes at once; its connectivity goes with its device.
        if (type == "light")
            deleteLightResource(QByteArray::fromStdString(resource.GetString("id")));
        return;
    }
    API2Device* device = getAPIDevice(resource);
    if (!device) {
        LOG_WARNING << "event with missing or unknown owner:" << indented(resource);
        return;
    }
    if (type == "zigbee_connectivity") {
        updateReachableFromStatus(resource, device);
    } else if (type == "light") {
        // A light added at the bridge carries its whole resource: it is made at once when its
        // device is known and reachable, else by the next poll.
        const QByteArray id = QByteArray::fromStdString(resource.GetString("id"));
        if (eventType == "add" && !m_bridge->hasLight(id))
            updateLightFromLightJSON(id, resource);
        else
            parseLightUpdate(resource, device);
    } else {
        LOG_DETAIL << "got unhandled event type" << type;
    }
}

void BridgeAPI2::parseDeviceUpdate(const minijson::CObject& resource, const std::string& eventType)
{
    const QByteArray id = QByteArray::fromStdString(resource.GetString("id"));
    try {
        if (const auto device = m_devices.value(id)) {
            if (eventType == "update") {
                device->update(resource);
            } else if (eventType == "delete") {
                LOG_INFO << "device" << id << "was deleted at bridge" << m_bridge->bridgeId()
                         << "- deleting it";
                removeDevice(id);
            } else {
                LOG_WARNING << "unhandled device update type:" << eventType << indented(resource);
            }
        } else if (eventType == "add") {
            addAPIDevice(id, resource);
        } else {
            LOG_WARNING << "device update without known id:" << indented(resource);
        }
    } catch (const API2Device::Exception& e) {
        LOG_ERROR << "failed to parse device data:" << e.message() << indented(resource);
    }
}

void BridgeAPI2::parseLightUpdate(const minijson::CObject& resource, API2Device* device)
{
    Q_UNUSED(device); // the owner is known; the light is found by its own id
    const QByteArray id = QByteArray::fromStdString(resource.GetString("id"));
    CLight* light = m_bridge->lightById(id);
    if (!light) {
        // The next light poll creates it once its device is reachable.
        LOG_DETAIL << "ignoring light event for device that has not been created yet:" << indented(resource);
        return;
    }
    updateLightFromEventJSON(light, resource);
}

void BridgeAPI2::deleteLightResource(const QByteArray& lightId)
{
    if (API2Device* device = deviceOfLight(lightId))
        device->lights.remove(lightId);
    CLight* light = m_bridge->lightById(lightId);
    if (!light)
        return;
    LOG_INFO << "light" << lightId << "was deleted at bridge" << m_bridge->bridgeId() << "- deleting it";
    m_bridge->deleteLight(light);
}

void BridgeAPI2::removeDevice(const QByteArray& deviceId)
{
    const std::shared_ptr<API2Device> device = m_devices.take(deviceId);
    if (!device)
        return;
    const QList<QByteArray> lightIds = device->lights.keys();
    for (const QByteArray& lightId : lightIds) {
        if (CLight* light = m_bridge->lightById(lightId)) {
            LOG_INFO << "light" << lightId << "was deleted at bridge" << m_bridge->bridgeId()
                     << "with its device - deleting it";
            m_bridge->deleteLight(light);
        }
    }
}

void BridgeAPI2::onDeviceNameChanged()
{
    auto* device = qobject_cast<API2Device*>(sender());
    if (!device)
        return;
    // Lights without metadata of their own carry their device's name.
    for (auto it = device->lights.cbegin(); it != device->lights.cend(); ++it) {
        CLight* light = it.value();
        if (!light || !m_lightsWithoutMetadata.contains(it.key()))
            continue;
        BridgeLightData& data = m_bridge->lightData(it.key());
        const QString name = QString::fromUtf8(device->name);
        if (name == data.name)
            continue;
        data.name = name;
        ChangeFlags flags = ChangedName;
        updateLightInController(*light, false, flags);
    }
}

void BridgeAPI2::onLightRemoved(QByteArray id)
{
    auto* device = qobject_cast<API2Device*>(sender());
    if (!device)
        return;
    if (CLight* light = device->lights.value(id))
        m_bridge->deleteLight(light);
    device->removeLight(id);
}

void BridgeAPI2::onGroupValuesChanged(ChangeFlags& flags)
{
    auto* group = qobject_cast<API2Group*>(sender());
    if (group && group->groupLight())
        updateLightInController(*group->groupLight(), false, flags);
}

void BridgeAPI2::onGroupNameChanged()
{
    auto* group = qobject_cast<API2Group*>(sender());
    if (group && group->groupLight()) {
        ChangeFlags flags = ChangedName;
        updateLightInController(*group->groupLight(), false, flags);
    }
}

void BridgeAPI2::parseRoomOrZoneUpdate(const minijson::CObject& resource, API2Group* group)
{
    try {
        group->update(resource);
    } catch (const API2Group::Exception& e) {
        LOG_ERROR << "failed to parse room/zone event:" << e.message() << indented(resource);
    }
}

} // namespace hue
