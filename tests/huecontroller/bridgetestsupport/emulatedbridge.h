#pragma once

#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_controller.h"

#include <bridgeemulator.h>

#include <QNetworkAccessManager>

#include <memory>

// A Hue bridge emulator on loopback, the controller (for the light descriptions and the
// persisted bridge state) and a network access manager that accepts the emulator's self-signed
// certificate. Trust on first use and pinning belong to the controller and are not tested here.
class EmulatedBridge
{
public:
    // A bridge of firmware before CLIP v2 keeps the service on API version 1; one with CLIP v2
    // makes it switch to version 2 once paired over https.
    enum class Firmware
    {
        ApiVersion1,
        ClipV2,
    };

    explicit EmulatedBridge(bridgeemu::EmulatorConfig config = {}, Firmware firmware = Firmware::ApiVersion1);

    bool isRunning() const { return m_started; }
    bridgeemu::BridgeEmulator& emulator() { return m_emulator; }
    QNetworkAccessManager& nam() { return m_nam; }
    QByteArray bridgeId() const { return QByteArray::fromStdString(m_emulator.bridgeId()); }

    // A bridge object for the emulator's https or plain http port.
    std::unique_ptr<hue::CBridge> makeBridge(int port, const QString& userName = QString());
    // A bridge over https with a whitelisted key, checked (user-name state 7) and polled once.
    std::unique_ptr<hue::CBridge> makePairedBridge();
    // One poll, waited for; false when it does not end within the wait.
    static bool pollOnce(hue::CBridge& bridge);
    // Requests of the given method and path prefix the emulator recorded, oldest first.
    std::vector<bridgeemu::RecordedRequest> requests(const std::string& method,
                                                     const std::string& prefix) const;

private:
    hue::CController m_controller;
    bridgeemu::BridgeEmulator m_emulator;
    QNetworkAccessManager m_nam;
    bool m_started = false;
};
