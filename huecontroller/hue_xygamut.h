#pragma once

#include "hue_xypoint.h"

#include <QString>

class QDebug;

namespace hue {

// The triangle of colours a lamp can show: its red, green and blue corners in CIE xy.
struct XYGamut
{
    XYPoint red;
    XYPoint green;
    XYPoint blue;

    // "{ red: <x>, <y>; green: <x>, <y>; blue: <x>, <y> }" with the values as printf's %g.
    QString toString() const;
};

inline bool operator==(const XYGamut& a, const XYGamut& b)
{
    return a.red == b.red && a.green == b.green && a.blue == b.blue;
}
inline bool operator!=(const XYGamut& a, const XYGamut& b)
{
    return !(a == b);
}

// Writes toString(), so that log lines and qDebug show gamuts readably.
QDebug operator<<(QDebug debug, const XYGamut& gamut);

} // namespace hue
