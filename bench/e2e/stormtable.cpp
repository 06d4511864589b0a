#include "samplestats.h"
#include "stormcomparison.h"

#include <QTextStream>

#include <functional>

namespace e2ebench {

namespace {

constexpr int kNameWidth = 44;
constexpr int kValueWidth = 16;
constexpr int kRatioWidth = 9;

// One figure of both sides: how to read it, how to print it.
struct Row
{
    QString name;
    std::function<double(const StormSide&)> value; // negative: not known
    std::function<QString(double)> print;
    bool ratio = true;
};

QString fixed(double value, int decimals, const QString& unit = QString())
{
    return QString::number(value, 'f', decimals) + unit;
}

QString mib(double kib)
{
    return fixed(kib / 1024.0, 1, QStringLiteral(" MiB"));
}

void printRow(QTextStream& out, const Row& row, const StormComparison& c)
{
    const bool known = c.v2.storm.error.isEmpty() && c.v1.storm.error.isEmpty();
    const double v2 = c.v2.storm.error.isEmpty() ? row.value(c.v2) : -1;
    const double v1 = c.v1.storm.error.isEmpty() ? row.value(c.v1) : -1;
    out << row.name.leftJustified(kNameWidth)
        << (v2 < 0 ? QStringLiteral("-") : row.print(v2)).rightJustified(kValueWidth)
        << (v1 < 0 ? QStringLiteral("-") : row.print(v1)).rightJustified(kValueWidth);
    if (row.ratio && known && v2 >= 0 && v1 > 0)
        out << fixed(v2 / v1, 2, QStringLiteral("x")).rightJustified(kRatioWidth);
    out << '\n';
}

double latency(const StormSide& side, double SampleSummary::*field)
{
    const SampleSummary summary = summarize(side.storm.latenciesMs);
    return summary.count > 0 ? summary.*field : -1;
}

} // namespace

QString formatStormComparison(const StormComparison& c)
{
    const StormFigures& shape = c.v2.storm.lights > 0 ? c.v2.storm : c.v1.storm;
    const auto count = [](double value) { return QString::number(qint64(value)); };
    const auto ms = [](double value) { return fixed(value, 1, QStringLiteral(" ms")); };
    const auto share = [](const StormSide& side, int part) {
        return side.storm.changes > 0 ? 100.0 * part / side.storm.changes : -1.0;
    };
    const auto percent = [](double value) { return fixed(value, 1, QStringLiteral(" %")); };
    const std::vector<Row> rows{
        {QStringLiteral("announced -> all lights registered"),
         [](const StormSide& s) { return s.registeredAfterSeconds; },
         [](double v) { return fixed(v, 1, QStringLiteral(" s")); }, false},
        {QStringLiteral("brightness changes at the bridge"),
         [](const StormSide& s) { return double(s.storm.changes); }, count, false},
        {QStringLiteral("values at the hub during the storm"),
         [](const StormSide& s) { return double(s.storm.outputs); }, count},
        {QStringLiteral("events applied per second"),
         [](const StormSide& s) { return s.storm.outputsPerSecond; },
         [](double v) { return fixed(v, 1, QStringLiteral(" /s")); }},
        {QStringLiteral("changes shown with their own value"),
         [&](const StormSide& s) { return share(s, s.storm.delivered); }, percent},
        {QStringLiteral("changes overtaken by a later value"),
         [&](const StormSide& s) { return share(s, s.storm.superseded); }, percent, false},
        {QStringLiteral("changes never answered"),
         [&](const StormSide& s) { return share(s, s.storm.unanswered); }, percent, false},
        {QStringLiteral("latency change -> hub, median"),
         [](const StormSide& s) { return latency(s, &SampleSummary::median); }, ms},
        {QStringLiteral("latency change -> hub, p99"),
         [](const StormSide& s) { return latency(s, &SampleSummary::p99); }, ms},
        {QStringLiteral("latency change -> hub, max"),
         [](const StormSide& s) { return latency(s, &SampleSummary::max); }, ms},
        {QStringLiteral("VmRSS before the storm"),
         [](const StormSide& s) { return double(s.storm.residentBeforeKiB); }, mib},
        {QStringLiteral("VmRSS, highest sample during it"),
         [](const StormSide& s) { return double(s.storm.residentMaxKiB); }, mib},
        {QStringLiteral("VmHWM after it"), [](const StormSide& s) { return double(s.storm.peakResidentKiB); },
         mib},
        {QStringLiteral("CPU time (utime+stime) during it"),
         [](const StormSide& s) { return s.storm.cpuSeconds; },
         [](double v) { return fixed(v, 2, QStringLiteral(" s")); }},
        {QStringLiteral("  as a share of one core"),
         [](const StormSide& s) {
             return s.storm.cpuSeconds < 0 ? -1 : 100.0 * s.storm.cpuSeconds / s.storm.seconds;
         },
         percent, false},
        {QStringLiteral("CPU time on the scheduler's clock"),
         [](const StormSide& s) { return s.storm.runSeconds; },
         [](double v) { return fixed(v, 3, QStringLiteral(" s")); }},
        {QStringLiteral("  as a share of one core"),
         [](const StormSide& s) {
             return s.storm.runSeconds < 0 ? -1 : 100.0 * s.storm.runSeconds / s.storm.seconds;
         },
         percent, false},
    };

    QString text;
    QTextStream out(&text);
    out << "command: " << c.command << '\n' << "service: " << c.service << "\n\n";
    out << QStringLiteral("event storm: 1 bridge, %1 lights, all changed every %2 ms for %3 s")
               .arg(shape.lights)
               .arg(shape.intervalMs)
               .arg(shape.seconds)
        << "\n";
    out << QString().leftJustified(kNameWidth) << QStringLiteral("CLIP v2").rightJustified(kValueWidth)
        << QStringLiteral("API v1").rightJustified(kValueWidth)
        << QStringLiteral("v2/v1").rightJustified(kRatioWidth) << '\n';
    for (const Row& row : rows)
        printRow(out, row, c);
    out << QStringLiteral(
        "  (CLIP v2: the service follows the bridge's event stream; API v1: it polls the bridge every\n"
        "   1000 ms and sees only the last value of each light since the previous poll. A change's\n"
        "   latency ends with the first value at the hub that shows it or a later change of the light.\n"
        "   utime+stime count clock ticks of 10 ms and miss short bursts; the scheduler's clock is\n"
        "   /proc/<pid>/schedstat)\n");
    for (const QString& problem : c.problems)
        out << "problem: " << problem << '\n';
    out.flush();
    return text;
}

} // namespace e2ebench
