#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>
#include <tq4/gridweave/quality.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using auxkit::histogram;
using test::elements_of;
using test::points_of;

constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();
constexpr double infinite = std::numeric_limits<double>::infinity();
const dense2D<unsigned> no_edges;

dense1D<double> unit_sizes(unsigned count)
{
    dense1D<double> sizes;
    sizes.resize(count, 1.0);
    return sizes;
}

/// The unit tensor at every node, of a mesh with as many dimensions as it has coordinate rows.
dense2D<double> unit_tensors(const dense2D<double>& pos)
{
    dense2D<double> metrics(pos.rows == 2 ? 3 : 6, pos.cols, 0.0);
    for (unsigned c = 0; c < pos.cols; ++c)
    {
        metrics(0, c) = metrics(2, c) = 1;
        if (pos.rows == 3) metrics(5, c) = 1;
    }
    return metrics;
}

dense2D<double> square()
{
    return points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
}

dense2D<unsigned> two_triangles()
{
    return elements_of({{0, 1, 2}, {0, 2, 3}});
}

void expect_equal(const histogram& a, const histogram& b)
{
    EXPECT_EQ(a.count(), b.count());
    EXPECT_EQ(a.nan_count(), b.nan_count());
    if (a.count() == 0) return;
    EXPECT_EQ(a.min(), b.min());
    EXPECT_EQ(a.max(), b.max());
    EXPECT_EQ(a.mean(), b.mean());
    ASSERT_EQ(a.bins(), b.bins());
    for (unsigned k = 0; k < a.bins(); ++k) EXPECT_EQ(a.bin_count(k), b.bin_count(k));
}

/// The measure written out: length over the logarithmic mean of the ends.
double reference_length(double length, double s0, double s1)
{
    const double low = std::min(s0, s1);
    const double r = (std::max(s0, s1) - low) / low;
    const double x = r / 2;
    const double f = r < 0.1 ? 1 + x * (1 - x * (1.0 / 3 - x * (1.0 / 3 - 0.42222222222222217 * x))) : r / std::log(1 + r);
    return length / (low * f);
}

using edge = std::pair<unsigned, unsigned>;

template <class Tables>
void add_edges(std::set<edge>& edges, const unsigned* nodes, const Tables& table)
{
    for (const auto& [a, b] : table) edges.insert({std::min(nodes[a], nodes[b]), std::max(nodes[a], nodes[b])});
}

std::set<edge> edges_of(const dense2D<unsigned>& triangles)
{
    std::set<edge> edges;
    for (unsigned c = 0; c < triangles.cols; ++c) add_edges(edges, triangles.column(c), std::array<edge, 3>{{{1, 2}, {2, 0}, {0, 1}}});
    return edges;
}

TEST(EdgeQualities, LeaveEdgesOutWhereEitherEndHasNoMetric)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto pos = dense2D<double>(rows, 2, 0.0);
        const auto bar = elements_of({{0, 1}});
        const auto counted = [&](const auto& field) {
            histogram lengths;
            const int result = edge_qualities(pos, bar, ELEM_BAR2, field, lengths, no_edges);
            EXPECT_EQ(result, lengths.count() == 1 ? 1 : -4);
            return lengths.count();
        };
        for (const double bad : {0.0, -1.0, not_a_number})
        {
            EXPECT_EQ(counted(test::vector_of({bad, 1.0})), 0u);
            EXPECT_EQ(counted(test::vector_of({1.0, bad})), 0u);
            for (const unsigned node : {0u, 1u})
            {
                auto metrics = unit_tensors(pos);
                metrics(0, node) = bad;
                EXPECT_EQ(counted(metrics), 0u);
            }
        }
        EXPECT_EQ(counted(unit_sizes(1)), 0u);
        EXPECT_EQ(counted(unit_sizes(2)), 1u);
        EXPECT_EQ(counted(unit_tensors(dense2D<double>(rows, 1))), 0u);
        EXPECT_EQ(counted(unit_tensors(pos)), 1u);
    }
}

} // namespace

TEST(EdgeQuality, IsTheLengthOverTheLogarithmicMean)
{
    double q = -1;
    EXPECT_EQ(edge_quality(1, 1, 1, q), 0);
    EXPECT_EQ(q, 1);
    EXPECT_EQ(edge_quality(1, 1, 3, q), 0);
    EXPECT_DOUBLE_EQ(q, std::log(3.0) / 2);
    EXPECT_EQ(edge_quality(1, 3, 1, q), 0);
    EXPECT_DOUBLE_EQ(q, std::log(3.0) / 2);
    EXPECT_EQ(edge_quality(2, 1, 1, q), 0);
    EXPECT_EQ(q, 2); // a long edge is not turned into a low score
    EXPECT_EQ(edge_quality(2, 4, 4, q), 0);
    EXPECT_EQ(q, 0.5);
}

TEST(EdgeQuality, ZeroLengthIsNoFailure)
{
    double q = -1;
    EXPECT_EQ(edge_quality(0, 1, 2, q), 0);
    EXPECT_EQ(q, 0);
}

TEST(EdgeQuality, SizesMustBePositiveTheFirstOneFirst)
{
    for (const double bad : {0.0, -1.0, not_a_number, -infinite})
    {
        double q = 7;
        EXPECT_EQ(edge_quality(1, bad, 1, q), -2);
        EXPECT_EQ(edge_quality(1, 1, bad, q), -3);
        EXPECT_EQ(edge_quality(1, bad, bad, q), -2);
        EXPECT_EQ(q, 7);
    }
    double q = 7;
    EXPECT_EQ(edge_quality(1, infinite, infinite, q), 0); // positive, but without a mean
    EXPECT_EQ(q, 0);
}

TEST(EdgeQualities, SharedEdgesCountOnce)
{
    histogram lengths;
    EXPECT_EQ(edge_qualities(square(), two_triangles(), ELEM_TRIA3, unit_sizes(4), lengths, no_edges), 5);
    EXPECT_EQ(lengths.count(), 5u);
    EXPECT_EQ(lengths.min(), 1);
    EXPECT_EQ(lengths.max(), std::sqrt(2.0));
}

TEST(EdgeQualities, ValuesAreAddedToTheHistogram)
{
    histogram lengths;
    lengths.process(50);
    EXPECT_EQ(edge_qualities(square(), two_triangles(), ELEM_TRIA3, unit_tensors(square()), lengths, no_edges), 5);
    EXPECT_EQ(edge_qualities(square(), two_triangles(), ELEM_TRIA3, unit_sizes(4), lengths, no_edges), 5);
    EXPECT_EQ(lengths.count(), 11u);
    EXPECT_EQ(lengths.max(), 50);
}

TEST(EdgeQualities, FollowTheLiteralMeasureForSizes)
{
    for (const unsigned rows : {2u, 3u})
    {
        auto m = test::shuffled(test::grid_of_triangles(12, rows), 4);
        test::random_source random(rows);
        auto sizes = unit_sizes(m.pos.cols);
        for (unsigned c = 0; c < m.pos.cols; ++c)
        {
            sizes[c] = std::pow(10, random.between(-1, 1));
            for (unsigned r = 0; r < rows; ++r) m.pos(r, c) += random.between(-0.1, 0.1);
        }
        histogram lengths(0, 10, 40), expected(0, 10, 40);
        const auto edges = edges_of(m.connectivity);
        for (const auto& [i, j] : edges)
        {
            double squared = 0;
            for (unsigned r = 0; r < rows; ++r) squared += (m.pos(r, j) - m.pos(r, i)) * (m.pos(r, j) - m.pos(r, i));
            expected.process(reference_length(std::sqrt(squared), sizes[i], sizes[j]));
        }
        EXPECT_EQ(edge_qualities(m.pos, m.connectivity, m.kind, sizes, lengths, no_edges), static_cast<int>(edges.size()));
        expect_equal(lengths, expected);
    }
}

TEST(EdgeQualities, FollowTheLiteralMeasureForTensors)
{
    for (const unsigned rows : {2u, 3u})
    {
        auto m = test::shuffled(test::grid_of_triangles(12, rows), 4);
        test::random_source random(rows);
        auto metrics = unit_tensors(m.pos);
        for (unsigned c = 0; c < m.pos.cols; ++c)
        {
            for (unsigned r = 0; r < metrics.rows; ++r) metrics(r, c) += random.between(-0.3, 0.3);
            for (unsigned r = 0; r < rows; ++r) m.pos(r, c) += random.between(-0.1, 0.1);
        }
        const auto form = [&](unsigned node, const double* u) {
            const double* t = metrics.column(node);
            const double plane = t[0] * (u[0] * u[0]) + u[1] * (t[2] * u[1] + 2 * t[1] * u[0]);
            return rows == 2 ? plane : plane + u[2] * (2 * t[3] * u[0] + 2 * t[4] * u[1] + t[5] * u[2]);
        };
        histogram lengths(0, 1, 40), expected(0, 1, 40);
        const auto edges = edges_of(m.connectivity);
        for (const auto& [i, j] : edges)
        {
            double u[3]{};
            for (unsigned r = 0; r < rows; ++r) u[r] = m.pos(r, j) - m.pos(r, i);
            const double s0 = std::sqrt(form(i, u)), s1 = std::sqrt(form(j, u));
            expected.process(reference_length(s0 * s1, s0, s1));
        }
        EXPECT_EQ(edge_qualities(m.pos, m.connectivity, m.kind, metrics, lengths, no_edges), static_cast<int>(edges.size()));
        expect_equal(lengths, expected);
    }
}

TEST(EdgeQualities, SizesAndTheirTensorsAgree)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        auto sizes = unit_sizes(m.pos.cols);
        auto metrics = unit_tensors(m.pos);
        for (unsigned c = 0; c < m.pos.cols; ++c)
        {
            sizes[c] = 0.1 + 0.05 * (c % 7);
            for (unsigned r = 0; r < metrics.rows; ++r) metrics(r, c) /= sizes[c] * sizes[c];
        }
        histogram by_size, by_tensor;
        const int count = edge_qualities(m.pos, m.connectivity, m.kind, sizes, by_size, no_edges);
        EXPECT_GT(count, 0);
        EXPECT_EQ(edge_qualities(m.pos, m.connectivity, m.kind, metrics, by_tensor, no_edges), count);
        EXPECT_NEAR(by_size.min(), by_tensor.min(), 1e-12);
        EXPECT_NEAR(by_size.max(), by_tensor.max(), 1e-12);
        EXPECT_NEAR(by_size.mean(), by_tensor.mean(), 1e-12);
    }
}

TEST(EdgeQualities, SkippedEdgesAreLeftOutInEitherDirection)
{
    const auto pos = test::random_points(2, 10, 1);
    const auto triangles = elements_of({{2, 7, 9}});
    histogram lengths;
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(10), lengths, elements_of({{7, 2}})), 2);
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(10), lengths, elements_of({{2, 7}, {7, 2}, {2, 7}})), 2);
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(10), lengths, elements_of({{0, 1}, {9, 8}, {2, 8}})), 3);
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(10), lengths, elements_of({{9, 7}, {9, 2}, {7, 2}})), 0);
    EXPECT_EQ(lengths.count(), 7u);
}

TEST(EdgeQualities, SkipListsOfRandomEdgesFollowASet)
{
    const auto m = test::shuffled(test::grid_of_triangles(10), 9);
    const auto all = edges_of(m.connectivity);
    for (unsigned trial = 0; trial < 20; ++trial)
    {
        test::random_source random(trial);
        dense2D<unsigned> skipped(2, 60);
        auto left = all;
        for (unsigned c = 0; c < skipped.cols; ++c)
        {
            auto e = *std::next(all.begin(), random.below(static_cast<unsigned>(all.size())));
            if (c % 3 == 0) e.second = random.below(m.pos.cols);
            skipped(c % 2, c) = e.first;
            skipped(1 - c % 2, c) = e.second;
            left.erase({std::min(e.first, e.second), std::max(e.first, e.second)});
        }
        histogram lengths;
        const int count = edge_qualities(m.pos, m.connectivity, m.kind, unit_sizes(m.pos.cols), lengths, test::non_dense(skipped, 3u));
        EXPECT_EQ(count, static_cast<int>(left.size()));
    }
}

TEST(EdgeQualities, BadSkipListHasTwoCodes)
{
    const auto pos = square();
    const auto triangles = two_triangles();
    const auto kinds = test::vector_of<int>({ELEM_TRIA3});
    for (const auto& skipped : {elements_of({{0, 1, 2}}), elements_of({{0, 4}}), elements_of({{0, none_index}})})
    {
        histogram lengths;
        EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(4), lengths, skipped), -6);
        EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_tensors(pos), lengths, skipped), -6);
        EXPECT_EQ(edge_qualities(pos, &triangles, &triangles + 1, kinds, unit_sizes(4), lengths, skipped), -7);
        EXPECT_EQ(edge_qualities(pos, &triangles, &triangles + 1, kinds, unit_tensors(pos), lengths, skipped), -7);
        EXPECT_EQ(lengths.count(), 0u);
    }
    histogram lengths;
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(4), lengths, dense2D<unsigned>(3, 0)), 5); // empty passes
    EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, unit_sizes(4), lengths, dense2D<unsigned>(0, 3)), 5);
}

TEST(EdgeQualities, GoodEdgesAreCountedThoughOthersFail)
{
    const auto pos = square();
    const auto triangles = two_triangles();
    const auto kinds = test::vector_of<int>({ELEM_TRIA3});
    for (const double bad : {-1.0, 0.0, not_a_number})
    {
        auto sizes = unit_sizes(4);
        sizes[3] = bad; // edges (0, 3) and (2, 3)
        histogram lengths;
        EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, sizes, lengths, no_edges), -4);
        EXPECT_EQ(lengths.count(), 3u);
        EXPECT_EQ(edge_qualities(pos, &triangles, &triangles + 1, kinds, sizes, lengths, no_edges), -5);
        EXPECT_EQ(lengths.count(), 6u);
        EXPECT_EQ(edge_qualities(pos, triangles, ELEM_TRIA3, sizes, lengths, elements_of({{0, 3}, {2, 3}})), 3); // none left that fails
    }
}

TEST(EdgeQualities, TensorsMustBePositiveDefinite)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto m = test::grid_of_triangles(1, rows);
        for (const double bad : {0.0, -1.0, not_a_number, infinite})
            for (unsigned r = 0; r < (rows == 2 ? 3u : 6u); ++r)
            {
                auto metrics = unit_tensors(m.pos);
                metrics(r, 1) = bad; // node 1 is on two edges of five
                const bool valid = are_valid_metrics(metrics);
                histogram lengths;
                EXPECT_EQ(edge_qualities(m.pos, m.connectivity, m.kind, metrics, lengths, no_edges), valid ? 5 : -4);
                EXPECT_EQ(lengths.count(), valid ? 5u : 3u);
            }
    }
    // Indefinite, though its diagonal is positive.
    const auto pos = square();
    auto metrics = unit_tensors(pos);
    metrics(1, 3) = 1.5;
    histogram lengths;
    EXPECT_EQ(edge_qualities(pos, two_triangles(), ELEM_TRIA3, metrics, lengths, no_edges), -4);
    EXPECT_EQ(lengths.count(), 3u);
}

TEST(EdgeQualities, RepeatedNodesGiveAnEdgeOfLengthZero)
{
    histogram lengths;
    EXPECT_EQ(edge_qualities(square(), elements_of({{0, 1, 1}}), ELEM_TRIA3, unit_sizes(4), lengths, no_edges), 2);
    EXPECT_EQ(lengths.count(), 2u);
    EXPECT_EQ(lengths.min(), 0);
    EXPECT_EQ(edge_qualities(square(), elements_of({{0, 1, 1}}), ELEM_TRIA3, unit_tensors(square()), lengths, no_edges), 2);
    EXPECT_EQ(lengths.count(), 4u);
}

TEST(EdgeQualities, KindsWithoutEdgesAddNone)
{
    const dense2D<double> pos(3, 30, 0.0);
    for (const element_type kind : {ELEM_PYRA13, ELEM_PENTA15, ELEM_HEXA20, ELEM_NODE})
    {
        histogram lengths;
        EXPECT_EQ(edge_qualities(pos, dense2D<unsigned>(nbr_nodes(kind), 2, 0u), kind, unit_sizes(30), lengths, no_edges), 0) << kind;
        EXPECT_EQ(lengths.count(), 0u);
    }
}

TEST(EdgeQualities, EmptyRangeComesFirst)
{
    const dense2D<unsigned> triangles = two_triangles();
    histogram lengths;
    EXPECT_EQ(edge_qualities(dense2D<double>(4, 5), &triangles, &triangles, test::vector_of<int>({1, 2}), unit_sizes(1), lengths,
                             elements_of({{1, 2, 3}})),
              0);
}

TEST(EdgeQualities, RangeTestsComeInTheirOrder)
{
    const auto good = square();
    const auto flat = dense2D<double>(4, 4, 0.0);
    const std::array<dense2D<unsigned>, 2> range{two_triangles(), elements_of({{0, 9}})};
    const auto* first = range.data();
    const auto one = test::vector_of<int>({ELEM_TRIA3});
    const auto two = test::vector_of<int>({ELEM_TRIA3, ELEM_BAR2});
    const auto bad_skip = elements_of({{0, 1, 2}});
    histogram lengths;
    EXPECT_EQ(edge_qualities(flat, first, first + 2, one, unit_sizes(4), lengths, bad_skip), -1);
    EXPECT_EQ(edge_qualities(good, first, first + 2, one, unit_sizes(4), lengths, bad_skip), -4);
    EXPECT_EQ(edge_qualities(good, first + 1, first, one, unit_sizes(4), lengths, bad_skip), -4);
    EXPECT_EQ(edge_qualities(good, first, first + 2, two, unit_sizes(4), lengths, bad_skip), -2);
    EXPECT_EQ(edge_qualities(good, first, first + 1, one, unit_sizes(4), lengths, bad_skip), -7);
    EXPECT_EQ(edge_qualities(good, first, first + 1, test::vector_of<int>({99}), unit_sizes(4), lengths, no_edges), -2);
    EXPECT_EQ(edge_qualities(good, first, first + 1, test::vector_of<int>({-1}), unit_sizes(4), lengths, no_edges), -2);
    EXPECT_EQ(lengths.count(), 0u);
}

TEST(EdgeQualities, MatrixTestsComeInTheirOrder)
{
    const auto bad_skip = elements_of({{0, 1, 2}});
    histogram lengths;
    EXPECT_EQ(edge_qualities(dense2D<double>(1, 4), elements_of({{0, 1, 9}}), ELEM_TRIA3, unit_sizes(4), lengths, bad_skip), -1);
    EXPECT_EQ(edge_qualities(square(), elements_of({{0, 1, 9}}), ELEM_TRIA3, unit_sizes(4), lengths, bad_skip), -2);
    // An empty matrix is a range of one all the same: the other tests still run.
    EXPECT_EQ(edge_qualities(dense2D<double>(1, 4), dense2D<unsigned>(), ELEM_TRIA3, unit_sizes(4), lengths, no_edges), -1);
    EXPECT_EQ(edge_qualities(square(), dense2D<unsigned>(), ELEM_TRIA3, unit_sizes(4), lengths, bad_skip), -6);
    EXPECT_EQ(edge_qualities(square(), dense2D<unsigned>(), ELEM_TRIA3, unit_sizes(4), lengths, no_edges), 0);
}

TEST(EdgeQualities, RangeIsOneMesh)
{
    const auto pos = square();
    const std::array<dense2D<unsigned>, 3> range{two_triangles(), elements_of({{2, 0}, {1, 3}}), elements_of({{0, 1, 2, 3}})};
    const auto kinds = test::vector_of<int>({ELEM_TRIA3, ELEM_BAR2, ELEM_QUAD4});
    histogram lengths;
    EXPECT_EQ(edge_qualities(pos, range.data(), range.data() + 3, kinds, unit_sizes(4), lengths, no_edges), 6);
    EXPECT_EQ(edge_qualities(pos, range.data(), range.data() + 3, kinds, unit_tensors(pos), lengths, elements_of({{3, 1}})), 5);
    EXPECT_EQ(lengths.count(), 11u);
}

TEST(EdgeQualities, FieldsThatAreTooSmallAreNotReadBeyondTheirEnd)
{
    const auto pos = square();
    const auto space = dense2D<double>(3, 4, 0.0);
    histogram lengths;
    EXPECT_EQ(edge_qualities(pos, two_triangles(), ELEM_TRIA3, unit_sizes(3), lengths, no_edges), -4);
    EXPECT_EQ(lengths.count(), 3u); // edges among nodes 0, 1, 2
    EXPECT_EQ(edge_qualities(pos, two_triangles(), ELEM_TRIA3, dense1D<double>(), lengths, no_edges), -4);
    EXPECT_EQ(edge_qualities(pos, two_triangles(), ELEM_TRIA3, unit_tensors(points_of({{0, 0}})), lengths, no_edges), -4);
    EXPECT_EQ(edge_qualities(space, two_triangles(), ELEM_TRIA3, unit_tensors(pos), lengths, no_edges), -4); // 2-D tensors in space
    EXPECT_EQ(lengths.count(), 3u);
}

TEST(EdgeQualities, NonDenseMatricesGiveTheSame)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        histogram plain, spread;
        const auto metrics = unit_tensors(m.pos);
        const int count = edge_qualities(m.pos, m.connectivity, m.kind, metrics, plain, no_edges);
        EXPECT_GT(count, 0);
        EXPECT_EQ(edge_qualities(test::non_dense(m.pos, not_a_number), test::non_dense(m.connectivity, 77777u), m.kind,
                                 test::non_dense(metrics, not_a_number), spread, no_edges),
                  count);
        expect_equal(plain, spread);
    }
}

TEST(EdgeQualities, ExhaustedMemoryDropsEdgesOrTheSkipListSilently)
{
    const auto m = test::grid_of_triangles(3);
    const auto sizes = unit_sizes(m.pos.cols);
    const auto skipped = elements_of({{0, 1}, {1, 2}});
    histogram all;
    const int expected = edge_qualities(m.pos, m.connectivity, m.kind, sizes, all, skipped);
    const long alive = test::live_allocations();
    bool skip_list_was_dropped = false;
    bool done = false;
    for (unsigned n = 1; !done; ++n)
    {
        ASSERT_LT(n, 50u);
        histogram lengths;
        test::failing_allocation fail(n);
        const int count = edge_qualities(m.pos, m.connectivity, m.kind, sizes, lengths, skipped);
        done = !fail.has_failed();
        EXPECT_TRUE(count == (done ? expected : 0) || (!done && count == expected + 2)) << count;
        EXPECT_EQ(lengths.count(), static_cast<unsigned>(count));
        skip_list_was_dropped |= count == expected + 2;
        EXPECT_FALSE(done && n == 1);
    }
    EXPECT_TRUE(skip_list_was_dropped);
    EXPECT_EQ(test::live_allocations(), alive);
}
