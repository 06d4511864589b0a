#include "logcapture.h"

LogCapture::LogCapture() : m_wasDetailed(isDetailedLoggingEnabled())
{
    setDetailedLoggingEnabled(true);
    m_previous = setLogSink([this](int, const QByteArray& line) { m_lines.append(line); });
}

LogCapture::~LogCapture()
{
    setLogSink(m_previous);
    setDetailedLoggingEnabled(m_wasDetailed);
}

int LogCapture::count(const QByteArray& text) const
{
    int n = 0;
    for (const QByteArray& line : m_lines)
        n += line.contains(text) ? 1 : 0;
    return n;
}
