#pragma once

#include <functional>

namespace e2ebench {

// Runs the event loop for `ms` milliseconds. The driver hosts the hub, so it must keep serving
// the service's calls while it waits; a blocking sleep would stall both.
void pause(int ms);

// Runs the event loop until `done` holds or `timeoutMs` have passed; true when it held. The
// condition is checked every few milliseconds without spinning, so the driver leaves the CPU to
// the service it measures.
bool waitUntil(const std::function<bool()>& done, int timeoutMs);

} // namespace e2ebench
