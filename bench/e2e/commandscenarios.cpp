#include "commandscenarios.h"

#include "eventwait.h"

#include <communicationservice.h>
#include <hubsimulator.h>

#include <QElapsedTimer>

#include <algorithm>
#include <utility>

namespace e2ebench {

namespace {

constexpr int kFullBri = 254;   // every light's state before a scenario: 100 %
constexpr int kReachServiceMs = 2500; // a wall-switch change reaches the service (one poll, or an event)
constexpr int kQuietMs = 1500;  // no light change for this long: nothing under way
constexpr int kQuietLimitMs = 60000;
constexpr int kCheckMs = 100;
constexpr int kDraggingSlackMs = 400; // the coalescing delay's bound: a change this late still follows the drag
constexpr int kSettledFinalLimitMs = 30000; // after the last write (outage: after the bridge is back, plus its pause)

// Values in 10..89 %, 37 points apart (mod 80): 80 writes of a light before one repeats, any
// two of ten in a row at least 6 points apart, and far from 100 % (the state every scenario
// starts from).
int percentAt(std::size_t light, int step)
{
    return 10 + int((std::size_t(step) * 37 + light * 11) % 80);
}

bool refusal(int status)
{
    return status == 429 || status == 503;
}

// Runs the event loop until `at` ms of `clock`: the hub keeps serving the service meanwhile.
void pauseUntil(const QElapsedTimer& clock, qint64 at)
{
    const qint64 left = at - clock.elapsed();
    if (left > 0)
        pause(int(left));
}

// A light not in its final state: the value it was last written, what the bridge shows, and
// the light's last change in the record.
QString missDescription(const BenchLight& light, int percent, const std::vector<bridgeemu::RecordedRequest>& requests)
{
    const auto state = light.bridge->light(light.lightId);
    QString text = QStringLiteral("light %1 written %2 % (bri %3), the bridge shows %4 bri %5")
                       .arg(QString::fromStdString(light.lightId))
                       .arg(percent)
                       .arg(briForPercent(percent))
                       .arg(state && state->state.on ? QStringLiteral("on") : QStringLiteral("off"))
                       .arg(state ? state->state.bri : -1);
    for (auto it = requests.rbegin(); it != requests.rend(); ++it) {
        if (isChangeOf(*it, light))
            return text + QStringLiteral("; last change %1 %2").arg(it->status).arg(QString::fromStdString(it->body).left(90));
    }
    return text + QStringLiteral("; no change in the record");
}

} // namespace

CommandScenarios::CommandScenarios(BenchSystem& system, std::vector<BenchLight> lights, const CommandPlan& plan)
    : m_system(system), m_bridge(*lights.front().bridge), m_lights(std::move(lights)), m_plan(plan),
      m_step(m_lights.size(), 0)
{
}

void CommandScenarios::waitForQuiet()
{
    QElapsedTimer clock;
    clock.start();
    std::size_t seen = lightPuts(m_bridge.requests(), m_lights).size();
    qint64 quietSince = 0;
    while (clock.elapsed() < kQuietLimitMs && clock.elapsed() - quietSince < kQuietMs) {
        pause(kCheckMs * 2);
        const std::size_t now = lightPuts(m_bridge.requests(), m_lights).size();
        if (now != seen) {
            seen = now;
            quietSince = clock.elapsed();
        }
    }
}

void CommandScenarios::prepare()
{
    waitForQuiet();
    bridgeemu::LightChange full;
    full.on = true;
    full.bri = kFullBri;
    for (const BenchLight& light : m_lights)
        m_bridge.setLightState(light.lightId, full);
    pause(kReachServiceMs);
    bridgeemu::RateLimit limit;
    limit.lights = bridgeemu::RateBucket{m_plan.bridgeLightsPerSecond, 1};
    limit.status = 429;
    m_bridge.setRateLimit(limit);
    m_bridge.clearRequests();
}

bool CommandScenarios::write(std::size_t light, std::vector<LightWrite>* writes)
{
    const int percent = percentAt(light, m_step[light]++);
    const WallTime at = std::chrono::system_clock::now();
    const auto action = m_system.hub().communication()->writeDataPoint(
        QString::fromLatin1(m_lights[light].device.toString()), QStringLiteral("Dimming value"),
        QString::number(percent));
    if (action.ok)
        writes->push_back({light, percent, at});
    return action.ok;
}

ScenarioFigures CommandScenarios::finish(const std::vector<LightWrite>& writes, int failed,
                                         double availableFromS, int finalLimitMs)
{
    ScenarioFigures figures;
    figures.writes = int(writes.size());
    figures.failedWrites = failed;
    if (writes.empty()) {
        figures.error = QStringLiteral("the hub could not make a single write");
        return figures;
    }
    const std::vector<int> finals = finalPercents(writes, m_lights.size());
    figures.lights = int(std::count_if(finals.begin(), finals.end(), [](int p) { return p >= 0; }));
    QElapsedTimer clock;
    clock.start();
    while (lightsInFinalState(m_lights, finals) < figures.lights && clock.elapsed() < finalLimitMs)
        pause(kCheckMs);
    waitForQuiet();
    figures.finalStates = lightsInFinalState(m_lights, finals);

    const std::vector<bridgeemu::RecordedRequest> requests = m_bridge.requests();
    const std::vector<LightPut> puts = lightPuts(requests, m_lights);
    for (std::size_t i = 0; i < m_lights.size(); ++i) {
        if (finals[i] >= 0 && !inFinalState(m_lights[i], finals[i]))
            figures.misses << missDescription(m_lights[i], finals[i], requests);
    }
    const WallTime first = writes.front().at;
    figures.sent = int(puts.size());
    figures.refused = int(m_bridge.rateLimitCounters().lights.refused);
    for (const LightPut& put : puts) {
        figures.refusedInRecord += refusal(put.status) ? 1 : 0;
        if (accepted(put))
            figures.lastAcceptedS = std::max(figures.lastAcceptedS, secondsBetween(first, put.at));
        if (figures.firstChangeMs < 0 && put.at >= first)
            figures.firstChangeMs = 1000.0 * secondsBetween(first, put.at);
    }
    figures.minimumS =
        physicalMinimumSeconds(writes, m_lights.size(), m_plan.bridgeLightsPerSecond, availableFromS);
    return figures;
}

ScenarioFigures CommandScenarios::burst()
{
    prepare();
    std::vector<LightWrite> writes;
    int failed = 0;
    for (int round = 0; round < m_plan.burstWritesPerLight; ++round) {
        for (std::size_t light = 0; light < m_lights.size(); ++light)
            failed += write(light, &writes) ? 0 : 1;
    }
    return finish(writes, failed, 0, kSettledFinalLimitMs);
}

ScenarioFigures CommandScenarios::paced()
{
    prepare();
    std::vector<LightWrite> writes;
    int failed = 0;
    const int count = m_plan.pacedPerSecond * m_plan.pacedSeconds;
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < count; ++i) {
        pauseUntil(clock, qint64(i) * 1000 / m_plan.pacedPerSecond);
        failed += write(std::size_t(i) % m_lights.size(), &writes) ? 0 : 1;
    }
    return finish(writes, failed, 0, kSettledFinalLimitMs);
}

ScenarioFigures CommandScenarios::slider()
{
    prepare();
    std::vector<LightWrite> writes;
    int failed = 0;
    const int count = m_plan.sliderMs / m_plan.sliderStepMs;
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < count; ++i) {
        pauseUntil(clock, qint64(i) * m_plan.sliderStepMs);
        failed += write(0, &writes) ? 0 : 1;
    }
    ScenarioFigures figures = finish(writes, failed, 0, kSettledFinalLimitMs);
    if (writes.empty())
        return figures;
    // The light's changes from the first write until the coalescing bound after the last one.
    const WallTime until = writes.back().at + std::chrono::milliseconds(kDraggingSlackMs);
    WallTime previous{};
    bool any = false;
    for (const LightPut& put : lightPuts(m_bridge.requests(), m_lights)) {
        if (put.light != 0 || put.at < writes.front().at || put.at > until)
            continue;
        if (any)
            figures.spacingMs.push_back(1000.0 * secondsBetween(previous, put.at));
        previous = put.at;
        any = true;
    }
    return figures;
}

ScenarioFigures CommandScenarios::outage()
{
    prepare();
    std::vector<LightWrite> writes;
    int failed = 0;
    const std::size_t lights = std::min<std::size_t>(std::size_t(m_plan.outageLights), m_lights.size());
    const qint64 outageMs = qint64(m_plan.outageSeconds) * 1000;
    const WallTime refusedAt = std::chrono::system_clock::now();
    if (!m_bridge.refuseConnectionsFor(std::chrono::milliseconds(outageMs))) {
        ScenarioFigures figures;
        figures.error = QStringLiteral("the bridge could not refuse connections");
        return figures;
    }
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < m_plan.outageWrites; ++i) {
        pauseUntil(clock, qint64(i) * outageMs / m_plan.outageWrites);
        failed += write(std::size_t(i) % lights, &writes) ? 0 : 1;
    }
    pauseUntil(clock, outageMs);
    const double backFromS =
        writes.empty() ? 0 : double(m_plan.outageSeconds) - secondsBetween(refusedAt, writes.front().at);
    return finish(writes, failed, backFromS, kSettledFinalLimitMs + 30000);
}

LatencySamples CommandScenarios::probe()
{
    prepare();
    const std::vector<BenchLight> two(m_lights.begin(), m_lights.begin() + std::min<std::ptrdiff_t>(2, std::ptrdiff_t(m_lights.size())));
    return measureWriteToRequest(m_system, two, m_plan.probeSamples, m_plan.probeSpacingMs);
}

} // namespace e2ebench
