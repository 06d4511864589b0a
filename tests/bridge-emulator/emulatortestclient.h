#pragma once

#include <bridgeemulator.h>

#include <QJsonDocument>
#include <QList>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QSslCertificate>
#include <QSslError>
#include <QString>

#include <memory>

using HeaderPairs = QList<QPair<QByteArray, QByteArray>>;

// What one exchange with the emulator brought back.
struct TestReply
{
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    QByteArray body;
    HeaderPairs headers;
    QList<int> sslErrors; // QSslError::SslError codes
    QSslCertificate peerCertificate;

    QJsonDocument json() const { return QJsonDocument::fromJson(body); }
    // The first header of that name (case-insensitive), null when there is none.
    QByteArray header(const QByteArray& name) const
    {
        for (const auto& pair : headers) {
            if (pair.first.compare(name, Qt::CaseInsensitive) == 0)
                return pair.second;
        }
        return {};
    }
};

// A QNetworkAccessManager that waits for each reply, as the service's own client talks to a
// bridge. TLS errors are recorded and ignored, so that the self-signed certificate can be read.
// An emulator started on free loopback ports; a failure to start is logged as a warning and
// shows up in the test as connection errors.
std::unique_ptr<bridgeemu::BridgeEmulator> startEmulator(bridgeemu::EmulatorConfig config = {});

class EmulatorTestClient
{
public:
    TestReply send(const QByteArray& method, const QString& url, const QByteArray& body = {},
                   int waitMs = 5000, const HeaderPairs& headers = {});
    TestReply get(const QString& url) { return send("GET", url); }
    // Starts a request and leaves it running; the caller aborts or waits for it.
    QNetworkReply* start(const QByteArray& method, const QString& url, const QByteArray& body = {},
                         const HeaderPairs& headers = {});

private:
    QNetworkAccessManager m_manager;
};

QString httpUrl(int port, const QString& path);
QString httpsUrl(int port, const QString& path);
