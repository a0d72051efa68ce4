#pragma once

// Tables with an entry per node number.

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// Whether a table of somewhat more entries than the largest node number costs no more than the mesh does. A part of a larger mesh may
/// leave gaps; numbers far apart (or hostile ones) would make the table take memory by the largest number and not by the mesh.
constexpr bool suits_node_table(unsigned largest_node, std::uint64_t mesh_entries)
{
    constexpr unsigned room_for_gaps = 4;
    constexpr unsigned spare_entries = 4;
    return largest_node / room_for_gaps <= mesh_entries && largest_node < none_index - spare_entries;
}

} // namespace tq4::gridweave
