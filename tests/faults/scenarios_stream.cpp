// The CLIP v2 event stream misbehaving: dropped again and again, silent, flooded, one endless
// line. Version 1 has no stream, so these are v2 rows only.
#include "scenarios.h"

#include "procstats.h"

#include <QTimer>

namespace faults {

namespace {

int streamOpens(Rig& rig)
{
    return rig.bridge().requests("GET", QRegularExpression("^/eventstream/clip/v2")).size();
}

// A wall-switch change must still reach the hub through the stream: a light's brightness
// set to full on the bridge, while the hub still shows the final value written before.
void checkWallSwitch(Rig& rig, Row& row)
{
    const Rig::Light& light = rig.lights().first();
    QElapsedTimer took;
    took.start();
    const bool seen = rig.bridge().setLight(light.id, {{"bri", 254}}) &&
                      rig.bridge().control("POST", "/emulator/eventstream/flush")["ok"].toBool() &&
                      poll(
                          [&] {
                              return e2e::HubSimProcess::outputValue(rig.hub().device(light.serial),
                                                                     "Brightness status") == "100";
                          },
                          15000);
    if (seen) {
        row.notes << QStringLiteral("wall switch reached the hub in %1 ms").arg(took.elapsed());
    } else {
        ++row.lost;
        row.notes << "a wall-switch change never reached the hub (counted as lost)";
    }
}

// The service's highest RSS, sampled every 100 ms on the event loop that the waits run, so
// that sampling does not delay what is measured.
class PeakRss
{
public:
    explicit PeakRss(qint64 pid)
    {
        QObject::connect(&m_timer, &QTimer::timeout,
                         [this, pid] { m_peak = qMax(m_peak, e2ebench::residentKiB(pid)); });
        m_timer.start(100);
    }
    qint64 peak() const { return m_peak; }

private:
    QTimer m_timer;
    qint64 m_peak = -1;
};

// RSS back within 16 MiB of where it started, given a few seconds to get there.
void checkRssReturns(Rig& rig, Row& row, qint64 peak)
{
    qint64 now = -1;
    const bool down = rig.serviceAlive() && poll(
                                                [&] {
                                                    now =
                                                        e2ebench::residentKiB(rig.service().process().pid());
                                                    return now >= 0 && now <= row.rssBefore + 16 * 1024;
                                                },
                                                10000, 500);
    row.notes << QStringLiteral("peak RSS %1 KiB").arg(peak);
    if (!down && rig.serviceAlive())
        row.notes << QStringLiteral("RSS stayed up at %1 KiB").arg(now);
}

} // namespace

QList<Row> streamDropped(Rig& rig)
{
    if (!rig.clipV2())
        return {};
    const int drops = rig.longMode() ? 20 : 5;
    Row row = rig.begin(QStringLiteral("event stream dropped %1 times, then silent").arg(drops));
    rig.bridge().clearRequests();
    int reopened = 0;
    for (int i = 0; i < drops && rig.serviceAlive(); ++i) {
        rig.bridge().control("POST", "/emulator/eventstream/drop");
        if (i == 0)
            rig.writeFinal(); // while the stream comes and goes
        if (poll([&] { return streamOpens(rig) > i; }, 15000))
            ++reopened;
    }
    row.notes << QStringLiteral("stream reopened %1 of %2 times").arg(reopened).arg(drops);

    // Silence: connections stay open and nothing comes. The service gives up on a stream after
    // 180 s of it; only the long run waits that out.
    const int opens = streamOpens(rig);
    rig.bridge().control("POST", "/emulator/eventstream/stall");
    if (rig.longMode()) {
        QElapsedTimer silent;
        silent.start();
        if (poll([&] { return streamOpens(rig) > opens || !rig.serviceAlive(); }, 200000, 1000))
            row.notes << QStringLiteral("silent stream reopened after %1 s").arg(silent.elapsed() / 1000);
        else
            row.notes << "silent stream not reopened within 200 s";
    } else {
        hold(3000);
        row.notes << "silence only 3 s (the 180 s limit is left to --long)";
    }
    rig.bridge().control("DELETE", "/emulator/eventstream/stall");
    QElapsedTimer faultEnd;
    faultEnd.start();
    rig.finish(row, faultEnd);
    if (rig.serviceAlive())
        checkWallSwitch(rig, row);
    return {row};
}

QList<Row> streamFlooded(Rig& rig)
{
    if (!rig.clipV2())
        return {};
    QList<Row> rows;
    Row flood = rig.begin("event stream flooded");
    if (!rig.features().flood) {
        rows << Row::skip(flood, "this emulator cannot flood the stream");
    } else {
        const int messages = rig.duration(2000, 20000);
        const QByteArray body =
            "{\"messages\":" + QByteArray::number(messages) + ",\"events_per_message\":50,\"interval_ms\":0}";
        const PeakRss rss(rig.service().process().pid());
        if (!rig.bridge().control("POST", "/emulator/eventstream/flood", body)["ok"].toBool())
            flood.notes << "the emulator did not take the flood";
        hold(300);
        // The hub's writes must get through while the flood comes in.
        rig.writeFinal();
        QElapsedTimer faultEnd;
        faultEnd.start();
        rig.finish(flood, faultEnd);
        rig.bridge().control("DELETE", "/emulator/eventstream/flood");
        flood.notes
            << QStringLiteral("%1 messages of 50 events; recovery counted from the writes").arg(messages);
        checkRssReturns(rig, flood, rss.peak());
        rows << flood;
    }

    Row endless = rig.begin("event stream endless line");
    if (!rig.features().endless) {
        rows << Row::skip(endless, "this emulator cannot send an endless line");
        return rows;
    }
    const qint64 bytes = rig.duration(32, 256) * qint64(1024 * 1024);
    rig.bridge().clearRequests();
    const PeakRss rss(rig.service().process().pid());
    if (!rig.bridge()
             .control("POST", "/emulator/eventstream/endless",
                      "{\"bytes\":" + QByteArray::number(bytes) + "}")["ok"]
             .toBool())
        endless.notes << "the emulator did not take the endless line";
    hold(300);
    rig.writeFinal();
    QElapsedTimer faultEnd;
    faultEnd.start();
    rig.finish(endless, faultEnd);
    endless.notes << QStringLiteral("%1 MiB without a line break").arg(bytes / (1024 * 1024));
    if (!poll([&] { return streamOpens(rig) > 0; }, 15000))
        endless.notes << "stream not reopened within 15 s (news only by polling until the silence limit)";
    checkRssReturns(rig, endless, rss.peak());
    rows << endless;
    return rows;
}

} // namespace faults
