#pragma once

#include "socketargument.h"
#include "socketcall.h"
#include "socketconnection.h"
#include "socketmessage.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QQueue>
#include <QSet>
#include <QString>
#include <QTimer>
#include <QVector>

#include <memory>

class QLocalServer;
class QTcpServer;
class SocketMethodTable;

// The server side of a hub service: it listens on a local socket (socketDir + "/" + service
// name) and/or on a loopback TCP port, and lets its clients call the public Q_INVOKABLE methods
// and public slots of the subclass and subscribe to the signals it emits.
//
//     class LightService : public SocketAdaptor
//     {
//         Q_OBJECT
//     public:
//         LightService(QObject* parent) : SocketAdaptor("com.orlux.tamsa.lights", parent) {}
//         Q_INVOKABLE int brightness(InternalId light);                // answered at once
//         Q_INVOKABLE void lookup(QString key, SocketPromise promise); // answered later
//     };
//
// Calls: a call is found by its signature ("brightness(InternalId)"), built from the method
// name and the types of the arguments the caller sent; a method's parameters must be of the
// messaging's types (QString, QByteArray, char, short, int, qlonglong, uchar, ushort, uint,
// qulonglong, bool, QList<int>, QStringList, InternalId, double, QMap<QString,QString>,
// QVariantMap, QVariantList; typedefs such as qint64 or quint8 of those are fine). A method whose
// last parameter is a SocketPromise is called without it: the caller's signature lacks the
// promise, and the method answers later through it. When both "f(int)" and "f(int,SocketPromise)"
// exist, the plain one wins. The return value is the reply (a void method answers with success
// and no value). Methods of SocketAdaptor and of QObject are never callable.
//
// Complete calls are not run inside the socket's read handler: they are queued and run one per
// event-loop turn from a zero-interval timer. Calls named "rpc" (the generic request entry point
// of a service, which can be slow) wait in a queue of their own that is served only while no
// ordinary call is waiting, so ordinary calls never queue behind them.
//
// A call with reply whose arguments do not arrive within the invoke timeout (5000 ms), or that
// turns out broken, is answered with a failure reply. A client that disconnects is dropped; the
// calls it completed before still run (their replies are dropped).
//
// An adaptor and everything it owns live in the thread that created it; use it from there only.
class SocketAdaptor : public QObject
{
    Q_OBJECT

public:
    static constexpr int kReplyFlushTimeoutMs = 120000;

    explicit SocketAdaptor(const QString& serviceName, QObject* parent = nullptr);
    ~SocketAdaptor() override;

    QString serviceName() const { return m_serviceName; }

    // Listens on socketDir + "/" + service name; a stale socket file is removed first.
    bool startLocalServer(const QString& socketDir);
    // Listens on 127.0.0.1 only (port 0: any free port) and writes the port actually used as
    // text into socketDir + "/" + service name + ".port", where clients look for it.
    bool startTcpServer(const QString& socketDir, quint16 port);
    // The TCP port listened on; 0 without a TCP server.
    quint16 tcpPort() const;
    // The local socket path listened on; empty without a local server.
    QString localServerPath() const;

    // Sends a signal to the clients that subscribed to its signature. Arguments of type None end
    // the list. Returns false when it could not be assembled or written to every subscriber;
    // no subscriber is not a failure.
    bool
    emitSignal(const QString& name, const SocketArgument& arg1 = SocketArgument(),
               const SocketArgument& arg2 = SocketArgument(), const SocketArgument& arg3 = SocketArgument(),
               const SocketArgument& arg4 = SocketArgument(), const SocketArgument& arg5 = SocketArgument(),
               const SocketArgument& arg6 = SocketArgument(), const SocketArgument& arg7 = SocketArgument(),
               const SocketArgument& arg8 = SocketArgument(), const SocketArgument& arg9 = SocketArgument(),
               const SocketArgument& arg10 = SocketArgument());
    bool emitSignalWithArgumentList(const QString& name, const QVector<SocketArgument>& arguments);
    bool emitSignalWithArgumentList(const QString& name, const QList<const SocketArgument*>& arguments);

    // Replies to a call with reply (success, with the value; None answers without a value).
    bool sendResult(const SocketCall& call, const SocketArgument& value);
    bool sendResult(SocketConnection* connection, quint16 queryId, const SocketArgument& value,
                    const QByteArray& methodName = QByteArray());
    // Replies with a failure (success 0, no value).
    bool sendFailedReturnValue(SocketConnection* connection, quint16 queryId,
                               const QByteArray& methodName = QByteArray());

    // The call being executed right now (inside an invoked method), else null. Lets a method
    // see who calls it.
    const SocketCall* currentCall() const { return m_currentCall; }

    // What the clients announced: their names and subscribed signal signatures.
    QList<SocketConnection*> connections() const { return m_clients.keys(); }
    QByteArray clientName(const SocketConnection* connection) const;
    QSet<QByteArray> subscriptions(const SocketConnection* connection) const;
    int subscriberCount(const QByteArray& signalSignature) const;

    // Limits, changeable for tests: the invoke timeout of new and existing connections and
    // the flush limit of replies.
    void setInvokeTimeout(int ms);
    void setReplyFlushTimeout(int ms) { m_replyFlushTimeoutMs = ms; }

signals:
    void clientConnected(SocketConnection* connection);
    void clientNameReceived(SocketConnection* connection, const QByteArray& name);
    void subscriptionReceived(SocketConnection* connection, const QByteArray& signalSignature);
    void clientDisconnected(SocketConnection* connection);

private slots:
    void onNewConnection();
    void onReadyRead(const SocketMessage& message); // a complete message from a client
    void onDisconnected();
    void onInvokeTimeout(quint16 queryId);
    void onBrokenCall(quint16 queryId);
    void onPendingCallTimer();

protected:
    // The call a parsed call message stands for, as received on `connection` (may be null).
    static SocketCall callFromMessage(SocketConnection* connection, const SocketMessage& message);
    // Runs a call at once: finds the method by the call's signature, invokes it and answers
    // the caller (a failure reply for an unknown signature or unusable arguments).
    void invoke(const SocketCall& call);

private:
    struct Client
    {
        QByteArray name;
        QSet<QByteArray> subscriptions;
    };

    void addConnection(SocketConnection* connection);
    void invokeLater(const SocketCall& call);
    bool writeReply(SocketConnection* connection, const SocketMessage& reply);
    const SocketMethodTable& methodTable();

    QString m_serviceName;
    QLocalServer* m_localServer = nullptr;
    QTcpServer* m_tcpServer = nullptr;
    QString m_portFile; // removed again when the adaptor goes
    QHash<SocketConnection*, Client> m_clients;
    QQueue<SocketCall> m_pendingCalls;
    QQueue<SocketCall> m_pendingRpcCalls;
    QTimer m_pendingCallTimer;
    const SocketCall* m_currentCall = nullptr;
    std::unique_ptr<SocketMethodTable> m_methods; // built on the first call, when the subclass exists
    int m_invokeTimeoutMs = SocketConnection::kDefaultInvokeTimeoutMs;
    int m_replyFlushTimeoutMs = kReplyFlushTimeoutMs;
};
