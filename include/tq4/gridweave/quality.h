#pragma once

/// Quality: edge lengths in a size field, element shape, Jacobians, size shock.

#include <tq4/auxkit/histogram.h>
#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

/// The length of an edge in a size field: 1 when it is exactly as long as the field asks for, 0.5 when half as long, 2 when twice. That is
/// `d` over the logarithmic mean of the end sizes, the integral of 1 / size along an edge whose size varies linearly.
///
/// @param d       length of the edge, in the unit of the sizes; 0 gives 0
/// @param h0, h1  sizes at the ends
/// @param q       the length in the field; untouched after a failure
/// @return 0; -2 when `h0` is not positive; -3 when `h1` is not positive (NaN is not)
TQ4_GRIDWEAVE_API int edge_quality(double d, double h0, double h1, double& q);

/// Counts the length of every distinct edge of a mesh, under a metric field, in a histogram: how well the mesh follows the field. With
/// sizes a value is that of `edge_quality`; with tensors the same measure is taken between the lengths under the tensors of both ends.
/// The gradation of the relaxations (`bound_metric_gradations`) is defined by the same length.
///
/// An edge counts once however many elements share it; edges are those of `copy_edges`, kinds without edges add none. Edges go to the
/// histogram in ascending order of (low node, high node). An edge is left out and makes the call fail when a size at its ends is not
/// positive, a tensor is not positive definite, or the field has no entry for an end; all the other edges are counted nevertheless.
/// Where memory runs out edges are silently missing, or skipped edges remain; the result tells how many were measured.
///
/// @param pos           2 or 3 rows × nodes
/// @param connectivity  nodes of an element × elements
/// @param metrics       3 rows (over 2-row `pos`) or 6 rows (over 3) × nodes, packed tensors
/// @param lengths       values are added; it is not reset
/// @param skipped       2 rows × edges to leave out, in either direction; may be empty
/// @return the number of edges; -1 when `pos` has neither 2 nor 3 rows; -2 when `check_IDs` refuses the connectivity; -4 when an edge could
///         not be measured; -6 when `check_IDs` refuses `skipped` as `ELEM_BAR2`
TQ4_GRIDWEAVE_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                     const dense2D<double>& metrics, auxkit::histogram& lengths, const dense2D<unsigned>& skipped);

/// The same with one size per node.
TQ4_GRIDWEAVE_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                     const dense1D<double>& sizes, auxkit::histogram& lengths, const dense2D<unsigned>& skipped);

/// The same for a range of matrices taken as one mesh. Note the codes: they are those of the range, and the single matrix has its own.
///
/// @param first, last   the matrices, `last` one past the end
/// @param kinds         one kind per matrix
/// @return the number of edges, 0 for an empty range before any other test; -1 when `pos` has neither 2 nor 3 rows; -4 when the range is
///         not as long as `kinds`, or `first` is behind `last`; -2 when `check_IDs` refuses a connectivity; -7 when it refuses `skipped` as
///         `ELEM_BAR2`; -5 when an edge could not be measured
TQ4_GRIDWEAVE_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                                     const dense1D<int>& kinds, const dense2D<double>& metrics, auxkit::histogram& lengths,
                                     const dense2D<unsigned>& skipped);

/// The same with one size per node.
TQ4_GRIDWEAVE_API int edge_qualities(const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                                     const dense1D<int>& kinds, const dense1D<double>& sizes, auxkit::histogram& lengths,
                                     const dense2D<unsigned>& skipped);

/// How violent a field is on an edge mesh: for each node the largest gradation of its edges, in the measure that
/// `bound_metric_gradations` limits. A gradation g means that the size grows by a factor 1 + g over an edge of unit length in the field. An
/// edge of no measurable length between different metrics has DBL_MAX, between equal ones 0. Nothing is changed but `shocks`. Linear.
///
/// @param pos      2 or 3 rows × nodes
/// @param edges    2 rows × edges
/// @param metrics  3 rows (over 2-row `pos`) or 6 rows (over 3) × nodes, packed tensors; edges of nodes that it has no column for are
///                 left out
/// @param shocks   cut or extended with 0 to one entry per node; entries that are there take part in the maximum. Untouched when `edges`
///                 is empty and after a failure. Where memory runs out it keeps its size, and nodes without an entry are left out.
/// @return 0; -1 when `pos` has neither 2 nor 3 rows; -2 when `check_IDs` refuses `edges` as `ELEM_BAR2`
TQ4_GRIDWEAVE_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics,
                              dense1D<double>& shocks);

/// The same with one size per node.
TQ4_GRIDWEAVE_API int H_shock(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense1D<double>& sizes,
                              dense1D<double>& shocks);

/// The shape quality of each element: 1 for the ideal shape of its kind (equilateral triangle, square, regular tetrahedron, pyramid with
/// equal edges, wedge with equilateral base and height equal to its side, cube), near 0 for a degenerate element, negative for an inverted
/// one. The value does not depend on size; it lies in [-1, 1].
///
/// A solid is positive in the sense of `get_element_boundaries`, whose faces have their right-handed normals pointing inwards: a
/// tetrahedron when det(p0 - p3, p1 - p3, p2 - p3) > 0, a pyramid when its base runs counter-clockwise seen from the apex, a wedge when
/// det(p1 - p0, p2 - p0, p3 - p0) > 0, a hexahedron when det(p1 - p0, p3 - p0, p4 - p0) > 0. Surface elements are positive when they run
/// counter-clockwise in the plane (2 coordinate rows), and have no sign in space.
///
/// Triangles and tetrahedra are measured by the inscribed radius over the longest edge (Parthasarathy, Graichen, Hathaway 1994; Pébay,
/// Baker 2003), the others by their worst corner. A quadrangle in space and a solid with quadrangular faces lose by the warp of their
/// faces, and a solid whose corners look healthy but whose faces do not all see its centroid gets the value of the worst face.
/// A nearly flat tetrahedron whose sign depends on the rounding gets 0, and so does an element with coordinates that are not numbers.
///
/// Kinds served: `ELEM_BAR2` (always 1), `ELEM_TRIA3`, `ELEM_QUAD4`, `ELEM_TETRA4`, `ELEM_PYRA5`, `ELEM_PENTA6`, `ELEM_HEXA8`,
/// `ELEM_SURF_ANY`, `ELEM_SOLID_ANY`. Cost: linear, and nothing is allocated but the result.
///
/// @param pos           2 or 3 rows × nodes; solids over 2 rows lie at z = 0
/// @param connectivity  nodes of an element × elements
/// @param qualities     replaced; one value per element, empty after a failure
/// @return 0, also for an empty connectivity; -2 when `check_IDs` refuses the connectivity for the kind and the nodes; -3 kind not served;
///         -199 out of memory
TQ4_GRIDWEAVE_API int shape_qualities(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                      dense1D<double>& qualities);

/// The worst element by `shape_qualities`, the first of equals. Nothing is allocated.
///
/// @param pos           as in `shape_qualities`
/// @param connectivity  as in `shape_qualities`
/// @param lowest        the lowest quality; 1 when no element is below 1, and after a failure
/// @param index         the column of that element; `none_index` when no element is below 1, and after a failure
/// @return 0, also for an empty connectivity; -2 and -3 as in `shape_qualities`
TQ4_GRIDWEAVE_API int min_quality(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, double& lowest,
                                  unsigned& index);

/// The Jacobian of each element's isoparametric map, at one point of its reference shape.
///
/// | kind          | reference shape                     | sample point         | value                                       |
/// |---------------|-------------------------------------|----------------------|---------------------------------------------|
/// | `ELEM_BAR2`   | -1 to 1                             | 0                    | half the length                             |
/// | `ELEM_TRIA3`  | area coordinates (ξ, η, 1 - ξ - η)  | (1/3, 1/3)           | twice the area                              |
/// | `ELEM_QUAD4`  | [-1, 1]²                            | (0, 0)               | a quarter of the area of a parallelogram    |
/// | `ELEM_TETRA4` | volume coordinates                  | (1/4, 1/4, 1/4)      | six times the signed volume                 |
/// | `ELEM_PYRA5`  | [-1, 1]² at ζ = 0, apex at ζ = 1    | (0, 0, 1/4)          | det of the tangents                         |
/// | `ELEM_PENTA6` | area coordinates × [-1, 1]          | (1/3, 1/3, 0)        | signed volume of a straight prism           |
/// | `ELEM_HEXA8`  | [-1, 1]³                            | (0, 0, 0)            | an eighth of a parallelepiped's volume      |
///
/// `ELEM_SURF_ANY` and `ELEM_SOLID_ANY` take the shape of each column. Bars and surface elements have norms, which are never negative,
/// also in the plane. A solid's value has the sign of its orientation (see `shape_qualities`), so a negative one flags an inverted element.
/// Cost: linear.
///
/// @param pos           2 or 3 rows × nodes; rows that are not there count as 0
/// @param connectivity  nodes of an element × elements
/// @param values        replaced; one value per element, empty after a failure
/// @return 0, also for an empty connectivity; -2 when `check_IDs` refuses the connectivity for the kind and the nodes; -3 kind not served
///         (see `shape_qualities`); -199 out of memory
TQ4_GRIDWEAVE_API int jacobians(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind,
                                dense1D<double>& values);

} // namespace gridweave
} // namespace tq4
