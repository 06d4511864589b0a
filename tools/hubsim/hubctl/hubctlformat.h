#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QVariant>

// How hubctl prints what hubsim answers: text for people, or JSON for scripts. The maps are
// those of hubsim's control service (see devicevariant.h and controlservice.h); texts inside
// them may arrive as byte arrays and are read as UTF-8.
namespace hubctlformat {

QJsonValue toJson(const QVariant& value);
// One compact JSON document and a line feed.
QByteArray jsonLine(const QVariant& value);

QString devices(const QVariantList& devices);
QString configValues(const QVariantList& entries);
QString event(const QVariantMap& event);
QString pings(const QVariantList& pings);
QString supportInfo(const QVariantList& submissions, bool full);
QString status(const QVariantMap& status);
// "ok", or "error: ..." for an answer map with "ok" and "error", followed by its other fields.
QString answer(const QVariantMap& answer);

} // namespace hubctlformat
