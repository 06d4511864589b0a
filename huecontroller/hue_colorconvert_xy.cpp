#include "hue_colorconvert.h"

#include "hue_colormath.h"

#include <algorithm>
#include <cmath>

// RGB <-> CIE xy through a lamp's conversion matrices, and those matrices from its gamut.
namespace hue {

using colormath::clipRound;
using colormath::roundToInt;

namespace {

// sRGB's transfer function, undone: 8-bit channel -> linear light 0..1.
float toLinear(int channel)
{
    const float c = float(channel) / 255.0f;
    return c <= 0.04045f ? c / 12.92f : std::pow((c + 0.055f) / 1.055f, 2.4f);
}

// sRGB's transfer function: linear light 0..1 -> 8-bit channel.
int fromLinear(double c)
{
    if (c < 0.0)
        c = 0.0;
    c = c <= 0.0031308 ? 12.92 * c : 1.055 * std::pow(c, 1.0 / 2.4) - 0.055;
    return clipRound(c * 255.0);
}

} // namespace

void ColorConvert::convertRgbToXY(float* x, float* y, int* bri, uint rgb, const Matrix3x3& rgbToXyz,
                                  const XYGamut& limits)
{
    const Vector3 linear(toLinear((rgb >> 16) & 0xFF), toLinear((rgb >> 8) & 0xFF), toLinear(rgb & 0xFF));
    const Vector3 xyz = rgbToXyz * linear;

    XYPoint point;
    const double sum = xyz[0] + xyz[1] + xyz[2];
    if (std::fabs(sum) > 0.0001) {
        point.x = float(xyz[0] / sum);
        point.y = float(xyz[1] / sum);
    }
    if (bri)
        *bri = roundToInt(xyz[1] * 255.0);

    point = moveIntoLampsReach(point, limits);
    if (x)
        *x = point.x;
    if (y)
        *y = point.y;
}

uint ColorConvert::convertXYToRGB(float x, float y, int bri, const Matrix3x3& xyzToRgb, const XYGamut& limits)
{
    const XYPoint point = moveIntoLampsReach({x, y}, limits);

    // 255 / 254 lets full bridge brightness reach slightly above 1 on purpose.
    const float Y = float(std::clamp(bri, 0, 255)) / 254.0f;
    const float cx = std::clamp(point.x, 0.0f, 1.0f);
    const float cy = std::clamp(point.y, 0.0f, 1.0f);
    const float X = cx * Y / cy;
    const float Z = (1.0f - cx - cy) * Y / cy;

    Vector3 linear = xyzToRgb * Vector3(X, Y, Z);
    // Keep the hue of colours brighter than the lamp's primaries allow: scale instead of clipping.
    const double largest = std::max({linear[0], linear[1], linear[2]});
    if (largest > 1.0) {
        for (int i = 0; i < 3; ++i)
            linear[i] /= largest;
    }
    return getRgb(fromLinear(linear[0]), fromLinear(linear[1]), fromLinear(linear[2]));
}

Vector3 ColorConvert::xyToXYZ(const XYPoint& point)
{
    return {point.x / point.y, 1.0, (1.0f - point.x - point.y) / point.y};
}

Matrix3x3 ColorConvert::calculateRGBtoXYZMatrix(const XYGamut& gamut, const XYPoint& whitepoint)
{
    const Matrix3x3 primaries =
        Matrix3x3::fromColumnVectors(xyToXYZ(gamut.red), xyToXYZ(gamut.green), xyToXYZ(gamut.blue));
    // Scale each primary so that RGB (1, 1, 1) lands on the white point.
    const Vector3 scale = primaries.inverse() * xyToXYZ(whitepoint);
    return primaries.scaleColumns(scale);
}

Matrix3x3 ColorConvert::calculateXYZtoRGBMatrix(const XYGamut& gamut, const XYPoint& whitepoint)
{
    return calculateRGBtoXYZMatrix(gamut, whitepoint).inverse();
}

} // namespace hue
