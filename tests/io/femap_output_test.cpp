#include <string>

#include <gtest/gtest.h>

#include <tq4/gridweave/io.h>

#include "io/files.h"
#include "io/writers.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::column_of;
using test::elements_of;
using test::ids_of;
using test::open_handles;
using test::points_of;
using test::temporary_file;
using test::vector_of;

constexpr unsigned none = none_index;

const std::string node_banner = "*********************************\n"
                                "*********** NODES ***************\n"
                                "*********************************\n"
                                "   -1\n403\n";
const std::string element_banner = "   -1\n"
                                   "*********************************\n"
                                   "********* ELEMENTS **************\n"
                                   "*********************************\n"
                                   "   -1\n404\n";
const std::string end = "   -1\n";

const dense2D<double> one_node = points_of({{1.5, -2.0, 1e10}});
const std::string before_elements = node_banner + "1,0,0,1,0,0,0,0,0,0,0,1.5,-2,1e+10,0,\n" + element_banner;

/// The record of an element; `codes` are its type and topology, `nodes` the two lines of nodes.
std::string element(const char* number_and_color, const char* codes, const char* nodes)
{
    return std::string(number_and_color) + ",1," + codes + ",1,0,0,0,0,0,0,0,\n" + nodes +
           "0.,0.,0.,0,0,0,0,0,0,\n0.,0.,0.,\n0.,0.,0.,\n0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";
}

TEST(FemapOutput, WritesEveryKindInItsPlaces)
{
    struct expectation
    {
        element_type kind;
        const char* codes; // null for a kind that is left out
        const char* nodes;
    };
    const expectation table[] = {
        {ELEM_NODE, "10,9", "1,0,0,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_BAR2, "5,0", "1,2,0,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_BAR3, "8,1", "1,2,3,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_TRIA3, "17,2", "1,2,3,0,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_QUAD4, "17,4", "1,2,3,4,0,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        // The corners are not shifted here.
        {ELEM_TRIA6, "18,3", "0,1,2,6,4,5,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_QUAD8, "18,5", "1,2,3,4,5,6,7,8,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_TETRA4, "25,6", "2,1,3,0,4,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_TETRA10, "25,10", "1,3,2,0,4,0,0,0,6,5,\n7,0,8,10,9,0,0,0,0,0,\n"},
        {ELEM_PENTA6, "25,7", "1,2,3,0,4,5,6,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_HEXA8, "25,8", "1,2,3,4,5,6,7,8,0,0,\n0,0,0,0,0,0,0,0,0,0,\n"},
        {ELEM_HEXA20, "26,12", "1,2,3,4,5,6,7,8,9,10,\n11,12,13,14,15,16,17,18,19,20,\n"},
        {ELEM_BAR_ANY, nullptr, nullptr},
        {ELEM_QUAD9, nullptr, nullptr},
        {ELEM_PYRA5, nullptr, nullptr},
        {ELEM_PYRA13, nullptr, nullptr},
        {ELEM_PYRA14, nullptr, nullptr},
        {ELEM_PENTA15, nullptr, nullptr},
        {ELEM_PENTA18, nullptr, nullptr},
        {ELEM_HEXA27, nullptr, nullptr},
    };
    for (const expectation& expected : table)
    {
        const temporary_file file(".neu");
        EXPECT_EQ(FEMAP_output(file.name(), one_node, column_of(nbr_nodes(expected.kind)), expected.kind), 0) << expected.kind;
        const std::string record = expected.codes ? element("1,1", expected.codes, expected.nodes) : "";
        EXPECT_EQ(file.content(), before_elements + record + end) << expected.kind;
    }
}

TEST(FemapOutput, PlacesTheNodesOfATetrahedron)
{
    const temporary_file file(".neu");
    ASSERT_EQ(FEMAP_output(file.name(), one_node, elements_of({{10, 20, 30, 40}}), ELEM_TETRA4), 0);
    EXPECT_EQ(file.content(), before_elements + element("1,1", "25,6", "21,11,31,0,41,0,0,0,0,0,\n0,0,0,0,0,0,0,0,0,0,\n") + end);
}

TEST(FemapOutput, WritesSixSignificantDigitsAndZInThePlane)
{
    const temporary_file file(".neu");
    ASSERT_EQ(FEMAP_output(file.name(), points_of({{1234567.0, 0.1}, {1e-5, -0.0}}), elements_of({{0}}), ELEM_NODE), 0);
    EXPECT_EQ(file.content().substr(0, file.content().find("   -1\n***")),
              node_banner + "1,0,0,1,0,0,0,0,0,0,0,1.23457e+06,0.1,0,0,\n2,0,0,1,0,0,0,0,0,0,0,1e-05,-0,0,0,\n");
}

TEST(FemapOutput, TellsTheKindsOfMixedColumnsByTheirPadding)
{
    const auto connect = elements_of({{0, 1, 2, none, none, none, none, none},
                                      {0, 1, 2, 3, none, none, none, none},
                                      {0, 1, 2, 3, none, none, none, none},
                                      {0, 1, 2, 3, 4, none, none, none},
                                      {0, 1, 2, 3, 4, 5, none, none},
                                      {0, 1, 2, 3, 4, 5, 6, 7}});
    const temporary_file file(".neu");
    ASSERT_EQ(FEMAP_output(file.name(), one_node, test::non_dense(connect, 77u), ids_of({0, 2, 6}),
                           vector_of<int>({ELEM_SURF_ANY, ELEM_SOLID_ANY}), ids_of({5, 6, 7, 8, 9, none})),
              0);
    const char* rest = "0,0,0,0,0,0,0,0,0,0,\n";
    const auto record = [&](const char* number_and_color, const char* codes, const char* first) {
        return element(number_and_color, codes, (std::string(first) + rest).c_str());
    };
    EXPECT_EQ(file.content(), before_elements + record("1,5", "17,2", "1,2,3,0,0,0,0,0,0,0,\n") +
                                  record("2,6", "17,4", "1,2,3,4,0,0,0,0,0,0,\n") + record("3,7", "25,6", "2,1,3,0,4,0,0,0,0,0,\n") +
                                  record("5,9", "25,7", "1,2,3,0,4,5,6,0,0,0,\n") +
                                  record("6,4294967295", "25,8", "1,2,3,4,5,6,7,8,0,0,\n") + end);
}

TEST(FemapOutput, EndsTheSecondOfTwoMatricesAtItsOwnCount)
{
    const auto triangles = elements_of({{0, 1, 2}, {3, 4, 5}});
    const auto quads = elements_of({{0, 1, 2, 3}, {4, 5, 6, 7}, {8, 9, 10, 11}});
    const char* rest = "0,0,0,0,0,0,0,0,0,0,\n";
    const auto record = [&](const char* number_and_color, const char* codes, const char* first) {
        return element(number_and_color, codes, (std::string(first) + rest).c_str());
    };
    const temporary_file file(".neu");
    ASSERT_EQ(FEMAP_output(file.name(), one_node, triangles, quads, ELEM_TRIA3, ELEM_QUAD4), 0);
    EXPECT_EQ(file.content(), before_elements + record("1,1", "17,2", "1,2,3,0,0,0,0,0,0,0,\n") +
                                  record("2,1", "17,2", "4,5,6,0,0,0,0,0,0,0,\n") + record("3,2", "17,4", "1,2,3,4,0,0,0,0,0,0,\n") + end);
    // The second run is empty where the second matrix is not the larger one.
    ASSERT_EQ(FEMAP_output(file.name(), one_node, quads, triangles, ELEM_QUAD4, ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), before_elements + record("1,1", "17,4", "1,2,3,4,0,0,0,0,0,0,\n") +
                                  record("2,1", "17,4", "5,6,7,8,0,0,0,0,0,0,\n") + record("3,1", "17,4", "9,10,11,12,0,0,0,0,0,0,\n") +
                                  end);
    EXPECT_EQ(FEMAP_output(file.name(), one_node, quads, triangles, ELEM_TRIA3, ELEM_TRIA3), -3);
}

TEST(FemapOutput, LeavesAnEmptyFileForAnEmptyMesh)
{
    const temporary_file file("something before", ".neu");
    EXPECT_EQ(FEMAP_output(file.name(), dense2D<double>(7, 7), dense2D<unsigned>(3, 0), ids_of({}), vector_of<int>({1, 2}), ids_of({})), 0);
    EXPECT_TRUE(file.exists());
    EXPECT_EQ(file.content(), "");
    EXPECT_EQ(FEMAP_output(file.name(), one_node, dense2D<unsigned>(0, 5), ELEM_TRIA3), 0);
    EXPECT_EQ(FEMAP_output("/nowhere/at/all.neu", one_node, dense2D<unsigned>(), ELEM_TRIA3), 0);
}

TEST(FemapOutput, TestsItsArgumentsInOrderAndLeavesAnEmptyFile)
{
    const dense2D<double> four_rows(4, 1, 0.0);
    const auto connect = elements_of({{0, 1, 2}});
    const auto starts = ids_of({0, 1});
    const auto kind = vector_of<int>({ELEM_QUAD4});
    const auto two_colors = ids_of({1, 1});

    EXPECT_EQ(FEMAP_output("/nowhere/at/all.neu", four_rows, connect, ids_of({}), kind, two_colors), -1);
    EXPECT_EQ(FEMAP_output(nullptr, one_node, connect, ELEM_TRIA3), -1);
    const auto refused = [&](const auto&... arguments) {
        const temporary_file file(".neu");
        const unsigned handles = open_handles();
        const int result = FEMAP_output(file.name(), arguments...);
        EXPECT_TRUE(file.exists());
        EXPECT_EQ(file.content(), "");
        EXPECT_EQ(open_handles(), handles);
        return result;
    };
    EXPECT_EQ(refused(four_rows, connect, ids_of({}), kind, two_colors), -2);
    EXPECT_EQ(refused(one_node, connect, ids_of({}), kind, two_colors), -5);
    EXPECT_EQ(refused(one_node, connect, starts, kind, two_colors), -6);
    EXPECT_EQ(refused(one_node, connect, starts, kind, ids_of({1})), -3);
    EXPECT_EQ(refused(one_node, dense2D<unsigned>(9, 1, 0u), ELEM_SOLID_ANY), -3);
}

TEST(FemapOutput, LeavesUnknownKindsAndRunsOutsideTheMatrixOut)
{
    const temporary_file file(".neu");
    const auto connect = elements_of({{0, 1, 2}, {3, 4, 5}});
    EXPECT_EQ(
        FEMAP_output(file.name(), one_node, connect, ids_of({0, 9, 1, 4000000000u}), vector_of<int>({99, ELEM_TRIA3, -7}), ids_of({1, 2})),
        0);
    EXPECT_EQ(file.content(), before_elements + end);
    // Descending starts make an empty run.
    EXPECT_EQ(FEMAP_output(file.name(), one_node, connect, ids_of({2, 1}), vector_of<int>({ELEM_TRIA3}), ids_of({1, 2})), 0);
    EXPECT_EQ(file.content(), before_elements + end);
}

TEST(FemapOutput, ReportsAFullDeviceAndLackOfMemory)
{
    EXPECT_EQ(FEMAP_output("/dev/full", one_node, elements_of({{0, 1, 2}}), ELEM_TRIA3), -1);
    const auto triangle = elements_of({{0, 1, 2}});
    test::expect_clean_failures([&](const char* name) { return FEMAP_output(name, one_node, triangle, ELEM_TRIA3); });
    test::expect_clean_failures([&](const char* name) { return FEMAP_output(name, one_node, triangle, triangle, ELEM_TRIA3, ELEM_TRIA3); });
}

} // namespace
