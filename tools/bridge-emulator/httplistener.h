#pragma once

#include "httpexchange.h"

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
}

namespace bridgeemu {

class CertificateSlot;

struct ListenerCallbacks
{
    // Answers a request; called on one of the listener's threads.
    std::function<HttpResponse(const HttpRequest&)> handle;
    // A request the HTTP library answered by itself without calling `handle` (a body over the
    // size limit, an unsupported method), with the status it gave.
    std::function<void(const HttpRequest&, int status)> answeredByLibrary;
    // Runs an answer's afterSend action away from the listener's threads.
    std::function<void(std::function<void()>)> runLater;
};

struct ListenerLimits
{
    std::size_t maxBodyBytes = 1024 * 1024;
    std::size_t maxThreads = 128;
};

// One listening socket, plain or TLS, served by the HTTP library on threads of its own.
// start() and stop() may be called again to close and reopen the socket on the same port.
class HttpListener
{
public:
    // `certificate` (null for plain HTTP) must outlive the listener; each new connection
    // presents the certificate (and chain) current in it when its handshake begins.
    HttpListener(std::string host, const CertificateSlot* certificate, ListenerCallbacks callbacks,
                 ListenerLimits limits);
    ~HttpListener();
    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;

    // Port 0 picks a free port. Returns false with a message when the socket cannot be opened.
    bool start(int port, std::string* error);
    // Closes the listening socket, cuts the open connections and joins every thread.
    void stop();
    bool isListening() const { return m_thread.joinable(); }
    int port() const { return m_port; }
    const std::string& host() const { return m_host; }
    const char* scheme() const { return m_certificate ? "https" : "http"; }

private:
    void setUpRoutes();

    std::string m_host;
    const CertificateSlot* m_certificate;
    ListenerCallbacks m_callbacks;
    ListenerLimits m_limits;
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    std::atomic<bool> m_finished{true};
    int m_port = 0;
};

} // namespace bridgeemu
