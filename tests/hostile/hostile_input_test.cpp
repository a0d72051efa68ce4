// Large input of the kinds that invite quadratic algorithms, deep recursion or endless loops, for families whose own tests have none. A
// quadratic algorithm does not come to an end here; bench/hostile_bench.cpp measures how cost grows.

#include <cfloat>
#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <tq4/gridweave.h>

#include "io/files.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

constexpr unsigned million = 1000000;
constexpr unsigned spokes = 100000;
constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// Nodes with x from `place(node)`, on a line along x.
template <class Place>
dense2D<double> on_a_line(unsigned count, Place place)
{
    dense2D<double> pos(3, count);
    for (unsigned node = 0; node < count; ++node) pos(0, node) = place(node);
    return pos;
}

/// Node 0, and `spokes` nodes on a unit circle around it.
dense2D<double> hub_and_rim()
{
    dense2D<double> pos(2, spokes + 1);
    for (unsigned k = 1; k <= spokes; ++k)
    {
        pos(0, k) = std::cos(6.283185307179586 * k / spokes);
        pos(1, k) = std::sin(6.283185307179586 * k / spokes);
    }
    return pos;
}

/// Bars from node 0 to all others.
dense2D<unsigned> spokes_from_the_hub()
{
    dense2D<unsigned> bars(2, spokes);
    for (unsigned c = 0; c < spokes; ++c) bars(1, c) = c + 1;
    return bars;
}

TEST(HostileMerge, FollowsAMillionNodesInLine)
{
    dense1D<unsigned> new_ids;
    auto rising = on_a_line(million, [](unsigned node) { return node; });
    EXPECT_EQ(merge(rising, new_ids, 1.0), static_cast<int>(million - 1));
    EXPECT_EQ(max_ID(new_ids), 0u);
    auto falling = on_a_line(million, [](unsigned node) { return million - node; });
    EXPECT_EQ(merge(falling, new_ids, 1.0), static_cast<int>(million - 1));
    EXPECT_EQ(max_ID(new_ids), 0u);
    auto apart = on_a_line(million, [](unsigned node) { return node; });
    EXPECT_EQ(merge(apart, 0.5), 0);
}

TEST(HostileMerge, TakesAStrayNodeAndMagnitudesOfAnyKind)
{
    auto stray = on_a_line(spokes, [](unsigned node) { return node == 7 ? 1e30 : 1e-3 * (node / 2); });
    EXPECT_EQ(merge(stray, 1e-9), static_cast<int>(spokes / 2 - 1));
    auto denormal = on_a_line(spokes, [](unsigned node) { return 5e-324 * (node / 2); });
    EXPECT_EQ(merge(denormal, 0.0), static_cast<int>(spokes / 2));
    auto huge = on_a_line(spokes, [](unsigned node) { return 1e300 * (node / 2); });
    EXPECT_EQ(merge(huge, 0.0), static_cast<int>(spokes / 2));
    auto unknown = on_a_line(million, [](unsigned) { return nan; });
    EXPECT_EQ(merge(unknown, 1.0), 0);
}

TEST(HostileConnectivity, WalksAMillionElementsInARow)
{
    // A chain is the deepest search there is.
    dense2D<unsigned> chain(2, million);
    for (unsigned c = 0; c < million; ++c)
        for (unsigned r = 0; r < 2; ++r) chain(r, c) = c + r;
    dense2D<unsigned> neighbors;
    dense1D<unsigned> indices, offsets;
    ASSERT_EQ(get_neighbors(chain, ELEM_BAR2, false, neighbors), 0);
    ASSERT_EQ(get_subdomains(neighbors, indices, offsets), 0);
    EXPECT_EQ(test::list(offsets), (std::vector<unsigned>{0, million}));
    EXPECT_EQ(indices[million - 1], million - 1);
}

TEST(HostileConnectivity, TakesANodeInEveryElement)
{
    const auto bars = spokes_from_the_hub();
    dense1D<unsigned> first, list, ancestors;
    ASSERT_EQ(get_node_graph(bars, first, list), 0);
    ASSERT_EQ(first[1], spokes);
    EXPECT_EQ(list[spokes - 1], spokes);
    EXPECT_EQ(first[spokes + 1], 2 * spokes);
    ASSERT_EQ(get_ancestors(bars, ancestors), 0);
    EXPECT_EQ(ancestors[0], spokes - 1);

    // A point that ends every bar has no neighbour, or a link to the first or the last of all.
    dense2D<unsigned> neighbors;
    ASSERT_EQ(get_neighbors(bars, ELEM_BAR2, true, neighbors), 0);
    EXPECT_EQ(neighbors(1, 0), spokes - 1);
    EXPECT_EQ(neighbors(1, 7), 0u);
}

TEST(HostileRelaxation, MovesTheRimOrTheHubOfAStar)
{
    const auto pos = hub_and_rim();
    const auto bars = spokes_from_the_hub();
    dense1D<double> sizes(spokes + 1, 100.0);
    sizes[0] = 1.0;
    EXPECT_EQ(bound_metric_variations(pos, bars, ELEM_BAR2, {}, true, -1, 0.5, sizes), static_cast<int>(spokes));
    for (unsigned k = 1; k <= spokes; ++k) ASSERT_NEAR(sizes[k], 1.5, 1e-9);

    sizes = 1.0;
    sizes[0] = 100.0;
    EXPECT_EQ(bound_metric_variations(pos, bars, ELEM_BAR2, {}, true, -1, 0.5, sizes), 1);
    EXPECT_NEAR(sizes[0], 1.5, 1e-9);
}

TEST(HostileRelaxation, EndsOnSizesOfAnyKind)
{
    dense2D<unsigned> chain(2, spokes);
    for (unsigned c = 0; c < spokes; ++c)
        for (unsigned r = 0; r < 2; ++r) chain(r, c) = c + r;
    const auto pos = on_a_line(spokes + 1, [](unsigned node) { return node; });
    const auto limited = [&](auto&& size_of) {
        dense1D<double> sizes(spokes + 1);
        for (unsigned k = 0; k <= spokes; ++k) sizes[k] = size_of(k);
        return bound_metric_gradations(pos, chain, ELEM_BAR2, {}, true, -1, 0.2, sizes);
    };
    EXPECT_EQ(limited([](unsigned) { return 1.0; }), 0);
    EXPECT_EQ(limited([](unsigned k) { return 5e-324 * (1 + k % 1000); }), 0);
    // The way from one to the other is longer than the digits of the larger one, so no valid size comes out of a move.
    EXPECT_EQ(limited([](unsigned k) { return k % 2 ? 1e300 : 1.0; }), 0);
    EXPECT_GT(limited([](unsigned k) { return std::ldexp(1.0, static_cast<int>(k * 37 % 2000) - 1000); }), 0);
    EXPECT_EQ(limited([](unsigned k) { return k % 3 ? 1.0 : nan; }), 0);
}

TEST(HostileQuality, MeasuresAStar)
{
    const auto pos = hub_and_rim();
    const auto bars = spokes_from_the_hub();
    auxkit::histogram lengths;
    EXPECT_EQ(edge_qualities(pos, bars, ELEM_BAR2, dense1D<double>(spokes + 1, 0.5), lengths, {}), static_cast<int>(spokes));
    EXPECT_NEAR(lengths.mean(), 2.0, 1e-9);
    auxkit::histogram of_the_rest;
    EXPECT_EQ(edge_qualities(pos, bars, ELEM_BAR2, dense1D<double>(spokes + 1, 0.5), of_the_rest, bars), 0);
}

TEST(HostileStl, WeldsOneTriangleOverAndOver)
{
    constexpr unsigned count = 250000; // more than two slices
    dense2D<unsigned> pile(3, count);
    for (unsigned c = 0; c < count; ++c)
        for (unsigned r = 0; r < 3; ++r) pile(r, c) = r;
    const test::temporary_file file(".stl");
    ASSERT_EQ(STL_output(file.name(), test::points_of({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), pile, false), 0);
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
    ASSERT_EQ(STL_input(file.name(), pos, connectivity), 0);
    EXPECT_EQ(pos.cols, 3u);
    EXPECT_EQ(connectivity.cols, count);
    EXPECT_EQ(max_ID(connectivity), 2u);
}

TEST(HostileMeshes, OfTwoNodesPassEverywhere)
{
    const auto pos = test::points_of({{0, 0, 0}, {1, 0, 0}});
    const auto bar = test::elements_of({{0, 1}});
    dense2D<unsigned> neighbors, boundaries, edges;
    EXPECT_EQ(get_neighbors(bar, ELEM_BAR2, false, neighbors), 0);
    EXPECT_EQ(get_mesh_boundaries(bar, neighbors, ELEM_BAR2, boundaries), 0);
    EXPECT_EQ(test::columns(boundaries), (std::vector<std::vector<unsigned>>{{1}, {0}}));
    EXPECT_EQ(copy_edges(bar, ELEM_BAR2, edges), 0);
    EXPECT_EQ(edges.cols, 1u);
    const node_detector detector(pos);
    EXPECT_EQ(detector.find_closest(0u), 1u);
    dense1D<double> sizes(2, 1.0);
    sizes[1] = 4.0;
    EXPECT_EQ(bound_metric_gradations(pos, bar, ELEM_BAR2, {}, true, -1, 0.0, sizes), 1);
    EXPECT_EQ(sizes[1], 1.0);
    dense1D<double> values;
    EXPECT_EQ(shape_qualities(pos, bar, ELEM_BAR2, values), 0);
    EXPECT_EQ(jacobians(pos, bar, ELEM_BAR2, values), 0);
    EXPECT_EQ(values[0], 0.5);
    dense1D<unsigned> new_ids;
    auto merged = bar;
    EXPECT_EQ(merge(pos, merged, new_ids, 1.0, 1), 1);
    EXPECT_EQ(remove_degenerated(merged, true), 1);
}

} // namespace
