#include <algorithm>
#include <optional>
#include <set>

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
using test::ids_of;
using test::list;

using uints = std::vector<unsigned>;
constexpr unsigned none = none_index;

/// A mesh with the two indexes that the search needs.
struct indexed_mesh
{
    dense2D<unsigned> connectivity;
    element_type kind;
    dense2D<unsigned> neighbors;
    dense1D<unsigned> ancestors;

    indexed_mesh(const dense2D<unsigned>& elements, element_type type, bool link_shared = false) : connectivity(elements), kind(type)
    {
        EXPECT_EQ(get_neighbors(connectivity, kind, link_shared, neighbors), 0);
        EXPECT_EQ(get_ancestors(connectivity, ancestors), 0);
    }
    explicit indexed_mesh(const test::mesh& m) : indexed_mesh(m.connectivity, m.kind) {}
};

struct outcome
{
    int code = 1;
    uints ids;
    unsigned stride = 77;

    bool operator==(const outcome&) const = default;
};

std::ostream& operator<<(std::ostream& out, const outcome& o)
{
    out << "code " << o.code << ", stride " << o.stride << ", ids";
    for (const unsigned id : o.ids) out << ' ' << id;
    return out;
}

outcome search(const dense2D<unsigned>& boundaries, const indexed_mesh& m)
{
    auto ids = ids_of({7, 7, 7});
    outcome found;
    found.code = get_elements_on_boundaries(boundaries, m.connectivity, m.neighbors, m.ancestors, m.kind, ids, found.stride);
    found.ids = list(ids);
    return found;
}

/// One boundary after the other, each with a walk of its own.
class plain_search
{
public:
    plain_search(const dense2D<unsigned>& boundaries, const indexed_mesh& m) : mesh_(m), topology_(linear_topology(m.kind))
    {
        const unsigned stride = nbr_boundaries(m.kind);
        result_ = {0, uints(boundaries.cols, none), stride};
        for (unsigned b = 0; b < boundaries.cols; ++b)
        {
            const unsigned node = boundaries(0, b);
            if (node >= m.ancestors.size) continue;
            uints ball;
            if (!walk(node, m.ancestors[node], ball))
            {
                result_.code = ball.empty() ? -4 : -3;
                return;
            }
            result_.ids[b] = best_match(columns(boundaries)[b], ball, stride);
        }
    }

    const outcome& result() const { return result_; }

private:
    static uints sides_holding(unsigned nodes, unsigned dim, unsigned p)
    {
        if (nodes == 2) return {1 - p};
        if (nodes == 3) return {(p + 1) % 3, (p + 2) % 3};
        if (nodes == 4 && dim == 2) return {(p + 3) % 4, p};
        if (nodes == 4)
        {
            uints sides{0, 1, 2, 3};
            sides.erase(sides.begin() + p);
            return sides;
        }
        if (nodes == 5) return p < 4 ? uints{(p + 3) % 4, p, 4} : uints{0, 1, 2, 3};
        if (nodes == 6) return {p / 3, (p + 1) % 3 + 2, (p + 2) % 3 + 2};
        return std::vector<uints>{{0, 2, 4}, {1, 2, 4}, {1, 3, 4}, {0, 3, 4}, {0, 2, 5}, {1, 2, 5}, {1, 3, 5}, {0, 3, 5}}[p];
    }

    unsigned nodes_of(unsigned element) const
    {
        return with_shape_of(topology_, mesh_.connectivity.column(element), [](auto shape) { return decltype(shape)::nodes; });
    }

    bool walk(unsigned node, unsigned start, uints& ball) const
    {
        if (start == none) return true;
        std::set<unsigned> seen{start};
        uints stack{start};
        while (!stack.empty())
        {
            const unsigned e = stack.back();
            stack.pop_back();
            const unsigned* const column = mesh_.connectivity.column(e);
            const unsigned count = nodes_of(e);
            const auto p = static_cast<unsigned>(std::find(column, column + count, node) - column);
            if (p == count) return false;
            ball.push_back(e);
            uints sides = sides_holding(count, element_dim(mesh_.kind), p);
            std::reverse(sides.begin(), sides.end());
            for (const unsigned s : sides)
            {
                const unsigned m = mesh_.neighbors(s, e);
                if (m != none && seen.insert(m).second) stack.push_back(m);
            }
        }
        return true;
    }

    /// 1 for the same direction, -1 for the reverse, 0 for different sides.
    static int compare(uints a, uints b)
    {
        if (a.size() == 4 && (a[3] == none || b[3] == none))
        {
            if (a[3] != b[3]) return 0;
            a.pop_back();
            b.pop_back();
        }
        const auto n = static_cast<unsigned>(a.size());
        if (n == 1) return a == b;
        if (n == 2) return a == b ? 1 : a[0] == b[1] && a[1] == b[0] ? -1 : 0;
        std::rotate(a.begin(), std::min_element(a.begin(), a.end()), a.end());
        std::rotate(b.begin(), std::min_element(b.begin(), b.end()), b.end());
        if (a[0] != b[0] || (n == 4 && a[2] != b[2])) return 0;
        if (a[1] == b[1] && a[n - 1] == b[n - 1]) return 1;
        return a[1] == b[n - 1] && a[n - 1] == b[1] ? -1 : 0;
    }

    unsigned best_match(const uints& boundary, const uints& ball, unsigned stride) const
    {
        unsigned fallback = none;
        for (const unsigned e : ball)
        {
            dense2D<unsigned> sides;
            EXPECT_EQ(get_element_boundaries(mesh_.connectivity.sub_matrix(0, e, mesh_.connectivity.rows, 1), mesh_.kind, sides), 0);
            for (unsigned s = 0; s < sides.cols; ++s)
            {
                const int match = compare(columns(sides)[s], boundary);
                if (match > 0) return e * stride + s;
                if (match < 0) fallback = e * stride + s;
            }
        }
        return fallback;
    }

    const indexed_mesh& mesh_;
    topology topology_;
    outcome result_;
};

TEST(ElementsOnBoundaries, FreeSidesComeBackAsTheirIds)
{
    for (const auto& grid : test::all_linear_meshes(3))
        for (const auto& m : {grid, test::shuffled(grid, 8)})
        {
            const indexed_mesh mesh(m);
            dense2D<unsigned> skin;
            dense1D<unsigned> ids;
            unsigned stride = 0;
            ASSERT_EQ(get_mesh_boundaries(mesh.connectivity, mesh.neighbors, mesh.kind, skin), 0);
            ASSERT_EQ(get_mesh_bounding_elements(mesh.connectivity, mesh.neighbors, mesh.kind, ids, stride), 0);

            // The mixed solid's triangles and quadrangles do not meet, so there the walk around a node misses some elements.
            const bool meets = m.kind != ELEM_SOLID_ANY;
            const outcome expected = meets ? outcome{0, list(ids), stride} : plain_search(skin, mesh).result();
            EXPECT_EQ(search(skin, mesh), expected) << m.kind;
            EXPECT_EQ(search(test::non_dense(skin, 0u), mesh), expected) << m.kind;

            auto part = mesh;
            part.connectivity = test::non_dense(mesh.connectivity, 0u);
            part.neighbors = test::non_dense(mesh.neighbors, 0u);
            EXPECT_EQ(search(skin, part), expected) << m.kind;
        }
}

TEST(ElementsOnBoundaries, DirectionTellsTheSidesOfAnInterfaceApart)
{
    // (1, 2, 3) is side 0 of the first; the second has it as (1, 3, 2), which is (3, 2, 1) turned.
    const indexed_mesh pair(elements_of({{0, 1, 2, 3}, {4, 3, 2, 1}}), ELEM_TETRA4);
    ASSERT_EQ(pair.neighbors(0, 0), 1u);
    for (const auto& forward : {uints{1, 2, 3}, uints{2, 3, 1}, uints{3, 1, 2}})
        EXPECT_EQ(search(elements_of({{forward[0], forward[1], forward[2]}}), pair).ids, (uints{0}));
    for (const auto& backward : {uints{3, 2, 1}, uints{2, 1, 3}, uints{1, 3, 2}})
        EXPECT_EQ(search(elements_of({{backward[0], backward[1], backward[2]}}), pair).ids, (uints{4}));

    const indexed_mesh alone(elements_of({{0, 1, 2, 3}}), ELEM_TETRA4);
    EXPECT_EQ(search(elements_of({{1, 2, 3}, {3, 2, 1}, {0, 1, 2}, {2, 1, 0}}), alone).ids, (uints{0, 0, 3, 3}));
}

TEST(ElementsOnBoundaries, FirstMatchWinsInDirectionAndLastInReverse)
{
    // Bars around node 0: a side is one node, so every match is in the same direction.
    const indexed_mesh bars(elements_of({{0, 1}, {2, 0}, {0, 3}}), ELEM_BAR2, true);
    ASSERT_EQ(bars.ancestors[0], 2u);
    EXPECT_EQ(search(elements_of({{0}}), bars).ids, (uints{2 * 2 + 1}));

    // Three triangles on the edge (0, 1), all running as (0, 1): the walk starts at the last one.
    const indexed_mesh pages(elements_of({{0, 1, 2}, {0, 1, 3}, {0, 1, 4}}), ELEM_TRIA3, true);
    EXPECT_EQ(search(elements_of({{0, 1}}), pages), plain_search(elements_of({{0, 1}}), pages).result());
    EXPECT_EQ(search(elements_of({{0, 1}}), pages).ids, (uints{2 * 3 + 2}));
    EXPECT_EQ(search(elements_of({{1, 0}}), pages), plain_search(elements_of({{1, 0}}), pages).result());
    EXPECT_NE(search(elements_of({{1, 0}}), pages).ids, (uints{2 * 3 + 2}));
}

TEST(ElementsOnBoundaries, PartsThatHangByANodeAloneAreNotReached)
{
    // Two triangles on node 0; its ancestor is the second one.
    const indexed_mesh mesh(elements_of({{0, 1, 2}, {0, 3, 4}}), ELEM_TRIA3);
    EXPECT_EQ(search(elements_of({{0, 1}, {0, 3}, {1, 0}}), mesh).ids, (uints{none, 5, 2}));
}

TEST(ElementsOnBoundaries, UnknownNodesAreNotFound)
{
    indexed_mesh mesh(elements_of({{0, 1, 2}}), ELEM_TRIA3);
    EXPECT_EQ(search(elements_of({{3, 1}, {none, 1}, {0, 1}}), mesh), (outcome{0, {none, none, 2}, 3}));
    mesh.ancestors[0] = none;
    EXPECT_EQ(search(elements_of({{0, 1}, {1, 0}}), mesh), (outcome{0, {none, 2}, 3}));
    EXPECT_EQ(search(elements_of({{1, 9}}), mesh), (outcome{0, {none}, 3}));
}

TEST(ElementsOnBoundaries, AncestorThatDoesNotHoldTheNodeEndsTheSearch)
{
    indexed_mesh mesh(elements_of({{0, 1, 2}, {3, 4, 5}}), ELEM_TRIA3);
    mesh.ancestors[1] = 1;
    EXPECT_EQ(search(elements_of({{0, 1}, {2, 0}, {1, 2}, {3, 4}}), mesh), (outcome{-4, {2, 1, none, none}, 3}));
}

TEST(ElementsOnBoundaries, LinkToAnElementWithoutTheNodeEndsTheSearch)
{
    indexed_mesh mesh(elements_of({{0, 1, 2}, {3, 4, 5}}), ELEM_TRIA3);
    mesh.neighbors(2, 0) = 1; // side (0, 1)
    EXPECT_EQ(search(elements_of({{3, 4}, {2, 0}, {1, 2}, {4, 5}}), mesh), (outcome{-3, {5, 1, none, none}, 3}));

    // The lowest boundary whose node fails gives the code, though node 0 comes first in other ways.
    mesh.ancestors[4] = 0;
    EXPECT_EQ(search(elements_of({{4, 5}, {0, 1}}), mesh), (outcome{-4, {none, none}, 3}));
    EXPECT_EQ(search(elements_of({{0, 1}, {4, 5}}), mesh), (outcome{-3, {none, none}, 3}));
}

TEST(ElementsOnBoundaries, TestsRunInTheirOrder)
{
    const indexed_mesh good(elements_of({{0, 1, 2}}), ELEM_TRIA3);
    const auto edge = elements_of({{0, 1}});
    const dense2D<unsigned> no_matrix;
    const auto bad_ancestors = ids_of({1, 0, 0});
    auto ids = ids_of({7});
    unsigned stride = 77;
    const auto call = [&](const dense2D<unsigned>& boundaries, const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors,
                          const dense1D<unsigned>& ancestors, element_type kind) {
        ids = ids_of({7});
        stride = 77;
        const int code = get_elements_on_boundaries(boundaries, connectivity, neighbors, ancestors, kind, ids, stride);
        EXPECT_TRUE(ids.empty());
        return code;
    };

    for (const auto& empty : {no_matrix, dense2D<unsigned>(3, 0), dense2D<unsigned>(0, 4)})
        EXPECT_EQ(call(empty, no_matrix, no_matrix, bad_ancestors, ELEM_TRIA6), 0);
    EXPECT_EQ(call(elements_of({{0, 1, 2}}), no_matrix, no_matrix, bad_ancestors, ELEM_TRIA3), -1);
    EXPECT_EQ(call(edge, elements_of({{0, 1, 2, 3}}), no_matrix, bad_ancestors, ELEM_TRIA3), -2);
    EXPECT_EQ(call(edge, good.connectivity, dense2D<unsigned>(3, 2, none), bad_ancestors, ELEM_TRIA3), -3);
    EXPECT_EQ(call(edge, good.connectivity, dense2D<unsigned>(4, 1, none), bad_ancestors, ELEM_TRIA3), -3);
    EXPECT_EQ(call(edge, good.connectivity, elements_of({{1, none, none}}), bad_ancestors, ELEM_TRIA3), -3);
    EXPECT_EQ(call(edge, good.connectivity, good.neighbors, bad_ancestors, ELEM_TRIA3), -4);
    EXPECT_EQ(stride, 0u);

    const auto quadratic = elements_of({{0, 1, 2, 3, 4, 5}});
    EXPECT_EQ(call(edge, quadratic, good.neighbors, bad_ancestors, ELEM_TRIA6), -1);
    EXPECT_EQ(call(elements_of({{0, 1, 2}}), good.connectivity, no_matrix, bad_ancestors, ELEM_TRIA6), -2);
    EXPECT_EQ(call(elements_of({{0, 1, 2}}), quadratic, no_matrix, bad_ancestors, ELEM_TRIA6), -3);
    EXPECT_EQ(call(elements_of({{0, 1, 2}}), quadratic, good.neighbors, bad_ancestors, ELEM_TRIA6), -4);
    EXPECT_EQ(stride, 0u);
    EXPECT_EQ(call(elements_of({{0, 1, 2}}), quadratic, good.neighbors, good.ancestors, ELEM_TRIA6), -5);
    EXPECT_EQ(stride, 3u);
    EXPECT_EQ(call(elements_of({{0}}), elements_of({{0, 1}}), dense2D<unsigned>(2, 1, none), good.ancestors.sub_vector(0, 0), ELEM_BAR_ANY),
              -5);
}

TEST(ElementsOnBoundaries, MixedKindsAreNarrowedByRows)
{
    const auto m = test::grid_of_wedges(2);
    indexed_mesh mesh(m);
    dense2D<unsigned> skin;
    ASSERT_EQ(get_mesh_boundaries(mesh.connectivity, mesh.neighbors, mesh.kind, skin), 0);
    const outcome expected = search(skin, mesh);
    mesh.kind = ELEM_SOLID_ANY;
    EXPECT_EQ(skin.rows, 4u);
    EXPECT_EQ(search(skin, mesh), expected);
    EXPECT_EQ(expected.stride, 5u);
}

TEST(ElementsOnBoundaries, AllSidesInAnyDirectionAgreeWithPlainSearch)
{
    test::random_source random(41);
    for (const auto& m : test::all_linear_meshes(2))
        for (const bool link_shared : {false, true})
        {
            const auto s = test::shuffled(m, 9);
            const indexed_mesh mesh(s.connectivity, s.kind, link_shared);
            dense2D<unsigned> sides;
            ASSERT_EQ(get_element_boundaries(mesh.connectivity, mesh.kind, sides), 0);
            for (unsigned c = 0; c < sides.cols; ++c)
            {
                const unsigned count = sides.rows == 4 && sides(3, c) == none ? 3 : sides.rows;
                unsigned* const column = sides.column(c);
                std::rotate(column, column + random.below(count), column + count);
                if (random.below(2)) std::reverse(column, column + count);
                if (random.below(9) == 0) std::swap(column[0], column[count / 2]); // for quadrangles another side
            }
            EXPECT_EQ(search(sides, mesh), plain_search(sides, mesh).result()) << m.kind;
        }
}

TEST(ElementsOnBoundaries, DamagedInputAgreesWithPlainSearch)
{
    test::random_source random(43);
    unsigned failures = 0;
    for (unsigned round = 0; round < 400; ++round)
    {
        const auto meshes = test::all_linear_meshes(1 + random.below(2));
        const auto& m = meshes[random.below(static_cast<unsigned>(meshes.size()))];
        indexed_mesh mesh(m.connectivity, m.kind, random.below(2) != 0);
        const unsigned elements = mesh.connectivity.cols;
        for (unsigned k = random.below(3); k > 0; --k)
            mesh.neighbors(random.below(mesh.neighbors.rows), random.below(elements)) = random.below(3) ? random.below(elements) : none;
        for (unsigned k = random.below(2); k > 0; --k) mesh.ancestors[random.below(mesh.ancestors.size)] = random.below(elements);
        for (unsigned k = random.below(3); k > 0; --k) // nodes that stand twice, and non-manifold sides
            mesh.connectivity(random.below(nbr_base_nodes(m.kind) > 3 ? 4 : 2), random.below(elements)) = random.below(m.pos.cols);
        dense2D<unsigned> sides;
        ASSERT_EQ(get_element_boundaries(mesh.connectivity, mesh.kind, sides), 0);
        const outcome expected = plain_search(sides, mesh).result();
        ASSERT_EQ(search(sides, mesh), expected) << m.kind;
        failures += expected.code != 0;
    }
    EXPECT_GT(failures, 50u);
    EXPECT_LT(failures, 350u);
}

TEST(ElementsOnBoundaries, RepeatedBoundariesOnACrowdedNodeTakeNoQuadraticTime)
{
    constexpr unsigned count = 100000;
    dense2D<unsigned> star(3, count), rims(2, count);
    for (unsigned e = 0; e < count; ++e)
    {
        const std::array<unsigned, 3> slice{0, 1 + e, 1 + (e + 1) % count};
        std::copy(slice.begin(), slice.end(), star.column(e));
        rims(0, e) = 0;
        rims(1, e) = slice[1];
    }
    const outcome found = search(rims, indexed_mesh(star, ELEM_TRIA3));
    ASSERT_EQ(found.code, 0);
    for (unsigned e = 0; e < count; ++e) ASSERT_EQ(found.ids[e], 3 * e + 2);
}

TEST(ElementsOnBoundaries, MemoryFailureLeavesNoIds)
{
    const indexed_mesh mesh(test::grid_of_tetrahedra(2));
    dense2D<unsigned> skin;
    ASSERT_EQ(get_mesh_boundaries(mesh.connectivity, mesh.neighbors, mesh.kind, skin), 0);
    const outcome expected = search(skin, mesh);
    const long before = test::live_allocations();
    int code = -1;
    for (unsigned n = 1; code != 0; ++n)
    {
        dense1D<unsigned> ids;
        unsigned stride = 0;
        test::failing_allocation failing(n);
        code = get_elements_on_boundaries(skin, mesh.connectivity, mesh.neighbors, mesh.ancestors, mesh.kind, ids, stride);
        EXPECT_EQ(code, failing.has_failed() ? -199 : 0);
        EXPECT_EQ(list(ids), code ? uints{} : expected.ids);
    }
    EXPECT_EQ(test::live_allocations(), before);
}

} // namespace
