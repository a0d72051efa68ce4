#include "gridweave/io/number_text.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <locale>

#include "gridweave/io/decimal_digits.h"

namespace tq4::gridweave
{

namespace
{

__extension__ using uint128 = unsigned __int128;

// 5^27 is the largest power of five below 2^63, so a 53-bit mantissa times any of these is exact in 128 bits.
constexpr int largest_power = 27;

constexpr auto powers_of_five = [] {
    std::array<std::uint64_t, largest_power + 1> table{1};
    for (std::size_t k = 1; k < table.size(); ++k) table[k] = table[k - 1] * 5;
    return table;
}();

constexpr auto powers_of_ten = [] {
    std::array<std::uint64_t, 20> table{1};
    for (std::size_t k = 1; k < table.size(); ++k) table[k] = table[k - 1] * 10;
    return table;
}();

/// A power of ten as mantissa × 2^(exponent - 63) with the highest bit of the mantissa set. What the mantissa leaves out is below its last
/// bit, and nothing up to 10^27.
struct power_of_ten
{
    std::uint64_t mantissa;
    int exponent;
};

constexpr bool has_power_of_ten(int power)
{
    return power >= -largest_power && power <= largest_power;
}

constexpr auto signed_powers_of_ten = [] {
    std::array<power_of_ten, 2 * largest_power + 1> table{};
    power_of_ten* const one = &table[largest_power];
    *one = {std::uint64_t{1} << 63, 0};
    for (int power = 1; power <= largest_power; ++power)
    {
        const std::uint64_t five = powers_of_five[static_cast<std::size_t>(power)];
        const int width = static_cast<int>(std::bit_width(five));
        one[power] = {five << (64 - width), power + width - 1};
        one[-power] = {static_cast<std::uint64_t>((uint128{1} << (width + 63)) / five), -power - width};
    }
    return table;
}();

const power_of_ten& power_of_ten_at(int power)
{
    return (&signed_powers_of_ten[largest_power])[power];
}

// The powers of ten that a double holds exactly.
constexpr std::array<double, 23> exact_powers_of_ten{1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                                     1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};

/// A magnitude as mantissa × 2^exponent.
struct binary_parts
{
    std::uint64_t mantissa;
    int exponent;
};

binary_parts parts_of(double magnitude)
{
    const auto bits = std::bit_cast<std::uint64_t>(magnitude);
    const auto biased = static_cast<int>(bits >> 52);
    const std::uint64_t fraction = bits & ((std::uint64_t{1} << 52) - 1);
    return biased ? binary_parts{fraction | (std::uint64_t{1} << 52), biased - 1075} : binary_parts{fraction, -1074};
}

/// A magnitude times a power of ten: its whole part, and the nearest whole number, ties to even, which is what the C library's formatted
/// output gives.
struct scaled
{
    std::uint64_t whole;
    std::uint64_t rounded;
};

/// magnitude × 10^power without any rounding on the way, for 0 <= power <= largest_power and a whole part that fits in 64 bits.
scaled scale_up(const binary_parts& parts, int power)
{
    const uint128 product = uint128{parts.mantissa} * powers_of_five[static_cast<std::size_t>(power)];
    const int shift = -(parts.exponent + power);
    if (shift <= 0)
    {
        const auto whole = static_cast<std::uint64_t>(product << -shift);
        return {whole, whole};
    }
    // The product is below 2^116: everything there is lies below one half.
    if (shift > 117) return {0, 0};
    // Just under one half carries what is above a half, and a whole half where the whole part is odd; no branch, since which way a number
    // is rounded cannot be guessed.
    const auto whole = static_cast<std::uint64_t>(product >> shift);
    const uint128 under_half = (uint128{1} << (shift - 1)) - 1;
    return {whole, static_cast<std::uint64_t>((product + under_half + (whole & 1)) >> shift)};
}

/// magnitude / 10^power without any rounding on the way, for a magnitude below 2^63 and a power above 0.
scaled scale_down(double magnitude, int power)
{
    const auto units = static_cast<std::uint64_t>(magnitude);
    const bool has_fraction = static_cast<double>(units) != magnitude;
    const std::uint64_t divisor = powers_of_ten[static_cast<std::size_t>(power)];
    const std::uint64_t whole = units / divisor;
    const std::uint64_t rest = units % divisor;
    const bool up = rest > divisor / 2 || (rest == divisor / 2 && (has_fraction || (whole & 1)));
    return {whole, whole + up};
}

/// `count` significant decimal digits of a magnitude: digits × 10^(exponent - count + 1).
struct decimal_parts
{
    std::uint64_t digits = 0;
    int exponent = 0;
};

/// Rounds a magnitude to `count` digits (1 to 9) by the high half of one product. False, with nothing said, where that leaves a doubt about
/// the last digit, which it does near ties, and beyond the powers of ten at hand.
bool round_to_few_digits(double magnitude, int count, decimal_parts& result)
{
    const auto bits = std::bit_cast<std::uint64_t>(magnitude);
    const auto biased = static_cast<int>(bits >> 52);
    const std::uint64_t mantissa = (bits | std::uint64_t{1} << 52) << 11;
    const int binary_exponent = biased - 1023;

    // 78913 / 2^18 is log10(2): the largest power of ten up to 2^binary_exponent. The next one may lie below the magnitude too.
    int exponent = (binary_exponent * 78913) >> 18;
    if (!has_power_of_ten(exponent + 1)) return false;
    const power_of_ten& next = power_of_ten_at(exponent + 1);
    exponent += next.exponent == binary_exponent && mantissa >= next.mantissa;
    const int power = count - 1 - exponent;
    if (!has_power_of_ten(power)) return false;

    // The exact product lies less than 2 above its high half. A denormal, which has no such mantissa, is out of reach of the powers.
    const power_of_ten& factor = power_of_ten_at(power);
    const auto high = static_cast<std::uint64_t>(uint128{mantissa} * factor.mantissa >> 64);
    const int shift = 62 - binary_exponent - factor.exponent;
    const std::uint64_t half = std::uint64_t{1} << (shift - 1);
    const std::uint64_t fraction = high & (2 * half - 1);
    if (fraction - (half - 1) <= 1) return false;

    const std::uint64_t digits = (high >> shift) + (fraction > half);
    const std::uint64_t limit = powers_of_ten[static_cast<std::size_t>(count)];
    const bool carried = digits == limit;
    result = {carried ? limit / 10 : digits, exponent + carried};
    return true;
}

/// Rounds a magnitude to `count` digits (1 to 17). False where exact arithmetic in 128 bits does not reach: below about 1e-20 and from
/// 2^63 on.
bool round_to_digits(double magnitude, int count, decimal_parts& result)
{
    result = {};
    if (magnitude == 0) return true;
    if (count <= 9 && round_to_few_digits(magnitude, count, result)) return true;
    if (!(magnitude < 0x1p63)) return false;

    const binary_parts parts = parts_of(magnitude);
    const std::uint64_t limit = powers_of_ten[static_cast<std::size_t>(count)];
    // 1233 / 4096 is log10(2), from below for all exponents in reach: the exponent is this one or the next.
    int exponent = ((parts.exponent + 52) * 1233) >> 12;
    for (;;)
    {
        const int power = count - 1 - exponent;
        if (power > largest_power) return false;
        const scaled value = power >= 0 ? scale_up(parts, power) : scale_down(magnitude, -power);
        if (value.whole >= limit)
        {
            ++exponent;
            continue;
        }
        const std::uint64_t digits = value.rounded;
        const bool carried = digits == limit;
        result = {carried ? limit / 10 : digits, exponent + carried};
        return true;
    }
}

/// Writes `count` digits of `value`, with leading zeros.
char* put_digits(char* out, std::uint64_t value, int count)
{
    char* const end = out + count;
    char* at = end;
    // Four digits to a division, so that the next one does not wait for each pair.
    for (; at - out >= 4; value /= 10000) put_four(at -= 4, static_cast<std::uint32_t>(value % 10000));
    if (at - out >= 2)
    {
        put_pair(at -= 2, static_cast<std::uint32_t>(value % 100));
        value /= 100;
    }
    if (at != out) *out = static_cast<char>('0' + value % 10);
    return end;
}

int digit_count(std::uint64_t value)
{
    // Zero has a digit too, and a lowest bit that is set reaches no other power of ten.
    value |= 1;
    // 1233 / 4096 is log10(2), which gives the count or one less.
    const int least = static_cast<int>(std::bit_width(value)) * 1233 >> 12;
    return least + (value >= powers_of_ten[static_cast<std::size_t>(least)]);
}

/// Writes d.ddd with `count` digits.
char* put_mantissa(char* out, std::uint64_t digits, int count)
{
    char* const end = put_digits(out + 1, digits, count);
    out[0] = out[1];
    if (count == 1) return out + 1;
    out[1] = '.';
    return end;
}

/// Writes e+dd. No exponent in reach has a third digit.
char* put_exponent(char* out, int exponent)
{
    *out++ = 'e';
    *out++ = exponent < 0 ? '-' : '+';
    return put_pair(out, static_cast<std::uint32_t>(std::abs(exponent)));
}

/// Writes `value` / 10^`decimals` with a point, and without one if there are no decimals.
char* put_fixed(char* out, std::uint64_t value, int decimals)
{
    if (decimals == 0) return put_digits(out, value, digit_count(value));
    const std::uint64_t unit = powers_of_ten[static_cast<std::size_t>(decimals)];
    out = put_digits(out, value / unit, digit_count(value / unit));
    *out++ = '.';
    return put_digits(out, value % unit, decimals);
}

/// Writes a value in scientific notation with a point and up to nine digits, which is what most file formats ask for. Null where exact
/// arithmetic in 128 bits does not reach and where the format is another one.
char* put_short_scientific(char* out, double value, const real_format& format)
{
    const bool scientific = format.conversion == 'e' || format.conversion == 'E';
    if (!scientific || format.precision < 1 || format.precision > 8) return nullptr;
    decimal_parts decimal;
    if (!round_to_digits(std::fabs(value), format.precision + 1, decimal)) return nullptr;

    const bool negative = std::signbit(value);
    constexpr int marks = 6; // a digit, the point and four characters of exponent: those in reach have two digits
    const int missing = format.width - (negative + format.precision + marks);
    put_blanks(out, missing);
    if (missing > 0) out += missing;
    *out = '-';
    out += negative;

    // The digits from the second one on, at the front of eight.
    const auto digits = static_cast<std::uint32_t>(decimal.digits);
    const std::uint64_t all = eight_digits(digits % end_of_eight_digits);
    const bool nine = format.precision == 8;
    const std::uint64_t from_first = nine ? all : all >> (8 * (7 - format.precision));
    out[0] = static_cast<char>('0' + (nine ? digits / end_of_eight_digits : from_first & 0xFF));
    out[1] = '.';
    store_eight(out + 2, (nine ? from_first : from_first >> 8) + eight_of('0'));
    out += 2 + format.precision;

    out[0] = format.conversion;
    out[1] = decimal.exponent < 0 ? '-' : '+';
    return put_pair(out + 2, static_cast<std::uint32_t>(std::abs(decimal.exponent)));
}

// The three notations for a magnitude. Null where exact arithmetic in 128 bits does not reach.

char* put_scientific(char* out, double magnitude, int precision)
{
    decimal_parts decimal;
    if (!round_to_digits(magnitude, precision + 1, decimal)) return nullptr;
    return put_exponent(put_mantissa(out, decimal.digits, precision + 1), decimal.exponent);
}

char* put_fixed_point(char* out, double magnitude, int precision)
{
    const double limit = 0x1p62 / exact_powers_of_ten[static_cast<std::size_t>(precision)];
    if (!(magnitude < limit)) return nullptr;
    return put_fixed(out, scale_up(parts_of(magnitude), precision).rounded, precision);
}

char* put_general(char* out, double magnitude, int precision)
{
    decimal_parts decimal;
    if (!round_to_digits(magnitude, precision, decimal)) return nullptr;
    int count = precision;
    for (; count > 1 && decimal.digits % 10 == 0; --count) decimal.digits /= 10;

    if (decimal.exponent < -4 || decimal.exponent >= precision)
        return put_exponent(put_mantissa(out, decimal.digits, count), decimal.exponent);
    // A whole number gets back the zeros before its point.
    const int decimals = count - 1 - decimal.exponent;
    if (decimals < 0) return put_fixed(out, decimal.digits * powers_of_ten[static_cast<std::size_t>(-decimals)], 0);
    return put_fixed(out, decimal.digits, decimals);
}

char* put_magnitude(char* out, double magnitude, const real_format& format)
{
    // 10^precision is exact up to 17 digits in each of the three; no file format asks for more.
    if (format.precision > 16 || format.precision < 1) return nullptr;
    switch (format.conversion)
    {
    case 'f': return put_fixed_point(out, magnitude, format.precision);
    case 'g': return put_general(out, magnitude, format.precision);
    default: return put_scientific(out, magnitude, format.precision);
    }
}

std::chars_format notation_of(const real_format& format)
{
    if (format.conversion == 'f') return std::chars_format::fixed;
    return format.conversion == 'g' ? std::chars_format::general : std::chars_format::scientific;
}

/// Moves the text from `begin` to `end` to the right until it is `width` characters long.
char* align_right(char* begin, char* end, int width)
{
    const std::ptrdiff_t missing = width - (end - begin);
    if (missing <= 0) return end;
    std::memmove(begin + missing, begin, static_cast<std::size_t>(end - begin));
    std::fill_n(begin, missing, ' ');
    return end + missing;
}

/// A whole number (modulo 2^64) with the digits at a place of a text appended to it, and the place behind them.
struct digit_run
{
    std::uint64_t value;
    const char* end;
};

/// One digit after the other: best for the few digits before a point, whose number the processor guesses well.
digit_run append_digits(std::uint64_t value, const char* at)
{
    for (; is_digit(*at); ++at) value = value * 10 + static_cast<unsigned>(*at - '0');
    return {value, at};
}

/// Eight characters at once, best for decimals.
digit_run append_decimals(std::uint64_t value, const char* at)
{
    for (;;)
    {
        const std::uint64_t characters = load_eight(at);
        const int count = leading_digits(characters);
        if (count == 0) return {value, at};
        value = value * powers_of_ten[static_cast<std::size_t>(count)] + value_of_digits(characters, count);
        at += count;
        if (count < 8) return {value, at};
    }
}

/// True for a character that a conversion of the C library may take as part of the number before it.
constexpr bool may_continue_number(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '.' || c == '+' || c == '-' || c == '_';
}

} // namespace

char* write_real(char* out, double value, const real_format& format)
{
    if (!std::isfinite(value)) return write_real_by_c_library(out, value, format);
    if (char* const end = put_short_scientific(out, value, format)) return end;
    char* at = out;
    if (std::signbit(value)) *at++ = '-';
    const double magnitude = std::fabs(value);
    char* end = put_magnitude(at, magnitude, format);
    if (!end) end = std::to_chars(at, out + longest_number, magnitude, notation_of(format), format.precision).ptr;
    if (format.conversion == 'E') std::replace(at, end, 'e', 'E');
    return align_right(out, end, format.width);
}

char* write_real_by_c_library(char* out, double value, const real_format& format)
{
    const int count = [&] {
        switch (format.conversion)
        {
        case 'f': return std::snprintf(out, longest_number, "%*.*f", format.width, format.precision, value);
        case 'g': return std::snprintf(out, longest_number, "%*.*g", format.width, format.precision, value);
        case 'E': return std::snprintf(out, longest_number, "%*.*E", format.width, format.precision, value);
        default: return std::snprintf(out, longest_number, "%*.*e", format.width, format.precision, value);
        }
    }();
    return out + std::clamp(count, 0, static_cast<int>(longest_number) - 1);
}

char* write_integer(char* out, long long value, int width)
{
    char* at = out;
    auto magnitude = static_cast<std::uint64_t>(value);
    if (value < 0)
    {
        *at++ = '-';
        magnitude = 0 - magnitude;
    }
    return align_right(out, put_digits(at, magnitude, digit_count(magnitude)), width);
}

bool c_library_uses_decimal_point()
{
    // Asking for a number is safe beside other threads, which `localeconv` is not.
    char probe[16];
    std::snprintf(probe, sizeof probe, "%.1f", 0.5);
    return std::strcmp(probe, "0.5") == 0;
}

namespace
{

template <class Facet>
bool has_classic(const std::locale& global)
{
    return &std::use_facet<Facet>(global) == &std::use_facet<Facet>(std::locale::classic());
}

} // namespace

bool streams_use_classic_numbers()
{
    // Comparing whole locales would compare their names, which may need memory and may not throw.
    const std::locale global;
    return has_classic<std::ctype<char>>(global) && has_classic<std::numpunct<char>>(global) && has_classic<std::num_put<char>>(global) &&
           has_classic<std::num_get<char>>(global);
}

namespace
{

/// A number of any length, whose extent and sign are known. It stands apart, so that numbers of the usual length need not make room for it.
[[gnu::noinline]] const char* scan_hard_real(const char* unsigned_text, const char* end, bool negative, double& value)
{
    double magnitude = 0;
    const std::errc error = std::from_chars(unsigned_text, end, magnitude).ec;
    // What comes out as 0, denormal or beyond a double is left to the C library, whose rounding there is the reference.
    if (error != std::errc{} || !(magnitude >= DBL_MIN)) return nullptr;
    value = negative ? -magnitude : magnitude;
    return end;
}

} // namespace

const char* scan_real(const char* text, double& value)
{
    // Signs cannot be guessed: no branch depends on them.
    const char* at = text;
    const bool negative = *at == '-';
    at += negative | (*at == '+');
    const char* const unsigned_text = at;

    // The digits on both sides of the point as one whole number.
    const digit_run whole_part = append_digits(0, at);
    std::ptrdiff_t digits = whole_part.end - at;
    std::uint64_t mantissa = whole_part.value;
    std::ptrdiff_t decimals = 0;
    at = whole_part.end;
    if (*at == '.')
    {
        ++at;
        const digit_run fraction = append_decimals(mantissa, at);
        decimals = fraction.end - at;
        digits += decimals;
        mantissa = fraction.value;
        at = fraction.end;
    }
    if (digits == 0) return nullptr;

    std::ptrdiff_t exponent = 0;
    if (*at == 'e' || *at == 'E')
    {
        ++at;
        const bool down = *at == '-';
        at += down | (*at == '+');
        const char* const begin = at;
        for (; is_digit(*at); ++at)
            if (exponent < 10000) exponent = exponent * 10 + (*at - '0');
        if (at == begin) return nullptr;
        exponent *= 1 - 2 * down;
    }
    if (may_continue_number(*at)) return nullptr;

    // A whole number below 2^53 times or divided by an exact power of ten is rounded once, hence correctly (Clinger, "How to read
    // floating point numbers accurately", 1990). Arithmetic in wider registers would round twice.
    exponent -= decimals;
    const bool fits = digits <= 19 && mantissa <= (std::uint64_t{1} << 53);
    if (FLT_EVAL_METHOD == 0 && fits && exponent >= -22 && exponent <= 22)
    {
        const auto whole = static_cast<double>(mantissa);
        const double magnitude = exponent < 0 ? whole / exact_powers_of_ten[static_cast<std::size_t>(-exponent)]
                                              : whole * exact_powers_of_ten[static_cast<std::size_t>(exponent)];
        value = std::bit_cast<double>(std::bit_cast<std::uint64_t>(magnitude) | std::uint64_t{negative} << 63);
        return at;
    }
    return scan_hard_real(unsigned_text, at, negative, value);
}

double parse_real(const char* text, bool decimal_point)
{
    const char* at = text;
    while (is_blank(*at)) ++at;
    double value = 0;
    if (decimal_point && scan_real(at, value)) return value;
    return std::strtod(text, nullptr);
}

int parse_integer(const char* text, const char* end)
{
    while (text != end && is_blank(*text)) ++text;
    const bool negative = text != end && *text == '-';
    if (text != end && (*text == '-' || *text == '+')) ++text;
    long long magnitude = 0;
    for (; text != end && is_digit(*text); ++text)
        if (magnitude <= INT_MAX) magnitude = magnitude * 10 + (*text - '0');
    const long long value = negative ? -magnitude : magnitude;
    return static_cast<int>(std::clamp<long long>(value, INT_MIN, INT_MAX));
}

} // namespace tq4::gridweave
