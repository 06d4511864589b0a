#pragma once

#include "upnpdescription.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <list>
#include <mutex>
#include <optional>
#include <string>

namespace bridgeemu {

// Which requests a fault applies to: a path prefix and a method, either empty for any.
struct RequestMatch
{
    std::string pathPrefix;
    std::string method;

    bool matches(const std::string& method, const std::string& path) const;
};

// The faults a test can ask for: answering requests with HTTP 429/503 (throttling) and holding
// them before they are answered (stalling). Each rule covers a number of matching requests, or
// every one when the count is negative, until it is used up or cleared. Thread-safe.
class FaultRules
{
public:
    enum class HoldOutcome
    {
        Elapsed,  // the stall ran its time: answer normally
        Released, // a test released it early: answer normally
        Aborted   // the emulator is closing its connections: do not answer
    };

    void addThrottle(int status, int count, RequestMatch match);
    void clearThrottles();
    // The status to answer with, consuming one use of the first matching rule.
    std::optional<int> takeThrottle(const std::string& method, const std::string& path);

    // Answers matching requests with a 200 JSON body of `bytes` bytes that never parses.
    void addOversize(std::size_t bytes, bool chunked, int count, RequestMatch match);
    void clearOversizes();
    struct Oversize
    {
        std::size_t bytes;
        bool chunked;
        int remaining;
        RequestMatch match;
    };
    std::optional<Oversize> takeOversize(const std::string& method, const std::string& path);

    void setDescriptionShape(const DescriptionShape& shape);
    DescriptionShape descriptionShape() const;

    void addStall(int count, std::chrono::milliseconds duration, RequestMatch match);
    // Drops the stall rules and releases the requests being held.
    void clearStalls();
    std::optional<std::chrono::milliseconds> takeStall(const std::string& method, const std::string& path);

    // Blocks the calling request thread for `duration` unless released or aborted first.
    HoldOutcome hold(std::chrono::milliseconds duration);
    void releaseHeld();
    // Ends every hold in progress with Aborted; with `permanently`, later holds end at once too.
    void abortHeld(bool permanently);
    void resumeAfterAbort();
    int heldCount() const;

private:
    struct Throttle
    {
        int status;
        int remaining;
        RequestMatch match;
    };
    struct Stall
    {
        std::chrono::milliseconds duration;
        int remaining;
        RequestMatch match;
    };

    mutable std::mutex m_mutex;
    std::condition_variable m_wake;
    std::list<Throttle> m_throttles;
    std::list<Stall> m_stalls;
    std::list<Oversize> m_oversizes;
    DescriptionShape m_description;
    int m_held = 0;
    std::uint64_t m_releaseGeneration = 0;
    std::uint64_t m_abortGeneration = 0;
    bool m_aborting = false;
};

} // namespace bridgeemu
