// The bridge's network side: connections refused for a while, and every request answered 429.
#include "scenarios.h"

namespace faults {

QList<Row> bridgeRefusing(Rig& rig)
{
    const int ms = rig.duration(10000, 60000);
    Row row = rig.begin(QStringLiteral("bridge refusing connections %1 s").arg(ms / 1000));
    QElapsedTimer fault;
    fault.start();
    // The control API shares the bridge's ports: it is gone as well until they reopen.
    const QByteArray body = "{\"ms\":" + QByteArray::number(ms) + "}";
    if (!rig.bridge().control("POST", "/emulator/refuse", body)["ok"].toBool()) {
        row.notes << "the emulator did not take the refusal";
        return {row};
    }
    hold(500);
    rig.writeFinal();
    hold(int(qMax<qint64>(0, ms - fault.elapsed())));
    // The ports reopen by themselves; the control API answers again once they have.
    poll([&] { return !rig.bridge().control("GET", "/emulator").isEmpty(); }, 5000);
    QElapsedTimer faultEnd;
    faultEnd.start();
    rig.finish(row, faultEnd);
    return {row};
}

QList<Row> throttleStorm(Rig& rig)
{
    const int ms = rig.duration(8000, 30000);
    Row row = rig.begin(QStringLiteral("429 storm %1 s").arg(ms / 1000));
    rig.bridge().clearRequests();
    // Every request to the bridge (a negative count: until cleared), the event stream included.
    if (!rig.bridge().control("POST", "/emulator/throttle", R"({"status":429,"count":-1})")["ok"].toBool()) {
        row.notes << "the emulator did not take the throttle";
        return {row};
    }
    QElapsedTimer fault;
    fault.start();
    hold(500);
    rig.writeFinal();
    hold(int(qMax<qint64>(0, ms - fault.elapsed())));
    int throttled = 0;
    for (const e2e::BridgeRequest& request : rig.bridge().requests())
        throttled += request.status == 429 ? 1 : 0;
    rig.bridge().control("DELETE", "/emulator/throttle");
    QElapsedTimer faultEnd;
    faultEnd.start();
    row.notes << QStringLiteral("%1 requests answered 429").arg(throttled);
    rig.finish(row, faultEnd);
    return {row};
}

} // namespace faults
