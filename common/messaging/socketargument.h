#pragma once

#include <kovacommon/internalid.h>

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariant>

// One typed value of the hub's socket messaging: a type tag and the value. The tags are the
// bytes on the wire; the type names are those of method and signal signatures.
class SocketArgument
{
public:
    enum eType : quint32
    {
        None = 0, // no value; as a tag on the wire it ends an argument list
        String = 1,
        ByteArray = 2,
        Char = 3,
        Short = 4,
        Int = 5,
        LongLong = 6,
        UChar = 7,
        UShort = 8,
        UInt = 9,
        ULongLong = 10,
        Bool = 11,
        IntList = 12,
        StringList = 13,
        Id = 14, // InternalId
        Double = 15,
        StringMap = 16, // QMap<QString,QString>
        VariantMap = 17,
        VariantList = 18,
        Promise = 19, // SocketPromise: marks where a late reply goes; never sent
    };

    SocketArgument() = default;
    explicit SocketArgument(eType type); // the type's default value
    SocketArgument(const QString& value);
    SocketArgument(const char* utf8); // a QString
    SocketArgument(const QByteArray& value);
    SocketArgument(char value);
    SocketArgument(qint16 value);
    SocketArgument(qint32 value);
    SocketArgument(qint64 value);
    SocketArgument(quint8 value);
    SocketArgument(quint16 value);
    SocketArgument(quint32 value);
    SocketArgument(quint64 value);
    SocketArgument(bool value);
    SocketArgument(const QList<int>& value);
    SocketArgument(const QStringList& value);
    SocketArgument(const InternalId& value);
    SocketArgument(double value);
    SocketArgument(const QMap<QString, QString>& value);
    SocketArgument(const QVariantMap& value);
    SocketArgument(const QVariantList& value);

    // A value of the given type from a QVariant (a slot's return value, a slot parameter).
    // Returns an argument of type None when the variant cannot be converted.
    static SocketArgument fromVariant(eType type, const QVariant& value);

    eType type() const { return m_type; }
    bool isNone() const { return m_type == None; }

    // The signature name of the type: "QString", "int", "QMap<QString,QString>", ...;
    // "" for None, Promise and unknown tags.
    QString getTypeString() const { return QString::fromLatin1(typeName(m_type)); }
    // Sets the type (and its default value) from a signature name. Accepts the names of
    // getTypeString except that the map is accepted only as "QMap<QString, QString>" (with a
    // blank), plus "SocketPromise"; any other name gives None.
    void setTypeFromString(const QString& name);

    static const char* typeName(eType type);
    static eType typeFromName(const QByteArray& name);

    // Typed reads. Reading an argument as another type than its own logs the mismatch and
    // returns the requested type's default value.
    QString toString() const;
    QByteArray toByteArray() const;
    char toChar() const;
    qint16 toShort() const;
    qint32 toInt() const;
    qint64 toLongLong() const;
    quint8 toUChar() const;
    quint16 toUShort() const;
    quint32 toUInt() const;
    quint64 toULongLong() const;
    bool toBool() const;
    QList<int> toIntList() const;
    QStringList toStringList() const;
    InternalId toInternalId() const;
    double toDouble() const;
    QMap<QString, QString> toStringMap() const;
    QVariantMap toVariantMap() const;
    QVariantList toVariantList() const;

    // The value as a QVariant of the matching Qt type (for invoking slots). For an InternalId
    // the variant is made on first use, since creating a variant of a custom Qt type costs a
    // look-up in Qt's locked type registry: the first call on one argument object must not
    // race with a call from another thread.
    const QVariant& toVariant() const;

    bool operator==(const SocketArgument& other) const;
    bool operator!=(const SocketArgument& other) const { return !(*this == other); }

private:
    eType m_type = None;
    InternalId m_id;          // the value of an Id argument
    mutable QVariant m_value; // the value of the other types; for an Id made by toVariant()
};

Q_DECLARE_TYPEINFO(SocketArgument, Q_MOVABLE_TYPE);
Q_DECLARE_METATYPE(SocketArgument)
