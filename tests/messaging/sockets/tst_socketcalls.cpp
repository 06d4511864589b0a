#include "sockettesthelpers.h"

#include <common/messaging/socketinterface.h>
#include <common/messaging/socketparser.h>

#include <QLocalServer>
#include <QLocalSocket>
#include <QtTest>

#include <memory>

Q_DECLARE_METATYPE(SocketConnection::SocketType)

using Type = SocketConnection::SocketType;

class TestSocketCalls : public QObject
{
    Q_OBJECT

private:
    int connectionCount() const
    {
        return m_fx->service.query([this] { return m_fx->echo()->connections().size(); });
    }

    // Writes bytes over a plain local socket and returns the first reply that comes back.
    QByteArray exchangeRaw(const QByteArray& bytes)
    {
        QLocalSocket socket;
        socket.connectToServer(m_fx->dir.path() + "/com.orlux.test.echo");
        if (!socket.waitForConnected(5000))
            return "not connected";
        socket.write(bytes);
        socket.flush();
        SocketMessageParser parser;
        QElapsedTimer timer;
        timer.start();
        while (timer.elapsed() < 5000 && socket.waitForReadyRead(5000)) {
            parser.append(socket.readAll());
            if (parser.parse() == SocketMessageParser::Event::MessageComplete) {
                const SocketMessage reply = parser.takeMessage();
                return QByteArray::number(reply.queryId) + (reply.success ? " ok " : " failed ") +
                       reply.arguments.value(0).toVariant().toByteArray();
            }
        }
        return "no reply";
    }

    std::unique_ptr<EchoFixture> m_fx;

private slots:
    void init() { m_fx = std::make_unique<EchoFixture>(); }

    void cleanup() { m_fx.reset(); }

    void roundTrip_data()
    {
        QTest::addColumn<Type>("type");
        QTest::addRow("local") << SocketConnection::LocalSocket;
        QTest::addRow("tcp") << SocketConnection::TcpSocket;
    }

    void roundTrip()
    {
        QFETCH(Type, type);
        auto client = m_fx->connect(type);
        QVERIFY(client->isValid());

        QCOMPARE(client->call("echo", 42).toInt(), 42);
        QVERIFY(!client->hasError());
        QCOMPARE(client->call("sum", 1, 2, 3, 4, 5, 6, 7, 8, 9, 10).toInt(), 55);
        QCOMPARE(client->call("later", 21).toInt(), 42); // a promise answered 20 ms after the call returned

        client->call(SocketInterface::NoBlock, "record", QStringLiteral("one"));
        client->call(SocketInterface::NoBlock, "record", QStringLiteral("two"));
        QVERIFY(!client->hasError());
        QTRY_COMPARE(m_fx->echo()->recorded(), QStringList({"one", "two"}));

        bool ok = false;
        int value = 0;
        QVERIFY(client->callWithCallback(
            "echo", [&](bool success, const SocketArgument& v) { ok = success, value = v.toInt(); }, 7));
        QTRY_COMPARE(value, 7);
        QVERIFY(ok);

        QCOMPARE(m_fx->service.query(
                     [this] { return m_fx->echo()->clientName(m_fx->echo()->connections().value(0)); }),
                 QByteArray("tester"));
    }

    void typesWhoseNamesDifferRoundTrip_data()
    {
        // The codec checks every value type byte for byte; over sockets, the types whose names in a
        // signature differ from what the caller writes must still find the right overload.
        QTest::addColumn<SocketArgument>("value");
        QTest::addRow("qlonglong") << SocketArgument(-(qint64(1) << 40));
        QTest::addRow("InternalId") << SocketArgument(
            InternalId::makeOutputDataPointSerial(0xBEED, 0x10005, 1, 2));
        QTest::addRow("QMap<QString,QString>")
            << SocketArgument(QMap<QString, QString>{{"k", "v"}, {"x", ""}});
    }

    void typesWhoseNamesDifferRoundTrip()
    {
        QFETCH(SocketArgument, value);
        auto client = m_fx->connect();
        const SocketArgument answer = client->call("echo", value);
        QVERIFY2(!client->hasError(), qPrintable(client->errorText()));
        QCOMPARE(answer.type(), value.type());
        QVERIFY(answer == value);
    }

    void refusedConnections_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("no port file") << int(SocketConnection::TcpSocket)
                                      << QByteArray("cannot open socket file: %1/com.orlux.test.absent.port");
        QTest::addRow("no local server") << int(SocketConnection::LocalSocket)
                                         << QByteArray("cannot connect to service com.orlux.test.absent");
    }

    void refusedConnections()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, logged);
        LogCapture log;
        SocketInterface client(Type(type), "com.orlux.test.absent", m_fx->dir.path());
        QVERIFY(!client.isValid());
        QVERIFY(log.contains(logged.replace("%1", m_fx->dir.path().toUtf8())));
        client.call("echo", 1);
        QVERIFY(client.hasError());
    }

    void failingCallsSetTheErrorFlag_data()
    {
        QTest::addColumn<QString>("method");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QByteArray>("logged");
        QTest::addRow("unknown method")
            << "nothing"
            << "error in call nothing" << QByteArray("invalid signature nothing(int)");
        QTest::addRow("promise dropped")
            << "forget"
            << "error in call forget" << QByteArray("SocketPromise being deleted before result");
        QTest::addRow("never answered") << "ignore"
                                        << "no return value within 50 ms of ignore"
                                        << QByteArray("still waiting for return value of ignore");
    }

    void failingCallsSetTheErrorFlag()
    {
        QFETCH(QString, method);
        QFETCH(QString, error);
        QFETCH(QByteArray, logged);
        LogCapture log;
        auto client = m_fx->connect();
        client->setReplyTimeout(50);
        client->setStillWaitingNotice(10);
        QVERIFY(client->call(method, 1).isNone());
        QVERIFY(client->hasError());
        QCOMPARE(client->errorText(), error);
        QVERIFY(log.contains(logged));
        QCOMPARE(client->call("echo", 3).toInt(), 3); // the next call is fine again
        QVERIFY(!client->hasError());
    }

    void rawPeerIsAnsweredWithFailure_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<QByteArray>("expected");

        SocketMessage call;
        call.type = socketwire::CallWithReply;
        call.queryId = 77;
        call.name = "echo";
        call.arguments = QVector<SocketArgument>(10, SocketArgument(1));
        QByteArray eleven = call.encode();
        eleven.insert(eleven.size() - 1,
                      QByteArray::fromHex("0501000000")); // one more int before the end tag
        QTest::addRow("eleven arguments") << eleven << QByteArray("77 failed ");

        call.queryId = 78;
        call.arguments = {SocketArgument(5)};
        QTest::addRow("garbage before a good call")
            << "\x45\xbf\xd7 junk \x45\xbf" + call.encode() << QByteArray("78 ok 5");
    }

    void rawPeerIsAnsweredWithFailure()
    {
        QFETCH(QByteArray, bytes);
        QFETCH(QByteArray, expected);
        QCOMPARE(exchangeRaw(bytes), expected);
        auto client = m_fx->connect(); // the service is still fine
        QCOMPARE(client->call("echo", 9).toInt(), 9);
    }

    void clientVanishingMidMessageDoesNotHurtOthers()
    {
        auto client = m_fx->connect();
        SocketMessage call;
        call.type = socketwire::CallNoReply;
        call.name = "record";
        call.arguments = {SocketArgument(QStringLiteral("never"))};
        {
            QLocalSocket vanishing;
            vanishing.connectToServer(m_fx->dir.path() + "/com.orlux.test.echo");
            QVERIFY(vanishing.waitForConnected(5000));
            vanishing.write(call.encode().left(12));
            QVERIFY(vanishing.waitForBytesWritten(5000));
            QTRY_COMPARE(connectionCount(), 2);
        }
        QTRY_COMPARE(connectionCount(), 1);
        QCOMPARE(client->call("echo", QStringLiteral("still here")).toString(), QStringLiteral("still here"));
        QVERIFY(m_fx->echo()->recorded().isEmpty());
    }

    void promiseWithoutConnectionCannotReply()
    {
        LogCapture log;
        auto client = m_fx->connect();
        QVERIFY(client->callWithCallback("keep", [](bool, const SocketArgument&) {}));
        QTRY_VERIFY(m_fx->service.query([this] { return !m_fx->echo()->keptPromise.isNull(); }));
        client.reset();
        QTRY_COMPARE(connectionCount(), 0);

        QVERIFY(
            !m_fx->service.query([this] { return m_fx->echo()->keptPromise.setResult(SocketArgument(1)); }));
        QVERIFY(log.contains("SocketPromise cannot send result, adaptor or connection deleted"));
    }

    // Calls without reply queue up without waiting for a peer that does not read, up to the
    // queue's bound; beyond it a call waits a bounded time and goes on. A client that goes away
    // right after a call still delivers it, in order with the ones before.
    void nonBlockingCallsToStalledPeerAndBeforeExit()
    {
        QLocalServer stalled; // accepts, never reads
        QVERIFY(stalled.listen(m_fx->dir.path() + "/com.orlux.test.stalled"));
        SocketInterface slowPeer(SocketConnection::LocalSocket, "com.orlux.test.stalled", m_fx->dir.path());
        QVERIFY(slowPeer.isValid());
        slowPeer.setNonBlockingFlushTimeout(50);

        LogCapture log;
        // About 800 KiB: far more than the system buffers of a socket hold, below the queue's bound.
        const QString chunk(400, QLatin1Char('v'));
        for (int i = 0; i < 1000; ++i)
            slowPeer.call(SocketInterface::NoBlock, "store", chunk);
        QVERIFY2(!slowPeer.hasError(), qPrintable(slowPeer.errorText()));
        QVERIFY(!log.contains("delayed"));
        // Past the bound the call waits up to its limit, then goes on.
        slowPeer.call(SocketInterface::NoBlock, "store", QByteArray(16 * 1024 * 1024, 'x'));
        QVERIFY2(!slowPeer.hasError(), qPrintable(slowPeer.errorText()));
        QVERIFY(log.contains("non-blocking call to store delayed, continuing"));
        // Gone for good: the client's last flush must not wait for it.
        QVERIFY(stalled.hasPendingConnections() || stalled.waitForNewConnection(5000));
        std::unique_ptr<QLocalSocket> accepted(stalled.nextPendingConnection());
        QVERIFY(accepted);
        accepted->abort();

        auto client = m_fx->connect();
        QStringList expected;
        for (int i = 0; i < 300; ++i) {
            expected << QString::number(i);
            client->call(SocketInterface::NoBlock, "record", expected.last());
        }
        client->call(SocketInterface::NoBlock, "record", QStringLiteral("last words"));
        client.reset(); // deleted before the event loop ran once
        expected << QStringLiteral("last words");
        QTRY_COMPARE(m_fx->echo()->recorded(), expected);
    }

    void callFromWrongThreadIsRefused()
    {
        LogCapture log;
        auto client = m_fx->connect();
        std::unique_ptr<QThread> other(
            QThread::create([&] { client->call(SocketInterface::NoBlock, "record", "x"); }));
        other->start();
        QVERIFY(other->wait(5000));
        QVERIFY(client->hasError());
        QVERIFY(log.contains("called in wrong thread (detail="));
        QCOMPARE(client->call("echo", 1).toInt(), 1);
    }
};

QTEST_GUILESS_MAIN(TestSocketCalls)
#include "tst_socketcalls.moc"
