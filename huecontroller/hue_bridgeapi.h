#pragma once

#include "hue_bridge.h"
#include "hue_bridgechangeflags.h"
#include "hue_changeitem.h"
#include "hue_itemtype.h"
#include "hue_lighttype.h"

#include "json/minijson.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QObject>
#include <QPointer>
#include <QSet>
#include <QString>
#include <QVariant>

#include <memory>

namespace hue {

class CLight;

// The API dialect through which a bridge talks to its hardware: how requests are built, what is
// polled and how replies are read into the light model. The bridge owns exactly one dialect.
// The helpers below are shared by both dialects: they write a JSON value into the light model
// only when it differs, and report what changed.
class BridgeAPI : public QObject
{
    Q_OBJECT
public:
    // The kinds of value a reply may carry for a light.
    enum ValueKind
    {
        ValueOn,
        ValueBrightness,
        ValueHue,
        ValueSaturation,
        ValueXY,
        ValueColorTemp,
        ValueTransitionTime,
        ValueName,
    };

    explicit BridgeAPI(CBridge* bridge);
    ~BridgeAPI() override;

    CBridge* bridge() const { return m_bridge; }

    virtual bool supportsV2() const = 0;
    virtual QNetworkRequest createRequest(const QString& path) = 0;
    // Hands a change body to the bridge's light-change queue; returns the request number.
    virtual quint64 sendSetStateRequest(const CLight& light, const QByteArray& body,
                                        QMap<QByteArray, QVariant> properties) = 0;
    virtual void setLightName(const QByteArray& lightId, const QString& name) = 0;
    // Replies of the dialect's own; false when the reply is not one of them.
    virtual bool handleOtherReply(QNetworkReply* reply, bool timedOut) = 0;
    // The next poll request; updates pollType to what it polls.
    virtual QNetworkRequest pollNextItem(CBridge::PollType& pollType) = 0;
    virtual void parsePollReply(const minijson::CObject& reply, CBridge::PollType pollType) = 0;
    // True when every part of the reply was applied.
    virtual bool parseLightChangeReply(QNetworkReply* reply, const minijson::CEntity& document,
                                       bool dumpUpdates) = 0;
    virtual LightType determineLightType(const minijson::CObject& state) = 0;
    virtual std::unique_ptr<minijson::CObject>
    buildChangeRequest(const CLight& light, const QMap<ChangeItem, QVariant>& changes) = 0;
    // Folds a newer change body into an older one of the same light that has not been sent yet,
    // so that a queue holds one waiting body per light: members of the newer body replace those
    // of the older, and a newer colour of one kind drops an older colour of another kind (the
    // bridge would otherwise apply the older one by its own precedence). An older body that is
    // not a JSON object is replaced whole.
    static QByteArray mergeChangeBodies(const QByteArray& older, const QByteArray& newer);
    virtual void gatherSupportInfo() = 0;
    virtual bool hasPendingSupportInfoRequests() const;
    // Issues the next pending support-information request (marked "hueSupportInfo").
    virtual void startNextSupportInfoRequest();
    // Bridge brightness per unit of the dialect's brightness value.
    virtual float apiBrightnessFactor() const = 0;
    virtual void updateLightXY(CLight& light, const minijson::CEntity* value, bool* changed) = 0;

    void updateLightOnOff(CLight& light, const minijson::CEntity* value, bool* changed);
    void updateLightBrightness(CLight& light, const minijson::CEntity* value, bool* changed);
    void updateLightColorTemperature(CLight& light, const minijson::CEntity* value, bool* changed);
    void updateLightName(CLight& light, const minijson::CEntity* value, bool* changed);
    // One value of a known kind; adds what changed to `flags`. False when the value's type is
    // wrong (logged by the updater).
    bool updateLightValueCommon(CLight& light, ValueKind kind, const minijson::CEntity* value,
                                ChangeFlags& flags);
    // Reports a new light, or the changed parts of a known one, to the controller's side
    // (CBridge's signals) and clears `flags`.
    void updateLightInController(CLight& light, bool isNew, ChangeFlags& flags);
    // Deletes every light of the item type that a full poll no longer listed.
    void deleteRemovedLights(const QSet<QByteArray>& seen, ItemType itemType);

    // Hands the poll reply being read to the dialect while it exists (CBridge::handlePollReply
    // around parsePollReply), so that the dialect can tell which of a light's values the bridge
    // has been told since the poll left.
    class PollReplyScope
    {
    public:
        PollReplyScope(BridgeAPI& api, QNetworkReply* reply);
        ~PollReplyScope();
        PollReplyScope(const PollReplyScope&) = delete;
        PollReplyScope& operator=(const PollReplyScope&) = delete;

    private:
        QPointer<BridgeAPI> m_api;
        QNetworkReply* m_previous;
    };
    // The poll reply being read; null when parsePollReply is called without one.
    QNetworkReply* pollReply() const { return m_pollReply; }

    // What a poll must leave alone of a light: the items with a pending, waiting or in-flight
    // change, and those whose latest change went out after the poll request did (without a
    // poll reply: only the first).
    struct KeptItems
    {
        bool on = false;
        bool brightness = false;
        // Any of xy, hue, saturation and colour temperature: they are one colour, so the poll's
        // colour values and colour mode go together.
        bool colour = false;
        bool any() const { return on || brightness || colour; }
    };
    KeptItems itemsKeptFromPoll(const CLight& light) const;
    // syncVelFromBridge, except that the hub state keeps its values of the kept items.
    static void syncVelKeeping(CLight& light, const KeptItems& kept);

protected:
    CBridge* m_bridge;
    QNetworkReply* m_pollReply = nullptr;
    QList<QNetworkRequest> m_pendingSupportInfoRequests;
};

} // namespace hue
