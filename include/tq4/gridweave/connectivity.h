#pragma once

/// Connectivity: node graphs, boundaries, neighbours, subdomains and colours, edges.
///
/// Graphs come in the compressed two-vector form: the entries of node n are `list[first[n]]` to `list[first[n + 1] - 1]`. `first` has
/// one entry more than nodes are covered, from `first[0]` = 0 upwards, and the nodes covered are those up to the largest index used.
///
/// The local boundaries (sides) of the linear kinds, by positions in an element's column, in the order of their local numbers:
///   ELEM_BAR2    (1), (0)
///   ELEM_TRIA3   (1,2), (2,0), (0,1)
///   ELEM_QUAD4   (0,1), (1,2), (2,3), (3,0)
///   ELEM_TETRA4  (1,2,3), (2,0,3), (1,3,0), (2,1,0)
///   ELEM_PYRA5   (0,4,1), (1,4,2), (2,4,3), (3,4,0), (0,1,2,3)
///   ELEM_PENTA6  (0,1,2), (3,5,4), (2,1,4,5), (0,2,5,3), (1,0,3,4)
///   ELEM_HEXA8   (0,3,7,4), (1,5,6,2), (0,4,5,1), (3,2,6,7), (0,1,2,3), (4,7,6,5)
/// A column of ELEM_SURF_ANY or ELEM_SOLID_ANY has the sides of its shape. A boundaries matrix is a connectivity one dimension down: 1 row
/// of nodes for ELEM_BAR2, 2 rows for surface kinds, 3 for ELEM_TETRA4, 4 for the other solids, where a triangular face ends in
/// `none_index`. A boundary id is element × stride + local number, with the kind's `nbr_boundaries` as stride.
///
/// A linear kind, below, is one of ELEM_BAR2, ELEM_TRIA3, ELEM_QUAD4, ELEM_SURF_ANY, ELEM_TETRA4, ELEM_PYRA5, ELEM_PENTA6, ELEM_HEXA8 and
/// ELEM_SOLID_ANY. A mixed kind with the rows of a plain one is taken as that plain kind (see `element_type`).

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

/// Lists every side of every element, by ascending element and local number.
///
/// @param connectivity  nodes of an element × elements
/// @param boundaries    appended to; nodes of a side × sides
/// @return 0, also for an empty connectivity; -1 `check_IDs` by kind fails; -2 the kind is not linear, or `boundaries` has entries and
///         another row count; -199 out of memory, with the columns appended so far
TQ4_GRIDWEAVE_API int get_element_boundaries(const dense2D<unsigned>& connectivity, element_type kind, dense2D<unsigned>& boundaries);

/// Lists the free sides, those without a neighbour, by ascending element and local number.
///
/// @param connectivity  nodes of an element × elements
/// @param neighbors     what `get_neighbors` gave for this mesh; whether a side shared by three or more elements is free was decided there
/// @param boundaries    appended to; nodes of a side × free sides
/// @return 0, also for a connectivity with no columns; -1 the rows of the connectivity do not fit the kind; -2 `neighbors` has another
///         shape than nbr_boundaries(kind) × elements, or an entry that is neither none nor an element; -4 `boundaries` has entries and
///         another row count; -3 the kind is not linear; -199 out of memory, with the columns appended so far
TQ4_GRIDWEAVE_API int get_mesh_boundaries(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors, element_type kind,
                                          dense2D<unsigned>& boundaries);

/// Lists the free sides as boundary ids, in the order of `get_mesh_boundaries`.
///
/// @param neighbors  what `get_neighbors` gave for this mesh; entries are compared with none only
/// @param ids        appended to; one boundary id per free side
/// @param stride     replaced; the kind's `nbr_boundaries`, by which an id is taken apart (quotient: element, remainder: local number). 0
///                   for an empty connectivity and after -1.
/// @return 0, also for an empty connectivity; -1 `check_IDs` by kind fails; -2 the kind is not linear, or `neighbors` has another shape
/// than
///         nbr_boundaries(kind) × elements; -199 out of memory, with the ids appended so far
TQ4_GRIDWEAVE_API int get_mesh_bounding_elements(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors,
                                                 element_type kind, dense1D<unsigned>& ids, unsigned& stride);

/// Finds, for each of a list of boundary elements (such as the triangles of a skin mesh), the element and the side of a mesh on which it
/// lies. Nodes are compared as indices of one numbering. From the ancestor of a boundary's first node the search walks around that node
/// through the neighbour links, and takes the first side met that has the boundary's nodes in the same direction; without one, the last
/// side met that has them in reverse. Of the two elements at an interface it finds the one whose side runs as the boundary does.
///
/// The walk reaches what links connect: at a node where a mesh hangs together by that node alone it covers the part of the ancestor, and
/// boundaries on another part are not found. A walk around a node is made once for all boundaries that begin there.
///
/// @param boundaries    nodes of a side × boundaries; a triangle in a matrix of four rows ends in none
/// @param connectivity  nodes of an element × elements
/// @param neighbors     what `get_neighbors` gave for this mesh
/// @param ancestors     what `get_ancestors` gave for this mesh; a boundary whose first node has no ancestor is not found
/// @param kind          the kind of the mesh; that of the boundaries follows from it
/// @param ids           replaced; a boundary id per boundary, or `none_index` where it was not found
/// @param stride        replaced; the kind's `nbr_boundaries`, by which an id is taken apart; 0 after -1 to -4 of the tests
/// @return 0, also for boundaries without entries; -1 the rows of `boundaries`, -2 the rows of the connectivity do not fit the kind; -3
///         `neighbors` has another shape than nbr_boundaries(kind) × elements, or an entry that is neither none nor an element; -4
///         `ancestors` has such an entry; -5 the kind is not linear. Also -4 when an ancestor does not hold its node and -3 when an element
///         reached through a link does not: `ids` then holds what was found for the boundaries before, and none behind. -199 out of
///         memory, with `ids` empty
TQ4_GRIDWEAVE_API int get_elements_on_boundaries(const dense2D<unsigned>& boundaries, const dense2D<unsigned>& connectivity,
                                                 const dense2D<unsigned>& neighbors, const dense1D<unsigned>& ancestors, element_type kind,
                                                 dense1D<unsigned>& ids, unsigned& stride);

/// Finds the connected components of a neighbour matrix: sets of elements connected through its entries. Components come in the order of
/// their lowest element, and within one the elements come in the order of a breadth-first search from it, by row order of the sides. Links
/// are followed as they are stored; where they are not symmetric, an element that only points into an earlier component starts one of its
/// own. Linear in the entries.
///
/// @param neighbors  sides × elements; entries that are no element are passed over
/// @param indices    replaced; the element indices, component after component
/// @param offsets    replaced; component k is `indices[offsets[k]]` to `indices[offsets[k + 1] - 1]`. One entry of 0 without elements.
/// @return 0; -199 out of memory, with both outputs empty. A growth of `offsets` that fails is not reported: its entries are then missing.
TQ4_GRIDWEAVE_API int get_subdomains(const dense2D<unsigned>& neighbors, dense1D<unsigned>& indices, dense1D<unsigned>& offsets);

/// Reorders a mesh by connected components, in the order of the overload above: component k takes the columns `offsets[k]` to
/// `offsets[k + 1] - 1`, and the links are renumbered to fit. Nodes are not touched.
///
/// @param connectivity  in place; nodes of an element × elements
/// @param neighbors     in place; sides × elements; entries that are no element stay as they are
/// @param offsets       replaced, except after -2
/// @return 0; -2 the column counts differ; -199 out of memory, with both matrices unchanged
TQ4_GRIDWEAVE_API int get_subdomains(dense2D<unsigned>& connectivity, dense2D<unsigned>& neighbors, dense1D<unsigned>& offsets);

/// Lists the sides that separate elements of different colours, and the free sides, by ascending element and local number. Free sides are
/// listed once in any case.
///
/// @param connectivity  nodes of an element × elements
/// @param neighbors     what `get_neighbors` gave for this mesh
/// @param colors        one label per element; only equality counts, and `none_index` is a label like any other
/// @param both_sides    false: a separating side is listed once, as its lower element has it; true: twice, once from each element
/// @param boundaries    appended to; nodes of a side × sides
/// @return 0, also for a connectivity with no columns; -1 the rows of the connectivity do not fit the kind; -2 `neighbors` has other rows
///         than nbr_boundaries(kind), fewer columns than elements, or an entry that is neither none nor an element; -3 `colors` is not of
///         the number of elements; -5 `boundaries` has entries and another row count; -4 the kind is not linear; -199 out of memory, with
///         the columns appended so far
TQ4_GRIDWEAVE_API int get_colors_boundaries(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors,
                                            const dense1D<unsigned>& colors, element_type kind, bool both_sides,
                                            dense2D<unsigned>& boundaries);

/// Groups the columns of a padded connectivity by their number of nodes, in place: those with most nodes come first, and columns of equal
/// number keep their order. The nodes of a column are its entries before the first `none_index`; a column without any is dropped.
///
/// @param connectivity     in place; shrunk to the columns kept
/// @param neighbors        in place, unless it is empty: columns reordered and dropped in the same way, links renumbered. Links to dropped
///                         columns become none; entries that are no element stay.
/// @param nodes_per_group  replaced; the number of nodes of each group, descending (one group of 0 where no column is kept)
/// @param group_ends       replaced; the column behind the last one of each group
/// @param old_to_new       replaced; the new place of each former column, none for a dropped one
/// @return 0; -1 `neighbors` is not empty and has another number of columns, with nothing changed. Running out of memory is not reported:
/// the
///         matrices then stay as they are and the three lists come out empty.
TQ4_GRIDWEAVE_API int sort_elfes(dense2D<unsigned>& connectivity, dense2D<unsigned>& neighbors, dense1D<unsigned>& nodes_per_group,
                                 dense1D<unsigned>& group_ends, dense1D<unsigned>& old_to_new);

/// The same without a neighbour matrix.
/// @return 0
TQ4_GRIDWEAVE_API int sort_elfes(dense2D<unsigned>& connectivity, dense1D<unsigned>& nodes_per_group, dense1D<unsigned>& group_ends,
                                 dense1D<unsigned>& old_to_new);

/// One element that holds each node: the highest, or `none_index` where there is none. A vector handed in with a size keeps that size, and
/// only the entries of connected nodes below it are rewritten; an empty one takes largest node index + 1 entries.
///
/// @param connectivity  nodes of an element × elements; an empty one changes nothing
/// @param ancestors     in place; an element index per node
/// @return 0; -199 out of memory, with `ancestors` empty
TQ4_GRIDWEAVE_API int get_ancestors(const dense2D<unsigned>& connectivity, dense1D<unsigned>& ancestors);

/// Lists the distinct edges of a mesh, each once as (low, high) with low not above high, in ascending order. Of quadratic kinds the edges
/// run between corner nodes. An element with a repeated node gives an edge (n, n), which stays.
///
/// ELEM_PYRA13, ELEM_PENTA15, ELEM_HEXA20 and the kinds below ELEM_BAR2 add nothing, with result 0.
///
/// @param connectivity  nodes of an element × elements
/// @param edges         appended to; 2 × edges. Columns already there are not compared with the new ones.
/// @return 0, also for an empty connectivity; -1 `check_IDs` by kind fails; -3 `edges` has entries and not two rows; -199 no room in
/// `edges`.
///         Memory that runs out while edges are gathered is not reported: nothing is appended then.
TQ4_GRIDWEAVE_API int copy_edges(const dense2D<unsigned>& connectivity, element_type kind, dense2D<unsigned>& edges);

/// The same for a range of matrices taken as one mesh, so an edge that two of them share is listed once.
///
/// @param first, last  the range, `last` one past its end
/// @param kinds        one `element_type` per matrix
/// @return 0, also for an empty range; -2 `first` is behind `last`; -3 `kinds` is not of the length of the range; -4 `edges` has entries
/// and
///         not two rows; -1 `check_IDs` by kind fails for a matrix; -199 as above
TQ4_GRIDWEAVE_API int copy_edges(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds,
                                 dense2D<unsigned>& edges);

} // namespace gridweave
} // namespace tq4
