#include "hue_controller.h"

#include "hue_device.h"
#include "hue_globals.h"

namespace hue {

CController* g_Controller = nullptr;

CController::CController(QObject* parent) : QObject(parent)
{
    g_Controller = this;
}

CController::~CController()
{
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
    auto* device = new CDevice(type, ConstDataDir + QStringLiteral("/hue/") + fileName, this);
    device->load();
    delete m_devices.value(type);
    m_devices.insert(type, device);
}

CDevice* CController::deviceByType(LightType type) const
{
    return m_devices.value(type);
}

} // namespace hue
