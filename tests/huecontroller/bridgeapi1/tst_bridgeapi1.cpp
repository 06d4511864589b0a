// The version 1 dialect on hand-written bridge JSON: light types, change bodies, poll order,
// reading light and group objects, and change replies. No sockets: the bridge has no network.

#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi1.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_globals.h"
#include "huecontroller/hue_light.h"

#include "logcapture.h"

#include <QSignalSpy>
#include <QtTest>

using namespace hue;

namespace {

std::unique_ptr<minijson::CEntity> parse(const char* text)
{
    return minijson::CParser::Parse(text);
}

// Three lights: an extended colour lamp with its reported gamut and ct range, an OSRAM lamp whose
// ct range the light-info table overrides, and an unreachable plug. Two broken entries beside.
const char kLights[] = R"({
 "1":{"state":{"on":true,"bri":200,"hue":10000,"sat":200,"xy":[0.4,0.35],"ct":300,"colormode":"xy","reachable":true},
      "type":"Extended color light","name":"Desk","modelid":"LCT015","manufacturername":"Signify Netherlands B.V.",
      "productname":"Hue color lamp","swversion":"1.88.1",
      "capabilities":{"control":{"colorgamuttype":"C","colorgamut":[[0.6915,0.3083],[0.17,0.7],[0.1532,0.0475]],
                                 "ct":{"min":153,"max":500}}}},
 "2":{"state":{"on":false,"bri":100,"ct":400,"colormode":"ct","reachable":true},"type":"Color temperature light",
      "name":"Hall","modelid":"Classic B40 TW","manufacturername":"OSRAM",
      "capabilities":{"control":{"ct":{"min":153,"max":500}}}},
 "3":{"state":{"on":true,"reachable":false},"type":"On/Off plug-in unit","name":"Plug","modelid":"LOM001"},
 "x":{"state":{"on":true}},
 "4":{"name":"no state"}
})";

const char kGroups[] = R"({
 "1":{"name":"Living","lights":["1","3"],"type":"Room","state":{"all_on":false,"any_on":true},
      "action":{"on":false,"bri":50,"ct":300,"colormode":"ct"}}
})";

} // namespace

class TestBridgeAPI1 : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_quiet = std::make_unique<LogCapture>(); // the readers' messages are checked, not shown
        m_bridge = new CBridge(1);
        m_bridge->setUserName("key");
        m_api = static_cast<BridgeAPI1*>(m_bridge->api());
    }
    void cleanup()
    {
        delete m_bridge;
        m_quiet.reset();
    }

private:
    void pollLights(const char* text) { m_api->parsePollReply(parse(text)->Object(), CBridge::PollLights); }

    std::unique_ptr<LogCapture> m_quiet;
    CBridge* m_bridge = nullptr;
    BridgeAPI1* m_api = nullptr;
private slots:
    void lightType_data()
    {
        QTest::addColumn<QByteArray>("state");
        QTest::addColumn<int>("type");
        QTest::addRow("no on") << QByteArray(R"({"bri":1,"ct":2,"xy":[0,0]})") << int(LightInvalid);
        QTest::addRow("on only") << QByteArray(R"({"on":true,"ct":2})") << int(LightOnOff);
        QTest::addRow("colour by hue") << QByteArray(R"({"on":true,"bri":1,"hue":2})") << int(LightColor);
        QTest::addRow("extended") << QByteArray(R"({"on":true,"bri":1,"ct":2,"hue":3,"xy":[0,0]})")
                                  << int(LightExtendedColor);
    }

    void lightType()
    {
        QFETCH(QByteArray, state);
        QFETCH(int, type);
        LogCapture log;
        QCOMPARE(int(m_api->determineLightType(parse(state.constData())->Object())), type);
        QCOMPARE(log.contains("Light has no \"on\" parameter. This is not allowed"), type == LightInvalid);
    }

    void missingXYWarnsOnce()
    {
        LogCapture log;
        const auto state = parse(R"({"on":true,"bri":1,"hue":2})");
        QCOMPARE(m_api->determineLightType(state->Object()), LightColor);
        QCOMPARE(m_api->determineLightType(state->Object()), LightColor);
        QCOMPARE(log.count("Bridge does not report xy colors for lights"), 1);
        QVERIFY(m_api->warnedAboutMissingXY());
    }

    void changeBody_data()
    {
        QTest::addColumn<QVariantMap>("changes"); // item number as text -> value
        QTest::addColumn<QByteArray>("body");
        QTest::addRow("all in item order")
            << QVariantMap{{"7", 4},   {"6", 200},   {"5", 1000}, {"4", 254},
                           {"3", 300}, {"2", 0.25f}, {"1", 0.5f}, {"0", true}}
            << QByteArray(
                   R"({"on":true,"xy":[0.5,0.25],"ct":300,"bri":254,"hue":1000,"sat":200,"transitiontime":4})");
        QTest::addRow("x without y") << QVariantMap{{"1", 0.3f}} << QByteArray(R"({"xy":[0.3,0]})");
        QTest::addRow("y alone writes nothing") << QVariantMap{{"2", 0.3f}} << QByteArray("{}");
        QTest::addRow("timer marker is not a key")
            << QVariantMap{{"0", false}, {"8", true}} << QByteArray(R"({"on":false})");
    }

    void changeBody()
    {
        QFETCH(QVariantMap, changes);
        QFETCH(QByteArray, body);
        QMap<ChangeItem, QVariant> pending;
        for (auto it = changes.cbegin(); it != changes.cend(); ++it)
            pending.insert(ChangeItem(it.key().toInt()), it.value());
        CLight light(m_bridge, "1", "1", 1, ItemLight, LightExtendedColor);
        QCOMPARE(QByteArray::fromStdString(m_api->buildChangeRequest(light, pending)->ToString()), body);
    }

    void pollAlternatesWithGroups()
    {
        CBridge::PollType type = CBridge::PollLights;
        QCOMPARE(m_api->pollNextItem(type).url().path(), QStringLiteral("/api/key/lights"));
        QCOMPARE(m_api->pollNextItem(type).url().path(), QStringLiteral("/api/key/lights"));
        QCOMPARE(type, CBridge::PollLights);

        m_bridge->onConfigValueChanged("hue/useGroups", "1", true);
        QStringList paths;
        for (int i = 0; i < 4; ++i)
            paths << m_api->pollNextItem(type).url().path();
        QCOMPARE(paths,
                 (QStringList{"/api/key/groups", "/api/key/lights", "/api/key/groups", "/api/key/lights"}));
        QCOMPARE(m_api->createRequest("x").attribute(QNetworkRequest::Http2AllowedAttribute).toBool(), false);
    }

    void lightsAreReadCompletely()
    {
        LogCapture log;
        QSignalSpy added(m_bridge, &CBridge::lightAdded);
        pollLights(kLights);

        QCOMPARE(added.count(), 3);
        QCOMPARE(m_bridge->lights().keys(), (QList<QByteArray>{"1", "2", "3"}));
        QVERIFY(log.contains("cannot parse light id: x"));
        QVERIFY(log.contains("has unexpected contents (missing state/action) 4"));

        const CLight* desk = m_bridge->lightById("1");
        QCOMPARE(desk->device(), nullptr); // no controller in this test: no description
        QCOMPARE(desk->model(), QByteArray("LCT015"));
        QVERIFY(desk->isOn());
        QCOMPARE(desk->bridgeState().brightness(), quint8(200));
        QCOMPARE(desk->bridgeState().colorMode(), ColorModeColor);
        QCOMPARE(desk->gamutLimits().red, (XYPoint{0.6915f, 0.3083f}));
        // The hub state follows the bridge state of a light that is on.
        QCOMPARE(desk->velState().brightness(), quint8(200));
        QCOMPARE(desk->deviceSerial().toString(), QByteArray("BEED00010001"));

        const CLight* hall = m_bridge->lightById("2");
        QCOMPARE(hall->miredMax(), 370); // the light-info table wins over the reported range
        QCOMPARE(hall->bridgeState().colorMode(), ColorModeTemperature);
        QVERIFY(!hall->isOn());

        QVERIFY(!m_bridge->lightDataOf("3").reachable);
        QCOMPARE(m_bridge->lightByVelId(3), m_bridge->lightById("3"));
        QCOMPARE(m_bridge->lightByDeviceSerial(InternalId::makeDeviceSerial(0xBEED, 0x10003)),
                 m_bridge->lightById("3"));
        QCOMPARE(m_bridge->lightByDeviceSerial(InternalId::makeDeviceSerial(0xBEED, 0x20003)), nullptr);
    }

    void laterPollsReportChangesAndRemovals()
    {
        pollLights(kLights);
        QSignalSpy changed(m_bridge, &CBridge::lightChanged);
        QSignalSpy removed(m_bridge, &CBridge::lightRemoved);
        QSignalSpy added(m_bridge, &CBridge::lightAdded);
        LogCapture log;
        pollLights(R"({
     "1":{"state":{"on":true,"bri":100,"hue":10000,"sat":200,"xy":[0.4,0.35],"ct":300,"colormode":"hs","reachable":true},
          "type":"Extended color light","name":"Desk","modelid":"LCT015","manufacturername":"Signify Netherlands B.V.",
          "productname":"Hue color lamp","swversion":"1.88.1"},
     "3":{"state":{"on":"yes","reachable":true,"colormode":"rainbow"},"type":"On/Off plug-in unit","name":"Plug","modelid":"LOM001"}
    })");
        QCOMPARE(added.count(), 0);
        QCOMPARE(removed.count(), 1);
        QVERIFY(!m_bridge->hasLight("2"));
        QCOMPARE(changed.count(), 2);
        QCOMPARE(changed.at(0).at(0).value<CLight*>(), m_bridge->lightById("1"));
        QCOMPARE(changed.at(0).at(1).value<ChangeFlags>(), ChangeFlags(ChangedBrightness));
        // A wrong type leaves the value alone; reachability still counts.
        QCOMPARE(changed.at(1).at(1).value<ChangeFlags>(), ChangeFlags(ChangedReachable));
        QVERIFY(m_bridge->lightById("3")->isOn());
        QVERIFY(log.contains("invalid data type in OnOff value"));
        QVERIFY(log.contains("reports invalid color mode"));
    }

    void groupsAreReadAndDroppedWhenSwitchedOff()
    {
        // Group replies are ignored while groups are off.
        m_api->parsePollReply(parse(kGroups)->Object(), CBridge::PollGroups);
        QVERIFY(m_bridge->lights().isEmpty());

        m_bridge->onConfigValueChanged("hue/useGroups", "true", true);
        pollLights(kLights);
        m_api->parsePollReply(parse(kGroups)->Object(), CBridge::PollGroups);
        CLight* group = m_bridge->lightById("groups/1");
        QVERIFY(group);
        QCOMPARE(group->itemType(), ItemGroup);
        QCOMPARE(group->secondId(), QByteArray("1"));
        QCOMPARE(group->lightNumber(), quint16(0x8001));
        QVERIFY(group->isOn()); // any_on, not the last action
        QCOMPARE(group->bridgeState().brightness(), quint8(50));
        QCOMPARE(m_bridge->lightDataOf("groups/1").memberLights, (QList<QByteArray>{"1", "3"}));
        QVERIFY(m_bridge->hasLight("1")); // light 1 and group 1 live side by side

        QSignalSpy unresponsive(m_bridge, &CBridge::lightUnresponsive);
        m_bridge->onConfigValueChanged("hue/useGroups", "0", true);
        QCOMPARE(unresponsive.count(), 1);
        QVERIFY(!m_bridge->hasLight("groups/1"));
        QCOMPARE(m_bridge->lights().size(), 3);
    }

    void changeReply_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<bool>("applied");
        QTest::addColumn<QByteArray>("logged");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("reportedFlags");
        QTest::addColumn<int>("stateRequested");

        const int bri = ChangedBrightness;
        QTest::addRow("brightness") << QByteArray(R"([{"success":{"/lights/1/state/bri":120}}])") << true
                                    << QByteArray() << 120 << bri << -1;
        QTest::addRow("colour is applied, not reported")
            << QByteArray(R"([{"success":{"/lights/1/state/xy":[0.2,0.3]}}])") << true << QByteArray() << 200
            << 0 << -1;
        QTest::addRow("withdrawn key")
            << QByteArray(
                   R"([{"error":{"type":1,"address":"/lights/1/state","description":"unauthorized user"}}])")
            << false << QByteArray("Missing (or revoked) authorization: unauthorized user") << 200 << 0 << 0;
        QTest::addRow("other error") << QByteArray(
                                            R"([{"error":{"type":201,"description":"device is off"}}])")
                                     << false << QByteArray("error type: 201 description: device is off")
                                     << 200 << 0 << -1;
        QTest::addRow("not an array")
            << QByteArray(R"({"success":{}})") << false
            << QByteArray("JSON response from bridge is not an array") << 200 << 0 << -1;
        QTest::addRow("neither") << QByteArray(R"([{"foo":1}])") << false
                                 << QByteArray("JSON response has neither success nor error at index 0")
                                 << 200 << 0 << -1;
        QTest::addRow("unknown light") << QByteArray(R"([{"success":{"/lights/99/state/bri":1}}])") << false
                                       << QByteArray("unknown hue item id 99") << 200 << 0 << -1;
        QTest::addRow("foreign address")
            << QByteArray(R"([{"success":{"/sensors/1/state/x":1}}])") << false
            << QByteArray("unexpected address format, cannot update item for address") << 200 << 0 << -1;
        QTest::addRow("unknown attribute")
            << QByteArray(R"([{"success":{"/lights/1/state/effect":"none"}}])") << true
            << QByteArray("ignoring unknown value type in response: effect") << 200 << 0 << -1;
        QTest::addRow("wrong value type")
            << QByteArray(R"([{"success":{"/lights/1/state/bri":"high"}}])") << false
            << QByteArray("Need to wait for next poll for state update.") << 200 << 0 << -1;
    }

    void changeReply()
    {
        QFETCH(QByteArray, reply);
        QFETCH(bool, applied);
        QFETCH(QByteArray, logged);
        QFETCH(int, brightness);
        QFETCH(int, reportedFlags);
        QFETCH(int, stateRequested);

        pollLights(kLights);
        QSignalSpy changed(m_bridge, &CBridge::lightChanged);
        QSignalSpy stateChange(m_bridge, &CBridge::bridgeStateChangeRequested);
        LogCapture log;
        QCOMPARE(m_api->parseLightChangeReply(nullptr, *parse(reply.constData()), false), applied);
        if (!logged.isEmpty())
            QVERIFY2(log.contains(logged), log.lines().join('\n').constData());
        QCOMPARE(int(m_bridge->lightById("1")->bridgeState().brightness()), brightness);
        QCOMPARE(changed.count(), reportedFlags ? 1 : 0);
        if (reportedFlags)
            QCOMPARE(int(changed.first().at(1).value<ChangeFlags>()), reportedFlags);
        QCOMPARE(stateChange.count(), stateRequested < 0 ? 0 : 1);
        if (stateRequested >= 0)
            QCOMPARE(stateChange.first().first().toInt(), stateRequested);
    }
};

QTEST_GUILESS_MAIN(TestBridgeAPI1)
#include "tst_bridgeapi1.moc"
