// libFuzzer target for the version 2 event stream: the framer, the message fields, the event
// reader and the dialect that applies the events, fed together as the network feeds them.
//
// The first byte picks how the rest is cut into chunks (1 to 256 bytes each), so that every
// split of a message across reads is reached. One bridge with one device and light lives across
// inputs, so that events meet a known light, device and connectivity resource; a device or
// light that the events delete is made again from the same poll replies.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi2.h"
#include "huecontroller/hue_eventstream.h"

#include "common/logginginterface.h"

#include <algorithm>
#include <cstdint>

namespace {

const char kDevice[] = R"({"data":[{"id":"d1","type":"device","metadata":{"name":"Lamp"},)"
                       R"("product_data":{"model_id":"LCT015"},"services":[{"rid":"l1","rtype":"light"},)"
                       R"({"rid":"z1","rtype":"zigbee_connectivity"}]}]})";
const char kConnectivity[] =
    R"({"data":[{"id":"z1","type":"zigbee_connectivity","owner":{"rid":"d1","rtype":"device"},"status":"connected"}]})";
const char kLight[] = R"({"data":[{"id":"l1","id_v1":"/lights/1","type":"light","owner":{"rid":"d1",)"
                      R"("rtype":"device"},"metadata":{"name":"Lamp"},"on":{"on":true},"dimming":)"
                      R"({"brightness":50},"color":{"xy":{"x":0.3,"y":0.3},"gamut_type":"C"},)"
                      R"("color_temperature":{"mirek":300,"mirek_valid":true}}]})";

void poll(hue::BridgeAPI2& api, const char* text, hue::CBridge::PollType type)
{
    const auto document = minijson::CParser::Parse(text);
    api.parsePollReply(document->Object(), type);
}

// The dialect is made again once "add" events have piled up devices, so that inputs do not
// grow it for ever.
hue::BridgeAPI2& dialect()
{
    static hue::CBridge* bridge = nullptr;
    static hue::BridgeAPI2* instance = nullptr;
    if (!instance || instance->devices().size() > 64) {
        setLogSink([](int, const QByteArray&) {});
        delete bridge; // and its dialect
        bridge = new hue::CBridge(1);
        instance = new hue::BridgeAPI2(bridge);
    }
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    hue::BridgeAPI2& api = dialect();
    if (api.bridge()->lights().isEmpty() || api.devices().isEmpty()) {
        poll(api, kDevice, hue::CBridge::PollDevices);
        poll(api, kConnectivity, hue::CBridge::PollConnectivity);
        poll(api, kLight, hue::CBridge::PollLights);
    }
    const std::size_t chunk = std::size_t(data[0]) + 1;
    const char* bytes = reinterpret_cast<const char*>(data + 1);
    for (std::size_t offset = 0; offset < size - 1; offset += chunk) {
        const std::size_t length = std::min(chunk, size - 1 - offset);
        api.eventStream()->processBytes(QByteArray(bytes + offset, int(length)));
    }
    return 0;
}
