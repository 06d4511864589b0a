#include "hubservice.h"

#include "devicevariant.h"
#include "hubeventlog.h"

#include <common/logginginterface.h>

#include <QDateTime>

HubService::HubService(const QString& service, HubEventLog* events, QObject* parent)
    : SocketAdaptor(service, parent), m_events(events)
{
    connect(this, &SocketAdaptor::clientNameReceived, this,
            [this](SocketConnection* connection, const QByteArray& name) {
                m_names.insert(connection, name);
                const bool returning = m_departed.remove(name);
                if (m_quietClients) {
                    LOG_DETAIL << "client" << name << "connected to" << serviceName();
                    return;
                }
                m_events->post(returning ? QStringLiteral("clientReconnected")
                                         : QStringLiteral("clientConnected"),
                               {{QStringLiteral("service"), serviceName()},
                                {QStringLiteral("client"), QString::fromUtf8(name)}});
            });
    connect(this, &SocketAdaptor::clientDisconnected, this, [this](SocketConnection* connection) {
        const QByteArray name = m_names.take(connection);
        if (!name.isEmpty())
            m_departed.insert(name);
        if (m_quietClients)
            LOG_DETAIL << "client" << name << "disconnected from" << serviceName();
        else
            m_events->post(QStringLiteral("clientDisconnected"),
                           {{QStringLiteral("service"), serviceName()},
                            {QStringLiteral("client"), QString::fromUtf8(name)}});
        clientGone(connection, name);
    });
}

QString HubService::callerName() const
{
    const SocketCall* call = currentCall();
    if (!call || !call->connection)
        return QString();
    return QString::fromUtf8(clientName(call->connection));
}

void HubService::recordCall(QVariantList& list, QVariantMap fields, int keep) const
{
    fields.insert(QStringLiteral("time"), devicevariant::timeText(QDateTime::currentDateTime()));
    fields.insert(QStringLiteral("client"), callerName());
    list.append(fields);
    while (list.size() > keep)
        list.removeFirst();
}

void HubService::postCall(const QString& kind, QVariantMap fields) const
{
    fields.insert(QStringLiteral("service"), serviceName());
    fields.insert(QStringLiteral("client"), callerName());
    m_events->post(kind, fields);
}

void HubService::clientGone(SocketConnection*, const QByteArray&) {}
