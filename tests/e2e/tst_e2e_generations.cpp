// The newest bridge generation, as a person's home has it: HTTPS only with a certificate chain
// from an authority (here the emulator's test authority, trusted through the service's
// development setting), found by mDNS only; identified, paired and moved to CLIP API version 2
// without a single plain request, and its certificate renewed or replaced later.
#include "huesystem.h"

#include <QFile>
#include <QtTest>

using namespace e2e;

class TestE2EGenerations : public QObject
{
    Q_OBJECT

private slots:
    void httpsOnlyBridgeOn443();
    void bridgeThatRedirectsPlainHttp();

private:
    // A pro-generation bridge with these extra options, the service trusting its authority, the
    // bridge announced on `announcedPort` (0: its shared port), paired and on version 2 with its
    // lights registered.
    EmulatorProcess* pairedProBridge(HueSystem& system, const QStringList& options, int announcedPort);
    static QStringList schemes(EmulatorProcess& bridge);
    static bool cutConnections(EmulatorProcess& bridge);
};

EmulatorProcess* TestE2EGenerations::pairedProBridge(HueSystem& system, const QStringList& options,
                                                     int announcedPort)
{
    const QString authority = system.dir() + QStringLiteral("/authority.pem");
    EmulatorProcess* bridge =
        system.addBridge(QStringList{"--api", "v2", "--generation", "pro", "--write-authority", authority,
                                     "--lights", "extended:1,dimmable:1", "--no-groups"} +
                         options);
    if (!bridge || !QFile::exists(authority))
        return nullptr;
    system.service().setSetting(QStringLiteral("debug/extraTrustedRoots"), authority);
    const int port = announcedPort > 0 ? announcedPort : bridge->sharedPort();
    const bool paired = system.start() && system.hub().announceBridge(port, bridge->bridgeId()) &&
                        system.pairWhenAsked(*bridge) &&
                        system.service().waitForLogMessage(QRegularExpression("switches to API version 2")) &&
                        !system.waitForDevices(2).isEmpty();
    if (!paired)
        qWarning("the pro bridge was not paired; the service's log:\n%s",
                 qPrintable(system.service().log().right(4000)));
    return paired ? bridge : nullptr;
}

QStringList TestE2EGenerations::schemes(EmulatorProcess& bridge)
{
    QStringList found;
    for (const BridgeRequest& request : bridge.requests())
        if (!found.contains(request.scheme))
            found << request.scheme;
    return found;
}

bool TestE2EGenerations::cutConnections(EmulatorProcess& bridge)
{
    // New connections see a changed certificate; the service's open ones are cut.
    return bridge.control("POST", "/emulator/refuse", R"({"ms":300})")["ok"].toBool();
}

void TestE2EGenerations::httpsOnlyBridgeOn443()
{
    HueSystem system;
    EmulatorProcess* bridge = pairedProBridge(system, {"--https-port", "443", "--http-closed"}, 443);
    QVERIFY(bridge);
    const QString serial =
        HueSystem::serialOf(system.hub().devices(), bridge->lights().first()["name"].toString());
    QVERIFY(!serial.isEmpty());
    const QJsonObject written = system.hub().write(serial, "Dimming value", "30");
    QVERIFY(!written.isEmpty());
    QVERIFY(waitFor(
        [&] { return !bridge->requests("PUT", QRegularExpression("^/clip/v2/resource/light/")).isEmpty(); }));
    QCOMPARE(schemes(*bridge), QStringList{"https"});
    ServiceProcess& service = system.service();
    QVERIFY(service.logMessages(QRegularExpression("got SSL errors in request without bridge ID")).isEmpty());

    // Renewed by the authority: pinned anew, said once, the bridge stays paired.
    const QString stateKey = "hueBridges/" + bridge->bridgeId().toLower();
    QVERIFY(bridge->renewCertificate() && cutConnections(*bridge));
    QVERIFY(
        service.waitForLogMessage(QRegularExpression("was renewed by its authority; pinning the new one")));
    QTest::qWait(2000); // more requests on new connections
    QCOMPARE(service.logMessages(QRegularExpression("was renewed by its authority")).size(), 1);
    QCOMPARE(system.hub().configValue(stateKey), QStringLiteral("paired"));

    // A certificate for another bridge from the same authority never passes for this one.
    QVERIFY(bridge->replaceCertificate("001788fffe0000aa", false) && cutConnections(*bridge));
    QVERIFY(service.waitForLogMessage(QRegularExpression("issued for 001788fffe0000aa - refused")));
    QVERIFY(bridge->restoreCertificate());

    // A self-signed stranger: refused once, the state "error" written once.
    QVERIFY(bridge->replaceCertificate(bridge->bridgeId().toLower(), true) && cutConnections(*bridge));
    QVERIFY(service.waitForLogMessage(QRegularExpression("unexpected cert change on bridge")));
    QVERIFY(waitFor([&] { return system.hub().configValue(stateKey) == QLatin1String("error"); }));
    QTest::qWait(3000);
    QCOMPARE(service.logMessages(QRegularExpression("unexpected cert change on bridge")).size(), 1);
    QCOMPARE(service.alarmingLines(), QStringList());
}

void TestE2EGenerations::bridgeThatRedirectsPlainHttp()
{
    HueSystem system;
    EmulatorProcess* bridge = pairedProBridge(system, {"--shared-port"}, 0);
    QVERIFY(bridge);
    QVERIFY(!system.service()
                 .logMessages(QRegularExpression("redirects plain http - identifying it over https"))
                 .isEmpty());
    // The one plain request is the redirected identification.
    const QList<BridgeRequest> all = bridge->requests();
    int plain = 0;
    for (const BridgeRequest& request : all)
        plain += request.scheme == QLatin1String("http");
    QCOMPARE(plain, 1);
    QCOMPARE(system.service().alarmingLines(), QStringList());
}

QTEST_GUILESS_MAIN(TestE2EGenerations)
#include "tst_e2e_generations.moc"
