#include "costmeasure.h"

#include "eventwait.h"

#include <cstdio>
#include <functional>
#include <utility>

namespace e2ebench {

namespace {

constexpr int kLightsPerBridge = 50;
constexpr int kSettleMs = 1500; // after registration: the first values and attributes go out
constexpr int kRunGapMs = 1000; // between two storms of one figure
constexpr int kCallgrindIntervalMs = 1000;
constexpr int kMappingsShown = 12;
constexpr int kMappingsBridges = 5;

int registrationLimitMs(int bridges)
{
    return 30000 + 5000 * bridges;
}

void progress(const QString& text)
{
    std::fprintf(stderr, "bench_e2e_service: %s\n", qPrintable(text));
    std::fflush(stderr);
}

QString apiName(BridgeFirmware firmware)
{
    return firmware == BridgeFirmware::ClipV2 ? QStringLiteral("v2") : QStringLiteral("v1");
}

// A fresh system with `bridges` bridges, every light registered (and under CLIP v2 every event
// stream open).
bool bringUp(BenchSystem& system, BridgeFirmware firmware, int bridges, LightMix mix, QString* error)
{
    system.service().setForceApi1(firmware == BridgeFirmware::Api1);
    bool up = system.start();
    for (int i = 0; up && i < bridges; ++i)
        up = system.addBridge(kLightsPerBridge, firmware, mix);
    up = up && system.pairBridges(registrationLimitMs(bridges)) &&
         system.waitForDevices(bridges * kLightsPerBridge, registrationLimitMs(bridges)) &&
         (firmware == BridgeFirmware::Api1 || system.waitForEventStreams(registrationLimitMs(bridges)));
    if (!up)
        *error = system.lastError();
    return up;
}

void measureLatency(const QString& servicePath, const QString& folder, const QString& constDataDir,
                    BridgeFirmware firmware, int runs, int seconds, LatencyFigure* figure)
{
    progress(QStringLiteral("%1: %2 x %3 lights, a round every %4 ms%5, %6 storm(s) of %7 s (%8)")
                 .arg(apiName(firmware))
                 .arg(figure->bridges)
                 .arg(figure->lightsPerBridge)
                 .arg(figure->intervalMs)
                 .arg(figure->detailedLogging ? QStringLiteral(", detailed logging") : QString())
                 .arg(runs)
                 .arg(seconds)
                 .arg(servicePath));
    figure->seconds = seconds;
    BenchSystem system(folder, servicePath, constDataDir);
    system.service().setDetailedLogging(figure->detailedLogging);
    if (!bringUp(system, firmware, figure->bridges, LightMix::Dimmable, &figure->error))
        return;
    std::vector<BenchLight> lights;
    const auto named = [&] {
        lights.clear();
        for (int i = 0; i < figure->bridges; ++i) {
            const std::vector<BenchLight> ofBridge = system.dimmableLightsOf(i, kLightsPerBridge);
            if (int(ofBridge.size()) != kLightsPerBridge)
                return false;
            lights.insert(lights.end(), ofBridge.begin(), ofBridge.end());
        }
        return true;
    };
    if (!waitUntil(named, registrationLimitMs(figure->bridges))) {
        figure->error = QStringLiteral("the service reported no names for some lights");
        return;
    }
    pause(kSettleMs);
    CostStormShape shape;
    shape.seconds = seconds;
    shape.intervalMs = figure->intervalMs;
    // Under API v1 the service may take turns among its bridges: a change can wait for several
    // poll periods.
    shape.drainLimitMs = firmware == BridgeFirmware::Api1 ? 7000 : 3000;
    // A service that fell behind in the storm before gets this long to answer the priming.
    shape.primeLimitMs = 20000;
    for (int run = 0; run < runs; ++run) {
        CostStormRun result = runCostStorm(system, lights, shape);
        if (!result.error.isEmpty()) {
            // The runs so far stand; the figure says after how many it ended.
            figure->error = QStringLiteral("run %1 of %2: %3").arg(run + 1).arg(runs).arg(result.error);
            return;
        }
        figure->runs.push_back(std::move(result));
        pause(kRunGapMs);
    }
}

void measureMemory(const QString& servicePath, const QString& folder, const QString& constDataDir,
                   BridgeFirmware firmware, int bridges, int steadyMs, ApiCost* cost)
{
    progress(QStringLiteral("%1: memory with %2 x %3 lights (%4)")
                 .arg(apiName(firmware))
                 .arg(bridges)
                 .arg(kLightsPerBridge)
                 .arg(servicePath));
    MemoryPoint point;
    point.bridges = bridges;
    BenchSystem system(folder, servicePath, constDataDir);
    if (bringUp(system, firmware, bridges, LightMix::Household, &point.error)) {
        pause(steadyMs);
        const qint64 pid = system.service().pid();
        point.uniqueKiB = uniqueKiB(pid);
        point.residentKiB = residentKiB(pid);
        if (firmware == BridgeFirmware::ClipV2 && bridges == kMappingsBridges)
            cost->mappings = largestPrivateMappings(pid, kMappingsShown);
        if (!system.service().isRunning())
            point.error = QStringLiteral("the service ended");
    }
    cost->memory.push_back(point);
}

void noteError(const QString& what, const QString& error, CostReport* report)
{
    if (!error.isEmpty())
        report->problems << what + QStringLiteral(": ") + error;
}

} // namespace

void measureCost(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                 CostReport* report)
{
    report->quick = options.quick;
    report->runs = options.runs;
    report->stormSeconds = options.stormSeconds;
    report->callgrindRounds = options.quick ? 8 : 30;
    for (const QString& path : options.servicePaths)
        report->services.push_back({path, {}, {}});
    const auto each = [&](const std::function<void(ServiceCost&, const QString&)>& step) {
        for (std::size_t i = 0; i < report->services.size(); ++i)
            step(report->services[i], folder + QStringLiteral("/s%1").arg(i + 1));
    };
    const auto column = [&](const ServiceCost& service) {
        return QStringLiteral("%1 (%2)").arg(service.path);
    };

    QString missing;
    const bool callgrind = callgrindAvailable(&missing);
    if (!callgrind)
        report->problems << QStringLiteral("no %1 on PATH: no instruction counts").arg(missing);
    for (BridgeFirmware firmware : {BridgeFirmware::ClipV2, BridgeFirmware::Api1}) {
        each([&](ServiceCost& service, const QString& base) {
            if (!callgrind)
                return;
            progress(QStringLiteral("%1 under callgrind: 1 x %2 lights, %3 rounds, one a second (%4)")
                         .arg(apiName(firmware))
                         .arg(kLightsPerBridge)
                         .arg(report->callgrindRounds)
                         .arg(service.path));
            ApiCost& cost = firmware == BridgeFirmware::ClipV2 ? service.v2 : service.v1;
            cost.instructions = measureInstructions(
                service.path, base + QStringLiteral("/callgrind-") + apiName(firmware), constDataDir,
                firmware, kLightsPerBridge, report->callgrindRounds, kCallgrindIntervalMs);
            noteError(column(service).arg(apiName(firmware) + QStringLiteral(" callgrind")),
                      cost.instructions.error, report);
        });
    }

    struct LatencyStep
    {
        const char* name;
        LatencyFigure ApiCost::*figure;
        int bridges;
        int intervalMs;
        bool logging;
    };
    const LatencyStep steps[] = {{"250/s", &ApiCost::at250, 1, 200, false},
                                 {"1000/s", &ApiCost::at1000, 5, 250, false},
                                 {"250/s logging", &ApiCost::at250Logging, 1, 200, true}};
    for (const LatencyStep& step : steps) {
        for (BridgeFirmware firmware : {BridgeFirmware::ClipV2, BridgeFirmware::Api1}) {
            each([&](ServiceCost& service, const QString& base) {
                ApiCost& cost = firmware == BridgeFirmware::ClipV2 ? service.v2 : service.v1;
                LatencyFigure& figure = cost.*(step.figure);
                figure.bridges = step.bridges;
                figure.lightsPerBridge = kLightsPerBridge;
                figure.intervalMs = step.intervalMs;
                figure.detailedLogging = step.logging;
                // Polling bounds the latency under API v1 by its period: one storm shows that.
                const int runs = firmware == BridgeFirmware::ClipV2 ? options.runs : 1;
                measureLatency(
                    service.path,
                    base + QStringLiteral("/latency-%1-%2-%3")
                               .arg(apiName(firmware))
                               .arg(step.bridges)
                               .arg(step.logging ? QStringLiteral("logging") : QStringLiteral("plain")),
                    constDataDir, firmware, runs, options.stormSeconds, &figure);
                noteError(
                    column(service).arg(apiName(firmware) + QLatin1Char(' ') + QLatin1String(step.name)),
                    figure.error, report);
            });
        }
    }

    const int steadyMs = options.quick ? 2000 : 5000;
    for (int bridges : options.bridgeCounts) {
        for (BridgeFirmware firmware : {BridgeFirmware::ClipV2, BridgeFirmware::Api1}) {
            each([&](ServiceCost& service, const QString& base) {
                ApiCost& cost = firmware == BridgeFirmware::ClipV2 ? service.v2 : service.v1;
                measureMemory(service.path,
                              base + QStringLiteral("/memory-%1-%2").arg(apiName(firmware)).arg(bridges),
                              constDataDir, firmware, bridges, steadyMs, &cost);
                noteError(column(service).arg(apiName(firmware) +
                                              QStringLiteral(" memory with %1 bridges").arg(bridges)),
                          cost.memory.back().error, report);
            });
        }
    }
}

} // namespace e2ebench
