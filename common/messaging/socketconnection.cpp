#include "socketconnection.h"

#include <common/logginginterface.h>

#include <QDeadlineTimer>
#include <QHostAddress>
#include <QLocalSocket>
#include <QPointer>
#include <QTcpSocket>

SocketConnection::SocketConnection(SocketType type, QObject* parent) : QObject(parent), m_type(type)
{
    switch (type) {
    case LocalSocket:
        m_localSocket = new QLocalSocket(this);
        m_device = m_localSocket;
        break;
    case TcpSocket:
        m_tcpSocket = new QTcpSocket(this);
        m_device = m_tcpSocket;
        break;
    default:
        LOG_ERROR << "undefined or unsupported socket type" << int(type);
        return;
    }
    attachSocket();
}

SocketConnection::SocketConnection(QLocalSocket* socket, QObject* parent)
    : QObject(parent), m_type(LocalSocket), m_localSocket(socket), m_device(socket)
{
    socket->setParent(this);
    attachSocket();
}

SocketConnection::SocketConnection(QTcpSocket* socket, QObject* parent)
    : QObject(parent), m_type(TcpSocket), m_tcpSocket(socket), m_device(socket)
{
    socket->setParent(this);
    attachSocket();
}

SocketConnection::~SocketConnection()
{
    // Calls without reply may still wait for the end of the event-loop turn; a connection that
    // goes away sends them first (bounded, as a single call without reply would wait).
    if (m_device && bytesToWrite() > 0 && isConnected())
        flush(kClosingFlushTimeoutMs);
    // Closing the socket below emits its last signals; nobody is to hear them from a connection
    // that is going away.
    if (m_device)
        disconnect(m_device, nullptr, this, nullptr);
}

void SocketConnection::attachSocket()
{
    m_invokeTimer.setSingleShot(true);
    m_invokeTimer.setInterval(kDefaultInvokeTimeoutMs);
    connect(&m_invokeTimer, &QTimer::timeout, this, &SocketConnection::onInvokeTimerFired);
    m_flushTimer.setSingleShot(true);
    m_flushTimer.setInterval(0);
    connect(&m_flushTimer, &QTimer::timeout, this, &SocketConnection::onFlushTimerFired);
    connect(m_device, &QIODevice::readyRead, this, &SocketConnection::onReadyRead);
    // A wait that runs out (flush, waitForReadyRead) reports a timeout error on the socket; that
    // is the waiting caller's business, not a broken connection.
    if (m_localSocket) {
        connect(m_localSocket, &QLocalSocket::disconnected, this, &SocketConnection::onSocketDisconnected);
        connect(m_localSocket, &QLocalSocket::errorOccurred, this,
                [this](QLocalSocket::LocalSocketError error) {
                    if (error != QLocalSocket::SocketTimeoutError)
                        emit socketError(m_localSocket->errorString());
                });
    } else {
        // Messages are written whole; waiting to coalesce them only delays replies. Set now for
        // an accepted socket, and again once an outgoing one is connected.
        m_tcpSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        connect(m_tcpSocket, &QTcpSocket::connected, this,
                [this] { m_tcpSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1); });
        connect(m_tcpSocket, &QTcpSocket::disconnected, this, &SocketConnection::onSocketDisconnected);
        connect(m_tcpSocket, &QTcpSocket::errorOccurred, this, [this](QAbstractSocket::SocketError error) {
            if (error != QAbstractSocket::SocketTimeoutError)
                emit socketError(m_tcpSocket->errorString());
        });
    }
}

bool SocketConnection::isConnected() const
{
    if (m_localSocket)
        return m_localSocket->state() == QLocalSocket::ConnectedState;
    if (m_tcpSocket)
        return m_tcpSocket->state() == QAbstractSocket::ConnectedState;
    return false;
}

QString SocketConnection::errorString() const
{
    return m_device ? m_device->errorString() : QStringLiteral("undefined or unsupported socket type");
}

void SocketConnection::connectToLocalServer(const QString& path)
{
    if (m_localSocket)
        m_localSocket->connectToServer(path, QIODevice::ReadWrite);
}

void SocketConnection::connectToTcpServer(quint16 port)
{
    if (m_tcpSocket)
        m_tcpSocket->connectToHost(QHostAddress(QHostAddress::LocalHost), port, QIODevice::ReadWrite);
}

bool SocketConnection::waitForConnected(int timeoutMs)
{
    if (m_localSocket)
        return m_localSocket->waitForConnected(timeoutMs);
    if (m_tcpSocket)
        return m_tcpSocket->waitForConnected(timeoutMs);
    return false;
}

void SocketConnection::disconnectFromServer()
{
    if (m_localSocket)
        m_localSocket->disconnectFromServer();
    else if (m_tcpSocket)
        m_tcpSocket->disconnectFromHost();
}

bool SocketConnection::writeMessage(const SocketMessage& message)
{
    const QByteArray bytes = message.encode();
    if (bytes.isEmpty()) {
        LOG_ERROR << "failed to write data" << message.describe() << "(cannot be encoded)";
        return false;
    }
    return writeBytes(bytes);
}

bool SocketConnection::writeBytes(const QByteArray& bytes)
{
    if (!isConnected()) {
        LOG_ERROR << "failed to write data: not connected";
        return false;
    }
    const qint64 written = m_device->write(bytes);
    if (written != bytes.size()) {
        LOG_ERROR << "failed to write data" << written << "of" << bytes.size() << "bytes" << errorString();
        return false;
    }
    return true;
}

SocketConnection::FlushResult SocketConnection::flush(int timeoutMs)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (bytesToWrite() > 0) {
        if (!isConnected()) {
            LOG_ERROR << "failed to write pending bytes, remaining" << bytesToWrite() << errorString();
            return FlushResult::Failed;
        }
        const qint64 left = deadline.remainingTime();
        if (left <= 0)
            return FlushResult::TimedOut;
        if (m_localSocket)
            m_localSocket->waitForBytesWritten(int(left));
        else
            m_tcpSocket->waitForBytesWritten(int(left));
    }
    return FlushResult::Flushed;
}

bool SocketConnection::writeBytesNow(const QByteArray& bytes)
{
    if (!writeBytes(bytes))
        return false;
    // Hands over what the system takes without waiting; the rest follows from the event loop.
    const bool progressed = m_localSocket ? m_localSocket->flush() : m_tcpSocket->flush();
    if (!progressed && bytesToWrite() > 0 && !isConnected()) {
        LOG_ERROR << "failed to write pending bytes, remaining" << bytesToWrite() << errorString();
        return false;
    }
    return true;
}

void SocketConnection::scheduleFlush()
{
    if (!m_flushTimer.isActive())
        m_flushTimer.start();
}

void SocketConnection::onFlushTimerFired()
{
    if (bytesToWrite() == 0)
        return;
    // flush() of a socket writes what the system takes now and never waits; the socket's own
    // write notifier sends the rest as the peer reads.
    if (m_localSocket)
        m_localSocket->flush();
    else if (m_tcpSocket)
        m_tcpSocket->flush();
}

qint64 SocketConnection::bytesToWrite() const
{
    return m_device ? m_device->bytesToWrite() : 0;
}

bool SocketConnection::waitForReadyRead(int timeoutMs)
{
    if (!m_device)
        return false;
    if (m_device->bytesAvailable() == 0) {
        const bool arrived = m_localSocket ? m_localSocket->waitForReadyRead(timeoutMs)
                                           : m_tcpSocket->waitForReadyRead(timeoutMs);
        if (!arrived)
            return false;
    }
    // The socket's readyRead may not have reached onReadyRead (Qt does not emit it again while
    // a handler of it is running), so the bytes are read here in any case.
    processIncoming();
    return true;
}

void SocketConnection::onReadyRead()
{
    processIncoming();
}

void SocketConnection::processIncoming()
{
    if (!m_device)
        return;
    if (m_parsing) {
        m_readPending = true; // the loop below, further up the stack, picks the bytes up
        return;
    }
    m_parsing = true;
    do {
        m_readPending = false;
        const QByteArray bytes = m_device->readAll();
        if (!bytes.isEmpty()) {
            m_bytesRead += bytes.size();
            m_parser.append(bytes);
        }
        if (!runParser())
            return; // deleted by a handler
    } while (m_readPending || m_device->bytesAvailable() > 0);
    m_parsing = false;
}

bool SocketConnection::runParser()
{
    const QPointer<SocketConnection> self(this);
    for (;;) {
        switch (m_parser.parse()) {
        case SocketMessageParser::Event::NeedMoreBytes:
            return true;
        case SocketMessageParser::Event::CallNameRead:
            m_callInProgress = true;
            m_callQueryId = m_parser.currentMessage().queryId;
            m_invokeTimer.start();
            break;
        case SocketMessageParser::Event::MessageComplete: {
            m_callInProgress = false;
            m_invokeTimer.stop();
            const SocketMessage message = m_parser.takeMessage();
            emit messageReceived(message);
            if (!self)
                return false;
            break;
        }
        case SocketMessageParser::Event::Broken: {
            // The parser has logged the reason and the parsing state.
            const qint64 position = m_bytesRead - m_parser.bufferedBytes();
            if (m_callInProgress) {
                m_callInProgress = false;
                m_invokeTimer.stop();
                emit messageBroken(socketwire::CallWithReply, m_callQueryId, position);
                if (self)
                    emit callBroken(m_callQueryId);
            } else {
                emit messageBroken(m_parser.brokenMessageType(), m_parser.brokenQueryId(), position);
            }
            if (!self)
                return false;
            break;
        }
        }
    }
}

void SocketConnection::onInvokeTimerFired()
{
    if (!m_callInProgress)
        return;
    m_callInProgress = false;
    // The rest of this call is skipped when it arrives; the receiver answers it as failed.
    m_parser.skipMessage();
    emit invokeTimeout(m_callQueryId);
}

void SocketConnection::onSocketDisconnected()
{
    if (m_disconnectReported)
        return;
    m_disconnectReported = true;
    // Whatever arrived before the peer went is still delivered.
    const QPointer<SocketConnection> self(this);
    processIncoming();
    if (!self)
        return;
    m_invokeTimer.stop();
    m_callInProgress = false;
    emit disconnected();
}
