#include "socketmessage.h"

#include <common/logginginterface.h>

namespace {

bool isSendable(const SocketArgument& argument)
{
    return !argument.isNone() && argument.type() != SocketArgument::Promise;
}

bool hasQueryId(socketwire::MessageType type)
{
    return type == socketwire::CallWithReply || type == socketwire::Reply;
}

bool hasName(socketwire::MessageType type)
{
    return type == socketwire::CallWithReply || type == socketwire::CallNoReply || type == socketwire::Signal;
}

// A guess of the encoded size, so that encode() allocates once in the common cases.
int estimatedSize(const SocketArgument& argument)
{
    switch (argument.type()) {
    case SocketArgument::String:
        return 5 + static_cast<const QString*>(argument.toVariant().constData())->size();
    case SocketArgument::ByteArray:
        return 5 + static_cast<const QByteArray*>(argument.toVariant().constData())->size();
    case SocketArgument::StringMap: {
        int size = 5;
        const auto* map = static_cast<const QMap<QString, QString>*>(argument.toVariant().constData());
        for (auto it = map->cbegin(); it != map->cend(); ++it)
            size += 8 + it.key().size() + it.value().size();
        return size;
    }
    case SocketArgument::StringList:
    case SocketArgument::IntList:
    case SocketArgument::VariantMap:
    case SocketArgument::VariantList:
        return 64;
    default:
        return 11;
    }
}

} // namespace

QByteArray SocketMessage::getSignature() const
{
    QByteArray signature;
    signature.reserve(name.size() + 2 + arguments.size() * 12);
    signature.append(name);
    signature.append('(');
    for (int i = 0; i < arguments.size(); ++i) {
        if (i > 0)
            signature.append(',');
        signature.append(SocketArgument::typeName(arguments.at(i).type()));
    }
    signature.append(')');
    return signature;
}

QByteArray SocketMessage::describe(const QByteArray& answeredMethod) const
{
    switch (type) {
    case socketwire::Reply:
        return "return value: " + answeredMethod;
    case socketwire::ClientName:
        return "client name: " +
               (arguments.isEmpty() ? QByteArray() : arguments.first().toVariant().toByteArray());
    case socketwire::Subscription:
        return "subscription: " +
               (arguments.isEmpty() ? QByteArray() : arguments.first().toVariant().toByteArray());
    default:
        return "call: " + name;
    }
}

QByteArray SocketMessage::encode() const
{
    using namespace socketwire;
    int sendable = 0;
    int size = 16 + name.size();
    for (const SocketArgument& argument : arguments) {
        if (isSendable(argument)) {
            ++sendable;
            size += estimatedSize(argument);
        }
    }

    if (hasName(type)) {
        if (sendable > kMaxArguments) {
            LOG_ERROR << "more than 10 arguments!!!" << name << sendable;
            return QByteArray();
        }
        if (name.contains('\0')) {
            LOG_ERROR << "cannot send a method name containing NUL" << name.toHex(' ');
            return QByteArray();
        }
    } else if (type == Reply) {
        if (arguments.size() > 1) {
            LOG_ERROR << "a reply carries at most one value, not" << arguments.size();
            return QByteArray();
        }
    } else if (type == ClientName || type == Subscription) {
        if (arguments.size() != 1 || sendable != 1) {
            LOG_ERROR << "message type" << int(type) << "needs exactly one value";
            return QByteArray();
        }
    } else {
        LOG_ERROR << "cannot encode unknown message type" << int(type);
        return QByteArray();
    }

    QByteArray out;
    out.reserve(size);
    appendUInt32(out, kSyncWord);
    appendUInt8(out, type);
    if (hasQueryId(type))
        appendUInt16(out, queryId);
    if (hasName(type)) {
        out.append(name);
        out.append('\0');
        for (const SocketArgument& argument : arguments) {
            if (isSendable(argument))
                appendArgument(out, argument);
        }
        appendUInt8(out, SocketArgument::None);
    } else if (type == Reply) {
        appendUInt8(out, success ? 1 : 0);
        if (success) {
            if (sendable == 1)
                appendArgument(out, arguments.first());
            else
                appendUInt8(out, SocketArgument::None); // void reply
        }
    } else {
        appendArgument(out, arguments.first());
    }
    return out;
}

bool SocketMessage::operator==(const SocketMessage& other) const
{
    if (type != other.type || arguments != other.arguments)
        return false;
    if (hasQueryId(type) && queryId != other.queryId)
        return false;
    if (hasName(type) && name != other.name)
        return false;
    return type != socketwire::Reply || success == other.success;
}

QByteArray normalizedSocketSignature(const QByteArray& signature)
{
    QByteArray normalized;
    normalized.reserve(signature.size());
    for (char c : signature) {
        if (c != ' ' && c != '\t' && c != '\n' && c != '\r')
            normalized.append(c);
    }
    return normalized;
}
