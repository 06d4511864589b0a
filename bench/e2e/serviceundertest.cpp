#include "serviceundertest.h"

#include "eventwait.h"

#include <QDir>
#include <QProcessEnvironment>
#include <QSettings>

#include <csignal>
#include <utility>

namespace e2ebench {

namespace {

constexpr int kStopLimitMs = 5000;

} // namespace

ServiceUnderTest::ServiceUnderTest(QString program, QString dir, QString socketDir, QString constDataDir)
    : m_program(std::move(program)), m_dir(std::move(dir)), m_socketDir(std::move(socketDir)),
      m_constDataDir(std::move(constDataDir))
{
}

ServiceUnderTest::~ServiceUnderTest()
{
    if (isRunning()) {
        m_process.kill();
        m_process.waitForFinished(kStopLimitMs);
    }
}

bool ServiceUnderTest::writeSettings(QString* error) const
{
    const QString folder = m_dir + QStringLiteral("/config/vorn");
    const QString data = m_dir + QStringLiteral("/data");
    if (!QDir().mkpath(folder) || !QDir().mkpath(data)) {
        *error = QStringLiteral("cannot create %1").arg(folder);
        return false;
    }
    QSettings hub(folder + QStringLiteral("/database.conf"), QSettings::IniFormat);
    hub.setValue(QStringLiteral("socketDir"), m_socketDir);
    hub.setValue(QStringLiteral("socketType"), QStringLiteral("local"));
    hub.setValue(QStringLiteral("data/path"), data);
    hub.setValue(QStringLiteral("data/constpath"), m_constDataDir);
    QSettings own(folder + QStringLiteral("/huecontroller.conf"), QSettings::IniFormat);
    own.setValue(QStringLiteral("logging/silenceisgolden"), 1);
    if (m_forceApi1)
        own.setValue(QStringLiteral("debug/forceAPI1"), 1);
    if (m_detailedLogging) {
        own.setValue(QStringLiteral("logging/debug"), 1);
        own.setValue(QStringLiteral("logging/trace"), 1);
    }
    hub.sync();
    own.sync();
    if (hub.status() != QSettings::NoError || own.status() != QSettings::NoError) {
        *error = QStringLiteral("cannot write the settings in %1").arg(folder);
        return false;
    }
    return true;
}

bool ServiceUnderTest::start(QString* error)
{
    if (!writeSettings(error))
        return false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("XDG_CONFIG_HOME"), m_dir + QStringLiteral("/config"));
    m_process.setProcessEnvironment(environment);
    m_process.setWorkingDirectory(m_dir);
    m_process.setStandardOutputFile(m_dir + QStringLiteral("/huecontroller.out"));
    m_process.setStandardErrorFile(m_dir + QStringLiteral("/huecontroller.err"));
    if (m_launcher.isEmpty())
        m_process.start(m_program, QStringList());
    else
        m_process.start(m_launcher.first(), m_launcher.mid(1) << m_program);
    if (!m_process.waitForStarted()) {
        *error = QStringLiteral("cannot start %1: %2")
                     .arg(m_launcher.isEmpty() ? m_program : m_launcher.first(), m_process.errorString());
        return false;
    }
    return true;
}

void ServiceUnderTest::stop()
{
    if (!isRunning())
        return;
    ::kill(pid_t(pid()), SIGINT);
    if (!waitUntil([this] { return !isRunning(); }, kStopLimitMs)) {
        m_process.kill();
        m_process.waitForFinished(kStopLimitMs);
    }
}

} // namespace e2ebench
