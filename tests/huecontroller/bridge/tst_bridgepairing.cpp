// CBridge's pairing against the bridge emulator: the link button, firmware and API version
// rules, withdrawn keys, and the persisted bridge state that results.

#include "huecontroller/hue_adaptor.h"
#include "huecontroller/hue_bridgeapi.h"
#include "huecontroller/hue_bridgestate.h"
#include "huecontroller/hue_clock.h"

#include "common/configcache.h"
#include "emulatedbridge.h"
#include "logcapture.h"

#include <QTcpServer>
#include <QTcpSocket>
#include <QtTest>

using namespace hue;

namespace {

QString persistedState(const EmulatedBridge& env)
{
    return ConfigCache::instance()->getConfigValue("hueBridges/" + QString::fromUtf8(env.bridgeId()));
}

// Waits for the register-retry timer that follows an unanswered link button and fires it at once.
bool fireRegisterRetry(CBridge& bridge)
{
    if (!QTest::qWaitFor([&] { return bridge.registerRetryTimer()->isActive(); }, 5000))
        return false;
    bridge.registerRetryTimer()->stop();
    bridge.retryRegisterUser();
    return true;
}

// A server on loopback that answers every request with a body that is no JSON, as a captive
// portal or a half-started bridge would.
class GarbageServer : public QTcpServer
{
public:
    GarbageServer()
    {
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* socket = nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                    socket->readAll();
                    socket->write(
                        "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: 6\r\n\r\n<html>");
                });
            }
        });
        listen(QHostAddress::LocalHost);
    }
};

} // namespace

class TestBridgePairing : public QObject
{
    Q_OBJECT

private slots:
    void linkButtonPressedLate()
    {
        EmulatedBridge env;
        auto bridge = env.makeBridge(env.emulator().httpsPort());
        LogCapture log;
        bridge->registerUserName(10);
        QCOMPARE(bridge->userNameState(), CBridge::USERNAME_REGISTERING);
        QTRY_VERIFY(bridge->registerRetryTimer()->isActive());
        QVERIFY(log.contains(
            "User interaction required: Press link button on bridge and re-try to register user."));
        QCOMPARE(bridge->registerAttemptsLeft(), 9);

        env.emulator().pressLinkButton();
        QVERIFY(fireRegisterRetry(*bridge));
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_REGISTERED);
        QCOMPARE(env.emulator().users().size(), size_t(1));
        QCOMPARE(QString::fromStdString(env.emulator().users().front().username), bridge->userName());
        QCOMPARE(ConfigCache::instance()->getConfigValue("hueBridgeUserNames/" +
                                                         QString::fromUtf8(env.bridgeId())),
                 bridge->userName());
        QCOMPARE(persistedState(env), QStringLiteral("paired"));
        QCOMPARE(env.requests("POST", "/api").front().body, std::string("{\n  \"devicetype\":\"velnor\"\n}"));
    }

    void linkButtonNeverPressed()
    {
        EmulatedBridge env;
        auto bridge = env.makeBridge(env.emulator().httpsPort());
        bridge->registerUserName(2);
        QVERIFY(fireRegisterRetry(*bridge));
        QVERIFY(fireRegisterRetry(*bridge));
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_LINK_BUTTON);
        QCOMPARE(env.requests("POST", "/api").size(), size_t(3)); // the first request and two retries
        QCOMPARE(persistedState(env), QStringLiteral("new"));
        QVERIFY(!bridge->registerRetryTimer()->isActive());
    }

    void checkReplyRules_data()
    {
        QTest::addColumn<QString>("apiVersion");
        QTest::addColumn<QString>("swVersion");
        QTest::addColumn<bool>("plainHttp");
        QTest::addColumn<int>("state");
        QTest::addColumn<bool>("modern");
        QTest::addColumn<QByteArray>("logged");
        const int firmware = CBridge::USERNAME_ERROR_FIRMWARE;
        const int registered = CBridge::USERNAME_REGISTERED;
        const QString v1 = "1948085999";
        const QString v2 = "1948086000";
        QTest::addRow("1.2.0") << "1.2.0" << v1 << false << firmware << false
                               << QByteArray("Require apiversion 1.3.0");
        QTest::addRow("1.3.0") << "1.3.0" << v1 << false << registered << false << QByteArray();
        QTest::addRow("1.60.0") << "1.60.0" << v1 << false << registered << true << QByteArray();
        QTest::addRow("1") << "1" << v1 << false << firmware << false
                           << QByteArray("unexpected apiversion format 1");
        QTest::addRow("0.9.0") << "0.9.0" << v1 << false << firmware << false
                               << QByteArray("unexpected apiversion");
        QTest::addRow("v2 over http")
            << "1.65.0" << v2 << true << registered << true
            << QByteArray(
                   "Found a v2-capable bridge, but failed to connect via https - falling back to v1 API");
    }

    void checkReplyRules()
    {
        QFETCH(QString, apiVersion);
        QFETCH(QString, swVersion);
        QFETCH(bool, plainHttp);
        QFETCH(int, state);
        QFETCH(bool, modern);
        QFETCH(QByteArray, logged);
        EmulatedBridge env;
        env.emulator().setApiVersion(apiVersion.toStdString());
        env.emulator().setSwVersion(swVersion.toStdString());
        const int port = plainHttp ? env.emulator().httpPort() : env.emulator().httpsPort();
        auto bridge = env.makeBridge(port, QString::fromStdString(env.emulator().addUser()));
        LogCapture log;
        bridge->checkUsernameRegistered(true);
        if (plainHttp) { // the first check fell back to http; the second one gets the answer
            QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_NETWORK);
            bridge->checkUsernameRegistered(false);
        }
        QTRY_COMPARE(int(bridge->userNameState()), state);
        QCOMPARE(bridge->apiVersionModern(), modern);
        QCOMPARE(persistedState(env), state == CBridge::USERNAME_REGISTERED ? QStringLiteral("paired")
                                                                            : QStringLiteral("version"));
        QVERIFY(!bridge->api()->supportsV2());
        if (logged.isEmpty())
            QVERIFY(!log.contains("v2") && !log.contains("apiversion"));
        else
            QVERIFY(log.contains(logged));
        if (state == CBridge::USERNAME_REGISTERED)
            QVERIFY(log.contains("reports Zigbee channel 25 swversion " + swVersion.toUtf8()));
    }

    // A key removed at the bridge (in the vendor's app): the first refusal (an error of type 1 on
    // version 1, HTTP 403 on version 2) checks the key at once; the bridge forgets it and is
    // listed as new, or, when pairing was asked for already, asks for a new one at once.
    void withdrawnKey_data()
    {
        QTest::addColumn<bool>("clipV2");
        QTest::addColumn<bool>("pairAsked");
        QTest::addRow("v1, paired") << false << false;
        QTest::addRow("v2, paired") << true << false;
        QTest::addRow("v1, pairing asked for") << false << true;
    }
    void withdrawnKey()
    {
        QFETCH(bool, clipV2);
        QFETCH(bool, pairAsked);
        EmulatedBridge env({},
                           clipV2 ? EmulatedBridge::Firmware::ClipV2 : EmulatedBridge::Firmware::ApiVersion1);
        auto bridge = env.makePairedBridge();
        QVERIFY(bridge);
        const QString oldKey = bridge->userName();
        QVERIFY(env.emulator().deleteUser(oldKey.toStdString()));
        if (pairAsked)
            g_Controller->setBridgeState(QString::fromUtf8(env.bridgeId()), BridgeStatePair);
        Clock::advance(CBridge::kKeyRecheckMs + 1);

        LogCapture log;
        if (pairAsked) {
            bridge->checkUsernameRegistered(true); // what asking for pairing does with a stored key
        } else {
            QVERIFY(EmulatedBridge::pollOnce(*bridge));
            QVERIFY(
                log.contains(clipV2 ? "refused the key: HTTP 403" : "refused the key: an error of type 1"));
        }
        QTRY_VERIFY(log.contains("no longer accepts its key; it needs pairing with the link button"));
        QVERIFY(bridge->userName().isEmpty());
        QCOMPARE(ConfigCache::instance()->getConfigValue("hueBridgeUserNames/" +
                                                         QString::fromUtf8(env.bridgeId())),
                 QString());
        if (!pairAsked) {
            QCOMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_LINK_BUTTON);
            QCOMPARE(persistedState(env), QStringLiteral("new"));
            Clock::advance(600);
            bridge->pollNextItem(); // nothing more is sent with the old key
            QCOMPARE(bridge->activeReplyCount(), 0);
            bridge->registerUserName(10); // the person asks for pairing
        }
        QTRY_COMPARE(env.requests("POST", "/api").size(), size_t(1));
        env.emulator().pressLinkButton();
        QVERIFY(fireRegisterRetry(*bridge));
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_REGISTERED);
        QVERIFY(!bridge->userName().isEmpty() && bridge->userName() != oldKey);
        QCOMPARE(persistedState(env), QStringLiteral("paired"));
    }

    void pollingWaitsForPairing()
    {
        EmulatedBridge env;
        env.emulator().setApiVersion("1.2.0"); // too old: an error state of the user-name check
        auto bridge =
            env.makeBridge(env.emulator().httpsPort(), QString::fromStdString(env.emulator().addUser()));
        Clock::advance(600);
        bridge->pollNextItem(); // state 0: nothing is sent
        QVERIFY(!bridge->currentPollReply());
        QCOMPARE(bridge->activeReplyCount(), 0);

        bridge->checkUsernameRegistered(true);
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_FIRMWARE);
        // In an error state a poll tick re-checks, 10 s after the last check reply, and never polls.
        Clock::advance(600);
        bridge->pollNextItem();
        QCOMPARE(bridge->activeReplyCount(), 0);
        Clock::advance(10000);
        bridge->pollNextItem();
        QCOMPARE(bridge->userNameState(), CBridge::USERNAME_CHECKING);
        QVERIFY(!bridge->currentPollReply());
        QCOMPARE(bridge->checkCount(), 1);
        QTRY_COMPARE(bridge->userNameState(), CBridge::USERNAME_ERROR_FIRMWARE);
    }

    void garbledCheckReplyWaitsForStableNetwork()
    {
        EmulatedBridge env; // for the controller that keeps the persisted state
        GarbageServer server;
        QVERIFY(server.isListening());
        const QByteArray id("00178800feed0001");
        g_Controller->setBridgeState(QString::fromLatin1(id), BridgeStatePaired);
        CBridge bridge(&env.nam(), id, QStringLiteral("127.0.0.1"), server.serverPort(), 1,
                       QStringLiteral("key"));
        LogCapture log;

        // The first check tries https and falls back to plain http for the next one.
        bridge.checkUsernameRegistered(true);
        QTRY_COMPARE(bridge.userNameState(), CBridge::USERNAME_ERROR_NETWORK);
        // Without a stable network (no adaptor at all here, or a recent outage) the state stays.
        bridge.checkUsernameRegistered(true);
        QTRY_COMPARE(bridge.userNameState(), CBridge::USERNAME_ERROR_UNKNOWN);
        QVERIFY(log.contains("Ignore USERNAME_ERROR_UNKNOWN because our network is (or was) down."));
        QCOMPARE(g_Controller->bridgeState(id), BridgeStatePaired);

        HueAdaptor adaptor;
        adaptor.onNetworkEvent(3, "up");
        Clock::advance(HueAdaptor::kStableNetworkMs + 1);
        bridge.checkUsernameRegistered(true);
        QTRY_COMPARE(g_Controller->bridgeState(id), BridgeStateError);
    }
};

QTEST_GUILESS_MAIN(TestBridgePairing)
#include "tst_bridgepairing.moc"
