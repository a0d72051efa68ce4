#include <algorithm>
#include <cfloat>
#include <cmath>

#include <tq4/gridweave/metrics.h>

#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

namespace
{

double distance(const double* a, const double* b, unsigned rows)
{
    double sum = 0.0;
    for (unsigned r = 0; r < rows; ++r) sum += (b[r] - a[r]) * (b[r] - a[r]);
    return std::sqrt(sum);
}

/// Gathers the sizes of the nodes that edges of positive and finite length meet at: each starts at `start` and then takes
/// `gather(size, length)` from every edge of every element. `counts` are the edge ends at each node; a node without any is not touched.
template <class Gather>
void gather_edges(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, topology shape_of_all, dense1D<double>& sizes,
                  dense1D<unsigned>& counts, double start, Gather&& gather)
{
    double* const size = sizes.data();
    unsigned* const count = counts.data();
    const auto add = [&](unsigned node, double length) {
        size[node] = gather(count[node] == 0 ? start : size[node], length);
        ++count[node];
    };

    for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned, const unsigned* nodes) {
        // The table's edges run in the order that sums at a node depend on. Their direction plays no part: both ends are
        // treated alike, and a length is the same bits either way.
        for (const local_edge edge : shape.edges)
        {
            const unsigned a = nodes[edge.a];
            const unsigned b = nodes[edge.b];
            const double length = distance(pos.column(a), pos.column(b), pos.rows);
            if (!(0.0 < length && length <= DBL_MAX)) continue;
            add(a, length);
            add(b, length);
        }
    });
}

} // namespace

int metrics_gen_iso(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, dense1D<double>& sizes, double p)
{
    if (connectivity.empty()) return 0;
    kind = narrow(kind, connectivity.rows);
    if (element_dim(kind) > pos.rows) return -1;
    if (!check_IDs(connectivity, kind, pos.cols)) return -2;
    if (p < 0.0) return -5;
    const unsigned count = std::max(sizes.size, pos.cols);
    if (!sizes.resize(count, 0.0)) return out_of_memory;
    const topology shape = linear_topology(kind);
    if (shape == topology::none) return -3;
    dense1D<unsigned> edge_ends;
    if (!edge_ends.resize(count, 0)) return out_of_memory;

    const auto gather = [&](double start, auto&& rule) { gather_edges(pos, connectivity, shape, sizes, edge_ends, start, rule); };
    if (p == 0.0)
        gather(DBL_MAX, [](double size, double length) { return std::min(size, length); });
    else if (p == DBL_MAX)
        gather(0.0, [](double size, double length) { return std::max(size, length); });
    else if (p == 1.0)
        gather(0.0, [](double size, double length) { return size + length; }); // the power of 1 is exact
    else
        gather(0.0, [p](double size, double length) { return size + std::pow(length, p); });

    // An infinite or NaN power takes no root.
    if (!(0.0 < p && p < DBL_MAX)) return 0;
    const double inverse = 1.0 / p;
    for (unsigned node = 0; node < count; ++node)
    {
        if (edge_ends[node] == 0) continue;
        const double mean = sizes[node] / edge_ends[node];
        sizes[node] = p == 1.0 ? mean : std::pow(mean, inverse);
    }
    return 0;
}

} // namespace tq4::gridweave
