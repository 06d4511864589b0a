// Admission of candidate bridges: id normalisation, identification by "/api/config", the stored
// state of a bridge that comes (back), and the hand-over to the registry.

#include "hue_controller.h"

#include "hue_bridge.h"
#include "hue_replylimit.h"

#include "common/configcache.h"
#include "common/logginginterface.h"
#include "json/minijson.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QUrl>

namespace hue {

namespace {

// Bridges of the first generation announced this UUID prefix followed by their MAC address.
const QByteArray kOldUuidPrefix = QByteArrayLiteral("2f402f80da5011e19b23");
constexpr int kOldUuidLength = 32;
constexpr int kBridgeIdLength = 16;

const char* const kSettingPrefixes[] = {"hueBridges/", "hueBridgeUserNames/", "hueBridgeIDs/",
                                        "hueBridgeNames/", "hueCertDigests/"};

// A stored setting; empty when it was never written. Unlike the registry's readers this does
// not log a missing value, which is the normal case for a bridge seen for the first time.
QString storedSetting(const char* prefix, const QByteArray& bridgeId)
{
    return ConfigCache::instance()->getConfigValue(QLatin1String(prefix) + QString::fromUtf8(bridgeId));
}

// The pairing procedure needs API version 1.3.0 or later.
bool isSupportedApiVersion(const std::string& text)
{
    const QStringList parts = QString::fromStdString(text).split(QLatin1Char('.'));
    bool majorOk = false;
    bool minorOk = false;
    const int major = parts.value(0).toInt(&majorOk);
    const int minor = parts.value(1).toInt(&minorOk);
    return majorOk && minorOk && (major > 1 || (major == 1 && minor >= 3));
}

} // namespace

QByteArray normalizedBridgeId(const QByteArray& bridgeId)
{
    QByteArray id = bridgeId.toLower();
    if (id.startsWith("uuid:"))
        id.remove(0, 5);
    id.replace('-', QByteArray());
    if (id.size() == kOldUuidLength && id.startsWith(kOldUuidPrefix))
        return id.mid(20, 6) + "fffe" + id.mid(26, 6);
    return bridgeId.toLower();
}

QByteArray oldBridgeUuid(const QByteArray& bridgeId)
{
    if (bridgeId.size() != kBridgeIdLength)
        return QByteArray();
    return kOldUuidPrefix + bridgeId.left(6) + bridgeId.right(6);
}

void CController::addBridge(const QByteArray& bridgeId, const QByteArray& address, int port)
{
    if (m_admissionLocked)
        LOG_INFO << "addBridge while locked" << bridgeId << address << port;
    m_pendingAdmissions.append({bridgeId, address, port});
    workOffAdmissions();
}

void CController::workOffAdmissions()
{
    while (!m_admissionLocked && !m_pendingAdmissions.isEmpty()) {
        const PendingAdmission next = m_pendingAdmissions.takeFirst();
        m_admissionLocked = true;
        if (realAddBridge(next.bridgeId, next.address, next.port))
            m_admissionLocked = false;
    }
}

bool CController::realAddBridge(const QByteArray& bridgeId, const QByteArray& address, int port)
{
    const QByteArray id = normalizedBridgeId(bridgeId);
    if (id != bridgeId.toLower())
        LOG_INFO << "converted old bridge id" << bridgeId << "to" << id;
    if (!id.isEmpty() && bridgeByBridgeId(QString::fromUtf8(id))) {
        QString name = storedSetting("hueBridgeNames/", id);
        if (name.isEmpty())
            name = bridgeByBridgeId(QString::fromUtf8(id))->name();
        realAddIdentifiedBridge(id, id, address, port, name);
        return true;
    }
    identifyBridge(id, address, port);
    return false;
}

void CController::identifyBridge(const QByteArray& bridgeId, const QByteArray& address, int port, bool https)
{
    QUrl url;
    url.setScheme(https || port == kHttpsPort ? QStringLiteral("https") : QStringLiteral("http"));
    url.setHost(QString::fromUtf8(address));
    url.setPort(port);
    url.setPath(QStringLiteral("/api/config"));
    QNetworkRequest request(url);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    // A bridge that never answers must not hold up the admissions queued behind it.
    request.setTransferTimeout(kIdentifyTimeoutMs);
    LOG_DEBUG << "identifying bridge" << bridgeId << "at" << url;
    QNetworkReply* reply = m_nam->get(request);
    reply->setProperty("hueBridgeId", bridgeId);
    reply->setProperty("hueBridgeAddress", address);
    reply->setProperty("hueBridgePort", port);
    reply->setProperty("hueIdentify", true);
    reply->setProperty("hueHttpsOnly", https || port == kHttpsPort);
    limitReplySize(reply, kMaxIdentifyReplyBytes);
    connect(reply, &QNetworkReply::finished, this, &CController::onIdentifyBridgeFinished);
}

void CController::onIdentifyBridgeFinished()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply) {
        LOG_ERROR << "onIdentifyBridgeFinished called with incorrect sender type";
        return;
    }
    reply->deleteLater();
    if (!identifyFromReply(reply))
        return; // asked again over https: the admission goes on
    // Whatever became of this candidate, the next one may go ahead.
    m_admissionLocked = false;
    workOffAdmissions();
}

bool CController::identifyFromReply(QNetworkReply* reply)
{
    const QByteArray expectedId = reply->property("hueBridgeId").toByteArray();
    const QByteArray address = reply->property("hueBridgeAddress").toByteArray();
    const int port = reply->property("hueBridgePort").toInt();
    // Bridges of the newest generation speak https only: plain http is closed or redirects.
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    const bool redirected = status >= 300 && status < 400;
    if (reply->url().scheme() == QLatin1String("http") && port != kHttpsPort &&
        (redirected || reply->error() == QNetworkReply::ConnectionRefusedError)) {
        // A redirect to https on the same host names the port; otherwise https has its own.
        const QUrl location = reply->header(QNetworkRequest::LocationHeader).toUrl();
        const int httpsPort = redirected && location.scheme() == QLatin1String("https") &&
                                      location.host() == QString::fromUtf8(address)
                                  ? location.port(kHttpsPort)
                                  : kHttpsPort;
        LOG_INFO << "bridge at" << address << (redirected ? "redirects plain http" : "refuses plain http")
                 << "- identifying it over https on port" << httpsPort;
        identifyBridge(expectedId, address, httpsPort, true);
        return false;
    }
    if (reply->error() != QNetworkReply::NoError) {
        LOG_WARNING << "identification request failed:" << reply->url() << reply->errorString();
        return true;
    }
    const QByteArray body = reply->readAll();
    std::unique_ptr<minijson::CEntity> document;
    try {
        document = minijson::CParser::Parse(body.constData(), body.size());
    } catch (const minijson::CException& e) {
        LOG_ERROR << "JSON parse error while trying to parse api/config reply:" << e.what();
        return true;
    }
    if (!document->IsObject()) {
        LOG_ERROR << "malformed JSON in api/config reply:" << LogExcerpt(body);
        return true;
    }
    const minijson::CObject& config = document->Object();

    QString name = QString::fromStdString(config.GetString("name"));
    if (name.isEmpty())
        name = QStringLiteral("Unnamed bridge");
    // Firmware that predates "bridgeid" in this document is known by the id it was announced with.
    QByteArray id = expectedId;
    if (const minijson::CEntity* reported = config.Find("bridgeid"); reported && reported->IsString()) {
        id = QByteArray::fromStdString(config.GetString("bridgeid"));
        if (id.isEmpty()) {
            LOG_ERROR << "bridge at" << address << "replied with blank ID";
            return true;
        }
    }
    if (id.isEmpty()) {
        LOG_ERROR << "got finished signal with no bridge id" << address << port;
        return true;
    }
    if (!isSupportedApiVersion(config.GetString("apiversion")))
        name += QStringLiteral(" (unsupported)");
    // Reached by its address alone, the bridge is who its certificate names.
    const QByteArray certified = reply->property("hueCertificateName").toByteArray();
    if (!certified.isEmpty() && certified != id.toLower()) {
        LOG_WARNING << "bridge at" << address << "reports id" << id << "but its certificate names"
                    << certified << "- not admitted";
        return true;
    }
    CBridge* bridge = realAddIdentifiedBridge(expectedId, id.toLower(), address, port, name);
    if (bridge && reply->property("hueHttpsOnly").toBool())
        bridge->setHttpsOnly();
    return true;
}

CBridge* CController::realAddIdentifiedBridge(const QByteArray& expectedId, const QByteArray& bridgeId,
                                              const QByteArray& address, int port, const QString& name)
{
    if (!expectedId.isEmpty() && expectedId != bridgeId)
        LOG_WARNING << "bridge at" << address << "reports id" << bridgeId << "instead of" << expectedId;
    convertOldBridgeInfo(bridgeId);

    // The same bridge at the same place stays as it is: a new object would start pairing and
    // polling from scratch.
    const QString idText = QString::fromUtf8(bridgeId);
    if (CBridge* known = bridgeByBridgeId(idText)) {
        if (known->originalUrl().host() == QString::fromUtf8(address) &&
            known->originalUrl().port() == port) {
            if (known->name() != name) {
                known->setName(name);
                setBridgeName(bridgeId, name);
            }
            return known;
        }
    }

    const QString stateText = storedSetting("hueBridges/", bridgeId);
    const bool hasUser = !storedSetting("hueBridgeUserNames/", bridgeId).isEmpty();
    const EBridgeState stored = stateText.isEmpty() ? BridgeStateNew : bridgeStateFromText(stateText);
    EBridgeState state = stored;
    switch (stored) {
    case BridgeStateDelete:
        // Deleted on the hub and now found again: it starts over as a new bridge, keeping only
        // its short id so that its lights get their old device serials back.
        LOG_INFO << "Renewing cvars for hue bridge" << bridgeId;
        setBridgeUserName(idText, QString());
        setBridgeCertDigest(bridgeId, QByteArray());
        state = BridgeStateNew;
        break;
    case BridgeStateError:
        LOG_WARNING << "bridge was saved in error state, trying to repair" << bridgeId;
        state = BridgeStatePair;
        break;
    case BridgeStateInvalid:
        LOG_WARNING << "current bridge state weird:" << stateText << bridgeId;
        state = hasUser ? BridgeStatePair : BridgeStateNew;
        break;
    case BridgeStateIgnore:
        LOG_INFO << "bridge" << bridgeId << "is ignored";
        break;
    case BridgeStatePaired:
        // Paired, but the key is gone: pair again.
        if (!hasUser)
            state = BridgeStatePair;
        break;
    default:
        break;
    }
    if (!hasUser && state != BridgeStateIgnore)
        LOG_INFO << "No user stored for bridge" << bridgeId << "state" << bridgeStateText(state);
    if (state != stored || stateText.isEmpty())
        setBridgeState(idText, state);
    if (storedSetting("hueBridgeNames/", bridgeId) != name)
        setBridgeName(bridgeId, name);
    return registerBridge(bridgeId, QString::fromUtf8(address), port, name);
}

void CController::convertOldBridgeInfo(const QByteArray& bridgeId)
{
    const QByteArray oldId = oldBridgeUuid(bridgeId);
    if (oldId.isEmpty() || storedSetting("hueBridges/", oldId).isEmpty() ||
        !storedSetting("hueBridges/", bridgeId).isEmpty())
        return;
    LOG_INFO << "converting the settings of bridge" << oldId << "to" << bridgeId;
    for (const char* prefix : kSettingPrefixes) {
        const QString oldKey = QLatin1String(prefix) + QString::fromUtf8(oldId);
        if (ConfigCache::instance()->contains(oldKey))
            ConfigCache::instance()->setConfigValueNonblock(
                QLatin1String(prefix) + QString::fromUtf8(bridgeId), storedSetting(prefix, oldId), true);
    }
}

} // namespace hue
