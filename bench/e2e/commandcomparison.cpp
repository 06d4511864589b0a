#include "commandcomparison.h"

#include "benchsystem.h"
#include "eventwait.h"

#include <cstdio>

namespace e2ebench {

namespace {

constexpr int kRegistrationLimitMs = 60000;
constexpr int kSettleMs = 1500; // after registration: the first values and attributes go out

void progress(const QString& side, const char* step)
{
    std::fprintf(stderr, "bench_e2e_service: %s: %s\n", qPrintable(side), step);
    std::fflush(stderr);
}

bool bringUp(BenchSystem& system, BridgeFirmware firmware, int lightCount, std::vector<BenchLight>* lights)
{
    if (!system.start() || !system.addBridge(lightCount, firmware, LightMix::Dimmable) ||
        !system.pairBridges(kRegistrationLimitMs) || !system.waitForDevices(lightCount, kRegistrationLimitMs))
        return false;
    if (firmware == BridgeFirmware::ClipV2 && !system.waitForClipV2(kRegistrationLimitMs))
        return false;
    return waitUntil([&] { return int((*lights = system.dimmableLights(lightCount)).size()) == lightCount; },
                     kRegistrationLimitMs);
}

void measureSide(const BenchOptions& options, const CommandPlan& plan, const QString& folder,
                 const QString& constDataDir, BridgeFirmware firmware, CommandSide* side, QStringList* problems)
{
    progress(side->name, "bringing up 1 bridge of 50 lights");
    BenchSystem system(folder, options.servicePath, constDataDir);
    // Under CLIP v2 the service must be free to leave API version 1.
    system.service().setForceApi1(firmware == BridgeFirmware::Api1);
    std::vector<BenchLight> lights;
    if (!bringUp(system, firmware, plan.lights, &lights)) {
        side->error = system.lastError().isEmpty() ? QStringLiteral("the service reported no names for some lights")
                                                   : system.lastError();
        problems->append(side->name + QStringLiteral(": ") + side->error);
        return;
    }
    pause(kSettleMs);
    CommandScenarios scenarios(system, lights, plan);
    progress(side->name, "write -> PUT probe");
    side->probe = scenarios.probe();
    progress(side->name, "burst");
    side->burst = scenarios.burst();
    progress(side->name, "paced");
    side->paced = scenarios.paced();
    progress(side->name, "slider");
    side->slider = scenarios.slider();
    progress(side->name, "outage");
    side->outage = scenarios.outage();
    for (const ScenarioFigures* figures : {&side->burst, &side->paced, &side->slider, &side->outage}) {
        if (!figures->error.isEmpty())
            problems->append(side->name + QStringLiteral(": ") + figures->error);
    }
    if (!system.service().isRunning())
        problems->append(side->name + QStringLiteral(": the service ended during the scenarios"));
}

} // namespace

void measureCommandDelivery(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                            CommandComparison* comparison)
{
    comparison->plan = commandPlan(options.quick);
    comparison->v2.name = QStringLiteral("CLIP v2");
    comparison->v1.name = QStringLiteral("API v1");
    measureSide(options, comparison->plan, folder + QStringLiteral("/commands-v2"), constDataDir,
                BridgeFirmware::ClipV2, &comparison->v2, &comparison->problems);
    measureSide(options, comparison->plan, folder + QStringLiteral("/commands-v1"), constDataDir,
                BridgeFirmware::Api1, &comparison->v1, &comparison->problems);
}

} // namespace e2ebench
