#pragma once

#include "httpexchange.h"

namespace bridgeemu {

class BridgeEmulator;

// The emulator's own API under /emulator/, JSON in and out, no authentication: what a test or
// the demo does to the bridge from outside (press the link button, flip a wall switch, throttle,
// stall, refuse connections, read the request record). Each route calls the emulator's public
// C++ API; README.md lists the routes.
HttpResponse handleControlRequest(BridgeEmulator& emulator, const HttpRequest& request);

} // namespace bridgeemu
