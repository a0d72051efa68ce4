#include <array>

#include <tq4/gridweave/io.h>

#include "gridweave/core/points.h"
#include "gridweave/io/femap_tables.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

void write_block_start(text_writer& out, std::string_view number)
{
    out.text(femap_block_mark);
    out.character('\n');
    out.text(number);
    out.character('\n');
}

void write_block_end(text_writer& out)
{
    out.text(femap_block_mark);
    out.character('\n');
}

void write_nodes(text_writer& out, const dense2D<double>& pos)
{
    constexpr real_format coordinate{'g'};
    out.text("*********************************\n"
             "*********** NODES ***************\n"
             "*********************************\n");
    write_block_start(out, femap_node_block);
    const point_reader<3> points(pos);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const auto point = points[node];
        out.record([&](auto& fields) {
            fields.natural(node + 1);
            fields.text(",0,0,1,0,0,0,0,0,0,0,");
            for (unsigned k = 0; k < 3; ++k)
            {
                fields.real(point[k], coordinate);
                fields.character(',');
            }
            fields.text("0,\n");
        });
    }
    write_block_end(out);
}

// The lines of nodes and those behind them for an element without nodes. The number of a node takes the place of a zero.
constexpr std::string_view lines_without_nodes = "0,0,0,0,0,0,0,0,0,0,\n"
                                                 "0,0,0,0,0,0,0,0,0,0,\n"
                                                 "0.,0.,0.,0,0,0,0,0,0,\n"
                                                 "0.,0.,0.,\n"
                                                 "0.,0.,0.,\n"
                                                 "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";

/// Where the zero of a place stands in the text above.
constexpr unsigned offset_of_place(unsigned place)
{
    return 2 * place + place / femap_places_per_line;
}

/// How the nodes of a kind are written: row of a column and the text behind its number, in the order of the file. Every kind has a node
/// at the first place.
struct node_lines
{
    struct field
    {
        std::uint8_t row;
        std::string_view behind;
    };

    std::array<field, femap_node_places> fields;
    unsigned count;
};

constexpr node_lines node_lines_of(const femap_record& record, std::uint8_t nodes)
{
    node_lines lines{};
    for (unsigned place = 0, begin = 0; place < femap_node_places; ++place)
        for (std::uint8_t row = 0; row < nodes; ++row)
        {
            if (record.place[row] != place) continue;
            if (lines.count > 0) lines.fields[lines.count - 1].behind = lines_without_nodes.substr(begin, offset_of_place(place) - begin);
            begin = offset_of_place(place) + 1;
            lines.fields[lines.count++] = {row, lines_without_nodes.substr(begin)};
        }
    return lines;
}

constexpr auto node_lines_by_kind = [] {
    std::array<node_lines, kind_count> table{};
    for (unsigned kind = 0; kind < kind_count; ++kind)
        if (femap_records[kind].type != 0) table[kind] = node_lines_of(femap_records[kind], kind_table[kind].nodes);
    return table;
}();

/// One element of a kind that the format holds.
template <class Fields>
void put_element(Fields& fields, unsigned number, unsigned color, element_type kind, const unsigned* nodes)
{
    const femap_record& record = femap_records[static_cast<unsigned>(kind)];
    fields.natural(number);
    fields.character(',');
    fields.natural(color);
    fields.text(",1,");
    fields.natural(record.type);
    fields.character(',');
    fields.natural(record.topology);
    fields.text(",1,0,0,0,0,0,0,0,\n");

    // The corners of 6-node triangles deliberately go out 0-based, alone among all nodes.
    const unsigned first_shifted_row = kind == ELEM_TRIA6 ? 3 : 0;
    const node_lines& lines = node_lines_by_kind[static_cast<unsigned>(kind)];
    for (unsigned k = 0; k < lines.count; ++k)
    {
        const auto [row, behind] = lines.fields[k];
        fields.natural(nodes[row] + (row >= first_shifted_row ? 1 : 0));
        if (behind.size() == 1)
            fields.character(behind[0]);
        else
            fields.text(behind);
    }
}

void write_elements(text_writer& out, const dense2D<unsigned>& connect, const dense1D<unsigned>& run_starts, const dense1D<int>& kinds,
                    const dense1D<unsigned>& colors)
{
    out.text("*********************************\n"
             "********* ELEMENTS **************\n"
             "*********************************\n");
    write_block_start(out, femap_element_block);
    for (unsigned run = 0; run < kinds.size; ++run)
    {
        const auto run_kind = static_cast<element_type>(kinds[run]);
        const auto [begin, end] = run_of(run_starts, run, connect.cols);
        for (unsigned c = begin; c < end; ++c)
        {
            const element_type kind = kind_of_column(run_kind, connect.column(c), connect.rows);
            // Kinds that the format does not hold are left out without a report.
            if (femap_record_of(kind).type == 0) continue;
            out.record([&](auto& fields) { put_element(fields, c + 1, colors[c], kind, connect.column(c)); });
        }
    }
    write_block_end(out);
}

} // namespace

int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, const dense1D<unsigned>& run_starts,
                 const dense1D<int>& kinds, const dense1D<unsigned>& colors)
{
    std::FILE* const stream = open_file(file, "w");
    const auto leave = [&](int code) {
        if (stream) close_file(stream);
        return code;
    };
    if (connect.empty()) return leave(0);
    if (!stream) return -1;
    if (pos.rows != 2 && pos.rows != 3) return leave(-2);
    if (std::uint64_t{kinds.size} + 1 != run_starts.size) return leave(-5);
    if (colors.size != connect.cols) return leave(-6);
    for (unsigned run = 0; run < kinds.size; ++run)
        if (!is_valid_run(connect, run_of(run_starts, run, connect.cols), static_cast<element_type>(kinds[run]))) return leave(-3);

    text_writer out(stream, text_writer::locale_of::streams);
    write_nodes(out, pos);
    write_elements(out, connect, run_starts, kinds, colors);
    return finish(out, stream) ? 0 : -1;
}

int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    dense1D<unsigned> colors;
    if (!colors.resize(connect.cols, 1)) return out_of_memory;
    unsigned ends[] = {0, connect.cols};
    int value = kind;
    const auto run_starts = dense1D<unsigned>::wrap(ends, 2);
    const auto kinds = dense1D<int>::wrap(&value, 1);
    if (run_starts.empty() || kinds.empty()) return out_of_memory;
    return FEMAP_output(file, pos, connect, run_starts, kinds, colors);
}

int FEMAP_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                 element_type kind1, element_type kind2)
{
    dense2D<unsigned> joined;
    dense1D<unsigned> colors;
    if (!join_matrices(connect1, connect2, std::max(nbr_nodes(kind1), nbr_nodes(kind2)), joined)) return out_of_memory;
    if (!colors.resize(connect1.cols, 1) || !colors.resize(joined.cols, 2)) return out_of_memory;
    // The last entry is deliberately the second matrix's own count: the second run ends early where the first matrix has columns too.
    unsigned starts[] = {0, connect1.cols, connect2.cols};
    int values[] = {kind1, kind2};
    const auto run_starts = dense1D<unsigned>::wrap(starts, 3);
    const auto kinds = dense1D<int>::wrap(values, 2);
    if (run_starts.empty() || kinds.empty()) return out_of_memory;
    return FEMAP_output(file, pos, joined, run_starts, kinds, colors);
}

} // namespace tq4::gridweave
