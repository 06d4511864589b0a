#include "socketwire.h"

#include <common/logginginterface.h>

#include <QtEndian>

#include <climits>
#include <cmath>
#include <cstring>

namespace socketwire {

namespace {

constexpr int kMinExponent = -1024; // range of the 11-bit two's-complement exponent field
constexpr int kMaxExponent = 1023;
constexpr int kMantissaBits = 52;
constexpr quint64 kMaxMantissa = (quint64(1) << kMantissaBits) - 1;

template <typename T> void appendLittleEndian(QByteArray& out, T value)
{
    char bytes[sizeof(T)];
    qToLittleEndian(value, bytes);
    out.append(bytes, int(sizeof(T)));
}

// Patches an int32 count written earlier as a placeholder.
void patchCount(QByteArray& out, int at, qint32 count)
{
    qToLittleEndian(count, out.data() + at);
}

bool appendTaggedVariant(QByteArray& out, const QVariant& value, int depth);

void appendVariantMap(QByteArray& out, const QVariantMap& map, int depth)
{
    const int countAt = out.size();
    appendUInt32(out, 0);
    qint32 written = 0;
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        const int entryAt = out.size();
        appendString(out, it.key());
        if (appendTaggedVariant(out, it.value(), depth))
            ++written;
        else
            out.truncate(entryAt); // the key goes too: a key without a value cannot be parsed
    }
    patchCount(out, countAt, written);
}

void appendVariantList(QByteArray& out, const QVariantList& list, int depth)
{
    const int countAt = out.size();
    appendUInt32(out, 0);
    qint32 written = 0;
    for (const QVariant& value : list) {
        if (appendTaggedVariant(out, value, depth))
            ++written;
    }
    patchCount(out, countAt, written);
}

void appendStringList(QByteArray& out, const QStringList& list)
{
    appendUInt32(out, quint32(list.size()));
    for (const QString& text : list)
        appendString(out, text);
}

// One tagged value inside a QVariantMap or QVariantList. Returns false, with nothing
// written, for a value that has no byte form.
bool appendTaggedVariant(QByteArray& out, const QVariant& value, int depth)
{
    const int type = value.userType();
    if ((type == QMetaType::QVariantMap || type == QMetaType::QVariantList) && depth >= kMaxNesting) {
        LOG_ERROR << "WRITE invalid QVariantMap value from type" << type << "nested deeper than"
                  << kMaxNesting;
        return false;
    }
    switch (type) {
    case QMetaType::Bool:
        appendUInt8(out, SocketArgument::Bool);
        appendUInt8(out, value.toBool() ? 1 : 0);
        return true;
    case QMetaType::Int:
        appendUInt8(out, SocketArgument::Int);
        appendUInt32(out, quint32(value.toInt()));
        return true;
    case QMetaType::UInt:
        appendUInt8(out, SocketArgument::UInt);
        appendUInt32(out, value.toUInt());
        return true;
    case QMetaType::LongLong:
        appendUInt8(out, SocketArgument::LongLong);
        appendUInt64(out, quint64(value.toLongLong()));
        return true;
    case QMetaType::ULongLong:
        appendUInt8(out, SocketArgument::ULongLong);
        appendUInt64(out, value.toULongLong());
        return true;
    case QMetaType::Double:
        appendUInt8(out, SocketArgument::Double);
        appendDouble(out, value.toDouble());
        return true;
    case QMetaType::QVariantMap:
        appendUInt8(out, SocketArgument::VariantMap);
        appendVariantMap(out, *static_cast<const QVariantMap*>(value.constData()), depth + 1);
        return true;
    case QMetaType::QVariantList:
        appendUInt8(out, SocketArgument::VariantList);
        appendVariantList(out, *static_cast<const QVariantList*>(value.constData()), depth + 1);
        return true;
    case QMetaType::QString:
        // Strings inside containers travel as byte arrays (tag 2) holding their UTF-8.
        appendUInt8(out, SocketArgument::ByteArray);
        appendString(out, *static_cast<const QString*>(value.constData()));
        return true;
    case QMetaType::QStringList:
        appendUInt8(out, SocketArgument::StringList);
        appendStringList(out, *static_cast<const QStringList*>(value.constData()));
        return true;
    case QMetaType::QByteArray:
        appendUInt8(out, SocketArgument::ByteArray);
        appendSizedBytes(out, *static_cast<const QByteArray*>(value.constData()));
        return true;
    default:
        LOG_ERROR << "WRITE invalid QVariantMap value from type" << type;
        return false;
    }
}

template <typename T> const T& valueOf(const SocketArgument& argument)
{
    return *static_cast<const T*>(argument.toVariant().constData());
}

} // namespace

void appendUInt8(QByteArray& out, quint8 value)
{
    out.append(char(value));
}

void appendUInt16(QByteArray& out, quint16 value)
{
    appendLittleEndian(out, value);
}

void appendUInt32(QByteArray& out, quint32 value)
{
    appendLittleEndian(out, value);
}

void appendUInt64(QByteArray& out, quint64 value)
{
    appendLittleEndian(out, value);
}

void appendDouble(QByteArray& out, double value)
{
    unsigned char bytes[kDoubleSize];
    encodeDouble(value, bytes);
    out.append(reinterpret_cast<const char*>(bytes), kDoubleSize);
}

void appendInternalId(QByteArray& out, const InternalId& id)
{
    static_assert(InternalId::WireSize == kInternalIdSize, "InternalId wire size");
    char bytes[kInternalIdSize];
    id.writeWire(bytes);
    out.append(bytes, kInternalIdSize);
}

void appendSizedBytes(QByteArray& out, const QByteArray& bytes)
{
    appendUInt32(out, quint32(bytes.size()));
    out.append(bytes);
}

void appendString(QByteArray& out, const QString& text)
{
    // Most names and values are ASCII: copy them straight into the output instead of
    // building a temporary UTF-8 array first.
    const int start = out.size();
    const int length = text.size();
    out.resize(start + 4 + length);
    char* dest = out.data() + start + 4;
    const QChar* src = text.constData();
    for (int i = 0; i < length; ++i) {
        const ushort unit = src[i].unicode();
        if (unit >= 0x80) {
            out.truncate(start);
            appendSizedBytes(out, text.toUtf8());
            return;
        }
        dest[i] = char(unit);
    }
    patchCount(out, start, length);
}

void appendArgument(QByteArray& out, const SocketArgument& argument)
{
    const SocketArgument::eType type = argument.type();
    if (type < SocketArgument::String || type > SocketArgument::VariantList) {
        appendUInt8(out, quint8(type));
        return;
    }
    appendUInt8(out, quint8(type));
    switch (type) {
    case SocketArgument::String:
        appendString(out, valueOf<QString>(argument));
        break;
    case SocketArgument::ByteArray:
        appendSizedBytes(out, valueOf<QByteArray>(argument));
        break;
    case SocketArgument::Char:
        appendUInt8(out, quint8(valueOf<char>(argument)));
        break;
    case SocketArgument::Short:
        appendUInt16(out, quint16(valueOf<qint16>(argument)));
        break;
    case SocketArgument::Int:
        appendUInt32(out, quint32(valueOf<qint32>(argument)));
        break;
    case SocketArgument::LongLong:
        appendUInt64(out, quint64(valueOf<qint64>(argument)));
        break;
    case SocketArgument::UChar:
        appendUInt8(out, valueOf<quint8>(argument));
        break;
    case SocketArgument::UShort:
        appendUInt16(out, valueOf<quint16>(argument));
        break;
    case SocketArgument::UInt:
        appendUInt32(out, valueOf<quint32>(argument));
        break;
    case SocketArgument::ULongLong:
        appendUInt64(out, valueOf<quint64>(argument));
        break;
    case SocketArgument::Bool:
        appendUInt8(out, valueOf<bool>(argument) ? 1 : 0);
        break;
    case SocketArgument::IntList: {
        const QList<int>& list = valueOf<QList<int>>(argument);
        appendUInt32(out, quint32(list.size()));
        for (int value : list)
            appendUInt32(out, quint32(value));
        break;
    }
    case SocketArgument::StringList:
        appendStringList(out, valueOf<QStringList>(argument));
        break;
    case SocketArgument::Id:
        appendInternalId(out, argument.toInternalId());
        break;
    case SocketArgument::Double:
        appendDouble(out, valueOf<double>(argument));
        break;
    case SocketArgument::StringMap: {
        const auto& map = valueOf<QMap<QString, QString>>(argument);
        appendUInt32(out, quint32(map.size()));
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            appendString(out, it.key());
            appendString(out, it.value());
        }
        break;
    }
    case SocketArgument::VariantMap:
        appendVariantMap(out, valueOf<QVariantMap>(argument), 1);
        break;
    case SocketArgument::VariantList:
        appendVariantList(out, valueOf<QVariantList>(argument), 1);
        break;
    default:
        break;
    }
}

void encodeDouble(double value, unsigned char out[kDoubleSize])
{
    std::memset(out, 0, kDoubleSize);
    if (std::isnan(value)) {
        LOG_WARNING << "double NaN cannot be sent, sending 0";
        return;
    }
    const bool negative = value < 0;
    quint64 mantissa = 0;
    int exponent = 0;
    if (value == 0)
        return;
    const double fraction = std::isinf(value) ? 0.0 : std::frexp(std::fabs(value), &exponent);
    if (std::isinf(value) || exponent > kMaxExponent) {
        LOG_WARNING << "double" << value << "out of range, sending the largest magnitude";
        mantissa = kMaxMantissa;
        exponent = kMaxExponent;
    } else {
        // Below the field's range the mantissa gives up its low bits instead (exact for every
        // subnormal double the field can carry at all).
        const int shift = exponent < kMinExponent ? kMinExponent - exponent : 0;
        exponent += shift;
        mantissa = quint64(std::ldexp(fraction, kMantissaBits - shift)); // < 2^52: truncates
        if (mantissa == 0)
            return;
    }
    const quint32 field = quint32(exponent) & 0x7FF;
    for (int i = 0; i < 6; ++i)
        out[i] = quint8(mantissa >> (8 * i));
    out[6] = quint8(((mantissa >> 48) & 0x0F) | ((field & 0x0F) << 4));
    out[7] = quint8(((field >> 4) & 0x7F) | (negative ? 0x80 : 0));
}

double decodeDouble(const unsigned char in[kDoubleSize])
{
    quint64 mantissa = quint64(in[6] & 0x0F) << 48;
    for (int i = 0; i < 6; ++i)
        mantissa |= quint64(in[i]) << (8 * i);
    const int field = (in[6] >> 4) | ((in[7] & 0x7F) << 4);
    const int exponent = field > kMaxExponent ? field - 2048 : field;
    const double magnitude = std::ldexp(double(mantissa), exponent - kMantissaBits);
    return (in[7] & 0x80) ? -magnitude : magnitude;
}

// ---- Reader -------------------------------------------------------------------------------

Reader::Result Reader::needMore(qint64 bytes)
{
    const qint64 needed = qint64(m_pos) + bytes;
    m_needed = needed > qint64(INT_MAX) ? INT_MAX : int(needed);
    return NeedMore;
}

template <typename T>
Reader::Result Reader::readLittleEndian(T& value)
{
    if (remaining() < int(sizeof(T)))
        return needMore(sizeof(T));
    value = qFromLittleEndian<T>(m_data + m_pos);
    m_pos += int(sizeof(T));
    return Done;
}

Reader::Result Reader::readUInt8(quint8& value)
{
    return readLittleEndian(value);
}

Reader::Result Reader::readUInt16(quint16& value)
{
    return readLittleEndian(value);
}

Reader::Result Reader::readUInt32(quint32& value)
{
    return readLittleEndian(value);
}

Reader::Result Reader::readUInt64(quint64& value)
{
    return readLittleEndian(value);
}

Reader::Result Reader::readDouble(double& value)
{
    if (remaining() < kDoubleSize)
        return needMore(kDoubleSize);
    value = decodeDouble(reinterpret_cast<const unsigned char*>(m_data + m_pos));
    m_pos += kDoubleSize;
    return Done;
}

Reader::Result Reader::readInternalId(InternalId& id)
{
    if (remaining() < kInternalIdSize)
        return needMore(kInternalIdSize);
    id = InternalId::readWire(m_data + m_pos);
    m_pos += kInternalIdSize;
    return Done;
}

Reader::Result Reader::checkCount(qint32 count, int minBytes)
{
    // Checked before anything is allocated: a count must be backed by bytes that are there.
    if (count < 0 || qint64(count) * minBytes > kMaxMessageSize)
        return Broken;
    if (qint64(count) * minBytes > remaining())
        return needMore(qint64(count) * minBytes);
    return Done;
}

Reader::Result Reader::readCount(qint32& count, int minBytes)
{
    if (remaining() < 4)
        return needMore(4);
    count = qFromLittleEndian<qint32>(m_data + m_pos);
    m_pos += 4;
    const Result result = checkCount(count, minBytes);
    if (result != Done)
        m_pos -= 4;
    return result;
}

Reader::Result Reader::readSizedBytes(QByteArray& bytes)
{
    qint32 count = 0;
    const Result result = readCount(count, 1);
    if (result != Done)
        return result;
    bytes = QByteArray(m_data + m_pos, count);
    m_pos += count;
    return Done;
}

Reader::Result Reader::readString(QString& text)
{
    qint32 count = 0;
    const Result result = readCount(count, 1);
    if (result != Done)
        return result;
    text = QString::fromUtf8(m_data + m_pos, count);
    m_pos += count;
    return Done;
}

Reader::Result Reader::readNulTerminated(QByteArray& bytes)
{
    const void* nul = std::memchr(m_data + m_pos, 0, size_t(remaining()));
    if (!nul)
        return needMore(qint64(remaining()) + 1);
    const int length = int(static_cast<const char*>(nul) - (m_data + m_pos));
    bytes = QByteArray(m_data + m_pos, length);
    m_pos += length + 1;
    return Done;
}

Reader::Result Reader::readIntList(QList<int>& list)
{
    qint32 count = 0;
    Result result = readCount(count, 4);
    if (result != Done)
        return result;
    list.clear();
    list.reserve(count);
    for (qint32 i = 0; i < count; ++i) {
        list.append(qFromLittleEndian<qint32>(m_data + m_pos));
        m_pos += 4;
    }
    return Done;
}

Reader::Result Reader::readStringList(QStringList& list)
{
    qint32 count = 0;
    Result result = readCount(count, 4);
    if (result != Done)
        return result;
    list.clear();
    list.reserve(count);
    for (qint32 i = 0; i < count; ++i) {
        QString text;
        if ((result = readString(text)) != Done)
            return result;
        list.append(std::move(text));
    }
    return Done;
}

Reader::Result Reader::readStringMap(QMap<QString, QString>& map)
{
    qint32 count = 0;
    Result result = readCount(count, 8);
    if (result != Done)
        return result;
    map.clear();
    for (qint32 i = 0; i < count; ++i) {
        QString key;
        QString value;
        if ((result = readString(key)) != Done || (result = readString(value)) != Done)
            return result;
        map.insert(map.cend(), key, value); // keys usually arrive sorted: a correct hint is O(1)
    }
    return Done;
}

Reader::Result Reader::readVariantMap(QVariantMap& map, int depth)
{
    if (depth > kMaxNesting)
        return Broken;
    qint32 count = 0;
    Result result = readCount(count, 4 + 2); // key count, tag, at least one value byte
    if (result != Done)
        return result;
    map.clear();
    for (qint32 i = 0; i < count; ++i) {
        QString key;
        QVariant value;
        if ((result = readString(key)) != Done || (result = readTaggedVariant(value, depth)) != Done)
            return result;
        map.insert(map.cend(), key, value); // keys usually arrive sorted: a correct hint is O(1)
    }
    return Done;
}

Reader::Result Reader::readVariantList(QVariantList& list, int depth)
{
    if (depth > kMaxNesting)
        return Broken;
    qint32 count = 0;
    Result result = readCount(count, 2); // tag, at least one value byte
    if (result != Done)
        return result;
    list.clear();
    list.reserve(count);
    for (qint32 i = 0; i < count; ++i) {
        QVariant value;
        if ((result = readTaggedVariant(value, depth)) != Done)
            return result;
        list.append(std::move(value));
    }
    return Done;
}

// Only the tags that the writer of container values produces; anything else is Broken so that
// what is read can be written back to the same bytes.
Reader::Result Reader::readTaggedVariant(QVariant& value, int depth)
{
    quint8 tag = 0;
    Result result = readUInt8(tag);
    if (result != Done)
        return result;
    switch (tag) {
    case SocketArgument::Bool:
    case SocketArgument::Int:
    case SocketArgument::UInt:
    case SocketArgument::LongLong:
    case SocketArgument::ULongLong:
    case SocketArgument::Double:
    case SocketArgument::ByteArray:
    case SocketArgument::StringList:
    case SocketArgument::VariantMap:
    case SocketArgument::VariantList: {
        // An argument of these types holds exactly the QVariant that the container needs.
        SocketArgument argument;
        result = readValueAt(SocketArgument::eType(tag), argument, depth);
        value = argument.toVariant();
        return result;
    }
    default:
        return Broken;
    }
}

Reader::Result Reader::readValueAt(SocketArgument::eType type, SocketArgument& value, int depth)
{
    Result result = Broken;
    switch (type) {
    case SocketArgument::String: {
        QString text;
        result = readString(text);
        value = SocketArgument(text);
        break;
    }
    case SocketArgument::ByteArray: {
        QByteArray bytes;
        result = readSizedBytes(bytes);
        value = SocketArgument(bytes);
        break;
    }
    case SocketArgument::Char:
    case SocketArgument::UChar:
    case SocketArgument::Bool: {
        quint8 raw = 0;
        result = readUInt8(raw);
        if (type == SocketArgument::Char)
            value = SocketArgument(char(raw));
        else if (type == SocketArgument::UChar)
            value = SocketArgument(raw);
        else
            value = SocketArgument(raw != 0);
        break;
    }
    case SocketArgument::Short:
    case SocketArgument::UShort: {
        quint16 raw = 0;
        result = readUInt16(raw);
        value = type == SocketArgument::Short ? SocketArgument(qint16(raw)) : SocketArgument(raw);
        break;
    }
    case SocketArgument::Int:
    case SocketArgument::UInt: {
        quint32 raw = 0;
        result = readUInt32(raw);
        value = type == SocketArgument::Int ? SocketArgument(qint32(raw)) : SocketArgument(raw);
        break;
    }
    case SocketArgument::LongLong:
    case SocketArgument::ULongLong: {
        quint64 raw = 0;
        result = readUInt64(raw);
        value = type == SocketArgument::LongLong ? SocketArgument(qint64(raw)) : SocketArgument(raw);
        break;
    }
    case SocketArgument::IntList: {
        QList<int> list;
        result = readIntList(list);
        value = SocketArgument(list);
        break;
    }
    case SocketArgument::StringList: {
        QStringList list;
        result = readStringList(list);
        value = SocketArgument(list);
        break;
    }
    case SocketArgument::Id: {
        InternalId id;
        result = readInternalId(id);
        value = SocketArgument(id);
        break;
    }
    case SocketArgument::Double: {
        double number = 0;
        result = readDouble(number);
        value = SocketArgument(number);
        break;
    }
    case SocketArgument::StringMap: {
        QMap<QString, QString> map;
        result = readStringMap(map);
        value = SocketArgument(map);
        break;
    }
    case SocketArgument::VariantMap: {
        QVariantMap map;
        result = readVariantMap(map, depth + 1);
        value = SocketArgument(map);
        break;
    }
    case SocketArgument::VariantList: {
        QVariantList list;
        result = readVariantList(list, depth + 1);
        value = SocketArgument(list);
        break;
    }
    default:
        break;
    }
    return result;
}

Reader::Result Reader::readValue(SocketArgument::eType type, SocketArgument& value)
{
    const int start = m_pos;
    const Result result = readValueAt(type, value, 0);
    if (result != Done) {
        m_pos = start;
        value = SocketArgument();
    }
    return result;
}

} // namespace socketwire
