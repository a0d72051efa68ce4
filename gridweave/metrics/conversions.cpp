#include <tq4/gridweave/metrics.h>

#include "gridweave/metrics/tensor.h"

namespace tq4::gridweave
{

namespace
{

using tangent_basis = matrix_fixed<double, 3, 2>;

constexpr unsigned tangent_rows = 6;

tangent_basis tangent_basis_at(const double* column)
{
    tangent_basis vectors;
    std::copy_n(column, tangent_rows, vectors.values);
    return vectors;
}

/// Adds f PT Q, a symmetric matrix, to m.
void accumulate_tangent_form(double f, const tangent_basis& p, const tangent_basis& q, tensor<2>& m)
{
    if (f == 0.0) return;
    for (unsigned i = 0; i < 2; ++i)
        for (unsigned j = 0; j <= i; ++j) m(j, i) += f * (p(0, j) * q(0, i) + p(1, j) * q(1, i) + p(2, j) * q(2, i));
}

/// The tensor of a size; all zero for a size that is not positive.
template <unsigned D>
tensor<D> tensor_of_size(double h)
{
    return h > 0.0 ? isotropic_tensor<D>(eigenvalue_of_size(h)) : tensor<D>{};
}

/// Writes the tensors of the positive sizes; the other columns keep what they hold.
template <unsigned D>
int store_tensors_of_sizes(const dense1D<double>& sizes, dense2D<double>& metrics)
{
    if (sizes.empty() && metrics.empty()) return 0;
    if (metrics.rows != tensor<D>::count || metrics.cols < sizes.size) return -2;

    for (unsigned i = 0; i < sizes.size; ++i)
        if (sizes[i] > 0.0) store(tensor_of_size<D>(sizes[i]), metrics.column(i));
    return 0;
}

} // namespace

void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M)
{
    M = tensor_of_size<2>(h);
}

void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M)
{
    M = tensor_of_size<3>(h);
}

void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& basis, symmetric_fixed<double, 2>& M)
{
    M = {};
    if (h > 0.0) accumulate_tangent_form(eigenvalue_of_size(h), basis, basis, M);
}

void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3, const matrix_fixed<double, 3, 2>& basis,
                               symmetric_fixed<double, 2>& M2)
{
    tangent_basis product;
    for (unsigned c = 0; c < 2; ++c)
        for (unsigned r = 0; r < 3; ++r) product(r, c) = M3(r, 0) * basis(0, c) + M3(r, 1) * basis(1, c) + M3(r, 2) * basis(2, c);
    M2 = {};
    accumulate_tangent_form(1.0, basis, product, M2);
}

int metrics_iso_to_aniso2d(const dense1D<double>& sizes, dense2D<double>& metrics)
{
    return store_tensors_of_sizes<2>(sizes, metrics);
}

int metrics_iso_to_aniso3d(const dense1D<double>& sizes, dense2D<double>& metrics)
{
    return store_tensors_of_sizes<3>(sizes, metrics);
}

int metrics_iso_to_aniso2d(const dense1D<double>& sizes, const dense2D<double>& bases, dense2D<double>& metrics)
{
    if (sizes.empty() && bases.empty() && metrics.empty()) return 0;
    if (bases.rows != tangent_rows || bases.cols != sizes.size) return -2;
    if (metrics.rows != tensor<2>::count || metrics.cols < sizes.size) return -3;

    for (unsigned i = 0; i < sizes.size; ++i)
    {
        tensor<2> m;
        metric_iso_to_aniso2d(sizes[i], tangent_basis_at(bases.column(i)), m);
        store(m, metrics.column(i));
    }
    return 0;
}

int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d, const dense2D<double>& bases, dense2D<double>& metrics2d)
{
    if (metrics3d.empty() && bases.empty() && metrics2d.empty()) return 0;
    if (metrics3d.rows != tensor<3>::count) return -1;
    if (bases.rows != tangent_rows || bases.cols != metrics3d.cols) return -2;
    if (metrics2d.rows != tensor<2>::count || metrics2d.cols < metrics3d.cols) return -3;

    for (unsigned c = 0; c < metrics3d.cols; ++c)
    {
        tensor<2> m;
        metric_aniso3d_to_aniso2d(tensor_at<3>(metrics3d.column(c)), tangent_basis_at(bases.column(c)), m);
        store(m, metrics2d.column(c));
    }
    return 0;
}

} // namespace tq4::gridweave
