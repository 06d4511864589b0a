#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace hue {

// Known lamps that need limits or treatment of their own, by manufacturer and model.
class CLightInfo
{
public:
    CLightInfo() = delete;

    // Bit 0: set for the "iluminize" "511.050" controller; read by the controller code.
    enum Flag : quint32
    {
        FlagIluminize = 0x1,
    };

    // The light's colour temperature range in mired: 153..454 unless a row of the table sets
    // another bound. Manufacturer and model are compared exactly, up to the first NUL.
    static void getMiredLimits(const QByteArray& manufacturer, const QByteArray& model, int& min, int& max);
    // The row's flags, or 0 for a lamp that is not in the table.
    static quint32 getFlags(const QByteArray& manufacturer, const QByteArray& model);

    static constexpr int DefaultMiredMin = 153;
    static constexpr int DefaultMiredMax = 454;
};

} // namespace hue
