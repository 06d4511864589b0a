#include "hubsimtestclients.h"

#include <datapointids.h>
#include <devicedescription.h>
#include <writetracker.h>

#include <QtTest>

// Device descriptions as the simulated hub reads them, and the identifiers it gives datapoints.
class TestHubsimDevices : public QObject
{
    Q_OBJECT

private slots:
    void parse_data();
    void parse();
    void resolve_data();
    void resolve();
    void identifiersRoundTrip();
    void tokensStartAtOneAndOldWritesAreForgotten();
};

namespace {

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

void TestHubsimDevices::parse_data()
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
    QTest::addRow("other elements in the lists are not counted")
        << channelXml(
               R"(<outputs><note/><dataPoint pairingId="0x100"/><comment/><dataPoint pairingId="0x111"/></outputs>)")
        << true << QStringList{"o0:256:odp0", "o1:273:odp1"} << 0;
    QTest::addRow("only the first channel counts")
        << QByteArray(R"(<d><channels><channel><inputs><dataPoint pairingId="1"/></inputs></channel>)"
                      R"(<channel><inputs><dataPoint pairingId="2"/></inputs></channel></channels></d>)")
        << true << QStringList{"i0:1:idp0"} << 1;
    QTest::addRow("no channel") << QByteArray("<device><channels/></device>") << false << QStringList{} << 0;
    QTest::addRow("not XML") << QByteArray("<device><channels>") << false << QStringList{} << 0;
}

void TestHubsimDevices::parse()
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

void TestHubsimDevices::resolve_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("parameters"); // look among parameters instead of inputs
    QTest::addColumn<int>("index");       // -1: not found

    QTest::addRow("index") << "1" << false << 1;
    QTest::addRow("name, any case") << "BRIGHTNESS" << false << 1;
    QTest::addRow("short form, decimal") << "idp2" << false << 2;
    QTest::addRow("short form, identifier hex") << "idp0002" << false << 2;
    QTest::addRow("an output's name is no input") << "state" << false << -1;
    QTest::addRow("index past the end") << "3" << false << -1;
    QTest::addRow("parameter by name") << "switchonmode" << true << 0;
    QTest::addRow("input short form is no parameter") << "idp0" << true << -1;
}

void TestHubsimDevices::resolve()
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

void TestHubsimDevices::identifiersRoundTrip()
{
    const InternalId device(0xBEED, 0x00010005);
    QCOMPARE(datapointids::idFor(device, DataPointInfo::Input, 10).toString(),
             QByteArray("BEED00010005/ch0000/idp000A"));
    QCOMPARE(datapointids::idFor(device, DataPointInfo::Output, 1).toString(),
             QByteArray("BEED00010005/ch0000/odp0001"));
    QCOMPARE(datapointids::idFor(device, DataPointInfo::Parameter, 2).toString(),
             QByteArray("BEED00010005/ch0000/pm0002"));
    for (auto direction : {DataPointInfo::Input, DataPointInfo::Output, DataPointInfo::Parameter}) {
        const auto address = datapointids::addressOf(datapointids::idFor(device, direction, 7));
        QVERIFY(address);
        QCOMPARE(address->direction, direction);
        QCOMPARE(address->index, 7);
    }
    QVERIFY(!datapointids::addressOf(InternalId::makeInputDataPointSerial(device, 1, 0))); // another channel
    QVERIFY(!datapointids::addressOf(device));
}

void TestHubsimDevices::tokensStartAtOneAndOldWritesAreForgotten()
{
    WriteTracker tracker;
    const InternalId id(0xBEED, 1);
    const QDateTime now = QDateTime::currentDateTime();
    const int first = tracker.start(id, QStringLiteral("1"), now);
    QCOMPARE(first, 1);
    for (int i = 0; i < WriteTracker::kKeep; ++i)
        tracker.start(id, QString::number(i), now);
    QVERIFY(!tracker.confirm(first, 0, now)); // evicted
    const WriteTracker::Write* last = tracker.confirm(first + WriteTracker::kKeep, 2, now);
    QVERIFY(last);
    QCOMPARE(last->result, std::optional<int>(2));
    QVERIFY(!tracker.confirm(0, 0, now));
}

QTEST_GUILESS_MAIN(TestHubsimDevices)
#include "tst_hubsimdevices.moc"
