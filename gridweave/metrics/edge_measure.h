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

} // namespace tq4::gridweave
