#pragma once

#include "socketargument.h"

#include <QByteArray>
#include <QMetaType>
#include <QPointer>
#include <QSharedPointer>

class SocketAdaptor;
class SocketConnection;

// The state behind a SocketPromise, shared by all its copies: where the reply goes and
// whether it has been sent.
class SocketPromiseData
{
public:
    SocketPromiseData(SocketAdaptor* adaptor, SocketConnection* connection, quint16 queryId,
                      const QByteArray& methodName, bool wantsReply);
    // Without a result the caller would wait in vain: the last copy going away logs that and
    // answers the call with a failure reply.
    ~SocketPromiseData();
    SocketPromiseData(const SocketPromiseData&) = delete;
    SocketPromiseData& operator=(const SocketPromiseData&) = delete;

    QPointer<SocketAdaptor> adaptor;
    QPointer<SocketConnection> connection;
    quint16 queryId = 0;
    QByteArray methodName;
    bool wantsReply = false;
    bool answered = false;
    SocketArgument result;
};

// A late reply. An adaptor method that cannot answer at once takes a SocketPromise as its LAST
// parameter; callers never send it (the caller's signature lacks it, and the adaptor matches
// "name(int)" against a method "name(int,SocketPromise)"). The method keeps a copy and later
// calls setResult() or setFailed(), which sends the reply to the caller. All copies share one
// state; the reply is sent at most once. Use it in the adaptor's thread only.
//
//     Q_INVOKABLE void lookup(QString key, SocketPromise promise)
//     {
//         m_pending.append(promise);                    // answered when the data is there
//     }
//     ...
//     m_pending.takeFirst().setResult(SocketArgument(value));
class SocketPromise
{
public:
    SocketPromise() = default; // an empty promise; setting its result does nothing
    SocketPromise(SocketAdaptor* adaptor, SocketConnection* connection, quint16 queryId,
                  const QByteArray& methodName, bool wantsReply);

    bool isNull() const { return !m_data; }
    // Whether a result (or failure) has been submitted.
    bool isAnswered() const { return m_data && m_data->answered; }
    // Whether the reply can still be delivered: the adaptor and the caller's connection exist.
    bool canReply() const;
    quint16 queryId() const { return m_data ? m_data->queryId : 0; }
    QByteArray methodName() const { return m_data ? m_data->methodName : QByteArray(); }

    // Sends the reply (success) with the value; a None value answers without a value.
    // Returns false when it could not be sent (answered before, adaptor or connection gone).
    bool setResult(const SocketArgument& value = SocketArgument());
    // Answers the call with a failure reply.
    bool setFailed();

private:
    bool answer(bool success, const SocketArgument& value);

    QSharedPointer<SocketPromiseData> m_data;
};

Q_DECLARE_METATYPE(SocketPromise)
