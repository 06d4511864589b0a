#include "eventstorm.h"

#include "eventwait.h"
#include "procstats.h"
#include "stormrecord.h"

#include <hubeventlog.h>
#include <hubsimulator.h>

#include <QHash>
#include <QObject>

#include <algorithm>
#include <cmath>

namespace e2ebench {

namespace {

constexpr int kLevels[] = {15, 25, 35, 45, 55, 65, 75, 85}; // percent
constexpr int kPrimeLevel = 95;
constexpr int kPrimeLimitMs = 5000; // a few v1 poll periods
// Long enough for the last round to show under v1 polling (one poll period of 1000 ms) and for
// values still queued under a storm the service cannot keep up with.
constexpr int kDrainLimitMs = 3000;
constexpr int kMemorySampleMs = 500;

int briForPercent(int percent)
{
    return std::clamp(int(std::lround(percent * 254 / 100.0)), 1, 254);
}

// Sets every light to `percent`, each change stamped just before it is made.
void changeAll(const std::vector<BenchLight>& lights, int percent, StormRecord& record)
{
    bridgeemu::LightChange change;
    change.on = true;
    change.bri = briForPercent(percent);
    for (std::size_t i = 0; i < lights.size(); ++i) {
        record.noteChange(int(i), percent, std::chrono::steady_clock::now());
        lights[i].bridge->setLightState(lights[i].lightId, change);
    }
}

} // namespace

StormFigures runEventStorm(BenchSystem& system, const std::vector<BenchLight>& lights, int seconds,
                           int intervalMs)
{
    StormFigures figures;
    figures.lights = int(lights.size());
    figures.seconds = seconds;
    figures.intervalMs = intervalMs;
    QHash<QString, int> lightOfOutput;
    for (std::size_t i = 0; i < lights.size(); ++i) {
        const QString id = system.outputId(lights[i].device, QStringLiteral("Brightness status"));
        if (id.isEmpty()) {
            figures.error = QStringLiteral("light %1 has no brightness output").arg(i + 1);
            return figures;
        }
        lightOfOutput.insert(id, int(i));
    }

    StormRecord primer(int(lights.size()));
    StormRecord storm(int(lights.size()));
    StormRecord* current = &primer;
    QObject context;
    QObject::connect(system.hub().events(), &HubEventLog::posted, &context, [&](const QVariantMap& event) {
        if (event.value(QStringLiteral("kind")) != QLatin1String("sendDataPoint"))
            return;
        const auto light = lightOfOutput.constFind(event.value(QStringLiteral("id")).toString());
        if (light != lightOfOutput.constEnd())
            current->noteOutput(*light, event.value(QStringLiteral("value")).toDouble(),
                                std::chrono::steady_clock::now());
    });

    changeAll(lights, kPrimeLevel, primer);
    waitUntil([&] { return primer.unanswered() == 0; }, kPrimeLimitMs);
    current = &storm;

    const qint64 pid = system.service().pid();
    figures.residentBeforeKiB = residentKiB(pid);
    figures.residentMaxKiB = figures.residentBeforeKiB;
    const double cpuBefore = cpuSeconds(pid);
    const double runBefore = runSeconds(pid);
    const SteadyTime start = std::chrono::steady_clock::now();
    const SteadyTime end = start + std::chrono::seconds(seconds);
    SteadyTime nextSample = start + std::chrono::milliseconds(kMemorySampleMs);
    for (SteadyTime round = start; round < end; round += std::chrono::milliseconds(intervalMs)) {
        const auto wait =
            std::chrono::duration_cast<std::chrono::milliseconds>(round - std::chrono::steady_clock::now());
        pause(int(wait.count()));
        changeAll(lights, kLevels[figures.rounds % int(std::size(kLevels))], storm);
        ++figures.rounds;
        if (std::chrono::steady_clock::now() >= nextSample) {
            figures.residentMaxKiB = std::max(figures.residentMaxKiB, residentKiB(pid));
            nextSample += std::chrono::milliseconds(kMemorySampleMs);
        }
    }
    pause(int(std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                  .count()));
    const double cpuAfter = cpuSeconds(pid);
    const double runAfter = runSeconds(pid);
    figures.residentMaxKiB = std::max(figures.residentMaxKiB, residentKiB(pid));
    figures.peakResidentKiB = peakResidentKiB(pid);
    if (cpuBefore >= 0 && cpuAfter >= 0)
        figures.cpuSeconds = cpuAfter - cpuBefore;
    if (runBefore >= 0 && runAfter >= 0)
        figures.runSeconds = runAfter - runBefore;

    waitUntil([&] { return storm.unanswered() == 0; }, kDrainLimitMs);
    figures.changes = storm.changes();
    figures.outputs = storm.outputsBetween(start, end);
    figures.outputsPerSecond = double(figures.outputs) / double(seconds);
    figures.delivered = storm.delivered();
    figures.superseded = storm.superseded();
    figures.unanswered = storm.unanswered();
    figures.latenciesMs = storm.latenciesMs();
    if (!system.service().isRunning())
        figures.error = QStringLiteral("the service ended during the storm");
    return figures;
}

} // namespace e2ebench
