#pragma once

#include "huesystem.h"

#include <QElapsedTimer>

#include <functional>
#include <memory>

namespace faults {

// What the emulator in this build can do beyond the basics (read from its --help).
struct EmulatorFeatures
{
    bool stateDir = false;
    bool flood = false;
    bool endless = false;

    static EmulatorFeatures probe();
};

// One line of the result table.
struct Row
{
    QString scenario;
    QString api;
    int lights = 0;
    int finalLights = 0;
    int lost = 0;
    qint64 recoverMs = -1; // -1: never recovered within the bound
    int warnings = 0;
    int errors = 0;
    bool crash = false;
    qint64 rssBefore = -1;
    qint64 rssAfter = -1;
    int fdsBefore = -1;
    int fdsAfter = -1;
    QStringList notes;
    bool skipped = false;
    bool failed = false; // a check beyond lost commands and crashes did not hold

    static Row skip(Row row, const QString& why)
    {
        row.skipped = true;
        row.notes << "skipped: " + why;
        return row;
    }
};

// The rows as one Markdown table.
QString markdownTable(const QList<Row>& rows);

// Runs the event loop, checking `condition` every `intervalMs`, until it holds or `timeoutMs`
// have passed.
bool poll(const std::function<bool()>& condition, int timeoutMs, int intervalMs = 200);
// Runs the event loop for `ms`: the length of a fault, not a wait for something.
void hold(int ms);
int openFds(qint64 pid);

// One hub, one service and one emulated bridge paired on one API, with the measurements every
// scenario takes: the service's figures before and after, the final values written through
// the hub and the wait until the bridge shows them.
class Rig
{
public:
    Rig(bool clipV2, bool longMode, const EmulatorFeatures& features);

    bool setUp();
    bool clipV2() const { return m_clipV2; }
    bool longMode() const { return m_longMode; }
    const EmulatorFeatures& features() const { return m_features; }
    e2e::HueSystem& system() { return m_system; }
    e2e::HubSimProcess& hub() { return m_system.hub(); }
    e2e::ServiceProcess& service() { return m_system.service(); }
    e2e::EmulatorProcess& bridge() { return *m_bridge; }
    bool serviceAlive() { return service().process().isRunning(); }
    // Short or long duration of a fault, by mode.
    int duration(int shortMs, int longMs) const { return m_longMode ? longMs : shortMs; }

    // The service's figures now; the row's scenario and api.
    Row begin(const QString& scenario);
    // Writes a value to every light through the hub that differs from the one before.
    void writeFinal();
    // Waits (bounded) until the bridge shows every final value and fills in the rest of the
    // row; the recovery time counts from `faultEnd`.
    void finish(Row& row, const QElapsedTimer& faultEnd);
    // How many lights show their final value on the bridge now.
    int lightsInFinalState();

    // The bridge was killed and another one takes its place (same identity and ports).
    bool replaceBridge();
    // The options the bridge was started with, its ports and identity included.
    QStringList bridgeOptions() const { return m_bridgeOptions; }
    // Waits until the service has its event stream open (v2) and asks for quick reopening.
    bool waitForEventStream();
    // Waits until the hub's supervisor has had stages 0, 3, 1 answered and every light is
    // registered with its output values; false at once when the service has died.
    bool waitForRegistration(int timeoutMs);
    // Starts the service again after it died, so that later scenarios have one.
    bool reviveService();
    // Light kinds and serials, in the bridge's order.
    struct Light
    {
        QString id;
        QString kind;
        QString serial;
    };
    const QList<Light>& lights() const { return m_lights; }

private:
    bool isFinal(const QJsonObject& light, int index) const;

    bool m_clipV2;
    bool m_longMode;
    EmulatorFeatures m_features;
    e2e::HueSystem m_system;
    e2e::EmulatorProcess* m_bridge = nullptr;
    QStringList m_bridgeOptions;
    QList<Light> m_lights;
    int m_round = 0;
    QMap<QString, int> m_final; // emulator light id -> value written
    QJsonObject m_shownBefore;  // the bridge's lights when the scenario began
    int m_logLines = 0;
    int m_warningsBefore = 0;
    int m_errorsBefore = 0;
    int m_alarmsBefore = 0;
    bool m_aliveBefore = false;
};

} // namespace faults
