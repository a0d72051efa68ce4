#include <algorithm>
#include <cfloat>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>
#include <tq4/gridweave/quality.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::points_of;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

using list = std::vector<double>;

/// Shocks of bars along the x axis, nodes at the given places.
list shocks_of(std::initializer_list<double> places, std::initializer_list<double> sizes, const dense2D<unsigned>& edges)
{
    dense2D<double> pos(2, static_cast<unsigned>(places.size()), 0.0);
    unsigned c = 0;
    for (const double x : places) pos(0, c++) = x;
    dense1D<double> shocks;
    EXPECT_EQ(H_shock(pos, edges, test::vector_of<double>(sizes), shocks), 0);
    return test::list(shocks);
}

/// Gradation of an edge between two different sizes, written out.
double reference_gradation(double d, double h0, double h1)
{
    const double low = std::min(h0, h1);
    const double r = (std::max(h0, h1) - low) / low;
    const double x = r / 2;
    const double f = r < 0.1 ? 1 + x * (1 - x * (1.0 / 3 - x * (1.0 / 3 - 0.42222222222222217 * x))) : r / std::log(1 + r);
    const double length = d / (low * f);
    const double s0 = d / h0, s1 = d / h1;
    return std::exp(std::log(std::max(s0, s1) / std::min(s0, s1)) / length) - 1;
}

} // namespace

TEST(HShock, DoubledSizeOverOneUnit)
{
    // The metric length is ln 2 and so is the logarithm of the ratio.
    const auto shocks = shocks_of({0, 1}, {1, 2}, elements_of({{0, 1}}));
    ASSERT_EQ(shocks.size(), 2u);
    EXPECT_NEAR(shocks[0], std::exp(1.0) - 1, 1e-14);
    EXPECT_EQ(shocks[0], shocks[1]);
}

TEST(HShock, EqualSizesHaveNone)
{
    EXPECT_EQ(shocks_of({0, 1}, {3, 3}, elements_of({{0, 1}})), (list{0, 0}));
}

TEST(HShock, ExponentsBeyondReachAreTheLargestDouble)
{
    EXPECT_EQ(shocks_of({0, 1}, {1, 1000}, elements_of({{0, 1}})), (list{DBL_MAX, DBL_MAX}));
}

TEST(HShock, ImmeasurableLengthsDependOnWhetherTheSizesDiffer)
{
    EXPECT_EQ(shocks_of({0, 1}, {1, 1e300}, elements_of({{0, 1}})), (list{DBL_MAX, DBL_MAX}));
    EXPECT_EQ(shocks_of({0, 0}, {1, 2}, elements_of({{0, 1}})), (list{DBL_MAX, DBL_MAX}));
    EXPECT_EQ(shocks_of({0, 0}, {2, 2}, elements_of({{0, 1}})), (list{0, 0}));
    EXPECT_EQ(shocks_of({0, 1}, {1, 2}, elements_of({{0, 0}})), (list{0, 0}));
    EXPECT_EQ(shocks_of({0, 1}, {-1, -1}, elements_of({{0, 1}})), (list{0, 0}));
}

TEST(HShock, NodesTakeTheLargestOfTheirEdges)
{
    const auto shocks = shocks_of({0, 1, 2, 9}, {1, 2, 2.5, 1}, elements_of({{0, 1}, {2, 1}}));
    ASSERT_EQ(shocks.size(), 4u);
    EXPECT_EQ(shocks[0], reference_gradation(1, 1, 2));
    EXPECT_EQ(shocks[2], reference_gradation(1, 2, 2.5));
    EXPECT_EQ(shocks[1], std::max(shocks[0], shocks[2]));
    EXPECT_EQ(shocks[3], 0); // no edge
    const auto swapped = shocks_of({0, 1, 2, 9}, {1, 2, 2.5, 1}, elements_of({{1, 2}, {1, 0}}));
    EXPECT_EQ(shocks, swapped);
}

TEST(HShock, PresentEntriesTakePartInTheMaximum)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {2, 0}});
    const auto sizes = test::vector_of<double>({1, 2, 2});
    auto shocks = test::vector_of<double>({100, 0.5});
    EXPECT_EQ(H_shock(pos, elements_of({{0, 1}}), sizes, shocks), 0);
    ASSERT_EQ(shocks.size, 3u);
    EXPECT_EQ(shocks[0], 100);
    EXPECT_NEAR(shocks[1], std::exp(1.0) - 1, 1e-14);
    EXPECT_EQ(shocks[2], 0);

    auto longer = test::vector_of<double>({1, 2, 3, 4, 5});
    EXPECT_EQ(H_shock(pos, elements_of({{1, 2}}), sizes, longer), 0);
    EXPECT_EQ(test::list(longer), (list{1, 2, 3})); // one entry per node
}

TEST(HShock, NotANumberIsNotTaken)
{
    const auto edges = elements_of({{0, 1}});
    // A size that is no number has no length, and equals nothing: that is the largest double, not NaN.
    EXPECT_EQ(shocks_of({0, 1}, {not_a_number, 1}, edges), (list{DBL_MAX, DBL_MAX}));

    auto shocks = test::vector_of<double>({not_a_number, 0});
    EXPECT_EQ(H_shock(points_of({{0, 0}, {1, 0}}), edges, test::vector_of<double>({1, 2}), shocks), 0);
    EXPECT_TRUE(std::isnan(shocks[0])); // not above what stands there
    EXPECT_GT(shocks[1], 1);
}

TEST(HShock, TensorsOfSizesAgreeWithTheSizes)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto pos = test::random_points(rows, 60, rows);
        test::random_source random(7);
        dense1D<double> sizes(60);
        dense2D<double> metrics(rows == 2 ? 3 : 6, 60, 0.0);
        dense2D<unsigned> edges(2, 200);
        for (unsigned c = 0; c < 60; ++c)
        {
            sizes[c] = random.between(0.5, 1.5);
            metrics(0, c) = metrics(2, c) = 1 / (sizes[c] * sizes[c]);
            if (rows == 3) metrics(5, c) = metrics(0, c);
        }
        for (unsigned c = 0; c < edges.cols; ++c)
            for (unsigned r = 0; r < 2; ++r) edges(r, c) = random.below(60);

        list expected(60, 0.0);
        for (unsigned c = 0; c < edges.cols; ++c)
        {
            const unsigned a = edges(0, c), b = edges(1, c);
            if (a == b) continue;
            double squared = 0;
            for (unsigned r = 0; r < rows; ++r) squared += (pos(r, b) - pos(r, a)) * (pos(r, b) - pos(r, a));
            const double e = reference_gradation(std::sqrt(squared), sizes[a], sizes[b]);
            expected[a] = std::max(expected[a], e);
            expected[b] = std::max(expected[b], e);
        }
        dense1D<double> by_size, by_tensor, spread;
        EXPECT_EQ(H_shock(pos, edges, sizes, by_size), 0);
        EXPECT_EQ(H_shock(pos, edges, metrics, by_tensor), 0);
        ASSERT_EQ(by_size.size, 60u);
        ASSERT_EQ(by_tensor.size, 60u);
        for (unsigned c = 0; c < 60; ++c)
        {
            EXPECT_EQ(by_size[c], expected[c]);
            EXPECT_NEAR(by_tensor[c], expected[c], 1e-9 * expected[c]);
        }
        EXPECT_EQ(
            H_shock(test::non_dense(pos, not_a_number), test::non_dense(edges, 9999u), test::non_dense(metrics, not_a_number), spread), 0);
        EXPECT_EQ(test::list(spread), test::list(by_tensor));
    }
}

TEST(HShock, EqualTensorsHaveNone)
{
    const auto pos = points_of({{0, 0}, {1, 0}});
    const auto edges = elements_of({{0, 1}});
    dense1D<double> shocks;
    EXPECT_EQ(H_shock(pos, edges, test::matrix_of<double>({{2, 1, 3}, {2, 1, 3}}), shocks), 0);
    EXPECT_EQ(test::list(shocks), (list{0, 0}));
    // Negative along the edge: no length can be had. Equal tensors have no shock, different ones the largest.
    EXPECT_EQ(H_shock(pos, edges, test::matrix_of<double>({{-2, 1, 3}, {-2, 1, 3}}), shocks), 0);
    EXPECT_EQ(test::list(shocks), (list{0, 0}));
    EXPECT_EQ(H_shock(pos, edges, test::matrix_of<double>({{-2, 1, 3}, {-2, 1, 4}}), shocks), 0);
    EXPECT_EQ(test::list(shocks), (list{DBL_MAX, DBL_MAX}));
    // An entry that is no number equals nothing, itself included, even where it does not enter the length.
    shocks.size = 0;
    EXPECT_EQ(H_shock(pos, edges, test::matrix_of<double>({{-2, 1, not_a_number}, {-2, 1, not_a_number}}), shocks), 0);
    EXPECT_EQ(shocks[0], DBL_MAX);
}

TEST(HShock, ReportsWhatTheGradationLimits)
{
    auto m = test::grid_of_triangles(8);
    dense1D<double> sizes, shocks;
    sizes.resize(m.pos.cols, 1.0);
    sizes[40] = 0.01;
    dense2D<unsigned> edges(2, 3 * m.connectivity.cols);
    for (unsigned c = 0; c < m.connectivity.cols; ++c)
        for (unsigned k = 0; k < 3; ++k)
        {
            edges(0, 3 * c + k) = m.connectivity(k, c);
            edges(1, 3 * c + k) = m.connectivity((k + 1) % 3, c);
        }
    ASSERT_EQ(H_shock(m.pos, edges, sizes, shocks), 0);
    EXPECT_GT(*std::max_element(shocks.begin(), shocks.end()), 1);

    ASSERT_GE(bound_metric_gradations(m.pos, m.connectivity, m.kind, dense1D<unsigned>(), true, -1, 0.2, sizes), 0);
    shocks.size = 0;
    ASSERT_EQ(H_shock(m.pos, edges, sizes, shocks), 0);
    EXPECT_LE(*std::max_element(shocks.begin(), shocks.end()), 0.2 * 1.001);
    EXPECT_GT(*std::max_element(shocks.begin(), shocks.end()), 0.19);
}

TEST(HShock, TestsComeInTheirOrderAndLeaveTheShocks)
{
    const auto sizes = test::vector_of<double>({1, 2});
    auto shocks = test::vector_of<double>({7, 8, 9});
    const auto unchanged = list{7, 8, 9};
    EXPECT_EQ(H_shock(dense2D<double>(4, 2), dense2D<unsigned>(), sizes, shocks), 0);
    EXPECT_EQ(test::list(shocks), unchanged);
    EXPECT_EQ(H_shock(dense2D<double>(4, 2), dense2D<unsigned>(0, 3), sizes, shocks), 0);
    EXPECT_EQ(test::list(shocks), unchanged);
    EXPECT_EQ(H_shock(dense2D<double>(4, 2), elements_of({{0, 5}}), sizes, shocks), -1);
    EXPECT_EQ(H_shock(dense2D<double>(1, 2), elements_of({{0, 1}}), sizes, shocks), -1);
    EXPECT_EQ(H_shock(dense2D<double>(2, 2), elements_of({{0, 2}}), sizes, shocks), -2);
    EXPECT_EQ(H_shock(dense2D<double>(2, 2), elements_of({{0, none_index}}), sizes, shocks), -2);
    EXPECT_EQ(H_shock(dense2D<double>(2, 2), elements_of({{0, 1, 1}}), sizes, shocks), -2);
    EXPECT_EQ(H_shock(dense2D<double>(2, 2), elements_of({{0, 2}}), dense2D<double>(3, 2), shocks), -2);
    EXPECT_EQ(test::list(shocks), unchanged);
}

TEST(HShock, FieldsThatAreTooSmallAreNotReadBeyondTheirEnd)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {2, 0}});
    const auto edges = elements_of({{0, 1}, {1, 2}});
    dense1D<double> shocks;
    EXPECT_EQ(H_shock(pos, edges, test::vector_of<double>({1, 2}), shocks), 0);
    EXPECT_GT(shocks[1], 1);
    EXPECT_EQ(shocks[2], 0);
    shocks.size = 0;
    EXPECT_EQ(H_shock(pos, edges, dense2D<double>(3, 1, 1.0), shocks), 0);
    EXPECT_EQ(H_shock(pos, edges, dense2D<double>(2, 3, 1.0), shocks), 0);
    EXPECT_EQ(H_shock(dense2D<double>(3, 3, 0.0), edges, dense2D<double>(3, 3, 1.0), shocks), 0); // 2-D tensors in space
    EXPECT_EQ(test::list(shocks), (list{0, 0, 0}));
}

TEST(HShock, FieldAndResultMayBeOneVector)
{
    // Entries take the larger of size and shock as they go; what a later edge reads is what stands there by then.
    const auto pos = points_of({{0, 0}, {1, 0}});
    auto both = test::vector_of<double>({1, 2});
    EXPECT_EQ(H_shock(pos, elements_of({{0, 1}}), both, both), 0);
    EXPECT_NEAR(both[0], std::exp(1.0) - 1, 1e-14);
    EXPECT_EQ(both[1], 2);
}

TEST(HShock, ExhaustedMemoryLeavesNodesOut)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}, {5, 0}, {6, 0}, {7, 0}, {8, 0}, {9, 0}});
    const auto sizes = test::vector_of<double>({1, 2, 1, 2, 1, 2, 1, 2, 1, 2});
    const auto edges = elements_of({{0, 1}, {8, 9}});
    const long alive = test::live_allocations();
    bool done = false;
    for (unsigned n = 1; !done; ++n)
    {
        ASSERT_LT(n, 10u);
        dense1D<double> shocks;
        shocks.push_back(0.0);
        test::failing_allocation fail(n);
        EXPECT_EQ(H_shock(pos, edges, sizes, shocks), 0);
        done = !fail.has_failed();
        ASSERT_EQ(shocks.size, done ? 10u : 1u);
        EXPECT_NEAR(shocks[0], std::exp(1.0) - 1, 1e-14);
        EXPECT_FALSE(done && n == 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}
