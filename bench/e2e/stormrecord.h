#pragma once

#include <chrono>
#include <vector>

namespace e2ebench {

using SteadyTime = std::chrono::steady_clock::time_point;

// The bookkeeping of an event storm: every change made at the bridge and every brightness value
// the hub received, per light. A value answers the newest change made before it that set this
// brightness (within kPercentTolerance: the two sides round differently), and with it every
// earlier change of the light still waiting: the hub then knows a state at least that new. So
// every change has a latency, also one that polling never showed because a later one overtook
// it; those count as superseded.
class StormRecord
{
public:
    static constexpr double kPercentTolerance = 2.0;

    explicit StormRecord(int lights);

    void noteChange(int light, int percent, SteadyTime at);
    void noteOutput(int light, double percent, SteadyTime at);

    int changes() const { return m_changeCount; }
    // Values that arrived in [from, until), whether or not they answered a change.
    int outputsBetween(SteadyTime from, SteadyTime until) const;
    // Changes whose own value reached the hub, and changes a later value answered.
    int delivered() const { return m_delivered; }
    int superseded() const { return m_superseded; }
    int unanswered() const { return m_changeCount - m_delivered - m_superseded; }
    // Change -> value at the hub, one per answered change.
    const std::vector<double>& latenciesMs() const { return m_latenciesMs; }

private:
    struct Change
    {
        int percent;
        SteadyTime at;
    };
    struct Light
    {
        std::vector<Change> changes;
        std::size_t firstWaiting = 0; // changes before it have been answered
    };

    std::vector<Light> m_lights;
    std::vector<SteadyTime> m_outputs;
    std::vector<double> m_latenciesMs;
    int m_changeCount = 0;
    int m_delivered = 0;
    int m_superseded = 0;
};

} // namespace e2ebench
