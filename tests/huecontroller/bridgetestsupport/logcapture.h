#pragma once

#include "common/logginginterface.h"

#include <QByteArray>
#include <QList>

// Collects every log line written while it exists (detailed kinds included), so that tests can
// check that a message was logged.
class LogCapture
{
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    // Lines that contain `text`.
    int count(const QByteArray& text) const;
    bool contains(const QByteArray& text) const { return count(text) > 0; }
    void clear() { m_lines.clear(); }
    const QList<QByteArray>& lines() const { return m_lines; }

private:
    QList<QByteArray> m_lines;
    LogSink m_previous;
    bool m_wasDetailed;
};
