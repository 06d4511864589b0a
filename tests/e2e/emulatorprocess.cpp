#include "emulatorprocess.h"

#include <QJsonDocument>
#include <QNetworkReply>
#include <QSignalSpy>

namespace e2e {

EmulatorProcess::EmulatorProcess(const QString& name, const QString& logDir) : m_process(name, logDir) {}

bool EmulatorProcess::start(const QStringList& options)
{
    QRegularExpressionMatch match;
    if (!m_process.start(QStringLiteral(BRIDGE_EMULATOR_EXECUTABLE), options) ||
        !m_process.waitForOutputLine(
            QRegularExpression(
                "^listening https=(-?\\d+) http=(-?\\d+)(?: control=(\\d+))?(?: shared=(\\d+))?"),
            &match))
        return false;
    m_httpsPort = match.captured(1).toInt();
    m_httpPort = match.captured(2).toInt();
    m_controlPort = match.captured(3).toInt();
    m_sharedPort = match.captured(4).toInt();
    m_bridgeId = control("GET", "/emulator")["bridgeid"].toString().toUpper();
    return !m_bridgeId.isEmpty();
}

QJsonObject EmulatorProcess::control(const QByteArray& method, const QString& path, const QByteArray& body)
{
    const QJsonDocument answer = QJsonDocument::fromJson(controlText(method, path, body));
    // The request record is a list: handed over wrapped, so that every answer is an object.
    return answer.isArray() ? QJsonObject{{"list", answer.array()}} : answer.object();
}

QByteArray EmulatorProcess::controlText(const QByteArray& method, const QString& path, const QByteArray& body)
{
    // Without a plain HTTP port (a pro bridge with --http-closed) the control port serves it.
    const int port = m_httpPort > 0 ? m_httpPort : m_controlPort;
    QNetworkRequest request(QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(port).arg(path)));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    // The emulator's HTTP library wants a Content-Length on every POST and PUT.
    QNetworkReply* reply =
        m_network.sendCustomRequest(request, method, body.isNull() && method != "GET" ? "{}" : body);
    QSignalSpy finished(reply, &QNetworkReply::finished);
    if (!reply->isFinished() && !finished.wait(kWaitMs)) {
        reply->abort();
        reply->deleteLater();
        qWarning("control request %s %s got no answer", method.constData(), qPrintable(path));
        return QByteArray();
    }
    reply->deleteLater();
    return reply->readAll();
}

QByteArray EmulatorProcess::authorityPem()
{
    return controlText("GET", "/emulator/authority");
}

bool EmulatorProcess::renewCertificate()
{
    return control("POST", "/emulator/certificate", R"({"action":"renew"})")["ok"].toBool();
}

bool EmulatorProcess::replaceCertificate(const QString& commonName, bool selfSigned)
{
    const QJsonObject body{{"action", "replace"}, {"common_name", commonName}, {"self_signed", selfSigned}};
    return control("POST", "/emulator/certificate", QJsonDocument(body).toJson(QJsonDocument::Compact))["ok"]
        .toBool();
}

bool EmulatorProcess::restoreCertificate()
{
    return control("POST", "/emulator/certificate", R"({"action":"restore"})")["ok"].toBool();
}

bool EmulatorProcess::pressLinkButton()
{
    return control("POST", "/emulator/linkbutton")["ok"].toBool();
}

bool EmulatorProcess::setLight(const QString& lightId, const QJsonObject& state)
{
    return control("PUT", "/emulator/lights/" + lightId,
                   QJsonDocument(state).toJson(QJsonDocument::Compact))["ok"]
        .toBool();
}

QJsonArray EmulatorProcess::lights()
{
    const QJsonObject all = control("GET", "/emulator/lights");
    QJsonArray lights;
    for (auto it = all.begin(); it != all.end(); ++it) {
        QJsonObject light = it.value().toObject();
        light["id"] = it.key();
        lights.append(light);
    }
    return lights;
}

QStringList EmulatorProcess::userNames()
{
    return control("GET", "/emulator/users").keys();
}

namespace {

QByteArray compact(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

} // namespace

bool EmulatorProcess::flood(int messages, int eventsPerMessage, int intervalMs)
{
    const QJsonObject body{
        {"messages", messages}, {"events_per_message", eventsPerMessage}, {"interval_ms", intervalMs}};
    return control("POST", "/emulator/eventstream/flood", compact(body))["ok"].toBool();
}

bool EmulatorProcess::withdrawUser(const QString& name)
{
    return control("DELETE", "/emulator/users/" + name)["ok"].toBool();
}

bool EmulatorProcess::setClipQuirks(const QJsonObject& quirks)
{
    return control("PUT", "/emulator/v2", compact(quirks))["ok"].toBool();
}

bool EmulatorProcess::sendResourceEvents(const QString& type, int count)
{
    const QJsonObject body{{"type", type}, {"count", count}};
    return control("POST", "/emulator/eventstream/events", compact(body))["ok"].toBool();
}

bool EmulatorProcess::stopFlood()
{
    return control("DELETE", "/emulator/eventstream/flood")["ok"].toBool();
}

bool EmulatorProcess::endlessLine(qint64 bytes, bool thenNewline)
{
    const QJsonObject body{{"bytes", double(bytes)}, {"then_newline", thenNewline}};
    return control("POST", "/emulator/eventstream/endless", compact(body))["ok"].toBool();
}

bool EmulatorProcess::setDescriptionMode(const QJsonObject& shape)
{
    return control("PUT", "/emulator/description", compact(shape))["ok"].toBool();
}

bool EmulatorProcess::oversize(const QString& pathPrefix, qint64 bytes, int count)
{
    const QJsonObject body{{"path", pathPrefix}, {"bytes", double(bytes)}, {"count", count}};
    return control("PUT", "/emulator/oversize", compact(body))["ok"].toBool();
}

bool EmulatorProcess::clearOversize()
{
    return control("DELETE", "/emulator/oversize")["ok"].toBool();
}

bool EmulatorProcess::setRateLimit(const QJsonObject& limit)
{
    return control("PUT", "/emulator/ratelimit", compact(limit))["ok"].toBool();
}

bool EmulatorProcess::clearRateLimit()
{
    return control("DELETE", "/emulator/ratelimit")["ok"].toBool();
}

QJsonObject EmulatorProcess::rateLimit()
{
    return control("GET", "/emulator/ratelimit");
}

QList<BridgeRequest> EmulatorProcess::requests(const QString& method, const QRegularExpression& pathPattern)
{
    QList<BridgeRequest> matching;
    for (const QJsonValue& value : control("GET", "/emulator/requests")["list"].toArray()) {
        const QJsonObject item = value.toObject();
        BridgeRequest request{item["method"].toString(),        item["path"].toString(),
                              item["body"].toString().toUtf8(), item["status"].toInt(),
                              item["scheme"].toString(),        item["port"].toInt(),
                              item["headers"].toObject()};
        if ((!method.isEmpty() && request.method != method) || !pathPattern.match(request.path).hasMatch())
            continue;
        request.body = request.body.replace(' ', "").replace('\n', "");
        matching << request;
    }
    return matching;
}

bool EmulatorProcess::clearRequests()
{
    return control("DELETE", "/emulator/requests")["ok"].toBool();
}

} // namespace e2e
