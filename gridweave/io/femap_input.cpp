#include <algorithm>

#include <tq4/gridweave/io.h>

#include "gridweave/core/append.h"
#include "gridweave/io/femap_tables.h"
#include "gridweave/io/numbered_nodes.h"
#include "gridweave/io/text_reader.h"
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
        block inside = block::none;
        int status = 0;
        for (text_line line; status == 0 && in_.next_line(line);)
        {
            strip(line);
            if (inside == block::none)
                inside = block_opened_by(line);
            else if (line.view() == femap_block_mark)
                inside = block::none;
            else
                status = inside == block::nodes ? read_node(line) : read_element(line);
        }
        return status;
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
        constexpr unsigned first_coordinate = 11;
        const line_fields fields = split_at_commas(line);
        if (fields.count < first_coordinate + 3) return malformed;
        const int number = fields.integer(0);
        if (number == 0) return malformed;

        vector_fixed<double, 3> x{};
        for (unsigned k = 0; k < 3; ++k)
            x[k] = parse_real(fields.begin[first_coordinate + k], fields.end[first_coordinate + k], decimal_point_);
        // A negative number asks for more columns than there can be.
        return number > 0 && nodes_.put(static_cast<unsigned>(number), x) ? 0 : out_of_memory;
    }

    int read_element(const text_line& line)
    {
        constexpr unsigned color_field = 1;
        constexpr unsigned topology_field = 4;
        const line_fields fields = split_at_commas(line);
        if (fields.count < topology_field + 1) return malformed;
        const auto color = static_cast<unsigned>(fields.integer(color_field));
        const element_type kind = femap_kind_of(fields.integer(topology_field));

        const int status = kind == ELEM_NONE ? skip_lines(lines_of_nodes + lines_behind_nodes) : add_element(kind, color);
        return status == 0 ? note_run(kind) : status;
    }

    int add_element(element_type kind, unsigned color)
    {
        std::array<unsigned, femap_node_places> places{};
        if (const int status = read_places(places); status != 0) return status;

        const unsigned nodes = nbr_nodes(kind);
        if (mesh_.connect.rows < nodes && !mesh_.connect.resize(nodes, mesh_.connect.cols, none_index)) return out_of_memory;
        std::array<unsigned, femap_node_places> column;
        column.fill(none_index);
        const femap_record& record = femap_record_of(kind);
        for (unsigned row = 0; row < nodes; ++row) column[row] = places[record.place[row]] - 1;
        if (!append_column(mesh_.connect, column.data(), mesh_.connect.rows)) return out_of_memory;

        if (const int status = skip_lines(lines_behind_nodes); status != 0) return status;
        if (!append_entry(mesh_.colors, color)) return out_of_memory;
        ++elements_;
        return 0;
    }

    int read_places(std::array<unsigned, femap_node_places>& places)
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
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> colors;
    const int status = FEMAP_input(file, pos, connect, run_starts, kinds, colors);
    if (status == 0 && kinds.size == 1) kind = static_cast<element_type>(kinds[0]);
    return status;
}

int FEMAP_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2, element_type& kind1,
                element_type& kind2)
{
    connect1.clear();
    connect2.clear();
    kind1 = ELEM_NONE;
    kind2 = ELEM_NONE;
    dense2D<unsigned> connect;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> colors;
    const int status = FEMAP_input(file, pos, connect, run_starts, kinds, colors);
    if (status != 0 || run_starts.size < 2 || run_starts[1] == 0) return status;

    kind1 = static_cast<element_type>(kinds[0]);
    // The first run keeps all rows and the second is cut to those of its kind; the difference is deliberate.
    connect1 = connect.sub_matrix(0, 0, connect.rows, run_starts[1]);
    if (run_starts.size < 3) return status;
    kind2 = static_cast<element_type>(kinds[1]);
    connect2 = connect.sub_matrix(0, run_starts[1], std::min(nbr_nodes(kind2), connect.rows), run_starts[2] - run_starts[1]);
    return status;
}

} // namespace tq4::gridweave
