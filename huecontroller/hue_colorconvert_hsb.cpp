#include "hue_colorconvert.h"

#include "hue_colormath.h"

#include <algorithm>
#include <cmath>

// Hue/saturation/brightness on the bridge's scales <-> 8-bit RGB.
namespace hue {

using colormath::clipRound;
using colormath::roundToInt;

uint ColorConvert::convertHSBToRGB(int hue, int saturation, int brightness)
{
    const double s = saturation / 254.0;
    const double v = brightness / 254.0;
    const double h6 = hue / 65536.0 * 6.0;
    const double i = std::floor(h6);
    const double f = h6 - i;

    const double V = v * 255.0;
    const double p = (1.0 - s) * v * 255.0;
    const double q = (1.0 - s * f) * v * 255.0;
    const double t = (1.0 - (1.0 - f) * s) * v * 255.0;

    double r, g, b;
    if (i < 1) {
        r = V, g = t, b = p;
    } else if (i < 2) {
        r = q, g = V, b = p;
    } else if (i < 3) {
        r = p, g = V, b = t;
    } else if (i < 4) {
        r = p, g = q, b = V;
    } else if (i < 5) {
        r = t, g = p, b = V;
    } else {
        r = V, g = p, b = q;
    }
    return getRgb(clipRound(r), clipRound(g), clipRound(b));
}

uint ColorConvert::convertRGBToHSB(uint rgb)
{
    const int r = (rgb >> 16) & 0xFF;
    const int g = (rgb >> 8) & 0xFF;
    const int b = rgb & 0xFF;
    const int max = std::max({r, g, b});
    const int min = std::min({r, g, b});

    const uint bri = uint(roundToInt(max / 255.0 * 254.0));
    uint sat = 0;
    uint hue = 0;
    if (max != min) {
        const double delta = (max - min) / 255.0;
        sat = uint(roundToInt(delta / (max / 255.0) * 254.0));
        const double rf = r / 255.0, gf = g / 255.0, bf = b / 255.0;
        double h; // in sixths of the circle
        if (r >= std::max(g, b))
            h = (gf - bf) / delta;
        else if (g >= b)
            h = (bf - rf) / delta + 2.0;
        else
            h = (rf - gf) / delta + 4.0;
        if (h < 0.0)
            h += 6.0;
        // A full circle (65536) wraps to 0.
        hue = uint(roundToInt(h / 6.0 * 65536.0)) & 0xFFFFu;
    }
    return hue | (sat << 16) | (bri << 24);
}

} // namespace hue
