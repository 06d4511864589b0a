#pragma once

#include "benchsystem.h"
#include "commandplan.h"
#include "commandrecord.h"
#include "latencyprobes.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace e2ebench {

// What one scenario of datapoint writes showed at the bridge.
struct ScenarioFigures
{
    int lights = 0;       // lights written
    int writes = 0;       // writes the hub made
    int failedWrites = 0; // writes the hub could not make
    int finalStates = 0;  // written lights whose final value the bridge's light model shows
    int sent = 0;         // light changes in the bridge's record
    int refused = 0;      // refused by the rate limit (its counters)
    int refusedInRecord = 0;  // answered 429 or 503, as the record shows
    double lastAcceptedS = -1; // first write -> last accepted change
    double minimumS = -1;      // the physical minimum of the same (physicalMinimumSeconds)
    double firstChangeMs = -1; // first write -> first change of a written light
    std::vector<double> spacingMs; // between the changes of the slider's light while dragging
    QStringList misses; // per light not in its final state: what it shows, its last change
    QString error;
};

// The scenarios of the command-delivery run against one system whose first bridge limits light
// changes to the plan's rate. Each starts from quiet: every light at full brightness (set at the
// bridge as a wall switch would, and given time to reach the service), no change under way, the
// rate limit's bucket full and its counters and the request record cleared.
class CommandScenarios
{
public:
    CommandScenarios(BenchSystem& system, std::vector<BenchLight> lights, const CommandPlan& plan);

    // Every light written burstWritesPerLight times at once, in rounds over the lights.
    ScenarioFigures burst();
    // pacedPerSecond writes a second for pacedSeconds, light after light.
    ScenarioFigures paced();
    // The first light written every sliderStepMs for sliderMs.
    ScenarioFigures slider();
    // The bridge refuses connections for outageSeconds while outageWrites go to the first
    // outageLights lights, spread over that time.
    ScenarioFigures outage();
    // Write -> change latency of two lights written in turn, below the bridge's rate.
    LatencySamples probe();

private:
    void prepare();
    void waitForQuiet();
    bool write(std::size_t light, std::vector<LightWrite>* writes);
    ScenarioFigures finish(const std::vector<LightWrite>& writes, int failed, double availableFromS,
                           int finalLimitMs);

    BenchSystem& m_system;
    bridgeemu::BridgeEmulator& m_bridge;
    std::vector<BenchLight> m_lights;
    CommandPlan m_plan;
    std::vector<int> m_step; // writes so far per light: the next value's place in the cycle
};

} // namespace e2ebench
