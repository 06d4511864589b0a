#include "ratelimit.h"

#include "httpexchange.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

namespace bridgeemu {

namespace {

// The largest rate, burst and Retry-After the emulator takes; beyond them a limit means nothing.
constexpr double kMaxRate = 1e6;
constexpr int kMaxBurst = 1000000;
constexpr int kMaxRetryAfter = 86400;
// Refills are sums of floating-point products; a bucket this close to a whole token has one.
constexpr double kTokenSlack = 1e-9;

bool parseNumber(const std::string& text, double& value)
{
    if (text.empty() || text.find_first_not_of("0123456789.") != std::string::npos)
        return false;
    char* end = nullptr;
    value = std::strtod(text.c_str(), &end);
    return *end == '\0';
}

bool parseWhole(const std::string& text, int low, int high, int& value)
{
    double number = 0;
    if (!parseNumber(text, number) || number != std::floor(number) || number < low || number > high)
        return false;
    value = static_cast<int>(number);
    return true;
}

// "RATE[,BURST]" or "-".
bool parseClass(const std::string& text, std::optional<RateBucket>& bucket)
{
    if (text == "-") {
        bucket.reset();
        return true;
    }
    RateBucket parsed;
    const std::size_t comma = text.find(',');
    if (!parseNumber(text.substr(0, comma), parsed.rate))
        return false;
    if (comma != std::string::npos && !parseWhole(text.substr(comma + 1), 1, kMaxBurst, parsed.burst))
        return false;
    bucket = parsed;
    return true;
}

} // namespace

std::optional<RateClass> rateClassOf(const std::string& method, const std::string& path)
{
    if (method != "PUT")
        return std::nullopt;
    std::vector<std::string> segments = splitPath(path);
    // The bridge's APIs read a path with trailing slashes as the one without.
    while (!segments.empty() && segments.back().empty())
        segments.pop_back();
    if (segments.size() == 5 && segments[0] == "api") {
        if (segments[2] == "lights" && segments[4] == "state")
            return RateClass::Lights;
        if (segments[2] == "groups" && segments[4] == "action")
            return RateClass::Groups;
    }
    if (segments.size() == 5 && segments[0] == "clip" && segments[1] == "v2" && segments[2] == "resource") {
        if (segments[3] == "light")
            return RateClass::Lights;
        if (segments[3] == "grouped_light")
            return RateClass::Groups;
    }
    return std::nullopt;
}

bool validRateLimit(const RateLimit& limit, std::string* error)
{
    const auto fail = [error](const std::string& message) {
        if (error)
            *error = message;
        return false;
    };
    for (const auto& bucket : {limit.lights, limit.groups}) {
        if (bucket && !(bucket->rate > 0 && bucket->rate <= kMaxRate))
            return fail("a rate must be above 0 and at most 1000000 a second");
        if (bucket && (bucket->burst < 1 || bucket->burst > kMaxBurst))
            return fail("a burst must be 1 to 1000000");
    }
    if (limit.status != 429 && limit.status != 503)
        return fail("the status must be 429 or 503");
    if (limit.retryAfterSeconds < 0 || limit.retryAfterSeconds > kMaxRetryAfter)
        return fail("retry-after must be 0 to 86400 seconds");
    return true;
}

std::optional<RateLimit> parseRateLimit(const std::string& text, std::string* error)
{
    const auto fail = [error](const std::string& message) {
        if (error)
            *error = message;
        return std::nullopt;
    };
    RateLimit limit;
    const std::size_t colon = text.find(':');
    const std::string classes = text.substr(0, colon);
    const std::size_t slash = classes.find('/');
    if (!parseClass(classes.substr(0, slash), limit.lights) ||
        (slash != std::string::npos && !parseClass(classes.substr(slash + 1), limit.groups)))
        return fail("rates are RATE[,BURST] (RATE a number above 0, BURST a whole number) or -");
    if (colon != std::string::npos) {
        const std::string rest = text.substr(colon + 1);
        const std::size_t second = rest.find(':');
        if (!parseWhole(rest.substr(0, second), 0, 999, limit.status))
            return fail("the status must be 429 or 503");
        if (second != std::string::npos &&
            !parseWhole(rest.substr(second + 1), 0, kMaxRetryAfter, limit.retryAfterSeconds))
            return fail("retry-after must be 0 to 86400 seconds");
    }
    std::string invalid;
    if (!validRateLimit(limit, &invalid))
        return fail(invalid);
    return limit;
}

RateLimiter::RateLimiter(Clock clock) : m_clock(std::move(clock)) {}

void RateLimiter::setClock(Clock clock)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_clock = std::move(clock);
    // Time on the new clock starts now; what the buckets held stays.
    const SteadyTime now = m_clock();
    m_lights.updatedAt = now;
    m_groups.updatedAt = now;
}

void RateLimiter::set(const RateLimit& limit)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const SteadyTime now = m_clock();
    m_active = true;
    m_status = limit.status;
    m_retryAfterSeconds = limit.retryAfterSeconds;
    for (auto [target, shape] : {std::pair{&m_lights, limit.lights}, std::pair{&m_groups, limit.groups}}) {
        target->shape = shape;
        target->tokens = shape ? shape->burst : 0;
        target->updatedAt = now;
        target->counters = {};
    }
}

void RateLimiter::clear()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_active = false;
}

std::optional<RateLimit> RateLimiter::limit() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_active)
        return std::nullopt;
    return RateLimit{m_lights.shape, m_groups.shape, m_status, m_retryAfterSeconds};
}

RateLimitCounters RateLimiter::counters() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return {m_lights.counters, m_groups.counters};
}

std::optional<double> RateLimiter::tokens(RateClass rateClass) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const Bucket& chosen = bucket(rateClass);
    if (!m_active || !chosen.shape)
        return std::nullopt;
    return refilled(chosen, m_clock());
}

double RateLimiter::refilled(const Bucket& bucket, SteadyTime now)
{
    const double seconds = std::chrono::duration<double>(now - bucket.updatedAt).count();
    // A clock moved back adds nothing.
    return std::min<double>(bucket.shape->burst, bucket.tokens + bucket.shape->rate * std::max(0.0, seconds));
}

std::optional<RateLimit> RateLimiter::admit(RateClass rateClass)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (!m_active)
        return std::nullopt;
    Bucket& chosen = bucket(rateClass);
    if (!chosen.shape) {
        ++chosen.counters.accepted;
        return std::nullopt;
    }
    const SteadyTime now = m_clock();
    chosen.tokens = refilled(chosen, now);
    chosen.updatedAt = std::max(chosen.updatedAt, now);
    if (chosen.tokens + kTokenSlack >= 1) {
        chosen.tokens = std::max(0.0, chosen.tokens - 1);
        ++chosen.counters.accepted;
        return std::nullopt;
    }
    ++chosen.counters.refused;
    return RateLimit{m_lights.shape, m_groups.shape, m_status, m_retryAfterSeconds};
}

} // namespace bridgeemu
