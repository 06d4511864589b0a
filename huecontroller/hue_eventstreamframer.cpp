#include "hue_eventstreamframer.h"

#include "common/logginginterface.h"

#include <limits>

namespace hue {

namespace {

// CRLF line ends become LF, so that a blank line is always "\n\n". A CR at the very end may be
// the first half of a CRLF split across chunks, so it stays until the next chunk arrives.
void normaliseLineEnds(QByteArray& buffer)
{
    buffer.replace("\r\n", "\n");
}

} // namespace

QList<QByteArray> EventStreamFramer::feed(const QByteArray& chunk)
{
    QList<QByteArray> messages;
    if (chunk.isEmpty())
        return messages;
    m_buffer.append(chunk);
    normaliseLineEnds(m_buffer);
    if (m_buffer.size() > kMaxPendingBytes) {
        // No bridge message is this large: the stream is garbage, and keeping it would only
        // make every later search slower.
        LOG_ERROR << "event stream message too large, dropping" << m_buffer.size() << "bytes";
        m_buffer.clear();
        return messages;
    }
    int start = 0;
    for (;;) {
        const int end = m_buffer.indexOf("\n\n", start);
        if (end < 0)
            break;
        messages.append(m_buffer.mid(start, end + 1 - start));
        start = end + 2;
    }
    if (start > 0)
        m_buffer.remove(0, start);
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
                LOG_WARNING << "message looks broken:" << colon << lineEnd << rest;
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
            LOG_WARNING << "ignoring unknown key" << key << "in event stream";
        }
        pos = lineEnd + 1;
    }
    return result;
}

} // namespace hue
