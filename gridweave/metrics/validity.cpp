#include "gridweave/metrics/validity.h"

#include <tq4/gridweave/metrics.h>
#include <tq4/numcore/lapack.h>

namespace tq4::gridweave
{

namespace
{

/// Half the width of the band of eigenvalues around a limit, relative to the sum of the entries' magnitudes, in which the exact eigenvalue
/// and the computed one may lie on different sides of it. The norm of the tensor is at most that sum; the errors of LAPACK's eigenvalues
/// and those of the pivots below are some tens of units of 2^-53 times the norm, so 2^-40 leaves a factor of a hundred.
constexpr double doubtful = 0x1p-40;

/// Sums of magnitudes within which no product of four entries, cancelled as far as doubles can cancel, overflows or underflows.
constexpr double smallest_safe_sum = 0x1p-100;
constexpr double largest_safe_sum = 0x1p+100;

double sum_of_magnitudes(const tensor<3>& m)
{
    return std::abs(m[0]) + std::abs(m[1]) + std::abs(m[2]) + std::abs(m[3]) + std::abs(m[4]) + std::abs(m[5]);
}

/// m plus a multiple of the unit tensor.
tensor<3> shifted(const tensor<3>& m, double shift)
{
    return {m[0] + shift, m[1], m[2] + shift, m[3], m[4], m[5] + shift};
}

tensor<3> negated(const tensor<3>& m)
{
    return {-m[0], -m[1], -m[2], -m[3], -m[4], -m[5]};
}

/// True when the tensor is positive definite, to rounding of its entries: all pivots of the elimination without divisions are positive.
/// Each of p, q, r is the exact value for entries off by a few units of 2^-53 of the norm, and so is the sign of the last line.
bool has_positive_pivots(const tensor<3>& m)
{
    const double p = m[0] * m[2] - m[1] * m[1];
    const double q = m[0] * m[5] - m[3] * m[3];
    const double r = m[0] * m[4] - m[1] * m[3];
    return (0.0 < m[0]) & (0.0 < p) & (0.0 < p * q - r * r);
}

bool has_positive_eigenvalues(tensor<3> m)
{
    double eigenvalues[3] = {};
    double work[10] = {};
    long info = 0;
    lapack::dspev('N', 'U', 3, m.values, eigenvalues, nullptr, 1, work, info);
    return 0.0 < eigenvalues[0];
}

} // namespace

bool is_valid_tensor(const tensor<3>& m)
{
    const double sum = sum_of_magnitudes(m);
    if (smallest_safe_sum <= sum && sum <= largest_safe_sum)
    {
        const double margin = doubtful * sum;
        if (has_positive_pivots(shifted(m, -margin))) return true;
        if (!has_positive_pivots(shifted(m, margin))) return false;
    }
    // What LAPACK makes of NaN and infinity differs from build to build; they never get there.
    return all_finite(m) && has_positive_eigenvalues(m);
}

bool has_eigenvalues_within(const tensor<3>& m, double lower, double upper)
{
    const double sum = sum_of_magnitudes(m);
    if (!(smallest_safe_sum <= sum && sum <= largest_safe_sum)) return false;
    const double margin = doubtful * sum;
    if (!has_positive_pivots(shifted(m, -(lower + margin)))) return false;
    return sum + margin <= upper || has_positive_pivots(shifted(negated(m), upper - margin));
}

namespace
{

template <class Test>
unsigned first_failing(unsigned count, Test&& passes)
{
    unsigned k = 0;
    while (k < count && passes(k)) ++k;
    return k;
}

} // namespace

bool is_valid_metric(const symmetric_fixed<double, 2>& M)
{
    return is_valid_tensor(M);
}

bool is_valid_metric(const symmetric_fixed<double, 3>& M)
{
    return is_valid_tensor(M);
}

unsigned first_invalid_metric(const dense1D<double>& sizes)
{
    return first_failing(sizes.size, [&](unsigned i) { return is_valid_size(sizes[i]); });
}

unsigned first_invalid_metric(const dense2D<double>& metrics)
{
    return with_tensor_dimension(metrics.rows, [&](auto dimension) {
        return first_failing(metrics.cols, [&](unsigned c) { return is_valid_tensor(tensor_at<dimension>(metrics.column(c))); });
    });
}

unsigned first_invalid_metric(const dense1D<unsigned>& indices, const dense1D<double>& sizes)
{
    return first_failing(indices.size, [&](unsigned k) { return indices[k] < sizes.size && is_valid_size(sizes[indices[k]]); });
}

unsigned first_invalid_metric(const dense1D<unsigned>& indices, const dense2D<double>& metrics)
{
    return with_tensor_dimension(metrics.rows, [&](auto dimension) {
        return first_failing(indices.size, [&](unsigned k) {
            return indices[k] < metrics.cols && is_valid_tensor(tensor_at<dimension>(metrics.column(indices[k])));
        });
    });
}

bool are_valid_metrics(const dense1D<double>& sizes)
{
    return first_invalid_metric(sizes) == sizes.size;
}

bool are_valid_metrics(const dense2D<double>& metrics)
{
    return first_invalid_metric(metrics) == metrics.cols;
}

bool are_valid_metrics(const dense1D<unsigned>& indices, const dense1D<double>& sizes)
{
    return first_invalid_metric(indices, sizes) == indices.size;
}

bool are_valid_metrics(const dense1D<unsigned>& indices, const dense2D<double>& metrics)
{
    return first_invalid_metric(indices, metrics) == indices.size;
}

void valid_metrics(const dense2D<double>& metrics, dense1D<unsigned>& indices)
{
    const auto list_valid = [&](auto dimension) {
        for (unsigned c = 0; c < metrics.cols; ++c)
            if (is_valid_tensor(tensor_at<dimension>(metrics.column(c)))) indices.push_back(c);
    };
    with_tensor_dimension(metrics.rows, list_valid);
}

int overwrite_invalid_metrics(dense1D<double>& sizes, const dense1D<double>& fallback)
{
    int replaced = 0;
    const unsigned count = std::min(sizes.size, fallback.size);
    for (unsigned i = 0; i < count; ++i)
    {
        // Deliberately not the test of a valid size: NaN and huge sizes are not this function's business.
        if (!(fallback[i] > 0.0 && sizes[i] <= 0.0)) continue;
        sizes[i] = fallback[i];
        ++replaced;
    }
    return replaced;
}

int overwrite_invalid_metrics(dense2D<double>& metrics, const dense2D<double>& fallback)
{
    if (metrics.empty()) return 0;
    if (!is_metric_rows(metrics.rows)) return -1;
    if (fallback.rows != metrics.rows) return -2;

    const auto replace_columns = [&](auto dimension) {
        int replaced = 0;
        const unsigned count = std::min(metrics.cols, fallback.cols);
        for (unsigned c = 0; c < count; ++c)
        {
            const auto spare = tensor_at<dimension>(fallback.column(c));
            if (is_valid_tensor(tensor_at<dimension>(metrics.column(c))) || !is_valid_tensor(spare)) continue;
            store(spare, metrics.column(c));
            ++replaced;
        }
        return replaced;
    };
    return with_tensor_dimension(metrics.rows, replace_columns);
}

int overwrite_invalid_metrics(dense2D<double>& metrics, const dense1D<double>& fallback)
{
    if (metrics.empty()) return 0;
    if (!is_metric_rows(metrics.rows)) return -1;

    const auto replace_columns = [&](auto dimension) {
        int replaced = 0;
        const unsigned count = std::min(metrics.cols, fallback.size);
        for (unsigned c = 0; c < count; ++c)
        {
            if (!(fallback[c] > 0.0) || is_valid_tensor(tensor_at<dimension>(metrics.column(c)))) continue;
            store(isotropic_tensor<dimension>(eigenvalue_of_size(fallback[c])), metrics.column(c));
            ++replaced;
        }
        return replaced;
    };
    return with_tensor_dimension(metrics.rows, replace_columns);
}

} // namespace tq4::gridweave
