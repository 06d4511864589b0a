#include "latencyprobes.h"

#include "eventwait.h"

#include <communicationservice.h>
#include <hubeventlog.h>
#include <hubsimulator.h>

#include <QObject>
#include <QRandomGenerator>

#include <chrono>
#include <string>

namespace e2ebench {

namespace {

using SystemTime = std::chrono::system_clock::time_point;
using SteadyTime = std::chrono::steady_clock::time_point;

constexpr int kSettleMs = 1500;      // for the last command's request, or the last poll's values
constexpr int kOutputLimitMs = 3000; // three poll periods
// A sample ends just after a poll; a random gap of one whole poll period puts the next change at
// a uniformly random point of the poll cycle (a shorter gap would favour the cycle's late part).
constexpr int kPollPeriodMs = 1000;
constexpr int kMinGapMs = 50;

template <typename Duration> double milliseconds(Duration duration)
{
    return std::chrono::duration<double, std::milli>(duration).count();
}

QString text(const InternalId& id)
{
    return QString::fromLatin1(id.toString());
}

struct Write
{
    std::size_t light;
    SystemTime at;
};

// The change that carried `write` (v1 or v2): the first one for its light after the write and before the next
// write to the same light (a later request may carry the next value).
const bridgeemu::RecordedRequest* requestFor(const std::vector<bridgeemu::RecordedRequest>& requests,
                                             const BenchLight& light, SystemTime from, SystemTime until)
{
    for (const bridgeemu::RecordedRequest& request : requests) {
        if (isChangeOf(request, light) && request.receivedAt >= from)
            return request.receivedAt < until ? &request : nullptr;
    }
    return nullptr;
}

} // namespace

LatencySamples measureWriteToRequest(BenchSystem& system, const std::vector<BenchLight>& lights, int samples,
                                     int spacingMs)
{
    LatencySamples result;
    std::vector<Write> writes;
    std::vector<int> written(lights.size(), 0);
    for (int i = 0; i < samples; ++i) {
        const std::size_t light = std::size_t(i) % lights.size();
        // Steps of 37 points (or back by 63) never repeat a light's previous value.
        const int percent = 1 + (written[light]++ * 37 + int(light) * 11) % 100;
        const SystemTime at = std::chrono::system_clock::now();
        const auto action = system.hub().communication()->writeDataPoint(
            text(lights[light].device), QStringLiteral("Dimming value"), QString::number(percent));
        if (action.ok)
            writes.push_back({light, at});
        else
            ++result.missing;
        pause(spacingMs);
    }
    pause(kSettleMs);

    const std::vector<bridgeemu::RecordedRequest> requests = lights.front().bridge->requests();
    for (std::size_t i = 0; i < writes.size(); ++i) {
        SystemTime until = SystemTime::max();
        for (std::size_t next = i + 1; next < writes.size(); ++next) {
            if (writes[next].light == writes[i].light) {
                until = writes[next].at;
                break;
            }
        }
        const auto* request = requestFor(requests, lights[writes[i].light], writes[i].at, until);
        if (request)
            result.ms.push_back(milliseconds(request->receivedAt - writes[i].at));
        else
            ++result.missing;
    }
    return result;
}

LatencySamples measureSwitchToHub(BenchSystem& system, const std::vector<BenchLight>& lights, int samples)
{
    LatencySamples result;
    std::vector<QString> outputs;
    for (const BenchLight& light : lights)
        outputs.push_back(system.outputId(light.device, QStringLiteral("Brightness status")));

    QString awaited;
    SteadyTime reportedAt;
    bool reported = false;
    QObject context;
    QObject::connect(system.hub().events(), &HubEventLog::posted, &context, [&](const QVariantMap& event) {
        if (!reported && event.value(QStringLiteral("kind")) == QLatin1String("sendDataPoint") &&
            event.value(QStringLiteral("id")).toString() == awaited) {
            reportedAt = std::chrono::steady_clock::now();
            reported = true;
        }
    });

    std::vector<int> switched(lights.size(), 0);
    for (int i = 0; i < samples; ++i) {
        const std::size_t light = std::size_t(i) % lights.size();
        bridgeemu::LightChange change;
        change.on = true;
        // Steps of 97 (or back by 133) within 20..249 move the brightness by more than a third
        // every time, so the reported percentage always changes.
        change.bri = 20 + (switched[light]++ * 97) % 230;
        awaited = outputs[light];
        reported = false;
        const SteadyTime at = std::chrono::steady_clock::now();
        if (!awaited.isEmpty() && lights[light].bridge->setLightState(lights[light].lightId, change) &&
            waitUntil([&] { return reported; }, kOutputLimitMs))
            result.ms.push_back(milliseconds(reportedAt - at));
        else
            ++result.missing;
        pause(kMinGapMs + int(QRandomGenerator::global()->bounded(kPollPeriodMs)));
    }
    return result;
}

} // namespace e2ebench
