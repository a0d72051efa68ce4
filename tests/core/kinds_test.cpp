#include <algorithm>
#include <vector>

#include <gtest/gtest.h>

#include "gridweave/core/kinds.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

element_type kind_of(unsigned value)
{
    return static_cast<element_type>(value);
}

TEST(Kinds, NarrowMixedKindsByTheirRows)
{
    EXPECT_EQ(narrow(ELEM_SURF_ANY, 3), ELEM_TRIA3);
    EXPECT_EQ(narrow(ELEM_SURF_ANY, 4), ELEM_SURF_ANY);
    EXPECT_EQ(narrow(ELEM_SURF_ANY, 5), ELEM_SURF_ANY);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 3), ELEM_SOLID_ANY);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 4), ELEM_TETRA4);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 5), ELEM_PYRA5);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 6), ELEM_PENTA6);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 7), ELEM_SOLID_ANY);
    EXPECT_EQ(narrow(ELEM_SOLID_ANY, 8), ELEM_SOLID_ANY);
    for (unsigned value = 0; value < kind_count; ++value)
    {
        if (kind_of(value) == ELEM_SURF_ANY || kind_of(value) == ELEM_SOLID_ANY) continue;
        for (unsigned rows = 0; rows < 30; ++rows) EXPECT_EQ(narrow(kind_of(value), rows), kind_of(value));
    }
}

TEST(Kinds, AgreeWithTheirShapes)
{
    // A plain kind has the corners and sides of its shape; a side of a linear kind has the nodes that the largest local side has.
    for (unsigned value = 0; value < kind_count; ++value)
    {
        const auto& record = record_of(kind_of(value));
        const topology t = record.shape;
        if (t == topology::none || t == topology::mixed_surface || t == topology::mixed_solid) continue;
        with_shape_of(t, nullptr, [&](auto shape) {
            using Shape = decltype(shape);
            EXPECT_EQ(record.base_nodes, Shape::nodes) << value;
            EXPECT_EQ(record.boundaries, side_count<Shape>) << value;
            EXPECT_GE(record.nodes, record.base_nodes) << value;
            unsigned largest = 0;
            for (const local_side& side : Shape::sides) largest = std::max<unsigned>(largest, side.count);
            if (record.linear)
                EXPECT_EQ(record.boundary_nodes, largest) << value;
            else
                EXPECT_GE(record.boundary_nodes, largest) << value;
            return true;
        });
    }
}

TEST(Kinds, TellTheNodesOfABoundary)
{
    const unsigned expected[kind_count] = {0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 3, 6, 4, 8, 9, 4, 8, 9, 4, 8, 9};
    for (unsigned value = 0; value < kind_count; ++value) EXPECT_EQ(nbr_boundary_nodes(kind_of(value)), expected[value]) << value;
    EXPECT_EQ(nbr_boundary_nodes(kind_of(23)), 0u);
}

TEST(Kinds, ServeLinearFamiliesAndEdgesByTheirOwnLists)
{
    const std::vector<element_type> linear{ELEM_BAR2,   ELEM_SURF_ANY, ELEM_TRIA3,  ELEM_QUAD4, ELEM_SOLID_ANY,
                                           ELEM_TETRA4, ELEM_PYRA5,    ELEM_PENTA6, ELEM_HEXA8};
    const std::vector<element_type> without_edges{ELEM_NONE, ELEM_NODE, ELEM_BAR_ANY, ELEM_PYRA13, ELEM_PENTA15, ELEM_HEXA20};
    const auto holds = [](const std::vector<element_type>& kinds, element_type kind) {
        return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
    };
    for (unsigned value = 0; value < kind_count; ++value)
    {
        EXPECT_EQ(linear_topology(kind_of(value)) != topology::none, holds(linear, kind_of(value))) << value;
        EXPECT_EQ(edge_topology(kind_of(value)) == topology::none, holds(without_edges, kind_of(value))) << value;
    }
    EXPECT_EQ(linear_topology(kind_of(99)), topology::none);
    EXPECT_EQ(edge_topology(kind_of(99)), topology::none);
}

TEST(Kinds, ReadShapesOfMixedColumnsFromTheirPadding)
{
    const auto nodes_of = [](topology t, std::vector<unsigned> column) {
        return with_shape_of(t, column.data(), [](auto shape) { return decltype(shape)::nodes; });
    };
    constexpr unsigned none = none_index;
    EXPECT_EQ(nodes_of(topology::mixed_surface, {0, 1, 2, none}), 3u);
    EXPECT_EQ(nodes_of(topology::mixed_surface, {0, 1, 2, 3}), 4u);
    EXPECT_EQ(nodes_of(topology::mixed_solid, {0, 1, 2, 3, none, none, none, none}), 4u);
    EXPECT_EQ(nodes_of(topology::mixed_solid, {0, 1, 2, 3, 4, none, none, none}), 5u);
    EXPECT_EQ(nodes_of(topology::mixed_solid, {0, 1, 2, 3, 4, 5, none, none}), 6u);
    EXPECT_EQ(nodes_of(topology::mixed_solid, {0, 1, 2, 3, 4, 5, 6, 7}), 8u);
    EXPECT_EQ(nodes_of(topology::none, {}), 0u);
}

TEST(ForEachElement, VisitsColumnsInOrderWithTheirShapes)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        const auto connectivity = test::non_dense(m.connectivity, 77u);
        unsigned next = 0;
        for_each_element(linear_topology(m.kind), connectivity, [&](auto shape, unsigned element, const unsigned* column) {
            using Shape = decltype(shape);
            EXPECT_EQ(element, next++);
            EXPECT_EQ(column, connectivity.column(element));
            for (unsigned r = 0; r < connectivity.rows; ++r) EXPECT_EQ(column[r] != none_index, r < Shape::nodes);
        });
        EXPECT_EQ(next, connectivity.cols) << m.kind;
    }
}

TEST(ForEachElement, EndsWhereTheWorkerGivesFalse)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        unsigned visited = 0;
        for_each_element(linear_topology(m.kind), m.connectivity, [&](auto, unsigned element, const unsigned*) {
            ++visited;
            return element < 1;
        });
        EXPECT_EQ(visited, 2u) << m.kind;
    }
}

TEST(ForEachElement, VisitsNothingWithoutAShapeOrColumns)
{
    unsigned visited = 0;
    const auto count = [&](auto, unsigned, const unsigned*) { ++visited; };
    for_each_element(topology::none, test::elements_of({{0, 1, 2}}), count);
    for_each_element(topology::triangle, dense2D<unsigned>(3, 0), count);
    for_each_element(topology::mixed_solid, dense2D<unsigned>(8, 0), count);
    dense2D<unsigned> without_storage;
    without_storage.rows = without_storage.ld = 3;
    without_storage.cols = 5;
    for_each_element(topology::triangle, without_storage, count);
    EXPECT_EQ(visited, 0u);
}

TEST(Meshes, OfTheTestSupportAreValid)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        EXPECT_TRUE(check_IDs(m.connectivity, m.kind, m.pos.cols)) << m.kind;
        const auto other = test::shuffled(m, 5);
        EXPECT_TRUE(check_IDs(other.connectivity, other.kind, other.pos.cols)) << m.kind;
    }
}

} // namespace
