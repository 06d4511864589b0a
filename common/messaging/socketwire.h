#pragma once

#include "socketargument.h"

#include <QByteArray>

// The byte forms of the hub's socket messaging, apart from any socket. All multi-byte
// integers are little-endian.
namespace socketwire {

constexpr quint32 kSyncWord = 0xA3D7BF45; // bytes 45 BF D7 A3
constexpr int kMaxArguments = 10;
constexpr int kInternalIdSize = 10;
constexpr int kDoubleSize = 8;
// QVariantMap/QVariantList nesting deeper than this is neither written nor read: a hostile
// peer must not be able to exhaust the stack of a reader.
constexpr int kMaxNesting = 64;
// Upper bound for one message. A count whose values cannot fit into it makes the message
// broken instead of making the reader wait for (and buffer) gigabytes.
constexpr int kMaxMessageSize = 64 * 1024 * 1024;

enum MessageType : quint8
{
    CallWithReply = 0, // query id, method name, arguments
    CallNoReply = 1,   // method name, arguments
    Signal = 2,        // signal name, arguments
    Reply = 3,         // query id, success, on success one argument
    ClientName = 4,    // one argument: the connecting client's name
    Subscription = 5,  // one argument: the signature of the signal to subscribe to
};

// Writers: append the byte form to `out`.
void appendUInt8(QByteArray& out, quint8 value);
void appendUInt16(QByteArray& out, quint16 value);
void appendUInt32(QByteArray& out, quint32 value);
void appendUInt64(QByteArray& out, quint64 value);
void appendDouble(QByteArray& out, double value);
void appendInternalId(QByteArray& out, const InternalId& id);
void appendSizedBytes(QByteArray& out, const QByteArray& bytes); // int32 count, then the bytes
void appendString(QByteArray& out, const QString& text);         // int32 count, then UTF-8
// The argument's tag byte and its value. A tag outside 1..18 is written as the tag alone;
// a QVariant of a type that has no tag inside a map or list is logged ("WRITE invalid
// QVariantMap value from type") and left out entirely: the entry is not written and the
// container's count covers only the entries written, so the bytes stay parseable. The same
// holds for containers nested deeper than kMaxNesting.
void appendArgument(QByteArray& out, const SocketArgument& argument);

// The hub's 8-byte double (not IEEE): with m, e = frexp(|v|) and M = int(m * 2^52),
// bytes 0..5 bits 0..47 of M; byte 6 bits 48..51 of M (low nibble) and bits 0..3 of e
// (high nibble); byte 7 bits 4..10 of e (bits 0..6) and the sign of v (bit 7). e is an
// 11-bit two's-complement field (-1024..1023). Zero, -0.0 included, is eight zero bytes.
// Values the field cannot hold are mapped, with a warning in the log:
// - NaN is written as zero;
// - infinities and finite values of 2^1023 or more keep their sign and become the largest
//   magnitude the form holds, (1 - 2^-52) * 2^1023;
// - magnitudes below 2^-1025 are written with e = -1024 and M shifted right (no log: this
//   is exact for every subnormal double the form can carry, and zero below that).
void encodeDouble(double value, unsigned char out[kDoubleSize]);
// (M / 2^52) * 2^e, negated when the sign bit is set. Never NaN or infinite.
double decodeDouble(const unsigned char in[kDoubleSize]);

// Reads byte forms from a buffer that may end anywhere: each read either succeeds and
// advances, reports that more bytes are needed (position unchanged), or that the bytes
// cannot be a valid value.
class Reader
{
public:
    enum Result
    {
        Done,
        NeedMore,
        Broken,
    };

    Reader(const char* data, int size, int position = 0) : m_data(data), m_size(size), m_pos(position) {}

    int position() const { return m_pos; }
    int remaining() const { return m_size - m_pos; }
    // After a NeedMore: the buffer size below which retrying the read cannot succeed (a lower
    // bound; the read may still need more once it gets that far).
    int needed() const { return m_needed; }

    Result readUInt8(quint8& value);
    Result readUInt16(quint16& value);
    Result readUInt32(quint32& value);
    Result readUInt64(quint64& value);
    Result readDouble(double& value);
    Result readInternalId(InternalId& id);
    Result readSizedBytes(QByteArray& bytes);    // a negative count is Broken
    Result readString(QString& text);            // int32 count, then UTF-8
    Result readNulTerminated(QByteArray& bytes); // without the NUL
    // One value of the given type (the tag has been read already). Tags outside 1..18 are Broken.
    // Inside QVariantMap/QVariantList only the tags that the writer produces are accepted
    // (2, 5, 6, 9, 10, 11, 13, 15, 17, 18); tag 2 reads as a QByteArray.
    Result readValue(SocketArgument::eType type, SocketArgument& value);

private:
    Result needMore(qint64 bytes);
    template <typename T>
    Result readLittleEndian(T& value);
    // Fails unless `count` elements of at least `minBytes` each can follow: negative or
    // impossible counts are Broken, counts larger than the bytes at hand NeedMore.
    Result checkCount(qint32 count, int minBytes);
    Result readCount(qint32& count, int minBytes);
    Result readTaggedVariant(QVariant& value, int depth);
    Result readValueAt(SocketArgument::eType type, SocketArgument& value, int depth);
    Result readIntList(QList<int>& list);
    Result readStringList(QStringList& list);
    Result readStringMap(QMap<QString, QString>& map);
    Result readVariantMap(QVariantMap& map, int depth);
    Result readVariantList(QVariantList& list, int depth);

    const char* m_data;
    int m_size;
    int m_pos;
    int m_needed = 0;
};

} // namespace socketwire
