#include <string>

#include <gtest/gtest.h>

#include <tq4/gridweave/io.h>

#include "io/files.h"
#include "io/locales.h"
#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;
using test::ids_of;
using test::list;
using test::open_handles;
using test::points_of;
using test::temporary_file;
using test::vector_of;

constexpr unsigned none = none_index;

const std::string head = "$ TQ4 GridWeave(R) NASTRAN exporter\n"
                         "BEGIN BULK\n"
                         "$----------------------------------------\n"
                         "$ Referenced Material Records -----------\n"
                         "$ Material Record :    ------------------\n"
                         "$ Description of Material :   -----------\n"
                         "MAT1    1       0.                 0.  0.\n"
                         "$----------------------------------------\n"
                         "$                GRID POINTS             \n"
                         "$----------------------------------------\n";
const std::string elements_title = "$----------------------------------------\n"
                                   "$                 ELEMENTS               \n"
                                   "$----------------------------------------\n";

const dense2D<double> one_node = points_of({{1.0, -2.5, 3e-20}});
const std::string one_node_text = "GRID*                  1                    1.000000E+00   -2.500000E+00*C\n"
                                  "*C          3.000000E-20\n";

std::string file_of(const std::string& cards)
{
    return head + one_node_text + elements_title + cards + "ENDDATA\n";
}

/// One column of the nodes 0, 1, 2, …
dense2D<unsigned> column_of(unsigned rows)
{
    dense2D<unsigned> connect(rows, 1);
    for (unsigned row = 0; row < rows; ++row) connect(row, 0) = row;
    return connect;
}

TEST(NastranOutput, WritesEveryKindInItsOrder)
{
    struct expectation
    {
        element_type kind;
        std::string card;
    };
    const std::string hexa20 = "CHEXA,1,1,1,2,3,4,5,6,+C\n+C,7,8,9,10,11,12,17,18,+C\n+C,19,20,13,14,15,16\n";
    const std::string penta15 = "CPENTA,1,1,1,2,3,4,5,6,+C\n+C,12,10,11,7,8,9,15,13,+C\n+C,14\n";
    const std::string pyra13 = "CPYRAM,1,1,1,2,3,4,5,6,+C\n+C,7,8,9,10,11,12,13\n";
    const std::string quad8 = "CQUAD8,1,1,1,2,3,4,5,6,+C\n+C,7,8\n";
    const expectation table[] = {
        {ELEM_BAR2, "CBAR,1,1,1,2\n"},
        {ELEM_BAR3, "CBAR,1,1,1,2\n"},
        {ELEM_TRIA3, "CTRIA3,1,1,1,2,3\n"},
        {ELEM_QUAD4, "CQUAD4,1,1,1,2,3,4\n"},
        {ELEM_TRIA6, "CTRIA6,1,1,1,2,3,6,4,5\n"},
        {ELEM_QUAD8, quad8},
        {ELEM_QUAD9, quad8},
        {ELEM_TETRA4, "CTETRA,1,1,1,3,2,4\n"},
        {ELEM_TETRA10, "CTETRA,1,1,1,3,2,4,6,5,+C\n+C,7,8,10,9\n"},
        {ELEM_PYRA5, "CPYRAM,1,1,1,2,3,4,5\n"},
        {ELEM_PYRA13, pyra13},
        {ELEM_PYRA14, pyra13},
        {ELEM_PENTA6, "CPENTA,1,1,1,2,3,4,5,6\n"},
        {ELEM_PENTA15, penta15},
        {ELEM_PENTA18, penta15},
        {ELEM_HEXA8, "CHEXA,1,1,1,2,3,4,5,6,+C\n+C,7,8\n"},
        {ELEM_HEXA20, hexa20},
        {ELEM_HEXA27, hexa20},
        // Left out.
        {ELEM_NODE, ""},
        {ELEM_BAR_ANY, ""},
    };
    for (const expectation& expected : table)
    {
        const temporary_file file;
        EXPECT_EQ(NASTRAN_output(file.name(), one_node, column_of(nbr_nodes(expected.kind)), expected.kind), 0) << expected.kind;
        EXPECT_EQ(file.content(), file_of(expected.card)) << expected.kind;
    }
    const temporary_file file;
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, column_of(3), ELEM_NONE), 0);
    EXPECT_EQ(file.content(), file_of(""));
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, column_of(3), static_cast<element_type>(23)), 0);
    EXPECT_EQ(file.content(), file_of(""));
}

TEST(NastranOutput, WritesNodesInLargeFields)
{
    const temporary_file file;
    ASSERT_EQ(NASTRAN_output(file.name(), points_of({{1.0, 2.0}, {-1e-300, 123456.789}}), column_of(2), ELEM_BAR2), 0);
    EXPECT_EQ(file.content(), head +
                                  "GRID*                  1                    1.000000E+00    2.000000E+00*C\n"
                                  "*C          0.000000E+00\n"
                                  "GRID*                  2                  -1.000000E-300    1.234568E+05*C\n"
                                  "*C          0.000000E+00\n" +
                                  elements_title + "CBAR,1,1,1,2\nENDDATA\n");

    const temporary_file larger;
    ASSERT_EQ(NASTRAN_output(larger.name(), test::non_dense(one_node, 7.0), test::non_dense(column_of(2), 9u), ELEM_BAR2), 0);
    EXPECT_EQ(larger.content(), file_of("CBAR,1,1,1,2\n"));
}

TEST(NastranOutput, WritesNodeNumbersAsTheyCome)
{
    const temporary_file file;
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, elements_of({{2147483647, 4294967293}}), ELEM_BAR2), 0);
    EXPECT_EQ(file.content(), file_of("CBAR,1,1,-2147483648,-2\n"));
}

TEST(NastranOutput, WritesRunsWithTheirPropertyNumbers)
{
    const auto connect = elements_of({{0, 1, 2, 99}, {3, 4, 5, 99}, {0, 1, 2, 3}, {6, 7, none, none}});
    const temporary_file file;
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, connect, ids_of({0, 2, 3, 4}), vector_of<int>({ELEM_TRIA3, ELEM_TETRA4, ELEM_BAR2}),
                             ids_of({7, 0, 4294967295, 12})),
              0);
    EXPECT_EQ(file.content(), file_of("CTRIA3,1,7,1,2,3\nCTRIA3,2,0,4,5,6\nCTETRA,3,-1,1,3,2,4\nCBAR,4,12,7,8\n"));
}

TEST(NastranOutput, CutsRunsToTheMatrix)
{
    const auto connect = elements_of({{0, 1}, {2, 3}, {4, 5}});
    const auto property_ids = ids_of({1, 1, 1});
    const auto three_bars = vector_of<int>({ELEM_BAR2, ELEM_BAR2, ELEM_BAR2});
    const temporary_file file;
    // A run with descending starts is empty, one beyond the matrix is cut.
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, connect, ids_of({1, 0, 2, 99}), three_bars, property_ids), 0);
    EXPECT_EQ(file.content(), file_of("CBAR,1,1,1,2\nCBAR,2,1,3,4\nCBAR,3,1,5,6\n"));
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, connect, ids_of({0}), dense1D<int>(), property_ids), 0);
    EXPECT_EQ(file.content(), file_of(""));
}

TEST(NastranOutput, TellsTheKindOfAColumnByItsPadding)
{
    const temporary_file solids;
    const auto mixed = elements_of({{0, 1, 2, 3, none, none, none, none},
                                    {0, 1, 2, 3, 4, none, none, none},
                                    {0, 1, 2, 3, 4, 5, none, none},
                                    {0, 1, 2, 3, 4, 5, 6, 7}});
    ASSERT_EQ(NASTRAN_output(solids.name(), one_node, mixed, ELEM_SOLID_ANY), 0);
    EXPECT_EQ(solids.content(),
              file_of("CTETRA,1,1,1,3,2,4\nCPYRAM,2,1,1,2,3,4,5\nCPENTA,3,1,1,2,3,4,5,6\nCHEXA,4,1,1,2,3,4,5,6,+C\n+C,7,8\n"));

    // A surface run in a matrix of 8 rows is cut to 4.
    const temporary_file surfaces;
    const auto runs = elements_of({{0, 1, 2, none, 9, 9, 9, 9}, {0, 1, 2, 3, 9, 9, 9, 9}, {0, 1, 2, 3, 4, none, none, none}});
    ASSERT_EQ(NASTRAN_output(surfaces.name(), one_node, runs, ids_of({0, 2, 3}), vector_of<int>({ELEM_SURF_ANY, ELEM_SOLID_ANY}),
                             ids_of({1, 1, 1})),
              0);
    EXPECT_EQ(surfaces.content(), file_of("CTRIA3,1,1,1,2,3\nCQUAD4,2,1,1,2,3,4\nCPYRAM,3,1,1,2,3,4,5\n"));

    // Fewer rows make a plain kind.
    const temporary_file narrow;
    ASSERT_EQ(NASTRAN_output(narrow.name(), one_node, column_of(3), ELEM_SURF_ANY), 0);
    EXPECT_EQ(narrow.content(), file_of("CTRIA3,1,1,1,2,3\n"));
    ASSERT_EQ(NASTRAN_output(narrow.name(), one_node, column_of(6), ELEM_SOLID_ANY), 0);
    EXPECT_EQ(narrow.content(), file_of("CPENTA,1,1,1,2,3,4,5,6\n"));
}

TEST(NastranOutput, JoinsTwoMatrices)
{
    const temporary_file file;
    const auto triangles = elements_of({{0, 1, 2}, {3, 4, 5}});
    const auto bars = test::non_dense(elements_of({{6, 7}}), 3u);
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, triangles, bars, ELEM_TRIA3, ELEM_BAR2), 0);
    EXPECT_EQ(file.content(), file_of("CTRIA3,1,1,1,2,3\nCTRIA3,2,1,4,5,6\nCBAR,3,2,7,8\n"));
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, bars, triangles, ELEM_BAR2, ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), file_of("CBAR,1,1,7,8\nCTRIA3,2,2,1,2,3\nCTRIA3,3,2,4,5,6\n"));
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, dense2D<unsigned>(), bars, ELEM_TRIA3, ELEM_BAR2), 0);
    EXPECT_EQ(file.content(), file_of("CBAR,1,2,7,8\n"));
    // Rows of a lower matrix that its kind would have count as none.
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, triangles, elements_of({{0, 1, 2, 3}}), ELEM_SURF_ANY, ELEM_QUAD4), 0);
    EXPECT_EQ(file.content(), file_of("CTRIA3,1,1,1,2,3\nCTRIA3,2,1,4,5,6\nCQUAD4,3,2,1,2,3,4\n"));
}

TEST(NastranOutput, WritesNoFileForNoElements)
{
    const temporary_file file;
    const dense2D<double> four_rows(4, 1);
    EXPECT_EQ(NASTRAN_output(file.name(), four_rows, dense2D<unsigned>(), ELEM_TRIA3), 0);
    EXPECT_EQ(NASTRAN_output(file.name(), four_rows, dense2D<unsigned>(3, 0), ELEM_TRIA3), 0);
    EXPECT_EQ(NASTRAN_output(file.name(), four_rows, dense2D<unsigned>(0, 3), ELEM_TRIA3), 0);
    EXPECT_EQ(NASTRAN_output(file.name(), four_rows, dense2D<unsigned>(), dense2D<unsigned>(), ELEM_TRIA3, ELEM_BAR2), 0);
    EXPECT_EQ(NASTRAN_output("/nowhere/at/all.bdf", four_rows, dense2D<unsigned>(), ids_of({1, 2}), dense1D<int>(), ids_of({1})), 0);
    EXPECT_EQ(NASTRAN_output(nullptr, four_rows, dense2D<unsigned>(), ELEM_TRIA3), 0);
    EXPECT_FALSE(file.exists());
}

TEST(NastranOutput, TestsItsArgumentsInOrderAndLeavesAnEmptyFileOpen)
{
    const auto connect = elements_of({{0, 1, none}, {0, 1, 2}});
    const dense2D<double> four_rows(4, 1);
    const auto starts = ids_of({0, 2});
    const auto triangles = vector_of<int>({ELEM_TRIA3});
    const auto two = ids_of({1, 1});

    EXPECT_EQ(NASTRAN_output("/nowhere/at/all.bdf", four_rows, connect, ids_of({0}), triangles, ids_of({1})), -1);
    EXPECT_EQ(NASTRAN_output(nullptr, one_node, connect, ELEM_TRIA3), -1);

    const auto refused = [&](auto output) {
        const temporary_file file;
        const unsigned handles = open_handles();
        const int result = output(file.name());
        EXPECT_TRUE(file.exists());
        EXPECT_EQ(file.content(), "");
        EXPECT_EQ(open_handles(), handles + 1);
        return result;
    };
    const auto general = [&](const dense2D<double>& pos, const dense2D<unsigned>& matrix, const dense1D<unsigned>& run_starts,
                             const dense1D<int>& kinds, const dense1D<unsigned>& property_ids) {
        return refused([&](const char* name) { return NASTRAN_output(name, pos, matrix, run_starts, kinds, property_ids); });
    };
    EXPECT_EQ(general(four_rows, connect, ids_of({0}), triangles, ids_of({1})), -2);
    EXPECT_EQ(general(dense2D<double>(), connect, ids_of({0}), triangles, ids_of({1})), -2);
    EXPECT_EQ(general(one_node, connect, ids_of({0}), triangles, ids_of({1})), -5);
    EXPECT_EQ(general(one_node, connect, ids_of({0, 1, 2}), triangles, ids_of({1})), -5);
    EXPECT_EQ(general(one_node, connect, dense1D<unsigned>(), dense1D<int>(), ids_of({1})), -5);
    EXPECT_EQ(general(one_node, connect, starts, triangles, ids_of({1})), -6);
    EXPECT_EQ(general(one_node, connect, starts, triangles, two), -3);
    // The second run is at fault: nothing of the first is written.
    EXPECT_EQ(general(one_node, elements_of({{0, 1, 2}, {0, none, 2}}), ids_of({0, 1, 2}), vector_of<int>({ELEM_TRIA3, ELEM_BAR2}), two),
              -3);
    // A run that needs more rows than there are, and a mixed one in a matrix that is too high.
    EXPECT_EQ(general(one_node, connect, starts, vector_of<int>({ELEM_TETRA4}), two), -3);
    EXPECT_EQ(general(one_node, column_of(10), ids_of({0, 1}), vector_of<int>({ELEM_SOLID_ANY}), ids_of({1})), -3);
    EXPECT_EQ(general(one_node, column_of(7), ids_of({0, 1}), vector_of<int>({ELEM_SOLID_ANY}), ids_of({1})), -3);
    EXPECT_EQ(refused([&](const char* name) { return NASTRAN_output(name, one_node, column_of(3), ELEM_TETRA4); }), -3);
    // A matrix with more rows than either kind has nodes, after the rows of the coordinates.
    EXPECT_EQ(refused([&](const char* name) { return NASTRAN_output(name, one_node, column_of(3), column_of(2), ELEM_BAR2, ELEM_BAR2); }),
              -3);
    EXPECT_EQ(refused([&](const char* name) { return NASTRAN_output(name, four_rows, column_of(3), column_of(2), ELEM_BAR2, ELEM_BAR2); }),
              -2);
    EXPECT_EQ(refused([&](const char* name) { return NASTRAN_output(name, one_node, column_of(2), column_of(2), ELEM_BAR2, ELEM_TRIA3); }),
              -3);
}

TEST(NastranOutput, ReportsAFullDevice)
{
    const unsigned handles = open_handles();
    EXPECT_EQ(NASTRAN_output("/dev/full", one_node, column_of(2), ELEM_BAR2), -1);
    EXPECT_EQ(open_handles(), handles);
}

TEST(NastranOutput, SurvivesMemoryFailingAnywhere)
{
    const auto connect = elements_of({{0, 1, 2}});
    const auto bars = elements_of({{0, 1}});
    const temporary_file file;
    for (unsigned n = 1;; ++n)
    {
        ASSERT_LT(n, 50u);
        const long live = test::live_allocations();
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            const int one = NASTRAN_output(file.name(), one_node, connect, ELEM_TRIA3);
            EXPECT_TRUE(one == 0 || one == -199) << one;
            const int both = NASTRAN_output(file.name(), one_node, connect, bars, ELEM_TRIA3, ELEM_BAR2);
            EXPECT_TRUE(both == 0 || both == -199) << both;
            failed = failing.has_failed();
            // The writer itself goes on without its large buffer.
            EXPECT_TRUE(both != 0 || file.content() == file_of("CTRIA3,1,1,1,2,3\nCBAR,2,2,1,2\n"));
        }
        EXPECT_EQ(test::live_allocations(), live);
        if (!failed) break;
    }
    const test::failing_allocation failing(1);
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, connect, bars, ELEM_TRIA3, ELEM_BAR2), -199);
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, connect, ELEM_TRIA3), -199);
}

// Both directions.

/// What reading gives for a column that was written.
std::vector<unsigned> after_round_trip(element_type kind, element_type expected)
{
    const temporary_file file;
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, column_of(nbr_nodes(kind)), kind), 0);
    dense2D<double> pos;
    dense2D<unsigned> connect;
    element_type found = ELEM_NONE;
    EXPECT_EQ(NASTRAN_input(file.name(), pos, connect, found), 0);
    EXPECT_EQ(found, expected);
    EXPECT_EQ(columns(pos), columns(one_node));
    return columns(connect).at(0);
}

TEST(NastranOutput, ReadsBackWhatTheCardsHold)
{
    for (const element_type kind : {ELEM_BAR2, ELEM_TRIA3, ELEM_QUAD4, ELEM_TRIA6, ELEM_QUAD8, ELEM_TETRA4, ELEM_TETRA10, ELEM_PYRA5,
                                    ELEM_PYRA13, ELEM_PENTA6, ELEM_HEXA8, ELEM_HEXA20})
        EXPECT_EQ(after_round_trip(kind, kind), columns(column_of(nbr_nodes(kind)))[0]) << kind;
    // The last nodes are lost.
    EXPECT_EQ(after_round_trip(ELEM_BAR3, ELEM_BAR2), columns(column_of(2))[0]);
    EXPECT_EQ(after_round_trip(ELEM_QUAD9, ELEM_QUAD8), columns(column_of(8))[0]);
    EXPECT_EQ(after_round_trip(ELEM_PYRA14, ELEM_PYRA13), columns(column_of(13))[0]);
    EXPECT_EQ(after_round_trip(ELEM_HEXA27, ELEM_HEXA20), columns(column_of(20))[0]);
    // Both directions apply the same order, which is not its own inverse.
    const std::vector<unsigned> twice{0, 1, 2, 3, 4, 5, 8, 6, 7, 11, 9, 10, 13, 14, 12};
    EXPECT_EQ(after_round_trip(ELEM_PENTA15, ELEM_PENTA15), twice);
    EXPECT_EQ(after_round_trip(ELEM_PENTA18, ELEM_PENTA15), twice);
}

TEST(NastranOutput, KeepsPropertyNumbersAndRuns)
{
    const auto connect = elements_of({{0, 1, 2, 3}, {0, 1, 2, none}, {4, 5, 6, none}});
    const auto starts = ids_of({0, 1, 3});
    const auto kinds = vector_of<int>({ELEM_QUAD4, ELEM_TRIA3});
    const auto property_ids = ids_of({5, 9, 4000000000});
    const temporary_file file;
    ASSERT_EQ(NASTRAN_output(file.name(), one_node, connect, starts, kinds, property_ids), 0);
    dense2D<double> pos;
    dense2D<unsigned> read_connect;
    dense1D<unsigned> read_starts, read_ids;
    dense1D<int> read_kinds;
    // A property number that does not fit an int needs more than the 8 characters of a field: its card ends there.
    ASSERT_EQ(NASTRAN_input(file.name(), pos, read_connect, read_starts, read_kinds, read_ids), 0);
    EXPECT_EQ(columns(read_connect), (std::vector<std::vector<unsigned>>{{0, 1, 2, 3}, {0, 1, 2, none}}));
    EXPECT_EQ(list(read_starts), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(list(read_kinds), (std::vector<int>{ELEM_QUAD4, ELEM_TRIA3}));
    EXPECT_EQ(list(read_ids), (std::vector<unsigned>{5, 9}));
}

TEST(NastranOutput, FollowsTheLocaleOfTheCLibrary)
{
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    const temporary_file file;
    const dense1D<unsigned> numbers(1, 12u);
    ASSERT_EQ(
        NASTRAN_output(file.name(), points_of({{1.0, -2.5, 1e-300}}), column_of(8), ids_of({0, 1}), vector_of<int>({ELEM_HEXA8}), numbers),
        0);
    EXPECT_EQ(file.content(), head +
                                  "GRID*                  1                    1,000000E+00   -2,500000E+00*C\n"
                                  "*C         1,000000E-300\n" +
                                  elements_title + "CHEXA,1,12,1,2,3,4,5,6,+C\n+C,7,8\nENDDATA\n");
}

TEST(NastranOutput, RefusesMatricesThatTogetherCannotBeCounted)
{
    // Columns of no rows take no memory, however many.
    const temporary_file file;
    EXPECT_EQ(NASTRAN_output(file.name(), one_node, dense2D<unsigned>(0, none), column_of(2), ELEM_BAR2, ELEM_BAR2), -199);
    EXPECT_FALSE(file.exists());
}

} // namespace
