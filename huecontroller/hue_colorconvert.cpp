#include "hue_colorconvert.h"

#include "hue_colormath.h"

#include <common/logginginterface.h>
#include <kovacommon/internalid.h>

#include <algorithm>
#include <cmath>

// The scale conversions between the bridge's integer ranges and the hub's percentages.
namespace hue {

using colormath::roundToInt;

double ColorConvert::convertHueBrightnessToApi(int brightness)
{
    const int b = std::clamp(brightness, 1, 254);
    return std::clamp(1.0 + (b - 1) / 253.0 * 99.0, 1.0, 100.0);
}

int ColorConvert::convertApiBrightnessToHue(double percent)
{
    if (percent >= 100.0)
        return 254;
    if (percent <= 1.0)
        return 1;
    const int b = std::max(roundToInt((percent - 1.0) / 99.0 * 253.0) + 1, 1);
    return b > 254 ? 254 : b;
}

double ColorConvert::convertHueHueToApi(int hue)
{
    return std::clamp(hue, 0, 65535) / 65535.0 * 100.0;
}

int ColorConvert::convertApiHueToHue(double percent)
{
    if (percent >= 100.0)
        return 65535;
    if (percent <= 0.0)
        return 0;
    return std::clamp(roundToInt(percent / 100.0 * 65535.0), 0, 65535);
}

double ColorConvert::convertHueSaturationToApi(int saturation)
{
    return std::clamp(saturation, 0, 254) / 254.0 * 100.0;
}

double ColorConvert::convertApiSaturationToHue(double percent)
{
    if (percent >= 100.0)
        return 254.0;
    if (percent <= 0.0)
        return 0.0;
    return std::clamp(roundToInt(percent / 100.0 * 254.0), 0, 254);
}

float ColorConvert::convertMiredToPercent(int ct, int miredMin, int miredMax, const InternalId& lightSerial)
{
    if (miredMax == miredMin)
        return 0.0f;
    // Upper bound first: with inverted limits the lower one decides.
    int c = ct > miredMax ? miredMax : ct;
    c = c < miredMin ? miredMin : c;
    const float p = (1.0f - float(c - miredMin) / float(miredMax - miredMin)) * 100.0f;
    const float rounded = std::round(p);
    if (rounded < 0.0f) {
        LOG_WARNING << lightSerial << "ct < 0:" << c << miredMin << miredMax << p;
        return 0.0f;
    }
    if (p > 100.0f) {
        LOG_WARNING << lightSerial << "ct > 100:" << c << miredMin << miredMax << p;
        return 100.0f;
    }
    return rounded;
}

unsigned ColorConvert::convertPercentToMired(float percent, int miredMin, int miredMax)
{
    const float mired = float(miredMin) + (100.0f - percent) * 0.01f * float(miredMax - miredMin);
    const int rounded = roundToInt(mired);
    return rounded < 0 ? 0u : unsigned(rounded);
}

} // namespace hue
