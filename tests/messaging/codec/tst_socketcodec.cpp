// Byte forms of the socket messaging against vectors written by hand, and the incremental
// parser over every way a stream can be cut into chunks.
#include <common/logginginterface.h>
#include <common/messaging/socketparser.h>

#include <QDate>
#include <QtTest>

#include <cmath>
#include <limits>

Q_DECLARE_METATYPE(SocketMessage)

char* toString(const SocketArgument& argument)
{
    QByteArray bytes;
    socketwire::appendArgument(bytes, argument);
    return qstrdup(bytes.toHex(' ').constData());
}

char* toString(const SocketMessage& message)
{
    return qstrdup(message.encode().toHex(' ').constData());
}

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(text); // blanks between the bytes are skipped
}

QByteArray bytesOf(const SocketArgument& argument)
{
    QByteArray bytes;
    socketwire::appendArgument(bytes, argument);
    return bytes;
}

const InternalId dataPoint = InternalId::makeInputDataPointSerial(0xBEED, 0x00010005, 1, 2);

SocketMessage message(socketwire::MessageType type, const QByteArray& name, QVector<SocketArgument> args = {},
                      quint16 queryId = 0, bool success = true)
{
    SocketMessage m;
    m.type = type;
    m.name = name;
    m.arguments = std::move(args);
    m.queryId = queryId;
    m.success = success;
    return m;
}

struct CapturedLog
{
    CapturedLog()
    {
        previous = setLogSink([this](int, const QByteArray& line) { lines.append(line); });
    }
    ~CapturedLog() { setLogSink(previous); }
    bool contains(const QByteArray& text) const
    {
        return std::any_of(lines.cbegin(), lines.cend(),
                           [&](const QByteArray& l) { return l.contains(text); });
    }
    QByteArrayList lines;
    LogSink previous;
};

struct Parsed
{
    QVector<SocketMessage> messages;
    int callNamesRead = 0;
    QByteArrayList broken;
    QVector<QPair<int, quint16>> brokenHeaders; // type and query id of each broken message
};

void parseAvailable(SocketMessageParser& parser, Parsed& parsed)
{
    for (;;) {
        switch (parser.parse()) {
        case SocketMessageParser::Event::NeedMoreBytes:
            return;
        case SocketMessageParser::Event::CallNameRead:
            ++parsed.callNamesRead;
            break;
        case SocketMessageParser::Event::MessageComplete:
            parsed.messages.append(parser.takeMessage());
            break;
        case SocketMessageParser::Event::Broken:
            parsed.broken.append(parser.brokenReason());
            parsed.brokenHeaders.append({parser.brokenMessageType(), parser.brokenQueryId()});
            break;
        }
    }
}

Parsed parseChunks(const QByteArrayList& chunks)
{
    SocketMessageParser parser;
    Parsed parsed;
    for (const QByteArray& chunk : chunks) {
        parser.append(chunk);
        parseAvailable(parser, parsed);
    }
    return parsed;
}

// Every message kind once, as the bytes that must travel.
struct Reference
{
    const char* name;
    SocketMessage message;
    QByteArray bytes;
};

QVector<Reference> referenceMessages()
{
    using namespace socketwire;
    return {
        {"call without arguments", message(CallWithReply, "ping", {}, 7),
         hex("45bfd7a3 00 0700 70696e67 00 00")},
        {"call without reply", message(CallNoReply, "sendDataPoint", {dataPoint, QString("on")}),
         hex("45bfd7a3 01 73656e6444617461506f696e74 00 0e 05 edbe 05000100 0100 02 01 02000000 6f6e 00")},
        {"signal", message(Signal, "deviceReady", {qint32(-2), true}),
         hex("45bfd7a3 02 6465766963655265616479 00 05 feffffff 0b 01 00")},
        {"reply", message(Reply, {}, {qint32(42)}, 0x1234), hex("45bfd7a3 03 3412 01 05 2a000000")},
        {"void reply", message(Reply, {}, {}, 8), hex("45bfd7a3 03 0800 01 00")},
        {"failure reply", message(Reply, {}, {}, 9, false), hex("45bfd7a3 03 0900 00")},
        {"client name", message(ClientName, {}, {QString("hue")}), hex("45bfd7a3 04 01 03000000 687565")},
        {"subscription", message(Subscription, {}, {QString("a(int)")}),
         hex("45bfd7a3 05 01 06000000 6128696e7429")},
    };
}

SocketArgument nested(int depth)
{
    QVariantList list;
    for (int i = 1; i < depth; ++i)
        list = QVariantList{list};
    return list;
}

} // namespace

class TestSocketCodec : public QObject
{
    Q_OBJECT

private slots:
    void typeNames_data();
    void typeNames();
    void doubles_data();
    void doubles();
    void values_data();
    void values();
    void typedReadOfOtherType_data();
    void typedReadOfOtherType();
    void fromVariant_data();
    void fromVariant();
    void nestingIsBounded();
    void messages_data();
    void messages();
    void refusedEncodings_data();
    void refusedEncodings();
    void signatures_data();
    void signatures();
    void everyChunking();
    void brokenInput_data();
    void brokenInput();
    void consumedBytesAreDropped();
};

void TestSocketCodec::typeNames_data()
{
    QTest::addColumn<int>("tag");
    QTest::addColumn<QByteArray>("name");   // typeName(tag)
    QTest::addColumn<QByteArray>("parsed"); // the name that typeFromName accepts for the tag

    const char* names[] = {"",           "QString",     "QByteArray", "char",  "short",      "int",
                           "qlonglong",  "uchar",       "ushort",     "uint",  "qulonglong", "bool",
                           "QList<int>", "QStringList", "InternalId", "double"};
    for (int tag = 1; tag < 16; ++tag)
        QTest::addRow("%s", names[tag]) << tag << QByteArray(names[tag]) << QByteArray(names[tag]);
    QTest::addRow("map, blank only when parsed")
        << 16 << QByteArray("QMap<QString,QString>") << QByteArray("QMap<QString, QString>");
    QTest::addRow("QVariantMap") << 17 << QByteArray("QVariantMap") << QByteArray("QVariantMap");
    QTest::addRow("QVariantList") << 18 << QByteArray("QVariantList") << QByteArray("QVariantList");
    QTest::addRow("promise") << 19 << QByteArray() << QByteArray("SocketPromise");
}

void TestSocketCodec::typeNames()
{
    QFETCH(int, tag);
    QFETCH(QByteArray, name);
    QFETCH(QByteArray, parsed);
    const auto type = SocketArgument::eType(tag);
    QCOMPARE(QByteArray(SocketArgument::typeName(type)), name);
    QCOMPARE(SocketArgument(type).getTypeString(), QString::fromLatin1(name));
    QCOMPARE(int(SocketArgument::typeFromName(parsed)), tag);
    SocketArgument argument;
    argument.setTypeFromString(QString::fromLatin1(parsed));
    QCOMPARE(int(argument.type()), tag);
    // Neither the blank-free map nor unknown names nor tags are accepted.
    QCOMPARE(int(SocketArgument::typeFromName("QMap<QString,QString>")), 0);
    QCOMPARE(int(SocketArgument::typeFromName("float")), 0);
    QCOMPARE(QByteArray(SocketArgument::typeName(SocketArgument::eType(20))), QByteArray());
}

void TestSocketCodec::doubles_data()
{
    QTest::addColumn<double>("value");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<double>("decoded");

    const double inf = std::numeric_limits<double>::infinity();
    const double largest = std::ldexp(1.0 - std::ldexp(1.0, -52), 1023);
    QTest::addRow("1.0") << 1.0 << hex("00 00 00 00 00 00 18 00") << 1.0;
    QTest::addRow("-1.0") << -1.0 << hex("00 00 00 00 00 00 18 80") << -1.0;
    QTest::addRow("0.0") << 0.0 << hex("0000000000000000") << 0.0;
    QTest::addRow("-0.0") << -0.0 << hex("0000000000000000") << 0.0;
    QTest::addRow("3.0") << 3.0 << hex("000000000000 2c 00") << 3.0;
    QTest::addRow("0.25, negative exponent") << 0.25 << hex("000000000000 f8 7f") << 0.25;
    QTest::addRow("lowest mantissa bit is cut")
        << 1.0 + std::ldexp(1.0, -52) << hex("000000000000 18 00") << 1.0;
    QTest::addRow("smallest subnormal")
        << std::ldexp(1.0, -1074) << hex("040000000000 00 40") << std::ldexp(1.0, -1074);
    QTest::addRow("NaN is zero") << std::nan("") << hex("0000000000000000") << 0.0;
    QTest::addRow("infinity saturates") << inf << hex("ffffffffffff ff 3f") << largest;
    QTest::addRow("-infinity saturates") << -inf << hex("ffffffffffff ff bf") << -largest;
    QTest::addRow("DBL_MAX saturates")
        << std::numeric_limits<double>::max() << hex("ffffffffffff ff 3f") << largest;
}

void TestSocketCodec::doubles()
{
    QFETCH(double, value);
    QFETCH(QByteArray, bytes);
    CapturedLog log; // NaN and infinities are logged
    unsigned char encoded[socketwire::kDoubleSize];
    socketwire::encodeDouble(value, encoded);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(encoded), 8).toHex(' '), bytes.toHex(' '));
    QFETCH(double, decoded);
    // Bit for bit: QCOMPARE on doubles is fuzzy and would not see a lost mantissa bit.
    const double actual = socketwire::decodeDouble(encoded);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(&actual), 8).toHex(),
             QByteArray(reinterpret_cast<const char*>(&decoded), 8).toHex());
}

void TestSocketCodec::values_data()
{
    QTest::addColumn<SocketArgument>("argument");
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<SocketArgument>("readBack"); // None: the bytes do not parse as a value

    const auto row = [](const char* name, const SocketArgument& a, const char* bytes) {
        QTest::addRow("%s", name) << a << hex(bytes) << a;
    };
    row("empty string", QString(), "01 00000000");
    row("UTF-8 string", QString::fromUtf8("\xC3\xA4x"), "01 03000000 c3a4 78");
    row("byte array", QByteArray("ab"), "02 02000000 6162");
    row("char", 'A', "03 41");
    row("short", qint16(-2), "04 feff");
    row("int", qint32(0x01020304), "05 04030201");
    row("qlonglong", qint64(-1), "06 ffffffffffffffff");
    row("uchar", quint8(200), "07 c8");
    row("ushort", quint16(0x1234), "08 3412");
    row("uint", quint32(0xDEADBEEF), "09 efbeadde");
    row("qulonglong", quint64(0x0102030405060708), "0a 0807060504030201");
    row("bool", true, "0b 01");
    row("int list", QList<int>{1, -1}, "0c 02000000 01000000 ffffffff");
    row("string list", QStringList{"a", ""}, "0d 02000000 01000000 61 00000000");
    row("internal id", dataPoint, "0e 05 edbe 05000100 0100 02");
    row("double", 1.0, "0f 0000000000001800");
    row("string map", QMap<QString, QString>{{"k", "v"}, {"a", ""}},
        "10 02000000 01000000 61 00000000 01000000 6b 01000000 76");
    row("every variant type",
        QVariantList{false, -3, 4u, qint64(-5), quint64(6), 0.0, QByteArray("b"), QStringList{"s"},
                     QVariantMap{}, QVariantList{}},
        "12 0a000000 0b00 05fdffffff 0904000000 06fbffffffffffffff 0a0600000000000000 0f0000000000000000"
        " 02 01000000 62 0d 01000000 01000000 73 11 00000000 12 00000000");
    QTest::addRow("string in a map goes as bytes")
        << SocketArgument(QVariantMap{{"s", QString("x")}}) << hex("11 01000000 01000000 73 02 01000000 78")
        << SocketArgument(QVariantMap{{"s", QByteArray("x")}});
    QTest::addRow("unsupported variant is left out")
        << SocketArgument(QVariantMap{{"a", QDate(2024, 1, 1)}, {"b", QVariantList{QDate(), 1}}})
        << hex("11 01000000 01000000 62 12 01000000 05 01000000")
        << SocketArgument(QVariantMap{{"b", QVariantList{1}}});
    QTest::addRow("promise is its tag alone")
        << SocketArgument(SocketArgument::Promise) << hex("13") << SocketArgument();
}

void TestSocketCodec::values()
{
    QFETCH(SocketArgument, argument);
    QFETCH(QByteArray, bytes);
    QFETCH(SocketArgument, readBack);
    CapturedLog log;
    QCOMPARE(bytesOf(argument).toHex(' '), bytes.toHex(' '));
    QCOMPARE(log.contains("WRITE invalid QVariantMap value from type 14"),
             QByteArray(QTest::currentDataTag()).startsWith("unsupported"));

    socketwire::Reader reader(bytes.constData(), bytes.size(), 1);
    SocketArgument value;
    const auto result = reader.readValue(SocketArgument::eType(quint8(bytes.at(0))), value);
    QCOMPARE(result, readBack.isNone() ? socketwire::Reader::Broken : socketwire::Reader::Done);
    QCOMPARE(value, readBack);
    QCOMPARE(reader.position(), readBack.isNone() ? 1 : bytes.size());
    // Every shorter prefix asks for more bytes and leaves the position alone.
    for (int size = 1; size < bytes.size() && !readBack.isNone(); ++size) {
        socketwire::Reader partial(bytes.constData(), size, 1);
        QCOMPARE(partial.readValue(readBack.type(), value), socketwire::Reader::NeedMore);
        QCOMPARE(partial.position(), 1);
    }
}

void TestSocketCodec::typedReadOfOtherType_data()
{
    QTest::addColumn<SocketArgument>("argument");
    QTest::addColumn<QByteArray>("warning");

    QTest::addRow("int as string") << SocketArgument(qint32(5))
                                   << QByteArray("type is not string8 - returning default value type= 5");
    QTest::addRow("string as int") << SocketArgument(QString("5"))
                                   << QByteArray("type is not int32 - returning default value type= 1");
    QTest::addRow("short as id") << SocketArgument(qint16(1))
                                 << QByteArray("type is not internalid - returning default value type= 4");
}

void TestSocketCodec::typedReadOfOtherType()
{
    QFETCH(SocketArgument, argument);
    QFETCH(QByteArray, warning);
    CapturedLog log;
    if (argument.type() == SocketArgument::Int)
        QCOMPARE(argument.toString(), QString());
    else if (argument.type() == SocketArgument::String)
        QCOMPARE(argument.toInt(), 0);
    else
        QCOMPARE(argument.toInternalId(), InternalId());
    QVERIFY2(log.contains(warning), log.lines.join('\n').constData());
}

void TestSocketCodec::fromVariant_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<SocketArgument>("expected");

    QTest::addRow("exact int") << 5 << QVariant(7) << SocketArgument(qint32(7));
    QTest::addRow("number text as int") << 5 << QVariant(QString("12")) << SocketArgument(qint32(12));
    QTest::addRow("int as ushort") << 8 << QVariant(3) << SocketArgument(quint16(3));
    QTest::addRow("id") << 14 << QVariant::fromValue(dataPoint) << SocketArgument(dataPoint);
    QTest::addRow("text is no id") << 14 << QVariant(QString("BEED00010005")) << SocketArgument();
    QTest::addRow("string map") << 16 << QVariant::fromValue(QMap<QString, QString>{{"a", "b"}})
                                << SocketArgument(QMap<QString, QString>{{"a", "b"}});
    QTest::addRow("invalid variant") << 1 << QVariant() << SocketArgument();
    QTest::addRow("void") << 0 << QVariant(1) << SocketArgument();
}

void TestSocketCodec::fromVariant()
{
    QFETCH(int, type);
    QFETCH(QVariant, value);
    QFETCH(SocketArgument, expected);
    QCOMPARE(SocketArgument::fromVariant(SocketArgument::eType(type), value), expected);
    // The variant handed to slots holds the value in its Qt type and converts back unchanged.
    QCOMPARE(SocketArgument::fromVariant(expected.type(), expected.toVariant()), expected);
    if (expected.type() == SocketArgument::Id)
        QCOMPARE(expected.toVariant().value<InternalId>(), dataPoint);
}

void TestSocketCodec::nestingIsBounded()
{
    CapturedLog log;
    const QByteArray deepest = bytesOf(nested(socketwire::kMaxNesting));
    socketwire::Reader reader(deepest.constData(), deepest.size(), 1);
    SocketArgument value;
    QCOMPARE(reader.readValue(SocketArgument::VariantList, value), socketwire::Reader::Done);
    QCOMPARE(value, nested(socketwire::kMaxNesting));
    QVERIFY(!log.contains("WRITE invalid"));

    // One level more is not written (its list stays empty) and, made by hand, not read.
    QCOMPARE(bytesOf(nested(socketwire::kMaxNesting + 1)), deepest);
    QVERIFY(log.contains("WRITE invalid QVariantMap value from type 9"));
    QByteArray tooDeep = "\x12";
    for (int i = 0; i <= socketwire::kMaxNesting; ++i)
        tooDeep += hex("01000000 12");
    tooDeep += hex("00000000");
    socketwire::Reader deepReader(tooDeep.constData(), tooDeep.size(), 1);
    QCOMPARE(deepReader.readValue(SocketArgument::VariantList, value), socketwire::Reader::Broken);
}

void TestSocketCodec::messages_data()
{
    QTest::addColumn<SocketMessage>("message");
    QTest::addColumn<QByteArray>("bytes");
    for (const Reference& reference : referenceMessages())
        QTest::addRow("%s", reference.name) << reference.message << reference.bytes;
    QTest::addRow("call with ten arguments")
        << message(socketwire::CallNoReply, "f", QVector<SocketArgument>(10, quint8(1)))
        << hex("45bfd7a3 01 66 00 0701 0701 0701 0701 0701 0701 0701 0701 0701 0701 00");
    QTest::addRow("void reply from a None value")
        << message(socketwire::Reply, {}, {SocketArgument()}, 8) << hex("45bfd7a3 03 0800 01 00");
}

void TestSocketCodec::messages()
{
    QFETCH(SocketMessage, message);
    QFETCH(QByteArray, bytes);
    QCOMPARE(message.encode().toHex(' '), bytes.toHex(' '));
    const Parsed parsed = parseChunks({bytes});
    QCOMPARE(parsed.messages.size(), 1);
    SocketMessage expected = message;
    expected.arguments.removeAll(SocketArgument());
    QCOMPARE(parsed.messages.first(), expected);
    QCOMPARE(parsed.callNamesRead, message.type == socketwire::CallWithReply ? 1 : 0);
}

void TestSocketCodec::refusedEncodings_data()
{
    QTest::addColumn<SocketMessage>("message");
    QTest::addColumn<QByteArray>("error");

    QTest::addRow("eleven arguments") << message(socketwire::Signal, "s", QVector<SocketArgument>(11, true))
                                      << QByteArray("more than 10 arguments!!!");
    QTest::addRow("client name without value")
        << message(socketwire::ClientName, {}) << QByteArray("needs exactly one value");
    QTest::addRow("reply with two values")
        << message(socketwire::Reply, {}, {true, false}) << QByteArray("at most one value");
    QTest::addRow("NUL in name") << message(socketwire::CallNoReply, QByteArray("a\0b", 3))
                                 << QByteArray("containing NUL");
}

void TestSocketCodec::refusedEncodings()
{
    QFETCH(SocketMessage, message);
    QFETCH(QByteArray, error);
    CapturedLog log;
    QCOMPARE(message.encode(), QByteArray());
    QVERIFY(log.contains(error));
}

void TestSocketCodec::signatures_data()
{
    QTest::addColumn<SocketMessage>("message");
    QTest::addColumn<QByteArray>("signature");
    QTest::addColumn<QByteArray>("described");

    QTest::addRow("no arguments") << message(socketwire::CallWithReply, "getAllConfigValues")
                                  << QByteArray("getAllConfigValues()")
                                  << QByteArray("call: getAllConfigValues");
    QTest::addRow("arguments") << message(socketwire::Signal, "configValueChanged", {"k", "v", true})
                               << normalizedSocketSignature("configValueChanged(QString, QString, bool)")
                               << QByteArray("call: configValueChanged");
    QTest::addRow("map") << message(socketwire::CallNoReply, "m", {QMap<QString, QString>{}, dataPoint})
                         << normalizedSocketSignature(" m( QMap<QString, QString>,\tInternalId )")
                         << QByteArray("call: m");
    QTest::addRow("reply") << message(socketwire::Reply, {}, {}, 1) << QByteArray("()")
                           << QByteArray("return value: ping");
}

void TestSocketCodec::signatures()
{
    QFETCH(SocketMessage, message);
    QTEST(message.getSignature(), "signature");
    QTEST(message.describe("ping"), "described");
}

void TestSocketCodec::everyChunking()
{
    QByteArray stream = "garbage \x45\xBF\xD7 before";
    QVector<SocketMessage> expected;
    for (const Reference& reference : referenceMessages()) {
        stream += reference.bytes;
        expected.append(reference.message);
    }
    const auto parsesWhole = [&](const QByteArrayList& chunks) {
        const Parsed parsed = parseChunks(chunks);
        return parsed.broken.isEmpty() && parsed.messages == expected && parsed.callNamesRead == 1;
    };
    for (int split = 0; split <= stream.size(); ++split)
        QVERIFY2(parsesWhole({stream.left(split), stream.mid(split)}),
                 qPrintable(QString("split at %1").arg(split)));
    QByteArrayList single;
    for (char byte : stream)
        single.append(QByteArray(1, byte));
    QVERIFY(parsesWhole(single));
}

void TestSocketCodec::brokenInput_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QByteArray>("reason");
    QTest::addColumn<int>("type"); // of the broken message, as far as it was read
    QTest::addColumn<int>("queryId");

    QByteArray eleven = hex("45bfd7a3 00 0100 66 00");
    for (int i = 0; i < 11; ++i)
        eleven += hex("0b 01");
    QTest::addRow("eleven arguments") << eleven + '\0' << QByteArray("more than 10 arguments") << 0 << 1;
    QTest::addRow("unknown message type")
        << hex("45bfd7a3 06") << QByteArray("unknown message type 6") << -1 << 0;
    QTest::addRow("unknown tag") << hex("45bfd7a3 01 6600 14") << QByteArray("unknown argument type 20") << 1
                                 << 0;
    QTest::addRow("promise tag") << hex("45bfd7a3 02 6600 13 00") << QByteArray("unknown argument type 19")
                                 << 2 << 0;
    QTest::addRow("success flag 2") << hex("45bfd7a3 03 0700 02") << QByteArray("invalid success flag 2") << 3
                                    << 7;
    QTest::addRow("client name without value")
        << hex("45bfd7a3 04 00") << QByteArray("invalid value type 0") << 4 << 0;
    QTest::addRow("hostile byte count")
        << hex("45bfd7a3 01 6600 02 ffffff7f") << QByteArray("broken value") << 1 << 0;
    QTest::addRow("negative count") << hex("45bfd7a3 01 6600 0c ffffffff") << QByteArray("broken value") << 1
                                    << 0;
    QTest::addRow("hostile list count")
        << hex("45bfd7a3 01 6600 12 ffffff7f 05") << QByteArray("broken value") << 1 << 0;
    QTest::addRow("string tag inside a map") << hex("45bfd7a3 01 6600 11 01000000 01000000 6b 01 01000000 78")
                                             << QByteArray("broken value") << 1 << 0;
}

void TestSocketCodec::brokenInput()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QByteArray, reason);
    QFETCH(int, type);
    QFETCH(int, queryId);
    CapturedLog log;
    const SocketMessage next = referenceMessages().at(2).message;
    const Parsed parsed = parseChunks({bytes, next.encode()});
    QCOMPARE(parsed.broken.size(), 1);
    QVERIFY2(parsed.broken.first().startsWith(reason), parsed.broken.first().constData());
    QCOMPARE(parsed.brokenHeaders.first(), (QPair<int, quint16>(type, quint16(queryId))));
    QCOMPARE(parsed.messages, QVector<SocketMessage>{next});
    for (const char* part : {"method name:", "so far parsed parameters:", "buffer content: 45 bf d7 a3"})
        QVERIFY2(log.contains(part), log.lines.join('\n').constData());
    QCOMPARE(log.contains("more than 10 arguments!!!"), reason.startsWith("more than"));
}

void TestSocketCodec::consumedBytesAreDropped()
{
    // Chunks that never end on a message boundary: part of a message is always pending.
    const QByteArray one = referenceMessages().at(1).bytes;
    const QByteArray stream = one.repeated(5000);
    SocketMessageParser parser;
    Parsed parsed;
    for (int at = 0; at < stream.size(); at += 1000) {
        parser.append(stream.mid(at, 1000));
        parseAvailable(parser, parsed);
        QVERIFY2(parser.bufferSize() < 3 * 4096, qPrintable(QString::number(parser.bufferSize())));
    }
    QCOMPARE(parsed.messages.size(), 5000);
    QCOMPARE(parser.bufferedBytes(), 0);

    // A large value arrives in many chunks and is kept whole until it is complete.
    const SocketMessage big = message(socketwire::Signal, "s", {QByteArray(3 << 20, 'x')});
    const QByteArray bigBytes = big.encode();
    for (int at = 0; at < bigBytes.size(); at += 65536) {
        parser.append(bigBytes.mid(at, 65536));
        parseAvailable(parser, parsed);
    }
    QCOMPARE(parsed.messages.size(), 5001);
    QCOMPARE(parsed.messages.last(), big);
    parser.append(one);
    parseAvailable(parser, parsed);
    QCOMPARE(parser.bufferSize(), one.size());
}

QTEST_GUILESS_MAIN(TestSocketCodec)
#include "tst_socketcodec.moc"
