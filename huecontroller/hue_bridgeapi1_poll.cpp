// API version 1: reading the "lights" and "groups" poll replies into the light model.

#include "hue_bridgeapi1.h"

#include "hue_colorconvert.h"
#include "hue_light.h"
#include "hue_lightinfo.h"

#include "common/logginginterface.h"

namespace hue {

namespace {

QByteArray stringMember(const minijson::CObject& object, const char* name)
{
    const minijson::CEntity* value = object.Find(name);
    return value && value->IsString() ? QByteArray::fromStdString(value->StringValue()) : QByteArray();
}

// A positive decimal item number below 0x8000, so that it fits the hub number with the group bit.
bool parseItemNumber(const std::string& text, quint16* number)
{
    bool ok = false;
    const uint value = QByteArray::fromStdString(text).toUInt(&ok, 10);
    if (!ok || value >= BridgeAPI1::kGroupNumberBit)
        return false;
    *number = quint16(value);
    return true;
}

// [[x, y], [x, y], [x, y]] -> gamut; false for anything else.
bool readGamut(const minijson::CEntity* value, XYGamut* gamut)
{
    if (!value || !value->IsArray() || value->Count() != 3)
        return false;
    XYPoint points[3];
    for (int i = 0; i < 3; ++i) {
        const minijson::CEntity& point = (*value)[i];
        if (!point.IsArray() || point.Count() != 2 || !point[0].IsNumber() || !point[1].IsNumber())
            return false;
        points[i] = {point[0].Number().ValueFloat(), point[1].Number().ValueFloat()};
    }
    *gamut = {points[0], points[1], points[2]};
    return true;
}

} // namespace

void BridgeAPI1::parsePollReply(const minijson::CObject& reply, CBridge::PollType pollType)
{
    if (pollType == CBridge::PollLights)
        parseItems(reply, ItemLight);
    else if (pollType == CBridge::PollGroups && m_bridge->useGroups())
        parseItems(reply, ItemGroup);
}

void BridgeAPI1::parseItems(const minijson::CObject& reply, ItemType itemType)
{
    QSet<QByteArray> seen;
    for (int i = 0; i < reply.Count(); ++i) {
        const std::string& name = reply.MemberNameByIndex(i);
        quint16 number = 0;
        if (!parseItemNumber(name, &number) || (itemType == ItemLight && number == 0)) {
            LOG_ERROR << (itemType == ItemLight ? "cannot parse light id:" : "cannot parse group id:")
                      << name;
            continue;
        }
        const minijson::CEntity& item = reply.EntityAtIndex(i);
        const QByteArray key = itemKey(itemType, QByteArray::fromStdString(name));
        seen.insert(key);
        if (!item.IsObject()) {
            LOG_ERROR << "JSON response for light state was parsed successfully, but has unexpected contents"
                      << name;
            continue;
        }
        if (CLight* light = m_bridge->lightById(key))
            updateLightFromJSON(*light, item.Object(), false);
        else
            createLight(QByteArray::fromStdString(name), item.Object(), itemType);
    }
    deleteRemovedLights(seen, itemType);
}

void BridgeAPI1::createLight(const QByteArray& number, const minijson::CObject& object, ItemType itemType)
{
    const bool group = itemType == ItemGroup;
    const minijson::CObject* state = object.GetObject(group ? "action" : "state");
    if (!state) {
        LOG_ERROR << "JSON response for light state was parsed successfully, but has unexpected contents "
                     "(missing state/action)"
                  << number;
        return;
    }
    LightType type = determineLightType(*state);
    if (type == LightInvalid)
        return;
    if (group)
        type = LightType(type + GroupOnOff);
    const quint16 hubNumber = quint16(number.toUInt()) | (group ? kGroupNumberBit : 0);
    auto* light = new CLight(m_bridge, itemKey(itemType, number), number, hubNumber, itemType, type);
    m_bridge->addLight(light);
    updateLightFromJSON(*light, object, true);
}

void BridgeAPI1::updateLightFromJSON(CLight& light, const minijson::CObject& object, bool isNew)
{
    ChangeFlags flags;
    const bool group = light.itemType() == ItemGroup;
    BridgeLightData& data = m_bridge->lightData(light.hueId());

    if (object.Contains("name"))
        updateLightValueCommon(light, ValueName, object.Find("name"), flags);

    const QByteArray typeName = stringMember(object, "type");
    const QByteArray model = stringMember(object, "modelid");
    const QByteArray manufacturer = stringMember(object, "manufacturername");
    const QByteArray product = stringMember(object, "productname");
    const QByteArray software = stringMember(object, "swversion");
    if (typeName != data.typeName || model != light.model() || manufacturer != light.manufacturer() ||
        product != light.productName() || software != light.softwareVersion()) {
        data.typeName = typeName;
        light.setMetadata(product, manufacturer, model, software);
        flags |= ChangedMetadata;
    }
    // The gamut and colour temperature range only change with the lamp's identity.
    if (isNew || flags.testFlag(ChangedMetadata))
        readCapabilities(light, object);

    const minijson::CObject* state = object.GetObject(group ? "action" : "state");
    if (!state) {
        LOG_ERROR << "JSON response for light state was parsed successfully, but has unexpected contents "
                     "(missing state/action)"
                  << light.hueId();
        return;
    }
    // A group's "action" holds the last command sent to it; whether any of its lights is on
    // is in its "state".
    const minijson::CObject* groupState = group ? object.GetObject("state") : nullptr;
    // A poll that left before the program's latest change of a value reached the bridge still
    // shows the value from before; the change's value stays until a later poll or reply.
    const KeptItems kept = itemsKeptFromPoll(light);
    if (!kept.on) {
        if (groupState && groupState->Contains("any_on"))
            updateLightValueCommon(light, ValueOn, groupState->Find("any_on"), flags);
        else if (state->Contains("on"))
            updateLightValueCommon(light, ValueOn, state->Find("on"), flags);
    }

    static const struct
    {
        const char* key;
        ValueKind kind;
        bool colour;
    } kValues[] = {{"bri", ValueBrightness, false},
                   {"hue", ValueHue, true},
                   {"sat", ValueSaturation, true},
                   {"xy", ValueXY, true},
                   {"ct", ValueColorTemp, true}};
    for (const auto& entry : kValues) {
        if (entry.colour ? kept.colour : kept.brightness)
            continue;
        if (const minijson::CEntity* value = state->Find(entry.key))
            updateLightValueCommon(light, entry.kind, value, flags);
    }
    const minijson::CEntity* colorMode = kept.colour ? nullptr : state->Find("colormode");
    if (colorMode)
        readColorMode(light, colorMode, flags);

    if (const minijson::CEntity* reachable = state->Find("reachable")) {
        if (reachable->IsBoolean() && reachable->Boolean().Value() != data.reachable) {
            data.reachable = reachable->Boolean().Value();
            flags |= ChangedReachable;
        }
    }
    if (const minijson::CArray* members = object.GetArray("lights")) {
        QList<QByteArray> ids;
        for (int i = 0; i < members->Count(); ++i) {
            if (members->EntityAtIndex(i).IsString())
                ids.append(QByteArray::fromStdString(members->GetString(i)));
        }
        if (ids != data.memberLights) {
            data.memberLights = ids;
            flags |= ChangedMembers;
        }
    }

    syncVelKeeping(light, kept);
    updateLightInController(light, isNew, flags);
}

void BridgeAPI1::readColorMode(CLight& light, const minijson::CEntity* value, ChangeFlags& flags)
{
    VNColorMode mode = ColorModeNone;
    if (value->IsString()) {
        const std::string& text = value->StringValue();
        if (text == "hs" || text == "xy")
            mode = ColorModeColor;
        else if (text == "ct")
            mode = ColorModeTemperature;
    }
    if (mode == ColorModeNone) {
        LOG_ERROR << "light" << light.hueId() << "reports invalid color mode" << value->ToString();
        return;
    }
    if (mode != light.bridgeState().colorMode()) {
        light.bridgeState().setColorMode(mode);
        flags |= ChangedColorMode;
    }
}

void BridgeAPI1::readCapabilities(CLight& light, const minijson::CObject& object)
{
    const minijson::CObject* capabilities = object.GetObject("capabilities");
    const minijson::CObject* control = capabilities ? capabilities->GetObject("control") : nullptr;
    const QString gamutType =
        control ? QString::fromStdString(control->GetString("colorgamuttype")) : QString();
    const QString model = QString::fromLatin1(light.model());

    // The reported gamut is what colours are clamped to; the conversion matrices come from the
    // known gamut of that type or model.
    XYGamut limits;
    if (!control || !readGamut(control->Find("colorgamut"), &limits))
        limits = ColorConvert::lookupGamutLimits(gamutType, QString(), model);
    light.setGamut(ColorConvert::lookupGamut(gamutType, QString(), model), limits,
                   ColorConvert::lookupWhitepoint(gamutType, QString(), model));

    // The light-info table knows lamps whose reported range is wrong; otherwise the bridge's
    // range is taken when it is a sensible one.
    int miredMin = CLightInfo::DefaultMiredMin;
    int miredMax = CLightInfo::DefaultMiredMax;
    CLightInfo::getMiredLimits(light.manufacturer(), light.model(), miredMin, miredMax);
    const bool tableKnowsLamp =
        miredMin != CLightInfo::DefaultMiredMin || miredMax != CLightInfo::DefaultMiredMax;
    const minijson::CObject* ct = control ? control->GetObject("ct") : nullptr;
    if (ct && !tableKnowsLamp) {
        const int reportedMin = ct->GetInt("min", -1);
        const int reportedMax = ct->GetInt("max", -1);
        if (reportedMin > 0 && reportedMax > reportedMin) {
            miredMin = reportedMin;
            miredMax = reportedMax;
        }
    }
    light.setMiredLimits(miredMin, miredMax);
}

} // namespace hue
