#include "hue_xypoint.h"

#include <QDebug>

namespace hue {

QString XYPoint::toString() const
{
    return QString::asprintf("{ xy: %g, %g }", double(x), double(y));
}

QDebug operator<<(QDebug debug, const XYPoint& point)
{
    QDebugStateSaver saver(debug);
    debug.noquote().nospace() << point.toString();
    return debug;
}

} // namespace hue
