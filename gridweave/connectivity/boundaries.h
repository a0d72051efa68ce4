#pragma once

// Nodes of the local sides of elements.

#include <array>

#include "gridweave/core/append.h"
#include "gridweave/core/shapes.h"

namespace tq4::gridweave
{

/// Writes the nodes of a local side of an element to `out` and returns the place behind the last one, which tells a triangular from a
/// quadrangular face.
template <class Shape>
unsigned* copy_side(unsigned side, const unsigned* nodes, unsigned* out)
{
    const local_side& local = Shape::sides[side];
    for (unsigned k = 0; k < local.count; ++k) *out++ = nodes[local.node[k]];
    return out;
}

inline unsigned* copy_tetra_face(unsigned side, const unsigned* nodes, unsigned* out)
{
    return copy_side<tetrahedron>(side, nodes, out);
}
inline unsigned* copy_pyramid_face(unsigned side, const unsigned* nodes, unsigned* out)
{
    return copy_side<pyramid>(side, nodes, out);
}
inline unsigned* copy_wedge_face(unsigned side, const unsigned* nodes, unsigned* out)
{
    return copy_side<wedge>(side, nodes, out);
}
inline unsigned* copy_hexa_face(unsigned side, const unsigned* nodes, unsigned* out)
{
    return copy_side<hexahedron>(side, nodes, out);
}

/// Appends a local side as one column to a boundaries matrix; a triangular face in a matrix of four rows ends in none. False when memory
/// runs out.
template <class Shape>
bool append_side(dense2D<unsigned>& boundaries, unsigned rows, unsigned side, const unsigned* nodes)
{
    std::array<unsigned, 4> column{none_index, none_index, none_index, none_index};
    copy_side<Shape>(side, nodes, column.data());
    return append_column(boundaries, column.data(), rows);
}

} // namespace tq4::gridweave
