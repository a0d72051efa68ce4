#include "gridweave/metrics/eigen.h"

#include <tq4/gridweave/metrics.h>
#include <tq4/numcore/lapack.h>

#include "gridweave/metrics/validity.h"

namespace tq4::gridweave
{

namespace
{

/// Factors (a b; b c) into UT U in place, a, b and c becoming the entries of U. A first row of zeros is skipped. False, with the entries
/// as they were, when the block is not positive semidefinite.
bool cholesky_block_2x2(double& a, double& b, double& c)
{
    if (a == 0.0 && b == 0.0)
    {
        if (!(c >= 0.0)) return false;
        c = std::sqrt(c);
        return true;
    }
    const double det = a * c - b * b;
    if (!(a > 0.0) || !(det >= 0.0)) return false;
    a = std::sqrt(a);
    b = b / a;
    c = std::sqrt(det) / a;
    return true;
}

/// The packed upper triangular U with m = UT U. A zero row in the first or second place is passed over and stays zero in U. False when m
/// is not positive semidefinite.
bool cholesky_factor(const tensor<3>& m, tensor<3>& u)
{
    u = m;
    if (m(0, 0) == 0.0 && m(0, 1) == 0.0 && m(0, 2) == 0.0) return cholesky_block_2x2(u(1, 1), u(1, 2), u(2, 2));
    if (m(0, 1) == 0.0 && m(1, 1) == 0.0 && m(1, 2) == 0.0) return cholesky_block_2x2(u(0, 0), u(0, 2), u(2, 2));

    const double det = m(0, 0) * m(1, 1) - m(0, 1) * m(0, 1);
    if (!(m(0, 0) > 0.0) || !(det > 0.0)) return false;
    const double root = std::sqrt(det);
    u(0, 0) = std::sqrt(m(0, 0));
    u(0, 1) = m(0, 1) / u(0, 0);
    u(0, 2) = m(0, 2) / u(0, 0);
    u(1, 1) = root / u(0, 0);
    u(1, 2) = (m(0, 0) * m(1, 2) - m(0, 1) * m(0, 2)) / (root * u(0, 0));
    const double remainder = m(2, 2) - u(0, 2) * u(0, 2) - u(1, 2) * u(1, 2);
    if (!(remainder >= 0.0)) return false;
    u(2, 2) = std::sqrt(remainder);
    return true;
}

/// Adjugate of the upper triangular U: its determinant times its inverse, which exists where the inverse does not.
basis<3> adjugate(const tensor<3>& u)
{
    basis<3> w{};
    w(0, 0) = u(1, 1) * u(2, 2);
    w(0, 1) = -u(0, 1) * u(2, 2);
    w(0, 2) = u(0, 1) * u(1, 2) - u(0, 2) * u(1, 1);
    w(1, 1) = u(0, 0) * u(2, 2);
    w(1, 2) = -u(0, 0) * u(1, 2);
    w(2, 2) = u(0, 0) * u(1, 1);
    return w;
}

/// WT m W for an upper triangular W.
tensor<3> congruence_packed(const tensor<3>& m, const basis<3>& w)
{
    basis<3> product{};
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned r = 0; r < 3; ++r)
            for (unsigned k = 0; k <= c; ++k) product(r, c) += m(r, k) * w(k, c);

    tensor<3> result{};
    for (unsigned c = 0; c < 3; ++c)
        for (unsigned r = 0; r <= c; ++r)
            for (unsigned k = 0; k <= r; ++k) result(r, c) += w(k, r) * product(k, c);
    return result;
}

} // namespace

bool generalized_eigen_pairs_3d(const tensor<3>& A, const tensor<3>& B, vector_fixed<double, 3>& values, basis<3>& vectors)
{
    if (!all_finite(A) || !all_finite(B)) return false;
    tensor<3> u;
    if (!cholesky_factor(A, u)) return false;

    // With the adjugate in place of the inverse nothing is divided by: eigenvalues come out too large by the square of the determinant.
    const basis<3> w = adjugate(u);
    basis<3> z;
    if (!eigen_pairs(congruence_packed(B, w), values, z)) return false;

    const double det = u(0, 0) * u(1, 1) * u(2, 2);
    const double scale = 1.0 / (det * det);
    for (unsigned k = 0; k < 3; ++k)
    {
        values[k] *= scale;
        vectors(0, k) = w(0, 0) * z(0, k) + w(0, 1) * z(1, k) + w(0, 2) * z(2, k);
        vectors(1, k) = w(1, 1) * z(1, k) + w(1, 2) * z(2, k);
        vectors(2, k) = w(2, 2) * z(2, k);
    }
    normalize_vectors(vectors);
    return true;
}

bool eigen_pairs(const symmetric_fixed<double, 2>& M, vector_fixed<double, 2>& values, matrix_fixed<double, 2, 2>& vectors)
{
    vector_fixed<double, 2> e0;
    vector_fixed<double, 2> e1;
    if (!symmetric_eigen_pairs_2d(M[0], M[1], M[2], values[0], values[1], e0, e1, true)) return false;
    set_basis_vector(vectors, 0, e0);
    set_basis_vector(vectors, 1, e1);
    return true;
}

bool eigen_pairs(const symmetric_fixed<double, 3>& M, vector_fixed<double, 3>& values, matrix_fixed<double, 3, 3>& vectors)
{
    // What LAPACK makes of NaN and infinity differs from build to build; they never get there.
    if (!all_finite(M)) return false;
    tensor<3> packed = M;
    double work[10] = {};
    long info = 0;
    lapack::dspev('V', 'U', 3, packed.values, values.values, vectors.values, 3, work, info);
    return info == 0;
}

bool eigen_pairs(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B, vector_fixed<double, 2>& values,
                 matrix_fixed<double, 2, 2>& vectors)
{
    return generalized_eigen_pairs_2d(A, B, values, vectors);
}

bool eigen_pairs(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B, vector_fixed<double, 3>& values,
                 matrix_fixed<double, 3, 3>& vectors)
{
    return generalized_eigen_pairs_3d(A, B, values, vectors);
}

namespace
{

/// Limits the eigenvalues, which ascend, to lower ... upper and tells whether that changed anything. The lower limit comes last and wins
/// where the limits cross; the values above the first then follow it, so that they still ascend.
template <unsigned D>
bool clamp_eigenvalues(vector_fixed<double, D>& values, double lower, double upper)
{
    bool changed = false;
    const auto cut = [&](double& value) {
        if (!(value > upper)) return;
        value = upper;
        changed = true;
    };
    const auto raise = [&](double& value, double least) {
        if (!(value < least)) return;
        value = least;
        changed = true;
    };

    cut(values[0]);
    raise(values[0], lower);
    for (unsigned k = 1; k < D; ++k)
    {
        cut(values[k]);
        raise(values[k], values[0]);
    }
    return changed;
}

/// Limits the sizes of a tensor. True when it has changed and is valid; a tensor that has changed and is not valid by rounding stays
/// changed all the same.
template <unsigned D>
bool bound_metric_core(tensor<D>& m, double hmin, double hmax)
{
    // Seen on eigenvalues the limits swap.
    const double upper = hmin > 0.0 ? eigenvalue_of_size(hmin) : DBL_MAX;
    const double lower = hmax > 0.0 ? eigenvalue_of_size(hmax) : 0.0;

    // Most tensors of most fields need no change, which can be told without their eigenvalues.
    if constexpr (D == 3)
        if (has_eigenvalues_within(m, lower, upper)) return false;

    vector_fixed<double, D> values;
    basis<D> vectors;
    if (eigen_pairs(m, values, vectors))
    {
        if (!clamp_eigenvalues(values, lower, upper)) return false;
    }
    else
    {
        // A broken metric becomes the isotropic one of the smallest size. Without an hmin the test below refuses that.
        std::fill_n(values.values, D, upper);
        vectors = {};
        for (unsigned k = 0; k < D; ++k) vectors(k, k) = 1.0;
    }
    if (!all_in_open_range(values)) return false;
    m = compose_metric(values, vectors);
    return is_valid_tensor(m);
}

bool is_unbounded(double hmin, double hmax)
{
    return hmin <= 0.0 && hmax == DBL_MAX;
}

template <unsigned D>
int bound_tensor(tensor<D>& m, double hmin, double hmax)
{
    if (is_unbounded(hmin, hmax)) return 0;
    if (!std::isfinite(hmin)) return -2;
    if (!std::isfinite(hmax)) return -3;
    return bound_metric_core(m, hmin, hmax) ? 1 : 0;
}

/// Limits the sizes and calls `report(index)` for each that changed; the result is their count or a code.
template <class Report>
int bound_sizes(dense1D<double>& sizes, double hmin, double hmax, Report&& report)
{
    if (sizes.empty()) return 0;
    if (is_unbounded(hmin, hmax)) return 0;
    if (!std::isfinite(hmin)) return -2;
    if (!std::isfinite(hmax)) return -3;

    int changed = 0;
    for (unsigned i = 0; i < sizes.size; ++i)
    {
        if (sizes[i] < hmin)
            sizes[i] = hmin;
        else if (sizes[i] > hmax)
            sizes[i] = hmax;
        else
            continue;
        ++changed;
        report(i);
    }
    return changed;
}

/// Limits the columns and calls `report(index)` for each that changed and is valid; the result is their count or a code.
template <class Report>
int bound_tensors(dense2D<double>& metrics, double hmin, double hmax, Report&& report)
{
    if (metrics.empty()) return 0;
    if (is_unbounded(hmin, hmax)) return 0;
    if (!is_metric_rows(metrics.rows)) return -1;
    if (!std::isfinite(hmin)) return -2;
    if (!std::isfinite(hmax)) return -3;

    const auto bound_columns = [&](auto dimension) {
        int changed = 0;
        double* column = metrics.data();
        for (unsigned c = 0; c < metrics.cols; ++c, column += metrics.ld)
        {
            auto m = tensor_at<dimension>(column);
            const bool counts = bound_metric_core(m, hmin, hmax);
            store(m, column);
            if (!counts) continue;
            ++changed;
            report(c);
        }
        return changed;
    };
    return with_tensor_dimension(metrics.rows, bound_columns);
}

constexpr auto report_nothing = [](unsigned) {};

} // namespace

int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax)
{
    return bound_tensor(M, hmin, hmax);
}

int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax)
{
    return bound_tensor(M, hmin, hmax);
}

int bound_metrics(dense1D<double>& sizes, double hmin, double hmax)
{
    return bound_sizes(sizes, hmin, hmax, report_nothing);
}

int bound_metrics(dense1D<double>& sizes, double hmin, double hmax, dense1D<unsigned>& changed)
{
    changed.size = 0;
    const int count = bound_sizes(sizes, hmin, hmax, [&](unsigned i) { changed.push_back(i); });
    return count < 0 ? count : static_cast<int>(changed.size);
}

int bound_metrics(dense2D<double>& metrics, double hmin, double hmax)
{
    return bound_tensors(metrics, hmin, hmax, report_nothing);
}

int bound_metrics(dense2D<double>& metrics, double hmin, double hmax, dense1D<unsigned>& changed)
{
    changed.size = 0;
    const int count = bound_tensors(metrics, hmin, hmax, [&](unsigned c) { changed.push_back(c); });
    return count < 0 ? count : static_cast<int>(changed.size);
}

} // namespace tq4::gridweave
