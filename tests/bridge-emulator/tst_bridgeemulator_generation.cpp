// Bridge generations: what each serves and on which scheme, the pro bridge's redirects, and
// its certificate issued by the test authority through renewal, replacement and restarts.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QSslSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

using namespace bridgeemu;

namespace {

// The certificates a TLS server on the port presents, leaf first.
QList<QSslCertificate> presentedChain(int port)
{
    QSslSocket socket;
    socket.setPeerVerifyMode(QSslSocket::VerifyNone);
    socket.connectToHostEncrypted(QStringLiteral("127.0.0.1"), quint16(port));
    if (!socket.waitForEncrypted(5000))
        return {};
    return socket.peerCertificateChain();
}

X509* toX509(const QSslCertificate& certificate)
{
    const QByteArray der = certificate.toDer();
    const auto* data = reinterpret_cast<const unsigned char*>(der.constData());
    return d2i_X509(nullptr, &data, der.size());
}

// Whether OpenSSL builds a path from the leaf through the rest of the chain to the root alone.
bool verifiesAgainst(const QList<QSslCertificate>& chain, const std::string& rootPem)
{
    const QList<QSslCertificate> roots = QSslCertificate::fromData(QByteArray::fromStdString(rootPem));
    if (chain.isEmpty() || roots.size() != 1)
        return false;
    X509_STORE* store = X509_STORE_new();
    X509* root = toX509(roots.first());
    X509_STORE_add_cert(store, root);
    STACK_OF(X509)* untrusted = sk_X509_new_null();
    for (int i = 1; i < chain.size(); ++i)
        sk_X509_push(untrusted, toX509(chain[i]));
    X509* leaf = toX509(chain.first());
    X509_STORE_CTX* context = X509_STORE_CTX_new();
    const bool verified = X509_STORE_CTX_init(context, store, leaf, untrusted) == 1 && X509_verify_cert(context) == 1;
    X509_STORE_CTX_free(context);
    X509_free(leaf);
    sk_X509_pop_free(untrusted, X509_free);
    X509_free(root);
    X509_STORE_free(store);
    return verified;
}

EmulatorConfig proConfig()
{
    EmulatorConfig config;
    config.generation = BridgeGeneration::Pro;
    config.sharedPort = 0;
    return config;
}

} // namespace

class TestBridgeEmulatorGeneration : public QObject
{
    Q_OBJECT
    EmulatorTestClient m_client;

private slots:
    void identityAndSchemes_data()
    {
        QTest::addColumn<int>("generation");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("apiVersion");
        QTest::addColumn<QString>("macPrefix");
        QTest::addColumn<int>("descriptionStatus");
        QTest::addRow("round") << int(BridgeGeneration::Round) << "BSB001" << "1.16.0" << "00:17:88" << 200;
        QTest::addRow("square") << int(BridgeGeneration::Square) << "BSB002" << "1.65.0" << "00:17:88" << 200;
        QTest::addRow("pro") << int(BridgeGeneration::Pro) << "BSB003" << "1.76.0" << "c4:29:96" << 404;
    }

    void identityAndSchemes()
    {
        QFETCH(int, generation);
        QFETCH(QString, model);
        QFETCH(QString, apiVersion);
        QFETCH(QString, macPrefix);
        QFETCH(int, descriptionStatus);
        EmulatorConfig config;
        config.generation = BridgeGeneration(generation);
        const auto emulator = startEmulator(config);
        const bool round = config.generation == BridgeGeneration::Round;
        const bool pro = config.generation == BridgeGeneration::Pro;
        QCOMPARE(emulator->httpsPort() > 0, !round);
        // The bridge itself answers on HTTPS, or on plain HTTP where it has no HTTPS.
        const auto url = [&](const QString& path) {
            return round ? httpUrl(emulator->httpPort(), path) : httpsUrl(emulator->httpsPort(), path);
        };
        const QJsonObject bridgeConfig = m_client.get(url("/api/config")).json().object();
        QCOMPARE(bridgeConfig["modelid"].toString(), model);
        QCOMPARE(bridgeConfig["apiversion"].toString(), apiVersion);
        QVERIFY(bridgeConfig["mac"].toString().startsWith(macPrefix));
        QCOMPARE(m_client.get(url("/description.xml")).status, descriptionStatus);
        const HeaderPairs key{{"hue-application-key", QByteArray::fromStdString(emulator->addUser())}};
        const TestReply bridges = m_client.send("GET", url("/clip/v2/resource/device"), {}, 5000, key);
        QCOMPARE(bridges.status, round ? 404 : 200);
        if (pro)
            QVERIFY(bridges.body.contains("\"model_id\":\"BSB003\""));
        // The control API stays on plain HTTP whatever the bridge does there.
        QCOMPARE(m_client.get(httpUrl(emulator->httpPort(), "/emulator")).status, 200);
    }

    void plainHttpRedirectsToHttps_data()
    {
        QTest::addColumn<bool>("httpClosed");
        QTest::addColumn<bool>("viaShared");
        QTest::addColumn<QString>("target");
        QTest::addRow("http port") << false << false << "/api/config";
        QTest::addRow("http port, query kept") << false << false << "/api/nouser/lights?x=1";
        QTest::addRow("http port, description") << false << false << "/description.xml";
        QTest::addRow("shared port") << false << true << "/api/config";
        QTest::addRow("shared port, http closed") << true << true << "/clip/v2/resource";
    }

    void plainHttpRedirectsToHttps()
    {
        QFETCH(bool, httpClosed);
        QFETCH(bool, viaShared);
        QFETCH(QString, target);
        EmulatorConfig config = proConfig();
        config.httpClosed = httpClosed;
        const auto emulator = startEmulator(config);
        QVERIFY(emulator->isRunning());
        const int plainPort = viaShared ? emulator->sharedPort() : emulator->httpPort();
        const TestReply reply = m_client.send("POST", httpUrl(plainPort, target), "{}");
        QCOMPARE(reply.status, 301);
        const int httpsPort = viaShared ? emulator->sharedPort() : emulator->httpsPort();
        QCOMPARE(QString(reply.header("Location")), httpsUrl(httpsPort, target));
        QCOMPARE(emulator->requests().back().status, 301);
        QCOMPARE(emulator->requests().back().method, std::string("POST"));
        if (httpClosed) {
            QCOMPARE(emulator->httpPort(), -1);
            QCOMPARE(m_client.get(httpUrl(emulator->controlPort(), "/emulator")).status, 200);
        }
    }

    // Each row: certificate actions through the control API ("!" after one: refused), then
    // what new connections are shown.
    void certificateChanges_data()
    {
        QTest::addColumn<int>("generation");
        QTest::addColumn<QStringList>("actions");
        QTest::addColumn<bool>("verifies");       // against the authority's root alone
        QTest::addColumn<QString>("commonName");  // empty: the bridge id
        QTest::addColumn<bool>("sameAsStarted");
        const int pro = int(BridgeGeneration::Pro);
        QTest::addRow("as started") << pro << QStringList{} << true << "" << true;
        QTest::addRow("renewed") << pro << QStringList{"renew"} << true << "" << false;
        QTest::addRow("renewed twice, restored once") << pro << QStringList{"renew", "renew", "restore"} << true
                                                      << "" << false;
        QTest::addRow("replaced by the authority, other name")
            << pro << QStringList{"replace:001788fffe000001:authority"} << true << "001788fffe000001" << false;
        QTest::addRow("replaced, self-signed") << pro << QStringList{"replace::self"} << false << "" << false;
        QTest::addRow("replaced and restored") << pro << QStringList{"replace:x:self", "restore"} << true << ""
                                               << true;
        QTest::addRow("nothing to restore") << pro << QStringList{"restore!"} << true << "" << true;
        QTest::addRow("square renewed") << int(BridgeGeneration::Square) << QStringList{"renew"} << false << ""
                                        << false;
    }

    void certificateChanges()
    {
        QFETCH(int, generation);
        QFETCH(QStringList, actions);
        QFETCH(bool, verifies);
        QFETCH(QString, commonName);
        QFETCH(bool, sameAsStarted);
        EmulatorConfig config;
        config.generation = BridgeGeneration(generation);
        const auto emulator = startEmulator(config);
        const QList<QSslCertificate> started = presentedChain(emulator->httpsPort());
        QVERIFY(!started.isEmpty());
        for (QString action : actions) {
            const bool refused = action.endsWith('!');
            action.remove('!');
            const QStringList parts = action.split(':');
            QJsonObject body{{"action", parts[0]}};
            if (parts.size() == 3)
                body = {{"action", parts[0]}, {"common_name", parts[1]}, {"self_signed", parts[2] == "self"}};
            const TestReply reply = m_client.send("POST", httpUrl(emulator->httpPort(), "/emulator/certificate"),
                                                  QJsonDocument(body).toJson());
            QCOMPARE(reply.json()["ok"].toBool(), !refused);
        }
        const QList<QSslCertificate> now = presentedChain(emulator->httpsPort());
        QVERIFY(!now.isEmpty());
        QCOMPARE(verifiesAgainst(now, emulator->authorityPem()), verifies);
        QCOMPARE(now.first().subjectInfo(QSslCertificate::CommonName).value(0),
                 commonName.isEmpty() ? QString::fromStdString(emulator->bridgeId()) : commonName);
        QCOMPARE(now.first() == started.first(), sameAsStarted);
        QCOMPARE(now.first().toPem().toStdString(), emulator->certificatePem());
        if (config.generation == BridgeGeneration::Square)
            QCOMPARE(now.first().issuerInfo(QSslCertificate::CommonName), now.first().subjectInfo(QSslCertificate::CommonName));
    }

    // The authority and the certificate presented (even a replacement) come back from the state
    // folder; --write-authority's file holds the root.
    void restartKeepsAuthorityAndCertificate()
    {
        QTemporaryDir folder;
        EmulatorConfig config = proConfig();
        config.stateDir = folder.path().toStdString();
        config.writeAuthorityPath = folder.filePath("root.pem").toStdString();
        std::string authority, renewed, replacement;
        {
            const auto emulator = startEmulator(config);
            authority = emulator->authorityPem();
            QVERIFY(emulator->renewCertificate());
            renewed = emulator->certificatePem();
        }
        QFile written(folder.filePath("root.pem"));
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll().toStdString(), authority);
        {
            const auto emulator = startEmulator(config);
            QCOMPARE(emulator->authorityPem(), authority);
            QCOMPARE(emulator->certificatePem(), renewed);
            QVERIFY(verifiesAgainst(presentedChain(emulator->httpsPort()), authority));
            QVERIFY(emulator->replaceCertificate("stranger", true));
            replacement = emulator->certificatePem();
        }
        const auto emulator = startEmulator(config);
        QCOMPARE(emulator->certificatePem(), replacement);
        QVERIFY(emulator->restoreCertificate() == false); // what came before is not kept
    }
};

QTEST_GUILESS_MAIN(TestBridgeEmulatorGeneration)
#include "tst_bridgeemulator_generation.moc"
