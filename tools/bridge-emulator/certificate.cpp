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

bool addExtension(X509* certificate, int nid, const char* value)
{
    X509V3_CTX context;
    X509V3_set_ctx(&context, certificate, certificate, nullptr, nullptr, 0);
    X509_EXTENSION* extension = X509V3_EXT_conf_nid(nullptr, &context, nid, value);
    if (!extension)
        return false;
    const bool added = X509_add_ext(certificate, extension, -1) == 1;
    X509_EXTENSION_free(extension);
    return added;
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

bool fillCertificate(X509* certificate, EVP_PKEY* key, const std::string& bridgeId,
                     const std::string& commonName)
{
    if (X509_set_version(certificate, 2) != 1 || !setSerial(certificate, bridgeId))
        return false;
    // A fixed validity that covers any test run, like the long-lived certificates of bridges.
    if (ASN1_TIME_set_string(X509_getm_notBefore(certificate), "20170101000000Z") != 1 ||
        ASN1_TIME_set_string(X509_getm_notAfter(certificate), "20380119031407Z") != 1)
        return false;
    X509_NAME* name = X509_get_subject_name(certificate);
    if (!addName(name, "C", "NL") || !addName(name, "O", "Philips Hue") || !addName(name, "CN", commonName))
        return false;
    if (X509_set_issuer_name(certificate, name) != 1 || X509_set_pubkey(certificate, key) != 1)
        return false;
    // No key usage extension: with one that lacks keyCertSign, OpenSSL would no longer see the
    // certificate as self-signed and clients would report a missing issuer instead.
    if (!addExtension(certificate, NID_basic_constraints, "critical,CA:FALSE") ||
        !addExtension(certificate, NID_ext_key_usage, "serverAuth") ||
        !addExtension(certificate, NID_subject_key_identifier, "hash") ||
        !addExtension(certificate, NID_authority_key_identifier, "keyid:always"))
        return false;
    return X509_sign(certificate, key, EVP_sha256()) > 0;
}

} // namespace

std::unique_ptr<ServerCertificate> ServerCertificate::create(const std::string& bridgeId, std::string* error,
                                                             const std::string& commonName)
{
    EVP_PKEY* key = makeKey();
    if (!key) {
        if (error)
            *error = openSslError("EC key generation failed");
        return nullptr;
    }
    X509* certificate = X509_new();
    if (!certificate ||
        !fillCertificate(certificate, key, bridgeId, commonName.empty() ? bridgeId : commonName)) {
        if (error)
            *error = openSslError("certificate creation failed");
        X509_free(certificate);
        EVP_PKEY_free(key);
        return nullptr;
    }
    return std::unique_ptr<ServerCertificate>(new ServerCertificate(certificate, key));
}

ServerCertificate::~ServerCertificate()
{
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
    BIO_free(certificateBio);
    BIO_free(keyBio);
    if (!certificate || !key || X509_check_private_key(certificate, key) != 1) {
        if (error)
            *error = openSslError(!certificate ? "unreadable certificate"
                                  : !key       ? "unreadable key"
                                               : "the key does not match the certificate");
        X509_free(certificate);
        EVP_PKEY_free(key);
        return nullptr;
    }
    return std::unique_ptr<ServerCertificate>(new ServerCertificate(certificate, key));
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
