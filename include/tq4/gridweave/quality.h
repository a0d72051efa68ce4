#pragma once

/// Quality: edge lengths in a size field, element shape, Jacobians, size shock.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

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
