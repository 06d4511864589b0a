#pragma once

#include "emulatorprocess.h"
#include "hubsimprocess.h"
#include "serviceprocess.h"

#include <QTemporaryDir>

#include <memory>
#include <vector>

namespace e2e {

// The three programs together in one temporary folder: hubsim supervising the service, and
// emulated bridges. The folder (sockets, settings, databases, every log) is kept when
// E2E_KEEP is set, so a failure can be read afterwards.
class HueSystem
{
public:
    HueSystem();
    ~HueSystem();

    QString dir() const { return m_dir.path(); }
    HubSimProcess& hub() { return m_hub; }
    ServiceProcess& service() { return m_service; }

    // hubsim, then the service; true once the supervisor has had stages 0, 3 and 1 answered.
    bool start();
    // A bridge emulator with these options (API v1 unless they name an --api); null when it
    // does not come up.
    EmulatorProcess* addBridge(const QStringList& options);

    // The bridge as the hub's mDNS browser would report it (address 127.0.0.1, its shared port
    // when it has one, else its http port).
    bool announceByMdns(EmulatorProcess& bridge);
    // The bridge as the hub's SSDP service would report it (its UPnP description document).
    bool announceBySsdp(EmulatorProcess& bridge);
    // Asks the service to pair with the bridge, as the hub's app does, and presses the link
    // button once the service has asked the bridge for a key; true when the bridge has given it
    // a new key.
    bool pairWhenAsked(EmulatorProcess& bridge);

    // The registered devices whose serial starts with `prefix`, once there are `count` of them
    // with their attributes (an empty array when they do not all arrive).
    QJsonArray waitForDevices(int count, const QString& prefix = QStringLiteral("BEED"));
    // The serial of the device whose "displayName" attribute is `lightName`.
    static QString serialOf(const QJsonArray& devices, const QString& lightName);
    // Waits until the named output datapoint of the device shows `value`.
    bool waitForOutput(const QString& serial, const QString& dataPoint, const QString& value);

private:
    QTemporaryDir m_dir;
    HubSimProcess m_hub;
    ServiceProcess m_service;
    std::vector<std::unique_ptr<EmulatorProcess>> m_bridges;
};

} // namespace e2e
