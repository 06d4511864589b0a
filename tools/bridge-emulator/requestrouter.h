#pragma once

#include "emulatorclock.h"
#include "httpexchange.h"

#include <atomic>
#include <functional>
#include <mutex>
#include <optional>

namespace bridgeemu {

class BridgeEmulator;
class EventStreamHub;
class FaultRules;
class RateLimiter;
class RequestLog;
struct BridgeModel;

// Decides who answers a request that reaches the bridge's ports: the control API (never
// recorded or disturbed), else a fault rule (stall, throttle), the rate limit, else one of the bridge's own
// APIs by path: version 1 under /api, CLIP v2 under /clip/v2 and its event stream. Every request
// that may have changed something is reported, so that the event stream can tell.
class RequestRouter
{
public:
    RequestRouter(BridgeEmulator& emulator, std::mutex& modelMutex, BridgeModel& model, RequestLog& log,
                  FaultRules& faults, RateLimiter& rateLimiter, const std::atomic<int>& httpPort,
                  EventStreamHub& events, std::function<void()> noteChange);

    HttpResponse route(const HttpRequest& request);
    // The control port answers /emulator/ and nothing else.
    HttpResponse routeControlOnly(const HttpRequest& request);
    // Records a request that the HTTP library answered without asking (oversized, malformed).
    void recordLibraryAnswer(const HttpRequest& request, int status);

    static bool isControlPath(const std::string& path);

    // Set before the listeners open. Whether /description.xml is served (else 404), and who
    // answers every plain HTTP request outside /emulator/ instead of the bridge (a redirect
    // to HTTPS); such requests are recorded with that answer and meet no fault rule.
    void setDescriptionServed(bool served) { m_describes = served; }
    void setPlainHandler(std::function<HttpResponse(const HttpRequest&)> handler)
    {
        m_plainHandler = std::move(handler);
    }

private:
    HttpResponse answerFromBridge(const HttpRequest& request);
    // The refusal of a change over the rate limit, or nothing when it may go ahead.
    std::optional<HttpResponse> rateRefusal(const HttpRequest& request);
    std::chrono::milliseconds sinceStart() const;

    BridgeEmulator& m_emulator;
    std::mutex& m_modelMutex;
    BridgeModel& m_model;
    RequestLog& m_log;
    FaultRules& m_faults;
    RateLimiter& m_rateLimiter;
    const std::atomic<int>& m_httpPort;
    EventStreamHub& m_events;
    std::function<void()> m_noteChange;
    const SteadyTime m_startedAt;
    bool m_describes = true;
    std::function<HttpResponse(const HttpRequest&)> m_plainHandler;
};

} // namespace bridgeemu
