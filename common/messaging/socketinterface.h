#pragma once

#include "socketargument.h"
#include "socketconnection.h"
#include "socketmessage.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QMetaMethod>
#include <QObject>
#include <QPointer>
#include <QQueue>
#include <QString>
#include <QTimer>
#include <QVector>

#include <functional>
#include <initializer_list>

// The client side of the hub's socket messaging: one connection to one named service, through
// which this process calls the service's methods and receives the signals it subscribed to.
//
//     SocketInterface db(SocketConnection::LocalSocket, "com.orlux.tamsa.database", socketDir, this);
//     if (!db.isValid()) ...
//     const SocketArgument all = db.call("getAllConfigValues");      // blocks for the reply
//     if (db.hasError()) LOG_ERROR << "getAllConfigValues failed" << db.errorText();
//     db.call(SocketInterface::NoBlock, "setConfigValue", key, value, true);
//     db.connectDynamicSignal("configValueChanged(QString, QString, bool)", cache,
//                             "onConfigValueChanged(QString,QString,bool)");
//
// Errors: every call clears and then sets the error flag; callers test hasError() after it.
//
// Blocking calls wait on the socket itself (no event loop runs meanwhile), so the service
// called must not live in the calling thread. Everything else that arrives while waiting
// (signals, replies to callback calls) is queued and dispatched afterwards from the event loop,
// in arrival order and never inside a call.
//
// Threads: an interface is used only from the thread that owns it; calls from any other
// thread are refused.
class SocketInterface : public QObject
{
    Q_OBJECT

public:
    enum CallMode
    {
        Block = 0,  // call with reply: waits for and returns the service's answer
        NoBlock = 1 // call without reply: returns once the bytes are queued; they go out together
                    // with the other calls of this event-loop turn when it ends
    };

    // Receives the reply of a callback call: ok is false for a failure reply, a lost connection
    // or a call that could not be sent; value is None for a void reply.
    using ReplyCallback = std::function<void(bool ok, const SocketArgument& value)>;

    static constexpr int kConnectTimeoutMs = 120000;
    static constexpr int kBlockingFlushTimeoutMs = 120000;
    static constexpr int kNonBlockingFlushTimeoutMs = 2000;
    // Bytes of calls without reply that may wait in the socket for a peer that reads slowly;
    // beyond it a call waits (up to the non-blocking flush limit) for the peer to catch up.
    static constexpr qint64 kMaxQueuedBytes = 1024 * 1024;
    static constexpr int kReplyTimeoutMs = 120000;
    static constexpr int kStillWaitingNoticeMs = 5000;

    // Connects to the service (local: socketDir + "/" + serviceName; TCP: 127.0.0.1 on the port
    // written in socketDir + "/" + serviceName + ".port"), waits up to 120 s for the connection
    // and announces clientName (the application's name when empty). Test isValid() afterwards.
    SocketInterface(SocketConnection::SocketType type, const QString& serviceName, const QString& socketDir,
                    QObject* parent = nullptr, QByteArray clientName = QByteArray());
    ~SocketInterface() override;

    // Connected to the service.
    bool isValid() const;
    QString serviceName() const { return m_serviceName; }

    // The outcome of the last call, subscription or connection attempt.
    bool hasError() const { return m_error; }
    QString errorText() const { return m_errorText; }

    // Calls a method; arguments of type None end the list (at most ten are sent). Blocking
    // calls return the reply's value (None for a void method or on error), non-blocking ones None.
    SocketArgument
    call(const QString& methodName, const SocketArgument& arg1 = SocketArgument(),
         const SocketArgument& arg2 = SocketArgument(), const SocketArgument& arg3 = SocketArgument(),
         const SocketArgument& arg4 = SocketArgument(), const SocketArgument& arg5 = SocketArgument(),
         const SocketArgument& arg6 = SocketArgument(), const SocketArgument& arg7 = SocketArgument(),
         const SocketArgument& arg8 = SocketArgument(), const SocketArgument& arg9 = SocketArgument(),
         const SocketArgument& arg10 = SocketArgument());
    SocketArgument
    call(CallMode mode, const QString& methodName, const SocketArgument& arg1 = SocketArgument(),
         const SocketArgument& arg2 = SocketArgument(), const SocketArgument& arg3 = SocketArgument(),
         const SocketArgument& arg4 = SocketArgument(), const SocketArgument& arg5 = SocketArgument(),
         const SocketArgument& arg6 = SocketArgument(), const SocketArgument& arg7 = SocketArgument(),
         const SocketArgument& arg8 = SocketArgument(), const SocketArgument& arg9 = SocketArgument(),
         const SocketArgument& arg10 = SocketArgument());
    // The whole list is sent (None entries included would be refused); more than ten is an error.
    SocketArgument callWithArgumentList(CallMode mode, const QString& methodName,
                                        const QList<const SocketArgument*>& arguments);
    SocketArgument callWithArgumentList(CallMode mode, const QString& methodName,
                                        const QVector<SocketArgument>& arguments);

    // Calls with reply without blocking: the callback runs later from the event loop with the
    // reply (or with ok = false when the connection goes first). Returns false, without ever
    // running the callback, when the call cannot be sent.
    bool callWithCallback(
        const QString& methodName, const ReplyCallback& callback,
        const SocketArgument& arg1 = SocketArgument(), const SocketArgument& arg2 = SocketArgument(),
        const SocketArgument& arg3 = SocketArgument(), const SocketArgument& arg4 = SocketArgument(),
        const SocketArgument& arg5 = SocketArgument(), const SocketArgument& arg6 = SocketArgument(),
        const SocketArgument& arg7 = SocketArgument(), const SocketArgument& arg8 = SocketArgument(),
        const SocketArgument& arg9 = SocketArgument(), const SocketArgument& arg10 = SocketArgument());
    bool callWithArgumentListAndCallback(const QString& methodName, const QVector<SocketArgument>& arguments,
                                         const ReplyCallback& callback);

    // Subscribes to a signal of the service and delivers it to a slot (or Q_INVOKABLE method) of
    // receiver. Both signatures may be written with blanks ("changed(QString, int)"); the slot
    // may take fewer parameters than the signal carries, each of the signal's type. The
    // subscription ends with disconnectDynamicSignal() or the receiver's destruction.
    bool connectDynamicSignal(const QByteArray& signalSignature, QObject* receiver,
                              const char* slotSignature);
    bool disconnectDynamicSignal(const QByteArray& signalSignature, QObject* receiver,
                                 const char* slotSignature);

    // Limits, changeable for tests.
    void setBlockingFlushTimeout(int ms) { m_blockingFlushTimeoutMs = ms; }
    void setNonBlockingFlushTimeout(int ms) { m_nonBlockingFlushTimeoutMs = ms; }
    void setReplyTimeout(int ms) { m_replyTimeoutMs = ms; }
    void setStillWaitingNotice(int ms) { m_stillWaitingNoticeMs = ms; }

signals:
    // The service closed the connection; the interface stays invalid.
    void disconnected();

private slots:
    void onReadyRead(const SocketMessage& message); // a complete message from the service
    void onSocketDisconnected();
    void onError(const QString& text);
    void onMessageBroken(int messageType, quint16 queryId, qint64 position);
    void onPostponedTimeout(); // dispatches the messages queued meanwhile
    void onReceiverDestroyed(QObject* receiver);

private:
    struct Subscription
    {
        QByteArray signalSignature; // normalised
        QPointer<QObject> receiver;
        QMetaMethod slot;
    };
    struct PendingCallback
    {
        QByteArray methodName;
        ReplyCallback callback;
    };

    bool connectToService(SocketConnection::SocketType type, const QString& socketDir);
    void announceClientName(const QByteArray& clientName);
    bool checkThread();
    void setError(const QString& text);
    void clearError();
    static QVector<SocketArgument> collectArguments(std::initializer_list<const SocketArgument*> arguments);
    // Writes a call (with reply and a fresh query id for Block or withReply, else without) and
    // flushes it with the limit of its mode.
    bool sendCall(CallMode mode, const QByteArray& methodName, const QVector<SocketArgument>& arguments,
                  quint16* queryId, bool withReply = false);
    SocketArgument waitForReturnValue(quint16 queryId, const QByteArray& methodName);
    void dispatch(const SocketMessage& message);
    void dispatchSignal(const SocketMessage& message);
    void dispatchReply(const SocketMessage& message);
    // Queues a failure reply for a callback call whose reply cannot come any more.
    void postponeFailedCallback(quint16 queryId);

    QString m_serviceName;
    SocketConnection* m_connection = nullptr;
    bool m_error = false;
    QString m_errorText;

    // The blocking call in progress and its reply, once here.
    bool m_waiting = false;
    quint16 m_awaitedQueryId = 0;
    bool m_awaitedReplyArrived = false;
    bool m_awaitedReplyBroken = false;
    SocketMessage m_awaitedReply;

    QQueue<SocketMessage> m_postponed;
    QTimer m_postponedTimer;
    bool m_dispatching = false;
    QHash<quint16, PendingCallback> m_callbacks;
    QList<Subscription> m_subscriptions;
    QHash<QByteArray, int> m_subscribedSignals; // signature -> number of slots; subscribed once each

    int m_blockingFlushTimeoutMs = kBlockingFlushTimeoutMs;
    int m_nonBlockingFlushTimeoutMs = kNonBlockingFlushTimeoutMs;
    int m_replyTimeoutMs = kReplyTimeoutMs;
    int m_stillWaitingNoticeMs = kStillWaitingNoticeMs;
};
