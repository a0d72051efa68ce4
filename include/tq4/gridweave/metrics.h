#pragma once

/// Metric fields: validity, eigenstructure and bounds, intersection and union, conversions, size generation, gradation and variation
/// limits.
///
/// A metric describes the wanted element size at a node, in one of two forms that are never mixed in one field:
///   - isotropic: the size h itself, a length. A field is a `dense1D<double>` with one size per node.
///   - anisotropic: a symmetric positive definite tensor M of inverse squared sizes. Along a unit vector u the size is
///     1 / sqrt(uT M u), and the size h in all directions is M = (1 / h^2) I. A field is a `dense2D<double>` with one column per node
///     that holds the packed upper triangle: 3 rows (m00, m01, m11) in 2-D, 6 rows (m00, m01, m11, m02, m12, m22) in 3-D. The rows alone
///     tell the dimension; a matrix of any other row count is no metric field.
///
/// DBL_MAX, the largest finite double, stands for the absence of an upper limit. Every function is re-entrant; none throws.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4
{
namespace gridweave
{

// ---------------------------------------------------------------------------------------------------------------------------- validity

/// True when the smallest eigenvalue of the tensor is above 0. A tensor with a NaN or infinite entry is not valid. The condition number is
/// not looked at. In 3-D the answer is that of LAPACK's `dspev`, which is called only where rounding leaves a doubt.
TQ4_GRIDWEAVE_API bool is_valid_metric(const symmetric_fixed<double, 2>& M);
TQ4_GRIDWEAVE_API bool is_valid_metric(const symmetric_fixed<double, 3>& M);

/// The first size h without 0 < h < DBL_MAX (so 0, negatives, DBL_MAX, infinity and NaN are invalid).
/// @return its index, or `sizes.size` when there is none
TQ4_GRIDWEAVE_API unsigned first_invalid_metric(const dense1D<double>& sizes);

/// The first column that is no valid tensor.
/// @param metrics  3 or 6 rows × nodes
/// @return its index, or `metrics.cols` when there is none; 0 when the rows are neither 3 nor 6
TQ4_GRIDWEAVE_API unsigned first_invalid_metric(const dense2D<double>& metrics);

/// The same among listed nodes. An index at or beyond the end of the field counts as invalid.
/// @return the position in `indices` of the first one, or `indices.size` when there is none; 0 also when a tensor field has neither 3 nor
///         6 rows
TQ4_GRIDWEAVE_API unsigned first_invalid_metric(const dense1D<unsigned>& indices, const dense1D<double>& sizes);
TQ4_GRIDWEAVE_API unsigned first_invalid_metric(const dense1D<unsigned>& indices, const dense2D<double>& metrics);

/// True when `first_invalid_metric` of the same arguments finds none: when it equals the size (for a matrix the columns) of the first
/// argument. So an empty list is valid, and a matrix with columns but neither 3 nor 6 rows is not.
TQ4_GRIDWEAVE_API bool are_valid_metrics(const dense1D<double>& sizes);
TQ4_GRIDWEAVE_API bool are_valid_metrics(const dense2D<double>& metrics);
TQ4_GRIDWEAVE_API bool are_valid_metrics(const dense1D<unsigned>& indices, const dense1D<double>& sizes);
TQ4_GRIDWEAVE_API bool are_valid_metrics(const dense1D<unsigned>& indices, const dense2D<double>& metrics);

/// Lists the valid columns.
/// @param metrics  3 or 6 rows × nodes; with any other row count nothing is listed
/// @param indices  appended to, in ascending order. Where memory runs out an index is dropped silently.
TQ4_GRIDWEAVE_API void valid_metrics(const dense2D<double>& metrics, dense1D<unsigned>& indices);

/// Replaces sizes of 0 or less by positive fallbacks, over the shorter of both vectors. This is weaker than validity: a size that is NaN,
/// infinite or DBL_MAX stays, and a fallback that is NaN or not positive is never taken.
/// @param sizes  changed in place
/// @return how many sizes were replaced
TQ4_GRIDWEAVE_API int overwrite_invalid_metrics(dense1D<double>& sizes, const dense1D<double>& fallback);

/// Replaces invalid columns by valid fallback columns, over the shorter of both matrices.
/// @param metrics   3 or 6 rows × nodes, changed in place; an empty one returns 0 at once
/// @param fallback  as many rows as `metrics`
/// @return how many columns were replaced; -1 when the rows of `metrics` are neither 3 nor 6, -2 when those of `fallback` are neither or
///         differ from those of `metrics`
TQ4_GRIDWEAVE_API int overwrite_invalid_metrics(dense2D<double>& metrics, const dense2D<double>& fallback);

/// Replaces invalid columns by the isotropic tensor of a positive fallback size, over the shorter of both.
/// @param metrics  3 or 6 rows × nodes, changed in place; an empty one returns 0 at once
/// @return how many columns were replaced; -1 when the rows of `metrics` are neither 3 nor 6
TQ4_GRIDWEAVE_API int overwrite_invalid_metrics(dense2D<double>& metrics, const dense1D<double>& fallback);

// ----------------------------------------------------------------------------------------------------------- eigenstructure and bounds

/// Eigenvalues and unit eigenvectors of one tensor: in closed form in 2-D, by LAPACK's `dspev` in 3-D.
/// @param values   in ascending order
/// @param vectors  column k belongs to value k. In 2-D the second is the first after a quarter turn, and a multiple of the unit tensor has
///                 (1, 0) and (0, 1).
/// @return false when an eigenvalue (2-D) or an entry of the tensor (3-D) is infinite or NaN, or `dspev` does not converge; the outputs
///         then hold what was written so far
TQ4_GRIDWEAVE_API bool eigen_pairs(const symmetric_fixed<double, 2>& M, vector_fixed<double, 2>& values,
                                   matrix_fixed<double, 2, 2>& vectors);
TQ4_GRIDWEAVE_API bool eigen_pairs(const symmetric_fixed<double, 3>& M, vector_fixed<double, 3>& values,
                                   matrix_fixed<double, 3, 3>& vectors);

/// Eigenvalues and unit eigenvectors of a pair: B x = lambda A x, reduced to the problem of one tensor by a Cholesky factor of A.
/// @param values   in ascending order for a positive definite A
/// @param vectors  column k belongs to value k
/// @return false when A is not positive definite (in 2-D also when its first entry is 0; a negative definite one passes there), when the
///         reduced problem has no finite eigenvalues, or in 3-D when an entry is infinite or NaN or `dspev` does not converge; the outputs
///         then hold what was written so far. In 3-D a semidefinite A may pass: its eigenvalues are then infinite or NaN.
TQ4_GRIDWEAVE_API bool eigen_pairs(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B,
                                   vector_fixed<double, 2>& values, matrix_fixed<double, 2, 2>& vectors);
TQ4_GRIDWEAVE_API bool eigen_pairs(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B,
                                   vector_fixed<double, 3>& values, matrix_fixed<double, 3, 3>& vectors);

/// Limits the sizes of one tensor to hmin ... hmax. When the bounds cross, hmax wins in all directions. A tensor without finite
/// eigenvalues is replaced by the isotropic one of size hmin, where there is an hmin.
/// @param M     changed in place
/// @param hmin  smallest size; 0 or less for none
/// @param hmax  largest size; DBL_MAX, or 0 or less, for none
/// @return 1 when the tensor changed and is valid, 0 when not (no bound at all, nothing to change, a broken tensor without an hmin, or a
///         changed one that is not valid by rounding); -2 when hmin is infinite or NaN, -3 when hmax is. With hmin of 0 or less and an
///         hmax of exactly DBL_MAX the answer is 0 before all tests.
TQ4_GRIDWEAVE_API int bound_metric(symmetric_fixed<double, 2>& M, double hmin, double hmax);
TQ4_GRIDWEAVE_API int bound_metric(symmetric_fixed<double, 3>& M, double hmin, double hmax);

/// Limits sizes to hmin ... hmax. Sizes below hmin become hmin, others above hmax become hmax; NaN stays. Unlike with tensors an hmax of 0
/// or less is a real limit, and so is an hmin of 0 or less unless hmax is DBL_MAX.
/// @param sizes    changed in place
/// @param changed  replaced, even when the call fails: indices of the changed sizes, ascending. Where memory runs out an index is dropped
///                 silently; its size has still been changed.
/// @return how many sizes changed (the size of `changed` where there is one); 0 for an empty vector, then 0 with hmin of 0 or less and an
///         hmax of exactly DBL_MAX; -2 when hmin is infinite or NaN, -3 when hmax is
TQ4_GRIDWEAVE_API int bound_metrics(dense1D<double>& sizes, double hmin, double hmax);
TQ4_GRIDWEAVE_API int bound_metrics(dense1D<double>& sizes, double hmin, double hmax, dense1D<unsigned>& changed);

/// `bound_metric` for every column.
/// @param metrics  3 or 6 rows × nodes, changed in place
/// @param changed  replaced, even when the call fails: indices of the columns that count, ascending. Where memory runs out an index is
///                 dropped silently; its column has still been changed.
/// @return how many columns changed and are valid (the size of `changed` where there is one); 0 for an empty matrix, then 0 with hmin of 0
///         or less and an hmax of exactly DBL_MAX; -1 when the rows are neither 3 nor 6; -2 when hmin is infinite or NaN, -3 when hmax is
TQ4_GRIDWEAVE_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax);
TQ4_GRIDWEAVE_API int bound_metrics(dense2D<double>& metrics, double hmin, double hmax, dense1D<unsigned>& changed);

// ---------------------------------------------------------------------------------------------------------------- intersection and union

/// The metric that asks for the smaller size of two in every direction of their common basis (metric intersection by simultaneous
/// reduction).
/// @param result  replaced; may be A or B. A copy of A when the call fails.
/// @return false when the pair cannot be reduced: A is not positive definite, or a value of the result is not strictly between 0 and
///         DBL_MAX. In 3-D an infinite or NaN entry in A or B is such a case. A B that is not positive definite may pass: its values are
///         not the larger ones.
TQ4_GRIDWEAVE_API bool minimum_metric(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B,
                                      symmetric_fixed<double, 2>& result);
TQ4_GRIDWEAVE_API bool minimum_metric(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B,
                                      symmetric_fixed<double, 3>& result);

/// The metric that asks for the larger size of two in every direction of their common basis (metric union).
/// @param result  replaced; may be A or B. A copy of A when the call fails.
/// @return false when the pair cannot be reduced: A or B is not positive definite, or a value of the result is not strictly between 0 and
///         DBL_MAX. In 3-D an infinite or NaN entry in A or B is such a case.
TQ4_GRIDWEAVE_API bool maximum_metric(const symmetric_fixed<double, 2>& A, const symmetric_fixed<double, 2>& B,
                                      symmetric_fixed<double, 2>& result);
TQ4_GRIDWEAVE_API bool maximum_metric(const symmetric_fixed<double, 3>& A, const symmetric_fixed<double, 3>& B,
                                      symmetric_fixed<double, 3>& result);

// ---------------------------------------------------------------------------------------------------------------------------- conversions

/// The tensor of the size h: 1 / h^2 on the diagonal and 0 elsewhere; all 0 for an h that is NaN, 0 or less.
/// @param M  replaced
TQ4_GRIDWEAVE_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 2>& M);
TQ4_GRIDWEAVE_API void metric_iso_to_aniso(double h, symmetric_fixed<double, 3>& M);

/// The size h seen through a tangent basis: BT B / h^2; all 0 for an h that is NaN, 0 or less.
/// @param basis  two vectors of space, t0 and t1, one after the other. They carry the scale of the mapping from the plane to space and need
///               be neither orthogonal nor of unit length.
/// @param M      replaced
TQ4_GRIDWEAVE_API void metric_iso_to_aniso2d(double h, const matrix_fixed<double, 3, 2>& basis, symmetric_fixed<double, 2>& M);

/// The tensor that a tensor of space induces on a tangent plane: BT M3 B. Validity is not tested.
/// @param basis  as above
/// @param M2     replaced
TQ4_GRIDWEAVE_API void metric_aniso3d_to_aniso2d(const symmetric_fixed<double, 3>& M3, const matrix_fixed<double, 3, 2>& basis,
                                                 symmetric_fixed<double, 2>& M2);

/// Writes the tensor of every positive size into its column. A column whose size is NaN, 0 or less stays, and so do columns beyond the
/// sizes.
/// @param metrics  3 rows (2-D) or 6 rows (3-D) × at least sizes.size columns, provided by the caller
/// @return 0 (at once when both are empty); -2 when the rows differ from that or the columns are too few
TQ4_GRIDWEAVE_API int metrics_iso_to_aniso2d(const dense1D<double>& sizes, dense2D<double>& metrics);
TQ4_GRIDWEAVE_API int metrics_iso_to_aniso3d(const dense1D<double>& sizes, dense2D<double>& metrics);

/// `metric_iso_to_aniso2d` with a basis for every size. Unlike the forms without bases it writes every column: one whose size is NaN, 0 or
/// less becomes all 0. Columns beyond the sizes stay.
/// @param bases    6 rows (t0 in rows 0 to 2, t1 in rows 3 to 5) × sizes.size
/// @param metrics  3 rows × at least sizes.size columns, provided by the caller
/// @return 0 (at once when all three are empty); -2 when the rows or columns of `bases` differ from that; -3 when the rows of `metrics` do
///         or its columns are too few
TQ4_GRIDWEAVE_API int metrics_iso_to_aniso2d(const dense1D<double>& sizes, const dense2D<double>& bases, dense2D<double>& metrics);

/// `metric_aniso3d_to_aniso2d` for every column. Columns of `metrics2d` beyond those of `metrics3d` stay.
/// @param metrics3d  6 rows × nodes
/// @param bases      6 rows (t0 in rows 0 to 2, t1 in rows 3 to 5) × nodes
/// @param metrics2d  3 rows × at least as many columns, provided by the caller
/// @return 0 (at once when all three are empty); -1 when the rows of `metrics3d` are not 6; -2 when the rows or columns of `bases` differ
///         from those told; -3 when the rows of `metrics2d` do or its columns are too few
TQ4_GRIDWEAVE_API int metrics_aniso3d_to_aniso2d(const dense2D<double>& metrics3d, const dense2D<double>& bases,
                                                 dense2D<double>& metrics2d);

// ------------------------------------------------------------------------------------------------------------------------ size generation

/// Derives a size for every node from the lengths of the element edges that meet there, for remeshing at the density of a mesh. An edge
/// counts once for each element that has it; edges of zero, infinite or NaN length do not count.
///
/// @param pos           coordinates × nodes
/// @param connectivity  nodes of an element × elements, of a linear kind
/// @param sizes         changed in place and grown to one size per node. A node without edges that count keeps the size it had, or gets 0
///                      where `sizes` was too short to hold one; every other one loses its former size.
/// @param p             which mean of the lengths: 0 the shortest, DBL_MAX the longest, any other positive value the power mean
///                      (sum of d^p / count)^(1 / p), so 1 the arithmetic mean and 2 the root mean square
/// @return 0 (at once, with `sizes` as it was, for an empty connectivity); -1 when the elements have more dimensions than the coordinates;
///         -2 when the connectivity fails `check_IDs`; -5 when p is below 0; -199 out of memory; -3 for a kind that is not linear. With the
///         last two codes `sizes` may have grown.
TQ4_GRIDWEAVE_API int metrics_gen_iso(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                      dense1D<double>& sizes, double p);

// ---------------------------------------------------------------------------------------------------------------- gradation and variation

/// Limits the gradation of a field over a mesh, in place: the metrics of nodes move, the worst edge first, until no move is left that
/// would bring an edge of the node graph down to the limit `g`.
///
/// The gradation of an edge is the growth of the size along it, per unit of metric length: neighbouring elements that follow the field
/// grow by a factor of at most 1 + g. An edge joins two nodes that stand in one element, so the diagonals of a quadrangle and the
/// mid-side nodes of a quadratic element count too. To correct an edge, the metric of one end moves towards that of the other until the
/// edge meets the limit. A tensor moves in the sizes on the basis that it has in common with its neighbour's, and gives no ground in any
/// direction against its own way of travel. A node that touches frozen nodes moves only as far as this reduces the excess on the edges
/// to these; when those edges are within the limit it stays where it is.
///
/// With direction 1 or -1 and no frozen node, no edge is left above exp(ln(1 + g) / 0.999) - 1 (moves of less than a thousandth of
/// the way are not made), and a second call changes no bit. Two neighbours of a frozen node may keep an edge above the limit. With
/// direction 0 a node goes on in the direction of its first move, and nodes that grow and nodes that shrink can meet and leave edges
/// above the limit: sizes of 8, 1, 8 on a line of unit edges become 1, 8, 8 under a limit of 0. -1 is the usual choice, since it keeps
/// every size that was asked for from being exceeded.
///
/// Invalid sizes and tensors take part by what the arithmetic makes of them: an edge that cannot be measured counts as infinitely
/// steep, and a move that would not give a valid metric is not made. Edges of zero length between different sizes are closed by copying
/// a size; between different tensors they stay.
///
/// The cost is that of the moves, each of which measures and queues the edges of one node again: the sum over all moves of degree times
/// log(queue length). Nothing but the field itself bounds their number, and nothing caps it. Sizes that jump at random over three orders of
/// magnitude on n nodes take some 5 n moves under direction 0 or 1 and 1.5 n under -1, tensors 10 n; 20 small places in a wide field take
/// 9 n under -1, since the waves around them overtake each other. Nodes beside frozen ones cost some 20 trials per move. Among invalid
/// tensors one of next to nothing (entries of 1e-160 and below) may creep by roundings, billions of moves long: ask `are_valid_metrics`
/// first where a field comes from outside. Beside the node graph the queue takes 8 bytes per entry, of which there are up to twice the
/// edges above the limit per move, and 16 more for each that may come to something; a field of sizes takes 8 per edge and direction.
///
/// @param pos             coordinates, 2 or 3 rows × nodes
/// @param connectivity    nodes of an element × elements
/// @param kind            kind of the elements
/// @param indices         nodes in a list; `none_index` entries are skipped
/// @param indices_frozen  true: the listed nodes are frozen and all others may move. False: only the listed nodes may move.
/// @param direction       1: sizes may only grow. -1: they may only shrink. 0: each node goes the way of its first move. Taken modulo 256;
///                        with any other value nothing moves.
/// @param g               the limit, 0 or more; DBL_MAX asks for nothing
/// @param metrics         a tensor per node, 3 rows × nodes over coordinates of 2 rows, 6 rows × nodes over 3; changed in place. Columns
///                        behind the mesh's last node stay.
/// @return the number of nodes moved (0 for an empty connectivity or g equal to DBL_MAX, before any other test); -1 when the coordinates
///         have neither 2 nor 3 rows; -2 when the connectivity does not fit its kind or names a node beyond the coordinates; -4 for such a
///         node in `indices`; -7 for a negative limit; -8 when the field has another row count or is shorter than the mesh needs; -199 out
///         of memory, or for more queued edges than 32-bit counts hold, where moves made so far stay in the field
TQ4_GRIDWEAVE_API int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                              const dense1D<unsigned>& indices, bool indices_frozen, int direction, double g,
                                              dense2D<double>& metrics);

/// The same for a field of sizes, one per node; vectors longer than the mesh keep their rest.
TQ4_GRIDWEAVE_API int bound_metric_gradations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                              const dense1D<unsigned>& indices, bool indices_frozen, int direction, double g,
                                              dense1D<double>& sizes);

/// Limits the variation of a field over a mesh, in place: the size difference along an edge per unit of its real length, |h0 - h1| / d.
/// Everything else is as for `bound_metric_gradations`, the result and its codes too, with two differences. The guarantee under
/// direction 1 or -1 without frozen nodes is a variation of at most v / 0.999, and differences of sizes of at most 1e-12 times the edge's
/// length are left alone. An edge of zero length between different sizes is closed by copying a size.
///
/// @param v  the limit, 0 or more; DBL_MAX asks for nothing
TQ4_GRIDWEAVE_API int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                              const dense1D<unsigned>& indices, bool indices_frozen, int direction, double v,
                                              dense2D<double>& metrics);

/// The same for a field of sizes, one per node.
TQ4_GRIDWEAVE_API int bound_metric_variations(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                              const dense1D<unsigned>& indices, bool indices_frozen, int direction, double v,
                                              dense1D<double>& sizes);

} // namespace gridweave
} // namespace tq4
