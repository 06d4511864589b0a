#include "lightcolor.h"

#include <algorithm>
#include <cmath>

namespace bridgeemu {

namespace {

double cross(XY a, XY b)
{
    return a.x * b.y - a.y * b.x;
}

XY minus(XY a, XY b)
{
    return {a.x - b.x, a.y - b.y};
}

XY closestOnSegment(XY p, XY a, XY b)
{
    const XY ab = minus(b, a);
    const double lengthSquared = ab.x * ab.x + ab.y * ab.y;
    double t = lengthSquared > 0 ? ((p.x - a.x) * ab.x + (p.y - a.y) * ab.y) / lengthSquared : 0;
    t = std::clamp(t, 0.0, 1.0);
    return {a.x + t * ab.x, a.y + t * ab.y};
}

double distanceSquared(XY a, XY b)
{
    const XY d = minus(a, b);
    return d.x * d.x + d.y * d.y;
}

// sRGB-style transfer curve, used by the wide-gamut RGB space of the Hue documentation.
double expandGamma(double value)
{
    return value > 0.04045 ? std::pow((value + 0.055) / 1.055, 2.4) : value / 12.92;
}

double compressGamma(double value)
{
    return value <= 0.0031308 ? 12.92 * value : 1.055 * std::pow(value, 1.0 / 2.4) - 0.055;
}

} // namespace

Gamut gamutOf(GamutType type)
{
    switch (type) {
    case GamutType::A:
        return {{0.704, 0.296}, {0.2151, 0.7106}, {0.138, 0.08}};
    case GamutType::B:
        return {{0.675, 0.322}, {0.409, 0.518}, {0.167, 0.04}};
    case GamutType::C:
    case GamutType::None:
        break;
    }
    return {{0.6915, 0.3083}, {0.17, 0.7}, {0.1532, 0.0475}};
}

const char* gamutName(GamutType type)
{
    switch (type) {
    case GamutType::A:
        return "A";
    case GamutType::B:
        return "B";
    case GamutType::C:
        return "C";
    case GamutType::None:
        break;
    }
    return "";
}

XY clampToGamut(XY point, const Gamut& gamut)
{
    const XY& r = gamut.red;
    const XY& g = gamut.green;
    const XY& b = gamut.blue;
    const double d1 = cross(minus(g, r), minus(point, r));
    const double d2 = cross(minus(b, g), minus(point, g));
    const double d3 = cross(minus(r, b), minus(point, b));
    const bool hasNegative = d1 < 0 || d2 < 0 || d3 < 0;
    const bool hasPositive = d1 > 0 || d2 > 0 || d3 > 0;
    if (!(hasNegative && hasPositive))
        return point;
    const XY candidates[] = {closestOnSegment(point, r, g), closestOnSegment(point, g, b),
                             closestOnSegment(point, b, r)};
    XY best = candidates[0];
    for (const XY& candidate : candidates) {
        if (distanceSquared(point, candidate) < distanceSquared(point, best))
            best = candidate;
    }
    return best;
}

XY xyFromMired(int mired)
{
    // Kim et al.'s cubic approximation of the Planckian locus, valid from 1667 K to 25000 K.
    const double t = std::clamp(1e6 / std::max(mired, 1), 1667.0, 25000.0);
    const double t2 = t * t;
    const double t3 = t2 * t;
    const double x = t <= 4000 ? -0.2661239e9 / t3 - 0.2343589e6 / t2 + 0.8776956e3 / t + 0.179910
                               : -3.0258469e9 / t3 + 2.1070379e6 / t2 + 0.2226347e3 / t + 0.240390;
    const double x2 = x * x;
    const double x3 = x2 * x;
    double y;
    if (t <= 2222)
        y = -1.1063814 * x3 - 1.34811020 * x2 + 2.18555832 * x - 0.20219683;
    else if (t <= 4000)
        y = -0.9549476 * x3 - 1.37418593 * x2 + 2.09137015 * x - 0.16748867;
    else
        y = 3.0817580 * x3 - 5.87338670 * x2 + 3.75112997 * x - 0.37001483;
    return {roundXY(x), roundXY(y)};
}

int miredFromXY(XY point)
{
    // McCamy's approximation of the correlated colour temperature.
    const double denominator = 0.1858 - point.y;
    if (std::abs(denominator) < 1e-9)
        return 153;
    const double n = (point.x - 0.3320) / denominator;
    const double kelvin = 449 * n * n * n + 3525 * n * n + 6823.3 * n + 5520.33;
    if (kelvin <= 0)
        return 500;
    return std::clamp(static_cast<int>(std::lround(1e6 / kelvin)), 153, 500);
}

XY xyFromHueSaturation(int hue, int saturation)
{
    const double h = std::fmod(hue / 65535.0 * 360.0, 360.0) / 60.0;
    const double s = std::clamp(saturation / 254.0, 0.0, 1.0);
    const double c = s;
    const double secondary = c * (1 - std::abs(std::fmod(h, 2.0) - 1));
    const double m = 1 - c;
    double rgb[3] = {0, 0, 0};
    const int sector = static_cast<int>(h) % 6;
    const int primary[6] = {0, 1, 1, 2, 2, 0};
    const int other[6] = {1, 0, 2, 1, 0, 2};
    rgb[primary[sector]] = c;
    rgb[other[sector]] = secondary;
    const double r = expandGamma(rgb[0] + m);
    const double g = expandGamma(rgb[1] + m);
    const double b = expandGamma(rgb[2] + m);
    const double bigX = r * 0.664511 + g * 0.154324 + b * 0.162028;
    const double bigY = r * 0.283881 + g * 0.668433 + b * 0.047685;
    const double bigZ = r * 0.000088 + g * 0.072310 + b * 0.986039;
    const double sum = bigX + bigY + bigZ;
    if (sum <= 0)
        return {0.3227, 0.329};
    return {roundXY(bigX / sum), roundXY(bigY / sum)};
}

void hueSaturationFromXY(XY point, int& hue, int& saturation)
{
    if (point.y <= 0) {
        hue = 0;
        saturation = 0;
        return;
    }
    const double bigX = point.x / point.y;
    const double bigZ = (1 - point.x - point.y) / point.y;
    double r = bigX * 1.656492 - 0.354851 - bigZ * 0.255038;
    double g = -bigX * 0.707196 + 1.655397 + bigZ * 0.036152;
    double b = bigX * 0.051713 - 0.121364 + bigZ * 1.011530;
    r = std::max(r, 0.0);
    g = std::max(g, 0.0);
    b = std::max(b, 0.0);
    const double peak = std::max({r, g, b});
    if (peak <= 0) {
        hue = 0;
        saturation = 0;
        return;
    }
    r = compressGamma(r / peak);
    g = compressGamma(g / peak);
    b = compressGamma(b / peak);
    const double high = std::max({r, g, b});
    const double low = std::min({r, g, b});
    const double delta = high - low;
    double degrees = 0;
    if (delta > 0) {
        if (high == r)
            degrees = 60 * std::fmod((g - b) / delta, 6.0);
        else if (high == g)
            degrees = 60 * ((b - r) / delta + 2);
        else
            degrees = 60 * ((r - g) / delta + 4);
    }
    if (degrees < 0)
        degrees += 360;
    hue = std::clamp(static_cast<int>(std::lround(degrees / 360.0 * 65535.0)), 0, 65535);
    saturation = high > 0 ? std::clamp(static_cast<int>(std::lround(delta / high * 254.0)), 0, 254) : 0;
}

double roundXY(double value)
{
    return std::round(value * 10000.0) / 10000.0;
}

} // namespace bridgeemu
