#include <tq4/gridweave/metrics.h>

#include <gtest/gtest.h>

#include "metrics/relaxation_cases.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::ids_of;
using test::mesh;
using test::random_source;
using test::vector_of;

/// One bar of the given length.
mesh bar(double length)
{
    return {test::points_of({{0, 0}, {length, 0}}), test::elements_of({{0, 1}}), ELEM_BAR2};
}

int bound(const mesh& m, int direction, double v, dense1D<double>& sizes)
{
    return bound_metric_variations(m.pos, m.connectivity, m.kind, {}, true, direction, v, sizes);
}

TEST(Variation, LeavesTheSizeDifferenceThatTheLimitAllows)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(bar(1), 0, 0.5, sizes), 1);
    EXPECT_EQ(sizes, vector_of({9.5, 10.0}));

    sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(bar(4), -1, 0.5, sizes), 1);
    EXPECT_DOUBLE_EQ(sizes[1], 3.0);
    EXPECT_EQ(sizes[0], 1);
}

TEST(Variation, LeavesTensorsWithTheAllowedDifferenceAlongTheEdge)
{
    const mesh m = bar(4);
    dense2D<double> metrics = test::points_of({{1, 0, 1}, {0.01, 0, 1}});
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, m.kind, {}, true, -1, 0.5, metrics), 1);
    EXPECT_NEAR(1 / std::sqrt(metrics(0, 1)), 3, 1e-12);
    EXPECT_NEAR(metrics(2, 1), 1, 1e-12);
}

TEST(Variation, LeavesNegligibleDifferencesUnderALimitOfZero)
{
    dense1D<double> sizes = vector_of({1.0, 1 + 1e-13});
    const dense1D<double> before = test::duplicate(sizes);
    EXPECT_EQ(bound(bar(1), 0, 0, sizes), 0);
    EXPECT_EQ(sizes, before);
    sizes = vector_of({1.0, 1 + 1e-11});
    EXPECT_EQ(bound(bar(100), 0, 0, sizes), 0);
    EXPECT_EQ(bound(bar(1), 0, 0, sizes), 1); // the same difference is not negligible beside a shorter edge
    EXPECT_EQ(sizes[0], sizes[1]);
}

TEST(Variation, ClosesAnEdgeOfZeroLengthBetweenSizes)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(bar(0), -1, 0.5, sizes), 1);
    EXPECT_EQ(sizes, vector_of({1.0, 1.0}));
}

TEST(Variation, AsksForNothingOnEmptyInputOrWithoutALimit)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound_metric_variations(dense2D<double>(7, 2), dense2D<unsigned>(2, 0), ELEM_BAR2, ids_of({9}), true, 0, -1, sizes), 0);
    EXPECT_EQ(bound_metric_variations(dense2D<double>(7, 2), bar(1).connectivity, ELEM_HEXA8, ids_of({9}), true, 0, DBL_MAX, sizes), 0);
    EXPECT_EQ(sizes, vector_of({1.0, 10.0}));
}

TEST(Variation, TestsItsArgumentsInOrder)
{
    const mesh m = bar(1);
    dense1D<double> one = vector_of({1.0});
    dense2D<double> wrong_rows(6, 2, 1.0);
    const dense2D<double> flat(1, 2);
    const dense1D<unsigned> beyond = ids_of({2});
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, m.kind, {}, true, 0, 0.5, one), -8);
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, m.kind, {}, true, 0, 0.5, wrong_rows), -8);
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, m.kind, {}, true, 0, -1, wrong_rows), -7);
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, m.kind, beyond, true, 0, -1, wrong_rows), -4);
    EXPECT_EQ(bound_metric_variations(m.pos, m.connectivity, ELEM_TRIA3, beyond, true, 0, -1, wrong_rows), -2);
    EXPECT_EQ(bound_metric_variations(flat, m.connectivity, ELEM_TRIA3, beyond, true, 0, -1, wrong_rows), -1);
}

TEST(Variation, IsThePlainRelaxationOnSizes)
{
    EXPECT_GT(test::compare_on_sizes<test::variations>(), 50000u);
}

TEST(Variation, IsThePlainRelaxationOnTensors)
{
    EXPECT_GT(test::compare_on_tensors<test::variations>(), 20000u);
}

TEST(Variation, IsThePlainRelaxationOnBrokenFields)
{
    EXPECT_GT(test::compare_on_broken_fields<test::variations>(), 10000u);
}

TEST(Variation, IsThePlainRelaxationOnBrokenCoordinates)
{
    EXPECT_GT(test::compare_on_broken_coordinates<test::variations>(), 100u);
}

TEST(Variation, IsThePlainRelaxationOnNearlyEqualSizes)
{
    EXPECT_GT(test::compare_on_nearly_equal_sizes<test::variations>(), 100u);
}

TEST(Variation, LeavesNoEdgeAboveTheLimitUnderOneDirection)
{
    random_source random(20);
    const mesh m = test::shaken(test::grid_of_tetrahedra(12), 0.02, random);
    for (const int direction : {1, -1})
        for (const double v : {0.0, 0.1, 1.0})
        {
            const dense1D<double> before = test::jumping_sizes(m.pos.cols, 0.02, 3, random);
            dense1D<double> after = test::duplicate(before);
            EXPECT_GT(test::variations::call(m, {}, true, direction, v, after), 0);
            for (unsigned n = 0; n < after.size; ++n) EXPECT_TRUE(direction == 1 ? after[n] >= before[n] : after[n] <= before[n]);

            auto field = test::entries_of<3>(after);
            test::literal_relaxation<3, double> plain(test::limited::variation, DBL_MAX);
            plain.run(m.pos, m.connectivity, {}, true, direction, field);
            EXPECT_LE(plain.largest_measure([](unsigned, unsigned) { return true; }), v / 0.999 * (1 + 1e-9) + 2e-12);

            dense1D<double> again = test::duplicate(after);
            test::variations::call(m, {}, true, direction, v, again);
            EXPECT_EQ(again, after);
        }
}

} // namespace
