#pragma once

#include <QtGlobal>

namespace hue {

// Which colour representation the hub was last given for a light.
enum VNColorMode : qint32
{
    ColorModeNone = 0,
    ColorModeTemperature = 1,
    ColorModeColor = 2, // hue/saturation or RGB
};

} // namespace hue
