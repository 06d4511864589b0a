#pragma once

#include "managedprocess.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace e2e {

// What one hubctl run printed (with --json) and how it ended.
struct HubctlAnswer
{
    int exitCode = -1;
    QJsonDocument json;
    QByteArray error;

    QJsonObject object() const { return json.object(); }
    QJsonArray array() const { return json.array(); }
};

// hubsim on a socket directory of its own, supervising the service, and hubctl to look into it.
class HubSimProcess
{
public:
    // Sockets in <dir>/hub, the configuration database and logs in <dir>.
    explicit HubSimProcess(const QString& dir);

    QString socketDir() const { return m_socketDir; }
    // Starts hubsim with --supervise and waits until its services listen; again after an end,
    // on the same socket directory and database.
    bool start();
    // Options added to every later start(), e.g. {"--serial", "0001f0e1d2c3"}.
    void setExtraOptions(const QStringList& options) { m_extraOptions = options; }
    // A value of the configuration store ("generic/serialNumber"); empty when there is none.
    QString configValue(const QString& key) const;
    // `hubctl mdns announce|remove NAME ADDRESS PORT [TXT...]` of a _hue._tcp service; the answer.
    QJsonObject mdns(bool announce, const QString& name, const QString& address, int port,
                     const QStringList& txt = {}) const;
    // Announces a Hue bridge on 127.0.0.1:`port` by mDNS alone, as the newest bridges are found
    // (no description document): TXT bridgeid=<id in lower case> and modelid; true once sent.
    bool announceBridge(int port, const QString& bridgeId,
                        const QString& modelId = QStringLiteral("BSB003")) const;
    bool interrupt() { return m_process.interrupt(); }
    ManagedProcess& process() { return m_process; }

    // Runs `hubctl --socket-dir DIR --json ARGUMENTS...` to its end.
    HubctlAnswer hubctl(const QStringList& arguments) const;

    QJsonArray devices() const { return hubctl({"devices"}).array(); }
    // The registered device, or an empty object.
    QJsonObject device(const QString& serial) const;
    // The last value the device sent for the named output datapoint; null when none yet.
    static QString outputValue(const QJsonObject& device, const QString& name);
    // A write of an input datapoint, answered with the device's confirmation.
    QJsonObject write(const QString& serial, const QString& dataPoint, const QString& value) const;
    // The run stages the supervisor has seen answered, in order.
    QList<int> answeredStages() const;
    int pingCount() const { return hubctl({"pings"}).array().size(); }

    // The values hubsim received for one output datapoint ("sendDataPoint" calls in its log), in
    // order.
    QStringList sentValues(const QString& dataPointId) const;
    // How many life signs hubsim received for the device.
    int lifeSigns(const QString& serial) const;

private:
    QString m_dir;
    QString m_socketDir;
    ManagedProcess m_process;
    QStringList m_extraOptions;
};

} // namespace e2e
