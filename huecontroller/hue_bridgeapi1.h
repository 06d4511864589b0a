#pragma once

#include "hue_bridgeapi.h"

namespace hue {

// The bridge's REST API version 1: everything lives under "/api/" + user name; lights are
// polled as "lights", groups as "groups"; a change is a PUT of "lights/<id>/state" or
// "groups/<id>/action" answered by an array of success and error objects.
//
// Registry keys: a light is kept under its number ("5"), a group under "groups/" + its number,
// so that light 1 and group 1 never meet. A light's hub number is its bridge number; a group's
// is its number with bit 15 set.
class BridgeAPI1 : public BridgeAPI
{
    Q_OBJECT
public:
    static constexpr quint16 kGroupNumberBit = 0x8000;

    explicit BridgeAPI1(CBridge* bridge);

    bool supportsV2() const override { return false; }
    QNetworkRequest createRequest(const QString& path) override;
    quint64 sendSetStateRequest(const CLight& light, const QByteArray& body,
                                QMap<QByteArray, QVariant> properties) override;
    void setLightName(const QByteArray& lightId, const QString& name) override;
    bool handleOtherReply(QNetworkReply*, bool) override { return false; }
    QNetworkRequest pollNextItem(CBridge::PollType& pollType) override;
    void parsePollReply(const minijson::CObject& reply, CBridge::PollType pollType) override;
    bool parseLightChangeReply(QNetworkReply* reply, const minijson::CEntity& document,
                               bool dumpUpdates) override;
    LightType determineLightType(const minijson::CObject& state) override;
    std::unique_ptr<minijson::CObject> buildChangeRequest(const CLight& light,
                                                          const QMap<ChangeItem, QVariant>& changes) override;
    void gatherSupportInfo() override;
    float apiBrightnessFactor() const override { return 1.0f; }
    void updateLightXY(CLight& light, const minijson::CEntity* value, bool* changed) override;

    // "lights/" or "groups/".
    static QString uuidPrefix(ItemType itemType);
    // The registry key of a bridge item.
    static QByteArray itemKey(ItemType itemType, const QByteArray& number);
    QNetworkRequest createGroupPoll() { return createRequest(QStringLiteral("groups")); }

    // Applies one "success" address of a change reply ("/lights/5/state/bri", ...) to its light;
    // `light` receives the light it named. False (logged) when nothing could be applied.
    bool updateSingleLightValueFromJSONAndAddress(const QString& address, const minijson::CEntity& value,
                                                  CLight** light, ChangeFlags& flags);
    // A light or group object of a poll: a new item is created, a known one updated.
    void createLight(const QByteArray& number, const minijson::CObject& object, ItemType itemType);
    void updateLightFromJSON(CLight& light, const minijson::CObject& object, bool isNew);

    bool warnedAboutMissingXY() const { return m_warnedNoXY; }

private:
    void parseItems(const minijson::CObject& reply, ItemType itemType);
    void readCapabilities(CLight& light, const minijson::CObject& object);
    void readColorMode(CLight& light, const minijson::CEntity* value, ChangeFlags& flags);

    bool m_warnedNoXY = false;
};

} // namespace hue
