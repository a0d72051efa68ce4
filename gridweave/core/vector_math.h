#pragma once

// Arithmetic on points and vectors of two and three components. Sums run over x, y, z in that order: results are fixed to the last bit.

#include <cmath>

#include <tq4/numcore/fixed.h>

namespace tq4::gridweave
{

/// a + b
template <unsigned D>
vector_fixed<double, D> add(const vector_fixed<double, D>& a, const vector_fixed<double, D>& b)
{
    vector_fixed<double, D> sum{};
    for (unsigned k = 0; k < D; ++k) sum[k] = a[k] + b[k];
    return sum;
}

/// a - b
template <unsigned D>
vector_fixed<double, D> subtract(const vector_fixed<double, D>& a, const vector_fixed<double, D>& b)
{
    vector_fixed<double, D> difference{};
    for (unsigned k = 0; k < D; ++k) difference[k] = a[k] - b[k];
    return difference;
}

/// factor × a
template <unsigned D>
vector_fixed<double, D> scaled(double factor, const vector_fixed<double, D>& a)
{
    vector_fixed<double, D> product{};
    for (unsigned k = 0; k < D; ++k) product[k] = factor * a[k];
    return product;
}

/// True when every component is 0, of either sign.
template <unsigned D>
bool is_zero(const vector_fixed<double, D>& a)
{
    for (unsigned k = 0; k < D; ++k)
        if (!(a[k] == 0.0)) return false;
    return true;
}

template <unsigned D>
double dot(const vector_fixed<double, D>& a, const vector_fixed<double, D>& b)
{
    double sum = a[0] * b[0];
    for (unsigned k = 1; k < D; ++k) sum += a[k] * b[k];
    return sum;
}

template <unsigned D>
double squared_norm(const vector_fixed<double, D>& a)
{
    return dot(a, a);
}

template <unsigned D>
double norm(const vector_fixed<double, D>& a)
{
    return std::sqrt(squared_norm(a));
}

inline vector_fixed<double, 3> cross(const vector_fixed<double, 3>& a, const vector_fixed<double, 3>& b)
{
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

/// The one component, along z, of the cross product of two vectors of the plane.
inline double cross(const vector_fixed<double, 2>& a, const vector_fixed<double, 2>& b)
{
    return a[0] * b[1] - a[1] * b[0];
}

/// Determinant of the matrix with the rows a, b, c: the signed volume of the parallelepiped that they span.
inline double determinant(const vector_fixed<double, 3>& a, const vector_fixed<double, 3>& b, const vector_fixed<double, 3>& c)
{
    return dot(a, cross(b, c));
}

} // namespace tq4::gridweave
