#pragma once

namespace e2ebench {

// What the command-delivery run does: the bridge's limit and the shape of each scenario.
struct CommandPlan
{
    double bridgeLightsPerSecond = 10; // the emulator's token bucket for light changes, burst 1
    int lights = 50;                   // on the one bridge
    int burstWritesPerLight = 10;      // burst: every light written this often at once
    int pacedPerSecond = 50;           // paced: writes a second, spread over the lights
    int pacedSeconds = 10;
    int sliderStepMs = 100; // slider: one light written this often
    int sliderMs = 3000;
    int outageSeconds = 20; // outage: the bridge refuses connections this long
    int outageWrites = 112; // while these writes go to the first outageLights lights
    int outageLights = 8;
    int probeSamples = 100; // write -> PUT: two lights written in turn every probeSpacingMs
    int probeSpacingMs = 300;
};

// The full plan, or a shorter one (paced and outage scenarios, fewer probe writes).
inline CommandPlan commandPlan(bool quick)
{
    CommandPlan plan;
    if (quick) {
        plan.pacedSeconds = 4;
        plan.outageSeconds = 8;
        plan.outageWrites = 48;
        plan.probeSamples = 30;
    }
    return plan;
}

} // namespace e2ebench
