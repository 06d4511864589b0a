#include "huesystem.h"

namespace e2e {

HueSystem::HueSystem() : m_hub(m_dir.path()), m_service(m_dir.path(), m_hub.socketDir())
{
    if (!qEnvironmentVariableIsEmpty("E2E_KEEP")) {
        m_dir.setAutoRemove(false);
        qInfo("e2e: programs, settings and logs in %s", qPrintable(m_dir.path()));
    }
}

HueSystem::~HueSystem()
{
    // The service first, so that it does not see the hub or its bridges go away.
    if (m_service.process().isRunning())
        m_service.interrupt();
    for (auto& bridge : m_bridges) {
        if (bridge->process().isRunning())
            bridge->interrupt();
    }
    if (m_hub.process().isRunning())
        m_hub.interrupt();
}

bool HueSystem::start()
{
    return m_dir.isValid() && m_hub.start() && m_service.start() && waitFor([&] {
               return m_hub.answeredStages() == QList<int>({0, 3, 1});
           });
}

EmulatorProcess* HueSystem::addBridge(const QStringList& options)
{
    auto bridge =
        std::make_unique<EmulatorProcess>(QStringLiteral("bridge%1").arg(m_bridges.size() + 1), m_dir.path());
    const QStringList api = options.contains("--api") ? QStringList() : QStringList{"--api", "v1"};
    if (!bridge->start(api + QStringList{"--verbose"} + options))
        return nullptr;
    m_bridges.push_back(std::move(bridge));
    return m_bridges.back().get();
}

bool HueSystem::announceByMdns(EmulatorProcess& bridge)
{
    const int port = bridge.sharedPort() > 0 ? bridge.sharedPort() : bridge.httpPort();
    const HubctlAnswer answer =
        m_hub.hubctl({"mdns", "announce", "Philips Hue - " + bridge.bridgeId().right(6), "127.0.0.1",
                      QString::number(port), "bridgeid=" + bridge.bridgeId().toLower(), "modelid=BSB002"});
    return answer.exitCode == 0 && answer.object()["subscribers"].toInt() == 1;
}

bool HueSystem::announceBySsdp(EmulatorProcess& bridge)
{
    const QString location = QStringLiteral("http://127.0.0.1:%1/description.xml").arg(bridge.httpPort());
    const QString usn = "uuid:2f402f80-da50-11e1-9b23-" + bridge.bridgeId().left(6).toLower() +
                        bridge.bridgeId().right(6).toLower() + "::upnp:rootdevice";
    const HubctlAnswer answer = m_hub.hubctl({"ssdp", "announce", location, usn, bridge.bridgeId()});
    return answer.exitCode == 0 && answer.object()["subscribers"].toInt() == 1;
}

bool HueSystem::pairWhenAsked(EmulatorProcess& bridge)
{
    // What the hub's app does when a person picks a bridge the service has listed as new: it
    // sets the bridge's state to "pair".
    const QString stateKey = "hueBridges/" + bridge.bridgeId().toLower();
    if (!waitFor([&] { return m_hub.hubctl({"config", "get", stateKey}).object()["value"] == "new"; })) {
        qWarning("the service never listed %s as a new bridge", qPrintable(bridge.bridgeId()));
        return false;
    }
    const int keys = bridge.userNames().size();
    if (m_hub.hubctl({"config", "set", stateKey, "pair"}).exitCode != 0)
        return false;
    // The bridge answers "link button not pressed" until the person presses it.
    if (!waitFor([&] { return !bridge.requests("POST", QRegularExpression("^/api/?$")).isEmpty(); })) {
        qWarning("the service never asked %s for a key", qPrintable(bridge.bridgeId()));
        return false;
    }
    return bridge.pressLinkButton() && waitFor([&] { return bridge.userNames().size() > keys; });
}

QJsonArray HueSystem::waitForDevices(int count, const QString& prefix)
{
    QJsonArray found;
    const bool arrived = waitFor([&] {
        found = QJsonArray();
        for (const QJsonValue& device : m_hub.devices()) {
            const QJsonObject object = device.toObject();
            if (object["id"].toString().startsWith(prefix) &&
                !object["attributes"].toObject()["displayName"].toString().isEmpty())
                found.append(object);
        }
        return found.size() >= count;
    });
    if (!arrived)
        qWarning("%d of %d devices %s... registered", int(found.size()), count, qPrintable(prefix));
    return arrived ? found : QJsonArray();
}

QString HueSystem::serialOf(const QJsonArray& devices, const QString& lightName)
{
    for (const QJsonValue& device : devices) {
        if (device["attributes"].toObject()["displayName"].toString() == lightName)
            return device["id"].toString();
    }
    return QString();
}

bool HueSystem::waitForOutput(const QString& serial, const QString& dataPoint, const QString& value)
{
    QString last;
    if (waitFor([&] {
            last = HubSimProcess::outputValue(m_hub.device(serial), dataPoint);
            return last == value;
        }))
        return true;
    qWarning("%s %s is \"%s\", not \"%s\"", qPrintable(serial), qPrintable(dataPoint), qPrintable(last),
             qPrintable(value));
    return false;
}

} // namespace e2e
