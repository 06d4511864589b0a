// Runs hubsim, the bridge emulator and the service as processes through the faults a home sees,
// on REST API v1 and on CLIP API v2, and prints one Markdown table row per fault. Exits with 1
// when a fault crashed the service, lost a command or failed another check (in --long mode
// lost commands are reported but not counted against it).
#include "scenarios.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace faults;

namespace {

struct Scenario
{
    const char* key;
    QList<Row> (*run)(Rig&);
};

const Scenario kScenarios[] = {
    {"hub", hubKilled},         {"bridge", bridgeRestarted},
    {"refuse", bridgeRefusing}, {"throttle", throttleStorm},
    {"drop", streamDropped},    {"flood", streamFlooded},
    {"socket", hubSocketAbuse}, {"soak", soak},
};

void progress(const QString& text)
{
    std::fprintf(stderr, "faults: %s\n", qPrintable(text));
    std::fflush(stderr);
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.setApplicationDescription("The service through hub, bridge, stream and socket faults.");
    parser.addHelpOption();
    parser.addOption({"long", "Full durations, the silent stream past its limit and a 15-minute soak."});
    parser.addOption({"api", "Only this API: v1 or v2.", "api"});
    parser.addOption({"only",
                      "Only the scenarios whose keys are listed (hub, bridge, refuse, throttle, drop, "
                      "flood, socket, soak), comma-separated.",
                      "keys"});
    parser.process(app);
    const bool longMode = parser.isSet("long");
    const QStringList only = parser.value("only").split(',', Qt::SkipEmptyParts);
    const EmulatorFeatures features = EmulatorFeatures::probe();
    progress(QStringLiteral("emulator: --state-dir %1, flood %2, endless line %3")
                 .arg(features.stateDir ? "yes" : "no", features.flood ? "yes" : "no",
                      features.endless ? "yes" : "no"));

    QList<Row> rows;
    for (const bool clipV2 : {false, true}) {
        const QString api = clipV2 ? "v2" : "v1";
        if (parser.isSet("api") && parser.value("api") != api)
            continue;
        Rig rig(clipV2, longMode, features);
        Row setUp;
        setUp.scenario = "set-up: pair and register";
        setUp.api = api;
        setUp.failed = true;
        if (!rig.setUp()) {
            setUp.notes << "FAIL: logs in " + rig.system().dir() + " (E2E_KEEP=1 keeps them)";
            rows << setUp;
            continue;
        }
        progress(api + ": set up");
        for (const Scenario& scenario : kScenarios) {
            if (!only.isEmpty() && !only.contains(scenario.key))
                continue;
            if (!rig.reviveService()) {
                setUp.scenario = "service started again after a crash";
                setUp.notes << "FAIL: it did not come back; later scenarios skipped";
                rows << setUp;
                break;
            }
            for (const Row& row : scenario.run(rig)) {
                progress(QStringLiteral("%1 %2: %3/%4 final, crash %5 %6")
                             .arg(api, row.scenario)
                             .arg(row.finalLights)
                             .arg(row.lights)
                             .arg(row.crash ? "yes" : "no", row.notes.join("; ")));
                rows << row;
            }
        }
    }

    std::printf("%s", markdownTable(rows).toUtf8().constData());
    bool bad = false;
    for (const Row& row : rows)
        bad = bad || row.crash || row.failed || (!longMode && row.lost > 0);
    return bad ? 1 : 0;
}
