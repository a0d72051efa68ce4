// Calls of the index utilities and of connectivity on one mesh, each on what the calls before have left.

#include <algorithm>
#include <vector>

#include <tq4/gridweave.h>

#include "fuzz/mesh_source.h"
#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

struct state
{
    test::mesh mesh;
    dense2D<unsigned> neighbors;
    dense2D<unsigned> boundaries;
    dense1D<unsigned> ancestors;
    dense1D<unsigned> ids;
    dense1D<unsigned> colors;
    dense1D<unsigned> first;
    dense1D<unsigned> second;
};

bool is_told(int code, std::initializer_list<int> told)
{
    promise_code(code, told);
    return code >= 0;
}

/// Entries for the target itself, which no call is to miss.
dense1D<unsigned> vector_with_memory(unsigned size)
{
    const ample_memory enough;
    return dense1D<unsigned>(size, 1u);
}

void ask_for_kinds(element_type kind)
{
    promise(element_dim(kind) <= 3 && nbr_nodes(kind) <= 27 && nbr_base_nodes(kind) <= 8 && nbr_boundaries(kind) <= 6,
            "every value has the numbers of a kind");
    promise(nbr_base_nodes(kind) <= nbr_nodes(kind), "corners are nodes");
}

void look_up_lists(mesh_source& source, state& s)
{
    const dense1D<unsigned> other = source.indices(s.mesh.pos.cols);
    dense1D<unsigned> b_in_a;
    dense1D<unsigned> a_in_b;
    promise(get_IDs(s.ids, other, b_in_a, a_in_b) == 0, "lists can be related");
    if (limited_memory::has_refused()) return;
    promise(b_in_a.size == other.size && a_in_b.size == s.ids.size, "an entry for each");
    for (unsigned k = 0; k < b_in_a.size; ++k)
    {
        const auto* const place = std::find(s.ids.begin(), s.ids.end(), other[k]);
        const bool is_there = place != s.ids.end() && other[k] != none_index;
        promise(b_in_a[k] == (is_there ? static_cast<unsigned>(place - s.ids.begin()) : none_index), "the first place of each entry");
    }
}

void look_up_columns(mesh_source& source, state& s)
{
    dense1D<unsigned> b_in_a;
    dense1D<unsigned> a_in_b;
    const dense2D<unsigned> other = source.connectivity(s.mesh.kind, s.mesh.pos.cols);
    const bool exact = source.flip();
    const dense2D<unsigned>& a = s.boundaries.empty() ? s.mesh.connectivity : s.boundaries;
    if (!is_told(get_IDs(a, other, b_in_a, a_in_b, exact), {-2, out_of_memory})) return;
    for (const unsigned each : b_in_a) promise(each == none_index || each < a.cols, "columns are found in the matrix");
    for (unsigned k = 0; exact && k < b_in_a.size; ++k)
        if (b_in_a[k] != none_index)
            promise(std::equal(other.column(k), other.column(k) + other.rows, a.column(b_in_a[k])), "equal columns are equal");
}

void sort_list(state& s)
{
    dense1D<unsigned> order;
    dense1D<unsigned> starts;
    const int code = get_sorted_order(s.ids, order, starts);
    promise_code(code, {out_of_memory});
    promise(code == 0 || (order.empty() && starts.empty()), "outputs are empty after a failure");
    if (code != 0) return;
    promise(starts.size > 0 && starts[starts.size - 1] == order.size, "the starts cover the order");
    for (unsigned v = 0; v + 1 < starts.size; ++v)
        for (unsigned k = starts[v]; k < starts[v + 1]; ++k)
            promise(s.ids[order[k]] == v && (k == starts[v] || order[k - 1] < order[k]), "places of a value, ascending");
}

void renumber(mesh_source& source, state& s)
{
    switch (source.below(6))
    {
    case 0: change_indices(s.ids, s.first); break;
    case 1: change_indices(s.mesh.connectivity, source.indices(s.mesh.pos.cols)); break;
    case 2: is_told(permutation(s.ids, s.first), {out_of_memory}); break;
    case 3:
    {
        dense1D<double> values = source.numbers(s.ids.size);
        is_told(permutation(values, s.ids), {out_of_memory});
        break;
    }
    case 4: promise(shift_indices(s.ids, static_cast<int>(source.below(5)) - 2) == 0, "lists can be shifted"); break;
    default:
        promise(shift_indices(s.mesh.connectivity, static_cast<int>(source.below(5)) - 2, s.mesh.kind) == 0, "matrices can be shifted");
    }
    const unsigned largest = max_ID(s.ids);
    promise(largest == none_index || check_IDs(s.ids, largest + 1), "no index above the largest");
    const unsigned largest_node = max_ID(s.mesh.connectivity);
    promise(largest_node == none_index || check_IDs(s.mesh.connectivity, largest_node + 1), "no node above the largest");
}

void make_neighbors(mesh_source& source, state& s)
{
    const bool link_shared = source.flip();
    if (is_told(get_neighbors(s.mesh.connectivity, s.mesh.kind, link_shared, s.neighbors), {-1, -2, out_of_memory}))
        promise_neighbors(s.neighbors, s.mesh.connectivity, link_shared);
    if (source.below(4) == 0) s.neighbors = source.placed(s.neighbors);
}

void list_sides(mesh_source& source, state& s)
{
    const unsigned before = s.boundaries.empty() ? 0 : s.boundaries.cols;
    switch (source.below(3))
    {
    case 0: is_told(get_element_boundaries(s.mesh.connectivity, s.mesh.kind, s.boundaries), {-1, -2, out_of_memory}); break;
    case 1:
        is_told(get_mesh_boundaries(s.mesh.connectivity, s.neighbors, s.mesh.kind, s.boundaries), {-1, -2, -3, -4, out_of_memory});
        break;
    default:
        is_told(get_colors_boundaries(s.mesh.connectivity, s.neighbors, s.colors, s.mesh.kind, source.flip(), s.boundaries),
                {-1, -2, -3, -4, -5, out_of_memory});
    }
    promise((s.boundaries.empty() ? 0 : s.boundaries.cols) >= before, "sides are appended");
}

void find_sides(state& s)
{
    unsigned stride = 0;
    const int code = get_elements_on_boundaries(s.boundaries, s.mesh.connectivity, s.neighbors, s.ancestors, s.mesh.kind, s.ids, stride);
    promise_code(code, {-1, -2, -3, -4, -5, out_of_memory});
    if (code < 0) return;
    for (const unsigned id : s.ids) promise(id == none_index || id / stride < s.mesh.connectivity.cols, "boundaries lie on elements");
}

void list_bounding_elements(state& s)
{
    unsigned stride = 0;
    const unsigned before = s.ids.size;
    const int code = get_mesh_bounding_elements(s.mesh.connectivity, s.neighbors, s.mesh.kind, s.ids, stride);
    promise_code(code, {-1, -2, out_of_memory});
    promise(s.ids.size >= before, "ids are appended");
    for (unsigned k = before; k < s.ids.size; ++k) promise(s.ids[k] / stride < s.mesh.connectivity.cols, "sides are of elements");
}

void split(mesh_source& source, state& s)
{
    switch (source.below(4))
    {
    case 0: is_told(get_subdomains(s.neighbors, s.first, s.second), {out_of_memory}); break;
    case 1: is_told(get_subdomains(s.mesh.connectivity, s.neighbors, s.first), {-2, out_of_memory}); break;
    case 2: is_told(sort_elfes(s.mesh.connectivity, s.neighbors, s.first, s.second, s.ids), {-1}); break;
    default: promise(sort_elfes(s.mesh.connectivity, s.first, s.second, s.ids) == 0, "columns can be grouped");
    }
}

void gather_edges(mesh_source& source, state& s)
{
    const dense2D<unsigned> range[3] = {s.mesh.connectivity, s.boundaries, source.connectivity(ELEM_SURF_ANY, s.mesh.pos.cols)};
    dense1D<int> kinds = source.kinds(3);
    if (!kinds.empty()) kinds[0] = s.mesh.kind;
    dense2D<unsigned> edges(source.below(3), 1, 7u);
    const unsigned before = edges.empty() ? 0 : edges.cols;
    if (!is_told(copy_edges(range, range + 3, kinds, edges), {-1, -3, -4, out_of_memory})) return;
    for (unsigned c = before; !edges.empty() && c < edges.cols; ++c) promise(edges(0, c) <= edges(1, c), "edges run from low to high");
}

void make_cells(state& s)
{
    unsigned nbr_cells = 3;
    dense1D<unsigned> cells = vector_with_memory(2);
    dense1D<unsigned> cell_types = vector_with_memory(1);
    const int code = vtk_convert(s.mesh.connectivity, s.mesh.kind, nbr_cells, cells, cell_types);
    promise_code(code, {-1, -2, out_of_memory});
    promise(code == 0 || (nbr_cells == 3 && cells.size == 2 && cell_types.size == 1), "lists stay as they were on a failure");
    promise(cell_types.size - 1 == nbr_cells - 3, "every cell has a type");
}

void replace(mesh_source& source, state& s)
{
    switch (source.below(12))
    {
    case 0: s.ids = source.indices(s.mesh.pos.cols); break;
    case 1: s.colors = source.indices(3); break;
    case 2: s.colors = dense1D<unsigned>(s.mesh.connectivity.cols, source.below(3)); break;
    case 3: s.boundaries = source.connectivity(source.kind(), s.mesh.pos.cols); break;
    case 4: s.neighbors = source.connectivity(s.mesh.kind, s.mesh.connectivity.cols); break;
    case 5: source.damage(s.neighbors, s.mesh.connectivity.cols); break;
    case 6: s.boundaries = s.mesh.connectivity; break; // outputs that share an input's storage
    case 7: s.neighbors = s.mesh.connectivity; break;
    case 8: s.ancestors = s.ids; break;
    case 9: s.first = s.second = s.ids; break;
    case 10:
        if (s.neighbors.ld == s.neighbors.rows) s.ids = s.neighbors.as_vector();
        break;
    default: s.mesh.kind = source.kind();
    }
}

void call(mesh_source& source, state& s)
{
    switch (source.below(16))
    {
    case 0: ask_for_kinds(source.kind()); break;
    case 1: look_up_lists(source, s); break;
    case 2: look_up_columns(source, s); break;
    case 3: sort_list(s); break;
    case 4: renumber(source, s); break;
    case 5:
    case 6: make_neighbors(source, s); break;
    case 7: list_sides(source, s); break;
    case 8: find_sides(s); break;
    case 9: list_bounding_elements(s); break;
    case 10: split(source, s); break;
    case 11: gather_edges(source, s); break;
    case 12: make_cells(s); break;
    case 13:
        if (!is_told(get_ancestors(s.mesh.connectivity, s.ancestors), {out_of_memory}))
            promise(s.ancestors.empty(), "no ancestors after a failure");
        break;
    case 14: replace(source, s); break;
    default: walk_connectivity(s.mesh.connectivity, s.mesh.kind);
    }
}

} // namespace

void run(mesh_source& source)
{
    state s;
    s.mesh = source.mesh();
    const unsigned failing = source.failing_request();
    limited_memory memory(mesh_memory, failing);
    for (unsigned k = 0; k < 12 && !source.is_exhausted(); ++k) call(source, s);
}

} // namespace tq4::fuzz
