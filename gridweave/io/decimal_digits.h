#pragma once

// Decimal digits eight at a time: the characters of a text as the bytes of one 64-bit number, the first character in its lowest byte.

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace tq4::gridweave
{

/// Eight characters that stand at a place.
inline std::uint64_t load_eight(const char* from)
{
    std::uint64_t characters = 0;
    std::memcpy(&characters, from, sizeof characters);
    if constexpr (std::endian::native == std::endian::big) characters = __builtin_bswap64(characters);
    return characters;
}

inline void store_eight(char* to, std::uint64_t characters)
{
    if constexpr (std::endian::native == std::endian::big) characters = __builtin_bswap64(characters);
    std::memcpy(to, &characters, sizeof characters);
}

/// The same character eight times.
constexpr std::uint64_t eight_of(char character)
{
    return 0x0101010101010101u * static_cast<unsigned char>(character);
}

/// The eight decimal digits of a number below 10^8, as numbers and not as characters.
constexpr std::uint64_t eight_digits(std::uint32_t value)
{
    // Fours of digits side by side, then pairs, then digits; the products with rounded reciprocals are exact quotients for so few digits.
    const std::uint64_t fours = value / 10000 | std::uint64_t{value % 10000} << 32;
    const std::uint64_t hundreds = (fours * 5243 >> 19) & 0x0000007F0000007Fu;
    const std::uint64_t pairs = hundreds | (fours - hundreds * 100) << 16;
    const std::uint64_t tens = (pairs * 103 >> 10) & 0x000F000F000F000Fu;
    return tens | (pairs - tens * 10) << 8;
}

constexpr std::uint32_t end_of_eight_digits = 100000000;

constexpr bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

/// How many digits eight characters begin with.
constexpr int leading_digits(std::uint64_t characters)
{
    const std::uint64_t digits = characters ^ eight_of('0');
    // The high bit of a byte that is no digit; bytes behind the first such one may be marked wrongly.
    const std::uint64_t others = ((digits + eight_of(0x76)) | digits) & eight_of('\x80');
    return std::countr_zero(others) / 8;
}

/// The value of the `count` digits, 1 to 8, that eight characters begin with.
constexpr std::uint32_t value_of_digits(std::uint64_t characters, int count)
{
    // The digits go to the end, behind zeros, and are summed in pairs, fours and all: three products.
    std::uint64_t digits = (characters ^ eight_of('0')) << (64 - 8 * count);
    digits = digits * 2561 >> 8;
    digits = (digits & 0x00FF00FF00FF00FFu) * 6553601 >> 16;
    return static_cast<std::uint32_t>((digits & 0x0000FFFF0000FFFFu) * 42949672960001u >> 32);
}

/// The high bit of every byte that is not `character`.
constexpr std::uint64_t bytes_other_than(char character, std::uint64_t characters)
{
    const std::uint64_t difference = characters ^ eight_of(character);
    return (((difference & eight_of(0x7F)) + eight_of(0x7F)) | difference) & eight_of('\x80');
}

constexpr bool has_character(char character, std::uint64_t characters)
{
    return bytes_other_than(character, characters) != eight_of('\x80');
}

/// The number in a field of eight characters: digits with blanks on both sides. False where the field is anything else.
constexpr bool natural_of_field(std::uint64_t field, std::uint32_t& value)
{
    const std::uint64_t digits = field ^ eight_of('0');
    const std::uint64_t others = (((digits & eight_of(0x7F)) + eight_of(0x76)) | digits) & eight_of('\x80');
    const std::uint64_t found = others ^ eight_of('\x80');
    // All digits stand together when their bits carry into nothing but the place behind them.
    const std::uint64_t run = (found >> 7) * 0xFF;
    const bool together = ((run + (run & (0 - run))) & run) == 0;
    if (found == 0 || found != bytes_other_than(' ', field) || !together) return false;
    const int begin = std::countr_zero(found) / 8;
    const int end = 8 - std::countl_zero(found) / 8;
    value = value_of_digits(field >> (8 * begin), end - begin);
    return true;
}

/// Writes blanks from a place on, eight at a time: up to seven more than `count`.
inline void put_blanks(char* out, int count)
{
    for (; count > 0; count -= 8, out += 8) store_eight(out, eight_of(' '));
}

// Whole numbers. The numbers of nodes and elements that follow each other have as many digits, so branches by their size are guessed well
// and cost less than arithmetic without branches.

inline constexpr auto digit_pairs = [] {
    std::array<char, 200> table{};
    for (std::size_t k = 0; k < 100; ++k)
    {
        table[2 * k] = static_cast<char>('0' + k / 10);
        table[2 * k + 1] = static_cast<char>('0' + k % 10);
    }
    return table;
}();

/// Writes two digits; `value` is below 100.
inline char* put_pair(char* out, std::uint32_t value)
{
    std::memcpy(out, &digit_pairs[std::size_t{2} * value], 2);
    return out + 2;
}

/// Writes four digits; `value` is below 10000.
inline char* put_four(char* out, std::uint32_t value)
{
    return put_pair(put_pair(out, value / 100), value % 100);
}

inline char* put_digit(char* out, std::uint32_t value)
{
    *out = static_cast<char>('0' + value);
    return out + 1;
}

/// Writes a number below 10000.
inline char* put_up_to_four(char* out, std::uint32_t value)
{
    if (value < 100) return value < 10 ? put_digit(out, value) : put_pair(out, value);
    const std::uint32_t hundreds = value / 100;
    out = hundreds < 10 ? put_digit(out, hundreds) : put_pair(out, hundreds);
    return put_pair(out, value % 100);
}

/// Writes a number; the result is its end.
inline char* put_natural(char* out, std::uint32_t value)
{
    if (value < 10000) return put_up_to_four(out, value);
    if (value < end_of_eight_digits) return put_four(put_up_to_four(out, value / 10000), value % 10000);
    const std::uint32_t low = value % end_of_eight_digits;
    return put_four(put_four(put_up_to_four(out, value / end_of_eight_digits), low / 10000), low % 10000);
}

/// Writes a number below 10^8, filled with blanks on the left to `width` characters, 8 or more. Up to seven more characters may be written
/// behind them.
inline char* put_aligned_natural(char* out, std::uint32_t value, int width)
{
    put_blanks(out, width - 8);
    const std::uint64_t digits = eight_digits(value);
    // The bits below the first digit that counts; the last one always does. A digit reaches no further than the fourth bit of its byte, so
    // the fifth bit is there for the zeros before it only.
    const std::uint64_t counting = digits | std::uint64_t{1} << 56;
    const std::uint64_t below_first = (counting & (0 - counting)) - 1;
    store_eight(out + width - 8, digits + eight_of('0') - (below_first & eight_of('0' - ' ')));
    return out + width;
}

} // namespace tq4::gridweave
