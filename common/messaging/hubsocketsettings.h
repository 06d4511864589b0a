#pragma once

#include "socketconnection.h"

#include <QString>

// Where the hub's services listen: the hub-wide settings "socketDir" (default "/tmp") and
// "socketType" ("tcp" exactly selects TCP, anything else local sockets) of the "vorn"/"database"
// store. Read afresh on every call, since the settings may change while a service runs.
struct HubSocketSettings
{
    SocketConnection::SocketType type = SocketConnection::LocalSocket;
    QString socketDir;

    static HubSocketSettings read();
};
