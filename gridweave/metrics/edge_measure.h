#pragma once

// How much a field changes along an edge: the gradation and the variation, which the relaxations limit and the quality functions report.

#include <cfloat>
#include <cmath>

#include "gridweave/core/vector_math.h"
#include "gridweave/metrics/length.h"

namespace tq4::gridweave
{

/// An edge seen by a field: its metric length, and the lengths that it has under the metric of each end alone.
struct edge_lengths
{
    double metric;
    double s0;
    double s1;
};

/// Measures an edge of length `d` between two sizes.
inline edge_lengths lengths_of_edge(double d, double h0, double h1)
{
    return {logarithmic_length(d, h0, h1, false), d / h0, d / h1};
}

template <unsigned D>
edge_lengths lengths_of_edge(const vector_fixed<double, D>& u, double h0, double h1)
{
    return lengths_of_edge(norm(u), h0, h1);
}

/// Measures an edge between two tensors.
template <unsigned D>
edge_lengths lengths_of_edge(const vector_fixed<double, D>& u, const tensor<D>& m0, const tensor<D>& m1)
{
    edge_lengths lengths{};
    lengths.metric = metric_edge_length(u, m0, m1, false, lengths.s0, lengths.s1);
    return lengths;
}

/// Equal in all stored entries; NaN equals nothing.
inline bool equal_metrics(double h0, double h1)
{
    return h0 == h1;
}

template <unsigned D>
bool equal_metrics(const tensor<D>& m0, const tensor<D>& m1)
{
    for (unsigned k = 0; k < tensor<D>::count; ++k)
        if (!(m0[k] == m1[k])) return false;
    return true;
}

/// The growth of the size over an edge of unit metric length: 0 between equal sizes, g when neighbouring elements grow by a factor 1 + g.
/// An edge between different metrics that has no measurable length is DBL_MAX, one of infinite length is 0. Symmetric in the two ends, to
/// the last bit.
template <class Metric>
double gradation_of(const edge_lengths& edge, const Metric& m0, const Metric& m1)
{
    constexpr double least_length = 1e-12;
    constexpr double largest_exponent = 700;

    if (edge.metric < least_length) return equal_metrics(m0, m1) ? 0 : DBL_MAX;
    if (!(edge.metric < DBL_MAX)) return 0;
    const double ratio = edge.s0 < edge.s1 ? edge.s1 / edge.s0 : edge.s0 / edge.s1;
    const double x = std::log(ratio) / edge.metric;
    if (!(x < largest_exponent)) return DBL_MAX;
    return std::exp(x) - 1;
}

/// The size difference per unit of real length, |h0 - h1| / |u|, in the sizes that the metrics have along the edge. An edge between
/// different metrics is DBL_MAX when its metric length is exactly 0, one of infinite length is 0. Symmetric like the gradation.
template <class Metric>
double variation_of(const edge_lengths& edge, const Metric& m0, const Metric& m1)
{
    if (edge.metric == 0) return equal_metrics(m0, m1) ? 0 : DBL_MAX;
    if (!(edge.metric < DBL_MAX)) return 0;
    return std::fabs(edge.s0 - edge.s1) / (edge.s0 * edge.s1);
}

/// Gradation of the edge with the vector `u` between two metrics: sizes or tensors of the dimension of `u`.
template <unsigned D, class Metric>
double edge_gradation(const vector_fixed<double, D>& u, const Metric& m0, const Metric& m1)
{
    return gradation_of(lengths_of_edge(u, m0, m1), m0, m1);
}

/// Variation of the edge with the vector `u` between two metrics.
template <unsigned D, class Metric>
double edge_variation(const vector_fixed<double, D>& u, const Metric& m0, const Metric& m1)
{
    return variation_of(lengths_of_edge(u, m0, m1), m0, m1);
}

/// What is cheap to know of an edge: its metric length is `span` over the logarithmic mean of its ends. Between sizes these are the real
/// length and the sizes, between tensors the lengths s0 and s1 under either metric and their product.
///
/// Both measures are simple in these terms. With the rise |end0 - end1| / span as x, the variation is x and the gradation exp(x) - 1: the
/// logarithms of the ends' ratio and of their mean cancel. What the definitions give differs from that by rounding, and by what the
/// series of the logarithmic mean leaves out; so it bounds them closely, and mostly tells all that the relaxations ask for.
struct edge_terms
{
    double span;
    double end0;
    double end1;

    double low() const { return end1 < end0 ? end1 : end0; }
    double high() const { return end1 < end0 ? end0 : end1; }

    /// True when no step of the measures overflows, underflows or meets one of their special cases: the metric length lies between
    /// span / high and span / low. False with a NaN.
    bool is_regular() const
    {
        constexpr double smallest = 1e-70; // quotients of two such values can still be multiplied
        constexpr double largest = 1e70;
        constexpr double least_length = 2e-12;
        return low() > smallest && high() < largest && span < largest && span > least_length * high();
    }
};

/// Bounds of a measure.
struct measure_bounds
{
    double low;
    double high;
};

/// Bounds of the variation of a regular edge with different ends.
inline measure_bounds variation_bounds(const edge_terms& edge)
{
    const double rise = edge.high() - edge.low();
    const double variation = rise / edge.span;
    // The definition subtracts rounded values of the size of the ends.
    const double error = 4e-15 + 1e-15 * (edge.high() / rise);
    return {variation * (1 - error), variation * (1 + error)};
}

/// Bounds of the gradation of a regular edge with different ends and of an exponent rise / span that exp can take.
inline measure_bounds gradation_bounds(const edge_terms& edge)
{
    const double rise = edge.high() - edge.low();
    const double r = rise / edge.low();
    double x = rise / edge.span;
    // The ratio of the ends is rounded before its logarithm is taken.
    double error = 2e-14 + 1e-15 / r;
    if (r < 0.1)
    {
        // The terms of r / ln(1 + r) behind those of the series, the fifth to the seventh; the error is that of the eighth.
        const double r4 = (r * r) * (r * r);
        const double missing = r4 * r * (3.0 / 160 - r * (863.0 / 60480 - r * (275.0 / 24192)));
        x *= 1 - missing / ratio_to_logarithm(r);
        error += 0.01 * (r4 * r4);
    }
    const double gradation = std::exp(x) - 1;
    const double total = error * (1 + x) + 1e-15 * (1 + 1 / x);
    return {gradation * (1 - total), gradation * (1 + total)};
}

} // namespace tq4::gridweave
