#pragma once

#include "socketargument.h"
#include "socketwire.h"

#include <QByteArray>
#include <QVector>

// One message of the hub's socket messaging, parsed or to be written.
//
// Byte forms after the sync word and the type byte:
// - CallWithReply: query id, name, NUL, arguments, a zero tag;
// - CallNoReply and Signal: name, NUL, arguments, a zero tag;
// - Reply: query id, success (1 or 0); on success the one tagged argument, or for a void
//   reply (no argument) the single tag byte 0; nothing more on failure;
// - ClientName and Subscription: exactly one tagged argument, no terminating zero tag.
struct SocketMessage
{
    socketwire::MessageType type = socketwire::CallNoReply;
    quint16 queryId = 0;               // CallWithReply and Reply
    QByteArray name;                   // method or signal name (CallWithReply, CallNoReply, Signal)
    bool success = true;               // Reply
    QVector<SocketArgument> arguments; // a Reply, ClientName and Subscription carry at most one

    // "name(type1,type2,...)" from the name and the argument types; "name()" without arguments.
    QByteArray getSignature() const;
    // "call: <name>" for calls and signals, "return value: <method>" for replies, for logs.
    QByteArray describe(const QByteArray& answeredMethod = QByteArray()) const;

    // The complete bytes of the message, sync word first. Returns an empty array (and logs
    // "more than 10 arguments!!!") when a call or signal has more than ten arguments.
    // Arguments of type None or Promise are no values and are not written (for a reply they
    // make it a void reply). Also empty, with an error in the log: a name containing a NUL,
    // a reply with more than one argument, a client name or subscription without exactly one
    // value, an unknown message type.
    QByteArray encode() const;

    // Same type, fields that the type carries, and arguments (see SocketArgument::operator==).
    bool operator==(const SocketMessage& other) const;
    bool operator!=(const SocketMessage& other) const { return !(*this == other); }
};

// Turns a signature as callers write it ("configValueChanged(QString, QString, bool)") into
// the form that parsed messages produce ("configValueChanged(QString,QString,bool)"): all
// blanks go, so "QMap<QString, QString>" inside it becomes "QMap<QString,QString>".
QByteArray normalizedSocketSignature(const QByteArray& signature);
