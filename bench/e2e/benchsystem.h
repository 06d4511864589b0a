#pragma once

#include "serviceundertest.h"

#include <bridgeemulator.h>

#include <kovacommon/internalid.h>

#include <QString>

#include <memory>
#include <optional>
#include <vector>

class HubSimulator;

namespace e2ebench {

// One emulated light as both sides know it: the bridge's light id and the hub's device serial.
struct BenchLight
{
    bridgeemu::BridgeEmulator* bridge = nullptr;
    std::string lightId;
    std::string v2LightId; // the CLIP v2 id of its light resource
    InternalId device;
};

// Whether a request of the bridge's record is a change of `light`: v1 PUT lights/<id>/state or
// v2 PUT light/<id>.
bool isChangeOf(const bridgeemu::RecordedRequest& request, const BenchLight& light);

// What the emulated bridge runs: firmware from before CLIP v2 (the service polls API version 1),
// or current firmware announced on its port for both schemes (the service moves to CLIP v2).
enum class BridgeFirmware
{
    Api1,
    ClipV2
};

// Which lights a bridge has: a household's mix of every kind, or only kinds with a brightness.
enum class LightMix
{
    Household,
    Dimmable
};

// Everything one measurement runs against, in a temporary folder: the simulated hub in this
// process (supervising the service), emulated bridges in this process, and huecontroller as a
// child process. `folder` (a new one for every system: the service must not find the hub
// database of an earlier system) holds the sockets, the hub's database and the service's
// settings, data and output.
class BenchSystem
{
public:
    BenchSystem(const QString& folder, const QString& servicePath, const QString& constDataDir);
    ~BenchSystem();
    BenchSystem(const BenchSystem&) = delete;
    BenchSystem& operator=(const BenchSystem&) = delete;

    QString folder() const { return m_dir; }
    QString lastError() const { return m_error; }

    // How long start() waits for the run stages and the mDNS watch (30 s; a service run under
    // valgrind needs longer).
    void setStartLimitMs(int ms) { m_startLimitMs = ms; }
    // Starts the hub, then the service; true once the service has answered the run stages 0, 3
    // and 1 and watches for bridges by mDNS.
    bool start();
    // Starts an emulated bridge with `lightCount` lights (colour lights first) that pairs at
    // once, and announces it by mDNS.
    bool addBridge(int lightCount, BridgeFirmware firmware = BridgeFirmware::Api1,
                   LightMix mix = LightMix::Household);
    // Does what the hub's app does when a person picks a bridge that the service has listed as
    // new: sets its state to "pair" (the bridges press their link buttons by themselves). Waits
    // until every bridge has been listed; false after `timeoutMs`.
    bool pairBridges(int timeoutMs);
    // Waits until the hub knows `count` Hue devices; false after `timeoutMs`.
    bool waitForDevices(int count, int timeoutMs);
    int deviceCount() const;
    // Waits until the service reads the first bridge's CLIP v2 resources and holds its event
    // stream open, as the bridge's request record shows; false after `timeoutMs`.
    bool waitForClipV2(int timeoutMs);
    // Waits until every bridge has an event stream open; false after `timeoutMs`.
    bool waitForEventStreams(int timeoutMs);
    // The hub identifier of a device's output datapoint `name`; empty when it has none.
    QString outputId(const InternalId& device, const QString& name) const;
    // The first dimmable lights of the first bridge, with the serials the service gave them
    // (found by the name it reports); empty when not all of them are registered yet.
    std::vector<BenchLight> dimmableLights(int count) const;
    // The same of bridge `index` (0: the first one added).
    std::vector<BenchLight> dimmableLightsOf(int index, int count) const;
    int bridgeCount() const { return int(m_bridges.size()); }
    bridgeemu::BridgeEmulator& bridge(int index) { return *m_bridges[std::size_t(index)]; }
    // Ends the service as the hub does (stage 2, then SIGINT) and stops the bridges.
    void stop();

    HubSimulator& hub() { return *m_hub; }
    ServiceUnderTest& service() { return *m_service; }

private:
    std::optional<InternalId> deviceNamed(const QString& displayName) const;

    QString m_dir;
    QString m_socketDir;
    QString m_error;
    int m_startLimitMs = 30000;
    std::unique_ptr<HubSimulator> m_hub;
    std::unique_ptr<ServiceUnderTest> m_service;
    std::vector<std::unique_ptr<bridgeemu::BridgeEmulator>> m_bridges;
};

} // namespace e2ebench
