#include "hue_eventstreamframer.h"

#include "common/logginginterface.h"

#include <limits>

namespace hue {

void EventStreamFramer::clear()
{
    m_buffer.clear();
    m_lastByte = 0;
    m_pendingCr = false;
    m_skipping = false;
    m_skippedBytes = 0;
}

void EventStreamFramer::keep(const char* data, int size)
{
    if (size <= 0)
        return;
    m_lastByte = data[size - 1];
    if (!m_skipping && m_buffer.size() + qint64(size) > kMaxMessageBytes) {
        LOG_ERROR << "event stream message too large, dropping it: more than" << kMaxMessageBytes << "bytes";
        m_skipping = true;
        m_skippedBytes = m_buffer.size();
        m_buffer = QByteArray(); // give the memory back, not just the length
        ++m_dropped;
    }
    if (m_skipping)
        m_skippedBytes += size;
    else
        m_buffer.append(data, size);
}

QList<QByteArray> EventStreamFramer::feed(const QByteArray& chunk)
{
    QList<QByteArray> messages;
    if (chunk.isEmpty())
        return messages;
    // CRLF line ends become LF, so that a blank line is always "\n\n". Only this chunk is
    // folded; a CR at its very end may be the first half of a CRLF split across chunks, so it
    // waits for the next chunk.
    QByteArray text;
    text.reserve(chunk.size() + 1);
    if (m_pendingCr)
        text.append('\r');
    text.append(chunk);
    m_pendingCr = text.endsWith('\r');
    if (m_pendingCr)
        text.chop(1);
    text.replace("\r\n", "\n");

    const char* data = text.constData();
    int pos = 0;
    while (pos < text.size()) {
        // The message ends at the second line feed of a pair; the first may close the last chunk.
        int second = -1;
        if (m_lastByte == '\n' && data[pos] == '\n') {
            second = pos;
        } else {
            const int pair = text.indexOf("\n\n", pos);
            if (pair >= 0)
                second = pair + 1;
        }
        if (second < 0) {
            keep(data + pos, text.size() - pos);
            break;
        }
        keep(data + pos, second - pos); // up to and with the message's last line feed
        if (m_skipping) {
            LOG_WARNING << "event stream message of" << m_skippedBytes << "bytes dropped";
            m_skipping = false;
            m_skippedBytes = 0;
        } else {
            messages.append(m_buffer);
        }
        m_buffer.clear();
        m_lastByte = 0;
        pos = second + 1;
    }
    return messages;
}

EventStreamMessage EventStreamFramer::parseMessage(const QByteArray& message)
{
    EventStreamMessage result;
    int pos = 0;
    while (pos < message.size()) {
        const int lineEnd = message.indexOf('\n', pos);
        const int colon = message.indexOf(':', pos);
        if (lineEnd < 0 || colon < 0 || colon > lineEnd) {
            // A line without a colon is not part of the protocol; the rest is skipped.
            const QByteArray rest = message.mid(pos);
            if (!rest.trimmed().isEmpty())
                LOG_WARNING << "message looks broken:" << colon << lineEnd << LogExcerpt(rest);
            break;
        }
        if (colon == pos) { // a comment, such as the bridge's ": hi"
            pos = lineEnd + 1;
            continue;
        }
        const QByteArray key = message.mid(pos, colon - pos);
        QByteArray value = message.mid(colon + 1, lineEnd - colon - 1);
        if (value.startsWith(' '))
            value.remove(0, 1);
        if (key == "id") {
            result.id = value;
            result.hasId = true;
        } else if (key == "data") {
            if (!result.data.isEmpty())
                result.data.append('\n');
            result.data.append(value);
        } else if (key == "retry") {
            bool ok = false;
            const uint retry = value.toUInt(&ok, 10);
            if (ok && retry <= uint(std::numeric_limits<int>::max()))
                result.retryMs = int(retry);
        } else if (key != "event") {
            LOG_WARNING << "ignoring unknown key" << LogExcerpt(key) << "in event stream";
        }
        pos = lineEnd + 1;
    }
    return result;
}

} // namespace hue
