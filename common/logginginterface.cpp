#include "logginginterface.h"

#include "logwriter.h"

#include <kovacommon/internalid.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QLoggingCategory>
#include <QSettings>

#include <cstdio>
#include <cstdlib>
#include <errno.h>
#include <mutex>
#include <unistd.h>
#include <vector>

std::atomic<bool> logging_detail::detailedLogging{false};

namespace {

struct LogState
{
    std::mutex mutex; // Qt may log from its own threads; lines must not interleave.
    LogSink sink;
    LogWriter* writer = nullptr; // between initLogging and shutdownLogging
    bool timeStamps = false;
    LogOutputs outputs;
    // Writers whose thread was stuck in an output at shutdown: the thread still refers to them,
    // so they stay (and stay reachable) for the life of the process.
    std::vector<LogWriter*> abandoned;
};

LogState& state()
{
    // Never destroyed: Qt's threads may still log while static objects are being destroyed.
    static LogState* s = new LogState;
    return *s;
}

// The crash path reads this without the lock.
std::atomic<LogWriter*> g_writer{nullptr};
thread_local int t_indent = 0;

int kindOfQtMessage(QtMsgType type)
{
    switch (type) {
    case QtDebugMsg:
        return LogDebug;
    case QtInfoMsg:
        return LogInfo;
    case QtWarningMsg:
        return LogWarning;
    case QtCriticalMsg:
    case QtFatalMsg:
        return LogError;
    }
    return LogError;
}

void qtMessageHandler(QtMsgType type, const QMessageLogContext& context, const QString& message)
{
    writeLogMessage(kindOfQtMessage(type), context.file ? context.file : "qt", context.line,
                    message.toUtf8());
    if (type == QtFatalMsg) {
        flushLogging(std::chrono::milliseconds(1000));
        abort();
    }
}

void writeToStandardErrorNow(const QByteArray& text, bool timeStamps)
{
    if (timeStamps) {
        const QByteArray stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toLatin1();
        std::fprintf(stderr, "%s %s\n", stamp.constData(), text.constData());
    } else {
        std::fprintf(stderr, "%s\n", text.constData());
    }
}

// Takes the writer out of the state and ends it; a writer stuck in its output is left running.
void stopWriter(LogWriter* writer)
{
    if (!writer)
        return;
    if (writer->stop(LogWriter::kStopBound)) {
        delete writer;
        return;
    }
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.abandoned.push_back(writer);
}

void drainAtExit()
{
    flushLogging(LogWriter::kStopBound);
}

} // namespace

void setDetailedLoggingEnabled(bool enabled)
{
    logging_detail::detailedLogging.store(enabled, std::memory_order_relaxed);
}

LogSink setLogSink(LogSink sink)
{
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::swap(s.sink, sink);
    return sink;
}

void setLogOutputPaths(const QByteArray& systemLogPath, const QByteArray& consolePath, int standardErrorFd)
{
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    s.outputs.systemLogPath = systemLogPath;
    s.outputs.consolePath = consolePath;
    s.outputs.standardErrorFd = standardErrorFd;
}

qint64 droppedLogLines()
{
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return s.writer ? s.writer->droppedTotal() : 0;
}

void writeLogMessage(int kind, const char* file, int line, const QByteArray& message)
{
    if (!isLogKindEnabled(kind))
        return;
    QByteArray text = formatLogLine(kind, file, line, ::getpid(), t_indent, message);

    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.sink) {
        s.sink(kind, text);
        return;
    }
    if (!s.writer) {
        writeToStandardErrorNow(text, s.timeStamps);
        return;
    }
    QByteArray stamp;
    if (s.timeStamps && s.outputs.toStandardError)
        stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toLatin1();
    s.writer->post(kind, std::move(text), std::move(stamp));
}

void initLogging(bool debug, bool trace, bool verbose, bool extra)
{
    LogWriter* previous = nullptr;
    {
        LogState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        previous = s.writer;
        s.outputs.ident = QCoreApplication::applicationName().toUtf8();
        if (s.outputs.ident.isEmpty())
            s.outputs.ident = program_invocation_short_name;
        s.outputs.toStandardError = verbose;
        s.timeStamps = extra;
        s.writer = new LogWriter(s.outputs);
        g_writer.store(s.writer);
        static const bool drainsAtExit = std::atexit(drainAtExit) == 0;
        Q_UNUSED(drainsAtExit);
    }
    stopWriter(previous);
    setDetailedLoggingEnabled(debug || trace);
    qInstallMessageHandler(qtMessageHandler);

    QString rules = QStringLiteral("*.info=true\n*.warning=true\n*.critical=true\n");
    if (debug)
        rules += QStringLiteral("*.debug=true\n");
    QLoggingCategory::setFilterRules(rules);
}

void initLoggingByConfig()
{
    const QSettings settings; // the application's own store: organisation and name are set by main()
    const bool debug = settings.value(QStringLiteral("logging/debug"), QStringLiteral("0")).toInt() != 0;
    const bool trace = settings.value(QStringLiteral("logging/trace"), QStringLiteral("0")).toInt() != 0;
    const bool silence =
        settings.value(QStringLiteral("logging/silenceisgolden"), QStringLiteral("0")).toInt() != 0;
    initLogging(debug, trace, !silence, false);
}

void shutdownLogging()
{
    qInstallMessageHandler(nullptr);
    LogWriter* writer = nullptr;
    {
        LogState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        writer = s.writer;
        s.writer = nullptr;
        g_writer.store(nullptr);
    }
    stopWriter(writer);
}

bool flushLogging(std::chrono::milliseconds bound)
{
    // Under the log's lock, so that the writer cannot be stopped meanwhile; the writer thread
    // does not need that lock, and other threads' lines wait at most `bound`.
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    return !s.writer || s.writer->drain(bound);
}

void flushLoggingAfterCrash()
{
    if (LogWriter* writer = g_writer.load())
        writer->flushNow();
}

CDebug::CDebug(int kind, const char* file, int line)
    : m_file(file), m_line(line), m_kind(kind), m_enabled(isLogKindEnabled(kind))
{
}

CDebug::~CDebug()
{
    if (m_enabled)
        writeLogMessage(m_kind, m_file, m_line, m_message);
}

void CDebug::appendItem(const QByteArray& item)
{
    if (!m_message.isEmpty())
        m_message.append(' ');
    m_message.append(item);
}

CDebug& CDebug::operator<<(const char* text)
{
    if (m_enabled)
        appendItem(QByteArray(text ? text : "(null)"));
    return *this;
}

CDebug& CDebug::operator<<(const QByteArray& text)
{
    if (m_enabled)
        appendItem(text);
    return *this;
}

CDebug& CDebug::operator<<(const LogExcerpt& excerpt)
{
    if (!m_enabled)
        return *this;
    const int shown = qMin(excerpt.text.size(), qMax(0, excerpt.maxBytes));
    QByteArray item = excerpt.text.left(shown);
    for (char& c : item) {
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f)
            c = '.';
    }
    if (shown < excerpt.text.size())
        item += "... (" + QByteArray::number(excerpt.text.size()) + " bytes)";
    appendItem(item);
    return *this;
}

CDebug& CDebug::operator<<(const QString& text)
{
    if (m_enabled)
        appendItem(text.toUtf8());
    return *this;
}

CDebug& CDebug::operator<<(QLatin1String text)
{
    if (m_enabled)
        appendItem(QByteArray(text.data(), text.size()));
    return *this;
}

CDebug& CDebug::operator<<(const std::string& text)
{
    if (m_enabled)
        appendItem(QByteArray(text.data(), int(text.size())));
    return *this;
}

CDebug& CDebug::operator<<(char c)
{
    if (m_enabled)
        appendItem(QByteArray(1, c));
    return *this;
}

CDebug& CDebug::operator<<(bool value)
{
    if (m_enabled)
        appendItem(value ? QByteArrayLiteral("true") : QByteArrayLiteral("false"));
    return *this;
}

CDebug& CDebug::operator<<(double value)
{
    if (m_enabled)
        appendItem(QByteArray::number(value, 'g', 10));
    return *this;
}

CDebug& CDebug::operator<<(const InternalId& id)
{
    if (m_enabled)
        appendItem(id.toLoggingString());
    return *this;
}

CDebug& CDebug::operator<<(const QUrl& url)
{
    if (m_enabled)
        appendItem(url.toString().toUtf8());
    return *this;
}

LogIndent::LogIndent()
{
    ++t_indent;
}

LogIndent::~LogIndent()
{
    --t_indent;
}

int LogIndent::depth()
{
    return t_indent;
}
