#pragma once

#include "faultrig.h"

// The faults a home sees, each one a function that drives the rig through it and returns its
// rows. Every fault is bounded in time and bytes; the rig's service is alive again afterwards
// when it can be revived.
namespace faults {

// The hub's processes: hubsim killed and restarted; the bridge killed and restarted with its
// identity.
QList<Row> hubKilled(Rig& rig);
QList<Row> bridgeRestarted(Rig& rig);
// The network: the bridge refusing connections; a storm of 429 answers.
QList<Row> bridgeRefusing(Rig& rig);
QList<Row> throttleStorm(Rig& rig);
// The CLIP v2 event stream: dropped and stalled; flooded and an endless line.
QList<Row> streamDropped(Rig& rig);
QList<Row> streamFlooded(Rig& rig);
// The service's own listening socket fed garbage, huge lengths and many connections.
QList<Row> hubSocketAbuse(Rig& rig);
// Writes and wall-switch changes for a quarter of an hour, RSS sampled every minute.
QList<Row> soak(Rig& rig);

} // namespace faults
