#pragma once

#include <QtGlobal>

class QNetworkReply;

namespace hue {

// Caps the body a reply may bring. Qt keeps the whole body of a reply in memory, so a peer that
// answers without end would take the service's memory with it. Once more than `maxBytes` have
// arrived (or are announced), a warning is logged and the reply is aborted: it finishes with
// OperationCanceledError, and replyWasTooLarge() tells its handler why.
void limitReplySize(QNetworkReply* reply, qint64 maxBytes);
bool replyWasTooLarge(const QNetworkReply* reply);

} // namespace hue
