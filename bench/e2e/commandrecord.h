#pragma once

#include "benchsystem.h"

#include <chrono>
#include <vector>

namespace e2ebench {

using WallTime = std::chrono::system_clock::time_point;

// One datapoint write of a scenario: the bench index of its light, the "Dimming value" in
// percent and when the hub sent it.
struct LightWrite
{
    std::size_t light = 0;
    int percent = 0;
    WallTime at;
};

// One light change in the bridge's record: the bench index of its light, arrival, status.
struct LightPut
{
    std::size_t light = 0;
    WallTime at;
    int status = 0;
};

// The light changes of the record, oldest first, of the given lights only.
std::vector<LightPut> lightPuts(const std::vector<bridgeemu::RecordedRequest>& requests,
                                const std::vector<BenchLight>& lights);
inline bool accepted(const LightPut& put)
{
    return put.status >= 200 && put.status < 300;
}

// The last write of every light that was written (its final state), indexed by light; -1 for
// lights the writes left alone.
std::vector<int> finalPercents(const std::vector<LightWrite>& writes, std::size_t lightCount);

// The bridge's brightness (1-254) for a percentage, as both APIs store it.
int briForPercent(int percent);

// How many written lights show their final value in the emulator's light model now (brightness
// within three steps: the service scales some lights a little differently).
bool inFinalState(const BenchLight& light, int percent);
int lightsInFinalState(const std::vector<BenchLight>& lights, const std::vector<int>& finals);

// The earliest moment, in seconds after the first write, at which a bridge taking `rate` changes
// a second (each one taking 1/rate) could hold every final state: each light's final value sent
// the moment it is written, not before `availableFromS`, one change at a time.
double physicalMinimumSeconds(const std::vector<LightWrite>& writes, std::size_t lightCount, double rate,
                              double availableFromS = 0);

double secondsBetween(WallTime from, WallTime to);

} // namespace e2ebench
