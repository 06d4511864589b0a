#pragma once

#include "hue_api2device.h"
#include "hue_api2group.h"
#include "hue_bridgeapi.h"
#include "hue_clock.h"

#include <QHash>
#include <QMap>
#include <QSet>
#include <QTimer>

#include <memory>

namespace hue {

class BridgeAPI1;
class EventStreamConnection;

// The bridge's CLIP API version 2: resources under "/clip/v2/resource/" with the header
// "hue-application-key", kept current between polls by the event stream.
//
// Lights are keyed by their resource id; each belongs to a "device" resource (API2Device) whose
// "zigbee_connectivity" tells whether it is reachable. A light is created only once its device
// is known and reachable. Light groups still come from the version 1 "groups" resource, through
// a version 1 delegate. The program keeps one "geofence_client" of its own on the bridge and
// renames it every minute, so that a quiet event stream still carries an event; a stream silent
// for more than three minutes is reopened.
class BridgeAPI2 : public BridgeAPI
{
    Q_OBJECT
public:
    static constexpr float kBrightnessFactor = 2.54f;
    static constexpr int kGeofencePingMs = 60000;
    static constexpr int kQuickGroupPollDelayMs = 100;
    static constexpr qint64 kQuickGroupPollSpacingMs = 999;

    explicit BridgeAPI2(CBridge* bridge);
    ~BridgeAPI2() override;

    // --- Requests and polling (hue_bridgeapi2.cpp) ------------------------------------------------
    bool supportsV2() const override { return true; }
    // "/clip/v2/resource/" + resource.
    QNetworkRequest createRequest(const QString& resource) override;
    // device -> zigbee_connectivity -> light -> (groups) -> (geofence_client while unknown) -> device
    QNetworkRequest pollNextItem(CBridge::PollType& pollType) override;
    void parsePollReply(const minijson::CObject& reply, CBridge::PollType pollType) override;
    float apiBrightnessFactor() const override { return kBrightnessFactor; }
    // Restarts a group poll through the version 1 API soon, at most once per second.
    void queueGroupPoll();

    // --- Resources (hue_bridgeapi2_parse.cpp) -------------------------------------------------------
    LightType determineLightType(const minijson::CObject& light) override;
    void updateLightXY(CLight& light, const minijson::CEntity* value, bool* changed) override;
    void parseDevicePollReply(const minijson::CArray& data);
    void parseConnectivityPollReply(const minijson::CArray& data);
    void parseLightPollReply(const minijson::CArray& data);
    void parseRoomOrZonePollReply(const minijson::CArray& data, CBridge::PollType pollType);
    // Creates the light of a resource; false when none was made, with `ok` telling whether that
    // is a failure (an unknown or unreachable device is none).
    bool createLight(const QByteArray& id, const minijson::CObject& light, bool& ok);
    bool updateLightFromLightJSON(const QByteArray& id, const minijson::CObject& light);
    // Applies the members a light resource names; an event changes only what it carries. A poll
    // passes the items to leave alone (itemsKeptFromPoll) and the light's device, whose name
    // stands for the light's when the resource has no "metadata" of its own.
    bool updateLightFromEventJSON(CLight* light, const minijson::CObject& resource, bool isNew = false,
                                  const KeptItems& kept = {}, const API2Device* nameDevice = nullptr);
    // The light's archetype ("sultan_bulb"): its own metadata's, or else its device's.
    QByteArray lightArchetype(const QByteArray& lightId) const { return m_lightArchetypes.value(lightId); }
    // Deletes a light that the bridge deleted, as a version 1 poll deletes one it no longer lists.
    void deleteLightResource(const QByteArray& lightId);
    // Forgets a device the bridge deleted, with its lights.
    void removeDevice(const QByteArray& deviceId);
    void updateReachableFromStatus(const minijson::CObject& resource, API2Device* device);
    API2Device* addAPIDevice(const QByteArray& id, const minijson::CObject& resource);
    // The device named by a service resource's "owner" (null when unknown or not a device).
    API2Device* getAPIDevice(const minijson::CObject& resource);
    API2Device* deviceOfLight(const QByteArray& lightId) const;
    API2Group* addAPIGroup(const QByteArray& id, CBridge::PollType pollType,
                           const minijson::CObject& resource);
    void createGroup(const QByteArray& id, API2Group* group);
    const QMap<QByteArray, std::shared_ptr<API2Device>>& devices() const { return m_devices; }
    const QMap<QByteArray, std::shared_ptr<API2Group>>& groups() const { return m_groups; }

    // --- Event stream (hue_bridgeapi2_events.cpp) ---------------------------------------------------
    EventStreamConnection* eventStream() const { return m_stream; }
    // The data of one stream message: a JSON array of events.
    void parseEventStreamData(const QByteArray& data);
    void parseEventData(const minijson::CObject& resource, const std::string& eventType);
    void parseDeviceUpdate(const minijson::CObject& resource, const std::string& eventType);
    void parseLightUpdate(const minijson::CObject& resource, API2Device* device);
    void parseRoomOrZoneUpdate(const minijson::CObject& resource, API2Group* group);

    // --- Changes, names, errors, geofence client (hue_bridgeapi2_change.cpp) ------------------------
    std::unique_ptr<minijson::CObject> buildChangeRequest(const CLight& light,
                                                          const QMap<ChangeItem, QVariant>& changes) override;
    quint64 sendSetStateRequest(const CLight& light, const QByteArray& body,
                                QMap<QByteArray, QVariant> properties) override;
    bool parseLightChangeReply(QNetworkReply* reply, const minijson::CEntity& document,
                               bool dumpUpdates) override;
    void setLightName(const QByteArray& lightId, const QString& name) override;
    bool handleOtherReply(QNetworkReply* reply, bool timedOut) override;
    // The number of error objects in a reply's "errors" (logged); 0 when there are none.
    static int checkErrors(const minijson::CObject& reply);
    void parseGeofenceClientList(const minijson::CObject& reply);
    void parseGeofenceClientCreate(const minijson::CObject& reply);
    QByteArray geofenceClientId() const { return m_geofenceClientId; }
    // "Velnor_" + the hub's serial number + "_"; empty while the serial number is unknown.
    static QByteArray geofenceNamePrefix();
    QTimer& geofenceTimer() { return m_geofenceTimer; }

    // --- Support information (hue_bridgeapi2_supportinfo.cpp) ----------------------------------------
    void gatherSupportInfo() override;
    bool hasPendingSupportInfoRequests() const override;
    void startNextSupportInfoRequest() override;

    BridgeAPI1* v1() const { return m_v1; }
    QTimer& quickGroupPollTimer() { return m_quickGroupPollTimer; }

public slots:
    void startQuickGroupPoll();
    // The minute tick: checks the stream's liveness and renames the geofence client.
    void updateGeofenceName();
    void onLightRemoved(QByteArray id);
    void onDeviceNameChanged();
    void onGroupValuesChanged(hue::ChangeFlags& flags);
    void onGroupNameChanged();

private:
    bool allLightsReachable() const;
    void sendGeofenceRequest(QNetworkReply* reply, const char* kind);
    // Logs a light resource that cannot be read once, until it can be read again.
    void reportIncompleteLight(const QByteArray& id, const minijson::CObject& light);

    BridgeAPI1* m_v1;
    EventStreamConnection* m_stream;
    QMap<QByteArray, std::shared_ptr<API2Device>> m_devices;
    QMap<QByteArray, std::shared_ptr<API2Group>> m_groups;
    ElapsedTimer m_groupPollLimiter;
    QTimer m_quickGroupPollTimer;
    QByteArray m_geofenceClientId;
    QTimer m_geofenceTimer;
    QNetworkReply* m_geofenceRequest = nullptr;
    QSet<QByteArray> m_lightsWithoutMetadata; // named after their device
    QSet<QByteArray> m_incompleteLights;      // logged once as unreadable
    QHash<QByteArray, QByteArray> m_lightArchetypes;
    QSet<QByteArray> m_unknownEventTypes; // logged once each
};

} // namespace hue
