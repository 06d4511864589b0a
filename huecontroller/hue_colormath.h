#pragma once

#include <climits>
#include <cmath>

// Rounding helpers of the colour conversions (internal to the library).
namespace hue::colormath {

// Round half away from zero, saturated to the int range; NaN gives 0 so that a degenerate
// input can never turn into undefined behaviour on the way to an integer.
inline int roundToInt(double value)
{
    if (std::isnan(value))
        return 0;
    const double rounded = std::round(value);
    if (rounded >= double(INT_MAX))
        return INT_MAX;
    if (rounded <= double(INT_MIN))
        return INT_MIN;
    return int(rounded);
}

// Round, then clamp to 0..255: one colour channel.
inline int clipRound(double value)
{
    const int rounded = roundToInt(value);
    return rounded < 0 ? 0 : (rounded > 255 ? 255 : rounded);
}

} // namespace hue::colormath
