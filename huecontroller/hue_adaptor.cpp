// The adaptor's life: construction, the run stages the supervisor sends, the connections to the
// hub's services and the forwarding of their signals to the controller.
#include "hue_adaptor.h"

#include "hue_controller.h"
#include "hue_upnplistener.h"

#include "common/configcache.h"
#include "common/defaults.h"
#include "common/logginginterface.h"
#include "common/messaging/hubsocketsettings.h"
#include "common/messaging/socketinterface.h"

#include <QCoreApplication>

#include <unistd.h>

namespace hue {

const char HueAdaptor::kServiceName[] = "com.orlux.tamsa.huecontroller";
HueAdaptor* HueAdaptor::Instance = nullptr;

namespace {
const char kCommunicationService[] = "com.orlux.tamsa.communication";
const char kDatabaseService[] = "com.orlux.tamsa.database";
const char kSystemService[] = "com.orlux.tamsa.system";
constexpr int kConfigWaitSliceMs = 500;
} // namespace

HueAdaptor::HueAdaptor(QObject* parent) : SocketAdaptorWithPing(QString::fromLatin1(kServiceName), parent)
{
    Instance = this;
    m_networkTimer.start();
    m_traceTimer.start();
}

HueAdaptor::~HueAdaptor()
{
    delete m_upnpListener;
    deleteInterfaces();
    if (Instance == this)
        Instance = nullptr;
}

HueAdaptor* HueAdaptor::instance()
{
    if (!Instance)
        LOG_WARNING << "no HueAdaptor instance";
    return Instance;
}

void HueAdaptor::setController(CController* controller)
{
    if (m_controller)
        disconnect(m_controller, &CController::supportInfoReady, this, &HueAdaptor::submitSupportInfo);
    m_controller = controller;
    if (controller)
        connect(controller, &CController::supportInfoReady, this, &HueAdaptor::submitSupportInfo);
}

QString HueAdaptor::getModuleName() const
{
    return QString::fromLatin1(kServiceName);
}

void HueAdaptor::run(int stage)
{
    LOG_INFO << "got run signal" << stage;
    if (stage == m_stage) {
        LOG_WARNING << "received same run stage twice";
        return;
    }

    switch (stage) {
    case 0:
        if (!connectToHubServices())
            return; // not recorded: the supervisor may send stage 0 again
        ConfigCache::instance()->connectToDatabase();
        break;
    case 3:
        waitForConfigCache();
        if (m_controller)
            m_controller->initialize();
        delete m_upnpListener;
        m_upnpListener = new CUpnpListener(m_system, m_controller, this);
        m_upnpListener->start();
        subscribeToSignals();
        break;
    case 1:
        m_running = true;
        if (m_controller)
            m_controller->start();
        setLastNetworkEvent(3);
        if (!isVornDevice())
            addForcedBridges();
        startWatchingMDNS();
        break;
    case 2:
        delete m_upnpListener;
        m_upnpListener = nullptr;
        if (m_controller)
            m_controller->stop();
        deleteInterfaces();
        m_running = false;
        break;
    default:
        break;
    }

    m_stage = stage;
    sendHeartbeat();
}

bool HueAdaptor::connectToHubServices()
{
    // Read afresh: the settings may have changed since main() started the server.
    const HubSocketSettings hub = HubSocketSettings::read();
    deleteInterfaces();
    m_communication =
        new SocketInterface(hub.type, QString::fromLatin1(kCommunicationService), hub.socketDir, this);
    m_database = new SocketInterface(hub.type, QString::fromLatin1(kDatabaseService), hub.socketDir, this);
    m_system = new SocketInterface(hub.type, QString::fromLatin1(kSystemService), hub.socketDir, this);

    for (SocketInterface* service : {m_communication, m_database, m_system}) {
        if (!service->isValid()) {
            LOG_ERROR << "Cannot connect to service" << service->serviceName();
            deleteInterfaces();
            return false;
        }
    }
    return true;
}

void HueAdaptor::deleteInterfaces()
{
    delete m_communication;
    delete m_database;
    delete m_system;
    m_communication = m_database = m_system = nullptr;
}

void HueAdaptor::waitForConfigCache()
{
    // The hub's supervisor expects stage 3 to return only once the service can work, so this is
    // the one place that blocks; events keep flowing so the cache's answer can arrive.
    ConfigCache* cache = ConfigCache::instance();
    while (!cache->isReady()) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, kConfigWaitSliceMs);
        if (cache->isReady())
            break;
        sleep(1);
    }
}

void HueAdaptor::subscribeToSignals()
{
    if (m_database && m_controller)
        m_database->connectDynamicSignal("configValueChanged(QString, QString, bool)", m_controller,
                                         "configValueChanged(QString, QString, bool)");
    if (m_system) {
        m_system->connectDynamicSignal("networkEvent(int, QByteArray)", this,
                                       "onNetworkEvent(int, QByteArray)");
        m_system->connectDynamicSignal(
            "mDNSServiceChanged(bool, QByteArray, QByteArray, QByteArray, QByteArray, int, QByteArray, "
            "QStringList)",
            this,
            "onMDNSServiceChanged(bool, QByteArray, QByteArray, QByteArray, QByteArray, int, QByteArray, "
            "QStringList)");
    }
    if (!m_communication)
        return;

    struct Subscription
    {
        const char* signal;
        const char* slot;
        const char* failure;
    };
    static const Subscription subscriptions[] = {
        {"deviceReady(InternalId, bool)", "onDeviceReady(InternalId,bool)",
         "Failed to connect to deviceReady"},
        {"parameterValueChanged(InternalId, QString)", "onParameterValueChanged(InternalId, QString)",
         "Failed to connect to parameterValueChanged"},
        {"dataPointValueChanged(InternalId, QString, int)",
         "onDataPointValueChanged(InternalId, QString,int)", "Failed to connect to datapointValueChanged"},
        {"scanningForLifeSigns()", "onScanningForLifeSigns()", "Failed to connect to scanningForLifeSigns"},
        {"masterReset(InternalId)", "onMasterReset(InternalId)", "Failed to connect to masterReset"},
        {"attributeValueChanged(InternalId, QString, QString)",
         "onAttributeValueChanged(InternalId,QString,QString)", "Failed to connect to attributeValueChanged"},
    };
    for (const Subscription& s : subscriptions) {
        if (!m_communication->connectDynamicSignal(s.signal, this, s.slot))
            LOG_WARNING << s.failure;
    }
}

// --- Signals of the communication service ------------------------------------------------------

void HueAdaptor::onDeviceReady(InternalId id, bool ready)
{
    if (!isOwnDevice(id) || !m_controller)
        return;
    if (ready)
        m_controller->deviceReady(id);
    else
        m_controller->deleteLight(id);
}

void HueAdaptor::onParameterValueChanged(InternalId id, QString value)
{
    if (isOwnDevice(id) && m_controller)
        m_controller->parameterValueChanged(id, value);
}

void HueAdaptor::onDataPointValueChanged(InternalId id, QString value, int token)
{
    if (!isOwnDevice(id))
        return;
    const bool ok = m_controller && m_controller->dataPointValueChanged(id, value);
    if (token != 0)
        emitConfirmDataPointValueChanged(token, ok ? 0 : 2);
}

void HueAdaptor::onScanningForLifeSigns()
{
    if (m_controller)
        m_controller->sendLifeSignsForLights();
}

void HueAdaptor::onMasterReset(InternalId id)
{
    if (isOwnDevice(id) && m_controller)
        m_controller->masterResetLight(id);
}

void HueAdaptor::onAttributeValueChanged(InternalId id, QString name, QString value)
{
    if (isOwnDevice(id) && m_controller)
        m_controller->attributeValueChanged(id, name, value);
}

void HueAdaptor::quit()
{
    QTimer::singleShot(0, qApp, &QCoreApplication::quit);
}

} // namespace hue
