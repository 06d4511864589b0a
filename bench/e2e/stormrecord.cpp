#include "stormrecord.h"

#include <algorithm>
#include <cmath>

namespace e2ebench {

StormRecord::StormRecord(int lights) : m_lights(std::size_t(std::max(lights, 0))) {}

void StormRecord::noteChange(int light, int percent, SteadyTime at)
{
    if (light < 0 || std::size_t(light) >= m_lights.size())
        return;
    m_lights[std::size_t(light)].changes.push_back({percent, at});
    ++m_changeCount;
}

void StormRecord::noteOutput(int light, double percent, SteadyTime at)
{
    if (light < 0 || std::size_t(light) >= m_lights.size())
        return;
    m_outputs.push_back(at);
    Light& record = m_lights[std::size_t(light)];
    // The newest change before the value with its brightness; one already answered means the
    // value is a repeat and answers nothing new.
    std::size_t answered = record.changes.size();
    for (std::size_t i = record.changes.size(); i > record.firstWaiting; --i) {
        const Change& change = record.changes[i - 1];
        if (change.at <= at && std::abs(change.percent - percent) <= kPercentTolerance) {
            answered = i - 1;
            break;
        }
    }
    if (answered == record.changes.size())
        return;
    for (std::size_t i = record.firstWaiting; i <= answered; ++i) {
        m_latenciesMs.push_back(std::chrono::duration<double, std::milli>(at - record.changes[i].at).count());
        ++(i == answered ? m_delivered : m_superseded);
    }
    record.firstWaiting = answered + 1;
}

int StormRecord::outputsBetween(SteadyTime from, SteadyTime until) const
{
    return int(std::count_if(m_outputs.begin(), m_outputs.end(),
                             [&](SteadyTime at) { return at >= from && at < until; }));
}

} // namespace e2ebench
