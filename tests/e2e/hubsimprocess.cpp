#include "hubsimprocess.h"

#include <QDir>

namespace e2e {

HubSimProcess::HubSimProcess(const QString& dir)
    : m_dir(dir), m_socketDir(dir + "/hub"), m_process("hubsim", dir)
{
    QDir().mkpath(m_socketDir);
}

bool HubSimProcess::start()
{
    // The log is appended across restarts: wait for a line this run writes.
    const QRegularExpression serving("hubsim serves \\d+ services");
    const int before = m_process.errorLines(serving).size();
    return m_process.start(
               QStringLiteral(HUBSIM_EXECUTABLE),
               QStringList{"--socket-dir", m_socketDir, "--supervise", "--db", m_dir + "/hubsim.sqlite"} +
                   m_extraOptions) &&
           waitFor([&] { return m_process.errorLines(serving).size() > before; });
}

QString HubSimProcess::configValue(const QString& key) const
{
    return hubctl({"config", "get", key}).object().value("value").toString();
}

QJsonObject HubSimProcess::mdns(bool announce, const QString& name, const QString& address, int port,
                                const QStringList& txt) const
{
    return hubctl(QStringList{"mdns", announce ? "announce" : "remove", "--", name, address,
                              QString::number(port)} +
                  txt)
        .object();
}

bool HubSimProcess::announceBridge(int port, const QString& bridgeId, const QString& modelId) const
{
    return mdns(true, QStringLiteral("Hue Bridge - ") + bridgeId.right(6).toUpper(),
                QStringLiteral("127.0.0.1"), port,
                {"bridgeid=" + bridgeId.toLower(), "modelid=" + modelId})["ok"]
        .toBool();
}

HubctlAnswer HubSimProcess::hubctl(const QStringList& arguments) const
{
    QProcess process;
    process.start(QStringLiteral(HUBCTL_EXECUTABLE),
                  QStringList{"--socket-dir", m_socketDir, "--json"} + arguments);
    HubctlAnswer answer;
    if (!process.waitForFinished(kWaitMs)) {
        process.kill();
        process.waitForFinished();
        qWarning("hubctl %s did not end", qPrintable(arguments.join(' ')));
        return answer;
    }
    answer.exitCode = process.exitCode();
    answer.json = QJsonDocument::fromJson(process.readAllStandardOutput());
    answer.error = process.readAllStandardError();
    return answer;
}

QJsonObject HubSimProcess::device(const QString& serial) const
{
    const HubctlAnswer answer = hubctl({"devices", serial});
    return answer.exitCode == 0 ? answer.array().first().toObject() : QJsonObject();
}

QString HubSimProcess::outputValue(const QJsonObject& device, const QString& name)
{
    for (const QJsonValue& point : device["dataPoints"].toArray()) {
        const QJsonObject object = point.toObject();
        if (object["direction"].toString() == "output" &&
            object["name"].toString().compare(name, Qt::CaseInsensitive) == 0)
            return object["hasValue"].toBool() ? object["value"].toString() : QString();
    }
    return QString();
}

QJsonObject HubSimProcess::write(const QString& serial, const QString& dataPoint, const QString& value) const
{
    // "--" keeps a negative or dashed value from being read as an option.
    return hubctl({"write", "--timeout", "10000", "--", serial, dataPoint, value}).object();
}

QList<int> HubSimProcess::answeredStages() const
{
    QList<int> stages;
    const QJsonArray answered = hubctl({"status"}).object()["supervisor"].toObject()["answered"].toArray();
    for (const QJsonValue& stage : answered)
        stages << stage.toInt();
    return stages;
}

QStringList HubSimProcess::sentValues(const QString& dataPointId) const
{
    // hubsim logs each call as "<kind> <field>=<value> ...", the fields in name order: "value"
    // comes last.
    const QRegularExpression call("\\bsendDataPoint\\b.* id=" + QRegularExpression::escape(dataPointId) +
                                  " .*\\bvalue=(.*)$");
    QStringList values;
    for (const QString& line : m_process.errorLines(call))
        values << call.match(line).captured(1);
    return values;
}

int HubSimProcess::lifeSigns(const QString& serial) const
{
    return m_process.errorLines(QRegularExpression("\\bsendLifeSign\\b.* id=" + serial + "\\b")).size();
}

} // namespace e2e
