// libFuzzer target for the version 1 reply readers: the "lights" and "groups" poll replies and
// the success/error array that answers a light change.
//
// The first byte picks the reader, the rest is the bridge's reply. Malformed JSON is refused by
// the parser; everything else must be read without a crash, a memory error or a leak, whatever
// types and ids it holds. One bridge lives across inputs, so that updates, removals and change
// replies meet lights created by earlier inputs.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi1.h"

#include "common/logginginterface.h"

#include <QCoreApplication>

#include <cstdint>

namespace {

hue::CBridge& bridge()
{
    static hue::CBridge* instance = [] {
        setLogSink([](int, const QByteArray&) {});
        auto* created = new hue::CBridge(1);
        created->onConfigValueChanged(QStringLiteral("hue/useGroups"), QStringLiteral("1"), true);
        return created;
    }();
    return *instance;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    hue::CBridge& target = bridge();
    auto* api = static_cast<hue::BridgeAPI1*>(target.api());
    std::unique_ptr<minijson::CEntity> document;
    try {
        document =
            minijson::CParser::Parse(reinterpret_cast<const char*>(data + 1), std::ptrdiff_t(size - 1));
    } catch (const minijson::CParseErrorException&) {
        return 0;
    }
    switch (data[0] % 3) {
    case 0:
        if (document->IsObject())
            api->parsePollReply(document->Object(), hue::CBridge::PollLights);
        break;
    case 1:
        if (document->IsObject())
            api->parsePollReply(document->Object(), hue::CBridge::PollGroups);
        break;
    default:
        api->parseLightChangeReply(nullptr, *document, true);
        break;
    }
    // Keep the bridge small, so that inputs do not pile up lights for ever.
    if (target.lights().size() > 64)
        target.deleteAllLights();
    return 0;
}
