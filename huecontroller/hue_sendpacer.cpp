#include "hue_sendpacer.h"

#include <cmath>

namespace hue {

void SendPacer::setRates(double lightsPerSecond, double groupsPerSecond)
{
    const double wanted[2] = {lightsPerSecond, groupsPerSecond};
    const double defaults[2] = {kDefaultLightsPerSecond, kDefaultGroupsPerSecond};
    for (int i = 0; i < 2; ++i)
        m_perSecond[i] = std::isfinite(wanted[i]) && wanted[i] > 0.0 ? wanted[i] : defaults[i];
}

qint64 SendPacer::intervalMs(RequestClass requestClass) const
{
    return qMax<qint64>(1, qint64(std::ceil(kSpacingMargin * 1000.0 / m_perSecond[requestClass])));
}

qint64 SendPacer::waitMs(RequestClass requestClass, qint64 nowMs) const
{
    qint64 earliest = qMax(m_pausedUntilMs, m_nextSlotMs[LightChange]);
    if (requestClass == GroupChange)
        earliest = qMax(earliest, m_nextSlotMs[GroupChange]);
    return qMax<qint64>(0, earliest - nowMs);
}

void SendPacer::sent(RequestClass requestClass, qint64 nowMs)
{
    // Slots are spaced from the later of now and the slot just used, so an idle bridge gets
    // one change at once but never a burst.
    m_nextSlotMs[LightChange] = qMax(nowMs, m_nextSlotMs[LightChange]) + intervalMs(LightChange);
    if (requestClass == GroupChange)
        m_nextSlotMs[GroupChange] = qMax(nowMs, m_nextSlotMs[GroupChange]) + intervalMs(GroupChange);
}

void SendPacer::refused(qint64 nowMs, qint64 retryAfterMs)
{
    m_refusalPauseMs =
        m_refusalPauseMs == 0 ? kFirstRefusalPauseMs : qMin(2 * m_refusalPauseMs, kMaxRefusalPauseMs);
    pause(nowMs, retryAfterMs >= 0 ? qMin(retryAfterMs, kMaxRetryAfterMs) : m_refusalPauseMs);
}

void SendPacer::unreachable(qint64 nowMs)
{
    m_unreachablePauseMs = m_unreachablePauseMs == 0 ? kFirstUnreachablePauseMs
                                                     : qMin(2 * m_unreachablePauseMs, kMaxUnreachablePauseMs);
    pause(nowMs, m_unreachablePauseMs);
}

void SendPacer::pause(qint64 nowMs, qint64 ms)
{
    if (m_troubleSinceMs < 0)
        m_troubleSinceMs = nowMs;
    m_pausedUntilMs = qMax(m_pausedUntilMs, nowMs + ms);
}

void SendPacer::reached()
{
    if (m_unreachablePauseMs == 0 || m_refusalPauseMs != 0)
        return;
    m_pausedUntilMs = 0;
    accepted();
}

void SendPacer::accepted()
{
    m_refusalPauseMs = 0;
    m_unreachablePauseMs = 0;
    m_troubleSinceMs = -1;
}

} // namespace hue
