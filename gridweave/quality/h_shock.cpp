#include <tq4/gridweave/quality.h>

#include "gridweave/core/points.h"
#include "gridweave/core/vector_math.h"
#include "gridweave/metrics/edge_measure.h"
#include "gridweave/quality/field.h"

namespace tq4::gridweave
{

namespace
{

/// Raises the entry of a node, where there is one, to `shock`. NaN raises nothing.
void raise(dense1D<double>& shocks, unsigned node, double shock)
{
    if (node < shocks.size && shocks[node] < shock) shocks[node] = shock;
}

template <unsigned D, class Field>
void raise_to_gradations(const dense2D<double>& pos, const dense2D<unsigned>& edges, const Field& field, dense1D<double>& shocks)
{
    const point_reader<D> at(pos);
    const auto metric_at = read_field<D>(field);
    for (unsigned c = 0; c < edges.cols; ++c)
    {
        const unsigned a = edges(0, c);
        const unsigned b = edges(1, c);
        if (!metric_at.has(a) || !metric_at.has(b)) continue;
        const double shock = edge_gradation(subtract(at[b], at[a]), metric_at[a], metric_at[b]);
        raise(shocks, a, shock);
        raise(shocks, b, shock);
    }
}

template <class Field>
int shocks_of(const dense2D<double>& pos, const dense2D<unsigned>& edges, const Field& field, dense1D<double>& shocks)
{
    if (edges.empty()) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (!check_IDs(edges, ELEM_BAR2, pos.cols)) return -2;

    // No code tells of exhausted memory; the vector then keeps the entries that it has, and only those take part.
    const unsigned present = shocks.size;
    if (!shocks.resize(pos.cols, 0.0)) shocks.size = present;

    if (pos.rows == 2)
        raise_to_gradations<2>(pos, edges, field, shocks);
    else
        raise_to_gradations<3>(pos, edges, field, shocks);
    return 0;
}

} // namespace

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics, dense1D<double>& shocks)
{
    return shocks_of(pos, edges, metrics, shocks);
}

int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense1D<double>& sizes, dense1D<double>& shocks)
{
    return shocks_of(pos, edges, sizes, shocks);
}

} // namespace tq4::gridweave
