#include "gridweave/io/decimal_digits.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <random>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace
{

using namespace tq4::gridweave;

/// Numbers of every length, about as many of each.
std::uint32_t number_of_any_length(std::mt19937_64& engine)
{
    return static_cast<std::uint32_t>(engine()) >> (engine() % 32);
}

TEST(EightDigits, AreThoseOfTheNumberFirstOneLowest)
{
    std::mt19937_64 engine(1);
    for (unsigned k = 0; k < 200000; ++k)
    {
        const std::uint32_t value = number_of_any_length(engine) % end_of_eight_digits;
        char text[9] = {};
        store_eight(text, eight_digits(value) + eight_of('0'));
        char reference[16];
        std::snprintf(reference, sizeof reference, "%08u", value);
        ASSERT_STREQ(text, reference);
        ASSERT_EQ(load_eight(text), eight_digits(value) + eight_of('0'));
    }
}

TEST(EightDigits, AreCountedAndSummedFromATextOn)
{
    for (int count = 0; count <= 8; ++count)
        for (const char behind : {' ', '.', '/', ':', '\0', '\x7F', '\xB0', '\xFF'})
        {
            char text[] = "12345678";
            if (count < 8) std::fill(text + count, text + 8, behind);
            const std::uint64_t characters = load_eight(text);
            ASSERT_EQ(leading_digits(characters), count);
            const std::string digits(text, static_cast<std::size_t>(count));
            ASSERT_EQ(count == 0 ? "" : std::to_string(value_of_digits(characters, count)), digits);
        }
    EXPECT_EQ(value_of_digits(load_eight("00000000"), 8), 0u);
    EXPECT_EQ(value_of_digits(load_eight("99999999"), 8), 99999999u);
}

TEST(Bytes, AreFoundAmongEight)
{
    for (unsigned k = 0; k < 8; ++k)
        for (const char other : {'\0', '+', '-', '\x7F', '\x80', '\xAC', '\xFF'})
        {
            std::string text(8, other);
            EXPECT_FALSE(has_character(',', load_eight(text.data())));
            text[k] = ',';
            EXPECT_EQ(bytes_other_than(',', load_eight(text.data())), eight_of('\x80') ^ std::uint64_t{0x80} << (8 * k));
            EXPECT_TRUE(has_character(',', load_eight(text.data())));
        }
}

TEST(NaturalOfField, ReadsDigitsBetweenBlanksOnly)
{
    // All fields of a few characters that matter.
    const char alphabet[] = {' ', '0', '9', '/', '\xB5'};
    constexpr unsigned letters = sizeof alphabet;
    unsigned count = 1;
    for (unsigned k = 0; k < 8; ++k) count *= letters;
    for (unsigned code = 0; code < count; ++code)
    {
        char field[9] = {};
        for (unsigned k = 0, rest = code; k < 8; ++k, rest /= letters) field[k] = alphabet[rest % letters];
        const std::string_view text(field, 8);
        const std::size_t begin = text.find_first_not_of(' ');
        std::size_t end = begin;
        std::uint32_t expected = 0;
        for (; end < 8 && is_digit(text[end]); ++end) expected = 10 * expected + static_cast<std::uint32_t>(text[end] - '0');
        const bool plain = begin != std::string_view::npos && end > begin && text.find_first_not_of(' ', end) == std::string_view::npos;
        std::uint32_t value = 0;
        ASSERT_EQ(natural_of_field(load_eight(field), value), plain) << field;
        ASSERT_EQ(plain ? value : expected, expected) << field;
    }
}

TEST(PutNatural, WritesNumbersOfEveryLength)
{
    const auto check = [](std::uint32_t value) {
        char text[32];
        ASSERT_EQ(std::string(text, put_natural(text, value)), std::to_string(value));
    };
    std::uint32_t power = 1;
    for (unsigned digits = 0; digits < 10; ++digits, power *= 10)
        for (const std::uint32_t value : {power - 1, power, power + 1, 9 * (power / 10)}) check(value);
    check(UINT_MAX);
    std::mt19937_64 engine(2);
    for (unsigned k = 0; k < 200000; ++k) check(number_of_any_length(engine));
}

TEST(PutNatural, AlignsToTheRight)
{
    std::mt19937_64 engine(3);
    for (unsigned k = 0; k < 200000; ++k)
    {
        const std::uint32_t value = k < 20 ? k : number_of_any_length(engine) % end_of_eight_digits;
        const int width = 8 + static_cast<int>(engine() % 17);
        char text[64];
        char reference[64];
        std::snprintf(reference, sizeof reference, "%*u", width, value);
        ASSERT_EQ(std::string(text, put_aligned_natural(text, value, width)), reference);
    }
}

TEST(PutBlanks, WritesAtMostSevenMore)
{
    for (int count = -3; count < 40; ++count)
    {
        std::string text(60, 'x');
        put_blanks(text.data(), count);
        const auto blanks = text.find('x');
        const auto least = static_cast<std::size_t>(std::max(count, 0));
        EXPECT_GE(blanks, least);
        EXPECT_LE(blanks, least == 0 ? 0 : least + 7);
        EXPECT_EQ(text.find(' ', blanks), std::string::npos);
    }
}

} // namespace
