#pragma once

#include "socketargument.h"

#include <QByteArray>
#include <QHash>
#include <QMetaMethod>
#include <QVariant>
#include <QVector>

class QMetaObject;
class QObject;

// Calling Qt methods with the values of socket messages: the messaging's types as Qt meta
// types, finding a method by its message signature, and invoking it with converted arguments.

// Registers the meta types that messages carry (InternalId, QList<int>, QMap<QString,QString>,
// SocketArgument, SocketPromise), so that methods and slots with such parameters can be
// resolved and invoked. Cheap after the first call.
void registerSocketMetaTypes();

// The Qt meta type of a messaging type; QMetaType::UnknownType for None, Promise and unknown tags.
int socketArgumentMetaType(SocketArgument::eType type);
// The messaging type of a Qt meta type (typedefs resolve to their type); None when there is none.
SocketArgument::eType socketArgumentTypeOf(int metaType);

enum class SocketInvokeResult
{
    Invoked,
    BadArguments, // an argument could not be converted to its parameter type, or too few
    InvokeFailed, // Qt refused the invocation
};

// Converts the arguments to the method's parameter types and calls it directly on `target`.
// `arguments` may be fewer than the parameters only when `trailing` supplies the last one (a
// promise); more arguments than parameters are ignored (a slot may take fewer values than a
// signal carries). The return value, if any, is stored in `returnValue`. On failure `error`
// says why.
SocketInvokeResult invokeWithSocketArguments(QObject* target, const QMetaMethod& method,
                                             const QVector<SocketArgument>& arguments,
                                             const QVariant* trailing, QVariant* returnValue,
                                             QByteArray* error);

// The methods of a meta-object that clients may call, by their message signature.
class SocketMethodTable
{
public:
    struct Entry
    {
        QMetaMethod method;
        bool takesPromise = false; // the last parameter is a SocketPromise that the caller does not send
        SocketArgument::eType returnType = SocketArgument::None;
    };

    // Public Q_INVOKABLE methods and public slots declared at or after `firstMethodIndex`
    // (to leave out a base class's own methods). Methods with a parameter or return type that
    // no message can carry are left out.
    SocketMethodTable(const QMetaObject* metaObject, int firstMethodIndex);

    // The method for "name(type1,type2,...)" as a parsed call gives it; null when there is none.
    const Entry* find(const QByteArray& signature) const;
    int size() const { return m_entries.size(); }

    // "name(type1,...)" with the messaging's type names, leaving out a trailing SocketPromise;
    // empty when some parameter has no messaging type.
    static QByteArray messageSignature(const QMetaMethod& method, bool* takesPromise);

private:
    QHash<QByteArray, Entry> m_entries;
};
