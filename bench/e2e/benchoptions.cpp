#include "benchoptions.h"

#include <QCommandLineParser>
#include <QFileInfo>

namespace e2ebench {

namespace {

bool parseCounts(const QString& text, QList<int>* counts)
{
    counts->clear();
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        bool ok = false;
        const int count = part.trimmed().toInt(&ok);
        if (!ok || count < 1 || count > 100)
            return false;
        if (!counts->contains(count))
            counts->append(count);
    }
    return !counts->isEmpty();
}

bool parsePositive(const QString& text, int lowest, int highest, int* value)
{
    bool ok = false;
    const int number = text.toInt(&ok);
    if (!ok || number < lowest || number > highest)
        return false;
    *value = number;
    return true;
}

} // namespace

bool parseBenchOptions(const QStringList& arguments, BenchOptions* options, QString* message, int* exitCode)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Measures huecontroller end to end, run as a separate process against the simulated hub and\n"
        "emulated API v1 bridges in this process (loopback and local sockets only): datapoint write to\n"
        "bridge request, wall switch to hub value, resident memory with many bridges, idle CPU time.\n"
        "With --api v2: an event storm through a CLIP v2 bridge and the same storm through API v1\n"
        "polling, side by side: events applied per second, latency, memory, CPU time.\n"
        "With --commands: datapoint writes delivered to a bridge that takes 10 light changes a second\n"
        "(burst, paced, slider, outage), CLIP v2 beside API v1."));
    parser.addHelpOption();
    const QCommandLineOption quick(
        QStringLiteral("quick"),
        QStringLiteral(
            "100 writes, 20 wall-switch changes, 5 s idle (about 90 s); storms of 5 s with --api v2."));
    const QCommandLineOption bridges(QStringLiteral("bridges"),
                                     QStringLiteral("Bridge counts for the memory figures (default 1,5,20)."),
                                     QStringLiteral("LIST"));
    const QCommandLineOption idle(
        QStringLiteral("idle-seconds"),
        QStringLiteral("Length of the idle CPU measurement (default 60, 5 with --quick)."),
        QStringLiteral("N"));
    const QCommandLineOption api(
        QStringLiteral("api"),
        QStringLiteral("v1: the API version 1 figures (default); v2: the event storm, CLIP v2 beside v1."),
        QStringLiteral("v1|v2"));
    const QCommandLineOption storm(
        QStringLiteral("storm-seconds"),
        QStringLiteral("Length of each event storm with --api v2 (default 30, 5 with --quick)."),
        QStringLiteral("N"));
    const QCommandLineOption interval(
        QStringLiteral("storm-interval"),
        QStringLiteral("Milliseconds between two changes of every light in the storm (default 200)."),
        QStringLiteral("MS"));
    const QCommandLineOption commands(
        QStringLiteral("commands"),
        QStringLiteral("Command delivery under a rate limit of 10 light changes/s, CLIP v2 beside v1 "
                       "(with --quick: shorter paced and outage scenarios, fewer probe writes)."));
    const QCommandLineOption cost(
        QStringLiteral("cost"),
        QStringLiteral("The cost figures of each --service (given up to twice: before, after): instructions\n"
                       "per light change under callgrind, hub calls per change, event latency at 250 and\n"
                       "1000 events/s (also with detailed logging), unique memory with 1, 5, 20 bridges."));
    const QCommandLineOption runs(
        QStringLiteral("runs"),
        QStringLiteral("With --cost: storms per latency figure (default 10, 2 with --quick)."),
        QStringLiteral("N"));
    const QCommandLineOption service(
        QStringLiteral("service"),
        QStringLiteral("The huecontroller binary (with --cost: twice for two binaries side by side)."),
        QStringLiteral("PATH"));
    const QCommandLineOption keep(
        QStringLiteral("keep"), QStringLiteral("Keep the run folder (settings, sockets, databases, logs)."));
    parser.addOptions({quick, api, commands, cost, runs, storm, interval, service, keep, bridges, idle});

    *exitCode = 2;
    if (!parser.parse(arguments)) {
        *message = parser.errorText();
        return false;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        *message = parser.helpText();
        *exitCode = 0;
        return false;
    }
    if (!parser.positionalArguments().isEmpty()) {
        *message = QStringLiteral("unexpected argument %1").arg(parser.positionalArguments().first());
        return false;
    }
    options->quick = parser.isSet(quick);
    if (options->quick) {
        options->idleSeconds = 5;
        options->writeSamples = 100;
        options->switchSamples = 20;
        options->stormSeconds = 5;
    }
    if (parser.isSet(api)) {
        const QString value = parser.value(api);
        if (value != QLatin1String("v1") && value != QLatin1String("v2")) {
            *message = QStringLiteral("--api takes v1 or v2");
            return false;
        }
        options->api = value == QLatin1String("v2") ? BenchApi::V2 : BenchApi::V1;
    }
    options->commands = parser.isSet(commands);
    if (options->commands && parser.isSet(api)) {
        *message = QStringLiteral("--commands runs both APIs; leave out --api");
        return false;
    }
    options->cost = parser.isSet(cost);
    if (options->cost && (parser.isSet(api) || options->commands)) {
        *message = QStringLiteral("--cost runs both APIs; leave out --api and --commands");
        return false;
    }
    if (options->cost) {
        // Many storms per binary: shorter ones, repeated (--runs) for the tail.
        options->stormSeconds = options->quick ? 4 : 10;
        options->runs = options->quick ? 2 : 10;
    }
    if (parser.isSet(runs) && !parsePositive(parser.value(runs), 1, 100, &options->runs)) {
        *message = QStringLiteral("--runs takes a number from 1 to 100");
        return false;
    }
    if (parser.isSet(storm) && !parsePositive(parser.value(storm), 1, 3600, &options->stormSeconds)) {
        *message = QStringLiteral("--storm-seconds takes a number of seconds from 1 to 3600");
        return false;
    }
    if (parser.isSet(interval) &&
        !parsePositive(parser.value(interval), 10, 10000, &options->stormIntervalMs)) {
        *message = QStringLiteral("--storm-interval takes milliseconds from 10 to 10000");
        return false;
    }
    if (parser.isSet(bridges) && !parseCounts(parser.value(bridges), &options->bridgeCounts)) {
        *message = QStringLiteral("--bridges takes counts from 1 to 100, e.g. 1,5,20");
        return false;
    }
    if (parser.isSet(idle)) {
        bool ok = false;
        options->idleSeconds = parser.value(idle).toInt(&ok);
        if (!ok || options->idleSeconds < 1) {
            *message = QStringLiteral("--idle-seconds takes a number of seconds from 1");
            return false;
        }
    }
#ifdef HUECONTROLLER_EXECUTABLE
    options->servicePath = QStringLiteral(HUECONTROLLER_EXECUTABLE);
#endif
    // The service runs in its own folder: a relative path would not find it there.
    for (const QString& path : parser.values(service))
        options->servicePaths << QFileInfo(path).absoluteFilePath();
    if (options->servicePaths.size() > 2 || (options->servicePaths.size() == 2 && !options->cost)) {
        *message = QStringLiteral("--service may be given twice only with --cost");
        return false;
    }
    if (!options->servicePaths.isEmpty())
        options->servicePath = options->servicePaths.first();
    else if (!options->servicePath.isEmpty())
        options->servicePaths << options->servicePath;
    if (options->servicePath.isEmpty()) {
        *message = QStringLiteral("no huecontroller binary known to this build: name it with --service");
        return false;
    }
    options->keepFolder = parser.isSet(keep);
    return true;
}

} // namespace e2ebench
