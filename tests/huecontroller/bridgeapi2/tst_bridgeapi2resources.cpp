// The version 2 dialect as pure logic on a bridge without a network: change bodies, error
// objects, the poll sequence, resource replies (a real bridge's recorded answer among them),
// device services and the statistics of a room or zone.

#include "huecontroller/hue_bridgeapi2.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_device.h"
#include "huecontroller/hue_globals.h"
#include "huecontroller/hue_light.h"

#include "logcapture.h"

#include <QSignalSpy>
#include <QtTest>

using namespace hue;

namespace {

std::unique_ptr<minijson::CEntity> json(const QByteArray& text)
{
    return minijson::CParser::Parse(text.constData(), text.size());
}

// One device "d<n>" with light "l<n>" (/lights/<n>) and connectivity "z<n>".
QByteArray device(int n, const QByteArray& extraServices = {})
{
    return QByteArray(
               R"({"id":"d%1","type":"device","metadata":{"name":"Lamp %1"},)"
               R"("product_data":{"model_id":"LCT015","manufacturer_name":"Signify"},)"
               R"("services":[{"rid":"l%1","rtype":"light"},{"rid":"z%1","rtype":"zigbee_connectivity"}%2]})")
        .replace("%1", QByteArray::number(n))
        .replace("%2", extraServices);
}

QByteArray connectivity(int n, const char* status)
{
    return QByteArray(R"({"id":"z%1","type":"zigbee_connectivity","owner":{"rid":"d%1","rtype":"device"},)"
                      R"("status":"%2"})")
        .replace("%1", QByteArray::number(n))
        .replace("%2", status);
}

QByteArray light(int n, const QByteArray& members)
{
    return QByteArray(
               R"({"id":"l%1","id_v1":"/lights/%1","type":"light","owner":{"rid":"d%1","rtype":"device"},)"
               R"("metadata":{"name":"Lamp %1"}%3%2})")
        .replace("%1", QByteArray::number(n))
        .replace("%3", members.contains("\"on\"") ? "" : R"(,"on":{"on":true})")
        .replace("%2", members);
}

} // namespace

class TestBridgeAPI2Resources : public QObject
{
    Q_OBJECT

private:
    void pollReply(CBridge::PollType type, const QByteArray& data)
    {
        const auto reply = json("{\"data\":[" + data + "]}");
        m_api->parsePollReply(reply->Object(), type);
    }

    std::unique_ptr<CController> m_controller;
    std::unique_ptr<CBridge> m_bridge;
    BridgeAPI2* m_api = nullptr;

private slots:
    void initTestCase()
    {
        ConstDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
        m_controller = std::make_unique<CController>();
        m_controller->loadLightSpecs();
    }

    void init()
    {
        m_bridge = std::make_unique<CBridge>(1);
        m_api = new BridgeAPI2(m_bridge.get());
    }

    void cleanup() { m_bridge.reset(); }

    void changeBodies_data()
    {
        QTest::addColumn<QVariantMap>("items"); // item number -> value
        QTest::addColumn<QByteArray>("body");
        auto row = [](const char* name, QVariantMap items, const char* body) {
            QTest::addRow("%s", name) << items << QByteArray(body);
        };
        row("brightness 127", {{"4", 127}}, R"({"dimming":{"brightness":50}})");
        row("transition 4", {{"7", 4}}, R"({"dynamics":{"duration":400}})");
        row("mirek and off", {{"0", false}, {"3", 300}},
            R"({"on":{"on":false},"color_temperature":{"mirek":300}})");
        row("hue is not sent", {{"5", 1000}, {"6", 100}}, "{}");
    }

    void changeBodies()
    {
        QFETCH(QVariantMap, items);
        QFETCH(QByteArray, body);
        QMap<ChangeItem, QVariant> changes;
        for (auto it = items.cbegin(); it != items.cend(); ++it)
            changes.insert(ChangeItem(it.key().toInt()), it.value());
        CLight lamp(m_bridge.get(), "l1", "/lights/1", 1, ItemLight, LightExtendedColor);
        LogCapture log;
        QCOMPARE(QByteArray::fromStdString(m_api->buildChangeRequest(lamp, changes)->ToString()), body);
        QCOMPARE(log.contains("Got a hue/sat changeItem that is supposed to be rewritten:"), body == "{}");
    }

    void errorObjects_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<int>("errors");
        QTest::addRow("none") << QByteArray(R"({"data":[]})") << 0;
        QTest::addRow("not an array") << QByteArray(R"({"errors":{}})") << 1;
        QTest::addRow("two") << QByteArray(R"({"errors":[{"description":"no"},"odd"]})") << 2;
    }

    void errorObjects()
    {
        QFETCH(QByteArray, reply);
        QFETCH(int, errors);
        QCOMPARE(BridgeAPI2::checkErrors(json(reply)->Object()), errors);
    }

    void pollSequence_data()
    {
        QTest::addColumn<int>("previous");
        QTest::addColumn<bool>("groups");
        QTest::addColumn<bool>("clientKnown");
        QTest::addColumn<int>("next");
        QTest::addColumn<QString>("path");
        QTest::addRow("device") << 2 << false << false << 3 << "/clip/v2/resource/zigbee_connectivity";
        QTest::addRow("connectivity") << 3 << false << false << 0 << "/clip/v2/resource/light";
        QTest::addRow("light, groups") << 0 << true << true << 1 << "/api/key/groups";
        QTest::addRow("light, no client") << 0 << false << false << 6 << "/clip/v2/resource/geofence_client";
        QTest::addRow("light, client") << 0 << false << true << 2 << "/clip/v2/resource/device";
        QTest::addRow("client list") << 6 << false << false << 2 << "/clip/v2/resource/device";
    }

    void pollSequence()
    {
        QFETCH(int, previous);
        QFETCH(bool, groups);
        QFETCH(bool, clientKnown);
        QFETCH(int, next);
        QFETCH(QString, path);
        m_bridge->setUserName(QStringLiteral("key"));
        m_bridge->onConfigValueChanged(QStringLiteral("hue/useGroups"), groups ? "1" : "0", true);
        if (clientKnown)
            m_api->parseGeofenceClientCreate(
                json(R"({"data":[{"rid":"g1","rtype":"geofence_client"}]})")->Object());
        auto type = CBridge::PollType(previous);
        const QNetworkRequest request = m_api->pollNextItem(type);
        QCOMPARE(int(type), next);
        QCOMPARE(request.url().path(), path);
        QCOMPARE(request.rawHeader("hue-application-key"), QByteArray(path.startsWith("/clip") ? "key" : ""));
    }

    // Current firmware marks a light's own "metadata" deprecated; without it, a light takes name
    // and archetype from its device.
    void realBridgeDump_data()
    {
        QTest::addColumn<bool>("lightMetadata");
        QTest::addColumn<QByteArray>("name");
        QTest::addRow("light metadata") << true << QByteArray("Light 8");
        QTest::addRow("device metadata only") << false << QByteArray("Device 26");
    }

    void realBridgeDump()
    {
        QFETCH(bool, lightMetadata);
        QFETCH(QByteArray, name);
        const auto dump = minijson::CParser::ParseFromFile(HUE_CLIP_DUMP);
        QByteArray byType[3];
        const char* types[3] = {"device", "zigbee_connectivity", "light"};
        for (int i = 0; i < dump->Count(); ++i) {
            if (!lightMetadata && (*dump)[i].Object().GetString("type") == "light")
                (*dump)[i].Object().Remove("metadata");
            for (int t = 0; t < 3; ++t) {
                if ((*dump)[i].Object().GetString("type") == types[t])
                    byType[t] +=
                        (byType[t].isEmpty() ? "" : ",") + QByteArray::fromStdString((*dump)[i].ToString());
            }
        }
        LogCapture log;
        QSignalSpy added(m_bridge.get(), &CBridge::lightAdded);
        pollReply(CBridge::PollDevices, byType[0]);
        pollReply(CBridge::PollConnectivity, byType[1]);
        pollReply(CBridge::PollLights, byType[2]);
        QCOMPARE(m_api->devices().size(), 46);
        // Only one light's device reports itself connected; the others stay until they do.
        QCOMPARE(added.size(), 1);
        CLight* lamp = m_bridge->lightById("4cd1e047-6b7d-c797-eac8-3cb2b496ae36");
        QVERIFY(lamp);
        QCOMPARE(m_bridge->lightData(lamp->hueId()).name, QString::fromUtf8(name));
        QCOMPARE(m_api->lightArchetype(lamp->hueId()), QByteArray("hue_lightstrip"));
        QCOMPARE(lamp->device()->type(), LightExtendedColor);
        QCOMPARE(lamp->gamutLimits().red, (XYPoint{0.6915f, 0.3083f}));
        // It shows a colour ("mirek_valid" false), but a new lamp takes no mode from that alone.
        QCOMPARE(lamp->bridgeState().colorMode(), ColorModeNone);
        QVERIFY2(log.lines().size() < 3, log.lines().join('\n').constData());
        pollReply(CBridge::PollLights, byType[2]);
        QVERIFY2(log.lines().size() < 3, log.lines().join('\n').constData());

        // The unreachable lamp joins once its device is connected.
        pollReply(CBridge::PollConnectivity, byType[1].replace("connectivity_issue", "connected"));
        pollReply(CBridge::PollLights, byType[2]);
        QCOMPARE(added.size(), 2);
        CLight* gamutA = m_bridge->lightById("1a49f893-e2fc-908a-9046-fa7629f1e770");
        QVERIFY(gamutA);
        QCOMPARE(gamutA->gamutLimits().red, (XYPoint{0.704f, 0.296f}));
    }

    void lightReplies_data()
    {
        QTest::addColumn<QByteArray>("members");
        QTest::addColumn<bool>("created");
        QTest::addColumn<bool>("failure");
        QTest::addColumn<int>("number");
        QTest::addColumn<int>("miredMax");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("lastOn"); // the brightness kept for switching on
        QTest::addColumn<int>("mode");
        QTest::addRow("plain id_v1") << QByteArray(R"(,"id_v1":"12","dimming":{"brightness":50})") << true
                                     << false << 12 << 454 << 127 << 127 << 0;
        QTest::addRow("mirek schema")
            << QByteArray(R"(,"color_temperature":{"mirek_schema":{"mirek_minimum":100,)"
                          R"("mirek_maximum":400},"mirek":200,"mirek_valid":true},)"
                          R"("dimming":{"brightness":10})")
            << true << false << 7 << 400 << 25 << 25 << 1;
        // A new lamp without a valid mirek has no colour mode until the bridge names one.
        QTest::addRow("invalid mirek")
            << QByteArray(
                   R"(,"color":{"xy":{"x":0.3,"y":0.3}},"color_temperature":{"mirek":null,"mirek_valid":false},)"
                   R"("dimming":{"brightness":100})")
            << true << false << 7 << 454 << 254 << 254 << 0;
        QTest::addRow("off") << QByteArray(R"(,"on":{"on":false},"dimming":{"brightness":50})") << true
                             << false << 7 << 454 << 0 << 127 << 0;
        QTest::addRow("id_v1 not a number")
            << QByteArray(R"(,"id_v1":"/lights/x")") << false << true << 0 << 0 << 0 << 0 << 0;
        QTest::addRow("unknown device") << QByteArray(R"(,"owner":{"rid":"d9","rtype":"device"})") << false
                                        << false << 0 << 0 << 0 << 0 << 0;
    }

    void lightReplies()
    {
        QFETCH(QByteArray, members);
        QFETCH(bool, created);
        QFETCH(bool, failure);
        QFETCH(int, number);
        QFETCH(int, miredMax);
        QFETCH(int, brightness);
        QFETCH(int, lastOn);
        QFETCH(int, mode);
        pollReply(CBridge::PollDevices, device(7));
        pollReply(CBridge::PollConnectivity, connectivity(7, "connected"));
        LogCapture log;
        pollReply(CBridge::PollLights, light(7, members));
        CLight* lamp = m_bridge->lightById("l7");
        QCOMPARE(lamp != nullptr, created);
        QCOMPARE(log.contains("FAILED to update light state from all-lights response for 1 lights."),
                 failure);
        if (!lamp)
            return;
        QCOMPARE(int(lamp->lightNumber()), number);
        QCOMPARE(lamp->miredMax(), miredMax);
        QCOMPARE(lamp->isOn(), brightness > 0);
        QCOMPARE(int(lamp->bridgeState().brightness()), brightness);
        QCOMPARE(int(lamp->bridgeState().lastOnBrightness()), lastOn);
        QCOMPARE(int(lamp->bridgeState().colorMode()), mode);
        // An xy colour also gives the hue and saturation that the hub's HSV value is made of.
        if (members.contains("\"xy\""))
            QVERIFY(lamp->bridgeState().saturation() > 0);
    }

    // A light with metadata neither of its own nor from its device cannot be named: said once
    // while it stays so, and made once its device has a name, which it then follows.
    void lightWithoutAnyName()
    {
        QByteArray nameless = device(7);
        nameless.replace(R"("metadata":{"name":"Lamp 7"},)", "");
        pollReply(CBridge::PollDevices, nameless);
        pollReply(CBridge::PollConnectivity, connectivity(7, "connected"));
        QByteArray lamp = light(7, R"(,"dimming":{"brightness":50})");
        lamp.replace(R"("metadata":{"name":"Lamp 7"},)", "");
        LogCapture log;
        for (int i = 0; i < 3; ++i)
            pollReply(CBridge::PollLights, lamp);
        QCOMPARE(log.count("missing on or metadata keys:"), 1);
        QCOMPARE(log.count("FAILED to update light state from all-lights response for 1 lights."), 1);
        QVERIFY(!m_bridge->hasLight("l7"));

        pollReply(CBridge::PollDevices, device(7));
        pollReply(CBridge::PollLights, lamp);
        QVERIFY(m_bridge->hasLight("l7"));
        QCOMPARE(m_bridge->lightData("l7").name, QString("Lamp 7"));
        QSignalSpy changed(m_bridge.get(), &CBridge::lightChanged);
        m_api->parseDeviceUpdate(json(device(7).replace("Lamp 7", "Porch"))->Object(), "update");
        QCOMPARE(m_bridge->lightData("l7").name, QString("Porch"));
        QCOMPARE(changed.size(), 1);
        QCOMPARE(changed.at(0).at(1).value<ChangeFlags>(), ChangeFlags(ChangedName));
    }

    void lightRemovedFromDeviceServices()
    {
        pollReply(CBridge::PollDevices, device(1, R"(,{"rid":"l2","rtype":"light"})"));
        pollReply(CBridge::PollConnectivity, connectivity(1, "connected"));
        pollReply(CBridge::PollLights, light(1, {}) + "," + light(2, {}).replace("\"d2\"", "\"d1\""));
        QCOMPARE(m_bridge->lights().size(), 2);
        QSignalSpy removed(m_bridge.get(), &CBridge::lightRemoved);
        QSignalSpy deviceSignal(m_api->devices().value("d1").get(), &API2Device::lightRemoved);
        pollReply(CBridge::PollDevices, device(1));
        QCOMPARE(deviceSignal.size(), 1);
        QCOMPARE(deviceSignal.at(0).at(0).toByteArray(), QByteArray("l2"));
        QCOMPARE(removed.size(), 1);
        QVERIFY(!m_bridge->hasLight("l2"));
        QVERIFY(m_bridge->hasLight("l1"));
        QCOMPARE(m_api->devices().value("d1")->lights.keys(), QList<QByteArray>{"l1"});

        // A device update without its services cannot say which lights remain: refused.
        LogCapture log;
        m_api->parseDeviceUpdate(json(R"({"id":"d1","type":"device","metadata":{"name":"New"}})")->Object(),
                                 "update");
        QVERIFY(log.contains("failed to parse device data:"));
        QCOMPARE(m_api->devices().value("d1")->name, QByteArray("Lamp 1"));
    }

    void quickGroupPollAtMostOncePerSecond()
    {
        Clock::advance(1000);
        m_api->queueGroupPoll();
        QVERIFY(m_api->quickGroupPollTimer().isActive());
        m_api->quickGroupPollTimer().stop();
        m_api->queueGroupPoll();
        QVERIFY(!m_api->quickGroupPollTimer().isActive());
        Clock::advance(1000);
        m_api->queueGroupPoll();
        QVERIFY(m_api->quickGroupPollTimer().isActive());
    }

    void roomStatistics_data()
    {
        QTest::addColumn<QByteArray>("lamp1");
        QTest::addColumn<QByteArray>("lamp2");
        QTest::addColumn<bool>("on");
        QTest::addColumn<int>("brightness");
        QTest::addColumn<int>("mired");
        QTest::addColumn<float>("x");
        QTest::addColumn<int>("mode");
        const QByteArray off =
            R"("on":{"on":false},"dimming":{"brightness":50},"color_temperature":{"mirek_valid":false})";
        // Off members count with the brightness and mode they had when on (127, colour temperature),
        // but neither with colour temperature nor with colour.
        QTest::addRow("all off") << off << off << false << 127 << 369 << 0.3804f << 1;
        QTest::addRow("two warm whites")
            << QByteArray(
                   R"("on":{"on":true},"dimming":{"brightness":100},"color_temperature":{"mirek":200,"mirek_valid":true})")
            << QByteArray(
                   R"("on":{"on":true},"dimming":{"brightness":50},"color_temperature":{"mirek":300,"mirek_valid":true})")
            << true << 190 << 250 << 0.2f << 1;
        QTest::addRow("one colour, one off")
            << QByteArray(
                   R"("on":{"on":true},"dimming":{"brightness":100},"color":{"xy":{"x":0.5,"y":0.4}},"color_temperature":{"mirek_valid":false})")
            << off << true << 190 << 369 << 0.5f << 2;
    }

    void roomStatistics()
    {
        QFETCH(QByteArray, lamp1);
        QFETCH(QByteArray, lamp2);
        QFETCH(bool, on);
        QFETCH(int, brightness);
        QFETCH(int, mired);
        QFETCH(float, x);
        QFETCH(int, mode);
        pollReply(CBridge::PollDevices, device(1) + "," + device(2));
        pollReply(CBridge::PollConnectivity,
                  connectivity(1, "connected") + "," + connectivity(2, "connected"));
        // Extended colour lamps, so that every member counts for every statistic.
        const QByteArray kinds =
            R"(,"dimming":{"brightness":50},"color":{"xy":{"x":0.2,"y":0.2}},"color_temperature":{"mirek":250,"mirek_valid":true})";
        pollReply(CBridge::PollLights, light(1, kinds) + "," + light(2, kinds));
        pollReply(CBridge::PollLights, "{" + lamp1.prepend(R"("id":"l1","type":"light","metadata":{},)") +
                                           "},{" +
                                           lamp2.prepend(R"("id":"l2","type":"light","metadata":{},)") + "}");
        const QByteArray room = R"({"id":"r1","type":"room","id_v1":"/groups/3","metadata":{"name":"Hall"},)"
                                R"("services":[{"rid":"l1","rtype":"light"},{"rid":"l2","rtype":"light"}]})";
        pollReply(CBridge::PollGroupKindA, room);
        API2Group* group = m_api->groups().value("r1").get();
        QVERIFY(group);
        QCOMPARE(group->v1Number(), 3);
        QCOMPARE(group->memberIds().size(), 2);
        CLight groupLight(m_bridge.get(), "groups/3", "3", 0x8003, ItemGroup, GroupExtendedColor);
        group->setLight(&groupLight);
        QSignalSpy changed(m_bridge.get(), &CBridge::lightChanged);
        group->updateAllStats();
        QCOMPARE(groupLight.isOn(), on);
        QCOMPARE(int(groupLight.bridgeState().brightness()), brightness);
        QCOMPARE(int(groupLight.bridgeState().colorTemp()), mired);
        QCOMPARE(groupLight.bridgeState().x(), x);
        QCOMPARE(int(groupLight.bridgeState().colorMode()), mode);
        QCOMPARE(changed.size(), 1); // the group light reaches the controller side
    }
};

QTEST_GUILESS_MAIN(TestBridgeAPI2Resources)
#include "tst_bridgeapi2resources.moc"
