#pragma once

// The builders behind the node-to-element and node-to-node forms, for families that need both over one mesh.

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// Builds the node-to-element form (see `get_connected_elements`) by a counting sort of the entries. With `clear_all` false the starts
/// of nodes below the smallest one of the connectivity keep what `first` held there, which saves a caller that reuses the vector the
/// pass over them.
/// @return 0; -199 out of memory, with both outputs empty
int build_node_elements(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list, bool clear_all);

/// Builds the node-to-node form (see `get_node_graph`) from a connectivity and the node-to-element form that `build_node_elements` made
/// of it.
/// @return 0; -199 out of memory, or for a graph of more than 2^32 - 2 entries, with both outputs empty
int build_node_graph(const dense2D<unsigned>& connectivity, const dense1D<unsigned>& element_first, const dense1D<unsigned>& element_list,
                     dense1D<unsigned>& first, dense1D<unsigned>& list);

} // namespace tq4::gridweave
