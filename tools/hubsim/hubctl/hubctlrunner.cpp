#include "hubctlrunner.h"

#include "hubctlformat.h"

#include <common/messaging/socketinterface.h>

#include <QSettings>

namespace {

constexpr char kControlService[] = "com.orlux.tamsa.hubsim";
constexpr int kDefaultConfirmationWaitMs = 3000;

bool parseInt(const QString& text, int* value)
{
    bool ok = false;
    *value = text.toInt(&ok, 10);
    return ok;
}

} // namespace

HubctlRunner::HubctlRunner(const HubctlInvocation& invocation, FILE* out, FILE* err)
    : m_invocation(invocation), m_out(out), m_err(err)
{
}

HubctlRunner::~HubctlRunner() = default;

void HubctlRunner::print(const QString& text)
{
    std::fputs(text.toUtf8().constData(), m_out);
    std::fflush(m_out);
}

void HubctlRunner::printJson(const QVariant& value)
{
    std::fputs(hubctlformat::jsonLine(value).constData(), m_out);
    std::fflush(m_out);
}

int HubctlRunner::usage(const QString& message)
{
    std::fprintf(m_err, "hubctl: %s\n", qPrintable(message));
    return Usage;
}

bool HubctlRunner::connectToHub()
{
    // Without options, the hub-wide socket settings say where the hub's services are.
    const QSettings settings(QStringLiteral("vorn"), QStringLiteral("database"));
    QString socketDir = m_invocation.socketDir;
    if (socketDir.isEmpty())
        socketDir = settings.value(QStringLiteral("socketDir"), QStringLiteral("/tmp")).toString();
    const bool tcp =
        m_invocation.tcp || settings.value(QStringLiteral("socketType")).toString() == QLatin1String("tcp");
    m_hub = std::make_unique<SocketInterface>(
        tcp ? SocketConnection::TcpSocket : SocketConnection::LocalSocket, QLatin1String(kControlService),
        socketDir, nullptr, QByteArrayLiteral("hubctl"));
    if (!m_hub->isValid()) {
        std::fprintf(m_err, "hubctl: no hubsim in %s (%s)\n", qPrintable(socketDir),
                     qPrintable(m_hub->errorText()));
        return false;
    }
    return true;
}

SocketArgument HubctlRunner::call(const QString& method, const QVector<SocketArgument>& arguments)
{
    const SocketArgument answer = m_hub->callWithArgumentList(SocketInterface::Block, method, arguments);
    if (m_hub->hasError()) {
        std::fprintf(m_err, "hubctl: %s failed: %s\n", qPrintable(method), qPrintable(m_hub->errorText()));
        return SocketArgument();
    }
    return answer;
}

int HubctlRunner::printAnswer(const SocketArgument& answer)
{
    if (answer.type() != SocketArgument::VariantMap)
        return Unreachable;
    const QVariantMap map = answer.toVariantMap();
    if (m_invocation.json)
        printJson(map);
    else
        print(hubctlformat::answer(map));
    return map.value(QStringLiteral("ok")).toBool() ? Done : Refused;
}

int HubctlRunner::run()
{
    const QString name = m_invocation.command->name;
    const QStringList& args = m_invocation.arguments;
    if (!connectToHub())
        return Unreachable;

    if (name == QLatin1String("devices"))
        return devices();
    if (name == QLatin1String("write"))
        return write();
    if (name == QLatin1String("param"))
        return printAnswer(call(QStringLiteral("writeParameter"), {args[0], args[1], args[2]}));
    if (name == QLatin1String("attribute"))
        return printAnswer(call(QStringLiteral("setAttribute"), {args[0], args[1], args[2]}));
    if (name == QLatin1String("reset"))
        return printAnswer(call(QStringLiteral("masterReset"), {args[0]}));
    if (name == QLatin1String("scan"))
        return printAnswer(call(QStringLiteral("scanLifeSigns"), {}));
    if (name == QLatin1String("mdns"))
        return mdns();
    if (name == QLatin1String("ssdp"))
        return ssdp();
    if (name == QLatin1String("network"))
        return network();
    if (name == QLatin1String("config"))
        return config();
    if (name == QLatin1String("stage"))
        return stage();
    if (name == QLatin1String("follow"))
        return follow();

    // The listings: pings, support, status.
    const QString method = name == QLatin1String("pings")     ? QStringLiteral("pings")
                           : name == QLatin1String("support") ? QStringLiteral("supportInfo")
                                                              : QStringLiteral("status");
    const SocketArgument answer = call(method, {});
    if (answer.isNone())
        return Unreachable;
    if (m_invocation.json) {
        printJson(answer.toVariant());
        return Done;
    }
    if (name == QLatin1String("pings"))
        print(hubctlformat::pings(answer.toVariantList()));
    else if (name == QLatin1String("support"))
        print(hubctlformat::supportInfo(answer.toVariantList(),
                                        m_invocation.options.contains(QStringLiteral("full"))));
    else
        print(hubctlformat::status(answer.toVariantMap()));
    return Done;
}

int HubctlRunner::devices()
{
    const SocketArgument answer = call(QStringLiteral("devices"), {});
    if (answer.type() != SocketArgument::VariantList)
        return Unreachable;
    QVariantList devices = answer.toVariantList();
    if (!m_invocation.arguments.isEmpty()) {
        const QString wanted = m_invocation.arguments.first();
        QVariantList matching;
        for (const QVariant& device : devices) {
            if (device.toMap().value(QStringLiteral("id")).toString().compare(wanted, Qt::CaseInsensitive) ==
                0)
                matching.append(device);
        }
        if (matching.isEmpty()) {
            std::fprintf(m_err, "hubctl: device %s is not registered\n", qPrintable(wanted));
            return Refused;
        }
        devices = matching;
    }
    if (m_invocation.json)
        printJson(devices);
    else
        print(hubctlformat::devices(devices));
    return Done;
}

int HubctlRunner::write()
{
    int waitMs = kDefaultConfirmationWaitMs;
    const QString timeout = m_invocation.options.value(QStringLiteral("timeout"));
    if (!timeout.isEmpty() && (!parseInt(timeout, &waitMs) || waitMs < 0))
        return usage(QStringLiteral("--timeout needs milliseconds, not \"%1\"").arg(timeout));
    const QStringList& args = m_invocation.arguments;
    const SocketArgument answer = call(QStringLiteral("writeDataPoint"), {args[0], args[1], args[2], waitMs});
    if (answer.type() != SocketArgument::VariantMap)
        return Unreachable;
    const QVariantMap map = answer.toVariantMap();
    const bool ok = map.value(QStringLiteral("ok")).toBool();
    const bool confirmed = map.value(QStringLiteral("confirmed")).toBool();
    if (m_invocation.json) {
        printJson(map);
    } else if (!ok) {
        print(hubctlformat::answer(map));
    } else {
        const int result = map.value(QStringLiteral("result")).toInt();
        QString outcome;
        if (confirmed)
            outcome = QStringLiteral("confirmed with result %1 (%2)")
                          .arg(result)
                          .arg(result == 0 ? QStringLiteral("accepted") : QStringLiteral("refused"));
        else if (waitMs > 0)
            outcome = QStringLiteral("NOT confirmed within %1 ms").arg(waitMs);
        else
            outcome = QStringLiteral("sent");
        print(QStringLiteral("%1 = %2 (token %3, %4 subscriber(s)): %5\n")
                  .arg(map.value(QStringLiteral("id")).toString(), args[2])
                  .arg(map.value(QStringLiteral("token")).toInt())
                  .arg(map.value(QStringLiteral("subscribers")).toInt())
                  .arg(outcome));
    }
    if (!ok)
        return Refused;
    return confirmed || waitMs == 0 ? Done : Refused;
}

int HubctlRunner::mdns()
{
    const QStringList& args = m_invocation.arguments;
    const QString action = args[0];
    if (action != QLatin1String("announce") && action != QLatin1String("remove"))
        return usage(QStringLiteral("mdns announce or mdns remove, not \"%1\"").arg(action));
    int port = 0;
    if (!parseInt(args[3], &port))
        return usage(QStringLiteral("the port must be a number, not \"%1\"").arg(args[3]));
    const QString name = args[1];
    const QString type = m_invocation.options.value(QStringLiteral("type"), QStringLiteral("_hue._tcp"));
    QString host = m_invocation.options.value(QStringLiteral("host"));
    if (host.isEmpty())
        host = QString(name).replace(QLatin1Char(' '), QLatin1Char('-')) + QStringLiteral(".local");
    const QStringList txt = args.mid(4);
    return printAnswer(call(QStringLiteral("mdns"),
                            {action == QLatin1String("announce"), type, name, host, args[2], port, txt}));
}

int HubctlRunner::ssdp()
{
    const QStringList& args = m_invocation.arguments;
    int maxAge = 1800;
    const QString maxAgeText = m_invocation.options.value(QStringLiteral("max-age"));
    if (!maxAgeText.isEmpty() && !parseInt(maxAgeText, &maxAge))
        return usage(QStringLiteral("--max-age needs seconds, not \"%1\"").arg(maxAgeText));
    const QString nt = m_invocation.options.value(QStringLiteral("nt"), QStringLiteral("upnp:rootdevice"));
    return printAnswer(call(QStringLiteral("ssdp"), {args[0], args[1], args[2], args[3], maxAge, nt}));
}

int HubctlRunner::network()
{
    const QStringList& args = m_invocation.arguments;
    int event = 0;
    if (!parseInt(args[0], &event))
        return usage(QStringLiteral("the network event must be a number, not \"%1\"").arg(args[0]));
    return printAnswer(call(QStringLiteral("networkEvent"), {event, args.value(1)}));
}

int HubctlRunner::config()
{
    const QStringList& args = m_invocation.arguments;
    const QString action = args[0];
    if (action == QLatin1String("set")) {
        if (args.size() != 3)
            return usage(QStringLiteral("usage: hubctl config set KEY VALUE [--volatile]"));
        const bool persistent = !m_invocation.options.contains(QStringLiteral("volatile"));
        return printAnswer(call(QStringLiteral("setConfigValue"), {args[1], args[2], persistent}));
    }
    if (action != QLatin1String("list") && action != QLatin1String("get"))
        return usage(QStringLiteral("config list, config get KEY or config set KEY VALUE"));
    if (action == QLatin1String("get") && args.size() != 2)
        return usage(QStringLiteral("usage: hubctl config get KEY"));
    if (action == QLatin1String("list") && args.size() != 1)
        return usage(QStringLiteral("usage: hubctl config list"));

    const SocketArgument answer = call(QStringLiteral("configValues"), {});
    if (answer.type() != SocketArgument::VariantList)
        return Unreachable;
    QVariantList entries = answer.toVariantList();
    if (action == QLatin1String("get")) {
        QVariantList matching;
        for (const QVariant& entry : entries) {
            if (entry.toMap().value(QStringLiteral("key")).toString() == args[1])
                matching.append(entry);
        }
        if (matching.isEmpty()) {
            std::fprintf(m_err, "hubctl: no configuration value %s\n", qPrintable(args[1]));
            return Refused;
        }
        if (m_invocation.json)
            printJson(matching.first());
        else
            print(matching.first().toMap().value(QStringLiteral("value")).toString() + QLatin1Char('\n'));
        return Done;
    }
    if (m_invocation.json)
        printJson(entries);
    else
        print(hubctlformat::configValues(entries));
    return Done;
}

int HubctlRunner::stage()
{
    int stage = 0;
    if (!parseInt(m_invocation.arguments[0], &stage))
        return usage(QStringLiteral("the stage must be a number, not \"%1\"").arg(m_invocation.arguments[0]));
    return printAnswer(call(QStringLiteral("runStage"), {stage}));
}

int HubctlRunner::follow()
{
    if (!m_hub->connectDynamicSignal("hubEvent(QVariantMap)", this, "onEvent(QVariantMap)")) {
        std::fprintf(m_err, "hubctl: cannot follow hubsim's events: %s\n", qPrintable(m_hub->errorText()));
        return Unreachable;
    }
    connect(m_hub.get(), &SocketInterface::disconnected, this, [this] {
        std::fprintf(m_err, "hubctl: hubsim went away\n");
        emit finished(Unreachable);
    });
    if (!m_invocation.json)
        print(QStringLiteral("following hubsim's events; Ctrl-C ends\n"));
    return -1;
}

void HubctlRunner::onEvent(QVariantMap event)
{
    if (m_invocation.json)
        printJson(event);
    else
        print(hubctlformat::event(event));
}
