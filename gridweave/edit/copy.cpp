#include <algorithm>
#include <utility>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/append.h"
#include "gridweave/core/vector_math.h"

namespace tq4::gridweave
{

namespace
{

/// A part of a mesh taken out of it, for any number of copies.
struct mesh_part
{
    dense1D<unsigned> nodes;    ///< the nodes it uses, in order of first appearance
    dense2D<unsigned> elements; ///< its connectivity in places of `nodes`; what is no node of the mesh (padding) stays as it is
    unsigned nodes_of_mesh = 0; ///< tells the two apart: there are no more places than nodes, and what is no node lies above

    /// The entry of a copy whose nodes begin at `first_node`.
    unsigned entry_of_copy(unsigned entry, unsigned first_node) const { return entry < nodes_of_mesh ? entry + first_node : entry; }
};

/// Takes out what `connectivity` uses of a mesh of `nodes_of_mesh` nodes. False when memory runs out.
bool take_part(unsigned nodes_of_mesh, const dense2D<unsigned>& connectivity, mesh_part& part)
{
    const std::uint64_t entries = std::uint64_t{connectivity.rows} * connectivity.cols;
    dense1D<unsigned> places;
    if (!places.resize(nodes_of_mesh, none_index)) return false;
    if (!part.nodes.resize(static_cast<unsigned>(std::min<std::uint64_t>(entries, nodes_of_mesh)))) return false;
    if (!part.elements.copy(connectivity)) return false;

    unsigned* const place_of = places.data();
    unsigned count = 0;
    for (unsigned element = 0; element < connectivity.cols; ++element)
    {
        unsigned* const entry = part.elements.column(element);
        for (unsigned row = 0; row < connectivity.rows; ++row)
        {
            const unsigned node = entry[row];
            if (node >= nodes_of_mesh) continue;
            if (place_of[node] == none_index)
            {
                part.nodes[count] = node;
                place_of[node] = count++;
            }
            entry[row] = place_of[node];
        }
    }
    part.nodes.size = count;
    part.nodes_of_mesh = nodes_of_mesh;
    return true;
}

/// Appends the nodes of the part to `pos` and raises its rows to `rows` with zeros. False, with nothing changed, when memory runs out.
bool append_nodes(dense2D<double>& pos, const mesh_part& part, unsigned rows)
{
    const unsigned first = pos.cols;
    if (!append_columns(pos, rows, part.nodes.size, 0.0)) return false;
    for (unsigned k = 0; k < part.nodes.size; ++k)
    {
        const double* const from = pos.column(part.nodes[k]);
        double* const to = pos.column(first + k);
        for (unsigned row = 0; row < pos.rows; ++row) to[row] = from[row];
    }
    return true;
}

/// Appends the elements of the part to those of earlier copies. False, with nothing changed, when memory runs out.
bool append_elements(dense2D<unsigned>& all_copies, const mesh_part& part, unsigned first_node)
{
    const unsigned first = all_copies.cols;
    const unsigned count = part.elements.empty() ? 0 : part.elements.cols;
    const unsigned rows = all_copies.rows ? all_copies.rows : part.elements.rows;
    if (!append_columns(all_copies, rows, count, none_index)) return false;

    const unsigned common_rows = std::min(rows, part.elements.rows);
    for (unsigned element = 0; element < count; ++element)
    {
        const unsigned* const from = part.elements.column(element);
        unsigned* const to = all_copies.column(first + element);
        for (unsigned row = 0; row < common_rows; ++row) to[row] = part.entry_of_copy(from[row], first_node);
        std::fill(to + common_rows, to + rows, none_index);
    }
    return true;
}

/// One copy, with the rows of `pos` raised to `rows`. Nothing is changed before all memory is there.
int copy_once(dense2D<double>& pos, unsigned rows, dense2D<unsigned>& new_connectivity, const dense2D<unsigned>& connectivity)
{
    const unsigned first_node = pos.cols;
    mesh_part part;
    if (!take_part(pos.cols, connectivity, part)) return out_of_memory;
    if (!append_nodes(pos, part, rows)) return out_of_memory;

    for (unsigned element = 0; element < part.elements.cols; ++element)
    {
        unsigned* const entry = part.elements.column(element);
        for (unsigned row = 0; row < part.elements.rows; ++row) entry[row] = part.entry_of_copy(entry[row], first_node);
    }
    new_connectivity = std::move(part.elements);
    return 0;
}

/// `turns` tells whether there is a turn at all; `turn(nodes, k)` makes that of the k-th copy.
template <unsigned N, class Turn>
int copy_pattern(dense2D<double>& pos, dense2D<unsigned>& all_copies, const vector_fixed<double, N>& translation, bool turns,
                 const Turn& turn, unsigned n, const dense2D<unsigned>& connectivity)
{
    if (pos.empty() || n == 0) return 0;

    // All copies come from this part, so `all_copies` may be the source itself and grow meanwhile.
    mesh_part part;
    if (!take_part(pos.cols, connectivity, part)) return out_of_memory;

    // The transforms raise the rows where they have something to do, a turn even for no nodes.
    const bool moves = turns || (!is_zero(translation) && !part.nodes.empty());
    const unsigned rows = moves ? std::max(pos.rows, N) : pos.rows;

    // Copies of nothing are all alike, however many are asked for.
    const unsigned copies = connectivity.empty() ? 1 : n;
    for (unsigned copy = 0; copy < copies; ++copy)
    {
        const unsigned first_node = pos.cols;
        if (!append_nodes(pos, part, rows)) return out_of_memory;
        if (!append_elements(all_copies, part, first_node))
        {
            pos.resize(pos.rows, first_node); // shrinking does not fail
            return out_of_memory;
        }

        dense2D<double> new_nodes = pos.sub_matrix(0, first_node, pos.rows, part.nodes.size);
        const double k = copy + 1.0;
        turn(new_nodes, k);
        translate(new_nodes, scaled(k, translation));
    }
    return 0;
}

template <unsigned N>
int copy_mirrored(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const vector_fixed<double, N>& point,
                  const vector_fixed<double, N>& normal, const dense2D<unsigned>& connectivity)
{
    if (pos.empty()) return 0;
    const double squared_length = squared_norm(normal);
    if (squared_length == 0.0) return -4;

    unsigned node = pos.cols;
    const int result = copy_once(pos, std::max(pos.rows, N), new_connectivity, connectivity);
    if (result < 0) return result;

    const double twice = -2 / squared_length;
    for (; node < pos.cols; ++node)
    {
        double* const x = pos.column(node);
        vector_fixed<double, N> from_plane{};
        for (unsigned k = 0; k < N; ++k) from_plane[k] = x[k] - point[k];
        const double t = dot(from_plane, normal) * twice;
        for (unsigned k = 0; k < N; ++k) x[k] += t * normal[k];
    }
    return 0;
}

} // namespace

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const dense2D<unsigned>& connectivity)
{
    return copy_once(pos, pos.rows, new_connectivity, connectivity);
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& all_copies, const vector_fixed<double, 2>& translation,
              const vector_fixed<double, 2>& centre, double angle, unsigned n, const dense2D<unsigned>& connectivity)
{
    const auto turn = [&](dense2D<double>& nodes, double k) { rotate(nodes, centre, k * angle); };
    return copy_pattern(pos, all_copies, translation, angle != 0.0, turn, n, connectivity);
}

int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& all_copies, const vector_fixed<double, 3>& translation,
              const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation, unsigned n,
              const dense2D<unsigned>& connectivity)
{
    const auto turn = [&](dense2D<double>& nodes, double k) { rotate(nodes, centre, scaled(k, rotation)); };
    return copy_pattern(pos, all_copies, translation, !is_zero(rotation), turn, n, connectivity);
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const vector_fixed<double, 2>& point,
                  const vector_fixed<double, 2>& normal, const dense2D<unsigned>& connectivity)
{
    return copy_mirrored(pos, new_connectivity, point, normal, connectivity);
}

int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const vector_fixed<double, 3>& point,
                  const vector_fixed<double, 3>& normal, const dense2D<unsigned>& connectivity)
{
    return copy_mirrored(pos, new_connectivity, point, normal, connectivity);
}

} // namespace tq4::gridweave
