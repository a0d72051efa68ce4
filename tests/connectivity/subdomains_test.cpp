#include <algorithm>
#include <deque>
#include <numeric>

#include <gtest/gtest.h>

#include <tq4/gridweave/connectivity.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;
using test::ids_of;
using test::list;

using uints = std::vector<unsigned>;
using table = std::vector<uints>;
constexpr unsigned none = none_index;

dense2D<unsigned> neighbors_of(const test::mesh& m)
{
    dense2D<unsigned> neighbors;
    EXPECT_EQ(get_neighbors(m.connectivity, m.kind, true, neighbors), 0);
    return neighbors;
}

struct components
{
    dense1D<unsigned> indices, offsets;
};

components subdomains_of(const dense2D<unsigned>& neighbors)
{
    components found{ids_of({7, 7}), ids_of({8, 8, 8})};
    EXPECT_EQ(get_subdomains(neighbors, found.indices, found.offsets), 0);
    return found;
}

/// Breadth-first searches with a queue that holds elements as often as they are met.
void expect_searches_of(const dense2D<unsigned>& neighbors)
{
    const auto links = columns(neighbors);
    std::vector<bool> visited(links.size());
    uints indices, offsets{0};
    for (unsigned start = 0; start < links.size(); ++start)
    {
        if (visited[start]) continue;
        std::deque<unsigned> queue{start};
        while (!queue.empty())
        {
            const unsigned e = queue.front();
            queue.pop_front();
            if (visited[e]) continue;
            visited[e] = true;
            indices.push_back(e);
            for (const unsigned m : links[e])
                if (m < links.size() && !visited[m]) queue.push_back(m);
        }
        offsets.push_back(static_cast<unsigned>(indices.size()));
    }
    const components found = subdomains_of(neighbors);
    EXPECT_EQ(list(found.indices), indices);
    EXPECT_EQ(list(found.offsets), offsets);
}

dense2D<unsigned> random_links(unsigned rows, unsigned cols, test::random_source& random)
{
    dense2D<unsigned> neighbors(rows, cols);
    for (unsigned c = 0; c < cols; ++c)
        for (unsigned r = 0; r < rows; ++r) neighbors(r, c) = random.below(3) == 0 ? random.below(cols + 2) : none;
    return neighbors;
}

TEST(Subdomains, EmptyMatrixHasOneOffset)
{
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(3, 0)})
    {
        const components found = subdomains_of(empty);
        EXPECT_TRUE(found.indices.empty());
        EXPECT_EQ(list(found.offsets), (uints{0}));
    }
}

TEST(Subdomains, IsolatedElementsStandAlone)
{
    for (const auto& isolated : {dense2D<unsigned>(3, 3, none), dense2D<unsigned>(0, 3)})
    {
        const components found = subdomains_of(isolated);
        EXPECT_EQ(list(found.indices), (uints{0, 1, 2}));
        EXPECT_EQ(list(found.offsets), (uints{0, 1, 2, 3}));
    }
}

TEST(Subdomains, ElementsComeInBreadthFirstOrder)
{
    const auto strip = elements_of({{2, none, none}, {2, 3, none}, {none, 0, 1}, {none, none, 1}}); // along the strip 0, 2, 1, 3
    EXPECT_EQ(list(subdomains_of(strip).indices), (uints{0, 2, 1, 3}));
    EXPECT_EQ(list(subdomains_of(strip).offsets), (uints{0, 4}));
}

TEST(Subdomains, LinksBeyondTheMatrixAreIgnored)
{
    const components found = subdomains_of(elements_of({{2, none}, {none - 1, 1000000}}));
    EXPECT_EQ(list(found.indices), (uints{0, 1}));
    EXPECT_EQ(list(found.offsets), (uints{0, 1, 2}));
}

TEST(Subdomains, OneWayLinkLeavesItsSourceToASearchOfItsOwn)
{
    const components found = subdomains_of(elements_of({{none}, {0}}));
    EXPECT_EQ(list(found.indices), (uints{0, 1}));
    EXPECT_EQ(list(found.offsets), (uints{0, 1, 2}));
}

TEST(Subdomains, MeshesAndRandomLinksAgreeWithSearches)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        expect_searches_of(neighbors_of(m));
        expect_searches_of(neighbors_of(test::shuffled(m, 4)));
        expect_searches_of(test::non_dense(neighbors_of(m), 0u));
    }
    test::random_source random(3);
    for (unsigned round = 0; round < 300; ++round) expect_searches_of(random_links(1 + random.below(6), 1 + random.below(60), random));
}

TEST(Subdomains, MemoryFailureLeavesOutputsEmpty)
{
    const auto neighbors = neighbors_of(test::grid_of_triangles(3));
    const long before = test::live_allocations();
    for (unsigned n = 1; n <= 2; ++n) // the marks and the reservation
    {
        components found;
        test::failing_allocation failing(n);
        EXPECT_EQ(get_subdomains(neighbors, found.indices, found.offsets), -199);
        EXPECT_TRUE(found.indices.empty());
        EXPECT_TRUE(found.offsets.empty());
    }
    // Growth of the offsets is not reported.
    components found;
    test::failing_allocation failing(3);
    EXPECT_EQ(get_subdomains(neighbors, found.indices, found.offsets), 0);
    EXPECT_EQ(found.indices.size, 18u);
    EXPECT_TRUE(found.offsets.empty());
    found = components{};
    EXPECT_EQ(test::live_allocations(), before);
}

/// Two strips of triangles, their elements in turns.
test::mesh two_strips()
{
    test::mesh m;
    m.kind = ELEM_TRIA3;
    m.connectivity = elements_of({{0, 1, 2}, {10, 11, 12}, {2, 1, 3}, {12, 11, 13}, {2, 3, 4}});
    return m;
}

TEST(Subdomains, MeshIsReorderedByComponent)
{
    auto m = two_strips();
    auto neighbors = neighbors_of(m);
    dense1D<unsigned> offsets;
    ASSERT_EQ(get_subdomains(m.connectivity, neighbors, offsets), 0);
    EXPECT_EQ(list(offsets), (uints{0, 3, 5}));
    EXPECT_EQ(columns(m.connectivity), (table{{0, 1, 2}, {2, 1, 3}, {2, 3, 4}, {10, 11, 12}, {12, 11, 13}}));
    EXPECT_EQ(columns(neighbors), columns(neighbors_of(m)));
}

TEST(Subdomains, ReorderedNonDenseMeshFitsItsLinks)
{
    for (const auto& plain : test::all_linear_meshes(2))
    {
        auto m = test::shuffled(plain, 6);
        auto neighbors = test::non_dense(neighbors_of(m), 0u);
        m.connectivity = test::non_dense(m.connectivity, 0u);
        dense1D<unsigned> offsets;
        ASSERT_EQ(get_subdomains(m.connectivity, neighbors, offsets), 0);
        EXPECT_EQ(columns(neighbors), columns(neighbors_of(m))) << m.kind;
    }
}

TEST(Subdomains, ReorderingKeepsLinksBeyondTheMatrix)
{
    auto connectivity = elements_of({{0, 1}, {2, 3}, {4, 5}});
    auto neighbors = elements_of({{2, 50}, {none, 60}, {70, 0}});
    dense1D<unsigned> offsets;
    ASSERT_EQ(get_subdomains(connectivity, neighbors, offsets), 0);
    EXPECT_EQ(columns(connectivity), (table{{0, 1}, {4, 5}, {2, 3}}));
    EXPECT_EQ(columns(neighbors), (table{{1, 50}, {70, 0}, {none, 60}}));
}

TEST(Subdomains, DifferentColumnCountsChangeNothing)
{
    auto connectivity = elements_of({{0, 1}, {1, 2}});
    auto neighbors = elements_of({{none, none}});
    auto offsets = ids_of({4, 5});
    EXPECT_EQ(get_subdomains(connectivity, neighbors, offsets), -2);
    EXPECT_EQ(columns(connectivity), (table{{0, 1}, {1, 2}}));
    EXPECT_EQ(columns(neighbors), (table{{none, none}}));
    EXPECT_EQ(list(offsets), (uints{4, 5}));
}

TEST(Subdomains, ReorderingNothingSucceeds)
{
    dense2D<unsigned> connectivity(3, 0), neighbors;
    dense1D<unsigned> offsets;
    EXPECT_EQ(get_subdomains(connectivity, neighbors, offsets), 0);
    EXPECT_EQ(list(offsets), (uints{0}));
}

TEST(Subdomains, MemoryFailureLeavesTheMeshUnchanged)
{
    const long before = test::live_allocations();
    int code = -1;
    for (unsigned n = 1; code != 0; ++n)
    {
        auto m = two_strips();
        auto neighbors = neighbors_of(m);
        const table mesh_before = columns(m.connectivity), links_before = columns(neighbors);
        dense1D<unsigned> offsets(16);
        test::failing_allocation failing(n);
        code = get_subdomains(m.connectivity, neighbors, offsets);
        EXPECT_EQ(code, failing.has_failed() ? -199 : 0);
        EXPECT_EQ(columns(m.connectivity) != mesh_before, code == 0);
        EXPECT_EQ(columns(neighbors) != links_before, code == 0);
    }
    EXPECT_EQ(test::live_allocations(), before);
}

table color_boundaries(const test::mesh& m, const dense1D<unsigned>& colors, bool both_sides)
{
    dense2D<unsigned> boundaries;
    EXPECT_EQ(get_colors_boundaries(m.connectivity, neighbors_of(m), colors, m.kind, both_sides, boundaries), 0);
    return columns(boundaries);
}

test::mesh two_triangles()
{
    return {{}, elements_of({{0, 1, 2}, {2, 1, 3}}), ELEM_TRIA3};
}

TEST(ColorBoundaries, OneColorGivesTheFreeSides)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        dense2D<unsigned> free_sides;
        ASSERT_EQ(get_mesh_boundaries(m.connectivity, neighbors_of(m), m.kind, free_sides), 0);
        const dense1D<unsigned> colors(m.connectivity.cols, none);
        EXPECT_EQ(color_boundaries(m, colors, false), columns(free_sides)) << m.kind;
        EXPECT_EQ(color_boundaries(m, colors, true), columns(free_sides)) << m.kind;
    }
}

TEST(ColorBoundaries, SeparatingSideStandsOnceOrFromBothElements)
{
    // Both of (1, 2) and (2, 1): side 0 of the first and side 2 of the second.
    EXPECT_EQ(color_boundaries(two_triangles(), ids_of({5, 6}), false), (table{{1, 2}, {2, 0}, {0, 1}, {1, 3}, {3, 2}}));
    EXPECT_EQ(color_boundaries(two_triangles(), ids_of({5, 6}), true), (table{{1, 2}, {2, 0}, {0, 1}, {1, 3}, {3, 2}, {2, 1}}));
    EXPECT_EQ(color_boundaries(two_triangles(), ids_of({none, 6}), false).size(), 5u);
}

TEST(ColorBoundaries, EverySelectedSideStandsInItsElementsOrder)
{
    test::random_source random(21);
    for (const auto& m : test::all_linear_meshes(3))
    {
        dense1D<unsigned> colors(m.connectivity.cols);
        for (unsigned& color : colors) color = random.below(2);
        const auto neighbors = neighbors_of(m);
        for (const bool both_sides : {false, true})
        {
            table expected;
            for (unsigned e = 0; e < m.connectivity.cols; ++e)
            {
                dense2D<unsigned> sides;
                ASSERT_EQ(get_element_boundaries(m.connectivity.sub_matrix(0, e, m.connectivity.rows, 1), m.kind, sides), 0);
                for (unsigned s = 0; s < sides.cols; ++s)
                {
                    const unsigned across = neighbors(s, e);
                    const bool separates = across == none || (colors[across] != colors[e] && (both_sides || across > e));
                    if (separates) expected.push_back(columns(sides)[s]);
                }
            }
            EXPECT_EQ(color_boundaries(m, colors, both_sides), expected) << m.kind;
        }
    }
}

TEST(ColorBoundaries, ResultsAreAppended)
{
    const auto m = two_triangles();
    auto boundaries = elements_of({{8, 9}});
    ASSERT_EQ(get_colors_boundaries(m.connectivity, neighbors_of(m), ids_of({1, 1}), m.kind, true, boundaries), 0);
    EXPECT_EQ(columns(boundaries), (table{{8, 9}, {2, 0}, {0, 1}, {1, 3}, {3, 2}}));
}

TEST(ColorBoundaries, TestsRunInTheirOrder)
{
    const auto m = two_triangles();
    const auto good = neighbors_of(m);
    const auto two = ids_of({1, 2});
    dense2D<unsigned> tall(3, 1, 5u), result, none_at_all;

    EXPECT_EQ(get_colors_boundaries(dense2D<unsigned>(9, 0), tall, two, ELEM_TRIA6, true, tall), 0);
    EXPECT_EQ(get_colors_boundaries(dense2D<unsigned>(0, 2), none_at_all, ids_of({}), ELEM_TRIA3, true, tall), -1);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, none_at_all, ids_of({}), ELEM_QUAD4, true, tall), -1);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, dense2D<unsigned>(4, 2, none), ids_of({}), ELEM_TRIA3, true, tall), -2);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, dense2D<unsigned>(3, 1, none), ids_of({}), ELEM_TRIA3, true, tall), -2);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, elements_of({{2, none, none}, {none, none, none}}), ids_of({}), ELEM_TRIA3, true, tall),
              -2);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, good, ids_of({1}), ELEM_TRIA3, true, tall), -3);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, good, ids_of({1, 1, 1}), ELEM_TRIA3, true, result), -3);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, good, two, ELEM_TRIA3, true, tall), -5);

    const dense2D<unsigned> quadratic(6, 2, 0u);
    dense2D<unsigned> pair(2, 1, 5u);
    EXPECT_EQ(get_colors_boundaries(quadratic, good, two, ELEM_TRIA6, true, pair), -5);
    EXPECT_EQ(get_colors_boundaries(quadratic, good, two, ELEM_TRIA6, true, tall), -4);
    EXPECT_EQ(get_colors_boundaries(dense2D<unsigned>(2, 2, 0u), dense2D<unsigned>(2, 2, none), two, ELEM_BAR_ANY, true, result), -4);
    EXPECT_EQ(result.cols, 0u);
    EXPECT_EQ(columns(tall), table{uints(3, 5u)});

    dense2D<unsigned> flat(0, 5);
    EXPECT_EQ(get_colors_boundaries(m.connectivity, good, two, ELEM_TRIA3, true, flat), -199);
}

TEST(ColorBoundaries, MemoryFailureKeepsWhatWasAppended)
{
    const auto m = test::grid_of_quadrangles(4);
    const auto neighbors = neighbors_of(m);
    const dense1D<unsigned> colors(16, 0u);
    const table all = color_boundaries(m, colors, true);
    for (unsigned n = 1;; ++n)
    {
        dense2D<unsigned> boundaries;
        test::failing_allocation failing(n);
        const int code = get_colors_boundaries(m.connectivity, neighbors, colors, m.kind, true, boundaries);
        const table part = columns(boundaries);
        EXPECT_EQ(part, table(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(part.size())));
        EXPECT_EQ(code, failing.has_failed() ? -199 : 0);
        if (!failing.has_failed()) break;
        EXPECT_LT(part.size(), all.size());
    }
}

struct groups
{
    dense1D<unsigned> nodes_per_group, group_ends, old_to_new;
};

TEST(SortElfes, LargerColumnsComeFirstInTheirOrder)
{
    auto connectivity = elements_of({{0, 1, 2, none}, {3, 4, 5, 6}, {7, 8, 9, none}});
    groups g{ids_of({9, 9, 9}), ids_of({9}), ids_of({9, 9})};
    ASSERT_EQ(sort_elfes(connectivity, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
    EXPECT_EQ(columns(connectivity), (table{{3, 4, 5, 6}, {0, 1, 2, none}, {7, 8, 9, none}}));
    EXPECT_EQ(list(g.nodes_per_group), (uints{4, 3}));
    EXPECT_EQ(list(g.group_ends), (uints{1, 3}));
    EXPECT_EQ(list(g.old_to_new), (uints{1, 0, 2}));
}

TEST(SortElfes, ColumnWithoutNodesIsDroppedWithItsLinks)
{
    auto connectivity = elements_of({{none, 1, 2}, {3, 4, none}, {5, 6, 7}});
    auto neighbors = elements_of({{1, 2}, {0, 2}, {1, 77}});
    groups g;
    ASSERT_EQ(sort_elfes(connectivity, neighbors, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
    EXPECT_EQ(columns(connectivity), (table{{5, 6, 7}, {3, 4, none}}));
    EXPECT_EQ(columns(neighbors), (table{{1, 77}, {none, 0}}));
    EXPECT_EQ(list(g.nodes_per_group), (uints{3, 2}));
    EXPECT_EQ(list(g.group_ends), (uints{1, 2}));
    EXPECT_EQ(list(g.old_to_new), (uints{none, 1, 0}));
}

TEST(SortElfes, EntriesBehindTheFirstNoneDoNotCountButStay)
{
    auto connectivity = elements_of({{0, none, 2, 3}, {4, 5, 6, 7}});
    groups g;
    ASSERT_EQ(sort_elfes(connectivity, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
    EXPECT_EQ(columns(connectivity), (table{{4, 5, 6, 7}, {0, none, 2, 3}}));
    EXPECT_EQ(list(g.nodes_per_group), (uints{4, 1}));
    EXPECT_EQ(list(g.group_ends), (uints{1, 2}));
}

TEST(SortElfes, UniformMatrixIsOneGroup)
{
    auto m = test::grid_of_hexahedra(2);
    const table before = columns(m.connectivity);
    groups g;
    ASSERT_EQ(sort_elfes(m.connectivity, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
    EXPECT_EQ(columns(m.connectivity), before);
    EXPECT_EQ(list(g.nodes_per_group), (uints{8}));
    EXPECT_EQ(list(g.group_ends), (uints{8}));
    EXPECT_EQ(list(g.old_to_new), (uints{0, 1, 2, 3, 4, 5, 6, 7}));
}

TEST(SortElfes, NothingKeptIsOneGroupOfNothing)
{
    for (auto connectivity : {dense2D<unsigned>(), dense2D<unsigned>(4, 0), dense2D<unsigned>(4, 2, none), dense2D<unsigned>(0, 2)})
    {
        const unsigned rows = connectivity.rows;
        groups g;
        g.old_to_new.resize(connectivity.cols);
        const uints dropped(connectivity.cols, none);
        ASSERT_EQ(sort_elfes(connectivity, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
        EXPECT_EQ(connectivity.cols, 0u);
        EXPECT_EQ(connectivity.rows, rows);
        EXPECT_EQ(list(g.nodes_per_group), (uints{0}));
        EXPECT_EQ(list(g.group_ends), (uints{0}));
        EXPECT_EQ(list(g.old_to_new), dropped);
    }
}

TEST(SortElfes, DifferentColumnCountsChangeNothing)
{
    auto connectivity = elements_of({{0, none}, {1, 2}});
    auto neighbors = elements_of({{none, none}});
    groups g{ids_of({1}), ids_of({2}), ids_of({3})};
    EXPECT_EQ(sort_elfes(connectivity, neighbors, g.nodes_per_group, g.group_ends, g.old_to_new), -1);
    EXPECT_EQ(columns(connectivity), (table{{0, none}, {1, 2}}));
    EXPECT_EQ(list(g.nodes_per_group), (uints{1}));
    EXPECT_EQ(list(g.group_ends), (uints{2}));
    EXPECT_EQ(list(g.old_to_new), (uints{3}));

    dense2D<unsigned> empty(0, 7); // an empty matrix is none, whatever its columns
    EXPECT_EQ(sort_elfes(connectivity, empty, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
    EXPECT_EQ(columns(connectivity), (table{{1, 2}, {0, none}}));
    EXPECT_EQ(empty.cols, 7u);
}

TEST(SortElfes, RandomColumnsAgreeWithAStableSort)
{
    test::random_source random(31);
    for (unsigned round = 0; round < 200; ++round)
    {
        const unsigned rows = 1 + random.below(6), cols = random.below(30);
        dense2D<unsigned> connectivity(rows, cols), neighbors(2, cols);
        for (unsigned c = 0; c < cols; ++c)
        {
            for (unsigned r = 0; r < rows; ++r) connectivity(r, c) = random.below(5) ? 100 * c + r : none;
            for (unsigned r = 0; r < 2; ++r) neighbors(r, c) = random.below(4) ? random.below(cols + 1) : none;
        }
        const table before = columns(connectivity), links_before = columns(neighbors);

        const auto nodes = [&](unsigned c) {
            return static_cast<unsigned>(std::find(before[c].begin(), before[c].end(), none) - before[c].begin());
        };
        uints order;
        for (unsigned c = 0; c < cols; ++c)
            if (nodes(c) > 0) order.push_back(c);
        std::stable_sort(order.begin(), order.end(), [&](unsigned a, unsigned b) { return nodes(a) > nodes(b); });
        uints expected_new(cols, none), expected_nodes, expected_ends;
        for (unsigned k = 0; k < order.size(); ++k) expected_new[order[k]] = k;
        for (unsigned k = 0; k < order.size(); ++k)
        {
            if (k == 0 || nodes(order[k]) != nodes(order[k - 1]))
            {
                expected_nodes.push_back(nodes(order[k]));
                expected_ends.push_back(k);
            }
            expected_ends.back() = k + 1;
        }
        if (order.empty()) expected_nodes = expected_ends = {0};

        if (round % 2)
        {
            connectivity = test::non_dense(connectivity, none);
            neighbors = test::non_dense(neighbors, none);
        }
        groups g;
        ASSERT_EQ(sort_elfes(connectivity, neighbors, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
        EXPECT_EQ(list(g.old_to_new), expected_new);
        EXPECT_EQ(list(g.nodes_per_group), expected_nodes);
        EXPECT_EQ(list(g.group_ends), expected_ends);
        ASSERT_EQ(connectivity.cols, order.size());
        ASSERT_EQ(neighbors.cols, cols == 0 ? 0 : order.size());
        for (unsigned k = 0; k < order.size(); ++k)
        {
            EXPECT_EQ(columns(connectivity)[k], before[order[k]]);
            uints links = links_before[order[k]];
            for (unsigned& link : links)
                if (link < cols) link = expected_new[link];
            EXPECT_EQ(columns(neighbors)[k], links);
        }
    }
}

TEST(SortElfes, MemoryFailureLeavesMatricesAsTheyAre)
{
    const table before{{0, 1, none}, {3, 4, 5}, {none, 7, 8}};
    for (unsigned n = 1;; ++n)
    {
        auto connectivity = elements_of({{0, 1, none}, {3, 4, 5}, {none, 7, 8}});
        groups g;
        test::failing_allocation failing(n);
        EXPECT_EQ(sort_elfes(connectivity, g.nodes_per_group, g.group_ends, g.old_to_new), 0);
        if (!failing.has_failed())
        {
            EXPECT_EQ(connectivity.cols, 2u);
            break;
        }
        EXPECT_EQ(columns(connectivity), before);
        EXPECT_TRUE(g.nodes_per_group.empty());
        EXPECT_TRUE(g.group_ends.empty());
        EXPECT_TRUE(g.old_to_new.empty());
    }
}

} // namespace
