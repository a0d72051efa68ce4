#include <tq4/gridweave/io.h>

#include "gridweave/core/points.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/nastran_tables.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

constexpr unsigned nodes_on_first_line = 6;
constexpr unsigned nodes_on_continuation = 8;

void write_head(text_writer& out)
{
    out.text("$ TQ4 GridWeave(R) NASTRAN exporter\n"
             "BEGIN BULK\n"
             "$----------------------------------------\n"
             "$ Referenced Material Records -----------\n"
             "$ Material Record :    ------------------\n"
             "$ Description of Material :   -----------\n"
             "MAT1    1       0.                 0.  0.\n");
}

void write_title(text_writer& out, std::string_view title)
{
    constexpr std::string_view rule = "$----------------------------------------\n";
    out.text(rule);
    out.text(title);
    out.text(rule);
}

void write_nodes(text_writer& out, const dense2D<double>& pos)
{
    constexpr int field_width = 16;
    constexpr real_format coordinate{'E', 6, field_width};
    const point_reader<3> points(pos);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const auto point = points[node];
        out.record([&](auto& fields) {
            fields.text("GRID*   ");
            fields.integer(node + 1, field_width);
            fields.text("                ");
            fields.real(point[0], coordinate);
            fields.real(point[1], coordinate);
            fields.text("*C\n*C      ");
            fields.real(point[2], coordinate);
            fields.character('\n');
        });
    }
}

template <class Fields>
void put_card(Fields& fields, const card_layout& layout, unsigned element, unsigned property, const unsigned* nodes)
{
    fields.text(layout.name);
    fields.character(',');
    fields.integer(element + 1);
    fields.character(',');
    fields.integer(property);
    unsigned line_end = nodes_on_first_line;
    for (unsigned k = 0; k < layout.nodes; ++k)
    {
        if (k == line_end)
        {
            fields.text(",+C\n+C");
            line_end += nodes_on_continuation;
        }
        fields.character(',');
        fields.integer(nodes[layout.order[k]] + 1);
    }
    fields.character('\n');
}

void write_run(text_writer& out, const dense2D<unsigned>& connectivity, const column_run& run, element_type run_kind,
               const dense1D<unsigned>& property_ids)
{
    for (unsigned element = run.begin; element < run.end; ++element)
    {
        const unsigned* const nodes = connectivity.column(element);
        const auto kind = static_cast<unsigned>(kind_of_column(run_kind, nodes, connectivity.rows));
        if (kind >= kind_count || !card_layouts[kind].name) return;
        out.record([&](auto& fields) { put_card(fields, card_layouts[kind], element, property_ids[element], nodes); });
    }
}

} // namespace

int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, const dense1D<unsigned>& run_starts,
                   const dense1D<int>& kinds, const dense1D<unsigned>& property_ids)
{
    if (connect.empty()) return 0;
    std::FILE* const stream = open_file(file, "w");
    if (!stream) return -1;

    // The file is opened before the tests and, deliberately, not closed where one of them fails: an empty file and an open handle stay.
    if (pos.rows != 2 && pos.rows != 3) return -2;
    if (std::uint64_t{kinds.size} + 1 != run_starts.size) return -5;
    if (property_ids.size != connect.cols) return -6;
    for (unsigned run = 0; run < kinds.size; ++run)
        if (!is_valid_run(connect, run_of(run_starts, run, connect.cols), static_cast<element_type>(kinds[run]))) return -3;

    text_writer out(stream);
    write_head(out);
    write_title(out, "$                GRID POINTS             \n");
    write_nodes(out, pos);
    write_title(out, "$                 ELEMENTS               \n");
    for (unsigned run = 0; run < kinds.size; ++run)
        write_run(out, connect, run_of(run_starts, run, connect.cols), static_cast<element_type>(kinds[run]), property_ids);
    out.text("ENDDATA\n");
    return finish(out, stream) ? 0 : -1;
}

int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect, element_type kind)
{
    dense1D<unsigned> property_ids;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    if (!property_ids.resize(connect.cols, 1u) || !run_starts.resize(2, 0u) || !kinds.resize(1, kind)) return out_of_memory;
    run_starts[1] = connect.cols;
    return NASTRAN_output(file, pos, connect, run_starts, kinds, property_ids);
}

int NASTRAN_output(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connect1, const dense2D<unsigned>& connect2,
                   element_type kind1, element_type kind2)
{
    dense2D<unsigned> connect;
    dense1D<unsigned> property_ids;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    if (!join_matrices(connect1, connect2, std::max(nbr_nodes(kind1), nbr_nodes(kind2)), connect)) return out_of_memory;
    if (!property_ids.resize(connect1.cols, 1u) || !property_ids.resize(connect.cols, 2u)) return out_of_memory;
    if (!run_starts.resize(3, 0u) || !kinds.resize(2)) return out_of_memory;
    run_starts[1] = connect1.cols;
    run_starts[2] = connect.cols;
    kinds[0] = kind1;
    kinds[1] = kind2;
    return NASTRAN_output(file, pos, connect, run_starts, kinds, property_ids);
}

} // namespace tq4::gridweave
