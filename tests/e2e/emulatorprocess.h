#pragma once

#include "managedprocess.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkAccessManager>

namespace e2e {

// One request the emulated bridge recorded.
struct BridgeRequest
{
    QString method;
    QString path;
    QByteArray body; // without blanks and line breaks
    int status = 0;
    QString scheme;
    int port = 0;
    QJsonObject headers;
};

// hue-bridge-emulator as a process, played through its control API.
class EmulatorProcess
{
public:
    EmulatorProcess(const QString& name, const QString& logDir);

    // Starts it with these options (on free ports) and reads its ports from the "listening" line.
    bool start(const QStringList& options);
    bool interrupt() { return m_process.interrupt(); }
    ManagedProcess& process() { return m_process; }
    int httpPort() const { return m_httpPort; }
    int httpsPort() const { return m_httpsPort; }
    int sharedPort() const { return m_sharedPort; } // 0 without --shared-port
    int controlPort() const
    {
        return m_controlPort;
    } // 0 without one (--control-port; --http-closed opens one)
    // As /api/config reports it (upper case).
    QString bridgeId() const { return m_bridgeId; }

    // A control API request ("/emulator/..."); the parsed answer, or an empty object on failure.
    QJsonObject control(const QByteArray& method, const QString& path, const QByteArray& body = QByteArray());
    // The same, the answer's text as it came (empty on failure).
    QByteArray controlText(const QByteArray& method, const QString& path,
                           const QByteArray& body = QByteArray());

    // Certificates (start with "--generation pro" for one issued by the test authority, and
    // "--write-authority PATH" to have the root in a file): the authority's root (PEM); a new
    // certificate for the same name; one that is not the bridge's own (another name, or
    // self-signed); back to the one before the last renewal or replacement. New connections
    // get the new one.
    QByteArray authorityPem();
    bool renewCertificate();
    bool replaceCertificate(const QString& commonName, bool selfSigned);
    bool restoreCertificate();
    bool pressLinkButton();
    // Changes a light as its wall switch would: `state` holds on, bri, ct, reachable and so on.
    bool setLight(const QString& lightId, const QJsonObject& state);
    // The lights of the control API: id, name, kind and state.
    QJsonArray lights();
    QStringList userNames();
    // Withdraws a key: version 1 then answers its requests with error 1, CLIP v2 with 403.
    bool withdrawUser(const QString& name);
    // How CLIP v2 is written, as PUT /emulator/v2 takes it: any of the booleans
    // "light_metadata", "mirek_null_in_xy", "events_without_mirek_valid".
    bool setClipQuirks(const QJsonObject& quirks);
    // `count` stream messages of one "update" event each of a resource of `type` that no light
    // stands for ("scene", "button", "motion", ...).
    bool sendResourceEvents(const QString& type, int count = 1);

    // Hostile modes: a flood of event stream messages (and its end), an endless "data:" line on
    // every open stream, the shape of /description.xml ({"mode":"deep","depth":D},
    // {"mode":"huge","bytes":N}, {"mode":"normal"}), and oversized non-JSON answers.
    bool flood(int messages, int eventsPerMessage, int intervalMs = 0);
    bool stopFlood();
    bool endlessLine(qint64 bytes, bool thenNewline = false);
    bool setDescriptionMode(const QJsonObject& shape);
    bool oversize(const QString& pathPrefix, qint64 bytes, int count = 1);
    bool clearOversize();
    // Token buckets for light and group changes, as PUT /emulator/ratelimit takes them:
    // {"lights":{"rate":10,"burst":1},"groups":{"rate":1,"burst":1},"status":429,"retry_after":0};
    // rateLimit() shows the limit with its counters (accepted, refused per class).
    bool setRateLimit(const QJsonObject& limit);
    bool clearRateLimit();
    QJsonObject rateLimit();

    // The recorded bridge requests whose method matches and whose path matches `pathPattern`.
    QList<BridgeRequest> requests(const QString& method = QString(),
                                  const QRegularExpression& pathPattern = QRegularExpression(".*"));
    bool clearRequests();

private:
    QNetworkAccessManager m_network;
    ManagedProcess m_process;
    int m_httpPort = 0;
    int m_httpsPort = 0;
    int m_sharedPort = 0;
    int m_controlPort = 0;
    QString m_bridgeId;
};

} // namespace e2e
