#pragma once

#include "emulatorclock.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>

namespace bridgeemu {

// One token bucket: `rate` tokens a second flow in, up to `burst`; each request takes one.
struct RateBucket
{
    double rate = 10; // requests per second, above 0
    int burst = 1;    // the bucket's size, 1 or more
};

// How a bridge limits its commands: light changes (v1 PUT lights/<id>/state, v2 PUT
// light/<id>) and group changes (v1 PUT groups/<id>/action, v2 PUT grouped_light/<id>) each
// through a bucket of their own; a class without a bucket is unlimited. A refused request is
// answered with `status` (429 or 503) and, when `retryAfterSeconds` is above 0, a Retry-After
// header of that many seconds.
struct RateLimit
{
    std::optional<RateBucket> lights;
    std::optional<RateBucket> groups;
    int status = 429;
    int retryAfterSeconds = 0;
};

struct RateClassCounters
{
    std::uint64_t accepted = 0;
    std::uint64_t refused = 0;
};

// What the limit has let through and refused since it was set.
struct RateLimitCounters
{
    RateClassCounters lights;
    RateClassCounters groups;
};

enum class RateClass
{
    Lights,
    Groups
};

// The class of a request, or nothing for requests that are never limited (reads, pairing,
// the event stream, anything but the four change paths).
std::optional<RateClass> rateClassOf(const std::string& method, const std::string& path);

// Parses the command line's "LIGHTS[/GROUPS][:STATUS[:RETRYAFTER]]", each class "RATE[,BURST]"
// or "-" for unlimited. Nothing, with a message, on a bad text.
std::optional<RateLimit> parseRateLimit(const std::string& text, std::string* error);
// False, with a message, for a limit the emulator does not take.
bool validRateLimit(const RateLimit& limit, std::string* error);

// The buckets, read through the emulator's clock: tokens refill continuously (rate times the
// time passed, capped at the burst), and setting a limit starts every bucket full. Thread-safe.
class RateLimiter
{
public:
    explicit RateLimiter(Clock clock);

    void setClock(Clock clock);
    // Replaces the limit and starts the counters from zero.
    void set(const RateLimit& limit);
    // Ends limiting; the counters stay as they were until the next set().
    void clear();
    std::optional<RateLimit> limit() const;
    RateLimitCounters counters() const;
    // The tokens in a class's bucket now; nothing without a limit on that class.
    std::optional<double> tokens(RateClass rateClass) const;

    // Takes a token for a request of this class: nothing when admitted, else the limit whose
    // status and Retry-After the refusal carries.
    std::optional<RateLimit> admit(RateClass rateClass);

private:
    struct Bucket
    {
        std::optional<RateBucket> shape;
        double tokens = 0;
        SteadyTime updatedAt{};
        RateClassCounters counters;
    };
    Bucket& bucket(RateClass rateClass) { return rateClass == RateClass::Lights ? m_lights : m_groups; }
    const Bucket& bucket(RateClass rateClass) const
    {
        return rateClass == RateClass::Lights ? m_lights : m_groups;
    }
    // The bucket's tokens as of `now`, without changing it.
    static double refilled(const Bucket& bucket, SteadyTime now);

    mutable std::mutex m_mutex;
    Clock m_clock;
    bool m_active = false;
    int m_status = 429;
    int m_retryAfterSeconds = 0;
    Bucket m_lights;
    Bucket m_groups;
};

} // namespace bridgeemu
