#pragma once

#include <QtGlobal>

namespace e2ebench {

// Figures of a running process from /proc, as `top` and `ps` read them. -1 when the process or
// the field is not there.

// Resident set size and its peak so far (VmRSS, VmHWM in /proc/<pid>/status), in KiB.
qint64 residentKiB(qint64 pid);
qint64 peakResidentKiB(qint64 pid);

// CPU time spent in user and kernel mode (utime + stime in /proc/<pid>/stat), in seconds.
double cpuSeconds(qint64 pid);
// The same on the scheduler's own clock (the first field of /proc/<pid>/schedstat, in ns). utime
// and stime are sampled at the clock tick, so a process that runs in short bursts between
// sleeps may be charged less than it ran; this one is exact.
double runSeconds(qint64 pid);

} // namespace e2ebench
