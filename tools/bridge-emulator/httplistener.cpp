#include "httplistener.h"

#include "certificate.h"
#include "connectionsockets.h"
#include "growingthreadpool.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace bridgeemu {

namespace {

// Whether the request on this thread went through our handler, and what it asked to run after
// its answer; the library's logger, called once the answer is written, picks both up.
// How much of a generated body is made and written at a time.
constexpr std::size_t kGeneratedPiece = 64 * 1024;

thread_local bool t_handled = false;
thread_local std::function<void()> t_afterSend;

HttpRequest convertRequest(const httplib::Request& request, const char* scheme, int port)
{
    HttpRequest converted;
    converted.method = request.method;
    converted.path = request.path;
    converted.target = request.target.empty() ? request.path : request.target;
    for (const auto& header : request.headers) {
        // The library files the connection's addresses among the headers; the client sent none.
        const std::string& name = header.first;
        if (name == "LOCAL_ADDR" || name == "LOCAL_PORT" || name == "REMOTE_ADDR" || name == "REMOTE_PORT")
            continue;
        converted.headers.emplace_back(header.first, header.second);
    }
    converted.body = request.body;
    converted.scheme = scheme;
    converted.localPort = port;
    converted.remotePort = request.remote_port;
    return converted;
}

// Puts the slot's current certificate, key and chain on a connection whose handshake begins.
int presentCurrentCertificate(SSL* ssl, void* argument)
{
    const auto current = static_cast<const CertificateSlot*>(argument)->current();
    if (!current || SSL_use_certificate(ssl, current->certificate()) != 1 ||
        SSL_use_PrivateKey(ssl, current->privateKey()) != 1 || SSL_clear_chain_certs(ssl) != 1)
        return 0;
    for (X509* link : current->chain()) {
        if (SSL_add1_chain_cert(ssl, link) != 1)
            return 0;
    }
    return 1;
}

} // namespace

HttpListener::HttpListener(std::string host, const CertificateSlot* certificate,
                           ListenerCallbacks callbacks, ListenerLimits limits)
    : m_host(std::move(host)), m_certificate(certificate), m_callbacks(std::move(callbacks)), m_limits(limits)
{
}

HttpListener::~HttpListener()
{
    stop();
}

bool HttpListener::start(int port, std::string* error)
{
    if (isListening())
        return true;
    if (m_certificate) {
        const auto initial = m_certificate->current();
        if (!initial) {
            if (error)
                *error = "no certificate to present";
            return false;
        }
        auto server = std::make_unique<httplib::SSLServer>(initial->certificate(), initial->privateKey());
        if (server->is_valid())
            SSL_CTX_set_cert_cb(server->ssl_context(), presentCurrentCertificate,
                                const_cast<CertificateSlot*>(m_certificate));
        m_server = std::move(server);
    } else
        m_server = std::make_unique<httplib::Server>();
    if (!m_server->is_valid()) {
        if (error)
            *error = "cannot set up the TLS context";
        m_server.reset();
        return false;
    }
    const std::size_t maxThreads = m_limits.maxThreads;
    m_server->new_task_queue = [maxThreads] { return new GrowingThreadPool(maxThreads); };
    m_server->set_payload_max_length(m_limits.maxBodyBytes);
    m_server->set_keep_alive_max_count(1000);
    // Answers go out as headers and body in separate writes; without this, Nagle's algorithm
    // holds the second one back until the client's delayed acknowledgement, some 40 ms.
    m_server->set_tcp_nodelay(true);
    setUpRoutes();

    const int bound =
        port == 0 ? m_server->bind_to_any_port(m_host) : (m_server->bind_to_port(m_host, port) ? port : -1);
    if (bound <= 0) {
        if (error)
            *error = "cannot listen on " + m_host + ":" + std::to_string(port);
        m_server.reset();
        return false;
    }
    m_port = bound;
    m_finished = false;
    m_thread = std::thread([this] {
        m_server->listen_after_bind();
        m_finished = true;
    });
    // stop() only acts on a running server, so wait until the accept loop has begun.
    while (!m_server->is_running() && !m_finished)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return true;
}

void HttpListener::stop()
{
    if (!m_thread.joinable())
        return;
    m_server->stop();
    // The accept loop has ended; cut the connections still served so that their threads, which
    // the library joins before listen returns, finish now rather than at their time-outs.
    while (!m_finished) {
        shutDownConnectionsOnPort(m_port);
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    m_thread.join();
    m_server.reset();
}

void HttpListener::setUpRoutes()
{
    const auto serve = [this](const httplib::Request& request, httplib::Response& response) {
        t_handled = true;
        if (t_afterSend) // left over from an answer whose writing failed before the logger ran
            m_callbacks.runLater(std::exchange(t_afterSend, nullptr));
        HttpResponse answer;
        try {
            answer = m_callbacks.handle(convertRequest(request, scheme(), m_port));
        } catch (const std::exception& e) {
            answer = HttpResponse::text(500, std::string("internal error: ") + e.what());
        }
        response.status = answer.status;
        for (const auto& [name, value] : answer.headers)
            response.set_header(name, value);
        if (answer.stream) {
            response.set_chunked_content_provider(
                answer.contentType,
                [stream = std::move(answer.stream)](std::size_t, httplib::DataSink& sink) {
                    std::string out;
                    const bool more = stream(out);
                    if (!out.empty() && !sink.write(out.data(), out.size()))
                        return false; // the client has gone
                    if (!more)
                        sink.done();
                    return true;
                });
        } else if (answer.generated && answer.generatedChunked) {
            response.set_chunked_content_provider(
                answer.contentType, [body = answer.generated, offset = std::make_shared<std::size_t>(0)](
                                        std::size_t, httplib::DataSink& sink) {
                    std::string out;
                    body->read(*offset, kGeneratedPiece, out);
                    *offset += out.size();
                    if (!out.empty() && !sink.write(out.data(), out.size()))
                        return false;
                    if (*offset >= body->size())
                        sink.done();
                    return true;
                });
        } else if (answer.generated) {
            response.set_content_provider(
                answer.generated->size(), answer.contentType,
                [body = answer.generated](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                    std::string out;
                    body->read(offset, std::min(length, kGeneratedPiece), out);
                    return !out.empty() && sink.write(out.data(), out.size());
                });
        } else {
            response.set_content(answer.body, answer.contentType);
        }
        t_afterSend = std::move(answer.afterSend);
    };
    // Runs once the headers are read and before the body is: the moment to acknowledge them.
    m_server->set_pre_routing_handler([this](const httplib::Request& request, httplib::Response&) {
        if (request.get_header_value_count("Content-Length") > 0 || request.has_header("Transfer-Encoding"))
            acknowledgeNow(m_port, request.remote_port, request.ssl ? SSL_get_fd(request.ssl) : -1);
        return httplib::Server::HandlerResponse::Unhandled;
    });
    m_server->Get(".*", serve);
    m_server->Post(".*", serve);
    m_server->Put(".*", serve);
    m_server->Patch(".*", serve);
    m_server->Delete(".*", serve);
    m_server->Options(".*", serve);
    m_server->set_logger([this](const httplib::Request& request, const httplib::Response& response) {
        if (!t_handled && m_callbacks.answeredByLibrary)
            m_callbacks.answeredByLibrary(convertRequest(request, scheme(), m_port), response.status);
        t_handled = false;
        if (t_afterSend)
            m_callbacks.runLater(std::exchange(t_afterSend, nullptr));
    });
}

} // namespace bridgeemu
