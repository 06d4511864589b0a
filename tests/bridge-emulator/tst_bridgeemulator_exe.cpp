// hue-bridge-emulator as the demo runs it: options, the "listening" line, the control API over
// HTTP, and a clean end on SIGTERM.
#include "emulatortestclient.h"

#include <emulatoroptions.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QtTest>

#include <signal.h>

using namespace bridgeemu;

namespace {

struct Ports
{
    int https = 0;
    int http = 0;
    int control = -1;
};

// Starts the emulator and reads its ports from the first line it prints.
bool startProcess(QProcess& process, const QStringList& arguments, Ports& ports)
{
    process.start(QStringLiteral(HUE_BRIDGE_EMULATOR), arguments);
    if (!process.waitForStarted(5000))
        return false;
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(5000))
            return false;
    }
    const QString line = QString::fromUtf8(process.readLine()).trimmed();
    const QRegularExpressionMatch match =
        QRegularExpression("^listening https=(\\d+) http=(\\d+)(?: control=(\\d+))?$").match(line);
    if (!match.hasMatch()) {
        qWarning("unexpected first line: %s", qPrintable(line));
        return false;
    }
    ports.https = match.captured(1).toInt();
    ports.http = match.captured(2).toInt();
    ports.control = match.captured(3).isEmpty() ? -1 : match.captured(3).toInt();
    return true;
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

private slots:
    void options_data();
    void options();
    void helpNamesEveryOptionAndRoute();
    void badOptionsEndTheProgram();
    void runAndControlOverHttp();

private:
    EmulatorTestClient m_client;
};

void TestBridgeEmulatorExe::options_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<QString>("error"); // empty: accepted
    QTest::addRow("defaults") << QStringList{} << "";
    QTest::addRow("everything")
        << QString("--https-port 8443 --http-port=8080 --control-port 0 --bridge-id ECB5FAFFFE0A1B2C --name "
                   "Attic --lights ct:2,onoff --auto-link=1500 --api-version 1.50.0 --sw-version 1950000000 "
                   "--zigbee-channel 11 --ipv6 --no-groups --link-window -1 -v")
               .split(' ')
        << "";
    QTest::addRow("bad bridge id") << QStringList{"--bridge-id", "12345"}
                                   << "bridge id must be 16 hexadecimal digits";
    QTest::addRow("bad light kind") << QStringList{"--lights", "disco:2"} << "--lights: unknown light kind";
    QTest::addRow("gamut on a white light")
        << QStringList{"--lights", "ct-b:1"} << "--lights: unknown light kind";
    QTest::addRow("port out of range") << QStringList{"--http-port", "70000"} << "bad value for --http-port";
    QTest::addRow("missing value") << QStringList{"--name"} << "--name needs a value";
    QTest::addRow("unknown option") << QStringList{"--colour"} << "unknown option \"--colour\"";
}

void TestBridgeEmulatorExe::options()
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
    const EmulatorConfig& config = options->config;
    QCOMPARE(config.httpsPort, 8443);
    QCOMPARE(config.httpPort, 8080);
    QCOMPARE(config.controlPort, 0);
    QCOMPARE(QString::fromStdString(config.identity.bridgeId), QString("ecb5fafffe0a1b2c"));
    QCOMPARE(QString::fromStdString(config.identity.mac), QString("ec:b5:fa:0a:1b:2c"));
    QCOMPARE(QString::fromStdString(config.identity.name), QString("Attic"));
    QCOMPARE(QString::fromStdString(config.identity.apiVersion), QString("1.50.0"));
    QCOMPARE(QString::fromStdString(config.identity.swVersion), QString("1950000000"));
    QCOMPARE(config.identity.zigbeeChannel, 11);
    QCOMPARE(config.lights.size(), std::size_t(3));
    QVERIFY(config.lights[0].kind == LightKind::ColorTemperature &&
            config.lights[2].kind == LightKind::OnOff);
    QCOMPARE(config.autoLinkAfter->count(), 1500);
    QCOMPARE(config.linkButtonWindow.count(), -1);
    QVERIFY(config.alsoIpv6 && !config.defaultGroups && options->verbose);
}

void TestBridgeEmulatorExe::helpNamesEveryOptionAndRoute()
{
    QProcess process;
    process.start(QStringLiteral(HUE_BRIDGE_EMULATOR), {"--help"});
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitCode(), 0);
    const QString help = QString::fromUtf8(process.readAllStandardOutput());
    const QString items = "--https-port --http-port --control-port --ipv6 --bridge-id --name --mac "
                          "--api-version --sw-version --zigbee-channel --lights --no-groups --auto-link "
                          "--link-window --request-log --verbose /emulator/linkbutton /emulator/lights/<id> "
                          "/emulator/users/<name> /emulator/throttle /emulator/stall /emulator/refuse "
                          "/emulator/accept /emulator/requests";
    for (const QString& item : items.split(' ') + QStringList{"listening https=PORT"})
        QVERIFY2(help.contains(item), qPrintable(item));
}

void TestBridgeEmulatorExe::badOptionsEndTheProgram()
{
    QProcess process;
    process.start(QStringLiteral(HUE_BRIDGE_EMULATOR), {"--lights", "disco:1"});
    QVERIFY(process.waitForFinished(5000));
    QCOMPARE(process.exitCode(), 2);
    QVERIFY(process.readAllStandardError().contains("unknown light kind"));
}

void TestBridgeEmulatorExe::runAndControlOverHttp()
{
    QProcess process;
    Ports ports;
    QVERIFY(startProcess(process,
                         {"--bridge-id", "001788FFFE00AA11", "--name", "Demo", "--lights", "ct:2,onoff:1",
                          "--control-port", "0", "--api-version", "1.50.0"},
                         ports));
    QVERIFY(ports.control > 0);
    const QJsonObject config = m_client.get(httpsUrl(ports.https, "/api/config")).json().object();
    QCOMPARE(config["bridgeid"].toString(), QString("001788FFFE00AA11"));
    QCOMPARE(config["name"].toString(), QString("Demo"));
    QCOMPARE(config["apiversion"].toString(), QString("1.50.0"));

    // A throttle set over HTTP, and the record of the bridge's traffic only, with statuses.
    QCOMPARE(m_client.send("PUT", httpUrl(ports.http, "/emulator/lights/3"), R"({"colour":1})").status, 400);
    QCOMPARE(m_client.send("POST", httpUrl(ports.http, "/emulator/throttle"), R"({"status":503,"count":1})")
                 .status,
             200);
    QCOMPARE(m_client.get(httpUrl(ports.http, "/api/config")).status, 503);
    QCOMPARE(m_client.get(httpUrl(ports.http, "/api/config")).status, 200);
    const QJsonArray record = m_client.get(httpUrl(ports.control, "/emulator/requests")).json().array();
    QCOMPARE(record.size(), 3);
    QCOMPARE(record[1]["status"].toInt(), 503);

    // Refused on the bridge's ports, reopened from the control port.
    QCOMPARE(m_client.send("POST", httpUrl(ports.control, "/emulator/refuse"), "{}").status, 200);
    QTRY_COMPARE(m_client.get(httpUrl(ports.http, "/api/config")).error,
                 QNetworkReply::ConnectionRefusedError);
    QCOMPARE(m_client.send("POST", httpUrl(ports.control, "/emulator/accept"), "{}").status, 200);
    QCOMPARE(m_client.get(httpUrl(ports.http, "/api/config")).status, 200);

    QVERIFY(stopProcess(process));
}

QTEST_MAIN(TestBridgeEmulatorExe)
#include "tst_bridgeemulator_exe.moc"
