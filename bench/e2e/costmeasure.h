#pragma once

#include "benchoptions.h"
#include "costcallgrind.h"
#include "coststorm.h"
#include "procstats.h"

#include <QString>
#include <QStringList>

#include <vector>

namespace e2ebench {

// One latency figure: `runs` storms of the same shape, one after the other in one system (the
// lights primed again before each), each a figure of its own.
struct LatencyFigure
{
    int bridges = 0;
    int lightsPerBridge = 0;
    int intervalMs = 0;
    int seconds = 0;
    bool detailedLogging = false;
    std::vector<CostStormRun> runs;
    QString error;
};

// The service's memory once every light of `bridges` bridges is registered and it has run in
// steady state for a few seconds.
struct MemoryPoint
{
    int bridges = 0;
    qint64 uniqueKiB = -1; // Private_Clean + Private_Dirty
    qint64 residentKiB = -1;
    QString error;
};

// Every cost figure of one binary through one way of reporting changes.
struct ApiCost
{
    InstructionFigure instructions;
    LatencyFigure at250;        // 1 bridge x 50 lights, a round every 200 ms
    LatencyFigure at1000;       // 5 bridges x 50 lights, a round every 250 ms
    LatencyFigure at250Logging; // as at250, detailed logging on
    std::vector<MemoryPoint> memory;
    std::vector<PrivateMapping> mappings; // with 5 bridges (CLIP v2 only)
};

struct ServiceCost
{
    QString path;
    ApiCost v1;
    ApiCost v2;
};

struct CostReport
{
    QString command;
    bool quick = false;
    int runs = 0;
    int stormSeconds = 0;
    int callgrindRounds = 0;
    std::vector<ServiceCost> services; // one column each: before, after
    QStringList problems;
};

// Takes every figure of every binary; each step runs for all binaries in a row, so that the
// columns are measured side by side in time as well.
void measureCost(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                 CostReport* report);

QString formatCostReport(const CostReport& report);

} // namespace e2ebench
