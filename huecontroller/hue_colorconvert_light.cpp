// The colour conversions that depend on one lamp: they read the lamp's limits and matrices
// from the light and forward to the pure overloads.

#include "hue_colorconvert.h"
#include "hue_light.h"

namespace hue {

float ColorConvert::convertMiredToPercent(int ct, const CLight& light)
{
    return convertMiredToPercent(ct, light.miredMin(), light.miredMax(), light.deviceSerial());
}

unsigned ColorConvert::convertPercentToMired(float percent, const CLight& light)
{
    return convertPercentToMired(percent, light.miredMin(), light.miredMax());
}

void ColorConvert::convertRgbToXY(float* x, float* y, int* bri, uint rgb, const CLight& light)
{
    convertRgbToXY(x, y, bri, rgb, light.rgbToXyz(), light.gamutLimits());
}

uint ColorConvert::convertXYToRGB(float x, float y, int bri, const CLight& light)
{
    return convertXYToRGB(x, y, bri, light.xyzToRgb(), light.gamutLimits());
}

uint ColorConvert::convertXYToRGB(float x, float y, int bri, const CLight* light)
{
    // Without a light there is no matrix to convert through: black.
    return light ? convertXYToRGB(x, y, bri, *light) : 0;
}

} // namespace hue
