#include "gridweave/io/decimal_digits.h"

#include <climits>
#include <cstdio>
#include <random>
#include <string>

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
