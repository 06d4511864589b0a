#include "hue_replylimit.h"

#include "common/logginginterface.h"

#include <QNetworkReply>

namespace hue {

namespace {
const char kLimitProperty[] = "hueReplyLimit";
const char kTooLargeProperty[] = "hueReplyTooLarge";
} // namespace

void limitReplySize(QNetworkReply* reply, qint64 maxBytes)
{
    const bool connected = reply->property(kLimitProperty).isValid();
    reply->setProperty(kLimitProperty, maxBytes);
    if (connected)
        return;
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received, qint64 total) {
        const qint64 limit = reply->property(kLimitProperty).toLongLong();
        if ((received <= limit && total <= limit) || reply->property(kTooLargeProperty).toBool() ||
            reply->isFinished())
            return;
        reply->setProperty(kTooLargeProperty, true);
        LOG_WARNING << "reply from" << reply->url().host() << reply->url().path() << "larger than" << limit
                    << "bytes, aborted after" << received << "bytes";
        reply->abort();
    });
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
