#include "commandrecord.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace e2ebench {

namespace {

// The service scales some lights' brightness by a step or two differently from percent * 2.54
// (16 % goes out as bri 39, not 41); the writes of a scenario are at least 6 % (15 bri) apart.
constexpr int kBriTolerance = 3;

} // namespace

std::vector<LightPut> lightPuts(const std::vector<bridgeemu::RecordedRequest>& requests,
                                const std::vector<BenchLight>& lights)
{
    std::vector<LightPut> puts;
    for (const bridgeemu::RecordedRequest& request : requests) {
        if (request.method != "PUT")
            continue;
        for (std::size_t i = 0; i < lights.size(); ++i) {
            if (isChangeOf(request, lights[i])) {
                puts.push_back({i, request.receivedAt, request.status});
                break;
            }
        }
    }
    return puts;
}

std::vector<int> finalPercents(const std::vector<LightWrite>& writes, std::size_t lightCount)
{
    std::vector<int> finals(lightCount, -1);
    for (const LightWrite& write : writes) {
        if (write.light < lightCount)
            finals[write.light] = write.percent;
    }
    return finals;
}

int briForPercent(int percent)
{
    return std::clamp(int(std::lround(percent * 2.54)), 1, 254);
}

bool inFinalState(const BenchLight& light, int percent)
{
    const auto state = light.bridge->light(light.lightId);
    return state && state->state.on && std::abs(state->state.bri - briForPercent(percent)) <= kBriTolerance;
}

int lightsInFinalState(const std::vector<BenchLight>& lights, const std::vector<int>& finals)
{
    int count = 0;
    for (std::size_t i = 0; i < lights.size() && i < finals.size(); ++i)
        count += finals[i] >= 0 && inFinalState(lights[i], finals[i]) ? 1 : 0;
    return count;
}

double secondsBetween(WallTime from, WallTime to)
{
    return std::chrono::duration<double>(to - from).count();
}

double physicalMinimumSeconds(const std::vector<LightWrite>& writes, std::size_t lightCount, double rate,
                              double availableFromS)
{
    if (writes.empty() || rate <= 0)
        return -1;
    // When each light's final value was written, earliest first.
    std::vector<double> finalAt(lightCount, -1);
    for (const LightWrite& write : writes) {
        if (write.light < lightCount)
            finalAt[write.light] = secondsBetween(writes.front().at, write.at);
    }
    std::vector<double> releases;
    for (double at : finalAt) {
        if (at >= 0)
            releases.push_back(std::max(at, availableFromS));
    }
    std::sort(releases.begin(), releases.end());
    double done = 0;
    for (double release : releases)
        done = std::max(done, release) + 1.0 / rate;
    return done;
}

} // namespace e2ebench
