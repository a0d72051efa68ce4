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
        out.natural(node + 1);
        out.text(",0,0,1,0,0,0,0,0,0,0,");
        for (unsigned k = 0; k < 3; ++k)
        {
            out.real(point[k], coordinate);
            out.character(',');
        }
        out.text("0,\n");
    }
    write_block_end(out);
}

void write_element(text_writer& out, unsigned number, unsigned color, element_type kind, const unsigned* nodes)
{
    const femap_record& record = femap_record_of(kind);
    // The corners of 6-node triangles deliberately go out 0-based, alone among all nodes.
    const unsigned first_shifted_row = kind == ELEM_TRIA6 ? 3 : 0;
    std::array<unsigned, femap_node_places> places{};
    for (unsigned row = 0; row < nbr_nodes(kind); ++row) places[record.place[row]] = nodes[row] + (row >= first_shifted_row ? 1 : 0);

    out.natural(number);
    out.character(',');
    out.natural(color);
    out.text(",1,");
    out.natural(record.type);
    out.character(',');
    out.natural(record.topology);
    out.text(",1,0,0,0,0,0,0,0,\n");
    for (unsigned place = 0; place < femap_node_places; ++place)
    {
        out.natural(places[place]);
        out.character(',');
        if (place % femap_places_per_line == femap_places_per_line - 1) out.character('\n');
    }
    out.text("0.,0.,0.,0,0,0,0,0,0,\n"
             "0.,0.,0.,\n"
             "0.,0.,0.,\n"
             "0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n");
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
            if (femap_record_of(kind).type != 0) write_element(out, c + 1, colors[c], kind, connect.column(c));
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
    return FEMAP_output(file, pos, connect, dense1D<unsigned>::wrap(ends, 2), dense1D<int>::wrap(&value, 1), colors);
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
    return FEMAP_output(file, pos, joined, dense1D<unsigned>::wrap(starts, 3), dense1D<int>::wrap(values, 2), colors);
}

} // namespace tq4::gridweave
