#pragma once

#include "httpexchange.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace bridgeemu {

// The server-sent event stream of /eventstream/clip/v2: every open stream gets ": hi" on
// connecting, then the messages published after it ("id: <seconds>:<n>" and one "data:" line
// with a JSON array of events). A client that names a "Last-Event-ID" still in the bounded
// history first gets every message after that one. Besides the bridge's own behaviour the hub
// plays the network for tests: it drops every stream, stalls them (keeps them open, sends
// nothing until resumed), sends "retry:" and injects raw text.
class EventStreamHub
{
public:
    explicit EventStreamHub(std::size_t historyLimit = 1000) : m_historyLimit(historyLimit) {}
    ~EventStreamHub();
    EventStreamHub(const EventStreamHub&) = delete;
    EventStreamHub& operator=(const EventStreamHub&) = delete;

    // The long-lived answer to a stream request; its body is written as messages arrive.
    HttpResponse open(const HttpRequest& request);
    // Sends one message with `data` (a JSON array text) to every stream and keeps it for
    // replays. Returns its id.
    std::string publish(const std::string& data);

    // Ends every open stream; clients see their answer end.
    void dropAll();
    void setStalled(bool stalled);
    bool isStalled() const;
    void sendRetry(int milliseconds);
    void inject(const std::string& text);
    // On every open stream: "data: " and `bytes` filler bytes without a line end, sent a part
    // at a time; then "\n\n" and the stream goes on, or (without `thenNewline`) the stream
    // sends nothing more and stays open until dropped.
    void sendEndlessLine(std::uint64_t bytes, bool thenNewline);
    // Waits until no open stream has more than `limit` messages waiting to be written, or
    // `timeout` has passed; true when so. Lets a flood keep pace with its slowest reader.
    bool waitForRoom(std::size_t limit, std::chrono::milliseconds timeout);
    int connectionCount() const;
    std::string lastEventId() const;

private:
    // Text to send, then as many filler bytes; `holdAfter` ends what the stream sends.
    struct Piece
    {
        std::string text;
        std::uint64_t filler = 0;
        bool holdAfter = false;
    };
    struct Connection
    {
        std::deque<Piece> pending;
        bool closed = false;
        bool held = false;
    };
    static void takePending(Connection& connection, std::string& out);
    struct Message
    {
        std::string id;
        std::string text;
    };

    void sendToAll(const std::string& text); // with m_mutex held
    void detach(const std::shared_ptr<Connection>& connection);

    const std::size_t m_historyLimit;
    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_drained;
    std::list<std::shared_ptr<Connection>> m_connections;
    std::deque<Message> m_history;
    bool m_stalled = false;
    long long m_idSecond = 0;
    int m_idCounter = 0;
};

} // namespace bridgeemu
