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

/// Finds, for every side of every element, the element on the other side. Sides are matched by their node indices alone, in any rotation
/// and in either direction: elements are neighbours even if their orientations disagree. A triangular face never equals a quadrangular
/// one.
///
/// @param connectivity  nodes of an element × elements
/// @param kind          a linear kind
/// @param link_shared   what becomes of a side that three or more elements share. False: it is a boundary, without neighbours. True: its
///                      first element points at the last one and all others at the first (so these links are not symmetric).
/// @param neighbors     replaced; nbr_boundaries(kind) × elements, an element index or `none_index`; rows beyond the sides of a column of
///                      a mixed matrix hold none. Empty for an empty connectivity and after -1 and -2.
/// @return 0; -1 `check_IDs` by kind fails; -2 the kind is not linear; -199 out of memory, with `neighbors` empty or filled with none
TQ4_GRIDWEAVE_API int get_neighbors(const dense2D<unsigned>& connectivity, element_type kind, bool link_shared,
                                    dense2D<unsigned>& neighbors);

/// One element that holds each node: the highest, or `none_index` where there is none. A vector handed in with a size keeps that size, and
/// only the entries of connected nodes below it are rewritten; an empty one takes largest node index + 1 entries.
///
/// @param connectivity  nodes of an element × elements; an empty one changes nothing
/// @param ancestors     in place; an element index per node
/// @return 0; -199 out of memory, with `ancestors` empty
TQ4_GRIDWEAVE_API int get_ancestors(const dense2D<unsigned>& connectivity, dense1D<unsigned>& ancestors);

} // namespace gridweave
} // namespace tq4
