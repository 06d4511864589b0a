#include <kovacommon/internalid.h>

#include <QDataStream>
#include <QHash>
#include <QMap>
#include <QtTest>

// Readable failure output for QCOMPARE on identifiers.
char* toString(const InternalId& id)
{
    return qstrdup(id.toLoggingString().constData());
}

namespace {
using Id = InternalId;
const Id device(0xBEED, 0x00010005);
const Id channel1 = Id::makeChannelSerial(device, 1);

} // namespace

class TestInternalId : public QObject
{
    Q_OBJECT

private slots:
    void parse_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<Id>("expected"); // an invalid expectation only checks that the result is invalid
        QTest::addColumn<QByteArray>("warning");
        const auto row = [](const QByteArray& text, const Id& expected, const QByteArray& warning = {}) {
            QTest::addRow("%s", text.isEmpty() ? "empty" : text.toPercentEncoding("/").constData())
                << text << expected << warning;
        };
        const QByteArray small = "Tried to construct an InternalId from to small string: ";
        row("BEED00010005", device);
        row("BEED00010005/ch0001", channel1);
        row("BEED00010005/ch0001/idp0002", Id::makeInputDataPointSerial(device, 1, 2));
        row("beed0001000a/ch00ff/odp00ff", Id::makeOutputDataPointSerial(0xBEED, 0x0001000A, 0xFF, 0xFF));
        row("BEED00010005/pm0003", Id::makeDeviceParameterSerial(device, 3));
        row("BEED00010005/xy0004", Id::makeDeviceParameterSerial(device, 4));
        row("BEED0001000", {}, small + "BEED0001000");
        row("", {}, small);
        row("BEED00010005/ch0001/xyz0002", {}, "unknown component type BEED00010005/ch0001/xyz0002");
        for (const char* text :
             {"BEEG00010005", "0xED00010005", "BEED00010005X", "BEED0001/ch0001", "BEED00010005/",
              "BEED00010005/ch001", "BEED00010005/ch00012", "BEED00010005/ch00x1",
              "BEED00010005/ch0001/idp000Z", "BEED00010005/ch0001/idp0100", "BEED00010005/ch0001/sc00021",
              "BEED00010005/chZZZZ/idp0002", "BEED00010005/ch0001/idp0002/x", "BEED0001000\xC3\xA9"})
            row(text, {});
        row(QByteArray("BEED00010005/ch0001").replace(8, 1, QByteArray(1, '\0')), {});
    }

    void parse()
    {
        QFETCH(QByteArray, text);
        QFETCH(Id, expected);
        QFETCH(QByteArray, warning);
        if (!warning.isNull())
            QTest::ignoreMessage(QtWarningMsg, warning.constData());
        const Id id(text);
        QCOMPARE(id.toString(), text);
        if (expected.isValid())
            QCOMPARE(id, expected);
        else
            QCOMPARE(int(id.getKind()), 255);
    }

    void roundTrip_data()
    {
        QTest::addColumn<Id>("id");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QByteArray>("wire");
        const auto row = [](const char* name, const Id& id, const QByteArray& text, const QByteArray& wire) {
            QTest::addRow("%s", name) << id << text << wire;
        };
        const Id otherChannel = Id::makeChannelSerial(0xBEED, 0x00010005, 9);
        row("device", Id::makeDeviceSerial(channel1), "BEED00010005", "01EDBE05000100000000");
        row("channel", Id::makeChannelSerial(otherChannel, 1), "BEED00010005/ch0001", "02EDBE05000100010000");
        row("device parameter", Id::makeDeviceParameterSerial(device, 3), "BEED00010005/pm0003",
            "03EDBE05000100030000");
        row("channel parameter", Id::makeChannelParameterSerial(0x1234, 0xDEADBEEF, 0xABCD, 0x7F),
            "1234DEADBEEF/chABCD/pm007F", "043412EFBEADDECDAB7F");
        row("input datapoint", Id::makeInputDataPointSerial(otherChannel, 1, 2),
            "BEED00010005/ch0001/idp0002", "05EDBE05000100010002");
        row("output datapoint", Id::makeOutputDataPointSerial(0xFFFF, 0xFFFFFFFF, 0xFFFF, 0xFF),
            "FFFFFFFFFFFF/chFFFF/odp00FF", "06FFFFFFFFFFFFFFFFFF");
        row("timer sensor", Id::makeChannelTimerSensorSerial(device, 2, 1), "BEED00010005/ch0002/tms0001",
            "0BEDBE05000100020001");
        // Kinds without a factory: the text built from the fields must match the parsed one.
        row("sc", Id("BEED00010005/ch0001/sc0003"), "BEED00010005/ch0001/sc0003", "07EDBE05000100010003");
        row("fn", Id("BEED00010005/ch0001/fn0003"), "BEED00010005/ch0001/fn0003", "08EDBE05000100010003");
        row("tma", Id("BEED00010005/ch0001/tma0003"), "BEED00010005/ch0001/tma0003", "0CEDBE05000100010003");
    }

    void roundTrip()
    {
        QFETCH(Id, id);
        QFETCH(QByteArray, text);
        QCOMPARE(id.toString(), text);
        QCOMPARE(Id::fromString(text), id);
        QCOMPARE(Id() = text, id);

        QByteArray bytes(Id::WireSize, '\0');
        id.writeWire(bytes.data());
        QTEST(bytes.toHex().toUpper(), "wire");
        const Id fromWire = Id::readWire(bytes.constData());
        QCOMPARE(fromWire, id);
        QCOMPARE(fromWire.toString(), text); // built from the fields, nothing cached

        QByteArray stored;
        QDataStream out(&stored, QIODevice::WriteOnly);
        out << id;
        QDataStream in(stored);
        Id fromStream;
        in >> fromStream;
        QCOMPARE(in.status(), QDataStream::Ok);
        QCOMPARE(fromStream, id);
        stored.chop(1);
        QDataStream truncated(stored);
        truncated >> fromStream;
        QVERIFY(!fromStream.isValid());
    }

    void wireFormRepairsOrRefuses()
    {
        // An unknown kind is refused; fields that the kind does not use are dropped.
        QCOMPARE(Id::readWire(QByteArray::fromHex("09EDBE05000100010002").constData()), Id());
        QCOMPARE(Id::readWire(QByteArray::fromHex("01EDBE05000100070005").constData()), device);
        QCOMPARE(Id::readWire(QByteArray::fromHex("02EDBE05000100010005").constData()).toString(),
                 QByteArray("BEED00010005/ch0001"));
    }

    void containment_data()
    {
        QTest::addColumn<Id>("id");
        QTest::addColumn<Id>("deviceId");
        QTest::addColumn<Id>("channelId");
        QTest::addColumn<QByteArray>("baseName");
        QTest::addColumn<bool>("inDevice");
        QTest::addColumn<bool>("inChannel1");
        const QByteArray name = "BEED00010005";
        QTest::addRow("device") << device << device << Id() << name << false << false;
        QTest::addRow("channel") << channel1 << device << channel1 << name << true << false;
        QTest::addRow("device parameter 1")
            << Id::makeDeviceParameterSerial(device, 1) << device << Id() << name << true << false;
        QTest::addRow("datapoint, lower case")
            << Id("beed00010005/ch0001/idp0002") << device << channel1 << name + "/ch0001" << true << true;
        QTest::addRow("other channel")
            << Id::makeOutputDataPointSerial(device, 2, 1) << device << Id::makeChannelSerial(device, 2)
            << name + "/ch0002" << true << false;
        const Id otherDevice = Id::makeChannelParameterSerial(0xBEEE, 0x00010005, 1, 2);
        QTest::addRow("other device")
            << otherDevice << Id(0xBEEE, 0x00010005) << Id::makeChannelSerial(otherDevice, 1)
            << QByteArray("BEEE00010005/ch0001") << false << false;
        QTest::addRow("invalid") << Id() << Id() << Id() << QByteArray() << false << false;
    }

    void containment()
    {
        QFETCH(Id, id);
        QFETCH(Id, deviceId);
        QCOMPARE(id.toDeviceId(), deviceId);
        QTEST(id.toChannelId(), "channelId");
        QTEST(id.getBaseName(), "baseName");
        QCOMPARE(id.getDeviceName(), deviceId.toString());
        QTEST(id.isComponentOf(device), "inDevice");
        QTEST(id.isComponentOf(channel1), "inChannel1");
        QVERIFY(!id.isComponentOf(id));
    }

    void orderingIsStrictWeakAndConsistentWithEquality()
    {
        const Id dp = Id::makeInputDataPointSerial(0xBEED, 5, 1, 2);
        QVector<Id> ids = {dp, Id(), Id(0x0000, 0xFFFFFFFF), Id(1, 0)};
        for (const char* text :
             {"BEED00000005/ch0001/idp0002", "beed00000005/ch0001/idp0002", "BEEG00000005",
              "BEEE00000005/ch0001/idp0002", "BEED00000006/ch0001/idp0002", "BEED00000005/chFFFF",
              "BEED00000005/ch0001/odp0002", "BEED00000005/ch0002/idp0002", "BEED00000005/ch0001/idp0003"})
            ids << Id(text);
        for (const Id& a : ids) {
            for (const Id& b : ids) {
                QCOMPARE(a == b, !(a < b) && !(b < a));
                QCOMPARE(a > b, b < a);
                if (a == b)
                    QCOMPARE(qHash(a), qHash(b));
                for (const Id& c : ids)
                    QVERIFY(!(a < b && b < c) || a < c);
            }
        }
        QVERIFY(Id(0x0000, 0xFFFFFFFF) < Id(1, 0)); // prefix outranks number

        // The three spellings of dp collapse into one key, and so do the two invalid identifiers.
        QMap<Id, int> map;
        QHash<Id, int> hash;
        for (int i = 0; i < ids.size(); ++i) {
            map.insert(ids[i], i);
            hash.insert(ids[i], i);
        }
        QCOMPARE(map.size(), ids.size() - 3);
        QCOMPARE(hash.size(), ids.size() - 3);
        QCOMPARE(map.value(dp), 5);
        QCOMPARE(hash.value(dp), 5);
    }
};

QTEST_APPLESS_MAIN(TestInternalId)
#include "tst_internalid.moc"
