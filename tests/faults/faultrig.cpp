#include "faultrig.h"

#include "procstats.h"

#include <QDir>
#include <QTest>

#include <cmath>

namespace faults {

namespace {

// Five lights, every kind the service tells apart by its datapoints.
const QString kLights = QStringLiteral("extended:1,ct:1,dimmable:2,onoff:1");

int lineCount(const e2e::ManagedProcess& process, const char* pattern)
{
    return process.errorLines(QRegularExpression(QLatin1String(pattern))).size();
}

} // namespace

EmulatorFeatures EmulatorFeatures::probe()
{
    QProcess help;
    help.start(QStringLiteral(BRIDGE_EMULATOR_EXECUTABLE), {"--help"});
    help.waitForFinished(e2e::kWaitMs);
    const QByteArray text = help.readAllStandardOutput() + help.readAllStandardError();
    EmulatorFeatures features;
    features.stateDir = text.contains("--state-dir");
    features.flood = text.contains("eventstream/flood");
    features.endless = text.contains("eventstream/endless");
    return features;
}

bool poll(const std::function<bool()>& condition, int timeoutMs, int intervalMs)
{
    QElapsedTimer timer;
    timer.start();
    for (;;) {
        if (condition())
            return true;
        if (timer.elapsed() >= timeoutMs)
            return false;
        QTest::qWait(intervalMs);
    }
}

void hold(int ms)
{
    QTest::qWait(ms);
}

int openFds(qint64 pid)
{
    const QDir dir(QStringLiteral("/proc/%1/fd").arg(pid));
    if (pid <= 0 || !dir.exists())
        return -1;
    return dir.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

Rig::Rig(bool clipV2, bool longMode, const EmulatorFeatures& features)
    : m_clipV2(clipV2), m_longMode(longMode), m_features(features)
{
}

bool Rig::setUp()
{
    // Detail off: a flooded stream must not turn into a flooded log.
    service().setSetting("logging/debug", "0");
    if (!m_system.start())
        return false;
    QStringList options{"--lights", kLights, "--no-groups"};
    if (m_clipV2)
        options = QStringList{"--api", "v2", "--shared-port"} + options;
    if (m_features.stateDir)
        options << "--state-dir" << m_system.dir() + "/bridge-state";
    m_bridge = m_system.addBridge(options);
    if (!m_bridge || !m_system.announceByMdns(*m_bridge) || !m_system.pairWhenAsked(*m_bridge))
        return false;
    // Its identity and ports, so that a restarted bridge is the same one.
    m_bridgeOptions = options + QStringList{"--bridge-id",  m_bridge->bridgeId(),
                                            "--https-port", QString::number(m_bridge->httpsPort()),
                                            "--http-port",  QString::number(m_bridge->httpPort())};
    if (m_clipV2) {
        m_bridgeOptions.removeAll("--shared-port");
        m_bridgeOptions << QStringLiteral("--shared-port=%1").arg(m_bridge->sharedPort());
        if (!service().waitForLogMessage(QRegularExpression("switches to API version 2")))
            return false;
    }
    const QJsonArray devices = m_system.waitForDevices(5);
    if (devices.isEmpty())
        return false;
    for (const QJsonValue& light : m_bridge->lights()) {
        const bool onOff = !light["state"].toObject().contains("bri");
        m_lights.append({light["id"].toString(), onOff ? "onoff" : "dimmable",
                         e2e::HueSystem::serialOf(devices, light["name"].toString())});
        if (m_lights.last().serial.isEmpty())
            return false;
        // Every light on, so that a brightness write is all a light needs.
        m_bridge->setLight(m_lights.last().id, {{"on", true}, {"bri", 254}});
    }
    for (const Light& light : m_lights) {
        if (!m_system.waitForOutput(light.serial, "Switch status", "1"))
            return false;
    }
    return waitForEventStream();
}

bool Rig::waitForEventStream()
{
    if (!m_clipV2)
        return true;
    return poll([&] { return m_bridge->control("GET", "/emulator/eventstream")["connections"].toInt() > 0; },
                e2e::kWaitMs) &&
           m_bridge->control("POST", "/emulator/eventstream/retry", R"({"ms":200})")["ok"].toBool();
}

Row Rig::begin(const QString& scenario)
{
    Row row;
    row.scenario = scenario;
    row.api = m_clipV2 ? "v2" : "v1";
    row.lights = m_lights.size();
    const qint64 pid = service().process().pid();
    row.rssBefore = e2ebench::residentKiB(pid);
    row.fdsBefore = openFds(pid);
    const e2e::ManagedProcess& log = service().process();
    m_warningsBefore = lineCount(log, "^WW ");
    m_errorsBefore = lineCount(log, "^EE ");
    m_alarmsBefore = service().alarmingLines().size();
    m_aliveBefore = serviceAlive();
    m_shownBefore = m_bridge->control("GET", "/emulator/lights");
    return row;
}

void Rig::writeFinal()
{
    ++m_round;
    for (int i = 0; i < m_lights.size(); ++i) {
        const Light& light = m_lights[i];
        // Never the value the bridge showed before the fault (a lost write must not pass for a
        // final one): on/off flips, brightness steps by 17 % a round, and 40 % further (within
        // 10..89) when that lands too close.
        const bool onOff = light.kind == "onoff";
        const QJsonObject shown = m_shownBefore[light.id].toObject()["state"].toObject();
        int value = onOff ? (shown["on"].toBool() ? 0 : 1) : 10 + (m_round * 17 + i * 13) % 80;
        if (!onOff && std::abs(shown["bri"].toInt() - value * 254.0 / 100.0) <= 8.0)
            value = 10 + (value - 10 + 40) % 80;
        m_final[light.id] = value;
        if (!serviceAlive())
            continue; // nobody would confirm: the light counts as lost
        hub().hubctl({"write", "--timeout", "3000", "--", light.serial, onOff ? "Switch" : "Brightness",
                      QString::number(value)});
    }
}

bool Rig::isFinal(const QJsonObject& light, int index) const
{
    const Light& mine = m_lights[index];
    const QJsonObject state = light["state"].toObject();
    const int value = m_final.value(mine.id, -1);
    if (mine.kind == "onoff")
        return state["on"].toBool() == (value == 1);
    // The hub's 0..100 % on the bridge's 1..254, rounded either way by the API in use.
    return state["on"].toBool() && std::abs(state["bri"].toInt() - value * 254.0 / 100.0) <= 3.0;
}

int Rig::lightsInFinalState()
{
    const QJsonObject all = m_bridge->control("GET", "/emulator/lights");
    int count = 0;
    for (int i = 0; i < m_lights.size(); ++i)
        count += isFinal(all[m_lights[i].id].toObject(), i) ? 1 : 0;
    return count;
}

void Rig::finish(Row& row, const QElapsedTimer& faultEnd)
{
    // Every light is polled each second (v1) or hears its change at once (v2): 20 s is ample.
    const int bound = duration(20000, 60000);
    int final = 0;
    // A dead service recovers nothing: one look is enough.
    poll([&] { return (final = lightsInFinalState()) == m_lights.size() || !serviceAlive(); },
         qMax<qint64>(0, bound - faultEnd.elapsed()));
    row.finalLights = final;
    row.lost = m_lights.size() - final;
    row.recoverMs = row.lost == 0 ? faultEnd.elapsed() : -1;

    const e2e::ManagedProcess& log = service().process();
    row.warnings = lineCount(log, "^WW ") - m_warningsBefore;
    row.errors = lineCount(log, "^EE ") - m_errorsBefore;
    const QStringList alarms = service().alarmingLines().mid(m_alarmsBefore);
    row.crash = (m_aliveBefore && !serviceAlive()) || !alarms.isEmpty();
    if (!alarms.isEmpty())
        row.notes << "alarm: " + alarms.first().left(120);
    if (serviceAlive()) {
        const qint64 pid = service().process().pid();
        row.rssAfter = e2ebench::residentKiB(pid);
        row.fdsAfter = openFds(pid);
    } else {
        row.notes << QStringLiteral("service ended (%1, exit code %2)")
                         .arg(log.exitStatus() == QProcess::CrashExit ? "crashed" : "exited")
                         .arg(log.exitCode());
    }
}

bool Rig::replaceBridge()
{
    e2e::EmulatorProcess* bridge = m_system.addBridge(m_bridgeOptions);
    if (!bridge)
        return false;
    m_bridge = bridge;
    return true;
}

bool Rig::waitForRegistration(int timeoutMs)
{
    const bool staged = poll(
        [&] {
            return !serviceAlive() || hub().answeredStages() == QList<int>({0, 3, 1});
        },
        timeoutMs, 300);
    return staged &&
           poll(
               [&] {
                   if (!serviceAlive())
                       return true;
                   for (const Light& light : m_lights) {
                       if (e2e::HubSimProcess::outputValue(hub().device(light.serial), "Switch status")
                               .isEmpty())
                           return false;
                   }
                   return true;
               },
               timeoutMs, 300) &&
           serviceAlive();
}

bool Rig::reviveService()
{
    if (serviceAlive())
        return true;
    return service().start() && waitForRegistration(e2e::kWaitMs) && waitForEventStream();
}

} // namespace faults
