// CBridge's request engine: numbering and tracking replies, the single finish funnel with the
// https fall-back, errors, time-outs and the per-URL light-change queue with its retries.

#include "hue_bridge.h"

#include "hue_bridgeapi.h"
#include "hue_replylimit.h"

#include "common/logginginterface.h"
#include "common/profiler.h"

#include <QNetworkAccessManager>

namespace hue {

quint64 CBridge::getRequestId(QNetworkReply* reply)
{
    const QVariant value = reply->property("hueRequestCounter");
    bool ok = false;
    const qulonglong id = value.toULongLong(&ok);
    return value.isValid() && ok ? id : 0;
}

quint64 CBridge::trackReply(QNetworkReply* reply)
{
    reply->setProperty("hueBridgeId", m_bridgeId);
    limitReplySize(reply, kMaxReplyBytes);
    connect(reply, &QNetworkReply::errorOccurred, this, &CBridge::replyError, Qt::UniqueConnection);
    m_activeReplies.insert(reply);
    ElapsedTimer started;
    started.start();
    m_replyStartTimes.insert(reply, started);
    if (!reply->property("hueRequestCounter").isValid())
        reply->setProperty("hueRequestCounter", qulonglong(++m_requestCounter));
    return reply->property("hueRequestCounter").toULongLong();
}

void CBridge::onReplyFinished(QNetworkReply* reply)
{
    ProfileScope profile("CBridge::onReplyFinished");
    if (reply == m_abortingReply)
        return;
    replyFinished(reply, false);
    reply->deleteLater();
}

void CBridge::replyFinished(QNetworkReply* reply, bool timedOut)
{
    if (!m_activeReplies.remove(reply))
        return; // already handled through finish, error or time-out
    m_replyStartTimes.remove(reply);
    reply->deleteLater();
    removeRetry(reply);

    // Once https has answered the bridge stays on it; a refused or failed https connection
    // before that sends this and every later request to the original plain http URL. A
    // handshake that failed because the certificate was refused proves the bridge speaks TLS:
    // falling back then would let anything answering on its address force cleartext.
    bool fellBack = false;
    const QNetworkReply::NetworkError error = reply->error();
    if (m_stayOnHttps) {
        fellBack = false;
    } else if (error == QNetworkReply::NoError && reply->url().scheme() == QLatin1String("https")) {
        m_stayOnHttps = true;
    } else if (reply->property("hueCertificateRefused").toBool()) {
        LOG_WARNING << "certificate of bridge" << m_bridgeId << "refused; staying on https, no fall-back to http";
        m_stayOnHttps = true;
        fellBack = false;
    } else if (m_httpsTried || (error != QNetworkReply::ConnectionRefusedError &&
                                error != QNetworkReply::RemoteHostClosedError &&
                                error != QNetworkReply::SslHandshakeFailedError)) {
        fellBack = false;
    } else {
        LOG_DETAIL << "request failed, going back to original URL" << m_originalUrl;
        m_httpsTried = true;
        m_url = m_originalUrl;
        fellBack = true;
    }

    if (reply == m_checkReply) {
        handleCheckUserNameRegisteredReply(reply, timedOut, fellBack);
    } else if (reply == m_registerReply) {
        handleRegisterUserNameReply(reply, timedOut, fellBack);
    } else if (m_pollReplies.contains(reply)) {
        handlePollReply(reply, timedOut);
    } else if (reply->property("hueIsLightChange").toBool()) {
        handleRequestLightChangeReply(reply, timedOut);
    } else if (reply->property("hueSupportInfo").toBool()) {
        handleSupportInfoReply(reply, timedOut);
    } else if (!m_api->handleOtherReply(reply, timedOut)) {
        if (reply->isOpen())
            reply->readAll();
        LOG_DETAIL << "dropping reply without handler" << reply->url().path();
    }
}

void CBridge::replyError(QNetworkReply::NetworkError code)
{
    if (code == QNetworkReply::OperationCanceledError)
        return; // whoever aborted finishes the reply
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return;
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if ((status == 429 || status == 503) && tryQueueRetry(reply)) {
        // The queue sends it again on a later retry tick; no handler sees this answer.
        m_activeReplies.remove(reply);
        m_replyStartTimes.remove(reply);
        reply->deleteLater();
        return;
    }
    LOG_WARNING << "HTTP request to" << reply->url() << "failed:" << int(code) << reply->errorString()
                << "HTTP code" << status;
    const QList<QNetworkReply*> active = m_activeReplies.values();
    for (QNetworkReply* other : active) {
        if (other->error() == code) {
            replyFinished(other, true);
            other->deleteLater();
        }
    }
}

void CBridge::replyTimeoutTimer()
{
    const QMap<QNetworkReply*, ElapsedTimer> started = m_replyStartTimes;
    for (auto it = started.cbegin(); it != started.cend(); ++it) {
        if (!it.value().hasExpired(kReplyTimeoutMs))
            continue;
        QNetworkReply* reply = it.key();
        if (!m_activeReplies.contains(reply))
            continue; // finished by an earlier reply's handling in this sweep
        LOG_WARNING << "Have a network reply timeout " + reply->url().toString();
        // The abort finishes the reply at once; that finish belongs to this time-out.
        m_abortingReply = reply;
        reply->abort();
        m_abortingReply = nullptr;
        reply->deleteLater();
        replyFinished(reply, true);
    }
}

void CBridge::sendQueuedRequest(RetryingRequest& entry)
{
    QNetworkReply* reply = m_nam->put(entry.request, entry.body);
    for (auto it = entry.properties.cbegin(); it != entry.properties.cend(); ++it)
        reply->setProperty(it.key().constData(), it.value());
    reply->setProperty("hueRequestCounter", qulonglong(entry.id));
    reply->setProperty("hueIsLightChange", true);
    reply->setProperty("hueLightID", entry.lightId);
    entry.inFlight = true;
    trackReply(reply);
}

quint64 CBridge::queueLightchangeRequest(const QNetworkRequest& request, const QByteArray& body,
                                         const QByteArray& lightId,
                                         const QMap<QByteArray, QVariant>& properties)
{
    if (!m_nam)
        return 0; // a bridge without a network sends nothing
    const QString key = request.url().toString();
    const bool existed = m_retryQueues.contains(key);
    const quint64 id = ++m_requestCounter;
    auto* entry = new RetryingRequest{id, request, body, lightId, properties, false, kMaxRetries};
    m_retryQueues[key].append(entry);
    if (!existed) {
        sendQueuedRequest(*entry);
    } else if (!m_retryTimer.isActive()) {
        QString shown = key;
        if (!m_userName.isEmpty())
            shown.replace(m_userName, QStringLiteral("***"));
        LOG_ERROR << "delaying request but retry timer is not active:" << shown;
        m_retryTimer.start();
    }
    return id;
}

void CBridge::onRetryTimer()
{
    for (auto it = m_retryQueues.begin(); it != m_retryQueues.end(); ++it) {
        if (it.value().isEmpty()) {
            LOG_ERROR << "empty queue for url:" + it.key();
            continue;
        }
        RetryingRequest* head = it.value().first();
        if (!head->inFlight)
            sendQueuedRequest(*head);
    }
}

bool CBridge::findRetryIndex(QNetworkReply* reply, QString& url, int& index) const
{
    url = reply->request().url().toString();
    index = -1;
    const quint64 id = getRequestId(reply);
    const auto queue = m_retryQueues.constFind(url);
    if (id == 0 || queue == m_retryQueues.constEnd())
        return false;
    for (int i = 0; i < queue->size(); ++i) {
        if (queue->at(i)->id == id) {
            index = i;
            return true;
        }
    }
    return false;
}

bool CBridge::tryQueueRetry(QNetworkReply* reply)
{
    QString url;
    int index = -1;
    if (!findRetryIndex(reply, url, index))
        return false;
    QList<RetryingRequest*>& queue = m_retryQueues[url];
    RetryingRequest* entry = queue.at(index);
    entry->inFlight = false;
    const int left = entry->retriesLeft--;
    if (left != 1) {
        if (!m_retryTimer.isActive())
            m_retryTimer.start();
        return true;
    }
    LOG_WARNING << "giving up on request id" << entry->id << "to" << url;
    delete queue.takeAt(index);
    if (queue.isEmpty())
        m_retryQueues.remove(url);
    return false;
}

void CBridge::removeRetry(QNetworkReply* reply)
{
    QString url;
    int index = -1;
    if (!findRetryIndex(reply, url, index))
        return;
    QList<RetryingRequest*>& queue = m_retryQueues[url];
    delete queue.takeAt(index);
    if (queue.isEmpty())
        m_retryQueues.remove(url);
    if (m_retryQueues.isEmpty())
        m_retryTimer.stop();
}

} // namespace hue
