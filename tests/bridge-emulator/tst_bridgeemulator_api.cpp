// The bridge's REST API version 1 as a client sees it over real loopback sockets: pairing,
// configuration, light and group objects, change answers and errors, the description document,
// the certificate and the request record.
#include "emulatortestclient.h"

#include <bridgeemulator.h>

#include <QDomDocument>
#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSslKey>
#include <QtTest>

#include <memory>

using namespace bridgeemu;

namespace {

QJsonDocument json(const char* text)
{
    return QJsonDocument::fromJson(text);
}

QStringList keysOf(const QJsonObject& object)
{
    QStringList keys = object.keys();
    keys.sort();
    return keys;
}

QStringList sorted(QStringList list)
{
    list.sort();
    return list;
}

} // namespace

class TestBridgeEmulatorApi : public QObject
{
    Q_OBJECT

private slots:
    void pairingNeedsTheLinkButton();
    void linkButtonWindowCloses();
    void pairingRejectsBadBodies_data();
    void pairingRejectsBadBodies();
    void config_data();
    void config();
    void lightObjects_data();
    void lightObjects();
    void stateChanges_data();
    void stateChanges();
    void errors_data();
    void errors();
    void groupAction();
    void renameAndWallSwitch();
    void descriptionDocument();
    void certificateIsSelfSignedWithBridgeId();
    void requestRecord();

private:
    EmulatorTestClient m_client;
};

void TestBridgeEmulatorApi::pairingNeedsTheLinkButton()
{
    const auto emulator = startEmulator();
    const QString api = httpUrl(emulator->httpPort(), "/api");
    const TestReply refused = m_client.send("POST", api, R"({"devicetype":"velnor#hub"})");
    QCOMPARE(refused.status, 200);
    QCOMPARE(refused.json(),
             json(R"([{"error":{"type":101,"address":"","description":"link button not pressed"}}])"));

    emulator->pressLinkButton();
    const TestReply paired =
        m_client.send("POST", httpsUrl(emulator->httpsPort(), "/api"), R"({"devicetype":"velnor#hub"})");
    const QJsonObject success = paired.json().array().at(0).toObject().value("success").toObject();
    const QString username = success.value("username").toString();
    QVERIFY2(QRegularExpression("^[A-Za-z0-9-]{40}$").match(username).hasMatch(), qPrintable(username));
    QVERIFY(!success.contains("clientkey"));

    const TestReply withKey =
        m_client.send("POST", api, R"({"devicetype":"velnor#other","generateclientkey":true})");
    const QJsonObject second = withKey.json().array().at(0).toObject().value("success").toObject();
    QVERIFY(QRegularExpression("^[0-9A-F]{32}$").match(second.value("clientkey").toString()).hasMatch());
    QVERIFY(second.value("username").toString() != username);

    const QJsonObject whitelist = m_client.get(httpUrl(emulator->httpPort(), "/api/" + username + "/config"))
                                      .json()["whitelist"]
                                      .toObject();
    QCOMPARE(sorted(whitelist.keys()), sorted({username, second.value("username").toString()}));
    QCOMPARE(whitelist[username]["name"].toString(), QString("velnor#hub"));
    QVERIFY(!whitelist[username]["create date"].toString().isEmpty());
}

void TestBridgeEmulatorApi::linkButtonWindowCloses()
{
    // The window is read through the clock seam, so the test moves time instead of waiting.
    auto now = std::chrono::steady_clock::now();
    EmulatorConfig config;
    config.clock = [&now] { return now; };
    config.linkButtonWindow = std::chrono::seconds(30);
    const auto emulator = startEmulator(config);
    const QString api = httpUrl(emulator->httpPort(), "/api");
    const auto errorType = [&] {
        return m_client.send("POST", api, R"({"devicetype":"a#b"})").json()[0]["error"]["type"].toInt();
    };

    emulator->pressLinkButton();
    now += std::chrono::seconds(29);
    QVERIFY(emulator->linkButtonActive());
    QCOMPARE(errorType(), 0);
    now += std::chrono::seconds(2);
    QVERIFY(!emulator->linkButtonActive());
    QCOMPARE(errorType(), 101);

    emulator->pressLinkButtonAfter(std::chrono::seconds(5));
    QCOMPARE(errorType(), 101);
    now += std::chrono::seconds(5);
    QCOMPARE(errorType(), 0);
}

void TestBridgeEmulatorApi::pairingRejectsBadBodies_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("expected");
    const QByteArray invalidJson =
        R"([{"error":{"type":2,"address":"","description":"body contains invalid json"}}])";
    const QByteArray missing =
        R"([{"error":{"type":5,"address":"","description":"invalid/missing parameters in body"}}])";
    QTest::addRow("not json") << QByteArray("devicetype=x") << invalidJson;
    QTest::addRow("array") << QByteArray("[]") << invalidJson;
    QTest::addRow("no devicetype") << QByteArray(R"({"name":"x"})") << missing;
    QTest::addRow("devicetype not text") << QByteArray(R"({"devicetype":7})") << missing;
    QTest::addRow("devicetype too long")
        << QByteArray(R"({"devicetype":"12345678901234567890123456789012345678901"})")
        << QByteArray(R"([{"error":{"type":7,"address":"/devicetype","description":"invalid value, )"
                      R"(12345678901234567890123456789012345678901, for parameter, devicetype"}}])");
}

void TestBridgeEmulatorApi::pairingRejectsBadBodies()
{
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, expected);
    const auto emulator = startEmulator();
    emulator->pressLinkButton();
    const TestReply reply = m_client.send("POST", httpUrl(emulator->httpPort(), "/api"), body);
    QCOMPARE(reply.json(), QJsonDocument::fromJson(expected));
    QVERIFY(emulator->users().empty());
}

void TestBridgeEmulatorApi::config_data()
{
    QTest::addColumn<QString>("path"); // "%1": a whitelisted user
    QTest::addColumn<bool>("full");
    QTest::addColumn<bool>("https");
    QTest::addRow("/api/config") << "/api/config" << false << false;
    QTest::addRow("unknown user") << "/api/nobody/config" << false << false;
    QTest::addRow("whitelisted user") << "/api/%1/config" << true << true;
}

void TestBridgeEmulatorApi::config()
{
    QFETCH(QString, path);
    QFETCH(bool, full);
    QFETCH(bool, https);
    EmulatorConfig config;
    config.identity.bridgeId = "ECB5FAFFFE0A1B2C";
    config.identity.name = "Upstairs";
    config.identity.zigbeeChannel = 15;
    const auto emulator = startEmulator(config);
    emulator->setApiVersion("1.48.0");
    emulator->setSwVersion("1948086000");
    const QString user = QString::fromStdString(emulator->addUser());
    const QString target = path.contains("%1") ? path.arg(user) : path;
    const TestReply reply =
        m_client.get(https ? httpsUrl(emulator->httpsPort(), target) : httpUrl(emulator->httpPort(), target));
    const QJsonObject object = reply.json().object();

    QCOMPARE(object["bridgeid"].toString(), QString("ECB5FAFFFE0A1B2C"));
    QCOMPARE(object["name"].toString(), QString("Upstairs"));
    QCOMPARE(object["apiversion"].toString(), QString("1.48.0"));
    QCOMPARE(object["swversion"].toString(), QString("1948086000"));
    QCOMPARE(object["mac"].toString(), QString("ec:b5:fa:0a:1b:2c"));
    QCOMPARE(object["modelid"].toString(), QString("BSB002"));
    if (full) {
        QCOMPARE(object["zigbeechannel"].toInt(), 15);
        QCOMPARE(object["ipaddress"].toString(), QString("127.0.0.1"));
        QCOMPARE(object["whitelist"].toObject().keys(), QStringList{user});
    } else {
        QCOMPARE(keysOf(object),
                 sorted({"name", "datastoreversion", "swversion", "apiversion", "mac", "bridgeid",
                         "factorynew", "replacesbridgeid", "modelid", "starterkitid"}));
        QCOMPARE(object["factorynew"], QJsonValue(false));
        QVERIFY(object["replacesbridgeid"].isNull());
    }
}

void TestBridgeEmulatorApi::lightObjects_data()
{
    QTest::addColumn<QString>("lights");
    QTest::addColumn<QString>("type");
    QTest::addColumn<QStringList>("stateKeys");
    QTest::addColumn<QString>("colormode");
    QTest::addColumn<QString>("gamut");
    QTest::addColumn<int>("ctMin");
    QTest::addColumn<int>("ctMax");
    const QStringList dimmable{"on", "alert", "mode", "reachable", "bri"};
    const QStringList color{"hue", "sat", "effect", "xy", "colormode"};
    QTest::addRow("on/off") << "onoff"
                            << "On/Off plug-in unit" << QStringList(dimmable.mid(0, 4)) << ""
                            << "" << 0 << 0;
    QTest::addRow("dimmable") << "dimmable"
                              << "Dimmable light" << dimmable << ""
                              << "" << 0 << 0;
    QTest::addRow("colour temperature")
        << "ct"
        << "Color temperature light" << QStringList(dimmable + QStringList{"ct", "colormode"}) << "ct"
        << "" << 153 << 454;
    QTest::addRow("colour, gamut A") << "color"
                                     << "Color light" << QStringList(dimmable + color) << "xy"
                                     << "A" << 0 << 0;
    QTest::addRow("colour, gamut B") << "color-b"
                                     << "Color light" << QStringList(dimmable + color) << "xy"
                                     << "B" << 0 << 0;
    QTest::addRow("extended colour") << "extended"
                                     << "Extended color light" << QStringList(dimmable + QStringList{"ct"} + color) << "ct"
                                     << "C" << 153 << 500;
}

void TestBridgeEmulatorApi::lightObjects()
{
    QFETCH(QString, lights);
    QFETCH(QString, type);
    QFETCH(QStringList, stateKeys);
    QFETCH(QString, colormode);
    QFETCH(QString, gamut);
    QFETCH(int, ctMin);
    QFETCH(int, ctMax);
    EmulatorConfig config;
    std::string error;
    config.lights = *parseLightSet(lights.toStdString(), &error);
    const auto emulator = startEmulator(config);
    const QString user = QString::fromStdString(emulator->addUser());
    const QJsonObject all =
        m_client.get(httpUrl(emulator->httpPort(), "/api/" + user + "/lights")).json().object();
    QCOMPARE(all.keys(), QStringList{"1"});
    const QJsonObject light = all["1"].toObject();
    QCOMPARE(m_client.get(httpUrl(emulator->httpPort(), "/api/" + user + "/lights/1")).json().object(),
             light);

    QCOMPARE(light["type"].toString(), type);
    QVERIFY(!light["modelid"].toString().isEmpty());
    QVERIFY(!light["productname"].toString().isEmpty());
    QVERIFY(!light["swversion"].toString().isEmpty());
    QCOMPARE(light["manufacturername"].toString(), QString("Signify Netherlands B.V."));
    QVERIFY(QRegularExpression("^00:17:88:01(:[0-9a-f]{2}){4}-0b$")
                .match(light["uniqueid"].toString())
                .hasMatch());
    QVERIFY(light["config"]["startup"].isObject());
    const QJsonObject state = light["state"].toObject();
    QCOMPARE(keysOf(state), sorted(stateKeys));
    QCOMPARE(state["on"], QJsonValue(true)); // light 1 starts switched on
    QCOMPARE(state["reachable"], QJsonValue(true));
    QCOMPARE(state["colormode"].toString(), colormode);
    const QJsonObject control = light["capabilities"]["control"].toObject();
    QCOMPARE(control["colorgamuttype"].toString(), gamut);
    QCOMPARE(control["colorgamut"].toArray().size(), gamut.isEmpty() ? 0 : 3);
    QCOMPARE(control["ct"]["min"].toInt(), ctMin);
    QCOMPARE(control["ct"]["max"].toInt(), ctMax);
    if (state.contains("ct"))
        QVERIFY(state["ct"].toInt() >= ctMin && state["ct"].toInt() <= ctMax);
}

void TestBridgeEmulatorApi::stateChanges_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("initiallyOn");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("answer");     // "A" stands for the address prefix /lights/1/state/
    QTest::addColumn<QByteArray>("stateAfter"); // members the state must have afterwards
    const auto row = [](const char* name, const char* kind, bool on, const char* body,
                        const QByteArray& answer, const char* after) {
        QTest::addRow("%s", name) << kind << on << QByteArray(body) << answer << QByteArray(after);
    };
    const char* offError = R"({"error":{"type":201,"address":"Abri","description":)"
                           R"("parameter, bri, is not modifiable. Device is set to off."}})";
    row("extended: on, bri, ct in body order", "extended", false, R"({"ct":250,"on":true,"bri":100})",
        R"([{"success":{"Act":250}},{"success":{"Aon":true}},{"success":{"Abri":100}}])",
        R"({"on":true,"bri":100,"ct":250,"colormode":"ct"})");
    row("extended: xy wins over ct", "extended", true, R"({"xy":[0.3,0.3],"ct":300})",
        R"([{"success":{"Axy":[0.3,0.3]}},{"success":{"Act":300}}])", R"({"xy":[0.3,0.3],"colormode":"xy"})");
    row("extended: hue and saturation", "extended", true, R"({"hue":1000,"sat":200})",
        R"([{"success":{"Ahue":1000}},{"success":{"Asat":200}}])",
        R"({"hue":1000,"sat":200,"colormode":"hs"})");
    row("ct light: no xy, ct clamped", "ct", true, R"({"xy":[0.3,0.3],"ct":100})",
        R"([{"error":{"type":6,"address":"Axy","description":"parameter, xy, not available"}},)"
        R"({"success":{"Act":100}}])",
        R"({"ct":153,"colormode":"ct"})");
    row("dimmable: no ct, bri 0 becomes 1", "dimmable", true, R"({"bri":0,"ct":300})",
        R"([{"success":{"Abri":0}},{"error":{"type":6,"address":"Act","description":)"
        R"("parameter, ct, not available"}}])",
        R"({"bri":1})");
    row("on/off: no bri", "onoff", false, R"({"on":true,"bri":10})",
        R"([{"success":{"Aon":true}},{"error":{"type":6,"address":"Abri","description":)"
        R"("parameter, bri, not available"}}])",
        R"({"on":true})");
    row("off light: bri refused", "extended", false, R"({"bri":10})", QByteArray("[") + offError + "]",
        R"({"on":false,"bri":254})");
    row("switching off with other keys", "extended", true, R"({"on":false,"bri":10,"transitiontime":4})",
        QByteArray(R"([{"success":{"Aon":false}},)") + offError + R"(,{"success":{"Atransitiontime":4}}])",
        R"({"on":false,"bri":254})");
    row("invalid values", "extended", true, R"({"bri":"high","on":1,"alert":"blink"})",
        R"([{"error":{"type":7,"address":"Abri","description":"invalid value, high, for parameter, bri"}},)"
        R"({"error":{"type":7,"address":"Aon","description":"invalid value, 1, for parameter, on"}},)"
        R"({"error":{"type":7,"address":"Aalert","description":"invalid value, blink, for parameter, alert"}}])",
        R"({"on":true,"bri":254,"alert":"none"})");
    row("increments", "extended", true, R"({"bri_inc":-54,"ct_inc":1000})",
        R"([{"success":{"Abri_inc":-54}},{"success":{"Act_inc":1000}}])",
        R"({"bri":200,"ct":500,"colormode":"ct"})");
    row("colour light: xy clamped into gamut A", "color", true, R"({"xy":[0.8,0.2]})",
        R"([{"success":{"Axy":[0.8,0.2]}}])", R"({"xy":[0.704,0.296],"colormode":"xy"})");
    row("unknown parameter", "extended", true, R"({"scene":"abc"})",
        R"([{"error":{"type":6,"address":"Ascene","description":"parameter, scene, not available"}}])", "{}");
    row("empty body", "extended", true, "{}",
        R"([{"error":{"type":5,"address":"/lights/1/state","description":"invalid/missing parameters in body"}}])",
        "{}");
    row("malformed body", "extended", true, R"({"on":tru)",
        R"([{"error":{"type":2,"address":"/lights/1/state","description":"body contains invalid json"}}])",
        "{}");
}

void TestBridgeEmulatorApi::stateChanges()
{
    QFETCH(QString, kind);
    QFETCH(bool, initiallyOn);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, answer);
    QFETCH(QByteArray, stateAfter);
    EmulatorConfig config;
    std::string error;
    config.lights = *parseLightSet(kind.toStdString(), &error);
    const auto emulator = startEmulator(config);
    LightChange power;
    power.on = initiallyOn;
    emulator->setLightState("1", power);
    const QString user = QString::fromStdString(emulator->addUser());

    const TestReply reply =
        m_client.send("PUT", httpUrl(emulator->httpPort(), "/api/" + user + "/lights/1/state"), body);
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json(), QJsonDocument::fromJson(answer.replace("\"A", "\"/lights/1/state/")));
    const QJsonObject state =
        m_client.get(httpUrl(emulator->httpPort(), "/api/" + user + "/lights/1")).json()["state"].toObject();
    const QJsonObject expected = QJsonDocument::fromJson(stateAfter).object();
    for (auto it = expected.begin(); it != expected.end(); ++it)
        QCOMPARE(state.value(it.key()), it.value());
}

void TestBridgeEmulatorApi::errors_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path"); // "%1": a whitelisted user, "%2": a withdrawn one
    QTest::addColumn<QByteArray>("expected");
    const auto row = [](const char* name, const char* method, const QString& path, int type,
                        const char* address, const QString& description) {
        QTest::addRow("%s", name) << QByteArray(method) << path
                                  << QString(R"({"type":%1,"address":"%2","description":"%3"})")
                                         .arg(type)
                                         .arg(address, description)
                                         .toUtf8();
    };
    row("unknown user", "GET", "/api/nobody/lights", 1, "/lights", "unauthorized user");
    row("withdrawn user", "PUT", "/api/%2/lights/1/state", 1, "/lights/1/state", "unauthorized user");
    row("no user", "GET", "/api", 1, "/", "unauthorized user");
    for (const char* path : {"/lights/99", "/groups/42/action", "/cameras"})
        row(path, path[1] == 'g' ? "PUT" : "GET", QByteArray("/api/%1") + path, 3, path,
            QString("resource, %1, not available").arg(path));
    row("wrong method", "DELETE", "/api/%1/lights", 4, "/lights",
        "method, DELETE, not available for resource, /lights");
}

void TestBridgeEmulatorApi::errors()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, expected);
    const auto emulator = startEmulator();
    const std::string withdrawn = emulator->addUser();
    QVERIFY(emulator->deleteUser(withdrawn));
    const QString target = QString(path)
                               .replace("%1", QString::fromStdString(emulator->addUser()))
                               .replace("%2", QString::fromStdString(withdrawn));
    const TestReply reply = m_client.send(method, httpUrl(emulator->httpPort(), target),
                                          method == "PUT" ? QByteArray(R"({"on":true})") : QByteArray());
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.json().array().size(), 1);
    QCOMPARE(reply.json()[0]["error"].toObject(), QJsonDocument::fromJson(expected).object());
}

void TestBridgeEmulatorApi::groupAction()
{
    EmulatorConfig config;
    std::string error;
    config.lights = *parseLightSet("extended:1,dimmable:1,onoff:1", &error);
    config.defaultGroups = false;
    const auto emulator = startEmulator(config);
    const std::string groupId = emulator->addGroup("Hall", GroupType::Room, {"1", "2", "3", "77"});
    const QString user = QString::fromStdString(emulator->addUser());
    const QString groups = httpUrl(emulator->httpPort(), "/api/" + user + "/groups");

    const QJsonObject before = m_client.get(groups).json()[QString::fromStdString(groupId)].toObject();
    QCOMPARE(before["lights"].toArray(), QJsonArray({"1", "2", "3"}));
    QCOMPARE(before["type"].toString(), QString("Room"));
    QCOMPARE(before["state"].toObject(), QJsonObject({{"all_on", false}, {"any_on", true}}));

    const TestReply reply = m_client.send("PUT", groups + "/1/action", R"({"on":true,"bri":50,"ct":300})");
    QCOMPARE(reply.json(),
             json(R"([{"success":{"/groups/1/action/on":true}},{"success":{"/groups/1/action/bri":50}},)"
                  R"({"success":{"/groups/1/action/ct":300}}])"));
    QCOMPARE(emulator->light("1")->state.bri, 50);
    QCOMPARE(emulator->light("1")->state.ct, 300);
    QCOMPARE(emulator->light("2")->state.bri, 50);
    QVERIFY(emulator->light("3")->state.on);
    const QJsonObject after = m_client.get(groups + "/1").json().object();
    QCOMPARE(after["state"].toObject(), QJsonObject({{"all_on", true}, {"any_on", true}}));
    QCOMPARE(after["action"]["bri"].toInt(), 50);
    QCOMPARE(after["action"]["colormode"].toString(), QString("ct"));

    // Group 0 holds every light and is not listed among the groups.
    const QJsonObject all = m_client.get(groups + "/0").json().object();
    QCOMPARE(all["lights"].toArray(), QJsonArray({"1", "2", "3"}));
    QVERIFY(!m_client.get(groups).json().object().contains("0"));
    m_client.send("PUT", groups + "/0/action", R"({"on":false})");
    QVERIFY(!emulator->light("2")->state.on);
}

void TestBridgeEmulatorApi::renameAndWallSwitch()
{
    const auto emulator = startEmulator();
    const QString user = QString::fromStdString(emulator->addUser());
    const QString light = httpUrl(emulator->httpPort(), "/api/" + user + "/lights/2");
    QCOMPARE(m_client.send("PUT", light, R"({"name":"Desk"})").json(),
             json(R"([{"success":{"/lights/2/name":"Desk"}}])"));
    QCOMPARE(m_client.send("PUT", light, R"({"name":"123456789012345678901234567890123"})")
                 .json()[0]["error"]["type"]
                 .toInt(),
             7);
    QCOMPARE(m_client.get(light).json()["name"].toString(), QString("Desk"));

    LightChange wallSwitch;
    wallSwitch.on = true;
    wallSwitch.bri = 77;
    QVERIFY(emulator->setLightState("2", wallSwitch));
    QVERIFY(emulator->setLightReachable("2", false));
    const QJsonObject state = m_client.get(light).json()["state"].toObject();
    QCOMPARE(state["on"], QJsonValue(true));
    QCOMPARE(state["bri"].toInt(), 77);
    QCOMPARE(state["reachable"], QJsonValue(false));
    QVERIFY(!emulator->setLightState("99", wallSwitch));
}

void TestBridgeEmulatorApi::descriptionDocument()
{
    EmulatorConfig config;
    config.identity.name = "Hue & Co";
    config.identity.mac = "00:17:88:AB:CD:EF";
    const auto emulator = startEmulator(config);
    for (const QString& url : {httpUrl(emulator->httpPort(), "/description.xml"),
                               httpsUrl(emulator->httpsPort(), "/description.xml")}) {
        const TestReply reply = m_client.get(url);
        QCOMPARE(reply.status, 200);
        QDomDocument document;
        QVERIFY(document.setContent(reply.body, true));
        const QDomElement root = document.documentElement();
        QCOMPARE(root.namespaceURI(), QString("urn:schemas-upnp-org:device-1-0"));
        QCOMPARE(root.firstChildElement("URLBase").text(), httpUrl(emulator->httpPort(), "/"));
        const QDomElement device = root.firstChildElement("device");
        QCOMPARE(device.firstChildElement("deviceType").text(),
                 QString("urn:schemas-upnp-org:device:Basic:1"));
        QCOMPARE(device.firstChildElement("friendlyName").text(), QString("Hue & Co (127.0.0.1)"));
        QVERIFY(
            device.firstChildElement("modelName").text().contains("philips hue bridge", Qt::CaseInsensitive));
        QCOMPARE(device.firstChildElement("modelNumber").text(), QString("BSB002"));
        QCOMPARE(device.firstChildElement("serialNumber").text(), QString("001788abcdef"));
        QCOMPARE(device.firstChildElement("UDN").text(),
                 QString("uuid:2f402f80-da50-11e1-9b23-001788abcdef"));
    }
}

void TestBridgeEmulatorApi::certificateIsSelfSignedWithBridgeId()
{
    EmulatorConfig config;
    config.identity.bridgeId = "001788FFFE9ABCDE";
    const auto emulator = startEmulator(config);
    const TestReply reply = m_client.get(httpsUrl(emulator->httpsPort(), "/api/config"));
    QCOMPARE(reply.status, 200);
    // Exactly the two errors a client must accept for a bridge on first use.
    QCOMPARE(sorted({QString::number(QSslError::SelfSignedCertificate),
                     QString::number(QSslError::HostNameMismatch)}),
             [&] {
                 QStringList codes;
                 for (int code : reply.sslErrors)
                     codes << QString::number(code);
                 return sorted(codes);
             }());
    const QSslCertificate certificate = reply.peerCertificate;
    QCOMPARE(certificate.subjectInfo(QSslCertificate::CommonName), QStringList{"001788fffe9abcde"});
    QCOMPARE(certificate.subjectInfo(QSslCertificate::Organization), QStringList{"Philips Hue"});
    QCOMPARE(certificate.subjectInfo(QSslCertificate::CountryName), QStringList{"NL"});
    QVERIFY(certificate.isSelfSigned());
    QCOMPARE(certificate.publicKey().algorithm(), QSsl::Ec);
    QCOMPARE(certificate.toPem(), QByteArray::fromStdString(emulator->certificatePem()));
}

void TestBridgeEmulatorApi::requestRecord()
{
    EmulatorConfig config;
    config.requestLogLimit = 3;
    const auto emulator = startEmulator(config);
    const QString user = QString::fromStdString(emulator->addUser());
    m_client.get(httpUrl(emulator->httpPort(), "/api/config"));
    m_client.get(httpUrl(emulator->httpPort(), "/emulator/requests")); // not recorded
    m_client.send("PUT", httpsUrl(emulator->httpsPort(), "/api/" + user + "/lights/1/state?x=1"),
                  R"({"on":true})");
    m_client.get(httpUrl(emulator->httpPort(), "/nowhere"));
    m_client.send("POST", httpUrl(emulator->httpPort(), "/api"), R"({"devicetype":"a#b"})");

    const std::vector<RecordedRequest> requests = emulator->requests();
    QCOMPARE(requests.size(), std::size_t(3)); // bounded: the oldest one is gone
    QCOMPARE(requests[0].sequence, std::uint64_t(2));
    QCOMPARE(QString::fromStdString(requests[0].method), QString("PUT"));
    QCOMPARE(QString::fromStdString(requests[0].target), "/api/" + user + "/lights/1/state?x=1");
    QCOMPARE(QString::fromStdString(requests[0].body), QString(R"({"on":true})"));
    QCOMPARE(QString::fromStdString(requests[0].scheme), QString("https"));
    QCOMPARE(requests[0].port, emulator->httpsPort());
    QCOMPARE(requests[0].status, 200);
    bool hasContentType = false;
    for (const auto& [name, value] : requests[0].headers)
        hasContentType = hasContentType || (name == "Content-Type" && value == "application/json");
    QVERIFY(hasContentType);
    QCOMPARE(requests[1].status, 404);
    QCOMPARE(QString::fromStdString(requests[2].scheme), QString("http"));
    QCOMPARE(requests[2].sequence, std::uint64_t(4));

    // Cleared over the control API.
    QCOMPARE(m_client.send("DELETE", httpUrl(emulator->httpPort(), "/emulator/requests")).status, 200);
    QVERIFY(emulator->requests().empty());
}

QTEST_MAIN(TestBridgeEmulatorApi)
#include "tst_bridgeemulator_api.moc"
