#include "gridweave/io/mesh_ranges.h"

#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

element_type kind_of_column(element_type run_kind, const unsigned* column, unsigned rows)
{
    const auto is_node = [&](unsigned row) { return row < rows && column[row] != none_index; };
    if (run_kind == ELEM_SURF_ANY) return is_node(3) ? ELEM_QUAD4 : ELEM_TRIA3;
    if (run_kind != ELEM_SOLID_ANY) return run_kind;
    if (!is_node(4)) return ELEM_TETRA4;
    if (!is_node(5)) return ELEM_PYRA5;
    return is_node(6) ? ELEM_HEXA8 : ELEM_PENTA6;
}

bool is_valid_run(const dense2D<unsigned>& connectivity, const column_run& run, element_type kind)
{
    // A solid run is cut to 20 rows and not to 8: in a taller matrix, which holds quadratic elements in other runs, a mixed solid run is
    // refused. That is deliberate, hosts rely on the code.
    unsigned rows = nbr_nodes(kind);
    if (kind == ELEM_SURF_ANY) rows = std::min(connectivity.rows, 4u);
    if (kind == ELEM_SOLID_ANY) rows = std::min(connectivity.rows, 20u);
    if (run.begin == run.end) return true;
    if (rows > connectivity.rows) return false;
    return check_IDs(connectivity.sub_matrix(0, run.begin, rows, run.end - run.begin), kind, none_index);
}

bool widen_coordinates(dense2D<double>& pos, unsigned cols)
{
    if (cols <= pos.cols) return true;
    if (cols > pos.column_capacity() || pos.ld == 0) pos.reserve(3, columns_to_reserve(cols - 1), 1);
    // Where the reservation ahead of need failed, the exact width may still fit.
    return pos.resize(3, cols);
}

} // namespace tq4::gridweave
