// The event stream as pure logic: framing over every split of the bytes, the fields of a
// message, and the reading of a message's events with its refusals.

#include "huecontroller/hue_eventstreamevents.h"
#include "huecontroller/hue_eventstreamframer.h"

#include "logcapture.h"

#include <QtTest>

using namespace hue;

namespace {

struct Parsed
{
    QList<QByteArray> ids;
    QList<QByteArray> data;
    QList<int> retries;
};

Parsed feedInTwo(const QByteArray& stream, int split)
{
    EventStreamFramer framer;
    QList<QByteArray> messages = framer.feed(stream.left(split));
    messages += framer.feed(stream.mid(split));
    Parsed parsed;
    for (const QByteArray& text : messages) {
        const EventStreamMessage message = EventStreamFramer::parseMessage(text);
        if (message.hasId)
            parsed.ids.append(message.id);
        if (!message.data.isEmpty())
            parsed.data.append(message.data);
        if (message.retryMs >= 0)
            parsed.retries.append(message.retryMs);
    }
    return parsed;
}

} // namespace

class TestEventStreamParsing : public QObject
{
    Q_OBJECT

private slots:
    void framesAtEverySplitPoint_data()
    {
        QTest::addColumn<QByteArray>("stream");
        const QByteArray lf = ": hi\n\nid: 1:0\ndata: [1,\ndata: 2]\n\nretry: 5000\n\nid: 1:1\ndata:[3]\n\n";
        QTest::addRow("LF") << lf;
        QTest::addRow("CRLF") << QByteArray(lf).replace("\n", "\r\n");
    }

    void framesAtEverySplitPoint()
    {
        QFETCH(QByteArray, stream);
        LogCapture log;
        for (int split = 0; split <= stream.size(); ++split) {
            const Parsed parsed = feedInTwo(stream, split);
            QCOMPARE(parsed.ids, (QList<QByteArray>{"1:0", "1:1"}));
            // Two data lines join with a line feed; a missing blank after the colon is fine.
            QCOMPARE(parsed.data, (QList<QByteArray>{"[1,\n2]", "[3]"}));
            QCOMPARE(parsed.retries, QList<int>{5000});
        }
        QCOMPARE(log.lines().size(), 0); // comments are skipped silently
    }

    // An oversized message is dropped alone, whatever the chunking: the messages around it stay,
    // and nothing beyond the bound is ever held, also for an endless line.
    void oversizedMessagesAreDroppedAlone_data()
    {
        QTest::addColumn<int>("chunk");
        QTest::addRow("one chunk") << 0;
        QTest::addRow("4096-byte chunks") << 4096;
        QTest::addRow("odd chunks") << 65521;
    }

    void oversizedMessagesAreDroppedAlone()
    {
        QFETCH(int, chunk);
        const int limit = EventStreamFramer::kMaxMessageBytes;
        const QByteArray stream =
            "id: 1\r\ndata: [1]\r\n\r\ndata: " + QByteArray(limit, 'x') + "\n\nid: 3\ndata: [3]\n\n";
        LogCapture log;
        EventStreamFramer framer;
        QList<QByteArray> data;
        for (int pos = 0; pos<stream.size(); pos += chunk> 0 ? chunk : stream.size()) {
            for (const QByteArray& text : framer.feed(stream.mid(pos, chunk > 0 ? chunk : -1)))
                data.append(EventStreamFramer::parseMessage(text).data);
            QVERIFY(framer.pending().size() <= limit);
        }
        QCOMPARE(data, (QList<QByteArray>{"[1]", "[3]"}));
        QCOMPARE(framer.droppedMessages(), 1);
        QCOMPARE(log.count("event stream message too large"), 1);

        // 48 MiB without a line end, then the stream goes on.
        const QByteArray filler(chunk > 0 ? chunk : 1 << 20, 'y');
        for (qint64 sent = 0; sent < 48 << 20; sent += filler.size())
            QVERIFY(framer.feed(filler).isEmpty() && framer.pending().size() <= limit);
        QCOMPARE(framer.pending().size(), 0);
        const QList<QByteArray> after = framer.feed("\n\nid: 9\ndata: [9]\n\n");
        QCOMPARE(after.size(), 1);
        QCOMPARE(EventStreamFramer::parseMessage(after.first()).data, QByteArray("[9]"));
        QCOMPARE(framer.droppedMessages(), 2);
    }

    void messageFields_data()
    {
        QTest::addColumn<QByteArray>("message");
        QTest::addColumn<int>("retry");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("retry not a number")
            << QByteArray("retry: soon\nevent: x\ndata: y\n") << -1 << QByteArray("y") << QByteArray();
        QTest::addRow("unknown key") << QByteArray("colour: red\ndata: z\n") << -1 << QByteArray("z")
                                     << QByteArray("ignoring unknown key colour in event stream");
        QTest::addRow("line without colon") << QByteArray("retry: 7\ndata: a\nnonsense\n") << 7
                                            << QByteArray("a") << QByteArray("message looks broken:");
    }

    void messageFields()
    {
        QFETCH(QByteArray, message);
        QFETCH(int, retry);
        QFETCH(QByteArray, data);
        QFETCH(QByteArray, logged);
        LogCapture log;
        const EventStreamMessage parsed = EventStreamFramer::parseMessage(message);
        QCOMPARE(parsed.retryMs, retry);
        QCOMPARE(parsed.data, data);
        if (logged.isEmpty())
            QCOMPARE(log.lines().size(), 0);
        else
            QVERIFY2(log.contains(logged), log.lines().join('\n').constData());
    }

    void badEventsAreLoggedAndSkipped_data()
    {
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<int>("resources");
        QTest::addColumn<QByteArray>("logged");
        const QByteArray good = R"({"type":"update","data":[{"id":"a","type":"light"}]})";
        QTest::addRow("good") << "[" + good + "]" << 1 << QByteArray();
        QTest::addRow("not JSON") << QByteArray("[{") << 0 << QByteArray("JSON parse error in event stream:");
        QTest::addRow("not an array")
            << QByteArray(R"({"type":"update"})") << 0 << QByteArray("Eventstream entry is not an array:");
        QTest::addRow("element not an object")
            << "[7," + good + "]" << 1 << QByteArray("Eventstream array entry is not an object:");
        QTest::addRow("no type") << "[{\"data\":[]}," + good + "]" << 1
                                 << QByteArray("Event is missing a required key");
        QTest::addRow("no data") << "[{\"type\":\"add\"}," + good + "]" << 1
                                 << QByteArray("Event is missing a required key");
        QTest::addRow("unknown type") << QByteArray(R"([{"type":"rename","data":[]}])") << 0
                                      << QByteArray("got unknown event type rename");
        QTest::addRow("error event") << QByteArray(R"([{"type":"error","data":[{"id":"x"}]}])") << 0
                                     << QByteArray("got an error event in stream:");
        QTest::addRow("data not an array") << QByteArray(R"([{"type":"add","data":{}}])") << 0
                                           << QByteArray("got event with non-array data:");
        QTest::addRow("resource not an object")
            << QByteArray(R"([{"type":"delete","data":["x",{"id":"b"}]}])") << 1
            << QByteArray("got non-object entry in data 0 of event:");
    }

    void badEventsAreLoggedAndSkipped()
    {
        QFETCH(QByteArray, data);
        QFETCH(int, resources);
        QFETCH(QByteArray, logged);
        LogCapture log;
        const StreamEventBatch batch = parseStreamEvents(data);
        int count = 0;
        for (const StreamEvent& event : batch.events)
            count += int(event.resources.size());
        QCOMPARE(count, resources);
        if (logged.isEmpty())
            QCOMPARE(log.lines().size(), 0);
        else
            QVERIFY2(log.contains(logged), log.lines().join('\n').constData());
    }
};

QTEST_GUILESS_MAIN(TestEventStreamParsing)
#include "tst_eventstreamparsing.moc"
