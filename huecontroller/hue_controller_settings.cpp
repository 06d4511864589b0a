// The controller's persisted per-bridge settings, read from and written to the hub's
// configuration cache.

#include "hue_controller.h"

#include "common/configcache.h"
#include "common/logginginterface.h"

namespace hue {

namespace {

const char* const kStateTexts[] = {"new", "pair", "ignore", "paired", "error", "version", "delete"};
constexpr int kStateTextCount = int(sizeof(kStateTexts) / sizeof(kStateTexts[0]));

QString key(const char* prefix, const QByteArray& bridgeId)
{
    return QLatin1String(prefix) + QString::fromUtf8(bridgeId);
}

QString readValue(const QString& key, bool* ok)
{
    return ConfigCache::instance()->getConfigValue(key, ok);
}

void writeValue(const QString& key, const QString& value)
{
    ConfigCache::instance()->setConfigValueNonblock(key, value, true);
}

} // namespace

QString bridgeStateText(EBridgeState state)
{
    if (state >= 0 && state < kStateTextCount)
        return QLatin1String(kStateTexts[state]);
    return QStringLiteral("invalid");
}

EBridgeState bridgeStateFromText(const QString& text)
{
    for (int i = 0; i < kStateTextCount; ++i) {
        if (text == QLatin1String(kStateTexts[i]))
            return EBridgeState(i);
    }
    return BridgeStateInvalid;
}

EBridgeState CController::bridgeState(const QByteArray& bridgeId) const
{
    // Asked for every output value sent; the answer only changes with the configuration.
    const quint64 revision = ConfigCache::instance()->revision();
    const auto cached = m_bridgeStates.constFind(bridgeId);
    if (cached != m_bridgeStates.constEnd() && cached->revision == revision)
        return cached->state;
    bool ok = false;
    const QString text = readValue(key("hueBridges/", bridgeId), &ok);
    if (!ok) {
        LOG_ERROR << "bridgeState query for" << bridgeId << "failed";
        return BridgeStateInvalid;
    }
    const EBridgeState state = bridgeStateFromText(text);
    m_bridgeStates.insert(bridgeId, CachedBridgeState{revision, state});
    return state;
}

void CController::setBridgeState(const QString& bridgeId, EBridgeState state)
{
    const QString text = bridgeStateText(state);
    LOG_INFO << "setBridgeState" << bridgeId << text;
    writeValue(QStringLiteral("hueBridges/") + bridgeId, text);
}

QString CController::bridgeUserName(const QByteArray& bridgeId) const
{
    bool ok = false;
    const QString name = readValue(key("hueBridgeUserNames/", bridgeId), &ok);
    if (!ok) {
        LOG_ERROR << "bridgeUserName for" << bridgeId << "failed";
        return QString();
    }
    return name;
}

void CController::setBridgeUserName(const QString& bridgeId, const QString& userName)
{
    writeValue(QStringLiteral("hueBridgeUserNames/") + bridgeId, userName);
}

int CController::bridgeShortId(const QByteArray& bridgeId) const
{
    bool ok = false;
    const QString text = readValue(key("hueBridgeIDs/", bridgeId), &ok);
    if (!ok) {
        LOG_ERROR << "shortId query for" << bridgeId << "failed";
        return -1;
    }
    if (text.isEmpty())
        return -1;
    bool parsed = false;
    const uint shortId = text.toUInt(&parsed, 10);
    if (!parsed || shortId > 65535) {
        LOG_ERROR << "shortId for" << bridgeId << "unparseable:" << text;
        return -1;
    }
    return int(shortId);
}

void CController::setBridgeShortId(const QByteArray& bridgeId, int shortId)
{
    writeValue(key("hueBridgeIDs/", bridgeId), QString::number(shortId));
}

QString CController::bridgeName(const QByteArray& bridgeId) const
{
    bool ok = false;
    const QString name = readValue(key("hueBridgeNames/", bridgeId), &ok);
    if (!ok) {
        LOG_ERROR << "bridgeName for" << bridgeId << "failed";
        return QString();
    }
    return name;
}

void CController::setBridgeName(const QByteArray& bridgeId, const QString& name)
{
    writeValue(key("hueBridgeNames/", bridgeId), name);
}

QByteArray CController::bridgeCertDigest(const QByteArray& bridgeId) const
{
    bool ok = false;
    const QString text = readValue(key("hueCertDigests/", bridgeId), &ok);
    if (!ok) {
        LOG_ERROR << "reading bridge cert digest for" << bridgeId << "failed";
        return QByteArray();
    }
    return QByteArray::fromBase64(text.toLatin1());
}

void CController::setBridgeCertDigest(const QByteArray& bridgeId, const QByteArray& digest)
{
    writeValue(key("hueCertDigests/", bridgeId), QString::fromLatin1(digest.toBase64()));
}

} // namespace hue
