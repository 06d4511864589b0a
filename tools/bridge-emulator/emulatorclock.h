#pragma once

#include <chrono>
#include <functional>

namespace bridgeemu {

// The one place the emulator reads monotonic time (link-button window, request ages), so that
// tests can move time on instead of waiting for it.
using SteadyTime = std::chrono::steady_clock::time_point;
using Clock = std::function<SteadyTime()>;

inline Clock systemSteadyClock()
{
    return [] { return std::chrono::steady_clock::now(); };
}

} // namespace bridgeemu
