// The hub's datapoint writes as the bridge receives them, the bridge's state as the hub receives
// it, and what the hub must be told about lights that go out of reach.
#include "huesystem.h"

#include <QtTest>

using namespace e2e;

namespace {

// The hub's HSV number: hue (0..65535) << 16 | saturation << 8 | value.
QString hsv(quint32 hue, quint32 saturation, quint32 value)
{
    return QString::number((hue << 16) | (saturation << 8) | value);
}

const QString kXYBody = R"(^\{"xy":\[([0-9.]+),([0-9.]+)\]%1\}$)";

} // namespace

class TestE2EDatapoints : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void inputReachesTheBridge_data();
    void inputReachesTheBridge();
    void badInputIsRefused_data();
    void badInputIsRefused();
    void wallSwitchReachesTheHubOnce();
    void unreachableAndLifeSigns();
    void cleanupTestCase();

private:
    // Sets the emulator's light and waits until the hub shows the outputs ("name=value").
    bool settle(const QString& kind, const QJsonObject& state, const QStringList& outputs);

    HueSystem m_system;
    EmulatorProcess* m_bridge = nullptr;
    QMap<QString, QString> m_lightIds; // kind -> emulator light id
    QMap<QString, QString> m_serials;  // kind -> device serial
};

void TestE2EDatapoints::initTestCase()
{
    QVERIFY(m_system.start());
    m_bridge = m_system.addBridge({"--lights", "extended:1,color:1,ct:1,dimmable:1,onoff:1", "--no-groups"});
    QVERIFY(m_bridge);
    QVERIFY(m_system.announceByMdns(*m_bridge));
    QVERIFY(m_system.pairWhenAsked(*m_bridge));
    const QJsonArray devices = m_system.waitForDevices(5);
    QVERIFY(!devices.isEmpty());
    const QStringList kinds{"extended", "color", "ct", "dimmable", "onoff"}; // in --lights order
    for (const QJsonValue& light : m_bridge->lights()) {
        const QString kind = kinds.value(light["id"].toString().toInt() - 1);
        m_lightIds[kind] = light["id"].toString();
        m_serials[kind] = HueSystem::serialOf(devices, light["name"].toString());
        QVERIFY2(!m_serials[kind].isEmpty(), qPrintable(kind));
    }
}

bool TestE2EDatapoints::settle(const QString& kind, const QJsonObject& state, const QStringList& outputs)
{
    if (!m_bridge->setLight(m_lightIds[kind], state))
        return false;
    for (const QString& output : outputs) {
        const QStringList parts = output.split('=');
        if (!m_system.waitForOutput(m_serials[kind], parts[0], parts[1]))
            return false;
    }
    return true;
}

void TestE2EDatapoints::inputReachesTheBridge_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QJsonObject>("state");   // the light before the writes
    QTest::addColumn<QStringList>("settled"); // hub outputs that show the service has seen it
    QTest::addColumn<QStringList>("writes");  // "datapoint=value", in one burst
    QTest::addColumn<QStringList>("bodies");  // patterns of the bridge requests, in order
    QTest::addColumn<QPointF>("xy");          // the colour of the first body, when it has one

    const QJsonObject off{{"on", false}};
    const QJsonObject full{{"on", true}, {"bri", 254}};
    const QStringList offSettled{"Switch status=0"};
    const QStringList fullSettled{"Switch status=1", "Brightness status=100"};
    const QPointF none;
    // Corners of the gamut of the emulator's extended colour lamp (gamut C), and the white point
    // the service uses for that gamut.
    const QPointF red(0.6915, 0.3083), blue(0.1532, 0.0475), white(0.3804, 0.3768);

    QTest::addRow("switch on") << "onoff" << off << offSettled << QStringList{"Switch=1"}
                               << QStringList{R"(^\{"on":true\}$)"} << none;
    QTest::addRow("switch off") << "onoff" << QJsonObject{{"on", true}} << QStringList{"Switch status=1"}
                                << QStringList{"Switch=0"} << QStringList{R"(^\{"on":false\}$)"} << none;
    QTest::addRow("brightness presets") << "dimmable" << full << fullSettled << QStringList{"Brightness=50"}
                                        << QStringList{R"(^\{"bri":126,"transitiontime":5\}$)"} << none;
    QTest::addRow("brightness 0 switches off")
        << "dimmable" << full << fullSettled << QStringList{"Brightness=0"}
        << QStringList{R"(^\{"on":false,"transitiontime":5\}$)"} << none;
    // (Its brightness then follows the light's switch-on mode.)
    QTest::addRow("dimming value switches on")
        << "dimmable" << off << offSettled << QStringList{"Dimming value=50"}
        << QStringList{R"(^\{"on":true,"bri":\d+,"transitiontime":5\}$)"} << none;
    QTest::addRow("relative dimming: darker by half")
        << "dimmable" << full << fullSettled << QStringList{"Relative dimming=2"}
        << QStringList{R"(^\{"bri":126,"transitiontime":5\}$)"} << none;
    QTest::addRow("relative dimming: stop sends the brightness")
        << "dimmable" << full << fullSettled << QStringList{"Relative dimming=8"}
        << QStringList{R"(^\{"bri":254,"transitiontime":5\}$)"} << none;
    QTest::addRow("timed dimming") << "dimmable" << full << fullSettled
                                   << QStringList{"Timed dimming=50%/2000ms"}
                                   << QStringList{R"(^\{"bri":126,"transitiontime":20\}$)"} << none;
    QTest::addRow("colour temperature, coldest")
        << "extended" << full << fullSettled << QStringList{"Colour temperature=100"}
        << QStringList{R"(^\{"ct":153\}$)"} << none;
    QTest::addRow("colour temperature, warmest of a white lamp")
        << "ct" << full << fullSettled << QStringList{"Colour temperature=0"}
        << QStringList{R"(^\{"ct":454\}$)"} << none;
    QTest::addRow("RGB") << "extended" << full << fullSettled << QStringList{"RGB colour=ff0000"}
                         << QStringList{kXYBody.arg("")} << red;
    QTest::addRow("HSV") << "extended" << full << fullSettled
                         << QStringList{"HSV colour=" + hsv(43690, 254, 100)}
                         << QStringList{kXYBody.arg(R"(,"bri":100)")} << blue;
    QTest::addRow("saturation and hue, coalesced")
        << "extended" << full << fullSettled << QStringList{"Saturation=100", "Hue=0"}
        << QStringList{kXYBody.arg("")} << red;
    QTest::addRow("saturation 0 is white") << "extended" << full << fullSettled << QStringList{"Saturation=0"}
                                           << QStringList{kXYBody.arg("")} << white;
    QTest::addRow("timed start/stop: on, then off")
        << "onoff" << off << offSettled << QStringList{"Timed start/stop=1"}
        << QStringList{R"(^\{"on":true\}$)", R"(^\{"on":false\}$)"} << none;
    QTest::addRow("timed start/stop: 0 is off")
        << "onoff" << QJsonObject{{"on", true}} << QStringList{"Switch status=1"}
        << QStringList{"Timed start/stop=0"} << QStringList{R"(^\{"on":false\}$)"} << none;
}

void TestE2EDatapoints::inputReachesTheBridge()
{
    QFETCH(QString, kind);
    QFETCH(QJsonObject, state);
    QFETCH(QStringList, settled);
    QFETCH(QStringList, writes);
    QFETCH(QStringList, bodies);
    QFETCH(QPointF, xy);
    // The timer of timed start/stop: one second, so that its end is seen soon.
    QCOMPARE(m_system.hub().hubctl({"param", m_serials[kind], "Timer duration", "1"}).exitCode, 0);
    QVERIFY(settle(kind, state, settled));
    QVERIFY(m_bridge->clearRequests());

    for (const QString& write : writes) {
        const QStringList parts = write.split('=');
        const QJsonObject answer = m_system.hub().write(m_serials[kind], parts[0], parts[1]);
        QVERIFY2(answer["confirmed"].toBool() && answer["result"].toInt() == 0, qPrintable(write));
    }
    const QRegularExpression statePath("^/api/[^/]+/lights/" + m_lightIds[kind] + "/state$");
    QList<BridgeRequest> sent;
    QVERIFY(waitFor([&] {
        sent = m_bridge->requests("PUT", statePath);
        return sent.size() >= bodies.size();
    }));
    QCOMPARE(sent.size(), bodies.size());
    for (int i = 0; i < bodies.size(); ++i)
        QVERIFY2(QRegularExpression(bodies[i]).match(sent[i].body).hasMatch(), sent[i].body.constData());
    if (!xy.isNull()) {
        const QRegularExpressionMatch match = QRegularExpression(bodies[0]).match(sent[0].body);
        QVERIFY2(qAbs(match.captured(1).toDouble() - xy.x()) < 0.02 &&
                     qAbs(match.captured(2).toDouble() - xy.y()) < 0.02,
                 sent[0].body.constData());
    }
}

void TestE2EDatapoints::badInputIsRefused_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QString>("dataPoint");
    QTest::addColumn<QString>("value");
    QTest::addRow("switch") << "onoff"
                            << "Switch"
                            << "on";
    QTest::addRow("brightness") << "dimmable"
                                << "Brightness"
                                << "bright";
    QTest::addRow("relative dimming") << "dimmable"
                                      << "Relative dimming"
                                      << "up";
    QTest::addRow("timed dimming") << "dimmable"
                                   << "Timed dimming"
                                   << "50 % in 2 s";
    QTest::addRow("colour temperature") << "ct"
                                        << "Colour temperature"
                                        << "warm";
    QTest::addRow("RGB") << "extended"
                         << "RGB colour"
                         << "#12zz56";
    QTest::addRow("HSV") << "extended"
                         << "HSV colour"
                         << "-1";
    QTest::addRow("hue") << "color"
                         << "Hue"
                         << "red";
    QTest::addRow("saturation") << "color"
                                << "Saturation"
                                << "";
    QTest::addRow("night mode") << "dimmable"
                                << "Night mode"
                                << "tonight";
}

void TestE2EDatapoints::badInputIsRefused()
{
    QFETCH(QString, kind);
    QFETCH(QString, dataPoint);
    QFETCH(QString, value);
    QVERIFY(m_bridge->clearRequests());
    const QJsonObject answer = m_system.hub().write(m_serials[kind], dataPoint, value);
    QVERIFY(answer["confirmed"].toBool());
    QCOMPARE(answer["result"].toInt(), 2);
    // A good write to another light afterwards is the only change the bridge gets.
    QCOMPARE(m_system.hub().write(m_serials["onoff"], "Switch", "1")["result"].toInt(), 0);
    QVERIFY(waitFor([&] { return !m_bridge->requests("PUT").isEmpty(); }));
    QCOMPARE(m_bridge->requests("PUT").size(), 1);
    QVERIFY(m_bridge->requests("PUT").first().path.endsWith("/lights/" + m_lightIds["onoff"] + "/state"));
}

void TestE2EDatapoints::wallSwitchReachesTheHubOnce()
{
    const QString serial = m_serials["ct"];
    QVERIFY(settle("ct", {{"on", true}, {"bri", 254}, {"ct", 454}},
                   {"Switch status=1", "Brightness status=100", "Colour temperature status=0"}));
    // The values each output datapoint of the light has had, oldest first.
    auto sentValues = [&] {
        QMap<QString, QStringList> sent;
        for (const QJsonValue& point : m_system.hub().device(serial)["dataPoints"].toArray()) {
            if (point["direction"].toString() == "output")
                sent[point["name"].toString()] = m_system.hub().sentValues(point["id"].toString());
        }
        return sent;
    };
    const QMap<QString, QStringList> before = sentValues();
    QVERIFY(!before["Switch status"].isEmpty());

    // Two changes at the switch, each seen by a later poll; the light stays on throughout.
    QVERIFY(settle("ct", {{"bri", 127}}, {"Brightness status=50"}));
    QVERIFY(settle("ct", {{"ct", 153}}, {"Colour temperature status=100"}));

    // What the hub heard since: changes only, each once.
    const QMap<QString, QStringList> after = sentValues();
    QMap<QString, QStringList> since;
    for (auto it = after.cbegin(); it != after.cend(); ++it) {
        const QStringList earlier = before.value(it.key());
        const QStringList added = it->mid(earlier.size());
        if (!added.isEmpty())
            since[it.key()] = added;
        for (int i = 0; i < added.size(); ++i) {
            const QString previous = i > 0 ? added[i - 1] : earlier.value(earlier.size() - 1);
            QVERIFY2(added[i] != previous, qPrintable(it.key() + ": " + it->join(',')));
        }
    }
    QCOMPARE(since.value("Switch status"), QStringList());
    QCOMPARE(since.value("Brightness status"), QStringList({"50"}));
    QCOMPARE(since.value("Colour temperature status"), QStringList({"100"}));
}

void TestE2EDatapoints::unreachableAndLifeSigns()
{
    HubSimProcess& hub = m_system.hub();
    const QString serial = m_serials["dimmable"];
    QVERIFY(m_bridge->setLight(m_lightIds["dimmable"], {{"reachable", false}}));
    QVERIFY(waitFor([&] { return hub.device(serial)["unresponsive"].toBool(); }));
    // Out of reach, the light still takes writes.
    QCOMPARE(hub.write(serial, "Switch", "1")["result"].toInt(), 0);

    // The hub's scan gets a life sign from every light in reach, and none from this one.
    QMap<QString, int> before;
    for (const QString& other : m_serials)
        before[other] = hub.lifeSigns(other);
    QCOMPARE(hub.hubctl({"scan"}).exitCode, 0);
    QVERIFY(waitFor([&] {
        for (const QString& other : m_serials) {
            if (other != serial && hub.lifeSigns(other) == before[other])
                return false;
        }
        return true;
    }));
    QCOMPARE(hub.lifeSigns(serial), before[serial]);

    // Back in reach: a life sign of its own ends the hub's "unresponsive".
    QVERIFY(m_bridge->setLight(m_lightIds["dimmable"], {{"reachable", true}}));
    QVERIFY(waitFor([&] { return !hub.device(serial)["unresponsive"].toBool(); }));
    QCOMPARE(hub.lifeSigns(serial), before[serial] + 1);
}

void TestE2EDatapoints::cleanupTestCase()
{
    QVERIFY(m_system.service().interrupt());
    QCOMPARE(m_system.service().alarmingLines(), QStringList());
}

QTEST_GUILESS_MAIN(TestE2EDatapoints)
#include "tst_e2e_datapoints.moc"
