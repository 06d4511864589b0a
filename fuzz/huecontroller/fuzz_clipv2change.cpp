// libFuzzer target for the version 2 answers to PUT and POST ({"data":[...],"errors":[...]}) of
// a light change (through the bridge's request queue), the creation and renaming of the
// program's geofence client and a light's rename, each through the bridge's reply funnel.
//
// Byte 0: bits 0-1 pick the request, bits 2-4 the HTTP status; the rest is the answer. One
// bridge, moved to version 2 by its user-name check and holding one light, lives across inputs.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi2.h"
#include "huecontroller/hue_light.h"

#include "common/configcache.h"
#include "fakenetwork.h"

#include <cstdint>

namespace {

const char kConfig[] = R"({"apiversion":"1.65.0","swversion":"1965111030","whitelist":{"fuzz":{}}})";
const char kDevice[] = R"({"data":[{"id":"d1","type":"device","metadata":{"name":"Lamp"},)"
                       R"("product_data":{"model_id":"LCT015"},"services":[{"rid":"l1","rtype":"light"}]}]})";
const char kConnectivity[] =
    R"({"data":[{"id":"z1","type":"zigbee_connectivity","owner":{"rid":"d1","rtype":"device"},"status":"connected"}]})";
const char kLight[] = R"({"data":[{"id":"l1","id_v1":"/lights/1","type":"light","owner":{"rid":"d1",)"
                      R"("rtype":"device"},"metadata":{"name":"Lamp"},"on":{"on":true},"dimming":)"
                      R"({"brightness":50},"color":{"xy":{"x":0.3,"y":0.3},"gamut_type":"C"}}]})";
const int kStatus[] = {200, 200, 207, 400, 403, 404, 429, 500};

fuzz::FakeNetwork* network = nullptr;
hue::CBridge* bridge = nullptr;

void answer(QNetworkReply* reply)
{
    if (reply && bridge->isTracked(reply))
        bridge->replyFinished(reply, false);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    ConfigCache::instance()->setConfigValueNonblock(QStringLiteral("generic/serialNumber"),
                                                    QStringLiteral("123"), false);
    network = new fuzz::FakeNetwork;
    bridge = new hue::CBridge(network, "001788fffe123456", QStringLiteral("127.0.0.1"), 443, 1,
                              QStringLiteral("fuzz"));
    network->body = kConfig;
    bridge->checkUsernameRegistered(true);
    answer(network->last());
    auto* api = qobject_cast<hue::BridgeAPI2*>(bridge->api());
    if (!api)
        abort(); // the check reply must have moved the bridge to version 2
    for (const auto& [text, type] : {std::pair{kDevice, hue::CBridge::PollDevices},
                                     {kConnectivity, hue::CBridge::PollConnectivity},
                                     {kLight, hue::CBridge::PollLights}})
        api->parsePollReply(minijson::CParser::Parse(text)->Object(), type);
    network->dropAll();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    auto* api = static_cast<hue::BridgeAPI2*>(bridge->api());
    const hue::CLight* light = bridge->lightById("l1");
    if (!light)
        abort(); // nothing in these answers may remove it
    network->body = QByteArray(reinterpret_cast<const char*>(data + 1), int(size - 1));
    network->status = kStatus[(data[0] >> 2) % 8];
    switch (data[0] % 4) {
    case 0:
        api->sendSetStateRequest(*light, R"({"on":{"on":true}})", {});
        break;
    case 1:
        api->parseGeofenceClientList(minijson::CObject()); // no client yet: registers one
        break;
    case 2: // the minute's rename of the geofence client
        bridge->trackReply(network->put(api->createRequest(QStringLiteral("geofence_client/g1")), "{}"));
        network->last()->setProperty("hueGeofenceRequest", QByteArray("rename"));
        break;
    default:
        api->setLightName("l1", QStringLiteral("Desk"));
        break;
    }
    for (const QPointer<fuzz::FakeReply>& reply : QList<QPointer<fuzz::FakeReply>>(network->made))
        answer(reply);
    network->dropAll();
    return 0;
}
