// CBridge's request engine: numbering and tracking replies, the single finish funnel with the
// https fall-back, errors, time-outs and the per-URL light-change queue with its retries.

#include "hue_bridge.h"

#include "hue_bridgeapi.h"
#include "hue_controller.h"
#include "hue_light.h"
#include "hue_replylimit.h"

#include "common/logginginterface.h"
#include "common/profiler.h"

#include <QNetworkAccessManager>

#include <limits>

namespace hue {

bool CBridge::admitWarning(const QByteArray& key)
{
    return m_logBudget.admit(key, Clock::nowMs());
}

void CBridge::endWarnings()
{
    if (m_logBudget.isEmpty())
        return;
    for (const auto& [key, count] : m_logBudget.end())
        LOG_INFO << "bridge" << m_bridgeId << "answers again;" << count
                 << "more warnings of this kind were held back:" << key;
}

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
    reply->setProperty(kSentSerialProperty, qulonglong(++m_sentSerial));
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
        LOG_WARNING << "certificate of bridge" << m_bridgeId
                    << "refused; staying on https, no fall-back to http";
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

    if (reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt() == 403)
        keyRefused("HTTP 403");
    else if (error == QNetworkReply::NoError)
        endWarnings(); // the bridge answers again
    if (error == QNetworkReply::NoError && m_certificateRefused && g_Controller)
        g_Controller->certificateAcceptedAgain(m_bridgeId);
    if (error == QNetworkReply::NoError && m_pacer.isPaused(Clock::nowMs())) {
        m_pacer.reached(); // back after an outage: the waiting changes need not wait any longer
        if (!m_pacer.isPaused(Clock::nowMs()))
            sendDueChanges();
    }
    if (reply->property("hueIsLightChange").toBool()) {
        // A change that did not reach the bridge waits for it, however long it is away; the
        // light's final state must not be lost to a restart or a moment without network.
        const bool answered = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).isValid();
        if ((timedOut || (!answered && error != QNetworkReply::NoError)) && requeueChange(reply, false))
            return;
        if (error == QNetworkReply::NoError)
            noteChangeAccepted(reply);
    }
    removeRetry(reply);

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
    if (admitWarning("request failed " + QByteArray::number(int(code))))
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
        if (admitWarning("reply timeout"))
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
    ++entry.attempts;
    trackReply(reply);
    const int bits = entry.properties.value(kChangeItemsProperty).toInt();
    QHash<int, quint64>& sent = m_itemSentSerials[entry.lightId];
    for (int item = ChangeOn; item <= ChangeTimer; ++item) {
        if (bits & (1 << item))
            sent.insert(item, m_sentSerial);
    }
}

quint64 CBridge::queueLightchangeRequest(const QNetworkRequest& request, const QByteArray& body,
                                         const QByteArray& lightId,
                                         const QMap<QByteArray, QVariant>& properties)
{
    if (!m_nam)
        return 0; // a bridge without a network sends nothing
    const QString key = request.url().toString();
    QList<RetryingRequest*>& queue = m_retryQueues[key];
    // Latest value wins: a body that still waits takes the new change in, so a light never has
    // more than one body waiting behind the one in flight.
    if (!queue.isEmpty() && !queue.last()->inFlight) {
        RetryingRequest* waiting = queue.last();
        waiting->body = BridgeAPI::mergeChangeBodies(waiting->body, body);
        const int items = waiting->properties.value(kChangeItemsProperty).toInt() |
                          properties.value(kChangeItemsProperty).toInt();
        for (auto it = properties.cbegin(); it != properties.cend(); ++it)
            waiting->properties.insert(it.key(), it.value());
        waiting->properties.insert(kChangeItemsProperty, items);
        LOG_DETAIL << "merged change into waiting request" << waiting->id << "for light" << lightId;
        return waiting->id;
    }
    const bool waitsBehind = !queue.isEmpty();
    const quint64 id = ++m_requestCounter;
    const CLight* light = lightById(lightId);
    auto* entry = new RetryingRequest{id,         request, body, lightId,
                                      properties, false,   0,    light && light->itemType() == ItemGroup};
    queue.append(entry);
    if (waitsBehind && !m_retryTimer.isActive()) {
        QString shown = key;
        if (!m_userName.isEmpty())
            shown.replace(m_userName, QStringLiteral("***"));
        LOG_ERROR << "delaying request but retry timer is not active:" << shown;
    }
    sendDueChanges();
    return id;
}

void CBridge::onRetryTimer()
{
    sendDueChanges();
}

void CBridge::sendDueChanges()
{
    if (!m_nam)
        return;
    const qint64 now = Clock::nowMs();
    for (;;) {
        // The waiting head that has waited longest goes first, as far as the pacer allows; only
        // heads are sent, so each light's changes keep their order.
        RetryingRequest* next = nullptr;
        qint64 soonest = -1;
        for (const QList<RetryingRequest*>& queue : qAsConst(m_retryQueues)) {
            if (queue.isEmpty() || queue.first()->inFlight)
                continue;
            RetryingRequest* head = queue.first();
            const auto requestClass = head->isGroup ? SendPacer::GroupChange : SendPacer::LightChange;
            const qint64 wait = m_pacer.waitMs(requestClass, now);
            if (wait == 0 && (!next || head->id < next->id))
                next = head;
            else if (wait > 0 && (soonest < 0 || wait < soonest))
                soonest = wait;
        }
        if (next) {
            m_pacer.sent(next->isGroup ? SendPacer::GroupChange : SendPacer::LightChange, now);
            sendQueuedRequest(*next);
            continue;
        }
        if (soonest >= 0)
            m_retryTimer.start(int(qMin<qint64>(soonest, std::numeric_limits<int>::max())));
        else
            m_retryTimer.stop();
        return;
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
    return requeueChange(reply, true);
}

namespace {

// "Retry-After" in seconds, as milliseconds; -1 when absent or in another form.
qint64 retryAfterMs(const QNetworkReply* reply)
{
    bool ok = false;
    const qint64 seconds = reply->rawHeader("Retry-After").trimmed().toLongLong(&ok);
    return ok && seconds >= 0 ? qMin<qint64>(seconds, SendPacer::kMaxRetryAfterMs / 1000) * 1000 : -1;
}

} // namespace

bool CBridge::requeueChange(QNetworkReply* reply, bool refused)
{
    QString url;
    int index = -1;
    if (!findRetryIndex(reply, url, index))
        return false;
    m_retryQueues[url].at(index)->inFlight = false;
    const qint64 now = Clock::nowMs();
    const bool troubleStarts = m_pacer.troubleSinceMs() < 0;
    if (refused)
        m_pacer.refused(now, retryAfterMs(reply));
    else
        m_pacer.unreachable(now);
    if (troubleStarts) {
        if (refused)
            LOG_INFO << "bridge" << m_bridgeId << "refuses changes for now (HTTP"
                     << reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt()
                     << "); waiting before sending more";
        else
            LOG_WARNING << "bridge" << m_bridgeId << "not reached with a change:" << reply->errorString()
                        << "- keeping the changes until it answers";
    }
    if (giveUpIfFailingTooLong())
        return false;
    sendDueChanges();
    return true;
}

bool CBridge::giveUpIfFailingTooLong()
{
    const qint64 since = m_pacer.troubleSinceMs();
    if (since < 0 || Clock::nowMs() - since <= kGiveUpAfterMs)
        return false;
    for (auto it = m_retryQueues.begin(); it != m_retryQueues.end();) {
        QList<RetryingRequest*>& queue = it.value();
        for (int i = queue.size() - 1; i >= 0; --i) {
            RetryingRequest* entry = queue.at(i);
            if (entry->inFlight)
                continue;
            LOG_WARNING << "giving up on request id" << entry->id << "to" << it.key();
            if (CLight* light = lightById(entry->lightId)) {
                m_failedLights.insert(entry->lightId);
                emit lightChangeFailed(light, true);
            }
            delete queue.takeAt(i);
        }
        it = queue.isEmpty() ? m_retryQueues.erase(it) : std::next(it);
    }
    m_pacer.accepted(); // later changes get a bound of their own
    return true;
}

void CBridge::noteChangeAccepted(QNetworkReply* reply)
{
    m_pacer.accepted();
    const QByteArray lightId = reply->property("hueLightID").toByteArray();
    if (m_failedLights.remove(lightId)) {
        if (CLight* light = lightById(lightId))
            emit lightChangeFailed(light, false);
    }
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
    sendDueChanges(); // the change behind it may go now
}

} // namespace hue
