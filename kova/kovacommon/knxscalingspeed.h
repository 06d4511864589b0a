#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <optional>

namespace kova {

// Where a timed dimming step ends and how long it takes: a target brightness in percent (0 to 100) and
// a duration in milliseconds.
//
// Text form: the percent and the milliseconds in decimal, each followed by its unit and joined by '/':
// "50%/2000ms", "0%/0ms", "100%/4294967295ms". Parsing is strict so that every accepted text is exactly
// the one toString() prints: no signs, blanks, leading zeros or other bytes, percent at most 100,
// milliseconds within 32 bits.
class KNXScalingSpeed
{
public:
    static constexpr quint8 MaxPercent = 100;

    constexpr KNXScalingSpeed() noexcept = default;
    // A target above 100 % means full brightness and is stored as 100.
    constexpr KNXScalingSpeed(quint8 targetPercent, quint32 timeMs) noexcept
        : m_timeMs(timeMs), m_targetPercent(targetPercent > MaxPercent ? MaxPercent : targetPercent)
    {
    }

    constexpr quint8 targetPercent() const { return m_targetPercent; }
    constexpr quint32 timeMs() const { return m_timeMs; }

    QByteArray toString() const;
    static std::optional<KNXScalingSpeed> fromString(const QByteArray& text);

    constexpr bool operator==(const KNXScalingSpeed& o) const
    {
        return m_targetPercent == o.m_targetPercent && m_timeMs == o.m_timeMs;
    }
    constexpr bool operator!=(const KNXScalingSpeed& o) const { return !(*this == o); }

private:
    quint32 m_timeMs = 0;
    quint8 m_targetPercent = 0;
};

} // namespace kova
