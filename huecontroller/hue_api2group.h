#pragma once

#include "hue_api2services.h"
#include "hue_bridgechangeflags.h"

#include "json/minijson.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

namespace hue {

class CBridge;
class CLight;

// The mirror of one CLIP v2 "room" or "zone" resource. Its group light (attached with
// setLight) shows the combined state of the member lights: on when any is on, the mean
// brightness, colour temperature and colour. A burst of member changes is recomputed once,
// 100 ms after the last of them.
class API2Group : public QObject
{
    Q_OBJECT
public:
    enum Type
    {
        TypeA = 0, // made from a reply of poll type 5
        TypeB = 1, // every other group
    };

    static constexpr int kChangeDelayMs = 100;
    static constexpr int kDefaultMired = 369;
    static constexpr float kDefaultX = 0.3804f;
    static constexpr float kDefaultY = 0.3768f;

    // A resource that cannot be read.
    class Exception : public API2ResourceException
    {
        using API2ResourceException::API2ResourceException;
    };

    // Throws Exception when "id_v1" or "services" is missing or malformed.
    API2Group(CBridge* bridge, const QByteArray& id, const minijson::CObject& resource, Type type);

    void update(const minijson::CObject& resource);
    void parseGroupData(const minijson::CObject& resource);
    void setLight(CLight* light);
    void connectToLight(CLight* light);
    // Recomputes the group light from the members; nothing while no group light is attached.
    void updateAllStats();

    QByteArray id() const { return m_id; }
    QByteArray idV1() const { return m_idV1; }
    QByteArray name() const { return m_name; }
    Type type() const { return m_type; }
    int v1Number() const { return m_v1Number; }
    const QList<QByteArray>& memberIds() const { return m_memberIds; }
    const QList<QByteArray>& pendingIds() const { return m_pendingIds; }
    CLight* groupLight() const { return m_groupLight; }
    QTimer& changeTimer() { return m_changeTimer; }

signals:
    void nameChanged();
    void valuesChanged(hue::ChangeFlags& flags);

public slots:
    void onLightAdded(hue::CLight* light);
    void onLightStateChanged();
    void onChangeTimerFired();

private:
    void disconnectFromLight(CLight* light);

    CBridge* m_bridge;
    QByteArray m_id;
    QByteArray m_idV1;
    QByteArray m_name;
    Type m_type;
    int m_v1Number = 0;
    QTimer m_changeTimer;
    QList<QByteArray> m_memberIds;
    QList<QByteArray> m_pendingIds;
    QPointer<CLight> m_groupLight;
};

} // namespace hue
