#include "sharedportfront.h"

#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bridgeemu {

namespace {

// The first byte of a TLS record that carries a handshake, which every TLS client sends first.
constexpr unsigned char kTlsHandshakeRecord = 0x16;

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int localPortOf(int fd)
{
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0)
        return -1;
    return ntohs(address.sin_port);
}

void setOption(int fd, int level, int option)
{
    int on = 1;
    setsockopt(fd, level, option, &on, sizeof on);
}

bool sendAll(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const ssize_t sent = send(fd, data, size, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        data += sent;
        size -= static_cast<std::size_t>(sent);
    }
    return true;
}

// Copies bytes both ways until the backend ends the connection or either side fails. The
// client's end of sending is passed on as such, so that the backend still answers.
void relayBytes(int client, int backend)
{
    pollfd sides[2] = {{client, POLLIN, 0}, {backend, POLLIN, 0}};
    char buffer[16384];
    for (;;) {
        if (poll(sides, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (sides[1].revents) {
            const ssize_t got = recv(backend, buffer, sizeof buffer, 0);
            if (got <= 0 || !sendAll(client, buffer, static_cast<std::size_t>(got)))
                return;
        }
        if (sides[0].fd >= 0 && sides[0].revents) {
            const ssize_t got = recv(client, buffer, sizeof buffer, 0);
            if (got < 0)
                return;
            if (got == 0) {
                shutdown(backend, SHUT_WR);
                sides[0].fd = -1; // poll ignores it from now on
                continue;
            }
            // Clients that send headers and body in two writes wait for the headers'
            // acknowledgement; the kernel would delay it by some 40 ms.
            setOption(client, IPPROTO_TCP, TCP_QUICKACK);
            if (!sendAll(backend, buffer, static_cast<std::size_t>(got)))
                return;
        }
    }
}

} // namespace

SharedPortFront::~SharedPortFront()
{
    stop();
}

bool SharedPortFront::start(int port, int tlsPort, int plainPort, std::string* error)
{
    if (isListening())
        return true;
    const auto fail = [&](const std::string& message) {
        if (error)
            *error = message;
        if (m_listenFd >= 0)
            close(m_listenFd);
        m_listenFd = -1;
        return false;
    };
    m_listenFd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_listenFd < 0)
        return fail("cannot make a socket");
    setOption(m_listenFd, SOL_SOCKET, SO_REUSEADDR); // the port again after refusing
    const sockaddr_in address = loopback(port);
    if (bind(m_listenFd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        listen(m_listenFd, 64) != 0)
        return fail("cannot listen on 127.0.0.1:" + std::to_string(port));
    if (pipe2(m_wakePipe, O_CLOEXEC) != 0)
        return fail("cannot make a pipe");
    m_port = localPortOf(m_listenFd);
    m_tlsPort = tlsPort;
    m_plainPort = plainPort;
    m_stopping = false;
    m_acceptThread = std::thread([this] { acceptLoop(); });
    return true;
}

void SharedPortFront::stop()
{
    if (!m_acceptThread.joinable())
        return;
    {
        // Connections accepted or relayed from here on are closed at once (m_stopping).
        std::lock_guard<std::mutex> lock(m_mutex);
        m_stopping = true;
        for (const auto& connection : m_connections) {
            if (connection->client >= 0)
                shutdown(connection->client, SHUT_RDWR);
            if (connection->backend >= 0)
                shutdown(connection->backend, SHUT_RDWR);
        }
    }
    const char wake = 'x';
    while (write(m_wakePipe[1], &wake, 1) < 0 && errno == EINTR) {
    }
    m_acceptThread.join();
    std::list<std::unique_ptr<Connection>> connections;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        connections.swap(m_connections);
    }
    for (const auto& connection : connections)
        connection->thread.join();
    close(m_listenFd);
    close(m_wakePipe[0]);
    close(m_wakePipe[1]);
    m_listenFd = m_wakePipe[0] = m_wakePipe[1] = -1;
}

bool SharedPortFront::relaysFrom(int localPort) const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_relayPorts.count(localPort) > 0;
}

void SharedPortFront::acceptLoop()
{
    for (;;) {
        pollfd waits[2] = {{m_listenFd, POLLIN, 0}, {m_wakePipe[0], POLLIN, 0}};
        if (poll(waits, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            return;
        }
        if (waits[1].revents)
            return;
        const int client = accept4(m_listenFd, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        setOption(client, IPPROTO_TCP, TCP_NODELAY);
        std::lock_guard<std::mutex> lock(m_mutex);
        reapFinished();
        if (m_stopping) {
            close(client);
            continue;
        }
        m_connections.push_back(std::make_unique<Connection>());
        Connection& connection = *m_connections.back();
        connection.client = client;
        connection.thread = std::thread([this, &connection] { serve(connection); });
    }
}

void SharedPortFront::serve(Connection& connection)
{
    // Which listener gets the connection: look at its first byte without taking it.
    unsigned char first = 0;
    ssize_t peeked = 0;
    do {
        peeked = recv(connection.client, &first, 1, MSG_PEEK);
    } while (peeked < 0 && errno == EINTR);

    if (peeked == 1) {
        const int backend = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const sockaddr_in address = loopback(first == kTlsHandshakeRecord ? m_tlsPort : m_plainPort);
        bool connected = backend >= 0 &&
                         connect(backend, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
        if (connected) {
            setOption(backend, IPPROTO_TCP, TCP_NODELAY);
            // Known before the first byte goes through, so before the listener reads a request.
            std::lock_guard<std::mutex> lock(m_mutex);
            connected = !m_stopping;
            if (connected) {
                connection.backend = backend;
                m_relayPorts.insert(localPortOf(backend));
            }
        }
        if (connected)
            relayBytes(connection.client, connection.backend);
        else if (backend >= 0)
            close(backend);
    }

    std::lock_guard<std::mutex> lock(m_mutex);
    if (connection.backend >= 0) {
        m_relayPorts.erase(localPortOf(connection.backend));
        close(connection.backend);
        connection.backend = -1;
    }
    close(connection.client);
    connection.client = -1;
    connection.finished = true;
}

void SharedPortFront::reapFinished()
{
    for (auto it = m_connections.begin(); it != m_connections.end();) {
        if ((*it)->finished) {
            (*it)->thread.join();
            it = m_connections.erase(it);
        } else {
            ++it;
        }
    }
}

} // namespace bridgeemu
