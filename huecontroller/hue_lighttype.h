#pragma once

#include <QtGlobal>

namespace hue {

// What a bridge item can do, decided from the capabilities the bridge reports. The values are
// persisted with the hub devices and index the light-type descriptions, so they never change.
enum LightType : qint32
{
    LightOnOff = 0,
    LightDimmable = 1,
    LightColorTemperature = 2,
    LightColor = 3,
    LightExtendedColor = 4,
    GroupOnOff = 5,
    GroupDimmable = 6,
    GroupColorTemperature = 7,
    GroupColor = 8,
    GroupExtendedColor = 9,
    LightInvalid = 10, // no "on" capability: the item is refused
};

constexpr int LightTypeCount = 10; // the valid types 0..9

// Group types repeat the single-light types in the same order, so the capability of a group is
// that of the light type five below it.
constexpr int lightTypeCapability(LightType type)
{
    return type >= GroupOnOff && type <= GroupExtendedColor ? type - GroupOnOff : int(type);
}

constexpr bool isGroupType(LightType type)
{
    return type >= GroupOnOff && type <= GroupExtendedColor;
}

// The description file of a light type, found in the folder "hue" of the constant data
// directory; null for LightInvalid and values outside the enumeration.
constexpr const char* lightSpecFileName(LightType type)
{
    switch (type) {
    case LightOnOff:
        return "hue-onoff.xml";
    case LightDimmable:
        return "hue-dimmable.xml";
    case LightColorTemperature:
        return "hue-w.xml";
    case LightColor:
        return "hue-rgb.xml";
    case LightExtendedColor:
        return "hue-rgb-ww.xml";
    case GroupOnOff:
        return "group-onoff.xml";
    case GroupDimmable:
        return "group-dimmable.xml";
    case GroupColorTemperature:
        return "group-w.xml";
    case GroupColor:
        return "group-rgb.xml";
    case GroupExtendedColor:
        return "group-rgb-ww.xml";
    case LightInvalid:
        break;
    }
    return nullptr;
}

} // namespace hue
