#include "certificate.h"

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace bridgeemu {

namespace {

std::string openSslError(const char* what)
{
    char text[256] = "";
    ERR_error_string_n(ERR_get_error(), text, sizeof text);
    return std::string(what) + ": " + text;
}

EVP_PKEY* makeKey()
{
    EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_EC, nullptr);
    EVP_PKEY* key = nullptr;
    if (context && EVP_PKEY_keygen_init(context) > 0 &&
        EVP_PKEY_CTX_set_ec_paramgen_curve_nid(context, NID_X9_62_prime256v1) > 0) {
        if (EVP_PKEY_keygen(context, &key) <= 0)
            key = nullptr;
    }
    EVP_PKEY_CTX_free(context);
    return key;
}

bool addName(X509_NAME* name, const char* field, const std::string& value)
{
    return X509_NAME_add_entry_by_txt(name, field, MBSTRING_ASC,
                                      reinterpret_cast<const unsigned char*>(value.c_str()), -1, -1, 0) == 1;
}

// Serial number = the bridge id read as a hexadecimal number, as bridges do.
bool setSerial(X509* certificate, const std::string& bridgeId)
{
    BIGNUM* number = nullptr;
    if (BN_hex2bn(&number, bridgeId.c_str()) == 0)
        return false;
    ASN1_INTEGER* serial = BN_to_ASN1_INTEGER(number, nullptr);
    BN_free(number);
    const bool set = serial && X509_set_serialNumber(certificate, serial) == 1;
    ASN1_INTEGER_free(serial);
    return set;
}

// What a certificate says beyond its key: who it names and who signs it.
struct CertificatePlan
{
    std::string serialHex; // empty: random
    std::vector<std::pair<const char*, std::string>> subject;
    X509* issuer = nullptr; // with issuerKey; null: self-signed
    EVP_PKEY* issuerKey = nullptr;
    bool authority = false; // CA:true with key usage for signing certificates
    const char* pathLength = nullptr;
    long validDays = 0; // 0: the fixed validity of the bridges' own certificates
};

bool setRandomSerial(X509* certificate)
{
    BIGNUM* number = BN_new();
    const bool made = number && BN_rand(number, 63, BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY) == 1;
    ASN1_INTEGER* serial = made ? BN_to_ASN1_INTEGER(number, nullptr) : nullptr;
    BN_free(number);
    const bool set = serial && X509_set_serialNumber(certificate, serial) == 1;
    ASN1_INTEGER_free(serial);
    return set;
}

bool addExtensionFrom(X509* issuer, X509* certificate, int nid, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, issuer, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (!extension)
        return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
}

bool fillCertificate(X509* certificate, EVP_PKEY* key, const CertificatePlan& plan)
{
    if (X509_set_version(certificate, 2) != 1)
        return false;
    if (plan.serialHex.empty() ? !setRandomSerial(certificate) : !setSerial(certificate, plan.serialHex))
        return false;
    if (plan.validDays > 0) {
        // An hour back, so that clocks a little behind still accept it.
        if (!X509_gmtime_adj(X509_getm_notBefore(certificate), -3600) ||
            !X509_time_adj_ex(X509_getm_notAfter(certificate), static_cast<int>(plan.validDays), 0, nullptr))
            return false;
    } else if (ASN1_TIME_set_string(X509_getm_notBefore(certificate), "20170101000000Z") != 1 ||
               ASN1_TIME_set_string(X509_getm_notAfter(certificate), "20380119031407Z") != 1) {
        // A fixed validity that covers any test run, like the long-lived certificates of bridges.
        return false;
    }
    X509_NAME* name = X509_get_subject_name(certificate);
    for (const auto& [field, value] : plan.subject) {
        if (!addName(name, field, value))
            return false;
    }
    X509* issuer = plan.issuer ? plan.issuer : certificate;
    EVP_PKEY* signingKey = plan.issuer ? plan.issuerKey : key;
    if (X509_set_issuer_name(certificate, X509_get_subject_name(issuer)) != 1 ||
        X509_set_pubkey(certificate, key) != 1)
        return false;
    bool extended = addExtensionFrom(issuer, certificate, NID_subject_key_identifier, "hash");
    if (plan.authority) {
        const std::string constraints = std::string("critical,CA:TRUE") +
                                        (plan.pathLength ? std::string(",pathlen:") + plan.pathLength : "");
        extended = extended &&
                   addExtensionFrom(issuer, certificate, NID_basic_constraints, constraints.c_str()) &&
                   addExtensionFrom(issuer, certificate, NID_key_usage, "critical,keyCertSign,cRLSign");
    } else {
        // No key usage on a self-signed one: with one that lacks keyCertSign, OpenSSL would no
        // longer see the certificate as self-signed and clients would report a missing issuer.
        extended = extended &&
                   addExtensionFrom(issuer, certificate, NID_basic_constraints, "critical,CA:FALSE") &&
                   addExtensionFrom(issuer, certificate, NID_ext_key_usage, "serverAuth") &&
                   (!plan.issuer ||
                    addExtensionFrom(issuer, certificate, NID_key_usage, "critical,digitalSignature"));
    }
    if (!extended || !addExtensionFrom(issuer, certificate, NID_authority_key_identifier, "keyid:always"))
        return false;
    return X509_sign(certificate, signingKey, EVP_sha256()) > 0;
}

std::vector<std::pair<const char*, std::string>> bridgeSubject(const std::string& commonName)
{
    return {{"C", "NL"}, {"O", "Philips Hue"}, {"CN", commonName}};
}

// A new key and a certificate of it made after `plan`; nothing, with a message, on failure.
std::pair<X509*, EVP_PKEY*> makeCertificate(const CertificatePlan& plan, std::string* error)
{
    EVP_PKEY* key = makeKey();
    if (!key) {
        if (error)
            *error = openSslError("EC key generation failed");
        return {nullptr, nullptr};
    }
    X509* certificate = X509_new();
    if (!certificate || !fillCertificate(certificate, key, plan)) {
        if (error)
            *error = openSslError("certificate creation failed");
        X509_free(certificate);
        EVP_PKEY_free(key);
        return {nullptr, nullptr};
    }
    return {certificate, key};
}

} // namespace

std::unique_ptr<ServerCertificate> ServerCertificate::create(const std::string& bridgeId, std::string* error,
                                                             const std::string& commonName)
{
    CertificatePlan plan;
    plan.serialHex = bridgeId;
    plan.subject = bridgeSubject(commonName.empty() ? bridgeId : commonName);
    const auto [certificate, key] = makeCertificate(plan, error);
    if (!certificate)
        return nullptr;
    return std::unique_ptr<ServerCertificate>(new ServerCertificate(certificate, key));
}

std::unique_ptr<ServerCertificate> ServerCertificate::issue(const CertificateAuthority& authority,
                                                            const std::string& bridgeId,
                                                            const std::string& commonName, std::string* error)
{
    const ServerCertificate& intermediate = authority.intermediate();
    CertificatePlan plan;
    plan.subject = bridgeSubject(commonName.empty() ? bridgeId : commonName);
    plan.issuer = intermediate.certificate();
    plan.issuerKey = intermediate.privateKey();
    plan.validDays = 3 * 365;
    const auto [certificate, key] = makeCertificate(plan, error);
    if (!certificate)
        return nullptr;
    std::unique_ptr<ServerCertificate> issued(new ServerCertificate(certificate, key));
    X509_up_ref(intermediate.certificate());
    issued->m_chain.push_back(intermediate.certificate());
    return issued;
}

std::unique_ptr<CertificateAuthority> CertificateAuthority::create(std::string* error)
{
    CertificatePlan rootPlan;
    rootPlan.subject = {{"O", "Emulator"}, {"CN", "Emulator Test Root CA"}};
    rootPlan.authority = true;
    rootPlan.validDays = 20 * 365;
    const auto [rootCertificate, rootKey] = makeCertificate(rootPlan, error);
    if (!rootCertificate)
        return nullptr;
    std::unique_ptr<ServerCertificate> root(new ServerCertificate(rootCertificate, rootKey));
    CertificatePlan intermediatePlan;
    intermediatePlan.subject = {{"O", "Emulator"}, {"CN", "Emulator Test Intermediate CA"}};
    intermediatePlan.issuer = rootCertificate;
    intermediatePlan.issuerKey = rootKey;
    intermediatePlan.authority = true;
    intermediatePlan.pathLength = "0";
    intermediatePlan.validDays = 10 * 365;
    const auto [intermediateCertificate, intermediateKey] = makeCertificate(intermediatePlan, error);
    if (!intermediateCertificate)
        return nullptr;
    std::unique_ptr<ServerCertificate> intermediate(
        new ServerCertificate(intermediateCertificate, intermediateKey));
    return std::unique_ptr<CertificateAuthority>(
        new CertificateAuthority(std::move(root), std::move(intermediate)));
}

std::unique_ptr<CertificateAuthority> CertificateAuthority::fromParts(std::unique_ptr<ServerCertificate> root,
                                                                      std::unique_ptr<ServerCertificate> intermediate,
                                                                      std::string* error)
{
    if (!root || !intermediate || !root->isSelfSigned() || !intermediate->isIssuedBy(*root)) {
        if (error)
            *error = "the authority's root and intermediate do not belong together";
        return nullptr;
    }
    return std::unique_ptr<CertificateAuthority>(
        new CertificateAuthority(std::move(root), std::move(intermediate)));
}

ServerCertificate::~ServerCertificate()
{
    for (X509* link : m_chain)
        X509_free(link);
    X509_free(m_certificate);
    EVP_PKEY_free(m_key);
}

std::unique_ptr<ServerCertificate> ServerCertificate::fromPem(const std::string& certificatePem,
                                                              const std::string& keyPem, std::string* error)
{
    BIO* certificateBio = BIO_new_mem_buf(certificatePem.data(), static_cast<int>(certificatePem.size()));
    BIO* keyBio = BIO_new_mem_buf(keyPem.data(), static_cast<int>(keyPem.size()));
    X509* certificate =
        certificateBio ? PEM_read_bio_X509(certificateBio, nullptr, nullptr, nullptr) : nullptr;
    EVP_PKEY* key = keyBio ? PEM_read_bio_PrivateKey(keyBio, nullptr, nullptr, nullptr) : nullptr;
    std::vector<X509*> chain;
    while (certificate) {
        X509* link = PEM_read_bio_X509(certificateBio, nullptr, nullptr, nullptr);
        if (!link)
            break;
        chain.push_back(link);
    }
    ERR_clear_error(); // the end of the text reads as an error
    BIO_free(certificateBio);
    BIO_free(keyBio);
    if (!certificate || !key || X509_check_private_key(certificate, key) != 1) {
        if (error)
            *error = openSslError(!certificate ? "unreadable certificate"
                                  : !key       ? "unreadable key"
                                               : "the key does not match the certificate");
        X509_free(certificate);
        EVP_PKEY_free(key);
        for (X509* link : chain)
            X509_free(link);
        return nullptr;
    }
    std::unique_ptr<ServerCertificate> result(new ServerCertificate(certificate, key));
    result->m_chain = std::move(chain);
    return result;
}

namespace {

template <typename Write> std::string writePem(Write write)
{
    BIO* bio = BIO_new(BIO_s_mem());
    std::string text;
    if (bio && write(bio) == 1) {
        char* data = nullptr;
        const long size = BIO_get_mem_data(bio, &data);
        text.assign(data, static_cast<std::size_t>(size));
    }
    BIO_free(bio);
    return text;
}

} // namespace

std::string ServerCertificate::pem() const
{
    return writePem([this](BIO* bio) { return PEM_write_bio_X509(bio, m_certificate); });
}

std::string ServerCertificate::chainPem() const
{
    std::string text = pem();
    for (X509* link : m_chain)
        text += writePem([link](BIO* bio) { return PEM_write_bio_X509(bio, link); });
    return text;
}

bool ServerCertificate::isSelfSigned() const
{
    return X509_check_issued(m_certificate, m_certificate) == X509_V_OK &&
           X509_verify(m_certificate, m_key) == 1;
}

bool ServerCertificate::isIssuedBy(const ServerCertificate& issuer) const
{
    return X509_check_issued(issuer.m_certificate, m_certificate) == X509_V_OK &&
           X509_verify(m_certificate, issuer.m_key) == 1;
}

std::string ServerCertificate::keyPem() const
{
    return writePem([this](BIO* bio) {
        return PEM_write_bio_PrivateKey(bio, m_key, nullptr, nullptr, 0, nullptr, nullptr);
    });
}

std::string ServerCertificate::commonName() const
{
    char text[256] = "";
    if (X509_NAME_get_text_by_NID(X509_get_subject_name(m_certificate), NID_commonName, text, sizeof text) <
        0)
        return {};
    return text;
}

} // namespace bridgeemu
