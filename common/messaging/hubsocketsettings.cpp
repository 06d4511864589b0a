#include "hubsocketsettings.h"

#include <QSettings>

HubSocketSettings HubSocketSettings::read()
{
    const QSettings settings(QStringLiteral("vorn"), QStringLiteral("database"));
    HubSocketSettings result;
    result.socketDir = settings.value(QStringLiteral("socketDir"), QStringLiteral("/tmp")).toString();
    if (settings.value(QStringLiteral("socketType"), QStringLiteral("local")).toString() == QLatin1String("tcp"))
        result.type = SocketConnection::TcpSocket;
    return result;
}
