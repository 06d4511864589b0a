// The bridge's CLIP API version 2 over loopback: resources per light kind with the fields the
// service reads, the key check and error envelopes, changes through PUT seen by both APIs and
// the recorded dump of a real bridge. Devices, connectivity and
// geofence clients are read and written by the service's own version 2 tests; a bridge without
// version 2 by its datapoint tests and end to end.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QtTest>

#include <memory>

using namespace bridgeemu;

class TestBridgeEmulatorV2 : public QObject
{
    Q_OBJECT
    TestReply clip(BridgeEmulator& emulator, const QByteArray& method, const QString& path,
                   const QByteArray& body = {}, const QByteArray& key = "default")
    {
        if (key == "default" && m_key.isEmpty())
            m_key = QByteArray::fromStdString(emulator.addUser());
        HeaderPairs headers;
        if (!key.isEmpty())
            headers << qMakePair(QByteArray("hue-application-key"), key == "default" ? m_key : key);
        return m_client.send(method, httpUrl(emulator.httpPort(), path), body, 5000, headers);
    }
    QJsonObject first(const TestReply& reply) { return reply.json()["data"].toArray().first().toObject(); }
    EmulatorTestClient m_client;
    QByteArray m_key;

private slots:
    void resourcesPerLightKind_data()
    {
        QTest::addColumn<QString>("lights");
        QTest::addColumn<QStringList>("features");
        QTest::addColumn<QString>("gamut");
        QTest::addColumn<int>("mirekMax");
        QTest::addRow("on/off") << "onoff:1" << QStringList{} << "" << 0;
        QTest::addRow("white ambiance") << "ct:1" << QStringList{"dimming", "color_temperature"} << "" << 454;
        QTest::addRow("colour B") << "color-b:1" << QStringList{"dimming", "color"} << "B" << 0;
        QTest::addRow("extended C") << "extended:1" << QStringList{"dimming", "color_temperature", "color"}
                                    << "C" << 500;
    }

    void resourcesPerLightKind()
    {
        QFETCH(QString, lights);
        QFETCH(QStringList, features);
        QFETCH(QString, gamut);
        QFETCH(int, mirekMax);
        EmulatorConfig config;
        config.lights = *parseLightSet(lights.toStdString(), nullptr);
        m_key.clear();
        const auto emulator = startEmulator(config);

        const QJsonObject light = first(clip(*emulator, "GET", "/clip/v2/resource/light"));
        QCOMPARE(light["id"].toString().toStdString(), emulator->v2LightId("1"));
        QCOMPARE(light["id_v1"].toString(), "/lights/1");
        QCOMPARE(light["owner"]["rid"].toString().toStdString(), emulator->v2DeviceId("1"));
        QCOMPARE(light["owner"]["rtype"].toString(), "device");
        for (const char* feature : {"dimming", "color_temperature", "color"})
            QCOMPARE(light.contains(feature), features.contains(feature));
        if (mirekMax) {
            QCOMPARE(light["color_temperature"]["mirek_schema"]["mirek_minimum"].toInt(), 153);
            QCOMPARE(light["color_temperature"]["mirek_schema"]["mirek_maximum"].toInt(), mirekMax);
        }
        if (!gamut.isEmpty()) {
            QCOMPARE(light["color"]["gamut_type"].toString(), gamut);
            for (const char* corner : {"red", "green", "blue"})
                QVERIFY(light["color"]["gamut"][corner]["x"].toDouble() > 0);
        }

        // Ids follow from the bridge id and the light number.
        EmulatorConfig other = config;
        other.identity.bridgeId = "001788fffe654321";
        QCOMPARE(BridgeEmulator(config).v2LightId("1"), emulator->v2LightId("1"));
        QVERIFY(BridgeEmulator(other).v2LightId("1") != emulator->v2LightId("1"));
    }

    void keysAndUnknownResources_data()
    {
        QTest::addColumn<QByteArray>("key");
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("error");
        QTest::addRow("no key") << QByteArray() << "/clip/v2/resource" << 403 << "unauthorized user";
        QTest::addRow("unknown key") << QByteArray("nobody") << "/clip/v2/resource/light" << 403
                                     << "unauthorized user";
        QTest::addRow("key withdrawn over the control API")
            << QByteArray("withdrawn") << "/clip/v2/resource/light" << 403 << "unauthorized user";
        QTest::addRow("unknown type")
            << QByteArray("default") << "/clip/v2/resource/lamp" << 404 << "Not Found";
        QTest::addRow("type without resources")
            << QByteArray("default") << "/clip/v2/resource/scene" << 200 << "";
    }

    void keysAndUnknownResources()
    {
        QFETCH(QByteArray, key);
        QFETCH(QString, path);
        QFETCH(int, status);
        QFETCH(QString, error);
        m_key.clear();
        const auto emulator = startEmulator();
        if (key == "withdrawn") {
            key = QByteArray::fromStdString(emulator->addUser());
            QCOMPARE(clip(*emulator, "GET", path, {}, key).status, 200);
            QCOMPARE(m_client.send("DELETE", httpUrl(emulator->httpPort(), "/emulator/users/" + key)).status,
                     200);
        }
        const TestReply reply = clip(*emulator, "GET", path, {}, key);
        QCOMPARE(reply.status, status);
        const QJsonArray errors = reply.json()["errors"].toArray();
        QCOMPARE(errors.isEmpty(), error.isEmpty());
        if (!error.isEmpty()) {
            QCOMPARE(errors.first()["description"].toString(), error);
            QVERIFY(reply.json()["data"].toArray().isEmpty());
        }
    }

    void firmwareQuirksOfTheLight_data()
    {
        QTest::addColumn<QByteArray>("quirks");   // PUT /emulator/v2
        QTest::addColumn<bool>("xyMode");         // the light shows an xy colour, else a ct
        QTest::addColumn<QByteArray>("expected"); // members of the light; "metadata":null: none
        QTest::addRow("defaults, xy")
            << QByteArray("{}") << true
            << QByteArray(R"({"color_temperature":{"mirek":null,"mirek_valid":false},)"
                          R"("metadata":{"name":"Lamp","archetype":"sultan_bulb"}})");
        QTest::addRow("mirek null but valid, xy")
            << QByteArray(R"({"mirek_null_in_xy":true})") << true
            << QByteArray(R"({"color_temperature":{"mirek":null,"mirek_valid":true}})");
        QTest::addRow("mirek null but valid, ct")
            << QByteArray(R"({"mirek_null_in_xy":true})") << false
            << QByteArray(R"({"color_temperature":{"mirek":300,"mirek_valid":true}})");
        QTest::addRow("no light metadata")
            << QByteArray(R"({"light_metadata":false})") << false << QByteArray(R"({"metadata":null})");
    }

    void firmwareQuirksOfTheLight()
    {
        QFETCH(QByteArray, quirks);
        QFETCH(bool, xyMode);
        QFETCH(QByteArray, expected);
        EmulatorConfig config;
        config.lights = *parseLightSet("extended:1", nullptr);
        config.lights[0].name = "Lamp";
        config.lights[0].modelId = "LCT015";
        m_key.clear();
        const auto emulator = startEmulator(config);
        LightChange change;
        if (xyMode)
            change.xy = XY{0.3, 0.3};
        else
            change.ct = 300;
        QVERIFY(emulator->setLightState("1", change));
        const TestReply set = m_client.send("PUT", httpUrl(emulator->httpPort(), "/emulator/v2"), quirks);
        QVERIFY2(set.status == 200, set.body);

        const QJsonObject light = first(clip(*emulator, "GET", "/clip/v2/resource/light"));
        const QJsonObject wanted = QJsonDocument::fromJson(expected).object();
        for (auto it = wanted.begin(); it != wanted.end(); ++it) {
            if (it.value().isNull()) {
                QVERIFY2(!light.contains(it.key()), qPrintable(it.key()));
                continue;
            }
            const QJsonObject got = light[it.key()].toObject();
            for (const QString& member : it.value().toObject().keys())
                QCOMPARE(got[member], it.value()[member]);
        }
        // The device keeps its metadata whatever the light shows.
        const QJsonObject device =
            first(clip(*emulator, "GET",
                       "/clip/v2/resource/device/" + QString::fromStdString(emulator->v2DeviceId("1"))));
        QCOMPARE(device["metadata"]["name"].toString(), "Lamp");
        QCOMPARE(device["metadata"]["archetype"].toString(), "sultan_bulb");
    }

    void changesThroughPut_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("v1Field"); // what GET /api/<key>/lights/1 then shows
        QTest::addColumn<QVariant>("v1Value");
        QTest::addRow("brightness") << "light" << QByteArray(R"({"dimming":{"brightness":50}})") << 200
                                    << "state/bri" << QVariant(127);
        QTest::addRow("device name") << "device" << QByteArray(R"({"metadata":{"name":"Hall"}})") << 200
                                     << "name" << QVariant("Hall");
        QTest::addRow("brightness over 100") << "light" << QByteArray(R"({"dimming":{"brightness":101}})")
                                             << 400 << "state/bri" << QVariant(254);
        QTest::addRow("unknown member")
            << "light" << QByteArray(R"({"bogus":1})") << 400 << "state/on" << QVariant(true);
        // Group 1, the room of light 1.
        QTest::addRow("room dimmed") << "grouped_light" << QByteArray(R"({"dimming":{"brightness":50}})")
                                     << 200 << "state/bri" << QVariant(127);
        QTest::addRow("room renamed") << "grouped_light" << QByteArray(R"({"metadata":{"name":"Hall"}})")
                                      << 400 << "state/bri" << QVariant(254);
    }

    void changesThroughPut()
    {
        QFETCH(QString, type);
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        QFETCH(QString, v1Field);
        QFETCH(QVariant, v1Value);
        EmulatorConfig config;
        config.lights = *parseLightSet("extended:1", nullptr);
        m_key.clear();
        const auto emulator = startEmulator(config);
        std::string id = type == "light" ? emulator->v2LightId("1") : emulator->v2DeviceId("1");
        const TestReply groups = clip(*emulator, "GET", "/clip/v2/resource/grouped_light");
        for (const QJsonValue group : groups.json()["data"].toArray()) {
            if (type == "grouped_light" && group["id_v1"] == "/groups/1")
                id = group["id"].toString().toStdString();
        }
        const TestReply reply =
            clip(*emulator, "PUT", "/clip/v2/resource/" + type + "/" + QString::fromStdString(id), body);
        QCOMPARE(reply.status, status);
        if (status == 200) {
            QCOMPARE(reply.json()["errors"].toArray().size(), 0);
            QCOMPARE(first(reply)["rid"].toString().toStdString(), id);
            QCOMPARE(first(reply)["rtype"].toString(), type);
        } else {
            QVERIFY(!reply.json()["errors"].toArray().isEmpty());
        }
        const QJsonObject v1 =
            m_client.get(httpUrl(emulator->httpPort(), "/api/" + m_key + "/lights/1")).json().object();
        const QStringList path = v1Field.split('/');
        const QJsonValue value = path.size() == 2 ? v1[path[0]][path[1]] : v1[path[0]];
        QCOMPARE(value.toVariant(), v1Value);

        // And the other way: a version 1 change shows in version 2.
        m_client.send("PUT", httpUrl(emulator->httpPort(), "/api/" + m_key + "/lights/1/state"),
                      R"({"on":true,"bri":1})");
        const QJsonObject light = first(clip(
            *emulator, "GET", "/clip/v2/resource/light/" + QString::fromStdString(emulator->v2LightId("1"))));
        QCOMPARE(light["dimming"]["brightness"].toDouble(), 0.39);
    }

    void servesRecordedDump()
    {
        const QString path = QStringLiteral(HUE_CLIP_DUMP);
        if (!QFile::exists(path))
            QSKIP("the recorded resource dump is not there");
        EmulatorConfig config;
        config.clipDumpPath = path.toStdString();
        m_key.clear();
        const auto emulator = startEmulator(config);
        QVERIFY(emulator->isRunning());
        QCOMPARE(clip(*emulator, "GET", "/clip/v2/resource").json()["data"].toArray().size(), 166);
        const QJsonArray lights = clip(*emulator, "GET", "/clip/v2/resource/light").json()["data"].toArray();
        QCOMPARE(lights.size(), 8);

        const QString lightPath = "/clip/v2/resource/light/" + lights.first()["id"].toString();
        QCOMPARE(clip(*emulator, "PUT", lightPath, R"({"on":{"on":true},"color_temperature":{"mirek":2000}})")
                     .status,
                 400);
        QCOMPARE(clip(*emulator, "PUT", lightPath, R"({"on":{"on":true},"color_temperature":{"mirek":300}})")
                     .status,
                 200);
        const QJsonObject light = first(clip(*emulator, "GET", lightPath));
        QVERIFY(light["on"]["on"].toBool());
        QCOMPARE(light["color_temperature"]["mirek"].toInt(), 300);
        QVERIFY(light["color_temperature"]["mirek_valid"].toBool());

        EmulatorConfig missing;
        missing.clipDumpPath = "/nonexistent/dump.json";
        std::string error;
        QVERIFY(!BridgeEmulator(missing).start(&error));
        QVERIFY(!error.empty());
    }
};

QTEST_MAIN(TestBridgeEmulatorV2)
#include "tst_bridgeemulator_v2.moc"
