#include "socketinterface.h"

#include "socketmethodinvoker.h"

#include <common/logginginterface.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QThread>

#include <algorithm>
#include <atomic>

namespace {

// Query ids are unique across all interfaces of the process and wrap at 65535. The atomic
// increment is the whole allocation, so calls from interfaces in different threads never
// share an id; each socket is written by its owning thread only.
std::atomic<quint16> g_nextQueryId{0};

quint16 takeQueryId()
{
    return g_nextQueryId.fetch_add(1, std::memory_order_relaxed);
}

bool isSendableType(SocketArgument::eType type)
{
    return type >= SocketArgument::String && type <= SocketArgument::VariantList;
}

// The parameter types of a normalised signature "name(type1,type2)".
QList<QByteArray> parameterTypesOf(const QByteArray& signature)
{
    const int open = signature.indexOf('(');
    const int close = signature.lastIndexOf(')');
    if (open < 0 || close < open)
        return {};
    const QByteArray inner = signature.mid(open + 1, close - open - 1);
    if (inner.isEmpty())
        return {};
    // Template types contain commas of their own ("QMap<QString,QString>").
    QList<QByteArray> types;
    int depth = 0;
    int start = 0;
    for (int i = 0; i <= inner.size(); ++i) {
        const char c = i < inner.size() ? inner.at(i) : ',';
        if (c == '<')
            ++depth;
        else if (c == '>')
            --depth;
        else if (c == ',' && depth == 0) {
            types.append(inner.mid(start, i - start));
            start = i + 1;
        }
    }
    return types;
}

} // namespace

SocketInterface::SocketInterface(SocketConnection::SocketType type, const QString& serviceName,
                                 const QString& socketDir, QObject* parent, QByteArray clientName)
    : QObject(parent), m_serviceName(serviceName)
{
    registerSocketMetaTypes();
    m_postponedTimer.setSingleShot(true);
    m_postponedTimer.setInterval(0);
    connect(&m_postponedTimer, &QTimer::timeout, this, &SocketInterface::onPostponedTimeout);

    if (!connectToService(type, socketDir))
        return;
    if (clientName.isEmpty())
        clientName = QCoreApplication::applicationName().toUtf8();
    announceClientName(clientName);
}

SocketInterface::~SocketInterface()
{
    if (m_connection)
        disconnect(m_connection, nullptr, this, nullptr);
}

bool SocketInterface::connectToService(SocketConnection::SocketType type, const QString& socketDir)
{
    m_connection = new SocketConnection(type, this);
    if (!m_connection->isValid()) {
        setError(QStringLiteral("undefined or unsupported socket type"));
        return false;
    }
    connect(m_connection, &SocketConnection::messageReceived, this, &SocketInterface::onReadyRead);
    connect(m_connection, &SocketConnection::messageBroken, this, &SocketInterface::onMessageBroken);
    connect(m_connection, &SocketConnection::disconnected, this, &SocketInterface::onSocketDisconnected);
    connect(m_connection, &SocketConnection::socketError, this, &SocketInterface::onError);

    if (type == SocketConnection::LocalSocket) {
        m_connection->connectToLocalServer(socketDir + QLatin1Char('/') + m_serviceName);
    } else {
        const QString path = socketDir + QLatin1Char('/') + m_serviceName + QLatin1String(".port");
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly)) {
            LOG_ERROR << "cannot open socket file:" << path;
            setError(QStringLiteral("cannot open socket file: ") + path);
            return false;
        }
        bool ok = false;
        const quint16 port = file.readAll().trimmed().toUShort(&ok);
        if (!ok || port == 0) {
            LOG_ERROR << "no port number in socket file:" << path;
            setError(QStringLiteral("no port number in socket file: ") + path);
            return false;
        }
        m_connection->connectToTcpServer(port);
    }

    if (!m_connection->waitForConnected(kConnectTimeoutMs)) {
        LOG_ERROR << "cannot connect to service" << m_serviceName << m_connection->errorString();
        setError(QStringLiteral("cannot connect to service ") + m_serviceName);
        return false;
    }
    return true;
}

void SocketInterface::announceClientName(const QByteArray& clientName)
{
    SocketMessage message;
    message.type = socketwire::ClientName;
    message.arguments.append(SocketArgument(clientName));
    if (!m_connection->writeMessage(message) ||
        m_connection->flush(m_blockingFlushTimeoutMs) != SocketConnection::FlushResult::Flushed) {
        LOG_ERROR << "failed to send client name" << clientName << "to" << m_serviceName;
        setError(QStringLiteral("failed to send client name"));
    }
}

bool SocketInterface::isValid() const
{
    return m_connection && m_connection->isConnected();
}

bool SocketInterface::checkThread()
{
    if (QThread::currentThread() == thread())
        return true;
    LOG_ERROR << "called in wrong thread (detail=expected" << thread() << "actual" << QThread::currentThread()
              << ")" << m_serviceName;
    setError(QStringLiteral("called in wrong thread"));
    return false;
}

void SocketInterface::setError(const QString& text)
{
    m_error = true;
    m_errorText = text;
}

void SocketInterface::clearError()
{
    m_error = false;
    m_errorText.clear();
}

QVector<SocketArgument>
SocketInterface::collectArguments(std::initializer_list<const SocketArgument*> arguments)
{
    QVector<SocketArgument> values;
    for (const SocketArgument* argument : arguments) {
        if (argument->isNone())
            break;
        values.append(*argument);
    }
    return values;
}

SocketArgument SocketInterface::call(const QString& methodName, const SocketArgument& arg1,
                                     const SocketArgument& arg2, const SocketArgument& arg3,
                                     const SocketArgument& arg4, const SocketArgument& arg5,
                                     const SocketArgument& arg6, const SocketArgument& arg7,
                                     const SocketArgument& arg8, const SocketArgument& arg9,
                                     const SocketArgument& arg10)
{
    return call(Block, methodName, arg1, arg2, arg3, arg4, arg5, arg6, arg7, arg8, arg9, arg10);
}

SocketArgument SocketInterface::call(CallMode mode, const QString& methodName, const SocketArgument& arg1,
                                     const SocketArgument& arg2, const SocketArgument& arg3,
                                     const SocketArgument& arg4, const SocketArgument& arg5,
                                     const SocketArgument& arg6, const SocketArgument& arg7,
                                     const SocketArgument& arg8, const SocketArgument& arg9,
                                     const SocketArgument& arg10)
{
    return callWithArgumentList(
        mode, methodName,
        collectArguments({&arg1, &arg2, &arg3, &arg4, &arg5, &arg6, &arg7, &arg8, &arg9, &arg10}));
}

SocketArgument SocketInterface::callWithArgumentList(CallMode mode, const QString& methodName,
                                                     const QList<const SocketArgument*>& arguments)
{
    QVector<SocketArgument> values;
    values.reserve(arguments.size());
    for (const SocketArgument* argument : arguments)
        values.append(argument ? *argument : SocketArgument());
    return callWithArgumentList(mode, methodName, values);
}

SocketArgument SocketInterface::callWithArgumentList(CallMode mode, const QString& methodName,
                                                     const QVector<SocketArgument>& arguments)
{
    clearError();
    if (!checkThread())
        return SocketArgument();
    const QByteArray name = methodName.toUtf8();
    quint16 queryId = 0;
    if (!sendCall(mode, name, arguments, &queryId))
        return SocketArgument();
    if (mode == NoBlock)
        return SocketArgument();
    return waitForReturnValue(queryId, name);
}

bool SocketInterface::callWithCallback(const QString& methodName, const ReplyCallback& callback,
                                       const SocketArgument& arg1, const SocketArgument& arg2,
                                       const SocketArgument& arg3, const SocketArgument& arg4,
                                       const SocketArgument& arg5, const SocketArgument& arg6,
                                       const SocketArgument& arg7, const SocketArgument& arg8,
                                       const SocketArgument& arg9, const SocketArgument& arg10)
{
    return callWithArgumentListAndCallback(
        methodName, collectArguments({&arg1, &arg2, &arg3, &arg4, &arg5, &arg6, &arg7, &arg8, &arg9, &arg10}),
        callback);
}

bool SocketInterface::callWithArgumentListAndCallback(const QString& methodName,
                                                      const QVector<SocketArgument>& arguments,
                                                      const ReplyCallback& callback)
{
    clearError();
    if (!checkThread())
        return false;
    const QByteArray name = methodName.toUtf8();
    quint16 queryId = 0;
    // Sent like a blocking call, flushed like a non-blocking one: the caller does not wait.
    if (!sendCall(NoBlock, name, arguments, &queryId, true))
        return false;
    m_callbacks.insert(queryId, PendingCallback{name, callback});
    return true;
}

bool SocketInterface::sendCall(CallMode mode, const QByteArray& methodName,
                               const QVector<SocketArgument>& arguments, quint16* queryId, bool withReply)
{
    if (!isValid()) {
        LOG_ERROR << "failed to call method" << methodName << "of" << m_serviceName << ": not connected";
        setError(QStringLiteral("failed to call method ") + QString::fromUtf8(methodName) +
                 QStringLiteral(": not connected"));
        return false;
    }
    for (const SocketArgument& argument : arguments) {
        if (!isSendableType(argument.type())) {
            LOG_ERROR << "failed to call method" << methodName << ": argument of unsupported type"
                      << quint32(argument.type());
            setError(QStringLiteral("failed to call method ") + QString::fromUtf8(methodName));
            return false;
        }
    }

    SocketMessage message;
    message.name = methodName;
    message.arguments = arguments;
    if (mode == Block || withReply) {
        message.type = socketwire::CallWithReply;
        message.queryId = *queryId = takeQueryId();
    } else {
        message.type = socketwire::CallNoReply;
    }
    if (arguments.size() > socketwire::kMaxArguments || !m_connection->writeMessage(message)) {
        LOG_ERROR << "failed to call method" << methodName << "of" << m_serviceName;
        setError(QStringLiteral("failed to call method ") + QString::fromUtf8(methodName));
        return false;
    }

    const bool blocking = mode == Block;
    if (!blocking && m_connection->bytesToWrite() <= kMaxQueuedBytes) {
        // No wait on the event loop: the calls of this turn leave in one write once it ends.
        m_connection->scheduleFlush();
        return true;
    }
    switch (m_connection->flush(blocking ? m_blockingFlushTimeoutMs : m_nonBlockingFlushTimeoutMs)) {
    case SocketConnection::FlushResult::Flushed:
        return true;
    case SocketConnection::FlushResult::TimedOut:
        if (!blocking) {
            // The bytes stay queued and go out from the event loop once the service reads again.
            LOG_WARNING << "non-blocking call to" << methodName << "delayed, continuing";
            return true;
        }
        break;
    case SocketConnection::FlushResult::Failed:
        break;
    }
    LOG_ERROR << "failed to flush data of call" << methodName << "to" << m_serviceName;
    setError(QStringLiteral("failed to flush data of call ") + QString::fromUtf8(methodName));
    return false;
}

SocketArgument SocketInterface::waitForReturnValue(quint16 queryId, const QByteArray& methodName)
{
    m_waiting = true;
    m_awaitedQueryId = queryId;
    m_awaitedReplyArrived = false;
    m_awaitedReplyBroken = false;

    QElapsedTimer elapsed;
    elapsed.start();
    qint64 nextNotice = m_stillWaitingNoticeMs;
    while (!m_awaitedReplyArrived && !m_awaitedReplyBroken && isValid()) {
        const qint64 now = elapsed.elapsed();
        if (now >= m_replyTimeoutMs)
            break;
        if (now >= nextNotice) {
            LOG_WARNING << "still waiting for return value of" << methodName << "from" << m_serviceName
                        << "after" << now << "ms";
            nextNotice += m_stillWaitingNoticeMs;
        }
        const qint64 slice = qMax<qint64>(1, qMin<qint64>(m_replyTimeoutMs, nextNotice) - now);
        m_connection->waitForReadyRead(int(slice));
    }
    m_waiting = false;
    // Dispatch what was queued meanwhile once the caller is back in the event loop.
    if (!m_postponed.isEmpty() && !m_postponedTimer.isActive())
        m_postponedTimer.start();

    const QString method = QString::fromUtf8(methodName);
    if (!m_awaitedReplyArrived) {
        QString reason;
        if (m_awaitedReplyBroken)
            reason = QStringLiteral("broken return value of ");
        else if (!isValid())
            reason = QStringLiteral("connection lost while waiting for return value of ");
        else
            reason = QStringLiteral("no return value within ") + QString::number(m_replyTimeoutMs) +
                     QStringLiteral(" ms of ");
        LOG_ERROR << reason + method << "from" << m_serviceName;
        setError(reason + method);
        return SocketArgument();
    }

    const SocketMessage reply = std::move(m_awaitedReply);
    m_awaitedReply = SocketMessage();
    if (!reply.success) {
        LOG_WARNING << "error in call" << methodName << "of" << m_serviceName;
        setError(QStringLiteral("error in call ") + method);
        return SocketArgument();
    }
    if (reply.arguments.isEmpty()) {
        // A void method answers without a value: not an error, but nothing to return.
        LOG_DETAIL << "missing return value of" << methodName;
        return SocketArgument();
    }
    return reply.arguments.first();
}

void SocketInterface::onReadyRead(const SocketMessage& message)
{
    if (m_waiting && message.type == socketwire::Reply && message.queryId == m_awaitedQueryId &&
        !m_awaitedReplyArrived) {
        m_awaitedReply = message;
        m_awaitedReplyArrived = true;
        return;
    }
    m_postponed.enqueue(message);
    if (!m_waiting && !m_postponedTimer.isActive())
        m_postponedTimer.start();
}

void SocketInterface::onMessageBroken(int messageType, quint16 queryId, qint64 position)
{
    if (messageType == socketwire::Reply) {
        LOG_ERROR << "broken return value, query" << queryId << "from" << m_serviceName;
        if (m_waiting && queryId == m_awaitedQueryId)
            m_awaitedReplyBroken = true;
        else if (m_callbacks.contains(queryId))
            postponeFailedCallback(queryId);
    } else {
        // A service sends signals and replies; a message that broke before its type was known is
        // most likely a signal.
        LOG_ERROR << "broken signal at position" << position << "from" << m_serviceName
                  << (messageType < 0 ? "(message type unknown)" : "");
    }
}

void SocketInterface::postponeFailedCallback(quint16 queryId)
{
    SocketMessage failure;
    failure.type = socketwire::Reply;
    failure.queryId = queryId;
    failure.success = false;
    m_postponed.enqueue(failure);
    if (!m_waiting && !m_postponedTimer.isActive())
        m_postponedTimer.start();
}

void SocketInterface::onSocketDisconnected()
{
    LOG_WARNING << "service" << m_serviceName << "disconnected";
    setError(QStringLiteral("disconnected from ") + m_serviceName);
    // Callers that wait for a reply get a failure, after everything that did arrive.
    for (auto it = m_callbacks.cbegin(); it != m_callbacks.cend(); ++it)
        postponeFailedCallback(it.key());
    emit disconnected();
}

void SocketInterface::onError(const QString& text)
{
    LOG_ERROR << "socket error on connection to" << m_serviceName << text;
    setError(text);
}

void SocketInterface::onPostponedTimeout()
{
    // A slot that runs a nested event loop gets here again; the outer loop keeps going.
    if (m_dispatching || m_waiting)
        return;
    m_dispatching = true;
    const QPointer<SocketInterface> self(this);
    while (!m_postponed.isEmpty()) {
        dispatch(m_postponed.dequeue());
        if (!self)
            return; // deleted by a slot
    }
    m_dispatching = false;
}

void SocketInterface::dispatch(const SocketMessage& message)
{
    switch (message.type) {
    case socketwire::Signal:
        dispatchSignal(message);
        break;
    case socketwire::Reply:
        dispatchReply(message);
        break;
    default:
        LOG_WARNING << "unexpected message from" << m_serviceName << message.describe();
        break;
    }
}

void SocketInterface::dispatchReply(const SocketMessage& message)
{
    const PendingCallback pending = m_callbacks.take(message.queryId);
    if (!pending.callback) {
        // The reply of a blocking call that gave up waiting, or a duplicate.
        LOG_DETAIL << "return value without caller, query" << message.queryId << "from" << m_serviceName;
        return;
    }
    if (!message.success)
        LOG_WARNING << "error in call" << pending.methodName << "of" << m_serviceName;
    pending.callback(message.success, message.arguments.value(0));
}

void SocketInterface::dispatchSignal(const SocketMessage& message)
{
    const QByteArray signature = message.getSignature();
    // A copy: a slot may connect or disconnect subscriptions.
    const QList<Subscription> subscriptions = m_subscriptions;
    bool delivered = false;
    for (const Subscription& subscription : subscriptions) {
        if (subscription.signalSignature != signature || !subscription.receiver)
            continue;
        delivered = true;
        QByteArray error;
        if (invokeWithSocketArguments(subscription.receiver, subscription.slot, message.arguments, nullptr,
                                      nullptr, &error) != SocketInvokeResult::Invoked)
            LOG_ERROR << "failed to deliver signal" << signature << "to"
                      << subscription.slot.methodSignature() << error;
    }
    if (!delivered)
        LOG_DETAIL << "signal without receiver" << signature << "from" << m_serviceName;
}

bool SocketInterface::connectDynamicSignal(const QByteArray& signalSignature, QObject* receiver,
                                           const char* slotSignature)
{
    clearError();
    if (!checkThread())
        return false;
    const QByteArray signature = normalizedSocketSignature(signalSignature);
    if (!receiver || !slotSignature) {
        LOG_ERROR << "failed to connect dynamic signal" << signature << ": no receiver";
        setError(QStringLiteral("failed to connect dynamic signal"));
        return false;
    }
    const QByteArray slotName = QMetaObject::normalizedSignature(slotSignature);
    const int index = receiver->metaObject()->indexOfMethod(slotName.constData());
    if (index < 0) {
        LOG_ERROR << "no such slot" << slotName << "in" << receiver->metaObject()->className();
        setError(QStringLiteral("no such slot ") + QString::fromUtf8(slotName));
        return false;
    }
    const QMetaMethod slot = receiver->metaObject()->method(index);

    // The slot takes the signal's values in order, of the same types; it may ignore trailing ones.
    const QList<QByteArray> signalTypes = parameterTypesOf(signature);
    bool compatible = slot.parameterCount() <= signalTypes.size();
    for (int i = 0; compatible && i < slot.parameterCount(); ++i) {
        const int signalType = QMetaType::type(signalTypes.at(i).constData());
        compatible = signalType != QMetaType::UnknownType && signalType == slot.parameterType(i) &&
                     socketArgumentTypeOf(signalType) != SocketArgument::None;
    }
    if (!compatible) {
        LOG_ERROR << "failed to connect dynamic signal" << signature << "to" << slotName
                  << ": parameter types differ";
        setError(QStringLiteral("failed to connect dynamic signal"));
        return false;
    }

    for (const Subscription& existing : qAsConst(m_subscriptions)) {
        if (existing.signalSignature == signature && existing.receiver == receiver && existing.slot == slot)
            return true; // connected already
    }

    if (!m_subscribedSignals.contains(signature)) {
        SocketMessage subscription;
        subscription.type = socketwire::Subscription;
        subscription.arguments.append(SocketArgument(signature));
        if (!isValid() || !m_connection->writeMessage(subscription) ||
            m_connection->flush(m_blockingFlushTimeoutMs) != SocketConnection::FlushResult::Flushed) {
            LOG_ERROR << "failed to connect dynamic signal" << signature << "of" << m_serviceName;
            setError(QStringLiteral("failed to connect dynamic signal"));
            return false;
        }
    }
    ++m_subscribedSignals[signature];

    const bool knownReceiver =
        std::any_of(m_subscriptions.cbegin(), m_subscriptions.cend(),
                    [receiver](const Subscription& s) { return s.receiver == receiver; });
    if (!knownReceiver)
        connect(receiver, &QObject::destroyed, this, &SocketInterface::onReceiverDestroyed);
    m_subscriptions.append(Subscription{signature, receiver, slot});
    return true;
}

bool SocketInterface::disconnectDynamicSignal(const QByteArray& signalSignature, QObject* receiver,
                                              const char* slotSignature)
{
    clearError();
    if (!checkThread())
        return false;
    const QByteArray signature = normalizedSocketSignature(signalSignature);
    const QByteArray slotName = QMetaObject::normalizedSignature(slotSignature);
    for (int i = 0; i < m_subscriptions.size(); ++i) {
        const Subscription& s = m_subscriptions.at(i);
        if (s.signalSignature == signature && s.receiver == receiver &&
            s.slot.methodSignature() == slotName) {
            m_subscriptions.removeAt(i);
            // The service offers no unsubscription: it keeps sending, and the signal is dropped here.
            if (--m_subscribedSignals[signature] == 0)
                m_subscribedSignals.remove(signature);
            return true;
        }
    }
    setError(QStringLiteral("no such dynamic signal connection"));
    return false;
}

void SocketInterface::onReceiverDestroyed(QObject* receiver)
{
    for (int i = m_subscriptions.size() - 1; i >= 0; --i) {
        const Subscription& s = m_subscriptions.at(i);
        // The guarded pointer is already null when the receiver is being destroyed.
        if (s.receiver == receiver || s.receiver.isNull()) {
            if (--m_subscribedSignals[s.signalSignature] == 0)
                m_subscribedSignals.remove(s.signalSignature);
            m_subscriptions.removeAt(i);
        }
    }
}
