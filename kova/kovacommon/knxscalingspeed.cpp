#include "knxscalingspeed.h"

namespace kova {

namespace {

// Reads a decimal number without sign or leading zeros up to `max`; advances `pos` past its digits.
bool readDecimal(const char*& pos, const char* end, quint64 max, quint64& value)
{
    const char* const start = pos;
    quint64 result = 0;
    while (pos != end && *pos >= '0' && *pos <= '9') {
        result = result * 10 + quint64(*pos - '0');
        if (result > max)
            return false;
        ++pos;
    }
    if (pos == start || (*start == '0' && pos - start > 1))
        return false;
    value = result;
    return true;
}

// Consumes `literal` at `pos` if it is there.
bool readLiteral(const char*& pos, const char* end, const char* literal)
{
    const char* cursor = pos;
    for (; *literal; ++literal, ++cursor) {
        if (cursor == end || *cursor != *literal)
            return false;
    }
    pos = cursor;
    return true;
}

} // namespace

QByteArray KNXScalingSpeed::toString() const
{
    return QByteArray::number(m_targetPercent) + "%/" + QByteArray::number(m_timeMs) + "ms";
}

std::optional<KNXScalingSpeed> KNXScalingSpeed::fromString(const QByteArray& text)
{
    const char* pos = text.constData();
    const char* const end = pos + text.size();
    quint64 percent = 0;
    quint64 timeMs = 0;
    if (!readDecimal(pos, end, MaxPercent, percent) || !readLiteral(pos, end, "%/") ||
        !readDecimal(pos, end, 0xFFFFFFFFu, timeMs) || !readLiteral(pos, end, "ms") || pos != end)
        return std::nullopt;
    return KNXScalingSpeed(quint8(percent), quint32(timeMs));
}

} // namespace kova
