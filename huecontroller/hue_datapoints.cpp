#include "hue_datapoints.h"

namespace hue {

namespace {

struct DatapointEntry
{
    int pairingId;
    const char* name;
};

// Indexed by EInputDatapoint.
constexpr DatapointEntry kInputs[InputDatapointCount] = {
    {0x1, "IDP_SWITCH_ON_OFF"},
    {0x10, "IDP_RELATIVE_SET_VALUE_CONTROL"},
    {0x11, "IDP_ABSOLUTE_SET_VALUE_CONTROL"},
    {0x1A, "IDP_BRIGHTNESS"},
    {0x2, "IDP_TIMED_START_STOP"},
    {0x4, "IDP_SCENE"},
    {0x12, "IDP_NIGHT"},
    {0x6, "IDP_PRESENCE"},
    {0x15, "IDP_RGB_COLOR"},
    {0x17, "IDP_HSV_COLOR"},
    {0x16, "IDP_COLOR_TEMPERATURE"},
    {0x18, "IDP_HUE"},
    {0x19, "IDP_SATURATION"},
    {0x1AC, "IDP_TIMED_DIMMING"},
};

// Indexed by EOutputDatapoint.
constexpr DatapointEntry kOutputs[OutputDatapointCount] = {
    {0x100, "ODP_INFO_ON_OFF"},     {0x110, "ODP_INFO_ACTUAL_DIMMING_VALUE"},
    {0x111, "ODP_INFO_ERROR"},      {0x117, "ODP_INFO_RGB_COLOR"},
    {0x11B, "ODP_INFO_HSV_COLOR"},  {0x118, "ODP_INFO_COLOR_TEMPERATURE"},
    {0x11D, "ODP_INFO_COLOR_MODE"}, {0x1AD, "ODP_INFO_TIMED_DIMMING"},
};

// Indexed by EParameter.
constexpr int kParameterIds[ParameterCount] = {0x25, 0x29, 0x5, 0x12, 0x15};

template <int N> int indexOfPairingId(const DatapointEntry (&table)[N], int pairingId)
{
    for (int i = 0; i < N; ++i) {
        if (table[i].pairingId == pairingId)
            return i;
    }
    return -1;
}

QByteArray invalidName(int value)
{
    return QByteArrayLiteral("invalid:") + QByteArray::number(value);
}

} // namespace

EInputDatapoint inputDatapointForPairingId(int pairingId)
{
    return static_cast<EInputDatapoint>(indexOfPairingId(kInputs, pairingId));
}

EOutputDatapoint outputDatapointForPairingId(int pairingId)
{
    return static_cast<EOutputDatapoint>(indexOfPairingId(kOutputs, pairingId));
}

EParameter parameterForParameterId(int parameterId)
{
    for (int i = 0; i < ParameterCount; ++i) {
        if (kParameterIds[i] == parameterId)
            return static_cast<EParameter>(i);
    }
    return PARAM_INVALID;
}

int pairingIdOf(EInputDatapoint datapoint)
{
    return datapoint >= 0 && datapoint < InputDatapointCount ? kInputs[datapoint].pairingId : -1;
}

int pairingIdOf(EOutputDatapoint datapoint)
{
    return datapoint >= 0 && datapoint < OutputDatapointCount ? kOutputs[datapoint].pairingId : -1;
}

int parameterIdOf(EParameter parameter)
{
    return parameter >= 0 && parameter < ParameterCount ? kParameterIds[parameter] : -1;
}

QByteArray getInputDatapointName(EInputDatapoint datapoint)
{
    if (datapoint >= 0 && datapoint < InputDatapointCount)
        return QByteArray(kInputs[datapoint].name);
    return invalidName(datapoint);
}

QByteArray getOutputDatapointName(EOutputDatapoint datapoint)
{
    if (datapoint >= 0 && datapoint < OutputDatapointCount)
        return QByteArray(kOutputs[datapoint].name);
    return invalidName(datapoint);
}

} // namespace hue
