#include "supervisor.h"

#include "hubeventlog.h"
#include "hubservice.h"

#include <common/logginginterface.h>
#include <common/messaging/socketinterface.h>

#include <QFile>

Supervisor::Supervisor(SocketConnection::SocketType type, const QString& socketDir, HubEventLog* events,
                       QObject* parent)
    : QObject(parent), m_type(type), m_socketDir(socketDir), m_events(events)
{
    m_retryTimer.setInterval(kDefaultRetryMs);
    connect(&m_retryTimer, &QTimer::timeout, this, &Supervisor::tryConnect);
    m_stopTimer.setSingleShot(true);
    connect(&m_stopTimer, &QTimer::timeout, this, [this] {
        LOG_WARNING << "the service did not answer run stage 2 in time";
        emit stopped();
    });
}

Supervisor::~Supervisor() = default;

bool Supervisor::isConnected() const
{
    return m_service && m_service->isValid();
}

bool Supervisor::connectNow(bool quiet)
{
    if (isConnected())
        return true;
    const QString name = QLatin1String(hubservices::kHueController);
    // Retrying quietly: no socket (or port file) yet means the service has not started.
    const QString path = m_socketDir + QLatin1Char('/') + name +
                         (m_type == SocketConnection::TcpSocket ? QStringLiteral(".port") : QString());
    if (quiet && !QFile::exists(path))
        return false;
    auto* service =
        new SocketInterface(m_type, name, m_socketDir, this, QByteArrayLiteral("hubsim-supervisor"));
    if (!service->isValid()) {
        delete service;
        return false;
    }
    ++m_generation;
    m_service = service;
    m_answered.clear();
    connect(service, &SocketInterface::disconnected, this, &Supervisor::onServiceDisconnected);
    m_events->post(QStringLiteral("supervisorConnected"), {{"service", name}});
    return true;
}

void Supervisor::startSupervising()
{
    m_supervising = true;
    tryConnect();
}

void Supervisor::tryConnect()
{
    if (m_stopping)
        return;
    if (!connectNow(true)) {
        if (!m_retryTimer.isActive()) {
            LOG_INFO << "waiting for" << hubservices::kHueController << "to appear in" << m_socketDir;
            m_retryTimer.start();
        }
        return;
    }
    m_retryTimer.stop();
    m_startupStages = {0, 3, 1};
    runStartupStages();
}

void Supervisor::runStartupStages()
{
    if (m_startupStages.isEmpty() || m_stopping)
        return;
    const int stage = m_startupStages.takeFirst();
    sendStage(stage, [this](bool answered, const QString&) {
        if (answered)
            runStartupStages();
        else
            m_startupStages.clear(); // the service is gone or broken; a reconnection starts over
    });
}

void Supervisor::sendStage(int stage, const StageDone& done)
{
    if (!connectNow(false)) {
        done(false, QStringLiteral("%1 is not reachable in %2")
                        .arg(QLatin1String(hubservices::kHueController), m_socketDir));
        return;
    }
    const quint64 generation = m_generation;
    m_lastStage = stage;
    m_events->post(QStringLiteral("runStage"), {{"stage", stage}});
    const bool sent = m_service->callWithCallback(
        QStringLiteral("run"),
        [this, stage, generation, done](bool ok, const SocketArgument&) {
            if (generation != m_generation) {
                done(false, QStringLiteral("the service went away"));
                return;
            }
            if (ok)
                m_answered.append(stage);
            else
                LOG_WARNING << "run stage" << stage << "was not answered";
            m_events->post(QStringLiteral("runStageAnswered"), {{"stage", stage}, {"answered", ok}});
            emit stageAnswered(stage, ok);
            done(ok, ok ? QString() : QStringLiteral("the service did not answer the run call"));
        },
        stage);
    if (!sent)
        done(false, QStringLiteral("the run call could not be sent: ") + m_service->errorText());
}

void Supervisor::onServiceDisconnected()
{
    m_events->post(QStringLiteral("supervisorLostService"),
                   {{"service", QLatin1String(hubservices::kHueController)}});
    if (m_service)
        m_service->deleteLater();
    m_service = nullptr;
    ++m_generation;
    m_startupStages.clear();
    if (m_stopping) {
        m_stopTimer.stop();
        emit stopped();
        return;
    }
    if (m_supervising) {
        LOG_INFO << "the service went away; waiting for it to come back";
        m_retryTimer.start();
    }
}

void Supervisor::stop(int limitMs)
{
    m_stopping = true;
    m_retryTimer.stop();
    m_startupStages.clear();
    if (!isConnected()) {
        QTimer::singleShot(0, this, &Supervisor::stopped);
        return;
    }
    m_stopTimer.start(limitMs);
    sendStage(2, [this](bool, const QString&) {
        if (!m_stopTimer.isActive())
            return; // stopped() went out already
        m_stopTimer.stop();
        emit stopped();
    });
}

QVariantMap Supervisor::status() const
{
    QVariantList answered;
    for (int stage : m_answered)
        answered.append(stage);
    return {{"supervising", m_supervising},
            {"connected", isConnected()},
            {"lastStage", m_lastStage},
            {"answered", answered}};
}
