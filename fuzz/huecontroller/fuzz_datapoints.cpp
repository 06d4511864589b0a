// libFuzzer target for the value texts the hub writes to a light's input datapoints: switching,
// relative dimming (KNX step codes), absolute dimming and brightness, timed start/stop,
// presence, scene, night, RGB, HSV, colour temperature, hue, saturation and timed dimming
// (KNX scaling speed "50%/2000ms"), read by CController::dataPointValueChanged.
//
// Byte 0 picks the datapoint (mod 14) and the light (div 14: on/off, dimmable, colour
// temperature, colour, extended colour); the rest is the value text. A datapoint the light's
// description lacks is written by its raw index. The controller, its bridge (no network requests:
// no user name) and the lights live across inputs; the queued bridge commands are never sent.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_bridgeapi.h"
#include "huecontroller/hue_controller.h"
#include "huecontroller/hue_globals.h"
#include "huecontroller/hue_light.h"

#include "fakenetwork.h"
#include "json/minijson.h"

#include <cstdint>

namespace {

const char kLights[] =
    R"({"1":{"type":"On/Off plug-in unit","name":"a","modelid":"LOM001","state":{"on":true}},)"
    R"("2":{"type":"Dimmable light","name":"b","modelid":"LWB010","state":{"on":true,"bri":100}},)"
    R"("3":{"type":"Color temperature light","name":"c","modelid":"LTW012",)"
    R"("state":{"on":true,"bri":100,"ct":300,"colormode":"ct"}},)"
    R"("4":{"type":"Color light","name":"d","modelid":"LLC011","state":{"on":true,)"
    R"("bri":100,"hue":100,"sat":100,"xy":[0.4,0.4],"colormode":"xy"}},)"
    R"("5":{"type":"Extended color light","name":"e","modelid":"LCT015","state":{"on":false,)"
    R"("bri":10,"hue":100,"sat":100,"xy":[0.3,0.3],"ct":200,"colormode":"ct"}}})";

hue::CController* controller = nullptr;
hue::CBridge* bridge = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    ConstDataDir = QStringLiteral(HUE_CONST_DATA_DIR);
    controller = new hue::CController;
    controller->initialize();
    bridge =
        controller->registerBridge("001788fffe123456", QStringLiteral("127.0.0.1"), 1, QStringLiteral("B"));
    bridge->api()->parsePollReply(minijson::CParser::Parse(kLights)->Object(), hue::CBridge::PollLights);
    if (bridge->lights().size() != 5 || bridge->isIgnored() || !bridge->userName().isEmpty())
        abort();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const auto datapoint = static_cast<hue::EInputDatapoint>(data[0] % hue::InputDatapointCount);
    const hue::CLight* light =
        bridge->lightById(QByteArray::number(data[0] / hue::InputDatapointCount % 5 + 1));
    InternalId id = controller->getInputDatapointSerial(*light, 0, datapoint);
    if (!id.isValid())
        id = InternalId::makeInputDataPointSerial(light->deviceSerial(), 0, data[0]);
    controller->dataPointValueChanged(
        id, QString::fromUtf8(reinterpret_cast<const char*>(data + 1), int(size - 1)));
    return 0;
}
