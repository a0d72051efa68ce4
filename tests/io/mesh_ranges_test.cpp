#include "gridweave/io/mesh_ranges.h"

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::ids_of;

constexpr unsigned none = none_index;

TEST(SplitByKind, MakesPiecesOfOnePlainKind)
{
    const dense2D<unsigned> range[] = {
        elements_of({{0, 1, 2, none}, {0, 1, 2, 3}, {4, 5, 6, none}}),
        dense2D<unsigned>(),
        elements_of({{0, 1}, {1, 2}}),
        elements_of({{0, 1, 2, 3, none, none, none, none},
                     {0, 1, 2, 3, 4, 5, 6, 7},
                     {0, 1, 2, 3, 4, 5, none, none},
                     {0, 1, 2, 3, 4, none, none, none},
                     {7, 6, 5, 4, none, none, none, none}}),
        elements_of({{0, 1, 2}}),
        elements_of({{5}}),
    };
    plain_pieces pieces;
    pieces.kinds.push_back(99); // former content goes
    ASSERT_TRUE(split_by_kind(range, range + 6,
                              test::vector_of<int>({ELEM_SURF_ANY, ELEM_QUAD4, ELEM_BAR_ANY, ELEM_SOLID_ANY, ELEM_SURF_ANY, ELEM_NODE}),
                              pieces));
    EXPECT_EQ(test::list(pieces.kinds), (std::vector<int>{ELEM_QUAD4, ELEM_TRIA3, ELEM_BAR_ANY, ELEM_HEXA8, ELEM_PENTA6, ELEM_PYRA5,
                                                          ELEM_TETRA4, ELEM_TRIA3, ELEM_NODE}));
    EXPECT_EQ(test::list(pieces.references), (std::vector<unsigned>{0, 0, 2, 3, 3, 3, 3, 4, 5}));
    ASSERT_EQ(pieces.size(), 9u);
    using columns = std::vector<std::vector<unsigned>>;
    EXPECT_EQ(test::columns(pieces.matrices[0]), (columns{{0, 1, 2, 3}}));
    EXPECT_EQ(test::columns(pieces.matrices[1]), (columns{{0, 1, 2}, {4, 5, 6}}));
    EXPECT_EQ(test::columns(pieces.matrices[3]), (columns{{0, 1, 2, 3, 4, 5, 6, 7}}));
    EXPECT_EQ(test::columns(pieces.matrices[4]), (columns{{0, 1, 2, 3, 4, 5}}));
    EXPECT_EQ(test::columns(pieces.matrices[5]), (columns{{0, 1, 2, 3, 4}}));
    EXPECT_EQ(test::columns(pieces.matrices[6]), (columns{{0, 1, 2, 3}, {7, 6, 5, 4}}));
    // Plain matrices share their storage, mixed ones are left as they were.
    EXPECT_EQ(pieces.matrices[2].data(), range[2].data());
    EXPECT_EQ(range[3](0, 1), 0u);
    EXPECT_EQ(range[3](4, 0), none);
}

TEST(SplitByKind, LosesColumnsOfNoElementWithoutReport)
{
    const auto solid =
        elements_of({{0, 1, 2, 3, 4, 5, 6, none}, {0, 1, 2, none, none, none, none, none}, {3, 2, 1, 0, none, none, none, none}});
    const auto surface = elements_of({{0, 1, none, none}, {none, 1, 2, 3}});
    const dense2D<unsigned> range[] = {solid, surface};
    plain_pieces pieces;
    ASSERT_TRUE(split_by_kind(range, range + 2, test::vector_of<int>({ELEM_SOLID_ANY, ELEM_SURF_ANY}), pieces));
    ASSERT_EQ(pieces.size(), 1u);
    EXPECT_EQ(pieces.kind(0), ELEM_TETRA4);
    EXPECT_EQ(test::columns(pieces.matrices[0]), (std::vector<std::vector<unsigned>>{{3, 2, 1, 0}}));
}

TEST(SplitByKind, TellsOfLackOfMemory)
{
    const dense2D<unsigned> range[] = {elements_of({{0, 1}}), elements_of({{0, 1, 2, none}, {0, 1, 2, 3}})};
    const auto kinds = test::vector_of<int>({ELEM_BAR2, ELEM_SURF_ANY});
    const long before = test::live_allocations();
    bool done = false;
    for (unsigned n = 1; !done; ++n)
    {
        ASSERT_LT(n, 50u);
        plain_pieces pieces;
        const test::failing_allocation failing(n);
        done = split_by_kind(range, range + 2, kinds, pieces);
        ASSERT_EQ(done, !failing.has_failed());
        ASSERT_EQ(pieces.size() == 3, done);
    }
    EXPECT_EQ(test::live_allocations(), before);
}

TEST(KindOfColumn, FollowsThePadding)
{
    const unsigned hexahedron[] = {0, 1, 2, 3, 4, 5, 6, 7};
    const unsigned prism[] = {0, 1, 2, 3, 4, 5, none, none};
    const unsigned pyramid[] = {0, 1, 2, 3, 4, none, none, none};
    const unsigned tetrahedron[] = {0, 1, 2, 3, none, none, none, none};
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, hexahedron, 8), ELEM_HEXA8);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, prism, 8), ELEM_PENTA6);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, pyramid, 8), ELEM_PYRA5);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, tetrahedron, 8), ELEM_TETRA4);
    EXPECT_EQ(kind_of_column(ELEM_SURF_ANY, hexahedron, 4), ELEM_QUAD4);
    const unsigned triangle[] = {0, 1, 2, none};
    EXPECT_EQ(kind_of_column(ELEM_SURF_ANY, triangle, 4), ELEM_TRIA3);
    EXPECT_EQ(kind_of_column(ELEM_TETRA10, hexahedron, 8), ELEM_TETRA10);
}

TEST(KindOfColumn, TakesMissingRowsAsNone)
{
    const unsigned nodes[] = {0, 1, 2, 3, 4, 5};
    EXPECT_EQ(kind_of_column(ELEM_SURF_ANY, nodes, 3), ELEM_TRIA3);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, nodes, 4), ELEM_TETRA4);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, nodes, 5), ELEM_PYRA5);
    EXPECT_EQ(kind_of_column(ELEM_SOLID_ANY, nodes, 6), ELEM_PENTA6);
}

TEST(RunOf, StaysInsideTheMatrix)
{
    const auto starts = ids_of({0, 3, 2, 9, none});
    const auto expect = [&](unsigned run, unsigned begin, unsigned end) {
        EXPECT_EQ(run_of(starts, run, 5).begin, begin);
        EXPECT_EQ(run_of(starts, run, 5).end, end);
    };
    expect(0, 0, 3);
    expect(1, 3, 3);
    expect(2, 2, 5);
    expect(3, 5, 5);
}

TEST(IsValidRun, CutsTheRunToItsKind)
{
    const auto mixed = elements_of({{0, 1, 2, none, none, none, none, none}, {0, 1, 2, 3, none, none, none, none}});
    EXPECT_TRUE(is_valid_run(mixed, {0, 1}, ELEM_TRIA3));
    EXPECT_TRUE(is_valid_run(mixed, {0, 2}, ELEM_SURF_ANY));
    EXPECT_FALSE(is_valid_run(mixed, {0, 2}, ELEM_QUAD4));
    EXPECT_TRUE(is_valid_run(mixed, {1, 2}, ELEM_SOLID_ANY));
    EXPECT_FALSE(is_valid_run(mixed, {0, 2}, ELEM_SOLID_ANY));
    EXPECT_FALSE(is_valid_run(mixed, {0, 1}, ELEM_TETRA10)); // needs rows that are not there
    EXPECT_TRUE(is_valid_run(mixed, {1, 1}, ELEM_TETRA10));  // but nothing is asked of an empty run
    EXPECT_TRUE(is_valid_run(mixed, {0, 2}, ELEM_NONE));
}

TEST(IsValidRun, RefusesAMixedSolidRunInATallMatrix)
{
    dense2D<unsigned> tall(10, 1, none);
    for (unsigned row = 0; row < 4; ++row) tall(row, 0) = row;
    EXPECT_FALSE(is_valid_run(tall, {0, 1}, ELEM_SOLID_ANY));
    EXPECT_TRUE(is_valid_run(tall, {0, 1}, ELEM_SURF_ANY));
}

TEST(ColumnsToReserve, IsTheNextPowerOfTwoAboveTheIndex)
{
    EXPECT_EQ(columns_to_reserve(0), 1u);
    EXPECT_EQ(columns_to_reserve(1), 2u);
    EXPECT_EQ(columns_to_reserve(2), 4u);
    EXPECT_EQ(columns_to_reserve(3), 4u);
    EXPECT_EQ(columns_to_reserve(4), 8u);
    EXPECT_EQ(columns_to_reserve(0x80000000u), none);
    EXPECT_EQ(columns_to_reserve(none), none);
}

} // namespace
