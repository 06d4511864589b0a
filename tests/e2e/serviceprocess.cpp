#include "serviceprocess.h"

#include <QDir>
#include <QSettings>

namespace e2e {

namespace {

// "<marker> <file> <line> <pid> <indentation><message>", as the service logs.
const QRegularExpression kLogLine("^(?:--|WW|EE|\\*\\*|\\?\\?) \\S+\\s+\\d+ \\d+ \\s*(.*)$");

} // namespace

ServiceProcess::ServiceProcess(const QString& dir, const QString& socketDir)
    : m_dir(dir), m_socketDir(socketDir), m_process("huecontroller", dir)
{
}

bool ServiceProcess::writeSettings() const
{
    const QString folder = m_dir + "/config/vorn";
    if (!QDir().mkpath(folder) || !QDir().mkpath(m_dir + "/data"))
        return false;
    QSettings hub(folder + "/database.conf", QSettings::IniFormat);
    hub.setValue("socketDir", m_socketDir);
    hub.setValue("socketType", "local");
    hub.setValue("data/path", m_dir + "/data");
    hub.setValue("data/constpath", QStringLiteral(HUE_CONST_DATA_DIR));
    QSettings own(folder + "/huecontroller.conf", QSettings::IniFormat);
    own.setValue("logging/debug", 1);
    own.setValue("logging/silenceisgolden", 0);
    for (auto it = m_extraSettings.cbegin(); it != m_extraSettings.cend(); ++it)
        own.setValue(it.key(), it.value());
    hub.sync();
    own.sync();
    return hub.status() == QSettings::NoError && own.status() == QSettings::NoError;
}

bool ServiceProcess::start()
{
    if (!writeSettings())
        return false;
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("XDG_CONFIG_HOME", m_dir + "/config");
    const int before = m_process.errorLines(QRegularExpression(" start \\d+ \\d+$")).size();
    return m_process.start(QStringLiteral(HUECONTROLLER_EXECUTABLE), {}, environment) && waitFor([&] {
               return m_process.errorLines(QRegularExpression(" start \\d+ \\d+$")).size() > before;
           });
}

QStringList ServiceProcess::logMessages(const QRegularExpression& pattern) const
{
    QStringList messages;
    for (const QString& line : m_process.errorLines(kLogLine)) {
        const QString message = kLogLine.match(line).captured(1);
        if (pattern.match(message).hasMatch())
            messages << message;
    }
    return messages;
}

bool ServiceProcess::waitForLogMessage(const QRegularExpression& pattern, int timeoutMs)
{
    if (waitFor([&] { return !logMessages(pattern).isEmpty(); }, timeoutMs))
        return true;
    qWarning("huecontroller logged nothing matching \"%s\"", qPrintable(pattern.pattern()));
    return false;
}

QStringList ServiceProcess::alarmingLines() const
{
    return m_process.errorLines(
        QRegularExpression("ERROR: AddressSanitizer|runtime error:|LeakSanitizer|Segmentation fault|QFATAL"));
}

} // namespace e2e
