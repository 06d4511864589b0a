#pragma once

#include <QByteArray>

namespace hue {

// The input datapoints a Hue light device can offer the hub. In a description file each one is
// named by its pairing id (see inputDatapointForPairingId).
enum EInputDatapoint : int
{
    IDP_INVALID = -1, // a pairing id this service does not know
    IDP_SWITCH_ON_OFF = 0,
    IDP_RELATIVE_SET_VALUE_CONTROL = 1,
    IDP_ABSOLUTE_SET_VALUE_CONTROL = 2,
    IDP_BRIGHTNESS = 3,
    IDP_TIMED_START_STOP = 4,
    IDP_SCENE = 5,
    IDP_NIGHT = 6,
    IDP_PRESENCE = 7,
    IDP_RGB_COLOR = 8,
    IDP_HSV_COLOR = 9,
    IDP_COLOR_TEMPERATURE = 10,
    IDP_HUE = 11,
    IDP_SATURATION = 12,
    IDP_TIMED_DIMMING = 13,
};
constexpr int InputDatapointCount = 14;

// The output datapoints through which a light reports its state to the hub.
enum EOutputDatapoint : int
{
    ODP_INVALID = -1,
    ODP_INFO_ON_OFF = 0,
    ODP_INFO_ACTUAL_DIMMING_VALUE = 1,
    ODP_INFO_ERROR = 2,
    ODP_INFO_RGB_COLOR = 3,
    ODP_INFO_HSV_COLOR = 4,
    ODP_INFO_COLOR_TEMPERATURE = 5,
    ODP_INFO_COLOR_MODE = 6,
    ODP_INFO_TIMED_DIMMING = 7,
};
constexpr int OutputDatapointCount = 8;

// The device parameters the hub can set for a light.
enum EParameter : int
{
    PARAM_INVALID = -1,
    PARAM_SWITCH_ON_MODE = 0,       // how the lamp comes on (bridge "startup" setting, 1..3)
    PARAM_POWER_ON_MODE = 1,        // the hub's second switch-on mode id; sets the same bridge setting
    PARAM_MAX_BRIGHTNESS_DAY = 2,   // percent
    PARAM_MAX_BRIGHTNESS_NIGHT = 3, // percent
    PARAM_TIMER_DURATION = 4,       // seconds a timed start/stop keeps the light on
};
constexpr int ParameterCount = 5;

// Mapping between the ids of a description file and the enumerations; an unknown id gives the
// INVALID value, and an invalid enumeration value gives pairing/parameter id -1.
EInputDatapoint inputDatapointForPairingId(int pairingId);
EOutputDatapoint outputDatapointForPairingId(int pairingId);
EParameter parameterForParameterId(int parameterId);
int pairingIdOf(EInputDatapoint datapoint);
int pairingIdOf(EOutputDatapoint datapoint);
int parameterIdOf(EParameter parameter);

// "IDP_SWITCH_ON_OFF", ...; "invalid:" and the number for a value outside the enumeration.
QByteArray getInputDatapointName(EInputDatapoint datapoint);
QByteArray getOutputDatapointName(EOutputDatapoint datapoint);

} // namespace hue
