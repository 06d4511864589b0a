#pragma once

#include "socketmessage.h"

#include <QByteArray>

// Incremental parser of the byte stream of one connection. Bytes are appended as they
// arrive, in chunks of any size; parse() advances as far as the bytes allow and stops at the
// first event the connection must act on.
//
// Consumed bytes are dropped from the buffer when more are appended, so a long-lived
// connection does not accumulate its history. A message larger than
// socketwire::kMaxMessageSize is treated as broken.
class SocketMessageParser
{
public:
    enum class State
    {
        SyncWord, // scanning byte by byte for 45 BF D7 A3; anything before it is skipped
        MessageType,
        QueryId,
        Success, // of a reply
        MethodName,
        ClientName,   // the one value of a client-name message
        Subscription, // the one value of a subscription message
        ValueType,    // a tag byte: zero ends the argument list
        Value,
    };
    enum class Event
    {
        NeedMoreBytes,   // everything appended so far is consumed or kept for later
        CallNameRead,    // the method name of a call with reply is complete: start the invoke timer
        MessageComplete, // takeMessage() returns it; the parser is back at SyncWord
        Broken,          // the message cannot be parsed; brokenReason() and dumpParsingState() say
                         // why; the parser is back at SyncWord and the bad bytes are dropped.
                         // The parser has logged it already (warning, with the parsing state).
    };

    SocketMessageParser();

    void append(const char* data, int size);
    void append(const QByteArray& bytes) { append(bytes.constData(), bytes.size()); }
    Event parse();
    // The message of the last MessageComplete; take it before that message is overwritten by
    // the next one that completes.
    SocketMessage takeMessage();
    // The message being parsed: after CallNameRead its type, query id and name are set.
    const SocketMessage& currentMessage() const { return m_message; }
    // After Broken: the type of the broken message, or -1 when it broke before its type byte
    // was read, and its query id (0 unless it is a call with reply or a reply).
    int brokenMessageType() const { return m_brokenType; }
    quint16 brokenQueryId() const { return m_brokenQueryId; }

    State state() const { return m_state; }
    QByteArray brokenReason() const { return m_brokenReason; }
    // "method name: ... so far parsed parameters: ... buffer content: <hex>" for logs. Right
    // after parse() answered Broken it describes the broken message.
    QByteArray dumpParsingState() const;
    // Abandons the message being parsed (e.g. a call that timed out) and scans for the next
    // sync word in the bytes that follow; its remaining bytes are skipped as they arrive.
    void skipMessage();
    // Back to the initial state: the message being parsed and all buffered bytes are dropped.
    void reset();

    int bufferedBytes() const { return m_buffer.size() - m_pos; }
    // Bytes held, the consumed ones that have not been dropped yet included.
    int bufferSize() const { return m_buffer.size(); }

private:
    Event fail(const QByteArray& reason);
    Event needMore(const socketwire::Reader& reader);
    Event complete();
    bool findSyncWord();
    void startScanning();
    QByteArray describeState() const;

    QByteArray m_buffer;
    int m_pos = 0;          // next byte to parse
    int m_messageStart = 0; // first byte of the message being parsed (its sync word)
    int m_needUntil = 0;    // parse() cannot progress before the buffer holds this many bytes
    State m_state = State::SyncWord;
    SocketMessage m_message;
    SocketMessage m_completed;
    SocketArgument::eType m_valueType = SocketArgument::None;
    QByteArray m_brokenReason;
    QByteArray m_lastBrokenDump; // valid while m_justBroken
    bool m_justBroken = false;
    int m_brokenType = -1;
    quint16 m_brokenQueryId = 0;
};
