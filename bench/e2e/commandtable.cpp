#include "commandcomparison.h"
#include "samplestats.h"

#include <QTextStream>

#include <functional>
#include <utility>
#include <vector>

namespace e2ebench {

namespace {

constexpr int kNameWidth = 46;
constexpr int kValueWidth = 16;
constexpr double kWindowMs = 200; // the service's coalescing delay after the last write

using Cell = std::function<QString(const ScenarioFigures&)>;

QString fixed(double value, int decimals, const char* unit)
{
    return value < 0 ? QStringLiteral("-") : QString::number(value, 'f', decimals) + QLatin1String(unit);
}

void printLine(QTextStream& out, const QString& name, const QString& v2, const QString& v1)
{
    out << name.leftJustified(kNameWidth) << v2.rightJustified(kValueWidth) << v1.rightJustified(kValueWidth)
        << '\n';
}

void printRow(QTextStream& out, const CommandComparison& c, const QString& name,
              ScenarioFigures CommandSide::*scenario, const Cell& cell)
{
    const auto value = [&](const CommandSide& side) {
        const ScenarioFigures& figures = side.*scenario;
        return side.error.isEmpty() && figures.error.isEmpty() ? cell(figures) : QStringLiteral("-");
    };
    printLine(out, QStringLiteral("  ") + name, value(c.v2), value(c.v1));
}

// The rows every scenario has.
void printDelivery(QTextStream& out, const CommandComparison& c, ScenarioFigures CommandSide::*scenario)
{
    printRow(out, c, QStringLiteral("lights in their final state"), scenario, [](const ScenarioFigures& f) {
        return QStringLiteral("%1/%2").arg(f.finalStates).arg(f.lights);
    });
    printRow(out, c, QStringLiteral("light changes sent (PUTs)"), scenario,
             [](const ScenarioFigures& f) { return QString::number(f.sent); });
    printRow(out, c, QStringLiteral("refused by the bridge (429)"), scenario, [](const ScenarioFigures& f) {
        const double share = f.sent > 0 ? 100.0 * f.refused / f.sent : 0;
        return QStringLiteral("%1 (%2 %)").arg(f.refused).arg(share, 0, 'f', 1);
    });
    printRow(out, c, QStringLiteral("first write -> last accepted change"), scenario,
             [](const ScenarioFigures& f) { return fixed(f.lastAcceptedS, 2, " s"); });
    printRow(out, c, QStringLiteral("physical minimum"), scenario,
             [](const ScenarioFigures& f) { return fixed(f.minimumS, 2, " s"); });
    printRow(out, c, QStringLiteral("last accepted / physical minimum"), scenario, [](const ScenarioFigures& f) {
        return f.lastAcceptedS < 0 || f.minimumS <= 0 ? QStringLiteral("-")
                                                      : fixed(f.lastAcceptedS / f.minimumS, 2, "x");
    });
}

QString probeCell(const CommandSide& side, double SampleSummary::*field, double offset)
{
    const SampleSummary summary = summarize(side.probe.ms);
    return side.error.isEmpty() && summary.count > 0 ? fixed(summary.*field - offset, 1, " ms") : QStringLiteral("-");
}

QString sliderSpacing(const CommandSide& side, double SampleSummary::*field)
{
    const SampleSummary summary = summarize(side.slider.spacingMs);
    return side.error.isEmpty() && summary.count > 0 ? fixed(summary.*field, 0, " ms") : QStringLiteral("-");
}

} // namespace

QString formatCommandComparison(const CommandComparison& c)
{
    const CommandPlan& p = c.plan;
    QString text;
    QTextStream out(&text);
    out << "command: " << c.command << '\n' << "service: " << c.service << "\n\n";
    out << QStringLiteral("command delivery: 1 bridge, %1 lights; the bridge takes %2 light changes/s (burst 1) "
                          "and answers 429 beyond\n")
               .arg(p.lights)
               .arg(p.bridgeLightsPerSecond);
    printLine(out, QString(), c.v2.name, c.v1.name);

    out << QStringLiteral("burst: %1 writes to %2 lights at once (%3 a light)\n")
               .arg(p.burstWritesPerLight * p.lights)
               .arg(p.lights)
               .arg(p.burstWritesPerLight);
    printDelivery(out, c, &CommandSide::burst);

    out << QStringLiteral("paced: %1 writes/s for %2 s, light after light\n").arg(p.pacedPerSecond).arg(p.pacedSeconds);
    printDelivery(out, c, &CommandSide::paced);

    out << QStringLiteral("slider: 1 light written every %1 ms for %2 s\n")
               .arg(p.sliderStepMs)
               .arg(p.sliderMs / 1000.0, 0, 'f', 1);
    printDelivery(out, c, &CommandSide::slider);
    printRow(out, c, QStringLiteral("first write -> first change"), &CommandSide::slider,
             [](const ScenarioFigures& f) { return fixed(f.firstChangeMs, 0, " ms"); });
    printLine(out, QStringLiteral("  change spacing while dragging, median"),
              sliderSpacing(c.v2, &SampleSummary::median), sliderSpacing(c.v1, &SampleSummary::median));
    printLine(out, QStringLiteral("  change spacing while dragging, max"), sliderSpacing(c.v2, &SampleSummary::max),
              sliderSpacing(c.v1, &SampleSummary::max));

    out << QStringLiteral("outage: connections refused for %1 s while %2 writes go to %3 lights\n")
               .arg(p.outageSeconds)
               .arg(p.outageWrites)
               .arg(p.outageLights);
    printDelivery(out, c, &CommandSide::outage);

    out << QStringLiteral("write -> change: 2 lights written in turn every %1 ms (%2 writes)\n")
               .arg(p.probeSpacingMs)
               .arg(p.probeSamples);
    printLine(out, QStringLiteral("  total, median"), probeCell(c.v2, &SampleSummary::median, 0),
              probeCell(c.v1, &SampleSummary::median, 0));
    printLine(out, QStringLiteral("  beyond the 200 ms window, median"),
              probeCell(c.v2, &SampleSummary::median, kWindowMs), probeCell(c.v1, &SampleSummary::median, kWindowMs));
    printLine(out, QStringLiteral("  beyond the 200 ms window, p99"), probeCell(c.v2, &SampleSummary::p99, kWindowMs),
              probeCell(c.v1, &SampleSummary::p99, kWindowMs));
    printLine(out, QStringLiteral("  beyond the 200 ms window, max"), probeCell(c.v2, &SampleSummary::max, kWindowMs),
              probeCell(c.v1, &SampleSummary::max, kWindowMs));
    printLine(out, QStringLiteral("  writes without a change"),
              c.v2.error.isEmpty() ? QString::number(c.v2.probe.missing) : QStringLiteral("-"),
              c.v1.error.isEmpty() ? QString::number(c.v1.probe.missing) : QStringLiteral("-"));

    out << QStringLiteral(
        "  (changes and refusals are the bridge's record and rate-limit counters; final states are read\n"
        "   from its light model after a bounded wait. Physical minimum: each light's final value sent the\n"
        "   moment it is written (outage: not before the bridge is back), one change per 1/rate. Dragging:\n"
        "   the light's changes from the first write to 400 ms after the last.)\n");
    for (const CommandSide* side : {&c.v2, &c.v1}) {
        const std::pair<const char*, const ScenarioFigures*> scenarios[] = {
            {"burst", &side->burst}, {"paced", &side->paced}, {"slider", &side->slider}, {"outage", &side->outage}};
        for (const auto& [name, f] : scenarios) {
            const QString where = side->name + QStringLiteral(", ") + QLatin1String(name) + QStringLiteral(": ");
            if (f->failedWrites > 0)
                out << "problem: " << where << f->failedWrites << " writes the hub could not make\n";
            for (const QString& miss : f->misses)
                out << "missed: " << where << miss << '\n';
            if (f->refusedInRecord != f->refused)
                out << "note: " << where << f->refusedInRecord << " refusals in the record, " << f->refused
                    << " counted by the limit\n";
        }
    }
    for (const QString& problem : c.problems)
        out << "problem: " << problem << '\n';
    out.flush();
    return text;
}

} // namespace e2ebench
