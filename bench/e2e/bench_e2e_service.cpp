// End-to-end figures of huecontroller: the service runs as a separate process, exactly as on the
// hub, against the simulated hub and emulated API version 1 bridges hosted in this process, all
// on local sockets and 127.0.0.1. It measures
//   - datapoint write -> the light's PUT arriving at the bridge (the 200 ms coalescing included),
//   - a wall-switch change at the bridge -> the new output value arriving at the hub (polling),
//   - resident memory with 1, 5 and 20 bridges of 50 lights, and CPU time over an idle period,
// and prints the command and a small table. With --api v2 it instead runs an event storm (every
// light of a bridge changed at once, over and over) through a CLIP v2 bridge, whose changes the
// service follows on the event stream, and the same storm through an API version 1 bridge that
// it polls, and prints both side by side. With --commands it instead measures how datapoint writes
// reach a bridge that takes 10 light changes a second (a burst, a paced stream, a dragged slider,
// an outage), through CLIP v2 and API v1 side by side. With --cost it takes the cost figures of
// one or two service binaries side by side: instructions per light change under callgrind, hub
// calls per change, event latency at 250 and 1000 events/s (also with detailed logging) and
// unique memory with 1, 5 and 20 bridges. Figures only; nothing here passes or fails.
//
// Run: bench_e2e_service [--quick] [--api v1|v2 | --commands | --cost [--runs N]] [--storm-seconds 30]
// [--storm-interval 200]
//                        [--bridges 1,5,20] [--idle-seconds 60] [--service PATH] [--keep]
#include "benchoptions.h"
#include "benchresults.h"
#include "benchsystem.h"
#include "commandcomparison.h"
#include "costmeasure.h"
#include "eventwait.h"
#include "latencyprobes.h"
#include "procstats.h"
#include "stormcomparison.h"

#include <common/logginginterface.h>

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>

#include <cstdio>

using namespace e2ebench;

namespace {

constexpr int kProbeLights = 2;
constexpr int kSettleMs = 1500; // after registration: the first values and attributes go out
constexpr int kFindLightsMs = 10000;

int registrationLimitMs(int bridges)
{
    return 30000 + 5000 * bridges;
}

void progress(const QString& text)
{
    std::fprintf(stderr, "bench_e2e_service: %s\n", qPrintable(text));
    std::fflush(stderr);
}

// The hub's own log lines (one per call it serves) would bury the table: they go to a file.
void logToFile(const QString& path)
{
    static QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Append))
        return;
    setLogSink([](int, const QByteArray& line) {
        file.write(line);
        file.write("\n");
    });
}

// Starts a system and brings `bridges` bridges into it; fills `figure` with the time until
// every light is registered and the service's memory at that moment.
bool bringUp(BenchSystem& system, int bridges, int lightsPerBridge, MemoryFigure* figure)
{
    figure->bridges = bridges;
    figure->lights = bridges * lightsPerBridge;
    if (!system.start()) {
        figure->error = system.lastError();
        return false;
    }
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < bridges; ++i) {
        if (!system.addBridge(lightsPerBridge)) {
            figure->error = system.lastError();
            return false;
        }
    }
    if (!system.pairBridges(registrationLimitMs(bridges)) ||
        !system.waitForDevices(figure->lights, registrationLimitMs(bridges))) {
        figure->error = system.lastError();
        return false;
    }
    figure->registeredAfterSeconds = double(clock.elapsed()) / 1000.0;
    figure->residentKiB = residentKiB(system.service().pid());
    figure->peakResidentKiB = peakResidentKiB(system.service().pid());
    return true;
}

// One bridge: memory, idle CPU, then the two latencies.
void measureOneBridge(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                      BenchResults* results)
{
    BenchSystem system(folder + QStringLiteral("/1-bridge"), options.servicePath, constDataDir);
    MemoryFigure figure;
    progress(QStringLiteral("1 bridge of %1 lights").arg(options.lightsPerBridge));
    const bool up = bringUp(system, 1, options.lightsPerBridge, &figure);
    if (options.bridgeCounts.contains(1))
        results->memory.push_back(figure);
    if (!up) {
        results->problems << figure.error;
        return;
    }

    pause(kSettleMs);
    progress(QStringLiteral("idle CPU over %1 s").arg(options.idleSeconds));
    const double before = cpuSeconds(system.service().pid());
    pause(options.idleSeconds * 1000);
    const double after = cpuSeconds(system.service().pid());
    results->idleSeconds = options.idleSeconds;
    if (before >= 0 && after >= 0)
        results->idleCpuSeconds = after - before;

    std::vector<BenchLight> lights;
    if (!waitUntil([&] { return int((lights = system.dimmableLights(kProbeLights)).size()) == kProbeLights; },
                   kFindLightsMs)) {
        results->problems << QStringLiteral("the service reported no names for the first lights");
        return;
    }
    progress(QStringLiteral("%1 datapoint writes").arg(options.writeSamples));
    results->writes = measureWriteToRequest(system, lights, options.writeSamples, options.writeSpacingMs);
    pause(kSettleMs);
    progress(QStringLiteral("%1 wall-switch changes").arg(options.switchSamples));
    results->switches = measureSwitchToHub(system, lights, options.switchSamples);
    if (!system.service().isRunning())
        results->problems << QStringLiteral("the service ended during the measurements");
}

void measureMemory(const BenchOptions& options, int bridges, const QString& folder,
                   const QString& constDataDir, BenchResults* results)
{
    progress(QStringLiteral("%1 bridges of %2 lights").arg(bridges).arg(options.lightsPerBridge));
    BenchSystem system(folder + QStringLiteral("/%1-bridges").arg(bridges), options.servicePath,
                       constDataDir);
    MemoryFigure figure;
    if (!bringUp(system, bridges, options.lightsPerBridge, &figure))
        results->problems << figure.error;
    results->memory.push_back(figure);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    BenchOptions options;
    QString message;
    int exitCode = 0;
    if (!parseBenchOptions(app.arguments(), &options, &message, &exitCode)) {
        std::fprintf(exitCode == 0 ? stdout : stderr, "%s\n", qPrintable(message));
        return exitCode;
    }
    for (const QString& path : options.servicePaths) {
        if (!QFile::exists(path)) {
            std::fprintf(stderr,
                         "no service binary at %s (build the target huecontroller, or use --service)\n",
                         qPrintable(path));
            return 1;
        }
    }

    QTemporaryDir folder(QDir::tempPath() + QStringLiteral("/hue-e2ebench-XXXXXX"));
    if (!folder.isValid()) {
        std::fprintf(stderr, "cannot create a temporary folder\n");
        return 1;
    }
    folder.setAutoRemove(!options.keepFolder);
    logToFile(folder.path() + QStringLiteral("/driver.log"));
    if (options.keepFolder)
        progress(QStringLiteral("settings, sockets and logs in %1").arg(folder.path()));

    const QString constDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
    if (options.cost) {
        CostReport report;
        report.command = app.arguments().join(QLatin1Char(' '));
        measureCost(options, folder.path(), constDataDir, &report);
        std::fputs(qPrintable(formatCostReport(report)), stdout);
        return report.problems.isEmpty() ? 0 : 1;
    }
    if (options.commands) {
        CommandComparison comparison;
        comparison.command = app.arguments().join(QLatin1Char(' '));
        comparison.service = options.servicePath;
        measureCommandDelivery(options, folder.path(), constDataDir, &comparison);
        std::fputs(qPrintable(formatCommandComparison(comparison)), stdout);
        return comparison.problems.isEmpty() ? 0 : 1;
    }
    if (options.api == BenchApi::V2) {
        StormComparison comparison;
        comparison.command = app.arguments().join(QLatin1Char(' '));
        comparison.service = options.servicePath;
        measureEventStorms(options, folder.path(), constDataDir, &comparison);
        std::fputs(qPrintable(formatStormComparison(comparison)), stdout);
        return comparison.problems.isEmpty() ? 0 : 1;
    }

    BenchResults results;
    results.command = app.arguments().join(QLatin1Char(' '));
    results.service = options.servicePath;
    results.lightsPerBridge = options.lightsPerBridge;
    results.writeSpacingMs = options.writeSpacingMs;

    measureOneBridge(options, folder.path(), constDataDir, &results);
    for (int bridges : options.bridgeCounts) {
        if (bridges != 1)
            measureMemory(options, bridges, folder.path(), constDataDir, &results);
    }

    std::fputs(qPrintable(formatResults(results)), stdout);
    return results.problems.isEmpty() ? 0 : 1;
}
