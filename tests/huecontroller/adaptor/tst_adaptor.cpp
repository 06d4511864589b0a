// The Hue service adaptor against the simulated hub, in-process: run stages, the hub signals it
// forwards or drops, the output value cache, network stability and mDNS announcements.
#include "huecontroller/hue_adaptor.h"
#include "huecontroller/hue_clock.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_upnplistener.h"

#include "logcapture.h"

#include <hubeventlog.h>
#include <hubsimulator.h>
#include <systemservice.h>

#include "common/configcache.h"
#include "common/messaging/socketinterface.h"

#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include <iterator>
#include <memory>

using hue::HueAdaptor;

class TestAdaptor : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();

    void runStages();
    void stageZeroWithoutHub();
    void ownPrefixOnly();
    void outputValueCache();
    void colourOutputsAreHexadecimal();
    void networkStability();
    void mdnsAnnouncements_data();
    void mdnsAnnouncements();
    void forcedBridgeIds_data();
    void forcedBridgeIds();
    void debugCommandMessages_data();
    void debugCommandMessages();

private:
    // Every call event of the given kind the hub has seen since init().
    QList<QVariantMap> hubEvents(const QString& kind) const;
    void runUpTo(int lastStage);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<HubSimulator> m_hub;
    std::unique_ptr<hue::CController> m_controller;
    std::unique_ptr<HueAdaptor> m_adaptor;
    QList<QVariantMap> m_events;
};

void TestAdaptor::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QSettings database(QStringLiteral("vorn"), QStringLiteral("database"));
    database.setValue(QStringLiteral("socketDir"), m_dir->path());
    database.setValue(QStringLiteral("socketType"), QStringLiteral("local"));
    database.sync();

    HubSimOptions options;
    options.socketDir = m_dir->path();
    m_hub = std::make_unique<HubSimulator>(options);
    QVERIFY(m_hub->start());
    m_events.clear();
    connect(m_hub->events(), &HubEventLog::posted, this,
            [this](const QVariantMap& e) { m_events.append(e); });

    m_controller = std::make_unique<hue::CController>();
    m_adaptor = std::make_unique<HueAdaptor>();
    m_adaptor->setController(m_controller.get());
}

void TestAdaptor::cleanup()
{
    m_adaptor.reset();
    m_controller.reset();
    m_hub.reset();
    m_dir.reset();
}

QList<QVariantMap> TestAdaptor::hubEvents(const QString& kind) const
{
    QList<QVariantMap> found;
    for (const QVariantMap& e : m_events) {
        if (e.value(QStringLiteral("kind")).toString() == kind)
            found.append(e);
    }
    return found;
}

void TestAdaptor::runUpTo(int lastStage)
{
    for (int stage : {0, 3, 1}) {
        m_adaptor->run(stage);
        if (stage == lastStage)
            break;
    }
}

void TestAdaptor::runStages()
{
    LogCapture log;
    m_adaptor->run(0);
    QCOMPARE(m_adaptor->currentStage(), 0);
    QVERIFY(m_adaptor->communicationService() && m_adaptor->databaseService() && m_adaptor->systemService());
    QTRY_COMPARE(hubEvents("ping").size(), 1);
    QCOMPARE(hubEvents("ping").first().value("module").toString(),
             QStringLiteral("com.orlux.tamsa.huecontroller"));

    // A repeated stage is refused without a heartbeat.
    m_adaptor->run(0);
    QVERIFY(log.contains("received same run stage twice"));

    m_adaptor->run(3);
    QVERIFY(ConfigCache::instance()->isReady());
    QVERIFY(m_adaptor->upnpListener() && m_adaptor->upnpListener()->isWatching());
    QTRY_VERIFY(m_hub->system()->isWatched(QStringLiteral("ssdp"),
                                           QStringLiteral("urn:schemas-upnp-org:device:basic:1")));

    m_adaptor->run(1);
    QVERIFY(m_adaptor->isRunning());
    QVERIFY(m_controller->isStarted());
    QTRY_VERIFY(m_hub->system()->isWatched(QStringLiteral("mdns"), QStringLiteral("_hue._tcp")));
    QTRY_COMPARE(hubEvents("ping").size(), 3);

    m_adaptor->run(1);
    QCOMPARE(log.count("received same run stage twice"), 2);
    QTest::qWait(50);
    QCOMPARE(hubEvents("ping").size(), 3);

    m_adaptor->run(2);
    QVERIFY(!m_adaptor->isRunning());
    QVERIFY(!m_controller->isStarted());
    QVERIFY(!m_adaptor->upnpListener());
    QVERIFY(!m_adaptor->communicationService());
}

void TestAdaptor::stageZeroWithoutHub()
{
    m_hub.reset();
    LogCapture log;
    m_adaptor->run(0);
    QVERIFY(log.contains("Cannot connect to service com.orlux.tamsa.communication"));
    QVERIFY(!m_adaptor->communicationService() && !m_adaptor->systemService());
    QCOMPARE(m_adaptor->currentStage(), -1);
}

void TestAdaptor::ownPrefixOnly()
{
    runUpTo(0);
    // A write for another prefix is dropped silently: no confirmation, no log of a lookup.
    LogCapture log;
    m_adaptor->onDataPointValueChanged(InternalId::makeInputDataPointSerial(0xABCD, 0x10001, 0, 0), "1", 5);
    QVERIFY(!log.contains("Invalid"));
    // An own but unknown device is refused with result 2; token 0 gets no confirmation.
    m_adaptor->onDataPointValueChanged(InternalId::makeInputDataPointSerial(0xBEED, 0x70001, 0, 0), "1", 7);
    m_adaptor->onDataPointValueChanged(InternalId::makeInputDataPointSerial(0xBEED, 0x70001, 0, 0), "1", 0);
    QTRY_COMPARE(hubEvents("confirmDataPointValueChanged").size(), 1);
    QTest::qWait(50);
    const QList<QVariantMap> confirmations = hubEvents("confirmDataPointValueChanged");
    QCOMPARE(confirmations.size(), 1);
    QCOMPARE(confirmations.first().value("token").toInt(), 7);
    QCOMPARE(confirmations.first().value("result").toInt(), 2);
}

void TestAdaptor::outputValueCache()
{
    runUpTo(0);
    const InternalId light = InternalId::makeDeviceSerial(0xBEED, 0x20003);
    const InternalId onOff = InternalId::makeOutputDataPointSerial(light, 0, 0);
    const InternalId level = InternalId::makeOutputDataPointSerial(light, 0, 1);
    const InternalId otherLight = InternalId::makeOutputDataPointSerial(0xBEED, 0x20004, 0, 0);

    for (const InternalId& id : {onOff, onOff, level, otherLight})
        m_adaptor->emitSendDatapointValue(id, QStringLiteral("1"));
    QTRY_COMPARE(hubEvents("sendDataPoint").size(), 3);

    // Forgetting one device's values sends its next values again, and only its values.
    m_adaptor->uncacheDeviceDatapoints(light);
    QCOMPARE(m_adaptor->datapointCache().size(), 1);
    for (const InternalId& id : {onOff, otherLight})
        m_adaptor->emitSendDatapointValue(id, QStringLiteral("1"));
    QTRY_COMPARE(hubEvents("sendDataPoint").size(), 4);
    QTest::qWait(50);
    QCOMPARE(hubEvents("sendDataPoint").size(), 4);

    // Registering a device starts it from an empty cache as well.
    m_adaptor->emitRegisterDevice(otherLight.toDeviceId(), QByteArray("<device/>"));
    QVERIFY(!m_adaptor->datapointCache().contains(otherLight));
}

void TestAdaptor::colourOutputsAreHexadecimal()
{
    runUpTo(0);
    LogCapture log;
    const InternalId light = InternalId::makeDeviceSerial(0xBEED, 0x20005);
    const struct
    {
        hue::EOutputDatapoint datapoint;
        const char* decimal;
        const char* sent;
    } rows[] = {
        {hue::ODP_INFO_HSV_COLOR, "255", "000000ff"},        {hue::ODP_INFO_RGB_COLOR, "255", "0000ff"},
        {hue::ODP_INFO_RGB_COLOR, "16777215", "ffffff"},     {hue::ODP_INFO_HSV_COLOR, "0", "00000000"},
        {hue::ODP_INFO_RGB_COLOR, "4294967295", "ffffffff"}, {hue::ODP_INFO_HSV_COLOR, "12ab", "12ab"},
        {hue::ODP_INFO_ACTUAL_DIMMING_VALUE, "255", "255"},
    };
    quint8 index = 0;
    for (const auto& row : rows) {
        const InternalId id = InternalId::makeOutputDataPointSerial(light, 0, index++);
        m_adaptor->emitSendDatapointValue(id, QString::fromLatin1(row.decimal), row.datapoint);
    }
    QTRY_COMPARE(hubEvents("sendDataPoint").size(), int(std::size(rows)));
    for (int i = 0; i < int(std::size(rows)); ++i)
        QCOMPARE(hubEvents("sendDataPoint").at(i).value("value").toString(),
                 QString::fromLatin1(rows[i].sent));
    QVERIFY(log.contains("colour value is not a number, sent as it is: 12ab"));
}

void TestAdaptor::networkStability()
{
    LogCapture log;
    QVERIFY(!m_adaptor->hasStableNetwork()); // starts as a failure (4)
    QVERIFY(log.contains("Last network event indicates failure: 4"));

    m_adaptor->onNetworkEvent(3, "up");
    QVERIFY(!m_adaptor->hasStableNetwork());
    QVERIFY(log.contains("Last network events indicates success but this was only"));
    hue::Clock::advance(HueAdaptor::kStableNetworkMs + 1);
    QVERIFY(m_adaptor->hasStableNetwork());

    m_adaptor->onNetworkEvent(9, "bogus");
    QCOMPARE(m_adaptor->lastNetworkEvent(), 4);
    QVERIFY(log.contains("Invalid network event, handle as error: 9"));
    hue::Clock::advance(HueAdaptor::kStableNetworkMs + 1);
    QVERIFY(!m_adaptor->hasStableNetwork());
}

void TestAdaptor::mdnsAnnouncements_data()
{
    QTest::addColumn<bool>("running");
    QTest::addColumn<bool>("added");
    QTest::addColumn<QByteArray>("type");
    QTest::addColumn<QByteArray>("address");
    QTest::addColumn<QStringList>("txt");
    QTest::addColumn<bool>("admitted");

    const QStringList txt{"modelid=BSB002", "bridgeid=001788fffe6a3b2c"};
    QTest::addRow("announced") << true << true << QByteArray("_hue._tcp") << QByteArray("127.0.0.1") << txt
                               << true;
    QTest::addRow("before stage 1") << false << true << QByteArray("_hue._tcp") << QByteArray("127.0.0.1")
                                    << txt << false;
    QTest::addRow("removed") << true << false << QByteArray("_hue._tcp") << QByteArray("127.0.0.1") << txt
                             << false;
    QTest::addRow("other type") << true << true << QByteArray("_hap._tcp") << QByteArray("127.0.0.1") << txt
                                << false;
    QTest::addRow("link-local") << true << true << QByteArray("_hue._tcp") << QByteArray("fe80::1") << txt
                                << false;
    QTest::addRow("no bridge id") << true << true << QByteArray("_hue._tcp") << QByteArray("127.0.0.1")
                                  << QStringList{"modelid=BSB002", "BridgeID=001788fffe6a3b2c"} << false;
    QTest::addRow("empty bridge id") << true << true << QByteArray("_hue._tcp") << QByteArray("127.0.0.1")
                                     << QStringList{"bridgeid="} << false;
}

void TestAdaptor::mdnsAnnouncements()
{
    QFETCH(bool, running);
    QFETCH(bool, added);
    QFETCH(QByteArray, type);
    QFETCH(QByteArray, address);
    QFETCH(QStringList, txt);
    QFETCH(bool, admitted);

    runUpTo(running ? 1 : 3);
    // Port 9 (discard) has nobody listening on loopback: the identification fails soon after,
    // but the admission has started by then.
    m_adaptor->onMDNSServiceChanged(added, type, "Hue Bridge", "local", "bridge.local", 9, address, txt);
    QCOMPARE(m_controller->isAdmissionLocked(), admitted);
}

void TestAdaptor::forcedBridgeIds_data()
{
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QByteArray>("id");
    // Each character gives its low four bits; past the end and above 255 give 0.
    QTest::addRow("http") << "http://127.0.0.1:8080" << QByteArray("8440aff127e0e0e1a808000000000000");
    QTest::addRow("long") << QString(40, QLatin1Char('k')) << QByteArray(32, 'b');
    QTest::addRow("wide") << QStringLiteral("\u20ac1") << QByteArray("01000000000000000000000000000000");
}

void TestAdaptor::forcedBridgeIds()
{
    QFETCH(QString, entry);
    QFETCH(QByteArray, id);
    QCOMPARE(HueAdaptor::forcedBridgeId(entry), id);
}

void TestAdaptor::debugCommandMessages_data()
{
    QTest::addColumn<QString>("datapoint");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("answer");
    QTest::addRow("keyword") << "dim"
                             << "1"
                             << "Invalid datapoint dim, must be one of on, ct, bri, sat, hue, hsv, rgb";
    QTest::addRow("on") << "on"
                        << "2"
                        << "on must be 0 or 1";
    QTest::addRow("bri") << "bri"
                         << "101"
                         << "bri must be an float value between 0..100";
    QTest::addRow("sat") << "sat"
                         << "x"
                         << "sat must be an float value between 0..100";
    QTest::addRow("hue") << "hue"
                         << "-1"
                         << "hue must be an float value between 0..100";
    QTest::addRow("ct") << "ct"
                        << ""
                        << "ct must be a double value between 0..100";
    QTest::addRow("hsv") << "hsv"
                         << "12345"
                         << "hsv must be a 32 bit hex value (hhhhssbb)";
    QTest::addRow("no bridge") << "on"
                               << "1"
                               << "Bridge not found";
}

void TestAdaptor::debugCommandMessages()
{
    QFETCH(QString, datapoint);
    QFETCH(QString, value);
    QFETCH(QString, answer);
    QCOMPARE(m_adaptor->debugSetDP(7, "1", datapoint, value, 0), answer);
}

QTEST_MAIN(TestAdaptor)
#include "tst_adaptor.moc"
