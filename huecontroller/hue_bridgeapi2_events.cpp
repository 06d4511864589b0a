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

// Resource types whose events tell this program nothing.
bool isIgnoredType(const std::string& type)
{
    static const QSet<QByteArray> kIgnored = {
        "motion",      "grouped_motion", "grouped_light_level", "light_level",     "temperature", "button",
        "bridge_home", "device_power",   "grouped_light",       "geofence_client", "zone",        "room"};
    return kIgnored.contains(QByteArray::fromStdString(type));
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
    if (type == "device") {
        parseDeviceUpdate(resource, eventType);
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
                // Only the mirror goes: its lights leave through the "services" of an update.
                m_devices.remove(id);
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
