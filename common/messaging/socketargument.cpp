#include "socketargument.h"

#include <common/logginginterface.h>

#include <cstring>

namespace {

// Signature names by tag; tag 19 (SocketPromise) has no name of its own.
const char* const kTypeNames[] = {
    "",
    "QString",
    "QByteArray",
    "char",
    "short",
    "int",
    "qlonglong",
    "uchar",
    "ushort",
    "uint",
    "qulonglong",
    "bool",
    "QList<int>",
    "QStringList",
    "InternalId",
    "double",
    "QMap<QString,QString>",
    "QVariantMap",
    "QVariantList",
    "",
};
constexpr int kTypeCount = int(sizeof(kTypeNames) / sizeof(kTypeNames[0]));

// The names used in the "type is not ..." warnings of the typed reads.
const char* const kReadNames[] = {
    "none",       "string8", "bytearray", "char8",      "int16",       "int32",   "int64",
    "uint8",      "uint16",  "uint32",    "uint64",     "bool",        "intlist", "stringlist",
    "internalid", "double",  "stringmap", "variantmap", "variantlist", "promise",
};

using StringMap = QMap<QString, QString>;

template <typename T>
T readAs(SocketArgument::eType actual, const QVariant& value, SocketArgument::eType wanted)
{
    if (actual == wanted)
        return *static_cast<const T*>(value.constData());
    LOG_WARNING << QByteArray("type is not ") + kReadNames[wanted] + " - returning default value type="
                << quint32(actual);
    return T();
}

bool variantsEqual(const QVariant& a, const QVariant& b);

bool variantListsEqual(const QVariantList& a, const QVariantList& b)
{
    if (a.size() != b.size())
        return false;
    for (int i = 0; i < a.size(); ++i) {
        if (!variantsEqual(a.at(i), b.at(i)))
            return false;
    }
    return true;
}

bool variantMapsEqual(const QVariantMap& a, const QVariantMap& b)
{
    if (a.size() != b.size())
        return false;
    for (auto i = a.cbegin(), j = b.cbegin(); i != a.cend(); ++i, ++j) {
        if (i.key() != j.key() || !variantsEqual(i.value(), j.value()))
            return false;
    }
    return true;
}

// Strict equality: the same Qt type and the same value. QVariant's own operator== converts
// (int 1 equals string "1"), which would hide a value coming back as another type.
bool variantsEqual(const QVariant& a, const QVariant& b)
{
    if (a.userType() != b.userType())
        return false;
    switch (a.userType()) {
    case QMetaType::Double: // exact, where QVariant may compare fuzzily
        return *static_cast<const double*>(a.constData()) == *static_cast<const double*>(b.constData());
    case QMetaType::QVariantMap:
        return variantMapsEqual(*static_cast<const QVariantMap*>(a.constData()),
                                *static_cast<const QVariantMap*>(b.constData()));
    case QMetaType::QVariantList:
        return variantListsEqual(*static_cast<const QVariantList*>(a.constData()),
                                 *static_cast<const QVariantList*>(b.constData()));
    default:
        return a == b;
    }
}

} // namespace

SocketArgument::SocketArgument(eType type) : m_type(type)
{
    switch (type) {
    case String:
        m_value = QString();
        break;
    case ByteArray:
        m_value = QByteArray();
        break;
    case Char:
        m_value = QVariant::fromValue(char(0));
        break;
    case Short:
        m_value = QVariant::fromValue(qint16(0));
        break;
    case Int:
        m_value = QVariant::fromValue(qint32(0));
        break;
    case LongLong:
        m_value = QVariant::fromValue(qint64(0));
        break;
    case UChar:
        m_value = QVariant::fromValue(quint8(0));
        break;
    case UShort:
        m_value = QVariant::fromValue(quint16(0));
        break;
    case UInt:
        m_value = QVariant::fromValue(quint32(0));
        break;
    case ULongLong:
        m_value = QVariant::fromValue(quint64(0));
        break;
    case Bool:
        m_value = false;
        break;
    case IntList:
        m_value = QVariant::fromValue(QList<int>());
        break;
    case StringList:
        m_value = QStringList();
        break;
    case Id:
        break; // m_id is already the default identifier
    case Double:
        m_value = 0.0;
        break;
    case StringMap:
        m_value = QVariant::fromValue(::StringMap());
        break;
    case VariantMap:
        m_value = QVariantMap();
        break;
    case VariantList:
        m_value = QVariantList();
        break;
    case None:
    case Promise:
        break;
    default:
        // Not a tag of the messaging: keep the argument empty rather than half-typed.
        m_type = None;
        break;
    }
}

SocketArgument::SocketArgument(const QString& value) : m_type(String), m_value(value) {}
SocketArgument::SocketArgument(const char* utf8) : m_type(String), m_value(QString::fromUtf8(utf8)) {}
SocketArgument::SocketArgument(const QByteArray& value) : m_type(ByteArray), m_value(value) {}
SocketArgument::SocketArgument(char value) : m_type(Char), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(qint16 value) : m_type(Short), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(qint32 value) : m_type(Int), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(qint64 value) : m_type(LongLong), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(quint8 value) : m_type(UChar), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(quint16 value) : m_type(UShort), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(quint32 value) : m_type(UInt), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(quint64 value) : m_type(ULongLong), m_value(QVariant::fromValue(value)) {}
SocketArgument::SocketArgument(bool value) : m_type(Bool), m_value(value) {}
SocketArgument::SocketArgument(const QList<int>& value) : m_type(IntList), m_value(QVariant::fromValue(value))
{
}
SocketArgument::SocketArgument(const QStringList& value) : m_type(StringList), m_value(value) {}
SocketArgument::SocketArgument(const InternalId& value) : m_type(Id), m_id(value) {}
SocketArgument::SocketArgument(double value) : m_type(Double), m_value(value) {}
SocketArgument::SocketArgument(const QMap<QString, QString>& value)
    : m_type(StringMap), m_value(QVariant::fromValue(value))
{
}
SocketArgument::SocketArgument(const QVariantMap& value) : m_type(VariantMap), m_value(value) {}
SocketArgument::SocketArgument(const QVariantList& value) : m_type(VariantList), m_value(value) {}

namespace {

// The Qt type that holds a value of each tag; 0 where the tag carries no value.
int metaTypeOf(SocketArgument::eType type)
{
    switch (type) {
    case SocketArgument::String:
        return QMetaType::QString;
    case SocketArgument::ByteArray:
        return QMetaType::QByteArray;
    case SocketArgument::Char:
        return QMetaType::Char;
    case SocketArgument::Short:
        return QMetaType::Short;
    case SocketArgument::Int:
        return QMetaType::Int;
    case SocketArgument::LongLong:
        return QMetaType::LongLong;
    case SocketArgument::UChar:
        return QMetaType::UChar;
    case SocketArgument::UShort:
        return QMetaType::UShort;
    case SocketArgument::UInt:
        return QMetaType::UInt;
    case SocketArgument::ULongLong:
        return QMetaType::ULongLong;
    case SocketArgument::Bool:
        return QMetaType::Bool;
    case SocketArgument::IntList:
        return qMetaTypeId<QList<int>>();
    case SocketArgument::StringList:
        return QMetaType::QStringList;
    case SocketArgument::Id:
        return qMetaTypeId<InternalId>();
    case SocketArgument::Double:
        return QMetaType::Double;
    case SocketArgument::StringMap:
        return qMetaTypeId<StringMap>();
    case SocketArgument::VariantMap:
        return QMetaType::QVariantMap;
    case SocketArgument::VariantList:
        return QMetaType::QVariantList;
    default:
        return 0;
    }
}

// Types that QVariant::convert cannot produce from anything else: only the exact type will do.
bool needsExactType(SocketArgument::eType type)
{
    return type == SocketArgument::IntList || type == SocketArgument::Id || type == SocketArgument::StringMap;
}

} // namespace

SocketArgument SocketArgument::fromVariant(eType type, const QVariant& value)
{
    const int wanted = metaTypeOf(type);
    if (wanted == 0 || !value.isValid())
        return SocketArgument();
    SocketArgument result;
    if (value.userType() == wanted) {
        result.m_value = value;
    } else {
        if (needsExactType(type))
            return SocketArgument();
        QVariant converted = value;
        if (!converted.convert(wanted))
            return SocketArgument();
        result.m_value = std::move(converted);
    }
    result.m_type = type;
    if (type == Id)
        result.m_id = *static_cast<const InternalId*>(result.m_value.constData());
    return result;
}

const QVariant& SocketArgument::toVariant() const
{
    if (m_type == Id && !m_value.isValid())
        m_value = QVariant::fromValue(m_id);
    return m_value;
}

void SocketArgument::setTypeFromString(const QString& name)
{
    *this = SocketArgument(typeFromName(name.toLatin1()));
}

const char* SocketArgument::typeName(eType type)
{
    return quint32(type) < quint32(kTypeCount) ? kTypeNames[type] : "";
}

SocketArgument::eType SocketArgument::typeFromName(const QByteArray& name)
{
    // The map is spelled with a blank here, without one in typeName(): signatures written by
    // this side are compared as text elsewhere, so both spellings must stay as they are.
    if (name == "QMap<QString, QString>")
        return StringMap;
    if (name == "SocketPromise")
        return Promise;
    for (int tag = 1; tag < kTypeCount; ++tag) {
        if (tag != StringMap && name == kTypeNames[tag])
            return eType(tag);
    }
    return None;
}

QString SocketArgument::toString() const
{
    return readAs<QString>(m_type, m_value, String);
}

QByteArray SocketArgument::toByteArray() const
{
    return readAs<QByteArray>(m_type, m_value, ByteArray);
}

char SocketArgument::toChar() const
{
    return readAs<char>(m_type, m_value, Char);
}

qint16 SocketArgument::toShort() const
{
    return readAs<qint16>(m_type, m_value, Short);
}

qint32 SocketArgument::toInt() const
{
    return readAs<qint32>(m_type, m_value, Int);
}

qint64 SocketArgument::toLongLong() const
{
    return readAs<qint64>(m_type, m_value, LongLong);
}

quint8 SocketArgument::toUChar() const
{
    return readAs<quint8>(m_type, m_value, UChar);
}

quint16 SocketArgument::toUShort() const
{
    return readAs<quint16>(m_type, m_value, UShort);
}

quint32 SocketArgument::toUInt() const
{
    return readAs<quint32>(m_type, m_value, UInt);
}

quint64 SocketArgument::toULongLong() const
{
    return readAs<quint64>(m_type, m_value, ULongLong);
}

bool SocketArgument::toBool() const
{
    return readAs<bool>(m_type, m_value, Bool);
}

QList<int> SocketArgument::toIntList() const
{
    return readAs<QList<int>>(m_type, m_value, IntList);
}

QStringList SocketArgument::toStringList() const
{
    return readAs<QStringList>(m_type, m_value, StringList);
}

InternalId SocketArgument::toInternalId() const
{
    if (m_type == Id)
        return m_id;
    return readAs<InternalId>(m_type, m_value, Id); // logs the mismatch
}

double SocketArgument::toDouble() const
{
    return readAs<double>(m_type, m_value, Double);
}

QMap<QString, QString> SocketArgument::toStringMap() const
{
    return readAs<::StringMap>(m_type, m_value, StringMap);
}

QVariantMap SocketArgument::toVariantMap() const
{
    return readAs<QVariantMap>(m_type, m_value, VariantMap);
}

QVariantList SocketArgument::toVariantList() const
{
    return readAs<QVariantList>(m_type, m_value, VariantList);
}

bool SocketArgument::operator==(const SocketArgument& other) const
{
    if (m_type != other.m_type)
        return false;
    switch (m_type) {
    case None:
    case Promise:
        return true;
    case IntList:
        return *static_cast<const QList<int>*>(m_value.constData()) ==
               *static_cast<const QList<int>*>(other.m_value.constData());
    case Id:
        return m_id == other.m_id;
    case StringMap:
        return *static_cast<const ::StringMap*>(m_value.constData()) ==
               *static_cast<const ::StringMap*>(other.m_value.constData());
    default:
        return variantsEqual(m_value, other.m_value);
    }
}
