#include "hubsimtestclients.h"

#include <hubctlcommands.h>
#include <hubsimulator.h>

#include <QProcess>
#include <QtTest>

// hubctl's command line, and a write through hubctl as a process that is never confirmed. The
// device listing and confirmed writes with JSON output are read by the end-to-end tests.
class TestHubctl : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qRegisterMetaType<QProcess::ExitStatus>(); }

    void parse_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("expected"); // "command|arguments|options|json|socket-dir" or "error"

        QTest::addRow("global options on both sides")
            << QStringList{"--socket-dir", "/s", "devices", "--json"} << "devices|||json|/s";
        QTest::addRow("inline values")
            << QStringList{"--socket-dir=/s", "write", "D", "x", "1", "--timeout=50"}
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
        QTest::addRow("value missing") << QStringList{"write", "D", "x", "1", "--timeout"} << "error";
    }

    void parse()
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
        const QString got =
            QStringList{invocation.command->name, invocation.arguments.join(','), options.join(','),
                        invocation.json ? "json" : "", invocation.socketDir}
                .join('|');
        QCOMPARE(got, expected);
    }

    void writeToADeviceThatNeverAnswersTimesOut()
    {
        QTemporaryDir dir;
        HubSimulator hub(HubSimOptions{dir.path()});
        QVERIFY(hub.start());
        TestDevice device(dir.path());
        device.confirmResult = -1;
        device.registerDevice(InternalId(0xBEED, 0x00020003), kLightDescription);
        QTRY_COMPARE(device.ready.size(), 1);

        // Waited for with a spy: the in-process hub needs this event loop while hubctl runs.
        QProcess hubctl;
        QSignalSpy finished(&hubctl, qOverload<int, QProcess::ExitStatus>(&QProcess::finished));
        hubctl.start(QStringLiteral(HUBCTL_EXECUTABLE),
                     {"--socket-dir", dir.path(), "write", "BEED00020003", "0", "1", "--timeout", "100"});
        QVERIFY(finished.wait(20000));
        QCOMPARE(hubctl.exitCode(), 1);
        const QByteArray out = hubctl.readAllStandardOutput();
        QVERIFY2(out.contains("NOT confirmed within 100 ms"), out.constData());
        QCOMPARE(device.writes.size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestHubctl)
#include "tst_hubctl.moc"
