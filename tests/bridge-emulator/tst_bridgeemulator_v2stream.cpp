// The CLIP v2 event stream over loopback, read chunk by chunk as the service reads it: framing,
// events for changes made through either API and the control API, grouping within the window,
// resumption with Last-Event-ID, and the stream faults the control API plays.
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
    StreamReader(EmulatorTestClient& client, const BridgeEmulator& emulator, const QByteArray& key,
                 const QByteArray& lastEventId = {})
    {
        HeaderPairs headers{{"Accept", "text/event-stream"}};
        if (!key.isEmpty())
            headers << qMakePair(QByteArray("hue-application-key"), key);
        if (!lastEventId.isEmpty())
            headers << qMakePair(QByteArray("Last-Event-ID"), lastEventId);
        reply = client.start("GET", httpUrl(emulator.httpPort(), "/eventstream/clip/v2"), {}, headers);
        QObject::connect(reply, &QNetworkReply::readyRead, reply, [this] { text += reply->readAll(); });
    }
    ~StreamReader()
    {
        reply->abort();
        reply->deleteLater();
    }
    QList<QByteArray> messages() const
    {
        QStringList parts = QString::fromUtf8(text).split("\n\n");
        parts.removeLast(); // not terminated yet
        QList<QByteArray> result;
        for (const QString& part : parts)
            result << part.toUtf8();
        return result;
    }
    QList<QByteArray> dataMessages() const
    {
        QList<QByteArray> result;
        for (const QByteArray& message : messages()) {
            if (message.startsWith("id: "))
                result << message;
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

private slots:
    void framingAndChangedMembersOnly();
    void eventsForEveryKindOfChange_data();
    void eventsForEveryKindOfChange();
    void changesWithinTheWindowShareOneMessage();
    void networkFaults();
    void streamNeedsAKey();

private:
    EmulatorTestClient m_client;
};

void TestBridgeEmulatorV2Stream::framingAndChangedMembersOnly()
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
    QVERIFY2(QRegularExpression(R"(^id: \d+:\d+\ndata: \[.*\]$)").match(message).hasMatch(), message);
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

void TestBridgeEmulatorV2Stream::eventsForEveryKindOfChange_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path"); // %1: the key, %2: light 1's v2 id
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("eventType");
    QTest::addColumn<QStringList>("resourceTypes");
    QTest::addColumn<QString>("member"); // "on/on" = value of the first such resource
    QTest::addColumn<QVariant>("value");
    QTest::addRow("v1 state") << QByteArray("PUT") << "/api/%1/lights/1/state"
                              << QByteArray(R"({"on":false})") << "update" << QStringList{"light"} << "on/on"
                              << QVariant(false);
    QTest::addRow("v2 light") << QByteArray("PUT") << "/clip/v2/resource/light/%2"
                              << QByteArray(R"({"dimming":{"brightness":20}})") << "update"
                              << QStringList{"light"} << "dimming/brightness" << QVariant(20.08);
    QTest::addRow("v1 rename") << QByteArray("PUT") << "/api/%1/lights/1" << QByteArray(R"({"name":"Desk"})")
                               << "update" << QStringList{"light", "device"} << "metadata/name"
                               << QVariant("Desk");
    QTest::addRow("wall switch") << QByteArray("PUT") << "/emulator/lights/1" << QByteArray(R"({"on":false})")
                                 << "update" << QStringList{"light"} << "on/on" << QVariant(false);
    QTest::addRow("unreachable") << QByteArray("PUT") << "/emulator/lights/1"
                                 << QByteArray(R"({"reachable":false})") << "update"
                                 << QStringList{"zigbee_connectivity"} << "status"
                                 << QVariant("connectivity_issue");
    QTest::addRow("light added") << QByteArray("POST") << "/emulator/lights" << QByteArray(R"({"type":"ct"})")
                                 << "add" << QStringList{"device", "light", "zigbee_connectivity"} << "id_v1"
                                 << QVariant("/lights/3");
    QTest::addRow("light removed") << QByteArray("DELETE") << "/emulator/lights/1" << QByteArray() << "delete"
                                   << QStringList{"device", "light", "zigbee_connectivity"} << "id_v1"
                                   << QVariant("/lights/1");
}

void TestBridgeEmulatorV2Stream::eventsForEveryKindOfChange()
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

void TestBridgeEmulatorV2Stream::changesWithinTheWindowShareOneMessage()
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

void TestBridgeEmulatorV2Stream::networkFaults()
{
    const auto emulator = startStreamingEmulator(std::chrono::minutes(1));
    const QByteArray key = QByteArray::fromStdString(emulator->addUser());
    const QString control = httpUrl(emulator->httpPort(), "/emulator/eventstream/");
    StreamReader stream(m_client, *emulator, key);
    QTRY_COMPARE(emulator->eventStreamCount(), 1);

    QCOMPARE(m_client.send("POST", control + "retry", R"({"ms":5000})").status, 200);
    QTRY_VERIFY(stream.text.endsWith("retry: 5000\n\n"));
    QCOMPARE(m_client.send("POST", control + "inject", R"({"text":"data: [{broken\n\n"})").status, 200);
    QTRY_VERIFY(stream.text.endsWith("data: [{broken\n\n"));

    // Stalled: the connection stays open and nothing arrives until the stall ends.
    QCOMPARE(m_client.send("POST", control + "stall").status, 200);
    emulator->setLightState("1", LightChange{std::optional<bool>(false)});
    emulator->flushEvents();
    QTest::qWait(150);
    QVERIFY(stream.dataMessages().isEmpty());
    QVERIFY(!stream.reply->isFinished());
    QCOMPARE(m_client.send("DELETE", control + "stall").status, 200);
    QTRY_COMPARE(stream.dataMessages().size(), 1);

    QCOMPARE(m_client.send("POST", control + "drop").status, 200);
    QTRY_VERIFY(stream.reply->isFinished());
    QTRY_COMPARE(emulator->eventStreamCount(), 0);
}

void TestBridgeEmulatorV2Stream::streamNeedsAKey()
{
    const auto emulator = startStreamingEmulator();
    StreamReader stream(m_client, *emulator, "not-a-key");
    QTRY_VERIFY(stream.reply->isFinished());
    QCOMPARE(stream.reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 403);
    QCOMPARE(emulator->eventStreamCount(), 0);
}

QTEST_MAIN(TestBridgeEmulatorV2Stream)
#include "tst_bridgeemulator_v2stream.moc"
