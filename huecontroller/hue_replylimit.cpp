#include "hue_replylimit.h"

#include "common/logginginterface.h"

#include <QNetworkReply>

namespace hue {

namespace {
const char kLimitProperty[] = "hueReplyLimit";
const char kTooLargeProperty[] = "hueReplyTooLarge";

void abortIfTooLarge(QNetworkReply* reply)
{
    const qint64 limit = reply->property(kLimitProperty).toLongLong();
    const qint64 announced = reply->header(QNetworkRequest::ContentLengthHeader).toLongLong();
    const qint64 received = reply->bytesAvailable();
    if ((received <= limit && announced <= limit) || reply->property(kTooLargeProperty).toBool() ||
        reply->isFinished())
        return;
    reply->setProperty(kTooLargeProperty, true);
    LOG_WARNING << "reply from" << reply->url().host() << reply->url().path() << "larger than" << limit
                << "bytes, aborted after" << received << "bytes";
    reply->abort();
}

} // namespace

void limitReplySize(QNetworkReply* reply, qint64 maxBytes)
{
    const bool connected = reply->property(kLimitProperty).isValid();
    reply->setProperty(kLimitProperty, maxBytes);
    if (connected)
        return;
    // Qt throttles downloadProgress; readyRead comes with every piece of the body, and the
    // headers tell the announced length before any of it.
    QObject::connect(reply, &QNetworkReply::metaDataChanged, reply, [reply] { abortIfTooLarge(reply); });
    QObject::connect(reply, &QNetworkReply::readyRead, reply, [reply] { abortIfTooLarge(reply); });
}

bool replyWasTooLarge(const QNetworkReply* reply)
{
    if (reply->property(kTooLargeProperty).toBool())
        return true;
    // Replies that arrive whole (data: URLs, bodies read from a cache) report no progress.
    const QVariant limit = reply->property(kLimitProperty);
    return limit.isValid() && reply->bytesAvailable() > limit.toLongLong();
}

} // namespace hue
