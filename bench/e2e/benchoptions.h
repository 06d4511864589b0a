#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace e2ebench {

// Which figures a run takes: the API version 1 figures (latencies, memory, idle CPU), or the
// event storm through a CLIP v2 bridge beside the same storm through API version 1 polling.
enum class BenchApi
{
    V1,
    V2
};

// What one run measures and against which service binary.
struct BenchOptions
{
    bool quick = false;
    BenchApi api = BenchApi::V1;
    bool commands = false; // command delivery under the bridge's rate limit, v2 beside v1
    bool cost = false;     // the cost figures (instructions, hub calls, latency, memory) per binary
    int runs = 10;         // cost: storms per latency figure (2 with --quick)
    QList<int> bridgeCounts{1, 5, 20}; // memory figures: this many bridges of 50 lights each
    int lightsPerBridge = 50;
    int idleSeconds = 60;
    int writeSamples = 200; // datapoint write -> bridge request
    int writeSpacingMs = 300;
    int switchSamples = 100;   // wall switch -> hub
    int stormSeconds = 30;     // event storm: every light changed every stormIntervalMs
    int stormIntervalMs = 200; // twice the bridge's event window: one message per round
    QString servicePath;
    QStringList servicePaths; // every --service, in order (cost: one column each)
    bool keepFolder = false;
};

// Reads the command line; false with `error` set (or the help text when asked for) when the run
// should not go ahead, `exitCode` saying how to end.
bool parseBenchOptions(const QStringList& arguments, BenchOptions* options, QString* message, int* exitCode);

} // namespace e2ebench
