#include "managedprocess.h"

#include <QFile>
#include <QTest>

#include <signal.h>

namespace e2e {

bool waitFor(const std::function<bool()>& condition, int timeoutMs)
{
    return QTest::qWaitFor(condition, timeoutMs);
}

namespace {

QString readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

} // namespace

ManagedProcess::ManagedProcess(const QString& name, const QString& logDir)
    : m_name(name), m_outPath(logDir + '/' + name + ".out"), m_errPath(logDir + '/' + name + ".err")
{
}

ManagedProcess::~ManagedProcess()
{
    if (isRunning()) {
        qWarning("%s was still running; killing it (its log: %s)", qPrintable(m_name), qPrintable(m_errPath));
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

bool ManagedProcess::start(const QString& program, const QStringList& arguments,
                           const QProcessEnvironment& environment)
{
    m_process.setStandardOutputFile(m_outPath, QIODevice::Append);
    m_process.setStandardErrorFile(m_errPath, QIODevice::Append);
    m_process.setProcessEnvironment(environment);
    m_process.start(program, arguments);
    if (!m_process.waitForStarted(kWaitMs)) {
        qWarning("%s did not start: %s", qPrintable(program), qPrintable(m_process.errorString()));
        return false;
    }
    return true;
}

QString ManagedProcess::standardOutput() const
{
    return readFile(m_outPath);
}

QString ManagedProcess::standardError() const
{
    return readFile(m_errPath);
}

QStringList ManagedProcess::errorLines(const QRegularExpression& pattern) const
{
    QStringList matching;
    const QStringList lines = standardError().split('\n');
    for (const QString& line : lines) {
        if (pattern.match(line).hasMatch())
            matching << line;
    }
    return matching;
}

bool ManagedProcess::waitForLine(const QString& path, const QRegularExpression& pattern,
                                 QRegularExpressionMatch* match, int timeoutMs) const
{
    const bool found = waitFor(
        [&] {
            // Only whole lines: the program may be in the middle of writing the last one.
            const QString text = readFile(path);
            const QStringList lines = text.left(text.lastIndexOf('\n')).split('\n');
            for (const QString& line : lines) {
                const QRegularExpressionMatch lineMatch = pattern.match(line);
                if (lineMatch.hasMatch()) {
                    if (match)
                        *match = lineMatch;
                    return true;
                }
            }
            return false;
        },
        timeoutMs);
    if (!found)
        qWarning("%s: no line matching \"%s\" in %s", qPrintable(m_name), qPrintable(pattern.pattern()),
                 qPrintable(path));
    return found;
}

bool ManagedProcess::waitForOutputLine(const QRegularExpression& pattern, QRegularExpressionMatch* match,
                                       int timeoutMs)
{
    return waitForLine(m_outPath, pattern, match, timeoutMs);
}

bool ManagedProcess::waitForErrorLine(const QRegularExpression& pattern, QRegularExpressionMatch* match,
                                      int timeoutMs)
{
    return waitForLine(m_errPath, pattern, match, timeoutMs);
}

bool ManagedProcess::interrupt(int timeoutMs)
{
    if (!isRunning())
        return false;
    ::kill(pid_t(m_process.processId()), SIGINT);
    return waitForExit(timeoutMs);
}

bool ManagedProcess::killHard(int timeoutMs)
{
    if (isRunning())
        ::kill(pid_t(m_process.processId()), SIGKILL);
    return !isRunning() || m_process.waitForFinished(timeoutMs);
}

bool ManagedProcess::waitForExit(int timeoutMs)
{
    if (isRunning() && !m_process.waitForFinished(timeoutMs)) {
        qWarning("%s did not end within %d ms", qPrintable(m_name), timeoutMs);
        return false;
    }
    if (m_process.exitStatus() != QProcess::NormalExit || m_process.exitCode() != 0) {
        qWarning("%s ended with status %d, exit code %d (its log: %s)", qPrintable(m_name),
                 int(m_process.exitStatus()), m_process.exitCode(), qPrintable(m_errPath));
        return false;
    }
    return true;
}

} // namespace e2e
