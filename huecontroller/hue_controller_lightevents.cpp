// The controller's light events: what the bridges report about their lights goes to the hub as
// device registrations, output values, life signs and unreachable notices; what the hub does
// to a light's device (ready, removed, master reset, renamed) comes back here.

#include "hue_controller.h"

#include "hue_adaptor.h"
#include "hue_bridge.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"

namespace hue {

namespace {

// A light's parameters after a master reset: what a light has when it is first reported.
constexpr double kDefaultMaxBrightness = 100.0;
constexpr double kDefaultTimerSeconds = 60.0;

} // namespace

void CController::connectLightEvents(CBridge* bridge)
{
    connect(bridge, &CBridge::lightAdded, this, &CController::newLightAdded);
    connect(bridge, &CBridge::lightChanged, this, &CController::changedLight);
    connect(bridge, &CBridge::lightRemoved, this, &CController::lightDeleted);
    connect(bridge, &CBridge::lightUnresponsive, this, &CController::lightUnresponsive);
    connect(bridge, &CBridge::lifeSign, this, &CController::lightLifeSign);
    // Changes the bridge never took within its bound: the hub sees the light's error output.
    connect(bridge, &CBridge::lightChangeFailed, this, [this](CLight* light, bool failed) {
        sendOutputValue(*light, ODP_INFO_ERROR, failed ? QStringLiteral("1") : QStringLiteral("0"));
    });
    // A bridge that comes after the hub switched to night caps its switch-ons at once.
    bridge->setNightMode(m_night);
}

void CController::newLightAdded(CLight* light)
{
    connect(light->dimTimer(), &QTimer::timeout, this, &CController::dimTimerFired, Qt::UniqueConnection);
    connect(light, &CLight::timedDimmingChanged, this,
            [this, light](double value, int duration) { changedTimedDimming(*light, value, duration); });
    registerLight(*light);
}

void CController::registerLight(const CLight& light)
{
    HueAdaptor* hub = reportingHub(light);
    if (!hub)
        return;
    if (!light.device()) {
        LOG_ERROR << "no description for light" << light.deviceSerial() << "- not registered";
        return;
    }
    LOG_INFO << "registering light" << light.hueId() << "as" << light.deviceSerial();
    // The values follow once the hub reports the device ready (deviceReady): sent before, the
    // hub would have nowhere to put them yet.
    hub->emitRegisterDevice(light.deviceSerial(), light.device()->xml());
}

void CController::changedLight(CLight* light, ChangeFlags flags)
{
    const CLight::State& state = light->velState();
    if (flags.testFlag(ChangedOn))
        changedLightOn(*light, light->isOn());
    if (flags.testFlag(ChangedBrightness))
        changedBrightness(*light, state.vnBrightness());
    // RGB and HSV carry the brightness, so a brightness change re-sends those two as well.
    if (flags & (ChangedColor | ChangedColorMode))
        sendColorValues(*light);
    else if (flags.testFlag(ChangedBrightness))
        sendColorValues(*light, true);
    if (flags.testFlag(ChangedReachable)) {
        // A lamp that is back is alive again at once, not only at the next round of life signs.
        if (light->bridge()->lightDataOf(light->hueId()).reachable)
            lightLifeSign(light);
        else
            lightUnresponsive(light);
    }
    if (flags.testFlag(ChangedMetadata))
        changedMetadata(*light);
    else if (flags.testFlag(ChangedName))
        if (HueAdaptor* hub = reportingHub(*light))
            hub->emitSendAttribute(light->deviceSerial(), QStringLiteral("displayName"),
                                   light->bridge()->lightDataOf(light->hueId()).name);
}

void CController::lightDeleted(CLight* light)
{
    light->stopDimming();
    if (m_lightRemovedByHub)
        return;
    // The hub keeps the device of a lamp the bridge no longer lists; it shows it unresponsive
    // until the bridge lists the lamp again and it is registered afresh.
    lightUnresponsive(light);
}

void CController::lightUnresponsive(CLight* light)
{
    if (HueAdaptor* hub = reportingHub(*light))
        hub->emitUnresponsive(light->deviceSerial());
}

void CController::lightLifeSign(CLight* light)
{
    if (HueAdaptor* hub = reportingHub(*light))
        hub->emitLifeSign(light->deviceSerial());
}

void CController::deviceReady(const InternalId& id)
{
    CLight* light = lightByDeviceSerial(InternalId::makeDeviceSerial(id));
    if (!light) {
        LOG_WARNING << "deviceReady for unknown light" << id;
        return;
    }
    // A hub that restarted knows nothing of the values sent before.
    if (HueAdaptor* hub = reportingHub(*light))
        hub->uncacheDeviceDatapoints(light->deviceSerial());
    sendCurrentValues(*light);
}

void CController::deleteLight(const InternalId& id)
{
    CLight* light = lightByDeviceSerial(InternalId::makeDeviceSerial(id));
    if (!light) {
        LOG_DEBUG << "hub removed device of unknown light" << id;
        return;
    }
    // The light is forgotten here too, with its parameters: the bridge's next poll reports it
    // as new, and it is registered with the hub afresh.
    LOG_INFO << "hub removed light" << light->deviceSerial() << "- registered again when its bridge lists it";
    m_lightRemovedByHub = true;
    light->bridge()->deleteLight(light);
    m_lightRemovedByHub = false;
}

void CController::masterResetLight(const InternalId& id)
{
    CBridge* bridge = nullptr;
    QByteArray hueId;
    if (!getBridgeAndHueId(&bridge, &hueId, InternalId::makeDeviceSerial(id)) || !bridge->hasLight(hueId)) {
        LOG_WARNING << "deviceId not found:" << id;
        return;
    }
    execMasterReset(bridge, bridge->lightById(hueId));
}

void CController::execMasterReset(CBridge* bridge, CLight* light)
{
    const QByteArray hueId = light->hueId();
    LOG_INFO << "master reset of light" << light->deviceSerial();
    light->stopDimming();
    bridge->setSwitchOnMode(hueId, SwitchOnWhiteMaxBrightness);
    bridge->setMaximumBrightnessDay(hueId, kDefaultMaxBrightness);
    bridge->setMaximumBrightnessNight(hueId, kDefaultMaxBrightness);
    light->setTimerDurationSeconds(kDefaultTimerSeconds);
    bridge->restartStartStopTimer();
    registerLight(*light);
}

void CController::attributeValueChanged(const InternalId& id, const QString& name, const QString& value)
{
    if (name != QLatin1String("displayName")) {
        LOG_DEBUG << "attribute" << name << "of" << id << "ignored";
        return;
    }
    CBridge* bridge = nullptr;
    QByteArray hueId;
    if (!getBridgeAndHueId(&bridge, &hueId, InternalId::makeDeviceSerial(id)) || !bridge->hasLight(hueId)) {
        LOG_WARNING << "deviceId not found:" << id;
        return;
    }
    bridge->requestLightName(hueId, value);
}

void CController::sendLifeSignsForLights()
{
    HueAdaptor* hub = HueAdaptor::instance();
    if (!hub)
        return;
    for (const CBridge* bridge : bridges()) {
        if (bridge->isIgnored() || bridgeState(bridge->bridgeId()) != BridgeStatePaired)
            continue;
        for (const CLight* light : bridge->lights()) {
            if (bridge->lightDataOf(light->hueId()).reachable)
                hub->emitLifeSign(light->deviceSerial());
        }
    }
}

} // namespace hue
