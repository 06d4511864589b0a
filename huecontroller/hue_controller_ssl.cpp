// Which TLS errors of the bridges' connections the controller accepts: bridges present
// self-signed certificates for their own id, trusted on first use and then pinned.

#include "hue_controller.h"

#include "common/logginginterface.h"

#include <QCryptographicHash>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <algorithm>

namespace hue {

void CController::sslErrors(QNetworkReply* reply, const QList<QSslError>& errors)
{
    const QVariant bridgeId = reply->property("hueBridgeId");
    if (!bridgeId.isValid()) {
        LOG_WARNING << "got SSL errors in request without bridge ID" << reply->url();
        return;
    }
    if (errors.isEmpty()) {
        reply->ignoreSslErrors();
        return;
    }
    // A refused certificate is marked on the reply: the bridge speaks TLS, so its request engine
    // must not take the failed handshake for a bridge without https and fall back to http.
    reply->setProperty("hueCertificateRefused", true);
    QSslCertificate selfSigned;
    for (const QSslError& error : errors) {
        if (error.error() == QSslError::SelfSignedCertificate) {
            selfSigned = error.certificate();
        } else if (error.error() != QSslError::HostNameMismatch) {
            LOG_WARNING << "got an unexpected SSL error, rejecting connection:" << error.errorString();
            return;
        }
    }
    // Bridges are reached by address, so their names never match; that alone is accepted.
    const bool onlyHostNameMismatch = std::all_of(errors.cbegin(), errors.cend(), [](const QSslError& error) {
        return error.error() == QSslError::HostNameMismatch;
    });
    if (!onlyHostNameMismatch) {
        if (selfSigned.isNull())
            selfSigned = reply->sslConfiguration().peerCertificate();
        if (!acceptSelfSignedCertificate(bridgeId.toByteArray(), selfSigned))
            return;
    }
    reply->setProperty("hueCertificateRefused", QVariant());
    reply->ignoreSslErrors(errors);
}

bool CController::acceptSelfSignedCertificate(const QByteArray& bridgeId, const QSslCertificate& certificate)
{
    const QByteArray digest = certificate.digest(QCryptographicHash::Sha256);
    const QByteArray stored = bridgeCertDigest(bridgeId);
    if (!stored.isEmpty()) {
        if (stored == digest)
            return true;
        LOG_WARNING << "unexpected cert change on bridge" << bridgeId;
        setBridgeState(QString::fromUtf8(bridgeId), BridgeStateError);
        return false;
    }

    // First contact: the certificate must be the bridge's own, self-signed for its id.
    QList<QByteArray> subjectAttributes = certificate.subjectInfoAttributes();
    QList<QByteArray> issuerAttributes = certificate.issuerInfoAttributes();
    std::sort(subjectAttributes.begin(), subjectAttributes.end());
    std::sort(issuerAttributes.begin(), issuerAttributes.end());
    if (subjectAttributes != issuerAttributes) {
        LOG_DETAIL << "attribute list mismatch";
        return false;
    }
    for (const QByteArray& attribute : qAsConst(subjectAttributes)) {
        if (certificate.subjectInfo(attribute) != certificate.issuerInfo(attribute)) {
            LOG_DETAIL << "peer cert does not seem to be self-signed";
            return false;
        }
    }
    const QStringList commonNames = certificate.subjectInfo(QSslCertificate::CommonName);
    if (commonNames.size() != 1) {
        LOG_DETAIL << "too many cnames in cert";
        return false;
    }
    if (commonNames.first().toUtf8() != bridgeId) {
        LOG_DETAIL << "cname does not match expected bridge id";
        return false;
    }
    setBridgeCertDigest(bridgeId, digest);
    return true;
}

} // namespace hue
