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
//
// A message may hold at most kMaxMessageBytes. The bound is checked before anything is kept:
// a longer message is dropped (logged once) up to its blank line, and the messages after it are
// framed as usual, so that a flood or an endless line costs neither memory nor later messages.
class EventStreamFramer
{
public:
    // A bridge's message is a few KB; a whole home changing at once stays far below this.
    static constexpr int kMaxMessageBytes = 1024 * 1024;

    // Takes a chunk; returns the text of every message it completed, oldest first, each ending
    // with its last line's line feed.
    QList<QByteArray> feed(const QByteArray& chunk);
    // What is waiting for its blank line (empty while an oversized message is being skipped).
    const QByteArray& pending() const { return m_buffer; }
    // Messages dropped for their size so far.
    int droppedMessages() const { return m_dropped; }
    void clear();

    // Reads the fields of one framed message. Comments (lines starting with ':') are skipped,
    // "event" is ignored, other keys and broken lines are logged and skipped.
    static EventStreamMessage parseMessage(const QByteArray& message);

private:
    // Appends part of the current message, or starts skipping it when it would grow too large.
    void keep(const char* data, int size);

    QByteArray m_buffer;
    char m_lastByte = 0;       // of the current message, kept or skipped, after line-end folding
    bool m_pendingCr = false;  // the previous chunk ended in CR: maybe half of a CRLF
    bool m_skipping = false;   // the current message passed the bound
    qint64 m_skippedBytes = 0; // of the current message
    int m_dropped = 0;
};

} // namespace hue
