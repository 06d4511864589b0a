#include "logginginterface.h"

#include <kovacommon/internalid.h>

#include <QCoreApplication>
#include <QDateTime>
#include <QLoggingCategory>
#include <QSettings>

#include <atomic>
#include <cstdio>
#include <mutex>
#include <syslog.h>
#include <unistd.h>

namespace {

struct LogState
{
    std::mutex mutex; // Qt may log from its own threads; lines must not interleave.
    LogSink sink;
    bool syslogOpen = false;
    bool toStandardError = true;
    bool timeStamps = false;
    QByteArray ident; // openlog() keeps the pointer, so the text must outlive the log.
};

LogState& state()
{
    static LogState s;
    return s;
}

std::atomic<bool> g_detailedLogging{false};
thread_local int t_indent = 0;

int syslogPriority(int kind)
{
    switch (kind) {
    case LogInfo:
        return LOG_INFO;
    case LogWarning:
        return LOG_WARNING;
    case LogError:
        return LOG_ERR;
    default:
        return LOG_DEBUG;
    }
}

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
    if (type == QtFatalMsg)
        abort();
}

} // namespace

void setDetailedLoggingEnabled(bool enabled)
{
    g_detailedLogging.store(enabled, std::memory_order_relaxed);
}

bool isDetailedLoggingEnabled()
{
    return g_detailedLogging.load(std::memory_order_relaxed);
}

LogSink setLogSink(LogSink sink)
{
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    std::swap(s.sink, sink);
    return sink;
}

void writeLogMessage(int kind, const char* file, int line, const QByteArray& message)
{
    if (!isLogKindEnabled(kind))
        return;
    const QByteArray text = formatLogLine(kind, file, line, ::getpid(), t_indent, message);

    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.sink) {
        s.sink(kind, text);
        return;
    }
    if (s.syslogOpen)
        ::syslog(syslogPriority(kind), "%s", text.constData());
    if (s.toStandardError || !s.syslogOpen) {
        if (s.timeStamps) {
            const QByteArray stamp = QDateTime::currentDateTime().toString(Qt::ISODateWithMs).toLatin1();
            std::fprintf(stderr, "%s %s\n", stamp.constData(), text.constData());
        } else {
            std::fprintf(stderr, "%s\n", text.constData());
        }
    }
}

void initLogging(bool debug, bool trace, bool verbose, bool extra)
{
    {
        LogState& s = state();
        std::lock_guard<std::mutex> lock(s.mutex);
        s.ident = QCoreApplication::applicationName().toUtf8();
        if (s.syslogOpen)
            ::closelog();
        // LOG_CONS: when the system log cannot be reached the lines go to the console.
        ::openlog(s.ident.isEmpty() ? nullptr : s.ident.constData(), LOG_CONS | LOG_NDELAY, LOG_USER);
        s.syslogOpen = true;
        s.toStandardError = verbose;
        s.timeStamps = extra;
    }
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
    LogState& s = state();
    std::lock_guard<std::mutex> lock(s.mutex);
    if (s.syslogOpen)
        ::closelog();
    s.syslogOpen = false;
    s.toStandardError = true;
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
