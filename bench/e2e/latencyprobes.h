#pragma once

#include "benchsystem.h"

#include <vector>

namespace e2ebench {

struct LatencySamples
{
    std::vector<double> ms; // one per answered sample
    int missing = 0;        // samples whose effect never arrived (or could not be told apart)
};

// The hub writes a light's "Dimming value" input (a new value each time, the lights taking
// turns so that the service's coalescing does not merge two samples) every `spacingMs`; each
// sample is the time from the write to the arrival of that light's PUT at the bridge, as the
// bridge's request record stamps it.
LatencySamples measureWriteToRequest(BenchSystem& system, const std::vector<BenchLight>& lights, int samples,
                                     int spacingMs);

// A light's brightness is changed at the bridge as its wall switch would; each sample is the
// time until the service reports the light's new "Brightness status" to the hub. Under API
// version 1 the service only learns of it by polling, so the samples spread over the poll
// period. Random pauses between samples keep them from locking onto the poll's phase.
LatencySamples measureSwitchToHub(BenchSystem& system, const std::vector<BenchLight>& lights, int samples);

} // namespace e2ebench
