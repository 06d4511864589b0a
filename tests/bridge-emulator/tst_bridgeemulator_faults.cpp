// The faults the emulator plays for the service's tests, where those tests do not show them
// exactly: the throttled answer, the rate limit of light and group changes, a stalled request
// abandoned at stop, refused connections, oversized and broken requests, and stopping with
// connections still open.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonObject>
#include <QTcpSocket>
#include <QXmlStreamReader>
#include <QtTest>

#include <atomic>
#include <memory>

using namespace bridgeemu;

namespace {

// Sends raw bytes and returns what comes back until the server closes or `waitMs` passes.
QByteArray exchangeRaw(int port, const QByteArray& bytes, int waitMs = 2000)
{
    QTcpSocket socket;
    socket.connectToHost(QStringLiteral("127.0.0.1"), quint16(port));
    if (!socket.waitForConnected(waitMs))
        return "<no connection>";
    socket.write(bytes);
    QByteArray answer;
    QElapsedTimer timer;
    timer.start();
    while (socket.state() == QAbstractSocket::ConnectedState && timer.elapsed() < waitMs) {
        if (socket.waitForReadyRead(50))
            answer += socket.readAll();
        else if (answer.contains("\r\n\r\n"))
            break;
    }
    return answer + socket.readAll();
}

// A steady clock that moves only when the test moves it.
struct ManualClock
{
    std::shared_ptr<std::atomic<long long>> ms = std::make_shared<std::atomic<long long>>(0);

    Clock clock() const
    {
        return [ms = ms] { return SteadyTime(std::chrono::milliseconds(ms->load())); };
    }
    void advance(long long by) { *ms += by; }
};

} // namespace

class TestBridgeEmulatorFaults : public QObject
{
    Q_OBJECT
    EmulatorTestClient m_client;

private slots:
    void throttling_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("method");
        QTest::addColumn<QList<int>>("statuses"); // of GET config, PUT state, GET config, PUT state
        QTest::addRow("429 for the next two") << 429 << "" << QList<int>{429, 429, 200, 200};
        QTest::addRow("only PUT") << 503 << "PUT" << QList<int>{200, 503, 200, 503};
    }

    void throttling()
    {
        QFETCH(int, status);
        QFETCH(QString, method);
        QFETCH(QList<int>, statuses);
        const auto emulator = startEmulator();
        const QString user = QString::fromStdString(emulator->addUser());
        emulator->throttle(status, 2, "", method.toStdString());
        const QString config = httpsUrl(emulator->httpsPort(), "/api/config");
        const QString state = httpsUrl(emulator->httpsPort(), "/api/" + user + "/lights/1/state");

        QList<int> seen;
        for (int i = 0; i < 2; ++i) {
            const TestReply get = m_client.get(config);
            const TestReply put = m_client.send("PUT", state, R"({"on":true})");
            seen << get.status << put.status;
            for (const TestReply& reply : {get, put}) {
                if (reply.status == status) {
                    const QJsonObject error = reply.json()[0]["error"].toObject();
                    QCOMPARE(error["type"].toInt(), 901);
                    QCOMPARE(error["description"].toString(), QString("Internal error, %1").arg(status));
                }
            }
        }
        QCOMPARE(seen, statuses);
        // A throttled change never reached the light; the record shows every attempt.
        QCOMPARE(int(emulator->requests().size()), 4);
        QCOMPARE(emulator->requests()[1].status, statuses[1]);

        // The control API is never throttled.
        emulator->throttle(status, -1);
        QCOMPARE(m_client.get(httpUrl(emulator->httpPort(), "/emulator/linkbutton")).status, 200);
        QCOMPARE(m_client.get(config).status, status);
        emulator->clearThrottles();
        QCOMPARE(m_client.get(config).status, 200);
    }

    void rateLimit_data()
    {
        QTest::addColumn<QByteArray>("limit"); // PUT /emulator/ratelimit
        // "+N" moves the clock N ms; otherwise a request and its expected status: L and G change
        // light 1 and group 1 over version 1, l and g over CLIP v2; R and r read light 1 (v1, v2),
        // N renames light 1, C reads /api/config, P pairs.
        QTest::addColumn<QString>("steps");
        QTest::addColumn<QByteArray>("retryAfter"); // on refusals; empty: no header
        QTest::addRow("lights 10/s burst 1")
            << QByteArray(R"({"lights":{"rate":10,"burst":1}})")
            << "L200 L429 +99 L429 +1 L200 L429 G200 G200 +1000 L200 L429" << QByteArray();
        QTest::addRow("groups at 1/s beside lights")
            << QByteArray(R"({"lights":{"rate":10},"groups":{"rate":1}})")
            << "G200 L200 G429 +100 L200 G429 +899 G429 +1 G200 L200" << QByteArray();
        QTest::addRow("a burst of three refills to three")
            << QByteArray(R"({"lights":{"rate":2,"burst":3}})")
            << "L200 L200 L200 L429 +500 L200 L429 +60000 L200 L200 L200 L429" << QByteArray();
        QTest::addRow("CLIP v2 shares the buckets, 503 with Retry-After")
            << QByteArray(R"({"lights":{"rate":10},"groups":{"rate":1},"status":503,"retry_after":2})")
            << "l200 l503 L503 g200 G503 +100 L200 l503 g503" << QByteArray("2");
        QTest::addRow("reads, renames and pairing never limited")
            << QByteArray(R"({"lights":{"rate":0.001},"groups":{"rate":0.001}})")
            << "L200 L429 R200 R200 r200 r200 N200 N200 C200 P200 P200 g200 g429 L429" << QByteArray();
    }

    // Refused changes take no effect and are recorded with their status; the counters match.
    void rateLimit()
    {
        QFETCH(QByteArray, limit);
        QFETCH(QString, steps);
        QFETCH(QByteArray, retryAfter);
        ManualClock time;
        EmulatorConfig config;
        config.clock = time.clock();
        const auto emulator = startEmulator(config);
        const int http = emulator->httpPort();
        const QString user = QString::fromStdString(emulator->addUser());
        const HeaderPairs key{{"hue-application-key", user.toUtf8()}};
        const QString v1 = httpUrl(http, "/api/" + user);
        const QString v2 = httpUrl(http, "/clip/v2/resource");
        const QString v2Light = v2 + "/light/" + QString::fromStdString(emulator->v2LightId("1"));
        const QString v2Group =
            v2 + "/grouped_light/" +
            m_client.send("GET", v2 + "/grouped_light", {}, 5000, key).json()["data"][0]["id"].toString();
        QCOMPARE(m_client.send("PUT", httpUrl(http, "/emulator/ratelimit"), limit).status, 200);

        QList<int> expected, seen;
        int counts[2][2] = {}; // [lights, groups][accepted, refused]
        bool lightOn = emulator->light("1")->state.on;
        for (const QString& step : steps.split(' ')) {
            if (step.startsWith('+')) {
                time.advance(step.mid(1).toLongLong());
                continue;
            }
            const QChar kind = step[0];
            const int status = step.mid(1).toInt();
            const bool on = seen.size() % 2 == 0;
            TestReply reply;
            if (kind == 'L')
                reply =
                    m_client.send("PUT", v1 + "/lights/1/state", on ? R"({"on":true})" : R"({"on":false})");
            else if (kind == 'l')
                reply = m_client.send("PUT", v2Light, on ? R"({"on":{"on":true}})" : R"({"on":{"on":false}})",
                                      5000, key);
            else if (kind == 'G')
                reply = m_client.send("PUT", v1 + "/groups/1/action", R"({"alert":"select"})");
            else if (kind == 'g')
                reply = m_client.send("PUT", v2Group, R"({"dynamics":{"duration":0}})", 5000, key);
            else if (kind == 'R')
                reply = m_client.get(v1 + "/lights/1");
            else if (kind == 'r')
                reply = m_client.send("GET", v2Light, {}, 5000, key);
            else if (kind == 'N')
                reply = m_client.send("PUT", v1 + "/lights/1", R"({"name":"Desk"})");
            else if (kind == 'C')
                reply = m_client.get(httpUrl(http, "/api/config"));
            else
                reply = m_client.send("POST", httpUrl(http, "/api"), "{\"devicetype\":\"rate#test\"}");
            expected << status;
            seen << reply.status;
            const bool refused = reply.status == 429 || reply.status == 503;
            QCOMPARE(reply.header("Retry-After"), refused ? retryAfter : QByteArray());
            if (refused && kind.isUpper()) {
                const QJsonObject error = reply.json()[0]["error"].toObject();
                QCOMPARE(error["type"].toInt(), 901);
                QCOMPARE(error["description"].toString(), QString("Internal error, %1").arg(status));
            } else if (refused) {
                QVERIFY(!reply.json()["errors"][0]["description"].toString().isEmpty());
                QCOMPARE(reply.json()["data"].toArray().size(), 0);
            }
            if (kind.toUpper() == 'L' || kind.toUpper() == 'G')
                ++counts[kind.toUpper() == 'G'][status != 200];
            if (kind.toUpper() == 'L' && status == 200)
                lightOn = on;
        }
        QCOMPARE(seen, expected);
        QCOMPARE(emulator->light("1")->state.on, lightOn);
        QList<int> recorded;
        for (const RecordedRequest& request : emulator->requests())
            recorded << request.status;
        QCOMPARE(recorded.mid(1), expected); // after the grouped_light lookup

        const QJsonObject shown = m_client.get(httpUrl(http, "/emulator/ratelimit")).json().object();
        QVERIFY(shown["active"].toBool());
        for (int group = 0; group < 2; ++group) {
            const QJsonObject counters = shown[group ? "groups" : "lights"].toObject();
            QCOMPARE(counters["accepted"].toInt(), counts[group][0]);
            QCOMPARE(counters["refused"].toInt(), counts[group][1]);
        }
        // Without the limit every change goes through again; the counters stay readable.
        QCOMPARE(m_client.send("DELETE", httpUrl(http, "/emulator/ratelimit")).status, 200);
        for (int i = 0; i < 3; ++i)
            QCOMPARE(m_client.send("PUT", v1 + "/lights/1/state", R"({"on":true})").status, 200);
        QCOMPARE(emulator->rateLimitCounters().lights.accepted, std::uint64_t(counts[0][0]));
        QVERIFY(!emulator->rateLimit());
    }

    void rateLimitBodies_data()
    {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        QTest::addRow("empty: both unlimited") << QByteArray("{}") << 200;
        QTest::addRow("rate 0") << QByteArray(R"({"lights":{"rate":0}})") << 400;
        QTest::addRow("no rate") << QByteArray(R"({"groups":{"burst":2}})") << 400;
        QTest::addRow("burst 0") << QByteArray(R"({"lights":{"rate":10,"burst":0}})") << 400;
        QTest::addRow("class not an object") << QByteArray(R"({"lights":10})") << 400;
        QTest::addRow("status 500") << QByteArray(R"({"lights":{"rate":10},"status":500})") << 400;
        QTest::addRow("negative retry_after") << QByteArray(R"({"retry_after":-1})") << 400;
    }

    // A refused body leaves the limit that was there.
    void rateLimitBodies()
    {
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        const auto emulator = startEmulator();
        const QString url = httpUrl(emulator->httpPort(), "/emulator/ratelimit");
        QVERIFY(emulator->setRateLimit({RateBucket{5, 2}, std::nullopt, 503, 0}));
        QCOMPARE(m_client.send("PUT", url, body).status, status);
        const QJsonObject shown = m_client.get(url).json().object();
        QCOMPARE(shown["lights"]["rate"].toDouble(), status == 200 ? 0.0 : 5.0);
        QCOMPARE(shown["status"].toInt(), status == 200 ? 429 : 503);
    }

    void abandonedStallDoesNotHoldUpStop()
    {
        auto emulator = startEmulator();
        const QString user = QString::fromStdString(emulator->addUser());
        // A held request the client gave up on does not keep stop() waiting, and takes no effect.
        emulator->stall(1, std::chrono::minutes(10));
        QNetworkReply* abandoned = m_client.start(
            "PUT", httpUrl(emulator->httpPort(), "/api/" + user + "/lights/4/state"), R"({"on":true})");
        QTRY_COMPARE(emulator->heldRequestCount(), 1);
        abandoned->abort();
        abandoned->deleteLater();
        QElapsedTimer timer;
        timer.start();
        emulator->stop();
        // Far below the ten-minute stall: stop() did not wait for the held request.
        QVERIFY2(timer.elapsed() < 60000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!emulator->light("4")->state.on);
    }

    void refuseOverControlApiReopensByItself()
    {
        EmulatorConfig config;
        config.controlPort = 0;
        const auto emulator = startEmulator(config);
        const int http = emulator->httpPort();
        // Asked on the port it closes: the answer still arrives, then the port closes.
        QCOMPARE(m_client.send("POST", httpUrl(http, "/emulator/refuse"), R"({"ms":400})").status, 200);
        QTRY_VERIFY(emulator->isRefusingConnections());
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).error, QNetworkReply::ConnectionRefusedError);
        // The control port stays open meanwhile.
        QCOMPARE(m_client.get(httpUrl(emulator->controlPort(), "/emulator")).json()["refusing"],
                 QJsonValue(true));
        QCOMPARE(m_client.get(httpUrl(emulator->controlPort(), "/api/config")).status, 404);
        QTRY_VERIFY_WITH_TIMEOUT(!emulator->isRefusingConnections(), 5000);
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).status, 200);

        QCOMPARE(m_client.send("POST", httpUrl(http, "/emulator/refuse"), "{}").status, 200);
        QTRY_VERIFY(emulator->isRefusingConnections());
        QCOMPARE(m_client.send("POST", httpUrl(emulator->controlPort(), "/emulator/accept"), "{}").status,
                 200);
        QCOMPARE(m_client.get(httpUrl(http, "/api/config")).status, 200);
    }

    void malformedRequests_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("statusLine"); // empty: the client leaves before any answer
        QTest::addColumn<int>("recordedStatus");
        QTest::addRow("garbage request line")
            << QByteArray("HELLO\r\n\r\n") << QByteArray("HTTP/1.1 400") << 400;
        QTest::addRow("body over the limit")
            << QByteArray(
                   "PUT /api/x/lights/1/state HTTP/1.1\r\nHost: a\r\nContent-Length: 2000000\r\n\r\n") +
                   QByteArray(2000000, ' ')
            << QByteArray("HTTP/1.1 413") << 413;
        QTest::addRow("client leaves mid-body")
            << QByteArray(
                   "PUT /api/x/lights/1/state HTTP/1.1\r\nHost: a\r\nContent-Length: 100\r\n\r\n{\"on\"")
            << QByteArray() << 400;
    }

    void malformedRequests()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, statusLine);
        QFETCH(int, recordedStatus);
        const auto emulator = startEmulator();
        const QByteArray answer = exchangeRaw(emulator->httpPort(), bytes, statusLine.isEmpty() ? 300 : 2000);
        QVERIFY2(answer.startsWith(statusLine), answer.constData());
        // The library records its own answers once they are written, so the record may lag behind.
        QTRY_COMPARE(int(emulator->requests().size()), 1);
        QTRY_COMPARE(emulator->requests()[0].status, recordedStatus); // the status follows the entry
        // Still serving, on both ports.
        QCOMPARE(m_client.get(httpUrl(emulator->httpPort(), "/api/config")).status, 200);
        QCOMPARE(m_client.get(httpsUrl(emulator->httpsPort(), "/api/config")).status, 200);
    }

    void hostileDescriptions_data()
    {
        QTest::addColumn<QByteArray>("shape");
        QTest::addColumn<int>("depth"); // of the deepest element, the root being 1
        QTest::addColumn<int>("size");  // 0: any
        QTest::addRow("deep") << QByteArray(R"({"mode":"deep","depth":3000})") << 3000 << 0;
        QTest::addRow("huge") << QByteArray(R"({"mode":"huge","bytes":3000000})") << 5 << 3000000;
        QTest::addRow("normal again") << QByteArray(R"({"mode":"normal"})") << 5 << 0;
    }

    void hostileDescriptions()
    {
        QFETCH(QByteArray, shape);
        QFETCH(int, depth);
        QFETCH(int, size);
        const auto emulator = startEmulator();
        const int http = emulator->httpPort();
        // Every shape replaces the one before.
        emulator->setDescriptionShape({DescriptionShape::Mode::Deep, 2});
        QCOMPARE(m_client.send("PUT", httpUrl(http, "/emulator/description"), shape).status, 200);
        const TestReply reply = m_client.get(httpUrl(http, "/description.xml"));
        QCOMPARE(reply.status, 200);
        if (size > 0)
            QCOMPARE(reply.body.size(), size);
        QXmlStreamReader xml(reply.body);
        int level = 0, deepest = 0;
        QString serial;
        while (!xml.atEnd()) {
            xml.readNext();
            if (xml.isStartElement())
                deepest = std::max(deepest, ++level);
            else if (xml.isEndElement())
                --level;
            if (xml.isStartElement() && xml.name() == QLatin1String("serialNumber")) {
                serial = xml.readElementText();
                --level;
            }
        }
        QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
        QCOMPARE(deepest, depth);
        QCOMPARE(serial.isEmpty(), shape.contains("deep"));
    }

    void oversizedAnswers_data()
    {
        QTest::addColumn<bool>("chunked");
        QTest::addRow("with a length") << false;
        QTest::addRow("chunked") << true;
    }

    void oversizedAnswers()
    {
        QFETCH(bool, chunked);
        const auto emulator = startEmulator();
        const int http = emulator->httpPort();
        const QByteArray rule = QString(R"({"path":"/api/config","bytes":2000001,"count":2,"chunked":%1})")
                                    .arg(chunked ? "true" : "false")
                                    .toUtf8();
        QCOMPARE(m_client.send("PUT", httpUrl(http, "/emulator/oversize"), rule).status, 200);
        QVERIFY(m_client.get(httpUrl(http, "/api/nouser/lights")).json().isArray()); // not under the path
        for (int i = 0; i < 2; ++i) {
            const TestReply reply = m_client.get(httpsUrl(emulator->httpsPort(), "/api/config"));
            QCOMPARE(reply.status, 200);
            QCOMPARE(reply.body.size(), 2000001);
            QVERIFY(reply.body.startsWith("[0,0,") && reply.body.endsWith("0,"));
            QVERIFY(reply.json().isNull());
        }
        QVERIFY(m_client.get(httpUrl(http, "/api/config")).json().isObject());
        // Dropped rules leave every request normal.
        emulator->oversize(10, -1, "/api");
        QCOMPARE(m_client.send("DELETE", httpUrl(http, "/emulator/oversize")).status, 200);
        QVERIFY(m_client.get(httpUrl(http, "/api/config")).json().isObject());
    }

    void stopCutsIdleConnections()
    {
        auto emulator = startEmulator();
        // Kept-alive connections on both ports, which the HTTP library would otherwise hold for
        // its keep-alive time of five seconds.
        QCOMPARE(m_client.get(httpUrl(emulator->httpPort(), "/api/config")).status, 200);
        QCOMPARE(m_client.get(httpsUrl(emulator->httpsPort(), "/api/config")).status, 200);
        QTcpSocket silent; // connected, never says anything
        silent.connectToHost(QStringLiteral("127.0.0.1"), quint16(emulator->httpPort()));
        QVERIFY(silent.waitForConnected(2000));
        QElapsedTimer timer;
        timer.start();
        emulator.reset();
        // Below the library's five-second keep-alive: the idle connections were shut, not waited out.
        QVERIFY2(timer.elapsed() < 4500, qPrintable(QString::number(timer.elapsed())));
    }
};

QTEST_MAIN(TestBridgeEmulatorFaults)
#include "tst_bridgeemulator_faults.moc"
