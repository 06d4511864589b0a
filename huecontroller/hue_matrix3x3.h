#pragma once

#include "hue_vector3.h"

#include <QString>

namespace hue {

// A 3x3 matrix of doubles, stored row-major: element (row, column) is at index row * 3 + column.
// Enough linear algebra to turn a lamp's colour gamut into RGB <-> XYZ conversion matrices.
class Matrix3x3
{
public:
    // All nine elements zero.
    constexpr Matrix3x3() = default;
    explicit Matrix3x3(const double (&values)[9]);
    Matrix3x3(double m0, double m1, double m2, double m3, double m4, double m5, double m6, double m7,
              double m8);

    static Matrix3x3 identity();
    // The three vectors become the columns.
    static Matrix3x3 fromColumnVectors(const Vector3& c0, const Vector3& c1, const Vector3& c2);

    // Element by row-major index 0..8.
    double operator[](int i) const { return m_values[i]; }
    double& operator[](int i) { return m_values[i]; }
    double at(int row, int column) const { return m_values[row * 3 + column]; }

    Matrix3x3 transposed() const;
    // Determinant by cofactor expansion along the first row.
    double det() const;
    // m[i] * m[l] - m[j] * m[k] over row-major indices: the 2x2 determinant of a cofactor.
    double det2(int i, int j, int k, int l) const;
    // The transposed matrix of cofactors, so that M * adjugate() = det() * identity().
    Matrix3x3 adjugate() const;
    // adjugate() / det(); the zero matrix (not the identity) when the determinant is 0, so that
    // a degenerate gamut shows up as black rather than as a plausible colour.
    Matrix3x3 inverse() const;
    // Element (r, c) multiplied by v[c].
    Matrix3x3 scaleColumns(const Vector3& v) const;

    Vector3 operator*(const Vector3& v) const;
    Matrix3x3 operator*(const Matrix3x3& other) const;
    Matrix3x3 operator*(double factor) const;
    Matrix3x3 operator/(double divisor) const;

    // "[ a, b, c ; d, e, f ; g, h, i ]" with the values as printf's %g.
    QString toString() const;

private:
    double m_values[9] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
};

bool operator==(const Matrix3x3& a, const Matrix3x3& b);
inline bool operator!=(const Matrix3x3& a, const Matrix3x3& b)
{
    return !(a == b);
}

} // namespace hue
