#pragma once

#include "hue_clock.h"
#include "hue_eventstreamframer.h"

#include <QByteArray>
#include <QObject>
#include <QPointer>
#include <QTimer>

class QNetworkReply;

namespace hue {

class CBridge;

// The one long-lived "/eventstream/clip/v2" request of a bridge. It opens 3000 ms after it is
// made, frames what arrives into messages, remembers the last "id" (sent back as
// "Last-Event-ID" so that the bridge resumes where the stream stopped) and the last "retry"
// (the delay before reopening), and reopens after every end without a limit or growing delay.
// The message data go out with dataReceived; the owner checks liveness with the ping timer.
class EventStreamConnection : public QObject
{
    Q_OBJECT
public:
    static constexpr int kFirstOpenDelayMs = 3000;
    static constexpr int kDefaultRestartDelayMs = 3000;
    static constexpr qint64 kSilenceLimitMs = 180000;
    static constexpr qint64 kReadChunkBytes = 4096;
    // Taken from the reply per event-loop turn, and held unread in Qt's buffer at most.
    static constexpr int kReadSliceBytes = 64 * 1024;
    static constexpr qint64 kReadBufferBytes = 256 * 1024;

    explicit EventStreamConnection(CBridge* bridge, QObject* parent = nullptr);
    ~EventStreamConnection() override;

    QNetworkReply* reply() const { return m_reply; }
    // A stream request is stored and has not finished.
    bool isOpen() const;
    // "active", "finished" or "reply_deleted", for the log.
    const char* stateText() const;
    QByteArray lastEventId() const { return m_lastEventId; }
    int restartDelayMs() const { return m_restartDelayMs; }
    // Milliseconds since data last arrived (or since the stream was opened).
    qint64 silenceMs() const { return m_lastData.isValid() ? m_lastData.elapsed() : 0; }
    // Aborts an open stream that has been silent for more than kSilenceLimitMs; true when it did.
    bool abortIfSilent();
    // Single shot: the first open, then every reopen.
    QTimer& openTimer() { return m_openTimer; }
    const EventStreamFramer& framer() const { return m_framer; }
    int openCount() const { return m_openCount; }

    // Feeds received bytes as if they came from the stream (the reply's slot uses it too).
    void processBytes(const QByteArray& bytes);

signals:
    void dataReceived(const QByteArray& data);

public slots:
    void start();
    void onReplyReadyRead();
    void onReplyFinished();

private:
    CBridge* m_bridge;
    QPointer<QNetworkReply> m_reply;
    EventStreamFramer m_framer;
    QByteArray m_lastEventId;
    int m_restartDelayMs = kDefaultRestartDelayMs;
    ElapsedTimer m_lastData;
    QTimer m_openTimer;
    int m_openCount = 0;
    bool m_readScheduled = false; // a queued onReplyReadyRead for what is still unread
};

} // namespace hue
