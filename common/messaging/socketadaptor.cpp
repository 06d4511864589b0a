#include "socketadaptor.h"

#include "socketmethodinvoker.h"
#include "socketpromise.h"

#include <common/logginginterface.h>

#include <QFile>
#include <QHostAddress>
#include <QLocalServer>
#include <QLocalSocket>
#include <QSaveFile>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

// The text a client-name or subscription message carries, whichever of the two string types it uses.
QByteArray textOf(const SocketArgument& argument)
{
    switch (argument.type()) {
    case SocketArgument::String:
        return argument.toString().toUtf8();
    case SocketArgument::ByteArray:
        return argument.toByteArray();
    default:
        return QByteArray();
    }
}

bool isSendableType(SocketArgument::eType type)
{
    return type >= SocketArgument::String && type <= SocketArgument::VariantList;
}

} // namespace

SocketAdaptor::SocketAdaptor(const QString& serviceName, QObject* parent)
    : QObject(parent), m_serviceName(serviceName)
{
    registerSocketMetaTypes();
    m_pendingCallTimer.setSingleShot(true);
    m_pendingCallTimer.setInterval(0);
    connect(&m_pendingCallTimer, &QTimer::timeout, this, &SocketAdaptor::onPendingCallTimer);
}

SocketAdaptor::~SocketAdaptor()
{
    // The connections are children; detach them first so that their last signals do not reach
    // an adaptor that is half destroyed.
    for (SocketConnection* connection : m_clients.keys()) {
        disconnect(connection, nullptr, this, nullptr);
        delete connection;
    }
    m_clients.clear();
    if (m_tcpServer && !m_portFile.isEmpty())
        QFile::remove(m_portFile);
}

bool SocketAdaptor::startLocalServer(const QString& socketDir)
{
    const QString path = socketDir + QLatin1Char('/') + m_serviceName;
    if (!m_localServer) {
        m_localServer = new QLocalServer(this);
        connect(m_localServer, &QLocalServer::newConnection, this, &SocketAdaptor::onNewConnection);
    }
    m_localServer->close();
    // A socket file left behind by a previous run would make listen() fail.
    QLocalServer::removeServer(path);
    if (!m_localServer->listen(path)) {
        LOG_ERROR << "cannot listen on local socket" << path << m_localServer->errorString();
        return false;
    }
    LOG_INFO << "listening on local socket" << path;
    return true;
}

bool SocketAdaptor::startTcpServer(const QString& socketDir, quint16 port)
{
    if (!m_tcpServer) {
        m_tcpServer = new QTcpServer(this);
        connect(m_tcpServer, &QTcpServer::newConnection, this, &SocketAdaptor::onNewConnection);
    }
    m_tcpServer->close();
    if (!m_tcpServer->listen(QHostAddress(QHostAddress::LocalHost), port)) {
        LOG_ERROR << "cannot listen on TCP port" << port << m_tcpServer->errorString();
        return false;
    }

    // Written in one step, so that a client never reads a half-written number.
    const QString path = socketDir + QLatin1Char('/') + m_serviceName + QLatin1String(".port");
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(QByteArray::number(m_tcpServer->serverPort())) < 0 ||
        !file.commit()) {
        LOG_ERROR << "cannot write port file" << path << file.errorString();
        return false;
    }
    m_portFile = path;
    LOG_INFO << "listening on TCP port" << m_tcpServer->serverPort() << "port file" << path;
    return true;
}

quint16 SocketAdaptor::tcpPort() const
{
    return m_tcpServer && m_tcpServer->isListening() ? m_tcpServer->serverPort() : 0;
}

QString SocketAdaptor::localServerPath() const
{
    return m_localServer && m_localServer->isListening() ? m_localServer->fullServerName() : QString();
}

void SocketAdaptor::onNewConnection()
{
    while (m_localServer && m_localServer->hasPendingConnections())
        addConnection(new SocketConnection(m_localServer->nextPendingConnection(), this));
    while (m_tcpServer && m_tcpServer->hasPendingConnections())
        addConnection(new SocketConnection(m_tcpServer->nextPendingConnection(), this));
}

void SocketAdaptor::addConnection(SocketConnection* connection)
{
    connection->setInvokeTimeout(m_invokeTimeoutMs);
    connect(connection, &SocketConnection::messageReceived, this, &SocketAdaptor::onReadyRead);
    connect(connection, &SocketConnection::disconnected, this, &SocketAdaptor::onDisconnected);
    connect(connection, &SocketConnection::invokeTimeout, this, &SocketAdaptor::onInvokeTimeout);
    connect(connection, &SocketConnection::callBroken, this, &SocketAdaptor::onBrokenCall);
    m_clients.insert(connection, Client());
    LOG_DEBUG << "new client of" << m_serviceName;
    emit clientConnected(connection);
}

void SocketAdaptor::onReadyRead(const SocketMessage& message)
{
    auto* connection = qobject_cast<SocketConnection*>(sender());
    const auto client = m_clients.find(connection);
    if (client == m_clients.end()) {
        LOG_WARNING << "onReadyRead for unknown connection";
        return;
    }

    switch (message.type) {
    case socketwire::CallWithReply:
    case socketwire::CallNoReply:
        invokeLater(callFromMessage(connection, message));
        break;
    case socketwire::ClientName:
        client->name = textOf(message.arguments.value(0));
        LOG_DEBUG << "client of" << m_serviceName << "is" << client->name;
        emit clientNameReceived(connection, client->name);
        break;
    case socketwire::Subscription: {
        const QByteArray signature = normalizedSocketSignature(textOf(message.arguments.value(0)));
        if (signature.isEmpty()) {
            LOG_WARNING << "empty subscription from" << client->name;
            break;
        }
        client->subscriptions.insert(signature);
        LOG_DEBUG << client->name << "subscribed to" << signature;
        emit subscriptionReceived(connection, signature);
        break;
    }
    default:
        LOG_WARNING << "unexpected message from client" << client->name << message.describe();
        break;
    }
}

void SocketAdaptor::onDisconnected()
{
    auto* connection = qobject_cast<SocketConnection*>(sender());
    const auto client = m_clients.find(connection);
    if (client == m_clients.end()) {
        LOG_WARNING << "unknown client disconnected";
        return;
    }
    LOG_DEBUG << "client" << client->name << "disconnected from" << m_serviceName;
    m_clients.erase(client);
    emit clientDisconnected(connection);
    // Queued calls keep a guarded pointer: they still run, their replies are dropped.
    connection->deleteLater();
}

void SocketAdaptor::onInvokeTimeout(quint16 queryId)
{
    auto* connection = qobject_cast<SocketConnection*>(sender());
    if (!m_clients.contains(connection))
        return;
    LOG_WARNING << "call" << queryId << "from" << m_clients.value(connection).name << "not complete within"
                << connection->invokeTimeoutMs() << "ms, answering with a failure";
    sendFailedReturnValue(connection, queryId);
}

void SocketAdaptor::onBrokenCall(quint16 queryId)
{
    auto* connection = qobject_cast<SocketConnection*>(sender());
    if (!m_clients.contains(connection))
        return;
    LOG_WARNING << "broken call" << queryId << "from" << m_clients.value(connection).name
                << ", answering with a failure";
    sendFailedReturnValue(connection, queryId);
}

SocketCall SocketAdaptor::callFromMessage(SocketConnection* connection, const SocketMessage& message)
{
    SocketCall call;
    call.connection = connection;
    call.methodName = message.name;
    call.arguments = message.arguments;
    call.queryId = message.queryId;
    call.wantsReply = message.type == socketwire::CallWithReply;
    call.signature = message.getSignature();
    return call;
}

void SocketAdaptor::invokeLater(const SocketCall& call)
{
    if (call.methodName == "rpc")
        m_pendingRpcCalls.enqueue(call);
    else
        m_pendingCalls.enqueue(call);
    if (!m_pendingCallTimer.isActive())
        m_pendingCallTimer.start();
}

void SocketAdaptor::onPendingCallTimer()
{
    // A method that runs a nested event loop must not have the next call run inside it; the
    // outer turn restarts the timer when it is done.
    if (m_currentCall)
        return;
    if (!m_pendingCalls.isEmpty())
        invoke(m_pendingCalls.dequeue());
    else if (!m_pendingRpcCalls.isEmpty())
        invoke(m_pendingRpcCalls.dequeue());
    if (!m_pendingCalls.isEmpty() || !m_pendingRpcCalls.isEmpty())
        m_pendingCallTimer.start();
}

void SocketAdaptor::invoke(const SocketCall& call)
{
    const SocketMethodTable::Entry* entry = methodTable().find(call.signature);
    if (!entry) {
        LOG_WARNING << "invalid signature" << call.signature << "called on" << m_serviceName;
        if (call.wantsReply)
            sendFailedReturnValue(call.connection, call.queryId, call.methodName);
        return;
    }

    SocketPromise promise;
    QVariant promiseArgument;
    if (entry->takesPromise) {
        promise = SocketPromise(this, call.connection, call.queryId, call.methodName, call.wantsReply);
        promiseArgument = QVariant::fromValue(promise);
    }

    QVariant result;
    QByteArray error;
    m_currentCall = &call;
    const SocketInvokeResult outcome =
        invokeWithSocketArguments(this, entry->method, call.arguments,
                                  entry->takesPromise ? &promiseArgument : nullptr, &result, &error);
    m_currentCall = nullptr;

    if (outcome != SocketInvokeResult::Invoked) {
        if (outcome == SocketInvokeResult::BadArguments)
            LOG_ERROR << "failed to call slot:" << call.signature << error;
        else
            LOG_ERROR << "Failed to invoke" << call.signature << "probably due to an invalid signature";
        if (entry->takesPromise)
            promise.setFailed();
        else if (call.wantsReply)
            sendFailedReturnValue(call.connection, call.queryId, call.methodName);
        return;
    }
    if (entry->takesPromise || !call.wantsReply)
        return; // the promise answers, or nobody waits

    SocketArgument value;
    if (entry->returnType != SocketArgument::None) {
        value = SocketArgument::fromVariant(entry->returnType, result);
        if (value.isNone())
            LOG_WARNING << "return value of" << call.signature << "cannot be sent, answering without value";
    }
    sendResult(call, value);
}

const SocketMethodTable& SocketAdaptor::methodTable()
{
    // Only the subclass's methods: SocketAdaptor's and QObject's own slots are not for clients.
    if (!m_methods)
        m_methods =
            std::make_unique<SocketMethodTable>(metaObject(), SocketAdaptor::staticMetaObject.methodCount());
    return *m_methods;
}

bool SocketAdaptor::sendResult(const SocketCall& call, const SocketArgument& value)
{
    return sendResult(call.connection, call.queryId, value, call.methodName);
}

bool SocketAdaptor::sendResult(SocketConnection* connection, quint16 queryId, const SocketArgument& value,
                               const QByteArray& methodName)
{
    SocketMessage reply;
    reply.type = socketwire::Reply;
    reply.queryId = queryId;
    reply.success = true;
    if (!value.isNone())
        reply.arguments.append(value);
    if (!writeReply(connection, reply)) {
        LOG_ERROR << "failed to write pending bytes of the return value of" << methodName << "query"
                  << queryId;
        return false;
    }
    return true;
}

bool SocketAdaptor::sendFailedReturnValue(SocketConnection* connection, quint16 queryId,
                                          const QByteArray& methodName)
{
    SocketMessage reply;
    reply.type = socketwire::Reply;
    reply.queryId = queryId;
    reply.success = false;
    if (!writeReply(connection, reply)) {
        LOG_ERROR << "failed to send return value of" << methodName << "query" << queryId;
        return false;
    }
    return true;
}

bool SocketAdaptor::writeReply(SocketConnection* connection, const SocketMessage& reply)
{
    if (!connection || !connection->isConnected())
        return false;
    return connection->writeMessage(reply) &&
           connection->flush(m_replyFlushTimeoutMs) == SocketConnection::FlushResult::Flushed;
}

bool SocketAdaptor::emitSignal(const QString& name, const SocketArgument& arg1, const SocketArgument& arg2,
                               const SocketArgument& arg3, const SocketArgument& arg4,
                               const SocketArgument& arg5, const SocketArgument& arg6,
                               const SocketArgument& arg7, const SocketArgument& arg8,
                               const SocketArgument& arg9, const SocketArgument& arg10)
{
    QVector<SocketArgument> arguments;
    for (const SocketArgument* argument :
         {&arg1, &arg2, &arg3, &arg4, &arg5, &arg6, &arg7, &arg8, &arg9, &arg10}) {
        if (argument->isNone())
            break;
        arguments.append(*argument);
    }
    return emitSignalWithArgumentList(name, arguments);
}

bool SocketAdaptor::emitSignalWithArgumentList(const QString& name,
                                               const QList<const SocketArgument*>& arguments)
{
    QVector<SocketArgument> values;
    values.reserve(arguments.size());
    for (const SocketArgument* argument : arguments)
        values.append(argument ? *argument : SocketArgument());
    return emitSignalWithArgumentList(name, values);
}

bool SocketAdaptor::emitSignalWithArgumentList(const QString& name, const QVector<SocketArgument>& arguments)
{
    for (const SocketArgument& argument : arguments) {
        if (!isSendableType(argument.type())) {
            LOG_ERROR << "unhandled data type:" << quint32(argument.type()) << "in signal" << name;
            return false;
        }
    }
    if (arguments.size() > socketwire::kMaxArguments) {
        LOG_ERROR << "failed to send signal" << name << "with" << arguments.size() << "arguments";
        return false;
    }

    SocketMessage message;
    message.type = socketwire::Signal;
    message.name = name.toUtf8();
    message.arguments = arguments;
    const QByteArray signature = message.getSignature();

    QList<SocketConnection*> subscribers;
    for (auto it = m_clients.cbegin(); it != m_clients.cend(); ++it) {
        if (it->subscriptions.contains(signature))
            subscribers.append(it.key());
    }
    if (subscribers.isEmpty()) {
        LOG_DEBUG << "emitted signal with no subscribers" << signature;
        return true;
    }

    // Assembled once for all subscribers.
    const QByteArray bytes = message.encode();
    if (bytes.isEmpty()) {
        LOG_ERROR << "failed to send signal" << signature;
        return false;
    }
    bool allWritten = true;
    for (SocketConnection* connection : subscribers) {
        if (!connection->writeBytesNow(bytes)) {
            LOG_ERROR << "failed to send signal" << signature << "to" << m_clients.value(connection).name;
            allWritten = false;
        }
    }
    return allWritten;
}

QByteArray SocketAdaptor::clientName(const SocketConnection* connection) const
{
    return m_clients.value(const_cast<SocketConnection*>(connection)).name;
}

QSet<QByteArray> SocketAdaptor::subscriptions(const SocketConnection* connection) const
{
    return m_clients.value(const_cast<SocketConnection*>(connection)).subscriptions;
}

int SocketAdaptor::subscriberCount(const QByteArray& signalSignature) const
{
    const QByteArray signature = normalizedSocketSignature(signalSignature);
    int count = 0;
    for (const Client& client : m_clients) {
        if (client.subscriptions.contains(signature))
            ++count;
    }
    return count;
}

void SocketAdaptor::setInvokeTimeout(int ms)
{
    m_invokeTimeoutMs = ms;
    for (SocketConnection* connection : m_clients.keys())
        connection->setInvokeTimeout(ms);
}
