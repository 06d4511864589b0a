#include "hue_xygamut.h"

#include <QDebug>

namespace hue {

QString XYGamut::toString() const
{
    return QString::asprintf("{ red: %g, %g; green: %g, %g; blue: %g, %g }", double(red.x), double(red.y),
                             double(green.x), double(green.y), double(blue.x), double(blue.y));
}

QDebug operator<<(QDebug debug, const XYGamut& gamut)
{
    QDebugStateSaver saver(debug);
    debug.noquote().nospace() << gamut.toString();
    return debug;
}

} // namespace hue
