#pragma once

#include "benchsystem.h"

#include <QMap>
#include <QString>

#include <functional>
#include <vector>

namespace e2ebench {

// The shape of one storm of the cost figures: every light changed every `intervalMs` for
// `seconds`. Each bridge sends a round's changes of its lights at once, as one event stream
// message (flushEvents), so that the latency holds no part of the bridge's event window.
struct CostStormShape
{
    int seconds = 10;
    int intervalMs = 200;
    int primeLimitMs = 5000; // bringing every light to its starting level, outside the figures
    int drainLimitMs = 3000; // after the last round: until every change is answered
};

// What one storm showed at the hub.
struct CostStormRun
{
    int changes = 0;
    int delivered = 0;  // changes whose own value reached the hub
    int superseded = 0; // changes a later value answered first
    int unanswered = 0;
    std::vector<double> latenciesMs; // message sent -> value at the hub, per answered change
    int hubCalls = 0;                // every call of the service at the hub from the first round
                                     // until the last change was answered (or the drain ended)
    QMap<QString, int> hubCallsByKind;
    QString error;
};

// Runs one storm over `lights` (of one or more bridges). `atStart` runs after the lights are
// primed, just before the first round; `atEnd` once every change is answered or the drain limit
// has passed, after the hub calls stopped being counted. Either may be empty; a false answer ends
// the storm with an error.
CostStormRun runCostStorm(BenchSystem& system, const std::vector<BenchLight>& lights,
                          const CostStormShape& shape, const std::function<bool(QString*)>& atStart = {},
                          const std::function<bool(QString*)>& atEnd = {});

} // namespace e2ebench
