// libFuzzer target for the pairing replies: the user-name check ("/api/<user>/config": API and
// firmware versions, the whitelist, the move to version 2) and the registration ("POST /api":
// success with the new user name, or the link-button and other errors), through the bridge's
// reply funnel and CBridge::parsePairingReply.
//
// Byte 0: bit 0 picks the check or the registration, bit 1 an HTTP error instead of 200; the
// rest is the bridge's answer. One bridge on an https address lives across inputs; requests
// that a reply starts (the check after a registration) are ended before the next input.
#include "huecontroller/hue_bridge.h"

#include "fakenetwork.h"

#include <cstdint>

namespace {

fuzz::FakeNetwork* network = nullptr;
hue::CBridge* bridge = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    network = new fuzz::FakeNetwork;
    bridge = new hue::CBridge(network, "001788fffe123456", QStringLiteral("127.0.0.1"), 443, 1,
                              QStringLiteral("fuzz"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    bridge->setUserName(QStringLiteral("fuzz"));
    network->body = QByteArray(reinterpret_cast<const char*>(data + 1), int(size - 1));
    network->status = data[0] & 2 ? 403 : 200;
    if (data[0] & 1)
        bridge->registerUserName(1);
    else
        bridge->checkUsernameRegistered(true);
    if (fuzz::FakeReply* reply = network->last())
        bridge->replyFinished(reply, false);
    // A follow-up request fails, so that the next input starts with none outstanding.
    for (const QPointer<fuzz::FakeReply>& reply : QList<QPointer<fuzz::FakeReply>>(network->made)) {
        if (reply && bridge->isTracked(reply)) {
            reply->fail(QNetworkReply::OperationCanceledError);
            bridge->replyFinished(reply, false);
        }
    }
    network->dropAll();
    return 0;
}
