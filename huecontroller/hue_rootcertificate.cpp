#include "hue_rootcertificate.h"

#include "common/logginginterface.h"

#include <QSslCertificate>
#include <QSslConfiguration>

namespace hue {

const char kHueBridgeRootCertificatePem[] =
    "-----BEGIN CERTIFICATE-----\n"
    "MIICMjCCAdigAwIBAgIUO7FSLbaxikuXAljzVaurLXWmFw4wCgYIKoZIzj0EAwIw\n"
    "OTELMAkGA1UEBhMCTkwxFDASBgNVBAoMC1BoaWxpcHMgSHVlMRQwEgYDVQQDDAty\n"
    "b290LWJyaWRnZTAiGA8yMDE3MDEwMTAwMDAwMFoYDzIwMzgwMTE5MDMxNDA3WjA5\n"
    "MQswCQYDVQQGEwJOTDEUMBIGA1UECgwLUGhpbGlwcyBIdWUxFDASBgNVBAMMC3Jv\n"
    "b3QtYnJpZGdlMFkwEwYHKoZIzj0CAQYIKoZIzj0DAQcDQgAEjNw2tx2AplOf9x86\n"
    "aTdvEcL1FU65QDxziKvBpW9XXSIcibAeQiKxegpq8Exbr9v6LBnYbna2VcaK0G22\n"
    "jOKkTqOBuTCBtjAPBgNVHRMBAf8EBTADAQH/MA4GA1UdDwEB/wQEAwIBhjAdBgNV\n"
    "HQ4EFgQUZ2ONTFrDT6o8ItRnKfqWKnHFGmQwdAYDVR0jBG0wa4AUZ2ONTFrDT6o8\n"
    "ItRnKfqWKnHFGmShPaQ7MDkxCzAJBgNVBAYTAk5MMRQwEgYDVQQKDAtQaGlsaXBz\n"
    "IEh1ZTEUMBIGA1UEAwwLcm9vdC1icmlkZ2WCFDuxUi22sYpLlwJY81Wrqy11phcO\n"
    "MAoGCCqGSM49BAMCA0gAMEUCIEBYYEOsa07TH7E5MJnGw557lVkORgit2Rm1h3B2\n"
    "sFgDAiEA1Fj/C3AN5psFMjo0//mrQebo0eKd3aWRx+pQY08mk48=\n"
    "-----END CERTIFICATE-----\n";

// The successor root (C=NL, O=Signify Hue, CN=Hue Root CA 01): bridges whose certificates were
// issued from 2025 on present a chain through an intermediate certificate to it.
const char kHueRootCa01CertificatePem[] = "-----BEGIN CERTIFICATE-----\n"
                                          "MIIBzDCCAXOgAwIBAgICEAAwCgYIKoZIzj0EAwIwPDELMAkGA1UEBhMCTkwxFDAS\n"
                                          "BgNVBAoMC1NpZ25pZnkgSHVlMRcwFQYDVQQDDA5IdWUgUm9vdCBDQSAwMTAgFw0y\n"
                                          "NTAyMjUwMDAwMDBaGA8yMDUwMTIzMTIzNTk1OVowPDELMAkGA1UEBhMCTkwxFDAS\n"
                                          "BgNVBAoMC1NpZ25pZnkgSHVlMRcwFQYDVQQDDA5IdWUgUm9vdCBDQSAwMTBZMBMG\n"
                                          "ByqGSM49AgEGCCqGSM49AwEHA0IABFfOO0jfSAUXGQ9kjEDzyBrcMQ3ItyA5krE+\n"
                                          "cyvb1Y3xFti7KlAad8UOnAx0FBLn7HZrlmIwm1QnX0fK3LPM13mjYzBhMB0GA1Ud\n"
                                          "DgQWBBTF1pSpsCASX/z0VHLigxU2CAaqoTAfBgNVHSMEGDAWgBTF1pSpsCASX/z0\n"
                                          "VHLigxU2CAaqoTAPBgNVHRMBAf8EBTADAQH/MA4GA1UdDwEB/wQEAwIBBjAKBggq\n"
                                          "hkjOPQQDAgNHADBEAiAk7duT+IHbOGO4UUuGLAEpyYejGZK9Z7V9oSfnvuQ5BQIg\n"
                                          "IYSgwwxHXm73/JgcU9lAM6c8Bmu3UE3kBIUwBs1qXFw=\n"
                                          "-----END CERTIFICATE-----\n";

QList<QSslCertificate> hueRootCertificates()
{
    return QSslCertificate::fromData(QByteArray(kHueBridgeRootCertificatePem) + kHueRootCa01CertificatePem,
                                     QSsl::Pem);
}

void trustCertificates(const QList<QSslCertificate>& roots)
{
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    const QList<QSslCertificate> known = configuration.caCertificates();
    bool added = false;
    for (const QSslCertificate& root : roots) {
        if (!root.isNull() && !known.contains(root)) {
            configuration.addCaCertificate(root);
            added = true;
        }
    }
    if (added)
        QSslConfiguration::setDefaultConfiguration(configuration);
}

void trustHueBridgeRootCertificate()
{
    trustCertificates(hueRootCertificates());
}

QList<QSslCertificate> trustExtraRootCertificates(const QString& pemPath)
{
    if (pemPath.isEmpty())
        return {};
    const QList<QSslCertificate> roots = QSslCertificate::fromPath(pemPath, QSsl::Pem);
    if (roots.isEmpty()) {
        LOG_WARNING << "no certificates to trust in" << pemPath;
        return {};
    }
    LOG_INFO << "trusting" << roots.size() << "extra root certificates from" << pemPath;
    trustCertificates(roots);
    return roots;
}

} // namespace hue
