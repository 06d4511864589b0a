// The controller's bridge registry over hubsim's configuration store, with certificates made
// here and bridge emulators for real TLS handshakes. Timer slots are called directly.

#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_controller.h"

#include "common/configcache.h"
#include "logcapture.h"

#include <bridgeemulator.h>
#include <hubsimulator.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QThread>
#include <QtTest>

#include <algorithm>

using namespace hue;

// Subject and issuer as "C=NL/O=Philips Hue/CN=id", signed with a fresh key.
static QSslCertificate makeCertificate(const QByteArray& subject, const QByteArray& issuer)
{
    EVP_PKEY* key = EVP_EC_gen("P-256");
    X509* cert = X509_new();
    X509_gmtime_adj(X509_getm_notBefore(cert), 0);
    X509_gmtime_adj(X509_getm_notAfter(cert), 3600);
    for (auto [name, text] :
         {std::pair{X509_get_subject_name(cert), subject}, {X509_get_issuer_name(cert), issuer}}) {
        for (const QByteArray& part : text.split('/')) {
            const QByteArray value = part.mid(part.indexOf('=') + 1);
            X509_NAME_add_entry_by_txt(name, part.left(part.indexOf('=')).constData(), MBSTRING_UTF8,
                                       reinterpret_cast<const unsigned char*>(value.constData()), -1, -1, 0);
        }
    }
    X509_set_pubkey(cert, key);
    X509_sign(cert, key, EVP_sha256());
    unsigned char* der = nullptr;
    const int length = i2d_X509(cert, &der);
    QSslCertificate result(QByteArray(reinterpret_cast<const char*>(der), length), QSsl::Der);
    OPENSSL_free(der);
    X509_free(cert);
    EVP_PKEY_free(key);
    return result;
}

class TestBridgeRegistry : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { set("hue/usedBridgeIDs", ""); } // the rows share one used-id list

private:
    static void set(const QString& key, const QString& value)
    {
        ConfigCache::instance()->setConfigValueNonblock(key, value, true);
    }
    static QString get(const QString& key) { return ConfigCache::instance()->getConfigValue(key); }
    // At a closed port: the registry logic runs, the bridge's requests fail at once.
    static CBridge* addBridge(CController& controller, const QByteArray& id)
    {
        return controller.registerBridge(id, QStringLiteral("127.0.0.1"), 1, QStringLiteral("B"));
    }

    QTemporaryDir m_dir;
    std::unique_ptr<HubSimulator> m_hub;

private slots:
    void initTestCase()
    {
        m_hub = std::make_unique<HubSimulator>(HubSimOptions{m_dir.path()});
        QVERIFY(m_hub->start());
        QVERIFY(ConfigCache::instance()->connectToDatabase(SocketConnection::LocalSocket, m_dir.path()));
        QTRY_VERIFY(ConfigCache::instance()->isReady());
        std::srand(1);
    }

    void shortId_data()
    {
        QTest::addColumn<QByteArray>("bridgeId");
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("used");
        QTest::addColumn<int>("expected"); // -1: any free number but the fold
        const QList<std::tuple<const char*, QByteArray, QString, QString, int>> rows{
            {"xor fold", "001788fffe123456", "", "1 2", 60417},
            {"short id", "abc", "", "", 44717},
            {"bad group, remainder", "zzzz12345", "", "7", 48281},
            {"stored kept", "001788fffe000001", "7", "7", 7},
            {"stored too big", "0000000000001234", "65536", "", 48281},
            {"collision", "00000000", "", "3  44717 9", -1}};
        for (const auto& [tag, id, stored, used, expected] : rows)
            QTest::addRow("%s", tag) << id << stored << used << expected;
    }

    void shortId()
    {
        QFETCH(QByteArray, bridgeId);
        QFETCH(QString, stored);
        QFETCH(QString, used);
        QFETCH(int, expected);
        CController controller;
        set("hueBridgeIDs/" + bridgeId, stored);
        set("hue/usedBridgeIDs", used);
        int shortId = -1;
        QVERIFY(controller.calculateShortId(shortId, bridgeId));
        const QStringList before = used.split(' ', Qt::SkipEmptyParts);
        if (expected == -1)
            QVERIFY(shortId != 44717 && !before.contains(QString::number(shortId)) && shortId <= 0xFFFF);
        else
            QCOMPARE(shortId, expected);
        QCOMPARE(get("hueBridgeIDs/" + bridgeId), QString::number(shortId));
        const QStringList added = stored == "7" ? QStringList() : QStringList{QString::number(shortId)};
        QCOMPARE(get("hue/usedBridgeIDs").split(' '), before + added); // never shrinks
    }

    void configChange_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("value");
        QTest::addColumn<bool>("pending");
        QTest::addColumn<bool>("removed");
        QTest::addColumn<bool>("ignored");
        QTest::addColumn<int>("userNameState");
        const QList<std::tuple<const char*, QString, QString, bool, bool, bool, int>> rows{
            {"pair without user", "hueBridges/", "pair", true, false, false, CBridge::USERNAME_REGISTERING},
            {"ignore", "hueBridges/", "ignore", true, false, true, 0},
            {"short id changed", "hueBridgeIDs/", "", true, false, false, 0},
            {"delete, 32 characters", "hueBridges/" + QString(32, 'a'), "delete", false, true, false, 0},
            {"delete, 31 characters", "hueBridges/" + QString(31, 'b'), "delete", false, false, false, 0},
            {"other key", "hue/useGroups", "1", false, false, false, 0}};
        for (const auto& [tag, key, value, pending, removed, ignored, state] : rows)
            QTest::addRow("%s", tag) << key << value << pending << removed << ignored << state;
    }

    void configChange()
    {
        QFETCH(QString, key);
        QFETCH(QString, value);
        QFETCH(bool, pending);
        QFETCH(bool, removed);
        QFETCH(bool, ignored);
        QFETCH(int, userNameState);
        CController controller;
        const QByteArray id =
            key.endsWith('/') ? QByteArray(QTest::currentDataTag()) : key.section('/', 1).toUtf8();
        CBridge* bridge = addBridge(controller, id);
        QSignalSpy removals(&controller, &CController::bridgeRemoved);
        controller.start();
        if (key.endsWith('/'))
            key += id;
        set(key, value);
        controller.configValueChanged(key, value, true);
        QCOMPARE(controller.pendingConfigChanges().size(), int(pending));
        QCOMPARE(controller.configApplyTimer().isActive(), pending);
        QCOMPARE(removals.count(), int(removed));
        QCOMPARE(controller.bridgeByBridgeId(id) == nullptr, removed);
        if (removed)
            return;
        controller.onCVarApplyTimeout();
        QVERIFY(controller.pendingConfigChanges().isEmpty());
        QCOMPARE(bridge->isIgnored(), ignored);
        QCOMPARE(int(bridge->userNameState()), userNameState);
    }

    void changesInQuickSuccessionAreAppliedOnce()
    {
        CController controller;
        CBridge* bridge = addBridge(controller, "coalesce");
        set("hueBridges/coalesce", "ignore");
        controller.configValueChanged("hueBridges/coalesce", "ignore", true);
        QVERIFY(!controller.configApplyTimer().isActive()); // not started: kept for start()
        controller.start();
        QVERIFY(bridge->isIgnored() && controller.pendingConfigChanges().isEmpty());

        set("hueBridges/coalesce", "pair");
        for (const char* name : {"k1", "k2", "k3"}) {
            int remainingBefore = -1;
            if (controller.configApplyTimer().isActive()) {
                // Time passes without the event loop running, so the timer cannot fire in between
                // however loaded the machine is.
                QThread::msleep(300);
                remainingBefore = controller.configApplyTimer().remainingTime();
            }
            set("hueBridgeUserNames/coalesce", name);
            controller.configValueChanged("hueBridgeUserNames/coalesce", name, true);
            QVERIFY(controller.configApplyTimer().isActive());
            QVERIFY(controller.configApplyTimer().remainingTime() > remainingBefore); // starts over
        }
        QCOMPARE(bridge->checkCount(), 0); // nothing applied before the timer
        LogCapture log;
        controller.onCVarApplyTimeout();
        controller.onCVarApplyTimeout();
        QCOMPARE(bridge->userName(), QStringLiteral("k3"));
        QCOMPARE(bridge->checkCount(), 1);
        QVERIFY(!log.contains("Ignoring checkUsernameRegistered")); // a second check would be refused
    }

    void bridgesArePolledInTurn()
    {
        CController controller;
        addBridge(controller, "turnA");
        CBridge* b = addBridge(controller, "turnB");
        QCOMPARE(controller.bridgeByShortID(int(b->shortId())), b);
        QByteArrayList polled;
        for (int i = 0; i < 4; ++i) {
            controller.pollNextBridge();
            polled << controller.lastPolledBridgeId();
        }
        const QByteArray first = controller.bridges().first()->bridgeId();
        const QByteArray second = controller.bridges().last()->bridgeId();
        QCOMPARE(polled, (QByteArrayList{first, second, first, second}));
        controller.removeBridge("turnB");
        controller.pollNextBridge();
        QCOMPARE(controller.lastPolledBridgeId(), QByteArray("turnA"));
    }

    void supportInfo_data()
    {
        QTest::addColumn<int>("bridgeCount");
        QTest::addColumn<bool>("timeout");
        QTest::addRow("all answer") << 2 << false;
        QTest::addRow("time-out") << 2 << true;
    }

    void supportInfo()
    {
        QFETCH(int, bridgeCount);
        QFETCH(bool, timeout);
        CController controller;
        QSignalSpy reports(&controller, &CController::supportInfoReady);
        std::vector<std::unique_ptr<QSignalSpy>> answers;
        for (int i = 0; i < bridgeCount; ++i)
            answers.push_back(std::make_unique<QSignalSpy>(
                addBridge(controller, "support" + QByteArray::number(i)), &CBridge::supportInfoGathered));
        controller.gatherSupportInfo();
        if (timeout) {
            QCOMPARE(controller.outstandingSupportAnswers(), bridgeCount);
            controller.onSupportInfoTimeout();
        }
        QTRY_VERIFY(!reports.isEmpty() &&
                    std::all_of(answers.begin(), answers.end(), [](auto& s) { return !s->isEmpty(); }));
        QCOMPARE(reports.count(), 1); // late answers are dropped
        const QByteArray report = reports.first().first().toByteArray();
        QVERIFY(report.startsWith("Hue support info gathered at "));
        QVERIFY(report.contains(":\n\nBridge count: " + QByteArray::number(bridgeCount) + "\n\n"));
        QCOMPARE(report.contains("Bridge support1"), bridgeCount > 0 && !timeout);
        QVERIFY(!controller.supportInfoTimer().isActive());
    }

    void certificate_data()
    {
        QTest::addColumn<QByteArray>("subject");
        QTest::addColumn<QByteArray>("issuer");
        QTest::addColumn<int>("pinned");        // 0 none, 2 another certificate
        QTest::addColumn<QByteArray>("logged"); // empty: accepted
        const QByteArray own = "C=NL/O=Philips Hue/CN=";
        const QList<std::tuple<const char*, QByteArray, QByteArray, int, QByteArray>> rows{
            {"first contact", own + "%1", own + "%1", 0, ""},
            {"changed", own + "%1", own + "%1", 2, "unexpected cert change on bridge"},
            {"other cname", own + "other", own + "other", 0, "cname does not match expected bridge id"},
            {"signed by root", own + "%1", own + "root-bridge", 0,
             "peer cert does not seem to be self-signed"},
            {"attributes", own + "%1", "CN=%1", 0, "attribute list mismatch"},
            {"two cnames", own + "%1/CN=x", own + "%1/CN=x", 0, "too many cnames in cert"}};
        for (const auto& [tag, subject, issuer, pinned, logged] : rows)
            QTest::addRow("%s", tag) << subject << issuer << pinned << logged;
    }

    void certificate()
    {
        QFETCH(QByteArray, subject);
        QFETCH(QByteArray, issuer);
        QFETCH(int, pinned);
        QFETCH(QByteArray, logged);
        const QByteArray id = QByteArray("bridge-") + QTest::currentDataTag();
        auto fill = [&](QByteArray text) { return text.replace("%1", id); };
        const QSslCertificate cert = makeCertificate(fill(subject), fill(issuer));
        const QByteArray digest = cert.digest(QCryptographicHash::Sha256);
        CController controller;
        controller.setBridgeState(QString::fromUtf8(id), BridgeStatePaired);
        controller.setBridgeCertDigest(id, pinned == 0 ? QByteArray() : QByteArray("x"));
        LogCapture log;
        QCOMPARE(controller.acceptSelfSignedCertificate(id, cert), logged.isEmpty());
        QVERIFY(logged.isEmpty() || log.contains(logged));
        QCOMPARE(controller.bridgeState(id), pinned == 2 ? BridgeStateError : BridgeStatePaired);
        if (pinned == 0)
            QCOMPARE(controller.bridgeCertDigest(id), logged.isEmpty() ? digest : QByteArray());
    }

    // A chain from the Hue authority (it verified to a trusted root): the bridge's own name in
    // either case is pinned at first use and pinned anew when renewed (one line at information
    // level); a chain for another bridge is refused.
    void authorityCertificates()
    {
        CController controller;
        const QByteArray id = "001788fffe00dd04";
        const QByteArray authority = "C=NL/O=Signify Hue/CN=Hue Intermediate";
        const QSslCertificate first = makeCertificate("C=NL/O=Signify Hue/CN=001788FFFE00DD04", authority);
        const QSslCertificate renewed = makeCertificate("C=NL/O=Signify Hue/CN=" + id, authority);
        const QSslCertificate other = makeCertificate("C=NL/O=Signify Hue/CN=001788fffe00ee05", authority);
        controller.setBridgeState(QString::fromUtf8(id), BridgeStatePaired);
        controller.setBridgeCertDigest(id, QByteArray());
        LogCapture log;
        QVERIFY(controller.acceptAuthorityCertificate(id, first));
        QCOMPARE(controller.bridgeCertDigest(id), first.digest(QCryptographicHash::Sha256));
        QVERIFY(controller.acceptAuthorityCertificate(id, first));
        QVERIFY(!controller.acceptAuthorityCertificate(id, other));
        QVERIFY(
            log.contains("certificate of bridge 001788fffe00dd04 is issued for 001788fffe00ee05 - refused"));
        QCOMPARE(controller.bridgeCertDigest(id), first.digest(QCryptographicHash::Sha256));
        QVERIFY(controller.acceptAuthorityCertificate(id, renewed));
        QVERIFY(controller.acceptAuthorityCertificate(id, renewed));
        QCOMPARE(log.count("was renewed by its authority; pinning the new one"), 1);
        QCOMPARE(controller.bridgeCertDigest(id), renewed.digest(QCryptographicHash::Sha256));
        QCOMPARE(controller.bridgeState(id), BridgeStatePaired);
    }

    void handshakesPinTheFirstCertificate()
    {
        CController controller;
        bridgeemu::EmulatorConfig config;
        config.identity.bridgeId = "001788fffe00aa01";
        bridgeemu::BridgeEmulator first(config), second(config); // same id, two certificates
        QVERIFY(first.start() && second.start());
        auto fetch = [&](bridgeemu::BridgeEmulator& emulator, const QVariant& bridgeId) {
            QNetworkReply* reply = controller.networkAccessManager()->get(QNetworkRequest(
                QUrl(QStringLiteral("https://127.0.0.1:%1/api/config").arg(emulator.httpsPort()))));
            reply->setProperty("hueBridgeId", bridgeId);
            QSignalSpy finished(reply, &QNetworkReply::finished);
            const bool ok = finished.wait(5000) && reply->error() == QNetworkReply::NoError;
            reply->deleteLater();
            return ok;
        };
        LogCapture log;
        QVERIFY(!fetch(first, QVariant()));
        QVERIFY(log.contains("got SSL errors in request without bridge ID"));
        QVERIFY(fetch(first, QByteArray("001788fffe00aa01")));
        QCOMPARE(controller.bridgeCertDigest("001788fffe00aa01").size(), 32);
        // A foreign certificate is logged and stored once while it lasts; the bridge gets its
        // state back when the pinned certificate returns.
        QSignalSpy stored(ConfigCache::instance(), &ConfigCache::configValueChanged);
        controller.setBridgeState(QStringLiteral("001788fffe00aa01"), BridgeStatePaired);
        // The store's echo of that write must be back before counting: late, it would turn the
        // cached state back to "paired" after the refusal.
        QTRY_VERIFY(std::any_of(stored.cbegin(), stored.cend(), [](const QList<QVariant>& change) {
            return change.at(0).toString() == QLatin1String("hueBridges/001788fffe00aa01") &&
                   change.at(1).toString() == QLatin1String("paired");
        }));
        stored.clear();
        QVERIFY(!fetch(second, QByteArray("001788fffe00aa01")));
        QTRY_COMPARE(controller.bridgeState("001788fffe00aa01"), BridgeStateError);
        QVERIFY(!fetch(second, QByteArray("001788fffe00aa01")));
        QCOMPARE(log.count("unexpected cert change on bridge 001788fffe00aa01"), 1);
        QVERIFY(controller.isCertificateRefused("001788fffe00aa01"));
        controller.networkAccessManager()->clearConnectionCache(); // the bridge came back: new connections
        QVERIFY(fetch(first, QByteArray("001788fffe00aa01")));
        QTRY_COMPARE(controller.bridgeState("001788fffe00aa01"), BridgeStatePaired);
        QVERIFY(log.contains("pinned certificate of bridge 001788fffe00aa01 is back"));
        const auto stateWrites = [&] {
            return std::count_if(stored.cbegin(), stored.cend(), [](const QList<QVariant>& change) {
                return change.at(0).toString() == QLatin1String("hueBridges/001788fffe00aa01");
            });
        };
        QTRY_COMPARE(stateWrites(), 2); // error once, paired again
    }

    // A bridge whose certificate names another bridge speaks TLS: the refused handshake must not
    // send the bridge's requests (and its key) to plain http on the same address.
    void refusedCertificateNeverFallsBackToHttp()
    {
        CController controller;
        bridgeemu::EmulatorConfig config;
        config.identity.bridgeId = "001788fffe00bb02"; // its certificate's common name
        config.sharedPort = 0;                         // https and http on one port, as a bridge has
        bridgeemu::BridgeEmulator emulator(config);
        QVERIFY(emulator.start());
        const QByteArray claimed = "001788fffe00cc03";
        set("hueBridgeUserNames/" + claimed, QString::fromStdString(emulator.addUser()));
        set("hueBridges/" + claimed, "paired");
        LogCapture log;
        QVERIFY(controller.registerBridge(claimed, "127.0.0.1", emulator.sharedPort(), "B"));
        auto plainRequests = [&] {
            int count = 0;
            for (const auto& request : emulator.requests())
                count += request.scheme == "http";
            return count;
        };
        QVERIFY(QTest::qWaitFor(
            [&] {
                return log.contains("refused; staying on https, no fall-back to http") || plainRequests();
            },
            5000));
        QTest::qWait(300); // a fall-back would go out at once
        QCOMPARE(plainRequests(), 0);
        QVERIFY(controller.bridgeCertDigest(claimed).isEmpty());
    }
};

QTEST_MAIN(TestBridgeRegistry)
#include "tst_bridgeregistry.moc"
