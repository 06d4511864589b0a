#include "hubsimtestclients.h"

#include <controlservice.h>
#include <datapointids.h>
#include <devicedescription.h>
#include <hubsimulator.h>

#include <systemservice.h>

#include <QtTest>

namespace {

// "announce NAME PORT [TYPE]" or "remove NAME [TYPE]" through the control service, as hubctl does.
void announce(HubSimulator& hub, const QString& step)
{
    const QStringList words = step.split(' ');
    const bool added = words[0] == "announce";
    const QString type = words.value(added ? 3 : 2, "_hue._tcp");
    const QVariantMap answer =
        hub.control()->mdns(added, type, words[1], words[1].toLower() + ".local", "127.0.0.1",
                            added ? words[2].toInt() : 0, {"bridgeid=001788fffe123456"});
    QVERIFY(answer.value("ok").toBool());
}

// Waits until `browser` has heard everything hubsim sent it so far: a last announcement of
// `type` goes out after the replay and arrives behind it; it is taken off again.
void settle(HubSimulator& hub, TestBrowser& browser, const QString& type)
{
    QTRY_VERIFY(hub.system()->isWatched("mdns", type));
    QTRY_COMPARE(hub.system()->pendingReplayCount(), 0);
    announce(hub, "announce Marker 1 " + type);
    QTRY_VERIFY(!browser.heard.isEmpty() && browser.heard.last().contains("|Marker|"));
    browser.heard.removeLast();
}

QByteArray channelXml(const QByteArray& content)
{
    return "<device><channels><channel>" + content + "</channel></channels></device>";
}

// "i0:1:switch" = input, index 0, function id 1, name "switch"
QStringList summary(const DeviceDescription& description)
{
    QStringList out;
    for (const DataPointInfo& p : description.dataPoints())
        out << QStringLiteral("%1%2:%3:%4")
                   .arg(DataPointInfo::directionName(p.direction).left(1))
                   .arg(p.index)
                   .arg(p.functionId)
                   .arg(p.name);
    return out;
}

} // namespace

// Device descriptions as the simulated hub reads them, the identifiers it gives datapoints, a
// device whose description it cannot use, and the system service's mDNS browser.
class TestHubsimDevices : public QObject
{
    Q_OBJECT
private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("xml");
        QTest::addColumn<bool>("valid");
        QTest::addColumn<QStringList>("points");
        QTest::addColumn<int>("warnings");

        QTest::addRow("full description, names from name and label, else short form")
            << kLightDescription << true
            << QStringList{"i0:1:switch",  "i1:17:brightness",     "i2:22:idp2",
                           "o0:256:state", "o1:272:dimming value", "p0:37:switchOnMode"}
            << 0;
        QTest::addRow("ids with and without 0x, an unreadable one keeps its index")
            << channelXml(
                   R"(<inputs><dataPoint pairingId="1A"/><dataPoint pairingId="zz"/><dataPoint pairingId="0x11"/></inputs>)")
            << true << QStringList{"i0:26:idp0", "i1:-1:idp1", "i2:17:idp2"} << 1;
        QTest::addRow("only the first channel counts")
            << QByteArray(R"(<d><channels><channel><inputs><dataPoint pairingId="1"/></inputs></channel>)"
                          R"(<channel><inputs><dataPoint pairingId="2"/></inputs></channel></channels></d>)")
            << true << QStringList{"i0:1:idp0"} << 1;
        QTest::addRow("no channel") << QByteArray("<device><channels/></device>") << false << QStringList{}
                                    << 0;
        QTest::addRow("not XML") << QByteArray("<device><channels>") << false << QStringList{} << 0;
    }

    void parse()
    {
        QFETCH(QByteArray, xml);
        QFETCH(bool, valid);
        QFETCH(QStringList, points);
        QFETCH(int, warnings);

        const DeviceDescription description = DeviceDescription::parse(xml);
        QCOMPARE(description.isValid(), valid);
        QCOMPARE(description.error().isEmpty(), valid);
        QCOMPARE(summary(description), points);
        QCOMPARE(description.warnings().size(), warnings);
    }

    void resolve_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<bool>("parameters"); // look among parameters instead of inputs
        QTest::addColumn<int>("index");       // -1: not found

        QTest::addRow("index") << "1" << false << 1;
        QTest::addRow("name, any case") << "BRIGHTNESS" << false << 1;
        QTest::addRow("short form, decimal") << "idp2" << false << 2;
        QTest::addRow("short form, identifier hex") << "idp0002" << false << 2;
        QTest::addRow("an output's name is no input") << "state" << false << -1;
        QTest::addRow("parameter by name") << "switchonmode" << true << 0;
    }

    void resolve()
    {
        QFETCH(QString, key);
        QFETCH(bool, parameters);
        QFETCH(int, index);

        const DeviceDescription description = DeviceDescription::parse(kLightDescription);
        QString error;
        const DataPointInfo* point =
            description.resolve({parameters ? DataPointInfo::Parameter : DataPointInfo::Input}, key, &error);
        QCOMPARE(point ? point->index : -1, index);
        QCOMPARE(error.isEmpty(), index >= 0);
    }

    void identifiersRoundTrip()
    {
        const InternalId device(0xBEED, 0x00010005);
        QCOMPARE(datapointids::idFor(device, DataPointInfo::Input, 10).toString(),
                 QByteArray("BEED00010005/ch0000/idp000A"));
        QCOMPARE(datapointids::idFor(device, DataPointInfo::Parameter, 2).toString(),
                 QByteArray("BEED00010005/ch0000/pm0002"));
        for (auto direction : {DataPointInfo::Input, DataPointInfo::Output, DataPointInfo::Parameter}) {
            const auto address = datapointids::addressOf(datapointids::idFor(device, direction, 7));
            QVERIFY(address);
            QCOMPARE(address->direction, direction);
            QCOMPARE(address->index, 7);
        }
        QVERIFY(
            !datapointids::addressOf(InternalId::makeInputDataPointSerial(device, 1, 0))); // another channel
    }

    void unusableDescriptionIsNotReady()
    {
        QTemporaryDir dir;
        HubSimulator hub(HubSimOptions{dir.path()});
        QVERIFY(hub.start());
        TestDevice device(dir.path());
        device.registerDevice(InternalId(0xBEED, 0x00010001), "<device><channels>");
        QTRY_COMPARE(device.ready.size(), 1);
        QVERIFY(!device.ready.first().second);
        QVERIFY(!hub.control()->devices().first().toMap().value("descriptionValid").toBool());
    }

    void watchHearsTheServicesAlreadyKnown_data()
    {
        QTest::addColumn<QStringList>("before"); // announcements before the watch
        QTest::addColumn<QStringList>("heard");  // name:port of each service heard at the watch
        QTest::addRow("none") << QStringList{} << QStringList{};
        QTest::addRow("every known one, in order") << QStringList{"announce Hall 443", "announce Attic 8443"}
                                                   << QStringList{"Hall:443", "Attic:8443"};
        QTest::addRow("a removed one is forgotten")
            << QStringList{"announce Hall 443", "announce Attic 80", "remove Hall"}
            << QStringList{"Attic:80"};
        QTest::addRow("announced again: the newest address")
            << QStringList{"announce Hall 443", "announce Hall 8443"} << QStringList{"Hall:8443"};
        QTest::addRow("only the watched type")
            << QStringList{"announce Printer 631 _ipp._tcp", "announce Hall 443"} << QStringList{"Hall:443"};
    }

    void watchHearsTheServicesAlreadyKnown()
    {
        QFETCH(QStringList, before);
        QFETCH(QStringList, heard);
        QTemporaryDir dir;
        HubSimulator hub(HubSimOptions{dir.path()});
        QVERIFY(hub.start());
        for (const QString& step : before)
            announce(hub, step);

        TestBrowser browser(dir.path());
        browser.watch("_hue._tcp");
        settle(hub, browser, "_hue._tcp");
        QStringList got;
        for (const QString& signal : browser.heard) {
            const QStringList fields = signal.split('|');
            QCOMPARE(fields.mid(0, 5),
                     (QStringList{"added", "_hue._tcp", fields[2], "local", fields[2].toLower() + ".local"}));
            QCOMPARE(fields.mid(6), (QStringList{"127.0.0.1", "bridgeid=001788fffe123456"}));
            got << fields[2] + ':' + fields[5];
        }
        QCOMPARE(got, heard);
    }

    void onlyTheNewWatcherHearsTheKnownServicesAgain()
    {
        QTemporaryDir dir;
        HubSimulator hub(HubSimOptions{dir.path()});
        QVERIFY(hub.start());
        TestBrowser early(dir.path(), "early");
        early.watch("_hue._tcp");
        settle(hub, early, "_hue._tcp");
        announce(hub, "announce Hall 443");
        QTRY_COMPARE(early.heard.size(), 1);

        {
            // A service restarted after the announcement: a new connection, the same watch.
            TestBrowser restarted(dir.path(), "restarted");
            restarted.watch("_hue._tcp");
            QTRY_COMPARE(restarted.heard.size(), 2); // the marker and the bridge
            QVERIFY(restarted.heard.last().startsWith("added|_hue._tcp|Hall|"));
        }
        announce(hub, "remove Hall");
        QTRY_COMPARE(early.heard.size(), 2);
        QVERIFY(early.heard.last().startsWith("removed|_hue._tcp|Hall|"));
        QVERIFY(hub.system()->knownServices().size() == 1); // the marker alone
    }
};

QTEST_GUILESS_MAIN(TestHubsimDevices)
#include "tst_hubsimdevices.moc"
