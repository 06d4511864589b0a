#include <common/logginginterface.h>
#include <kovacommon/internalid.h>

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <unistd.h>

// Collects the lines that reach the log while it exists.
struct CapturedLog
{
    struct Line
    {
        int kind;
        QByteArray text;
    };
    QVector<Line> lines;
    LogSink previous = setLogSink([this](int kind, const QByteArray& line) { lines.append({kind, line}); });
    ~CapturedLog() { setLogSink(previous); }
};

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setDetailedLoggingEnabled(false); }

    void lineLayout_data();
    void lineLayout();
    void valuesAreSeparatedByOneBlank();
    void detailedKindsFollowTheSwitch();
    void indentNestsAndUnwinds();
    void qtMessagesBecomeLogLines();
    void settingsDriveInitialisation();
};

void TestLogging::lineLayout_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QByteArray>("file");
    QTest::addColumn<int>("line");
    QTest::addColumn<int>("indent");
    QTest::addColumn<QByteArray>("expected");

    QTest::addRow("info, directory stripped") << 0 << QByteArray("/src/huecontroller/hue_main.cpp") << 80 << 0
                                              << QByteArray("-- hue_main.cpp           80 4711 msg");
    QTest::addRow("warning") << 3 << QByteArray("hue_main.cpp") << 52 << 0
                             << QByteArray("WW hue_main.cpp           52 4711 msg");
    QTest::addRow("error") << 6 << QByteArray("a/b.cpp") << 1 << 0
                           << QByteArray("EE b.cpp                   1 4711 msg");
    QTest::addRow("unknown kind") << 42 << QByteArray("x.cpp") << 7 << 0
                                  << QByteArray("?? x.cpp                   7 4711 msg");
    QTest::addRow("name of exactly 20") << 0 << QByteArray("abcdefghij_klmno.cpp") << 7 << 0
                                        << QByteArray("-- abcdefghij_klmno.cpp    7 4711 msg");
    QTest::addRow("longer name kept whole") << 0 << QByteArray("hue_bridgeapi2_events.cpp") << 123456 << 0
                                            << QByteArray("-- hue_bridgeapi2_events.cpp123456 4711 msg");
    QTest::addRow("two indents") << 0 << QByteArray("x.cpp") << 7 << 2
                                 << QByteArray("-- x.cpp                   7 4711       msg");
}

void TestLogging::lineLayout()
{
    QFETCH(int, kind);
    QFETCH(QByteArray, file);
    QFETCH(int, line);
    QFETCH(int, indent);
    QFETCH(QByteArray, expected);
    QCOMPARE(formatLogLine(kind, file.constData(), line, 4711, indent, "msg"), expected);
}

void TestLogging::valuesAreSeparatedByOneBlank()
{
    CapturedLog log;
    const QString name = QStringLiteral("Küche");
    LOG_INFO << "start" << 3u << qint64(-12) << name << QByteArray("bytes") << true << 0.25 << 'c'
             << QLatin1String("latin") << std::string("std") << InternalId(0xBEED, 0x00010005);
    QCOMPARE(log.lines.size(), 1);
    QCOMPARE(log.lines[0].kind, int(LogInfo));
    const QByteArray expectedTail = QByteArray(" ") + QByteArray::number(::getpid()) +
                                    " start 3 -12 K\xc3\xbc"
                                    "che bytes true 0.25 c latin std " +
                                    InternalId(0xBEED, 0x00010005).toLoggingString();
    QVERIFY2(log.lines[0].text.startsWith("-- tst_logging.cpp"), log.lines[0].text.constData());
    QVERIFY2(log.lines[0].text.endsWith(expectedTail), log.lines[0].text.constData());

    // Qt types go through QDebug, without the quotes QDebug would add by default.
    LOG_WARNING << QStringList{QStringLiteral("a"), QStringLiteral("b")}
                << QUrl(QStringLiteral("https://127.0.0.1/api"));
    QCOMPARE(log.lines.size(), 2);
    QVERIFY2(log.lines[1].text.endsWith(" (a, b) https://127.0.0.1/api"), log.lines[1].text.constData());
}

// Detail kinds are written only while detailed logging is on; each kind has its line prefix.
void TestLogging::detailedKindsFollowTheSwitch()
{
    CapturedLog log;
    auto prefixesWritten = [&log] {
        for (int kind = 0; kind <= 6; ++kind)
            CDebug(kind, __FILE__, __LINE__) << "kind" << kind;
        QByteArrayList prefixes;
        for (const auto& line : log.lines)
            prefixes.append(QByteArray::number(line.kind) + line.text.left(2));
        log.lines.clear();
        return prefixes.join(' ');
    };
    setDetailedLoggingEnabled(false);
    QCOMPARE(prefixesWritten(), QByteArray("0-- 3WW 6EE"));
    setDetailedLoggingEnabled(true);
    QCOMPARE(prefixesWritten(), QByteArray("0-- 1** 2?? 3WW 4** 5?? 6EE"));
    // A disabled line never evaluates into text: it must not even be built.
    setDetailedLoggingEnabled(false);
    QVERIFY(!CDebug(LogDetail, __FILE__, __LINE__).isEnabled());
}

void TestLogging::indentNestsAndUnwinds()
{
    CapturedLog log;
    LOG_INFO << "outer";
    {
        LogIndent one;
        LOG_INFO << "one";
        {
            LogIndent two;
            LOG_INFO << "two";
        }
        LOG_INFO << "one again";
    }
    LOG_INFO << "outer again";
    QCOMPARE(LogIndent::depth(), 0);

    const QByteArray pid = QByteArray::number(::getpid());
    const QList<QByteArray> expectedEnds{pid + " outer", pid + "    one", pid + "       two",
                                         pid + "    one again", pid + " outer again"};
    QCOMPARE(log.lines.size(), expectedEnds.size());
    for (int i = 0; i < expectedEnds.size(); ++i)
        QVERIFY2(log.lines[i].text.endsWith(expectedEnds[i]), log.lines[i].text.constData());
}

void TestLogging::qtMessagesBecomeLogLines()
{
    initLogging(false, false, false, false);
    CapturedLog log;
    const int line = __LINE__ + 1;
    qWarning("value %d", 17);
    qCritical() << "broken";
    qDebug() << "hidden while detailed logging is off";
    shutdownLogging();

    QCOMPARE(log.lines.size(), 2);
    QCOMPARE(log.lines[0].kind, int(LogWarning));
    QCOMPARE(log.lines[0].text, QByteArray("WW tst_logging.cpp     ") +
                                    QByteArray::number(line).rightJustified(5) + " " +
                                    QByteArray::number(::getpid()) + " value 17");
    QCOMPARE(log.lines[1].kind, int(LogError));
    QVERIFY(log.lines[1].text.startsWith("EE "));

    // After shutdown Qt's own handler is back: nothing reaches the sink.
    qWarning("after shutdown");
    QCOMPARE(log.lines.size(), 2);
}

void TestLogging::settingsDriveInitialisation()
{
    // ctest points XDG_CONFIG_HOME at a private folder; the application store lives there.
    QSettings settings;
    // debug, trace -> detailed logging; trace alone switches detail on too.
    const struct
    {
        const char* debug;
        const char* trace;
        bool detailed;
    } rows[] = {{"1", nullptr, true}, {"0", "2", true}, {nullptr, nullptr, false}};
    for (const auto& row : rows) {
        settings.clear();
        if (row.debug)
            settings.setValue(QStringLiteral("logging/debug"), QString::fromLatin1(row.debug));
        if (row.trace)
            settings.setValue(QStringLiteral("logging/trace"), QString::fromLatin1(row.trace));
        settings.sync();
        initLoggingByConfig();
        QCOMPARE(isDetailedLoggingEnabled(), row.detailed);
        QVERIFY(!row.detailed || QLoggingCategory::defaultCategory()->isDebugEnabled());
        shutdownLogging();
    }
}

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("vorn"));
    QCoreApplication::setApplicationName(QStringLiteral("huecontroller-logtest"));
    TestLogging test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logging.moc"
