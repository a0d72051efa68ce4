#pragma once

/// Element kinds, and the small functions over index lists on which everything else leans.
///
/// Conventions of the whole interface:
///   - A mesh is a coordinate matrix `pos` (2 or 3 rows × nodes) and a connectivity (nodes of an element × elements) of 0-based node
///     indices, with an `element_type`.
///   - `none_index` (0xFFFFFFFF) means no node or no element: the padding of a mixed matrix, the empty entry of a neighbour matrix, the
///     result of a lookup that found nothing.
///   - A matrix is empty when rows × columns is 0. Empty input is tested first and is no failure.
///   - `int` functions return 0 or a count, and a negative code on failure. -199 means out of memory everywhere. Nothing is thrown.

#include <tq4/export.h>
#include <tq4/numcore/dense1d.h>
#include <tq4/numcore/dense2d.h>

namespace tq4
{
namespace gridweave
{

/// The index that stands for no node and no element.
constexpr unsigned none_index = 0xFFFFFFFFu;

/// What a function returns when memory ran out.
constexpr int out_of_memory = -199;

/// The kinds of elements. In every kind the base (corner) nodes stand first in a column and the higher-order nodes follow them.
///
/// The mixed kinds hold several shapes of one dimension in one matrix; a column of a smaller shape is padded at its end with
/// `none_index`. `ELEM_SURF_ANY` has 4 rows (a triangle has none in row 3), `ELEM_SOLID_ANY` 8 rows (a prism has none in rows 6 and 7,
/// a pyramid in rows 5 to 7, a tetrahedron in rows 4 to 7). A mixed kind given with a matrix of fewer rows stands for the plain kind of
/// that many rows: `ELEM_SURF_ANY` with 3 rows is `ELEM_TRIA3`; `ELEM_SOLID_ANY` with 4, 5 or 6 rows is `ELEM_TETRA4`, `ELEM_PYRA5` or
/// `ELEM_PENTA6`.
enum element_type : int
{
    ELEM_NONE = 0,       ///< no element
    ELEM_NODE = 1,       ///< single node
    ELEM_BAR_ANY = 2,    ///< line elements of any kind
    ELEM_BAR2 = 3,       ///< 2-node edge
    ELEM_BAR3 = 4,       ///< 3-node edge
    ELEM_SURF_ANY = 5,   ///< triangles and quadrangles mixed
    ELEM_TRIA3 = 6,      ///< 3-node triangle
    ELEM_QUAD4 = 7,      ///< 4-node quadrangle
    ELEM_TRIA6 = 8,      ///< 6-node triangle
    ELEM_QUAD8 = 9,      ///< 8-node quadrangle
    ELEM_QUAD9 = 10,     ///< 9-node quadrangle
    ELEM_SOLID_ANY = 11, ///< tetrahedra, pyramids, prisms and hexahedra mixed
    ELEM_TETRA4 = 12,    ///< 4-node tetrahedron
    ELEM_TETRA10 = 13,   ///< 10-node tetrahedron
    ELEM_PYRA5 = 14,     ///< 5-node pyramid
    ELEM_PYRA13 = 15,    ///< 13-node pyramid
    ELEM_PYRA14 = 16,    ///< 14-node pyramid
    ELEM_PENTA6 = 17,    ///< 6-node prism
    ELEM_PENTA15 = 18,   ///< 15-node prism
    ELEM_PENTA18 = 19,   ///< 18-node prism
    ELEM_HEXA8 = 20,     ///< 8-node hexahedron
    ELEM_HEXA20 = 21,    ///< 20-node hexahedron
    ELEM_HEXA27 = 22     ///< 27-node hexahedron
};

/// Topological dimension of a kind: 0 for nodes and none, 1 for lines, 2 for surfaces, 3 for solids. A value that is no kind gives 0,
/// here and in the three functions below.
TQ4_GRIDWEAVE_API unsigned element_dim(element_type kind);

/// Nodes of an element of the kind. A mixed kind answers for its largest member (4 and 8; 2 for `ELEM_BAR_ANY`), which is the row count
/// of its matrix.
TQ4_GRIDWEAVE_API unsigned nbr_nodes(element_type kind);

/// Base (corner) nodes of an element of the kind.
TQ4_GRIDWEAVE_API unsigned nbr_base_nodes(element_type kind);

/// Sides of an element of the kind, one dimension down: end nodes of a line, edges of a surface element, faces of a solid.
TQ4_GRIDWEAVE_API unsigned nbr_boundaries(element_type kind);

/// Renumbers the entries of `ids` in place: an entry i below `new_ids.size` becomes `new_ids[i]`; any other, `none_index` among them,
/// stays. Mapped values are not checked.
TQ4_GRIDWEAVE_API void change_indices(dense1D<unsigned>& ids, const dense1D<unsigned>& new_ids);

/// The same for all entries of a matrix.
TQ4_GRIDWEAVE_API void change_indices(dense2D<unsigned>& ids, const dense1D<unsigned>& new_ids);

/// True when every entry is `none_index` or below `upper`, when the list is empty, or when `upper` is `none_index` (no limit).
TQ4_GRIDWEAVE_API bool check_IDs(const dense1D<unsigned>& ids, unsigned upper);

/// The same for all entries of a matrix.
TQ4_GRIDWEAVE_API bool check_IDs(const dense2D<unsigned>& ids, unsigned upper);

/// True when `ids` is a connectivity of the kind whose nodes are all below `upper`; the test that every call with a connectivity makes.
///
/// An empty matrix passes for any kind. A mixed kind is first resolved by the row count (see `element_type`). Then
///   - `ELEM_SURF_ANY` must have 4 rows (3 make it `ELEM_TRIA3`), and `none_index` may stand in row 3 alone;
///   - `ELEM_SOLID_ANY` must have 8 rows (4, 5 and 6 make it a plain kind); a `none_index` in row 4, 5 or 6 requires that all rows
///     behind it are none too, and it may stand nowhere else;
///   - any other kind must have `nbr_nodes(kind)` rows and no `none_index`.
///
/// An `upper` of `none_index` sets no limit but still refuses misplaced none entries.
TQ4_GRIDWEAVE_API bool check_IDs(const dense2D<unsigned>& ids, element_type kind, unsigned upper);

/// Relates two numberings. `b_in_a[j]` is the first position in `a` that holds `b[j]`; `a_in_b[i]` the first position in `b` that holds
/// `a[i]`, set only at the first position of a value in `a`. Entries without a counterpart are none, and so are those of `none_index`.
///
/// @param b_in_a  replaced; b.size entries
/// @param a_in_b  replaced; a.size entries
/// @return 0. Where memory runs out the outputs are shorter than told, or hold none.
TQ4_GRIDWEAVE_API int get_IDs(const dense1D<unsigned>& a, const dense1D<unsigned>& b, dense1D<unsigned>& b_in_a, dense1D<unsigned>& a_in_b);

/// Finds the columns of `b` among those of `a`, for instance the faces of one mesh among those of another.
///
/// @param a, b    nodes of a column × columns
/// @param b_in_a  replaced; b.cols entries, the lowest equal column of `a` or none
/// @param a_in_b  replaced; a.cols entries, the lowest equal column of `b` or none
/// @param exact   true: columns are equal entry for entry. False: they are the same cycle of nodes, from any start and in either direction.
/// @return 0; -2 when both have entries and their row counts differ (the outputs then hold none); -199 out of memory
TQ4_GRIDWEAVE_API int get_IDs(const dense2D<unsigned>& a, const dense2D<unsigned>& b, dense1D<unsigned>& b_in_a, dense1D<unsigned>& a_in_b,
                              bool exact);

/// Inverts a list of indices by a stable counting sort: the positions that hold the value v are `order[starts[v]]` to
/// `order[starts[v + 1] - 1]`, ascending. `none_index` entries are left out.
///
/// @param order   replaced; one entry per entry of `ids` that is not none
/// @param starts  replaced; largest value + 2 entries (one entry of 0 for an empty `ids`)
/// @return 0; -199 out of memory, with both outputs empty
TQ4_GRIDWEAVE_API int get_sorted_order(const dense1D<unsigned>& ids, dense1D<unsigned>& order, dense1D<unsigned>& starts);

/// The largest entry that is not `none_index`; 0 for a list of only none, `none_index` for an empty list.
TQ4_GRIDWEAVE_API unsigned max_ID(const dense1D<unsigned>& ids);

/// The same over a matrix. A matrix with no entries gives `none_index` when its `ld` equals its rows, and 0 otherwise.
TQ4_GRIDWEAVE_API unsigned max_ID(const dense2D<unsigned>& ids);

/// Moves the entry at i to `p[i]`, for i below the smaller of both sizes. Targets at or beyond `v.size` are ignored; places that no
/// `p[i]` names keep their entry; of two entries sent to one place the later one stays.
/// @return 0; -199 out of memory, with `v` unchanged
TQ4_GRIDWEAVE_API int permutation(dense1D<unsigned>& v, const dense1D<unsigned>& p);
TQ4_GRIDWEAVE_API int permutation(dense1D<double>& v, const dense1D<unsigned>& p);

/// Adds `shift` to every entry except `none_index`, wrapping in 32 bits.
/// @return 0
TQ4_GRIDWEAVE_API int shift_indices(dense1D<unsigned>& ids, int shift);

/// Adds `shift` to every entry of a connectivity. With a mixed kind `none_index` entries stay; with any other kind every entry is
/// shifted, `none_index` too, since a plain connectivity has no padding.
/// @return 0
TQ4_GRIDWEAVE_API int shift_indices(dense2D<unsigned>& ids, int shift, element_type kind);

/// The library's version, "4.9.0.0".
TQ4_GRIDWEAVE_API const char* version();

} // namespace gridweave
} // namespace tq4
