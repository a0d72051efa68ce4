#include "gridweave/core/append.h"

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

constexpr unsigned entries[] = {7, 8, 9};

TEST(AppendColumn, DoublesTheCapacityFromFourColumnsOn)
{
    dense2D<unsigned> m;
    std::vector<unsigned> capacities;
    for (unsigned c = 0; c < 17; ++c)
    {
        ASSERT_TRUE(append_column(m, entries, 3));
        if (capacities.empty() || capacities.back() != m.column_capacity()) capacities.push_back(m.column_capacity());
    }
    EXPECT_EQ(capacities, (std::vector<unsigned>{4, 8, 16, 32}));
    EXPECT_EQ(m.cols, 17u);
    EXPECT_EQ(test::columns(m)[16], (std::vector<unsigned>{7, 8, 9}));

    dense2D<unsigned> wide;
    EXPECT_TRUE(append_column(wide, entries, 2, 8));
    EXPECT_EQ(wide.column_capacity(), 8u);
}

TEST(AppendColumn, KeepsAPartAtItsLeadingDimension)
{
    auto part = test::non_dense(test::elements_of({{1, 2, 3}}), 50u);
    for (unsigned c = 0; c < 20; ++c) ASSERT_TRUE(append_column(part, entries, 3));
    EXPECT_EQ(part.ld, 6u);
    EXPECT_EQ(test::columns(part)[0], (std::vector<unsigned>{1, 2, 3}));
    EXPECT_EQ(test::columns(part)[20], (std::vector<unsigned>{7, 8, 9}));
}

TEST(AppendColumn, RefusesColumnsOfAnotherHeight)
{
    auto m = test::elements_of({{1, 2}});
    EXPECT_FALSE(append_column(m, entries, 3));
    EXPECT_EQ(test::columns(m), (std::vector<std::vector<unsigned>>{{1, 2}}));
    m.cols = 0;
    EXPECT_TRUE(append_column(m, entries, 3));
    EXPECT_EQ(m.rows, 3u);
}

TEST(AppendColumn, StoresNothingWithoutMemory)
{
    dense2D<unsigned> m;
    {
        const test::failing_allocation failing(1);
        EXPECT_FALSE(append_column(m, entries, 3));
        EXPECT_EQ(m.cols, 0u);
    }
    while (m.cols < m.column_capacity() || m.cols == 0) ASSERT_TRUE(append_column(m, entries, 3));
    const unsigned full = m.cols;
    const test::failing_allocation failing(1);
    EXPECT_FALSE(append_column(m, entries, 3));
    EXPECT_EQ(m.cols, full);
}

TEST(AppendColumn, FitsOneMoreWhereDoublingDoesNot)
{
    dense2D<unsigned> m(3, 4, 1);
    m.reserve(3, 4, 1);
    while (m.cols < m.column_capacity()) ASSERT_TRUE(append_column(m, entries, 3));
    const unsigned full = m.cols;
    const test::failing_allocation failing(1, true); // the doubling alone
    EXPECT_TRUE(append_column(m, entries, 3));
    EXPECT_EQ(m.cols, full + 1);
}

} // namespace
