#pragma once

#include <atomic>
#include <list>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>

namespace bridgeemu {

// One more listening port that takes TLS and plain HTTP alike, the way a real bridge answers
// both on its one address. Each accepted connection is looked at without reading (MSG_PEEK):
// a first byte of 0x16 opens a TLS handshake and the connection is relayed to the emulator's
// TLS listener, anything else to its plain one. Bytes then flow both ways unchanged until
// either side ends. Only 127.0.0.1.
//
// The HTTP library cannot be handed an accepted socket, hence the relay. The listeners behind
// it see the relay's own connections; relaysFrom() tells them apart, so that their requests
// can be recorded with the shared port.
class SharedPortFront
{
public:
    SharedPortFront() = default;
    ~SharedPortFront();
    SharedPortFront(const SharedPortFront&) = delete;
    SharedPortFront& operator=(const SharedPortFront&) = delete;

    // Listens on `port` (0: a free one) and relays to the listeners on 127.0.0.1:`tlsPort` and
    // :`plainPort`. False with a message when the socket cannot be opened.
    bool start(int port, int tlsPort, int plainPort, std::string* error);
    // Closes the listening socket, cuts every relayed connection and joins every thread.
    void stop();
    bool isListening() const { return m_acceptThread.joinable(); }
    int port() const { return m_port; }
    // Whether a connection to a listener behind the front comes from the relay's `localPort`.
    bool relaysFrom(int localPort) const;

private:
    struct Connection
    {
        int client = -1;
        int backend = -1;
        std::thread thread;
        std::atomic<bool> finished{false};
    };

    void acceptLoop();
    void serve(Connection& connection);
    void reapFinished(); // with m_mutex held

    int m_listenFd = -1;
    int m_wakePipe[2] = {-1, -1}; // written by stop() to end the accept loop
    int m_port = 0;
    int m_tlsPort = 0;
    int m_plainPort = 0;
    std::thread m_acceptThread;

    mutable std::mutex m_mutex; // guards everything below
    std::list<std::unique_ptr<Connection>> m_connections;
    std::set<int> m_relayPorts;
    bool m_stopping = false;
};

} // namespace bridgeemu
