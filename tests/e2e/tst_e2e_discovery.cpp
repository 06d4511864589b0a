// Bridges found the two ways the hub reports them (mDNS and SSDP), paired with the link button,
// and every light type registered with its own description; announcements that are wrong in
// some way admit nothing and break nothing.
#include "huesystem.h"

#include <QDomDocument>
#include <QFile>
#include <QtTest>

using namespace e2e;

namespace {

// "input:Switch,input:Timed start/stop,...,output:...,parameter:..." of a description file, in
// the hub's index order.
QString dataPointsOfFile(const QString& fileName)
{
    QFile file(QStringLiteral(HUE_CONST_DATA_DIR "/hue/") + fileName);
    QDomDocument document;
    if (!file.open(QIODevice::ReadOnly) || !document.setContent(&file))
        return "unreadable " + fileName;
    QStringList points;
    const QDomElement channel = document.documentElement().firstChildElement("channels").firstChildElement();
    for (const char* list : {"inputs", "outputs", "parameters"}) {
        const QString direction = QString::fromLatin1(list).chopped(1);
        for (QDomElement e = channel.firstChildElement(list).firstChildElement(); !e.isNull();
             e = e.nextSiblingElement())
            points << direction + ':' + e.attribute("name");
    }
    return points.join(',');
}

QString dataPointsOfDevice(const QJsonObject& device)
{
    QStringList points;
    for (const QJsonValue& point : device["dataPoints"].toArray())
        points << point["direction"].toString() + ':' + point["name"].toString();
    return points.join(',');
}

} // namespace

class TestE2EDiscovery : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void mdnsPairsAndRegistersEveryLightType_data();
    void mdnsPairsAndRegistersEveryLightType();
    void lightGroupsBecomeDevices_data();
    void lightGroupsBecomeDevices();
    void ssdpFindsASecondBridge();
    void wrongAnnouncementsAdmitNothing_data();
    void wrongAnnouncementsAdmitNothing();
    void cleanupTestCase();

private:
    HueSystem m_system;
    EmulatorProcess* m_first = nullptr;
    QJsonArray m_devices;
    int m_probes = 0;
};

void TestE2EDiscovery::initTestCase()
{
    QVERIFY(m_system.start());
    // Groups become devices too once the hub switches them on; the emulator's default groups
    // are two rooms and a group of the colour lights.
    QCOMPARE(m_system.hub().hubctl({"config", "set", "hue/useGroups", "1"}).exitCode, 0);
    m_first = m_system.addBridge({"--lights", "extended:1,color:1,ct:1,dimmable:1,onoff:1"});
    QVERIFY(m_first);
    QVERIFY(m_system.announceByMdns(*m_first));
    QVERIFY(m_system.pairWhenAsked(*m_first));
    m_devices = m_system.waitForDevices(5 + 3);
    QVERIFY(!m_devices.isEmpty());
}

void TestE2EDiscovery::mdnsPairsAndRegistersEveryLightType_data()
{
    QTest::addColumn<QString>("type");        // the emulator's v1 type
    QTest::addColumn<QString>("description"); // the file whose datapoints the device must have
    QTest::addRow("on/off") << "On/Off plug-in unit"
                            << "hue-onoff.xml";
    QTest::addRow("dimmable") << "Dimmable light"
                              << "hue-dimmable.xml";
    QTest::addRow("colour temperature") << "Color temperature light"
                                        << "hue-w.xml";
    QTest::addRow("colour") << "Color light"
                            << "hue-rgb.xml";
    QTest::addRow("extended colour") << "Extended color light"
                                     << "hue-rgb-ww.xml";
}

void TestE2EDiscovery::mdnsPairsAndRegistersEveryLightType()
{
    QFETCH(QString, type);
    QFETCH(QString, description);
    QJsonObject light;
    for (const QJsonValue& candidate : m_first->lights()) {
        if (candidate["type"].toString() == type)
            light = candidate.toObject();
    }
    QVERIFY(!light.isEmpty());
    const QString serial = HueSystem::serialOf(m_devices, light["name"].toString());
    QVERIFY2(!serial.isEmpty(), qPrintable(light["name"].toString()));
    const QJsonObject device = m_system.hub().device(serial);
    QVERIFY(device["descriptionValid"].toBool());
    QCOMPARE(dataPointsOfDevice(device), dataPointsOfFile(description));
    QCOMPARE(device["attributes"]["hueModelId"].toString(), light["modelid"].toString());
}

void TestE2EDiscovery::lightGroupsBecomeDevices_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("description");
    // The first half of the lights form one room, the rest the other.
    QTest::addRow("extended colour, colour, colour temperature") << "Living room"
                                                                 << "group-rgb-ww.xml";
    QTest::addRow("dimmable, on/off") << "Kitchen"
                                      << "group-dimmable.xml";
    QTest::addRow("extended colour, colour") << "Colour lights"
                                             << "group-rgb-ww.xml";
}

void TestE2EDiscovery::lightGroupsBecomeDevices()
{
    QFETCH(QString, name);
    QFETCH(QString, description);
    const QString serial = HueSystem::serialOf(m_devices, name);
    QVERIFY(!serial.isEmpty());
    QCOMPARE(dataPointsOfDevice(m_system.hub().device(serial)), dataPointsOfFile(description));
}

void TestE2EDiscovery::ssdpFindsASecondBridge()
{
    EmulatorProcess* second =
        m_system.addBridge({"--bridge-id", "ECB5FAFFFE0A1B2C", "--lights", "dimmable:2", "--no-groups"});
    QVERIFY(second);
    QVERIFY(m_system.announceBySsdp(*second));
    // The description document first, then the bridge's own word on who it is.
    QVERIFY(waitFor(
        [&] { return !second->requests("GET", QRegularExpression("^/description.xml$")).isEmpty(); }));
    QVERIFY(m_system.pairWhenAsked(*second));
    QVERIFY(!second->requests("GET", QRegularExpression("^/api/config$")).isEmpty());

    // Its lights get serials of a short id of their own.
    const QJsonArray all = m_system.waitForDevices(m_devices.size() + 2);
    QVERIFY(!all.isEmpty());
    QSet<QString> shortIds;
    for (const QJsonValue& device : all)
        shortIds << device["id"].toString().mid(4, 4);
    QCOMPARE(shortIds.size(), 2);
}

void TestE2EDiscovery::wrongAnnouncementsAdmitNothing_data()
{
    QTest::addColumn<QStringList>("hubctl");
    QTest::addColumn<QString>("bridgeId");
    const QString id = "001788fffe00beef";
    QTest::addRow("mDNS: TXT without bridgeid=")
        << QStringList{"mdns", "announce", "Hue", "127.0.0.1", "PORT", "modelid=BSB002", "bridgeid"} << id;
    QTest::addRow("mDNS: bridgeid in capitals")
        << QStringList{"mdns", "announce", "Hue", "127.0.0.1", "PORT", "BRIDGEID=" + id} << id;
    QTest::addRow("mDNS: link-local address")
        << QStringList{"mdns", "announce", "Hue", "fe80::1", "PORT", "bridgeid=" + id} << id;
    QTest::addRow("mDNS: another service type")
        << QStringList{"mdns", "announce",       "Hue",    "127.0.0.1",
                       "PORT", "bridgeid=" + id, "--type", "_http._tcp"}
        << id;
    QTest::addRow("mDNS: withdrawn") << QStringList{"mdns",      "remove", "Hue",
                                                    "127.0.0.1", "PORT",   "bridgeid=" + id}
                                     << id;
    QTest::addRow("SSDP: empty headers") << QStringList{"ssdp", "announce", "", "", ""} << "";
    QTest::addRow("SSDP: byebye") << QStringList{"ssdp", "byebye", "http://127.0.0.1:PORT/description.xml",
                                                 "uuid:x", id}
                                  << id;
    QTest::addRow("SSDP: location that is no URL")
        << QStringList{"ssdp", "announce", "not a location", "uuid:y", "001788fffe00cafe"}
        << "001788fffe00cafe";
}

void TestE2EDiscovery::wrongAnnouncementsAdmitNothing()
{
    QFETCH(QStringList, hubctl);
    QFETCH(QString, bridgeId);
    EmulatorProcess* decoy = m_system.addBridge({"--lights", "onoff:1", "--no-groups"});
    QVERIFY(decoy);
    hubctl.replaceInStrings("PORT", QString::number(decoy->httpPort()));
    QCOMPARE(m_system.hub().hubctl(hubctl).exitCode, 0);

    // A proper announcement afterwards is handled: so the wrong one had its turn before it.
    // (A bridge id of its own each time: a bridge known already is not identified again.)
    const QString probeId = QStringLiteral("001788FFFE00F0%1").arg(++m_probes, 2, 10, QChar('0'));
    EmulatorProcess* probe =
        m_system.addBridge({"--bridge-id", probeId, "--lights", "onoff:1", "--no-groups"});
    QVERIFY(probe);
    QVERIFY(m_system.announceByMdns(*probe));
    QVERIFY(waitFor([&] { return !probe->requests("GET", QRegularExpression("^/api/config$")).isEmpty(); }));
    QCOMPARE(decoy->requests().size(), 0);
    QVERIFY(m_system.service().process().isRunning());
    if (!bridgeId.isEmpty())
        QCOMPARE(m_system.service().logMessages(QRegularExpression("^registered bridge " + bridgeId)),
                 QStringList());
    QVERIFY(probe->interrupt());
    QVERIFY(decoy->interrupt());
}

void TestE2EDiscovery::cleanupTestCase()
{
    QVERIFY(m_system.service().interrupt());
    QCOMPARE(m_system.service().alarmingLines(), QStringList());
}

QTEST_GUILESS_MAIN(TestE2EDiscovery)
#include "tst_e2e_discovery.moc"
