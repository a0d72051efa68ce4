#pragma once

// The length of an edge under a metric. The wanted size is taken to vary linearly along the edge between the sizes at its ends, and the
// length is the integral of 1 / size along it: the real length over the logarithmic mean of the end sizes. Gradation, variation, edge
// quality and shock all measure edges here, so what one of them limits is what another one reports.

#include "gridweave/metrics/tensor.h"

namespace tq4::gridweave
{

/// r / ln(1 + r). Below a tenth a series takes the place of the logarithm: nearly equal ends are the common case.
inline double ratio_to_logarithm(double r)
{
    if (!(r < 0.1)) return r / std::log(1.0 + r);
    constexpr double third = 1.0 / 3.0;
    constexpr double fourth_coefficient = 0.42222222222222217; // the double below 19 / 45: results are fixed to the bit, so it stays
    const double x = r / 2.0;
    return 1.0 + x * (1.0 - x * (third - x * (third - fourth_coefficient * x)));
}

/// `length` over the logarithmic mean H of the end values s0 and s1. With `invert`, the inverse where that is below 1: a value of at most
/// 1 that is 1 for an edge of exactly unit length. 0 stands for what cannot be measured: H not positive, or NaN.
inline double logarithmic_length(double length, double s0, double s1, bool invert)
{
    const bool swapped = s1 < s0;
    const double low = swapped ? s1 : s0;
    const double high = swapped ? s0 : s1;
    const double mean = low * ratio_to_logarithm((high - low) / low);
    if (invert && length > mean) return mean / length;
    if (0.0 < mean) return length / mean;
    return 0.0;
}

/// Length of the edge vector u between ends with the metrics m0 and m1. s0 and s1 become its lengths under either metric alone. Where one
/// of them cannot be had (u is zero, a metric is not positive along u, NaN) the length is 0 and they hold their squares, uT M u.
template <unsigned D>
double metric_edge_length(const vector_fixed<double, D>& u, const tensor<D>& m0, const tensor<D>& m1, bool invert, double& s0, double& s1)
{
    s0 = quadratic_form(m0, u);
    s1 = quadratic_form(m1, u);
    if (!(s0 > 0.0) || !(s1 > 0.0)) return 0.0;
    s0 = std::sqrt(s0);
    s1 = std::sqrt(s1);
    // The sizes along the edge are |u| / s0 and |u| / s1; |u| over their logarithmic mean is s0 s1 over that of s0 and s1.
    return logarithmic_length(s0 * s1, s0, s1, invert);
}

} // namespace tq4::gridweave
