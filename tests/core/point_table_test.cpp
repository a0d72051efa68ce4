#include "gridweave/core/point_table.h"

#include <array>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// The first column equal to each column.
template <unsigned D>
std::vector<unsigned> first_equals(const dense2D<double>& pos)
{
    point_table<D> table;
    EXPECT_TRUE(table.reset());
    std::vector<unsigned> firsts;
    for (unsigned c = 0; c < pos.cols; ++c)
        firsts.push_back(
            table.find_or_enter(pos.column(c), point_table<D>::hash(pos.column(c)), c, [&](unsigned id) { return pos.column(id); }));
    return firsts;
}

TEST(PointTable, FindsTheFirstOfEqualPoints)
{
    EXPECT_EQ(first_equals<3>(test::points_of({{0, 1, 2}, {2, 1, 0}, {0, 1, 2}, {0, 1, 3}, {2, 1, 0}})),
              (std::vector<unsigned>{0, 1, 0, 3, 1}));
    EXPECT_EQ(first_equals<2>(test::points_of({{0, 1}, {1, 0}, {0, 1}})), (std::vector<unsigned>{0, 1, 0}));
}

TEST(PointTable, TakesBothZerosAsOne)
{
    EXPECT_EQ(first_equals<3>(test::points_of({{0.0, -0.0, 1}, {-0.0, 0.0, 1}})), (std::vector<unsigned>{0, 0}));
}

TEST(PointTable, AgreesWithAnOrderedMapOnALattice)
{
    // Small whole numbers and their powers of two differ in few bits.
    auto pos = test::lattice_points(3, 20000, 20, 1);
    for (unsigned c = 0; c < pos.cols; c += 2)
        for (unsigned r = 0; r < 3; ++r) pos(r, c) *= 0x1p600;
    const auto firsts = first_equals<3>(pos);
    std::map<std::array<double, 3>, unsigned> seen;
    for (unsigned c = 0; c < pos.cols; ++c) ASSERT_EQ(firsts[c], seen.try_emplace({pos(0, c), pos(1, c), pos(2, c)}, c).first->second);
}

TEST(PointTable, GivesUpWherePointsWereMadeToCollide)
{
    // Points whose slot in a table of 2^14 is one and the same, found by trying.
    std::vector<std::array<double, 2>> points;
    for (double x = 1; points.size() < 400; x += 1)
    {
        const std::array<double, 2> candidate{x, 0.0};
        if (point_table<2>::hash(candidate.data()) >> 50 == 7) points.push_back(candidate);
    }

    point_table<2> table;
    ASSERT_TRUE(table.reset());
    const auto enter = [&](unsigned id) {
        return table.find_or_enter(points[id].data(), point_table<2>::hash(points[id].data()), id,
                                   [&](unsigned k) { return points[k].data(); });
    };
    unsigned entered = 0;
    while (entered < points.size() && enter(entered) == entered) ++entered;
    EXPECT_GT(entered, 200u);
    EXPECT_LT(entered, 250u);
}

TEST(PointTable, TellsOfLackOfMemory)
{
    point_table<3> table;
    {
        const test::failing_allocation failing(1);
        EXPECT_FALSE(table.reset());
    }
    ASSERT_TRUE(table.reset());
    const auto pos = test::random_points(3, 10000, 2);
    const test::failing_allocation failing(1);
    unsigned entered = 0;
    const auto enter = [&](unsigned c) {
        return table.find_or_enter(pos.column(c), point_table<3>::hash(pos.column(c)), c, [&](unsigned id) { return pos.column(id); });
    };
    while (entered < pos.cols && enter(entered) == entered) ++entered;
    EXPECT_EQ(entered, 8192u); // half of the slots that a table begins with
}

} // namespace
