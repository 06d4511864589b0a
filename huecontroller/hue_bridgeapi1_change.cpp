// API version 1: reading the success/error array that answers a light change.

#include "hue_bridgeapi1.h"

#include "hue_bridgestate.h"
#include "hue_light.h"

#include "common/logginginterface.h"

#include <QRegularExpression>

namespace hue {

namespace {

struct AttributeKind
{
    const char* name;
    BridgeAPI::ValueKind kind;
};

const AttributeKind kAttributes[] = {
    {"bri", BridgeAPI::ValueBrightness},
    {"hue", BridgeAPI::ValueHue},
    {"sat", BridgeAPI::ValueSaturation},
    {"xy", BridgeAPI::ValueXY},
    {"ct", BridgeAPI::ValueColorTemp},
    {"on", BridgeAPI::ValueOn},
    {"transitiontime", BridgeAPI::ValueTransitionTime},
};

} // namespace

bool BridgeAPI1::parseLightChangeReply(QNetworkReply* reply, const minijson::CEntity& document,
                                       bool dumpUpdates)
{
    if (!document.IsArray()) {
        LOG_ERROR << "JSON response from bridge is not an array" << document.ToString();
        return false;
    }
    bool allApplied = true;
    bool anyUpdateFailed = false;
    QMap<CLight*, ChangeFlags> updated;
    const minijson::CArray& results = document.Array();
    for (int i = 0; i < results.Count(); ++i) {
        const minijson::CEntity& element = results.EntityAtIndex(i);
        if (!element.IsObject()) {
            LOG_ERROR << "JSON response has no object at index" << i;
            allApplied = false;
            continue;
        }
        const minijson::CObject& result = element.Object();
        if (const minijson::CObject* error = result.GetObject("error")) {
            const int type = error->GetInt("type", -1);
            const std::string description = error->GetString("description");
            if (type == 1) {
                LOG_ERROR << "Missing (or revoked) authorization:" << description;
                m_bridge->requestBridgeState(BridgeStateNew);
            } else {
                LOG_ERROR << "error type:" << type << "description:" << description;
            }
            allApplied = false;
        } else if (const minijson::CObject* success = result.GetObject("success")) {
            for (int m = 0; m < success->Count(); ++m) {
                const QString address = QString::fromStdString(success->MemberNameByIndex(m));
                CLight* light = nullptr;
                ChangeFlags flags;
                if (updateSingleLightValueFromJSONAndAddress(address, success->EntityAtIndex(m), &light,
                                                             flags)) {
                    updated[light] |= flags;
                } else {
                    LOG_ERROR << "FAILED to update value of light. Address:" << address;
                    anyUpdateFailed = true;
                }
            }
        } else {
            LOG_ERROR << "JSON response has neither success nor error at index" << i;
            allApplied = false;
        }
    }
    if (anyUpdateFailed) {
        LOG_ERROR << "Failed to update internal state from bridge response. Need to wait for next poll for "
                     "state update."
                  << (reply ? reply->url().toString() : QString());
        allApplied = false;
    }
    for (auto it = updated.begin(); it != updated.end(); ++it) {
        CLight* light = it.key();
        light->syncVelFromBridge();
        if (dumpUpdates)
            LOG_INFO << "light" << light->deviceSerial() << "updated by change reply, flags"
                     << int(it.value());
        // Only switching and brightness are reported from a confirmation; the rest follows the poll.
        ChangeFlags reported = it.value() & (ChangedOn | ChangedBrightness);
        updateLightInController(*light, false, reported);
    }
    return allApplied;
}

bool BridgeAPI1::updateSingleLightValueFromJSONAndAddress(const QString& address,
                                                          const minijson::CEntity& value, CLight** light,
                                                          ChangeFlags& flags)
{
    static const QRegularExpression kLightState(QStringLiteral("^\\/lights\\/([0-9]+)\\/state\\/([a-z]+)$"));
    static const QRegularExpression kGroupAction(
        QStringLiteral("^\\/groups\\/([0-9]+)\\/action\\/([a-z]+)$"));
    static const QRegularExpression kName(QStringLiteral("^\\/(lights|groups)\\/([0-9]+)\\/name"));

    QByteArray key;
    QString attribute;
    QRegularExpressionMatch match = kLightState.match(address);
    if (match.hasMatch()) {
        key = itemKey(ItemLight, match.captured(1).toUtf8());
        attribute = match.captured(2);
    } else if ((match = kGroupAction.match(address)).hasMatch()) {
        key = itemKey(ItemGroup, match.captured(1).toUtf8());
        attribute = match.captured(2);
    } else if ((match = kName.match(address)).hasMatch()) {
        const ItemType itemType = match.captured(1) == QLatin1String("lights") ? ItemLight : ItemGroup;
        key = itemKey(itemType, match.captured(2).toUtf8());
        attribute = QStringLiteral("name");
    } else {
        LOG_ERROR << "unexpected address format, cannot update item for address" << address;
        return false;
    }

    CLight* item = m_bridge->lightById(key);
    if (!item) {
        LOG_ERROR << "unknown hue item id" << key;
        return false;
    }
    *light = item;
    if (attribute == QLatin1String("name"))
        return updateLightValueCommon(*item, ValueName, &value, flags);
    for (const AttributeKind& entry : kAttributes) {
        if (attribute != QLatin1String(entry.name))
            continue;
        const bool applied = updateLightValueCommon(*item, entry.kind, &value, flags);
        // The confirmed value is what the lamp shows now: a colour (xy, hue, saturation) or a
        // colour temperature.
        const bool colour = entry.kind == ValueXY || entry.kind == ValueHue || entry.kind == ValueSaturation;
        if (applied && (colour || entry.kind == ValueColorTemp)) {
            const VNColorMode mode = colour ? ColorModeColor : ColorModeTemperature;
            if (mode != item->bridgeState().colorMode()) {
                item->bridgeState().setColorMode(mode);
                flags |= ChangedColorMode;
            }
        }
        return applied;
    }
    LOG_WARNING << "ignoring unknown value type in response:" << attribute;
    return true;
}

} // namespace hue
