#pragma once

#include "benchsystem.h"

#include <QString>

#include <vector>

namespace e2ebench {

// What one event storm showed, seen from the hub and from /proc.
struct StormFigures
{
    int lights = 0;
    int seconds = 0;
    int intervalMs = 0;
    int rounds = 0;
    int changes = 0;
    int outputs = 0; // brightness values at the hub during the storm
    double outputsPerSecond = 0;
    int delivered = 0;  // changes whose own value reached the hub
    int superseded = 0; // changes a later value answered first
    int unanswered = 0; // changes no value answered by the end of the drain
    std::vector<double> latenciesMs;
    qint64 residentBeforeKiB = -1;
    qint64 residentMaxKiB = -1;  // of the samples taken during the storm
    qint64 peakResidentKiB = -1; // VmHWM after the storm: the process's peak so far
    double cpuSeconds = -1;      // utime + stime during the storm
    double runSeconds = -1;      // the same on the scheduler's clock
    QString error;
};

// Changes every light's brightness at the bridge, as wall switches would, all at once every
// `intervalMs` for `seconds`; each round sets the next of eight levels far enough apart that a
// value at the hub tells which change it shows. The service's "Brightness status" values at the
// hub answer the changes (see StormRecord). The lights are first brought to a level of their
// own, outside the figures, so that the first round changes every one of them.
StormFigures runEventStorm(BenchSystem& system, const std::vector<BenchLight>& lights, int seconds,
                           int intervalMs);

} // namespace e2ebench
