// The controller's bridge registry: life cycle, short ids, reactions to configuration changes
// made elsewhere on the hub, and polling the bridges in turn.

#include "hue_controller.h"

#include "hue_bridge.h"
#include "hue_light.h"

#include "common/configcache.h"
#include "common/logginginterface.h"

#include <QTextStream>

#include <cstdlib>

namespace hue {

namespace {

constexpr int kShortIdSeed = 44717; // 0xAEAD
constexpr int kShortIdCount = 65536;
constexpr int kRegisterAttempts = 10;
// Only ids of this length are deleted at once by writing "delete" to their state.
constexpr int kDeletableIdLength = 32;

bool isSwitchOn(const QString& value)
{
    return value == QLatin1String("true") || value == QLatin1String("1");
}

// The rest of `key` after `prefix`, or a null string when the key does not start with it.
QString bridgeIdFromKey(const QString& key, QLatin1String prefix)
{
    return key.startsWith(prefix) ? key.mid(prefix.size()) : QString();
}

} // namespace

void CController::initialize()
{
    loadLightSpecs();
}

void CController::start()
{
    m_started = true;
    m_pollTimer.start();
    bool ok = false;
    const QString value =
        ConfigCache::instance()->getConfigValue(QStringLiteral("hue/ignoreReachability"), &ok);
    m_ignoreReachability = ok && isSwitchOn(value);
    if (!m_pendingConfigChanges.isEmpty())
        onCVarApplyTimeout();
    // After a hub restart the hub may know none of the lights: every light is registered again,
    // and its values follow when the hub reports the device ready.
    for (const QPointer<CBridge>& bridge : qAsConst(m_bridges)) {
        if (!bridge)
            continue;
        for (CLight* light : bridge->lights())
            registerLight(*light);
    }
}

void CController::stop()
{
    m_started = false;
    m_pollTimer.stop();
    m_configApplyTimer.stop();
}

void CController::kill()
{
    const auto registered = m_bridges;
    m_bridges.clear();
    for (const QPointer<CBridge>& bridge : registered)
        delete bridge.data();
    m_lastPolledBridgeId.clear();
}

CBridge* CController::bridgeByShortID(int shortId) const
{
    return m_bridges.value(shortId).data();
}

CBridge* CController::bridgeByBridgeId(const QString& bridgeId) const
{
    for (const QPointer<CBridge>& bridge : m_bridges) {
        if (bridge && bridge->bridgeIdString() == bridgeId)
            return bridge.data();
    }
    return nullptr;
}

QList<CBridge*> CController::bridges() const
{
    QList<CBridge*> result;
    for (const QPointer<CBridge>& bridge : m_bridges) {
        if (bridge)
            result.append(bridge.data());
    }
    return result;
}

CBridge* CController::registerBridge(const QByteArray& bridgeId, const QString& host, int port,
                                     const QString& name)
{
    int shortId = -1;
    if (!calculateShortId(shortId, bridgeId)) {
        LOG_ERROR << "All bridge ids in use. This must never happen";
        return nullptr;
    }
    // The bridge may come back at another address: the new object replaces the old one.
    for (auto it = m_bridges.begin(); it != m_bridges.end();) {
        if (it.key() == shortId || (it.value() && it.value()->bridgeId() == bridgeId)) {
            delete it.value().data();
            it = m_bridges.erase(it);
        } else {
            ++it;
        }
    }

    auto* bridge = new CBridge(m_nam, bridgeId, host, port, quint32(shortId), bridgeUserName(bridgeId), this);
    bridge->setName(name);
    connect(bridge, &CBridge::supportInfoGathered, this,
            [this, bridge](const QByteArray& text) { addSupportInfo(bridge, text); });
    connectLightEvents(bridge);
    m_bridges.insert(shortId, bridge);
    LOG_INFO << "registered bridge" << bridgeId << "short id" << shortId << "at" << host << port;

    applyStoredState(bridge, true);
    // Polling waits for a confirmed user name: check a stored one of a bridge that is not being
    // paired, ignored or deleted.
    const EBridgeState state = bridgeState(bridgeId);
    if (state != BridgeStatePair && !bridge->isIgnored() && !bridge->userName().isEmpty())
        bridge->checkUsernameRegistered(true);
    return bridge;
}

void CController::removeBridge(const QString& bridgeId)
{
    for (auto it = m_bridges.begin(); it != m_bridges.end();) {
        if (it.value() && it.value()->bridgeIdString() == bridgeId) {
            delete it.value().data();
            it = m_bridges.erase(it);
        } else {
            ++it;
        }
    }
    emit bridgeRemoved(bridgeId);
}

bool CController::calculateShortId(int& shortId, const QByteArray& bridgeId)
{
    shortId = bridgeShortId(bridgeId);
    if (shortId >= 0)
        return true;

    LOG_DEBUG << "have to generate a new bridge id...";
    const QString usedKey = QStringLiteral("hue/usedBridgeIDs");
    bool ok = false;
    const QString usedText = ConfigCache::instance()->getConfigValue(usedKey, &ok);
    QStringList used;
    if (!ok) {
        LOG_ERROR << "usedBridge getConfigValue failed";
    } else {
        LOG_DEBUG << "usedShortIds" << usedText;
        used = usedText.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    }
    QSet<int> taken;
    for (const QString& part : qAsConst(used)) {
        bool isNumber = false;
        const int number = part.toInt(&isNumber, 10);
        if (isNumber)
            taken.insert(number);
    }
    if (taken.size() >= kShortIdCount) {
        LOG_ERROR << "All bridge ids in use. This must never happen";
        return false;
    }

    // Fold the id into 16 bits so that a bridge usually gets the same number on every hub.
    int candidate = kShortIdSeed;
    for (int pos = 0; pos + 4 <= bridgeId.size(); pos += 4)
        candidate ^= int(bridgeId.mid(pos, 4).toUShort(nullptr, 16)); // unparseable groups give 0
    while (taken.contains(candidate))
        candidate = std::rand() & 0xFFFF;

    used.append(QString::number(candidate));
    ConfigCache::instance()->setConfigValueNonblock(usedKey, used.join(QLatin1Char(' ')), true);
    setBridgeShortId(bridgeId, candidate);
    shortId = candidate;
    return true;
}

void CController::configValueChanged(QString key, QString value, bool persistent)
{
    Q_UNUSED(persistent); // volatile and persistent changes are applied alike
    QString bridgeId = bridgeIdFromKey(key, QLatin1String("hueBridges/"));
    if (!bridgeId.isNull()) {
        if (value == QLatin1String("delete")) {
            if (bridgeId.size() != kDeletableIdLength)
                return;
            if (CBridge* bridge = bridgeByBridgeId(bridgeId)) {
                bridge->deleteAllLights();
                removeBridge(bridgeId);
            } else {
                LOG_ERROR << "Bridge with uuid" << bridgeId << "does not exist!";
            }
            return;
        }
    } else {
        bridgeId = bridgeIdFromKey(key, QLatin1String("hueBridgeUserNames/"));
        if (bridgeId.isNull())
            bridgeId = bridgeIdFromKey(key, QLatin1String("hueBridgeIDs/"));
    }
    if (bridgeId.isNull()) {
        if (key == QLatin1String("debug/enableLogging"))
            setDetailedLoggingEnabled(value == QLatin1String("true"));
        else if (key == QLatin1String("hue/ignoreReachability"))
            m_ignoreReachability = isSwitchOn(value);
        return;
    }
    if (bridgeId.isEmpty() || !bridgeByBridgeId(bridgeId))
        return;
    m_pendingConfigChanges.insert(bridgeId);
    // Restarting the timer gathers changes in quick succession into one application.
    if (m_started)
        m_configApplyTimer.start(kConfigApplyDelayMs);
}

void CController::onCVarApplyTimeout()
{
    const QSet<QString> pending = m_pendingConfigChanges;
    for (const QString& bridgeId : pending) {
        if (CBridge* bridge = bridgeByBridgeId(bridgeId))
            applyStoredState(bridge, false);
    }
    m_pendingConfigChanges.clear();
}

void CController::applyStoredState(CBridge* bridge, bool resetCheckCount)
{
    const QByteArray bridgeId = bridge->bridgeIdString().toUtf8();
    const EBridgeState state = bridgeState(bridgeId);
    // An ignored bridge, or one marked for deletion, is no longer polled.
    bridge->setIgnored(state == BridgeStateIgnore || state == BridgeStateDelete);
    if (state != BridgeStatePair)
        return;
    const QString userName = bridgeUserName(bridgeId);
    if (userName.isEmpty()) {
        bridge->registerUserName(kRegisterAttempts);
    } else {
        bridge->setUserName(userName);
        bridge->checkUsernameRegistered(resetCheckCount);
    }
}

void CController::pollNextBridge()
{
    if (m_bridges.isEmpty())
        return;
    const QList<int> order = m_bridges.keys();
    int next = 0; // the first bridge when the last polled one is gone or was the last of the order
    for (int i = 0; i < order.size(); ++i) {
        const CBridge* bridge = m_bridges.value(order[i]);
        if (bridge && bridge->bridgeId() == m_lastPolledBridgeId) {
            next = (i + 1) % order.size();
            break;
        }
    }
    const int shortId = order[next];
    CBridge* bridge = m_bridges.value(shortId);
    if (!bridge) {
        LOG_WARNING << "nextBridge is null, this might happen if the bridge was just deleted";
        m_bridges.remove(shortId);
        return;
    }
    // An ignored bridge takes its turn too; its pollNextItem does nothing.
    m_lastPolledBridgeId = bridge->bridgeId();
    bridge->pollNextItem();
    sendDueLifeSigns();
}

void CController::sendDueLifeSigns()
{
    // Every reachable light of a paired bridge tells the hub it lives once a minute, twice per
    // heartbeat period of the hub's own services, so that one late sign never makes it look
    // dead; the bridge keeps the time of each light's last sign (also those of scans and events).
    for (const QPointer<CBridge>& bridge : qAsConst(m_bridges)) {
        if (bridge && !bridge->isIgnored() && bridgeState(bridge->bridgeId()) == BridgeStatePaired)
            bridge->sendLifeSigns(kLifeSignIntervalMs);
    }
}

void CController::debugDumpLightStates(QTextStream& out) const
{
    const QList<CBridge*> all = bridges();
    if (all.isEmpty()) {
        out << "Have no bridges - nothing to dump.\n";
        return;
    }
    for (const CBridge* bridge : all)
        bridge->debugDumpLightStates(out);
}

} // namespace hue
