#pragma once

/// Mesh editing: transforms, copies, compaction, node merging, clipping.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4
{
namespace gridweave
{

// ---- Coordinate transforms ------------------------------------------------------------------------------------------------------------
//
// `translate`, `rotate` and `zoom` move nodes in place; `inc_bounding_box` measures them. Each family has a form for the plane (N = 2) and
// one for space (N = 3), told apart by the size of its vectors, and in each form three ways to say which nodes are meant:
//   - nothing further: every column of `pos`;
//   - `ids`: the listed nodes, in the order of the list. Entries that are no column of `pos`, `none_index` among them, are skipped, and a
//     node listed twice moves twice;
//   - `connectivity` (nodes of an element × elements): the nodes that it uses, each once; padding and entries that are no column of `pos`
//     are skipped. Where memory for their list runs out, nodes are left out of it.
//
// A matrix of fewer than N rows is raised to N rows with zeros before its nodes move, and moves into storage of its own then; where there
// is no memory for that, nothing moves and the result is 0. Rows beyond N stay as they are: a turn in the plane leaves z. Apart from the
// stated comparisons NaN is not looked at and spreads to the nodes.
//
// The cost is one pass over the nodes meant; over all nodes it runs at the speed of memory.

/// Moves nodes by `v`: x becomes x + v.
///
/// @param pos  2 or 3 rows × nodes, changed in place
/// @return the number of moves made; 0, with `pos` as it was, when `pos` is empty, every component of `v` is 0, or the list is empty
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v);
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v, const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v, const dense2D<unsigned>& connectivity);
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v);
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v, const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v, const dense2D<unsigned>& connectivity);

/// Turns nodes about `centre` in the plane, by `angle` radians, counter-clockwise where it is positive.
///
/// @param pos  2 or 3 rows × nodes, changed in place
/// @return the number of moves made; 0, with `pos` as it was, when `pos` is empty or `angle` is 0; 0 for an empty list too, which still
///         raises a matrix of one row to two
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle);
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle, const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle,
                             const dense2D<unsigned>& connectivity);

/// Turns nodes in space about an axis through `centre`. `rotation` is a rotation vector: its direction is that of the axis, right-handed,
/// and its length the angle in radians. The matrix is that of Rodrigues (1840); for lengths up to 0.1 its two coefficients come from their
/// series, so that a small turn is as accurate as a large one.
///
/// @param pos  2 or 3 rows × nodes, changed in place
/// @return the number of moves made; 0, with `pos` as it was, when `pos` is empty or every component of `rotation` is 0; 0 for an empty
///         list too, which still raises a matrix of fewer rows to three
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation);
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
                             const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
                             const dense2D<unsigned>& connectivity);

/// Scales nodes about `centre`: x becomes x + (x - centre) (factor - 1). A factor of 2 doubles the distance from the centre, 0 takes every
/// node there, -1 mirrors in it.
///
/// @param pos  2 or 3 rows × nodes, changed in place
/// @return the number of moves made; 0, with `pos` as it was, when `pos` is empty, `factor` is 1, or the list is empty
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor);
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor, const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor,
                           const dense2D<unsigned>& connectivity);
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor);
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor, const dense1D<unsigned>& ids);
TQ4_GRIDWEAVE_API int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor,
                           const dense2D<unsigned>& connectivity);

/// Widens the box from `min` to `max` so that it holds the nodes. The box is never reset: the caller seeds it, usually with large values
/// of opposite sign (`min` above `max`), and may span several sets of nodes by calling again. A NaN coordinate is skipped.
///
/// @param pos       exactly N rows × nodes
/// @param min, max  changed in place, and left as they came by every failure
/// @return 0, also for an empty list (tested first) and a `pos` without columns; -1 when `pos` has not exactly N rows; -2 when `ids` or
///         `connectivity` names a node at or beyond the columns of `pos` (`none_index` is skipped)
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& min, vector_fixed<double, 2>& max);
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& ids, vector_fixed<double, 2>& min,
                                       vector_fixed<double, 2>& max);
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, vector_fixed<double, 2>& min,
                                       vector_fixed<double, 2>& max);
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& min, vector_fixed<double, 3>& max);
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& ids, vector_fixed<double, 3>& min,
                                       vector_fixed<double, 3>& max);
TQ4_GRIDWEAVE_API int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, vector_fixed<double, 3>& min,
                                       vector_fixed<double, 3>& max);

// ---- Mesh copies ----------------------------------------------------------------------------------------------------------------------
//
// A copy of a part of a mesh lives in the same coordinate matrix: the nodes that `connectivity` (nodes of an element × elements) uses are
// appended to `pos` in the order of their first appearance, and the result refers to them. Padding stays. Entries at or beyond the columns
// of `pos` make no node and stay as they are.

/// Copies the nodes and elements of a part of a mesh.
///
/// @param pos               rows × nodes; the copied nodes are appended
/// @param new_connectivity  replaced: `connectivity` in terms of the new nodes; may be `connectivity` itself
/// @return 0; -199 out of memory, with nothing changed
TQ4_GRIDWEAVE_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const dense2D<unsigned>& connectivity);

/// Copies a part of a mesh n times in a pattern of the plane. The k-th copy (k = 1 to n) is made from the source, turned about `centre` by
/// k × `angle` (`rotate`), then moved by k × `translation` (`translate`). The source itself is not in the result.
///
/// @param pos         2 or 3 rows × nodes; the nodes of the copies are appended, and one row is raised to two as by the transforms
/// @param all_copies  the elements of the copies are appended, one copy behind the other; may be `connectivity` itself. It keeps its rows
///                    if it has any: longer columns are cut to them, shorter ones padded with `none_index`.
/// @return 0, also when `pos` is empty or `n` is 0, with nothing done; -199 out of memory, with the copies made so far in both outputs
TQ4_GRIDWEAVE_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& all_copies, const vector_fixed<double, 2>& translation,
                                const vector_fixed<double, 2>& centre, double angle, unsigned n, const dense2D<unsigned>& connectivity);

/// The same in space, with the k-th copy turned by the rotation vector k × `rotation`; fewer rows of `pos` are raised to three.
TQ4_GRIDWEAVE_API int copy_mesh(dense2D<double>& pos, dense2D<unsigned>& all_copies, const vector_fixed<double, 3>& translation,
                                const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation, unsigned n,
                                const dense2D<unsigned>& connectivity);

/// Copies a part of a mesh and mirrors the copy in the plane (the line, for N = 2) through `point` with the normal `normal`, of any
/// length. Columns keep their order, so the mirrored elements have the opposite orientation; turning them round is the caller's.
///
/// @param pos               2 or 3 rows × nodes; the mirrored nodes are appended, and fewer than N rows are raised to N with zeros
/// @param new_connectivity  replaced: `connectivity` in terms of the new nodes; may be `connectivity` itself
/// @return 0, also when `pos` is empty, with nothing done; -4 when the squared length of `normal` is 0; -199 out of memory. Failures
///         change nothing.
TQ4_GRIDWEAVE_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const vector_fixed<double, 2>& point,
                                    const vector_fixed<double, 2>& normal, const dense2D<unsigned>& connectivity);
TQ4_GRIDWEAVE_API int copy_sym_mesh(dense2D<double>& pos, dense2D<unsigned>& new_connectivity, const vector_fixed<double, 3>& point,
                                    const vector_fixed<double, 3>& normal, const dense2D<unsigned>& connectivity);

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

// ---- Node merging ---------------------------------------------------------------------------------------------------------------------
//
// A node moves to the closest node within the tolerance that stands earlier, and on along the chain of such moves: with a tolerance of 1
// nodes at 0, 0.9 and 1.8 all become the first, although it is farther than the tolerance from the last. Distances are compared squared and
// the tolerance is included, so a tolerance of 0 merges nodes at exactly the same place; among equally close nodes the last in the order
// of the search tree wins (the order of `node_detector::find_in_box`). No column of coordinates is removed: that is left to `simplify`.
//
// In all forms `tol` is a length in the units of `pos`, and NaN merges nothing. `new_ids` is replaced: one entry per node, the index of its
// survivor, which is the node itself where nothing happened to it; it is empty where a call ends before the nodes are looked at. -199
// means out of memory; connectivities and coordinates are then as they were, unless told otherwise.
//
// Cost: about n log n as long as few places lie within the tolerance of each other, however many nodes stand at one; beyond that it grows
// with the number of such pairs of places. Where a finite coordinate or the tolerance exceeds 1e150, or where so few coordinates are so far
// off that all others look like one crowd beside them, it grows with the number of pairs of nodes, those at one place included. Merging
// within elements takes, per pass, the square of the rows for each column; passes until nothing is left are few on meshes, but may be as
// many as there are nodes where all elements meet at one node and lie within the tolerance.

/// Merges all nodes of a mesh, lower indices surviving, and writes the survivors' coordinates over the merged nodes.
///
/// @param pos  2 or 3 rows × nodes; changed in place
/// @return the number of nodes merged; -1 when the rows are neither 2 nor 3; -3 when `tol` is negative; -199
TQ4_GRIDWEAVE_API int merge(dense2D<double>& pos, dense1D<unsigned>& new_ids, double tol);
TQ4_GRIDWEAVE_API int merge(dense2D<double>& pos, double tol);

/// Merges the nodes of one list into those of another; only `new_ids` is filled. "Earlier" is the place in `targets`; a node that is in
/// `ids` alone may move to any target, and a target moves only when it is in `ids` too.
///
/// @param ids, targets  node indices; `none_index` and repeats are passed over
/// @param new_ids       as told above; empty when a list names no node
/// @return the number of nodes merged; -1 when the rows are neither 2 nor 3; -2, -3 when an index of `ids`, of `targets` is not below the
///         columns of `pos`; -4 when `tol` is negative; -199
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets,
                            dense1D<unsigned>& new_ids, double tol);

/// The same with one list for both.
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, const dense1D<unsigned>& ids, dense1D<unsigned>& new_ids, double tol);

/// Merges nodes of a range of matrices taken as one mesh, and renumbers the matrices. Nodes that stand in no column are not considered.
///
/// @param pos          2 or 3 rows × nodes; not changed, so nodes that lose their references stay in it
/// @param first, last  matrices of node indices and `none_index`; renumbered in place
/// @param mode         0: merge all nodes within the tolerance, those that appear first surviving. 1: merge only nodes of one element,
///                     shortest sides first, in one pass over the elements; a node is merged away at most once in it. 2: repeat such passes
///                     until one merges nothing.
/// @param new_ids      as told above; empty when the range is, the identity after -2
/// @return the number of nodes merged; -1 when the rows are neither 2 nor 3; -3 when `first` is above `last`; -5 when `tol` is negative;
///         -6 when `mode` is above 2; -2 when an index is not below the columns of `pos`; -199 (with mode 2 passes may be done by then,
///         and the matrices and `new_ids` show them)
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<unsigned>& new_ids,
                            double tol, unsigned mode);
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, double tol, unsigned mode);

/// The same on one matrix.
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, double tol,
                            unsigned mode);
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>& connectivity, double tol, unsigned mode);

/// The same on two matrices.
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, dense1D<unsigned>& new_ids,
                            double tol, unsigned mode);
TQ4_GRIDWEAVE_API int merge(const dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, double tol, unsigned mode);

// ---- Clipping -------------------------------------------------------------------------------------------------------------------------

/// Keeps the elements that lie wholly in front of a plane, on the side that `normal` points to. No element is cut: one that touches or
/// crosses the plane goes.
///
/// @param pos           2 or 3 rows × nodes; a mesh of two rows is held against the plane in x and y alone
/// @param connectivity  nodes of an element × elements; a `none_index` ends a column, whose nodes before it decide
/// @param point         a point of the plane
/// @param normal        of any length from 1e-12 up
/// @param kept          the columns of the elements that stay are appended, in their order. An empty `kept` takes the rows of
///                      `connectivity` if it has fewer; if it has more, the columns are padded with `none_index`.
/// @return 0; and, tested in this order: 0 for an empty connectivity, -2 when it names a node at or beyond the columns of `pos`, -4 when
///         `normal` is shorter than 1e-12, -5 when `kept` is not empty and has other rows than `connectivity`; -199 out of memory.
///         Failures leave `kept` as it was.
TQ4_GRIDWEAVE_API int clip(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, const vector_fixed<double, 3>& point,
                           const vector_fixed<double, 3>& normal, dense2D<unsigned>& kept);

} // namespace gridweave
} // namespace tq4
