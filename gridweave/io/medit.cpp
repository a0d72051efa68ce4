#include <algorithm>
#include <array>
#include <cstdint>

#include <tq4/gridweave/io.h>
#include <tq4/numcore/memory.h>

#include "gridweave/core/append.h"
#include "gridweave/core/kinds.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

constexpr real_format value_format{'E'};

struct section_layout
{
    const char* keyword; ///< null for a kind that is left out
    std::uint8_t count;
    std::array<std::uint8_t, 8> rows; ///< rows of a column in the order of the file
};

constexpr section_layout left_out{nullptr, 0, {}};
constexpr section_layout edge{"Edges\n", 2, {0, 1}};
constexpr section_layout face3{"Triangles\n", 3, {0, 1, 2}};
constexpr section_layout face4{"Quadrilaterals\n", 4, {0, 1, 2, 3}};
constexpr section_layout solid4{"Tetrahedra\n", 4, {0, 1, 2, 3}};
constexpr section_layout solid8{"Hexahedra\n", 8, {0, 1, 2, 3, 4, 5, 6, 7}};
// Pyramids and prisms are written as degenerate hexahedra.
constexpr section_layout solid5{"Hexahedra\n", 8, {0, 1, 2, 3, 4, 4, 4, 4}};
constexpr section_layout solid6{"Hexahedra\n", 8, {0, 1, 2, 2, 3, 4, 5, 5}};

// PYRA13 and PENTA15 are left out without a report although PYRA14 and PENTA18 are written. That gap is deliberate.
constexpr std::array<section_layout, kind_count> layouts{{
    left_out, left_out, left_out, // ELEM_NONE, ELEM_NODE, ELEM_BAR_ANY
    edge,     edge,               // ELEM_BAR2, ELEM_BAR3
    left_out,                     // ELEM_SURF_ANY
    face3,    face4,              // ELEM_TRIA3, ELEM_QUAD4
    face3,    face4,    face4,    // ELEM_TRIA6, ELEM_QUAD8, ELEM_QUAD9
    left_out,                     // ELEM_SOLID_ANY
    solid4,   solid4,             // ELEM_TETRA4, ELEM_TETRA10
    solid5,   left_out, solid5,   // ELEM_PYRA5, ELEM_PYRA13, ELEM_PYRA14
    solid6,   left_out, solid6,   // ELEM_PENTA6, ELEM_PENTA15, ELEM_PENTA18
    solid8,   solid8,   solid8    // ELEM_HEXA8, ELEM_HEXA20, ELEM_HEXA27
}};

/// "%E " for each value.
void write_values(text_writer& out, const double* values, unsigned count)
{
    constexpr unsigned values_per_record = 3;
    for (unsigned k = 0; k < count;)
        out.record([&](auto& fields) {
            for (const unsigned stop = k + std::min(count - k, values_per_record); k < stop; ++k)
            {
                fields.real(values[k], value_format);
                fields.character(' ');
            }
        });
}

void write_vertices(text_writer& out, const dense2D<double>& pos)
{
    out.text("Vertices\n");
    out.integer(pos.cols);
    out.character('\n');
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        write_values(out, pos.column(node), pos.rows);
        out.text("0 \n");
    }
    out.character('\n');
}

void write_elements(text_writer& out, const dense2D<unsigned>& connectivity, const section_layout& layout, unsigned reference)
{
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const nodes = connectivity.column(c);
        out.record([&](auto& fields) {
            for (unsigned k = 0; k < layout.count; ++k)
            {
                fields.integer(nodes[layout.rows[k]] + 1);
                fields.character(' ');
            }
            fields.integer(reference);
            fields.text(" \n");
        });
    }
}

/// The section of one kind, if any piece is of it.
void write_section(text_writer& out, const plain_pieces& pieces, unsigned kind, const dense1D<unsigned>* references)
{
    const section_layout& layout = layouts[kind];
    std::uint64_t count = 0;
    for (unsigned piece = 0; piece < pieces.size(); ++piece)
        if (pieces.kinds[piece] == static_cast<int>(kind)) count += pieces.matrices[piece].cols;
    if (!layout.keyword || count == 0) return;

    out.text(layout.keyword);
    out.integer(static_cast<unsigned>(count));
    out.character('\n');
    for (unsigned piece = 0; piece < pieces.size(); ++piece)
    {
        if (pieces.kinds[piece] != static_cast<int>(kind)) continue;
        const unsigned place = pieces.references[piece];
        write_elements(out, pieces.matrices[piece], layout, references ? (*references)[place] : place);
    }
    out.character('\n');
}

/// The general form; the reference of an element is the place of its matrix in the range, or what `references` has for that place.
int write_mesh(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
               const dense1D<int>& kinds, const dense1D<unsigned>* references)
{
    if (pos.rows == 0 || pos.rows > 3) return -2;
    if (last < first) return -4;
    if (static_cast<std::size_t>(last - first) != kinds.size) return -5;
    for (unsigned place = 0; place < kinds.size; ++place)
        if (!check_IDs(first[place], static_cast<element_type>(kinds[place]), pos.cols)) return -3;
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    plain_pieces pieces;
    if (!split_by_kind(first, last, kinds, pieces))
    {
        close_file(stream);
        return out_of_memory;
    }
    text_writer out(stream);
    out.text("MeshVersionFormatted 1\nDimension ");
    out.integer(pos.rows);
    out.text("\n# Mesh format for MEDIT, generated by TQ4 GridWeave(R).\n\n");
    write_vertices(out, pos);
    for (unsigned kind = 0; kind < kind_count; ++kind) write_section(out, pieces, kind, references);
    out.text("End\n");
    return finish(out, stream) ? 0 : -1;
}

/// The columns of a connectivity as one matrix per colour, ascending; columns of colour none are left out.
struct colored_range
{
    dense1D<dense2D<unsigned>> matrices;
    dense1D<int> kinds;
    dense1D<unsigned> colors;
};

/// True when memory could hold a matrix for every colour from 0 to the largest.
bool has_room_for_colors(const dense1D<unsigned>& colors)
{
    const std::size_t count = std::size_t{max_ID(colors)} + 1;
    void* const room = __vector_num_alloc(count * sizeof(dense2D<unsigned>));
    __vector_num_free(room);
    return room != nullptr;
}

/// False when memory ran out.
bool split_by_color(const dense2D<unsigned>& connect, element_type kind, const dense1D<unsigned>& colors, colored_range& range)
{
    // A colour that asks for more matrices than memory gives is refused, although only those with elements are made.
    if (!has_room_for_colors(colors)) return false;

    // Colour and column in one key: sorting keeps the order of columns within a colour.
    dense1D<std::uint64_t> keys;
    if (!keys.reserve(colors.size, 1)) return false;
    for (unsigned c = 0; c < colors.size; ++c)
        if (colors[c] != none_index) keys.push_back(std::uint64_t{colors[c]} << 32 | c);
    std::sort(keys.begin(), keys.end());

    dense2D<unsigned> sorted;
    if (!sorted.resize(connect.rows, keys.size)) return false;
    for (unsigned k = 0; k < keys.size; ++k) std::copy_n(connect.column(static_cast<unsigned>(keys[k])), connect.rows, sorted.column(k));

    for (unsigned begin = 0, end = 0; begin < keys.size; begin = end)
    {
        const auto color = static_cast<unsigned>(keys[begin] >> 32);
        while (end < keys.size && keys[end] >> 32 == color) ++end;
        range.matrices.push_back(sorted.sub_matrix(0, begin, connect.rows, end - begin));
        range.colors.push_back(color);
        // A failed push-back drops its value; the sizes tell.
        if (range.colors.size != range.matrices.size || !append_entry(range.kinds, static_cast<int>(kind))) return false;
    }
    return range.kinds.size == range.matrices.size;
}

/// "%d %d %d %d\n": the first line of a solution file. The 2 says that the values belong to nodes.
void write_solution_header(text_writer& out, unsigned dim, unsigned components, unsigned nodes)
{
    for (const unsigned number : {dim, components, nodes})
    {
        out.integer(number);
        out.character(' ');
    }
    out.text("2\n");
}

/// One line per column.
void write_columns(text_writer& out, const dense2D<double>& values)
{
    for (unsigned c = 0; c < values.cols; ++c)
    {
        write_values(out, values.column(c), values.rows);
        out.character('\n');
    }
}

} // namespace

int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                 const dense1D<int>& kinds)
{
    return write_mesh(file, pos, first, last, kinds, nullptr);
}

int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                 element_type kind1, element_type kind2)
{
    return as_range({connect1, connect2}, {kind1, kind2},
                    [&](const auto* first, const auto* last, const auto& kinds) { return medit_output(file, pos, first, last, kinds); });
}

int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    return as_range({connect}, {kind},
                    [&](const auto* first, const auto* last, const auto& kinds) { return medit_output(file, pos, first, last, kinds); });
}

int medit_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind,
                 const dense1D<unsigned>& colors)
{
    if (connect.empty()) return 0;
    if (colors.size != connect.cols) return -5;
    colored_range range;
    if (!split_by_color(connect, kind, colors, range)) return -6;
    const dense2D<unsigned>* const first = range.matrices.begin();
    return write_mesh(file, pos, first, first + range.matrices.size, range.kinds, &range.colors);
}

int medit_scalar(const char* file, unsigned dim, const dense1D<double>& values)
{
    constexpr unsigned values_per_line = 8;
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    text_writer out(stream);
    write_solution_header(out, dim, 1, values.size);
    for (unsigned first = 0, count = 0; first < values.size; first += count)
    {
        count = std::min(values_per_line, values.size - first);
        write_values(out, values.data() + first, count);
        if (count == values_per_line) out.character('\n');
    }
    // The last line is closed in any case: after a full one an empty line follows.
    out.character('\n');
    return finish(out, stream) ? 0 : -1;
}

int medit_vector(const char* file, unsigned dim, const dense2D<double>& vectors)
{
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    text_writer out(stream);
    write_solution_header(out, dim, vectors.rows, vectors.cols);
    write_columns(out, vectors);
    return finish(out, stream) ? 0 : -1;
}

int medit_tensor(const char* file, const dense2D<double>& metrics)
{
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;
    // Deliberately not closed here: an empty file and an open handle stay.
    if (metrics.rows != 3 && metrics.rows != 6) return -2;

    text_writer out(stream);
    write_solution_header(out, metrics.rows == 3 ? 2 : 3, metrics.rows, metrics.cols);
    write_columns(out, metrics);
    return finish(out, stream) ? 0 : -1;
}

} // namespace tq4::gridweave
