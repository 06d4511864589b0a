#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

namespace e2ebench {

// huecontroller as a real child process with settings of its own: XDG_CONFIG_HOME points at
// <dir>/config, whose hub-wide settings name the driver's socket directory, a private data
// folder and the build tree's light descriptions. Its own settings keep standard error quiet
// and, unless told otherwise, hold it to API version 1. Standard output and error go to
// <dir>/huecontroller.out/.err.
class ServiceUnderTest
{
public:
    ServiceUnderTest(QString program, QString dir, QString socketDir, QString constDataDir);
    ~ServiceUnderTest();
    ServiceUnderTest(const ServiceUnderTest&) = delete;
    ServiceUnderTest& operator=(const ServiceUnderTest&) = delete;

    // Off: the service moves a bridge of current firmware to CLIP v2 as it would on a hub. Takes
    // effect at the next start().
    void setForceApi1(bool force) { m_forceApi1 = force; }
    // "logging/debug" and "logging/trace" on: every detail line is written. Next start().
    void setDetailedLogging(bool on) { m_detailedLogging = on; }
    // A program and its arguments that the service runs under, e.g. valgrind with its options;
    // empty: the service runs by itself. Next start().
    void setLauncher(const QStringList& launcher) { m_launcher = launcher; }
    bool start(QString* error);
    bool isRunning() const { return m_process.state() != QProcess::NotRunning; }
    qint64 pid() const { return m_process.processId(); }
    // SIGINT, as the hub's supervisor ends it; killed when it has not gone after a few seconds.
    void stop();

private:
    bool writeSettings(QString* error) const;

    QString m_program;
    QString m_dir;
    QString m_socketDir;
    QString m_constDataDir;
    bool m_forceApi1 = true;
    bool m_detailedLogging = false;
    QStringList m_launcher;
    QProcess m_process;
};

} // namespace e2ebench
