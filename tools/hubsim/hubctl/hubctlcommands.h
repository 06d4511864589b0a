#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

// What hubctl can do: every command with its usage, help text and example, and the parsing of
// a command line into the command, its positional arguments and its options.

struct HubctlOption
{
    QString name;      // without the leading "--"
    QString valueName; // empty for a switch
    QString help;
};

struct HubctlCommand
{
    QString name;
    QString usage;   // the arguments after the command's name
    QString summary; // one line for the overview
    QString details; // further lines for "hubctl COMMAND --help"
    QString example;
    int minArguments = 0;
    int maxArguments = 0; // -1: any number
    QVector<HubctlOption> options;
};

const QVector<HubctlCommand>& hubctlCommands();
const HubctlCommand* findHubctlCommand(const QString& name);

// A parsed command line. Global options may stand before or after the command.
struct HubctlInvocation
{
    QString socketDir; // empty: the hub's socket settings decide
    bool tcp = false;
    bool json = false;
    bool verbose = false; // show the messaging's own log lines
    bool help = false;    // "--help": overview, or the command's help when a command is named
    const HubctlCommand* command = nullptr;
    QStringList arguments;
    QMap<QString, QString> options; // a switch maps to ""
    QString error;                  // set when the line cannot be used
};

// `arguments` without the program name. An argument that starts with "-" and a digit is a
// value (a negative number), not an option; "--" ends the options.
HubctlInvocation parseHubctlArguments(const QStringList& arguments);

QString hubctlOverviewHelp();
QString hubctlCommandHelp(const HubctlCommand& command);
