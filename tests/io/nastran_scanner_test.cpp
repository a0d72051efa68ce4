#include "gridweave/io/nastran_scanner.h"

#include <sstream>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace
{

using namespace tq4::gridweave;

/// What `take(scanner)` takes of a text: null where it takes nothing, else what is left.
template <class Take>
std::string left_by(std::string text, Take&& take)
{
    text += '\0';
    text.append(text_margin, '7');
    text_scanner in(text.data());
    return take(in) ? std::string(in.at()) : "not taken";
}

bool is_node(std::string_view text, int number, double x, double y, double z)
{
    node_card card{};
    if (left_by(std::string(text).append("next"), [&](text_scanner& in) { return take_node_card(in, card); }) != "next") return false;
    return card.number == number && card.x[0] == x && card.x[1] == y && card.x[2] == z;
}

bool leaves_node(const std::string& text)
{
    node_card card{};
    return left_by(text, [&](text_scanner& in) { return take_node_card(in, card); }) == "not taken";
}

TEST(NastranScanner, TakesNodesInEveryLayout)
{
    EXPECT_TRUE(is_node("GRID    7               1.5     -2.5E1  .25\n", 7, 1.5, -25, 0.25));
    EXPECT_TRUE(is_node("GRID           7       0     1.5-2.50000.2500000       0\r\n", 7, 1.5, -2.5, 0.25));
    EXPECT_TRUE(is_node("GRID    7                       -2.5\n", 7, 0, -2.5, 0));
    EXPECT_TRUE(is_node("GRID*   7                               1.5             -2.5            *C\n*C      .25\n", 7, 1.5, -2.5, 0.25));
    EXPECT_TRUE(is_node("GRID,7,,1.5,-2.5,.25\n", 7, 1.5, -2.5, 0.25));
    EXPECT_TRUE(is_node("GRID , 7 , 0 , 1.5 , -2.5 , .25 , 6\n", 7, 1.5, -2.5, 0.25));
}

TEST(NastranScanner, LeavesNodesThatMayBeReadOtherwise)
{
    EXPECT_TRUE(leaves_node("GRID    7               1.5     -2.5    .25")); // no line end
    EXPECT_TRUE(leaves_node("GRID    7               1.5+1   -2.5    .25\n"));
    EXPECT_TRUE(leaves_node("GRID    7               1.5     -2.5    .25     ENDDATA\n"));
    EXPECT_TRUE(leaves_node("GRID    7               1.5     -2.5    .25     ,\n"));
    EXPECT_TRUE(leaves_node("GRID    7,,1.5,-2.5,.25\n"));
    EXPECT_TRUE(leaves_node("GRID    -7              1.5     -2.5    .25\n"));
    EXPECT_TRUE(leaves_node("GRID*   7                               1.5             -2.5            *C\n"));
    EXPECT_TRUE(leaves_node("GRID,7,,1.5,-2.5\n"));
    EXPECT_TRUE(leaves_node("GRID,7,,1.5,-2.5,.25,ENDDATA\n"));
    EXPECT_TRUE(leaves_node("GRID,1234567890,,1.5,-2.5,.25\n"));
    EXPECT_TRUE(leaves_node("GRIDX   7               1.5     -2.5    .25\n"));
}

/// The numbers of a card, or what is left where not all of it is taken.
std::string numbers_of(const std::string& text)
{
    element_card card;
    const std::string left = left_by(text, [&](text_scanner& in) { return take_element_card(in, card); });
    if (!left.empty()) return left;
    std::ostringstream numbers;
    numbers << card.kind() << ':' << card.property;
    for (std::uint64_t k = 2; k < card.numbers; ++k) numbers << ' ' << card.node[k - 2];
    return numbers.str();
}

TEST(NastranScanner, TakesElementsInEveryLayout)
{
    const std::string tetra = std::to_string(ELEM_TETRA4) + ":3 4 5 6 7";
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7       \n"), tetra);
    EXPECT_EQ(numbers_of("TETRA          1       3       4       5       6       7\r\n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7               \n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA* 1               3               4               5               *C\n*C      6               7\n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA,1,3,4,5,6,7\n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA, 1, 3,4 ,5,6,7,\n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA,1,3,4,5,+C\n+C,6,7\n"), tetra);
    EXPECT_EQ(numbers_of("CTETRA,1,3,4,+C\n+C,5,6,7\n"), tetra);
}

TEST(NastranScanner, FollowsMarkedLines)
{
    const std::string hexa = std::to_string(ELEM_HEXA8) + ":3 1 2 3 4 5 6 7 8";
    EXPECT_EQ(numbers_of("CHEXA   1       3       1       2       3       4       5       6       +C      \n"
                         "+C      7       8\n"),
              hexa);
    EXPECT_EQ(numbers_of("CHEXA,1,3,1,2,3,4,5,6,+C\n+C,7,8\n"), hexa);
    EXPECT_EQ(numbers_of("CHEXA,1,3,1,2,3,4,5,6,+C\n"), "not taken"); // the text ends
    const std::string first_columns =
        "CHEXA   1       3       1       2       3       4       5       6       +C      \n+C      7       8       ";
    EXPECT_EQ(numbers_of(std::string(first_columns).append(255 - 24, ' ').append("\n")), hexa);
    EXPECT_EQ(numbers_of(std::string(first_columns).append(256 - 24, ' ').append("\n")), "not taken");
}

TEST(NastranScanner, LeavesElementsThatMayBeReadOtherwise)
{
    EXPECT_EQ(numbers_of("PSHELL  1       3       4       5       6       7\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       -7\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7 8\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7                       ENDDATA\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1       3       4       5       6       7                       *\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA  1\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA,1,3,,4,5,6,7\n"), "not taken");
    EXPECT_EQ(numbers_of("CTETRA,1,3,4,5,6,123456789\n"), "not taken");
    EXPECT_EQ(numbers_of("ENDDATA\n"), "not taken");
    EXPECT_EQ(numbers_of("$ CTETRA,1,3,4,5,6,7\n"), "not taken");
}

} // namespace
