#pragma once

#include <QString>

namespace hue {

// Three doubles: a colour in RGB or XYZ, or a column of a Matrix3x3.
class Vector3
{
public:
    constexpr Vector3() = default;
    constexpr Vector3(double v0, double v1, double v2) : m_values{v0, v1, v2} {}

    constexpr double operator[](int i) const { return m_values[i]; }
    constexpr double& operator[](int i) { return m_values[i]; }

    // "[ <v0>, <v1>, <v2> ]" with the values as printf's %g.
    QString toString() const;

private:
    double m_values[3] = {0.0, 0.0, 0.0};
};

inline bool operator==(const Vector3& a, const Vector3& b)
{
    return a[0] == b[0] && a[1] == b[1] && a[2] == b[2];
}
inline bool operator!=(const Vector3& a, const Vector3& b)
{
    return !(a == b);
}

} // namespace hue
