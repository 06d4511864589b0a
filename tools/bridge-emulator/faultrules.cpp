#include "faultrules.h"

namespace bridgeemu {

namespace {

// Takes one use of the first rule that matches; a used-up rule is dropped.
template <typename Rule>
std::optional<Rule> takeFirst(std::list<Rule>& rules, const std::string& method, const std::string& path)
{
    for (auto it = rules.begin(); it != rules.end(); ++it) {
        if (!it->match.matches(method, path))
            continue;
        const Rule rule = *it;
        if (it->remaining > 0 && --it->remaining == 0)
            rules.erase(it);
        return rule;
    }
    return std::nullopt;
}

} // namespace

bool RequestMatch::matches(const std::string& requestMethod, const std::string& path) const
{
    return (method.empty() || method == requestMethod) && path.compare(0, pathPrefix.size(), pathPrefix) == 0;
}

void FaultRules::addThrottle(int status, int count, RequestMatch match)
{
    if (count == 0)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_throttles.push_back({status, count, std::move(match)});
}

void FaultRules::clearThrottles()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_throttles.clear();
}

std::optional<int> FaultRules::takeThrottle(const std::string& method, const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto rule = takeFirst(m_throttles, method, path);
    if (!rule)
        return std::nullopt;
    return rule->status;
}

void FaultRules::addOversize(std::size_t bytes, bool chunked, int count, RequestMatch match)
{
    if (count == 0)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_oversizes.push_back({bytes, chunked, count, std::move(match)});
}

void FaultRules::clearOversizes()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_oversizes.clear();
}

std::optional<FaultRules::Oversize> FaultRules::takeOversize(const std::string& method,
                                                             const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return takeFirst(m_oversizes, method, path);
}

void FaultRules::setDescriptionShape(const DescriptionShape& shape)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_description = shape;
}

DescriptionShape FaultRules::descriptionShape() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_description;
}

void FaultRules::addStall(int count, std::chrono::milliseconds duration, RequestMatch match)
{
    if (count == 0)
        return;
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_stalls.push_back({duration, count, std::move(match)});
}

void FaultRules::clearStalls()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        m_stalls.clear();
    }
    releaseHeld();
}

std::optional<std::chrono::milliseconds> FaultRules::takeStall(const std::string& method,
                                                               const std::string& path)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto rule = takeFirst(m_stalls, method, path);
    if (!rule)
        return std::nullopt;
    return rule->duration;
}

FaultRules::HoldOutcome FaultRules::hold(std::chrono::milliseconds duration)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (m_aborting)
        return HoldOutcome::Aborted;
    const std::uint64_t release = m_releaseGeneration;
    const std::uint64_t abort = m_abortGeneration;
    ++m_held;
    const bool woken = m_wake.wait_for(
        lock, duration, [&] { return m_releaseGeneration != release || m_abortGeneration != abort; });
    --m_held;
    if (!woken)
        return HoldOutcome::Elapsed;
    return m_abortGeneration != abort ? HoldOutcome::Aborted : HoldOutcome::Released;
}

void FaultRules::releaseHeld()
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_releaseGeneration;
    }
    m_wake.notify_all();
}

void FaultRules::abortHeld(bool permanently)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ++m_abortGeneration;
        m_aborting = m_aborting || permanently;
    }
    m_wake.notify_all();
}

void FaultRules::resumeAfterAbort()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_aborting = false;
}

int FaultRules::heldCount() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_held;
}

} // namespace bridgeemu
