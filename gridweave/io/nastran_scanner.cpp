#include "gridweave/io/nastran_scanner.h"

namespace tq4::gridweave
{

namespace
{

constexpr std::uint64_t blank_columns = eight_of(' ');

// What is passed over must not hold what has a meaning wherever it stands in a line: a comma makes the fields of a line free, an asterisk
// makes them large, and the words that begin and end the data have an N.

// Fields of fixed widths.

/// A field that nobody looks at.
bool pass_field(text_scanner& in, const field_layout& layout)
{
    for (unsigned column = 0; column < layout.width; column += 8)
    {
        const std::uint64_t columns = in.take_columns();
        if (has_character(',', columns) || has_character('*', columns) || has_character('N', columns)) return false;
    }
    return true;
}

/// A field of digits with blanks on both sides. A blank one is a 0.
bool take_natural(text_scanner& in, const field_layout& layout, unsigned& value)
{
    const std::uint64_t left = in.take_columns();
    const std::uint64_t right = layout.width == 16 ? in.take_columns() : blank_columns;
    value = 0;
    if (right == blank_columns) return left == blank_columns || natural_of_field(left, value);
    // Only a long number stands across the middle of its field.
    return left == blank_columns && natural_of_field(right, value);
}

/// A field of a real number with blanks on both sides. A blank one is a 0.
bool take_real(text_scanner& in, const field_layout& layout, double& value)
{
    // The next field may follow without a blank, so the number is read from a text of its own.
    char field[large_fields.width + text_margin];
    bool blank = true;
    for (unsigned column = 0; column < layout.width; column += 8)
    {
        const std::uint64_t columns = in.take_columns();
        store_eight(field + column, columns);
        blank &= columns == blank_columns;
    }
    value = 0;
    if (blank) return true;
    field[layout.width] = '\0';
    text_scanner number(field);
    number.take_blanks();
    if (!number.take_real(value)) return false;
    number.take_blanks();
    return number.at() == field + layout.width;
}

// Nodes.

bool take_small_node(text_scanner& in, node_card& card)
{
    unsigned number = 0;
    in.take_columns();
    if (!take_natural(in, small_fields, number) || !pass_field(in, small_fields)) return false;
    card.number = static_cast<int>(number);
    return take_real(in, small_fields, card.x[0]) && take_real(in, small_fields, card.x[1]) && take_real(in, small_fields, card.x[2]) &&
           in.skip_line_without(",N");
}

/// The third coordinate stands on the second line, of which nothing else matters.
bool take_large_node(text_scanner& in, node_card& card)
{
    unsigned number = 0;
    in.take_columns();
    if (!take_natural(in, large_fields, number) || !pass_field(in, large_fields)) return false;
    card.number = static_cast<int>(number);
    if (!take_real(in, large_fields, card.x[0]) || !take_real(in, large_fields, card.x[1]) || !in.skip_line_without("N")) return false;
    in.take_columns();
    return take_real(in, large_fields, card.x[2]) && in.skip_line();
}

bool take_comma(text_scanner& in)
{
    in.take_blanks();
    const bool taken = in.take(',');
    in.take_blanks();
    return taken;
}

/// The number, a coordinate system or nothing, and three coordinates, behind the name.
bool take_free_node(text_scanner& in, node_card& card)
{
    int system = 0;
    if (!take_comma(in) || !in.take_natural(card.number) || !take_comma(in)) return false;
    if (*in.at() != ',' && !in.take_natural(system)) return false;
    for (double& x : card.x.values)
        if (!take_comma(in) || !in.take_real(x)) return false;
    return in.skip_line_without("N");
}

// Elements.

/// What one line of a card says beside its numbers.
struct line_marks
{
    std::uint64_t name = 0;
    unsigned fields = 0;
    bool marked = false; ///< for a continuation
};

/// The characters of a packed name before the first `end`.
constexpr std::uint64_t cut_at(char end, std::uint64_t name)
{
    const std::uint64_t ends = bytes_other_than(end, name) ^ eight_of('\x80');
    const std::uint64_t first = ends & (0 - ends);
    return ends == 0 ? name : name & ((first >> 7) - 1);
}

bool take_fixed_fields(text_scanner& in, const field_layout& layout, element_card& card, line_marks& line)
{
    // A field that is blank or 0 ends the numbers of its line.
    for (unsigned field = 0; field < layout.count && !in.at_line_end(); ++field)
    {
        unsigned number = 0;
        if (!take_natural(in, layout, number)) return false;
        if (line.fields < field || number == 0) continue;
        card.take(static_cast<int>(number));
        ++line.fields;
    }
    line.marked |= *in.at() == layout.mark;
    return in.skip_line_without(layout.mark == large_fields.mark ? ",N" : ",*N");
}

/// Behind the name and its comma. No field is longer than eight characters.
bool take_free_fields(text_scanner& in, element_card& card, line_marks& line)
{
    constexpr std::ptrdiff_t with_its_end = name_width + 1;
    line.fields = 1;
    while (!in.take('\n'))
    {
        const char* const begin = in.at();
        ++line.fields;
        if (*begin == '+' || *begin == '*')
        {
            line.marked = true;
            return in.skip_line_without(",N") && in.at() - begin <= with_its_end;
        }
        int number = 0;
        in.take_blanks();
        if (!in.take_natural(number)) return false;
        card.take(number);
        in.take_blanks();
        const bool last = !in.take(',');
        if ((last && !in.take_line_end()) || in.at() - begin > with_its_end) return false;
        if (last) break;
    }
    return true;
}

/// One line of a card, the layout of which is seen in its first columns.
bool take_line(text_scanner& in, element_card& card, line_marks& line)
{
    const std::uint64_t columns = load_eight(in.at());
    const std::uint64_t others = bytes_other_than(',', columns) & bytes_other_than('\n', columns) & bytes_other_than('\0', columns);
    const int width = std::countr_zero(others ^ eight_of('\x80')) / 8;
    if (in.at()[width] == ',')
    {
        line.name = width == 8 ? columns : columns & ((std::uint64_t{1} << (8 * width)) - 1);
        in.pass(static_cast<std::size_t>(width) + 1);
        return take_free_fields(in, card, line);
    }
    if (width < 8) return false;

    in.pass(name_width);
    line.name = cut_at(' ', columns);
    if (!has_character('*', columns)) return take_fixed_fields(in, small_fields, card, line);
    // The name carries the mark of a card in large fields.
    const std::uint64_t name = cut_at('*', line.name);
    line.marked = name != 0 && name != line.name;
    if (line.marked) line.name = name;
    return take_fixed_fields(in, large_fields, card, line);
}

} // namespace

bool take_node_card(text_scanner& in, node_card& card)
{
    constexpr std::uint64_t keyword = packed("GRID");
    const std::uint64_t columns = load_eight(in.at());
    if (columns == packed("GRID    ")) return take_small_node(in, card);
    if (columns == packed("GRID*   ")) return take_large_node(in, card);
    if ((columns & 0xFFFFFFFFu) != keyword) return false;
    in.pass(4);
    return take_free_node(in, card);
}

bool take_element_card(text_scanner& in, element_card& card)
{
    line_marks line;
    if (!take_line(in, card, line)) return false;
    card.name = line.name;
    if (line.fields < least_fields || card.numbers < 2 || kind_of_name(card.name) == ELEM_NONE) return false;
    while (line.marked && line.fields >= least_fields)
    {
        constexpr std::size_t with_its_end = longest_continuation + 1;
        line = {};
        const char* const begin = in.at();
        if (!take_line(in, card, line) || static_cast<std::size_t>(in.at() - begin) > with_its_end) return false;
    }
    return true;
}

} // namespace tq4::gridweave
