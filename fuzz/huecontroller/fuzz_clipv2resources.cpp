// libFuzzer target for the version 2 poll readers: device, zigbee_connectivity, light, room,
// zone, geofence_client (and grouped_light or anything else under a wrong poll type), and the
// groups poll that goes to the version 1 delegate.
//
// Byte 0 picks the poll type, the rest is the bridge's reply. One bridge and its dialect live
// across inputs, so that lights are made from devices and connectivity that earlier inputs
// brought, and rooms and zones meet known lights; they are made again once inputs have piled up
// more than 64 devices, lights or groups.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi2.h"

#include "common/configcache.h"
#include "fakenetwork.h"

#include <cstdint>

namespace {

hue::BridgeAPI2& dialect()
{
    static hue::CBridge* bridge = nullptr;
    static hue::BridgeAPI2* instance = nullptr;
    if (!instance || instance->devices().size() > 64 || instance->groups().size() > 64 ||
        bridge->lights().size() > 64) {
        delete bridge; // and its dialect, a child
        bridge = new hue::CBridge(1);
        bridge->onConfigValueChanged(QStringLiteral("hue/useGroups"), QStringLiteral("1"), true);
        instance = new hue::BridgeAPI2(bridge);
    }
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    // With a serial number the geofence reader looks for the program's own client.
    ConfigCache::instance()->setConfigValueNonblock(QStringLiteral("generic/serialNumber"),
                                                    QStringLiteral("123"), false);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    std::unique_ptr<minijson::CEntity> document;
    try {
        document =
            minijson::CParser::Parse(reinterpret_cast<const char*>(data + 1), std::ptrdiff_t(size - 1));
    } catch (const minijson::CParseErrorException&) {
        return 0;
    }
    if (!document->IsObject())
        return 0;
    const auto type = static_cast<hue::CBridge::PollType>(data[0] % 7);
    dialect().parsePollReply(document->Object(), type);
    return 0;
}
