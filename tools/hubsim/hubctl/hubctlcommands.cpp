#include "hubctlcommands.h"

namespace {

QVector<HubctlCommand> buildCommands()
{
    QVector<HubctlCommand> c;
    c.append({"devices",
              "[DEVICE]",
              "list registered devices with their datapoints and last values",
              "Shows each device's description state, life sign, attributes, and every input, output and\n"
              "parameter with its index, name and last value. DEVICE (its 12-digit serial) shows one device.",
              "hubctl devices BEED00010001",
              0,
              1,
              {}});
    c.append({"write",
              "DEVICE DATAPOINT VALUE",
              "write an input datapoint (dataPointValueChanged with a token) and show the confirmation",
              "DATAPOINT is the input's index (3), short form (idp3, or idp0003 in the identifier's hex),\n"
              "or name. hubctl waits for the device's confirmDataPointValueChanged and prints its result\n"
              "(0 accepted, 2 refused).",
              "hubctl write BEED00010001 switch 1",
              3,
              3,
              {{"timeout", "MS", "how long to wait for the confirmation (default 3000; 0: do not wait)"}}});
    c.append({"param",
              "DEVICE PARAMETER VALUE",
              "write a parameter (parameterValueChanged)",
              "PARAMETER is the parameter's index, short form (pm1) or name.",
              "hubctl param BEED00010001 pm0 1",
              3,
              3,
              {}});
    c.append({"attribute",
              "DEVICE NAME VALUE",
              "set a device attribute (attributeValueChanged)",
              "",
              "hubctl attribute BEED00010001 room Kitchen",
              3,
              3,
              {}});
    c.append({"reset",
              "DEVICE",
              "master-reset a device (masterReset)",
              "",
              "hubctl reset BEED00010001",
              1,
              1,
              {}});
    c.append(
        {"scan", "", "ask every device for a life sign (scanningForLifeSigns)", "", "hubctl scan", 0, 0, {}});
    c.append({"mdns",
              "announce|remove NAME ADDRESS PORT [TXT...]",
              "announce or withdraw a service as the hub's mDNS browser reports it (mDNSServiceChanged)",
              "TXT entries are key=value texts; a Hue bridge carries bridgeid=... and modelid=....\n"
              "Nothing is sent on the network: only subscribers of the signal see it.",
              "hubctl mdns announce \"Hue Bridge\" 127.0.0.1 8443 bridgeid=001788fffe123456 modelid=BSB002",
              4,
              -1,
              {{"type", "TYPE", "the service type (default _hue._tcp)"},
               {"host", "HOST", "the host name (default: NAME with blanks as dashes, plus .local)"}}});
    c.append({"ssdp",
              "announce|byebye|expire LOCATION USN BRIDGEID",
              "report an SSDP device as the hub's SSDP service does (ssdpDiscoveryReceived/-Expired)",
              "announce: alive message; byebye: a message of absence; expire: its cache time ran out.\n"
              "The headers are LOCATION, USN and HUE-BRIDGEID (plus NT and CACHE-CONTROL).",
              "hubctl ssdp announce http://127.0.0.1:8080/description.xml "
              "uuid:2f402f80-da50-11e1-9b23-001788123456 "
              "001788FFFE123456",
              4,
              4,
              {{"max-age", "SECONDS", "the announcement's lifetime (default 1800)"},
               {"nt", "TYPE", "the notification type (default upnp:rootdevice)"}}});
    c.append({"network",
              "EVENT [TEXT]",
              "send a network event (networkEvent)",
              "EVENT is a number; 3 means the network is up.",
              "hubctl network 3 \"link up\"",
              1,
              2,
              {}});
    c.append({"config",
              "list | get KEY | set KEY VALUE",
              "read or write the hub's configuration store",
              "Values set here reach every subscriber of configValueChanged. --volatile keeps the value\n"
              "in memory only: it is gone when hubsim restarts.",
              "hubctl config set hue/useGroups 1",
              1,
              3,
              {{"volatile", "", "with set: do not store the value in the database file"}}});
    c.append({"stage",
              "N",
              "send run stage N to the service (0 connect, 3 initialise, 1 start, 2 stop)",
              "Shows whether the service answered the run call.",
              "hubctl stage 1",
              1,
              1,
              {}});
    c.append(
        {"pings", "", "show the heartbeats received by the diagnosis service", "", "hubctl pings", 0, 0, {}});
    c.append({"support",
              "",
              "show the support information submitted to the backend service",
              "",
              "hubctl support --full",
              0,
              0,
              {{"full", "", "print the whole submitted text"}}});
    c.append({"status",
              "",
              "show hubsim's services, connected clients, watches and supervisor",
              "",
              "hubctl status",
              0,
              0,
              {}});
    c.append({"follow",
              "",
              "print hubsim's events as they happen, until Ctrl-C",
              "With --json each event is one JSON document on its own line.",
              "hubctl --json follow",
              0,
              0,
              {}});
    return c;
}

bool looksLikeOption(const QString& argument)
{
    if (!argument.startsWith(QLatin1Char('-')) || argument.size() < 2)
        return false;
    return !argument.at(1).isDigit(); // "-5": a negative value
}

} // namespace

const QVector<HubctlCommand>& hubctlCommands()
{
    static const QVector<HubctlCommand> commands = buildCommands();
    return commands;
}

const HubctlCommand* findHubctlCommand(const QString& name)
{
    for (const HubctlCommand& command : hubctlCommands()) {
        if (command.name == name)
            return &command;
    }
    return nullptr;
}

namespace {

// The command's name: the first argument that is neither an option nor the value of
// --socket-dir. Command options that take a value cannot stand before it.
int commandPosition(const QStringList& arguments)
{
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (argument == QLatin1String("--"))
            return i + 1 < arguments.size() ? i + 1 : -1;
        if (!looksLikeOption(argument))
            return i;
        if (argument == QLatin1String("--socket-dir"))
            ++i;
    }
    return -1;
}

const HubctlOption* findOption(const HubctlCommand* command, const QString& name)
{
    if (!command)
        return nullptr;
    for (const HubctlOption& option : command->options) {
        if (option.name == name)
            return &option;
    }
    return nullptr;
}

} // namespace

HubctlInvocation parseHubctlArguments(const QStringList& arguments)
{
    HubctlInvocation result;
    const int commandAt = commandPosition(arguments);
    if (commandAt >= 0) {
        result.command = findHubctlCommand(arguments.at(commandAt));
        if (!result.command) {
            result.error = QStringLiteral("unknown command \"%1\"").arg(arguments.at(commandAt));
            return result;
        }
    }

    bool optionsEnded = false;
    for (int i = 0; i < arguments.size(); ++i) {
        const QString& argument = arguments.at(i);
        if (i == commandAt)
            continue;
        if (optionsEnded || !looksLikeOption(argument)) {
            result.arguments.append(argument);
            continue;
        }
        if (argument == QLatin1String("--")) {
            optionsEnded = true;
            continue;
        }
        QString name = argument.mid(argument.startsWith(QLatin1String("--")) ? 2 : 1);
        QString value;
        const int equals = name.indexOf(QLatin1Char('='));
        const bool inlineValue = equals >= 0;
        if (inlineValue) {
            value = name.mid(equals + 1);
            name.truncate(equals);
        }
        const HubctlOption* commandOption = findOption(result.command, name);
        const bool takesValue =
            name == QLatin1String("socket-dir") || (commandOption && !commandOption->valueName.isEmpty());
        const bool isSwitch = name == QLatin1String("help") || name == QLatin1String("h") ||
                              name == QLatin1String("json") || name == QLatin1String("tcp") ||
                              name == QLatin1String("verbose") ||
                              (commandOption && commandOption->valueName.isEmpty());
        if (!takesValue && !isSwitch) {
            result.error = result.command
                               ? QStringLiteral("%1 has no option --%2").arg(result.command->name, name)
                               : QStringLiteral("unknown option --%1").arg(name);
            return result;
        }
        if (isSwitch && inlineValue) {
            result.error = QStringLiteral("--%1 takes no value").arg(name);
            return result;
        }
        if (takesValue && !inlineValue) {
            if (i + 1 >= arguments.size()) {
                result.error = QStringLiteral("--%1 needs a value").arg(name);
                return result;
            }
            value = arguments.at(++i);
        }
        if (name == QLatin1String("help") || name == QLatin1String("h"))
            result.help = true;
        else if (name == QLatin1String("json"))
            result.json = true;
        else if (name == QLatin1String("tcp"))
            result.tcp = true;
        else if (name == QLatin1String("verbose"))
            result.verbose = true;
        else if (name == QLatin1String("socket-dir"))
            result.socketDir = value;
        else
            result.options.insert(name, value);
    }

    if (result.help)
        return result;
    if (!result.command) {
        result.error = QStringLiteral("no command given");
        return result;
    }
    const int count = result.arguments.size();
    if (count < result.command->minArguments ||
        (result.command->maxArguments >= 0 && count > result.command->maxArguments)) {
        result.error = QStringLiteral("usage: hubctl %1 %2").arg(result.command->name, result.command->usage);
    }
    return result;
}

QString hubctlOverviewHelp()
{
    QString text = QStringLiteral(
        "Usage: hubctl [--socket-dir DIR] [--tcp] [--json] [--verbose] COMMAND [ARGUMENTS...]\n"
        "\n"
        "Talks to a running hubsim (the simulated hub) over its control service.\n"
        "\n"
        "  --socket-dir DIR  hubsim's socket directory (default: the hub's \"socketDir\" setting, /tmp)\n"
        "  --tcp             connect by TCP on 127.0.0.1 (default: the \"socketType\" setting)\n"
        "  --json            one JSON document per answer (one per line with follow)\n"
        "  --verbose         show the messaging's log lines on standard error\n"
        "\n"
        "Commands:\n");
    for (const HubctlCommand& command : hubctlCommands())
        text += QStringLiteral("  %1 %2\n").arg(command.name, -10).arg(command.summary);
    text += QStringLiteral("\n\"hubctl COMMAND --help\" explains a command.\n");
    return text;
}

QString hubctlCommandHelp(const HubctlCommand& command)
{
    QString text =
        QStringLiteral("Usage: hubctl %1 %2\n\n%3\n").arg(command.name, command.usage, command.summary);
    if (!command.details.isEmpty())
        text += QLatin1Char('\n') + command.details + QLatin1Char('\n');
    if (!command.options.isEmpty()) {
        text += QStringLiteral("\nOptions:\n");
        for (const HubctlOption& option : command.options) {
            const QString left = QStringLiteral("--%1 %2").arg(option.name, option.valueName).trimmed();
            text += QStringLiteral("  %1 %2\n").arg(left, -18).arg(option.help);
        }
    }
    text += QStringLiteral("\nExample:\n  %1\n").arg(command.example);
    return text;
}
