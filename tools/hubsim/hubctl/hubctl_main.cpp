#include "hubctlcommands.h"
#include "hubctlrunner.h"

#include <common/logginginterface.h>

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("vorn"));
    QCoreApplication::setApplicationName(QStringLiteral("hubctl"));
    const HubctlInvocation invocation = parseHubctlArguments(app.arguments().mid(1));
    // hubctl reports failures in its own words; the messaging's log lines only on request.
    const bool verbose = invocation.verbose;
    setDetailedLoggingEnabled(verbose);
    setLogSink([verbose](int, const QByteArray& line) {
        if (verbose)
            std::fprintf(stderr, "%s\n", line.constData());
    });
    if (invocation.help) {
        const QString help =
            invocation.command ? hubctlCommandHelp(*invocation.command) : hubctlOverviewHelp();
        std::fputs(help.toUtf8().constData(), stdout);
        return 0;
    }
    if (!invocation.error.isEmpty()) {
        std::fprintf(stderr, "hubctl: %s\n(hubctl --help lists the commands)\n",
                     qPrintable(invocation.error));
        return HubctlRunner::Usage;
    }

    HubctlRunner runner(invocation, stdout, stderr);
    QObject::connect(&runner, &HubctlRunner::finished, &app, &QCoreApplication::exit);
    const int status = runner.run();
    return status >= 0 ? status : app.exec();
}
