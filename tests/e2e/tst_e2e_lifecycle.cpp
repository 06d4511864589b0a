// The service's life as the hub's supervisor sees it: start-up through the run stages with their
// heartbeats, a repeated stage, the stop stage at the hub's shutdown, SIGINT, and restarts that
// keep every device serial, also after the bridge was deleted on the hub.
#include "huesystem.h"

#include <QtTest>

using namespace e2e;

class TestE2ELifecycle : public QObject
{
    Q_OBJECT

private slots:
    void startStagesAndStop();
    void restartsKeepDeviceSerials();
};

void TestE2ELifecycle::startStagesAndStop()
{
    HueSystem system;
    QVERIFY(system.start());
    ServiceProcess& service = system.service();
    HubSimProcess& hub = system.hub();

    // "start", the crash counter 0 and the process id, from main's fixed source line.
    const QStringList start =
        service.process().errorLines(QRegularExpression("^-- hue_main\\.cpp +80 \\d+ start 0 \\d+$"));
    QCOMPARE(start.size(), 1);
    const QString pid = QString::number(service.process().pid());
    QVERIFY2(start.first().endsWith(QStringLiteral(" %1 start 0 %1").arg(pid)), qPrintable(start.first()));

    // Each accepted stage answers with a heartbeat to the diagnosis service.
    QCOMPARE(service.logMessages(QRegularExpression("^got run signal \\d+$")),
             QStringList({"got run signal 0", "got run signal 3", "got run signal 1"}));
    QVERIFY(waitFor([&] { return hub.pingCount() == 3; }));
    const QJsonObject ping = hub.hubctl({"pings"}).array().first().toObject();
    QCOMPARE(ping["module"].toString(), QStringLiteral("com.orlux.tamsa.huecontroller"));

    // The same stage again is refused: answered, but no heartbeat.
    const HubctlAnswer again = hub.hubctl({"stage", "1"});
    QCOMPARE(again.exitCode, 0);
    QVERIFY(service.waitForLogMessage(QRegularExpression("^received same run stage twice")));
    QCOMPARE(hub.pingCount(), 3);

    // hubsim's shutdown sends stage 2 and waits for its answer; the service keeps running.
    QVERIFY(hub.interrupt());
    QCOMPARE(service.logMessages(QRegularExpression("^got run signal 2$")).size(), 1);
    QVERIFY(service.process().isRunning());

    QVERIFY(service.interrupt());
    QCOMPARE(service.alarmingLines(), QStringList());
}

void TestE2ELifecycle::restartsKeepDeviceSerials()
{
    HueSystem system;
    QVERIFY(system.start());
    EmulatorProcess* bridge = system.addBridge({"--lights", "dimmable:1,onoff:1", "--no-groups"});
    QVERIFY(bridge);
    QVERIFY(system.announceByMdns(*bridge));
    QVERIFY(system.pairWhenAsked(*bridge));
    const QJsonArray first = system.waitForDevices(2);
    QVERIFY(!first.isEmpty());
    QStringList serials;
    for (const QJsonValue& device : first)
        serials << device["id"].toString();

    // Registered again after each restart (the hub keeps a device's values and counts its
    // registrations); the serials are the same and nothing else registers. Nothing is announced
    // again: the hub's mDNS browser reports the services it knows to the restarted service's
    // new watch, as a real one does.
    auto restartService = [&](int startCount) {
        return system.service().interrupt() && system.service().start() && waitFor([&] {
                   return system.service().logMessages(QRegularExpression("^got run signal 1$")).size() ==
                          startCount;
               });
    };
    auto registeredAgain = [&](int registrations) {
        return waitFor([&] {
            QStringList found;
            for (const QJsonValue& device : system.hub().devices()) {
                if (device["registrations"].toInt() == registrations)
                    found << device["id"].toString();
            }
            return found == serials;
        });
    };

    // A plain restart: the stored key is used again, no pairing.
    QVERIFY(bridge->clearRequests());
    QVERIFY(restartService(2));
    QVERIFY(registeredAgain(2));
    QCOMPARE(bridge->requests("POST", QRegularExpression("^/api/?$")).size(), 0);
    QCOMPARE(bridge->userNames().size(), 1);

    // Deleted on the hub: found again after the restart, it is paired anew and its lights keep
    // their serials.
    const HubctlAnswer deleted =
        system.hub().hubctl({"config", "set", "hueBridges/" + bridge->bridgeId().toLower(), "delete"});
    QCOMPARE(deleted.exitCode, 0);
    QVERIFY(restartService(3));
    QVERIFY(system.pairWhenAsked(*bridge));
    QVERIFY(registeredAgain(3));
    QCOMPARE(bridge->userNames().size(), 2);
    QCOMPARE(system.service().alarmingLines(), QStringList());
}

QTEST_GUILESS_MAIN(TestE2ELifecycle)
#include "tst_e2e_lifecycle.moc"
