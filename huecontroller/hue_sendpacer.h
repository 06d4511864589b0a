#pragma once

#include <QtGlobal>

namespace hue {

// How fast one bridge is sent light and group changes. A bridge takes about ten light commands
// and one group command a second and refuses the rest (429 or 503); sending faster only earns
// refusals and retries. Changes are therefore paced: each class has a slot every 1/rate seconds,
// and a group change takes a light slot as well, since the bridge turns it into light commands.
// After a refusal or a failed delivery the whole bridge pauses: for the "Retry-After" it asked
// for, else for a pause that doubles with each failure in a row, until a change goes through.
//
// Pure bookkeeping on the caller's clock (milliseconds), so tests drive it without waiting.
class SendPacer
{
public:
    enum RequestClass
    {
        LightChange = 0,
        GroupChange = 1,
    };

    static constexpr double kDefaultLightsPerSecond = 10.0;
    static constexpr double kDefaultGroupsPerSecond = 1.0;
    // Slots are this much wider than 1/rate, so that jitter on the way never brings two changes
    // to the bridge closer together than it takes them.
    static constexpr double kSpacingMargin = 1.1;
    static constexpr qint64 kFirstRefusalPauseMs = 250;
    static constexpr qint64 kMaxRefusalPauseMs = 8000;
    static constexpr qint64 kFirstUnreachablePauseMs = 1000;
    static constexpr qint64 kMaxUnreachablePauseMs = 30000;
    static constexpr qint64 kMaxRetryAfterMs = 60000; // a longer wish is taken as this

    // Rates in requests per second; values at or below 0 (or not finite) keep the defaults.
    void setRates(double lightsPerSecond, double groupsPerSecond);
    double lightsPerSecond() const { return m_perSecond[LightChange]; }
    double groupsPerSecond() const { return m_perSecond[GroupChange]; }

    // Milliseconds from `nowMs` until a change of the class may go; 0 when it may go now.
    qint64 waitMs(RequestClass requestClass, qint64 nowMs) const;
    // A change of the class went out at `nowMs`.
    void sent(RequestClass requestClass, qint64 nowMs);

    // The bridge refused a change; `retryAfterMs` is its wish, or -1 when it named none.
    void refused(qint64 nowMs, qint64 retryAfterMs);
    // A change did not reach the bridge (connection refused or closed, no answer in time).
    void unreachable(qint64 nowMs);
    // A change went through: the next trouble starts again from the first, short pause.
    void accepted();
    // Another request to the bridge went through: a pause for not reaching it ends at once (the
    // bridge is back), a pause for refusals does not.
    void reached();

    bool isPaused(qint64 nowMs) const { return nowMs < m_pausedUntilMs; }
    // When the failures in a row began; -1 while changes go through.
    qint64 troubleSinceMs() const { return m_troubleSinceMs; }

private:
    void pause(qint64 nowMs, qint64 ms);
    qint64 intervalMs(RequestClass requestClass) const;

    double m_perSecond[2] = {kDefaultLightsPerSecond, kDefaultGroupsPerSecond};
    qint64 m_nextSlotMs[2] = {0, 0};
    qint64 m_pausedUntilMs = 0;
    qint64 m_refusalPauseMs = 0;
    qint64 m_unreachablePauseMs = 0;
    qint64 m_troubleSinceMs = -1;
};

} // namespace hue
