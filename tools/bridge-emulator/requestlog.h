#pragma once

#include "httpexchange.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace bridgeemu {

struct RecordedRequest
{
    std::uint64_t sequence = 0; // 1, 2, … in arrival order
    std::string method;
    std::string target; // path and query as sent
    std::string scheme; // "https" or "http"
    int port = 0;       // the local port it arrived on
    HeaderList headers;
    std::string body;
    std::chrono::system_clock::time_point receivedAt;
    std::chrono::milliseconds sinceStart{0};
    int status = 0; // the answer's HTTP status; 0 while it is still being answered
};

// Every request the bridge got, oldest first, bounded so that a long demo does not grow without
// end. Thread-safe.
class RequestLog
{
public:
    explicit RequestLog(std::size_t limit) : m_limit(limit) {}

    std::uint64_t record(const HttpRequest& request, std::chrono::milliseconds sinceStart);
    void setStatus(std::uint64_t sequence, int status);
    std::vector<RecordedRequest> entries() const;
    void clear();
    // Called (outside the lock) with every finished request; for a tool's console output.
    void setObserver(std::function<void(const RecordedRequest&)> observer);

private:
    mutable std::mutex m_mutex;
    std::size_t m_limit;
    std::deque<RecordedRequest> m_entries;
    std::uint64_t m_nextSequence = 1;
    std::function<void(const RecordedRequest&)> m_observer;
};

} // namespace bridgeemu
