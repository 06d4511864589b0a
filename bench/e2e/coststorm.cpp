#include "coststorm.h"

#include "eventwait.h"
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

int briForPercent(int percent)
{
    return std::clamp(int(std::lround(percent * 254 / 100.0)), 1, 254);
}

// The lights of each bridge, bridges in the order of their first light.
std::vector<std::vector<int>> lightsByBridge(const std::vector<BenchLight>& lights)
{
    std::vector<bridgeemu::BridgeEmulator*> bridges;
    std::vector<std::vector<int>> groups;
    for (std::size_t i = 0; i < lights.size(); ++i) {
        const auto found = std::find(bridges.begin(), bridges.end(), lights[i].bridge);
        if (found == bridges.end()) {
            bridges.push_back(lights[i].bridge);
            groups.push_back({int(i)});
        } else {
            groups[std::size_t(found - bridges.begin())].push_back(int(i));
        }
    }
    return groups;
}

// Sets every light to `percent`; each bridge then sends its lights' changes as one message.
// The changes are stamped when their message leaves: the bridge's event window is not waited.
void changeAll(const std::vector<BenchLight>& lights, const std::vector<std::vector<int>>& groups,
               int percent, StormRecord& record)
{
    bridgeemu::LightChange change;
    change.on = true;
    change.bri = briForPercent(percent);
    for (const std::vector<int>& group : groups) {
        for (int i : group)
            lights[std::size_t(i)].bridge->setLightState(lights[std::size_t(i)].lightId, change);
        const SteadyTime sent = std::chrono::steady_clock::now();
        lights[std::size_t(group.front())].bridge->flushEvents();
        for (int i : group)
            record.noteChange(i, percent, sent);
    }
}

} // namespace

CostStormRun runCostStorm(BenchSystem& system, const std::vector<BenchLight>& lights,
                          const CostStormShape& shape, const std::function<bool(QString*)>& atStart,
                          const std::function<bool(QString*)>& atEnd)
{
    CostStormRun run;
    QHash<QString, int> lightOfOutput;
    for (std::size_t i = 0; i < lights.size(); ++i) {
        const QString id = system.outputId(lights[i].device, QStringLiteral("Brightness status"));
        if (id.isEmpty()) {
            run.error = QStringLiteral("light %1 has no brightness output").arg(i + 1);
            return run;
        }
        lightOfOutput.insert(id, int(i));
    }
    const std::vector<std::vector<int>> groups = lightsByBridge(lights);

    StormRecord primer(int(lights.size()));
    StormRecord storm(int(lights.size()));
    StormRecord* current = &primer;
    bool counting = false;
    QObject context;
    QObject::connect(system.hub().events(), &HubEventLog::posted, &context, [&](const QVariantMap& event) {
        const QString kind = event.value(QStringLiteral("kind")).toString();
        if (counting && !event.value(QStringLiteral("client")).toString().isEmpty()) {
            ++run.hubCalls;
            ++run.hubCallsByKind[kind];
        }
        if (kind != QLatin1String("sendDataPoint"))
            return;
        const auto light = lightOfOutput.constFind(event.value(QStringLiteral("id")).toString());
        if (light != lightOfOutput.constEnd())
            current->noteOutput(*light, event.value(QStringLiteral("value")).toDouble(),
                                std::chrono::steady_clock::now());
    });

    changeAll(lights, groups, kPrimeLevel, primer);
    if (!waitUntil([&] { return primer.unanswered() == 0; }, shape.primeLimitMs)) {
        run.error = QStringLiteral("%1 of %2 lights did not reach their starting level")
                        .arg(primer.unanswered())
                        .arg(lights.size());
        return run;
    }
    if (atStart && !atStart(&run.error))
        return run;
    current = &storm;
    counting = true;
    const SteadyTime start = std::chrono::steady_clock::now();
    const SteadyTime end = start + std::chrono::seconds(shape.seconds);
    int rounds = 0;
    for (SteadyTime round = start; round < end; round += std::chrono::milliseconds(shape.intervalMs)) {
        pause(int(
            std::chrono::duration_cast<std::chrono::milliseconds>(round - std::chrono::steady_clock::now())
                .count()));
        changeAll(lights, groups, kLevels[rounds % int(std::size(kLevels))], storm);
        ++rounds;
    }
    waitUntil(
        [&] { return storm.unanswered() == 0; },
        int(std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now())
                .count()) +
            shape.drainLimitMs);
    counting = false;
    if (atEnd && !atEnd(&run.error))
        return run;
    run.changes = storm.changes();
    run.delivered = storm.delivered();
    run.superseded = storm.superseded();
    run.unanswered = storm.unanswered();
    run.latenciesMs = storm.latenciesMs();
    if (!system.service().isRunning())
        run.error = QStringLiteral("the service ended during the storm");
    return run;
}

} // namespace e2ebench
