// hue-bridge-emulator as the demo runs it: options, the "listening" line, the control API over
// HTTP, and a clean end on SIGTERM. A restart on the state folder is played by the fault suite.
#include "emulatortestclient.h"

#include <emulatoroptions.h>

#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

#include <signal.h>

using namespace bridgeemu;

namespace {

// Starts the emulator and reads its plain HTTP port from the "listening" line it prints first.
int startProcess(QProcess& process, const QStringList& arguments)
{
    process.start(QStringLiteral(HUE_BRIDGE_EMULATOR), arguments);
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(5000))
            return -1;
    }
    const QRegularExpressionMatch match = QRegularExpression("^listening https=(\\d+) http=(\\d+)")
                                              .match(QString::fromUtf8(process.readLine()));
    return match.hasMatch() ? match.captured(2).toInt() : -1;
}

bool stopProcess(QProcess& process)
{
    ::kill(pid_t(process.processId()), SIGTERM);
    return process.waitForFinished(5000) && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

} // namespace

class TestBridgeEmulatorExe : public QObject
{
    Q_OBJECT
    EmulatorTestClient m_client;

private slots:
    void options_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("error"); // empty: accepted
        QTest::addRow("defaults") << QStringList{} << "";
        QTest::addRow("everything")
            << QString(
                   "--https-port 8443 --http-port=8080 --control-port 0 --bridge-id ECB5FAFFFE0A1B2C --name "
                   "Attic --lights ct:2,extended:0,color-b --auto-link=1500 --api-version 1.50.0 --sw-version 1950000000 "
                   "--zigbee-channel 11 --ipv6 --no-groups --link-window -1 -v --state-dir /tmp/x --cert-cn "
                   "other --no-light-metadata")
                   .split(' ')
            << "";
        QTest::addRow("bad bridge id")
            << QStringList{"--bridge-id", "12345"} << "bridge id must be 16 hexadecimal digits";
        QTest::addRow("port out of range")
            << QStringList{"--http-port", "70000"} << "bad value for --http-port";
        QTest::addRow("missing value") << QStringList{"--name"} << "--name needs a value";
        QTest::addRow("unknown option") << QStringList{"--colour"} << "unknown option \"--colour\"";
        QTest::addRow("http closed on a square bridge") << QStringList{"--http-closed"} << "--http-closed needs";
        QTest::addRow("round with a shared port")
            << QStringList{"--generation", "round", "--shared-port"} << "--shared-port needs";
        QTest::addRow("unknown generation") << QStringList{"--generation=oval"} << "bad value for --generation";
        // Light sets: unknown kind, bad count, gamut on a white light, unknown gamut.
        for (const char* bad : {"spot:2", "ct:x", "dimmable-c:1", "color-d:1"})
            QTest::addRow("lights %s", bad) << QStringList{"--lights", bad} << "--lights: ";
    }

    void options()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, error);
        std::vector<std::string> list;
        for (const QString& argument : arguments)
            list.push_back(argument.toStdString());
        std::string message;
        const auto options = parseEmulatorOptions(list, &message);
        QCOMPARE(!options, !error.isEmpty());
        QVERIFY2(QString::fromStdString(message).startsWith(error), message.c_str());
        if (!options || arguments.isEmpty())
            return;
        // The values that the parser derives rather than copies.
        const EmulatorConfig& config = options->config;
        QCOMPARE(QString::fromStdString(config.identity.bridgeId), QString("ecb5fafffe0a1b2c"));
        QCOMPARE(QString::fromStdString(config.identity.mac), QString("ec:b5:fa:0a:1b:2c"));
        QCOMPARE(config.lights.size(), std::size_t(3));
        QVERIFY(config.lights[0].kind == LightKind::ColorTemperature &&
                config.lights[2].kind == LightKind::Color && config.lights[2].gamut == GamutType::B);
        QCOMPARE(config.autoLinkAfter->count(), 1500);
        QVERIFY(config.alsoIpv6 && !config.defaultGroups && options->verbose && !config.lightMetadata);
        QVERIFY(!config.bridgeIdFromState); // the given bridge id wins over a kept one
    }

    void rateLimitOption_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("limit"); // as "lights rate,burst / groups rate,burst : status : retry"
        QTest::addRow("real bridge") << "10/1:429"
                                     << "10,1/1,1:429:0";
        QTest::addRow("bursts, 503, retry") << "10,5/2,3:503:7"
                                            << "10,5/2,3:503:7";
        QTest::addRow("lights only, a fraction") << "0.5"
                                                 << "0.5,1/-:429:0";
        QTest::addRow("groups only") << "-/1"
                                     << "-/1,1:429:0";
        QTest::addRow("rate 0") << "0/1"
                                << "";
        QTest::addRow("status 500") << "10/1:500"
                                    << "";
        QTest::addRow("retry not a number") << "10/1:429:x"
                                            << "";
        QTest::addRow("words") << "ten"
                               << "";
    }

    void rateLimitOption()
    {
        QFETCH(QString, text);
        QFETCH(QString, limit);
        std::string error;
        const auto options = parseEmulatorOptions({"--rate-limit", text.toStdString()}, &error);
        QCOMPARE(options.has_value(), !limit.isEmpty());
        if (!options) {
            QVERIFY2(QString::fromStdString(error).startsWith("--rate-limit: "), error.c_str());
            return;
        }
        const RateLimit& parsed = *options->config.rateLimit;
        const auto bucket = [](const std::optional<RateBucket>& b) {
            return b ? QString("%1,%2").arg(b->rate).arg(b->burst) : QString("-");
        };
        QCOMPARE(QString("%1/%2:%3:%4")
                     .arg(bucket(parsed.lights), bucket(parsed.groups))
                     .arg(parsed.status)
                     .arg(parsed.retryAfterSeconds),
                 limit);
    }

    void badOptionsEndTheProgram()
    {
        QProcess process;
        process.start(QStringLiteral(HUE_BRIDGE_EMULATOR), {"--lights", "disco:1"});
        QVERIFY(process.waitForFinished(5000));
        QCOMPARE(process.exitCode(), 2);
        QVERIFY(process.readAllStandardError().contains("unknown light kind"));
    }

    void runAndControlOverHttp()
    {
        QProcess process;
        const int http =
            startProcess(process, {"--bridge-id", "001788FFFE00AA11", "--rate-limit", "0.01:503:7"});
        QVERIFY(http > 0);
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).json()["bridgeid"].toString(),
                 QString("001788FFFE00AA11"));

        // A throttle set over HTTP; the other control routes are driven by the end-to-end tests.
        QCOMPARE(
            m_client.send("POST", httpUrl(http, "/emulator/throttle"), R"({"status":503,"count":1})").status,
            200);
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).status, 503);
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).status, 200);

        // The rate limit of the command line: one light change per 100 s, then 503.
        const QString key =
            m_client.send("POST", httpUrl(http, "/emulator/users"), "{}").json()["username"].toString();
        const QString state = httpUrl(http, "/api/" + key + "/lights/1/state");
        QCOMPARE(m_client.send("PUT", state, R"({"on":false})").status, 200);
        const TestReply refused = m_client.send("PUT", state, R"({"on":true})");
        QCOMPARE(refused.status, 503);
        QCOMPARE(refused.header("Retry-After"), QByteArray("7"));
        const QJsonObject shown = m_client.get(httpUrl(http, "/emulator/ratelimit")).json().object();
        QCOMPARE(shown["lights"]["refused"].toInt(), 1);
        QCOMPARE(shown["groups"]["accepted"].toInt(), 0);

        QVERIFY(stopProcess(process));
    }
};

QTEST_MAIN(TestBridgeEmulatorExe)
#include "tst_bridgeemulator_exe.moc"
