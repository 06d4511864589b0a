#pragma once

#include <QtGlobal>

namespace hue {

// The one monotonic clock behind every elapsed-time check of the bridge code (reply time-outs,
// pairing re-checks, the start-stop timer, life signs). Tests move it forward with advance() and
// then call the timer slot under test, instead of sleeping through the real time-out.
class Clock
{
public:
    Clock() = delete;

    // Milliseconds since an arbitrary start, never going backwards.
    static qint64 nowMs();
    // Moves the clock forward for every reader in the process (tests only).
    static void advance(qint64 ms);
};

// QElapsedTimer's job on top of Clock: invalid until started.
class ElapsedTimer
{
public:
    void start() { m_startMs = Clock::nowMs(); }
    void invalidate() { m_startMs = -1; }
    bool isValid() const { return m_startMs >= 0; }
    // Milliseconds since start(); meaningless while invalid.
    qint64 elapsed() const { return Clock::nowMs() - m_startMs; }
    bool hasExpired(qint64 ms) const { return elapsed() > ms; }

private:
    qint64 m_startMs = -1;
};

} // namespace hue
