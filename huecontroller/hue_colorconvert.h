#pragma once

#include "hue_matrix3x3.h"
#include "hue_vector3.h"
#include "hue_xygamut.h"
#include "hue_xypoint.h"

#include <QString>
#include <QStringList>
#include <QtGlobal>

class InternalId;

namespace hue {

class CLight;

// Conversions between the hub's colour forms (RGB and HSV text, percentages) and the bridge's
// (brightness 1..254, hue 0..65535, saturation 0..254, CIE xy, colour temperature in mired),
// with the colour gamuts of Hue lamps. In the names, "Hue" is the bridge's scale and "Api" the
// hub's percentage scale.
//
// Packed forms:
//   RGB  0x00RRGGBB
//   HSB  hue (0..65535) in bits 0..15, saturation (0..254) in 16..23, brightness (0..254) in 24..31
//
// Everything is a pure function of its arguments; rounding is always half away from zero. The
// conversions that depend on one lamp come twice: a core overload that takes the lamp's matrices,
// gamut limits or mired limits explicitly, and an overload taking the CLight, which only reads
// those values from the light and forwards (defined with the light model in
// hue_colorconvert_light.cpp).
class ColorConvert
{
public:
    ColorConvert() = delete;

    // --- Scales -------------------------------------------------------------------------------

    // 1..254 -> 1.0..100.0 percent.
    static double convertHueBrightnessToApi(int brightness);
    // Percent -> 1..254; 100 and above give 254, 1 and below give 1.
    static int convertApiBrightnessToHue(double percent);
    // 0..65535 -> 0..100 percent.
    static double convertHueHueToApi(int hue);
    // Percent -> 0..65535.
    static int convertApiHueToHue(double percent);
    // 0..254 -> 0..100 percent.
    static double convertHueSaturationToApi(int saturation);
    // Percent -> 0..254 (a whole number, returned as double).
    static double convertApiSaturationToHue(double percent);

    // Colour temperature: the coldest light (miredMin) is 100 %, the warmest (miredMax) 0 %.
    // Equal limits give 0. Values outside 0..100 are logged with the light's serial.
    static float convertMiredToPercent(int ct, int miredMin, int miredMax, const InternalId& lightSerial);
    static float convertMiredToPercent(int ct, const CLight& light);
    // The inverse: miredMin + (100 - percent) % of the range, rounded; negative results give 0.
    static unsigned convertPercentToMired(float percent, int miredMin, int miredMax);
    static unsigned convertPercentToMired(float percent, const CLight& light);

    // --- Colour models ------------------------------------------------------------------------

    static uint getRgb(int red, int green, int blue)
    {
        return (uint(red & 0xFF) << 16) | (uint(green & 0xFF) << 8) | uint(blue & 0xFF);
    }

    // Hue 0..65535, saturation and brightness 0..254 -> packed RGB.
    static uint convertHSBToRGB(int hue, int saturation, int brightness);
    // Packed RGB -> packed HSB.
    static uint convertRGBToHSB(uint rgb);

    // Packed RGB -> CIE xy and bridge brightness (0..255) through a lamp's RGB -> XYZ matrix.
    // A point outside the lamp's gamut limits is moved onto the closest edge of the limits.
    // Any of x, y, bri may be null.
    static void convertRgbToXY(float* x, float* y, int* bri, uint rgb, const Matrix3x3& rgbToXyz,
                               const XYGamut& limits);
    static void convertRgbToXY(float* x, float* y, int* bri, uint rgb, const CLight& light);
    // CIE xy and bridge brightness -> packed RGB through a lamp's XYZ -> RGB matrix, after moving
    // the point into the lamp's gamut limits. y = 0 is not guarded (the result is then undefined
    // colour-wise, but always a valid packed value).
    static uint convertXYToRGB(float x, float y, int bri, const Matrix3x3& xyzToRgb, const XYGamut& limits);
    static uint convertXYToRGB(float x, float y, int bri, const CLight& light);
    static uint convertXYToRGB(float x, float y, int bri, const CLight* light);

    // (x / y, 1, (1 - x - y) / y): the XYZ of a chromaticity at luminance 1.
    static Vector3 xyToXYZ(const XYPoint& point);
    // Linear RGB -> XYZ for a lamp whose primaries are the gamut's corners and whose RGB white
    // (1, 1, 1) is the given white point at luminance 1.
    static Matrix3x3 calculateRGBtoXYZMatrix(const XYGamut& gamut, const XYPoint& whitepoint);
    // Its inverse (the zero matrix when the gamut is degenerate).
    static Matrix3x3 calculateXYZtoRGBMatrix(const XYGamut& gamut, const XYPoint& whitepoint);

    // --- Gamut geometry -----------------------------------------------------------------------

    // a.x * b.y - a.y * b.x
    static float crossProduct(const XYPoint& a, const XYPoint& b);
    static float getDistanceBetweenTwoPoints(const XYPoint& a, const XYPoint& b);
    // The point of the segment a-b closest to p.
    static XYPoint getClosestPointToPoints(const XYPoint& a, const XYPoint& b, const XYPoint& p);
    // Inside or on an edge of the gamut triangle; false for a degenerate triangle.
    static bool checkPointInLampsReach(const XYPoint& point, const XYGamut& gamut);
    // The point itself when the lamp can show it, otherwise the closest point on the edges
    // red-green, blue-red, green-blue (on equal distance the earlier edge in this order wins).
    static XYPoint moveIntoLampsReach(const XYPoint& point, const XYGamut& gamut);

    // --- Gamut tables and lookup --------------------------------------------------------------

    static const XYGamut& gamutA();
    static const XYGamut& gamutB();
    static const XYGamut& gamutC();
    // (1, 0), (0, 1), (0, 0): limits that clamp nothing a chromaticity can be.
    static const XYGamut& fullGamut();
    static const XYPoint& whitepointA();
    static const XYPoint& whitepointB();
    static const XYPoint& whitepointC();
    // Hue model ids that imply gamut B or gamut A when the bridge does not report a gamut type.
    static const QStringList& gamutBModels();
    static const QStringList& gamutAModels();

    // Gamut type "A", "B" or "C" (exact) picks that gamut; otherwise a listed model id picks
    // gamut B or A; otherwise the fallback. `second` is accepted for the callers' symmetry and
    // not used.
    static XYGamut lookupGamut(const QString& gamutType, const QString& second, const QString& modelId,
                               const XYGamut& fallback);
    // lookupGamut with gamut C as fallback.
    static XYGamut lookupGamut(const QString& gamutType, const QString& second, const QString& modelId);
    // lookupGamut with the full gamut as fallback: the limits to clamp colours to.
    static XYGamut lookupGamutLimits(const QString& gamutType, const QString& second, const QString& modelId);
    // The white point belonging to lookupGamut's choice; gamut C's white point otherwise.
    static XYPoint lookupWhitepoint(const QString& gamutType, const QString& second, const QString& modelId);
    static XYGamut defaultGamut() { return gamutC(); }
    static XYGamut defaultGamutLimits() { return fullGamut(); }
    static XYPoint defaultWhitepoint() { return whitepointC(); }

    // --- Text forms ---------------------------------------------------------------------------

    // "rrggbb" in lower-case hex, no "#": 0xFF8000 gives "ff8000".
    static QString convertRgbToHtmlString(uint rgb);
    // "r,g,b" in decimal.
    static QString convertRgbToDebugString(uint rgb);
    // "hhhhssvv" in lower-case hex.
    static QString convertHSVToString(quint16 hue, quint8 saturation, quint8 value);
    // "rrggbb" or "#rrggbb" (anything after the sixth digit is ignored) -> packed RGB. On a parse
    // error: 0, *ok false and one warning.
    static uint convertStringToRgb(const QString& text, bool* ok);
    // A decimal number v -> packed HSB with hue v >> 16, saturation (v >> 8) & 255 and
    // brightness v & 255. Not the inverse of convertHSVToString, which writes hex. On a parse
    // error: 0, *ok false and one warning.
    static uint convertStringToHSV(const QString& text, bool* ok);
};

} // namespace hue
