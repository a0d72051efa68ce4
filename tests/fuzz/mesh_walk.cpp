#include "fuzz/mesh_walk.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <vector>

#include "fuzz/limited_memory.h"
#include "fuzz/promise.h"
#include "gridweave/core/kinds.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

bool is_linear(const dense2D<unsigned>& connectivity, element_type kind)
{
    return linear_topology(narrow(kind, connectivity.rows)) != topology::none;
}

bool column_holds(const dense2D<unsigned>& matrix, unsigned column, unsigned value)
{
    const unsigned* const entries = matrix.column(column);
    return std::find(entries, entries + matrix.rows, value) != entries + matrix.rows;
}

unsigned count_links(const dense2D<unsigned>& neighbors, unsigned from, unsigned to)
{
    const unsigned* const sides = neighbors.column(from);
    return static_cast<unsigned>(std::count(sides, sides + neighbors.rows, to));
}

/// Whether all nodes of a side stand in a column.
bool column_holds_side(const dense2D<unsigned>& connectivity, unsigned element, const dense2D<unsigned>& sides, unsigned side)
{
    for (unsigned r = 0; r < sides.rows; ++r)
        if (sides(r, side) != none_index && !column_holds(connectivity, element, sides(r, side))) return false;
    return true;
}

void promise_adjacency(const dense1D<unsigned>& first, const dense1D<unsigned>& list)
{
    promise(first.size > 0 && first[0] == 0 && first[first.size - 1] == list.size, "an adjacency covers its list");
    promise(std::is_sorted(first.begin(), first.end()), "the ranges of an adjacency ascend");
}

void walk_graphs(const dense2D<unsigned>& connectivity)
{
    dense1D<unsigned> first;
    dense1D<unsigned> list;
    int code = get_connected_elements(connectivity, first, list);
    promise_code(code, {out_of_memory});
    promise(code == 0 || (first.empty() && list.empty()), "a failed adjacency is empty");
    if (code == 0)
    {
        promise_adjacency(first, list);
        for (unsigned n = 0; n + 1 < first.size; ++n)
        {
            promise(std::is_sorted(list.begin() + first[n], list.begin() + first[n + 1]), "elements of a node ascend");
            for (unsigned k = first[n]; k < first[n + 1]; ++k) promise(column_holds(connectivity, list[k], n), "elements hold their node");
        }
    }

    code = get_node_graph(connectivity, first, list);
    promise_code(code, {out_of_memory});
    promise(code == 0 || (first.empty() && list.empty()), "a failed graph is empty");
    if (code == 0)
    {
        promise_adjacency(first, list);
        for (unsigned n = 0; n + 1 < first.size; ++n)
        {
            std::vector<unsigned> around(list.begin() + first[n], list.begin() + first[n + 1]);
            std::sort(around.begin(), around.end());
            promise(std::adjacent_find(around.begin(), around.end()) == around.end(), "neighbours of a node are told once");
            for (const unsigned m : around)
            {
                promise(m != n && m + 1 < first.size, "neighbours of a node are other nodes");
                promise(std::count(list.begin() + first[m], list.begin() + first[m + 1], n) == 1, "the graph of the nodes is symmetric");
            }
        }
    }
}

void walk_edges(const dense2D<unsigned>& connectivity, element_type kind)
{
    dense2D<unsigned> edges;
    const int code = copy_edges(connectivity, kind, edges);
    promise_code(code, {-1, out_of_memory});
    promise((code == -1) == !check_IDs(connectivity, kind, none_index), "edges are refused to what is no connectivity");
    promise(has_rows_or_nothing(edges, 2), "edges have two nodes");
    for (unsigned c = 0; c < edges.cols; ++c)
    {
        promise(edges(0, c) <= edges(1, c) && edges(1, c) != none_index, "edges run from low to high");
        promise(c == 0 || std::lexicographical_compare(edges.column(c - 1), edges.column(c - 1) + 2, edges.column(c), edges.column(c) + 2),
                "edges ascend");
    }
}

void walk_groups(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors)
{
    dense2D<unsigned> sorted;
    dense2D<unsigned> links;
    if (!sorted.copy(connectivity) || !links.copy(neighbors)) return;
    dense1D<unsigned> nodes_per_group;
    dense1D<unsigned> group_ends;
    dense1D<unsigned> old_to_new;
    const int code = sort_elfes(sorted, links, nodes_per_group, group_ends, old_to_new);
    promise(code == 0, "columns can be grouped");
    if (limited_memory::has_refused()) return;
    promise(nodes_per_group.size == group_ends.size, "every group has an end");
    promise(connectivity.empty() || old_to_new.size == connectivity.cols, "every column has a new place");
    if (!group_ends.empty()) promise(group_ends[group_ends.size - 1] == sorted.cols, "the groups hold all columns");
    promise(std::is_sorted(group_ends.begin(), group_ends.end()), "the ends of the groups ascend");
    std::vector<bool> taken(sorted.cols);
    for (unsigned c = 0; c < old_to_new.size; ++c)
    {
        if (old_to_new[c] == none_index) continue;
        promise(old_to_new[c] < sorted.cols && !taken[old_to_new[c]], "new places differ");
        taken[old_to_new[c]] = true;
        promise(std::equal(connectivity.column(c), connectivity.column(c) + connectivity.rows, sorted.column(old_to_new[c])),
                "columns move as they are");
    }
}

void walk_subdomains(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors)
{
    dense1D<unsigned> indices;
    dense1D<unsigned> offsets;
    const int code = get_subdomains(neighbors, indices, offsets);
    promise_code(code, {out_of_memory});
    if (code == 0 && !limited_memory::has_refused())
    {
        promise_adjacency(offsets, indices);
        std::vector<bool> met(neighbors.cols);
        for (const unsigned element : indices)
        {
            promise(element < neighbors.cols && !met[element], "components are a partition");
            met[element] = true;
        }
        promise(neighbors.empty() || indices.size == neighbors.cols, "components hold all elements");
    }

    dense2D<unsigned> elements;
    dense2D<unsigned> links;
    if (!elements.copy(connectivity) || !links.copy(neighbors)) return;
    promise_code(get_subdomains(elements, links, offsets), {-2, out_of_memory});
}

} // namespace

void promise_neighbors(const dense2D<unsigned>& neighbors, const dense2D<unsigned>& connectivity, bool link_shared)
{
    promise(connectivity.empty() ? neighbors.empty() : neighbors.cols == connectivity.cols, "neighbours of every element");
    for (unsigned e = 0; e < neighbors.cols; ++e)
    {
        for (unsigned s = 0; s < neighbors.rows; ++s)
        {
            const unsigned other = neighbors(s, e);
            promise(other == none_index || other < neighbors.cols, "neighbours are elements");
            if (other != none_index && !link_shared)
                promise(count_links(neighbors, e, other) == count_links(neighbors, other, e), "neighbours are mutual");
        }
    }
}

void promise_survivors(const dense1D<unsigned>& new_ids, unsigned nodes, int merged)
{
    promise(new_ids.size == nodes, "every node has a survivor");
    int count = 0;
    for (unsigned n = 0; n < new_ids.size; ++n)
    {
        promise(new_ids[n] < nodes && new_ids[new_ids[n]] == new_ids[n], "survivors stay themselves");
        count += new_ids[n] != n;
    }
    promise(count == merged, "merged nodes are counted");
}

void walk_connectivity(const dense2D<unsigned>& connectivity, element_type kind)
{
    walk_graphs(connectivity);
    walk_edges(connectivity, kind);

    dense2D<unsigned> all_sides;
    const int sides_code = get_element_boundaries(connectivity, kind, all_sides);
    promise_code(sides_code, {-1, -2, out_of_memory});

    dense1D<unsigned> ancestors;
    const bool has_ancestors = get_ancestors(connectivity, ancestors) == 0;
    if (has_ancestors)
        for (unsigned n = 0; n < ancestors.size; ++n)
            promise(ancestors[n] == none_index || column_holds(connectivity, ancestors[n], n), "an ancestor holds its node");

    for (const bool link_shared : {true, false})
    {
        dense2D<unsigned> neighbors;
        const int code = get_neighbors(connectivity, kind, link_shared, neighbors);
        promise_code(code, {-1, -2, out_of_memory});
        promise(code == out_of_memory || sides_code == out_of_memory || code == sides_code, "sides and neighbours are of the same kinds");
        const bool well_formed = check_IDs(connectivity, kind, none_index);
        promise((code == -1) == !well_formed, "neighbours are refused to what is no connectivity");
        promise((code == -2) == (well_formed && !connectivity.empty() && !is_linear(connectivity, kind)), "linear kinds have neighbours");
        if (code == -1 || code == -2) promise(neighbors.empty(), "refused neighbours are empty");
        if (code != 0) continue;
        promise_neighbors(neighbors, connectivity, link_shared);

        walk_subdomains(connectivity, neighbors);
        walk_groups(connectivity, neighbors);

        dense2D<unsigned> free_sides;
        const int free_code = get_mesh_boundaries(connectivity, neighbors, kind, free_sides);
        promise(free_code == 0 || free_code == out_of_memory || connectivity.empty(), "free sides of a good mesh");
        dense1D<unsigned> ids;
        unsigned stride = 0;
        promise(get_mesh_bounding_elements(connectivity, neighbors, kind, ids, stride) >= out_of_memory,
                "bounding elements of a good mesh");
        if (limited_memory::has_refused() || sides_code != 0 || connectivity.empty()) continue;

        const auto linked = static_cast<std::size_t>(neighbors.size) -
                            static_cast<std::size_t>(std::count(neighbors.data(), neighbors.data() + neighbors.size, none_index));
        promise(free_sides.cols + linked == all_sides.cols, "a side is free or linked");
        promise(ids.size == free_sides.cols, "free sides and their ids go together");
        for (unsigned k = 0; k < ids.size; ++k)
        {
            const unsigned element = ids[k] / stride;
            promise(element < connectivity.cols && neighbors(ids[k] % stride, element) == none_index, "free sides have no neighbour");
            promise(column_holds_side(connectivity, element, free_sides, k), "free sides are of their element");
        }

        dense1D<unsigned> colors(connectivity.cols, 7);
        dense2D<unsigned> color_sides;
        const int color_code = get_colors_boundaries(connectivity, neighbors, colors, kind, true, color_sides);
        promise(limited_memory::has_refused() || (color_code == 0 && color_sides.cols == free_sides.cols),
                "one colour is bounded by the free sides");

        if (!has_ancestors) continue;
        dense1D<unsigned> found;
        const int found_code = get_elements_on_boundaries(all_sides, connectivity, neighbors, ancestors, kind, found, stride);
        promise_code(found_code, {-3, out_of_memory});
        for (unsigned k = 0; k < found.size; ++k)
            if (found[k] != none_index)
                promise(column_holds_side(connectivity, found[k] / stride, all_sides, k), "boundaries lie on the sides found for them");
    }
}

namespace
{

void walk_quality(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind)
{
    dense1D<double> qualities;
    const int code = shape_qualities(pos, connectivity, kind, qualities);
    promise_code(code, {-2, -3, out_of_memory});
    promise(code == 0 || qualities.empty(), "qualities are empty after a failure");
    double lowest = 0;
    unsigned index = 0;
    const int lowest_code = min_quality(pos, connectivity, kind, lowest, index);
    promise(lowest_code == code || code == out_of_memory, "the least quality has the codes of the qualities");
    if (code == 0)
    {
        unsigned least = none_index;
        for (unsigned k = 0; k < qualities.size; ++k)
        {
            promise(qualities[k] >= -1 && qualities[k] <= 1, "qualities lie between -1 and 1");
            if (qualities[k] < (least == none_index ? 1.0 : qualities[least])) least = k;
        }
        promise(least == index && lowest == (least == none_index ? 1.0 : qualities[least]), "the least quality is the first of the least");
    }

    dense1D<double> values;
    const int jacobian_code = jacobians(pos, connectivity, kind, values);
    promise_code(jacobian_code, {-2, -3, out_of_memory});
    promise(jacobian_code == code || jacobian_code == out_of_memory || code == out_of_memory, "Jacobians go with qualities");
}

void walk_sizes(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind)
{
    dense1D<double> sizes;
    if (metrics_gen_iso(pos, connectivity, kind, sizes, 1.0) != 0) return;
    for (const double h : sizes) promise(h >= 0, "a size is a length");
    auxkit::histogram lengths;
    promise_code(edge_qualities(pos, connectivity, kind, sizes, lengths, dense2D<unsigned>()), {-1, -4});
    dense1D<double> limited;
    if (!limited.copy(sizes)) return;
    promise_code(bound_metric_gradations(pos, connectivity, kind, dense1D<unsigned>(), true, -1, 0.3, limited),
                 {-1, -2, -8, out_of_memory});
    for (unsigned n = 0; n < sizes.size; ++n) promise(limited[n] <= sizes[n], "sizes only shrink");
}

void walk_search(const dense2D<double>& pos)
{
    const node_detector detector(pos);
    for (unsigned n = 0; n < std::min(pos.cols, 8u); ++n)
    {
        const unsigned closest = detector.find_closest(n);
        promise(closest == none_index || (closest < pos.cols && closest != n), "the closest node is another one");
    }
}

/// What a host does with triangles that it has read.
void walk_edits(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind)
{
    dense2D<double> points;
    dense2D<unsigned> elements;
    if (!points.copy(pos) || !elements.copy(connectivity)) return;

    dense1D<unsigned> new_ids;
    const int merged = merge(points, elements, new_ids, 0.25, 0);
    promise_code(merged, {-1, -2, out_of_memory});
    if (merged >= 0 && !elements.empty() && !limited_memory::has_refused()) promise_survivors(new_ids, points.cols, merged);
    promise_code(remove_degenerated(elements, new_ids, true), {out_of_memory});
    const unsigned nodes = points.cols;
    const int removed = simplify(points, elements, new_ids, 0);
    promise_code(removed, {-2, out_of_memory});
    if (removed >= 0)
    {
        promise(points.cols + static_cast<unsigned>(removed) == nodes, "removed nodes are gone");
        promise(check_IDs(elements, points.cols), "elements name the nodes that are left");
    }
    dense2D<unsigned> kept;
    promise_code(clip(points, elements, {0.5, 0, 0}, {1, 0.25, 0}, kept), {-2, out_of_memory});
    promise(kept.cols <= elements.cols, "clipping keeps elements");
    promise_code(copy_sym_mesh(points, kept, vector_fixed<double, 3>{}, {0, 0, 1}, elements), {out_of_memory});
    walk_connectivity(kept, kind);
}

} // namespace

void walk_geometry(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind)
{
    walk_quality(pos, connectivity, kind);
    walk_sizes(pos, connectivity, kind);
    walk_search(pos);
    walk_edits(pos, connectivity, kind);
}

} // namespace tq4::fuzz
