#include "hue_matrix3x3.h"

namespace hue {

Matrix3x3::Matrix3x3(const double (&values)[9])
{
    for (int i = 0; i < 9; ++i)
        m_values[i] = values[i];
}

Matrix3x3::Matrix3x3(double m0, double m1, double m2, double m3, double m4, double m5, double m6, double m7,
                     double m8)
    : m_values{m0, m1, m2, m3, m4, m5, m6, m7, m8}
{
}

Matrix3x3 Matrix3x3::identity()
{
    return {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
}

Matrix3x3 Matrix3x3::fromColumnVectors(const Vector3& c0, const Vector3& c1, const Vector3& c2)
{
    return {c0[0], c1[0], c2[0], c0[1], c1[1], c2[1], c0[2], c1[2], c2[2]};
}

Matrix3x3 Matrix3x3::transposed() const
{
    const double* m = m_values;
    return {m[0], m[3], m[6], m[1], m[4], m[7], m[2], m[5], m[8]};
}

double Matrix3x3::det2(int i, int j, int k, int l) const
{
    return m_values[i] * m_values[l] - m_values[j] * m_values[k];
}

double Matrix3x3::det() const
{
    // First row times its cofactors (the first column of the adjugate).
    return m_values[0] * det2(4, 5, 7, 8) + m_values[1] * det2(5, 3, 8, 6) + m_values[2] * det2(3, 4, 6, 7);
}

Matrix3x3 Matrix3x3::adjugate() const
{
    // Element (r, c) is the cofactor of (c, r); the index order inside det2 carries the sign.
    return {det2(4, 5, 7, 8), det2(2, 1, 8, 7), det2(1, 2, 4, 5), //
            det2(5, 3, 8, 6), det2(0, 2, 6, 8), det2(2, 0, 5, 3), //
            det2(3, 4, 6, 7), det2(1, 0, 7, 6), det2(0, 1, 3, 4)};
}

Matrix3x3 Matrix3x3::inverse() const
{
    const double d = det();
    if (d == 0.0)
        return {};
    return adjugate() / d;
}

Matrix3x3 Matrix3x3::scaleColumns(const Vector3& v) const
{
    Matrix3x3 result;
    for (int i = 0; i < 9; ++i)
        result.m_values[i] = m_values[i] * v[i % 3];
    return result;
}

Vector3 Matrix3x3::operator*(const Vector3& v) const
{
    const double* m = m_values;
    return {m[0] * v[0] + m[1] * v[1] + m[2] * v[2], m[3] * v[0] + m[4] * v[1] + m[5] * v[2],
            m[6] * v[0] + m[7] * v[1] + m[8] * v[2]};
}

Matrix3x3 Matrix3x3::operator*(const Matrix3x3& other) const
{
    Matrix3x3 result;
    for (int row = 0; row < 3; ++row) {
        for (int column = 0; column < 3; ++column) {
            double sum = 0.0;
            for (int k = 0; k < 3; ++k)
                sum += at(row, k) * other.at(k, column);
            result.m_values[row * 3 + column] = sum;
        }
    }
    return result;
}

Matrix3x3 Matrix3x3::operator*(double factor) const
{
    Matrix3x3 result;
    for (int i = 0; i < 9; ++i)
        result.m_values[i] = m_values[i] * factor;
    return result;
}

Matrix3x3 Matrix3x3::operator/(double divisor) const
{
    Matrix3x3 result;
    for (int i = 0; i < 9; ++i)
        result.m_values[i] = m_values[i] / divisor;
    return result;
}

QString Matrix3x3::toString() const
{
    const double* m = m_values;
    return QString::asprintf("[ %g, %g, %g ; %g, %g, %g ; %g, %g, %g ]", m[0], m[1], m[2], m[3], m[4], m[5],
                             m[6], m[7], m[8]);
}

bool operator==(const Matrix3x3& a, const Matrix3x3& b)
{
    for (int i = 0; i < 9; ++i) {
        if (a[i] != b[i])
            return false;
    }
    return true;
}

} // namespace hue
