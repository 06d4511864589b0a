#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QString>
#include <QStringList>

#include <functional>

namespace e2e {

// Longest wait for anything the programs do by themselves. Only a limit: every wait polls and
// returns as soon as its condition holds, so it is generous for slow (sanitizer) builds.
constexpr int kWaitMs = 30000;
// Longest wait for a program to end after SIGINT; each ends in well under a second normally.
constexpr int kStopMs = 10000;

// Runs the event loop until `condition` holds or `timeoutMs` have passed.
bool waitFor(const std::function<bool()>& condition, int timeoutMs = kWaitMs);

// One program under test as a child process. Its standard output and error go to files in a
// log folder (appended across restarts), so a chatty program never blocks on a full pipe and
// the logs stay behind for a failed test to be read.
class ManagedProcess
{
public:
    // `name` names the log files: <logDir>/<name>.out and <logDir>/<name>.err.
    ManagedProcess(const QString& name, const QString& logDir);
    // A process still running is killed: a failed test leaves nothing behind.
    ~ManagedProcess();
    ManagedProcess(const ManagedProcess&) = delete;
    ManagedProcess& operator=(const ManagedProcess&) = delete;

    bool start(const QString& program, const QStringList& arguments,
               const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment());
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    qint64 pid() const { return m_process.processId(); }

    QString standardOutput() const;
    QString standardError() const;
    // Lines of standard error that match `pattern`, in order.
    QStringList errorLines(const QRegularExpression& pattern) const;
    // Waits for a line of standard output (or error) that matches, and gives its match.
    bool waitForOutputLine(const QRegularExpression& pattern, QRegularExpressionMatch* match = nullptr,
                           int timeoutMs = kWaitMs);
    bool waitForErrorLine(const QRegularExpression& pattern, QRegularExpressionMatch* match = nullptr,
                          int timeoutMs = kWaitMs);

    // Sends SIGINT and waits for the end: true for a normal exit with status 0.
    bool interrupt(int timeoutMs = kStopMs);
    // Sends SIGKILL and waits for the end, as a crash or an out-of-memory kill would end it:
    // true once it has ended.
    bool killHard(int timeoutMs = kStopMs);
    // Waits for an end that something else caused (exit status as for interrupt()).
    bool waitForExit(int timeoutMs = kWaitMs);
    int exitCode() const { return m_process.exitCode(); }
    QProcess::ExitStatus exitStatus() const { return m_process.exitStatus(); }
    QString errorLogPath() const { return m_errPath; }

private:
    bool waitForLine(const QString& path, const QRegularExpression& pattern, QRegularExpressionMatch* match,
                     int timeoutMs) const;

    QString m_name;
    QString m_outPath;
    QString m_errPath;
    QProcess m_process;
};

} // namespace e2e
