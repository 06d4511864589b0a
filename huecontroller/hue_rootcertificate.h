#pragma once

namespace hue {

// The public root certificate of Philips Hue bridges (C=NL, O=Philips Hue, CN=root-bridge), an
// ECDSA certificate in PEM form. Bridges with newer firmware present certificates signed by it.
extern const char kHueBridgeRootCertificatePem[];

// Adds the root certificate to the CA certificates of the default SSL configuration (once per
// process) so that every new connection trusts it.
void trustHueBridgeRootCertificate();

} // namespace hue
