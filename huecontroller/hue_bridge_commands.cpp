// CBridge's command queue: collecting a light's changes for 200 ms, switch-on defaults, the
// day/night maximum brightness, sending, and the start-stop timer.

#include "hue_bridge.h"

#include "hue_bridgeapi.h"
#include "hue_colorconvert.h"
#include "hue_device.h"
#include "hue_light.h"

#include "common/logginginterface.h"
#include "common/profiler.h"

#include <limits>

namespace hue {

namespace {

constexpr int kWarmWhiteMired = 369;
constexpr int kMaxBrightness = 254;
constexpr int kMaxSaturation = 254;

bool isColorItem(ChangeItem item)
{
    return item == ChangeX || item == ChangeColorTemp || item == ChangeHue || item == ChangeSaturation;
}

} // namespace

void CBridge::requestLightChange(const QByteArray& lightId, ChangeItem item, const QVariant& value)
{
    requestLightChange(lightId, QMap<ChangeItem, QVariant>{{item, value}});
}

void CBridge::requestLightChange(const QByteArray& lightId, const QMap<ChangeItem, QVariant>& changes)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "Light does not exist" << lightId;
        return;
    }
    if (!m_lightData.value(lightId).reachable)
        LOG_WARNING << "lamp" << lightId << "possibly not reachable";
    // A burst of changes becomes one request, 200 ms after the last of them, but no later than
    // kMaxCommandDelayMs after the first: a light follows a dragged slider while it moves.
    const qint64 now = Clock::nowMs();
    if (light->pendingCommands().isEmpty() || !m_firstPendingMs.contains(lightId))
        m_firstPendingMs.insert(lightId, now);
    light->commandTimer()->stop();
    for (auto it = changes.cbegin(); it != changes.cend(); ++it)
        light->pendingCommands().insert(it.key(), it.value());
    const qint64 untilBound = m_firstPendingMs.value(lightId) + kMaxCommandDelayMs - now;
    light->commandTimer()->start(int(qBound<qint64>(0, untilBound, CLight::kCommandDelayMs)));
}

void CBridge::requestLightOn(const QByteArray& lightId, bool on)
{
    requestLightChange(lightId, ChangeOn, on);
}

void CBridge::requestLightOnWithTimer(const QByteArray& lightId)
{
    if (!hasLight(lightId)) {
        LOG_ERROR << "Light with id" << lightId << "not found";
        return;
    }
    m_startStopEntries[lightId].start();
    restartStartStopTimer();
    requestLightChange(lightId, {{ChangeOn, true}, {ChangeTimer, true}});
}

void CBridge::requestLightColorTemperature(const QByteArray& lightId, int mired)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "unknown light id" << lightId;
        return;
    }
    light->velState().setColorMode(ColorModeTemperature);
    if (!light->isColorTempMirrorBlocked())
        light->velState().setColorTemp(quint16(qBound(0, mired, 65535)));
    // The hub sees its own command at once, before the bridge confirms it.
    emit lightChanged(light, ChangedColor | ChangedColorMode);
    requestLightChange(lightId, ChangeColorTemp, mired);
}

void CBridge::requestLightHue(const QByteArray& lightId, double percent)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "unknown light id" << lightId;
        return;
    }
    const int hue = ColorConvert::convertApiHueToHue(percent);
    light->velState().setColorMode(ColorModeColor);
    light->velState().setHue(quint16(qBound(0, hue, 65535)));
    emit lightChanged(light, ChangedColor | ChangedColorMode);
    requestLightChange(lightId, ChangeHue, hue);
}

void CBridge::requestLightSaturation(const QByteArray& lightId, int percent)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "unknown light id" << lightId;
        return;
    }
    const int saturation = int(ColorConvert::convertApiSaturationToHue(percent));
    light->velState().setColorMode(ColorModeColor);
    light->velState().setSaturation(quint8(qBound(0, saturation, 254)));
    emit lightChanged(light, ChangedColor | ChangedColorMode);
    requestLightChange(lightId, ChangeSaturation, saturation);
}

void CBridge::requestLightRgbColor(const QByteArray& lightId, const QString& rgb)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "requestLightRgbColor for unknown light id" << lightId;
        return;
    }
    bool ok = false;
    const uint packed = ColorConvert::convertStringToRgb(rgb, &ok);
    if (!ok) {
        LOG_ERROR << "Invalid color argument:" << rgb;
        return;
    }
    float x = 0.0f;
    float y = 0.0f;
    ColorConvert::convertRgbToXY(&x, &y, nullptr, packed, *light);
    light->velState().setColorMode(ColorModeColor);
    light->velState().setColor(x, y);
    requestLightChange(lightId, {{ChangeX, x}, {ChangeY, y}});
}

void CBridge::requestLightHSVColor(const QByteArray& lightId, const QString& hsv)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "requestLightHSVColor for unknown light id" << lightId;
        return;
    }
    bool ok = false;
    const uint packed = ColorConvert::convertStringToHSV(hsv, &ok);
    if (!ok) {
        LOG_ERROR << "Failed to parse hsv string value" << hsv;
        return;
    }
    // The text carries eight bits each for saturation and brightness; the bridge takes
    // saturation 0..254 and brightness 1..254.
    const int hue = int(packed & 0xFFFF);
    const int saturation = qMin(int((packed >> 16) & 0xFF), kMaxSaturation);
    const int brightness = qBound(1, int(packed >> 24), kMaxBrightness);
    if (!light->isOn())
        LOG_INFO << "HSV change while off, velmode" << lightId;
    CLight::State& state = light->velState();
    state.setColorMode(ColorModeColor);
    state.setHue(quint16(hue));
    state.setSaturation(quint8(saturation));
    state.setBrightness(quint8(brightness));
    emit lightChanged(light, ChangedColor | ChangedColorMode);
    requestLightChange(lightId,
                       {{ChangeHue, hue}, {ChangeSaturation, saturation}, {ChangeBrightness, brightness}});
}

void CBridge::requestLightBrightness(const QByteArray& lightId, double percent, bool switchOn,
                                     int transitionTime)
{
    CLight* light = lightById(lightId);
    if (!light) {
        LOG_ERROR << "unknown light id" << lightId;
        return;
    }
    const int brightness = ColorConvert::convertApiBrightnessToHue(percent);
    light->velState().setBrightness(quint8(brightness));
    QMap<ChangeItem, QVariant> changes{{ChangeBrightness, brightness}};
    if (percent <= 0.0)
        changes = {{ChangeOn, false}};
    else if (switchOn && !light->isOn())
        changes.insert(ChangeOn, true);
    if (transitionTime >= 0)
        changes.insert(ChangeTransitionTime, transitionTime);
    requestLightChange(lightId, changes);
}

void CBridge::requestLightName(const QByteArray& lightId, const QString& name)
{
    if (!hasLight(lightId)) {
        LOG_ERROR << "unknown light id" << lightId;
        return;
    }
    m_api->setLightName(lightId, name);
}

ESwitchOnMode CBridge::switchOnMode(const QByteArray& lightId) const
{
    return m_lightData.value(lightId).switchOnMode;
}

void CBridge::setSwitchOnMode(const QByteArray& lightId, ESwitchOnMode mode)
{
    if (hasLight(lightId))
        m_lightData[lightId].switchOnMode = mode;
}

double CBridge::maximumBrightnessDay(const QByteArray& lightId) const
{
    const CLight* light = lightById(lightId);
    return light ? light->maxBrightnessDay() : 100.0;
}

void CBridge::setMaximumBrightnessDay(const QByteArray& lightId, double percent)
{
    if (CLight* light = lightById(lightId))
        light->setMaxBrightnessDay(percent);
}

double CBridge::maximumBrightnessNight(const QByteArray& lightId) const
{
    const CLight* light = lightById(lightId);
    return light ? light->maxBrightnessNight() : 100.0;
}

void CBridge::setMaximumBrightnessNight(const QByteArray& lightId, double percent)
{
    if (CLight* light = lightById(lightId))
        light->setMaxBrightnessNight(percent);
}

void CBridge::applySwitchOnDefaults(CLight& light, QMap<ChangeItem, QVariant>& pending)
{
    const CDevice* device = light.device();
    const bool supportsCt = device && device->supportsColorTemp();
    const bool supportsColor = device && device->supportsColor();
    const bool ctDevice = device && device->isColorTemp();
    const CLight::State& stored = light.velState();

    int brightness = pending.value(ChangeBrightness, kMaxBrightness).toInt();
    bool hasColor = false;
    for (auto it = pending.cbegin(); it != pending.cend(); ++it)
        hasColor = hasColor || isColorItem(it.key());
    if (!hasColor) {
        const ESwitchOnMode mode = switchOnMode(light.hueId());
        switch (mode) {
        case SwitchOnWhiteMaxBrightness:
        case SwitchOnWhiteLastBrightness:
            if (ctDevice)
                pending.insert(ChangeColorTemp, int(stored.colorTemp()));
            else if (supportsCt)
                pending.insert(ChangeColorTemp, kWarmWhiteMired);
            brightness = mode == SwitchOnWhiteMaxBrightness ? kMaxBrightness : int(stored.lastOnBrightness());
            break;
        case SwitchOnLastColor:
            brightness = stored.lastOnBrightness();
            if (!supportsColor && !supportsCt)
                break;
            if (stored.colorMode() != ColorModeTemperature && !ctDevice && supportsColor) {
                pending.insert(ChangeHue, int(stored.hue()));
                pending.insert(ChangeSaturation, int(stored.saturation()));
            } else {
                pending.insert(ChangeColorTemp, int(stored.colorTemp()));
            }
            break;
        default:
            LOG_ERROR << "Invalid value for SwitchOnMode" << int(mode);
            break;
        }
    }
    const double maxPercent = m_nightMode ? light.maxBrightnessNight() : light.maxBrightnessDay();
    brightness = qMin(brightness, ColorConvert::convertApiBrightnessToHue(maxPercent));
    if (brightness > 0)
        pending.insert(ChangeBrightness, brightness);
}

void CBridge::execCommands()
{
    ProfileScope profile("CBridge::execCommands");
    auto* timer = qobject_cast<QTimer*>(sender());
    if (!timer) {
        LOG_ERROR << "execCommands must be called by a timer";
        return;
    }
    CLight* light = lightById(timer->property("hueLightID").toByteArray());
    if (!light) {
        LOG_ERROR << "execCommands with invalid light";
        return;
    }
    QMap<ChangeItem, QVariant>& pending = light->pendingCommands();
    if (pending.isEmpty()) {
        LOG_ERROR << "execCommands without valid command";
        return;
    }

    const bool turningOn = pending.contains(ChangeOn) && pending.value(ChangeOn).toBool();
    const bool onOffOnly = light->device() && light->device()->isOnOff();
    if (!onOffOnly && !light->isOn() && turningOn)
        applySwitchOnDefaults(*light, pending);

    VNColorMode requested = light->requestedColorMode();
    if (pending.contains(ChangeHue) || pending.contains(ChangeSaturation) || pending.contains(ChangeX))
        requested = ColorModeColor;
    else if (pending.contains(ChangeColorTemp))
        requested = ColorModeTemperature;
    if (requested != light->requestedColorMode()) {
        light->setRequestedColorMode(requested);
        light->setColorModeChanged(true);
    }
    light->convertColorCommands();

    const auto body = m_api->buildChangeRequest(*light, pending);
    const QByteArray text = QByteArray::fromStdString(minijson::CWriter(true, "  ").Write(*body));
    LOG_DETAIL << "sending command:" << light->hueId() << text;

    QMap<QByteArray, QVariant> properties;
    if (turningOn)
        properties.insert("hueLightTurningOn", true);
    properties.insert(kChangeItemsProperty, changeItemBits(pending.keys()));
    const quint64 id = m_api->sendSetStateRequest(*light, text, properties);
    if (pending.contains(ChangeTimer))
        m_pendingLightChanges.insert(id, light->hueId());
    m_lastRequest.start();
    pending.clear();
    m_firstPendingMs.remove(light->hueId());
}

int CBridge::changeItemBits(const QList<ChangeItem>& items)
{
    int bits = 0;
    for (ChangeItem item : items)
        bits |= 1 << int(item);
    return bits;
}

QSet<ChangeItem> CBridge::itemsUnderway(const QByteArray& lightId) const
{
    QSet<ChangeItem> items;
    if (const CLight* light = lightById(lightId)) {
        const QList<ChangeItem> pending = light->pendingCommands().keys();
        items = QSet<ChangeItem>(pending.cbegin(), pending.cend());
    }
    for (const QList<RetryingRequest*>& queue : m_retryQueues) {
        if (queue.isEmpty() || queue.first()->lightId != lightId)
            continue;
        for (const RetryingRequest* entry : queue) {
            const int bits = entry->properties.value(kChangeItemsProperty).toInt();
            for (int item = ChangeOn; item <= ChangeTimer; ++item) {
                if (bits & (1 << item))
                    items.insert(ChangeItem(item));
            }
        }
    }
    return items;
}

QSet<ChangeItem> CBridge::itemsNewerThan(const QByteArray& lightId, QNetworkReply* pollReply) const
{
    QSet<ChangeItem> items = itemsUnderway(lightId);
    const quint64 pollSent = pollReply ? pollReply->property(kSentSerialProperty).toULongLong() : 0;
    const QHash<int, quint64> sent = m_itemSentSerials.value(lightId);
    for (auto it = sent.cbegin(); it != sent.cend(); ++it) {
        if (it.value() > pollSent)
            items.insert(ChangeItem(it.key()));
    }
    return items;
}

double CBridge::startStopTimerDurationSeconds(const QByteArray& lightId) const
{
    const CLight* light = lightById(lightId);
    if (!light) {
        LOG_WARNING << "Light with id" << lightId << "not found";
        return 10.0;
    }
    return light->timerDurationSeconds();
}

void CBridge::restartStartStopTimer()
{
    m_startStopTimer->stop();
    qint64 next = -1;
    for (auto it = m_startStopEntries.cbegin(); it != m_startStopEntries.cend(); ++it) {
        const qint64 remaining =
            qMax<qint64>(0, qint64(startStopTimerDurationSeconds(it.key()) * 1000.0) - it.value().elapsed());
        if (next < 0 || remaining < next)
            next = remaining;
    }
    if (next >= 0)
        m_startStopTimer->start(int(qMin<qint64>(next, std::numeric_limits<int>::max())));
}

void CBridge::startStopTimerTimeout()
{
    const QList<QByteArray> ids = m_startStopEntries.keys();
    for (const QByteArray& id : ids) {
        if (m_startStopEntries.value(id).elapsed() >= qint64(startStopTimerDurationSeconds(id) * 1000.0)) {
            m_startStopEntries.remove(id);
            requestLightOn(id, false);
        }
    }
    restartStartStopTimer();
}

} // namespace hue
