#include "hubsimtestclients.h"

#include <backendservice.h>
#include <communicationservice.h>
#include <controlservice.h>
#include <datapointids.h>
#include <hubeventlog.h>
#include <hubsimulator.h>
#include <supervisor.h>

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

    void unusableDescriptionIsNotReady();
    void clientThatComesBackKeepsWorking();
    void supportInfoIsRecorded();
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

void TestHubsimServices::unusableDescriptionIsNotReady()
{
    TestDevice device(m_dir->path());
    device.registerDevice(kDevice, "<device><channels>");
    QTRY_COMPARE(device.ready.size(), 1);
    QVERIFY(!device.ready.first().second);
    QVERIFY(!onlyDevice(*m_hub).value("descriptionValid").toBool());
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

void TestHubsimServices::supportInfoIsRecorded()
{
    // Heartbeats are read back by the end-to-end tests; support info is not.
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
