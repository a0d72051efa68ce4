#include "gridweave/core/points.h"

#include <gtest/gtest.h>

#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

TEST(PointReader, ReadsMissingRowsAsZero)
{
    const auto line = test::points_of({{1}, {2}});
    const auto plane = test::points_of({{1, 2}, {3, 4}});
    const auto space = test::points_of({{1, 2, 3}, {4, 5, 6}});
    EXPECT_EQ(point_reader<3>(line)[1][0], 2.0);
    EXPECT_EQ(point_reader<3>(line)[1][1], 0.0);
    EXPECT_EQ(point_reader<3>(plane)[1][1], 4.0);
    EXPECT_EQ(point_reader<3>(plane)[1][2], 0.0);
    EXPECT_EQ(point_reader<3>(space)[1][2], 6.0);
    EXPECT_EQ(point_reader<2>(space)[1][1], 5.0);
    EXPECT_EQ(point_reader<2>(line)[0][1], 0.0);
}

TEST(PointReader, StepsByTheLeadingDimension)
{
    const auto pos = test::non_dense(test::points_of({{1, 2}, {3, 4}}), 9.0);
    EXPECT_EQ(point_reader<2>(pos)[1][0], 3.0);
    EXPECT_EQ(point_reader<3>(pos)[1][2], 0.0) << "what stands around a part is not its own";
}

} // namespace
