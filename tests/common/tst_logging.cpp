#include <common/logginginterface.h>
#include <kovacommon/internalid.h>

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>
#include <QtTest>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
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
    void switchedOffLinesEvaluateNothing_data();
    void switchedOffLinesEvaluateNothing();
    void systemLogGetsPriorityAndTag();
    void stalledOutputNeitherBlocksNorLosesCount_data();
    void stalledOutputNeitherBlocksNorLosesCount();
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

void TestLogging::switchedOffLinesEvaluateNothing_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("detailed");
    QTest::addColumn<bool>("written");
    for (const int kind : {LogDebug, LogTrace, LogDetail, LogDetailTrace}) {
        QTest::addRow("kind %d off", kind) << kind << false << false;
        QTest::addRow("kind %d on", kind) << kind << true << true;
    }
    QTest::addRow("warning, detail off") << int(LogWarning) << false << true;
}

void TestLogging::switchedOffLinesEvaluateNothing()
{
    QFETCH(int, kind);
    QFETCH(bool, detailed);
    QFETCH(bool, written);
    CapturedLog log;
    setDetailedLoggingEnabled(detailed);
    int evaluated = 0;
    auto costly = [&evaluated] { return QString::number(++evaluated); };
    LOG_KIND(kind) << costly() << costly();
    QCOMPARE(evaluated, written ? 2 : 0);
    QCOMPARE(log.lines.size(), written ? 1 : 0);

    // As the unbraced body of if/else, the else still belongs to the outer if.
    evaluated = 0;
    for (const bool condition : {true, false}) {
        if (condition)
            LOG_KIND(kind) << costly();
        else
            evaluated += 10;
    }
    QCOMPARE(evaluated, written ? 11 : 10);
}

namespace {

// A datagram socket in a private folder that plays the system log daemon.
struct FakeSystemLog
{
    QTemporaryDir dir;
    QByteArray path = QFile::encodeName(dir.filePath(QStringLiteral("log")));
    int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    FakeSystemLog()
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
            qFatal("cannot bind %s", path.constData());
    }
    ~FakeSystemLog() { ::close(fd); }
    QByteArrayList receivedNow() const
    {
        QByteArrayList datagrams;
        char buffer[4096];
        ssize_t n;
        while ((n = ::recv(fd, buffer, sizeof buffer, MSG_DONTWAIT)) > 0)
            datagrams.append(QByteArray(buffer, int(n)));
        return datagrams;
    }
};

// Reads `fd` until the writer closes its end (or nothing came for five seconds).
QByteArray readUntilClosed(int fd)
{
    QByteArray all;
    char buffer[65536];
    pollfd ready{fd, POLLIN, 0};
    while (::poll(&ready, 1, 5000) == 1) {
        const ssize_t n = ::read(fd, buffer, sizeof buffer);
        if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
            break;
        if (n > 0)
            all.append(buffer, int(n));
    }
    return all;
}

QByteArray readAvailable(int fd)
{
    QByteArray all;
    char buffer[65536];
    ssize_t n;
    while ((n = ::read(fd, buffer, sizeof buffer)) > 0)
        all.append(buffer, int(n));
    return all;
}

void restoreDefaultOutputs()
{
    setLogOutputPaths("/dev/log", "/dev/console", STDERR_FILENO);
}

} // namespace

// The system log gets "<PRI>Mmm dd hh:mm:ss tag: line", facility user, severity by kind.
void TestLogging::systemLogGetsPriorityAndTag()
{
    FakeSystemLog daemon;
    setLogOutputPaths(daemon.path, "/nonexistent/console", -1);
    initLogging(true, false, false, false);
    LOG_INFO << "info";
    LOG_WARNING << "warning";
    LOG_ERROR << "error";
    LOG_DETAIL << "detail";
    QVERIFY(flushLogging(std::chrono::seconds(5)));
    shutdownLogging();
    restoreDefaultOutputs();

    const QByteArrayList received = daemon.receivedNow();
    const QByteArrayList expected{"<14>", "<12>", "<11>", "<15>"};
    const QByteArrayList messages{"-- tst_logging.cpp", "WW tst_logging.cpp", "EE tst_logging.cpp",
                                  "** tst_logging.cpp"};
    QCOMPARE(received.size(), expected.size());
    const QRegularExpression layout(QStringLiteral(R"(^<\d+>[A-Z][a-z]{2} [ \d]\d \d\d:\d\d:\d\d [^:]+: )"));
    for (int i = 0; i < received.size(); ++i) {
        QVERIFY2(received[i].startsWith(expected[i]), received[i].constData());
        QVERIFY2(layout.match(QString::fromUtf8(received[i])).hasMatch(), received[i].constData());
        const QByteArray line = received[i].mid(received[i].indexOf(": ") + 2);
        QVERIFY2(line.startsWith(messages[i]), received[i].constData());
    }
}

void TestLogging::stalledOutputNeitherBlocksNorLosesCount_data()
{
    QTest::addColumn<bool>("stallStandardError");
    // The system log is missing, so the lines go to the console: a pipe nobody reads yet.
    QTest::addRow("console stalled") << false;
    // The console is a file; standard error is a pipe nobody reads.
    QTest::addRow("standard error stalled") << true;
}

// A stalled output holds up the writer thread alone. The lines that did not fit the queue are
// counted and reported in their place; the rest arrive in order, and shutdownLogging writes out
// what was still queued.
void TestLogging::stalledOutputNeitherBlocksNorLosesCount()
{
    QFETCH(bool, stallStandardError);
    QTemporaryDir dir;
    const QByteArray consolePath = QFile::encodeName(dir.filePath(QStringLiteral("console")));
    int consoleFd = -1;
    int errorPipe[2] = {-1, -1};
    if (stallStandardError) {
        QVERIFY(::pipe2(errorPipe, O_CLOEXEC | O_NONBLOCK) == 0);
        // Blocking on the writer's side, as standard error is.
        ::fcntl(errorPipe[1], F_SETFL, 0);
        QFile console(QString::fromLocal8Bit(consolePath));
        QVERIFY(console.open(QIODevice::WriteOnly));
    } else {
        QVERIFY(::mkfifo(consolePath.constData(), 0600) == 0);
        consoleFd = ::open(consolePath.constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
        QVERIFY(consoleFd >= 0);
    }
    setLogOutputPaths(QFile::encodeName(dir.filePath(QStringLiteral("no-log"))), consolePath, errorPipe[1]);
    initLogging(false, false, stallStandardError, false);

    const int count = 5000;
    const QByteArray padding(80, 'x');
    QElapsedTimer timer;
    timer.start();
    for (int i = 0; i < count; ++i)
        LOG_WARNING << "line" << i << padding;
    // Generous: the output never moves on its own, so a caller waiting for it would never end.
    QVERIFY2(timer.elapsed() < 3000, QByteArray::number(timer.elapsed()).constData());
    if (!stallStandardError)
        QVERIFY(droppedLogLines() > 0);

    QByteArray errorOutput;
    if (stallStandardError) {
        // The writer skips the copies while the pipe stays full: the queue empties meanwhile.
        QVERIFY(flushLogging(std::chrono::seconds(5)));
        errorOutput = readAvailable(errorPipe[0]);
        LOG_WARNING << "after the reader came back";
    }
    QByteArray consoleOutput;
    if (stallStandardError) {
        shutdownLogging();
        QFile console(QString::fromLocal8Bit(consolePath));
        QVERIFY(console.open(QIODevice::ReadOnly));
        consoleOutput = console.readAll();
    } else {
        std::thread stopper(shutdownLogging);
        consoleOutput = readUntilClosed(consoleFd);
        stopper.join();
        ::close(consoleFd);
    }
    restoreDefaultOutputs();

    // Every line is there, or counted by the report that stands in its place.
    int expected = 0;
    int reports = 0;
    const QRegularExpression numbered(QStringLiteral(R"( line (\d+) x+\r$)"));
    const QRegularExpression dropped(
        QStringLiteral(R"( (\d+) log lines dropped: the system log could not keep up\r$)"));
    for (const QByteArray& raw : consoleOutput.split('\n')) {
        const QString line = QString::fromUtf8(raw);
        if (line.isEmpty() || line.endsWith(QLatin1String("after the reader came back\r")))
            continue;
        if (const auto match = dropped.match(line); match.hasMatch()) {
            QVERIFY2(line.contains(QLatin1String(" WW logwriter.cpp")), qPrintable(line));
            expected += match.captured(1).toInt();
            ++reports;
            continue;
        }
        const auto match = numbered.match(line);
        QVERIFY2(match.hasMatch(), qPrintable(line));
        QCOMPARE(match.captured(1).toInt(), expected);
        ++expected;
    }
    QCOMPARE(expected, count);
    if (!stallStandardError)
        QVERIFY(reports > 0);

    if (stallStandardError) {
        // What got through to standard error is in order; once its reader is back, a note says
        // how many copies were skipped, in front of the next line.
        int previous = -1;
        for (const QByteArray& line : errorOutput.split('\n')) {
            if (line.isEmpty() || line.contains("log lines dropped"))
                continue;
            const int number = line.mid(line.indexOf(" line ") + 6).split(' ').value(0).toInt();
            QVERIFY2(number > previous, line.constData());
            previous = number;
        }
        const QByteArray rest = readAvailable(errorPipe[0]);
        QVERIFY2(rest.contains(" log lines not copied to standard error: its reader could not keep up\n"),
                 rest.right(300).constData());
        QVERIFY2(rest.endsWith(" after the reader came back\n"), rest.right(300).constData());
        ::close(errorPipe[0]);
        ::close(errorPipe[1]);
    }
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
