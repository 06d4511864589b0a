#include "hue_rootcertificate.h"

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

void trustHueBridgeRootCertificate()
{
    const QSslCertificate root(QByteArray(kHueBridgeRootCertificatePem), QSsl::Pem);
    QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
    if (root.isNull() || configuration.caCertificates().contains(root))
        return;
    configuration.addCaCertificate(root);
    QSslConfiguration::setDefaultConfiguration(configuration);
}

} // namespace hue
