// API version 2: reading device, connectivity, light, room and zone resources into the device
// mirrors and the light model.

#include "hue_bridgeapi2.h"

#include "hue_api2services.h"
#include "hue_colorconvert.h"
#include "hue_device.h"
#include "hue_light.h"
#include "hue_lightinfo.h"

#include "common/logginginterface.h"

#include <cmath>

namespace hue {

namespace {

QByteArray idOf(const minijson::CObject& resource)
{
    return QByteArray::fromStdString(resource.GetString("id"));
}

std::string indented(const minijson::CEntity& entity)
{
    return entity.ToString(true, "  ");
}

// A gamut corner {"x":..,"y":..}; false when it is not one.
bool readCorner(const minijson::CObject& gamut, const char* name, XYPoint* point)
{
    const minijson::CObject* corner = gamut.GetObject(name);
    if (!corner || !corner->Contains("x") || !corner->Contains("y"))
        return false;
    *point = {corner->GetFloat("x"), corner->GetFloat("y")};
    return true;
}

void readGamut(CLight& light, const minijson::CObject& color)
{
    const QString gamutType = QString::fromStdString(color.GetString("gamut_type"));
    const QString model = QString::fromLatin1(light.model());
    XYGamut limits = ColorConvert::lookupGamutLimits(gamutType, QString(), model);
    if (const minijson::CObject* gamut = color.GetObject("gamut")) {
        XYGamut reported;
        if (readCorner(*gamut, "red", &reported.red) && readCorner(*gamut, "green", &reported.green) &&
            readCorner(*gamut, "blue", &reported.blue))
            limits = reported;
    }
    light.setGamut(ColorConvert::lookupGamut(gamutType, QString(), model), limits,
                   ColorConvert::lookupWhitepoint(gamutType, QString(), model));
}

void readMiredLimits(CLight& light, const minijson::CObject& resource)
{
    int miredMin = CLightInfo::DefaultMiredMin;
    int miredMax = CLightInfo::DefaultMiredMax;
    CLightInfo::getMiredLimits(light.manufacturer(), light.model(), miredMin, miredMax);
    const minijson::CObject* ct = resource.GetObject("color_temperature");
    const minijson::CObject* schema = ct ? ct->GetObject("mirek_schema") : nullptr;
    if (schema) {
        miredMin = schema->GetInt("mirek_minimum", miredMin);
        miredMax = schema->GetInt("mirek_maximum", miredMax);
    }
    light.setMiredLimits(miredMin, miredMax);
}

} // namespace

LightType BridgeAPI2::determineLightType(const minijson::CObject& light)
{
    if (!light.Contains("dimming"))
        return LightOnOff;
    const bool color = light.Contains("color");
    const bool ct = light.Contains("color_temperature");
    if (color && ct)
        return LightExtendedColor;
    if (color)
        return LightColor;
    return ct ? LightColorTemperature : LightDimmable;
}

void BridgeAPI2::updateLightXY(CLight& light, const minijson::CEntity* value, bool* changed)
{
    if (!value || !value->IsObject()) {
        LOG_ERROR << "invalid data type in XY value";
        return;
    }
    const minijson::CObject& xy = value->Object();
    if (!xy.Contains("x") || !xy.Contains("y")) {
        LOG_ERROR << "missing x or y value";
        return;
    }
    CLight::State& state = light.bridgeState();
    const float oldX = state.x();
    const float oldY = state.y();
    state.setColor(xy.GetFloat("x"), xy.GetFloat("y"));
    if (state.x() != oldX || state.y() != oldY) {
        *changed = true;
        // Version 2 reports colour as xy only; hue and saturation (the hub's HSV value) follow
        // from it through the lamp's gamut, as a version 1 bridge would report them.
        const uint hsb = state.colorAsHSB();
        state.setHue(quint16(hsb & 0xFFFF));
        state.setSaturation(quint8((hsb >> 16) & 0xFF));
    }
}

API2Device* BridgeAPI2::addAPIDevice(const QByteArray& id, const minijson::CObject& resource)
{
    auto device = std::make_shared<API2Device>(id, resource);
    connect(device.get(), &API2Device::lightRemoved, this, &BridgeAPI2::onLightRemoved);
    connect(device.get(), &API2Device::nameChanged, this, &BridgeAPI2::onDeviceNameChanged);
    m_devices.insert(id, device);
    return device.get();
}

API2Device* BridgeAPI2::getAPIDevice(const minijson::CObject& resource)
{
    const minijson::CObject* owner = resource.GetObject("owner");
    if (!owner)
        return nullptr;
    if (owner->GetString("rtype") != "device") {
        LOG_WARNING << "data entry with non-device owner" << idOf(resource);
        return nullptr;
    }
    return m_devices.value(QByteArray::fromStdString(owner->GetString("rid"))).get();
}

API2Device* BridgeAPI2::deviceOfLight(const QByteArray& lightId) const
{
    for (const auto& device : m_devices) {
        if (device->lights.contains(lightId))
            return device.get();
    }
    return nullptr;
}

void BridgeAPI2::parseDevicePollReply(const minijson::CArray& data)
{
    QSet<QByteArray> listed;
    for (int i = 0; i < data.Count(); ++i) {
        const minijson::CEntity& element = data.EntityAtIndex(i);
        const minijson::CObject* entry = element.IsObject() ? &element.Object() : nullptr;
        if (!entry || !entry->Contains("id")) {
            LOG_ERROR << "device data entry without id at index" << i;
            continue;
        }
        const QByteArray id = idOf(*entry);
        listed.insert(id);
        try {
            if (const auto device = m_devices.value(id))
                device->update(*entry);
            else
                addAPIDevice(id, *entry);
        } catch (const API2Device::Exception& e) {
            LOG_ERROR << "failed to parse device entry" << id << ":" << e.message();
        }
    }
    // A device deleted while the event stream was down is no longer listed.
    const QList<QByteArray> known = m_devices.keys();
    for (const QByteArray& id : known) {
        if (!listed.contains(id)) {
            LOG_INFO << "device" << id << "is no longer reported by bridge" << m_bridge->bridgeId()
                     << "- deleting it";
            removeDevice(id);
        }
    }
}

void BridgeAPI2::parseConnectivityPollReply(const minijson::CArray& data)
{
    for (int i = 0; i < data.Count(); ++i) {
        const minijson::CEntity& element = data.EntityAtIndex(i);
        const minijson::CObject* entry = element.IsObject() ? &element.Object() : nullptr;
        if (!entry || !entry->Contains("id") || !entry->Contains("owner")) {
            LOG_ERROR << "connectivity data entry without id or owner at index" << i;
            continue;
        }
        if (API2Device* device = getAPIDevice(*entry))
            updateReachableFromStatus(*entry, device);
        else
            LOG_WARNING << "cannot get API device for connectivity at index" << i;
    }
}

void BridgeAPI2::parseLightPollReply(const minijson::CArray& data)
{
    int failed = 0;
    QSet<QByteArray> listed;
    for (int i = 0; i < data.Count(); ++i) {
        const minijson::CEntity& element = data.EntityAtIndex(i);
        if (!element.IsObject())
            continue;
        const minijson::CObject& entry = element.Object();
        if (entry.GetString("type") != "light")
            continue;
        if (!entry.Contains("id")) {
            LOG_ERROR << "light data entry without id at index" << i;
            continue;
        }
        listed.insert(idOf(entry));
        if (!updateLightFromLightJSON(idOf(entry), entry))
            ++failed;
    }
    if (failed > 0)
        LOG_ERROR << "FAILED to update light state from all-lights response for" << failed << "lights.";
    // A light deleted while the event stream was down is no longer listed.
    deleteRemovedLights(listed, ItemLight);
}

void BridgeAPI2::reportIncompleteLight(const QByteArray& id, const minijson::CObject& light)
{
    if (m_incompleteLights.contains(id))
        return;
    m_incompleteLights.insert(id);
    LOG_ERROR << "missing on or metadata keys:" << indented(light);
}

bool BridgeAPI2::updateLightFromLightJSON(const QByteArray& id, const minijson::CObject& light)
{
    // Current firmware leaves a light's "metadata" to its owning device. A light of a device not
    // known yet waits for it (createLight); one that has neither is logged once, not at every poll.
    const bool ownMetadata = light.Contains("metadata");
    const minijson::CObject* owner = light.GetObject("owner");
    const API2Device* device = owner && owner->GetString("rtype") == "device"
                                   ? m_devices.value(QByteArray::fromStdString(owner->GetString("rid"))).get()
                                   : nullptr;
    const bool named = ownMetadata || !device || device->hasMetadata;
    if (!light.Contains("on") || !named) {
        const bool first = !m_incompleteLights.contains(id);
        reportIncompleteLight(id, light);
        return !first;
    }
    m_incompleteLights.remove(id);
    if (ownMetadata)
        m_lightsWithoutMetadata.remove(id);
    else
        m_lightsWithoutMetadata.insert(id);
    bool isNew = false;
    if (!m_bridge->hasLight(id)) {
        bool ok = false;
        if (!createLight(id, light, ok))
            return ok;
        isNew = true;
    }
    CLight* object = m_bridge->lightById(id);
    if (!object) {
        LOG_ERROR << "cannot update light with id" << id << ": no such light?";
        return false;
    }
    return updateLightFromEventJSON(object, light, isNew, itemsKeptFromPoll(*object), device);
}

bool BridgeAPI2::createLight(const QByteArray& id, const minijson::CObject& light, bool& ok)
{
    API2Device* device = getAPIDevice(light);
    // Lights of unknown or unreachable devices are made once they are known and reachable.
    if (!device || (!device->reachable && !allLightsReachable())) {
        ok = true;
        return false;
    }
    ok = false;
    const LightType type = determineLightType(light);
    if (type == LightInvalid)
        return false;
    const QByteArray idV1 = QByteArray::fromStdString(light.GetString("id_v1"));
    int number = 0;
    if (!api2ParseV1Number(idV1, &number) || number < 0 || number > 0xFFFF) {
        LOG_ERROR << "cannot parse light id:" << idV1 << "of light" << id;
        return false;
    }
    const minijson::CObject* metadata = light.GetObject("metadata");
    if (!metadata && !device->hasMetadata) {
        LOG_ERROR << "createLight called for id" << id << "with no metadata";
        return false;
    }
    auto* object = new CLight(m_bridge, id, idV1, number, ItemLight, type);
    object->setMetadata(device->productName, device->manufacturerName, device->modelId,
                        device->softwareVersion);
    m_bridge->addLight(object);
    BridgeLightData& data = m_bridge->lightData(id);
    data.name =
        metadata ? QString::fromStdString(metadata->GetString("name")) : QString::fromUtf8(device->name);
    data.typeName = QByteArray::fromStdString(light.GetString("type"));
    data.reachable = true;
    device->setLight(id, object);
    if (const minijson::CObject* color = light.GetObject("color"))
        readGamut(*object, *color);
    readMiredLimits(*object, light);
    ok = true;
    return true;
}

bool BridgeAPI2::updateLightFromEventJSON(CLight* light, const minijson::CObject& resource, bool isNew,
                                          const KeptItems& kept, const API2Device* nameDevice)
{
    ChangeFlags flags;
    // While a change of the program's own is on its way, the clock keeps counting from it.
    const QList<QByteArray> waiting = m_bridge->pendingLightChanges().values();
    if (!waiting.contains(light->hueId()))
        light->lastChange().start();
    const bool wasOn = light->isOn();
    const minijson::CObject* on = kept.on ? nullptr : resource.GetObject("on");
    if (on)
        updateLightValueCommon(*light, ValueOn, on->Find("on"), flags);

    CLight::State& state = light->bridgeState();
    const minijson::CObject* dimming = kept.brightness ? nullptr : resource.GetObject("dimming");
    if (dimming && light->isOn()) {
        updateLightValueCommon(*light, ValueBrightness, dimming->Find("brightness"), flags);
    } else if (dimming) {
        // An off lamp shows no light; what the bridge reports is the brightness it comes back with.
        if (state.brightness() != 0) {
            state.setBrightness(0);
            flags |= ChangedBrightness;
        }
        const minijson::CEntity* percent = dimming->Find("brightness");
        // The percentage on the 0-254 scale, truncated.
        const float keptBrightness = percent && percent->IsNumber()
                                         ? float(percent->Number().ValueDouble()) * apiBrightnessFactor()
                                         : 254.0f;
        state.setLastOnBrightness(
            quint8(std::isfinite(keptBrightness) ? qBound(0.0f, keptBrightness, 254.0f) : 254.0f));
    } else if (!kept.brightness && light->isOn() && !wasOn && state.brightness() == 0 &&
               (!light->device() || light->device()->supportsBrightness())) {
        // Switched on without a brightness: back to the one kept while it was off.
        state.setBrightness(state.lastOnBrightness());
        flags |= ChangedBrightness;
    }

    const minijson::CObject* ct = kept.colour ? nullptr : resource.GetObject("color_temperature");
    if (ct) {
        const VNColorMode before = state.colorMode();
        // A numeric "mirek" is a colour temperature unless "mirek_valid" says otherwise (events
        // may leave the flag out); a null one is none, whatever the flag says (a bridge in xy
        // mode may send null with "mirek_valid": true). Without a valid mirek a lamp in
        // colour-temperature mode shows an xy colour; one whose mode is not known yet keeps it
        // until the bridge reports one.
        const minijson::CEntity* mirek = ct->Find("mirek");
        const minijson::CEntity* validFlag = ct->Find("mirek_valid");
        const bool number = mirek && mirek->IsNumber();
        const bool flaggedInvalid = validFlag && validFlag->IsBoolean() && !validFlag->Boolean().Value();
        if (number && !flaggedInvalid)
            state.setColorMode(ColorModeTemperature);
        else if ((flaggedInvalid || (mirek && !number)) && before == ColorModeTemperature)
            state.setColorMode(ColorModeColor);
        if (state.colorMode() != before)
            flags |= ChangedColorMode;
        // "mirek" is null while the lamp shows a colour: nothing to read then.
        if (number)
            updateLightValueCommon(*light, ValueColorTemp, mirek, flags);
    }

    if (const minijson::CObject* color = kept.colour ? nullptr : resource.GetObject("color")) {
        if (const minijson::CEntity* xy = color->Find("xy")) {
            bool changed = false;
            updateLightXY(*light, xy, &changed);
            if (changed)
                flags |= ChangedColor;
        }
    }

    if (const minijson::CObject* metadata = resource.GetObject("metadata")) {
        if (metadata->Contains("name"))
            updateLightValueCommon(*light, ValueName, metadata->Find("name"), flags);
        if (metadata->Contains("archetype"))
            m_lightArchetypes.insert(light->hueId(),
                                     QByteArray::fromStdString(metadata->GetString("archetype")));
    } else if (nameDevice && nameDevice->hasMetadata) {
        BridgeLightData& data = m_bridge->lightData(light->hueId());
        const QString name = QString::fromUtf8(nameDevice->name);
        if (name != data.name) {
            data.name = name;
            flags |= ChangedName;
        }
        m_lightArchetypes.insert(light->hueId(), nameDevice->archetype);
    }

    if (m_bridge->useGroups() && flags)
        queueGroupPoll();
    syncVelKeeping(*light, kept);
    updateLightInController(*light, isNew, flags);
    return true;
}

void BridgeAPI2::updateReachableFromStatus(const minijson::CObject& resource, API2Device* device)
{
    const std::string status = resource.GetString("status");
    device->reachable = allLightsReachable() || (status != "disconnected" && status != "connectivity_issue");
    const QList<QByteArray> lightIds = device->lights.keys();
    for (const QByteArray& lightId : lightIds) {
        CLight* light = m_bridge->lightById(lightId);
        if (!light) {
            device->lights.insert(lightId, nullptr);
            continue;
        }
        device->setLight(lightId, light);
        BridgeLightData& data = m_bridge->lightData(lightId);
        if (device->reachable) {
            data.lastLifeSign.start();
            emit m_bridge->lifeSign(light);
        }
        if (data.reachable != device->reachable) {
            data.reachable = device->reachable;
            ChangeFlags flags = ChangedReachable;
            updateLightInController(*light, false, flags);
        }
    }
}

API2Group* BridgeAPI2::addAPIGroup(const QByteArray& id, CBridge::PollType pollType,
                                   const minijson::CObject& resource)
{
    const auto type = pollType == CBridge::PollGroupKindB ? API2Group::TypeA : API2Group::TypeB;
    auto group = std::make_shared<API2Group>(m_bridge, id, resource, type);
    connect(group.get(), &API2Group::nameChanged, this, &BridgeAPI2::onGroupNameChanged);
    connect(group.get(), &API2Group::valuesChanged, this, &BridgeAPI2::onGroupValuesChanged);
    m_groups.insert(id, group);
    return group.get();
}

void BridgeAPI2::createGroup(const QByteArray&, API2Group* group)
{
    LOG_DETAIL << "createGroup v2 called" << group->name();
}

void BridgeAPI2::parseRoomOrZonePollReply(const minijson::CArray& data, CBridge::PollType pollType)
{
    for (int i = 0; i < data.Count(); ++i) {
        const minijson::CEntity& element = data.EntityAtIndex(i);
        const minijson::CObject* entry = element.IsObject() ? &element.Object() : nullptr;
        if (!entry || !entry->Contains("id") || !entry->Contains("metadata") || !entry->Contains("id_v1") ||
            !entry->Contains("services")) {
            LOG_ERROR << "room/zone entry" << i << "missing a required key:" << indented(element);
            continue;
        }
        const QByteArray id = idOf(*entry);
        try {
            if (const auto group = m_groups.value(id)) {
                group->update(*entry);
                if (CLight* light = group->groupLight())
                    light->lastChange().start();
                continue;
            }
            API2Group* group = addAPIGroup(id, pollType, *entry);
            createGroup(id, group);
            if (CLight* light = group->groupLight()) {
                ChangeFlags flags;
                updateLightInController(*light, true, flags);
            }
        } catch (const API2Group::Exception& e) {
            LOG_ERROR << "failed to parse room/zone entry" << id << ":" << e.message();
        }
    }
}

} // namespace hue
