#include "costcallgrind.h"

#include "coststorm.h"
#include "eventwait.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>

namespace e2ebench {

namespace {

// Everything in the service runs some 50 times slower under callgrind.
constexpr int kStartLimitMs = 180000;
constexpr int kRegistrationLimitMs = 240000;
constexpr int kToolLimitMs = 60000;
constexpr int kSettleMs = 5000;
constexpr int kTopFunctions = 10;
constexpr int kFunctionWidth = 150;

// Runs a tool to its end while the event loop keeps serving the hub (the service under
// valgrind may be inside a hub call while it is asked to zero or dump).
bool runTool(const QString& program, const QStringList& arguments, QString* output, QString* error)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start(program, arguments);
    if (!process.waitForStarted()) {
        *error = QStringLiteral("cannot start %1").arg(program);
        return false;
    }
    if (!waitUntil([&] { return process.state() == QProcess::NotRunning; }, kToolLimitMs)) {
        process.kill();
        process.waitForFinished();
        *error = QStringLiteral("%1 %2 did not end").arg(program, arguments.join(QLatin1Char(' ')));
        return false;
    }
    const QString text = QString::fromLocal8Bit(process.readAll());
    if (output)
        *output = text;
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0) {
        *error = QStringLiteral("%1 %2 failed: %3")
                     .arg(program, arguments.join(QLatin1Char(' ')), text.trimmed().left(300));
        return false;
    }
    return true;
}

// The newest dump callgrind_control -d wrote next to `outFile` (<outFile>.1, .2, ...).
QString newestDump(const QString& outFile)
{
    const QFileInfo base(outFile);
    const QFileInfoList dumps =
        QDir(base.absolutePath())
            .entryInfoList({base.fileName() + QStringLiteral(".*")}, QDir::Files, QDir::Time);
    return dumps.isEmpty() ? QString() : dumps.first().absoluteFilePath();
}

// The "summary:" of a callgrind file recording the event Ir only (the Ir collected since the
// counters were zeroed); -1 while the file is not complete (its "totals:" line comes last).
qint64 totalInstructions(const QString& dump)
{
    QFile file(dump);
    if (!file.open(QIODevice::ReadOnly))
        return -1;
    qint64 summary = -1;
    bool complete = false;
    while (!file.atEnd()) {
        const QByteArray line = file.readLine().trimmed();
        if (line.startsWith("summary:")) {
            bool ok = false;
            summary = line.mid(8).trimmed().split(' ').value(0).toLongLong(&ok);
            summary = ok ? summary : -1;
        }
        complete = complete || line.startsWith("totals:");
    }
    return complete ? summary : -1;
}

// A copy of the dump for callgrind_annotate. The calls that were running when the counters were
// zeroed (main, the event loop, thread starts) appear with a count of 0, and the annotator takes
// the cost of such a call as the caller's own: every frame on the stack would top the list with
// the whole run. A count of 1 makes it the inclusive cost it is.
QString annotatableCopy(const QString& dump, QString* error)
{
    QFile in(dump);
    QFile out(dump + QStringLiteral(".annotate"));
    if (!in.open(QIODevice::ReadOnly) || !out.open(QIODevice::WriteOnly)) {
        *error = QStringLiteral("cannot copy %1").arg(dump);
        return {};
    }
    while (!in.atEnd()) {
        QByteArray line = in.readLine();
        if (line.startsWith("calls=0 "))
            line.replace(0, 8, "calls=1 ");
        out.write(line);
    }
    return out.fileName();
}

// "  1,234 (5.00%)  path/file.cpp:function [object path]" -> "1,234 (5.00%)  function [object]".
QString shortFunctionLine(const QString& line)
{
    const QRegularExpression parts(
        QStringLiteral("^\\s*(\\S+ \\(\\s*[0-9.]+%\\))\\s+[^:]*:(.*?)(?: \\[(.*)\\])?$"));
    const QRegularExpressionMatch match = parts.match(line);
    if (!match.hasMatch())
        return line.trimmed();
    QString text = match.captured(1) + QStringLiteral("  ") + match.captured(2);
    if (!match.captured(3).isEmpty())
        text += QStringLiteral(" [") + QFileInfo(match.captured(3)).fileName() + QLatin1Char(']');
    return text;
}

// The first lines of callgrind_annotate's function list (own cost, most first).
QStringList topFunctions(const QString& dump, QString* error)
{
    const QString copy = annotatableCopy(dump, error);
    QString text;
    if (copy.isEmpty() ||
        !runTool(QStringLiteral("callgrind_annotate"),
                 {QStringLiteral("--inclusive=no"), QStringLiteral("--auto=no"), copy}, &text, error))
        return {};
    QStringList functions;
    bool inList = false;
    bool pastRule = false;
    for (const QString& line : text.split(QLatin1Char('\n'))) {
        if (!inList) {
            inList = line.contains(QLatin1String("file:function"));
            continue;
        }
        if (!pastRule) {
            pastRule = line.startsWith(QLatin1String("----"));
            continue;
        }
        if (line.trimmed().isEmpty() || int(functions.size()) == kTopFunctions)
            break;
        const QString shortLine = shortFunctionLine(line);
        functions << (shortLine.size() > kFunctionWidth
                          ? shortLine.left(kFunctionWidth - 3) + QStringLiteral("...")
                          : shortLine);
    }
    return functions;
}

} // namespace

bool callgrindAvailable(QString* missing)
{
    for (const char* tool : {"valgrind", "callgrind_control", "callgrind_annotate"}) {
        if (QStandardPaths::findExecutable(QString::fromLatin1(tool)).isEmpty()) {
            *missing = QString::fromLatin1(tool);
            return false;
        }
    }
    return true;
}

InstructionFigure measureInstructions(const QString& servicePath, const QString& folder,
                                      const QString& constDataDir, BridgeFirmware firmware, int lights,
                                      int rounds, int intervalMs)
{
    InstructionFigure figure;
    figure.rounds = rounds;
    figure.intervalMs = intervalMs;
    const QString outFile = folder + QStringLiteral("/callgrind.out");
    BenchSystem system(folder, servicePath, constDataDir);
    system.setStartLimitMs(kStartLimitMs);
    system.service().setForceApi1(firmware == BridgeFirmware::Api1);
    system.service().setLauncher({QStringLiteral("valgrind"), QStringLiteral("--tool=callgrind"),
                                  QStringLiteral("--callgrind-out-file=") + outFile});
    std::vector<BenchLight> benchLights;
    if (!system.start() || !system.addBridge(lights, firmware, LightMix::Dimmable) ||
        !system.pairBridges(kRegistrationLimitMs) || !system.waitForDevices(lights, kRegistrationLimitMs) ||
        (firmware == BridgeFirmware::ClipV2 && !system.waitForClipV2(kRegistrationLimitMs))) {
        figure.error = system.lastError();
        return figure;
    }
    if (!waitUntil([&] { return int((benchLights = system.dimmableLights(lights)).size()) == lights; },
                   kRegistrationLimitMs)) {
        figure.error = QStringLiteral("the service reported no names for some lights");
        return figure;
    }
    pause(kSettleMs);
    const QString pid = QString::number(system.service().pid());
    CostStormShape shape;
    shape.intervalMs = intervalMs;
    shape.seconds = rounds * intervalMs / 1000;
    shape.primeLimitMs = 60000;
    shape.drainLimitMs = 30000;
    const CostStormRun run = runCostStorm(
        system, benchLights, shape,
        [&](QString* error) {
            return runTool(QStringLiteral("callgrind_control"), {QStringLiteral("-z"), pid}, nullptr, error);
        },
        [&](QString* error) {
            return runTool(QStringLiteral("callgrind_control"), {QStringLiteral("-d"), pid}, nullptr, error);
        });
    figure.changes = run.changes;
    figure.answered = run.delivered + run.superseded;
    figure.hubCalls = run.hubCalls;
    if (!run.error.isEmpty()) {
        figure.error = run.error;
        return figure;
    }
    // The dump is written by the service's own thread under valgrind; wait until it is there.
    waitUntil([&] { return totalInstructions(newestDump(outFile)) >= 0; }, kToolLimitMs);
    figure.dumpFile = newestDump(outFile);
    figure.instructions = totalInstructions(figure.dumpFile);
    if (figure.instructions < 0) {
        figure.error = QStringLiteral("no callgrind dump in %1").arg(folder);
        return figure;
    }
    figure.topFunctions = topFunctions(figure.dumpFile, &figure.error);
    return figure;
}

} // namespace e2ebench
