// The shared port: one port that answers TLS and plain HTTP alike, however the client's bytes
// are split, records its requests with its own number, and closes and reopens with the others.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using namespace bridgeemu;

namespace {

// Passes a client's bytes on to a port in pieces of `chunk` bytes, each its own write, and the
// answers back as they come: what a slow or fragmenting network does to a request.
class ChunkingRelay : public QTcpServer
{
public:
    ChunkingRelay(int targetPort, int chunk) : m_targetPort(targetPort), m_chunk(chunk)
    {
        listen(QHostAddress::LocalHost);
    }

protected:
    void incomingConnection(qintptr descriptor) override
    {
        auto* client = new QTcpSocket(this);
        auto* target = new QTcpSocket(this);
        client->setSocketDescriptor(descriptor);
        target->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        target->connectToHost(QHostAddress::LocalHost, quint16(m_targetPort));
        if (!target->waitForConnected(2000))
            return;
        connect(client, &QTcpSocket::readyRead, target, [this, client, target] {
            const QByteArray bytes = client->readAll();
            for (int at = 0; at < bytes.size(); at += m_chunk) {
                target->write(bytes.mid(at, m_chunk));
                target->flush();
                target->waitForBytesWritten(100);
            }
        });
        connect(target, &QTcpSocket::readyRead, client,
                [client, target] { client->write(target->readAll()); });
        connect(target, &QTcpSocket::disconnected, client, &QTcpSocket::disconnectFromHost);
        connect(client, &QTcpSocket::disconnected, target, &QTcpSocket::disconnectFromHost);
    }

private:
    int m_targetPort;
    int m_chunk;
};

} // namespace

class TestBridgeEmulatorSharedPort : public QObject
{
    Q_OBJECT
    EmulatorTestClient m_client;
    std::unique_ptr<BridgeEmulator> m_emulator;

private slots:
    void initTestCase()
    {
        EmulatorConfig config;
        config.sharedPort = 0;
        m_emulator = startEmulator(config);
        QVERIFY(m_emulator->isRunning());
        QVERIFY(m_emulator->sharedPort() > 0);
    }

    void bothSchemesOnOnePort_data()
    {
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<int>("chunk"); // 0: as the client writes them; else pieces of this many bytes
        QTest::addRow("http") << "http" << 0;
        QTest::addRow("https") << "https" << 0;
        QTest::addRow("http, byte by byte") << "http" << 1;
        QTest::addRow("https, in pieces of 7") << "https" << 7;
    }

    void bothSchemesOnOnePort()
    {
        QFETCH(QString, scheme);
        QFETCH(int, chunk);
        const int port = m_emulator->sharedPort();
        std::unique_ptr<ChunkingRelay> relay;
        int connectTo = port;
        if (chunk > 0) {
            relay = std::make_unique<ChunkingRelay>(port, chunk);
            connectTo = relay->serverPort();
        }
        const auto url = [&](const QString& path) {
            return scheme == "https" ? httpsUrl(connectTo, path) : httpUrl(connectTo, path);
        };
        m_emulator->clearRequests();

        const TestReply config = m_client.get(url("/api/config"));
        QCOMPARE(config.status, 200);
        QCOMPARE(config.json()["bridgeid"].toString().toLower(),
                 QString::fromStdString(m_emulator->bridgeId()));
        QCOMPARE(config.peerCertificate.isNull(), scheme == "http");
        // A body goes through as well: pairing before the link button is pressed.
        const TestReply pairing = m_client.send("POST", url("/api"), "{\"devicetype\":\"test#shared\"}");
        QCOMPARE(pairing.status, 200);
        QCOMPARE(pairing.json()[0]["error"]["type"].toInt(), 101);

        const std::vector<RecordedRequest> recorded = m_emulator->requests();
        QCOMPARE(recorded.size(), std::size_t(2));
        for (const RecordedRequest& request : recorded) {
            QCOMPARE(request.port, port);
            QCOMPARE(QString::fromStdString(request.scheme), scheme);
        }
    }

    void refuseAndAcceptCloseAndReopenIt()
    {
        const int port = m_emulator->sharedPort();
        // A kept-alive connection through the shared port is cut as well.
        QCOMPARE(m_client.get(httpsUrl(port, "/api/config")).status, 200);
        QVERIFY(m_emulator->refuseConnections());
        QCOMPARE(m_client.get(httpsUrl(port, "/api/config")).error, QNetworkReply::ConnectionRefusedError);
        QCOMPARE(m_client.get(httpUrl(port, "/api/config")).error, QNetworkReply::ConnectionRefusedError);
        QVERIFY(m_emulator->acceptConnections());
        QCOMPARE(m_emulator->sharedPort(), port);
        QCOMPARE(m_client.get(httpUrl(port, "/api/config")).status, 200);
        // The same certificate after reopening: a pinned client keeps trusting it.
        QCOMPARE(m_client.get(httpsUrl(port, "/api/config")).peerCertificate.toPem(),
                 QByteArray::fromStdString(m_emulator->certificatePem()));

        m_emulator->stop();
        QCOMPARE(m_client.get(httpUrl(port, "/api/config")).error, QNetworkReply::ConnectionRefusedError);
        QVERIFY(m_emulator->start());
        QCOMPARE(m_emulator->sharedPort(), port);
        QCOMPARE(m_client.get(httpsUrl(port, "/api/config")).status, 200);
    }
};

QTEST_GUILESS_MAIN(TestBridgeEmulatorSharedPort)
#include "tst_bridgeemulator_sharedport.moc"
