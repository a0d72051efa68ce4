#include "gridweave/connectivity/edges.h"

#include <algorithm>
#include <array>

#include <gtest/gtest.h>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/kinds.h"
#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;

using uints = std::vector<unsigned>;
using table = std::vector<uints>;
using pairs = std::vector<edge>;
constexpr unsigned none = none_index;

table edges_of(const dense2D<unsigned>& connectivity, element_type kind)
{
    dense2D<unsigned> edges;
    EXPECT_EQ(copy_edges(connectivity, kind, edges), 0);
    return columns(edges);
}

/// All pairs sorted, repeats removed.
pairs sorted_edges(const dense2D<unsigned>& connectivity, element_type kind, pairs all = {})
{
    for_each_element(edge_topology(narrow(kind, connectivity.rows)), connectivity, [&](auto shape, unsigned, const unsigned* nodes) {
        for (const local_edge& local : decltype(shape)::edges) all.emplace_back(std::minmax(nodes[local.a], nodes[local.b]));
    });
    std::sort(all.begin(), all.end());
    all.erase(std::unique(all.begin(), all.end()), all.end());
    return all;
}

table as_columns(const pairs& edges)
{
    table out;
    for (const auto& [low, high] : edges) out.push_back({low, high});
    return out;
}

/// One element of a kind with the nodes 0, 1, 2, …
dense2D<unsigned> single(element_type kind)
{
    dense2D<unsigned> connectivity(nbr_nodes(kind), 1);
    for (unsigned r = 0; r < connectivity.rows; ++r) connectivity(r, 0) = r;
    return connectivity;
}

TEST(Edges, TriangleGivesItsEdgesInAscendingOrder)
{
    EXPECT_EQ(edges_of(elements_of({{5, 2, 9}}), ELEM_TRIA3), (table{{2, 5}, {2, 9}, {5, 9}}));
}

TEST(Edges, CommonEdgeStandsOnce)
{
    EXPECT_EQ(edges_of(elements_of({{0, 1, 2}, {2, 1, 3}}), ELEM_TRIA3), (table{{0, 1}, {0, 2}, {1, 2}, {1, 3}, {2, 3}}));
}

TEST(Edges, EveryKindGivesTheEdgesOfItsCorners)
{
    const table triangle{{0, 1}, {0, 2}, {1, 2}}, quadrangle{{0, 1}, {0, 3}, {1, 2}, {2, 3}};
    const table tetrahedron{{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 3}, {2, 3}};
    const table pyramid{{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 4}, {2, 3}, {2, 4}, {3, 4}};
    const table wedge{{0, 1}, {0, 2}, {0, 3}, {1, 2}, {1, 4}, {2, 5}, {3, 4}, {3, 5}, {4, 5}};
    const table hexahedron{{0, 1}, {0, 3}, {0, 4}, {1, 2}, {1, 5}, {2, 3}, {2, 6}, {3, 7}, {4, 5}, {4, 7}, {5, 6}, {6, 7}};
    EXPECT_EQ(edges_of(single(ELEM_BAR2), ELEM_BAR2), (table{{0, 1}}));
    EXPECT_EQ(edges_of(single(ELEM_BAR3), ELEM_BAR3), (table{{0, 1}}));
    for (const element_type kind : {ELEM_TRIA3, ELEM_TRIA6}) EXPECT_EQ(edges_of(single(kind), kind), triangle);
    for (const element_type kind : {ELEM_QUAD4, ELEM_QUAD8, ELEM_QUAD9}) EXPECT_EQ(edges_of(single(kind), kind), quadrangle);
    for (const element_type kind : {ELEM_TETRA4, ELEM_TETRA10}) EXPECT_EQ(edges_of(single(kind), kind), tetrahedron);
    for (const element_type kind : {ELEM_PYRA5, ELEM_PYRA14}) EXPECT_EQ(edges_of(single(kind), kind), pyramid);
    for (const element_type kind : {ELEM_PENTA6, ELEM_PENTA18}) EXPECT_EQ(edges_of(single(kind), kind), wedge);
    for (const element_type kind : {ELEM_HEXA8, ELEM_HEXA27}) EXPECT_EQ(edges_of(single(kind), kind), hexahedron);
}

TEST(Edges, SerendipitySolidsAndOtherKindsAddNothing)
{
    for (const element_type kind : {ELEM_PYRA13, ELEM_PENTA15, ELEM_HEXA20, ELEM_NODE, ELEM_BAR_ANY})
        EXPECT_EQ(edges_of(single(kind), kind), table{}) << kind;
}

TEST(Edges, RepeatedNodeGivesAnEdgeToItself)
{
    EXPECT_EQ(edges_of(elements_of({{4, 4, 1}}), ELEM_TRIA3), (table{{1, 4}, {4, 4}}));
}

TEST(Edges, MixedKindsAreNarrowedByRows)
{
    EXPECT_EQ(edges_of(single(ELEM_TRIA3), ELEM_SURF_ANY).size(), 3u);
    EXPECT_EQ(edges_of(single(ELEM_TETRA4), ELEM_SOLID_ANY).size(), 6u);
    EXPECT_EQ(edges_of(single(ELEM_PYRA5), ELEM_SOLID_ANY).size(), 8u);
    EXPECT_EQ(edges_of(single(ELEM_PENTA6), ELEM_SOLID_ANY).size(), 9u);
}

TEST(Edges, MixedColumnsGiveTheEdgesOfTheirShapesInOneList)
{
    const auto connectivity = elements_of({{0, 1, 2, 3, 4, 5, 6, 7},
                                           {10, 11, 12, 13, 14, 15, none, none},
                                           {20, 21, 22, 23, 24, none, none, none},
                                           {30, 31, 32, 33, none, none, none, none}});
    const auto edges = edges_of(connectivity, ELEM_SOLID_ANY);
    EXPECT_EQ(edges.size(), 12u + 9 + 8 + 6);
    EXPECT_EQ(edges, as_columns(sorted_edges(connectivity, ELEM_SOLID_ANY)));
}

TEST(Edges, MeshesAgreeWithSortedPairs)
{
    for (const auto& m : test::all_linear_meshes(3))
        for (const auto& connectivity : {m.connectivity, test::shuffled(m, 2).connectivity})
        {
            EXPECT_EQ(edges_of(connectivity, m.kind), as_columns(sorted_edges(connectivity, m.kind))) << m.kind;
            EXPECT_EQ(edges_of(test::non_dense(connectivity, 0u), m.kind), as_columns(sorted_edges(connectivity, m.kind)));
        }
}

TEST(Edges, RandomNumbersNearAndFarAgreeWithSortedPairs)
{
    test::random_source random(17);
    for (unsigned round = 0; round < 300; ++round)
    {
        const unsigned spread = round % 3 == 0 ? 99999999u : 1u;
        const auto kind = round % 2 ? ELEM_SOLID_ANY : ELEM_QUAD4;
        dense2D<unsigned> connectivity(nbr_nodes(kind), 1 + random.below(30));
        for (unsigned c = 0; c < connectivity.cols; ++c)
        {
            const unsigned nodes = kind == ELEM_QUAD4 ? 4 : std::array<unsigned, 4>{4, 5, 6, 8}[random.below(4)];
            for (unsigned r = 0; r < connectivity.rows; ++r)
                connectivity(r, c) = r < nodes ? (spread == 1 ? random.below(20) : none - 1 - spread * random.below(20)) : none;
        }
        ASSERT_EQ(edges_of(connectivity, kind), as_columns(sorted_edges(connectivity, kind)));
    }
}

TEST(Edges, StarTakesNoQuadraticTime)
{
    constexpr unsigned count = 500000;
    dense2D<unsigned> bars(2, count);
    for (unsigned e = 0; e < count; ++e)
    {
        bars(0, e) = e % 2 ? 0 : count - e;
        bars(1, e) = e % 2 ? count - e : 0;
    }
    const auto edges = edges_of(bars, ELEM_BAR2);
    ASSERT_EQ(edges.size(), count);
    for (unsigned k = 0; k < count; ++k) ASSERT_EQ(edges[k], (uints{0, k + 1}));
}

TEST(Edges, ResultsAreAppendedWithoutComparison)
{
    const auto triangle = elements_of({{5, 2, 9}});
    dense2D<unsigned> edges;
    ASSERT_EQ(copy_edges(triangle, ELEM_TRIA3, edges), 0);
    ASSERT_EQ(copy_edges(triangle, ELEM_TRIA3, edges), 0);
    EXPECT_EQ(columns(edges), (table{{2, 5}, {2, 9}, {5, 9}, {2, 5}, {2, 9}, {5, 9}}));

    auto part = test::non_dense(elements_of({{7, 8}}), 0u);
    ASSERT_EQ(copy_edges(triangle, ELEM_TRIA3, part), 0);
    EXPECT_EQ(columns(part), (table{{7, 8}, {2, 5}, {2, 9}, {5, 9}}));
}

TEST(Edges, MatrixTestsRunInTheirOrder)
{
    dense2D<unsigned> tall(3, 1, 5u), flat(0, 5);
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(7, 0), dense2D<unsigned>(0, 2)})
        EXPECT_EQ(copy_edges(empty, ELEM_TRIA3, tall), 0);
    EXPECT_EQ(copy_edges(elements_of({{0, none, 2}}), ELEM_TRIA3, tall), -1);
    EXPECT_EQ(copy_edges(elements_of({{0, 1}}), ELEM_TRIA3, tall), -1);
    EXPECT_EQ(copy_edges(elements_of({{0, 1, 2}}), ELEM_TRIA3, tall), -3);
    EXPECT_EQ(copy_edges(single(ELEM_HEXA20), ELEM_HEXA20, tall), -3);
    EXPECT_EQ(columns(tall), table{uints(3, 5u)});

    EXPECT_EQ(copy_edges(elements_of({{0, 1, 2}}), ELEM_TRIA3, flat), -199);
    EXPECT_EQ(flat.cols, 5u);
}

TEST(Edges, RangeTestsRunInTheirOrder)
{
    const std::array<dense2D<unsigned>, 2> range{elements_of({{0, 1, 2}}), elements_of({{0, none}})};
    const auto* const first = range.data();
    const auto kinds = test::vector_of<int>({ELEM_TRIA3, ELEM_BAR2});
    const dense1D<int> one_kind(1, ELEM_TRIA3), no_kinds;
    dense2D<unsigned> tall(3, 1, 5u), edges;
    EXPECT_EQ(copy_edges(first, first, one_kind, tall), 0);
    EXPECT_EQ(copy_edges(first + 1, first, no_kinds, tall), -2);
    EXPECT_EQ(copy_edges(first, first + 2, one_kind, tall), -3);
    EXPECT_EQ(copy_edges(first, first + 2, kinds, tall), -4);
    EXPECT_EQ(copy_edges(first, first + 2, kinds, edges), -1);
    EXPECT_EQ(edges.cols, 0u);
    EXPECT_EQ(columns(tall), table{uints(3, 5u)});
}

TEST(Edges, MatricesOfARangeShareTheirEdges)
{
    const std::array<dense2D<unsigned>, 4> range{elements_of({{5, 2, 9}}), dense2D<unsigned>(), elements_of({{9, 5}, {7, 9}}),
                                                 single(ELEM_HEXA20)};
    const auto kinds = test::vector_of<int>({ELEM_TRIA3, ELEM_QUAD4, ELEM_BAR2, ELEM_HEXA20});
    dense2D<unsigned> edges;
    ASSERT_EQ(copy_edges(range.data(), range.data() + 4, kinds, edges), 0);
    EXPECT_EQ(columns(edges), (table{{2, 5}, {2, 9}, {5, 9}, {7, 9}}));
}

TEST(Edges, RangeOfOneIsTheMatrix)
{
    const auto m = test::mixed_solid(2);
    dense2D<unsigned> edges;
    ASSERT_EQ(copy_edges(&m.connectivity, &m.connectivity + 1, dense1D<int>(1, m.kind), edges), 0);
    EXPECT_EQ(columns(edges), edges_of(m.connectivity, m.kind));
}

TEST(Edges, NoRoomInTheResultIsReportedAndAFailedGatheringIsNot)
{
    const auto m = test::grid_of_triangles(3);
    const long before = test::live_allocations();
    for (const unsigned n : {1u, 2u, 3u})
    {
        dense2D<unsigned> edges = elements_of({{7, 8}});
        test::failing_allocation failing(n);
        EXPECT_EQ(copy_edges(m.connectivity, m.kind, edges), 0);
        EXPECT_TRUE(failing.has_failed());
        EXPECT_EQ(columns(edges), (table{{7, 8}}));
    }
    {
        dense2D<unsigned> edges = elements_of({{7, 8}});
        test::failing_allocation failing(4);
        EXPECT_EQ(copy_edges(m.connectivity, m.kind, edges), -199);
        EXPECT_EQ(columns(edges), (table{{7, 8}}));
    }
    {
        dense2D<unsigned> edges;
        test::failing_allocation failing(5);
        EXPECT_EQ(copy_edges(m.connectivity, m.kind, edges), 0);
        EXPECT_FALSE(failing.has_failed());
    }
    EXPECT_EQ(test::live_allocations(), before);
}

pairs contents(const edge_list& edges)
{
    return pairs(edges.begin(), edges.end());
}

TEST(EdgeList, GatheringJoinsWhatTheListHolds)
{
    for (const unsigned spread : {1u, 99999999u}) // by buckets and by sorting
    {
        edge_list edges;
        for (const edge& e : pairs{{8, 9}, {2, 9}, {2, 9}, {0, 40}}) edges.push_back({e.first, e.second * spread});
        const auto triangle = elements_of({{5 * spread, 2, 9 * spread}});
        ASSERT_EQ(gather_edges(triangle, ELEM_TRIA3, edges), 0);
        EXPECT_EQ(contents(edges), sorted_edges(triangle, ELEM_TRIA3, {{8, 9 * spread}, {2, 9 * spread}, {0, 40 * spread}}));
        ASSERT_EQ(gather_edges(elements_of({{0, 1}}), ELEM_BAR2, edges), 0);
        EXPECT_EQ(edges.size, 6u);
    }
}

TEST(EdgeList, RangeGathersAllMatrices)
{
    const std::array<dense2D<unsigned>, 2> range{elements_of({{5, 2, 9}}), elements_of({{9, 5}, {7, 9}})};
    edge_list edges;
    gather_edges_range(range.data(), range.data() + 2, test::vector_of<int>({ELEM_TRIA3, ELEM_BAR2}).data(), edges);
    EXPECT_EQ(contents(edges), (pairs{{2, 5}, {2, 9}, {5, 9}, {7, 9}}));
}

TEST(EdgeList, MemoryFailureLeavesTheListAsItWas)
{
    for (const unsigned spread : {1u, 99999999u})
    {
        const auto connectivity = elements_of({{5 * spread, 2, 9 * spread}, {1, 2, 3}});
        int code = -1;
        for (unsigned n = 1; code != 0; ++n)
        {
            edge_list edges;
            edges.push_back({3, 4});
            test::failing_allocation failing(n);
            code = gather_edges(connectivity, ELEM_TRIA3, edges);
            EXPECT_EQ(code, failing.has_failed() ? -199 : 0);
            EXPECT_EQ(contents(edges), code ? (pairs{{3, 4}}) : sorted_edges(connectivity, ELEM_TRIA3, {{3, 4}}));
        }
    }
}

TEST(Edges, MoreColumnsThanCanBeCountedAreRefused)
{
    // All columns of the view are one and the same.
    unsigned column[2] = {7, 8};
    auto edges = dense2D<unsigned>::wrap(column, 2, none_index - 2, 0);
    ASSERT_EQ(edges.cols, none_index - 2);
    EXPECT_EQ(copy_edges(elements_of({{0, 1, 2}}), ELEM_TRIA3, edges), -199);
    EXPECT_EQ(edges.cols, none_index - 2);
    EXPECT_EQ(column[0], 7u);
    EXPECT_EQ(column[1], 8u);
}

} // namespace
