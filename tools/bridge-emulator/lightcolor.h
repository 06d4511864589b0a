#pragma once

namespace bridgeemu {

// CIE 1931 chromaticity.
struct XY
{
    double x = 0;
    double y = 0;
};

// The colour gamuts of Hue lamps: A (early LivingColors), B (first Hue bulbs), C (current bulbs).
enum class GamutType
{
    None,
    A,
    B,
    C
};

struct Gamut
{
    XY red, green, blue;
};

Gamut gamutOf(GamutType type);
const char* gamutName(GamutType type); // "A", "B", "C" or "" for none

// A point inside the triangle stays as it is; one outside moves to the nearest point on its edge,
// as a lamp does with a colour it cannot show.
XY clampToGamut(XY point, const Gamut& gamut);

// Conversions between the representations a light reports side by side. They need not be exact,
// only plausible and stable: a lamp's own values are approximations as well.
XY xyFromMired(int mired);
int miredFromXY(XY point);
XY xyFromHueSaturation(int hue, int saturation); // hue 0..65535, saturation 0..254
void hueSaturationFromXY(XY point, int& hue, int& saturation);

// Rounds to four decimals, as bridges report xy.
double roundXY(double value);

} // namespace bridgeemu
