// Copies of views share their elements, so a host easily passes an output that shares the storage of an input. What comes out is the
// host's own doing to judge; here it is what separate outputs get.

#include <gtest/gtest.h>

#include <tq4/gridweave/connectivity.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::list;

/// A vector that looks at the elements of a matrix.
dense1D<unsigned> entries_of(const dense2D<unsigned>& m)
{
    return m.as_vector();
}

class SharedStorage : public testing::TestWithParam<unsigned>
{
protected:
    const test::mesh mesh = test::all_linear_meshes(3)[GetParam()];
    const dense2D<unsigned>& connectivity = mesh.connectivity;
    const element_type kind = mesh.kind;
};

TEST_P(SharedStorage, LeavesTheNeighboursRight)
{
    dense2D<unsigned> expected;
    ASSERT_EQ(get_neighbors(connectivity, kind, true, expected), 0);
    dense2D<unsigned> neighbors = connectivity;
    ASSERT_EQ(get_neighbors(connectivity, kind, true, neighbors), 0);
    EXPECT_EQ(columns(neighbors), columns(expected));
    EXPECT_TRUE(check_IDs(connectivity, kind, mesh.pos.cols));
}

TEST_P(SharedStorage, LeavesBoundariesRight)
{
    dense2D<unsigned> neighbors;
    ASSERT_EQ(get_neighbors(connectivity, kind, true, neighbors), 0);
    const auto empty_copy = [](const dense2D<unsigned>& m) { return m.sub_matrix(0, 0, 0, 0); };

    dense2D<unsigned> expected;
    dense2D<unsigned> shared = empty_copy(connectivity);
    ASSERT_EQ(get_element_boundaries(connectivity, kind, expected), 0);
    ASSERT_EQ(get_element_boundaries(connectivity, kind, shared), 0);
    EXPECT_EQ(columns(shared), columns(expected));

    expected.clear();
    shared = empty_copy(neighbors);
    ASSERT_EQ(get_mesh_boundaries(connectivity, neighbors, kind, expected), 0);
    ASSERT_EQ(get_mesh_boundaries(connectivity, neighbors, kind, shared), 0);
    EXPECT_EQ(columns(shared), columns(expected));

    unsigned stride = 0;
    dense1D<unsigned> expected_ids;
    dense1D<unsigned> ids = entries_of(connectivity);
    ids.size = 0;
    ASSERT_EQ(get_mesh_bounding_elements(connectivity, neighbors, kind, expected_ids, stride), 0);
    ASSERT_EQ(get_mesh_bounding_elements(connectivity, neighbors, kind, ids, stride), 0);
    EXPECT_EQ(list(ids), list(expected_ids));

    dense1D<unsigned> colors(connectivity.cols, 0);
    for (unsigned c = 0; c < colors.size; ++c) colors[c] = c % 3;
    expected.clear();
    shared = empty_copy(connectivity);
    ASSERT_EQ(get_colors_boundaries(connectivity, neighbors, colors, kind, true, expected), 0);
    ASSERT_EQ(get_colors_boundaries(connectivity, neighbors, colors, kind, true, shared), 0);
    EXPECT_EQ(columns(shared), columns(expected));

    dense1D<unsigned> ancestors;
    ASSERT_EQ(get_ancestors(connectivity, ancestors), 0);
    expected.clear();
    ASSERT_EQ(get_mesh_boundaries(connectivity, neighbors, kind, expected), 0);
    ids = ancestors;
    expected_ids.size = 0;
    ASSERT_EQ(get_elements_on_boundaries(expected, connectivity, neighbors, ancestors, kind, expected_ids, stride), 0);
    ASSERT_EQ(get_elements_on_boundaries(expected, connectivity, neighbors, ancestors, kind, ids, stride), 0);
    EXPECT_EQ(list(ids), list(expected_ids));
}

TEST_P(SharedStorage, LeavesGraphsSubdomainsAndEdgesRight)
{
    dense1D<unsigned> expected_first, expected_list;
    ASSERT_EQ(get_connected_elements(connectivity, expected_first, expected_list), 0);
    dense1D<unsigned> first = entries_of(connectivity);
    dense1D<unsigned> elements = first;
    ASSERT_EQ(get_connected_elements(connectivity, first, elements), 0);
    EXPECT_EQ(list(first), list(expected_first));
    EXPECT_EQ(list(elements), list(expected_list));

    ASSERT_EQ(get_node_graph(connectivity, expected_first, expected_list), 0);
    first = entries_of(connectivity);
    elements = first;
    ASSERT_EQ(get_node_graph(connectivity, first, elements), 0);
    EXPECT_EQ(list(first), list(expected_first));
    EXPECT_EQ(list(elements), list(expected_list));

    dense2D<unsigned> neighbors;
    ASSERT_EQ(get_neighbors(connectivity, kind, true, neighbors), 0);
    ASSERT_EQ(get_subdomains(neighbors, expected_list, expected_first), 0);
    elements = entries_of(neighbors);
    first = elements;
    ASSERT_EQ(get_subdomains(neighbors, elements, first), 0);
    EXPECT_EQ(list(elements), list(expected_list));
    EXPECT_EQ(list(first), list(expected_first));

    dense2D<unsigned> expected;
    dense2D<unsigned> edges = connectivity.sub_matrix(0, 0, 0, 0);
    ASSERT_EQ(copy_edges(connectivity, kind, expected), 0);
    ASSERT_EQ(copy_edges(connectivity, kind, edges), 0);
    EXPECT_EQ(columns(edges), columns(expected));
}

TEST_P(SharedStorage, LeavesTheInputAsItIsWhereMemoryRunsOut)
{
    dense2D<unsigned> neighbors;
    dense1D<unsigned> ancestors;
    dense2D<unsigned> boundaries;
    ASSERT_EQ(get_neighbors(connectivity, kind, true, neighbors), 0);
    ASSERT_EQ(get_ancestors(connectivity, ancestors), 0);
    ASSERT_EQ(get_mesh_boundaries(connectivity, neighbors, kind, boundaries), 0);
    const dense1D<unsigned> colors(connectivity.cols, 0);
    const dense1D<int> kinds(1, kind);
    const auto former_connectivity = columns(connectivity);
    const auto former_neighbors = columns(neighbors);

    // The outputs of each call, which are given storage of their own one after the other.
    const auto refuse = [](unsigned outputs, auto&& call) {
        for (unsigned n = 1; n <= outputs; ++n)
        {
            const test::failing_allocation failing(n);
            EXPECT_EQ(call(), out_of_memory) << n;
        }
    };
    unsigned stride = 0;
    dense2D<unsigned> matrix;
    dense1D<unsigned> first, second;
    const auto column = [](const dense2D<unsigned>& m, unsigned rows) { return m.sub_matrix(0, 0, rows, 1); };
    const unsigned rows = boundaries.rows;
    refuse(1, [&] { return matrix = column(connectivity, rows), get_element_boundaries(connectivity, kind, matrix); });
    refuse(1, [&] { return matrix = column(neighbors, rows), get_mesh_boundaries(connectivity, neighbors, kind, matrix); });
    refuse(1, [&] { return matrix = column(neighbors, rows), get_colors_boundaries(connectivity, neighbors, colors, kind, true, matrix); });
    refuse(1, [&] { return matrix = column(connectivity, 2), copy_edges(connectivity, kind, matrix); });
    refuse(1, [&] { return matrix = column(connectivity, 2), copy_edges(&connectivity, &connectivity + 1, kinds, matrix); });
    refuse(1, [&] { return first = entries_of(neighbors), get_mesh_bounding_elements(connectivity, neighbors, kind, first, stride); });
    refuse(1, [&] {
        first = ancestors;
        return get_elements_on_boundaries(boundaries, connectivity, neighbors, ancestors, kind, first, stride);
    });
    refuse(2, [&] { return first = second = entries_of(connectivity), get_connected_elements(connectivity, first, second); });
    refuse(2, [&] { return first = second = entries_of(connectivity), get_node_graph(connectivity, first, second); });
    refuse(2, [&] { return first = second = entries_of(neighbors), get_subdomains(neighbors, first, second); });
    EXPECT_EQ(columns(connectivity), former_connectivity);
    EXPECT_EQ(columns(neighbors), former_neighbors);
}

INSTANTIATE_TEST_SUITE_P(AllKinds, SharedStorage, testing::Range(0u, 9u));

TEST(SharedStorageOfLists, LeavesLookupsRight)
{
    const auto a = test::ids_of({5, 2, 5, 9, none_index, 7});
    const auto b = test::ids_of({9, 5, 4});
    dense1D<unsigned> expected_b, expected_a;
    ASSERT_EQ(get_IDs(a, b, expected_b, expected_a), 0);
    dense1D<unsigned> b_in_a = a;
    dense1D<unsigned> a_in_b = a;
    ASSERT_EQ(get_IDs(a, b, b_in_a, a_in_b), 0);
    EXPECT_EQ(list(b_in_a), list(expected_b));
    EXPECT_EQ(list(a_in_b), list(expected_a));

    dense1D<unsigned> expected_order, expected_starts;
    ASSERT_EQ(get_sorted_order(a, expected_order, expected_starts), 0);
    dense1D<unsigned> order = a;
    dense1D<unsigned> starts = a;
    ASSERT_EQ(get_sorted_order(a, order, starts), 0);
    EXPECT_EQ(list(order), list(expected_order));
    EXPECT_EQ(list(starts), list(expected_starts));
}

} // namespace
