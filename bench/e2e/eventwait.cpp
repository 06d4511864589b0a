#include "eventwait.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

namespace e2ebench {

namespace {

constexpr int kCheckIntervalMs = 5;

} // namespace

void pause(int ms)
{
    if (ms <= 0)
        return;
    QEventLoop loop;
    QTimer::singleShot(ms, Qt::PreciseTimer, &loop, &QEventLoop::quit);
    loop.exec();
}

bool waitUntil(const std::function<bool()>& done, int timeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!done()) {
        if (timer.elapsed() >= timeoutMs)
            return false;
        pause(kCheckIntervalMs);
    }
    return true;
}

} // namespace e2ebench
