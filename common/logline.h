#pragma once

#include <QByteArray>

// Log kinds. Information, warnings and errors (0, 3, 6) are always written; the other kinds
// are detail that is written only while detailed logging is switched on.
enum LogKind : int
{
    LogInfo = 0,        // "--"
    LogDebug = 1,       // "**"  detail: what the service is doing
    LogTrace = 2,       // "??"  detail: step-by-step traces
    LogWarning = 3,     // "WW"
    LogDetail = 4,      // "**"  detail: unusual but handled situations
    LogDetailTrace = 5, // "??"  detail: high-volume traces (queues, timers)
    LogError = 6,       // "EE"
};

// True for the kinds that are written whatever the detailed-logging switch says.
constexpr bool isAlwaysLogged(int kind)
{
    return kind == LogInfo || kind == LogWarning || kind == LogError;
}

// The two-character marker that opens a line of the given kind.
const char* logMarker(int kind);

// Builds one log line, without a trailing line feed:
//
//   MM file-name-20-chars   LLLLL PID <3 blanks per indent level>message
//
// MM is the kind's marker, followed by one blank; the source file name without its
// directory, left-justified to 20 characters (longer names are kept whole); the line number
// right-justified to 5; one blank, the process id, one blank; three blanks for each open
// LogIndent scope; then the message. For example:
//
//   WW hue_main.cpp           52 4711 restarted after crash. crash counter: 3
QByteArray formatLogLine(int kind, const char* file, int line, qint64 pid, int indent, const QByteArray& message);
