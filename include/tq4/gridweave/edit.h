#pragma once

/// Mesh editing: transforms, copies, compaction, node merging, clipping.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

// ---- Compaction -----------------------------------------------------------------------------------------------------------------------

/// Lists the distinct indices of `ids` in order of first appearance. `none_index` and the entries of `excluded` never come out.
///
/// @param out       appended to; what it holds already is not looked at, so an index can be appended again
/// @param ids       a list; walked from its first entry
/// @param excluded  indices that are passed over; usually empty
/// @return 0. Where memory runs out the indices that found no place are silently missing.
TQ4_GRIDWEAVE_API int unique_indices(dense1D<unsigned>& out, const dense1D<unsigned>& ids, dense1D<unsigned> excluded);

/// The same over the entries of a matrix, column by column from row 0.
TQ4_GRIDWEAVE_API int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>& ids, dense1D<unsigned> excluded);

/// The same over a range of matrices, one after the other.
/// @return 0; -3 when `first` is above `last`, with `out` as it was
TQ4_GRIDWEAVE_API int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                                     dense1D<unsigned> excluded);

/// Number of distinct indices in a matrix, `none_index` not counted.
/// @return the count; -199 out of memory
TQ4_GRIDWEAVE_API int count_unique_indices(const dense2D<unsigned>& ids);

/// The same over a range of matrices; an index that stands in several of them counts once.
/// @return the count; -2 when `first` is above `last`; -199 out of memory
TQ4_GRIDWEAVE_API int count_unique_indices(const dense2D<unsigned>* first, const dense2D<unsigned>* last);

/// Removes the columns that name one node twice. The order of the others and of the nodes in them stays.
///
/// @param connectivity  nodes of an element × elements; changed in place. The indices need not be valid.
/// @param new_ids       replaced; one entry per former column: its new place, or none where it was removed
/// @param strict        true: two `none_index` in a column count as a repeat, so a tetrahedron in an 8-row mixed matrix goes. False: they
///                      do not.
/// @return the number of removed columns; -199 out of memory, with `connectivity` as it was and `new_ids` empty
TQ4_GRIDWEAVE_API int remove_degenerated(dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, bool strict);
TQ4_GRIDWEAVE_API int remove_degenerated(dense2D<unsigned>& connectivity, bool strict);

/// Removes the nodes that no element uses and renumbers the rest; the order of the nodes stays. Fields over the nodes are the caller's to
/// shrink, with `new_ids`.
///
/// @param pos          coordinates × nodes, of any number of rows; loses the columns of unused nodes in place
/// @param first, last  matrices of node indices and `none_index`; renumbered in place
/// @param new_ids      replaced; one entry per former node: its new index, or none where it was removed. Empty where the call does nothing
///                     (empty range, empty `pos`, `start` not below the node count) or fails.
/// @param start        nodes below `start` are kept whether used or not; 0 protects none
/// @return the number of removed nodes; -3 when `first` is above `last`; -2 when an index is not below the columns of `pos`; -199 out of
///         memory. `pos` and the matrices stay as they were in all three cases.
TQ4_GRIDWEAVE_API int simplify(dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<unsigned>& new_ids,
                               unsigned start);

/// The same on one matrix.
TQ4_GRIDWEAVE_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, unsigned start);
TQ4_GRIDWEAVE_API int simplify(dense2D<double>& pos, dense2D<unsigned>& connectivity, unsigned start);

/// The same on two matrices. One matrix must not be given as both: it would be renumbered twice.
TQ4_GRIDWEAVE_API int simplify(dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, unsigned start);

} // namespace gridweave
} // namespace tq4
