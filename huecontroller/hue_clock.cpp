#include "hue_clock.h"

#include <QElapsedTimer>

#include <atomic>

namespace hue {

namespace {

std::atomic<qint64> g_offsetMs{0};

const QElapsedTimer& monotonicBase()
{
    static const QElapsedTimer base = [] {
        QElapsedTimer timer;
        timer.start();
        return timer;
    }();
    return base;
}

} // namespace

qint64 Clock::nowMs()
{
    return monotonicBase().elapsed() + g_offsetMs.load(std::memory_order_relaxed);
}

void Clock::advance(qint64 ms)
{
    if (ms > 0)
        g_offsetMs.fetch_add(ms, std::memory_order_relaxed);
}

} // namespace hue
