#pragma once

// The vocabulary of metric tensors. A tensor holds inverse squared sizes: along a unit vector u the size is 1 / sqrt(uT M u).
//
// Sums and products stand in a fixed order throughout: results are fixed to the last bit, and ties between equal values depend on it.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <type_traits>

#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4::gridweave
{

template <unsigned D>
using tensor = symmetric_fixed<double, D>;

/// D vectors of D components; vector k is column k.
template <unsigned D>
using basis = matrix_fixed<double, D, D>;

/// Vector k of a basis.
template <unsigned D>
vector_fixed<double, D> basis_vector(const basis<D>& vectors, unsigned k)
{
    vector_fixed<double, D> column;
    std::copy_n(&vectors.values[k * D], D, column.values);
    return column;
}

template <unsigned D>
void set_basis_vector(basis<D>& vectors, unsigned k, const vector_fixed<double, D>& column)
{
    std::copy_n(column.values, D, &vectors.values[k * D]);
}

/// The tensor in a column of a metric field.
template <unsigned D>
tensor<D> tensor_at(const double* column)
{
    tensor<D> m;
    std::copy_n(column, tensor<D>::count, m.values);
    return m;
}

template <unsigned D>
void store(const tensor<D>& m, double* column)
{
    std::copy_n(m.values, tensor<D>::count, column);
}

/// Calls `worker(dimension)`, with the dimension as a compile-time constant, for the rows of a metric field: 3 rows hold 2-D tensors,
/// 6 rows 3-D ones. Any other row count is no metric field; nothing is called and the result is default-constructed.
template <class Worker>
auto with_tensor_dimension(unsigned rows, Worker&& worker)
{
    using in_plane = std::integral_constant<unsigned, 2>;
    using in_space = std::integral_constant<unsigned, 3>;
    using result = decltype(worker(in_plane{}));
    if (rows == tensor<2>::count) return worker(in_plane{});
    if (rows == tensor<3>::count) return worker(in_space{});
    return result();
}

constexpr bool is_metric_rows(unsigned rows)
{
    return rows == tensor<2>::count || rows == tensor<3>::count;
}

/// The eigenvalue that stands for the size h.
inline double eigenvalue_of_size(double h)
{
    return 1.0 / (h * h);
}

/// The tensor of one eigenvalue in all directions.
template <unsigned D>
tensor<D> isotropic_tensor(double eigenvalue)
{
    tensor<D> m{};
    for (unsigned k = 0; k < D; ++k) m(k, k) = eigenvalue;
    return m;
}

template <unsigned D>
bool all_finite(const tensor<D>& m)
{
    return std::all_of(m.values, m.values + tensor<D>::count, [](double entry) { return std::isfinite(entry); });
}

/// True when every value lies strictly between 0 and DBL_MAX; NaN does not.
template <unsigned N>
bool all_in_open_range(const vector_fixed<double, N>& values)
{
    bool inside = true;
    for (unsigned k = 0; k < N; ++k) inside &= 0.0 < values[k] && values[k] < DBL_MAX;
    return inside;
}

/// uT M u
inline double quadratic_form(const tensor<2>& m, const vector_fixed<double, 2>& u)
{
    const double x = u[0];
    const double y = u[1];
    return m[0] * (x * x) + y * (m[2] * y + 2.0 * m[1] * x);
}

inline double quadratic_form(const tensor<3>& m, const vector_fixed<double, 3>& u)
{
    const double x = u[0];
    const double y = u[1];
    const double z = u[2];
    return m[0] * (x * x) + y * (m[2] * y + 2.0 * m[1] * x) + z * (2.0 * m[3] * x + 2.0 * m[4] * y + m[5] * z);
}

/// The tensor with the given values on the given vectors: the sum of value_k q_k q_kT.
inline tensor<2> compose_metric(const vector_fixed<double, 2>& values, const basis<2>& q)
{
    const auto entry = [&](unsigned i, unsigned j) { return values[1] * q(i, 1) * q(j, 1) + values[0] * q(i, 0) * q(j, 0); };
    return {entry(0, 0), entry(0, 1), entry(1, 1)};
}

inline tensor<3> compose_metric(const vector_fixed<double, 3>& values, const basis<3>& q)
{
    const auto entry = [&](unsigned i, unsigned j) {
        return values[0] * q(i, 0) * q(j, 0) + values[1] * q(i, 1) * q(j, 1) + values[2] * q(i, 2) * q(j, 2);
    };
    return {entry(0, 0), entry(0, 1), entry(1, 1), entry(0, 2), entry(1, 2), entry(2, 2)};
}

} // namespace tq4::gridweave
