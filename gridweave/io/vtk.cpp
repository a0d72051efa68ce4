#include <algorithm>
#include <array>

#include <tq4/gridweave/io.h>

#include "gridweave/core/kinds.h"
#include "gridweave/core/points.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

struct cell_layout
{
    std::uint8_t code;   ///< VTK's cell type; 0 for a kind that the format refuses
    std::uint8_t points; ///< leading rows of a column that make the cell
};

constexpr cell_layout line{3, 2};
constexpr cell_layout cell_triangle{5, 3};
constexpr cell_layout quad{9, 4};
constexpr cell_layout tetra{10, 4};
constexpr cell_layout hexa{12, 8};
constexpr cell_layout prism{13, 6};
constexpr cell_layout cell_pyramid{14, 5};
constexpr cell_layout refused{0, 0};

constexpr unsigned poly_vertex_code = 2;

// PYRA13 and PENTA15 are refused although PYRA14 and PENTA18 pass. That gap is deliberate: hosts rely on the code.
constexpr std::array<cell_layout, kind_count> layouts{{
    refused,       refused, refused,      // ELEM_NONE, ELEM_NODE, ELEM_BAR_ANY
    line,          line,                  // ELEM_BAR2, ELEM_BAR3
    refused,                              // ELEM_SURF_ANY
    cell_triangle, quad,                  // ELEM_TRIA3, ELEM_QUAD4
    cell_triangle, quad,    quad,         // ELEM_TRIA6, ELEM_QUAD8, ELEM_QUAD9
    refused,                              // ELEM_SOLID_ANY
    tetra,         tetra,                 // ELEM_TETRA4, ELEM_TETRA10
    cell_pyramid,  refused, cell_pyramid, // ELEM_PYRA5, ELEM_PYRA13, ELEM_PYRA14
    prism,         refused, prism,        // ELEM_PENTA6, ELEM_PENTA15, ELEM_PENTA18
    hexa,          hexa,    hexa          // ELEM_HEXA8, ELEM_HEXA20, ELEM_HEXA27
}};

/// Makes a list longer by `count` entries; doubling keeps a host that converts many small matrices linear.
bool lengthen(dense1D<unsigned>& list, std::uint64_t count)
{
    const std::uint64_t size = list.size + count;
    if (size > none_index) return false;
    list.reserve(static_cast<unsigned>(size), 2);
    const unsigned before = list.size;
    if (list.resize(static_cast<unsigned>(size))) return true;
    list.size = before;
    return false;
}

void write_points(text_writer& out, const dense2D<double>& pos)
{
    constexpr real_format coordinate{'f'};
    out.text("\nPOINTS ");
    out.integer(pos.cols);
    out.text(" double\n");
    const point_reader<3> points(pos);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const auto point = points[node];
        out.record([&](auto& fields) {
            fields.real(point[0], coordinate);
            fields.character(' ');
            fields.real(point[1], coordinate);
            fields.character(' ');
            fields.real(point[2], coordinate);
            fields.character('\n');
        });
    }
}

/// Numbers each followed by the character `behind`, in records of a size that the writer takes.
void write_list(text_writer& out, const unsigned* first, const unsigned* last, char behind)
{
    constexpr std::ptrdiff_t numbers_per_record = 64;
    while (first != last)
        out.record([&](auto& fields) {
            const unsigned* const stop = first + std::min(last - first, numbers_per_record);
            for (; first != stop; ++first)
            {
                fields.integer(*first);
                fields.character(behind);
            }
        });
}

void write_cells(text_writer& out, unsigned nbr_cells, const dense1D<unsigned>& cells)
{
    out.text("\nCELLS ");
    out.integer(nbr_cells);
    out.character(' ');
    out.integer(cells.size);
    out.character('\n');
    const unsigned* at = cells.begin();
    const unsigned* const end = cells.end();
    // The lists are the host's: cells that they do not hold are left out.
    for (unsigned cell = 0; cell < nbr_cells && at != end && *at < static_cast<std::size_t>(end - at); ++cell)
    {
        const unsigned* const cell_end = at + *at + 1;
        write_list(out, at, cell_end, ' ');
        out.character('\n');
        at = cell_end;
    }
}

void write_cell_types(text_writer& out, const dense1D<unsigned>& cell_types)
{
    out.text("\nCELL_TYPES ");
    out.integer(cell_types.size);
    out.character('\n');
    write_list(out, cell_types.begin(), cell_types.end(), '\n');
}

} // namespace

int vtk_convert(const dense2D<unsigned>& connect, element_type kind, unsigned& nbr_cells, dense1D<unsigned>& cells,
                dense1D<unsigned>& cell_types)
{
    if (connect.empty()) return 0;
    if (!check_IDs(connect, kind, none_index)) return -1;
    const auto [code, points] = layouts[static_cast<unsigned>(narrow(kind, connect.rows))];
    if (code == 0) return -2;
    // A kind's cell never has more points than the rows that the first test has found.
    const unsigned rest = connect.rows - points;
    const unsigned cells_per_column = rest ? 2 : 1;

    const unsigned first_entry = cells.size;
    const unsigned first_type = cell_types.size;
    if (!lengthen(cells, std::uint64_t{connect.rows + cells_per_column} * connect.cols)) return out_of_memory;
    if (!lengthen(cell_types, std::uint64_t{cells_per_column} * connect.cols))
    {
        cells.size = first_entry;
        return out_of_memory;
    }

    unsigned* entry = cells.begin() + first_entry;
    unsigned* type = cell_types.begin() + first_type;
    for (unsigned c = 0; c < connect.cols; ++c)
    {
        const unsigned* const nodes = connect.column(c);
        *type++ = code;
        *entry++ = points;
        entry = std::copy_n(nodes, points, entry);
        if (code == tetra.code) std::swap(entry[-1], entry[-2]);
        if (rest == 0) continue;
        // Nodes beyond the corners go into a second cell of loose points; quadratic cells are not used.
        *type++ = poly_vertex_code;
        *entry++ = rest;
        entry = std::copy_n(nodes + points, rest, entry);
    }
    nbr_cells += cells_per_column * connect.cols;
    return 0;
}

int vtk_output(std::FILE* stream, const dense2D<double>& pos, unsigned nbr_cells, const dense1D<unsigned>& cells,
               const dense1D<unsigned>& cell_types)
{
    if (!stream) return -1;
    if (pos.rows != 2 && pos.rows != 3) return -2;

    text_writer out(stream);
    out.text("# vtk DataFile Version 2.0\n"
             "Generated by TQ4 GridWeave(R).\n"
             "ASCII\n"
             "DATASET UNSTRUCTURED_GRID\n");
    write_points(out, pos);
    write_cells(out, nbr_cells, cells);
    write_cell_types(out, cell_types);
    // What the device refuses is not reported here, unlike in the other writers; hosts that append sections of their own test the stream.
    return 0;
}

int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
               const dense1D<int>& kinds)
{
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    // The file is opened before the tests and, deliberately, not closed where one of them fails: an empty file and an open handle stay.
    if (pos.rows != 2 && pos.rows != 3) return -2;
    if (last < first) return -4;
    if (static_cast<std::size_t>(last - first) != kinds.size) return -5;
    for (unsigned place = 0; place < kinds.size; ++place)
        if (!check_IDs(first[place], static_cast<element_type>(kinds[place]), pos.cols)) return -3;

    // Want of memory is no failed test.
    const auto leave = [&](int code) {
        if (code == out_of_memory) close_file(stream);
        return code;
    };
    plain_pieces pieces;
    if (!split_by_kind(first, last, kinds, pieces)) return leave(out_of_memory);
    unsigned nbr_cells = 0;
    dense1D<unsigned> cells;
    dense1D<unsigned> cell_types;
    for (unsigned piece = 0; piece < pieces.size(); ++piece)
    {
        const int result = vtk_convert(pieces.matrices[piece], pieces.kind(piece), nbr_cells, cells, cell_types);
        if (result != 0) return leave(result);
    }
    const int result = vtk_output(stream, pos, nbr_cells, cells, cell_types);
    close_file(stream);
    return result;
}

int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
               element_type kind1, element_type kind2)
{
    return as_range({connect1, connect2}, {kind1, kind2},
                    [&](const auto* first, const auto* last, const auto& kinds) { return vtk_output(file, pos, first, last, kinds); });
}

int vtk_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    return as_range({connect}, {kind},
                    [&](const auto* first, const auto* last, const auto& kinds) { return vtk_output(file, pos, first, last, kinds); });
}

} // namespace tq4::gridweave
