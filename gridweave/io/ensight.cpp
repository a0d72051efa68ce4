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

constexpr unsigned most_nodes = 20;

struct part_layout
{
    const char* name; ///< null for a kind that is left out
    std::uint8_t count;
    std::array<std::uint8_t, most_nodes> rows; ///< rows of a column in the order of the file
};

constexpr part_layout in_stored_order(const char* name, std::uint8_t count)
{
    part_layout layout{name, count, {}};
    for (std::uint8_t k = 0; k < count; ++k) layout.rows[k] = k;
    return layout;
}

constexpr part_layout left_out{nullptr, 0, {}};
constexpr part_layout bar2 = in_stored_order("bar2", 2);
constexpr part_layout bar3 = in_stored_order("bar3", 3);
constexpr part_layout tria3 = in_stored_order("tria3", 3);
constexpr part_layout quad4 = in_stored_order("quad4", 4);
constexpr part_layout tria6{"tria6", 6, {0, 1, 2, 5, 3, 4}};
constexpr part_layout quad8 = in_stored_order("quad8", 8);
constexpr part_layout tetra4{"tetra4", 4, {0, 2, 1, 3}};
constexpr part_layout tetra10{"tetra10", 10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}};
constexpr part_layout penta6 = in_stored_order("penta6", 6);
constexpr part_layout hexa8 = in_stored_order("hexa8", 8);
constexpr part_layout hexa20 = in_stored_order("hexa20", 20);

// Pyramids, PENTA15 and the mixed kinds are left out without a report; QUAD9, PENTA18 and HEXA27 lose their last nodes.
constexpr std::array<part_layout, kind_count> layouts{{
    left_out, left_out, left_out, // ELEM_NONE, ELEM_NODE, ELEM_BAR_ANY
    bar2,     bar3,               // ELEM_BAR2, ELEM_BAR3
    left_out,                     // ELEM_SURF_ANY
    tria3,    quad4,              // ELEM_TRIA3, ELEM_QUAD4
    tria6,    quad8,    quad8,    // ELEM_TRIA6, ELEM_QUAD8, ELEM_QUAD9
    left_out,                     // ELEM_SOLID_ANY
    tetra4,   tetra10,            // ELEM_TETRA4, ELEM_TETRA10
    left_out, left_out, left_out, // ELEM_PYRA5, ELEM_PYRA13, ELEM_PYRA14
    penta6,   left_out, penta6,   // ELEM_PENTA6, ELEM_PENTA15, ELEM_PENTA18
    hexa8,    hexa20,   hexa20    // ELEM_HEXA8, ELEM_HEXA20, ELEM_HEXA27
}};

constexpr int number_width = 8;

void write_nodes(text_writer& out, const dense2D<double>& pos)
{
    constexpr real_format coordinate{'e', 5, 12};
    out.integer(pos.cols, number_width);
    out.character('\n');
    const point_reader<3> points(pos);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const auto point = points[node];
        out.record([&](auto& fields) {
            fields.integer(node + 1, number_width);
            for (unsigned k = 0; k < 3; ++k) fields.real(point[k], coordinate);
            fields.character('\n');
        });
    }
}

void write_elements(text_writer& out, const dense2D<unsigned>& connectivity, const part_layout& layout)
{
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const nodes = connectivity.column(c);
        out.record([&](auto& fields) {
            fields.integer(c + 1, number_width);
            for (unsigned k = 0; k < layout.count; ++k) fields.integer(nodes[layout.rows[k]] + 1, number_width);
            fields.character('\n');
        });
    }
}

/// The part of the matrix at a 1-based place of the range, if it has elements of a kind that the format knows.
void write_part(text_writer& out, const dense2D<unsigned>& connectivity, element_type kind, unsigned place)
{
    if (connectivity.empty()) return;
    const part_layout& layout = layouts[static_cast<unsigned>(narrow(kind, connectivity.rows))];
    if (!layout.name) return;

    out.text("part ");
    out.integer(place, number_width);
    out.text("\n*************\n");
    out.text(layout.name);
    out.character('\n');
    out.integer(connectivity.cols, number_width);
    out.character('\n');
    write_elements(out, connectivity, layout);
    // A part of 6-node triangles deliberately lists its elements a second time, in stored order, under the one count.
    if (kind == ELEM_TRIA6) write_elements(out, connectivity, in_stored_order(layout.name, layout.count));
}

} // namespace

int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                   const dense1D<int>& kinds)
{
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    // The file is opened before the tests and, deliberately, not closed where one of them fails: an empty file and an open handle stay.
    if (pos.rows == 0 || pos.rows > 3) return -2;
    if (last < first) return -4;
    if (static_cast<std::size_t>(last - first) != kinds.size) return -5;
    for (unsigned place = 0; place < kinds.size; ++place)
        if (!check_IDs(first[place], static_cast<element_type>(kinds[place]), none_index)) return -3;

    text_writer out(stream);
    out.text("EnSight Mesh File.\n"
             "Generated by TQ4 GridWeave(R).\n"
             "node id given\n"
             "element id given\n"
             "coordinates\n");
    write_nodes(out, pos);
    for (unsigned place = 0; place < kinds.size; ++place) write_part(out, first[place], static_cast<element_type>(kinds[place]), place + 1);
    return finish(out, stream) ? 0 : -1;
}

int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                   element_type kind1, element_type kind2)
{
    return as_range({connect1, connect2}, {kind1, kind2},
                    [&](const auto* first, const auto* last, const auto& kinds) { return ensight_output(file, pos, first, last, kinds); });
}

int ensight_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    return as_range({connect}, {kind},
                    [&](const auto* first, const auto* last, const auto& kinds) { return ensight_output(file, pos, first, last, kinds); });
}

} // namespace tq4::gridweave
