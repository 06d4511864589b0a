#include "benchresults.h"

#include "samplestats.h"

#include <QTextStream>

namespace e2ebench {

namespace {

constexpr int kCoalescingWindowMs = 200;
constexpr int kPollPeriodMs = 1000;

QString column(const char* heading, int width)
{
    return QString::fromLatin1(heading).rightJustified(width);
}

QString ms(double value)
{
    return QString::number(value, 'f', 1) + QStringLiteral(" ms");
}

QString mib(qint64 kib)
{
    return kib < 0 ? QStringLiteral("-")
                   : QString::number(double(kib) / 1024.0, 'f', 1) + QStringLiteral(" MiB");
}

void latencyRow(QTextStream& out, const QString& name, const LatencySamples& samples, double offset)
{
    const SampleSummary s = summarize(samples.ms);
    out << name.leftJustified(48) << QString::number(s.count).rightJustified(8)
        << QString::number(samples.missing).rightJustified(8);
    if (s.count > 0)
        out << ms(s.min - offset).rightJustified(11) << ms(s.median - offset).rightJustified(11)
            << ms(s.p99 - offset).rightJustified(11) << ms(s.max - offset).rightJustified(11);
    out << '\n';
}

} // namespace

QString formatResults(const BenchResults& r)
{
    QString text;
    QTextStream out(&text);
    out << "command: " << r.command << '\n' << "service: " << r.service << "\n\n";

    out << QStringLiteral("latency (1 bridge, %1 lights, API v1)").arg(r.lightsPerBridge).leftJustified(48)
        << column("samples", 8) << column("missing", 8) << column("min", 11) << column("median", 11)
        << column("p99", 11) << column("max", 11) << '\n';
    latencyRow(out, QStringLiteral("datapoint write -> bridge PUT"), r.writes, 0);
    latencyRow(out, QStringLiteral("  of it beyond the %1 ms coalescing window").arg(kCoalescingWindowMs),
               r.writes, kCoalescingWindowMs);
    latencyRow(out, QStringLiteral("wall switch -> hub output value"), r.switches, 0);
    out << QStringLiteral(
               "  (writes %1 ms apart, two lights in turn; the coalescing window is a coarse Qt timer,\n"
               "   which may fire up to 5 % early, hence figures below 200 ms. The wall-switch figure\n"
               "   is bound by the v1 poll period of %2 ms: the service only sees the change at its\n"
               "   next poll, so about half the period is expected on the median)\n\n")
               .arg(r.writeSpacingMs)
               .arg(kPollPeriodMs);

    out << "memory (" << r.lightsPerBridge << " lights per bridge)" << '\n'
        << column("bridges", 8) << column("lights", 8) << column("registered after", 18)
        << column("VmRSS", 12) << column("VmHWM", 12) << '\n';
    for (const MemoryFigure& m : r.memory) {
        out << QString::number(m.bridges).rightJustified(8) << QString::number(m.lights).rightJustified(8);
        if (!m.error.isEmpty()) {
            out << "   " << m.error << '\n';
            continue;
        }
        out << (QString::number(m.registeredAfterSeconds, 'f', 1) + QStringLiteral(" s")).rightJustified(18)
            << mib(m.residentKiB).rightJustified(12) << mib(m.peakResidentKiB).rightJustified(12) << '\n';
    }
    out << '\n';

    if (r.idleCpuSeconds >= 0)
        out << QStringLiteral(
                   "idle CPU (1 bridge, %1 lights, polled every %2 ms): %3 s in %4 s = %5 % of one core\n")
                   .arg(r.lightsPerBridge)
                   .arg(kPollPeriodMs)
                   .arg(r.idleCpuSeconds, 0, 'f', 2)
                   .arg(r.idleSeconds)
                   .arg(100.0 * r.idleCpuSeconds / r.idleSeconds, 0, 'f', 2);
    for (const QString& problem : r.problems)
        out << "problem: " << problem << '\n';
    out.flush();
    return text;
}

} // namespace e2ebench
