#pragma once

#include "logline.h"

#include <QByteArray>
#include <QDebug>
#include <QString>
#include <QUrl>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <type_traits>

class InternalId;

// Logging of the shared service framework.
//
// Every log call names its kind, source file and line and becomes one line (see
// formatLogLine). The line goes to the system log (facility user; the console when the
// system log cannot be reached) and, when verbose output is on, to standard error.
//
//   LOG_INFO << "start" << crashCounter << getpid();        // "start 3 4711"
//   LOG_DEBUG << "request failed, going back to original URL" << url;
//
// Values are separated by one blank. Strings are written as they are, without quotes.
//
// A LOG_* statement of a kind that is switched off costs one test of a flag: its << values
// are not even evaluated (so they must not have side effects the program relies on). A line
// built with CDebug directly always evaluates them.
//
// After initLogging the finished lines go through a bounded queue to one writer thread (see
// LogWriter), so a slow system log, console or reader of standard error never holds up the
// thread that logs; when the writer falls behind by more than the queue holds, lines are
// dropped and a warning later says how many. Before initLogging and after shutdownLogging,
// lines are written to standard error at once.

// Starts the log writer (its thread connects to the system log with the first line), installs
// the Qt message handler (qDebug, qWarning, ... become log
// lines with their file and line) and sets the Qt category rules. `debug` and `trace` switch
// detailed logging on; `verbose` copies every line to standard error; `extra` puts a wall-clock
// time stamp in front of the lines on standard error (the system log stamps its own).
void initLogging(bool debug, bool trace, bool verbose, bool extra);
// initLogging from the application's settings "logging/debug", "logging/trace" and
// "logging/silenceisgolden" (the last one inverted into `verbose`).
void initLoggingByConfig();
// Writes what is queued (for at most a second), closes the system log and removes the Qt
// message handler; later lines go to standard error. The normal end of the process (exit(),
// the return from main) drains the queue the same way, and so does qFatal before it aborts.
void shutdownLogging();
// Waits until the queued lines were written, for at most `bound`; true when they were.
bool flushLogging(std::chrono::milliseconds bound);
// For a crash handler, inside the signal handler of the dying process: writes the queued lines
// from the calling thread, without allocating and without waiting for a lock.
void flushLoggingAfterCrash();

// The process-wide switch for detailed logging (the kinds other than 0, 3 and 6).
void setDetailedLoggingEnabled(bool enabled);
namespace logging_detail {
extern std::atomic<bool> detailedLogging;
}
inline bool isDetailedLoggingEnabled()
{
    return logging_detail::detailedLogging.load(std::memory_order_relaxed);
}
inline bool isLogKindEnabled(int kind)
{
    return isAlwaysLogged(kind) || isDetailedLoggingEnabled();
}

// Where the queued lines go; for tests and benchmarks, which point the outputs at their own
// sockets and pipes. Takes effect with the next initLogging. The system log path "/dev/log",
// the console "/dev/console" and standard error are the defaults.
void setLogOutputPaths(const QByteArray& systemLogPath, const QByteArray& consolePath, int standardErrorFd);
// How many lines were dropped since initLogging because the queue was full.
qint64 droppedLogLines();

// Replaces where finished lines go, for tools and tests; an empty function restores the
// system log / standard error. Returns the previous sink. The sink is called at once, on the
// logging thread, under the log's lock (it must not log itself).
using LogSink = std::function<void(int kind, const QByteArray& line)>;
LogSink setLogSink(LogSink sink);

// Writes one finished message; CDebug and the Qt message handler end here.
void writeLogMessage(int kind, const char* file, int line, const QByteArray& message);

// A text that came from outside (a reply body, an event stream line), written as its first
// `maxBytes` bytes and its length. Written whole, a body of megabytes would hold up the event
// loop and flood the log; control characters become '.' so that it stays on its line.
struct LogExcerpt
{
    static constexpr int kDefaultBytes = 200;
    explicit LogExcerpt(const QByteArray& text, int maxBytes = kDefaultBytes) : text(text), maxBytes(maxBytes)
    {
    }
    const QByteArray& text;
    int maxBytes;
};

// One log line, built with << and written when the object goes out of scope.
class CDebug
{
public:
    CDebug(int kind, const char* file, int line);
    ~CDebug();
    CDebug(const CDebug&) = delete;
    CDebug& operator=(const CDebug&) = delete;

    CDebug& operator<<(const char* text);
    CDebug& operator<<(const QByteArray& text);
    CDebug& operator<<(const QString& text);
    CDebug& operator<<(QLatin1String text);
    CDebug& operator<<(const std::string& text);
    CDebug& operator<<(char c);
    CDebug& operator<<(bool value);
    CDebug& operator<<(double value);
    CDebug& operator<<(const InternalId& id);
    CDebug& operator<<(const QUrl& url);
    CDebug& operator<<(const LogExcerpt& excerpt);

    template <typename T,
              std::enable_if_t<std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>,
                               int> = 0>
    CDebug& operator<<(T value)
    {
        if (m_enabled)
            appendItem(QByteArray::number(
                static_cast<std::conditional_t<std::is_signed_v<T>, qint64, quint64>>(value)));
        return *this;
    }
    template <typename T, std::enable_if_t<std::is_enum_v<T>, int> = 0> CDebug& operator<<(T value)
    {
        return *this << static_cast<std::underlying_type_t<T>>(value);
    }
    // Anything else that Qt can print (QUrl, QVariant, containers, ...), without quotes.
    template <typename T, std::enable_if_t<!std::is_arithmetic_v<T> && !std::is_enum_v<T>, int> = 0>
    CDebug& operator<<(const T& value)
    {
        if (m_enabled) {
            QString text;
            QDebug(&text).noquote().nospace() << value;
            appendItem(text.toUtf8());
        }
        return *this;
    }

    bool isEnabled() const { return m_enabled; }

private:
    void appendItem(const QByteArray& item);

    QByteArray m_message;
    const char* m_file;
    int m_line;
    int m_kind;
    bool m_enabled;
};

// Indents the log lines written while it exists by three more blanks.
class LogIndent
{
public:
    LogIndent();
    ~LogIndent();
    LogIndent(const LogIndent&) = delete;
    LogIndent& operator=(const LogIndent&) = delete;

    static int depth();
};

// The statement runs at most once, and only when the kind is on: "for" rather than
// "if (!enabled) {} else", which would draw dangling-else warnings in an unbraced if, and be
// safe to use as the body of if/else. The flag's name is unique per use, so that a log line
// inside a lambda inside a log line does not shadow the outer one.
#define LOG_KIND_CONCAT2_(a, b) a##b
#define LOG_KIND_CONCAT_(a, b) LOG_KIND_CONCAT2_(a, b)
#define LOG_KIND_ONCE_(kind, once)                                                                           \
    for (bool once = isLogKindEnabled(kind); once; once = false)                                             \
    CDebug((kind), __FILE__, __LINE__)
#define LOG_KIND(kind) LOG_KIND_ONCE_((kind), LOG_KIND_CONCAT_(logLineOn_, __COUNTER__))
#define LOG_INFO LOG_KIND(LogInfo)
#define LOG_WARNING LOG_KIND(LogWarning)
#define LOG_ERROR LOG_KIND(LogError)
#define LOG_DEBUG LOG_KIND(LogDebug)
#define LOG_DETAIL LOG_KIND(LogDetail)
#define LOG_TRACE LOG_KIND(LogTrace)
