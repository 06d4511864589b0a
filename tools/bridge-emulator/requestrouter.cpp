#include "requestrouter.h"

#include "bridgemodel.h"
#include "controlapi.h"
#include "eventstream.h"
#include "faultrules.h"
#include "ratelimit.h"
#include "requestlog.h"
#include "upnpdescription.h"
#include "v1api.h"
#include "v1errors.h"
#include "v2api.h"

#include <minijson.h>

namespace bridgeemu {

RequestRouter::RequestRouter(BridgeEmulator& emulator, std::mutex& modelMutex, BridgeModel& model,
                             RequestLog& log, FaultRules& faults, RateLimiter& rateLimiter,
                             const std::atomic<int>& httpPort, EventStreamHub& events,
                             std::function<void()> noteChange)
    : m_emulator(emulator), m_modelMutex(modelMutex), m_model(model), m_log(log), m_faults(faults),
      m_rateLimiter(rateLimiter), m_httpPort(httpPort), m_events(events), m_noteChange(std::move(noteChange)),
      m_startedAt(std::chrono::steady_clock::now())
{
}

bool RequestRouter::isControlPath(const std::string& path)
{
    return path == "/emulator" || startsWith(path, "/emulator/");
}

std::chrono::milliseconds RequestRouter::sinceStart() const
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 m_startedAt);
}

HttpResponse RequestRouter::route(const HttpRequest& request)
{
    if (isControlPath(request.path))
        return handleControlRequest(m_emulator, request);

    const std::uint64_t sequence = m_log.record(request, sinceStart());
    HttpResponse response;
    if (m_plainHandler && request.scheme == "http") {
        response = m_plainHandler(request);
        m_log.setStatus(sequence, response.status);
        return response;
    }
    const auto stallFor = m_faults.takeStall(request.method, request.path);
    if (stallFor && m_faults.hold(*stallFor) == FaultRules::HoldOutcome::Aborted) {
        // The connection is being cut; nothing of this request may take effect.
        response = HttpResponse::text(503, "");
    } else if (const auto throttledWith = m_faults.takeThrottle(request.method, request.path)) {
        // Bridges answer an overload with the status and a version 1 error of type 901.
        minijson::CArray errors;
        v1::addInternalError(errors, request.path, *throttledWith);
        response = HttpResponse::json(errors, *throttledWith);
        if (*throttledWith == 503)
            response.headers.emplace_back("Retry-After", "1");
    } else if (const auto refusal = rateRefusal(request)) {
        response = *refusal;
    } else if (const auto oversize = m_faults.takeOversize(request.method, request.path)) {
        // An array that never closes: "[0,0,0,...", exactly the size asked for.
        const std::size_t pairs = oversize->bytes > 1 ? (oversize->bytes - 1) / 2 : 0;
        auto body = std::make_shared<PatternBody>();
        body->add("[").add("0,", pairs).add("0", oversize->bytes > 1 ? (oversize->bytes - 1) % 2 : 0);
        response.generated = std::move(body);
        response.generatedChunked = oversize->chunked;
    } else {
        response = answerFromBridge(request);
        if (request.method != "GET")
            m_noteChange();
    }
    m_log.setStatus(sequence, response.status);
    return response;
}

std::optional<HttpResponse> RequestRouter::rateRefusal(const HttpRequest& request)
{
    const auto rateClass = rateClassOf(request.method, request.path);
    if (!rateClass)
        return std::nullopt;
    const auto refusal = m_rateLimiter.admit(*rateClass);
    if (!refusal)
        return std::nullopt;
    // Each API answers an overload in its own error form; the status is what a client acts on.
    const std::string description = "Internal error, " + std::to_string(refusal->status);
    HttpResponse response;
    if (startsWith(request.path, "/clip/")) {
        response = v2::errorResponse(refusal->status, {description});
    } else {
        minijson::CArray errors;
        v1::addInternalError(errors, request.path, refusal->status);
        response = HttpResponse::json(errors, refusal->status);
    }
    if (refusal->retryAfterSeconds > 0)
        response.headers.emplace_back("Retry-After", std::to_string(refusal->retryAfterSeconds));
    return response;
}

HttpResponse RequestRouter::answerFromBridge(const HttpRequest& request)
{
    if (request.path == "/description.xml" && m_describes) {
        const int port = m_httpPort > 0 ? m_httpPort.load() : request.localPort;
        const DescriptionShape shape = m_faults.descriptionShape();
        std::lock_guard<std::mutex> lock(m_modelMutex);
        if (shape.mode == DescriptionShape::Mode::Normal)
            return HttpResponse::text(200, upnpDescription(m_model.identity, port), "text/xml");
        HttpResponse response;
        response.contentType = "text/xml";
        response.generated = shapedDescription(shape, m_model.identity, port);
        return response;
    }
    if (request.path == "/api" || startsWith(request.path, "/api/")) {
        std::lock_guard<std::mutex> lock(m_modelMutex);
        return v1::handleRequest(m_model, request);
    }
    if (request.path == "/eventstream/clip/v2" || startsWith(request.path, "/clip/v2")) {
        std::unique_lock<std::mutex> lock(m_modelMutex);
        if (!m_model.clip.enabled)
            return HttpResponse::text(404, "not found", "text/html");
        if (startsWith(request.path, "/clip/v2"))
            return v2::handleRequest(m_model, request);
        if (!v2::isAuthorized(m_model, request))
            return v2::errorResponse(403, {"unauthorized user"});
        lock.unlock();
        if (request.method != "GET")
            return v2::errorResponse(405, {"method not allowed"});
        return m_events.open(request);
    }
    return HttpResponse::text(404, "not found", "text/html");
}

HttpResponse RequestRouter::routeControlOnly(const HttpRequest& request)
{
    if (isControlPath(request.path))
        return handleControlRequest(m_emulator, request);
    return HttpResponse::text(404, "this port serves only /emulator/");
}

void RequestRouter::recordLibraryAnswer(const HttpRequest& request, int status)
{
    if (!isControlPath(request.path))
        m_log.setStatus(m_log.record(request, sinceStart()), status);
}

} // namespace bridgeemu
