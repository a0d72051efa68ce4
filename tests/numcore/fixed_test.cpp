#include <type_traits>

#include <gtest/gtest.h>

#include <tq4/numcore/fixed.h>

namespace
{

using namespace tq4;

// Values and nothing else, so that they can be handed on as arrays.
static_assert(sizeof(vector_fixed<double, 2>) == 2 * sizeof(double));
static_assert(sizeof(vector_fixed<double, 3>) == 3 * sizeof(double));
static_assert(sizeof(matrix_fixed<double, 3, 2>) == 6 * sizeof(double));
static_assert(sizeof(symmetric_fixed<double, 2>) == 3 * sizeof(double));
static_assert(sizeof(symmetric_fixed<double, 3>) == 6 * sizeof(double));
static_assert(std::is_aggregate_v<vector_fixed<double, 3>> && std::is_trivially_copyable_v<vector_fixed<double, 3>>);
static_assert(std::is_aggregate_v<matrix_fixed<double, 3, 2>> && std::is_trivially_copyable_v<matrix_fixed<double, 3, 2>>);
static_assert(std::is_aggregate_v<symmetric_fixed<double, 3>> && std::is_trivially_copyable_v<symmetric_fixed<double, 3>>);

TEST(VectorFixed, IsIndexedFromZero)
{
    vector_fixed<double, 3> v{1, 0, 2};
    EXPECT_EQ(v[0], 1.0);
    v[1] = 5.0;
    const auto& seen = v;
    EXPECT_EQ(seen[1], 5.0);
    EXPECT_EQ(seen[2], 2.0);
}

TEST(MatrixFixed, StandsColumnByColumn)
{
    matrix_fixed<double, 3, 2> m{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(m(0, 0), 1.0);
    EXPECT_EQ(m(2, 0), 3.0);
    EXPECT_EQ(m(0, 1), 4.0);
    m(2, 1) = 9.0;
    const auto& seen = m;
    EXPECT_EQ(seen[5], 9.0);
    EXPECT_EQ(seen(1, 1), 5.0);
}

TEST(SymmetricFixed, IsThePackedUpperTriangle)
{
    symmetric_fixed<double, 2> plane{1, 2, 3};
    EXPECT_EQ(plane(0, 0), 1.0);
    EXPECT_EQ(plane(0, 1), 2.0);
    EXPECT_EQ(plane(1, 1), 3.0);

    symmetric_fixed<double, 3> solid{0, 1, 2, 3, 4, 5};
    const double order[3][3] = {{0, 1, 3}, {1, 2, 4}, {3, 4, 5}};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j) EXPECT_EQ(solid(i, j), order[i][j]) << i << j;
    solid(2, 1) = 7.0;
    const auto& seen = solid;
    EXPECT_EQ(seen[4], 7.0);
    EXPECT_EQ(seen(1, 2), 7.0);
}

TEST(SymmetricFixed, AssignmentCopiesAndReturnsItself)
{
    const symmetric_fixed<double, 2> from{1, 2, 3};
    symmetric_fixed<double, 2> to{};
    symmetric_fixed<double, 2>& answer = (to = from);
    EXPECT_EQ(&answer, &to);
    EXPECT_EQ(to[2], 3.0);
}

} // namespace
