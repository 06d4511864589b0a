#pragma once

#include "latencyprobes.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace e2ebench {

// Resident memory of the service once every light of `bridges` bridges is registered.
struct MemoryFigure
{
    int bridges = 0;
    int lights = 0;
    double registeredAfterSeconds = -1; // from the first announcement to the last registration
    qint64 residentKiB = -1;
    qint64 peakResidentKiB = -1;
    QString error; // why the figure is missing
};

struct BenchResults
{
    QString command;
    QString service;
    int lightsPerBridge = 0;
    int writeSpacingMs = 0;
    LatencySamples writes;
    LatencySamples switches;
    int idleSeconds = 0;
    double idleCpuSeconds = -1;
    std::vector<MemoryFigure> memory;
    QStringList problems;
};

// The figures as a small plain-text table, ready to be pasted into a note.
QString formatResults(const BenchResults& results);

} // namespace e2ebench
