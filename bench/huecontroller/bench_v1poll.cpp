// Polling and sending with API version 1.
//
// BM_ApplyLightsReply: parse a 50-light "lights" reply and apply it to a bridge's light model,
// once where nothing changed since the previous poll and once where every light changed
// (applies per second).
//
// BM_CommandLatency: the time from a light's 200 ms command timer firing to its PUT body being
// written to the socket, against the bridge emulator over loopback (plain http), as counters
// median_us and p99_us over 200 changes.
//
// Run: bench_v1poll
#include <huecontroller/hue_bridge.h>
#include <huecontroller/hue_bridgeapi1.h>
#include <huecontroller/hue_controller.h>
#include <huecontroller/hue_light.h>

#include <common/logginginterface.h>

#include <bridgeemulator.h>

#include <benchmark/benchmark.h>

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTimer>

#include <algorithm>
#include <string>
#include <vector>

namespace {

// 50 extended colour lights; `variant` shifts every changing value so two variants differ in
// on, brightness, hue, saturation, xy and colour temperature of every light.
std::string lightsReply(int variant)
{
    std::string text = "{";
    for (int i = 1; i <= 50; ++i) {
        const int v = i + variant * 7;
        text +=
            (i > 1 ? "," : "") + std::string("\"") + std::to_string(i) +
            "\":{\"state\":{\"on\":" + (variant % 2 ? "true" : "false") +
            ",\"bri\":" + std::to_string(1 + v % 250) + ",\"hue\":" + std::to_string(v * 300) +
            ",\"sat\":" + std::to_string(v % 254) + ",\"xy\":[0." + std::to_string(100 + v % 500) + ",0." +
            std::to_string(200 + v % 300) + "],\"ct\":" + std::to_string(153 + v % 300) +
            ",\"alert\":\"none\",\"effect\":\"none\",\"colormode\":\"xy\",\"reachable\":true},"
            "\"type\":\"Extended color light\",\"name\":\"Hue color lamp " +
            std::to_string(i) +
            "\",\"modelid\":\"LCT015\",\"manufacturername\":\"Signify Netherlands B.V.\","
            "\"productname\":\"Hue color lamp\",\"capabilities\":{\"certified\":true,\"control\":{"
            "\"mindimlevel\":1000,\"maxlumen\":806,\"colorgamuttype\":\"C\",\"colorgamut\":[[0.6915,0.3083],"
            "[0.17,0.7],[0.1532,0.0475]],\"ct\":{\"min\":153,\"max\":500}}},\"swversion\":\"1.88.1\"}";
    }
    return text + "}";
}

void applyReplies(benchmark::State& state, bool everythingChanges)
{
    const std::string replies[2] = {lightsReply(0), lightsReply(1)};
    hue::CBridge bridge(1);
    auto* api = static_cast<hue::BridgeAPI1*>(bridge.api());
    api->parsePollReply(minijson::CParser::Parse(replies[0])->Object(), hue::CBridge::PollLights);
    int next = 0;
    for (auto _ : state) {
        if (everythingChanges)
            next ^= 1;
        const auto document = minijson::CParser::Parse(replies[next]);
        api->parsePollReply(document->Object(), hue::CBridge::PollLights);
    }
    state.SetItemsProcessed(state.iterations());
}

void BM_ApplyLightsReply_NothingChanged(benchmark::State& state)
{
    applyReplies(state, false);
}
BENCHMARK(BM_ApplyLightsReply_NothingChanged)->Unit(benchmark::kMicrosecond);

void BM_ApplyLightsReply_EverythingChanged(benchmark::State& state)
{
    applyReplies(state, true);
}
BENCHMARK(BM_ApplyLightsReply_EverythingChanged)->Unit(benchmark::kMicrosecond);

// Notes when each PUT body has been handed to the socket.
class TimingNetworkAccessManager : public QNetworkAccessManager
{
public:
    qint64 lastBodyWrittenNs = -1;

    const QElapsedTimer* clock = nullptr;

protected:
    QNetworkReply* createRequest(Operation op, const QNetworkRequest& request, QIODevice* body) override
    {
        QNetworkReply* reply = QNetworkAccessManager::createRequest(op, request, body);
        if (op == PutOperation) {

            connect(reply, &QNetworkReply::uploadProgress, this, [this](qint64 sent, qint64 total) {
                if (total > 0 && sent == total)
                    lastBodyWrittenNs = clock->nsecsElapsed();
            });
        }
        return reply;
    }
};

// Runs the event loop without sleeping until the condition holds (QTest::qWaitFor sleeps 10 ms
// between rounds, which would be measured as latency).
template <typename Condition> bool spinUntil(Condition condition, int timeoutMs = 5000)
{
    bool expired = false;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, [&] { expired = true; });
    deadline.start(timeoutMs);
    while (!condition() && !expired)
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    return condition();
}

void BM_CommandLatency(benchmark::State& state)
{
    bridgeemu::EmulatorConfig config;
    config.lights = {{bridgeemu::LightKind::Dimmable}};
    config.defaultGroups = false;
    bridgeemu::BridgeEmulator emulator(config);
    if (!emulator.start()) {
        state.SkipWithError("emulator did not start");
        return;
    }
    QElapsedTimer clock;
    clock.start();
    TimingNetworkAccessManager nam;
    nam.clock = &clock;
    hue::CBridge bridge(&nam, QByteArray::fromStdString(emulator.bridgeId()), QStringLiteral("127.0.0.1"),
                        emulator.httpPort(), 1, QString::fromStdString(emulator.addUser()));
    // The first check falls back from https to http; the second one pairs.
    bridge.checkUsernameRegistered(true);
    (void)spinUntil([&] { return bridge.activeReplyCount() == 0; });
    bridge.checkUsernameRegistered(false);
    (void)spinUntil([&] { return bridge.userNameState() == hue::CBridge::USERNAME_REGISTERED; });
    hue::Clock::advance(600);
    bridge.pollNextItem();
    (void)spinUntil([&] { return bridge.hasLight("1"); });
    hue::CLight* light = bridge.lightById("1");
    if (!light) {
        state.SkipWithError("no light");
        return;
    }
    // The fire time is taken in a slot that runs before the bridge's own one.
    qint64 firedNs = -1;
    QObject::disconnect(light->commandTimer(), &QTimer::timeout, &bridge, &hue::CBridge::execCommands);
    QObject::connect(light->commandTimer(), &QTimer::timeout, [&] { firedNs = clock.nsecsElapsed(); });
    QObject::connect(light->commandTimer(), &QTimer::timeout, &bridge, &hue::CBridge::execCommands);

    std::vector<double> latenciesUs;

    for (auto _ : state) {
        for (int i = 0; i < 200; ++i) {
            nam.lastBodyWrittenNs = -1;
            bridge.requestLightBrightness("1", 10 + i % 80, false, -1);
            if (!spinUntil([&] { return nam.lastBodyWrittenNs >= 0 && bridge.activeReplyCount() == 0; })) {
                state.SkipWithError("a change was not answered");
                return;
            }
            latenciesUs.push_back(double(nam.lastBodyWrittenNs - firedNs) / 1000.0);
        }
    }
    std::sort(latenciesUs.begin(), latenciesUs.end());
    state.counters["median_us"] = latenciesUs[latenciesUs.size() / 2];
    state.counters["p99_us"] = latenciesUs[latenciesUs.size() * 99 / 100];
}
BENCHMARK(BM_CommandLatency)->Iterations(1)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    setLogSink([](int, const QByteArray&) {});
    hue::CController controller; // light descriptions are not needed: a dimmable light switches as is
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
