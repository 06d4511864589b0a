#pragma once

#include <QByteArray>
#include <QMetaType>
#include <QtGlobal>

class QDataStream;

// The hub's name for anything it knows: a device, one of its channels, a datapoint or parameter of a
// channel, or a parameter of the device itself.
//
// Text form: the device part is the prefix as 4 and the number as 8 upper-case hex digits; components
// follow, separated by '/', each a name and 4 upper-case hex digits:
//
//   kind  what                    text built by toString()
//   1     device                  BEED00010005
//   2     channel                 BEED00010005/ch0001
//   3     device parameter        BEED00010005/pm0003          (the parameter number lives in channel)
//   4     channel parameter       BEED00010005/ch0001/pm0002
//   5     input datapoint         BEED00010005/ch0001/idp0002
//   6     output datapoint        BEED00010005/ch0001/odp0002
//   7     "sc" component          BEED00010005/ch0001/sc0002
//   8     "fn" component          BEED00010005/ch0001/fn0002
//   11    channel timer sensor    BEED00010005/ch0001/tms0002
//   12    "tma" component         BEED00010005/ch0001/tma0002
//
// Parsing (fromString, the QByteArray constructor and assignment) accepts hex digits of either case:
// - fewer than 12 bytes: logged as too small, the identifier is invalid (kind 255);
// - the device part must be exactly 12 hex digits;
// - a second component starting with "ch" makes a channel, any other second component a device
//   parameter; its number is the 4 hex digits after its 2-character name;
// - a third component is told by its name ("idp", "odp", "pm", "tms", "tma", "sc", "fn"); any other
//   name is logged as an unknown component type and gives kind 255;
// - every number field must be exactly 4 hex digits (and an index must fit in 8 bits), otherwise the
//   kind is 255; more than three components give kind 255 as well.
// The parsed text is kept as the cached text form, so toString() gives back exactly what was parsed.
//
// A default-constructed identifier is invalid. Identity is prefix, number, kind, channel and index; the
// cached text never takes part in comparison, ordering or hashing. The text cache is filled lazily by the
// const toString(), so a single identifier must not be converted to text from two threads at once.
class InternalId
{
public:
    enum Kind : quint8
    {
        Device = 1,
        Channel = 2,
        DeviceParameter = 3,
        ChannelParameter = 4,
        InputDataPoint = 5,
        OutputDataPoint = 6,
        ScComponent = 7,
        FnComponent = 8,
        ChannelTimerSensor = 11,
        TmaComponent = 12,
        Invalid = 255,
    };

    // Bytes of the wire form: kind, prefix, number, channel, index, integers little-endian like every
    // integer of the hub's socket messages.
    static constexpr int WireSize = 10;

    InternalId() noexcept = default;
    InternalId(quint16 prefix, quint32 number) noexcept : number(number), prefix(prefix), kind(Device) {}
    explicit InternalId(const QByteArray& source) { parse(source); }
    InternalId& operator=(const QByteArray& source);

    static InternalId fromString(const QByteArray& source) { return InternalId(source); }

    static InternalId makeDeviceSerial(quint16 prefix, quint32 number) { return {prefix, number}; }
    static InternalId makeDeviceSerial(const InternalId& id) { return {id.prefix, id.number}; }
    static InternalId makeChannelSerial(quint16 prefix, quint32 number, quint16 channel)
    {
        return {prefix, number, Channel, channel, 0};
    }
    static InternalId makeChannelSerial(const InternalId& id, quint16 channel)
    {
        return makeChannelSerial(id.prefix, id.number, channel);
    }
    static InternalId makeDeviceParameterSerial(quint16 prefix, quint32 number, quint16 parameter)
    {
        return {prefix, number, DeviceParameter, parameter, 0};
    }
    static InternalId makeDeviceParameterSerial(const InternalId& id, quint16 parameter)
    {
        return makeDeviceParameterSerial(id.prefix, id.number, parameter);
    }
    static InternalId makeChannelParameterSerial(quint16 prefix, quint32 number, quint16 channel,
                                                 quint8 index)
    {
        return {prefix, number, ChannelParameter, channel, index};
    }
    static InternalId makeChannelParameterSerial(const InternalId& id, quint16 channel, quint8 index)
    {
        return makeChannelParameterSerial(id.prefix, id.number, channel, index);
    }
    static InternalId makeInputDataPointSerial(quint16 prefix, quint32 number, quint16 channel, quint8 index)
    {
        return {prefix, number, InputDataPoint, channel, index};
    }
    static InternalId makeInputDataPointSerial(const InternalId& id, quint16 channel, quint8 index)
    {
        return makeInputDataPointSerial(id.prefix, id.number, channel, index);
    }
    static InternalId makeOutputDataPointSerial(quint16 prefix, quint32 number, quint16 channel, quint8 index)
    {
        return {prefix, number, OutputDataPoint, channel, index};
    }
    static InternalId makeOutputDataPointSerial(const InternalId& id, quint16 channel, quint8 index)
    {
        return makeOutputDataPointSerial(id.prefix, id.number, channel, index);
    }
    static InternalId makeChannelTimerSensorSerial(quint16 prefix, quint32 number, quint16 channel,
                                                   quint8 index)
    {
        return {prefix, number, ChannelTimerSensor, channel, index};
    }
    static InternalId makeChannelTimerSensorSerial(const InternalId& id, quint16 channel, quint8 index)
    {
        return makeChannelTimerSensorSerial(id.prefix, id.number, channel, index);
    }

    bool isValid() const { return kind != Invalid; }
    Kind getKind() const { return kind; }
    quint16 getPrefix() const { return prefix; }
    quint32 getNumber() const { return number; }
    // For a device parameter this is the parameter number.
    quint16 getChannel() const { return channel; }
    quint8 getIndex() const { return index; }

    // Text form as described above; empty for an invalid identifier that was not parsed from text.
    QByteArray toString() const;
    // Text form for log lines: invalid identifiers are marked as such and their text is made printable.
    QByteArray toLoggingString() const;
    // The 12-digit device part, e.g. "BEED00010005"; empty when invalid.
    QByteArray getDeviceName() const;
    // The text form of what this identifier hangs off: the channel of a channel component, the device
    // of a channel or device parameter, the device itself for a device; empty when invalid.
    QByteArray getBaseName() const;

    // The containing device; invalid when this identifier is invalid.
    InternalId toDeviceId() const;
    // The containing channel (itself for a channel); invalid for devices, device parameters and invalid
    // identifiers, which lie in no channel.
    InternalId toChannelId() const;
    // Whether this identifier lies strictly within `other`: a channel or anything of a device within that
    // device, a channel component within that channel. Nothing lies within itself or an invalid one.
    bool isComponentOf(const InternalId& other) const;

    // Settings form: kind, prefix, number, channel, index in the stream's byte order. A stream that runs
    // short or names an unknown kind gives an invalid identifier.
    void serialize(QDataStream& stream) const;
    void deserialize(QDataStream& stream);

    // Writes exactly WireSize bytes.
    void writeWire(char* out) const;
    // Reads exactly WireSize bytes; an unknown kind gives an invalid identifier.
    static InternalId readWire(const char* in);

    bool operator==(const InternalId& o) const
    {
        return number == o.number && prefix == o.prefix && kind == o.kind && channel == o.channel &&
               index == o.index;
    }
    bool operator!=(const InternalId& o) const { return !(*this == o); }
    // Orders by prefix, number, kind, channel, index.
    bool operator<(const InternalId& o) const
    {
        return deviceKindKey() < o.deviceKindKey() ||
               (deviceKindKey() == o.deviceKindKey() && componentKey() < o.componentKey());
    }
    bool operator>(const InternalId& o) const { return o < *this; }
    bool operator<=(const InternalId& o) const { return !(o < *this); }
    bool operator>=(const InternalId& o) const { return !(*this < o); }

    friend uint qHash(const InternalId& id, uint seed = 0) noexcept
    {
        // Multiplying by an odd constant keeps distinct device keys distinct before the rest is mixed in.
        return qHash(id.deviceKindKey() * 0x9E3779B97F4A7C15ull + id.componentKey(), seed);
    }

private:
    InternalId(quint16 prefix, quint32 number, Kind kind, quint16 channel, quint8 index) noexcept
        : number(number), prefix(prefix), kind(kind), index(index), channel(channel)
    {
    }

    // prefix, number and kind packed into 56 bits, channel and index into 24: two integer compares
    // order the whole identity.
    quint64 deviceKindKey() const { return (quint64(prefix) << 40) | (quint64(number) << 8) | kind; }
    quint32 componentKey() const { return (quint32(channel) << 8) | index; }

    void parse(const QByteArray& source);
    QByteArray buildText() const;
    // Fields from a binary form, with those the kind does not use cleared so that the text form
    // reproduces the identifier exactly.
    static InternalId fromFields(quint8 kind, quint16 prefix, quint32 number, quint16 channel, quint8 index);

    quint32 number = 0;
    quint16 prefix = 0;
    Kind kind = Invalid;
    quint8 index = 0;
    quint16 channel = 0;
    mutable bool textStale = true;
    mutable QByteArray text;
};

QDataStream& operator<<(QDataStream& stream, const InternalId& id);
QDataStream& operator>>(QDataStream& stream, InternalId& id);

Q_DECLARE_METATYPE(InternalId)
