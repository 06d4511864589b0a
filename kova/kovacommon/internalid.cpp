#include "internalid.h"

#include <QDataStream>

namespace {

bool isKnownKind(quint8 kind)
{
    switch (kind) {
    case InternalId::Device:
    case InternalId::Channel:
    case InternalId::DeviceParameter:
    case InternalId::ChannelParameter:
    case InternalId::InputDataPoint:
    case InternalId::OutputDataPoint:
    case InternalId::ScComponent:
    case InternalId::FnComponent:
    case InternalId::ChannelTimerSensor:
    case InternalId::TmaComponent:
        return true;
    default:
        return false;
    }
}

// Kinds that name something inside a channel and carry an index there.
bool isChannelComponent(InternalId::Kind kind)
{
    return isKnownKind(kind) && kind != InternalId::Device && kind != InternalId::Channel &&
           kind != InternalId::DeviceParameter;
}

void putLittleEndian(char* out, quint32 value, int bytes)
{
    for (int i = 0; i < bytes; ++i)
        out[i] = char((value >> (8 * i)) & 0xFF);
}

quint32 getLittleEndian(const char* in, int bytes)
{
    quint32 value = 0;
    for (int i = bytes - 1; i >= 0; --i)
        value = (value << 8) | quint8(in[i]);
    return value;
}

} // namespace

InternalId& InternalId::operator=(const QByteArray& source)
{
    parse(source);
    return *this;
}

InternalId InternalId::toDeviceId() const
{
    return isValid() ? InternalId(prefix, number) : InternalId();
}

InternalId InternalId::toChannelId() const
{
    if (kind != Channel && !isChannelComponent(kind))
        return {};
    return makeChannelSerial(prefix, number, channel);
}

bool InternalId::isComponentOf(const InternalId& other) const
{
    if (!isValid() || prefix != other.prefix || number != other.number)
        return false;
    if (other.kind == Device)
        return kind != Device;
    if (other.kind == Channel)
        return channel == other.channel && isChannelComponent(kind);
    return false;
}

InternalId InternalId::fromFields(quint8 kind, quint16 prefix, quint32 number, quint16 channel, quint8 index)
{
    if (!isKnownKind(kind))
        return {};
    const Kind known = Kind(kind);
    if (known == Device)
        channel = 0;
    if (!isChannelComponent(known))
        index = 0;
    return {prefix, number, known, channel, index};
}

void InternalId::serialize(QDataStream& stream) const
{
    stream << quint8(kind) << prefix << number << channel << index;
}

void InternalId::deserialize(QDataStream& stream)
{
    quint8 rawKind = Invalid;
    quint16 rawPrefix = 0;
    quint32 rawNumber = 0;
    quint16 rawChannel = 0;
    quint8 rawIndex = 0;
    stream >> rawKind >> rawPrefix >> rawNumber >> rawChannel >> rawIndex;
    if (stream.status() != QDataStream::Ok)
        *this = InternalId();
    else
        *this = fromFields(rawKind, rawPrefix, rawNumber, rawChannel, rawIndex);
}

void InternalId::writeWire(char* out) const
{
    out[0] = char(kind);
    putLittleEndian(out + 1, prefix, 2);
    putLittleEndian(out + 3, number, 4);
    putLittleEndian(out + 7, channel, 2);
    out[9] = char(index);
}

InternalId InternalId::readWire(const char* in)
{
    return fromFields(quint8(in[0]), quint16(getLittleEndian(in + 1, 2)), getLittleEndian(in + 3, 4),
                      quint16(getLittleEndian(in + 7, 2)), quint8(in[9]));
}

QDataStream& operator<<(QDataStream& stream, const InternalId& id)
{
    id.serialize(stream);
    return stream;
}

QDataStream& operator>>(QDataStream& stream, InternalId& id)
{
    id.deserialize(stream);
    return stream;
}
