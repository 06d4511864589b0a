#pragma once

#include "benchoptions.h"
#include "eventstorm.h"

#include <QString>
#include <QStringList>

namespace e2ebench {

// The same event storm through the two ways a bridge reports changes: a bridge of current
// firmware that the service follows through the CLIP v2 event stream, and one of older firmware
// that it polls through API version 1. Each runs in a system of its own, one after the other, so
// that they do not share the cores.
struct StormSide
{
    QString name;
    double registeredAfterSeconds = -1; // from the announcement to the last light registered
    StormFigures storm;
};

struct StormComparison
{
    QString command;
    QString service;
    StormSide v2;
    StormSide v1;
    QStringList problems;
};

void measureEventStorms(const BenchOptions& options, const QString& folder, const QString& constDataDir,
                        StormComparison* comparison);

// The two sides as one table with the v2/v1 ratio of every figure.
QString formatStormComparison(const StormComparison& comparison);

} // namespace e2ebench
