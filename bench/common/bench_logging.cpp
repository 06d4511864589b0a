// The time a log statement takes on the thread that writes it (the service's event loop).
//
// "direct": what a line cost before lines were queued: the line formatted and written under
// the log's lock by glibc's syslog() (LOG_CONS | LOG_NDELAY, so the console when /dev/log is
// missing) and fprintf(stderr). "queued": LOG_* through the writer thread. The outputs:
//   system log  - a datagram socket read by a thread of this program (a daemon keeping up);
//   missing     - no system log, a console that takes 12.8 kB/s (a 115200-baud serial line);
//   stalled     - standard error is a pipe nobody reads ("direct" is left out: it never returns).
// The glibc cases need a private /dev (run_bench_logging.sh); without it they are skipped, so
// that the machine's own console is never written.
#include "directlog.h"

#include <common/logginginterface.h>

#include <benchmark/benchmark.h>

#include <QByteArray>
#include <QCoreApplication>
#include <QString>
#include <QVariant>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

const char* privateDev()
{
    return std::getenv("BENCH_PRIVATE_DEV");
}

QByteArray scratchPath(const char* name)
{
    static const QByteArray dir = [] {
        if (const char* dev = privateDev())
            return QByteArray(dev);
        char pattern[] = "/tmp/bench_logging.XXXXXX";
        return QByteArray(::mkdtemp(pattern));
    }();
    return dir + '/' + name;
}

// A system log daemon that keeps up: reads every datagram of `path` on its own thread.
void startDaemon(const QByteArray& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
    ::unlink(path.constData());
    if (::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        std::abort();
    std::thread([fd] {
        char buffer[8192];
        while (::recv(fd, buffer, sizeof buffer, 0) >= 0) {
        }
    }).detach();
}

// A serial console: a FIFO read at 128 bytes every 10 ms.
void startSlowConsole(const QByteArray& path)
{
    ::unlink(path.constData());
    ::mkfifo(path.constData(), 0600);
    const int fd = ::open(path.constData(), O_RDWR | O_CLOEXEC); // never sees end of file
    std::thread([fd] {
        char buffer[128];
        for (;;) {
            if (::read(fd, buffer, sizeof buffer) < 0)
                return;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }).detach();
}

// What a line of the service looks like in an event storm, and what its values cost.
QString describe(int i)
{
    return QVariant(QStringLiteral("light %1 brightness %2").arg(i % 50).arg(i % 254)).toString();
}

void BM_SwitchedOffLine_Direct(benchmark::State& state)
{
    setDetailedLoggingEnabled(false);
    int i = 0;
    for (auto _ : state) {
        // A CDebug built by hand, as LOG_DEBUG expanded before: the values are evaluated.
        CDebug(LogDebug, __FILE__, __LINE__) << "set" << describe(i) << QByteArray::number(i * 0.5);
        ++i;
    }
}
BENCHMARK(BM_SwitchedOffLine_Direct);

void BM_SwitchedOffLine_Queued(benchmark::State& state)
{
    setDetailedLoggingEnabled(false);
    int i = 0;
    for (auto _ : state) {
        LOG_DEBUG << "set" << describe(i) << QByteArray::number(i * 0.5);
        ++i;
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_SwitchedOffLine_Queued);

// Points /dev/log at the daemon (or removes it) and /dev/console at the slow console, in the
// private /dev only.
bool prepareGlibc(bool systemLogThere)
{
    if (!privateDev())
        return false;
    static const bool started = [] {
        startDaemon(scratchPath("glibc-log"));
        startSlowConsole(scratchPath("glibc-console"));
        ::unlink("/dev/console");
        return ::symlink(scratchPath("glibc-console").constData(), "/dev/console") == 0;
    }();
    closeDirect();
    ::unlink("/dev/log");
    if (systemLogThere && ::symlink(scratchPath("glibc-log").constData(), "/dev/log") != 0)
        return false;
    openDirect("bench_logging");
    return started;
}

void runDirect(benchmark::State& state, bool systemLogThere)
{
    if (!prepareGlibc(systemLogThere)) {
        state.SkipWithError("needs a private /dev: run_bench_logging.sh");
        return;
    }
    int i = 0;
    for (auto _ : state) {
        const QByteArray message = "set " + describe(i).toUtf8() + ' ' + QByteArray::number(i * 0.5);
        writeDirect(LogInfo, __FILE__, __LINE__, message, false);
        ++i;
    }
    closeDirect();
}

void BM_SystemLog_Direct(benchmark::State& state)
{
    runDirect(state, true);
}
BENCHMARK(BM_SystemLog_Direct)->UseRealTime();

void BM_MissingSystemLog_Direct(benchmark::State& state)
{
    runDirect(state, false);
}
// Each line waits for the console once its pipe is full: few iterations say enough.
BENCHMARK(BM_MissingSystemLog_Direct)->UseRealTime()->Iterations(2000);

// `standardError`: -1 for none (not verbose).
void runQueued(benchmark::State& state, const QByteArray& systemLog, const QByteArray& console,
               int standardError)
{
    setLogOutputPaths(systemLog, console, standardError < 0 ? STDERR_FILENO : standardError);
    initLogging(false, false, standardError >= 0, false);
    int i = 0;
    for (auto _ : state) {
        LOG_INFO << "set" << describe(i) << QByteArray::number(i * 0.5);
        ++i;
    }
    state.counters["dropped"] =
        benchmark::Counter(double(droppedLogLines()), benchmark::Counter::kAvgIterations);
    shutdownLogging();
}

void BM_SystemLog_Queued(benchmark::State& state)
{
    static const bool started = (startDaemon(scratchPath("queued-log")), true);
    Q_UNUSED(started);
    runQueued(state, scratchPath("queued-log"), "/nonexistent/console", -1);
}
BENCHMARK(BM_SystemLog_Queued)->UseRealTime();

void BM_MissingSystemLog_Queued(benchmark::State& state)
{
    static const bool started = (startSlowConsole(scratchPath("queued-console")), true);
    Q_UNUSED(started);
    runQueued(state, scratchPath("no-such-log"), scratchPath("queued-console"), -1);
}
BENCHMARK(BM_MissingSystemLog_Queued)->UseRealTime();

void BM_StalledStandardError_Queued(benchmark::State& state)
{
    static int stalled[2] = {-1, -1};
    static const bool started = (startDaemon(scratchPath("stalled-log")), ::pipe2(stalled, O_CLOEXEC) == 0);
    if (!started) {
        state.SkipWithError("no pipe");
        return;
    }
    runQueued(state, scratchPath("stalled-log"), "/nonexistent/console", stalled[1]);
}
BENCHMARK(BM_StalledStandardError_Queued)->UseRealTime();

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("bench_logging"));
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    // The writers of the slow outputs may still be busy: do not wait for them.
    std::_Exit(0);
}
