#pragma once

#include <memory>
#include <string>

struct x509_st;
struct evp_pkey_st;

namespace bridgeemu {

// The bridge's TLS identity: a fresh EC (prime256v1) key and a self-signed certificate whose
// subject and issuer are both C=NL, O=Philips Hue, CN=<bridge id in lower case>, as a bridge
// makes for itself. Clients trust it on first use because the common name is the bridge id.
class ServerCertificate
{
public:
    // Nothing, with a message in `error`, when OpenSSL fails. The serial number is the bridge
    // id; the common name is `commonName`, or the bridge id when that is empty.
    static std::unique_ptr<ServerCertificate> create(const std::string& bridgeId, std::string* error,
                                                     const std::string& commonName = {});
    // A certificate and its key read back from PEM text; nothing, with a message, when either
    // does not parse or the key does not belong to the certificate.
    static std::unique_ptr<ServerCertificate> fromPem(const std::string& certificatePem,
                                                      const std::string& keyPem, std::string* error);
    ~ServerCertificate();
    ServerCertificate(const ServerCertificate&) = delete;
    ServerCertificate& operator=(const ServerCertificate&) = delete;

    // Owned by this object; the TLS server takes its own references.
    x509_st* certificate() const { return m_certificate; }
    evp_pkey_st* privateKey() const { return m_key; }
    std::string pem() const;
    std::string keyPem() const;
    std::string commonName() const;

private:
    ServerCertificate(x509_st* certificate, evp_pkey_st* key) : m_certificate(certificate), m_key(key) {}

    x509_st* m_certificate;
    evp_pkey_st* m_key;
};

} // namespace bridgeemu
