// Processes that end without warning: hubsim, and the bridge, killed and started again.
#include "scenarios.h"

namespace faults {

QList<Row> hubKilled(Rig& rig)
{
    Row row = rig.begin("hub killed (SIGKILL) and restarted");
    if (!rig.hub().process().killHard()) {
        row.notes << "hubsim did not end";
        return {row};
    }
    // The same socket directory and database; its supervisor sends 0, 3, 1 again.
    const bool started = rig.hub().start();
    QElapsedTimer faultEnd;
    faultEnd.start();
    if (!started)
        row.notes << "hubsim did not start again";
    else if (!rig.waitForRegistration(rig.duration(30000, 60000)))
        row.notes << (rig.serviceAlive() ? "lights not registered again with their values"
                                         : "service died while registering again");
    rig.writeFinal();
    rig.finish(row, faultEnd);
    return {row};
}

QList<Row> bridgeRestarted(Rig& rig)
{
    Row row = rig.begin("bridge restarted with its identity");
    if (!rig.features().stateDir)
        return {Row::skip(row, "this emulator has no --state-dir")};
    if (!rig.bridge().process().killHard()) {
        row.notes << "the emulator did not end";
        return {row};
    }
    // Down as long as a bridge takes to reboot (shortened); the writes follow once it is back,
    // since writes into a refusing bridge are the refusal scenario's.
    hold(rig.duration(2000, 10000));
    const bool back = rig.replaceBridge();
    QElapsedTimer faultEnd;
    faultEnd.start();
    if (!back)
        row.notes << "the emulator did not start again";
    else if (rig.bridge().bridgeId() !=
             rig.bridgeOptions().value(rig.bridgeOptions().indexOf("--bridge-id") + 1))
        row.notes << "the bridge came back with another id";
    else if (!rig.waitForEventStream())
        row.notes << "event stream not reopened";
    rig.writeFinal();
    rig.finish(row, faultEnd);
    return {row};
}

} // namespace faults
