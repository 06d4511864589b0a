#pragma once

#include <QList>
#include <QSslCertificate>
#include <QString>

namespace hue {

// The public root certificate of Philips Hue bridges (C=NL, O=Philips Hue, CN=root-bridge), an
// ECDSA certificate in PEM form. Bridges with newer firmware present certificates signed by it.
extern const char kHueBridgeRootCertificatePem[];

// The successor root (C=NL, O=Signify Hue, CN=Hue Root CA 01) of newer bridges' certificate chains.
extern const char kHueRootCa01CertificatePem[];

// Both Hue roots, parsed.
QList<QSslCertificate> hueRootCertificates();
// Adds both Hue roots to the CA certificates of the default SSL configuration (once per process)
// so that every new connection trusts them.
void trustHueBridgeRootCertificate();
// For development and tests only: trusts the certificates of a PEM file as roots beside the Hue
// roots (a test authority's); logs what it did. Returns them (none for an empty path).
QList<QSslCertificate> trustExtraRootCertificates(const QString& pemPath);

} // namespace hue
