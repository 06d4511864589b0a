// The bridge's REST API version 1 where the service's own tests do not reach: the link-button
// window on the injectable clock, the exact change answers and errors, the certificate and the
// bounds of the request record. Lights, groups, configuration and the description document are
// read by the service's discovery, bridge and end-to-end tests against this emulator.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSslKey>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

using namespace bridgeemu;

class TestBridgeEmulatorApi : public QObject
{
    Q_OBJECT

    EmulatorTestClient m_client;

private slots:
    void pairingNeedsTheLinkButtonWithinItsWindow()
    {
        // The window is read through the clock seam, so the test moves time instead of waiting.
        auto now = std::chrono::steady_clock::now();
        EmulatorConfig config;
        config.clock = [&now] { return now; };
        config.linkButtonWindow = std::chrono::seconds(30);
        const auto emulator = startEmulator(config);
        const QString api = httpUrl(emulator->httpPort(), "/api");
        const auto pair = [&](const QByteArray& body) { return m_client.send("POST", api, body).json(); };
        const auto errorType = [&] { return pair("{\"devicetype\":\"a#b\"}")[0]["error"]["type"].toInt(); };
        QCOMPARE(pair("{\"devicetype\":\"velnor#hub\"}"),
                 QJsonDocument::fromJson(
                     R"([{"error":{"type":101,"address":"","description":"link button not pressed"}}])"));

        emulator->pressLinkButton();
        now += std::chrono::seconds(29);
        const QJsonObject plain = pair("{\"devicetype\":\"velnor#hub\"}")[0]["success"].toObject();
        QVERIFY(QRegularExpression("^[A-Za-z0-9-]{40}$").match(plain["username"].toString()).hasMatch());
        QVERIFY(!plain.contains("clientkey"));
        const QJsonObject withKey =
            pair("{\"devicetype\":\"velnor#other\",\"generateclientkey\":true}")[0]["success"].toObject();
        QVERIFY(QRegularExpression("^[0-9A-F]{32}$").match(withKey["clientkey"].toString()).hasMatch());
        QVERIFY(withKey["username"] != plain["username"]);
        now += std::chrono::seconds(2);
        QCOMPARE(errorType(), 101);

        emulator->pressLinkButtonAfter(std::chrono::seconds(5));
        QCOMPARE(errorType(), 101);
        now += std::chrono::seconds(5);
        QCOMPARE(errorType(), 0);
    }

    void stateChanges_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<bool>("initiallyOn");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QByteArray>("answer");     // "A" stands for the address prefix /lights/1/state/
        QTest::addColumn<QByteArray>("stateAfter"); // members the state must have afterwards
        const auto row = [](const char* name, const char* kind, bool on, const char* body, const char* answer,
                            const char* after) {
            QTest::addRow("%s", name)
                << kind << on << QByteArray(body) << QByteArray(answer) << QByteArray(after);
        };
        row("extended: on, bri, ct in body order", "extended", false, R"({"ct":250,"on":true,"bri":100})",
            R"([{"success":{"Act":250}},{"success":{"Aon":true}},{"success":{"Abri":100}}])",
            R"({"on":true,"bri":100,"ct":250,"colormode":"ct"})");
        row("extended: xy wins over ct", "extended", true, R"({"xy":[0.3,0.3],"ct":300})",
            R"([{"success":{"Axy":[0.3,0.3]}},{"success":{"Act":300}}])",
            R"({"xy":[0.3,0.3],"colormode":"xy"})");
        row("ct light: no xy, ct clamped", "ct", true, R"({"xy":[0.3,0.3],"ct":100})",
            R"([{"error":{"type":6,"address":"Axy","description":"parameter, xy, not available"}},)"
            R"({"success":{"Act":100}}])",
            R"({"ct":153,"colormode":"ct"})");
        row("switching off with other keys", "extended", true, R"({"on":false,"bri":10,"transitiontime":4})",
            R"([{"success":{"Aon":false}},{"error":{"type":201,"address":"Abri","description":)"
            R"("parameter, bri, is not modifiable. Device is set to off."}},{"success":{"Atransitiontime":4}}])",
            R"({"on":false,"bri":254})");
        row("increments", "extended", true, R"({"bri_inc":-54,"ct_inc":1000})",
            R"([{"success":{"Abri_inc":-54}},{"success":{"Act_inc":1000}}])",
            R"({"bri":200,"ct":500,"colormode":"ct"})");
        row("colour light: xy clamped into gamut A", "color", true, R"({"xy":[0.8,0.2]})",
            R"([{"success":{"Axy":[0.8,0.2]}}])", R"({"xy":[0.704,0.296],"colormode":"xy"})");
    }

    void stateChanges()
    {
        QFETCH(QString, kind);
        QFETCH(bool, initiallyOn);
        QFETCH(QByteArray, body);
        QFETCH(QByteArray, answer);
        QFETCH(QByteArray, stateAfter);
        EmulatorConfig config;
        config.lights = *parseLightSet(kind.toStdString(), nullptr);
        const auto emulator = startEmulator(config);
        LightChange power;
        power.on = initiallyOn;
        emulator->setLightState("1", power);
        const QString light = httpUrl(emulator->httpPort(),
                                      "/api/" + QString::fromStdString(emulator->addUser()) + "/lights/1");

        const TestReply reply = m_client.send("PUT", light + "/state", body);
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.json(), QJsonDocument::fromJson(answer.replace("\"A", "\"/lights/1/state/")));
        const QJsonObject state = m_client.get(light).json()["state"].toObject();
        const QJsonObject expected = QJsonDocument::fromJson(stateAfter).object();
        for (auto it = expected.begin(); it != expected.end(); ++it)
            QCOMPARE(state.value(it.key()), it.value());
    }

    void errors_data()
    {
        QTest::addColumn<QString>("path"); // "%1": a whitelisted user, "%2": a withdrawn one
        QTest::addColumn<QByteArray>("expected");
        QTest::addRow("unknown user") << "/api/nobody/lights"
                                      << QByteArray(R"({"type":1,"address":"/lights","description":)"
                                                    R"("unauthorized user"})");
        QTest::addRow("withdrawn user") << "/api/%2/lights/1/state"
                                        << QByteArray(R"({"type":1,"address":"/lights/1/state",)"
                                                      R"("description":"unauthorized user"})");
        QTest::addRow("unknown light") << "/api/%1/lights/99"
                                       << QByteArray(R"({"type":3,"address":"/lights/99","description":)"
                                                     R"("resource, /lights/99, not available"})");
    }

    void errors()
    {
        QFETCH(QString, path);
        QFETCH(QByteArray, expected);
        const auto emulator = startEmulator();
        const std::string withdrawn = emulator->addUser();
        const QString control = httpUrl(emulator->httpPort(), "/emulator/users/");
        QCOMPARE(m_client.send("DELETE", control + QString::fromStdString(withdrawn)).status, 200);
        QCOMPARE(m_client.send("DELETE", control + QString::fromStdString(withdrawn)).status, 404);
        const QString target = QString(path)
                                   .replace("%1", QString::fromStdString(emulator->addUser()))
                                   .replace("%2", QString::fromStdString(withdrawn));
        const bool change = target.endsWith("/state");
        const TestReply reply = m_client.send(change ? "PUT" : "GET", httpUrl(emulator->httpPort(), target),
                                              change ? QByteArray(R"({"on":true})") : QByteArray());
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.json().array().size(), 1);
        QCOMPARE(reply.json()[0]["error"].toObject(), QJsonDocument::fromJson(expected).object());
    }

    void certificateIsSelfSignedWithBridgeId_data()
    {
        QTest::addColumn<QString>("commonNameWanted"); // empty: the bridge id's
        QTest::addColumn<QString>("commonName");
        QTest::addRow("bridge id") << ""
                                   << "001788fffe9abcde";
        QTest::addRow("another bridge's") << "001788fffe000001"
                                          << "001788fffe000001";
    }

    void certificateIsSelfSignedWithBridgeId()
    {
        QFETCH(QString, commonNameWanted);
        QFETCH(QString, commonName);
        EmulatorConfig config;
        config.identity.bridgeId = "001788FFFE9ABCDE";
        config.certificateCommonName = commonNameWanted.toStdString();
        const auto emulator = startEmulator(config);
        const TestReply reply = m_client.get(httpsUrl(emulator->httpsPort(), "/api/config"));
        QCOMPARE(reply.status, 200);
        // Exactly the two errors a client must accept for a bridge on first use.
        QCOMPARE(reply.sslErrors.size(), 2);
        QVERIFY(reply.sslErrors.contains(QSslError::SelfSignedCertificate) &&
                reply.sslErrors.contains(QSslError::HostNameMismatch));
        const QSslCertificate certificate = reply.peerCertificate;
        QCOMPARE(certificate.subjectInfo(QSslCertificate::CommonName), QStringList{commonName});
        QCOMPARE(certificate.subjectInfo(QSslCertificate::Organization), QStringList{"Philips Hue"});
        QCOMPARE(certificate.subjectInfo(QSslCertificate::CountryName), QStringList{"NL"});
        QVERIFY(certificate.isSelfSigned());
        QCOMPARE(certificate.publicKey().algorithm(), QSsl::Ec);
        QCOMPARE(certificate.toPem(), QByteArray::fromStdString(emulator->certificatePem()));
    }

    // A second emulator on the same state folder is the same bridge, unless a file was damaged
    // or the caller names another bridge id.
    void stateFolderKeepsTheBridge_data()
    {
        QTest::addColumn<QString>("damaged");  // file overwritten with garbage before the restart
        QTest::addColumn<QString>("bridgeId"); // given for the restart; empty: the kept one
        QTest::addColumn<bool>("sameCertificate");
        QTest::addColumn<bool>("sameLightsAndKey");
        QTest::addRow("intact") << ""
                                << "" << true << true;
        QTest::addRow("state unreadable") << "bridge.json"
                                          << "001788fffe00bb01" << true << false;
        QTest::addRow("key unreadable") << "key.pem"
                                        << "" << false << true;
        QTest::addRow("another bridge id given") << ""
                                                 << "001788fffe0000aa" << false << true;
    }

    void stateFolderKeepsTheBridge()
    {
        QFETCH(QString, damaged);
        QFETCH(QString, bridgeId);
        QFETCH(bool, sameCertificate);
        QFETCH(bool, sameLightsAndKey);
        QTemporaryDir folder;
        EmulatorConfig config;
        config.identity.bridgeId = "001788fffe00bb01";
        config.stateDir = folder.path().toStdString();
        config.lights = {LightSpec{}, LightSpec{}, LightSpec{}};
        config.defaultGroups = false;
        std::string certificate, key;
        {
            const auto first = startEmulator(config);
            certificate = first->certificatePem();
            key = first->addUser("app#one");
            LightChange change;
            change.on = true;
            change.bri = 77;
            first->setLightState("2", change);
            first->removeLight("1");
            first->addGroup("Attic", GroupType::Room, {"2", "3"});
        } // stopped by the destructor, which writes the state
        if (!damaged.isEmpty()) {
            QFile file(folder.filePath(damaged));
            QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
            file.write("{not what was written");
        }

        // Another configuration: what was kept wins over it, except a bridge id that is given.
        EmulatorConfig again;
        again.stateDir = config.stateDir;
        again.lights = {LightSpec{}};
        if (!bridgeId.isEmpty()) {
            again.identity.bridgeId = bridgeId.toStdString();
            again.bridgeIdFromState = false;
        }
        const auto second = startEmulator(again);
        QCOMPARE(QString::fromStdString(second->bridgeId()),
                 bridgeId.isEmpty() ? QString("001788fffe00bb01") : bridgeId);
        QCOMPARE(second->certificatePem() == certificate, sameCertificate);
        const TestReply lights =
            m_client.get(httpsUrl(second->httpsPort(), QString("/api/%1/lights").arg(key.c_str())));
        QCOMPARE(lights.peerCertificate.toPem() == QByteArray::fromStdString(certificate), sameCertificate);
        if (!sameLightsAndKey) {
            QCOMPARE(lights.json()[0]["error"]["type"].toInt(), 1);
            QCOMPARE(second->lightIds(), std::vector<std::string>{"1"});
            return;
        }
        QCOMPARE(lights.json().object().keys(), (QStringList{"2", "3"}));
        QCOMPARE(lights.json()["2"]["state"]["bri"].toInt(), 77);
        QCOMPARE(second->group("1")->lights, (std::vector<std::string>{"2", "3"}));
        QCOMPARE(QString::fromStdString(second->users().at(0).name), QString("app#one"));
        // Ids are not reused after a restart either.
        QCOMPARE(second->addLight(LightSpec{}), std::string("4"));
    }

    void requestRecordIsBoundedAndSkipsTheControlApi()
    {
        EmulatorConfig config;
        config.requestLogLimit = 2;
        const auto emulator = startEmulator(config);
        m_client.get(httpUrl(emulator->httpPort(), "/api/config"));
        m_client.get(httpUrl(emulator->httpPort(), "/emulator/requests")); // not recorded
        m_client.send("PUT", httpsUrl(emulator->httpsPort(), "/api/x/lights/1/state?x=1"), R"({"on":true})");
        m_client.get(httpUrl(emulator->httpPort(), "/nowhere"));

        const std::vector<RecordedRequest> requests = emulator->requests();
        QCOMPARE(requests.size(), std::size_t(2)); // bounded: the oldest one is gone
        QCOMPARE(requests[0].sequence, std::uint64_t(2));
        QCOMPARE(QString::fromStdString(requests[0].target), QString("/api/x/lights/1/state?x=1"));
        QCOMPARE(QString::fromStdString(requests[0].scheme), QString("https"));
        QCOMPARE(requests[0].port, emulator->httpsPort());
        QCOMPARE(requests[1].status, 404);
        QCOMPARE(m_client.send("DELETE", httpUrl(emulator->httpPort(), "/emulator/requests")).status, 200);
        QVERIFY(emulator->requests().empty());
    }
};

QTEST_MAIN(TestBridgeEmulatorApi)
#include "tst_bridgeemulator_api.moc"
