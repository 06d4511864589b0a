#pragma once

#include "hue_bridgechangeflags.h"
#include "hue_bridgelightdata.h"
#include "hue_changeitem.h"
#include "hue_clock.h"
#include "hue_itemtype.h"
#include "hue_sendpacer.h"

#include "common/logbudget.h"
#include "kova/kovacommon/internalid.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QSet>
#include <QString>
#include <QTextStream>
#include <QTimer>
#include <QUrl>
#include <QVariant>
#include <QtGlobal>

#include <memory>

class QNetworkAccessManager;
namespace minijson {
class CEntity;
}

namespace hue {

class BridgeAPI;
class CLight;

// One Hue bridge: its HTTP(S) request engine, pairing, the command queue of its lights and
// polling through its API dialect. It owns its lights, its dialect and its timers.
//
// Every exchange with the bridge goes through trackReply() and ends in exactly one
// replyFinished(reply, timedOut), whichever of finish, error and time-out comes first.
//
// Light events go out as signals, which the controller connects to its datapoint side:
// lightAdded when a poll first reports a light, lightChanged with the parts that a poll, a
// change reply or a colour request from the hub altered, lightRemoved just before a light that
// the bridge no longer lists is destroyed, lightUnresponsive when a light item is dropped (group
// items when groups are switched off), lifeSign for each light due one,
// bridgeStateChangeRequested when a reply tells that the controller's state of the bridge must
// change. The signals are emitted synchronously, so a slot may still read the light passed with
// lightRemoved.
//
// The bridge's short id is its "number" inside the hub's device serials of its lights.
class CBridge : public QObject
{
    Q_OBJECT
public:
    // What the dialect polls next; kept between polls.
    enum PollType : qint32
    {
        PollLights = 0,
        PollGroups = 1,
        PollDevices = 2,
        PollConnectivity = 3,
        PollGroupKindA = 4,
        PollGroupKindB = 5,
        PollGeofenceClients = 6,
    };

    // Pairing progress; see setUserNameState for the effect on the controller's bridge state.
    enum UserNameState : qint32
    {
        USERNAME_UNKNOWN = 0,
        USERNAME_CHECKING = 1,
        USERNAME_REGISTERING = 2,
        USERNAME_ERROR_UNKNOWN = 3,
        USERNAME_ERROR_NETWORK = 4,
        USERNAME_ERROR_LINK_BUTTON = 5,
        USERNAME_ERROR_FIRMWARE = 6,
        USERNAME_REGISTERED = 7,
    };

    // A light-change request waiting in its per-URL queue; the queue sends only its head, and
    // holds at most one more body that waits behind it (later changes merge into that one).
    struct RetryingRequest
    {
        quint64 id = 0;
        QNetworkRequest request;
        QByteArray body;
        QByteArray lightId;
        QMap<QByteArray, QVariant> properties;
        bool inFlight = false;
        int attempts = 0;     // times sent so far
        bool isGroup = false; // paced at the bridge's group rate
    };

    static constexpr int kReplyTimeoutCheckMs = 3000;
    static constexpr qint64 kReplyTimeoutMs = 10000;
    // The largest reply body taken in; a whole home's CLIP v2 resources are a few hundred KB.
    static constexpr qint64 kMaxReplyBytes = 4 * 1024 * 1024;
    // Changes are kept while the bridge refuses or cannot be reached; past this long without a
    // single accepted change they are given up, logged, and the lights' error output is set.
    static constexpr qint64 kGiveUpAfterMs = 10 * 60 * 1000;
    // Settings of the service's own store: the bridge's change rates (per second).
    static constexpr const char* kLightRateSetting = "bridge/lightChangesPerSecond";
    static constexpr const char* kGroupRateSetting = "bridge/groupChangesPerSecond";
    // A light's changes go out this long after the last of a burst, but never later than
    // kMaxCommandDelayMs after the first, however long the burst lasts (a dragged slider).
    static constexpr int kMaxCommandDelayMs = 240;
    static constexpr int kRegisterRetryMs = 1000;

    // A bridge reached through `nam` (shared, not owned) at host:port. Port 443 means https
    // only; any other port is tried as https first (port 80 as 443) and falls back to plain
    // http on the given port when https is refused.
    CBridge(QNetworkAccessManager* nam, const QByteArray& bridgeId, const QString& host, int port,
            quint32 shortId, const QString& userName, QObject* parent = nullptr);
    // A bridge without a network: the light model and the reply parsers work, nothing is sent.
    explicit CBridge(quint32 number, QObject* parent = nullptr);
    // Aborts the outstanding replies without handling them and drops the queued light changes.
    ~CBridge() override;

    // The short id: the bridge's number in its lights' device serials.
    quint32 number() const { return m_shortId; }
    quint32 shortId() const { return m_shortId; }
    QByteArray bridgeId() const { return m_bridgeId; }
    // The bridge id as text, up to its first zero byte: the key of the persisted settings.
    QString bridgeIdString() const;
    QUrl url() const { return m_url; }
    QUrl originalUrl() const { return m_originalUrl; }
    QString userName() const { return m_userName; }
    void setUserName(const QString& userName) { m_userName = userName; }
    QString name() const { return m_name; }
    void setName(const QString& name) { m_name = name; }
    // name + " (" + host + ")"
    QString nameWithIP() const;
    QNetworkAccessManager* networkAccessManager() const { return m_nam; }
    BridgeAPI* api() const { return m_api; }

    bool useGroups() const { return m_useGroups; }
    bool httpsTried() const { return m_httpsTried; }
    bool stayOnHttps() const { return m_stayOnHttps; }
    bool forceAPI1() const { return m_forceAPI1; }
    bool isIgnored() const { return m_ignore; }
    void setIgnored(bool ignore) { m_ignore = ignore; }
    // The bridge shows a certificate other than its pinned one: it is tried once a minute only,
    // until the pinned one is back.
    bool isCertificateRefused() const { return m_certificateRefused; }
    // The bridge speaks https only, on the port it was given: no request ever falls back to http.
    void setHttpsOnly();
    void setCertificateRefused(bool refused);
    static constexpr qint64 kRefusedCertificateRetryMs = 60000;
    bool enableHttp2() const { return false; }
    // Night mode selects MaxBrightnessNight instead of MaxBrightnessDay when switching on.
    bool nightMode() const { return m_nightMode; }
    void setNightMode(bool night) { m_nightMode = night; }

    // --- Request engine (hue_bridge_requests.cpp) ------------------------------------------------
    static quint64 getRequestId(QNetworkReply* reply);
    // Registers a reply the caller has just issued; returns its request number.
    quint64 trackReply(QNetworkReply* reply);
    // The only way light changes are sent: at most one request per target URL is in flight,
    // later ones wait in order. Returns the request number.
    quint64 queueLightchangeRequest(const QNetworkRequest& request, const QByteArray& body,
                                    const QByteArray& lightId, const QMap<QByteArray, QVariant>& properties);
    // The single funnel for every tracked reply; later calls for the same reply do nothing.
    void replyFinished(QNetworkReply* reply, bool timedOut);
    bool tryQueueRetry(QNetworkReply* reply);
    bool findRetryIndex(QNetworkReply* reply, QString& url, int& index) const;
    void removeRetry(QNetworkReply* reply);
    bool isTracked(QNetworkReply* reply) const { return m_activeReplies.contains(reply); }
    int activeReplyCount() const { return m_activeReplies.size(); }
    const QMap<QString, QList<RetryingRequest*>>& retryQueues() const { return m_retryQueues; }
    bool isRetryTimerActive() const { return m_retryTimer.isActive(); }
    SendPacer& pacer() { return m_pacer; }
    // The change items of a light that are pending, waiting in its queue or in flight: a poll
    // reply that left the bridge before they arrived must not put the old values back.
    QSet<ChangeItem> itemsUnderway(const QByteArray& lightId) const;
    // itemsUnderway, and the items whose latest change went out after `pollReply` did: the
    // poll's values for them are older than what the bridge has been told since.
    QSet<ChangeItem> itemsNewerThan(const QByteArray& lightId, QNetworkReply* pollReply) const;
    // Every tracked reply: a serial in the order requests went out.
    static constexpr const char* kSentSerialProperty = "hueSentSerial";
    // Reply and queue property: the ChangeItems of a change body, one bit each.
    static constexpr const char* kChangeItemsProperty = "hueChangeItems";
    static int changeItemBits(const QList<ChangeItem>& items);

    // --- Pairing (hue_bridge_pairing.cpp) ------------------------------------------------------
    UserNameState userNameState() const { return m_userNameState; }
    void setUserNameState(UserNameState state, bool fromParseError = false);
    void checkUsernameRegistered(bool resetCount);
    // The bridge refused the key (HTTP 403, or an error of type 1): check it now instead of at
    // the hourly re-check, at most once per kKeyRecheckMs.
    void keyRefused(const char* where);
    static constexpr qint64 kKeyRecheckMs = 60000;
    // A warning about this bridge's traffic: false when the same one (by key) was written less
    // than a minute ago; it is counted then, and endWarnings() tells the counts once the bridge
    // answers again.
    bool admitWarning(const QByteArray& key);
    void endWarnings();
    void registerUserName(int attempts);
    int registerAttemptsLeft() const { return m_registerAttemptsLeft; }
    int checkCount() const { return m_checkCount; }
    bool apiVersionModern() const { return m_apiVersionModern; }
    QTimer* registerRetryTimer() const { return m_registerRetryTimer; }

    // --- Light registry (hue_bridge.cpp) -------------------------------------------------------
    // Enters the light under its bridge id and its hub number; the bridge owns it from now on.
    void addLight(CLight* light);
    bool hasLight(const QByteArray& lightId) const { return m_lights.contains(lightId); }
    CLight* lightById(const QByteArray& lightId) const { return m_lights.value(lightId); }
    CLight* lightByVelId(quint16 velId) const;
    QByteArray hueIdByVelId(quint16 velId) const { return m_lightsByVelId.value(velId); }
    CLight* lightByDeviceSerial(const InternalId& serial) const;
    const QMap<QByteArray, CLight*>& lights() const { return m_lights; }
    // Signals lightRemoved, then forgets and destroys the light.
    void deleteLight(CLight* light);
    void deleteAllLights();
    // Drops one registry entry without destroying the light.
    void eraseLight(const QByteArray& lightId);
    // The bridge's extra data of a light; an empty record for an unknown id.
    BridgeLightData& lightData(const QByteArray& lightId) { return m_lightData[lightId]; }
    BridgeLightData lightDataOf(const QByteArray& lightId) const { return m_lightData.value(lightId); }

    // --- Command queue (hue_bridge_commands.cpp) -----------------------------------------------
    void requestLightChange(const QByteArray& lightId, ChangeItem item, const QVariant& value);
    void requestLightChange(const QByteArray& lightId, const QMap<ChangeItem, QVariant>& changes);
    void requestLightOn(const QByteArray& lightId, bool on);
    void requestLightOnWithTimer(const QByteArray& lightId);
    void requestLightColorTemperature(const QByteArray& lightId, int mired);
    // Hue and saturation on the hub's percent scale; the light's hub state follows at once.
    void requestLightHue(const QByteArray& lightId, double percent);
    void requestLightSaturation(const QByteArray& lightId, int percent);
    // The hub's packed HSV number (decimal: hue << 16 | saturation << 8 | brightness). The
    // light's hub state follows at once and is reported with lightChanged; the bridge gets
    // hue, saturation and brightness (sent as x/y through the light's gamut).
    void requestLightHSVColor(const QByteArray& lightId, const QString& hsv);
    // "rrggbb": converted to x/y through the light's gamut.
    void requestLightRgbColor(const QByteArray& lightId, const QString& rgb);
    void requestLightBrightness(const QByteArray& lightId, double percent, bool switchOn, int transitionTime);
    void requestLightName(const QByteArray& lightId, const QString& name);

    ESwitchOnMode switchOnMode(const QByteArray& lightId) const;
    void setSwitchOnMode(const QByteArray& lightId, ESwitchOnMode mode);
    double maximumBrightnessDay(const QByteArray& lightId) const;
    void setMaximumBrightnessDay(const QByteArray& lightId, double percent);
    double maximumBrightnessNight(const QByteArray& lightId) const;
    void setMaximumBrightnessNight(const QByteArray& lightId, double percent);
    double startStopTimerDurationSeconds(const QByteArray& lightId) const;
    void restartStartStopTimer();
    bool hasStartStopEntry(const QByteArray& lightId) const { return m_startStopEntries.contains(lightId); }
    QTimer* startStopTimer() const { return m_startStopTimer; }
    // Request numbers of sent timed switch-ons whose replies are outstanding.
    const QMap<quint64, QByteArray>& pendingLightChanges() const { return m_pendingLightChanges; }

    // --- Polling (hue_bridge_polling.cpp) -------------------------------------------------------
    // Called by the controller in turn with the other bridges: nothing while the bridge is
    // ignored, else first the user-name checks, then at most one poll at a time.
    void pollNextItem();
    void trackPollReply(QNetworkReply* reply, PollType pollType);
    QNetworkReply* currentPollReply() const { return m_currentPollReply; }
    // Emits lifeSign for each light whose last one is at least intervalMs old.
    void sendLifeSigns(qint64 intervalMs);
    // Collects the bridge's own view of itself (config, lights, groups) and emits
    // supportInfoGathered when the last answer is in.
    void gatherSupportInfo();
    // The light-state dump of this bridge, for the support information and debugging.
    void debugDumpLightStates(QTextStream& out) const;

    // Applies a new controller state of this bridge (EBridgeState): signal, and the controller's
    // setBridgeState when a controller exists.
    void requestBridgeState(int state);

signals:
    void lightAdded(hue::CLight* light);
    void lightChanged(hue::CLight* light, hue::ChangeFlags flags);
    void lightRemoved(hue::CLight* light);
    void lightUnresponsive(hue::CLight* light);
    void lifeSign(hue::CLight* light);
    // A bridge reply asks for a different controller state of this bridge (for example a
    // withdrawn key); also applied through the controller's setBridgeState when one exists.
    void bridgeStateChangeRequested(int state);
    void supportInfoGathered(const QByteArray& text);
    // A light's changes could not be delivered within kGiveUpAfterMs (failed), or one went
    // through again after that (not failed).
    void lightChangeFailed(hue::CLight* light, bool failed);

public slots:
    void onReplyFinished(QNetworkReply* reply);
    void replyError(QNetworkReply::NetworkError code);
    void replyTimeoutTimer();
    void onRetryTimer();
    void retryRegisterUser();
    void execCommands();
    void startStopTimerTimeout();
    void onConfigValueChanged(const QString& key, const QString& value, bool persistent);

private:
    friend class BridgeAPI;

    void createTimers();
    void sendQueuedRequest(RetryingRequest& entry);
    // Sends the waiting change that has waited longest, as far as the pacer allows, and sets
    // the retry timer for the next one.
    void sendDueChanges();
    // A sent change comes back to wait in its queue: the bridge refused it or was not reached.
    // False when the reply is no queued change, or when the changes were given up.
    bool requeueChange(QNetworkReply* reply, bool refused);
    // Drops every waiting change once the bridge has failed for longer than kGiveUpAfterMs.
    bool giveUpIfFailingTooLong();
    void noteChangeAccepted(QNetworkReply* reply);
    std::unique_ptr<minijson::CEntity> parsePairingReply(const QByteArray& body);
    void handleCheckUserNameRegisteredReply(QNetworkReply* reply, bool timedOut, bool fellBack);
    void handleRegisterUserNameReply(QNetworkReply* reply, bool timedOut, bool fellBack);
    bool checkVersion2(const QString& swVersion);
    // The user-name check showed that the bridge no longer knows the key.
    void keyWithdrawn();
    void handlePollReply(QNetworkReply* reply, bool timedOut);
    void handleRequestLightChangeReply(QNetworkReply* reply, bool timedOut);
    void handleSupportInfoReply(QNetworkReply* reply, bool timedOut);
    // The pairing re-checks that precede a poll; false when polling must wait.
    bool userNameChecksAllowPolling();
    void applySwitchOnDefaults(CLight& light, QMap<ChangeItem, QVariant>& pending);

    QByteArray m_bridgeId;
    QUrl m_url;
    QUrl m_originalUrl;
    quint32 m_shortId = 0;
    QTimer* m_startStopTimer = nullptr;
    QTimer* m_replyTimeoutTimer = nullptr;
    QTimer* m_registerRetryTimer = nullptr;
    QNetworkAccessManager* m_nam = nullptr;
    QString m_name;
    QString m_userName;
    bool m_useGroups = false;
    bool m_httpsTried = false;
    bool m_stayOnHttps = false;
    bool m_ignore = false;
    bool m_certificateRefused = false;
    ElapsedTimer m_lastRefusedCertificateTry;
    bool m_forceAPI1 = false;
    bool m_nightMode = false;
    BridgeAPI* m_api = nullptr;
    QMap<QString, QList<RetryingRequest*>> m_retryQueues;
    QTimer m_retryTimer;
    SendPacer m_pacer;
    LogBudget m_logBudget;
    QHash<QByteArray, qint64> m_firstPendingMs; // light id -> when its oldest pending change came
    QSet<QByteArray> m_failedLights;            // lights whose changes were given up
    quint64 m_sentSerial = 0;
    QHash<QByteArray, QHash<int, quint64>> m_itemSentSerials; // light -> item -> serial of its last change
    quint64 m_requestCounter = 1;
    QSet<QNetworkReply*> m_activeReplies;
    QMap<QNetworkReply*, ElapsedTimer> m_replyStartTimes;
    QList<QNetworkReply*> m_pollReplies;
    QNetworkReply* m_checkReply = nullptr;
    QNetworkReply* m_registerReply = nullptr;
    QNetworkReply* m_abortingReply = nullptr; // its finished signal is handled by the time-out

    // Pairing.
    UserNameState m_userNameState = USERNAME_UNKNOWN;
    int m_registerAttemptsLeft = 0;
    int m_checkCount = 0;
    ElapsedTimer m_lastCheckReply;
    ElapsedTimer m_lastRequest;
    bool m_apiVersionModern = false;

    // Lights, commands and polling.
    QMap<QByteArray, CLight*> m_lights;
    QHash<QByteArray, BridgeLightData> m_lightData;
    QMap<quint16, QByteArray> m_lightsByVelId;
    QMap<QByteArray, ElapsedTimer> m_startStopEntries;
    QNetworkReply* m_currentPollReply = nullptr;
    PollType m_pollType = PollLights;
    QMap<quint64, QByteArray> m_pendingLightChanges;
    QByteArray m_supportInfo;
};

} // namespace hue

Q_DECLARE_METATYPE(hue::CBridge::PollType)
