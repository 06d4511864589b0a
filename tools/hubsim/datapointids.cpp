#include "datapointids.h"

namespace datapointids {

InternalId idFor(const InternalId& device, DataPointInfo::Direction direction, int index)
{
    const auto byte = static_cast<quint8>(index);
    switch (direction) {
    case DataPointInfo::Input:
        return InternalId::makeInputDataPointSerial(device, kChannel, byte);
    case DataPointInfo::Output:
        return InternalId::makeOutputDataPointSerial(device, kChannel, byte);
    case DataPointInfo::Parameter:
        return InternalId::makeChannelParameterSerial(device, kChannel, byte);
    }
    return InternalId();
}

std::optional<Address> addressOf(const InternalId& id)
{
    if (id.getChannel() != kChannel)
        return std::nullopt;
    switch (id.getKind()) {
    case InternalId::InputDataPoint:
        return Address{DataPointInfo::Input, id.getIndex()};
    case InternalId::OutputDataPoint:
        return Address{DataPointInfo::Output, id.getIndex()};
    case InternalId::ChannelParameter:
        return Address{DataPointInfo::Parameter, id.getIndex()};
    default:
        return std::nullopt;
    }
}

} // namespace datapointids
