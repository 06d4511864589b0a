#pragma once

#include "benchoptions.h"
#include "commandplan.h"
#include "commandscenarios.h"

#include <QString>
#include <QStringList>

namespace e2ebench {

// The command-delivery scenarios through one way of talking to a bridge.
struct CommandSide
{
    QString name;
    ScenarioFigures burst;
    ScenarioFigures paced;
    ScenarioFigures slider;
    ScenarioFigures outage;
    LatencySamples probe;
    QString error; // the system did not come up; no figures
};

// The same scenarios against a bridge of current firmware announced on its shared port (the
// service moves to CLIP v2) and against one of older firmware on its plain HTTP port with
// debug/forceAPI1 (API v1), each a fresh system, one after the other so that they do not share
// the cores. Both bridges take plan.bridgeLightsPerSecond light changes a second (burst 1) and
// answer 429 beyond that.
struct CommandComparison
{
    QString command;
    QString service;
    CommandPlan plan;
    CommandSide v2;
    CommandSide v1;
    QStringList problems;
};

void measureCommandDelivery(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                            CommandComparison* comparison);

// Both sides as one table, scenario by scenario.
QString formatCommandComparison(const CommandComparison& comparison);

} // namespace e2ebench
