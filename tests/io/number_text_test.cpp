#include "gridweave/io/number_text.h"

#include <bit>
#include <cfloat>
#include <climits>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include <gtest/gtest.h>

namespace
{

using namespace tq4::gridweave;

constexpr real_format formats[] = {{'e'},     {'E'},     {'f'},     {'g'},    {'e', 8},     {'E', 6, 16}, {'e', 5, 12}, {'f', 3},
                                   {'g', 12}, {'e', 16}, {'f', 16}, {'g', 1}, {'f', 1, 20}, {'E', 1},     {'e', 0}};

std::string written(double value, const real_format& format)
{
    char buffer[longest_number];
    return {buffer, write_real(buffer, value, format)};
}

std::string written_by_c(double value, const real_format& format)
{
    char buffer[longest_number];
    return {buffer, write_real_by_c_library(buffer, value, format)};
}

/// Doubles that rounding is hard for: any bit patterns, ties and their neighbours, whole numbers, decimal fractions, powers of ten.
class hard_doubles
{
public:
    explicit hard_doubles(std::uint64_t seed) : engine_(seed) {}

    double next()
    {
        const double value = magnitude();
        return engine_() & 1 ? value : -value;
    }

private:
    double magnitude()
    {
        const std::uint64_t bits = engine_();
        switch (engine_() % 8)
        {
        case 0: return finite(std::bit_cast<double>(bits & (UINT64_MAX >> 1)));
        case 1: return std::bit_cast<double>((bits & 0x000FFFFFFFFFFFFFull) | (1023 + engine_() % 80 - 40) << 52); // everyday sizes
        case 2: return static_cast<double>(bits >> (engine_() % 64));
        case 3: return static_cast<double>(2 * (bits % 100000000) + 1) / static_cast<double>(1ull << (1 + engine_() % 20)); // exact ties
        case 4: return std::nextafter(static_cast<double>(bits % 10000000) + 0.5, engine_() & 1 ? 0 : DBL_MAX);
        case 5: return static_cast<double>(bits % 100000000) / std::pow(10.0, static_cast<double>(engine_() % 12));
        case 6: return std::nextafter(std::pow(10.0, static_cast<double>(engine_() % 40) - 20), engine_() & 1 ? 0 : DBL_MAX);
        default: return std::bit_cast<double>(bits & 0x000FFFFFFFFFFFFFull); // denormal
        }
    }

    static double finite(double value) { return std::isfinite(value) ? value : 1.0; }

    std::mt19937_64 engine_;
};

TEST(WriteReal, LooksAsFormattedOutput)
{
    EXPECT_EQ(written(0.0, {'e'}), "0.000000e+00");
    EXPECT_EQ(written(-0.0, {'E'}), "-0.000000E+00");
    EXPECT_EQ(written(1.0, {'E', 6, 16}), "    1.000000E+00");
    EXPECT_EQ(written(-1234.5, {'e', 5, 12}), "-1.23450e+03");
    EXPECT_EQ(written(1.5, {'f'}), "1.500000");
    EXPECT_EQ(written(1e300, {'f'}), written_by_c(1e300, {'f'}));
    EXPECT_EQ(written(1e300, {'f'}).size(), 308u);
    EXPECT_EQ(written(1e-300, {'e'}), "1.000000e-300");
    EXPECT_EQ(written(9.9999999, {'e'}), "1.000000e+01");
    EXPECT_EQ(written(1234567.0, {'g'}), "1.23457e+06");
    EXPECT_EQ(written(123456.0, {'g'}), "123456");
    EXPECT_EQ(written(100000.0, {'g'}), "100000");
    EXPECT_EQ(written(0.0001, {'g'}), "0.0001");
    EXPECT_EQ(written(0.00001, {'g'}), "1e-05");
    EXPECT_EQ(written(0.0, {'g'}), "0");
    EXPECT_EQ(written(0.5, {'f', 1}), "0.5");
    EXPECT_EQ(written(0.25, {'f', 1}), "0.2"); // a tie goes to the even digit
    EXPECT_EQ(written(0.75, {'f', 1}), "0.8");
}

TEST(WriteReal, EqualsTheCLibraryOnHardNumbers)
{
    hard_doubles numbers(1);
    for (unsigned k = 0; k < 100000; ++k)
    {
        const double value = numbers.next();
        for (const real_format& format : formats) ASSERT_EQ(written(value, format), written_by_c(value, format)) << value;
    }
}

TEST(WriteReal, EqualsTheCLibraryAtTheEdgesOfEveryBinade)
{
    for (int exponent = -1074; exponent < 1024; ++exponent)
        for (const double factor : {1.0, 1.0 - DBL_EPSILON / 2, 1.0 + DBL_EPSILON, 1.5})
            for (const real_format& format : formats)
            {
                const double value = std::ldexp(factor, exponent);
                ASSERT_EQ(written(value, format), written_by_c(value, format)) << value;
            }
}

TEST(WriteReal, EqualsTheCLibraryBeyondThePrecisionOfFiles)
{
    hard_doubles numbers(6);
    for (unsigned k = 0; k < 2000; ++k)
    {
        const double value = numbers.next();
        for (const char conversion : {'e', 'f', 'g'})
            for (const int precision : {0, 16, 17, 40})
                ASSERT_EQ(written(value, {conversion, precision}), written_by_c(value, {conversion, precision})) << value;
    }
}

TEST(WriteInteger, LooksAsFormattedOutput)
{
    std::mt19937_64 engine(2);
    const auto check = [](int value, int width) {
        char ours[64];
        char reference[64];
        const std::string text(ours, write_integer(ours, value, width));
        std::snprintf(reference, sizeof reference, "%*d", width, value);
        ASSERT_EQ(text, reference);
    };
    for (const int value : {0, 1, -1, 9, 10, 99, 100, 99999999, 100000000, INT_MAX, INT_MIN})
        for (const int width : {0, 8, 16}) check(value, width);
    for (unsigned k = 0; k < 100000; ++k) check(static_cast<int>(static_cast<std::uint32_t>(engine()) >> (engine() % 32)), 8);
}

TEST(ScanReal, GivesTheBitsOfTheCLibrary)
{
    hard_doubles numbers(3);
    constexpr real_format as_written[] = {{'e'}, {'f'}, {'g'}, {'g', 17}, {'e', 25}, {'f', 20}, {'e', 18}, {'f', 16}};
    char text[longest_number + text_margin] = "";
    for (unsigned k = 0; k < 200000; ++k)
    {
        const double number = numbers.next();
        for (const real_format& format : as_written)
        {
            *write_real_by_c_library(text, number, format) = '\0';
            char* reference_end = nullptr;
            const double reference = std::strtod(text, &reference_end);
            double value = 7;
            const char* const stop = scan_real(text, value);
            if (!stop)
            {
                // Left to the C library: denormal and zero results of long texts only.
                ASSERT_LT(std::fabs(reference), DBL_MIN * 2) << text;
                ASSERT_EQ(value, 7);
                continue;
            }
            ASSERT_EQ(stop, reference_end) << text;
            ASSERT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(reference)) << text;
        }
    }
}

TEST(ScanReal, NeverDiffersFromTheCLibraryOnOddTexts)
{
    const char alphabet[] = "0123456789..eE+--+xpinfa_, 5";
    std::mt19937_64 engine(4);
    unsigned certain = 0;
    for (unsigned k = 0; k < 500000; ++k)
    {
        std::string text;
        for (std::size_t length = engine() % 24; length > 0; --length) text += alphabet[engine() % (sizeof alphabet - 1)];
        text.reserve(text.size() + text_margin);
        double value = 0;
        const char* const stop = scan_real(text.c_str(), value);
        char* reference_end = nullptr;
        const double reference = std::strtod(text.c_str(), &reference_end);
        if (stop)
        {
            ++certain;
            ASSERT_EQ(stop, reference_end) << text;
            ASSERT_EQ(std::bit_cast<std::uint64_t>(value), std::bit_cast<std::uint64_t>(reference)) << text;
            double scanned = 0;
            ASSERT_EQ(std::sscanf(text.c_str(), "%lg", &scanned), 1) << text;
            ASSERT_EQ(std::bit_cast<std::uint64_t>(scanned), std::bit_cast<std::uint64_t>(value)) << text;
        }
        const double parsed = parse_real(text.c_str());
        ASSERT_TRUE(parsed == reference || (std::isnan(parsed) && std::isnan(reference))) << text;
    }
    EXPECT_GT(certain, 20000u);
}

TEST(ScanReal, LeavesDoubtfulTextsAlone)
{
    for (const char* const doubtful :
         {"", "-", ".", "-.", "e5", "0x1A", "1e", "1e+", "1.5.2", "1-2", "inf", "nan", "1e400", "1e-400", "5e-324", " 1", "1_"})
    {
        char text[32 + text_margin] = "";
        std::strcpy(text, doubtful);
        double value = 7;
        EXPECT_EQ(scan_real(text, value), nullptr) << text;
        EXPECT_EQ(value, 7);
    }
}

TEST(ParseInteger, ReadsAsAtoiAndClampsBeyondInt)
{
    const auto parsed = [](const std::string& text) { return parse_integer(text.data(), text.data() + text.size()); };
    EXPECT_EQ(parsed(""), 0);
    EXPECT_EQ(parsed("abc"), 0);
    EXPECT_EQ(parsed(" \t\r\n\v\f42x"), 42);
    EXPECT_EQ(parsed("-17"), -17);
    EXPECT_EQ(parsed("+17"), 17);
    EXPECT_EQ(parsed("+-17"), 0);
    EXPECT_EQ(parsed("2147483647"), INT_MAX);
    EXPECT_EQ(parsed("2147483648"), INT_MAX);
    EXPECT_EQ(parsed("-2147483648"), INT_MIN);
    EXPECT_EQ(parsed("-2147483649"), INT_MIN);
    EXPECT_EQ(parsed(std::string(1000, '9')), INT_MAX);
    EXPECT_EQ(parsed("-" + std::string(1000, '9')), INT_MIN);
    EXPECT_EQ(parsed("1.9"), 1);
}

} // namespace
