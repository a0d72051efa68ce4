#include <algorithm>
#include <numeric>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/connectivity/boundaries.h"
#include "gridweave/core/bits.h"
#include "gridweave/core/kinds.h"
#include "gridweave/core/prefetch.h"
#include "gridweave/core/rows.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// Breadth-first searches over all elements. A search leaves elements in the order in which they were first reached, so the result is the
/// queue: what stands behind `next` waits. The queue also tells which columns will be read, in time to have them fetched.
template <class Rows>
void search_all(const dense2D<unsigned>& neighbors, Rows sides, bit_vector& reached, unsigned* queue, dense1D<unsigned>& offsets)
{
    constexpr unsigned fetched_ahead = 24;
    const unsigned* const links = neighbors.data();
    const std::size_t step = neighbors.ld;
    const unsigned elements = neighbors.cols;
    unsigned next = 0;
    unsigned end = 0;
    for (unsigned start = 0; end < elements; ++start)
    {
        if (reached.test_and_set(start)) continue;
        queue[end++] = start;
        for (; next < end; ++next)
        {
            if (end - next > fetched_ahead) prefetch(links + step * queue[next + fetched_ahead]);
            const unsigned* const column = links + step * queue[next];
            for (unsigned side = 0; side < sides; ++side)
            {
                const unsigned across = column[side];
                if (across >= elements || reached[across]) continue;
                reached.set(across);
                queue[end++] = across;
            }
        }
        offsets.push_back(end);
    }
}

bool pick_columns(const dense2D<unsigned>& matrix, const dense1D<unsigned>& indices, dense2D<unsigned>& picked)
{
    if (!picked.resize(matrix.rows, indices.size)) return false;
    for (unsigned c = 0; c < indices.size; ++c) std::copy_n(matrix.column(indices[c]), matrix.rows, picked.column(c));
    return true;
}

} // namespace

int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned>& indices, dense1D<unsigned>& offsets)
{
    indices.size = 0;
    offsets.size = 0;
    detach_empty(indices, neighbors);
    detach_empty(offsets, neighbors, indices);
    bit_vector reached;
    if (!reached.reset(neighbors.cols) || !indices.reserve(neighbors.cols, 1)) return out_of_memory;
    offsets.push_back(0);

    with_rows(neighbors.rows, [&](auto rows) { search_all(neighbors, rows, reached, indices.data(), offsets); });
    indices.size = neighbors.cols;
    return 0;
}

int get_subdomains(dense2D<unsigned>& connectivity, dense2D<unsigned>& neighbors, dense1D<unsigned>& offsets)
{
    if (connectivity.cols != neighbors.cols) return -2;
    dense1D<unsigned> indices;
    if (const int code = get_subdomains(neighbors, indices, offsets)) return code;
    if (indices.empty()) return 0;

    dense1D<unsigned> inverse;
    dense2D<unsigned> sorted_connectivity, sorted_neighbors;
    if (!inverse.resize(indices.size)) return out_of_memory;
    if (!pick_columns(connectivity, indices, sorted_connectivity)) return out_of_memory;
    if (!pick_columns(neighbors, indices, sorted_neighbors)) return out_of_memory;

    for (unsigned k = 0; k < indices.size; ++k) inverse[indices[k]] = k;
    change_indices(sorted_neighbors, inverse);
    connectivity = std::move(sorted_connectivity);
    neighbors = std::move(sorted_neighbors);
    return 0;
}

int get_colors_boundaries(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors, const dense1D<unsigned>& colors,
                          element_type kind, bool both_sides, dense2D<unsigned>& boundaries)
{
    if (connectivity.cols == 0) return 0;
    kind = narrow(kind, connectivity.rows);
    if (connectivity.rows != nbr_nodes(kind)) return -1;
    if (neighbors.rows != nbr_boundaries(kind) || neighbors.cols < connectivity.cols || !check_IDs(neighbors, connectivity.cols)) return -2;
    if (colors.size != connectivity.cols) return -3;
    const unsigned rows = nbr_boundary_nodes(kind);
    if (!boundaries.empty() && boundaries.rows != rows) return -5;
    const topology shape_of_all = linear_topology(kind);
    if (shape_of_all == topology::none) return -4;
    if (!detach(boundaries, connectivity, neighbors, colors)) return out_of_memory;

    bool appended = true;
    for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned element, const unsigned* nodes) {
        const unsigned* const neighbor = neighbors.column(element);
        for (unsigned side = 0; side < side_count<decltype(shape)>; ++side)
        {
            const unsigned across = neighbor[side];
            if (across != none_index && colors[across] == colors[element]) continue;
            // The none index is above every element, so free sides pass.
            if (!both_sides && across <= element) continue;
            if (!append_side<decltype(shape)>(boundaries, rows, side, nodes)) return appended = false;
        }
        return true;
    });
    return appended ? 0 : out_of_memory;
}

namespace
{

/// For each column, the rows it leaves empty from its first none on, so that ascending values mean descending node counts; none for a
/// column without nodes.
bool count_empty_rows(const dense2D<unsigned>& connectivity, dense1D<unsigned>& empty_rows)
{
    if (!empty_rows.resize(connectivity.cols)) return false;
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const column = connectivity.column(c);
        const auto nodes = static_cast<unsigned>(std::find(column, column + connectivity.rows, none_index) - column);
        empty_rows[c] = nodes == 0 ? none_index : connectivity.rows - nodes;
    }
    return true;
}

/// Lists the groups that the counting sort found: `starts` by number of empty rows.
bool list_groups(const dense1D<unsigned>& starts, unsigned rows, dense1D<unsigned>& nodes_per_group, dense1D<unsigned>& group_ends)
{
    unsigned groups = 0;
    for (unsigned empty = 0; empty + 1 < starts.size; ++empty) groups += starts[empty + 1] > starts[empty];
    const unsigned entries = std::max(groups, 1u);
    if (!nodes_per_group.resize(entries, 0) || !group_ends.resize(entries, 0)) return false;

    unsigned group = 0;
    for (unsigned empty = 0; empty + 1 < starts.size; ++empty)
    {
        if (starts[empty + 1] == starts[empty]) continue;
        nodes_per_group[group] = rows - empty;
        group_ends[group++] = starts[empty + 1];
    }
    return true;
}

void swap_columns(dense2D<unsigned>& matrix, unsigned a, unsigned b)
{
    std::swap_ranges(matrix.column(a), matrix.column(a) + matrix.rows, matrix.column(b));
}

} // namespace

int sort_elfes(dense2D<unsigned>& connectivity, dense2D<unsigned>& neighbors, dense1D<unsigned>& nodes_per_group,
               dense1D<unsigned>& group_ends, dense1D<unsigned>& old_to_new)
{
    const bool with_neighbors = !neighbors.empty();
    if (with_neighbors && neighbors.cols != connectivity.cols) return -1;
    nodes_per_group.size = 0;
    group_ends.size = 0;
    old_to_new.size = 0;

    // All memory is had before the first column moves.
    dense1D<unsigned> empty_rows, order, starts, new_to_old;
    if (!count_empty_rows(connectivity, empty_rows) || get_sorted_order(empty_rows, order, starts) != 0 ||
        !new_to_old.resize(connectivity.cols) || !old_to_new.resize(connectivity.cols) ||
        !list_groups(starts, connectivity.rows, nodes_per_group, group_ends))
    {
        nodes_per_group.size = 0;
        group_ends.size = 0;
        old_to_new.size = 0;
        return 0;
    }

    std::iota(old_to_new.begin(), old_to_new.end(), 0u);
    std::iota(new_to_old.begin(), new_to_old.end(), 0u);
    for (unsigned target = 0; target < order.size; ++target)
    {
        const unsigned former = order[target];
        const unsigned place = old_to_new[former];
        if (place == target) continue;
        swap_columns(connectivity, target, place);
        if (with_neighbors) swap_columns(neighbors, target, place);
        std::swap(old_to_new[former], old_to_new[new_to_old[target]]);
        std::swap(new_to_old[target], new_to_old[place]);
    }

    // Shrinking needs no memory.
    connectivity.resize(connectivity.rows, order.size);
    for (unsigned& place : old_to_new)
        if (place >= order.size) place = none_index;
    if (with_neighbors)
    {
        neighbors.resize(neighbors.rows, order.size);
        change_indices(neighbors, old_to_new);
    }
    return 0;
}

int sort_elfes(dense2D<unsigned>& connectivity, dense1D<unsigned>& nodes_per_group, dense1D<unsigned>& group_ends,
               dense1D<unsigned>& old_to_new)
{
    dense2D<unsigned> no_neighbors;
    return sort_elfes(connectivity, no_neighbors, nodes_per_group, group_ends, old_to_new);
}

} // namespace tq4::gridweave
