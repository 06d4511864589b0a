// The service's entry: brings the process up in a fixed order (application, logging, crash
// handler, adaptor, settings, controller, messaging server) and runs the event loop, in which
// the hub's supervisor drives everything else through the adaptor's run stages.
// Log lines carry their source line, and tools on the hub look for the start-up lines by it:
// keep "restarted after crash" on lines 52 and 77 and "start" on line 80.
#include "hue_adaptor.h"
#include "hue_controller.h"
#include "hue_globals.h"

#include "common/crashhandler.h"
#include "common/defaults.h"
#include "common/dispatcher.h"
#include "common/logginginterface.h"
#include "common/unixsignalwatcher.h"

#include <QCoreApplication>
#include <QObject>
#include <QSettings>
#include <QString>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <unistd.h>

// SIGINT reaches this through a UnixSignalWatcher on the event loop, not a raw signal()
// handler: a raw handler that interrupted a log line deadlocked here on the log's lock. The
// watcher's own handler only writes the signal number to a socket pair; the log is closed here,
// on the loop, before the loop is asked to end.
static void handleSignal(int signalNumber)
{
    if (signalNumber != SIGINT)
        return;
    shutdownLogging();
    QCoreApplication::quit();
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("vorn"));
    QCoreApplication::setOrganizationDomain(QStringLiteral("orlux.com"));
    QCoreApplication::setApplicationName(QStringLiteral("huecontroller"));
    initLoggingByConfig();
    installCrashHandler(QStringLiteral("huecontroller"));
    srand(unsigned(time(nullptr)));
    QObject adaptorParent;
    hue::HueAdaptor adaptor(&adaptorParent);
    // The supervisor passes the crash counter as the first argument when it restarts the service.
    const QString firstArgument = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    if (!firstArgument.isEmpty() && firstArgument.toUInt(nullptr, 10) != 0)
        LOG_WARNING << "restarted after crash. crash counter:" << firstArgument;

    QSettings database(QStringLiteral("vorn"), QStringLiteral("database"));
    DataDir = database.value(QStringLiteral("data/path"), QStringLiteral("./data")).toString();
    // ConstDataDir is defined in the library (hue_globals.cpp), so tests that link it have it.
    ConstDataDir = database.value(QStringLiteral("data/constpath"), DataDir).toString();
    DebugMode = database.value(QStringLiteral("debug/xmlexport"), QStringLiteral("0")).toString() ==
                QLatin1String("1");
    if (firstArgument == QLatin1String("debug"))
        DebugMode = true;

    Dispatcher dispatcher;
    // SIGINT through the watcher, where a plain signal() handler would be (see handleSignal).
    UnixSignalWatcher signalWatcher({SIGINT});
    QObject::connect(&signalWatcher, &UnixSignalWatcher::received, &handleSignal);
    hue::CController controller;
    adaptor.setController(&controller);

    // The crash counter is logged a second time, now that the settings (and with them the data
    // directories a crash report refers to) are read. Both lines stay: the first one is written
    // even when reading the settings is what crashed the previous run, and this one always comes
    // right before the "start" line.
    // The controller is only constructed: the run stages initialise and start it, not main.
    const uint crashCounter = firstArgument.toUInt(nullptr, 10);
    if (crashCounter != 0)
        LOG_WARNING << "restarted after crash. crash counter:" << crashCounter;

    // Sources of this line: the counter above and the process id.
    LOG_INFO << "start" << crashCounter << getpid();

    const QString socketDir = database.value(QStringLiteral("socketDir"), QStringLiteral("/tmp")).toString();
    const QString socketType =
        database.value(QStringLiteral("socketType"), QStringLiteral("local")).toString();
    if (socketType == QLatin1String("tcp")) {
        // The port is the service's own setting, unlike the socket settings shared by the hub.
        const QSettings own(QStringLiteral("vorn"), QStringLiteral("huecontroller"));
        adaptor.startTcpServer(socketDir,
                               quint16(own.value(QStringLiteral("port"), QStringLiteral("0")).toUInt()));
    } else {
        adaptor.startLocalServer(socketDir);
    }

    return QCoreApplication::exec();
}
