#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdio>
#include <string_view>

#include <tq4/gridweave/io.h>

#include "gridweave/core/append.h"
#include "gridweave/io/mesh_ranges.h"
#include "gridweave/io/nastran_tables.h"
#include "gridweave/io/numbered_nodes.h"
#include "gridweave/io/text_reader.h"
#include "gridweave/io/text_writer.h"

namespace tq4::gridweave
{

namespace
{

using point = vector_fixed<double, 3>;

// Card names.

/// A name of at most eight characters as one number.
constexpr std::uint64_t packed(std::string_view name)
{
    std::uint64_t value = 0;
    for (const char c : name) value = value << 8 | static_cast<unsigned char>(c);
    return value;
}

struct card_name
{
    std::uint64_t name;
    element_type kind; ///< kind before the number of nodes has its say
};

constexpr card_name card_names[] = {
    {packed("BAR"), ELEM_BAR2},     {packed("BEAM"), ELEM_BAR2},     {packed("ROD"), ELEM_BAR2},     {packed("CBAR"), ELEM_BAR2},
    {packed("CBEAM"), ELEM_BAR2},   {packed("CROD"), ELEM_BAR2},     {packed("TRIA3"), ELEM_TRIA3},  {packed("CTRIA"), ELEM_TRIA3},
    {packed("CTRIA3"), ELEM_TRIA3}, {packed("TRIA6"), ELEM_TRIA6},   {packed("CTRIA6"), ELEM_TRIA6}, {packed("QUAD4"), ELEM_QUAD4},
    {packed("CQUAD"), ELEM_QUAD4},  {packed("CQUAD4"), ELEM_QUAD4},  {packed("QUAD8"), ELEM_QUAD8},  {packed("CQUAD8"), ELEM_QUAD8},
    {packed("TETRA"), ELEM_TETRA4}, {packed("CTETRA"), ELEM_TETRA4}, {packed("PYRA"), ELEM_PYRA5},   {packed("PYRAM"), ELEM_PYRA5},
    {packed("CPYRA"), ELEM_PYRA5},  {packed("CPYRAM"), ELEM_PYRA5},  {packed("PENTA"), ELEM_PENTA6}, {packed("CPENTA"), ELEM_PENTA6},
    {packed("HEXA"), ELEM_HEXA8},   {packed("CHEXA"), ELEM_HEXA8},
};

element_type kind_of_name(std::uint64_t name)
{
    for (const card_name& known : card_names)
        if (known.name == name) return known.kind;
    return ELEM_NONE;
}

/// Solids share their names with the quadratic kinds; the number of nodes decides. `ELEM_NONE` where the count does not fit.
element_type refined_by_nodes(element_type kind, std::uint64_t nodes)
{
    if (kind == ELEM_TETRA4 && nodes == 10) return ELEM_TETRA10;
    if (kind == ELEM_PYRA5 && nodes == 13) return ELEM_PYRA13;
    if (kind == ELEM_PENTA6 && nodes == 15) return ELEM_PENTA15;
    if (kind == ELEM_HEXA8 && nodes == 20) return ELEM_HEXA20;
    return nodes == record_of(kind).nodes ? kind : ELEM_NONE;
}

// Lines in fields of fixed widths: columns 0 to 7 name the card, columns 72 to 79 may mark a continuation, between them stand eight
// fields of 8 or four of 16 characters.

struct field_layout
{
    unsigned width;
    unsigned count;
    char mark; ///< what a continuation mark begins with
};

constexpr field_layout small_fields{8, 8, '+'};
constexpr field_layout large_fields{16, 4, '*'};

constexpr unsigned name_width = 8;
constexpr unsigned mark_column = 72;
constexpr unsigned line_width = 80;

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
    char text[large_fields.width + 1];
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
    const double value = parse_real(text, end, decimal_point);
    // A product, rounded once more than the number itself would be; readers of other programs' files compare with it.
    return exponent == 0 ? value : value * std::pow(10.0, exponent);
}

double real_of(std::string_view field, bool decimal_point)
{
    const char* begin = field.data();
    const char* end = begin + field.size();
    while (begin != end && is_blank(*begin)) ++begin;
    while (begin != end && is_blank(end[-1])) --end;
    if (begin == end) return 0;
    double value = 0;
    if (decimal_point && scan_real(begin, end, value) == end) return value;
    return short_real({begin, static_cast<std::size_t>(end - begin)}, decimal_point);
}

// Nodes. A reading of a node card: its number, 0 where the card cannot be read, and its place.

struct node_card
{
    int number;
    point x;
};

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

/// A place in a line of free fields. `certain` goes false where the C library's scan may see the line differently.
class free_field_cursor
{
public:
    free_field_cursor(const char* begin, const char* end) : at_(begin), end_(end) {}

    bool certain() const { return certain_; }

    void comma()
    {
        skip_blanks();
        certain_ = certain_ && at_ != end_ && *at_ == ',';
        if (certain_) ++at_;
        skip_blanks();
    }

    bool at_comma() const { return at_ != end_ && *at_ == ','; }

    int integer()
    {
        constexpr int certain_digits = 9; // whatever they are, the number is an int
        const char* const begin = at_;
        int value = 0;
        for (; at_ != end_ && at_ - begin < certain_digits && *at_ >= '0' && *at_ <= '9'; ++at_) value = value * 10 + (*at_ - '0');
        certain_ = certain_ && at_ != begin;
        return value;
    }

    double real()
    {
        double value = 0;
        const char* const behind = certain_ ? scan_real(at_, end_, value) : nullptr;
        certain_ = behind != nullptr;
        if (behind) at_ = behind;
        return value;
    }

private:
    void skip_blanks()
    {
        while (at_ != end_ && is_blank(*at_)) ++at_;
    }

    const char* at_;
    const char* end_;
    bool certain_ = true;
};

node_card scan_free_grid(const char* line)
{
    long long number = 0;
    long long system = 0;
    point x{};
    const bool readable = std::sscanf(line, "GRID , %lld , %lld , %lf , %lf , %lf", &number, &system, &x[0], &x[1], &x[2]) == 5 ||
                          std::sscanf(line, "GRID , %lld , , %lf , %lf , %lf", &number, &x[0], &x[1], &x[2]) == 4;
    if (!readable) return unreadable;
    return {static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX)), x};
}

/// "GRID", number, coordinate system or nothing, x, y, z; what follows is not looked at.
node_card read_free_grid(const text_line& line, bool decimal_point)
{
    constexpr std::size_t keyword = 4;
    free_field_cursor cursor(line.begin + keyword, line.end);
    cursor.comma();
    node_card card{cursor.integer(), {}};
    cursor.comma();
    if (!cursor.at_comma()) cursor.integer();
    for (unsigned k = 0; k < 3; ++k)
    {
        cursor.comma();
        card.x[k] = cursor.real();
    }
    return decimal_point && cursor.certain() ? card : scan_free_grid(line.begin);
}

// Elements.

/// The numbers of an element card, of all its lines.
struct element_card
{
    std::uint64_t name = 0;
    std::uint64_t numbers = 0; ///< element number, property and nodes
    int property = 0;
    std::array<int, most_card_nodes> node{}; ///< the first nodes; no kind has more

    std::uint64_t nodes() const { return numbers < 2 ? 0 : numbers - 2; }

    void take(int number)
    {
        if (numbers == 1) property = number;
        if (numbers >= 2 && numbers - 2 < node.size()) node[numbers - 2] = number;
        ++numbers;
    }
};

/// What one line of a card says beside its numbers.
struct card_line
{
    std::string_view name;
    unsigned fields = 0; ///< a count below 3 ends the card
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
    bool open() { return run_starts_.reserve(2, 1) && append_entry(run_starts_, 0u) && connect_.reserve(8, 256, 1); }

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
        if (element >= connect_.column_capacity()) connect_.reserve(connect_.ld, columns_to_reserve(element), 1);
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
    int read_grid();
    int read_element();

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
        card = read_free_grid(line_, decimal_point_);
    else
        card = read_small_grid(text, decimal_point_);

    if (card.number == 0) return -1;
    return nodes_.put(static_cast<unsigned>(card.number), card.x) ? 0 : out_of_memory;
}

/// The card on the current line and its continuations, which is stored if it is an element.
int bulk_reader::read_element()
{
    constexpr std::size_t longest_continuation = 255;
    element_card card;
    card_line line = read_card_line(line_.view(), card);
    if (line.fields < 3 || card.numbers < 2) return 0;
    card.name = packed(line.name);
    // A marked line takes the next one with it, whatever that is.
    bool whole = true;
    while (line.marked && line.fields >= 3 && whole && reader_.good() && reader_.next_line(line_))
    {
        // A longer continuation counts up to here and is the last one.
        whole = line_.size() <= longest_continuation;
        if (!whole) line_.begin[longest_continuation] = '\0';
        line = read_card_line(line_.c_text(), card);
    }
    if (!reader_.has_memory()) return out_of_memory;

    const element_type kind = refined_by_nodes(kind_of_name(card.name), card.nodes());
    if (kind == ELEM_NONE) return 0;
    return elements_.append(kind, card) ? 0 : out_of_memory;
}

int bulk_reader::read()
{
    while (reader_.next_line(line_))
    {
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
    return reader_.has_memory() ? 0 : out_of_memory;
}

/// What a run makes of the kind of all runs before it; `ELEM_NONE` where no kind holds them all.
element_type joint_kind(element_type kind, element_type run)
{
    const auto is_surface = [](element_type k) { return k == ELEM_TRIA3 || k == ELEM_QUAD4; };
    const auto is_solid = [](element_type k) { return k == ELEM_TETRA4 || k == ELEM_PYRA5 || k == ELEM_PENTA6 || k == ELEM_HEXA8; };
    if (run == kind) return kind;
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

    const int result = elements.open() ? bulk_reader(stream, nodes, elements).read() : out_of_memory;
    elements.close();
    close_file(stream);
    return result;
}

int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect, element_type& kind)
{
    kind = ELEM_NONE;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> property_ids;
    const int result = NASTRAN_input(file, pos, connect, run_starts, kinds, property_ids);
    if (result != 0 || kinds.empty()) return result;

    kind = static_cast<element_type>(kinds[0]);
    for (unsigned run = 1; run < kinds.size && kind != ELEM_NONE; ++run) kind = joint_kind(kind, static_cast<element_type>(kinds[run]));
    return 0;
}

int NASTRAN_input(const char* file, dense2D<double>& pos, dense2D<unsigned>& connect1, dense2D<unsigned>& connect2, element_type& kind1,
                  element_type& kind2)
{
    connect1.clear_hard();
    connect2.clear_hard();
    kind1 = kind2 = ELEM_NONE;
    dense2D<unsigned> connect;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> property_ids;
    const int result = NASTRAN_input(file, pos, connect, run_starts, kinds, property_ids);
    if (result != 0) return result;

    const auto take_run = [&](unsigned run, dense2D<unsigned>& part, element_type& kind) {
        if (run >= kinds.size) return;
        kind = static_cast<element_type>(kinds[run]);
        part = connect.sub_matrix(0, run_starts[run], nbr_nodes(kind), run_starts[run + 1] - run_starts[run]);
    };
    take_run(0, connect1, kind1);
    take_run(1, connect2, kind2);
    return 0;
}

} // namespace tq4::gridweave
