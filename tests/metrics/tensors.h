#pragma once

// Tensors for tests: random ones with chosen eigenvalues, and ways to look at them.

#include <cmath>
#include <cstring>
#include <limits>
#include <vector>

#include <tq4/numcore/numcore.h>

#include "support/meshes.h"

namespace tq4::test
{

using tensor2 = symmetric_fixed<double, 2>;
using tensor3 = symmetric_fixed<double, 3>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double largest = std::numeric_limits<double>::max();

/// The values in storage order, for comparison and readable failure messages.
template <class Fixed>
std::vector<double> entries(const Fixed& m)
{
    return std::vector<double>(std::begin(m.values), std::end(m.values));
}

/// True when both hold the same bits, NaN included.
template <class Fixed>
bool same_bits(const Fixed& a, const Fixed& b)
{
    return std::memcmp(a.values, b.values, sizeof a.values) == 0;
}

/// 10 to a random power between low and high.
inline double random_magnitude(random_source& random, double low, double high)
{
    return std::pow(10.0, random.between(low, high));
}

/// The columns of a random rotation.
template <unsigned D>
matrix_fixed<double, D, D> random_rotation(random_source& random)
{
    if constexpr (D == 2)
    {
        const double angle = random.between(-3.2, 3.2);
        return {std::cos(angle), std::sin(angle), -std::sin(angle), std::cos(angle)};
    }
    else
    {
        // From a random unit quaternion.
        double w = random.between(-1.0, 1.0);
        double x = random.between(-1.0, 1.0);
        double y = random.between(-1.0, 1.0);
        double z = random.between(-1.0, 1.0);
        const double length = std::sqrt(w * w + x * x + y * y + z * z);
        w /= length;
        x /= length;
        y /= length;
        z /= length;
        return {1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w), 2 * (x * y - z * w),    1 - 2 * (x * x + z * z),
                2 * (y * z + x * w),     2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)};
    }
}

/// The tensor of the given eigenvalues on a random rotation.
template <unsigned D>
symmetric_fixed<double, D> rotated(random_source& random, const vector_fixed<double, D>& eigenvalues)
{
    const auto q = random_rotation<D>(random);
    symmetric_fixed<double, D> m{};
    for (unsigned j = 0; j < D; ++j)
        for (unsigned i = 0; i <= j; ++i)
            for (unsigned k = 0; k < D; ++k) m(i, j) += eigenvalues[k] * q(i, k) * q(j, k);
    return m;
}

/// A positive definite tensor with eigenvalues within `decades` powers of ten of each other, around `scale`.
template <unsigned D>
symmetric_fixed<double, D> random_tensor(random_source& random, double decades, double scale = 1.0)
{
    vector_fixed<double, D> eigenvalues;
    for (double& value : eigenvalues.values) value = scale * random_magnitude(random, -decades / 2, decades / 2);
    return rotated<D>(random, eigenvalues);
}

template <unsigned D>
vector_fixed<double, D> random_vector(random_source& random)
{
    vector_fixed<double, D> u;
    for (double& x : u.values) x = random.between(-1.0, 1.0);
    return u;
}

/// uT M u in extended precision.
template <unsigned D>
double exact_form(const symmetric_fixed<double, D>& m, const vector_fixed<double, D>& u)
{
    long double sum = 0;
    for (unsigned i = 0; i < D; ++i)
        for (unsigned j = 0; j < D; ++j) sum += static_cast<long double>(m(i, j)) * u[i] * u[j];
    return static_cast<double>(sum);
}

/// Frobenius norm.
template <unsigned D>
double norm_of(const symmetric_fixed<double, D>& m)
{
    double sum = 0;
    for (unsigned i = 0; i < D; ++i)
        for (unsigned j = 0; j < D; ++j) sum += m(i, j) * m(i, j);
    return std::sqrt(sum);
}

/// A field of the listed tensors.
template <unsigned D>
dense2D<double> field_of(std::initializer_list<symmetric_fixed<double, D>> tensors)
{
    dense2D<double> field(symmetric_fixed<double, D>::count, static_cast<unsigned>(tensors.size()));
    unsigned c = 0;
    for (const auto& m : tensors) std::copy(std::begin(m.values), std::end(m.values), field.column(c++));
    return field;
}

} // namespace tq4::test
