// libFuzzer target for the identification of a candidate bridge: its "/api/config" answer read
// by the controller's admission (name, "bridgeid", "apiversion"), and the registration of the
// bridge it names with the stored settings that the id selects.
//
// Byte 0 picks the id the candidate was announced with (none, current form, old UUID form), its
// port and whether a certificate named the bridge; the rest is the answer. The controller lives across
// inputs; the bridges an input registers are removed after it, and the list of used short ids is emptied.
#include "huecontroller/hue_bridge.h"
#include "huecontroller/hue_controller.h"

#include "common/configcache.h"
#include "fakenetwork.h"

#include <cstdint>

namespace {

const char* const kAnnouncedIds[] = {"", "001788fffe123456", "2f402f80da5011e19b23001788123456"};
hue::CController* controller = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    controller = new hue::CController;
    // A bridge known under its old UUID form, whose settings the admission carries over.
    ConfigCache::instance()->setConfigValueNonblock(
        QStringLiteral("hueBridges/2f402f80da5011e19b23001788123456"), QStringLiteral("ignore"), true);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const int port = data[0] & 4 ? 443 : 80;
    QUrl url(QStringLiteral("http://127.0.0.1/api/config"));
    url.setPort(port);
    auto* reply = new fuzz::FakeReply(QNetworkRequest(url), QNetworkAccessManager::GetOperation,
                                      QByteArray(reinterpret_cast<const char*>(data + 1), int(size - 1)),
                                      data[0] & 8 ? 404 : 200);
    reply->setProperty("hueBridgeId", QByteArray(kAnnouncedIds[(data[0] & 3) % 3]));
    reply->setProperty("hueBridgeAddress", QByteArray("127.0.0.1"));
    reply->setProperty("hueBridgePort", port);
    if (data[0] & 16) // reached by address over https: the certificate named the bridge
        reply->setProperty("hueCertificateName", QByteArray("001788fffe123456"));
    QObject::connect(reply, &QNetworkReply::finished, controller,
                     &hue::CController::onIdentifyBridgeFinished);
    reply->finish();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete); // the reply
    controller->kill();
    ConfigCache::instance()->setConfigValueNonblock(QStringLiteral("hue/usedBridgeIDs"), QString(), true);
    return 0;
}
