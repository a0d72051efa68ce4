#pragma once

// What an element kind is, and the one dispatch from a kind to a worker per shape.

#include <array>
#include <cstdint>
#include <type_traits>

#include <tq4/gridweave/core.h>

#include "gridweave/core/shapes.h"

namespace tq4::gridweave
{

/// The shape of all columns of a matrix, or the mixture whose columns tell their shapes by their padding.
enum class topology : std::uint8_t
{
    none,
    bar,
    triangle,
    quadrangle,
    tetrahedron,
    pyramid,
    wedge,
    hexahedron,
    mixed_surface,
    mixed_solid
};

struct kind_record
{
    std::uint8_t dim;
    std::uint8_t nodes;
    std::uint8_t base_nodes;
    std::uint8_t boundaries;
    std::uint8_t boundary_nodes; ///< nodes of a side, the largest one's for kinds with sides of two sizes
    topology shape;              ///< shape of the corner nodes
    bool linear;                 ///< one of the kinds that have sides, neighbours, quality and Jacobians
    bool has_edges;              ///< one of the kinds that edges are gathered from
};

constexpr unsigned kind_count = 23;

// Edges are taken from quadratic kinds too, with the exception of the three serendipity solids (PYRA13, PENTA15, HEXA20). That gap is
// deliberate: hosts rely on such meshes adding no edges.
constexpr std::array<kind_record, kind_count> kind_table{{
    // dim nodes base boundaries boundary_nodes shape linear has_edges
    {0, 0, 0, 0, 0, topology::none, false, false},        // ELEM_NONE
    {0, 1, 1, 0, 0, topology::none, false, false},        // ELEM_NODE
    {1, 2, 2, 2, 1, topology::bar, false, false},         // ELEM_BAR_ANY
    {1, 2, 2, 2, 1, topology::bar, true, true},           // ELEM_BAR2
    {1, 3, 2, 2, 1, topology::bar, false, true},          // ELEM_BAR3
    {2, 4, 4, 4, 2, topology::mixed_surface, true, true}, // ELEM_SURF_ANY
    {2, 3, 3, 3, 2, topology::triangle, true, true},      // ELEM_TRIA3
    {2, 4, 4, 4, 2, topology::quadrangle, true, true},    // ELEM_QUAD4
    {2, 6, 3, 3, 3, topology::triangle, false, true},     // ELEM_TRIA6
    {2, 8, 4, 4, 3, topology::quadrangle, false, true},   // ELEM_QUAD8
    {2, 9, 4, 4, 3, topology::quadrangle, false, true},   // ELEM_QUAD9
    {3, 8, 8, 6, 4, topology::mixed_solid, true, true},   // ELEM_SOLID_ANY
    {3, 4, 4, 4, 3, topology::tetrahedron, true, true},   // ELEM_TETRA4
    {3, 10, 4, 4, 6, topology::tetrahedron, false, true}, // ELEM_TETRA10
    {3, 5, 5, 5, 4, topology::pyramid, true, true},       // ELEM_PYRA5
    {3, 13, 5, 5, 8, topology::pyramid, false, false},    // ELEM_PYRA13
    {3, 14, 5, 5, 9, topology::pyramid, false, true},     // ELEM_PYRA14
    {3, 6, 6, 5, 4, topology::wedge, true, true},         // ELEM_PENTA6
    {3, 15, 6, 5, 8, topology::wedge, false, false},      // ELEM_PENTA15
    {3, 18, 6, 5, 9, topology::wedge, false, true},       // ELEM_PENTA18
    {3, 8, 8, 6, 4, topology::hexahedron, true, true},    // ELEM_HEXA8
    {3, 20, 8, 6, 8, topology::hexahedron, false, false}, // ELEM_HEXA20
    {3, 27, 8, 6, 9, topology::hexahedron, false, true},  // ELEM_HEXA27
}};

/// The record of a kind; a value that is no kind (a host may cast any int) reads as `ELEM_NONE`.
constexpr const kind_record& record_of(element_type kind)
{
    const auto value = static_cast<unsigned>(kind);
    return kind_table[value < kind_count ? value : 0];
}

/// Rows of a boundaries matrix of the kind: nodes of its largest side.
constexpr unsigned nbr_boundary_nodes(element_type kind)
{
    return record_of(kind).boundary_nodes;
}

/// A mixed kind with the rows of a plain one is that plain kind.
constexpr element_type narrow(element_type kind, unsigned rows)
{
    if (kind == ELEM_SURF_ANY && rows == 3) return ELEM_TRIA3;
    if (kind == ELEM_SOLID_ANY && rows == 4) return ELEM_TETRA4;
    if (kind == ELEM_SOLID_ANY && rows == 5) return ELEM_PYRA5;
    if (kind == ELEM_SOLID_ANY && rows == 6) return ELEM_PENTA6;
    return kind;
}

/// Shape of the columns of a linear kind; `topology::none` for every kind that only linear families refuse.
constexpr topology linear_topology(element_type kind)
{
    return record_of(kind).linear ? record_of(kind).shape : topology::none;
}

/// Shape of the columns of a kind that edges are gathered from; `topology::none` for the others.
constexpr topology edge_topology(element_type kind)
{
    return record_of(kind).has_edges ? record_of(kind).shape : topology::none;
}

/// Calls `worker(shape)` for the shape of one column. `t` is the topology of the matrix; the column is looked at in mixed ones only.
/// The result is the worker's, default-constructed for `topology::none`.
template <class Worker>
constexpr auto with_shape_of(topology t, const unsigned* column, Worker&& worker)
{
    using result = decltype(worker(triangle{}));
    switch (t)
    {
    case topology::bar: return worker(bar{});
    case topology::triangle: return worker(triangle{});
    case topology::quadrangle: return worker(quadrangle{});
    case topology::tetrahedron: return worker(tetrahedron{});
    case topology::pyramid: return worker(pyramid{});
    case topology::wedge: return worker(wedge{});
    case topology::hexahedron: return worker(hexahedron{});
    case topology::mixed_surface: return column[3] == none_index ? worker(triangle{}) : worker(quadrangle{});
    case topology::mixed_solid:
        if (column[4] == none_index) return worker(tetrahedron{});
        if (column[5] == none_index) return worker(pyramid{});
        if (column[6] == none_index) return worker(wedge{});
        return worker(hexahedron{});
    case topology::none: break;
    }
    return result();
}

/// Calls `worker(shape, element, column)` for every column in order. A worker that returns bool ends the walk with false. The dispatch
/// stands outside the loop, so a plain kind runs a loop of its own shape. Nothing is called for `topology::none`.
template <class Worker>
void for_each_element(topology t, const dense2D<unsigned>& connectivity, Worker&& worker)
{
    const unsigned* const first = connectivity.data();
    const unsigned count = first ? connectivity.cols : 0; // a view without storage has no columns, whatever its fields say
    const std::size_t step = connectivity.ld;

    const auto walk = [&](auto&& visit) {
        const unsigned* column = first;
        for (unsigned element = 0; element < count; ++element, column += step)
            if constexpr (std::is_same_v<decltype(visit(element, column)), bool>)
            {
                if (!visit(element, column)) return;
            }
            else
                visit(element, column);
    };

    if (t == topology::mixed_surface || t == topology::mixed_solid)
        walk([&](unsigned element, const unsigned* column) {
            return with_shape_of(t, column, [&](auto shape) { return worker(shape, element, column); });
        });
    else
        with_shape_of(t, nullptr,
                      [&](auto shape) { walk([&](unsigned element, const unsigned* column) { return worker(shape, element, column); }); });
}

} // namespace tq4::gridweave
