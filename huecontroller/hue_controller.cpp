#include "hue_controller.h"

#include "hue_bridge.h"
#include "hue_device.h"
#include "hue_globals.h"
#include "hue_rootcertificate.h"

#include <QNetworkAccessManager>
#include <QSettings>

namespace hue {

CController* g_Controller = nullptr;

CController::CController(QObject* parent) : QObject(parent)
{
    g_Controller = this;

    // Bridge registry: one network access manager for all bridges, polling one bridge per tick,
    // coalesced configuration changes and the support-information deadline.
    m_nam = new QNetworkAccessManager(this);
    connect(m_nam, &QNetworkAccessManager::sslErrors, this, &CController::sslErrors);
    trustHueBridgeRootCertificate();
    m_pollTimer.setInterval(kPollIntervalMs);
    connect(&m_pollTimer, &QTimer::timeout, this, &CController::pollNextBridge);
    m_configApplyTimer.setSingleShot(true);
    m_configApplyTimer.setInterval(kConfigApplyDelayMs);
    connect(&m_configApplyTimer, &QTimer::timeout, this, &CController::onCVarApplyTimeout);
    m_supportInfoTimer.setSingleShot(true);
    m_supportInfoTimer.setInterval(kSupportInfoTimeoutMs);
    connect(&m_supportInfoTimer, &QTimer::timeout, this, &CController::onSupportInfoTimeout);
    const QSettings settings(QStringLiteral("vorn"), QStringLiteral("huecontroller"));
    // For development and tests: a test authority's roots, trusted beside the Hue roots.
    trustExtraRootCertificates(settings.value(QStringLiteral("debug/extraTrustedRoots")).toString());
    m_dumpLightUpdates = settings.value(QStringLiteral("debug/dumpLightUpdates"), false).toBool();
}

CController::~CController()
{
    kill();
    if (g_Controller == this)
        g_Controller = nullptr;
}

void CController::loadLightSpecs()
{
    for (int t = 0; t < LightTypeCount; ++t) {
        const auto type = static_cast<LightType>(t);
        loadLightSpec(type, QString::fromLatin1(lightSpecFileName(type)));
    }
}

void CController::loadLightSpec(LightType type, const QString& fileName)
{
    const QString path = ConstDataDir + QStringLiteral("/hue/") + fileName;
    // Lights keep a pointer to their type's description, and a hub restart initialises the
    // controller again while they live: an existing description is read again in place.
    if (CDevice* loaded = m_devices.value(type)) {
        loaded->setFileName(path);
        loaded->load();
        return;
    }
    auto* device = new CDevice(type, path, this);
    device->load();
    m_devices.insert(type, device);
}

CDevice* CController::deviceByType(LightType type) const
{
    return m_devices.value(type);
}

} // namespace hue
