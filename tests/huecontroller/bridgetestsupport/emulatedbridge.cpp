#include "emulatedbridge.h"

#include "huecontroller/hue_globals.h"

#include <QNetworkReply>
#include <QTest>

namespace {

bridgeemu::EmulatorConfig withFirmware(bridgeemu::EmulatorConfig config, EmulatedBridge::Firmware firmware)
{
    if (firmware == EmulatedBridge::Firmware::ApiVersion1) {
        config.clipV2 = false;
        config.identity.swVersion = "1941132080";
    }
    return config;
}

} // namespace

EmulatedBridge::EmulatedBridge(bridgeemu::EmulatorConfig config, Firmware firmware)
    : m_emulator(withFirmware(std::move(config), firmware))
{
    ConstDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
    m_controller.loadLightSpecs();
    m_started = m_emulator.start();
    QObject::connect(
        &m_nam, &QNetworkAccessManager::sslErrors, &m_nam,
        [](QNetworkReply* reply, const QList<QSslError>& errors) { reply->ignoreSslErrors(errors); });
}

std::unique_ptr<hue::CBridge> EmulatedBridge::makeBridge(int port, const QString& userName)
{
    return std::make_unique<hue::CBridge>(&m_nam, bridgeId(), QStringLiteral("127.0.0.1"), port, 1, userName);
}

std::unique_ptr<hue::CBridge> EmulatedBridge::makePairedBridge()
{
    auto bridge = makeBridge(m_emulator.httpsPort(), QString::fromStdString(m_emulator.addUser()));
    bridge->checkUsernameRegistered(true);
    if (!QTest::qWaitFor([&] { return bridge->userNameState() == hue::CBridge::USERNAME_REGISTERED; }, 5000))
        return nullptr;
    return pollOnce(*bridge) ? std::move(bridge) : nullptr;
}

bool EmulatedBridge::pollOnce(hue::CBridge& bridge)
{
    // Polling waits 500 ms after the last request; the clock skips that wait.
    hue::Clock::advance(600);
    bridge.pollNextItem();
    if (!bridge.currentPollReply())
        return false;
    return QTest::qWaitFor([&] { return !bridge.currentPollReply(); }, 5000);
}

std::vector<bridgeemu::RecordedRequest> EmulatedBridge::requests(const std::string& method,
                                                                 const std::string& prefix) const
{
    std::vector<bridgeemu::RecordedRequest> matching;
    for (const auto& request : m_emulator.requests()) {
        if (request.method == method && request.target.compare(0, prefix.size(), prefix) == 0)
            matching.push_back(request);
    }
    return matching;
}
