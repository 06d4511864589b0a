#pragma once

#include "socketargument.h"
#include "socketconnection.h"

#include <QByteArray>
#include <QPointer>
#include <QVector>

// One received call waiting for execution by a SocketAdaptor.
struct SocketCall
{
    // The connection the call came in on; null once the caller has gone away (the call still
    // runs, only its reply cannot be delivered).
    QPointer<SocketConnection> connection;
    QByteArray methodName;
    QVector<SocketArgument> arguments; // at most ten
    quint16 queryId = 0;
    bool wantsReply = false; // a call with reply; the adaptor answers it exactly once

    // "name(type1,type2,...)" of the parsed call: the key by which the adaptor finds the method.
    QByteArray signature;
};
