#pragma once

#include "devicedescription.h"

#include <kovacommon/internalid.h>

#include <optional>

// How the simulated hub names the datapoints of a registered device. A description lists one
// channel, so every datapoint lives in channel 0 (channels are counted from 0 like the
// indexes within them): inputs are "<device>/ch0000/idpNNNN", outputs "<device>/ch0000/odpNNNN"
// and parameters "<device>/ch0000/pmNNNN", NNNN being the hub index in hexadecimal.
namespace datapointids {

constexpr quint16 kChannel = 0;

InternalId idFor(const InternalId& device, DataPointInfo::Direction direction, int index);

struct Address
{
    DataPointInfo::Direction direction;
    int index;
};
// The direction and index of a datapoint or parameter identifier in channel 0; nothing for
// any other identifier.
std::optional<Address> addressOf(const InternalId& id);

} // namespace datapointids
