#include "benchsystem.h"

#include "eventwait.h"

#include <communicationservice.h>
#include <databaseservice.h>
#include <datapointids.h>
#include <hubsimulator.h>
#include <supervisor.h>
#include <systemservice.h>

#include <QDir>
#include <QStringList>
#include <QVariantList>

#include <algorithm>
#include <iterator>

namespace e2ebench {

namespace {

constexpr int kStopLimitMs = 6000;
const char* const kHueServiceType = "_hue._tcp";

// Colour lights first, so that the lights the latency probes use are dimmable whatever the count.
const char* const kLightMix[] = {"extended", "ct", "dimmable", "color", "onoff"};
const int kLightMixShare[] = {40, 30, 20, 6, 4}; // percent of the lights, in the order above
// Without on/off plugs: every light reports a brightness.
const int kDimmableMixShare[] = {40, 30, 24, 6, 0};

std::vector<bridgeemu::LightSpec> benchLights(int count, int bridgeNumber, LightMix mix)
{
    const int* shares = mix == LightMix::Household ? kLightMixShare : kDimmableMixShare;
    std::string text;
    int left = count;
    for (std::size_t kind = 0; kind < std::size(kLightMix) && left > 0; ++kind) {
        const bool last = kind + 1 == std::size(kLightMix) || shares[kind + 1] == 0;
        const int share = last ? left : std::min(left, std::max(1, count * shares[kind] / 100));
        text += (text.empty() ? "" : ",") + std::string(kLightMix[kind]) + ':' + std::to_string(share);
        left -= share;
    }
    std::string error;
    std::vector<bridgeemu::LightSpec> lights = bridgeemu::parseLightSet(text, &error).value();
    for (std::size_t i = 0; i < lights.size(); ++i)
        lights[i].name = "Bench b" + std::to_string(bridgeNumber) + " l" + std::to_string(i + 1);
    return lights;
}

bool isHueDevice(const RegisteredDevice* device)
{
    return device->id.getDeviceName().startsWith("BEED");
}

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

} // namespace

bool isChangeOf(const bridgeemu::RecordedRequest& request, const BenchLight& light)
{
    if (request.method != "PUT")
        return false;
    return endsWith(request.target, "/lights/" + light.lightId + "/state") ||
           (!light.v2LightId.empty() && endsWith(request.target, "/resource/light/" + light.v2LightId));
}

BenchSystem::BenchSystem(const QString& folder, const QString& servicePath, const QString& constDataDir)
    : m_dir(folder), m_socketDir(folder + QStringLiteral("/sockets")),
      m_service(std::make_unique<ServiceUnderTest>(servicePath, folder, m_socketDir, constDataDir))
{
}

BenchSystem::~BenchSystem()
{
    stop();
}

bool BenchSystem::start()
{
    if (!QDir().mkpath(m_socketDir)) {
        m_error = QStringLiteral("cannot create %1").arg(m_socketDir);
        return false;
    }
    HubSimOptions options;
    options.socketDir = m_socketDir;
    options.supervise = true;
    options.supervisorRetryMs = 50; // the service's socket appears soon after its start
    m_hub = std::make_unique<HubSimulator>(options);
    if (!m_hub->start(&m_error) || !m_service->start(&m_error))
        return false;
    const QVariantList startStages{0, 3, 1};
    const auto answered = [&] {
        return m_hub->supervisor()->status().value("answered").toList() == startStages;
    };
    // A service that ended (a wrong path under a launcher) need not be waited for.
    waitUntil([&] { return answered() || !m_service->isRunning(); }, m_startLimitMs);
    if (!answered()) {
        m_error = QStringLiteral("the service did not answer the run stages 0, 3, 1 (see %1)").arg(folder());
        return false;
    }
    if (!waitUntil([&] { return m_hub->system()->isWatched("mdns", kHueServiceType); }, m_startLimitMs)) {
        m_error = QStringLiteral("the service does not watch for %1").arg(kHueServiceType);
        return false;
    }
    return true;
}

bool BenchSystem::addBridge(int lightCount, BridgeFirmware firmware, LightMix mix)
{
    const int number = int(m_bridges.size()) + 1;
    bridgeemu::EmulatorConfig config;
    config.identity.bridgeId = QStringLiteral("001788fffe%1").arg(0xbe0000 + number, 6, 16).toStdString();
    config.identity.name = "Bench bridge " + std::to_string(number);
    if (firmware == BridgeFirmware::Api1) {
        // Firmware from before CLIP v2: the service stays on API version 1 and polls.
        config.identity.swVersion = "1941132080";
        config.clipV2 = false;
    } else {
        // The emulator's current firmware. The service reaches CLIP v2 only over HTTPS on the
        // announced port and identifies the bridge over plain HTTP on it: one port for both.
        config.sharedPort = 0;
    }
    config.lights = benchLights(lightCount, number, mix);
    config.defaultGroups = false;
    config.autoLinkAfter = std::chrono::milliseconds(0);
    config.linkButtonWindow = std::chrono::milliseconds(-1);
    auto bridge = std::make_unique<bridgeemu::BridgeEmulator>(config);
    std::string error;
    if (!bridge->start(&error)) {
        m_error =
            QStringLiteral("bridge %1 does not start: %2").arg(number).arg(QString::fromStdString(error));
        return false;
    }
    const QString id = QString::fromStdString(bridge->bridgeId());
    const SystemService::Announcement announced = m_hub->system()->mdnsService(
        true, kHueServiceType, QStringLiteral("Philips Hue - %1").arg(id.right(6).toUpper()),
        QStringLiteral("hue-bench-%1.local").arg(number), QStringLiteral("127.0.0.1"),
        firmware == BridgeFirmware::Api1 ? bridge->httpPort() : bridge->sharedPort(),
        {QStringLiteral("bridgeid=") + id, QStringLiteral("modelid=BSB002")});
    m_bridges.push_back(std::move(bridge));
    if (!announced.ok || announced.subscribers == 0) {
        m_error =
            QStringLiteral("nobody heard the announcement of bridge %1 %2").arg(number).arg(announced.error);
        return false;
    }
    return true;
}

bool BenchSystem::pairBridges(int timeoutMs)
{
    std::vector<bool> paired(m_bridges.size(), false);
    const auto pairListed = [&] {
        bool all = true;
        for (std::size_t i = 0; i < m_bridges.size(); ++i) {
            if (paired[i])
                continue;
            const QString key =
                QStringLiteral("hueBridges/") + QString::fromStdString(m_bridges[i]->bridgeId());
            const auto state = m_hub->database()->configStore().entry(key);
            if (state && state->value == QLatin1String("new")) {
                m_hub->database()->store(key, QStringLiteral("pair"), true, QStringLiteral("bench"));
                paired[i] = true;
            } else {
                all = false;
            }
        }
        return all;
    };
    if (waitUntil(pairListed, timeoutMs))
        return true;
    m_error = QStringLiteral("the service did not list every bridge as new");
    return false;
}

int BenchSystem::deviceCount() const
{
    int count = 0;
    for (const RegisteredDevice* device : m_hub->communication()->registry().devices())
        count += isHueDevice(device) ? 1 : 0;
    return count;
}

bool BenchSystem::waitForDevices(int count, int timeoutMs)
{
    if (waitUntil([&] { return deviceCount() >= count; }, timeoutMs))
        return true;
    m_error = QStringLiteral("%1 of %2 lights registered at the hub").arg(deviceCount()).arg(count);
    return false;
}

bool BenchSystem::waitForClipV2(int timeoutMs)
{
    if (m_bridges.empty())
        return false;
    bridgeemu::BridgeEmulator& bridge = *m_bridges.front();
    // The record is only read once the stream is open: copying it every few ms would cost the
    // service CPU time.
    bool resources = false;
    bool stream = false;
    if (waitUntil([&] { return bridge.eventStreamCount() > 0; }, timeoutMs)) {
        for (const bridgeemu::RecordedRequest& request : bridge.requests()) {
            resources = resources || request.target.rfind("/clip/v2/resource", 0) == 0;
            stream = stream || (request.method == "GET" && request.target == "/eventstream/clip/v2");
        }
    }
    if (resources && stream)
        return true;
    m_error = QStringLiteral("the service did not move to CLIP v2 (resources read: %1, event stream: %2)")
                  .arg(resources ? "yes" : "no", stream ? "open" : "never asked for");
    return false;
}

bool BenchSystem::waitForEventStreams(int timeoutMs)
{
    const auto open = [&] {
        return std::all_of(m_bridges.begin(), m_bridges.end(),
                           [](const auto& bridge) { return bridge->eventStreamCount() > 0; });
    };
    if (waitUntil(open, timeoutMs))
        return true;
    m_error = QStringLiteral("not every bridge has an event stream open");
    return false;
}

QString BenchSystem::outputId(const InternalId& device, const QString& name) const
{
    const RegisteredDevice* registered = m_hub->communication()->registry().device(device);
    QString error;
    const DataPointInfo* point =
        registered ? registered->description.resolve({DataPointInfo::Output}, name, &error) : nullptr;
    return point ? QString::fromLatin1(
                       datapointids::idFor(device, DataPointInfo::Output, point->index).toString())
                 : QString();
}

std::optional<InternalId> BenchSystem::deviceNamed(const QString& displayName) const
{
    for (const RegisteredDevice* device : m_hub->communication()->registry().devices()) {
        if (isHueDevice(device) && device->attributes.value(QStringLiteral("displayName")) == displayName)
            return device->id;
    }
    return std::nullopt;
}

std::vector<BenchLight> BenchSystem::dimmableLights(int count) const
{
    return dimmableLightsOf(0, count);
}

std::vector<BenchLight> BenchSystem::dimmableLightsOf(int index, int count) const
{
    std::vector<BenchLight> lights;
    if (index < 0 || index >= int(m_bridges.size()))
        return lights;
    bridgeemu::BridgeEmulator* bridge = m_bridges[std::size_t(index)].get();
    for (const std::string& id : bridge->lightIds()) {
        const auto light = bridge->light(id);
        if (!light || light->description.kind == bridgeemu::LightKind::OnOff)
            continue;
        const auto device = deviceNamed(QString::fromStdString(light->name));
        if (!device)
            return {};
        lights.push_back({bridge, id, bridge->v2LightId(id), *device});
        if (int(lights.size()) == count)
            break;
    }
    return lights;
}

void BenchSystem::stop()
{
    if (m_hub && m_service->isRunning()) {
        bool stopped = false;
        QObject::connect(m_hub.get(), &HubSimulator::finished, [&stopped] { stopped = true; });
        m_hub->shutdown();
        waitUntil([&] { return stopped; }, kStopLimitMs);
    }
    m_service->stop();
    m_hub.reset();
    for (auto& bridge : m_bridges)
        bridge->stop();
    m_bridges.clear();
}

} // namespace e2ebench
