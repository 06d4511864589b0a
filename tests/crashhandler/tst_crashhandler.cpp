#include "common/crashhandler.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/ptrace.h>
#include <unistd.h>

#include <cerrno>

// Crashes a helper process that installed the crash handler and checks what is left behind:
// the minidump (read back with Breakpad's own tools) and the start of the dump collector.
class TestCrashHandler : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void versionStamp_data();
    void versionStamp();
    void crashIsDumpedAndCollected();
    void dumpIsRemovedWithoutCollector();

private:
    void runCrashingHelper(const QString& dumpDir, const QByteArray& path);

    QTemporaryDir m_symbols;
};

namespace {
const QString kModule = QStringLiteral("crashtest-module");
const QByteArray kStampPrefix = "$Version: 3.5.3 build 14825 module ";

QStringList dumpsIn(const QString& dir)
{
    return QDir(dir).entryList({QStringLiteral("*.dmp")}, QDir::Files);
}

// Breakpad's dumper is a clone of the crashed process that stops its threads with ptrace.
// qemu-user (the aarch64 tests on an x86-64 machine) emulates neither ptrace nor that clone, so
// there no dump can be written. A kernel answers a request about a process that is not being
// traced with ESRCH; an emulator without ptrace answers ENOSYS.
bool ptraceMissing()
{
    errno = 0;
    return ptrace(PTRACE_PEEKDATA, getpid(), nullptr, nullptr) == -1 && errno == ENOSYS;
}
} // namespace

void TestCrashHandler::initTestCase()
{
    // minidump_stackwalk expects <dir>/<module>/<id>/<module>.sym, named by the file's first line
    // "MODULE Linux x86_64 <id> <module>".
    QProcess dumpSyms;
    dumpSyms.start(QStringLiteral(DUMP_SYMS), {QStringLiteral(CRASH_HELPER)});
    QVERIFY(dumpSyms.waitForFinished(120000));
    const QByteArray symbols = dumpSyms.readAllStandardOutput();
    const QList<QByteArray> header = symbols.left(symbols.indexOf('\n')).split(' ');
    QVERIFY2(header.size() == 5 && header.at(0) == "MODULE", symbols.left(200).constData());
    const QString folder = QStringLiteral("%1/%2/").arg(QString(header.at(4)), QString(header.at(3)));
    QVERIFY(QDir(m_symbols.path()).mkpath(folder));
    QFile file(m_symbols.filePath(folder + header.at(4) + ".sym"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    QCOMPARE(file.write(symbols), symbols.size());
}

void TestCrashHandler::versionStamp_data()
{
    QTest::addColumn<QByteArray>("name");
    QTest::addColumn<quint32>("hardware");
    QTest::addColumn<QByteArray>("expected");
    QTest::addRow("hub model") << QByteArray("svc") << 0x30002u << kStampPrefix + "svc hardware 3.2 $";
    QTest::addRow("long name cut to the buffer")
        << QByteArray(400, 'n') << 0x10000u
        << kStampPrefix + QByteArray(int(kCrashVersionStampSize) - 1 - kStampPrefix.size(), 'n');
}

void TestCrashHandler::versionStamp()
{
    QFETCH(QByteArray, name);
    QFETCH(quint32, hardware);
    QFETCH(QByteArray, expected);
    char stamp[kCrashVersionStampSize];
    formatCrashVersionStamp(stamp, sizeof stamp, name.constData(), hardware);
    QCOMPARE(QByteArray(stamp), expected);
}

void TestCrashHandler::runCrashingHelper(const QString& dumpDir, const QByteArray& path)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("PATH"), QString::fromLocal8Bit(path));
    // The address sanitizer takes the fatal signals for itself; here Breakpad must get them.
    env.insert(
        QStringLiteral("ASAN_OPTIONS"),
        QStringLiteral("handle_segv=0:handle_abort=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0"));
    QProcess helper;
    helper.setProcessEnvironment(env);
    helper.setProcessChannelMode(QProcess::ForwardedChannels);
    helper.start(QStringLiteral(CRASH_HELPER), {kModule, dumpDir});
    QVERIFY(helper.waitForFinished(60000));
    QCOMPARE(helper.exitStatus(), QProcess::CrashExit);
}

void TestCrashHandler::crashIsDumpedAndCollected()
{
    if (ptraceMissing())
        QSKIP("no ptrace here (qemu-user): Breakpad cannot write a dump");
    QTemporaryDir dumpDir;
    QTemporaryDir binDir;
    // The stand-in collector writes its arguments to a file, renamed into place when complete.
    const QString argsFile = binDir.filePath(QStringLiteral("collector-args"));
    QFile collector(binDir.filePath(QStringLiteral("dump-collector")));
    QVERIFY(collector.open(QIODevice::WriteOnly));
    collector.write(QStringLiteral("#!/bin/sh\nprintf '%s\\n' \"$@\" > '%1.tmp' && mv '%1.tmp' '%1'\n")
                        .arg(argsFile)
                        .toLocal8Bit());
    collector.close();
    QVERIFY(collector.setPermissions(QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));

    runCrashingHelper(dumpDir.path(), QFile::encodeName(binDir.path()) + ':' + qgetenv("PATH"));
    if (QTest::currentTestFailed())
        return;

    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(argsFile), 10000);
    QFile args(argsFile);
    QVERIFY(args.open(QIODevice::ReadOnly));
    const QStringList dumps = dumpsIn(dumpDir.path());
    QCOMPARE(dumps.size(), 1);
    const QString dumpPath = dumpDir.filePath(dumps.first());
    QCOMPARE(QString::fromLocal8Bit(args.readAll()), kModule + '\n' + dumpPath + '\n');

    QFile dump(dumpPath);
    QVERIFY(dump.open(QIODevice::ReadOnly));
    QVERIFY(dump.readAll().contains(kStampPrefix + kModule.toUtf8() + " hardware -1.65535 $"));

    QProcess stackwalk;
    stackwalk.start(QStringLiteral(MINIDUMP_STACKWALK), {dumpPath, m_symbols.path()});
    QVERIFY(stackwalk.waitForFinished(120000));
    QCOMPARE(stackwalk.exitCode(), 0);
    const QString report = QString::fromUtf8(stackwalk.readAllStandardOutput());
    // Frame 0 of the crashed thread, named from the symbols.
    const QRegularExpression crashFrame(
        QStringLiteral(R"(Thread \d+ \(crashed\)\n\s*0\s+crashhelper!crashHereOnPurpose\()"));
    QVERIFY2(crashFrame.match(report).hasMatch(), qPrintable(report.left(3000)));
}

void TestCrashHandler::dumpIsRemovedWithoutCollector()
{
    if (ptraceMissing())
        QSKIP("no ptrace here (qemu-user): Breakpad cannot write a dump");
    QTemporaryDir dumpDir;
    QTemporaryDir emptyBinDir;
    // The helper only dies after the dump is written and the collector child forked, so a dump
    // still here is one that the child did not remove.
    runCrashingHelper(dumpDir.path(), QFile::encodeName(emptyBinDir.path()));
    if (QTest::currentTestFailed())
        return;
    QTRY_VERIFY_WITH_TIMEOUT(dumpsIn(dumpDir.path()).isEmpty(), 10000);
}

QTEST_GUILESS_MAIN(TestCrashHandler)
#include "tst_crashhandler.moc"
