#pragma once

#include "managedprocess.h"

#include <QMap>

namespace e2e {

// huecontroller as the hub's supervisor runs it, with a settings folder of its own: the hub-wide
// settings point it at hubsim's socket directory and at the build tree's light descriptions,
// its own settings switch detailed logging to standard error on.
class ServiceProcess
{
public:
    // Settings in <dir>/config (XDG_CONFIG_HOME), data in <dir>/data, the log in <dir>.
    ServiceProcess(const QString& dir, const QString& socketDir);

    // A setting of the service's own store (e.g. "debug/forceBridgeIPs"), for the next start.
    void setSetting(const QString& key, const QString& value) { m_extraSettings.insert(key, value); }
    // Writes the settings, starts the program and waits for its "start" line.
    bool start();
    bool interrupt() { return m_process.interrupt(); }
    ManagedProcess& process() { return m_process; }

    QString log() const { return m_process.standardError(); }
    // Log lines whose message (the text after marker, file, line and process id) matches.
    QStringList logMessages(const QRegularExpression& pattern) const;
    bool waitForLogMessage(const QRegularExpression& pattern, int timeoutMs = kWaitMs);
    // Lines that say something went badly wrong: sanitizer reports, Qt's fatal messages.
    QStringList alarmingLines() const;

private:
    bool writeSettings() const;

    QString m_dir;
    QString m_socketDir;
    QMap<QString, QString> m_extraSettings;
    ManagedProcess m_process;
};

} // namespace e2e
