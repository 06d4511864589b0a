#pragma once

#include "common/messaging/socketadaptorwithping.h"
#include "hue_clock.h"
#include "hue_datapoints.h"
#include "kova/kovacommon/internalid.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QHash>
#include <QPointer>
#include <QString>
#include <QStringList>

class SocketInterface;

namespace hue {

class CController;
class CUpnpListener;

// The service's face towards the hub, served as "com.orlux.tamsa.huecontroller".
//
// The hub's supervisor drives it through run stages: 0 connects to the communication, database
// and system services, 3 waits for the configuration cache and initialises the controller and
// discovery, 1 starts bridges and the mDNS watch, 2 stops. Signals of the hub about the service's
// own devices (device serials with the prefix 0xBEED) go to the controller; the controller
// reports back through the emit operations, which never block and never retry: a failed call is
// logged and forgotten.
class HueAdaptor : public SocketAdaptorWithPing
{
    Q_OBJECT

public:
    static constexpr quint16 kDevicePrefix = 0xBEED;
    static constexpr qint64 kStableNetworkMs = 30000;
    static const char kServiceName[]; // "com.orlux.tamsa.huecontroller"

    explicit HueAdaptor(QObject* parent = nullptr);
    ~HueAdaptor() override;

    // The one adaptor of the process; logs "no HueAdaptor instance" when there is none.
    static HueAdaptor* instance();

    QString getModuleName() const override;

    // The controller the signal handlers reach; main sets it once both exist. Its support
    // reports go to the backend from here.
    void setController(CController* controller);
    CController* controller() const { return m_controller; }

    // --- Calls to the hub ---------------------------------------------------------------------
    void emitRegisterDevice(const InternalId& id, const QByteArray& description);
    // Sends an output value unless the same text was sent last for that datapoint; colours are
    // reformatted as hexadecimal for the hub.
    void emitSendDatapointValue(const InternalId& id, const QString& value);
    // The same for a caller that knows which output the identifier stands for.
    void emitSendDatapointValue(const InternalId& id, const QString& value, EOutputDatapoint datapoint);
    void emitConfirmDataPointValueChanged(int token, int result);
    void emitLifeSign(const InternalId& id);
    void emitUnresponsive(const InternalId& id);
    void emitSendAttribute(const InternalId& id, const QString& name, const QString& value);
    void submitSupportInfo(const QByteArray& info);

    // Forgets the values sent for every datapoint of that device, so the next ones go out even
    // when unchanged.
    void uncacheDeviceDatapoints(const InternalId& device);
    // The hub's network has reported success (event 3) for more than 30 s.
    bool hasStableNetwork() const;

    int currentStage() const { return m_stage; }
    bool isRunning() const { return m_running; }
    int lastNetworkEvent() const { return m_lastNetworkEvent; }
    CUpnpListener* upnpListener() const { return m_upnpListener; }
    SocketInterface* communicationService() const { return m_communication; }
    SocketInterface* databaseService() const { return m_database; }
    SocketInterface* systemService() const { return m_system; }
    // The last value sent per output datapoint.
    const QHash<InternalId, QString>& datapointCache() const { return m_datapointCache; }

    // Adds the bridges of the development setting "debug/forceBridgeIPs" ("+"-separated URLs).
    void addForcedBridges();
    // The made-up bridge id of a forced bridge: 32 hex digits from the low nibbles of its URL.
    static QByteArray forcedBridgeId(const QString& entry);

    // Called by the supervisor; public slots are callable through the hub messaging.
public slots:
    void run(int stage);
    void gatherSupportInfo();
    void exportProfilerStatistics(int unused);
    QString debugGetLightInfo();
    QString debugSetDP(int shortId, QByteArray hueId, QString datapoint, QString value, int token);
    QString debugSetParam(int shortId, QByteArray hueId, QString parameter, QString value);
    QString debugTimedStartStop(int shortId, QByteArray hueId);
    void quit();

    // Subscribed hub signals.
    void onDeviceReady(InternalId id, bool ready);
    void onParameterValueChanged(InternalId id, QString value);
    void onDataPointValueChanged(InternalId id, QString value, int token);
    void onScanningForLifeSigns();
    void onMasterReset(InternalId id);
    void onAttributeValueChanged(InternalId id, QString name, QString value);
    void onNetworkEvent(int event, QByteArray text);
    void onMDNSServiceChanged(bool added, QByteArray type, QByteArray name, QByteArray domain,
                              QByteArray host, int port, QByteArray address, QStringList txt);

private:
    bool connectToHubServices();
    void deleteInterfaces();
    void waitForConfigCache();
    void subscribeToSignals();
    void startWatchingMDNS();
    bool isOwnDevice(const InternalId& id) const { return id.getPrefix() == kDevicePrefix; }
    void setLastNetworkEvent(int event);
    // Logs "<what> failed" with the communication interface's error text when its last call failed.
    void checkCommunicationCall(const char* errorMessage) const;
    // Shared front of the debug commands: the light of (shortId, hueId) or a message why not.
    QString findDebugLight(int shortId, const QByteArray& hueId, InternalId* device) const;
    QString writeDebugDatapoint(const InternalId& device, int index, const QString& value);

    static HueAdaptor* Instance;

    QPointer<CController> m_controller;
    SocketInterface* m_communication = nullptr; // children
    SocketInterface* m_database = nullptr;
    SocketInterface* m_system = nullptr;
    int m_stage = -1;
    bool m_running = false;
    bool m_debugSessionRunning = false;
    CUpnpListener* m_upnpListener = nullptr; // child, stages 3 to 2
    QHash<InternalId, QString> m_datapointCache;
    int m_lastNetworkEvent = 4;
    ElapsedTimer m_networkTimer; // on hue::Clock, so tests can move past the 30 s
    QElapsedTimer m_traceTimer;
};

} // namespace hue
