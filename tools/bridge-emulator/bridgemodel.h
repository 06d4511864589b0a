#pragma once

#include "bridgeidentity.h"
#include "clipstate.h"
#include "lightstore.h"
#include "pairing.h"

namespace bridgeemu {

// Everything the bridge knows, as one unit that the emulator guards with one lock. The API
// layers read and change it; none of them keeps a reference beyond one request.
struct BridgeModel
{
    BridgeModel(BridgeIdentity identityIn, Clock clock, std::chrono::milliseconds linkWindow)
        : identity(std::move(identityIn)), lights(identity.bridgeId), pairing(std::move(clock), linkWindow)
    {
    }

    BridgeIdentity identity;
    LightStore lights;
    Pairing pairing;
    ClipState clip;
};

} // namespace bridgeemu
