#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

struct x509_st;
struct evp_pkey_st;

namespace bridgeemu {

class CertificateAuthority;

// A TLS identity: an EC (prime256v1) key, its certificate and the certificates between it and
// a root (none for a self-signed one). A bridge's own is either self-signed with subject and
// issuer C=NL, O=Philips Hue, CN=<bridge id in lower case>, as older bridges make for
// themselves, or issued by an authority with that subject, as the newest bridges carry.
class ServerCertificate
{
public:
    // A self-signed certificate. Nothing, with a message in `error`, when OpenSSL fails. The
    // serial number is the bridge id; the common name is `commonName`, or the bridge id when
    // that is empty.
    static std::unique_ptr<ServerCertificate> create(const std::string& bridgeId, std::string* error,
                                                     const std::string& commonName = {});
    // A leaf issued by the authority's intermediate (CA:false, server authentication, valid for
    // three years from an hour ago), carrying the intermediate as its chain.
    static std::unique_ptr<ServerCertificate> issue(const CertificateAuthority& authority,
                                                    const std::string& bridgeId, const std::string& commonName,
                                                    std::string* error);
    // A certificate (and the chain certificates after it in the same text) and its key read
    // back from PEM text; nothing, with a message, when either does not parse or the key does
    // not belong to the certificate.
    static std::unique_ptr<ServerCertificate> fromPem(const std::string& certificatePem,
                                                      const std::string& keyPem, std::string* error);
    ~ServerCertificate();
    ServerCertificate(const ServerCertificate&) = delete;
    ServerCertificate& operator=(const ServerCertificate&) = delete;

    // Owned by this object; the TLS server takes its own references.
    x509_st* certificate() const { return m_certificate; }
    evp_pkey_st* privateKey() const { return m_key; }
    const std::vector<x509_st*>& chain() const { return m_chain; }
    std::string pem() const;      // the certificate alone
    std::string chainPem() const; // the certificate, then its chain
    std::string keyPem() const;
    std::string commonName() const;
    bool isSelfSigned() const;
    // Whether `issuer`'s key signed this certificate.
    bool isIssuedBy(const ServerCertificate& issuer) const;

private:
    friend class CertificateAuthority;
    ServerCertificate(x509_st* certificate, evp_pkey_st* key) : m_certificate(certificate), m_key(key) {}

    x509_st* m_certificate;
    evp_pkey_st* m_key;
    std::vector<x509_st*> m_chain;
};

// A certificate authority for tests: a root "CN=Emulator Test Root CA" and an intermediate
// signed by it, both CA:true, from which bridge certificates are issued, as the Hue authority
// issues those of the newest bridges. A client that trusts the root accepts what it issues.
class CertificateAuthority
{
public:
    static std::unique_ptr<CertificateAuthority> create(std::string* error);
    // Nothing, with a message, when a part does not parse or the intermediate is not the root's.
    static std::unique_ptr<CertificateAuthority> fromParts(std::unique_ptr<ServerCertificate> root,
                                                           std::unique_ptr<ServerCertificate> intermediate,
                                                           std::string* error);

    const ServerCertificate& root() const { return *m_root; }
    const ServerCertificate& intermediate() const { return *m_intermediate; }

private:
    CertificateAuthority(std::unique_ptr<ServerCertificate> root, std::unique_ptr<ServerCertificate> intermediate)
        : m_root(std::move(root)), m_intermediate(std::move(intermediate))
    {
    }

    std::unique_ptr<ServerCertificate> m_root;
    std::unique_ptr<ServerCertificate> m_intermediate;
};

// The certificate a TLS listener presents, exchangeable while it listens: each new connection
// takes the one current when its handshake begins.
class CertificateSlot
{
public:
    std::shared_ptr<const ServerCertificate> current() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_certificate;
    }
    void set(std::shared_ptr<const ServerCertificate> certificate)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_certificate = std::move(certificate);
    }

private:
    mutable std::mutex m_mutex;
    std::shared_ptr<const ServerCertificate> m_certificate;
};

} // namespace bridgeemu
