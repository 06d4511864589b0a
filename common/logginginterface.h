#pragma once

#include "logline.h"

#include <QByteArray>
#include <QDebug>
#include <QString>
#include <QUrl>

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
//   CDebug(LogDetail, __FILE__, __LINE__) << "request failed, going back to original URL" << url;
//
// Values are separated by one blank. Strings are written as they are, without quotes.

// Opens the system log, installs the Qt message handler (qDebug, qWarning, ... become log
// lines with their file and line) and sets the Qt category rules. `debug` and `trace` switch
// detailed logging on; `verbose` copies every line to standard error; `extra` puts a wall-clock
// time stamp in front of the lines on standard error (the system log stamps its own).
void initLogging(bool debug, bool trace, bool verbose, bool extra);
// initLogging from the application's settings "logging/debug", "logging/trace" and
// "logging/silenceisgolden" (the last one inverted into `verbose`).
void initLoggingByConfig();
// Closes the system log and removes the Qt message handler; later lines go to standard error.
void shutdownLogging();

// The process-wide switch for detailed logging (the kinds other than 0, 3 and 6).
void setDetailedLoggingEnabled(bool enabled);
bool isDetailedLoggingEnabled();
inline bool isLogKindEnabled(int kind)
{
    return isAlwaysLogged(kind) || isDetailedLoggingEnabled();
}

// Replaces where finished lines go, for tools and tests; an empty function restores the
// system log / standard error. Returns the previous sink.
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

#define LOG_KIND(kind) CDebug((kind), __FILE__, __LINE__)
#define LOG_INFO LOG_KIND(LogInfo)
#define LOG_WARNING LOG_KIND(LogWarning)
#define LOG_ERROR LOG_KIND(LogError)
#define LOG_DEBUG LOG_KIND(LogDebug)
#define LOG_DETAIL LOG_KIND(LogDetail)
#define LOG_TRACE LOG_KIND(LogTrace)
