// Which TLS errors of the bridges' connections the controller accepts: bridges present
// self-signed certificates for their own id, trusted on first use and then pinned, or (newer
// ones) chains from the Hue authority for their own id, pinned too and renewed by the authority.

#include "hue_controller.h"

#include "hue_bridge.h"

#include "common/logginginterface.h"

#include <QCryptographicHash>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSslCertificate>
#include <QSslConfiguration>

#include <algorithm>

namespace hue {

namespace {

// A bridge id as a certificate names it: 16 hexadecimal digits, in either case.
bool looksLikeBridgeId(const QString& text)
{
    static const QRegularExpression kPattern(QStringLiteral("^[0-9A-Fa-f]{16}$"));
    return kPattern.match(text).hasMatch();
}

QString commonName(const QSslCertificate& certificate)
{
    const QStringList names = certificate.subjectInfo(QSslCertificate::CommonName);
    return names.size() == 1 ? names.first() : QString();
}

} // namespace

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
    const QByteArray id = bridgeId.toByteArray();
    const QSslCertificate peer = reply->sslConfiguration().peerCertificate();
    QSslCertificate selfSigned;
    for (const QSslError& error : errors) {
        if (error.error() == QSslError::SelfSignedCertificate) {
            selfSigned = error.certificate();
        } else if (error.error() != QSslError::HostNameMismatch) {
            // Not verifiable at all: on a bridge with a pinned certificate that is a changed one.
            if (!bridgeCertDigest(id).isEmpty() && !peer.isNull())
                certificateChanged(id);
            else
                LOG_WARNING << "got an unexpected SSL error, rejecting connection:" << error.errorString();
            return;
        }
    }
    bool accepted = false;
    if (!selfSigned.isNull()) {
        accepted = acceptSelfSignedCertificate(id, selfSigned);
    } else if (reply->property("hueIdentify").toBool() &&
               commonName(peer).compare(QString::fromUtf8(id), Qt::CaseInsensitive) != 0) {
        // Identifying a bridge known only by its address: the chain verified to a trusted root, so
        // its common name is who the bridge is; the answer must then say the same.
        accepted = looksLikeBridgeId(commonName(peer));
        if (accepted)
            reply->setProperty("hueCertificateName", commonName(peer).toLower().toUtf8());
        else
            LOG_WARNING << "certificate at" << reply->url().host() << "names no bridge:" << commonName(peer);
    } else {
        accepted = acceptAuthorityCertificate(id, peer);
    }
    if (!accepted)
        return;
    certificateAcceptedAgain(id);
    reply->setProperty("hueCertificateRefused", QVariant());
    reply->ignoreSslErrors(errors);
}

bool CController::acceptAuthorityCertificate(const QByteArray& bridgeId, const QSslCertificate& certificate)
{
    // The chain verified to a trusted root (host names never match: bridges are reached by
    // address). It must be this bridge's own: one bridge's certificate never passes for another.
    const QString name = commonName(certificate);
    if (!looksLikeBridgeId(name) || name.compare(QString::fromUtf8(bridgeId), Qt::CaseInsensitive) != 0) {
        LOG_WARNING << "certificate of bridge" << bridgeId << "is issued for"
                    << (name.isEmpty() ? "no single name" : name) << "- refused";
        return false;
    }
    const QByteArray digest = certificate.digest(QCryptographicHash::Sha256);
    const QByteArray stored = bridgeCertDigest(bridgeId);
    if (stored == digest)
        return true;
    if (!stored.isEmpty())
        LOG_INFO << "certificate of bridge" << bridgeId
                 << "was renewed by its authority; pinning the new one";
    setBridgeCertDigest(bridgeId, digest);
    return true;
}

void CController::certificateChanged(const QByteArray& bridgeId)
{
    // Logged and stored once while it lasts; the bridge is tried again at most once a minute, and
    // gets its former state back when the pinned certificate returns.
    if (m_refusedCertificates.contains(bridgeId))
        return;
    LOG_WARNING << "unexpected cert change on bridge" << bridgeId;
    m_refusedCertificates.insert(bridgeId, bridgeState(bridgeId));
    setBridgeState(QString::fromUtf8(bridgeId), BridgeStateError);
    if (CBridge* bridge = bridgeByBridgeId(QString::fromUtf8(bridgeId)))
        bridge->setCertificateRefused(true);
}

void CController::certificateAcceptedAgain(const QByteArray& bridgeId)
{
    const auto it = m_refusedCertificates.find(bridgeId);
    if (it == m_refusedCertificates.end())
        return;
    const EBridgeState former = it.value();
    m_refusedCertificates.erase(it);
    LOG_INFO << "pinned certificate of bridge" << bridgeId << "is back";
    if (bridgeState(bridgeId) == BridgeStateError)
        setBridgeState(QString::fromUtf8(bridgeId), former);
    if (CBridge* bridge = bridgeByBridgeId(QString::fromUtf8(bridgeId)))
        bridge->setCertificateRefused(false);
}

bool CController::acceptSelfSignedCertificate(const QByteArray& bridgeId, const QSslCertificate& certificate)
{
    const QByteArray digest = certificate.digest(QCryptographicHash::Sha256);
    const QByteArray stored = bridgeCertDigest(bridgeId);
    if (!stored.isEmpty()) {
        if (stored == digest)
            return true;
        certificateChanged(bridgeId);
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
