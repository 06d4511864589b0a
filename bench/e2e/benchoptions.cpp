#include "benchoptions.h"

#include <QCommandLineParser>

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

} // namespace

bool parseBenchOptions(const QStringList& arguments, BenchOptions* options, QString* message, int* exitCode)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "Measures huecontroller end to end, run as a separate process against the simulated hub and\n"
        "emulated API v1 bridges in this process (loopback and local sockets only): datapoint write to\n"
        "bridge request, wall switch to hub value, resident memory with many bridges, idle CPU time."));
    parser.addHelpOption();
    const QCommandLineOption quick(
        QStringLiteral("quick"),
        QStringLiteral("100 writes, 20 wall-switch changes, 5 s idle: a run of about 90 s."));
    const QCommandLineOption bridges(QStringLiteral("bridges"),
                                     QStringLiteral("Bridge counts for the memory figures (default 1,5,20)."),
                                     QStringLiteral("LIST"));
    const QCommandLineOption idle(
        QStringLiteral("idle-seconds"),
        QStringLiteral("Length of the idle CPU measurement (default 60, 5 with --quick)."),
        QStringLiteral("N"));
    const QCommandLineOption service(QStringLiteral("service"), QStringLiteral("The huecontroller binary."),
                                     QStringLiteral("PATH"));
    const QCommandLineOption keep(
        QStringLiteral("keep"), QStringLiteral("Keep the run folder (settings, sockets, databases, logs)."));
    parser.addOptions({quick, bridges, idle, service, keep});

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
    if (parser.isSet(service))
        options->servicePath = parser.value(service);
    if (options->servicePath.isEmpty()) {
        *message = QStringLiteral("no huecontroller binary known to this build: name it with --service");
        return false;
    }
    options->keepFolder = parser.isSet(keep);
    return true;
}

} // namespace e2ebench
