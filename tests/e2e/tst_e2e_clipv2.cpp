// A bridge of current firmware on one address that speaks TLS and plain HTTP, as a real one
// does: found by mDNS, paired, moved to CLIP API version 2; the hub's writes as version 2
// changes, and wall-switch changes through the event stream, also across a dropped stream.
#include "huesystem.h"

#include <QElapsedTimer>
#include <QtTest>

using namespace e2e;

class TestE2EClipV2 : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void everythingGoesThroughTheOnePort();
    void writesBecomeVersion2Changes_data();
    void writesBecomeVersion2Changes();
    void wallSwitchArrivesThroughTheEventStream();
    void droppedStreamResumesAfterItsLastEvent();
    void cleanupTestCase();

private:
    bool setLight(const QString& kind, const QJsonObject& state);
    // Holds every poll of the version 2 resources, so that only the event stream can bring news.
    bool holdPolls();
    bool releasePolls();

    HueSystem m_system;
    EmulatorProcess* m_bridge = nullptr;
    QMap<QString, QString> m_lightIds; // kind -> emulator light id
    QMap<QString, QString> m_serials;  // kind -> device serial
};

void TestE2EClipV2::initTestCase()
{
    QVERIFY(m_system.start());
    m_bridge = m_system.addBridge(
        {"--api", "v2", "--shared-port", "--lights", "extended:1,ct:1,dimmable:1,onoff:1", "--no-groups"});
    QVERIFY(m_bridge);
    QVERIFY(m_bridge->sharedPort() > 0);
    QVERIFY(m_system.announceByMdns(*m_bridge));
    QVERIFY(m_system.pairWhenAsked(*m_bridge));
    QVERIFY(m_system.service().waitForLogMessage(QRegularExpression("switches to API version 2")));
    const QJsonArray devices = m_system.waitForDevices(4);
    QVERIFY(!devices.isEmpty());
    const QStringList kinds{"extended", "ct", "dimmable", "onoff"}; // in --lights order
    for (const QJsonValue& light : m_bridge->lights()) {
        const QString kind = kinds.value(light["id"].toString().toInt() - 1);
        m_lightIds[kind] = light["id"].toString();
        m_serials[kind] = HueSystem::serialOf(devices, light["name"].toString());
        QVERIFY2(!m_serials[kind].isEmpty(), qPrintable(kind));
    }
    // The stream opens a few seconds after the switch; the tests below need it.
    QVERIFY(waitFor(
        [&] { return m_bridge->control("GET", "/emulator/eventstream")["connections"].toInt() > 0; }));
    // Reopen a dropped stream soon rather than after the default delay.
    QVERIFY(m_bridge->control("POST", "/emulator/eventstream/retry", R"({"ms":200})")["ok"].toBool());
}

bool TestE2EClipV2::setLight(const QString& kind, const QJsonObject& state)
{
    // The events of a change go out at once instead of at the end of the emulator's window.
    return m_bridge->setLight(m_lightIds[kind], state) &&
           m_bridge->control("POST", "/emulator/eventstream/flush")["ok"].toBool();
}

bool TestE2EClipV2::holdPolls()
{
    return m_bridge
        ->control("POST", "/emulator/stall",
                  R"({"ms":60000,"count":-1,"path":"/clip/v2/resource","method":"GET"})")["ok"]
        .toBool();
}

bool TestE2EClipV2::releasePolls()
{
    return m_bridge->control("DELETE", "/emulator/stall")["ok"].toBool();
}

void TestE2EClipV2::everythingGoesThroughTheOnePort()
{
    QVERIFY(m_system.service().logMessages(QRegularExpression("falling back to v1")).isEmpty());
    const QList<BridgeRequest> all = m_bridge->requests();
    QVERIFY(!all.isEmpty());
    // Identified over plain HTTP, then everything over TLS on the same port.
    QCOMPARE(all.first().path, QStringLiteral("/api/config"));
    QCOMPARE(all.first().scheme, QStringLiteral("http"));
    int version2 = 0;
    for (const BridgeRequest& request : all) {
        QCOMPARE(request.port, m_bridge->sharedPort());
        if (request.path.startsWith("/clip/v2/") || request.path.startsWith("/eventstream/")) {
            QCOMPARE(request.scheme, QStringLiteral("https"));
            ++version2;
        }
    }
    QVERIFY(version2 > 0);
}

void TestE2EClipV2::writesBecomeVersion2Changes_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QJsonObject>("state"); // the light before the write
    QTest::addColumn<QString>("settled");   // hub output that shows the service has seen it
    QTest::addColumn<QString>("write");     // "datapoint=value"
    QTest::addColumn<QString>("body");      // pattern of the change the bridge gets

    const QJsonObject full{{"on", true}, {"bri", 254}};
    QTest::addRow("switch on") << "onoff" << QJsonObject{{"on", false}} << "Switch status=0"
                               << "Switch=1"
                               << R"(^\{"on":\{"on":true\}\}$)";
    QTest::addRow("brightness")
        << "dimmable" << full << "Brightness status=100"
        << "Brightness=50"
        << R"(^\{"dimming":\{"brightness":49\.6\d*\},"dynamics":\{"duration":500\}\}$)";
    QTest::addRow("colour temperature") << "ct" << full << "Brightness status=100"
                                        << "Colour temperature=100"
                                        << R"(^\{"color_temperature":\{"mirek":153\}\}$)";
    // Red at the corner of the lamp's gamut C.
    QTest::addRow("RGB as xy") << "extended" << full << "Brightness status=100"
                               << "RGB colour=ff0000"
                               << R"(^\{"color":\{"xy":\{"x":0\.69\d*,"y":0\.30\d*\}\}\}$)";
}

void TestE2EClipV2::writesBecomeVersion2Changes()
{
    QFETCH(QString, kind);
    QFETCH(QJsonObject, state);
    QFETCH(QString, settled);
    QFETCH(QString, write);
    QFETCH(QString, body);
    QVERIFY(setLight(kind, state));
    QVERIFY(m_system.waitForOutput(m_serials[kind], settled.section('=', 0, 0), settled.section('=', 1)));
    QVERIFY(m_bridge->clearRequests());

    const QJsonObject answer =
        m_system.hub().write(m_serials[kind], write.section('=', 0, 0), write.section('=', 1));
    QVERIFY2(answer["confirmed"].toBool() && answer["result"].toInt() == 0, qPrintable(write));
    const QRegularExpression lightPath("^/clip/v2/resource/light/[0-9a-f-]{36}$");
    QList<BridgeRequest> sent;
    // The bridge records a request on arrival and its status once answered: wait for both.
    QVERIFY(waitFor([&] {
        sent = m_bridge->requests("PUT", lightPath);
        return !sent.isEmpty() && sent[0].status != 0;
    }));
    QCOMPARE(sent.size(), 1);
    QVERIFY2(QRegularExpression(body).match(sent[0].body).hasMatch(), sent[0].body.constData());
    QCOMPARE(sent[0].status, 200);
}

void TestE2EClipV2::wallSwitchArrivesThroughTheEventStream()
{
    const QString serial = m_serials["ct"];
    QVERIFY(setLight("ct", {{"on", true}, {"bri", 254}}));
    QVERIFY(m_system.waitForOutput(serial, "Brightness status", "100"));

    QVERIFY(holdPolls());
    QElapsedTimer took;
    took.start();
    QVERIFY(setLight("ct", {{"bri", 127}}));
    QVERIFY(m_system.waitForOutput(serial, "Brightness status", "50"));
    qInfo("a wall-switch change reached the hub in %lld ms, with every poll held", took.elapsed());
    QVERIFY(releasePolls());
}

void TestE2EClipV2::droppedStreamResumesAfterItsLastEvent()
{
    const QString serial = m_serials["ct"];
    QVERIFY(m_system.waitForOutput(serial, "Brightness status", "50"));
    const QString lastSeen = m_bridge->control("GET", "/emulator/eventstream")["last_id"].toString();
    QVERIFY(!lastSeen.isEmpty());
    QVERIFY(holdPolls());
    QVERIFY(m_bridge->clearRequests());

    // The change goes out while the stream sends nothing; then the stream drops. The message is
    // only in the bridge's history when the service comes back.
    QVERIFY(m_bridge->control("POST", "/emulator/eventstream/stall")["ok"].toBool());
    QVERIFY(setLight("ct", {{"bri", 254}}));
    QVERIFY(m_bridge->control("POST", "/emulator/eventstream/drop")["ok"].toBool());
    QVERIFY(m_bridge->control("DELETE", "/emulator/eventstream/stall")["ok"].toBool());

    QVERIFY(m_system.waitForOutput(serial, "Brightness status", "100"));
    const QList<BridgeRequest> reopened =
        m_bridge->requests("GET", QRegularExpression("^/eventstream/clip/v2$"));
    QCOMPARE(reopened.size(), 1);
    QString sentId;
    const QJsonObject headers = reopened.first().headers;
    for (auto it = headers.begin(); it != headers.end(); ++it) {
        if (it.key().compare("Last-Event-ID", Qt::CaseInsensitive) == 0)
            sentId = it.value().toString();
    }
    QCOMPARE(sentId, lastSeen);
    QVERIFY(releasePolls());
}

void TestE2EClipV2::cleanupTestCase()
{
    QVERIFY(m_system.service().interrupt());
    QCOMPARE(m_system.service().alarmingLines(), QStringList());
}

QTEST_GUILESS_MAIN(TestE2EClipV2)
#include "tst_e2e_clipv2.moc"
