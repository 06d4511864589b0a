#pragma once

#include <QtGlobal>

// Fixed-width hexadecimal fields of identifier texts, without allocation or locale.
namespace kova::hex {

inline int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1;
}

// Reads exactly `width` (at most 8) hex digits from `text`; false if any of them is not a hex digit.
inline bool read(const char* text, int width, quint32& value)
{
    quint32 result = 0;
    for (int i = 0; i < width; ++i) {
        const int digit = digitValue(text[i]);
        if (digit < 0)
            return false;
        result = (result << 4) | quint32(digit);
    }
    value = result;
    return true;
}

// Writes `value` as exactly `width` upper-case hex digits and returns the position after them.
inline char* write(char* out, quint32 value, int width)
{
    static const char digits[] = "0123456789ABCDEF";
    for (int i = width - 1; i >= 0; --i) {
        out[i] = digits[value & 0xF];
        value >>= 4;
    }
    return out + width;
}

} // namespace kova::hex
