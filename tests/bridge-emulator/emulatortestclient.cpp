#include "emulatortestclient.h"

#include <QSignalSpy>
#include <QSslConfiguration>

QString httpUrl(int port, const QString& path)
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path);
}

QString httpsUrl(int port, const QString& path)
{
    return QStringLiteral("https://127.0.0.1:%1%2").arg(port).arg(path);
}

QNetworkReply* EmulatorTestClient::start(const QByteArray& method, const QString& url, const QByteArray& body,
                                         const HeaderPairs& headers)
{
    QNetworkRequest request{QUrl(url)};
    for (const auto& header : headers)
        request.setRawHeader(header.first, header.second);
    request.setAttribute(QNetworkRequest::Http2AllowedAttribute, false);
    if (!body.isNull())
        request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    QNetworkReply* reply = m_manager.sendCustomRequest(request, method, body);
    QObject::connect(reply, &QNetworkReply::sslErrors, reply, [reply](const QList<QSslError>& errors) {
        QVariantList codes;
        for (const QSslError& error : errors)
            codes << int(error.error());
        reply->setProperty("testSslErrors", codes);
        reply->ignoreSslErrors();
    });
    return reply;
}

TestReply EmulatorTestClient::send(const QByteArray& method, const QString& url, const QByteArray& body,
                                   int waitMs, const HeaderPairs& headers)
{
    QNetworkReply* reply = start(method, url, body, headers);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(waitMs)) {
        reply->abort();
        reply->deleteLater();
        return TestReply();
    }
    TestReply result;
    result.error = reply->error();
    result.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    result.body = reply->readAll();
    result.headers = reply->rawHeaderPairs();
    for (const QVariant& code : reply->property("testSslErrors").toList())
        result.sslErrors << code.toInt();
    result.peerCertificate = reply->sslConfiguration().peerCertificate();
    reply->deleteLater();
    return result;
}

std::unique_ptr<bridgeemu::BridgeEmulator> startEmulator(bridgeemu::EmulatorConfig config)
{
    auto emulator = std::make_unique<bridgeemu::BridgeEmulator>(std::move(config));
    std::string error;
    if (!emulator->start(&error))
        qWarning("emulator did not start: %s", error.c_str());
    return emulator;
}
