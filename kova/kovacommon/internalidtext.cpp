// Text form of InternalId: parsing, building and the derived names.
#include "hexdigits.h"
#include "internalid.h"

#include <cstring>

namespace {

constexpr int DeviceNameLength = 12; // 4 hex digits prefix, 8 hex digits number
constexpr int FieldDigits = 4;
constexpr int ChannelNameLength = 2; // "ch", or the name of a device-level component
constexpr int MaxTextLength = DeviceNameLength + 1 + 2 + FieldDigits + 1 + 3 + FieldDigits;
constexpr int MaxLoggedLength = 64;

struct ComponentName
{
    const char* name;
    int length;
    InternalId::Kind kind;
};

// Components below a channel, by the name that starts them.
constexpr ComponentName channelComponents[] = {
    {"idp", 3, InternalId::InputDataPoint},  {"odp", 3, InternalId::OutputDataPoint},
    {"pm", 2, InternalId::ChannelParameter}, {"tms", 3, InternalId::ChannelTimerSensor},
    {"tma", 3, InternalId::TmaComponent},    {"sc", 2, InternalId::ScComponent},
    {"fn", 2, InternalId::FnComponent},
};

const ComponentName* componentByName(const char* begin, const char* end)
{
    for (const ComponentName& component : channelComponents) {
        if (end - begin >= component.length && std::memcmp(begin, component.name, component.length) == 0)
            return &component;
    }
    return nullptr;
}

const ComponentName* componentByKind(InternalId::Kind kind)
{
    for (const ComponentName& component : channelComponents) {
        if (component.kind == kind)
            return &component;
    }
    return nullptr;
}

const char* findSlash(const char* begin, const char* end)
{
    const void* slash = std::memchr(begin, '/', size_t(end - begin));
    return slash ? static_cast<const char*>(slash) : end;
}

// A component is its name followed by exactly four hex digits.
bool readField(const char* begin, const char* end, int nameLength, quint32& value)
{
    return end - begin == nameLength + FieldDigits && kova::hex::read(begin + nameLength, FieldDigits, value);
}

char* appendName(char* out, const char* name, int length)
{
    std::memcpy(out, name, size_t(length));
    return out + length;
}

// Keeps log lines on one line and short whatever bytes a peer sent.
QByteArray printable(const QByteArray& text)
{
    QByteArray result = text.left(MaxLoggedLength);
    for (char& c : result) {
        if (c < 0x20 || c > 0x7E)
            c = '?';
    }
    if (text.size() > MaxLoggedLength)
        result += "...";
    return result;
}

} // namespace

void InternalId::parse(const QByteArray& source)
{
    number = 0;
    prefix = 0;
    kind = Invalid;
    index = 0;
    channel = 0;
    text = source;
    textStale = false;

    if (source.size() < DeviceNameLength) {
        qWarning("Tried to construct an InternalId from to small string: %s", printable(source).constData());
        return;
    }
    const char* const begin = source.constData();
    const char* const end = begin + source.size();

    const char* const deviceEnd = findSlash(begin, end);
    quint32 rawPrefix = 0;
    quint32 rawNumber = 0;
    if (deviceEnd - begin != DeviceNameLength || !kova::hex::read(begin, 4, rawPrefix) ||
        !kova::hex::read(begin + 4, 8, rawNumber))
        return;
    prefix = quint16(rawPrefix);
    number = rawNumber;
    if (deviceEnd == end) {
        kind = Device;
        return;
    }

    // The second component is a channel, or a parameter of the device itself.
    const char* const second = deviceEnd + 1;
    const char* const secondEnd = findSlash(second, end);
    quint32 rawChannel = 0;
    const bool channelParsed = readField(second, secondEnd, ChannelNameLength, rawChannel);
    if (channelParsed)
        channel = quint16(rawChannel);
    if (secondEnd == end) {
        if (channelParsed)
            kind = std::memcmp(second, "ch", 2) == 0 ? Channel : DeviceParameter;
        return;
    }

    const char* const third = secondEnd + 1;
    if (findSlash(third, end) != end)
        return;
    const ComponentName* component = componentByName(third, end);
    if (!component) {
        qWarning("unknown component type %s", printable(source).constData());
        return;
    }
    quint32 rawIndex = 0;
    if (!channelParsed || !readField(third, end, component->length, rawIndex) || rawIndex > 0xFF)
        return;
    index = quint8(rawIndex);
    kind = component->kind;
}

QByteArray InternalId::buildText() const
{
    if (!isValid())
        return {};
    char buffer[MaxTextLength];
    char* out = kova::hex::write(buffer, prefix, 4);
    out = kova::hex::write(out, number, 8);
    if (kind != Device) {
        *out++ = '/';
        out = appendName(out, kind == DeviceParameter ? "pm" : "ch", ChannelNameLength);
        out = kova::hex::write(out, channel, FieldDigits);
    }
    if (const ComponentName* component = componentByKind(kind)) {
        *out++ = '/';
        out = appendName(out, component->name, component->length);
        out = kova::hex::write(out, index, FieldDigits);
    }
    return QByteArray(buffer, int(out - buffer));
}

QByteArray InternalId::toString() const
{
    if (textStale) {
        text = buildText();
        textStale = false;
    }
    return text;
}

QByteArray InternalId::toLoggingString() const
{
    if (isValid())
        return toString();
    if (text.isEmpty())
        return QByteArrayLiteral("invalid InternalId");
    return "invalid InternalId \"" + printable(text) + '"';
}

QByteArray InternalId::getDeviceName() const
{
    if (!isValid())
        return {};
    char buffer[DeviceNameLength];
    kova::hex::write(kova::hex::write(buffer, prefix, 4), number, 8);
    return QByteArray(buffer, DeviceNameLength);
}

QByteArray InternalId::getBaseName() const
{
    if (componentByKind(kind))
        return toChannelId().toString();
    return getDeviceName();
}
