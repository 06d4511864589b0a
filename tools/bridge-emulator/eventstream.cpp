#include "eventstream.h"

#include <algorithm>
#include <chrono>

namespace bridgeemu {

namespace {

// How long a stream's writer waits for news before it checks whether it should end.
constexpr std::chrono::milliseconds kWakeInterval{50};
// The most a stream's writer sends at once, so that filler of any length goes out in parts.
constexpr std::size_t kMaxWrite = 64 * 1024;

} // namespace

EventStreamHub::~EventStreamHub()
{
    dropAll();
}

HttpResponse EventStreamHub::open(const HttpRequest& request)
{
    auto connection = std::make_shared<Connection>();
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        connection->pending.push_back({": hi\n\n"});
        const std::string lastId = request.header("Last-Event-ID");
        const auto resumeAt = std::find_if(m_history.begin(), m_history.end(),
                                           [&](const Message& message) { return message.id == lastId; });
        if (!lastId.empty() && resumeAt != m_history.end()) {
            for (auto it = std::next(resumeAt); it != m_history.end(); ++it)
                connection->pending.push_back({it->text});
        }
        m_connections.push_back(connection);
    }

    // Detaches the connection once the HTTP library drops the answer, however the stream ended.
    struct Detacher
    {
        EventStreamHub* hub;
        std::shared_ptr<Connection> connection;
        ~Detacher() { hub->detach(connection); }
    };
    const std::shared_ptr<Detacher> detacher(new Detacher{this, connection});

    HttpResponse response;
    response.contentType = "text/event-stream";
    response.headers.emplace_back("Cache-Control", "no-cache");
    response.stream = [this, connection, detacher](std::string& out) {
        std::unique_lock<std::mutex> lock(m_mutex);
        m_wake.wait_for(lock, kWakeInterval, [&] {
            return connection->closed || (!m_stalled && !connection->held && !connection->pending.empty());
        });
        if (connection->closed)
            return false;
        if (m_stalled || connection->held)
            return true;
        takePending(*connection, out);
        m_drained.notify_all();
        return true;
    };
    return response;
}

void EventStreamHub::takePending(Connection& connection, std::string& out)
{
    while (!connection.pending.empty() && !connection.held && out.size() < kMaxWrite) {
        Piece& piece = connection.pending.front();
        out += piece.text;
        piece.text.clear();
        const std::uint64_t filler =
            std::min<std::uint64_t>(piece.filler, kMaxWrite - std::min(kMaxWrite, out.size()));
        out.append(static_cast<std::size_t>(filler), 'x');
        piece.filler -= filler;
        if (piece.filler > 0)
            return;
        connection.held = piece.holdAfter;
        connection.pending.pop_front();
    }
}

void EventStreamHub::detach(const std::shared_ptr<Connection>& connection)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_connections.remove(connection);
    m_drained.notify_all();
}

void EventStreamHub::sendToAll(const std::string& text)
{
    // A held stream sends nothing more, so it keeps nothing either.
    for (const auto& connection : m_connections) {
        if (!connection->held)
            connection->pending.push_back({text});
    }
    m_wake.notify_all();
}

std::string EventStreamHub::publish(const std::string& data)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    // Ids are the second of the message and a counter within that second, "1700000000:0" first.
    const long long second =
        std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    if (second != m_idSecond) {
        m_idSecond = second;
        m_idCounter = 0;
    }
    Message message;
    message.id = std::to_string(second) + ":" + std::to_string(m_idCounter++);
    message.text = "id: " + message.id + "\ndata: " + data + "\n\n";
    m_history.push_back(message);
    while (m_history.size() > m_historyLimit)
        m_history.pop_front();
    sendToAll(message.text);
    return message.id;
}

void EventStreamHub::dropAll()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& connection : m_connections)
        connection->closed = true;
    m_connections.clear();
    m_wake.notify_all();
    m_drained.notify_all();
}

void EventStreamHub::setStalled(bool stalled)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_stalled = stalled;
    m_wake.notify_all();
}

bool EventStreamHub::isStalled() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_stalled;
}

void EventStreamHub::sendRetry(int milliseconds)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    sendToAll("retry: " + std::to_string(milliseconds) + "\n\n");
}

void EventStreamHub::inject(const std::string& text)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    sendToAll(text);
}

void EventStreamHub::sendEndlessLine(std::uint64_t bytes, bool thenNewline)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (const auto& connection : m_connections) {
        connection->pending.push_back({"data: ", bytes, !thenNewline});
        if (thenNewline)
            connection->pending.push_back({"\n\n"});
    }
    m_wake.notify_all();
}

bool EventStreamHub::waitForRoom(std::size_t limit, std::chrono::milliseconds timeout)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_drained.wait_for(lock, timeout, [&] {
        return std::all_of(m_connections.begin(), m_connections.end(), [&](const auto& connection) {
            return connection->held || connection->pending.size() <= limit;
        });
    });
}

int EventStreamHub::connectionCount() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_connections.size());
}

std::string EventStreamHub::lastEventId() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_history.empty() ? std::string() : m_history.back().id;
}

} // namespace bridgeemu
