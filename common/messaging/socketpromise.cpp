#include "socketpromise.h"

#include "socketadaptor.h"
#include "socketconnection.h"

#include <common/logginginterface.h>

SocketPromiseData::SocketPromiseData(SocketAdaptor* adaptor, SocketConnection* connection, quint16 queryId,
                                     const QByteArray& methodName, bool wantsReply)
    : adaptor(adaptor), connection(connection), queryId(queryId), methodName(methodName),
      wantsReply(wantsReply)
{
}

SocketPromiseData::~SocketPromiseData()
{
    if (answered || !wantsReply)
        return;
    LOG_WARNING << "SocketPromise being deleted before result is submitted!" << methodName;
    // The caller waits for this reply; a failure tells it to stop waiting.
    if (adaptor && connection && connection->isConnected())
        adaptor->sendFailedReturnValue(connection, queryId, methodName);
}

SocketPromise::SocketPromise(SocketAdaptor* adaptor, SocketConnection* connection, quint16 queryId,
                             const QByteArray& methodName, bool wantsReply)
    : m_data(QSharedPointer<SocketPromiseData>::create(adaptor, connection, queryId, methodName, wantsReply))
{
}

bool SocketPromise::canReply() const
{
    return m_data && m_data->adaptor && m_data->connection && m_data->connection->isConnected();
}

bool SocketPromise::setResult(const SocketArgument& value)
{
    return answer(true, value);
}

bool SocketPromise::setFailed()
{
    return answer(false, SocketArgument());
}

bool SocketPromise::answer(bool success, const SocketArgument& value)
{
    if (!m_data) {
        LOG_WARNING << "SocketPromise cannot send result, adaptor or connection deleted";
        return false;
    }
    if (m_data->answered) {
        LOG_WARNING << "SocketPromise result submitted twice, ignored:" << m_data->methodName;
        return false;
    }
    m_data->answered = true;
    m_data->result = value;
    if (!m_data->wantsReply)
        return true; // a call without reply: nobody waits for the value
    if (!m_data->adaptor || !m_data->connection || !m_data->connection->isConnected()) {
        LOG_WARNING << "SocketPromise cannot send result, adaptor or connection deleted"
                    << m_data->methodName;
        return false;
    }
    LOG_DEBUG << "returning result of" << m_data->methodName << "query" << m_data->queryId;
    if (!success)
        return m_data->adaptor->sendFailedReturnValue(m_data->connection, m_data->queryId,
                                                      m_data->methodName);
    return m_data->adaptor->sendResult(m_data->connection, m_data->queryId, value, m_data->methodName);
}
