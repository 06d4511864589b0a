// A quarter of an hour of ordinary life: a hub write every second, a wall-switch change every
// ten, and the service's RSS sampled every minute.
#include "scenarios.h"

#include "procstats.h"

namespace faults {

QList<Row> soak(Rig& rig)
{
    if (!rig.longMode())
        return {};
    constexpr int kMinutes = 15;
    Row row = rig.begin(QStringLiteral("soak %1 min").arg(kMinutes));
    QStringList samples;
    const QList<Rig::Light>& lights = rig.lights();
    QElapsedTimer elapsed;
    elapsed.start();
    for (int second = 0; second < kMinutes * 60 && rig.serviceAlive(); ++second) {
        const Rig::Light& light = lights[second % lights.size()];
        const bool onOff = light.kind == "onoff";
        rig.hub().hubctl({"write", "--timeout", "3000", "--", light.serial, onOff ? "Switch" : "Brightness",
                          QString::number(onOff ? second % 2 : 20 + second % 70)});
        if (second % 10 == 5) {
            const Rig::Light& other = lights[(second / 10) % lights.size()];
            rig.bridge().setLight(other.id, {{"on", true}, {"bri", 100 + second % 150}});
        }
        if (second % 60 == 0)
            samples << QString::number(e2ebench::residentKiB(rig.service().process().pid()));
        // One step a second, however long the write took.
        hold(int(qMax<qint64>(0, (second + 1) * 1000 - elapsed.elapsed())));
    }
    rig.writeFinal();
    QElapsedTimer faultEnd;
    faultEnd.start();
    rig.finish(row, faultEnd);
    row.notes << "RSS KiB by minute: " + samples.join(' ');
    return {row};
}

} // namespace faults
