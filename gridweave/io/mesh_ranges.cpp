#include "gridweave/io/mesh_ranges.h"

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

namespace
{

/// The plain linear kind of a dimension with the given node count; `ELEM_NONE` if there is none.
element_type linear_kind(unsigned dim, unsigned nodes)
{
    for (unsigned kind = 0; kind < kind_count; ++kind)
    {
        const kind_record& record = kind_table[kind];
        const bool mixed = record.shape == topology::mixed_surface || record.shape == topology::mixed_solid;
        if (record.linear && !mixed && record.dim == dim && record.nodes == nodes) return static_cast<element_type>(kind);
    }
    return ELEM_NONE;
}

bool append_piece(plain_pieces& pieces, const dense2D<unsigned>& matrix, element_type kind, unsigned reference)
{
    // A failed push-back drops its value; the sizes tell.
    const unsigned size = pieces.matrices.size + 1;
    pieces.matrices.push_back(matrix);
    pieces.kinds.push_back(kind);
    pieces.references.push_back(reference);
    return pieces.matrices.size == size && pieces.kinds.size == size && pieces.references.size == size;
}

bool append_groups(plain_pieces& pieces, const dense2D<unsigned>& mixed, element_type kind, unsigned reference)
{
    dense2D<unsigned> sorted;
    dense1D<unsigned> nodes_per_group;
    dense1D<unsigned> group_ends;
    dense1D<unsigned> old_to_new;
    if (!sorted.copy(mixed)) return false;
    sort_elfes(sorted, nodes_per_group, group_ends, old_to_new);
    // Without memory there are no groups; otherwise there is at least one.
    if (group_ends.empty()) return false;

    unsigned begin = 0;
    for (unsigned group = 0; group < group_ends.size; ++group)
    {
        const unsigned nodes = nodes_per_group[group];
        const unsigned end = group_ends[group];
        const element_type plain = linear_kind(element_dim(kind), nodes);
        if (plain != ELEM_NONE && !append_piece(pieces, sorted.sub_matrix(0, begin, nodes, end - begin), plain, reference)) return false;
        begin = end;
    }
    return true;
}

} // namespace

bool split_by_kind(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds, plain_pieces& pieces)
{
    pieces.matrices.size = 0;
    pieces.kinds.size = 0;
    pieces.references.size = 0;
    for (unsigned reference = 0; first != last; ++first, ++reference)
    {
        if (first->empty()) continue;
        const element_type kind = narrow(static_cast<element_type>(kinds[reference]), first->rows);
        const bool mixed = kind == ELEM_SURF_ANY || kind == ELEM_SOLID_ANY;
        if (mixed ? !append_groups(pieces, *first, kind, reference) : !append_piece(pieces, *first, kind, reference)) return false;
    }
    return true;
}

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

bool join_matrices(const dense2D<unsigned>& first, const dense2D<unsigned>& second, unsigned rows, dense2D<unsigned>& joined)
{
    const std::uint64_t cols = std::uint64_t{first.cols} + second.cols;
    joined.clear();
    if (cols > none_index || !joined.resize(rows, static_cast<unsigned>(cols), none_index)) return false;
    unsigned column = 0;
    for (const dense2D<unsigned>* const part : {&first, &second})
        for (unsigned c = 0; c < part->cols; ++c, ++column)
            if (part->rows <= rows) std::copy_n(part->column(c), part->rows, joined.column(column));
    return true;
}

} // namespace tq4::gridweave
