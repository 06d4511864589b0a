#include "costmeasure.h"
#include "samplestats.h"

#include <QTextStream>

#include <functional>

namespace e2ebench {

namespace {

constexpr double kTailLimitMs = 1000;

QString fixed(double value, int decimals, const QString& unit = QString())
{
    return QString::number(value, 'f', decimals) + unit;
}

QString mib(qint64 kib)
{
    return kib < 0 ? QString() : fixed(double(kib) / 1024.0, 2, QStringLiteral(" MiB"));
}

std::vector<double> pooled(const LatencyFigure& figure)
{
    std::vector<double> all;
    for (const CostStormRun& run : figure.runs)
        all.insert(all.end(), run.latenciesMs.begin(), run.latenciesMs.end());
    return all;
}

QString latency(const LatencyFigure& figure, double SampleSummary::*field)
{
    const SampleSummary summary = summarize(pooled(figure));
    return summary.count > 0 ? fixed(summary.*field, 1, QStringLiteral(" ms")) : QString();
}

QString worstRunP99(const LatencyFigure& figure)
{
    double worst = -1;
    for (const CostStormRun& run : figure.runs) {
        const SampleSummary summary = summarize(run.latenciesMs);
        if (summary.count > 0)
            worst = std::max(worst, summary.p99);
    }
    return worst < 0 ? QString() : fixed(worst, 1, QStringLiteral(" ms"));
}

QString tailRuns(const LatencyFigure& figure)
{
    if (figure.runs.empty())
        return {};
    int over = 0;
    for (const CostStormRun& run : figure.runs) {
        const SampleSummary summary = summarize(run.latenciesMs);
        over += summary.max > kTailLimitMs || run.unanswered > 0 ? 1 : 0;
    }
    return QStringLiteral("%1 of %2").arg(over).arg(figure.runs.size());
}

QString unanswered(const LatencyFigure& figure)
{
    if (figure.runs.empty())
        return {};
    int changes = 0;
    int missing = 0;
    for (const CostStormRun& run : figure.runs) {
        changes += run.changes;
        missing += run.unanswered;
    }
    return QStringLiteral("%1 of %2").arg(missing).arg(changes);
}

QString hubCallsPerChange(const LatencyFigure& figure)
{
    int calls = 0;
    int changes = 0;
    for (const CostStormRun& run : figure.runs) {
        calls += run.hubCalls;
        changes += run.changes;
    }
    return changes > 0 ? fixed(double(calls) / changes, 2) : QString();
}

QString instructionsPerChange(const InstructionFigure& figure)
{
    if (figure.instructions < 0 || figure.changes == 0)
        return {};
    return fixed(double(figure.instructions) / figure.changes / 1000.0, 1, QStringLiteral(" k"));
}

const MemoryPoint* memoryAt(const ApiCost& cost, int bridges)
{
    for (const MemoryPoint& point : cost.memory) {
        if (point.bridges == bridges && point.error.isEmpty())
            return &point;
    }
    return nullptr;
}

struct Row
{
    QString name;
    std::function<QString(const ApiCost&)> value;
    QString v1Target;
    QString v2Target;
};

QString runsText(const LatencyFigure& figure)
{
    QStringList parts;
    for (const CostStormRun& run : figure.runs) {
        const SampleSummary summary = summarize(run.latenciesMs);
        parts << QStringLiteral("%1/%2").arg(fixed(summary.p99, 1), fixed(summary.max, 1));
    }
    return parts.join(QStringLiteral("  "));
}

QString callsByKind(const LatencyFigure& figure)
{
    QMap<QString, int> calls;
    int changes = 0;
    for (const CostStormRun& run : figure.runs) {
        changes += run.changes;
        for (auto it = run.hubCallsByKind.begin(); it != run.hubCallsByKind.end(); ++it)
            calls[it.key()] += it.value();
    }
    QStringList parts;
    for (auto it = calls.begin(); it != calls.end(); ++it)
        parts << QStringLiteral("%1 %2").arg(it.key()).arg(it.value());
    return QStringLiteral("%1 changes; %2")
        .arg(changes)
        .arg(parts.isEmpty() ? QStringLiteral("no calls") : parts.join(QStringLiteral(", ")));
}

} // namespace

QString formatCostReport(const CostReport& report)
{
    const std::vector<Row> rows{
        {QStringLiteral("instructions per light change (callgrind)"),
         [](const ApiCost& c) { return instructionsPerChange(c.instructions); },
         {},
         QStringLiteral("<= 45 k")},
        {QStringLiteral("  changes answered under callgrind"),
         [](const ApiCost& c) {
             return c.instructions.changes > 0
                        ? QStringLiteral("%1 of %2").arg(c.instructions.answered).arg(c.instructions.changes)
                        : QString();
         },
         {},
         {}},
        {QStringLiteral("hub calls per light change (250/s)"),
         [](const ApiCost& c) { return hubCallsPerChange(c.at250); },
         {},
         QStringLiteral("<= 1.5")},
        {QStringLiteral("250/s: latency median"),
         [](const ApiCost& c) { return latency(c.at250, &SampleSummary::median); },
         {},
         {}},
        {QStringLiteral("250/s: latency p99"),
         [](const ApiCost& c) { return latency(c.at250, &SampleSummary::p99); },
         {},
         QStringLiteral("<= 5 ms")},
        {QStringLiteral("250/s: latency max"),
         [](const ApiCost& c) { return latency(c.at250, &SampleSummary::max); },
         {},
         {}},
        {QStringLiteral("250/s: worst p99 of one run"),
         [](const ApiCost& c) { return worstRunP99(c.at250); },
         {},
         {}},
        {QStringLiteral("250/s: runs with a change > 1 s or lost"),
         [](const ApiCost& c) { return tailRuns(c.at250); },
         {},
         QStringLiteral("0")},
        {QStringLiteral("250/s: changes never answered"),
         [](const ApiCost& c) { return unanswered(c.at250); },
         {},
         {}},
        {QStringLiteral("1000/s: latency median"),
         [](const ApiCost& c) { return latency(c.at1000, &SampleSummary::median); },
         {},
         {}},
        {QStringLiteral("1000/s: latency p99"),
         [](const ApiCost& c) { return latency(c.at1000, &SampleSummary::p99); },
         {},
         QStringLiteral("<= 50 ms")},
        {QStringLiteral("1000/s: latency max"),
         [](const ApiCost& c) { return latency(c.at1000, &SampleSummary::max); },
         {},
         {}},
        {QStringLiteral("1000/s: worst p99 of one run"),
         [](const ApiCost& c) { return worstRunP99(c.at1000); },
         {},
         {}},
        {QStringLiteral("1000/s: runs with a change > 1 s or lost"),
         [](const ApiCost& c) { return tailRuns(c.at1000); },
         {},
         QStringLiteral("0")},
        {QStringLiteral("1000/s: changes never answered"),
         [](const ApiCost& c) { return unanswered(c.at1000); },
         {},
         {}},
        {QStringLiteral("250/s, detailed logging: median"),
         [](const ApiCost& c) { return latency(c.at250Logging, &SampleSummary::median); },
         {},
         {}},
        {QStringLiteral("250/s, detailed logging: p99"),
         [](const ApiCost& c) { return latency(c.at250Logging, &SampleSummary::p99); },
         {},
         QStringLiteral("<= 50 ms")},
        {QStringLiteral("250/s, detailed logging: max"),
         [](const ApiCost& c) { return latency(c.at250Logging, &SampleSummary::max); },
         {},
         {}},
        {QStringLiteral("250/s, detailed logging: runs > 1 s or lost"),
         [](const ApiCost& c) { return tailRuns(c.at250Logging); },
         {},
         {}},
    };
    std::vector<Row> memoryRows; // after the rows above
    for (int bridges : {1, 5, 20}) {
        const QString target = bridges == 5    ? QStringLiteral("<= 4 MiB")
                               : bridges == 20 ? QStringLiteral("<= 8 MiB")
                                               : QString();
        memoryRows.push_back({QStringLiteral("unique memory, %1 x 50 lights").arg(bridges),
                              [bridges](const ApiCost& c) {
                                  const MemoryPoint* point = memoryAt(c, bridges);
                                  return point ? mib(point->uniqueKiB) : QString();
                              },
                              {},
                              target});
        memoryRows.push_back({QStringLiteral("RSS, %1 x 50 lights").arg(bridges),
                              [bridges](const ApiCost& c) {
                                  const MemoryPoint* point = memoryAt(c, bridges);
                                  return point ? mib(point->residentKiB) : QString();
                              },
                              {},
                              {}});
    }

    const bool two = report.services.size() == 2;
    const QStringList tags =
        two ? QStringList{QStringLiteral("before"), QStringLiteral("after")} : QStringList{QString()};
    QStringList header{QStringLiteral("figure")};
    for (const char* api : {"v1", "v2"}) {
        for (const QString& tag : tags)
            header << (tag.isEmpty() ? QString::fromLatin1(api)
                                     : QStringLiteral("%1 %2").arg(QLatin1String(api), tag));
    }
    header << QStringLiteral("target (v2)");

    std::vector<QStringList> table{header};
    for (const std::vector<Row>* group : {&rows, static_cast<const std::vector<Row>*>(&memoryRows)}) {
        for (const Row& row : *group) {
            QStringList cells{row.name};
            for (int api = 0; api < 2; ++api) {
                for (const ServiceCost& service : report.services) {
                    const QString value = row.value(api == 0 ? service.v1 : service.v2);
                    cells << (value.isEmpty() ? QStringLiteral("-") : value);
                }
            }
            cells << (row.v2Target.isEmpty() ? QString() : row.v2Target);
            table.push_back(cells);
        }
    }
    std::vector<int> widths(std::size_t(header.size()), 0);
    for (const QStringList& cells : table) {
        for (int i = 0; i < cells.size(); ++i)
            widths[std::size_t(i)] = std::max(widths[std::size_t(i)], int(cells[i].size()));
    }

    QString text;
    QTextStream out(&text);
    out << "command: " << report.command << '\n';
    for (std::size_t i = 0; i < report.services.size(); ++i)
        out << (two ? tags[int(i)] : QStringLiteral("service")) << ": " << report.services[i].path << '\n';
    out << '\n';
    for (std::size_t r = 0; r < table.size(); ++r) {
        out << '|';
        for (int i = 0; i < table[r].size(); ++i)
            out << ' '
                << (i == 0 ? table[r][i].leftJustified(widths[std::size_t(i)])
                           : table[r][i].rightJustified(widths[std::size_t(i)]))
                << " |";
        out << '\n';
        if (r == 0) {
            out << '|';
            for (int i = 0; i < table[r].size(); ++i)
                out << (i == 0 ? QStringLiteral(" :") : QStringLiteral(" "))
                    << QString(widths[std::size_t(i)] - (i == 0 ? 1 : 1), QLatin1Char('-'))
                    << (i == 0 ? QStringLiteral(" |") : QStringLiteral(": |"));
            out << '\n';
        }
    }
    out << QStringLiteral(
               "\nHow: instructions: the service under valgrind --tool=callgrind with 1 bridge of 50 lights, "
               "counters zeroed\n"
               "(callgrind_control -z) after every light is primed and dumped (-d) once every change is "
               "answered; Ir / light changes.\n"
               "Under valgrind the rounds come one a second (%1 rounds; the service keeps up when every "
               "change "
               "is answered); each round\n"
               "is one event stream message with all 50 lights' changes, as in the real storm. Latency: %2 s "
               "storms, %3 per figure under\n"
               "CLIP v2 (1 under API v1, where the 1000 ms poll bounds it), one after the other in one "
               "service; "
               "each bridge sends a round's\n"
               "changes at once as one message (no event window waited), and a change's latency runs from "
               "that "
               "message to the first value\n"
               "at the hub that shows it or a later change of the light. 250/s: 1 bridge x 50 lights, a "
               "round "
               "every 200 ms; 1000/s:\n"
               "5 bridges x 50 lights, a round every 250 ms, all five bridges' messages at the same moment. "
               "Hub "
               "calls: every call of the\n"
               "service at the hub during the 250/s storms, from the first round to the last change "
               "answered. "
               "Memory: unique =\n"
               "Private_Clean + Private_Dirty of /proc/<pid>/smaps_rollup, after registration and %4 s of "
               "steady state (lights of every kind).\n"
               "Latencies and memory are wall-clock and machine figures: this machine is shared (2 cores, "
               "other "
               "builds running), so\n"
               "compare the columns of one run; instruction counts do not move with load.\n")
               .arg(report.callgrindRounds)
               .arg(report.stormSeconds)
               .arg(report.runs)
               .arg(report.quick ? 2 : 5);

    for (std::size_t i = 0; i < report.services.size(); ++i) {
        const ServiceCost& service = report.services[i];
        const QString tag = two ? tags[int(i)] : QStringLiteral("service");
        for (int api = 0; api < 2; ++api) {
            const ApiCost& cost = api == 0 ? service.v1 : service.v2;
            const QString name = QStringLiteral("%1, %2").arg(tag, api == 0 ? QStringLiteral("API v1")
                                                                            : QStringLiteral("CLIP v2"));
            out << "\n## " << name << '\n';
            const InstructionFigure& ir = cost.instructions;
            if (ir.instructions >= 0) {
                out << QStringLiteral("callgrind: %1 instructions over %2 changes (%3 answered), %4 hub "
                                      "calls (%5 per change)\n")
                           .arg(ir.instructions)
                           .arg(ir.changes)
                           .arg(ir.answered)
                           .arg(ir.hubCalls)
                           .arg(ir.changes > 0 ? fixed(double(ir.hubCalls) / ir.changes, 2)
                                               : QStringLiteral("-"));
                out << "highest own cost (callgrind_annotate --inclusive=no):\n";
                for (const QString& line : ir.topFunctions)
                    out << "  " << line << '\n';
            }
            for (const auto& [label, figure] :
                 {std::pair<QString, const LatencyFigure*>{QStringLiteral("250/s"), &cost.at250},
                  {QStringLiteral("1000/s"), &cost.at1000},
                  {QStringLiteral("250/s, detailed logging"), &cost.at250Logging}}) {
                if (figure->runs.empty())
                    continue;
                out << QStringLiteral("%1: per run p99/max ms: %2\n").arg(label, runsText(*figure));
                out << QStringLiteral("%1: hub calls: %2\n").arg(label, callsByKind(*figure));
            }
            if (!cost.mappings.empty()) {
                out << "largest private mappings with 5 x 50 lights (KiB private, of them dirty; mapping "
                       "size; permissions; what):\n";
                for (const PrivateMapping& mapping : cost.mappings)
                    out << QStringLiteral("  %1 %2  %3 KiB  %4  %5\n")
                               .arg(mapping.privateKiB, 7)
                               .arg(mapping.privateDirtyKiB, 7)
                               .arg(mapping.sizeKiB, 7)
                               .arg(mapping.permissions, mapping.name);
            }
        }
    }
    for (const QString& problem : report.problems)
        out << "problem: " << problem << '\n';
    out.flush();
    return text;
}

} // namespace e2ebench
