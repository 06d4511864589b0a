#pragma once

#include "hue_bridgechangeflags.h"
#include "hue_bridgestate.h"
#include "hue_datapoints.h"
#include "hue_lightcolormode.h"
#include "hue_lighttype.h"

#include "kova/kovacommon/internalid.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QSslError>
#include <QString>
#include <QTimer>

class QNetworkAccessManager;
class QNetworkReply;
class QSslCertificate;
class QTextStream;

namespace hue {

class CBridge;
class CDevice;
class CLight;
class HueAdaptor;

// The one controller of the service: it knows the light-type descriptions and (later) the
// bridges and their lights as hub devices.
class CController : public QObject
{
    Q_OBJECT
public:
    // Registers itself as g_Controller; the destructor clears it again.
    explicit CController(QObject* parent = nullptr);
    ~CController() override;

    // Loads the descriptions of all light types from ConstDataDir + "/hue/".
    void loadLightSpecs();
    // Loads ConstDataDir + "/hue/" + fileName as the description of `type`, replacing (and
    // deleting) the one loaded before. A file that cannot be read still leaves a description,
    // an empty one, so that lookups for that type answer -1.
    void loadLightSpec(LightType type, const QString& fileName);
    // Null when no description was loaded for the type.
    CDevice* deviceByType(LightType type) const;

    // --- Persisted per-bridge settings (hue_controller_settings.cpp) ----------------------------
    // Kept in the hub's configuration cache under a prefix and the bridge id. A failed query is
    // logged and reads as "no value": state invalid, short id -1, empty texts.

    // "hueBridges/" + id: the state text.
    EBridgeState bridgeState(const QByteArray& bridgeId) const;
    void setBridgeState(const QString& bridgeId, EBridgeState state);
    // "hueBridgeUserNames/" + id: the application key the bridge issued at pairing.
    QString bridgeUserName(const QByteArray& bridgeId) const;
    void setBridgeUserName(const QString& bridgeId, const QString& userName);
    // "hueBridgeIDs/" + id: the 16-bit short id in decimal; -1 when none or unreadable.
    int bridgeShortId(const QByteArray& bridgeId) const;
    void setBridgeShortId(const QByteArray& bridgeId, int shortId);
    // "hueBridgeNames/" + id: the display name.
    QString bridgeName(const QByteArray& bridgeId) const;
    void setBridgeName(const QByteArray& bridgeId, const QString& name);
    // "hueCertDigests/" + id: the pinned certificate digest, stored as Base64 of the raw bytes.
    QByteArray bridgeCertDigest(const QByteArray& bridgeId) const;
    void setBridgeCertDigest(const QByteArray& bridgeId, const QByteArray& digest);

private:
    QMap<LightType, CDevice*> m_devices; // owned through the Qt parent
    QHash<QByteArray, EBridgeState> m_refusedCertificates;

    // --- Bridge registry, support information and TLS trust ------------------------------------
    // (hue_controller_registry.cpp, hue_controller_supportinfo.cpp, hue_controller_ssl.cpp)
    // The controller owns the bridges, keyed by their 16-bit short id, and the one network access
    // manager that all of them share.
public:
    static constexpr int kPollIntervalMs = 1000;
    static constexpr int kConfigApplyDelayMs = 1000;
    static constexpr int kSupportInfoTimeoutMs = 10000;

    QNetworkAccessManager* networkAccessManager() const { return m_nam; }
    // Loads the ten light descriptions.
    void initialize();
    // Bridges are polled between start() and stop(); start() applies the configuration changes
    // that arrived before it.
    void start();
    void stop();
    bool isStarted() const { return m_started; }
    // Deletes every bridge.
    void kill();

    CBridge* bridgeByShortID(int shortId) const;
    CBridge* bridgeByBridgeId(const QString& bridgeId) const;
    // The registered bridges in polling order.
    QList<CBridge*> bridges() const;
    // Creates the object of an identified bridge at host:port with its persisted settings (short
    // id, user name, state), enters it into the registry (replacing an object of the same id) and
    // starts pairing as its stored state asks. Null when no short id is left.
    CBridge* registerBridge(const QByteArray& bridgeId, const QString& host, int port, const QString& name);
    // Deletes the bridges of that id and emits bridgeRemoved.
    void removeBridge(const QString& bridgeId);
    // The bridge's short id: the stored one, else a new one that is recorded for ever in
    // "hue/usedBridgeIDs". False when all 65536 are taken.
    bool calculateShortId(int& shortId, const QByteArray& bridgeId);

    QByteArray lastPolledBridgeId() const { return m_lastPolledBridgeId; }
    QSet<QString> pendingConfigChanges() const { return m_pendingConfigChanges; }
    bool ignoreReachability() const { return m_ignoreReachability; }
    bool dumpLightUpdates() const { return m_dumpLightUpdates; }
    const QTimer& pollTimer() const { return m_pollTimer; }
    const QTimer& configApplyTimer() const { return m_configApplyTimer; }
    const QTimer& supportInfoTimer() const { return m_supportInfoTimer; }
    void debugDumpLightStates(QTextStream& out) const;

    // Asks every bridge for its support information; supportInfoReady carries the report once
    // all have answered or the support timer has run out.
    void gatherSupportInfo();
    void addSupportInfo(CBridge* bridge, const QByteArray& text);
    int outstandingSupportAnswers() const { return m_outstandingSupportAnswers; }

    // Trust on first use of a bridge's self-signed certificate: accepted when its common name is
    // the bridge id, then pinned by its SHA-256 digest. A changed certificate puts the bridge
    // into the error state.
    bool acceptSelfSignedCertificate(const QByteArray& bridgeId, const QSslCertificate& certificate);
    // A chain that verified to a trusted root (a Hue root): accepted when its common name is the
    // bridge id (in either case), pinned at first use, and pinned anew when the authority renewed
    // it; a chain for another bridge is refused.
    bool acceptAuthorityCertificate(const QByteArray& bridgeId, const QSslCertificate& certificate);
    // Bridges whose pinned certificate was replaced by a foreign one, with their state before.
    bool isCertificateRefused(const QByteArray& bridgeId) const
    {
        return m_refusedCertificates.contains(bridgeId);
    }
    // The bridge shows its pinned certificate again (a handshake, or a request that went through):
    // its former state comes back.
    void certificateAcceptedAgain(const QByteArray& bridgeId);

public slots:
    void configValueChanged(QString key, QString value, bool persistent);
    void onCVarApplyTimeout();
    void pollNextBridge();
    void onSupportInfoTimeout();
    void sslErrors(QNetworkReply* reply, const QList<QSslError>& errors);

signals:
    // The adaptor connects this to the backend's support-information call.
    void supportInfoReady(const QByteArray& text);
    // The UPnP listener connects itself to this, so that the removed bridge can be found again.
    void bridgeRemoved(const QString& bridgeId);

private:
    // Pairing, ignoring and deleting as the bridge's stored state says.
    void applyStoredState(CBridge* bridge, bool resetCheckCount);
    void submitSupportInfo();

    QNetworkAccessManager* m_nam = nullptr; // child
    QMap<int, QPointer<CBridge>> m_bridges; // children
    QByteArray m_lastPolledBridgeId;
    QSet<QString> m_pendingConfigChanges;
    bool m_started = false;
    bool m_ignoreReachability = false;
    bool m_dumpLightUpdates = false;
    QTimer m_pollTimer;
    QTimer m_configApplyTimer;
    QTimer m_supportInfoTimer;
    QByteArray m_supportInfo;
    int m_outstandingSupportAnswers = 0;

    // --- Admission of candidate bridges (hue_controller_admission.cpp) --------------------------
    // Candidates come from UPnP discovery, mDNS and forced addresses as (bridge id, address,
    // port); the id may be empty or in the old UUID form. A bridge that is not registered yet is
    // identified by its "/api/config" first. One admission runs at a time: a candidate that
    // arrives meanwhile waits in the pending queue and is admitted afterwards, so that two
    // sources announcing the same bridge cannot register it twice.
public:
    static constexpr int kIdentifyTimeoutMs = 10000;
    static constexpr int kHttpsPort = 443;
    // "/api/config" is about 1 KB.
    static constexpr qint64 kMaxIdentifyReplyBytes = 64 * 1024;

    struct PendingAdmission
    {
        QByteArray bridgeId;
        QByteArray address;
        int port = 0;
    };

    void addBridge(const QByteArray& bridgeId, const QByteArray& address, int port);
    // Normalises the id and admits a registered bridge at once; others are identified. True
    // when the admission has ended, false while the identification runs.
    bool realAddBridge(const QByteArray& bridgeId, const QByteArray& address, int port);
    // GET "/api/config" over https for port 443, plain http otherwise.
    // `https`: the bridge answered plain http with a redirect or a refusal, so it speaks https
    // only, on `port`.
    void identifyBridge(const QByteArray& bridgeId, const QByteArray& address, int port, bool https = false);
    // Settles the bridge's stored state and registers it. Null when it is not admitted.
    CBridge* realAddIdentifiedBridge(const QByteArray& expectedId, const QByteArray& bridgeId,
                                     const QByteArray& address, int port, const QString& name);
    // Copies the settings stored under the old UUID form of a bridge id to its current form,
    // unless settings are stored under the current form already.
    void convertOldBridgeInfo(const QByteArray& bridgeId);
    bool isAdmissionLocked() const { return m_admissionLocked; }
    const QList<PendingAdmission>& pendingAdmissions() const { return m_pendingAdmissions; }

public slots:
    void onIdentifyBridgeFinished();

private:
    // False when the bridge is asked again (over https); the admission then goes on.
    bool identifyFromReply(QNetworkReply* reply);
    void workOffAdmissions();

    bool m_admissionLocked = false;
    QList<PendingAdmission> m_pendingAdmissions;

    // --- Lights as hub devices (hue_controller_identifiers.cpp, hue_controller_datapoints.cpp,
    // hue_controller_parameters.cpp, hue_controller_outputs.cpp, hue_controller_lightevents.cpp) --
    // A light's device serial is 0xBEED, then the bridge's short id and the light's hub id; its
    // datapoints and parameters add channel and index from the light type's description. Hub
    // writes to input datapoints become bridge commands; the bridges' light events come back as
    // output datapoint values, life signs and unreachable notices.
public:
    static constexpr int kDimStepPercent = 10; // per 500 ms tick of continuous dimming

    // Empty when the light's description has no index for the datapoint.
    InternalId getInputDatapointSerial(const CLight& light, quint16 channel, EInputDatapoint datapoint) const;
    InternalId getOutputDatapointSerial(const CLight& light, quint16 channel,
                                        EOutputDatapoint datapoint) const;
    InternalId getParameterSerial(const CLight& light, quint16 channel, EParameter parameter) const;
    // Null (logged) when the id is no device id or names no bridge or light.
    CLight* lightByDeviceSerial(const InternalId& id) const;
    bool getBridgeAndHueId(CBridge** bridge, QByteArray* hueId, const InternalId& id) const;

    // A hub write to an input datapoint; false when the write is refused (the hub is told so).
    bool dataPointValueChanged(const InternalId& id, const QString& value);
    void parameterValueChanged(const InternalId& id, const QString& value);
    // An output value for the hub, unless the bridge is ignored or not paired.
    void sendDataPointValue(const InternalId& id, const QString& value);
    // The hub has the light's device (again): its current values and attributes are re-sent.
    void deviceReady(const InternalId& id);
    // The hub has removed the light's device: the light is forgotten here as well and registered
    // afresh when its bridge lists it again.
    void deleteLight(const InternalId& id);
    void masterResetLight(const InternalId& id);
    void execMasterReset(CBridge* bridge, CLight* light);
    void attributeValueChanged(const InternalId& id, const QString& name, const QString& value);
    void sendLifeSignsForLights();
    // Life signs of every reachable light of the paired bridges that has had none for
    // kLifeSignIntervalMs; called at every poll tick.
    void sendDueLifeSigns();
    static constexpr qint64 kLifeSignIntervalMs = 60000;
    void triggerScene(CLight* light);
    bool isNight() const { return m_night; }

    // Light events, connected to every registered bridge.
    void newLightAdded(CLight* light);
    void changedLight(CLight* light, ChangeFlags flags);
    void lightDeleted(CLight* light);
    void lightUnresponsive(CLight* light);
    void lightLifeSign(CLight* light);
    // The output datapoints of one light.
    void changedLightOn(const CLight& light, bool on);
    void changedBrightness(const CLight& light, double percent);
    void changedColorTemperature(const CLight& light, int mired);
    void changedColorMode(const CLight& light, VNColorMode mode);
    void changedColorRgb(const CLight& light, const QString& rgb);
    void changedColorHSV(const CLight& light, const QString& hsv);
    // Duration in tenths of a second, as the light counts; the hub gets "<percent>t+<ms>".
    void changedTimedDimming(const CLight& light, double percent, int duration);
    void changedMetadata(const CLight& light);

public slots:
    // One step of a light's continuous dimming; must be the timeout of the light's dim timer.
    void dimTimerFired();

private:
    void connectLightEvents(CBridge* bridge);
    void relativeDimming(CBridge* bridge, CLight* light, const QByteArray& hueId, int control);
    // False when the value is no KNX scaling speed.
    bool timedDimming(CBridge* bridge, CLight* light, const QByteArray& hueId, const QString& value);
    void sendOutputValue(const CLight& light, EOutputDatapoint datapoint, const QString& text);
    // What sendDataPointValue() checks once the bridge is known: ignored, not paired.
    bool mayReportValues(const CBridge& bridge, const InternalId& id) const;
    // A pinned bridge showed another certificate.
    void certificateChanged(const QByteArray& bridgeId);
    // Colour mode, colour temperature, RGB and HSV, as far as the light type has them; after a
    // change of the brightness alone only RGB and HSV, the two that carry it.
    void sendColorValues(const CLight& light, bool brightnessOnly = false);
    // Every output value and the attributes of a light, as after registration.
    void sendCurrentValues(const CLight& light);
    // Registers the light's device with its description, then sends its current values.
    void registerLight(const CLight& light);
    // The adaptor, unless there is none or the light's bridge is ignored.
    HueAdaptor* reportingHub(const CLight& light) const;

    bool m_night = false;
    bool m_lightRemovedByHub = false; // set while the hub's removal of a device deletes its light
    // bridgeState() answers by bridge id, valid while the configuration's revision is unchanged.
    struct CachedBridgeState
    {
        quint64 revision;
        EBridgeState state;
    };
    mutable QHash<QByteArray, CachedBridgeState> m_bridgeStates;
};

// The current form of a bridge id: 16 lower-case hexadecimal characters. An old UPnP UUID
// ("2f402f80da5011e19b23" and the 12 MAC digits, dashes and a "uuid:" prefix allowed) becomes the
// MAC with "fffe" in its middle; other ids are only lowered.
QByteArray normalizedBridgeId(const QByteArray& bridgeId);
// The inverse for a 16-character id; empty for an id of another length.
QByteArray oldBridgeUuid(const QByteArray& bridgeId);

// The process's controller, set by its constructor.
extern CController* g_Controller;

} // namespace hue
