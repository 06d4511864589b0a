#include "stormcomparison.h"

#include "benchsystem.h"
#include "eventwait.h"

#include <QElapsedTimer>

#include <cstdio>

namespace e2ebench {

namespace {

constexpr int kRegistrationLimitMs = 60000;
constexpr int kSettleMs = 1500; // after registration: the first values and attributes go out

bool bringUpStormSystem(BenchSystem& system, BridgeFirmware firmware, int lights, StormSide* side)
{
    QElapsedTimer clock;
    if (!system.start())
        return false;
    clock.start();
    if (!system.addBridge(lights, firmware, LightMix::Dimmable) ||
        !system.pairBridges(kRegistrationLimitMs) || !system.waitForDevices(lights, kRegistrationLimitMs))
        return false;
    side->registeredAfterSeconds = double(clock.elapsed()) / 1000.0;
    return firmware == BridgeFirmware::Api1 || system.waitForClipV2(kRegistrationLimitMs);
}

void measureSide(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                 BridgeFirmware firmware, StormSide* side, QStringList* problems)
{
    std::fprintf(stderr, "bench_e2e_service: %s: 1 bridge of %d lights, storm of %d s\n",
                 qPrintable(side->name), options.lightsPerBridge, options.stormSeconds);
    std::fflush(stderr);
    BenchSystem system(folder, options.servicePath, constDataDir);
    // Under CLIP v2 the service must be free to leave API version 1.
    system.service().setForceApi1(firmware == BridgeFirmware::Api1);
    std::vector<BenchLight> lights;
    if (!bringUpStormSystem(system, firmware, options.lightsPerBridge, side)) {
        side->storm.error = system.lastError();
    } else if (!waitUntil(
                   [&] {
                       return int((lights = system.dimmableLights(options.lightsPerBridge)).size()) ==
                              options.lightsPerBridge;
                   },
                   kRegistrationLimitMs)) {
        side->storm.error = QStringLiteral("the service reported no names for some lights");
    } else {
        pause(kSettleMs);
        side->storm = runEventStorm(system, lights, options.stormSeconds, options.stormIntervalMs);
    }
    if (!side->storm.error.isEmpty())
        problems->append(side->name + QStringLiteral(": ") + side->storm.error);
}

} // namespace

void measureEventStorms(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                        StormComparison* comparison)
{
    comparison->v2.name = QStringLiteral("CLIP v2 event stream");
    comparison->v1.name = QStringLiteral("API v1 polling");
    measureSide(options, folder + QStringLiteral("/storm-v2"), constDataDir, BridgeFirmware::ClipV2,
                &comparison->v2, &comparison->problems);
    measureSide(options, folder + QStringLiteral("/storm-v1"), constDataDir, BridgeFirmware::Api1,
                &comparison->v1, &comparison->problems);
}

} // namespace e2ebench
