// CBridge: construction, identity and the light registry.

#include "hue_bridge.h"

#include "hue_bridgeapi1.h"
#include "hue_bridgestate.h"
#include "hue_controller.h"
#include "hue_light.h"

#include "common/configcache.h"
#include "common/logginginterface.h"

#include <QNetworkAccessManager>
#include <QSettings>

namespace hue {

namespace {

void registerSignalTypes()
{
    qRegisterMetaType<hue::ChangeFlags>();
    qRegisterMetaType<hue::CLight*>("hue::CLight*");
}

bool configSwitch(const QString& key)
{
    bool ok = false;
    const QString value = ConfigCache::instance()->getConfigValue(key, &ok);
    return ok && (value == QLatin1String("true") || value == QLatin1String("1"));
}

} // namespace

CBridge::CBridge(QNetworkAccessManager* nam, const QByteArray& bridgeId, const QString& host, int port,
                 quint32 shortId, const QString& userName, QObject* parent)
    : QObject(parent), m_bridgeId(bridgeId), m_shortId(shortId), m_nam(nam), m_userName(userName)
{
    registerSignalTypes();
    createTimers();
    m_api = new BridgeAPI1(this);
    m_lastRequest.start();

    connect(m_nam, &QNetworkAccessManager::finished, this, &CBridge::onReplyFinished);
    m_replyTimeoutTimer->start();

    m_useGroups = configSwitch(QStringLiteral("hue/useGroups"));
    const QSettings settings(QStringLiteral("vorn"), QStringLiteral("huecontroller"));
    m_forceAPI1 = configSwitch(QStringLiteral("hue/forceAPI1")) ||
                  settings.value(QStringLiteral("debug/forceAPI1"), false).toBool();
    m_pacer.setRates(
        settings.value(QLatin1String(kLightRateSetting), SendPacer::kDefaultLightsPerSecond).toDouble(),
        settings.value(QLatin1String(kGroupRateSetting), SendPacer::kDefaultGroupsPerSecond).toDouble());
    connect(ConfigCache::instance(), &ConfigCache::configValueChanged, this, &CBridge::onConfigValueChanged);

    // https is tried first; port 80 becomes 443 for it, and plain http on the given port is the
    // fall-back. A bridge given as 443 is https only.
    m_url.setHost(host);
    m_url.setPort(port);
    if (port == 443) {
        m_url.setScheme(QStringLiteral("https"));
        m_httpsTried = true;
        m_originalUrl = m_url;
    } else {
        m_url.setScheme(QStringLiteral("http"));
        m_originalUrl = m_url;
        m_url.setScheme(QStringLiteral("https"));
        if (port == 80)
            m_url.setPort(443);
    }
}

CBridge::CBridge(quint32 number, QObject* parent) : QObject(parent), m_shortId(number)
{
    registerSignalTypes();
    createTimers();
    m_api = new BridgeAPI1(this);
    m_lastRequest.start();
}

CBridge::~CBridge()
{
    // Aborting a reply finishes it at once, through its own signals and the shared manager's.
    // Cutting those connections first keeps the reply funnel from running on a bridge that is
    // being destroyed; the aborted replies then end without a handler.
    m_retryTimer.stop();
    if (m_nam)
        disconnect(m_nam, nullptr, this, nullptr);
    const QSet<QNetworkReply*> outstanding = m_activeReplies;
    m_activeReplies.clear();
    m_replyStartTimes.clear();
    m_pollReplies.clear();
    m_currentPollReply = nullptr;
    m_checkReply = nullptr;
    m_registerReply = nullptr;
    for (QNetworkReply* reply : outstanding) {
        disconnect(reply, nullptr, this, nullptr);
        reply->abort();
        reply->deleteLater();
    }
    // Queued light changes that were waiting for their turn or for a retry are dropped.
    for (QList<RetryingRequest*>& queue : m_retryQueues)
        qDeleteAll(queue);
    m_retryQueues.clear();
}

void CBridge::createTimers()
{
    m_startStopTimer = new QTimer(this);
    m_startStopTimer->setSingleShot(true);
    connect(m_startStopTimer, &QTimer::timeout, this, &CBridge::startStopTimerTimeout);

    m_registerRetryTimer = new QTimer(this);
    m_registerRetryTimer->setInterval(kRegisterRetryMs);
    m_registerRetryTimer->setSingleShot(true);
    connect(m_registerRetryTimer, &QTimer::timeout, this, &CBridge::retryRegisterUser);

    m_replyTimeoutTimer = new QTimer(this);
    m_replyTimeoutTimer->setInterval(kReplyTimeoutCheckMs);
    connect(m_replyTimeoutTimer, &QTimer::timeout, this, &CBridge::replyTimeoutTimer);

    // Started for the moment the next waiting change may go; a coarse timer could fire up to 5 %
    // early or late, which would cost refusals or pace.
    m_retryTimer.setSingleShot(true);
    m_retryTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_retryTimer, &QTimer::timeout, this, &CBridge::onRetryTimer);
}

QString CBridge::bridgeIdString() const
{
    const int zero = m_bridgeId.indexOf('\0');
    return QString::fromUtf8(zero < 0 ? m_bridgeId : m_bridgeId.left(zero));
}

QString CBridge::nameWithIP() const
{
    return m_name + QStringLiteral(" (") + m_url.host(QUrl::FullyDecoded) + QStringLiteral(")");
}

void CBridge::setHttpsOnly()
{
    m_url.setScheme(QStringLiteral("https"));
    m_url.setPort(m_originalUrl.port());
    m_originalUrl = m_url;
    m_httpsTried = true;
}

void CBridge::setCertificateRefused(bool refused)
{
    m_certificateRefused = refused;
    m_lastRefusedCertificateTry.start(); // the refusal was just seen: the next try in a minute
}

void CBridge::requestBridgeState(int state)
{
    // Replies ask for "new" when the bridge refused the key (an error of type 1): a bridge that
    // counts as paired finds out at once whether the key was withdrawn.
    if (state == BridgeStateNew && m_userNameState == USERNAME_REGISTERED)
        keyRefused("an error of type 1");
    emit bridgeStateChangeRequested(state);
    if (g_Controller)
        g_Controller->setBridgeState(bridgeIdString(), EBridgeState(state));
}

void CBridge::addLight(CLight* light)
{
    m_lights.insert(light->hueId(), light);
    m_lightsByVelId.insert(light->lightNumber(), light->hueId());
    m_lightData[light->hueId()].lastLifeSign.start();
    connect(light->commandTimer(), &QTimer::timeout, this, &CBridge::execCommands, Qt::UniqueConnection);
}

CLight* CBridge::lightByVelId(quint16 velId) const
{
    const auto it = m_lightsByVelId.constFind(velId);
    return it == m_lightsByVelId.constEnd() ? nullptr : m_lights.value(*it);
}

CLight* CBridge::lightByDeviceSerial(const InternalId& serial) const
{
    if ((serial.getNumber() >> 16) != m_shortId)
        return nullptr;
    CLight* light = lightByVelId(quint16(serial.getNumber() & 0xFFFF));
    return light && light->deviceSerial() == serial ? light : nullptr;
}

void CBridge::eraseLight(const QByteArray& lightId)
{
    CLight* light = m_lights.take(lightId);
    if (light && m_lightsByVelId.value(light->lightNumber()) == lightId)
        m_lightsByVelId.remove(light->lightNumber());
    m_lightData.remove(lightId);
}

void CBridge::deleteLight(CLight* light)
{
    if (!light)
        return;
    emit lightRemoved(light);
    m_startStopEntries.remove(light->hueId());
    m_itemSentSerials.remove(light->hueId());
    m_firstPendingMs.remove(light->hueId());
    eraseLight(light->hueId());
    delete light;
}

void CBridge::deleteAllLights()
{
    const QList<CLight*> all = m_lights.values();
    for (CLight* light : all)
        deleteLight(light);
}

} // namespace hue
