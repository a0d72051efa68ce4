#pragma once

// Numbers as text, both ways: the bytes that the C library's formatted output gives in the "C" locale, and the bits that its conversions
// read there, without the cost of its format strings. What these functions are not certain about they leave to the C library.

#include <cstddef>

namespace tq4::gridweave
{

/// A conversion of the C library's formatted output for doubles: "%{width}.{precision}{conversion}".
struct real_format
{
    char conversion; ///< 'e', 'E', 'f' or 'g'
    int precision = 6;
    int width = 0; ///< least number of characters, filled with blanks on the left
};

/// Room that one formatted number needs at most: a "%f" of the largest double has 309 digits before the point.
constexpr std::size_t longest_number = 512;

/// Writes `value` as formatted output does in the "C" locale. `out` has room for `longest_number` characters; the result is the end of
/// what was written.
char* write_real(char* out, double value, const real_format& format);

/// The same by the C library itself, for any value and under the locale of the calling thread.
char* write_real_by_c_library(char* out, double value, const real_format& format);

/// Writes `value` as "%{width}lld" does.
char* write_integer(char* out, long long value, int width = 0);

/// True when the C library writes and reads numbers with a decimal point as in the "C" locale, so that the functions of this header give
/// the same bytes and bits.
bool c_library_uses_decimal_point();

/// True when stream objects made now read and write numbers and blanks as in the "C" locale: the global C++ locale has the classic facets
/// for them, whatever it has for dates or money.
bool streams_use_classic_numbers();

/// Texts are read without a look at their end: a zero stands there, which is part of no number, and the bytes up to this far from the end
/// can be read, whatever they hold.
constexpr std::size_t text_margin = 16;

/// Reads the decimal number that begins at `text`: an optional sign, digits with or without a point, an optional exponent. The result is
/// the end of the number and `value` has the bits that `strtod` and `sscanf` read there in the "C" locale. The text has a margin.
///
/// Null, with `value` unchanged, where that is not certain: no digits, a letter, point or sign right behind the number (hexadecimal and
/// unfinished exponents look like that), `inf` and `nan`, values beyond the range of a double. Leading blanks are not skipped.
const char* scan_real(const char* text, double& value);

/// What `atof` reads from a text with a margin, under the locale of the calling thread.
double parse_real(const char* text, bool decimal_point = true);

/// What `atoi` reads from the text before `end`, with values beyond the range of an int set to its limits.
int parse_integer(const char* text, const char* end);

/// The white space that the C library's conversions skip in the "C" locale.
constexpr bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

} // namespace tq4::gridweave
