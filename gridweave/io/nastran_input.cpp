#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <string_view>

#include <tq4/gridweave/io.h>

#include "gridweave/core/append.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/nastran_scanner.h"
#include "gridweave/io/numbered_nodes.h"
#include "gridweave/io/text_reader.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

/// The first 80 columns of a line, padded with blanks. A zero byte of the file ends the line as far as fields are scanned.
class fixed_line
{
public:
    explicit fixed_line(std::string_view line) : text_(line.substr(0, line_width))
    {
        const std::size_t zero = text_.find('\0');
        cut_by_zero_ = zero != std::string_view::npos;
        text_ = text_.substr(0, zero);
    }

    /// Without the blanks that pad the line.
    std::string_view field(unsigned begin, unsigned width) const
    {
        return begin < text_.size() ? text_.substr(begin, width) : std::string_view();
    }
    std::string_view field(const field_layout& layout, unsigned number) const
    {
        return field(name_width + (number - 1) * layout.width, layout.width);
    }

    /// True when a scan finds something in the field that begins at a column, if only blanks.
    bool reaches(unsigned column) const { return !cut_by_zero_ || text_.size() > column; }

    bool has_mark(const field_layout& layout) const { return text_.size() > mark_column && text_[mark_column] == layout.mark; }

private:
    std::string_view text_;
    bool cut_by_zero_;
};

int integer_of(std::string_view field)
{
    return parse_integer(field.data(), field.data() + field.size());
}

/// Reads a real number that may be written short, without the letter before the exponent: 1.5+3 is 1500.
double short_real(std::string_view field, bool decimal_point)
{
    char text[large_fields.width + text_margin];
    char* end = text;
    for (const char c : field)
        if (!is_blank(c)) *end++ = c;
    *end = '\0';

    int exponent = 0;
    const std::size_t sign = std::string_view(text, end).find_last_of("+-");
    if (sign != std::string_view::npos && sign > 0 && text[sign - 1] != 'E' && text[sign - 1] != 'e')
    {
        exponent = parse_integer(text + sign, end);
        end = text + sign;
        *end = '\0';
    }
    const double value = parse_real(text, decimal_point);
    // A product, rounded once more than the number itself would be; readers of other programs' files compare with it.
    return exponent == 0 ? value : value * std::pow(10.0, exponent);
}

double real_of(std::string_view field, bool decimal_point)
{
    while (!field.empty() && is_blank(field.front())) field.remove_prefix(1);
    while (!field.empty() && is_blank(field.back())) field.remove_suffix(1);
    if (field.empty()) return 0;
    // The next field may follow without a blank.
    char text[large_fields.width + text_margin];
    char* const end = std::copy(field.begin(), field.end(), text);
    *end = '\0';
    double value = 0;
    if (decimal_point && scan_real(text, value) == end) return value;
    return short_real(field, decimal_point);
}

// Nodes.

constexpr node_card unreadable{0, {}};

node_card read_small_grid(std::string_view line, bool decimal_point)
{
    const fixed_line fields(line);
    if (!fields.reaches(name_width + 4 * small_fields.width)) return unreadable;
    const auto real = [&](unsigned number) { return real_of(fields.field(small_fields, number), decimal_point); };
    return {integer_of(fields.field(small_fields, 1)), {real(3), real(4), real(5)}};
}

/// The third coordinate stands on the second line and is left at 0 here.
node_card read_large_grid(std::string_view line, bool decimal_point)
{
    const fixed_line fields(line);
    if (!fields.reaches(mark_column)) return unreadable;
    const auto real = [&](unsigned number) { return real_of(fields.field(large_fields, number), decimal_point); };
    return {integer_of(fields.field(large_fields, 1)), {real(3), real(4), 0.0}};
}

bool read_second_large_line(std::string_view line, node_card& card, bool decimal_point)
{
    const fixed_line fields(line);
    if (!fields.reaches(name_width)) return false;
    card.x[2] = real_of(fields.field(large_fields, 1), decimal_point);
    return true;
}

/// "GRID", number, coordinate system or nothing, x, y, z; what follows is not looked at.
node_card read_free_grid(const char* line)
{
    long long number = 0;
    long long system = 0;
    vector_fixed<double, 3> x{};
    const bool readable = std::sscanf(line, "GRID , %lld , %lld , %lf , %lf , %lf", &number, &system, &x[0], &x[1], &x[2]) == 5 ||
                          std::sscanf(line, "GRID , %lld , , %lf , %lf , %lf", &number, &x[0], &x[1], &x[2]) == 4;
    if (!readable) return unreadable;
    return {static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX)), x};
}

// Elements.

/// What one line of a card says beside its numbers.
struct card_line
{
    std::string_view name;
    unsigned fields = 0; ///< a count below `least_fields` ends the card
    bool marked = false; ///< for a continuation
};

card_line read_fixed_line(std::string_view text, const field_layout& layout, element_card& card)
{
    const fixed_line fields(text);
    card_line line;
    line.name = fields.field(0, name_width);
    line.name = line.name.substr(0, line.name.find(' '));
    line.marked = fields.has_mark(layout);
    for (; line.fields < layout.count; ++line.fields)
    {
        // A blank field is a 0 and ends the numbers of its line.
        const int number = integer_of(fields.field(layout, line.fields + 1));
        if (number == 0) break;
        card.take(number);
    }
    return line;
}

card_line read_small_line(std::string_view text, element_card& card)
{
    return read_fixed_line(text, small_fields, card);
}

/// The name carries the mark of a card in large fields.
card_line read_large_line(std::string_view text, element_card& card)
{
    card_line line = read_fixed_line(text, large_fields, card);
    const std::size_t mark = line.name.find('*');
    if (mark == std::string_view::npos || mark == 0) return line;
    line.name = line.name.substr(0, mark);
    line.marked = true;
    return line;
}

/// A field beyond 8 characters ends the line before it. Zeros and blank fields count as numbers here.
card_line read_free_line(std::string_view text, element_card& card)
{
    card_line line;
    std::string_view last;
    const auto take_last = [&] {
        if (line.fields == 1)
            line.name = last.substr(0, last.find('\0'));
        else if (line.fields > 1)
            card.take(integer_of(last));
    };
    while (!text.empty())
    {
        const std::size_t comma = text.substr(0, name_width + 1).find(',');
        const bool ended = comma == std::string_view::npos;
        if (ended && text.size() > name_width) break;
        // The last field may be a mark, so each field is taken when the next one comes.
        take_last();
        last = text.substr(0, comma);
        ++line.fields;
        text = ended ? std::string_view() : text.substr(comma + 1);
    }
    line.marked = !last.empty() && (last[0] == '+' || last[0] == '*');
    if (!line.marked) take_last();
    return line;
}

card_line read_card_line(std::string_view text, element_card& card)
{
    if (text.find(',') != std::string_view::npos) return read_free_line(text, card);
    return text.find('*') != std::string_view::npos ? read_large_line(text, card) : read_small_line(text, card);
}

/// The elements read, as one matrix and its run table.
class element_list
{
public:
    element_list(dense2D<unsigned>& connect, dense1D<unsigned>& run_starts, dense1D<int>& kinds, dense1D<unsigned>& property_ids)
        : connect_(connect), run_starts_(run_starts), kinds_(kinds), property_ids_(property_ids)
    {
        connect.clear_hard();
        run_starts.size = 0;
        kinds.size = 0;
        property_ids.size = 0;
    }

    /// False when memory ran out, here and below.
    bool open()
    {
        if (!run_starts_.reserve(2, 1)) return false;
        run_starts_.push_back(0);
        return connect_.reserve(8, 256, 1);
    }

    bool append(element_type kind, const element_card& card)
    {
        // Whatever needs memory comes before the element counts, so that the lists fit each other after a failure; the end of the last run
        // always has its place.
        const unsigned element = connect_.cols;
        const bool starts_run = kinds_.empty() || kinds_[kinds_.size - 1] != kind;
        if (starts_run && !(run_starts_.reserve(run_starts_.size + 2, 2) && kinds_.reserve(kinds_.size + 1, 2))) return false;
        if (!property_ids_.reserve(element + 1, 2) || !append_column(kind, card)) return false;
        property_ids_.push_back(static_cast<unsigned>(card.property));
        if (!starts_run) return true;
        if (!kinds_.empty()) run_starts_.push_back(element);
        kinds_.push_back(kind);
        return true;
    }

    /// Ends the last run.
    void close()
    {
        if (!run_starts_.empty()) run_starts_.push_back(connect_.cols);
    }

private:
    bool append_column(element_type kind, const element_card& card)
    {
        const unsigned nodes = record_of(kind).nodes;
        const unsigned element = connect_.cols;
        // Elements that are there already get 0 and not none in the rows that a larger one adds. That is deliberate, hosts tell the rows
        // of an element by its kind.
        if (nodes > connect_.rows && !connect_.resize(nodes, element, 0u)) return false;
        if (!has_room_for_column(connect_)) connect_.reserve(connect_.ld, columns_to_reserve(element), 1);
        if (!connect_.resize(connect_.rows, element + 1)) return false;

        const node_order order = order_when_read(kind);
        unsigned* const column = connect_.column(element);
        for (unsigned row = 0; row < nodes; ++row) column[row] = static_cast<unsigned>(card.node[order[row]]) - 1;
        std::fill(column + nodes, column + connect_.rows, none_index);
        return true;
    }

    dense2D<unsigned>& connect_;
    dense1D<unsigned>& run_starts_;
    dense1D<int>& kinds_;
    dense1D<unsigned>& property_ids_;
};

// The file.

class bulk_reader
{
public:
    bulk_reader(std::FILE* stream, numbered_nodes& nodes, element_list& elements) : reader_(stream), nodes_(nodes), elements_(elements) {}

    /// Reads cards to the end of the data. 0 or a negative code.
    int read();

private:
    int take_cards();
    int read_grid();
    int read_element();
    int store(const node_card& card);
    int store(const element_card& card);

    text_reader reader_;
    text_line line_;
    numbered_nodes& nodes_;
    element_list& elements_;
    const bool decimal_point_ = c_library_uses_decimal_point();
};

/// The node card on the current line.
int bulk_reader::read_grid()
{
    node_card card;
    const std::string_view text = line_.view();
    if (text.starts_with("GRID*"))
    {
        card = read_large_grid(text, decimal_point_);
        // The next line belongs to the card whatever it is; a card on the last line lies at z = 0.
        if (reader_.next_line(line_) && !read_second_large_line(line_.view(), card, decimal_point_)) return -1;
        if (!reader_.has_memory()) return out_of_memory;
    }
    else if (text.find(',') != std::string_view::npos)
        card = read_free_grid(line_.begin);
    else
        card = read_small_grid(text, decimal_point_);

    return store(card);
}

int bulk_reader::store(const node_card& card)
{
    if (card.number == 0) return -1;
    return nodes_.put(static_cast<unsigned>(card.number), card.x) ? 0 : out_of_memory;
}

/// Stores a card if it is an element.
int bulk_reader::store(const element_card& card)
{
    const element_type kind = card.kind();
    return kind == ELEM_NONE || elements_.append(kind, card) ? 0 : out_of_memory;
}

/// Takes cards of the usual look until something else comes. 0 or a negative code.
int bulk_reader::take_cards()
{
    // Longer cards are taken too where the window happens to hold them.
    constexpr std::size_t usual_length = 512;
    for (;;)
    {
        reader_.require(usual_length);
        text_scanner in(reader_.cursor());
        node_card node{};
        element_card element;
        int result = 0;
        if (*in.at() == 'G')
        {
            if (!take_node_card(in, node)) return 0;
            result = store(node);
        }
        else
        {
            if (!take_element_card(in, element)) return 0;
            result = store(element);
        }
        if (result != 0) return result;
        reader_.advance(in.at());
    }
}

/// The card on the current line and its continuations, which is stored if it is an element.
int bulk_reader::read_element()
{
    element_card card;
    card_line line = read_card_line(line_.view(), card);
    if (line.fields < least_fields || card.numbers < 2) return 0;
    card.name = packed(line.name);
    // A marked line takes the next one with it, whatever that is.
    bool whole = true;
    while (line.marked && line.fields >= least_fields && whole && reader_.good() && reader_.next_line(line_))
    {
        whole = line_.size() <= longest_continuation;
        if (!whole) line_.begin[longest_continuation] = '\0';
        line = read_card_line(line_.c_text(), card);
    }
    return reader_.has_memory() ? store(card) : out_of_memory;
}

int bulk_reader::read()
{
    if (!reader_.has_memory()) return out_of_memory;
    for (;;)
    {
        if (decimal_point_)
            if (const int result = take_cards(); result != 0) return result;
        if (!reader_.next_line(line_)) return reader_.has_memory() ? 0 : out_of_memory;
        const std::string_view text = line_.view();
        if (text.empty() || text[0] == '$') continue;
        // Both keywords have an N, which few lines have.
        if (text.find('N') != std::string_view::npos)
        {
            if (text.find("BEGIN BULK") != std::string_view::npos) continue;
            if (text.find("ENDDATA") != std::string_view::npos) return 0;
        }
        const int result = text.starts_with("GRID") ? read_grid() : read_element();
        if (result != 0) return result;
    }
}

/// What a run of another kind than the one before it makes of the kind of all runs before; `ELEM_NONE` where no kind holds them all.
element_type joint_kind(element_type kind, element_type run)
{
    const auto is_surface = [](element_type k) { return k == ELEM_TRIA3 || k == ELEM_QUAD4; };
    const auto is_solid = [](element_type k) { return k == ELEM_TETRA4 || k == ELEM_PYRA5 || k == ELEM_PENTA6 || k == ELEM_HEXA8; };
    if ((is_surface(kind) || kind == ELEM_SURF_ANY) && is_surface(run)) return ELEM_SURF_ANY;
    if ((is_solid(kind) || kind == ELEM_SOLID_ANY) && is_solid(run)) return ELEM_SOLID_ANY;
    return ELEM_NONE;
}

} // namespace

int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, dense1D<unsigned>& run_starts, dense1D<int>& kinds,
                  dense1D<unsigned>& property_ids)
{
    numbered_nodes nodes(pos);
    element_list elements(connect, run_starts, kinds, property_ids);
    std::FILE* const stream = open_file(file, "r");
    if (!stream) return -1;

    int result = out_of_memory;
    if (elements.open()) result = bulk_reader(stream, nodes, elements).read();
    elements.close();
    close_file(stream);
    return result;
}

int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, element_type& kind)
{
    kind = ELEM_NONE;
    element_runs runs;
    const int result = NASTRAN_input(file, pos, connect, runs.run_starts, runs.kinds, runs.numbers);
    if (result != 0 || runs.kinds.empty()) return result;

    kind = static_cast<element_type>(runs.kinds[0]);
    for (unsigned run = 1; run < runs.kinds.size && kind != ELEM_NONE; ++run)
        kind = joint_kind(kind, static_cast<element_type>(runs.kinds[run]));
    return 0;
}

int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2, element_type& kind1,
                  element_type& kind2)
{
    connect1.clear_hard();
    connect2.clear_hard();
    kind1 = kind2 = ELEM_NONE;
    element_runs runs;
    const int result = NASTRAN_input(file, pos, runs.connect, runs.run_starts, runs.kinds, runs.numbers);
    if (result != 0) return result;

    const auto take_run = [&](unsigned run, dense2D<unsigned>& part, element_type& kind) {
        if (run >= runs.kinds.size) return;
        kind = static_cast<element_type>(runs.kinds[run]);
        part = runs.connect.sub_matrix(0, runs.run_starts[run], nbr_nodes(kind), runs.run_starts[run + 1] - runs.run_starts[run]);
    };
    take_run(0, connect1, kind1);
    take_run(1, connect2, kind2);
    return 0;
}

} // namespace tq4::gridweave
