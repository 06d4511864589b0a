#pragma once

#include "socketmessage.h"
#include "socketparser.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QTimer>

class QIODevice;
class QLocalSocket;
class QTcpSocket;

// One stream connection of the hub's socket messaging: a QLocalSocket or a QTcpSocket (owned),
// the incremental parser of its incoming bytes, and the writing of whole messages.
//
// Incoming bytes are parsed as soon as they arrive; every complete message is handed out with
// messageReceived(), broken input is logged and skipped. When the method name of a call that
// wants a reply has been read, the invoke timer starts: a peer that does not complete the call in
// time is reported with invokeTimeout() and the rest of that call is skipped.
//
// Writing is buffered in the socket: writeMessage()/writeBytes() queue complete messages, flush()
// waits (blocking, with a limit) until the socket has handed them to the system,
// writeBytesNow() pushes what the system takes right now and leaves the rest to the event loop
// (used for signals, where one stalled subscriber must not block the sender), and
// scheduleFlush() hands everything queued during the current event-loop turn to the system in
// one go once that turn is over (used for calls without reply: a burst of them costs one write).
//
// A connection belongs to the thread that created it, like its socket.
class SocketConnection : public QObject
{
    Q_OBJECT

public:
    enum SocketType
    {
        LocalSocket,
        TcpSocket,
    };

    enum class FlushResult
    {
        Flushed,  // everything written has been handed to the system
        TimedOut, // the limit passed with bytes still pending; they go out later from the event loop
        Failed,   // the socket is closed or broken; the pending bytes are lost
    };

    static constexpr int kDefaultInvokeTimeoutMs = 5000;
    // How long a connection that is being deleted waits to hand its queued bytes to the system.
    static constexpr int kClosingFlushTimeoutMs = 2000;

    // An unconnected socket of the given type; connect it with connectToLocalServer() or
    // connectToTcpServer(). Any other type is refused: isValid() is false.
    explicit SocketConnection(SocketType type, QObject* parent = nullptr);
    // Wraps a socket that a server has accepted; takes ownership.
    explicit SocketConnection(QLocalSocket* socket, QObject* parent = nullptr);
    explicit SocketConnection(QTcpSocket* socket, QObject* parent = nullptr);
    ~SocketConnection() override;

    // False when the socket type was refused.
    bool isValid() const { return m_device != nullptr; }
    bool isConnected() const;
    SocketType socketType() const { return m_type; }
    QString errorString() const;

    void connectToLocalServer(const QString& path);
    void connectToTcpServer(quint16 port); // always on the loopback address 127.0.0.1
    bool waitForConnected(int timeoutMs);
    void disconnectFromServer();

    // Queues the message's complete bytes on the socket. An empty encoding (more than ten
    // arguments) or a refused write is logged and returns false.
    bool writeMessage(const SocketMessage& message);
    bool writeBytes(const QByteArray& bytes);
    // Blocks until all queued bytes are handed to the system or the limit passes.
    FlushResult flush(int timeoutMs);
    // Queues the bytes and hands as many to the system as it takes without waiting.
    bool writeBytesNow(const QByteArray& bytes);
    // Pushes the queued bytes out, without waiting, when control is back in the event loop.
    void scheduleFlush();
    qint64 bytesToWrite() const;

    // Blocks until bytes arrive (or the limit passes) and parses them; used by a caller that
    // waits for a reply. Returns false when nothing arrived.
    bool waitForReadyRead(int timeoutMs);
    // Reads and parses whatever the socket holds now.
    void processIncoming();

    // Time a peer gets from the method name of a call with reply to the end of its arguments.
    void setInvokeTimeout(int ms) { m_invokeTimer.setInterval(ms); }
    int invokeTimeoutMs() const { return m_invokeTimer.interval(); }

signals:
    void messageReceived(const SocketMessage& message);
    // A call with reply did not complete within the invoke timeout; its remaining bytes are
    // skipped. The receiver answers it with a failure reply.
    void invokeTimeout(quint16 queryId);
    // A call with reply turned out broken after its method name (e.g. more than ten arguments);
    // the receiver answers it with a failure reply.
    void callBroken(quint16 queryId);
    // A message could not be parsed (the parser has logged why). messageType is its type when
    // the parser got that far in an earlier read, else -1; queryId is valid for calls with reply
    // and replies; position is the offset in this connection's byte stream where parsing failed.
    void messageBroken(int messageType, quint16 queryId, qint64 position);
    void disconnected();
    void socketError(const QString& text);

private slots:
    void onReadyRead();
    void onInvokeTimerFired();
    void onSocketDisconnected();
    void onFlushTimerFired();

private:
    void attachSocket();
    // Parses the buffered bytes to the end; false when this object was deleted meanwhile.
    bool runParser();

    SocketType m_type = LocalSocket;
    QLocalSocket* m_localSocket = nullptr;
    QTcpSocket* m_tcpSocket = nullptr;
    QIODevice* m_device = nullptr;
    SocketMessageParser m_parser;
    QTimer m_invokeTimer;
    QTimer m_flushTimer;           // zero-time single shot: the end of the event-loop turn
    bool m_callInProgress = false; // a call with reply whose name has been read is not complete yet
    quint16 m_callQueryId = 0;
    qint64 m_bytesRead = 0;
    bool m_parsing = false;     // guards against parsing re-entered from a handler of messageReceived
    bool m_readPending = false; // bytes arrived while parsing; the running loop reads them
    bool m_disconnectReported = false;
};
