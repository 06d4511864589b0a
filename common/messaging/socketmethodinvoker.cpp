#include "socketmethodinvoker.h"

#include "socketpromise.h"

#include <common/logginginterface.h>
#include <kovacommon/internalid.h>

#include <QMetaObject>
#include <QMetaType>
#include <QVarLengthArray>

#include <array>

namespace {

constexpr int kFirstValueTag = SocketArgument::String;
constexpr int kLastValueTag = SocketArgument::VariantList;
constexpr int kMaxParameters = 10; // QMetaMethod::invoke takes at most ten arguments

// Meta type per messaging tag, resolved once after the types are registered.
const std::array<int, kLastValueTag + 1>& metaTypesByTag()
{
    static const std::array<int, kLastValueTag + 1> table = [] {
        registerSocketMetaTypes();
        std::array<int, kLastValueTag + 1> types{};
        for (int tag = kFirstValueTag; tag <= kLastValueTag; ++tag)
            types[tag] = QMetaType::type(SocketArgument::typeName(SocketArgument::eType(tag)));
        return types;
    }();
    return table;
}

} // namespace

void registerSocketMetaTypes()
{
    static const bool registered = [] {
        qRegisterMetaType<InternalId>("InternalId");
        qRegisterMetaType<QList<int>>("QList<int>");
        qRegisterMetaType<QMap<QString, QString>>("QMap<QString,QString>");
        qRegisterMetaType<SocketArgument>("SocketArgument");
        qRegisterMetaType<SocketPromise>("SocketPromise");
        return true;
    }();
    Q_UNUSED(registered)
}

int socketArgumentMetaType(SocketArgument::eType type)
{
    if (type < kFirstValueTag || type > kLastValueTag)
        return QMetaType::UnknownType;
    return metaTypesByTag()[type];
}

SocketArgument::eType socketArgumentTypeOf(int metaType)
{
    if (metaType == QMetaType::UnknownType)
        return SocketArgument::None;
    const auto& types = metaTypesByTag();
    for (int tag = kFirstValueTag; tag <= kLastValueTag; ++tag) {
        if (types[tag] == metaType)
            return SocketArgument::eType(tag);
    }
    return SocketArgument::None;
}

SocketInvokeResult invokeWithSocketArguments(QObject* target, const QMetaMethod& method,
                                             const QVector<SocketArgument>& arguments,
                                             const QVariant* trailing, QVariant* returnValue,
                                             QByteArray* error)
{
    const int parameterCount = method.parameterCount();
    const int fromArguments = trailing ? parameterCount - 1 : parameterCount;
    if (parameterCount > kMaxParameters || fromArguments < 0) {
        *error = "unsupported parameter count";
        return SocketInvokeResult::BadArguments;
    }
    if (arguments.size() < fromArguments) {
        *error = "too few arguments";
        return SocketInvokeResult::BadArguments;
    }

    QVarLengthArray<QVariant, kMaxParameters> values;
    for (int i = 0; i < fromArguments; ++i) {
        const int type = method.parameterType(i);
        if (type == QMetaType::UnknownType) {
            *error = "unregistered parameter type " + method.parameterTypes().at(i);
            return SocketInvokeResult::BadArguments;
        }
        QVariant value = arguments.at(i).toVariant();
        if (value.userType() != type && !value.convert(type)) {
            *error = "cannot convert argument " + QByteArray::number(i + 1) + " from " +
                     SocketArgument::typeName(arguments.at(i).type()) + " to " +
                     method.parameterTypes().at(i);
            return SocketInvokeResult::BadArguments;
        }
        values.append(value);
    }
    if (trailing)
        values.append(*trailing);

    const QList<QByteArray> typeNames = method.parameterTypes();
    std::array<QGenericArgument, kMaxParameters> generic{};
    for (int i = 0; i < values.size(); ++i)
        generic[i] = QGenericArgument(typeNames.at(i).constData(), values[i].constData());

    QVariant result;
    QGenericReturnArgument resultArgument;
    if (method.returnType() != QMetaType::Void) {
        if (method.returnType() == QMetaType::UnknownType) {
            *error = QByteArray("unregistered return type ") + method.typeName();
            return SocketInvokeResult::BadArguments;
        }
        result = QVariant(method.returnType(), nullptr);
        resultArgument = QGenericReturnArgument(method.typeName(), result.data());
    }

    if (!method.invoke(target, Qt::DirectConnection, resultArgument, generic[0], generic[1], generic[2],
                       generic[3], generic[4], generic[5], generic[6], generic[7], generic[8], generic[9])) {
        *error = "QMetaMethod::invoke failed";
        return SocketInvokeResult::InvokeFailed;
    }
    if (returnValue)
        *returnValue = result;
    return SocketInvokeResult::Invoked;
}

SocketMethodTable::SocketMethodTable(const QMetaObject* metaObject, int firstMethodIndex)
{
    registerSocketMetaTypes();
    for (int i = firstMethodIndex; i < metaObject->methodCount(); ++i) {
        const QMetaMethod method = metaObject->method(i);
        if (method.access() != QMetaMethod::Public ||
            (method.methodType() != QMetaMethod::Method && method.methodType() != QMetaMethod::Slot))
            continue;

        Entry entry;
        entry.method = method;
        const QByteArray signature = messageSignature(method, &entry.takesPromise);
        if (signature.isEmpty() || method.parameterCount() > kMaxParameters) {
            LOG_DETAIL << "not callable by clients, unsupported parameter types:" << method.methodSignature();
            continue;
        }
        if (method.returnType() != QMetaType::Void) {
            entry.returnType = socketArgumentTypeOf(method.returnType());
            if (entry.returnType == SocketArgument::None) {
                LOG_DETAIL << "not callable by clients, unsupported return type:" << method.methodSignature();
                continue;
            }
        }

        // A method that answers at once is preferred over a promise-taking one of the same signature.
        const auto existing = m_entries.constFind(signature);
        if (existing != m_entries.constEnd() && !(existing->takesPromise && !entry.takesPromise))
            continue;
        m_entries.insert(signature, entry);
    }
}

const SocketMethodTable::Entry* SocketMethodTable::find(const QByteArray& signature) const
{
    const auto it = m_entries.constFind(signature);
    return it == m_entries.constEnd() ? nullptr : &it.value();
}

QByteArray SocketMethodTable::messageSignature(const QMetaMethod& method, bool* takesPromise)
{
    registerSocketMetaTypes();
    *takesPromise = false;
    const int promiseType = qMetaTypeId<SocketPromise>();
    QByteArray signature = method.name();
    signature += '(';
    const int count = method.parameterCount();
    for (int i = 0; i < count; ++i) {
        const int type = method.parameterType(i);
        if (type == promiseType && i == count - 1) {
            *takesPromise = true;
            break;
        }
        const SocketArgument::eType socketType = socketArgumentTypeOf(type);
        if (socketType == SocketArgument::None)
            return QByteArray();
        if (i > 0)
            signature += ',';
        signature += SocketArgument::typeName(socketType);
    }
    signature += ')';
    return signature;
}
