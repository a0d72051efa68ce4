#include "gridweave/io/text_scanner.h"

#include <string>

#include <gtest/gtest.h>

namespace
{

using namespace tq4::gridweave;

/// A text with its margin, which holds what a careless step would take for more text.
class text_in_margin
{
public:
    explicit text_in_margin(std::string_view text) : text_(text)
    {
        text_ += '\0';
        text_.append(text_margin, '7');
    }
    text_scanner scanner() const { return text_scanner(text_.data()); }
    std::string_view rest(const text_scanner& in) const { return in.at(); }

private:
    std::string text_;
};

TEST(TextScanner, TakesCharactersAndWords)
{
    const text_in_margin text("Outer LOOP/x");
    text_scanner in = text.scanner();
    EXPECT_TRUE(in.take_words("outer loop"));
    EXPECT_FALSE(in.take('x'));
    EXPECT_TRUE(in.take('/'));
    EXPECT_EQ(text.rest(in), "x");
    EXPECT_FALSE(in.take_words("xy"));
    EXPECT_FALSE(text_in_margin("").scanner().take_words("outer"));
}

TEST(TextScanner, TakesWholeNumbersOfUpToNineDigits)
{
    const auto taken = [](std::string_view characters, std::string_view rest) {
        const text_in_margin text(characters);
        text_scanner in = text.scanner();
        int value = -1;
        const bool there = in.take_natural(value);
        if (!there) return -1;
        EXPECT_EQ(text.rest(in), rest);
        return value;
    };
    EXPECT_EQ(taken("0", ""), 0);
    EXPECT_EQ(taken("17/", "/"), 17);
    EXPECT_EQ(taken("999999999 ", " "), 999999999);
    EXPECT_EQ(taken("1000000000", ""), -1);
    EXPECT_EQ(taken("", ""), -1);
    EXPECT_EQ(taken("-1", ""), -1);
    EXPECT_EQ(taken("+1", ""), -1);
    EXPECT_EQ(taken(" 1", ""), -1);
}

TEST(TextScanner, TakesRealNumbers)
{
    const text_in_margin text("-1.5e1,x");
    text_scanner in = text.scanner();
    double value = 0;
    EXPECT_TRUE(in.take_real(value));
    EXPECT_EQ(value, -15);
    EXPECT_EQ(text.rest(in), ",x");
    EXPECT_FALSE(in.take_real(value));
    EXPECT_EQ(value, -15);
}

TEST(TextScanner, EndsLinesBehindBlanks)
{
    const text_in_margin text(" \t\r\n\n x\n");
    text_scanner in = text.scanner();
    EXPECT_TRUE(in.take_line_end());
    EXPECT_TRUE(in.at_line_end());
    EXPECT_TRUE(in.take_line_end());
    EXPECT_FALSE(in.take_line_end());
    EXPECT_EQ(text.rest(in), " x\n"); // where it was
    EXPECT_TRUE(in.take_blanks());
    EXPECT_FALSE(in.take_blanks());
    EXPECT_TRUE(in.skip_line());
    EXPECT_FALSE(in.skip_line());
    EXPECT_FALSE(in.take_line_end());
}

TEST(TextScanner, PassesLinesWithoutWhatIsUnwanted)
{
    EXPECT_TRUE(text_in_margin("abc\n").scanner().skip_line_without("N,"));
    EXPECT_FALSE(text_in_margin("abN\n").scanner().skip_line_without("N,"));
    EXPECT_FALSE(text_in_margin(",ab\n").scanner().skip_line_without("N,"));
    EXPECT_FALSE(text_in_margin("abc").scanner().skip_line_without(""));
    const std::string with_zero("a\0c\n", 4);
    EXPECT_FALSE(text_in_margin(with_zero).scanner().skip_line());
}

/// The columns of a text as they are taken, eight by eight.
std::string columns_of(std::string_view characters, unsigned count, std::string_view rest)
{
    const text_in_margin text(characters);
    text_scanner in = text.scanner();
    std::string columns;
    while (count-- > 0)
    {
        char eight[8];
        store_eight(eight, in.take_columns());
        columns.append(eight, 8);
    }
    EXPECT_EQ(text.rest(in), rest) << characters;
    return columns;
}

TEST(TextScanner, TakesColumnsUpToTheEndOfTheLine)
{
    EXPECT_EQ(columns_of("GRID    12345678\n", 1, "12345678\n"), "GRID    ");
    EXPECT_EQ(columns_of("GRID    12345678\n", 2, "\n"), "GRID    12345678");
    EXPECT_EQ(columns_of("GRID    12345678\n", 3, "\n"), "GRID    12345678        ");
    EXPECT_EQ(columns_of("GRID    123\nx", 3, "\nx"), "GRID    123             ");
    EXPECT_EQ(columns_of("GRID    123\r\nx", 3, "\nx"), "GRID    123             ");
    EXPECT_EQ(columns_of("GR\tD    \x9F\xFF\x80\n", 2, "\n"), "GR\tD    \x9F\xFF\x80     ");
    EXPECT_EQ(columns_of("\n", 1, "\n"), "        ");
}

TEST(TextScanner, GivesNoColumnsWhereTheTextEnds)
{
    EXPECT_EQ(columns_of("GRID", 2, ""), std::string(16, '\0'));
    EXPECT_EQ(columns_of("GRID    1", 2, ""), "GRID    " + std::string(8, '\0'));
    EXPECT_EQ(columns_of("", 3, ""), std::string(24, '\0'));
}

} // namespace
