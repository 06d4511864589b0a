#pragma once

#include "hue_lighttype.h"

#include <QMap>
#include <QObject>
#include <QString>

namespace hue {

class CDevice;

// The one controller of the service: it knows the light-type descriptions and (later) the
// bridges and their lights as hub devices.
class CController : public QObject
{
    Q_OBJECT
public:
    // Registers itself as g_Controller; the destructor clears it again.
    explicit CController(QObject* parent = nullptr);
    ~CController() override;

    // Loads the descriptions of all light types from ConstDataDir + "/hue/".
    void loadLightSpecs();
    // Loads ConstDataDir + "/hue/" + fileName as the description of `type`, replacing (and
    // deleting) the one loaded before. A file that cannot be read still leaves a description,
    // an empty one, so that lookups for that type answer -1.
    void loadLightSpec(LightType type, const QString& fileName);
    // Null when no description was loaded for the type.
    CDevice* deviceByType(LightType type) const;

private:
    QMap<LightType, CDevice*> m_devices; // owned through the Qt parent
};

// The process's controller, set by its constructor.
extern CController* g_Controller;

} // namespace hue
