// The controller's lights as hub devices, end to end in one process: hubsim's services, the
// service's adaptor (stages 0 and 3) and controller, and a paired bridge emulator (API v1) with
// an extended colour (1), colour temperature (2), dimmable (3) and on/off (4) light.

#include "huecontroller/hue_adaptor.h"
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_colorconvert.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_globals.h"
#include "huecontroller/hue_light.h"

#include "common/configcache.h"
#include "logcapture.h"

#include <bridgeemulator.h>
#include <communicationservice.h>
#include <datapointids.h>
#include <hubsimulator.h>

#include <QSettings>
#include <QtTest>

using namespace hue;
using Light = bridgeemu::LightKind;

// Each table is one QStringList per row: its tag, then the fields its test names.
static void addRows(const QList<QStringList>& rows)
{
    QTest::addColumn<QStringList>("row");
    for (const QStringList& row : rows)
        QTest::addRow("%s", qPrintable(row[0])) << QStringList(row.mid(1));
}

class TestDatapoints : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void inputDatapoint_data();
    void inputDatapoint();
    void dimming_data();
    void dimming();
    void parameters_data();
    void parameters();
    void wallSwitchReachesTheHub_data();
    void wallSwitchReachesTheHub();
    void deviceEvents();
    void refusals_data();
    void refusals();
    void lifeSignsOnSchedule();
    void hubRestart();

private:
    CommunicationService* hub() const { return m_hub->communication(); }
    const RegisteredDevice* device(QChar light = '1') const
    {
        return hub()->registry().device(InternalId("BEED0001000" + QString(light).toLatin1()));
    }
    CLight* light(const char* id = "1") const { return m_bridge->lightById(id); }
    void setState(const QString& state)
    {
        ConfigCache::instance()->setConfigValueNonblock("hueBridges/" + m_id, state, true);
    }
    bool poll()
    {
        // A poll that the controller's own timer started may predate the change: let it end. A
        // change still on its way keeps its items from the poll's values: let it arrive first.
        // A command sent meanwhile restarts the bridge's quiet time, and the poll waits: again.
        // The hourly re-check of the key (the tests move the clock by hours) holds polls too.
        for (int attempt = 0; attempt < 5; ++attempt) {
            if (!QTest::qWaitFor(
                    [&] {
                        return !m_bridge->currentPollReply() && m_bridge->retryQueues().isEmpty() &&
                               m_bridge->userNameState() == CBridge::USERNAME_REGISTERED;
                    },
                    10000))
                return false;
            Clock::advance(600); // past the bridge's quiet time after its last request
            m_bridge->pollNextItem();
            if (m_bridge->currentPollReply())
                return QTest::qWaitFor([&] { return !m_bridge->currentPollReply(); }, 5000);
        }
        return false;
    }
    // A wall-switch change such as "on=0,bri=203,xy=0.69:0.31", then a poll.
    bool wall(const QString& id, const QString& change)
    {
        bridgeemu::LightChange c;
        for (const QString& item : change.split(',')) {
            const QString key = item.section('=', 0, 0), value = item.section('=', 1);
            if (key == "on")
                c.on = value == "1";
            else if (key == "xy")
                c.xy = {value.section(':', 0, 0).toDouble(), value.section(':', 1).toDouble()};
            else
                *(key == "bri"   ? &c.bri
                  : key == "ct"  ? &c.ct
                  : key == "hue" ? &c.hue
                                 : &c.sat) = value.toInt();
        }
        return m_emu->setLightState(id.toStdString(), c) && poll();
    }
    // The hub's write to light 1, as the service confirmed it: 0 accepted, 2 refused, -1 no answer.
    int write(const QString& datapoint, const QString& value)
    {
        const int token = hub()->writeDataPoint("BEED00010001", datapoint, value).token;
        const WriteTracker::Write* done = nullptr;
        return QTest::qWaitFor([&] { return (done = hub()->writes().find(token)) && done->result; }, 3000)
                   ? *done->result
                   : -1;
    }
    QList<QByteArray> bodies(const std::string& path = "/lights/1/state") const
    {
        QList<QByteArray> result;
        for (const auto& request : m_emu->requests())
            if (request.method == "PUT" && request.target == "/api/" + m_user + path)
                result << QByteArray::fromStdString(request.body).replace('\n', "").replace(' ', "");
        return result;
    }
    QString hubValue(QChar light, const QString& output) const
    {
        const DataPointInfo* point =
            device(light)->description.resolve({DataPointInfo::Output}, output, nullptr);
        return device(light)
            ->values.value(datapointids::idFor(device(light)->id, DataPointInfo::Output, point->index))
            .value;
    }

    QTemporaryDir m_dir;
    std::unique_ptr<HubSimulator> m_hub;
    std::unique_ptr<bridgeemu::BridgeEmulator> m_emu;
    std::unique_ptr<CController> m_controller;
    std::unique_ptr<HueAdaptor> m_adaptor;
    CBridge* m_bridge = nullptr;
    QString m_id;
    std::string m_user;
};

void TestDatapoints::initTestCase()
{
    qputenv("XDG_CONFIG_HOME", m_dir.path().toUtf8()); // settings stay here, also when run by hand
    m_hub = std::make_unique<HubSimulator>(HubSimOptions{m_dir.path()});
    QVERIFY(m_hub->start());
    QSettings(QStringLiteral("vorn"), QStringLiteral("database")).setValue("socketDir", m_dir.path());
    ConstDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
    m_controller = std::make_unique<CController>();
    m_adaptor = std::make_unique<HueAdaptor>();
    m_adaptor->setController(m_controller.get());
    m_adaptor->run(0);
    m_adaptor->run(3); // waits for the configuration cache, loads the descriptions, subscribes

    bridgeemu::EmulatorConfig config;
    config.identity.swVersion = "1941132080"; // firmware before CLIP v2: the bridge stays on v1
    config.clipV2 = config.defaultGroups = false;
    config.lights = {{Light::ExtendedColor}, {Light::ColorTemperature}, {Light::Dimmable}, {Light::OnOff}};
    m_emu = std::make_unique<bridgeemu::BridgeEmulator>(config);
    QVERIFY(m_emu->start());
    m_id = QString::fromStdString(m_emu->bridgeId());
    m_user = m_emu->addUser();
    ConfigCache::instance()->setConfigValueNonblock("hueBridgeIDs/" + m_id, "1", true);
    ConfigCache::instance()->setConfigValueNonblock("hueBridgeUserNames/" + m_id,
                                                    QString::fromStdString(m_user), true);
    setState("paired");
    m_bridge = m_controller->registerBridge(m_id.toUtf8(), "127.0.0.1", m_emu->httpsPort(), "Emu");
    QTRY_COMPARE(m_bridge->userNameState(), CBridge::USERNAME_REGISTERED);
    QVERIFY(poll());
    QTRY_COMPARE(hub()->registry().devices().size(), 4);
}

void TestDatapoints::init()
{
    for (const char* id : {"1", "2", "3", "4"}) {
        QVERIFY(wall(id, "on=1,bri=127,ct=300"));
        light(id)->dimTimer()->setInterval(3600000); // ticks come from the tests, not the clock
    }
    m_emu->clearRequests();
}

void TestDatapoints::cleanup()
{
    m_bridge->setIgnored(false);
    setState("paired");
    m_controller->dataPointValueChanged(InternalId("BEED00010001/ch0000/idp0008"), "0"); // night off
    // Parameters back by hand: a master reset would register the light again in the next test.
    for (auto [index, value] : {std::pair{0, "1"}, {1, "100"}, {2, "100"}, {3, "60"}})
        m_controller->parameterValueChanged(
            InternalId::makeChannelParameterSerial(InternalId("BEED00010001"), 0, index), value);
    // Timed switch-ons end now, and no command is left over for the next test.
    Clock::advance(3600000);
    m_bridge->startStopTimerTimeout();
    for (CLight* each : m_bridge->lights()) {
        each->stopDimming();
        each->commandTimer()->stop();
        each->pendingCommands().clear();
    }
}

void TestDatapoints::inputDatapoint_data()
{
    // Wall change first, datapoint, value, then the body sent (empty: none) or "!" and the refusal.
    addRows(
        {{"switch off", "", "Switch", "0", R"({"on":false})"},
         {"switch, no number", "", "Switch", "on", "!Invalid parameter, value not a valid number: on"},
         {"relative, no number", "", "Relative dimming", "x",
          "!Invalid parameter, value not a valid number: x"},
         {"dimming value", "", "Dimming value", "50", R"({"bri":126,"transitiontime":5})"},
         {"dimming value switches on", "on=0", "Dimming value", "50",
          R"({"on":true,"ct":369,"bri":254,"transitiontime":5})"},
         {"brightness presets", "on=0", "Brightness", "80", R"({"bri":203,"transitiontime":5})"},
         {"brightness, no number", "", "Brightness", "", "!Invalid parameter, value not a valid number:"},
         {"timed start/stop 0", "", "Timed start/stop", "0", R"({"on":false})"},
         {"timed start/stop 1", "on=0", "Timed start/stop", "1", R"({"on":true,"ct":369,"bri":254})"},
         {"timed start/stop abc", "on=0", "Timed start/stop", "abc", R"({"on":true,"ct":369,"bri":254})"},
         {"presence 0", "", "Presence", "0", R"({"on":false})"},
         {"scene", "", "Scene", "1", ""},
         {"rgb", "", "RGB colour", "ff0000", R"({"xy":[0.69150007,0.30830002]})"},
         {"rgb, no colour", "", "RGB colour", "zz", "!Parse error"},
         {"hsv", "", "HSV colour", "536922262", R"({"xy":[0.5087324,0.43344626],"bri":150})"},
         {"hsv, no number", "", "HSV colour", "x", "!hsv string could not be converted to uint x"},
         {"colour temperature", "", "Colour temperature", "100", R"({"ct":153})"},
         {"colour temperature, no number", "", "Colour temperature", "w", "!parameter not a valid float: w"},
         {"hue", "", "Hue", "50", R"({"xy":[0.2674509,0.4017387]})"},
         {"hue, no number", "", "Hue", "nan", "!parameter not a valid double: nan"},
         {"saturation", "", "Saturation", "100", R"({"xy":[0.55468833,0.41105956]})"},
         {"saturation, no number", "", "Saturation", "x", "!parameter not valid double: x"},
         {"timed dimming", "", "Timed dimming", "50%/2000ms", R"({"bri":126,"transitiontime":20})"},
         {"timed dimming, invalid", "", "Timed dimming", "50", "!value for timed dimming is not a valid 50"},
         {"night on", "", "Night mode", "2", ""},
         {"night, no number", "", "Night mode", "x", "!parameter night is no valid integer x"}});
}

void TestDatapoints::inputDatapoint()
{
    QFETCH(QStringList, row);
    QVERIFY(row[0].isEmpty() || wall("1", row[0]));
    const bool refused = row[3].startsWith('!');
    LogCapture log;
    QCOMPARE(write(row[1], row[2]), refused ? 2 : 0);
    QVERIFY2(!refused || log.contains(row[3].mid(1).toUtf8()), qPrintable(row[3]));
    if (row[1] == "Night mode") // one switch for the hub: every bridge caps its switch-ons
        QCOMPARE(m_controller->isNight() && m_bridge->nightMode(), row[2] == "2");
    if (row[3].isEmpty() || refused) { // nothing was sent if the next command goes out on its own
        QCOMPARE(write("Switch", "0"), 0);
        row[3] = R"({"on":false})";
    }
    QTRY_COMPARE(bodies().size(), 1);
    QCOMPARE(bodies().front(), row[3].toUtf8());
}

void TestDatapoints::dimming_data()
{
    // Brightness before, KNX control written, percent after the write and after each tick of the
    // dim timer, "bri" of the last request.
    addRows({{"9 at 95: dims up from 100", "95", "9", "100 100", "254"},
             {"1 at 5: dims down from 1", "5", "1", "1 1", "1"},
             {"10 at 30: half the range up", "30", "10", "80", "203"},
             {"0 at 40: stops where it is", "40", "0", "40", "101"},
             {"9 at 75: ticks up", "75", "9", "85 95 100", "254"},
             {"1 at 25: ticks down", "25", "1", "15 5 1", "1"}});
}

void TestDatapoints::dimming()
{
    QFETCH(QStringList, row);
    QVERIFY(wall("1", "bri=" + QString::number(ColorConvert::convertApiBrightnessToHue(row[0].toDouble()))));
    light()->startDimming(CLight::DimDown); // a running dim, which codes other than 1 stop
    QCOMPARE(write("Relative dimming", row[1]), 0);
    const QStringList steps = row[2].split(' ');
    for (int i = 0; i < steps.size(); ++i) {
        if (i > 0)
            QMetaObject::invokeMethod(light()->dimTimer(), "timeout");
        QCOMPARE(QString::number(qRound(light()->velState().vnBrightness())), steps[i]);
        QCOMPARE(light()->dimTimer()->isActive(), i + 1 < steps.size()); // stops at the bound
    }
    QTRY_COMPARE(bodies().value(bodies().size() - 1),
                 R"({"bri":)" + row[3].toUtf8() + R"(,"transitiontime":5})");
}

void TestDatapoints::parameters_data()
{
    // Hub index (-1: the device id instead), value, then switch-on mode, day, night and timer, warning.
    addRows({{"switch-on mode", "0", "3", "3 100 100 60", ""},
             {"switch-on mode out of range", "0", "9", "1 100 100 60", ""},
             {"switch-on mode, no number", "0", "x", "1 100 100 60",
              "Failed to parse parameter value for SWITCH_ON_MODE"},
             {"day maximum", "1", "40", "1 40 100 60", ""},
             {"night maximum", "2", "20.5", "1 100 20.5 60", ""},
             {"timer", "3", "5", "1 100 100 5", ""},
             {"timer, no number", "3", "abc", "1 100 100 60", "value is not a valid number: abc"},
             {"night maximum, not finite", "2", "nan", "1 100 100 60", "value is not a valid number: nan"},
             {"unknown index", "9", "1", "1 100 100 60", "Invalid parameter account"},
             {"device id", "-1", "1", "1 100 100 60", "Unexpected parameterSerial format: BEED00010001"}});
}

void TestDatapoints::parameters()
{
    QFETCH(QStringList, row);
    const InternalId id("BEED00010001");
    LogCapture log;
    m_controller->parameterValueChanged(
        row[0] == "-1" ? id : InternalId::makeChannelParameterSerial(id, 0, row[0].toInt()), row[1]);
    QVERIFY2(row[3].isEmpty() || log.contains(row[3].toUtf8()), qPrintable(row[3]));
    QCOMPARE(QStringLiteral("%1 %2 %3 %4")
                 .arg(m_bridge->switchOnMode("1"))
                 .arg(light()->maxBrightnessDay())
                 .arg(light()->maxBrightnessNight())
                 .arg(light()->timerDurationSeconds()),
             row[2]);
}

void TestDatapoints::wallSwitchReachesTheHub_data()
{
    // Light, wall change, output datapoint, the value the hub then has.
    addRows({{"off", "1", "on=0", "Switch status", "0"},
             {"brightness", "1", "bri=203", "Brightness status", "80"},
             {"white, coldest", "1", "ct=153", "Colour temperature status", "100"},
             {"white, warmest", "2", "ct=454", "Colour temperature status", "0"},
             {"colour mode", "1", "xy=0.6915:0.3083", "Colour mode", "hsv"},
             {"rgb", "1", "xy=0.6915:0.3083", "RGB colour status", "ff0301"},
             {"hsv", "1", "hue=0,sat=254", "HSV colour status", "0000fe7f"},
             {"dimmable", "3", "bri=1", "Brightness status", "1"}});
}

void TestDatapoints::wallSwitchReachesTheHub()
{
    QFETCH(QStringList, row);
    LogCapture log;
    QVERIFY(wall(row[0], row[1]));
    QTRY_COMPARE_WITH_TIMEOUT(hubValue(row[0][0], row[2]), row[3], 10000);
    const int sent = log.count("SendDP");
    QVERIFY(poll());
    QCOMPARE(log.count("SendDP"), sent); // nothing changed, nothing sent
}

void TestDatapoints::deviceEvents()
{
    // Unreachable: the hub is told, and a scan for life signs leaves the light out.
    m_emu->setLightReachable("2", false);
    QVERIFY(poll());
    QTRY_VERIFY(device('2')->unresponsive);
    hub()->scanForLifeSigns();
    QTRY_VERIFY(device('4')->lastLifeSign.isValid()); // the last one the scan sends
    QVERIFY(device('1')->lastLifeSign.isValid() && device('3')->lastLifeSign.isValid() &&
            device('2')->unresponsive);
    m_emu->setLightReachable("2", true);
    QVERIFY(poll());
    QTRY_VERIFY(!device('2')->unresponsive); // back: a life sign at once
    // Ready again, as after a hub restart: every value goes out again, changed or not.
    LogCapture log;
    m_adaptor->onDeviceReady(InternalId("BEED00010001"), true);
    QCOMPARE(log.count("SendDP"), 7); // all outputs but the error, which Hue lights never report
    // Renamed on the hub: the bridge is told.
    hub()->setAttribute("BEED00010001", "displayName", "Desk");
    QTRY_COMPARE(bodies("/lights/1"), QList<QByteArray>{R"({"name":"Desk"})"});
    // Master reset: the parameters are back at their defaults and the device is registered again.
    m_bridge->setMaximumBrightnessDay("1", 30);
    const int registrations = device()->registrations;
    hub()->masterReset("BEED00010001");
    QTRY_COMPARE(device()->registrations, registrations + 1);
    QCOMPARE(light()->maxBrightnessDay(), 100.0);
    // Removed on the hub: forgotten here without an unresponsive notice, registered afresh when
    // the bridge lists the light again.
    const int before = device('3')->registrations;
    m_adaptor->onDeviceReady(InternalId("BEED00010003"), false);
    QVERIFY(!light("3") && poll());
    QTRY_COMPARE(device('3')->registrations, before + 1);
    QVERIFY(light("3") && !device('3')->unresponsive);
}

void TestDatapoints::refusals_data()
{
    // Bridge ("": paired, "ignored", or the stored state), the call, the id, the warning (empty: sent).
    addRows(
        {{"paired", "", "send", "BEED00010001", ""},
         {"ignored", "ignored", "send", "BEED00010001", "Ignoring sendDataPointValue on ignored bridge"},
         {"ignored, write", "ignored", "write", "BEED00010001/ch0000/idp0000",
          "Ignoring dataPointValueChanged"},
         {"unpaired", "pair", "send", "BEED00010001", "Tried to set datapoint for unpaired bridge"},
         {"light's own output", "", "change", "BEED00010001", ""},
         {"light's own output, unpaired", "pair", "change", "BEED00010001",
          "Tried to set datapoint for unpaired bridge"},
         {"light's own output, ignored", "ignored", "change", "BEED00010001",
          "Ignoring sendDataPointValue on ignored bridge"},
         {"unknown state", "bogus", "send", "BEED00010001", "Tried to set datapoint for unknown bridge"},
         {"no such bridge", "", "send", "BEED00050001", "deviceId not found:"},
         {"no such light", "", "send", "BEED00010009", "light not found"},
         {"output datapoint", "", "write", "BEED00010001/ch0000/odp0000",
          "output datapoint value unexpected"},
         {"parameter", "", "write", "BEED00010001/ch0000/pm0000", "Unexpected datapoint id:"},
         {"write, no such bridge", "", "write", "BEED00050001/ch0000/idp0000",
          "Have no bridge with shortId 5"},
         {"write, no such light", "", "write", "BEED00010009/ch0000/idp0000",
          "deviceId not found: BEED00010009"},
         {"unknown datapoint", "", "write", "BEED00010001/ch0000/idp0063", "Unknown input datapoint BEED"},
         {"light of no device id", "", "light", "BEED00010001/ch0000/idp0000", "Invalid light serial"},
         {"light of no bridge", "", "light", "BEED00050001", "Bridge not found. shortID: 5"},
         {"tick of no timer", "", "tick", "", "dimTimer must be called from a timer"},
         {"tick of no light", "", "tick", "BEED0001FFFF", "light not found for serial BEED0001FFFF"}});
}

void TestDatapoints::refusals()
{
    QFETCH(QStringList, row);
    setState(row[0] == "pair" || row[0] == "bogus" ? row[0] : "paired");
    m_bridge->setIgnored(row[0] == "ignored");
    const InternalId id(row[2].toLatin1()), output = InternalId::makeOutputDataPointSerial(id, 0, 2);
    m_adaptor->uncacheDeviceDatapoints(id);
    QTimer timer; // a dim timer whose light is gone
    timer.setProperty("hueLightSerial", row[2]);
    connect(&timer, &QTimer::timeout, m_controller.get(), &CController::dimTimerFired);
    LogCapture log;
    const InternalId error = m_controller->getOutputDatapointSerial(*light(), 0, hue::ODP_INFO_ERROR);
    if (row[1] == "send")
        m_controller->sendDataPointValue(output, "42");
    else if (row[1] == "change")
        emit m_bridge->lightChangeFailed(light(), true);
    else if (row[1] == "write")
        QVERIFY(!m_controller->dataPointValueChanged(id, "1"));
    else if (row[1] == "light")
        QVERIFY(!m_controller->lightByDeviceSerial(id));
    else
        QMetaObject::invokeMethod(row[2].isEmpty() ? static_cast<QObject*>(m_controller.get()) : &timer,
                                  row[2].isEmpty() ? "dimTimerFired" : "timeout");
    QCOMPARE(m_adaptor->datapointCache().value(output) == "42", row[1] == "send" && row[3].isEmpty());
    QCOMPARE(m_adaptor->datapointCache().value(error) == "1", row[1] == "change" && row[3].isEmpty());
    QVERIFY2(row[3].isEmpty() || log.contains(row[3].toUtf8()), qPrintable(row[3]));
}

// Reachable lights of a paired bridge send a life sign once a minute without a scan by the hub;
// an unreachable one does not.
void TestDatapoints::lifeSignsOnSchedule()
{
    m_emu->setLightReachable("2", false);
    QVERIFY(QTest::qWaitFor([&] { return poll() && !m_bridge->lightDataOf("2").reachable; }, 15000));
    Clock::advance(CController::kLifeSignIntervalMs + 1);
    const QDateTime before = device('1')->lastLifeSign;
    const QDateTime unreachableBefore = device('2')->lastLifeSign;
    QTest::qWait(5); // the hub stamps signs in milliseconds
    m_controller->sendDueLifeSigns();
    QTRY_VERIFY(device('1')->lastLifeSign > before && device('4')->lastLifeSign > before);
    QCOMPARE(device('2')->lastLifeSign, unreachableBefore);
    // Within the minute nothing more is sent.
    const QDateTime sent = device('1')->lastLifeSign;
    m_controller->sendDueLifeSigns();
    QTest::qWait(50);
    QCOMPARE(device('1')->lastLifeSign, sent);
    m_emu->setLightReachable("2", true);
    QVERIFY(QTest::qWaitFor([&] { return poll() && m_bridge->lightDataOf("2").reachable; }, 15000));
}

// The hub restarts: its supervisor sends the stages 0, 3 and 1 again, to a service whose lights
// live on. The descriptions they point to stay valid, every light is registered with the new
// hub with its values, and writes and wall-switch changes work as before.
void TestDatapoints::hubRestart()
{
    QVERIFY(wall("1", "on=1,bri=203"));
    m_hub.reset();
    m_hub = std::make_unique<HubSimulator>(HubSimOptions{m_dir.path()});
    QVERIFY(m_hub->start());
    LogCapture log;
    for (int stage : {0, 3, 1})
        m_adaptor->run(stage);
    QCOMPARE(m_adaptor->currentStage(), 1);
    QTRY_COMPARE(hub()->registry().devices().size(), 4);
    QTRY_COMPARE(hubValue('1', "Brightness status"), QStringLiteral("80"));
    QCOMPARE(m_bridge->userNameState(), CBridge::USERNAME_REGISTERED);
    QCOMPARE(write("Switch", "0"), 0);
    QTRY_COMPARE(bodies(), QList<QByteArray>{R"({"on":false})"});
    QVERIFY(wall("2", "ct=454"));
    QTRY_COMPARE(hubValue('2', "Colour temperature status"), QStringLiteral("0"));
    QCOMPARE(log.count("received same run stage twice"), 0);
}

QTEST_MAIN(TestDatapoints)
#include "tst_datapoints.moc"
