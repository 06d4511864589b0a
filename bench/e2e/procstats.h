#pragma once

#include <QString>
#include <QtGlobal>

#include <vector>

namespace e2ebench {

// Figures of a running process from /proc, as `top` and `ps` read them. -1 when the process or
// the field is not there.

// Resident set size and its peak so far (VmRSS, VmHWM in /proc/<pid>/status), in KiB.
qint64 residentKiB(qint64 pid);
qint64 peakResidentKiB(qint64 pid);

// Memory only this process holds: Private_Clean + Private_Dirty of /proc/<pid>/smaps_rollup, in
// KiB (shared library text and other pages shared with another process are not in it).
qint64 uniqueKiB(qint64 pid);

// One mapping of /proc/<pid>/smaps with its private pages (Private_Clean + Private_Dirty).
struct PrivateMapping
{
    QString name;        // the path, [heap], [stack], or [anon] for a mapping without a name
    QString permissions; // "r-xp": code, "rw-p": data, "r--p": read-only data or relocations
    qint64 sizeKiB = 0;
    qint64 privateKiB = 0;
    qint64 privateDirtyKiB = 0;
};
// The `count` mappings with the most private pages, most first.
std::vector<PrivateMapping> largestPrivateMappings(qint64 pid, int count);

// CPU time spent in user and kernel mode (utime + stime in /proc/<pid>/stat), in seconds.
double cpuSeconds(qint64 pid);
// The same on the scheduler's own clock (the first field of /proc/<pid>/schedstat, in ns). utime
// and stime are sampled at the clock tick, so a process that runs in short bursts between
// sleeps may be charged less than it ran; this one is exact.
double runSeconds(qint64 pid);

} // namespace e2ebench
