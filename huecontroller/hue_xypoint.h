#pragma once

#include <QString>

class QDebug;

namespace hue {

// A CIE 1931 chromaticity: the colour of a light without its brightness. Single precision,
// as the bridge reports and accepts it.
struct XYPoint
{
    float x = 0.0f;
    float y = 0.0f;

    // "{ xy: <x>, <y> }" with both values as printf's %g.
    QString toString() const;
};

inline bool operator==(const XYPoint& a, const XYPoint& b)
{
    return a.x == b.x && a.y == b.y;
}
inline bool operator!=(const XYPoint& a, const XYPoint& b)
{
    return !(a == b);
}

// Writes toString(), so that log lines and qDebug show points readably.
QDebug operator<<(QDebug debug, const XYPoint& point);

} // namespace hue
