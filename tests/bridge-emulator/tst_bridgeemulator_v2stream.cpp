// The CLIP v2 event stream over loopback, read chunk by chunk as the service reads it: framing,
// events for changes made through either API and the control API, grouping within the window,
// the exact bytes of the stream faults the control API plays, colour temperature as firmware
// versions write it, and events of resources without lights. Stalls and reachability are played
// against the service by its own stream tests and end to end.
#include "emulatortestclient.h"

#include <bridgeemulator.h>
#include <lightset.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QtTest>

#include <memory>

using namespace bridgeemu;

namespace {

// Two extended-colour lights, events grouped over the given window.
std::unique_ptr<BridgeEmulator>
startStreamingEmulator(std::chrono::milliseconds window = std::chrono::milliseconds(100))
{
    EmulatorConfig config;
    config.lights = *parseLightSet("extended:2", nullptr);
    config.eventWindow = window;
    return startEmulator(std::move(config));
}

// One open stream; what arrived so far, split into complete messages.
struct StreamReader
{
    StreamReader(EmulatorTestClient& client, const BridgeEmulator& emulator, const QByteArray& key)
    {
        const HeaderPairs headers{{"Accept", "text/event-stream"}, {"hue-application-key", key}};
        reply = client.start("GET", httpUrl(emulator.httpPort(), "/eventstream/clip/v2"), {}, headers);
        QObject::connect(reply, &QNetworkReply::readyRead, reply, [this] { text += reply->readAll(); });
    }
    ~StreamReader()
    {
        reply->abort();
        reply->deleteLater();
    }
    // The complete messages that carry events, without comments and retry lines.
    QList<QByteArray> dataMessages() const
    {
        QStringList parts = QString::fromUtf8(text).split("\n\n");
        parts.removeLast(); // not terminated yet
        QList<QByteArray> result;
        for (const QString& part : parts) {
            if (part.startsWith("id: "))
                result << part.toUtf8();
        }
        return result;
    }
    static QJsonArray events(const QByteArray& message)
    {
        return QJsonDocument::fromJson(message.mid(message.indexOf("data: ") + 6)).array();
    }
    // The resources of that type in events of that kind in every message so far.
    QList<QJsonObject> resources(const QString& eventType, const QString& resourceType) const
    {
        QList<QJsonObject> found;
        for (const QByteArray& message : dataMessages()) {
            for (const QJsonValue& event : events(message)) {
                for (const QJsonValue& resource : event["data"].toArray()) {
                    if (event["type"] == eventType && resource["type"] == resourceType)
                        found << resource.toObject();
                }
            }
        }
        return found;
    }

    QNetworkReply* reply = nullptr;
    QByteArray text;
};

} // namespace

class TestBridgeEmulatorV2Stream : public QObject
{
    Q_OBJECT
    EmulatorTestClient m_client;

private slots:
    void framingAndChangedMembersOnly()
    {
        const auto emulator = startStreamingEmulator();
        const QByteArray key = QByteArray::fromStdString(emulator->addUser());
        StreamReader stream(m_client, *emulator, key);
        QTRY_COMPARE(stream.text, QByteArray(": hi\n\n"));
        QCOMPARE(stream.reply->header(QNetworkRequest::ContentTypeHeader).toString(), "text/event-stream");

        LightChange off;
        off.on = false;
        emulator->setLightState("1", off);
        QTRY_COMPARE(stream.dataMessages().size(), 1);
        const QByteArray message = stream.dataMessages().first();
        QVERIFY2(QRegularExpression("^id: \\d+:\\d+\\ndata: \\[.*\\]$").match(message).hasMatch(), message);
        QCOMPARE(message.mid(4, message.indexOf('\n') - 4).toStdString(), emulator->lastEventId());
        const QJsonObject event = StreamReader::events(message).first().toObject();
        QCOMPARE(event["type"].toString(), "update");
        QVERIFY(!event["id"].toString().isEmpty() && !event["creationtime"].toString().isEmpty());
        const QList<QJsonObject> lights = stream.resources("update", "light");
        QCOMPARE(lights.size(), 1);
        QStringList keys = lights.first().keys();
        keys.sort();
        QCOMPARE(keys, (QStringList{"id", "id_v1", "on", "owner", "type"}));
        QCOMPARE(lights.first()["id"].toString().toStdString(), emulator->v2LightId("1"));
        QCOMPARE(lights.first()["on"]["on"].toBool(), false);
    }

    void eventsForEveryKindOfChange_data()
    {
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("path"); // %1: the key, %2: light 1's v2 id
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("eventType");
        QTest::addColumn<QStringList>("resourceTypes");
        QTest::addColumn<QString>("member"); // "on/on" = value of the first such resource
        QTest::addColumn<QVariant>("value");
        QTest::addRow("v1 state") << QByteArray("PUT") << "/api/%1/lights/1/state"
                                  << QByteArray(R"({"on":false})") << "update" << QStringList{"light"}
                                  << "on/on" << QVariant(false);
        QTest::addRow("v2 light") << QByteArray("PUT") << "/clip/v2/resource/light/%2"
                                  << QByteArray(R"({"dimming":{"brightness":20}})") << "update"
                                  << QStringList{"light"} << "dimming/brightness" << QVariant(20.08);
        QTest::addRow("v1 rename") << QByteArray("PUT") << "/api/%1/lights/1"
                                   << QByteArray(R"({"name":"Desk"})") << "update"
                                   << QStringList{"light", "device"} << "metadata/name" << QVariant("Desk");
        QTest::addRow("light added") << QByteArray("POST") << "/emulator/lights"
                                     << QByteArray(R"({"type":"ct"})") << "add"
                                     << QStringList{"device", "light", "zigbee_connectivity"} << "id_v1"
                                     << QVariant("/lights/3");
        QTest::addRow("light removed")
            << QByteArray("DELETE") << "/emulator/lights/1" << QByteArray() << "delete"
            << QStringList{"device", "light", "zigbee_connectivity"} << "id_v1" << QVariant("/lights/1");
    }

    void eventsForEveryKindOfChange()
    {
        QFETCH(QByteArray, method);
        QFETCH(QString, path);
        QFETCH(QByteArray, body);
        QFETCH(QString, eventType);
        QFETCH(QStringList, resourceTypes);
        QFETCH(QString, member);
        QFETCH(QVariant, value);
        const auto emulator = startStreamingEmulator();
        const QByteArray key = QByteArray::fromStdString(emulator->addUser());
        StreamReader stream(m_client, *emulator, key);
        QTRY_VERIFY(stream.text.startsWith(": hi"));

        const QString url = httpUrl(
            emulator->httpPort(),
            QString(path).replace("%1", key).replace("%2", QString::fromStdString(emulator->v2LightId("1"))));
        const TestReply reply = m_client.send(method, url, body, 5000, {{"hue-application-key", key}});
        QVERIFY2(reply.status == 200, reply.body);
        QTRY_VERIFY(!stream.dataMessages().isEmpty());
        for (const QString& type : resourceTypes) {
            const QList<QJsonObject> found = stream.resources(eventType, type);
            QVERIFY2(found.size() == 1, qPrintable(type));
            QJsonValue field = found.first();
            for (const QString& step : member.split('/'))
                field = field[step];
            QCOMPARE(field.toVariant(), value);
        }
    }

    void colorTemperatureEventsPerFirmware_data()
    {
        QTest::addColumn<QByteArray>("quirks");    // PUT /emulator/v2
        QTest::addColumn<bool>("toXy");            // from ct 300 to an xy colour, else back
        QTest::addColumn<QJsonObject>("expected"); // "color_temperature" of the update event
        QTest::addRow("to ct") << QByteArray("{}") << false
                               << QJsonObject{{"mirek", 250}, {"mirek_valid", true}};
        QTest::addRow("to ct, events without mirek_valid")
            << QByteArray(R"({"events_without_mirek_valid":true})") << false << QJsonObject{{"mirek", 250}};
        QTest::addRow("to xy") << QByteArray("{}") << true
                               << QJsonObject{{"mirek", QJsonValue::Null}, {"mirek_valid", false}};
        QTest::addRow("to xy, mirek null but valid")
            << QByteArray(R"({"mirek_null_in_xy":true})") << true << QJsonObject{{"mirek", QJsonValue::Null}};
    }

    void colorTemperatureEventsPerFirmware()
    {
        QFETCH(QByteArray, quirks);
        QFETCH(bool, toXy);
        QFETCH(QJsonObject, expected);
        const auto emulator = startStreamingEmulator(std::chrono::minutes(1));
        LightChange before;
        if (toXy)
            before.ct = 300;
        else
            before.xy = XY{0.3, 0.3};
        emulator->setLightState("1", before);
        emulator->flushEvents();
        StreamReader stream(m_client, *emulator, QByteArray::fromStdString(emulator->addUser()));
        QTRY_VERIFY(stream.text.startsWith(": hi"));
        QCOMPARE(m_client.send("PUT", httpUrl(emulator->httpPort(), "/emulator/v2"), quirks).status, 200);

        LightChange change;
        if (toXy)
            change.xy = XY{0.2, 0.4};
        else
            change.ct = 250;
        emulator->setLightState("1", change);
        emulator->flushEvents();
        QTRY_COMPARE(stream.dataMessages().size(), 1); // switching the firmware's ways made none
        const QList<QJsonObject> lights = stream.resources("update", "light");
        QCOMPARE(lights.size(), 1);
        QCOMPARE(lights.first()["color_temperature"].toObject(), expected);
    }

    void eventsOfResourcesWithoutLights_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("member"); // "status/active" = value in the first event
        QTest::addColumn<QVariant>("value");
        QTest::addRow("scene") << "scene"
                               << "status/active" << QVariant("static");
        QTest::addRow("button") << "button"
                                << "button/button_report/event" << QVariant("short_release");
        QTest::addRow("motion") << "motion"
                                << "motion/motion_valid" << QVariant(true);
        QTest::addRow("grouped light of the home") << "grouped_light"
                                                   << "owner/rtype" << QVariant("bridge_home");
        QTest::addRow("a type nobody knows") << "fridge"
                                             << "type" << QVariant("fridge");
    }

    void eventsOfResourcesWithoutLights()
    {
        QFETCH(QString, type);
        QFETCH(QString, member);
        QFETCH(QVariant, value);
        const auto emulator = startStreamingEmulator();
        const QByteArray key = QByteArray::fromStdString(emulator->addUser());
        StreamReader stream(m_client, *emulator, key);
        QTRY_VERIFY(stream.text.startsWith(": hi"));
        const QString control = httpUrl(emulator->httpPort(), "/emulator/eventstream/events");
        QCOMPARE(m_client.send("POST", control, R"({"type":")" + type.toUtf8() + R"(","count":5})").status,
                 200);
        QCOMPARE(m_client.send("POST", control, R"({"count":5})").status, 400);

        QTRY_COMPARE(stream.dataMessages().size(), 5);
        for (const QByteArray& message : stream.dataMessages()) {
            const QJsonArray events = StreamReader::events(message);
            QCOMPARE(events.size(), 1);
            QCOMPARE(events[0]["type"].toString(), "update");
        }
        const QList<QJsonObject> updates = stream.resources("update", type);
        QCOMPARE(updates.size(), 5);
        QJsonValue field = updates.first();
        for (const QString& step : member.split('/'))
            field = field[step];
        QCOMPARE(field.toVariant(), value);
        // A few resources of their own, none of them one the bridge lists for its lights.
        QSet<QString> ids;
        for (const QJsonObject& update : updates)
            ids << update["id"].toString();
        QCOMPARE(ids.size(), 4);
        const QByteArray all = m_client
                                   .send("GET", httpUrl(emulator->httpPort(), "/clip/v2/resource"), {}, 5000,
                                         {{"hue-application-key", key}})
                                   .body;
        for (const QString& id : ids)
            QVERIFY(!all.contains(id.toUtf8()));
    }

    void changesWithinTheWindowShareOneMessage()
    {
        const auto emulator = startStreamingEmulator(std::chrono::milliseconds(150));
        StreamReader stream(m_client, *emulator, QByteArray::fromStdString(emulator->addUser()));
        QTRY_VERIFY(stream.text.startsWith(": hi"));
        LightChange change;
        change.on = false;
        emulator->setLightState("1", change);
        change.on = true;
        emulator->setLightState("2", change);
        QTRY_COMPARE(stream.dataMessages().size(), 1);
        QCOMPARE(StreamReader::events(stream.dataMessages().first()).size(), 1);
        QCOMPARE(stream.resources("update", "light").size(), 2);
    }

    void retryRawTextAndDropOverTheControlApi()
    {
        const auto emulator = startStreamingEmulator(std::chrono::minutes(1));
        const QByteArray key = QByteArray::fromStdString(emulator->addUser());
        const QString control = httpUrl(emulator->httpPort(), "/emulator/eventstream/");
        StreamReader stream(m_client, *emulator, key);
        QTRY_COMPARE(emulator->eventStreamCount(), 1);

        QCOMPARE(m_client.send("POST", control + "retry", R"({"ms":5000})").status, 200);
        QTRY_VERIFY(stream.text.endsWith("retry: 5000\n\n"));
        QCOMPARE(m_client.send("POST", control + "inject", "{\"text\":\"data: [{broken\\n\\n\"}").status,
                 200);
        QTRY_VERIFY(stream.text.endsWith("data: [{broken\n\n"));

        QCOMPARE(m_client.send("POST", control + "drop").status, 200);
        QTRY_VERIFY(stream.reply->isFinished());
        QTRY_COMPARE(emulator->eventStreamCount(), 0);
    }

    void floodSendsExactlyTheMessagesAskedFor_data()
    {
        QTest::addColumn<int>("messages");
        QTest::addColumn<int>("perMessage");
        QTest::addColumn<int>("intervalMs");
        QTest::addRow("as fast as read") << 600 << 3 << 0; // more than the flood lets wait
        QTest::addRow("paced") << 4 << 1 << 20;
    }

    void floodSendsExactlyTheMessagesAskedFor()
    {
        QFETCH(int, messages);
        QFETCH(int, perMessage);
        QFETCH(int, intervalMs);
        const auto emulator = startStreamingEmulator(std::chrono::minutes(1));
        StreamReader stream(m_client, *emulator, QByteArray::fromStdString(emulator->addUser()));
        QTRY_COMPARE(emulator->eventStreamCount(), 1);
        LightChange dim;
        dim.bri = 127;
        emulator->setLightState("2", dim); // sent only at the end of the minute's window
        const QByteArray body = QString(R"({"messages":%1,"events_per_message":%2,"interval_ms":%3})")
                                    .arg(messages)
                                    .arg(perMessage)
                                    .arg(intervalMs)
                                    .toUtf8();
        QCOMPARE(
            m_client.send("POST", httpUrl(emulator->httpPort(), "/emulator/eventstream/flood"), body).status,
            200);
        QTRY_VERIFY(!emulator->eventFloodRunning());
        QTRY_COMPARE(stream.dataMessages().size(), messages);
        for (const QByteArray& message : stream.dataMessages())
            QCOMPARE(StreamReader::events(message).size(), perMessage);
        const QList<QJsonObject> updates = stream.resources("update", "light");
        QCOMPARE(updates.size(), messages * perMessage);
        const QString light1 = QString::fromStdString(emulator->v2LightId("1"));
        const QString light2 = QString::fromStdString(emulator->v2LightId("2"));
        QCOMPARE(updates[0]["id"].toString(), light1);
        QCOMPARE(updates[1 % updates.size()]["id"].toString(), updates.size() > 1 ? light2 : light1);
        // The last round leaves every light at its real brightness.
        QCOMPARE(updates.last()["id"].toString(), messages * perMessage % 2 ? light1 : light2);
        const double last = updates.last()["dimming"]["brightness"].toDouble();
        QCOMPARE(last,
                 emulator->light(messages * perMessage % 2 ? "1" : "2")->state.bri == 127 ? 50.0 : 100.0);
    }

    void endlessLine_data()
    {
        QTest::addColumn<int>("bytes");
        QTest::addColumn<bool>("thenNewline");
        QTest::addRow("stalled") << 300000 << false;
        QTest::addRow("then ended") << 1000 << true;
    }

    void endlessLine()
    {
        QFETCH(int, bytes);
        QFETCH(bool, thenNewline);
        const auto emulator = startStreamingEmulator(std::chrono::minutes(1));
        StreamReader stream(m_client, *emulator, QByteArray::fromStdString(emulator->addUser()));
        QTRY_COMPARE(emulator->eventStreamCount(), 1);
        const QByteArray body = QString(R"({"bytes":%1,"then_newline":%2})")
                                    .arg(bytes)
                                    .arg(thenNewline ? "true" : "false")
                                    .toUtf8();
        QCOMPARE(m_client.send("POST", httpUrl(emulator->httpPort(), "/emulator/eventstream/endless"), body)
                     .status,
                 200);
        const QByteArray line = ": hi\n\ndata: " + QByteArray(bytes, 'x');
        QTRY_COMPARE(stream.text.size(), line.size() + (thenNewline ? 2 : 0));
        QVERIFY(stream.text.startsWith(line));
        // A change after the line: sent after its end, or never on a stalled line.
        LightChange off;
        off.on = false;
        emulator->setLightState("1", off);
        emulator->flushEvents();
        if (thenNewline) {
            QTRY_COMPARE(stream.dataMessages().size(), 1);
            QVERIFY(stream.text.mid(line.size(), 6) == "\n\nid: ");
        } else {
            QTest::qWait(150); // three of the writer's wake-ups
            QCOMPARE(stream.text, line);
            QCOMPARE(emulator->eventStreamCount(), 1);
            QVERIFY(!stream.reply->isFinished());
        }
    }
};

QTEST_MAIN(TestBridgeEmulatorV2Stream)
#include "tst_bridgeemulator_v2stream.moc"
