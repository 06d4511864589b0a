#include "defaults.h"

#include <QFile>

QString DataDir = QStringLiteral("./data");
bool DebugMode = false;

namespace {

// The boards of the five hub generations identify themselves by their device-tree model.
struct HubModel
{
    const char* modelPrefix;
    quint32 version;
};

constexpr HubModel kHubModels[] = {
    {"Vorn Hub 1", 0x10000}, {"Vorn Hub 2", 0x20000}, {"Vorn Hub 3", 0x30000},
    {"Vorn Hub 4", 0x40000}, {"Vorn Hub 5", 0x50000},
};

const char kDeviceTreeModel[] = "/proc/device-tree/model";

} // namespace

quint32 vornHardwareVersionForModel(const QByteArray& model)
{
    // The device tree stores the model zero-terminated; compare only the text before it.
    const int end = model.indexOf('\0');
    const QByteArray text = (end < 0 ? model : model.left(end)).trimmed();
    for (const HubModel& hub : kHubModels) {
        const QByteArray prefix(hub.modelPrefix);
        // "Vorn Hub 1" must not match "Vorn Hub 10": the prefix ends the text or a word.
        if (text.startsWith(prefix) && (text.size() == prefix.size() || text.at(prefix.size()) == ' '))
            return hub.version;
    }
    return kUnknownHardwareVersion;
}

quint32 getVornHardwareVersion()
{
    // The board does not change while the process runs: read the model once.
    static const quint32 version = [] {
        QFile file(QString::fromLatin1(kDeviceTreeModel));
        if (!file.open(QIODevice::ReadOnly))
            return kUnknownHardwareVersion;
        return vornHardwareVersionForModel(file.read(256));
    }();
    return version;
}

bool isVornDevice()
{
    return getVornHardwareVersion() != kUnknownHardwareVersion;
}
