#pragma once

#include <QByteArray>
#include <QList>

namespace hue {

// One server-sent event message: the fields the bridge's event stream uses.
struct EventStreamMessage
{
    QByteArray id; // "id:"; empty when the message has none
    bool hasId = false;
    QByteArray data;  // every "data:" line, joined with a line feed
    int retryMs = -1; // "retry:" as a number of milliseconds; -1 when absent or not a number
};

// Splits the bytes of an event stream into messages. Bytes arrive in arbitrary chunks: a message
// is complete at its blank line, and the unframed tail waits for the next chunk. Lines may end in
// CRLF or LF. Pure: no sockets and no clock, so tests and the fuzzer drive it byte by byte.
class EventStreamFramer
{
public:
    static constexpr int kMaxPendingBytes = 4 * 1024 * 1024;

    // Appends a chunk; returns the text of every message it completed, oldest first, each
    // ending with its last line's line feed.
    QList<QByteArray> feed(const QByteArray& chunk);
    // What is waiting for its blank line.
    const QByteArray& pending() const { return m_buffer; }
    void clear() { m_buffer.clear(); }

    // Reads the fields of one framed message. Comments (lines starting with ':') are skipped,
    // "event" is ignored, other keys and broken lines are logged and skipped.
    static EventStreamMessage parseMessage(const QByteArray& message);

private:
    QByteArray m_buffer;
};

} // namespace hue
