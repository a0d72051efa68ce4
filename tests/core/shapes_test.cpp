#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "gridweave/core/shapes.h"

namespace
{

using namespace tq4::gridweave;

using directed_edge = std::pair<unsigned, unsigned>;
using nodes_of_side = std::vector<unsigned>;

directed_edge undirected(unsigned a, unsigned b)
{
    return {std::min(a, b), std::max(a, b)};
}

nodes_of_side nodes_of(const local_side& side)
{
    return {side.node.begin(), side.node.begin() + side.count};
}

/// The shape's edges, each with its lower node first.
template <class Shape>
std::set<directed_edge> edge_set()
{
    std::set<directed_edge> edges;
    for (const local_edge& edge : Shape::edges) edges.insert(undirected(edge.a, edge.b));
    return edges;
}

/// How often the sides run along every directed edge.
template <class Shape>
std::map<directed_edge, unsigned> runs_along_edges()
{
    std::map<directed_edge, unsigned> runs;
    for (const local_side& side : Shape::sides)
        for (unsigned k = 0; k < side.count; ++k) ++runs[{side.node[k], side.node[(k + 1) % side.count]}];
    return runs;
}

template <class Shape>
class Shapes : public testing::Test
{
};
using all_shapes = testing::Types<bar, triangle, quadrangle, tetrahedron, pyramid, wedge, hexahedron>;
TYPED_TEST_SUITE(Shapes, all_shapes);

template <class Shape>
class Surfaces : public testing::Test
{
};
using surface_shapes = testing::Types<triangle, quadrangle>;
TYPED_TEST_SUITE(Surfaces, surface_shapes);

template <class Shape>
class Solids : public testing::Test
{
};
using solid_shapes = testing::Types<tetrahedron, pyramid, wedge, hexahedron>;
TYPED_TEST_SUITE(Solids, solid_shapes);

TYPED_TEST(Shapes, NameEveryNodeInSidesAndEdges)
{
    std::set<unsigned> in_sides;
    std::set<unsigned> in_edges;
    for (const local_side& side : TypeParam::sides)
    {
        const auto nodes = nodes_of(side);
        EXPECT_EQ(std::set<unsigned>(nodes.begin(), nodes.end()).size(), side.count);
        in_sides.insert(nodes.begin(), nodes.end());
    }
    for (const local_edge& edge : TypeParam::edges)
    {
        EXPECT_NE(edge.a, edge.b);
        in_edges.insert({edge.a, edge.b});
    }
    EXPECT_EQ(in_sides.size(), TypeParam::nodes);
    EXPECT_EQ(in_edges, in_sides);
    EXPECT_EQ(*in_sides.rbegin(), TypeParam::nodes - 1);
    EXPECT_EQ(edge_set<TypeParam>().size(), edge_count<TypeParam>) << "no edge stands twice";
}

TYPED_TEST(Surfaces, HaveTheirEdgesAsSidesInTheSameOrder)
{
    ASSERT_EQ(side_count<TypeParam>, edge_count<TypeParam>);
    for (unsigned k = 0; k < side_count<TypeParam>; ++k)
        EXPECT_EQ(nodes_of(TypeParam::sides[k]), (nodes_of_side{TypeParam::edges[k].a, TypeParam::edges[k].b}));
}

TYPED_TEST(Surfaces, RunAroundOnce)
{
    // Every node is left once and reached once.
    std::set<unsigned> left;
    std::set<unsigned> reached;
    for (const local_side& side : TypeParam::sides)
    {
        left.insert(side.node[0]);
        reached.insert(side.node[1]);
        EXPECT_EQ((side.node[0] + 1u) % TypeParam::nodes, side.node[1]);
    }
    EXPECT_EQ(left.size(), TypeParam::nodes);
    EXPECT_EQ(reached.size(), TypeParam::nodes);
}

TYPED_TEST(Solids, AreClosedByTheirSides)
{
    // Every edge bounds two sides, which run along it in opposite directions.
    std::set<directed_edge> met;
    for (const auto& [edge, runs] : runs_along_edges<TypeParam>())
    {
        EXPECT_EQ(runs, 1u) << edge.first << ' ' << edge.second;
        EXPECT_EQ((runs_along_edges<TypeParam>()[{edge.second, edge.first}]), 1u) << edge.first << ' ' << edge.second;
        met.insert(undirected(edge.first, edge.second));
    }
    EXPECT_EQ(met, edge_set<TypeParam>());
    EXPECT_EQ(TypeParam::nodes + side_count<TypeParam>, edge_count<TypeParam> + 2) << "Euler's formula";
}

using point = std::array<double, 3>;

template <class Shape>
std::vector<point> reference_points();
template <>
std::vector<point> reference_points<tetrahedron>()
{
    return {{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {0, 0, 0}};
}
template <>
std::vector<point> reference_points<pyramid>()
{
    return {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0.5, 0.5, 1}};
}
template <>
std::vector<point> reference_points<wedge>()
{
    return {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}};
}
template <>
std::vector<point> reference_points<hexahedron>()
{
    return {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}};
}

point minus(const point& a, const point& b)
{
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}

double triple_product(const point& a, const point& b, const point& c)
{
    return a[0] * (b[1] * c[2] - b[2] * c[1]) + a[1] * (b[2] * c[0] - b[0] * c[2]) + a[2] * (b[0] * c[1] - b[1] * c[0]);
}

TYPED_TEST(Solids, HaveNormalsThatPointInside)
{
    const auto points = reference_points<TypeParam>();
    ASSERT_EQ(points.size(), TypeParam::nodes);
    point middle{};
    for (const point& p : points)
        for (unsigned k = 0; k < 3; ++k) middle[k] += p[k] / TypeParam::nodes;
    for (const local_side& side : TypeParam::sides)
    {
        const point& corner = points[side.node[0]];
        EXPECT_GT(triple_product(minus(points[side.node[1]], corner), minus(points[side.node[2]], corner), minus(middle, corner)), 0.0);
    }
}

template <class Simplex>
void expect_sides_opposite_to_their_nodes()
{
    ASSERT_EQ(side_count<Simplex>, Simplex::nodes);
    for (unsigned k = 0; k < Simplex::nodes; ++k)
    {
        const auto nodes = nodes_of(Simplex::sides[k]);
        EXPECT_EQ(nodes.size(), Simplex::nodes - 1);
        EXPECT_EQ(std::count(nodes.begin(), nodes.end(), k), 0);
    }
}

TEST(Simplices, NumberTheirSidesByTheOppositeNode)
{
    expect_sides_opposite_to_their_nodes<bar>();
    expect_sides_opposite_to_their_nodes<triangle>();
    expect_sides_opposite_to_their_nodes<tetrahedron>();
}

// The order of the nodes in a side and the order of the sides show in results, so the tables are pinned as they stand.
TEST(Sides, StandInTheirOrder)
{
    const auto all = [](const auto& sides) {
        std::vector<nodes_of_side> listed;
        for (const local_side& side : sides) listed.push_back(nodes_of(side));
        return listed;
    };
    using sides = std::vector<nodes_of_side>;
    EXPECT_EQ(all(bar::sides), (sides{{1}, {0}}));
    EXPECT_EQ(all(triangle::sides), (sides{{1, 2}, {2, 0}, {0, 1}}));
    EXPECT_EQ(all(quadrangle::sides), (sides{{0, 1}, {1, 2}, {2, 3}, {3, 0}}));
    EXPECT_EQ(all(tetrahedron::sides), (sides{{1, 2, 3}, {2, 0, 3}, {1, 3, 0}, {2, 1, 0}}));
    EXPECT_EQ(all(pyramid::sides), (sides{{0, 4, 1}, {1, 4, 2}, {2, 4, 3}, {3, 4, 0}, {0, 1, 2, 3}}));
    EXPECT_EQ(all(wedge::sides), (sides{{0, 1, 2}, {3, 5, 4}, {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}}));
    EXPECT_EQ(all(hexahedron::sides), (sides{{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}}));
}

} // namespace
