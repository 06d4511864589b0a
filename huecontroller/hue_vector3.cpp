#include "hue_vector3.h"

namespace hue {

QString Vector3::toString() const
{
    return QString::asprintf("[ %g, %g, %g ]", m_values[0], m_values[1], m_values[2]);
}

} // namespace hue
