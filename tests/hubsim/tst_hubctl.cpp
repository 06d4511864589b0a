#include "hubsimtestclients.h"

#include <hubctlcommands.h>
#include <hubsimulator.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtTest>

// hubctl's command line, and hubctl and hubsim as the processes people and scripts run.
class TestHubctl : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qRegisterMetaType<QProcess::ExitStatus>(); }
    void parse_data();
    void parse();
    void devicesAsJsonParse_data();
    void devicesAsJsonParse();
    void writeShowsTheConfirmation();
};

namespace {

const InternalId kDevice(0xBEED, 0x00020003);

struct Run
{
    int exitCode = -1;
    QByteArray out;
    QByteArray err;
};

// Runs hubctl while this process's event loop keeps serving the in-process hub.
Run runHubctl(const QStringList& arguments)
{
    QProcess process;
    QSignalSpy finished(&process, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
    process.start(QStringLiteral(HUBCTL_EXECUTABLE), arguments);
    if (!finished.wait(20000))
        process.kill();
    return {process.exitCode(), process.readAllStandardOutput(), process.readAllStandardError()};
}

} // namespace

void TestHubctl::parse_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("expected"); // "command|arguments|options|json|socket-dir" or "error"

    QTest::addRow("global options on both sides")
        << QStringList{"--socket-dir", "/s", "devices", "--json"} << "devices|||json|/s";
    QTest::addRow("inline values") << QStringList{"--socket-dir=/s", "write", "D", "x", "1", "--timeout=50"}
                                   << "write|D,x,1|timeout=50||/s";
    QTest::addRow("negative value is no option")
        << QStringList{"write", "D", "rel", "-5"} << "write|D,rel,-5|||";
    QTest::addRow("option with separate value")
        << QStringList{"ssdp", "--max-age", "60", "announce", "L", "U", "B"}
        << "ssdp|announce,L,U,B|max-age=60||";
    QTest::addRow("switch of the command")
        << QStringList{"config", "set", "k", "v", "--volatile"} << "config|set,k,v|volatile=||";
    QTest::addRow("after --, dashes are values") << QStringList{"network", "--", "-1"} << "network|-1|||";
    QTest::addRow("unknown command") << QStringList{"explode"} << "error";
    QTest::addRow("option of another command") << QStringList{"devices", "--volatile"} << "error";
    QTest::addRow("too few arguments") << QStringList{"write", "D", "x"} << "error";
    QTest::addRow("too many arguments") << QStringList{"reset", "D", "E"} << "error";
    QTest::addRow("value missing") << QStringList{"write", "D", "x", "1", "--timeout"} << "error";
    QTest::addRow("no command") << QStringList{"--json"} << "error";
}

void TestHubctl::parse()
{
    QFETCH(QStringList, arguments);
    QFETCH(QString, expected);

    const HubctlInvocation invocation = parseHubctlArguments(arguments);
    if (expected == "error") {
        QVERIFY(!invocation.error.isEmpty());
        return;
    }
    QVERIFY2(invocation.error.isEmpty(), qPrintable(invocation.error));
    QStringList options;
    for (auto it = invocation.options.cbegin(); it != invocation.options.cend(); ++it)
        options << it.key() + '=' + it.value();
    const QString got = QStringList{invocation.command->name, invocation.arguments.join(','),
                                    options.join(','), invocation.json ? "json" : "", invocation.socketDir}
                            .join('|');
    QCOMPARE(got, expected);
}

void TestHubctl::devicesAsJsonParse_data()
{
    QTest::addColumn<bool>("tcp");
    QTest::addRow("local") << false;
    QTest::addRow("tcp") << true;
}

void TestHubctl::devicesAsJsonParse()
{
    QFETCH(bool, tcp);
    QTemporaryDir dir;
    HubSimOptions options;
    options.socketDir = dir.path();
    options.tcp = tcp;
    HubSimulator hub(options);
    QVERIFY(hub.start());
    SocketInterface device(tcp ? SocketConnection::TcpSocket : SocketConnection::LocalSocket,
                           "com.orlux.tamsa.communication", dir.path());
    device.call(SocketInterface::NoBlock, "registerDevice", kDevice, kLightDescription);
    device.call(SocketInterface::NoBlock, "sendDataPoint", InternalId("BEED00020003/ch0000/odp0001"),
                QStringLiteral("55"));

    QStringList arguments{"--socket-dir", dir.path(), "--json", "devices"};
    if (tcp)
        arguments << "--tcp";
    QJsonArray devices;
    QTRY_VERIFY_WITH_TIMEOUT(
        [&] {
            const Run run = runHubctl(arguments);
            devices = QJsonDocument::fromJson(run.out).array();
            return run.exitCode == 0 && run.out.count('\n') == 1 && devices.size() == 1 &&
                   devices[0].toObject()["dataPoints"].toArray()[4].toObject()["hasValue"].toBool();
        }(),
        10000);
    const QJsonObject shown = devices[0].toObject();
    QCOMPARE(shown["id"].toString(), QStringLiteral("BEED00020003"));
    const QJsonObject dimming = shown["dataPoints"].toArray()[4].toObject();
    QCOMPARE(dimming["direction"].toString(), QStringLiteral("output"));
    QCOMPARE(dimming["index"].toInt(), 1);
    QCOMPARE(dimming["name"].toString(), QStringLiteral("dimming value"));
    QCOMPARE(dimming["value"].toString(), QStringLiteral("55"));
}

void TestHubctl::writeShowsTheConfirmation()
{
    QTemporaryDir dir;
    HubSimOptions options;
    options.socketDir = dir.path();
    HubSimulator hub(options);
    QVERIFY(hub.start());
    TestDevice device(dir.path());
    device.confirmResult = 2;
    device.registerDevice(kDevice, kLightDescription);
    QTRY_COMPARE(device.ready.size(), 1);

    const Run json =
        runHubctl({"--socket-dir", dir.path(), "--json", "write", "BEED00020003", "brightness", "40"});
    QCOMPARE(json.exitCode, 0);
    const QJsonObject answer = QJsonDocument::fromJson(json.out).object();
    QVERIFY(answer["confirmed"].toBool());
    QCOMPARE(answer["result"].toInt(), 2);
    QCOMPARE(answer["id"].toString(), QStringLiteral("BEED00020003/ch0000/idp0001"));
    QCOMPARE(answer["token"].toInt(), device.writes.last().token);

    device.confirmResult = -1; // a device that never answers
    const Run text =
        runHubctl({"--socket-dir", dir.path(), "write", "BEED00020003", "0", "1", "--timeout", "100"});
    QCOMPARE(text.exitCode, 1);
    QVERIFY2(text.out.contains("NOT confirmed within 100 ms"), text.out.constData());
}

QTEST_GUILESS_MAIN(TestHubctl)
#include "tst_hubctl.moc"
