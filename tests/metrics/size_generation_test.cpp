#include <gtest/gtest.h>

#include <utility>

#include <tq4/gridweave/metrics.h>

#include "metrics/tensors.h"
#include "support/failing_allocator.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

using edge_rows = std::vector<std::pair<unsigned, unsigned>>;

const edge_rows& edges_of(unsigned corners)
{
    static const edge_rows by_corners[] = {
        {},
        {},
        {{0, 1}},
        {{1, 2}, {2, 0}, {0, 1}},
        {{1, 2}, {2, 0}, {0, 1}, {0, 3}, {1, 3}, {2, 3}},
        {{0, 4}, {1, 4}, {2, 4}, {3, 4}, {0, 1}, {1, 2}, {2, 3}, {3, 0}},
        {{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4}},
        {},
        {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}}};
    return by_corners[corners];
}

const edge_rows quadrangle_edges{{0, 1}, {1, 2}, {2, 3}, {3, 0}};

/// The sizes by the definition, in the order that their sums run.
std::vector<double> reference_sizes(const mesh& m, std::vector<double> sizes, double p)
{
    sizes.resize(std::max<std::size_t>(sizes.size(), m.pos.cols), 0.0);
    std::vector<unsigned> counts(sizes.size(), 0);
    for (unsigned c = 0; c < m.connectivity.cols; ++c)
    {
        unsigned corners = 0;
        while (corners < m.connectivity.rows && m.connectivity(corners, c) != none_index) ++corners;
        const bool surface = element_dim(m.kind) == 2;
        for (const auto& [first, second] : surface&& corners == 4 ? quadrangle_edges : edges_of(corners))
        {
            const unsigned ends[] = {m.connectivity(first, c), m.connectivity(second, c)};
            double squared = 0;
            for (unsigned r = 0; r < m.pos.rows; ++r)
            {
                const double difference = m.pos(r, ends[1]) - m.pos(r, ends[0]);
                squared += difference * difference;
            }
            const double d = std::sqrt(squared);
            if (d == 0.0 || !std::isfinite(d)) continue;
            for (const unsigned v : ends)
            {
                if (counts[v]++ == 0) sizes[v] = p <= 0 ? largest : 0.0;
                if (p == 0)
                    sizes[v] = std::min(sizes[v], d);
                else if (p == largest)
                    sizes[v] = std::max(sizes[v], d);
                else
                    sizes[v] += std::pow(d, p);
            }
        }
    }
    for (std::size_t v = 0; v < sizes.size(); ++v)
        if (counts[v] != 0 && 0 < p && p < largest) sizes[v] = std::pow(sizes[v] / counts[v], 1 / p);
    return sizes;
}

std::vector<double> generated(const mesh& m, double p)
{
    dense1D<double> sizes;
    EXPECT_EQ(metrics_gen_iso(m.pos, m.connectivity, m.kind, sizes, p), 0);
    return list(sizes);
}

const mesh& square_of_two()
{
    static const mesh m = grid_of_triangles(1); // triangles (0, 1, 3) and (0, 3, 2): the diagonal joins nodes 0 and 3
    return m;
}

void jitter(mesh& m, std::uint32_t seed)
{
    random_source random(seed);
    for (unsigned c = 0; c < m.pos.cols; ++c)
        for (unsigned r = 0; r < m.pos.rows; ++r) m.pos(r, c) += random.between(-0.1, 0.1);
}

} // namespace

TEST(SizeGeneration, TakesTheShortestOrTheLongestEdge)
{
    EXPECT_EQ(generated(square_of_two(), 0), (std::vector<double>{1, 1, 1, 1}));
    EXPECT_EQ(generated(square_of_two(), -0.0), (std::vector<double>{1, 1, 1, 1}));
    const double diagonal = std::sqrt(2.0);
    EXPECT_EQ(generated(square_of_two(), largest), (std::vector<double>{diagonal, 1, 1, diagonal}));
}

TEST(SizeGeneration, CountsAnInnerEdgeOnceForEachElement)
{
    const double mean = (1 + 1 + 2 * std::sqrt(2.0)) / 4;
    const auto sizes = generated(square_of_two(), 1);
    EXPECT_DOUBLE_EQ(sizes[0], mean);
    EXPECT_DOUBLE_EQ(sizes[3], mean);
    EXPECT_EQ(sizes[1], 1.0);
    EXPECT_EQ(sizes[2], 1.0);
    EXPECT_DOUBLE_EQ(generated(square_of_two(), 2)[0], std::sqrt((1 + 1 + 2 + 2) / 4.0));
}

TEST(SizeGeneration, EqualsTheDefinitionOnAllKinds)
{
    std::uint32_t seed = 1;
    for (mesh& m : all_linear_meshes(3))
    {
        jitter(m, ++seed);
        mesh random = shuffled(m, ++seed);
        for (const double p : {0.0, 0.5, 1.0, 2.0, 3.0, 17.0, 1e-300, 1e300, largest})
            EXPECT_EQ(generated(random, p), reference_sizes(random, {}, p)) << "kind " << m.kind << ", p " << p;
        random.pos = non_dense(random.pos, nan);
        random.connectivity = non_dense(random.connectivity, 0u);
        EXPECT_EQ(generated(random, 1), reference_sizes(random, {}, 1)) << "kind " << m.kind;
    }
}

TEST(SizeGeneration, NarrowsAMixedKindByItsRows)
{
    for (mesh& m : all_linear_meshes(2))
    {
        const auto plain = generated(m, 1);
        if (m.kind == ELEM_TRIA3 || m.kind == ELEM_QUAD4) m.kind = ELEM_SURF_ANY;
        if (element_dim(m.kind) == 3) m.kind = ELEM_SOLID_ANY;
        EXPECT_EQ(generated(m, 1), plain);
    }
}

TEST(SizeGeneration, AddsLengthsThemselvesForTheArithmeticMean)
{
    // The first power is exact, so it may be left out.
    random_source random(4);
    for (unsigned t = 0; t < 200000; ++t)
    {
        const double d = random_magnitude(random, -300, 300);
        ASSERT_EQ(std::pow(d, 1.0), d);
    }
}

TEST(SizeGeneration, KeepsSizesOfNodesWithoutEdges)
{
    const dense2D<double> pos = points_of({{0, 0}, {1, 0}, {0, 1}, {5, 5}, {0, 0}, {0, 0}});
    // Nodes 0, 4 and 5 coincide: the second triangle has no edge of positive length, the third gives some to node 5.
    const dense2D<unsigned> connectivity = elements_of({{0, 1, 2}, {4, 4, 4}, {5, 1, 0}});
    dense1D<double> sizes = vector_of({9.0, 9.0, 9.0, 9.0, 9.0});
    EXPECT_EQ(metrics_gen_iso(pos, connectivity, ELEM_TRIA3, sizes, 0), 0);
    EXPECT_EQ(list(sizes), (std::vector<double>{1, 1, 1, 9, 9, 1}));
    sizes = vector_of({9.0, 9.0, 9.0});
    EXPECT_EQ(metrics_gen_iso(pos, connectivity, ELEM_TRIA3, sizes, largest), 0);
    EXPECT_EQ(list(sizes), (std::vector<double>{1, std::sqrt(2.0), std::sqrt(2.0), 0, 0, 1}));
    // Longer than the mesh: what is beyond it stays.
    sizes = vector_of({9.0, 9.0, 9.0, 9.0, 9.0, 9.0, 7.0, 8.0});
    EXPECT_EQ(metrics_gen_iso(pos, connectivity, ELEM_TRIA3, sizes, 3), 0);
    EXPECT_EQ(sizes.size, 8u);
    EXPECT_EQ(sizes[3], 9.0);
    EXPECT_EQ(sizes[6], 7.0);
    EXPECT_EQ(sizes[7], 8.0);
    EXPECT_EQ(sizes[5], 1.0);
}

TEST(SizeGeneration, SkipsEdgesThatCannotBeMeasured)
{
    const dense2D<unsigned> chain = elements_of({{0, 1}, {1, 2}, {2, 3}, {3, 4}});
    for (const double broken : {nan, infinity, -infinity, 1e200})
    {
        const dense2D<double> pos = points_of({{0, 0}, {1, 0}, {broken, 0}, {5, 0}, {7, 0}});
        dense1D<double> sizes = vector_of({9.0, 9.0, 9.0});
        EXPECT_EQ(metrics_gen_iso(pos, chain, ELEM_BAR2, sizes, 1), 0);
        EXPECT_EQ(list(sizes), (std::vector<double>{1, 1, 9, 2, 2})) << broken;
    }
}

TEST(SizeGeneration, MeasuresOverAllCoordinateRows)
{
    const dense2D<unsigned> bar = elements_of({{0, 1}});
    for (unsigned rows = 1; rows <= 5; ++rows)
    {
        dense2D<double> pos(rows, 2, 0.0);
        for (unsigned r = 0; r < rows; ++r) pos(r, 1) = 2;
        dense1D<double> sizes;
        EXPECT_EQ(metrics_gen_iso(pos, bar, ELEM_BAR2, sizes, 0), 0);
        EXPECT_EQ(list(sizes), std::vector<double>(2, std::sqrt(4.0 * rows)));
    }
}

TEST(SizeGeneration, TakesNoRootOfAnInfiniteOrNaNPower)
{
    const dense2D<double> pos = points_of({{0, 0}, {0.5, 0}, {1.5, 0}, {5, 0}});
    const dense2D<unsigned> chain = elements_of({{0, 1}, {1, 2}, {2, 3}});
    dense1D<double> sizes;
    EXPECT_EQ(metrics_gen_iso(pos, chain, ELEM_BAR2, sizes, infinity), 0);
    EXPECT_EQ(list(sizes), (std::vector<double>{0, 1, infinity, infinity}));
    EXPECT_EQ(metrics_gen_iso(pos, chain, ELEM_BAR2, sizes, nan), 0);
    for (unsigned node : {0u, 3u}) EXPECT_TRUE(std::isnan(sizes[node]));
}

TEST(SizeGeneration, TestsItsArgumentsInOrder)
{
    const dense2D<double> plane = points_of({{0, 0}, {1, 0}, {0, 1}, {1, 1}});
    const dense2D<unsigned> triangle = elements_of({{0, 1, 2}});
    const dense2D<unsigned> stray = elements_of({{0, 1, 4}});
    const dense2D<unsigned> tetrahedron = elements_of({{0, 1, 2, 9}});
    const dense2D<unsigned> quadratic = elements_of({{0, 1, 2, 0, 1, 2}});
    const dense2D<unsigned> single = elements_of({{0}});
    const dense2D<unsigned> bar = elements_of({{0, 1}});
    dense1D<double> sizes = vector_of({9.0});
    const auto untouched = [&] { return list(sizes) == std::vector<double>{9.0}; };

    EXPECT_EQ(metrics_gen_iso(plane, dense2D<unsigned>(), ELEM_TETRA4, sizes, -1), 0);
    EXPECT_EQ(metrics_gen_iso(plane, dense2D<unsigned>(3, 0), ELEM_TRIA6, sizes, -1), 0);
    EXPECT_EQ(metrics_gen_iso(plane, tetrahedron, ELEM_TETRA4, sizes, -1), -1);
    EXPECT_EQ(metrics_gen_iso(plane, tetrahedron, ELEM_SOLID_ANY, sizes, -1), -1);
    EXPECT_EQ(metrics_gen_iso(dense2D<double>(), triangle, ELEM_TRIA3, sizes, -1), -1);
    EXPECT_EQ(metrics_gen_iso(plane, stray, ELEM_TRIA3, sizes, -1), -2);
    EXPECT_EQ(metrics_gen_iso(plane, triangle, ELEM_QUAD4, sizes, 1), -2);
    EXPECT_EQ(metrics_gen_iso(plane, triangle, ELEM_NONE, sizes, 1), -2);
    EXPECT_EQ(metrics_gen_iso(plane, quadratic, ELEM_TRIA6, sizes, -1), -5);
    EXPECT_EQ(metrics_gen_iso(plane, triangle, ELEM_TRIA3, sizes, -infinity), -5);
    EXPECT_TRUE(untouched());

    // A kind without an instance is found out last, when the sizes have grown.
    EXPECT_EQ(metrics_gen_iso(plane, quadratic, ELEM_TRIA6, sizes, 1), -3);
    EXPECT_EQ(list(sizes), (std::vector<double>{9, 0, 0, 0}));
    EXPECT_EQ(metrics_gen_iso(plane, single, ELEM_NODE, sizes, 1), -3);
    EXPECT_EQ(metrics_gen_iso(plane, bar, ELEM_BAR_ANY, sizes, nan), -3);
    EXPECT_EQ(metrics_gen_iso(plane, elements_of({{0, 1, 2}}), ELEM_BAR3, sizes, 1), -3);
}

TEST(SizeGeneration, ReportsEveryFailureOfMemory)
{
    const mesh m = grid_of_triangles(4);
    const auto expected = generated(m, 1);
    const long live = live_allocations();
    for (unsigned n = 1;; ++n)
    {
        dense1D<double> sizes;
        failing_allocation failing(n);
        const int result = metrics_gen_iso(m.pos, m.connectivity, m.kind, sizes, 1);
        if (!failing.has_failed())
        {
            EXPECT_EQ(n, 3u);
            EXPECT_EQ(result, 0);
            EXPECT_EQ(list(sizes), expected);
            break;
        }
        ASSERT_EQ(result, out_of_memory);
        EXPECT_EQ(sizes.size, n == 1 ? 0u : m.pos.cols);
    }
    EXPECT_EQ(live_allocations(), live);
}

} // namespace tq4::gridweave
