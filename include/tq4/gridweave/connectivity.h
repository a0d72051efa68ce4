#pragma once

/// Connectivity: node graphs, boundaries, neighbours, subdomains and colours, edges.
///
/// Graphs come in the compressed two-vector form: the entries of node n are `list[first[n]]` to `list[first[n + 1] - 1]`. `first` has
/// one entry more than nodes are covered, from `first[0]` = 0 upwards, and the nodes covered are those up to the largest index used.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

/// Turns a connectivity around: the elements that hold each node, ascending. An element that holds a node twice stands twice in its
/// range. Element kinds play no part; every entry but `none_index` counts. Linear in the entries.
///
/// @param connectivity  nodes of an element × elements
/// @param first         replaced; largest node index + 2 entries (one entry of 0 for an empty connectivity)
/// @param list          replaced; element indices
/// @return 0; -199 out of memory, or for node indices so close to `none_index` that the nodes can't be counted in 32 bits, with both
///         outputs empty
TQ4_GRIDWEAVE_API int get_connected_elements(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list);

/// The nodes that share an element with each node, without the node itself and without repeats, in the order of first encounter: through
/// the node's elements in ascending order and, within an element, in the order of its column. Standing in one column is enough; the ends
/// of a diagonal of a quadrangle are neighbours too. Linear in the sum, over all nodes, of the sizes of their elements.
///
/// @param connectivity  nodes of an element × elements
/// @param first         replaced; largest node index + 2 entries (one entry of 0 for an empty connectivity)
/// @param list          replaced; node indices
/// @return 0; -199 out of memory, or for a graph beyond 32-bit counts, with both outputs empty
TQ4_GRIDWEAVE_API int get_node_graph(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list);

/// One element that holds each node: the highest, or `none_index` where there is none. A vector handed in with a size keeps that size, and
/// only the entries of connected nodes below it are rewritten; an empty one takes largest node index + 1 entries.
///
/// @param connectivity  nodes of an element × elements; an empty one changes nothing
/// @param ancestors     in place; an element index per node
/// @return 0; -199 out of memory, with `ancestors` empty
TQ4_GRIDWEAVE_API int get_ancestors(const dense2D<unsigned>& connectivity, dense1D<unsigned>& ancestors);

} // namespace gridweave
} // namespace tq4
