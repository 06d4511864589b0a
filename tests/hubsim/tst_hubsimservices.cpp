#include "hubsimtestclients.h"

#include <backendservice.h>
#include <communicationservice.h>
#include <controlservice.h>
#include <datapointids.h>
#include <diagnosisservice.h>
#include <hubeventlog.h>
#include <hubsimulator.h>
#include <supervisor.h>
#include <systemservice.h>

#include <common/messaging/socketadaptorwithping.h>

#include <common/logginginterface.h>

#include <QtTest>

// hubsim's services in-process, with clients over real local sockets.
class TestHubsimServices : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { setDetailedLoggingEnabled(qEnvironmentVariableIsSet("HUBSIM_TEST_DEBUG")); }
    void init();
    void cleanup();

    void registrationShowsDataPointsWithTheirIndexes();
    void unusableDescriptionIsNotReady();
    void reportsOfTheDeviceAreRecorded();
    void writeReachesTheDeviceAndItsConfirmationIsRecorded_data();
    void writeReachesTheDeviceAndItsConfirmationIsRecorded();
    void clientThatComesBackKeepsWorking();
    void discoverySignalsReachWatchers();
    void heartbeatAndSupportInfoAreRecorded();
    void supervisorRunsStagesAndStartsOverAfterARestart();

private:
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<HubSimulator> m_hub;
};

namespace {

const InternalId kDevice(0xBEED, 0x00010001);

QVariantMap onlyDevice(HubSimulator& hub)
{
    const QVariantList devices = hub.control()->devices();
    return devices.size() == 1 ? devices.first().toMap() : QVariantMap();
}

} // namespace

void TestHubsimServices::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    HubSimOptions options;
    options.socketDir = m_dir->path();
    options.supervisorRetryMs = 20;
    m_hub = std::make_unique<HubSimulator>(options);
    QString error;
    QVERIFY2(m_hub->start(&error), qPrintable(error));
}

void TestHubsimServices::cleanup()
{
    m_hub.reset();
    m_dir.reset();
}

void TestHubsimServices::registrationShowsDataPointsWithTheirIndexes()
{
    TestDevice device(m_dir->path());
    device.registerDevice(kDevice, kLightDescription);
    QTRY_COMPARE(device.ready.size(), 1);
    QCOMPARE(device.ready.first().first, kDevice);
    QVERIFY(device.ready.first().second);

    const QVariantMap shown = onlyDevice(*m_hub);
    QCOMPARE(shown.value("id").toString(), QStringLiteral("BEED00010001"));
    QCOMPARE(shown.value("client").toString(), QStringLiteral("testdevice"));
    QStringList points;
    for (const QVariant& p : shown.value("dataPoints").toList()) {
        const QVariantMap point = p.toMap();
        points << point.value("id").toString() + ' ' + point.value("name").toString();
    }
    QCOMPARE(points,
             (QStringList{"BEED00010001/ch0000/idp0000 switch", "BEED00010001/ch0000/idp0001 brightness",
                          "BEED00010001/ch0000/idp0002 idp2", "BEED00010001/ch0000/odp0000 state",
                          "BEED00010001/ch0000/odp0001 dimming value",
                          "BEED00010001/ch0000/pm0000 switchOnMode"}));
}

void TestHubsimServices::unusableDescriptionIsNotReady()
{
    TestDevice device(m_dir->path());
    device.registerDevice(kDevice, "<device><channels>");
    QTRY_COMPARE(device.ready.size(), 1);
    QVERIFY(!device.ready.first().second);
    QVERIFY(!onlyDevice(*m_hub).value("descriptionValid").toBool());
}

void TestHubsimServices::reportsOfTheDeviceAreRecorded()
{
    TestDevice device(m_dir->path());
    device.registerDevice(kDevice, kLightDescription);
    const InternalId output = datapointids::idFor(kDevice, DataPointInfo::Output, 1);
    device.hub().call(SocketInterface::NoBlock, "sendDataPoint", output, QStringLiteral("42"));
    device.hub().call(SocketInterface::NoBlock, "sendDeviceUnresponsive", kDevice);
    device.hub().call(SocketInterface::NoBlock, "sendAttribute", kDevice, QStringLiteral("room"),
                      QStringLiteral("Hall"));

    QTRY_VERIFY(m_hub->communication()->registry().device(kDevice) &&
                m_hub->communication()->registry().device(kDevice)->attributes.contains("room"));
    const RegisteredDevice* recorded = m_hub->communication()->registry().device(kDevice);
    QCOMPARE(recorded->values.value(output).value, QStringLiteral("42"));
    QVERIFY(recorded->unresponsive);

    device.hub().call(SocketInterface::NoBlock, "sendLifeSign", kDevice);
    QTRY_VERIFY(recorded->lastLifeSign.isValid());
    QVERIFY(!recorded->unresponsive); // a life sign means it answers again
}

void TestHubsimServices::writeReachesTheDeviceAndItsConfirmationIsRecorded_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<int>("index");
    QTest::addColumn<int>("answer");

    QTest::addRow("by name, accepted") << "switch" << 0 << 0;
    QTest::addRow("by index, accepted") << "1" << 1 << 0;
    QTest::addRow("by short form, refused") << "idp2" << 2 << 2;
}

void TestHubsimServices::writeReachesTheDeviceAndItsConfirmationIsRecorded()
{
    QFETCH(QString, key);
    QFETCH(int, index);
    QFETCH(int, answer);

    TestDevice device(m_dir->path());
    device.confirmResult = answer;
    device.registerDevice(kDevice, kLightDescription);
    QTRY_COMPARE(device.ready.size(), 1);

    // Two writes: tokens must differ, and each confirmation lands on its own write.
    const auto first = m_hub->communication()->writeDataPoint("beed00010001", key, "1");
    const auto second = m_hub->communication()->writeDataPoint("BEED00010001", key, "0");
    QVERIFY2(first.ok, qPrintable(first.error));
    QCOMPARE(first.subscribers, 1);
    QVERIFY(second.token != first.token);
    QVERIFY(first.token != 0);

    QTRY_COMPARE(device.writes.size(), 2);
    QCOMPARE(device.writes[0].id, datapointids::idFor(kDevice, DataPointInfo::Input, index));
    QCOMPARE(device.writes[0].value, QStringLiteral("1"));
    QCOMPARE(device.writes[0].token, first.token);
    QCOMPARE(device.writes[1].token, second.token);

    const WriteTracker& writes = m_hub->communication()->writes();
    QTRY_VERIFY(writes.find(second.token)->result.has_value());
    QCOMPARE(writes.find(first.token)->result, std::optional<int>(answer));
    QCOMPARE(writes.find(second.token)->value, QStringLiteral("0"));
}

void TestHubsimServices::clientThatComesBackKeepsWorking()
{
    QSignalSpy events(m_hub->events(), &HubEventLog::posted);
    auto device = std::make_unique<TestDevice>(m_dir->path());
    device->registerDevice(kDevice, kLightDescription);
    QTRY_COMPARE(device->ready.size(), 1);
    device->hub().call(SocketInterface::NoBlock, "sendDataPoint",
                       datapointids::idFor(kDevice, DataPointInfo::Output, 0), QStringLiteral("1"));
    QTRY_VERIFY(!m_hub->communication()->registry().device(kDevice)->values.isEmpty());

    device.reset(); // the service stops (or crashes) ...
    QTRY_VERIFY(std::any_of(events.cbegin(), events.cend(), [](const QList<QVariant>& e) {
        return e.first().toMap().value("kind") == "clientDisconnected";
    }));

    device = std::make_unique<TestDevice>(m_dir->path()); // ... and comes back
    device->registerDevice(kDevice, kLightDescription);
    QTRY_COMPARE(device->ready.size(), 1);
    QVERIFY(std::any_of(events.cbegin(), events.cend(), [](const QList<QVariant>& e) {
        return e.first().toMap().value("kind") == "clientReconnected";
    }));
    const QVariantMap shown = onlyDevice(*m_hub);
    QCOMPARE(shown.value("registrations").toInt(), 2);
    QVERIFY(shown.value("dataPoints").toList().at(3).toMap().value("hasValue").toBool()); // kept

    QVERIFY(m_hub->communication()->writeDataPoint("BEED00010001", "switch", "1").ok);
    QTRY_COMPARE(device->writes.size(), 1);
}

void TestHubsimServices::discoverySignalsReachWatchers()
{
    DiscoveryWatcher watcher(m_dir->path());
    // Watches with the argument types the Hue service sends: string literals become QString.
    watcher.system().call(SocketInterface::NoBlock, "watchMDNSServiceType", "_hue._tcp", "huecontroller");
    watcher.system().call(SocketInterface::NoBlock, "watchSSDPNotificationType", "upnp:rootdevice",
                          "hue_controller");
    QTRY_COMPARE(m_hub->system()->watches().size(), 2);

    SystemService& system = *m_hub->system();
    const auto announced = system.mdnsService(true, "_hue._tcp", "Hue Bridge", "hue.local", "127.0.0.1", 8443,
                                              {"bridgeid=001788fffe123456"});
    QVERIFY(announced.ok && announced.watched);
    QCOMPARE(announced.subscribers, 1);
    QTRY_COMPARE(watcher.mdns.size(), 1);
    QCOMPARE(watcher.mdns[0],
             (QVariantList{true, QByteArray("_hue._tcp"), QByteArray("Hue Bridge"), QByteArray("local"),
                           QByteArray("hue.local"), 8443, QByteArray("127.0.0.1"),
                           QStringList{"bridgeid=001788fffe123456"}}));

    system.ssdpDevice(SystemService::SsdpKind::Alive, "http://127.0.0.1:80/description.xml", "uuid:1",
                      "001788FFFE123456", 100, "upnp:rootdevice");
    system.ssdpDevice(SystemService::SsdpKind::ByeBye, "http://127.0.0.1:80/description.xml", "uuid:1",
                      "001788FFFE123456", 100, "upnp:rootdevice");
    system.ssdpDevice(SystemService::SsdpKind::Expired, "http://127.0.0.1:80/description.xml", "uuid:1",
                      "001788FFFE123456", 100, "upnp:rootdevice");
    QTRY_COMPARE(watcher.expired.size(), 1);
    QCOMPARE(watcher.ssdp.size(), 2);
    QCOMPARE(watcher.ssdp[0].first().toBool(), true);
    QCOMPARE(watcher.ssdp[1].first().toBool(), false);
    using Headers = QMap<QString, QString>;
    const auto headers = watcher.ssdp[0].at(3).value<Headers>();
    QCOMPARE(headers.value("LOCATION"), QStringLiteral("http://127.0.0.1:80/description.xml"));
    QCOMPARE(headers.value("USN"), QStringLiteral("uuid:1"));
    QCOMPARE(headers.value("HUE-BRIDGEID"), QStringLiteral("001788FFFE123456"));
    QCOMPARE(watcher.expired[0].at(1).value<Headers>(), headers);

    watcher.system().call(SocketInterface::NoBlock, "unwatchSSDPNotificationType", "upnp:rootdevice",
                          "hue_controller");
    QTRY_COMPARE(m_hub->system()->watches().size(), 1);
}

void TestHubsimServices::heartbeatAndSupportInfoAreRecorded()
{
    SocketAdaptorWithPing service("com.orlux.tamsa.huecontroller");
    QVERIFY(service.connectToDiagnosis(SocketConnection::LocalSocket, m_dir->path()));
    service.setHealth(7);
    QVERIFY(service.sendHeartbeat());
    QTRY_COMPARE(m_hub->diagnosis()->pings().size(), 1);
    QCOMPARE(m_hub->diagnosis()->pings()[0].toMap().value("module").toString(), service.getModuleName());
    QCOMPARE(m_hub->diagnosis()->pings()[0].toMap().value("health").toInt(), 7);

    SocketInterface backend(SocketConnection::LocalSocket, "com.orlux.tamsa.backend", m_dir->path());
    backend.call(SocketInterface::NoBlock, "submitSupportInfo", "com.orlux.tamsa.huecontroller",
                 QByteArray("lights: 3"));
    QTRY_COMPARE(m_hub->backend()->submissions().size(), 1);
    QCOMPARE(m_hub->backend()->submissions()[0].toMap().value("info").toString(),
             QStringLiteral("lights: 3"));
}

void TestHubsimServices::supervisorRunsStagesAndStartsOverAfterARestart()
{
    QTemporaryDir dir;
    HubSimOptions options;
    options.socketDir = dir.path();
    options.supervise = true;
    options.supervisorRetryMs = 20;
    HubSimulator hub(options);
    QVERIFY(hub.start());

    auto service = std::make_unique<FakeHueController>(); // appears after the hub: retried
    QVERIFY(service->startLocalServer(dir.path()));
    QTRY_COMPARE(service->stages, (QList<int>{0, 3, 1}));

    service.reset(); // a restart of the service
    service = std::make_unique<FakeHueController>();
    QVERIFY(service->startLocalServer(dir.path()));
    QTRY_COMPARE(service->stages, (QList<int>{0, 3, 1}));

    QSignalSpy finished(&hub, &HubSimulator::finished);
    hub.shutdown();
    QVERIFY(finished.wait());
    QCOMPARE(service->stages, (QList<int>{0, 3, 1, 2}));
}

QTEST_GUILESS_MAIN(TestHubsimServices)
#include "tst_hubsimservices.moc"
