#include <algorithm>

#include <tq4/gridweave/io.h>

#include "gridweave/core/append.h"
#include "gridweave/io/femap_tables.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/numbered_nodes.h"
#include "gridweave/io/text_reader.h"
#include "gridweave/io/text_scanner.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

constexpr int malformed = -102;

/// Lines of an element behind its first one: two of nodes and four of other data.
constexpr unsigned lines_of_nodes = 2;
constexpr unsigned lines_behind_nodes = 4;

/// The pieces of a line between commas; empty ones are dropped, so that what is behind them moves up. Pieces that no record needs are only
/// counted.
struct line_fields
{
    static constexpr unsigned most = 14;

    std::array<const char*, most> begin{};
    std::array<const char*, most> end{};
    unsigned count = 0;

    int integer(unsigned field) const { return parse_integer(begin[field], end[field]); }
};

/// Cuts trailing white space off.
void strip(text_line& line)
{
    while (!line.empty() && is_blank(line.end[-1])) --line.end;
    *line.end = '\0';
}

/// Cuts a line at its commas, which become zeros so that the C library can read the pieces.
line_fields split_at_commas(const text_line& line)
{
    line_fields fields;
    for (char* begin = line.begin; begin < line.end;)
    {
        char* const end = std::find(begin, line.end, ',');
        *end = '\0';
        if (begin != end)
        {
            if (fields.count < line_fields::most)
            {
                fields.begin[fields.count] = begin;
                fields.end[fields.count] = end;
            }
            ++fields.count;
        }
        begin = end + 1;
    }
    return fields;
}

/// True when the line, without any of its white space, is `word`.
bool is_word(const text_line& line, std::string_view word)
{
    std::size_t matched = 0;
    for (const char c : line.view())
    {
        if (is_blank(c)) continue;
        if (matched == word.size() || c != word[matched]) return false;
        ++matched;
    }
    return matched == word.size();
}

using node_places = std::array<unsigned, femap_node_places>;

// Records of the usual look: pieces of lines without blanks, none of them empty.

constexpr unsigned coordinate_field = 11;
constexpr unsigned color_field = 1;
constexpr unsigned topology_field = 4;

/// A piece that nobody looks at and the comma behind it.
bool pass_piece(text_scanner& in)
{
    const char* const begin = in.at();
    while (*in.at() != ',' && *in.at() != '\n' && *in.at() != '\0') in.pass(1);
    return in.at() != begin && in.take(',');
}

bool pass_pieces(text_scanner& in, unsigned count)
{
    while (count > 0 && pass_piece(in)) --count;
    return count == 0;
}

/// The end of the line behind the last piece that counts.
bool pass_rest(text_scanner& in)
{
    return in.take(',') ? in.skip_line() : in.take_line_end();
}

struct node_record
{
    int number = 0;
    vector_fixed<double, 3> x{};
};

bool take_node(text_scanner& in, node_record& node)
{
    if (!in.take_natural(node.number) || node.number == 0 || !in.take(',')) return false;
    if (!pass_pieces(in, coordinate_field - 1)) return false;
    if (!in.take_real(node.x[0]) || !in.take(',')) return false;
    if (!in.take_real(node.x[1]) || !in.take(',')) return false;
    return in.take_real(node.x[2]) && pass_rest(in);
}

struct element_record
{
    element_type kind = ELEM_NONE;
    unsigned color = 0;
    node_places places{};
};

bool take_node_line(text_scanner& in, unsigned* places)
{
    for (unsigned k = 0; k < femap_places_per_line; ++k)
    {
        int number = 0;
        if ((k > 0 && !in.take(',')) || !in.take_natural(number)) return false;
        places[k] = static_cast<unsigned>(number);
    }
    return pass_rest(in);
}

/// An element of a known kind, with all of its lines.
bool take_element(text_scanner& in, element_record& element)
{
    int color = 0;
    int topology = 0;
    if (!pass_pieces(in, color_field) || !in.take_natural(color) || !in.take(',')) return false;
    if (!pass_pieces(in, topology_field - color_field - 1) || !in.take_natural(topology) || !pass_rest(in)) return false;
    element.color = static_cast<unsigned>(color);
    element.kind = femap_kind_of(topology);
    if (element.kind == ELEM_NONE) return false;
    for (unsigned line = 0; line < lines_of_nodes; ++line)
        if (!take_node_line(in, element.places.data() + std::size_t{line} * femap_places_per_line)) return false;
    for (unsigned line = 0; line < lines_behind_nodes; ++line)
        if (!in.skip_line()) return false;
    return true;
}

struct femap_mesh
{
    dense2D<double>& pos;
    dense2D<unsigned>& connect;
    dense1D<unsigned>& run_starts;
    dense1D<int>& kinds;
    dense1D<unsigned>& colors;
};

class femap_reader
{
public:
    femap_reader(std::FILE* stream, femap_mesh mesh)
        : in_(stream), mesh_(mesh), nodes_(mesh.pos), decimal_point_(c_library_uses_decimal_point())
    {
    }

    int read()
    {
        if (!append_entry(mesh_.run_starts, 0u)) return out_of_memory;
        int status = read_blocks();
        if (status == 0 && !in_.has_memory()) status = out_of_memory;
        if (!append_entry(mesh_.run_starts, elements_) && status == 0) status = out_of_memory;
        return status;
    }

private:
    enum class block
    {
        none,
        nodes,
        elements
    };

    int read_blocks()
    {
        if (!in_.has_memory()) return out_of_memory;
        block inside = block::none;
        for (text_line line;;)
        {
            int status = take_records(inside);
            if (status != 0 || !in_.next_line(line)) return status;
            strip(line);
            if (inside == block::none)
                inside = block_opened_by(line);
            else if (line.view() == femap_block_mark)
                inside = block::none;
            else
                status = inside == block::nodes ? read_node(line) : read_element(line);
            if (status != 0) return status;
        }
    }

    /// Takes records of the usual look until something else comes.
    int take_records(block inside)
    {
        // Longer records are taken too where the window happens to hold them.
        constexpr std::size_t usual_length = 1024;
        if (!decimal_point_ || inside == block::none) return 0;
        for (;;)
        {
            in_.require(usual_length);
            text_scanner in(in_.cursor());
            int status = 0;
            if (inside == block::nodes)
            {
                node_record node;
                if (!take_node(in, node)) return 0;
                status = put_node(node);
            }
            else
            {
                element_record element;
                if (!take_element(in, element)) return 0;
                status = append_nodes(element.kind, element.places);
                if (status == 0) status = count_element(element.kind, element.color);
            }
            if (status != 0) return status;
            in_.advance(in.at());
        }
    }

    /// Any line that reads as a number of a block opens it, wherever it stands.
    static block block_opened_by(const text_line& line)
    {
        if (is_word(line, femap_node_block)) return block::nodes;
        if (is_word(line, femap_element_block)) return block::elements;
        return block::none;
    }

    int read_node(const text_line& line)
    {
        const line_fields fields = split_at_commas(line);
        if (fields.count < coordinate_field + 3) return malformed;
        node_record node;
        node.number = fields.integer(0);
        if (node.number == 0) return malformed;
        for (unsigned k = 0; k < 3; ++k) node.x[k] = parse_real(fields.begin[coordinate_field + k], decimal_point_);
        return put_node(node);
    }

    int put_node(const node_record& node)
    {
        // A negative number asks for more columns than there can be.
        return node.number > 0 && nodes_.put(static_cast<unsigned>(node.number), node.x) ? 0 : out_of_memory;
    }

    int read_element(const text_line& line)
    {
        const line_fields fields = split_at_commas(line);
        if (fields.count < topology_field + 1) return malformed;
        const auto color = static_cast<unsigned>(fields.integer(color_field));
        const element_type kind = femap_kind_of(fields.integer(topology_field));
        if (kind == ELEM_NONE)
        {
            const int status = skip_lines(lines_of_nodes + lines_behind_nodes);
            return status == 0 ? note_run(kind) : status;
        }

        node_places places{};
        if (const int status = read_places(places); status != 0) return status;
        // What the other lines lack does not take the nodes back.
        if (const int status = append_nodes(kind, places); status != 0) return status;
        if (const int status = skip_lines(lines_behind_nodes); status != 0) return status;
        return count_element(kind, color);
    }

    int append_nodes(element_type kind, const node_places& places)
    {
        const unsigned nodes = nbr_nodes(kind);
        if (mesh_.connect.rows < nodes && !mesh_.connect.resize(nodes, mesh_.connect.cols, none_index)) return out_of_memory;
        node_places column;
        column.fill(none_index);
        const femap_record& record = femap_record_of(kind);
        for (unsigned row = 0; row < nodes; ++row) column[row] = places[record.place[row]] - 1;
        return append_column(mesh_.connect, column.data(), mesh_.connect.rows) ? 0 : out_of_memory;
    }

    int count_element(element_type kind, unsigned color)
    {
        if (!append_entry(mesh_.colors, color)) return out_of_memory;
        ++elements_;
        return note_run(kind);
    }

    int read_places(node_places& places)
    {
        for (unsigned first = 0; first < femap_node_places; first += femap_places_per_line)
        {
            text_line line;
            if (!in_.next_line(line)) return end_of_file();
            strip(line);
            const line_fields fields = split_at_commas(line);
            if (fields.count < femap_places_per_line) return malformed;
            for (unsigned k = 0; k < femap_places_per_line; ++k) places[first + k] = static_cast<unsigned>(fields.integer(k));
        }
        return 0;
    }

    int skip_lines(unsigned count)
    {
        text_line line;
        while (count-- > 0)
            if (!in_.next_line(line)) return end_of_file();
        return 0;
    }

    /// A file that ends inside an element is malformed.
    int end_of_file() const { return in_.has_memory() ? malformed : out_of_memory; }

    /// Keeps the table of runs. An element of an unknown kind is noted as a kind, with a run of its own only where it ends another one, and
    /// the next element counts as the first. That is deliberate: it is how the tables of files with unknown elements have always come out.
    int note_run(element_type kind)
    {
        if (current_ != ELEM_NONE && current_ != kind && !append_entry(mesh_.run_starts, elements_ - 1)) return out_of_memory;
        if ((current_ == ELEM_NONE || current_ != kind) && !append_entry(mesh_.kinds, static_cast<int>(kind))) return out_of_memory;
        current_ = kind;
        return 0;
    }

    text_reader in_;
    femap_mesh mesh_;
    numbered_nodes nodes_;
    unsigned elements_ = 0;
    element_type current_ = ELEM_NONE;
    bool decimal_point_;
};

} // namespace

int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, dense1D<unsigned>& run_starts, dense1D<int>& kinds,
                dense1D<unsigned>& colors)
{
    pos.clear();
    connect.clear();
    run_starts.size = 0;
    kinds.size = 0;
    colors.size = 0;
    std::FILE* const stream = open_file(file, "r");
    if (!stream) return -1;
    const int status = femap_reader(stream, {pos, connect, run_starts, kinds, colors}).read();
    close_file(stream);
    return status;
}

int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, element_type& kind)
{
    kind = ELEM_NONE;
    element_runs runs;
    const int status = FEMAP_input(file, pos, connect, runs.run_starts, runs.kinds, runs.numbers);
    if (status == 0 && runs.kinds.size == 1) kind = static_cast<element_type>(runs.kinds[0]);
    return status;
}

int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2, element_type& kind1,
                element_type& kind2)
{
    connect1.clear();
    connect2.clear();
    kind1 = ELEM_NONE;
    kind2 = ELEM_NONE;
    element_runs runs;
    const int status = FEMAP_input(file, pos, runs.connect, runs.run_starts, runs.kinds, runs.numbers);
    // A file that was read to its end has a table with two entries at least.
    if (status != 0 || runs.run_starts[1] == 0) return status;

    kind1 = static_cast<element_type>(runs.kinds[0]);
    // The first run keeps all rows and the second is cut to those of its kind; the difference is deliberate.
    connect1 = runs.connect.sub_matrix(0, 0, runs.connect.rows, runs.run_starts[1]);
    if (runs.run_starts.size < 3) return status;
    kind2 = static_cast<element_type>(runs.kinds[1]);
    connect2 = runs.connect.sub_matrix(0, runs.run_starts[1], std::min(nbr_nodes(kind2), runs.connect.rows),
                                       runs.run_starts[2] - runs.run_starts[1]);
    return status;
}

} // namespace tq4::gridweave
