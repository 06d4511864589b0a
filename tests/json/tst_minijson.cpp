#include <minijson.h>

#include <QByteArray>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>
#include <functional>
#include <string>
#include <utility>
#include <vector>

using namespace minijson;

using EntityAction = std::function<void(CEntity&)>;
using NumberAction = std::function<void(CNumber&)>;
Q_DECLARE_METATYPE(EntityAction)
Q_DECLARE_METATYPE(NumberAction)

namespace {

QByteArray bytes(const std::string& text)
{
    return QByteArray::fromStdString(text);
}

QByteArray compact(const CEntity& entity)
{
    return bytes(entity.ToString());
}

std::unique_ptr<CEntity> parse(const QByteArray& text)
{
    return CParser::Parse(text.constData(), text.size());
}

// The message of the CException that `action` throws, or a marker when it throws none.
QByteArray thrownMessage(const std::function<void()>& action)
{
    try {
        action();
    } catch (const CException& e) {
        return e.what();
    }
    return "<no exception>";
}

} // namespace

class TestMiniJson : public QObject
{
    Q_OBJECT

private slots:
    void parseErrors_data();
    void parseErrors();
    void parseAndWriteCompact_data();
    void parseAndWriteCompact();
    void unicodeEscapes_data();
    void unicodeEscapes();
    void nestingLimit();
    void writeIndented();
    void numberConversions_data();
    void numberConversions();
    void numberSetters_data();
    void numberSetters();
    void accessorErrors_data();
    void accessorErrors();
    void objectBuildersKeepOrder();
    void objectGettersWithDefaults();
    void arrayAccess();
    void mergeFrom_data();
    void mergeFrom();
    void copyIsDeep();
    void largeObjects_data();
    void largeObjects();
    void stringsAtWordBoundaries_data();
    void stringsAtWordBoundaries();
    void parsedTreesStayMutable();
    void fileRoundTrip();
    void fileErrors();
};

void TestMiniJson::parseErrors_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("message");
    QTest::addColumn<int>("position");

    QTest::addRow("empty") << QByteArray("") << QByteArray("Empty input") << 0;
    QTest::addRow("bare number") << QByteArray("42") << QByteArray("Syntax error") << 0;
    QTest::addRow("extra after array") << QByteArray("[] x") << QByteArray("Extra bytes at end of json") << 3;
    QTest::addRow("exponent") << QByteArray("[1e5]")
                              << QByteArray("Syntax error: Expected ']' at or after position 2") << 2;
    QTest::addRow("plus sign") << QByteArray("[+1]")
                               << QByteArray("Syntax error: Expected 'value' at or after position 1") << 1;
    QTest::addRow("trailing comma") << QByteArray("[1,]")
                                    << QByteArray("Syntax error: Expected 'value' at or after position 3")
                                    << 3;
    QTest::addRow("misspelt literal")
        << QByteArray("[tru]") << QByteArray("Syntax error: Expected 'value' at or after position 1") << 1;
    QTest::addRow("missing comma") << QByteArray("[true  false]")
                                   << QByteArray("Syntax error: Expected ']' at or after position 7") << 7;
    QTest::addRow("missing colon") << QByteArray("{\"a\" 1}")
                                   << QByteArray("Syntax error: Expected ':' at or after position 5") << 5;
    QTest::addRow("unclosed object") << QByteArray("{\"a\":1")
                                     << QByteArray("Syntax error: Expected '}' at or after position 6") << 6;
    QTest::addRow("name not a string")
        << QByteArray("{1:2}") << QByteArray("Syntax error: Expected '\"' at or after position 1") << 1;
    QTest::addRow("unclosed string") << QByteArray("[1, \"abc") << QByteArray("Closing \" not found") << 4;
    QTest::addRow("backslash at end") << QByteArray("[\"ab\\") << QByteArray("Closing \" not found") << 1;
    QTest::addRow("short \\u") << QByteArray("[\"x\\u12") << QByteArray("Invalid \\u escaping") << 1;
    QTest::addRow("non-hex \\u") << QByteArray("{\"k\":\"\\u12G4\"}") << QByteArray("Invalid \\u escaping")
                                 << 5;
}

void TestMiniJson::parseErrors()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, message);
    QFETCH(int, position);

    try {
        parse(input);
        QFAIL("no exception");
    } catch (const CParseErrorException& e) {
        QCOMPARE(QByteArray(e.what()), message);
        QCOMPARE(int(e.Position()), position);
        QCOMPARE(bytes(e.Text()), input);
    }
}

void TestMiniJson::parseAndWriteCompact_data()
{
    QTest::addColumn<QByteArray>("input");
    QTest::addColumn<QByteArray>("written");

    QTest::addRow("empty object") << QByteArray(" {\n} ") << QByteArray("{}");
    QTest::addRow("empty array") << QByteArray("[ ]") << QByteArray("[]");
    QTest::addRow("scalars") << QByteArray("[ 1 ,\t-1.5 ,true,false ,null, \"\" ]")
                             << QByteArray("[1,-1.5,true,false,null,\"\"]");
    QTest::addRow("numbers kept as text")
        << QByteArray("[0.10,-0,007,1.2.3,-,.5]") << QByteArray("[0.10,-0,007,1.2.3,-,.5]");
    QTest::addRow("nested") << QByteArray("{\"a\" : [ {\"b\":{}} , [[]] ] , \"c\":null}")
                            << QByteArray("{\"a\":[{\"b\":{}},[[]]],\"c\":null}");
    QTest::addRow("member order and repeated name")
        << QByteArray("{\"z\":1,\"a\":2,\"z\":3,\"m\":4}") << QByteArray("{\"z\":3,\"a\":2,\"m\":4}");
    QTest::addRow("escapes") << QByteArray("[\"q\\\"b\\\\s\\/\\b\\f\\n\\r\\t\\x\"]")
                             << QByteArray("[\"q\\\"b\\\\s\\/\\b\\f\\n\\r\\tx\"]");
    QTest::addRow("slash written escaped")
        << QByteArray("{\"a/b\":\"/clip/v2\"}") << QByteArray("{\"a\\/b\":\"\\/clip\\/v2\"}");
    QTest::addRow("raw UTF-8 kept") << QByteArray("[\"Küche \xE2\x82\xAC\"]")
                                    << QByteArray("[\"Küche \xE2\x82\xAC\"]");
    QTest::addRow("embedded zero") << QByteArray("[\"a\\u0000b\"]", 12) << QByteArray("[\"a\0b\"]", 7);
}

void TestMiniJson::parseAndWriteCompact()
{
    QFETCH(QByteArray, input);
    QFETCH(QByteArray, written);

    const auto tree = parse(input);
    QCOMPARE(compact(*tree), written);
    QCOMPARE(compact(*parse(written)), written);
}

void TestMiniJson::unicodeEscapes_data()
{
    QTest::addColumn<QByteArray>("escape");
    QTest::addColumn<QByteArray>("utf8");

    QTest::addRow("ASCII") << QByteArray("\\u0041") << QByteArray("A");
    QTest::addRow("e acute") << QByteArray("\\u00E9") << QByteArray("\xC3\xA9");
    QTest::addRow("three-byte minimum") << QByteArray("\\u0800") << QByteArray("\xE0\xA0\x80");
    QTest::addRow("euro") << QByteArray("\\u20AC") << QByteArray("\xE2\x82\xAC");
    QTest::addRow("surrogates not paired")
        << QByteArray("\\uD83D\\uDCA1") << QByteArray("\xED\xA0\xBD\xED\xB2\xA1");
}

void TestMiniJson::unicodeEscapes()
{
    QFETCH(QByteArray, escape);
    QFETCH(QByteArray, utf8);

    const auto tree = parse("[\"" + escape + "\"]");
    QCOMPARE(bytes(tree->Array().GetString(0)), utf8);
}

void TestMiniJson::nestingLimit()
{
    const int limit = CParser::kMaxDepth;
    const QByteArray deepest = QByteArray(limit, '[') + QByteArray(limit, ']');
    QCOMPARE(compact(*parse(deepest)), deepest);

    QByteArray tooDeep;
    for (int i = 0; i <= limit; ++i)
        tooDeep += "{\"a\":";
    tooDeep += "1" + QByteArray(limit + 1, '}');
    try {
        parse(tooDeep);
        QFAIL("no exception");
    } catch (const CParseErrorException& e) {
        QCOMPARE(QByteArray(e.what()), QByteArray("Nesting too deep"));
        QCOMPARE(int(e.Position()), limit * 5); // the brace that opens level limit + 1
    }
}

void TestMiniJson::writeIndented()
{
    const auto tree = parse(R"({"on":{"on":true},"xy":[0.3,0.4],"e":{},"l":[],"n":"a\"b"})");
    const QByteArray expected = "{\n"
                                "  \"on\":{\n"
                                "    \"on\":true\n"
                                "  },\n"
                                "  \"xy\":[\n"
                                "    0.3,\n"
                                "    0.4\n"
                                "  ],\n"
                                "  \"e\":{},\n"
                                "  \"l\":[],\n"
                                "  \"n\":\"a\\\"b\"\n"
                                "}";
    QCOMPARE(bytes(CWriter(true).Write(*tree)), expected);
    QCOMPARE(bytes(tree->ToString(true, "  ", 0)), expected);
    // A subtree printed at level 1 with a tab indent.
    QCOMPARE(bytes((*tree)["xy"].ToString(true, "\t", 1)), QByteArray("[\n\t\t0.3,\n\t\t0.4\n\t]"));
}

void TestMiniJson::numberConversions_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<int>("asInt");
    QTest::addColumn<double>("asDouble");

    QTest::addRow("negative fraction") << QByteArray("-1.5") << -1 << -1.5;
    QTest::addRow("leading zeros") << QByteArray("007") << 7 << 7.0;
    QTest::addRow("lone minus") << QByteArray("-") << 0 << 0.0;
    QTest::addRow("no leading digit") << QByteArray(".5") << 0 << 0.5;
    QTest::addRow("two points") << QByteArray("1.2.3") << 1 << 1.2;
    QTest::addRow("above int range") << QByteArray("99999999999") << INT_MAX << 99999999999.0;
    QTest::addRow("beyond double range") << QByteArray("1" + QByteArray(400, '0')) << INT_MAX << qInf();
}

void TestMiniJson::numberConversions()
{
    QFETCH(QByteArray, text);
    QFETCH(int, asInt);
    QFETCH(double, asDouble);

    // Through the parser, so that what the parser accepts is also what the conversions get.
    const auto tree = parse("[" + text + "]");
    const CNumber& number = tree->Array().GetNumber(0);
    QCOMPARE(bytes(number.Text()), text);
    QCOMPARE(number.ValueInt(), asInt);
    QCOMPARE(number.ValueDouble(), asDouble);
    QCOMPARE(number.ValueFloat(), float(asDouble));
}

void TestMiniJson::numberSetters_data()
{
    QTest::addColumn<NumberAction>("set");
    QTest::addColumn<QByteArray>("text");

    QTest::addRow("int") << NumberAction([](CNumber& n) { n.SetInt(INT_MIN); }) << QByteArray("-2147483648");
    QTest::addRow("double shortest") << NumberAction([](CNumber& n) { n.SetDouble(0.1); })
                                     << QByteArray("0.1");
    QTest::addRow("double never exponent")
        << NumberAction([](CNumber& n) { n.SetDouble(-2.5e-7); }) << QByteArray("-0.00000025");
    QTest::addRow("large double") << NumberAction([](CNumber& n) { n.SetDouble(1e20); })
                                  << QByteArray("100000000000000000000");
    QTest::addRow("float shortest") << NumberAction([](CNumber& n) { n.SetFloat(0.3f); })
                                    << QByteArray("0.3");
    QTest::addRow("NaN") << NumberAction([](CNumber& n) { n.SetDouble(qQNaN()); }) << QByteArray("0");
    QTest::addRow("infinity") << NumberAction([](CNumber& n) { n.SetFloat(-qInf()); }) << QByteArray("0");
}

void TestMiniJson::numberSetters()
{
    QFETCH(NumberAction, set);
    QFETCH(QByteArray, text);

    CNumber number;
    set(number);
    QCOMPARE(bytes(number.Text()), text);
    // What a setter prints must read back through the parser.
    QCOMPARE(compact(*parse("[" + text + "]")), "[" + text + "]");
}

void TestMiniJson::accessorErrors_data()
{
    QTest::addColumn<EntityAction>("action");
    QTest::addColumn<QByteArray>("message");

    const auto row = [](const char* name, EntityAction action, const char* message) {
        QTest::addRow("%s", name) << action << QByteArray(message);
    };
    row(
        "Object", [](CEntity& root) { root["a"].Object(); }, "Object() failed for non CObject entity");
    row(
        "StringValue", [](CEntity& root) { root["n"].StringValue(); },
        "Called StringValue for non string entity");
    row(
        "missing key", [](CEntity& root) { root["missing"]; }, "key 'missing' not found in operator[]");
    row(
        "key on array", [](CEntity& root) { root["a"]["x"]; }, "operator[](key) is only allowed for objects");
    row(
        "index on string", [](CEntity& root) { root["s"][0]; },
        "operator[](int) is only allowed for arrays and objects");
    row(
        "index past array", [](CEntity& root) { root["a"][1]; }, "index 1 out of bounds for EntityAtIndex()");
    row(
        "member name index", [](CEntity& root) { root.Object().MemberNameByIndex(-1); },
        "index -1 out of bounds for MemberNameByIndex()");
    row(
        "member name on array", [](CEntity& root) { root["a"].ObjectMemberNameByIndex(0); },
        "ObjectMemberNameByIndex() is only allowed for objects");
    row(
        "array remove", [](CEntity& root) { root.Object().GetArray("a")->Remove(1); }, "index out of range");
    row(
        "invalid number text", [](CEntity&) { CNumber("1e5"); }, "Invalid number text '1e5'");
}

void TestMiniJson::accessorErrors()
{
    QFETCH(EntityAction, action);
    QFETCH(QByteArray, message);
    const auto tree = CParser::Parse(R"({"s":"x","n":1,"a":[1],"b":true,"z":null})");
    QCOMPARE(thrownMessage([&] { action(*tree); }), message);
}

void TestMiniJson::objectBuildersKeepOrder()
{
    CObject body;
    body.SetBoolean("on", true);
    body.AddObject("xy").SetDouble("x", 0.25);
    body.SetInt("bri", 254);
    body.AddArray("list").AddString("a");
    body.AddNull("nothing");
    body.AddNumber("zero");
    body.SetString("on", "replaced"); // keeps its place
    QCOMPARE(
        compact(body),
        QByteArray(R"({"on":"replaced","xy":{"x":0.25},"bri":254,"list":["a"],"nothing":null,"zero":0})"));

    QVERIFY(body.Remove("xy"));
    QVERIFY(!body.Remove("xy"));
    QCOMPARE(body.Count(), 5);
    QCOMPARE(bytes(body.MemberNameByIndex(1)), QByteArray("bri"));
    QCOMPARE(body[1].Number().ValueInt(), 254);
    body.AddBoolean("xy", false); // a removed name goes to the end when added again
    QCOMPARE(bytes(body.ObjectMemberNameByIndex(5)), QByteArray("xy"));
}

void TestMiniJson::objectGettersWithDefaults()
{
    const auto tree = CParser::Parse(R"({"i":-7,"d":0.5,"b":false,"s":"t","o":{},"a":[]})");
    const CObject& o = tree->Object();
    QVERIFY(o.Contains("i") && !o.Contains("I"));
    QCOMPARE(o.GetInt("i", 3), -7);
    QCOMPARE(o.GetInt("s", 3), 3);
    QCOMPARE(o.GetDouble("d", 2.0), 0.5);
    QCOMPARE(o.GetDouble("missing", 2.0), 2.0);
    QCOMPARE(o.GetFloat("b", 1.5f), 1.5f);
    QCOMPARE(o.GetBoolean("b", true), false);
    QCOMPARE(o.GetBoolean("i", true), true);
    QCOMPARE(bytes(o.GetString("s", "dflt")), QByteArray("t"));
    QCOMPARE(bytes(o.GetString("i", "dflt")), QByteArray("dflt"));
    QVERIFY(o.GetObject("o") && !o.GetObject("a"));
    QVERIFY(o.GetArray("a") && !o.GetArray("missing"));
}

void TestMiniJson::arrayAccess()
{
    auto tree = CParser::Parse(R"([0.5,"s",[1],{"k":1},null])");
    CArray& a = tree->Array();
    QCOMPARE(a.GetDouble(0, 9.0), 0.5);
    QCOMPARE(a.GetDouble(1, 9.0), 9.0);
    QCOMPARE(a.GetDouble(5, 9.0), 9.0);
    QCOMPARE(bytes(a.GetString(1)), QByteArray("s"));
    QCOMPARE(a.GetArray(2).Count(), 1);
    QCOMPARE(a.GetObject(3).GetInt("k"), 1);
    a.Remove(0);
    a.Remove(3);
    a.AddNumber().SetFloat(1.25f);
    a.AddBoolean(true);
    QCOMPARE(compact(a), QByteArray(R"(["s",[1],{"k":1},1.25,true])"));
}

void TestMiniJson::mergeFrom_data()
{
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<QByteArray>("merged");

    QTest::addRow("keep existing") << false << QByteArray(R"({"a":1,"b":{"x":1},"c":3,"d":[4]})");
    QTest::addRow("overwrite") << true << QByteArray(R"({"a":1,"b":{"y":2},"c":3,"d":[4]})");
}

void TestMiniJson::mergeFrom()
{
    QFETCH(bool, overwrite);
    QFETCH(QByteArray, merged);

    auto target = CParser::Parse(R"({"a":1,"b":{"x":1}})");
    {
        const auto source = CParser::Parse(R"({"c":3,"b":{"y":2},"d":[4]})");
        target->Object().MergeFrom(source->Object(), overwrite);
    } // the merged members are copies and outlive the source
    QCOMPARE(compact(*target), merged);
    target->Object().MergeFrom(target->Object(), true);
    QCOMPARE(compact(*target), merged);
}

void TestMiniJson::copyIsDeep()
{
    const auto original = CParser::Parse(R"({"a":[1,{"b":"c"}],"n":-1.50})");
    const auto copy = original->Copy();
    QCOMPARE(compact(*copy), compact(*original));
    (*copy)["a"][1].Object().SetString("b", "changed");
    (*copy)["a"].Array().Remove(0);
    QCOMPARE(compact(*original), QByteArray(R"({"a":[1,{"b":"c"}],"n":-1.50})"));
}

void TestMiniJson::largeObjects_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<bool>("parsed");

    // Around the size from which an object indexes its names, and well above it.
    for (const int count : {23, 24, 25, 100}) {
        QTest::addRow("%d members, parsed", count) << count << true;
        QTest::addRow("%d members, built", count) << count << false;
    }
}

void TestMiniJson::largeObjects()
{
    QFETCH(int, count);
    QFETCH(bool, parsed);

    // Members k0..k<count-1> holding their number; k1 repeats early, k0 after the last member,
    // so that a repeated name meets both the small and the indexed object.
    const auto name = [](int i) { return "k" + std::to_string(i); };
    std::vector<std::pair<std::string, int>> sequence;
    for (int i = 0; i < count; ++i) {
        sequence.emplace_back(name(i), i);
        if (i == 2)
            sequence.emplace_back(name(1), -1);
    }
    sequence.emplace_back(name(0), -2);
    std::vector<int> expected(static_cast<std::size_t>(count));
    for (const auto& [member, value] : sequence)
        expected[std::stoul(member.substr(1))] = value;

    std::unique_ptr<CEntity> tree;
    if (parsed) {
        std::string text = "{";
        for (const auto& [member, value] : sequence)
            text += (text.size() > 1 ? ",\"" : "\"") + member + "\":" + std::to_string(value);
        tree = CParser::Parse(text + "}");
    } else {
        tree = std::make_unique<CObject>();
        for (const auto& [member, value] : sequence)
            tree->Object().SetInt(member, value);
    }
    CObject& object = tree->Object();
    QCOMPARE(object.Count(), count);
    for (int i = 0; i < count; ++i) {
        QCOMPARE(object.MemberNameByIndex(i), name(i));
        QCOMPARE(object.GetInt(name(i), INT_MIN), expected[std::size_t(i)]);
    }
    QVERIFY(!object.Contains(name(count)));

    // Removing members moves the later ones forward and takes the object back below the size
    // of the index: every other name must still find its own value.
    for (int removed = 0; removed < count; removed += 2) {
        QVERIFY(object.Remove(name(removed)));
        for (int i = 0; i < count; ++i) {
            if (i % 2 == 0 && i <= removed)
                QVERIFY(!object.Contains(name(i)));
            else
                QCOMPARE(object.GetInt(name(i), INT_MIN), expected[std::size_t(i)]);
        }
    }
    QCOMPARE(object.Count(), count / 2);
    object.SetInt(name(0), 7); // a removed name goes to the end
    QCOMPARE(object.MemberNameByIndex(object.Count() - 1), name(0));
    QCOMPARE(object.GetInt(name(0)), 7);
}

void TestMiniJson::stringsAtWordBoundaries_data()
{
    QTest::addColumn<QByteArray>("escape");
    QTest::addColumn<QByteArray>("decoded");

    QTest::addRow("quote") << QByteArray("\\\"") << QByteArray("\"");
    QTest::addRow("backslash") << QByteArray("\\\\") << QByteArray("\\");
    QTest::addRow("unicode") << QByteArray("\\u00e9") << QByteArray("\xC3\xA9");
    QTest::addRow("none") << QByteArray() << QByteArray();
}

void TestMiniJson::stringsAtWordBoundaries()
{
    QFETCH(QByteArray, escape);
    QFETCH(QByteArray, decoded);

    // The parser scans strings several bytes at a time: put the escape and the closing quote at
    // every offset within such a word, as a value and as a name.
    for (int length = 0; length < 20; ++length) {
        const QByteArray plain(length, 'x');
        const QByteArray text = plain + escape + plain;
        const std::string value = (plain + decoded + plain).toStdString();
        QCOMPARE((*parse("[\"" + text + "\"]"))[0].StringValue(), value);
        QCOMPARE(parse("{\"" + text + "\":1}")->ObjectMemberNameByIndex(0), value);
        // Cut off before the closing quote, at every length.
        try {
            parse("[\"" + text);
            QFAIL("an unterminated string was accepted");
        } catch (const CParseErrorException& e) {
            QCOMPARE(QByteArray(e.what()), QByteArray("Closing \" not found"));
            QCOMPARE(int(e.Position()), 1);
        }
    }
}

void TestMiniJson::parsedTreesStayMutable()
{
    // Parsed values live in their tree's arena; changing the tree, moving a parsed tree into
    // another one and dropping the source must neither free them twice nor leak (see ASan).
    auto tree = CParser::Parse(R"({"a":{"b":[1,2]},"c":"a string longer than sixteen bytes","d":[{}]})");
    CObject& a = (*tree)["a"].Object();
    for (int i = 0; i < 20; ++i)
        a.SetInt("n" + std::to_string(i), i); // outgrows the parsed storage
    (*tree)["a"]["b"].Array().AddString("three");
    (*tree)["d"].Array().Remove(0);
    QVERIFY(tree->Object().Remove("c"));
    tree->Object().Add("e", CParser::Parse(R"(["inner",{"x":null}])"));
    tree->Object().SetString("a", "replaced");
    auto copy = tree->Copy();
    tree.reset();
    QCOMPARE(compact(*copy), QByteArray(R"({"a":"replaced","d":[],"e":["inner",{"x":null}]})"));
}

void TestMiniJson::fileRoundTrip()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const std::string path = dir.filePath("light.json").toStdString();
    const auto tree = CParser::Parse(R"({"name":"Hall/1","xy":[0.3,0.4]})");
    CWriter(true).WriteToFile(path, *tree);

    QFile file(QString::fromStdString(path));
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(),
             QByteArray("{\n  \"name\":\"Hall\\/1\",\n  \"xy\":[\n    0.3,\n    0.4\n  ]\n}"));
    QCOMPARE(compact(*CParser::ParseFromFile(path)), compact(*tree));
}

void TestMiniJson::fileErrors()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const std::string missing = dir.filePath("no/such.json").toStdString();
    const CObject empty;

    QCOMPARE(thrownMessage([&] { CWriter().WriteToFile(missing, empty); }),
             QByteArray("Failed to open file for writing"));
    QCOMPARE(thrownMessage([&] { CParser::ParseFromFile(missing); }),
             bytes("Failed to open file " + missing));
    // A directory opens for reading on Linux, but reading it fails.
    QCOMPARE(thrownMessage([&] { CParser::ParseFromFile(dir.path().toStdString()); }),
             QByteArray("Failed to read 0 bytes from file (read=0)"));
    QVERIFY_EXCEPTION_THROWN(CParser::ParseFromFile(missing), CIOException);

    QFile broken(dir.filePath("broken.json"));
    QVERIFY(broken.open(QIODevice::WriteOnly));
    broken.write("[1,");
    broken.close();
    QVERIFY_EXCEPTION_THROWN(CParser::ParseFromFile(broken.fileName().toStdString()), CParseErrorException);
}

QTEST_APPLESS_MAIN(TestMiniJson)
#include "tst_minijson.moc"
