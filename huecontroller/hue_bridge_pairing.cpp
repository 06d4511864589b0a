// CBridge's pairing: checking a stored user name, registering a new one with the link button,
// and the firmware and API version rules.

#include "hue_bridge.h"

#include "hue_adaptor.h"
#include "hue_bridgeapi2.h"
#include "hue_bridgestate.h"
#include "hue_controller.h"

#include "common/logginginterface.h"
#include "json/minijson.h"

#include <QNetworkAccessManager>
#include <QRegularExpression>

namespace hue {

namespace {

constexpr qulonglong kFirstV2SwVersion = 1948086000ULL;

// "major.minor" followed by "." or the end, major non-zero.
bool parseApiVersion(const QString& text, int* major, int* minor)
{
    static const QRegularExpression kPattern(QStringLiteral("^([0-9]+)\\.([0-9]+)(\\.|$)"));
    const QRegularExpressionMatch match = kPattern.match(text);
    if (!match.hasMatch())
        return false;
    *major = match.captured(1).toInt();
    *minor = match.captured(2).toInt();
    return *major != 0;
}

constexpr int kRegisterAttemptsAfterWithdrawal = 10;

// [{"error":{"type":1,...}}]: the bridge does not know the key.
bool isUnauthorizedError(const minijson::CEntity& document)
{
    if (!document.IsArray() || document.Count() < 1 || !document[0].IsObject())
        return false;
    const minijson::CObject* error = document[0].Object().GetObject("error");
    return error && error->GetInt("type", -1) == 1;
}

} // namespace

void CBridge::setUserNameState(UserNameState state, bool fromParseError)
{
    m_userNameState = state;
    switch (state) {
    case USERNAME_ERROR_UNKNOWN:
        // A garbled answer right after a network outage says nothing about the bridge: keep its
        // state until the hub's network has been up for a while.
        if (fromParseError && !(HueAdaptor::instance() && HueAdaptor::instance()->hasStableNetwork())) {
            LOG_WARNING << "Ignore USERNAME_ERROR_UNKNOWN because our network is (or was) down.";
            break;
        }
        requestBridgeState(BridgeStateError);
        break;
    case USERNAME_ERROR_NETWORK:
        LOG_DETAIL << "Not changing bridge state due to network error while querying user name";
        break;
    case USERNAME_ERROR_LINK_BUTTON:
        requestBridgeState(BridgeStateNew);
        break;
    case USERNAME_ERROR_FIRMWARE:
        requestBridgeState(BridgeStateVersion);
        break;
    case USERNAME_REGISTERED:
        requestBridgeState(BridgeStatePaired);
        break;
    case USERNAME_UNKNOWN:
    case USERNAME_CHECKING:
    case USERNAME_REGISTERING:
        break;
    }
}

void CBridge::checkUsernameRegistered(bool resetCount)
{
    if (m_checkReply) {
        LOG_WARNING << "Ignoring checkUsernameRegistered() since a request is still ative";
        return;
    }
    if (!m_nam)
        return;
    m_checkCount = resetCount ? 0 : m_checkCount + 1;
    QUrl url = m_url;
    url.setPath(QStringLiteral("/api/") + m_userName + QStringLiteral("/config"));
    m_checkReply = m_nam->get(QNetworkRequest(url));
    trackReply(m_checkReply);
    setUserNameState(USERNAME_CHECKING);
    m_lastRequest.start();
}

// Parses the body of a check or register reply. A body that is no JSON is logged and makes
// the user-name state unknown (from a parse error); the caller then stops.
std::unique_ptr<minijson::CEntity> CBridge::parsePairingReply(const QByteArray& body)
{
    try {
        return minijson::CParser::Parse(body.constData(), body.size());
    } catch (const minijson::CException& e) {
        LOG_ERROR << "JSON parse error while trying to parse network response from bridge. Exception:"
                  << e.what() << "Response data:" << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN, true);
        return nullptr;
    }
}

void CBridge::handleCheckUserNameRegisteredReply(QNetworkReply* reply, bool timedOut, bool fellBack)
{
    m_checkReply = nullptr;
    m_lastCheckReply.start();
    if (timedOut || reply->error() != QNetworkReply::NoError) {
        if (!fellBack && admitWarning("check failed " + QByteArray::number(int(reply->error()))))
            LOG_ERROR << "network reply error while trying to check if username is already registered. error:"
                      << int(reply->error()) << reply->errorString();
        setUserNameState(USERNAME_ERROR_NETWORK);
        return;
    }
    const QByteArray body = reply->readAll();
    const std::unique_ptr<minijson::CEntity> document = parsePairingReply(body);
    if (!document)
        return;
    if (isUnauthorizedError(*document)) {
        keyWithdrawn();
        return;
    }
    if (!document->IsObject()) {
        LOG_ERROR << "Successfully parsed JSON response from bridge, but had unexpected contents."
                  << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN);
        return;
    }
    const minijson::CObject& config = document->Object();

    const QString apiVersion = QString::fromStdString(config.GetString("apiversion"));
    int major = 0;
    int minor = 0;
    if (!parseApiVersion(apiVersion, &major, &minor)) {
        LOG_ERROR << "unexpected apiversion format" << apiVersion;
        setUserNameState(USERNAME_ERROR_FIRMWARE);
        return;
    }
    if (!(major >= 2 || (major == 1 && minor >= 3))) {
        LOG_ERROR << "Require apiversion 1.3.0, bridge requires firmware update.";
        setUserNameState(USERNAME_ERROR_FIRMWARE);
        return;
    }
    m_apiVersionModern = major >= 2 || (major == 1 && minor >= 60);

    const QString swVersion = QString::fromStdString(config.GetString("swversion"));
    const int channel = config.GetInt("zigbeechannel", -1);
    if (channel >= 0)
        LOG_INFO << m_bridgeId << "Bridge"
                 << "0x" + QByteArray::number(m_shortId, 16) << "reports Zigbee channel" << channel
                 << "swversion" << swVersion;
    checkVersion2(swVersion);

    const minijson::CObject* whitelist = config.GetObject("whitelist");
    if (whitelist && whitelist->Contains(m_userName.toStdString())) {
        setUserNameState(USERNAME_REGISTERED);
    } else if (config.Contains("bridgeid") || whitelist) {
        // The bridge answered as it does to a key it does not know: only its public settings,
        // or a whitelist without the key.
        keyWithdrawn();
    } else {
        LOG_ERROR << "Successfully parsed JSON response from bridge, but had unexpected contents."
                  << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN);
    }
}

void CBridge::keyRefused(const char* where)
{
    if (m_userNameState != USERNAME_REGISTERED || m_checkReply || m_userName.isEmpty())
        return; // not paired, or being checked already
    if (m_lastCheckReply.isValid() && !m_lastCheckReply.hasExpired(kKeyRecheckMs))
        return;
    LOG_WARNING << "bridge" << m_bridgeId << "refused the key:" << where << "- checking it now";
    checkUsernameRegistered(true);
}

void CBridge::keyWithdrawn()
{
    // Removed at the bridge (for example in the vendor's app): the key is forgotten, so that
    // pairing asks for a new one with the link button instead of checking the old one again.
    LOG_WARNING << "bridge" << m_bridgeId
                << "no longer accepts its key; it needs pairing with the link button";
    m_userName.clear();
    if (g_Controller)
        g_Controller->setBridgeUserName(bridgeIdString(), QString());
    if (g_Controller && g_Controller->bridgeState(m_bridgeId) == BridgeStatePair) {
        registerUserName(kRegisterAttemptsAfterWithdrawal); // pairing was asked for already
        return;
    }
    setUserNameState(USERNAME_ERROR_LINK_BUTTON); // listed as new: the hub's app offers pairing
}

bool CBridge::checkVersion2(const QString& swVersion)
{
    bool ok = false;
    const qulonglong version = swVersion.toULongLong(&ok, 10);
    if (m_forceAPI1 || !ok || version < kFirstV2SwVersion)
        return false;
    if (m_url.scheme() != QLatin1String("https")) {
        LOG_WARNING << "Found a v2-capable bridge, but failed to connect via https - falling back to v1 API";
        return false;
    }
    if (m_api->supportsV2())
        return false;
    if (!m_lights.isEmpty()) {
        LOG_WARNING << "Found a v2-capable bridge, but there are already known lights - staying on v1 API";
        return false;
    }
    LOG_INFO << "bridge" << m_bridgeId << "switches to API version 2";
    BridgeAPI* previous = m_api;
    m_api = new BridgeAPI2(this);
    delete previous;
    // A support-information collection in progress lost its requests with the old dialect:
    // this bridge's part of the report ends with the note instead.
    if (!m_supportInfo.isEmpty()) {
        m_supportInfo.clear();
        emit supportInfoGathered(m_bridgeId + " just switched to API 2\n");
    }
    // The next poll starts the version 2 cycle with the devices.
    m_pollType = PollGeofenceClients;
    return true;
}

void CBridge::registerUserName(int attempts)
{
    if (m_registerReply) {
        LOG_WARNING << "registerUserName while another register attemt is still active";
        return;
    }
    m_registerRetryTimer->stop();
    if (attempts > 0)
        m_registerAttemptsLeft = attempts;
    if (!m_nam)
        return;
    minijson::CObject body;
    body.SetString("devicetype", "velnor");
    QUrl url = m_url;
    url.setPath(QStringLiteral("/api"));
    QNetworkRequest request(url);
    request.setHeader(QNetworkRequest::ContentTypeHeader,
                      QStringLiteral("application/x-www-form-urlencoded"));
    m_registerReply =
        m_nam->post(request, QByteArray::fromStdString(minijson::CWriter(true, "  ").Write(body)));
    trackReply(m_registerReply);
    setUserNameState(USERNAME_REGISTERING);
    m_lastRequest.start();
}

void CBridge::retryRegisterUser()
{
    registerUserName(-1);
}

void CBridge::handleRegisterUserNameReply(QNetworkReply* reply, bool timedOut, bool fellBack)
{
    m_registerReply = nullptr;
    // Another attempt after the retry delay, or the end of pairing when none is left.
    const auto retryOrGiveUp = [this](UserNameState stateWhenExhausted) {
        if (m_registerAttemptsLeft < 1) {
            setUserNameState(stateWhenExhausted);
        } else {
            --m_registerAttemptsLeft;
            m_registerRetryTimer->start();
        }
    };
    if (timedOut || reply->error() != QNetworkReply::NoError) {
        if (fellBack)
            ++m_registerAttemptsLeft; // the https attempt does not count
        else
            LOG_ERROR << "network reply error while trying register username. error:" << int(reply->error())
                      << reply->errorString();
        retryOrGiveUp(reply->error() == QNetworkReply::ContentAccessDenied ? USERNAME_ERROR_LINK_BUTTON
                                                                           : USERNAME_ERROR_NETWORK);
        return;
    }
    const QByteArray body = reply->readAll();
    const std::unique_ptr<minijson::CEntity> document = parsePairingReply(body);
    if (!document)
        return;
    if (!document->IsArray()) {
        LOG_ERROR
            << "JSON response from bridge parsed successfully, but have unexpected JSON trying to register "
               "username. Response:"
            << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN);
        return;
    }
    if (document->Count() == 0 || !(*document)[0].IsObject()) {
        LOG_ERROR
            << (document->Count() == 0
                    ? "JSON response from bridge parsed successfully, but returned array is empty"
                    : "JSON response from bridge parsed successfully, but returned array has unexpected "
                      "contents.")
            << "Response data:" << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN);
        return;
    }
    const minijson::CObject& first = (*document)[0].Object();
    if (const minijson::CObject* error = first.GetObject("error")) {
        const int type = error->GetInt("type", -1);
        if (type == 101)
            LOG_WARNING
                << "User interaction required: Press link button on bridge and re-try to register user.";
        else
            LOG_ERROR << "unknown error from bridge. type:" << type
                      << "description:" << error->GetString("description");
        retryOrGiveUp(USERNAME_ERROR_LINK_BUTTON);
    } else if (const minijson::CObject* success = first.GetObject("success")) {
        const QString name = QString::fromStdString(success->GetString("username"));
        if (name.isEmpty()) {
            LOG_ERROR
                << "Bridge claimed to have successfully registered username, but returned empty username";
            setUserNameState(USERNAME_ERROR_UNKNOWN);
            return;
        }
        LOG_DETAIL << "Successfully registered username, got username:" << name;
        m_userName = name;
        if (g_Controller)
            g_Controller->setBridgeUserName(bridgeIdString(), name);
        setUserNameState(USERNAME_REGISTERED);
        checkUsernameRegistered(true);
    } else {
        LOG_ERROR
            << "JSON response from bridge parsed successfully, but returned array has unexpected contents."
            << "Response data:" << LogExcerpt(body);
        setUserNameState(USERNAME_ERROR_UNKNOWN);
    }
}

bool CBridge::userNameChecksAllowPolling()
{
    if (!m_lastRequest.isValid() || m_lastRequest.elapsed() < 500)
        return false;
    switch (m_userNameState) {
    case USERNAME_REGISTERED:
        if (m_lastCheckReply.isValid() && m_lastCheckReply.hasExpired(3600000))
            checkUsernameRegistered(true);
        return true;
    case USERNAME_ERROR_UNKNOWN:
    case USERNAME_ERROR_NETWORK:
    case USERNAME_ERROR_FIRMWARE: {
        const qint64 wait = m_checkCount > 3 ? 60000 : 10000;
        if (!m_lastCheckReply.isValid() || m_lastCheckReply.hasExpired(wait))
            checkUsernameRegistered(false);
        return false;
    }
    default:
        return false;
    }
}

} // namespace hue
