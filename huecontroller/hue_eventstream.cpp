#include "hue_eventstream.h"

#include "hue_bridge.h"

#include "common/logginginterface.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

namespace hue {

EventStreamConnection::EventStreamConnection(CBridge* bridge, QObject* parent)
    : QObject(parent), m_bridge(bridge)
{
    m_openTimer.setSingleShot(true);
    connect(&m_openTimer, &QTimer::timeout, this, &EventStreamConnection::start);
    m_openTimer.start(kFirstOpenDelayMs);
}

EventStreamConnection::~EventStreamConnection()
{
    if (m_reply) {
        // The stream ends with its owner; its finish must not arm a reopen any more.
        disconnect(m_reply, nullptr, this, nullptr);
        m_reply->abort();
        m_reply->deleteLater();
    }
}

bool EventStreamConnection::isOpen() const
{
    return m_reply && !m_reply->isFinished();
}

const char* EventStreamConnection::stateText() const
{
    if (!m_reply)
        return "reply_deleted";
    return m_reply->isFinished() ? "finished" : "active";
}

void EventStreamConnection::start()
{
    m_openTimer.stop();
    if (m_reply || !m_bridge->networkAccessManager())
        return;
    // An ignored bridge gets no traffic, nor one whose key is not (or no longer) confirmed;
    // look again later, the user may take it back or pair it again.
    if (m_bridge->isIgnored() || m_bridge->userNameState() != CBridge::USERNAME_REGISTERED ||
        m_bridge->isCertificateRefused()) {
        m_openTimer.start(m_restartDelayMs);
        return;
    }
    QUrl url = m_bridge->url();
    url.setPath(QStringLiteral("/eventstream/clip/v2"));
    QNetworkRequest request(url);
    request.setRawHeader("hue-application-key", m_bridge->userName().toUtf8());
    request.setRawHeader("Accept", "text/event-stream");
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, m_bridge->enableHttp2());
    if (!m_lastEventId.isEmpty())
        request.setRawHeader("Last-Event-ID", m_lastEventId);
    // No transfer time-out: the stream stays open until the bridge or the network ends it.
    m_reply = m_bridge->networkAccessManager()->get(request);
    // Like every request of the bridge, so that its certificate is judged as the bridge's.
    m_reply->setProperty("hueBridgeId", m_bridge->bridgeId());
    // Qt reads no further from the socket while this much waits unread, so a bridge that sends
    // faster than the service takes events is held back by TCP instead of filling memory.
    m_reply->setReadBufferSize(kReadBufferBytes);
    ++m_openCount;
    m_lastData.start();
    connect(m_reply, &QNetworkReply::finished, this, &EventStreamConnection::onReplyFinished);
    connect(m_reply, &QNetworkReply::readyRead, this, &EventStreamConnection::onReplyReadyRead);
}

void EventStreamConnection::onReplyReadyRead()
{
    m_readScheduled = false;
    if (!m_reply)
        return;
    if (m_bridge->isIgnored()) {
        m_reply->abort(); // reopens through onReplyFinished once the bridge is taken back
        return;
    }
    // At most one slice per event-loop turn: a flooding stream must leave room for the hub's
    // calls, the timers and the signals in between. What is left is read on the next turn.
    QByteArray received;
    while (received.size() < kReadSliceBytes) {
        const QByteArray chunk = m_reply->read(kReadChunkBytes);
        if (chunk.isEmpty())
            break;
        received.append(chunk);
    }
    processBytes(received);
    if (m_reply && m_reply->bytesAvailable() > 0 && !m_readScheduled) {
        m_readScheduled = true;
        QMetaObject::invokeMethod(this, &EventStreamConnection::onReplyReadyRead, Qt::QueuedConnection);
    }
}

void EventStreamConnection::processBytes(const QByteArray& bytes)
{
    if (bytes.isEmpty())
        return;
    m_lastData.start();
    const QList<QByteArray> messages = m_framer.feed(bytes);
    for (const QByteArray& text : messages) {
        const EventStreamMessage message = EventStreamFramer::parseMessage(text);
        if (message.hasId)
            m_lastEventId = message.id;
        if (message.retryMs >= 0)
            m_restartDelayMs = message.retryMs;
        if (!message.data.isEmpty())
            emit dataReceived(message.data);
    }
}

void EventStreamConnection::onReplyFinished()
{
    if (!m_reply)
        return;
    // What the reply still holds unread (at most its read buffer) belongs to the stream.
    if (!m_bridge->isIgnored()) {
        for (QByteArray rest = m_reply->read(kReadSliceBytes); !rest.isEmpty();
             rest = m_reply ? m_reply->read(kReadSliceBytes) : QByteArray())
            processBytes(rest);
        if (!m_reply)
            return;
    }
    QNetworkReply* reply = m_reply;
    m_reply = nullptr;
    disconnect(reply, nullptr, this, nullptr);
    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 403)
        m_bridge->keyRefused("event stream, HTTP 403");
    if (reply->error() != QNetworkReply::NoError && reply->error() != QNetworkReply::OperationCanceledError &&
        m_bridge->admitWarning("event stream ended " + QByteArray::number(int(reply->error()))))
        LOG_WARNING << "event stream of bridge" << m_bridge->bridgeId() << "ended:" << reply->errorString();
    reply->deleteLater();
    LOG_DETAIL << "event stream of bridge" << m_bridge->bridgeId() << "reopens in" << m_restartDelayMs
               << "ms";
    m_openTimer.start(m_restartDelayMs);
}

bool EventStreamConnection::abortIfSilent()
{
    if (!isOpen() || !m_lastData.hasExpired(kSilenceLimitMs))
        return false;
    LOG_WARNING << "eventstream ping timeout";
    m_reply->abort(); // finishes the reply, which arms the reopen
    return true;
}

} // namespace hue
