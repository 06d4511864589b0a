// libFuzzer target for the certificate checks of the bridges' TLS connections: whatever a peer
// presents (arbitrary DER, or PEM text) is judged as a self-signed bridge certificate and as one
// issued by an authority, against no pinned digest, the certificate's own, and another one.
//
// Byte 0 picks the bridge id and the pinned digest; the rest is the certificate.
#include "huecontroller/hue_controller.h"

#include "common/configcache.h"
#include "fakenetwork.h"

#include <QCryptographicHash>
#include <QSslCertificate>

#include <cstdint>

namespace {

const char* const kBridgeIds[] = {"001788fffe123456", "001788FFFE123456", "", "c42996fffe00aa01"};
hue::CController* controller = nullptr;

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz::initQt();
    controller = new hue::CController;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 1)
        return 0;
    const QByteArray bytes(reinterpret_cast<const char*>(data + 1), int(size - 1));
    const QSslCertificate certificate(bytes, data[0] & 4 ? QSsl::Pem : QSsl::Der);
    const QByteArray id = kBridgeIds[data[0] & 3];
    switch ((data[0] >> 3) % 3) {
    case 0:
        controller->setBridgeCertDigest(id, QByteArray());
        break;
    case 1:
        controller->setBridgeCertDigest(id, certificate.digest(QCryptographicHash::Sha256));
        break;
    default:
        controller->setBridgeCertDigest(id, QByteArray(32, 'x'));
        break;
    }
    controller->acceptSelfSignedCertificate(id, certificate);
    controller->acceptAuthorityCertificate(id, certificate);
    controller->certificateAcceptedAgain(id);
    return 0;
}
