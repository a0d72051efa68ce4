#include <algorithm>
#include <cstddef>

#include <tq4/gridweave/quality.h>

#include "gridweave/connectivity/edges.h"
#include "gridweave/core/points.h"
#include "gridweave/core/vector_math.h"
#include "gridweave/metrics/length.h"
#include "gridweave/metrics/validity.h"
#include "gridweave/quality/field.h"

namespace tq4::gridweave
{

namespace
{

/// Takes the columns of `skipped`, in either direction, out of a sorted edge list. Where memory runs out for a copy of them nothing is
/// taken out.
void remove_edges(const dense2D<unsigned>& skipped, edge_list& edges)
{
    edge_list unwanted;
    if (skipped.empty() || !unwanted.resize(skipped.cols)) return;
    for (unsigned c = 0; c < skipped.cols; ++c)
    {
        const unsigned* nodes = skipped.column(c);
        unwanted[c] = {std::min(nodes[0], nodes[1]), std::max(nodes[0], nodes[1])};
    }
    std::sort(unwanted.begin(), unwanted.end());

    const edge* next = unwanted.begin();
    const auto is_unwanted = [&](const edge& e) {
        while (next != unwanted.end() && *next < e) ++next;
        return next != unwanted.end() && *next == e;
    };
    edges.size = static_cast<unsigned>(std::remove_if(edges.begin(), edges.end(), is_unwanted) - edges.begin());
}

// A size need not be finite here: an edge between infinite sizes has the length 0.
bool is_usable(double size)
{
    return size > 0;
}

template <unsigned D>
bool is_usable(const tensor<D>& m)
{
    return is_valid_tensor(m);
}

template <unsigned D>
double length_under(const vector_fixed<double, D>& u, double h0, double h1)
{
    return logarithmic_length(norm(u), h0, h1, false);
}

template <unsigned D>
double length_under(const vector_fixed<double, D>& u, const tensor<D>& m0, const tensor<D>& m1)
{
    double s0 = 0;
    double s1 = 0;
    return metric_edge_length(u, m0, m1, false, s0, s1);
}

/// Counts the length of every edge that can be measured; true when that is all of them.
template <unsigned D, class Field>
bool measure_edges(const dense2D<double>& pos, const edge_list& edges, const Field& field, auxkit::histogram& lengths)
{
    const point_reader<D> at(pos);
    const auto metric_at = read_field<D>(field);
    bool all_measured = true;
    for (const auto& [i, j] : edges)
    {
        if (metric_at.has(i) && metric_at.has(j) && is_usable(metric_at[i]) && is_usable(metric_at[j]))
            lengths.process(length_under(subtract(at[j], at[i]), metric_at[i], metric_at[j]));
        else
            all_measured = false;
    }
    return all_measured;
}

template <class Field>
int range_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last, const int* kinds,
                    unsigned kind_count, const Field& field, auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    if (first == last) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (last - first != static_cast<std::ptrdiff_t>(kind_count)) return -4;
    for (unsigned k = 0; k < kind_count; ++k)
        if (!check_IDs(first[k], static_cast<element_type>(kinds[k]), pos.cols)) return -2;
    if (!check_IDs(skipped, ELEM_BAR2, pos.cols)) return -7;

    edge_list edges;
    gather_edges_range(first, last, kinds, edges);
    remove_edges(skipped, edges);
    const bool all_measured = pos.rows == 2 ? measure_edges<2>(pos, edges, field, lengths) : measure_edges<3>(pos, edges, field, lengths);
    return all_measured ? static_cast<int>(edges.size) : -5;
}

/// One matrix is a range of one. Its codes below -3 stand one higher, since -4 of a range cannot occur.
template <class Field>
int matrix_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, const Field& field,
                     auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    const int kinds[]{kind};
    const int code = range_qualities(pos, &connectivity, &connectivity + 1, kinds, 1, field, lengths, skipped);
    return code < -3 ? code + 1 : code;
}

} // namespace

int edge_quality(double d, double h0, double h1, double& q)
{
    if (!(h0 > 0)) return -2;
    if (!(h1 > 0)) return -3;
    q = logarithmic_length(d, h0, h1, false);
    return 0;
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, const dense2D<double>& metrics,
                   auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    return matrix_qualities(pos, connectivity, kind, metrics, lengths, skipped);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, const dense1D<double>& sizes,
                   auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    return matrix_qualities(pos, connectivity, kind, sizes, lengths, skipped);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds,
                   const dense2D<double>& metrics, auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    return range_qualities(pos, first, last, kinds.data(), kinds.size, metrics, lengths, skipped);
}

int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds,
                   const dense1D<double>& sizes, auxkit::histogram& lengths, const dense2D<unsigned>& skipped)
{
    return range_qualities(pos, first, last, kinds.data(), kinds.size, sizes, lengths, skipped);
}

} // namespace tq4::gridweave
