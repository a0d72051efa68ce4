#include "gridweave/connectivity/node_graph.h"

#include <algorithm>

#include <gtest/gtest.h>

#include <tq4/gridweave/connectivity.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::ids_of;
using test::list;

using uints = std::vector<unsigned>;

struct graph
{
    dense1D<unsigned> first, list;

    uints of(unsigned node) const { return {list.begin() + first[node], list.begin() + first[node + 1]}; }
};

graph elements_around(const dense2D<unsigned>& connectivity)
{
    graph g;
    EXPECT_EQ(get_connected_elements(connectivity, g.first, g.list), 0);
    return g;
}

graph nodes_around(const dense2D<unsigned>& connectivity)
{
    graph g;
    EXPECT_EQ(get_node_graph(connectivity, g.first, g.list), 0);
    return g;
}

unsigned covered_nodes(const dense2D<unsigned>& connectivity)
{
    unsigned count = 1;
    for (const auto& column : test::columns(connectivity))
        for (const unsigned node : column)
            if (node != none_index) count = std::max(count, node + 1);
    return count;
}

/// Both forms by the obvious searches.
void expect_graphs_of(const dense2D<unsigned>& connectivity)
{
    const graph elements = elements_around(connectivity);
    const graph nodes = nodes_around(connectivity);
    const unsigned count = covered_nodes(connectivity);
    ASSERT_EQ(elements.first.size, count + 1);
    ASSERT_EQ(nodes.first.size, count + 1);
    EXPECT_EQ(elements.first[0], 0u);
    EXPECT_EQ(nodes.first[0], 0u);
    EXPECT_EQ(elements.first[count], elements.list.size);
    EXPECT_EQ(nodes.first[count], nodes.list.size);

    const auto columns = test::columns(connectivity);
    for (unsigned n = 0; n < count; ++n)
    {
        uints holders, neighbors;
        for (unsigned e = 0; e < columns.size(); ++e)
        {
            const auto times = std::count(columns[e].begin(), columns[e].end(), n);
            holders.insert(holders.end(), static_cast<std::size_t>(times), e);
            if (times == 0) continue;
            for (const unsigned m : columns[e])
                if (m != n && m != none_index && std::find(neighbors.begin(), neighbors.end(), m) == neighbors.end())
                    neighbors.push_back(m);
        }
        EXPECT_EQ(elements.of(n), holders) << n;
        EXPECT_EQ(nodes.of(n), neighbors) << n;
    }
}

TEST(NodeGraph, EmptyConnectivityHasOneStart)
{
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(3, 0), dense2D<unsigned>(0, 5)})
    {
        graph g{ids_of({7, 8}), ids_of({9})};
        EXPECT_EQ(get_connected_elements(empty, g.first, g.list), 0);
        EXPECT_EQ(list(g.first), (uints{0}));
        EXPECT_TRUE(g.list.empty());

        g = {ids_of({7, 8}), ids_of({9})};
        EXPECT_EQ(get_node_graph(empty, g.first, g.list), 0);
        EXPECT_EQ(list(g.first), (uints{0}));
        EXPECT_TRUE(g.list.empty());
    }
}

TEST(NodeGraph, NoneEntriesCoverOneEmptyNode)
{
    const dense2D<unsigned> connectivity(3, 2, none_index);
    for (const graph& g : {elements_around(connectivity), nodes_around(connectivity)})
    {
        EXPECT_EQ(list(g.first), (uints{0, 0}));
        EXPECT_TRUE(g.list.empty());
    }
}

TEST(NodeGraph, SingleElementConnectsAllItsNodes)
{
    const graph g = nodes_around(elements_of({{0, 1, 2}}));
    EXPECT_EQ(list(g.first), (uints{0, 2, 4, 6}));
    EXPECT_EQ(list(g.list), (uints{1, 2, 0, 2, 0, 1}));
}

TEST(NodeGraph, OrderIsThatOfFirstEncounter)
{
    const auto connectivity = elements_of({{0, 1, 2}, {2, 1, 3}});
    EXPECT_EQ(elements_around(connectivity).of(1), (uints{0, 1}));
    EXPECT_EQ(nodes_around(connectivity).of(1), (uints{0, 2, 3}));
    EXPECT_EQ(nodes_around(connectivity).of(3), (uints{2, 1}));
}

TEST(NodeGraph, RepeatedNodeListsItsElementTwiceButIsNoNeighborOfItself)
{
    const auto connectivity = elements_of({{4, 1, 4}});
    EXPECT_EQ(elements_around(connectivity).of(4), (uints{0, 0}));
    EXPECT_EQ(nodes_around(connectivity).of(4), (uints{1}));
    EXPECT_EQ(nodes_around(connectivity).of(1), (uints{4}));
}

TEST(NodeGraph, UnusedNodesBelowTheLargestHaveEmptyRanges)
{
    const auto connectivity = elements_of({{5, 2}});
    EXPECT_EQ(list(elements_around(connectivity).first), (uints{0, 0, 0, 1, 1, 1, 2}));
    EXPECT_EQ(list(nodes_around(connectivity).first), (uints{0, 0, 0, 1, 1, 1, 2}));
}

TEST(NodeGraph, FormerContentsAreDropped)
{
    graph g{ids_of({7, 7, 7, 7, 7, 7, 7, 7}), ids_of({9, 9, 9, 9, 9, 9, 9, 9})};
    ASSERT_EQ(get_connected_elements(elements_of({{1, 2}}), g.first, g.list), 0);
    EXPECT_EQ(list(g.first), (uints{0, 0, 1, 2}));
    EXPECT_EQ(list(g.list), (uints{0, 0}));
    ASSERT_EQ(get_node_graph(elements_of({{1, 2}}), g.first, g.list), 0);
    EXPECT_EQ(list(g.first), (uints{0, 0, 1, 2}));
    EXPECT_EQ(list(g.list), (uints{2, 1}));
}

TEST(NodeGraph, AgreesWithSearchOnAllMeshes)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        expect_graphs_of(m.connectivity);
        expect_graphs_of(test::shuffled(m, 5).connectivity);
        expect_graphs_of(test::non_dense(m.connectivity, 1000u));
    }
}

TEST(NodeGraph, AgreesWithSearchOnRandomColumnsWithRepeatsAndHoles)
{
    test::random_source random(11);
    for (unsigned round = 0; round < 200; ++round)
    {
        dense2D<unsigned> connectivity(1 + random.below(10), 1 + random.below(12));
        for (unsigned c = 0; c < connectivity.cols; ++c)
            for (unsigned r = 0; r < connectivity.rows; ++r) connectivity(r, c) = random.below(5) ? random.below(9) : none_index;
        expect_graphs_of(connectivity);
        expect_graphs_of(test::non_dense(connectivity, 3u));
    }
}

TEST(NodeGraph, AgreesWithSearchWhereFewColumnsHoldTheLargestNodes)
{
    test::random_source random(12);
    dense2D<unsigned> connectivity(3, 700);
    for (unsigned c = 0; c < connectivity.cols; ++c)
        for (unsigned r = 0; r < connectivity.rows; ++r) connectivity(r, c) = random.below(20) ? random.below(50) : none_index;
    for (unsigned k = 0; k < 40; ++k) connectivity(random.below(3), 1 + random.below(698)) = 100 + 30 * k;
    expect_graphs_of(connectivity);
    expect_graphs_of(test::non_dense(connectivity, 5000u));

    graph g;
    for (const unsigned node : {none_index - 1, none_index - 2, none_index})
    {
        connectivity(1, 2) = node;
        EXPECT_EQ(get_connected_elements(connectivity, g.first, g.list), node == none_index ? 0 : -199);
        EXPECT_EQ(g.first.empty(), node != none_index);
    }
}

TEST(NodeGraph, IndicesBeyondThirtyTwoBitCountsAreOutOfMemory)
{
    for (const unsigned node : {none_index - 1, none_index - 2})
    {
        graph g{ids_of({1}), ids_of({1})};
        EXPECT_EQ(get_connected_elements(elements_of({{0, node}}), g.first, g.list), -199);
        EXPECT_TRUE(g.first.empty());
        EXPECT_TRUE(g.list.empty());

        g = {ids_of({1}), ids_of({1})};
        EXPECT_EQ(get_node_graph(elements_of({{0, node}}), g.first, g.list), -199);
        EXPECT_TRUE(g.first.empty());
        EXPECT_TRUE(g.list.empty());
    }
}

TEST(NodeGraph, BuilderKeepsStartsBelowTheSmallestNodeWhenNotClearing)
{
    graph g{ids_of({41, 42, 43, 44, 45, 46, 47, 48}), {}};
    ASSERT_EQ(build_node_elements(elements_of({{2, 4}}), g.first, g.list, false), 0);
    EXPECT_EQ(list(g.first), (uints{41, 42, 0, 1, 1, 2}));
    EXPECT_EQ(list(g.list), (uints{0, 0}));
}

TEST(NodeGraph, MemoryFailureLeavesOutputsEmpty)
{
    using function = int (*)(const dense2D<unsigned>&, dense1D<unsigned>&, dense1D<unsigned>&);
    struct call
    {
        function f;
        dense2D<unsigned> connectivity;
        unsigned least_failures;
    };
    const auto grid = test::grid_of_triangles(3).connectivity;
    const dense2D<unsigned> nothing(3, 0);
    for (const auto& [f, connectivity, least_failures] : {call{&get_connected_elements, grid, 2}, call{&get_node_graph, grid, 5},
                                                          call{&get_connected_elements, nothing, 1}, call{&get_node_graph, nothing, 2}})
        for (const bool only_once : {false, true})
        {
            unsigned failures = 0;
            bool refused = true;
            for (unsigned n = 1; refused; ++n)
            {
                graph g;
                const long before = test::live_allocations();
                const unsigned long asked = test::allocation_count();
                const test::failing_allocation failing(n, only_once);
                const int code = f(connectivity, g.first, g.list);
                refused = failing.has_failed();
                // A single refusal may be made good by less.
                EXPECT_EQ(code, refused && (!only_once || code != 0) ? -199 : 0);
                if (code == 0) continue;
                ++failures;
                EXPECT_TRUE(g.first.empty());
                EXPECT_TRUE(g.list.empty());
                EXPECT_EQ(test::live_allocations(), before);
                // Nothing more is asked for: what a failure leaves is nothing to build on.
                EXPECT_TRUE(!only_once || test::allocation_count() == asked + n) << n;
            }
            EXPECT_GE(failures + only_once, least_failures);
        }
}

TEST(Ancestors, HighestElementWins)
{
    dense2D<unsigned> connectivity(2, 9);
    for (unsigned e = 0; e < 9; ++e) connectivity(0, e) = connectivity(1, e) = e;
    connectivity(0, 3) = connectivity(1, 7) = 20;
    dense1D<unsigned> ancestors;
    ASSERT_EQ(get_ancestors(connectivity, ancestors), 0);
    ASSERT_EQ(ancestors.size, 21u);
    EXPECT_EQ(ancestors[20], 7u);
    EXPECT_EQ(ancestors[3], 3u);
    EXPECT_EQ(ancestors[9], none_index);
}

TEST(Ancestors, EmptyConnectivityChangesNothing)
{
    auto ancestors = ids_of({4, 5});
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(3, 0), dense2D<unsigned>(0, 5)})
        EXPECT_EQ(get_ancestors(empty, ancestors), 0);
    EXPECT_EQ(list(ancestors), (uints{4, 5}));
}

TEST(Ancestors, GivenVectorKeepsItsSizeAndItsUnconnectedEntries)
{
    auto ancestors = ids_of({40, 41, 42});
    ASSERT_EQ(get_ancestors(elements_of({{1, none_index}, {3, 9}}), ancestors), 0);
    EXPECT_EQ(list(ancestors), (uints{40, 0, 42}));
}

TEST(Ancestors, NoneEntriesAloneGiveOneNone)
{
    dense1D<unsigned> ancestors;
    ASSERT_EQ(get_ancestors(dense2D<unsigned>(2, 2, none_index), ancestors), 0);
    EXPECT_EQ(list(ancestors), (uints{none_index}));
}

TEST(Ancestors, NonDenseConnectivityGivesTheSame)
{
    const auto m = test::mixed_solid(2);
    dense1D<unsigned> dense, sparse;
    ASSERT_EQ(get_ancestors(m.connectivity, dense), 0);
    ASSERT_EQ(get_ancestors(test::non_dense(m.connectivity, 3000u), sparse), 0);
    EXPECT_EQ(list(dense), list(sparse));
}

TEST(Ancestors, MemoryFailureIsReported)
{
    const auto connectivity = elements_of({{0, 1, 2}});
    dense1D<unsigned> ancestors;
    test::failing_allocation failing(1);
    EXPECT_EQ(get_ancestors(connectivity, ancestors), -199);
    EXPECT_TRUE(ancestors.empty());
}

} // namespace
