#include "hubsimulator.h"

#include <common/logginginterface.h>
#include <common/unixsignalwatcher.h>

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QTime>

#include <csignal>
#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("vorn"));
    QCoreApplication::setApplicationName(QStringLiteral("hubsim"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral(
        "The hub's services for development and tests: communication, database, system, diagnosis and\n"
        "backend on one socket directory, the supervisor that drives com.orlux.tamsa.huecontroller\n"
        "through its run stages, and a control service for hubctl. Loopback only."));
    parser.addHelpOption();
    const QCommandLineOption socketDirOption(
        QStringLiteral("socket-dir"), QStringLiteral("Serve in DIR (required)."), QStringLiteral("DIR"));
    const QCommandLineOption tcpOption(
        QStringLiteral("tcp"), QStringLiteral("Serve over TCP on 127.0.0.1, with port files in DIR."));
    const QCommandLineOption superviseOption(
        QStringLiteral("supervise"),
        QStringLiteral(
            "Send run stages 0, 3, 1 to com.orlux.tamsa.huecontroller once it appears, 2 at the end."));
    const QCommandLineOption dbOption(
        QStringLiteral("db"), QStringLiteral("Configuration database (default DIR/hubsim-config.sqlite)."),
        QStringLiteral("FILE"));
    const QCommandLineOption serialOption(
        QStringLiteral("serial"),
        QStringLiteral("The hub's serial number (generic/serialNumber) for this run, not stored; default: "
                       "the database's, else %1.")
            .arg(QLatin1String(kDefaultHubSerialNumber)),
        QStringLiteral("TEXT"));
    const QCommandLineOption verboseOption(QStringLiteral("verbose"), QStringLiteral("Log detail as well."));
    parser.addOptions({socketDirOption, tcpOption, superviseOption, dbOption, serialOption, verboseOption});
    parser.process(app);

    if (!parser.isSet(socketDirOption)) {
        std::fprintf(stderr, "hubsim: --socket-dir DIR is required (see --help)\n");
        return 2;
    }
    // A foreground development tool: its log goes to standard error with the time, not to the
    // system log.
    setDetailedLoggingEnabled(parser.isSet(verboseOption));
    setLogSink([](int, const QByteArray& line) {
        const QByteArray stamp = QTime::currentTime().toString(QStringLiteral("HH:mm:ss.zzz")).toLatin1();
        std::fprintf(stderr, "%s %s\n", stamp.constData(), line.constData());
    });

    HubSimOptions options;
    options.socketDir = QDir(parser.value(socketDirOption)).absolutePath();
    options.tcp = parser.isSet(tcpOption);
    options.supervise = parser.isSet(superviseOption);
    options.databaseFile = parser.value(dbOption);
    options.serialNumber = parser.value(serialOption);
    if (parser.isSet(serialOption) && options.serialNumber.trimmed().isEmpty()) {
        std::fprintf(stderr, "hubsim: --serial needs a text\n");
        return 2;
    }
    if (!QDir().mkpath(options.socketDir)) {
        std::fprintf(stderr, "hubsim: cannot create %s\n", qPrintable(options.socketDir));
        return 1;
    }

    HubSimulator hub(options);
    QString error;
    if (!hub.start(&error)) {
        std::fprintf(stderr, "hubsim: %s\n", qPrintable(error));
        return 1;
    }

    UnixSignalWatcher signalWatcher({SIGINT, SIGTERM});
    bool stopping = false;
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, &hub, [&](int signalNumber) {
        if (stopping) { // a second Ctrl-C: do not wait for the service any longer
            QCoreApplication::quit();
            return;
        }
        stopping = true;
        LOG_INFO << "signal" << signalNumber << "received, shutting down";
        hub.shutdown();
    });
    QObject::connect(&hub, &HubSimulator::finished, &app, &QCoreApplication::quit);

    const int status = app.exec();
    LOG_INFO << "hubsim stopped";
    return status;
}
