#include "hue_colorconvert.h"

#include <common/logginginterface.h>

// The hub's text forms of colours: "rrggbb" hex RGB and the packed HSV number.
namespace hue {

namespace {

QString hex(uint value, int digits)
{
    return QString::number(value, 16).rightJustified(digits, QLatin1Char('0'));
}

} // namespace

QString ColorConvert::convertRgbToHtmlString(uint rgb)
{
    return hex((rgb >> 16) & 0xFF, 2) + hex((rgb >> 8) & 0xFF, 2) + hex(rgb & 0xFF, 2);
}

QString ColorConvert::convertRgbToDebugString(uint rgb)
{
    return QStringLiteral("%1,%2,%3").arg((rgb >> 16) & 0xFF).arg((rgb >> 8) & 0xFF).arg(rgb & 0xFF);
}

QString ColorConvert::convertHSVToString(quint16 hue, quint8 saturation, quint8 value)
{
    return hex(hue, 4) + hex(saturation, 2) + hex(value, 2);
}

uint ColorConvert::convertStringToRgb(const QString& text, bool* ok)
{
    if (ok)
        *ok = false;
    if (text.isEmpty())
        return 0;
    const int start = text.startsWith(QLatin1Char('#')) ? 1 : 0;
    if (text.size() - start < 6) {
        LOG_WARNING << "Parse error, string too short";
        return 0;
    }

    int channels[3];
    for (int i = 0; i < 3; ++i) {
        bool parsed = false;
        channels[i] = text.midRef(start + 2 * i, 2).toInt(&parsed, 16);
        if (!parsed) {
            LOG_WARNING << "Parse error, not a valid number" << text;
            return 0;
        }
    }
    for (const int channel : channels) {
        // Two hex digits cannot exceed 255, but a sign ("-f") slips through the parse.
        if (channel < 0 || channel > 255) {
            LOG_WARNING << "Parse error, values out of bounds in string" << text;
            return 0;
        }
    }
    if (ok)
        *ok = true;
    return getRgb(channels[0], channels[1], channels[2]);
}

uint ColorConvert::convertStringToHSV(const QString& text, bool* ok)
{
    if (ok)
        *ok = false;
    bool parsed = false;
    const uint v = text.toUInt(&parsed, 10);
    if (!parsed) {
        LOG_WARNING << "hsv string could not be converted to uint" << text;
        return 0;
    }
    if (ok)
        *ok = true;
    const uint hue = v >> 16;
    const uint saturation = (v >> 8) & 0xFF;
    const uint brightness = v & 0xFF;
    return hue | (saturation << 16) | (brightness << 24);
}

} // namespace hue
