#include <algorithm>
#include <array>

#include <gtest/gtest.h>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/hash.h"
#include "gridweave/core/kinds.h"
#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;

using uints = std::vector<unsigned>;
using table = std::vector<uints>;

dense2D<unsigned> neighbors_of(const dense2D<unsigned>& connectivity, element_type kind, bool link_shared)
{
    dense2D<unsigned> neighbors(2, 5, 77u);
    EXPECT_EQ(get_neighbors(connectivity, kind, link_shared, neighbors), 0);
    return neighbors;
}

/// Chains of sides in a hash table, each side compared with those behind it: slow, and obvious.
class side_chains
{
public:
    side_chains(const dense2D<unsigned>& connectivity, element_type kind, bool link_shared)
        : connectivity_(connectivity),
          topology_(linear_topology(narrow(kind, connectivity.rows))),
          stride_(nbr_boundaries(narrow(kind, connectivity.rows))),
          slots_(nbr_boundary_nodes(narrow(kind, connectivity.rows))),
          link_shared_(link_shared),
          neighbors_(connectivity.cols, uints(stride_, none_index))
    {
        unsigned size = 2;
        while (size <= 2 * connectivity.cols * stride_) size *= 2;
        chains_.resize(size);
        for (unsigned e = 0; e < connectivity.cols; ++e)
            for (unsigned s = 0; s < sides(e); ++s)
            {
                unsigned hash = 0;
                for (const unsigned node : nodes(e * stride_ + s)) hash += node_key(node);
                chains_[hash & (size - 1)].push_back(e * stride_ + s);
            }
        for (auto& chain : chains_) match(chain);
    }

    const table& result() const { return neighbors_; }

private:
    unsigned sides(unsigned element) const
    {
        return with_shape_of(topology_, connectivity_.column(element), [](auto shape) { return side_count<decltype(shape)>; });
    }

    uints nodes(unsigned id) const
    {
        const unsigned* column = connectivity_.column(id / stride_);
        return with_shape_of(topology_, column, [&](auto shape) {
            const local_side local = decltype(shape)::sides[id % stride_];
            uints slots(slots_, none_index);
            for (unsigned k = 0; k < local.count; ++k) slots[k] = column[local.node[k]];
            return slots;
        });
    }

    static bool equal(uints a, uints b)
    {
        if (a.size() == 4 && (a[3] == none_index || b[3] == none_index))
        {
            if (a[3] != b[3]) return false;
            a.pop_back();
            b.pop_back();
        }
        if (a.size() == 1) return a[0] == b[0];
        if (a.size() == 2) return (a[0] == b[0] && a[1] == b[1]) || (a[0] == b[1] && a[1] == b[0]);
        const auto i = static_cast<unsigned>(std::min_element(a.begin(), a.end()) - a.begin());
        const auto j = static_cast<unsigned>(std::min_element(b.begin(), b.end()) - b.begin());
        const auto n = static_cast<unsigned>(a.size());
        const auto from = [n](const uints& s, unsigned start, unsigned k) { return s[(start + k) % n]; };
        if (a[i] != b[j]) return false;
        if (n == 4 && from(a, i, 2) != from(b, j, 2)) return false;
        return (from(a, i, 1) == from(b, j, 1) && from(a, i, n - 1) == from(b, j, n - 1)) ||
               (from(a, i, 1) == from(b, j, n - 1) && from(a, i, n - 1) == from(b, j, 1));
    }

    unsigned& entry(unsigned id) { return neighbors_[id / stride_][id % stride_]; }

    void match(uints& chain)
    {
        for (std::size_t i = 0; i < chain.size(); ++i)
        {
            const unsigned first = chain[i];
            if (first == none_index) continue;
            unsigned matches = 0;
            std::size_t latest = 0;
            unsigned latest_id = none_index;
            for (std::size_t j = i + 1; j < chain.size(); ++j)
            {
                const unsigned other = chain[j];
                if (other == none_index || !equal(nodes(first), nodes(other))) continue;
                if (link_shared_)
                {
                    entry(first) = other / stride_;
                    entry(other) = first / stride_;
                    chain[j] = none_index;
                }
                else if (matches > 0)
                {
                    entry(latest_id) = none_index;
                    chain[latest] = none_index;
                }
                ++matches;
                latest = j;
                latest_id = other;
            }
            if (matches == 0) continue;
            if (!link_shared_ && matches == 1)
            {
                entry(first) = latest_id / stride_;
                entry(latest_id) = first / stride_;
            }
            if (!link_shared_ && matches > 1) entry(first) = entry(latest_id) = none_index;
            chain[i] = chain[latest] = none_index;
        }
    }

    const dense2D<unsigned>& connectivity_;
    topology topology_;
    unsigned stride_, slots_;
    bool link_shared_;
    table neighbors_;
    std::vector<uints> chains_;
};

void expect_outcome_of_chains(const dense2D<unsigned>& connectivity, element_type kind)
{
    for (const bool link_shared : {false, true})
        EXPECT_EQ(test::columns(neighbors_of(connectivity, kind, link_shared)), side_chains(connectivity, kind, link_shared).result())
            << "kind " << kind << ", link_shared " << link_shared;
}

constexpr std::array<element_type, 9> linear_kinds{ELEM_BAR2,  ELEM_TRIA3,  ELEM_QUAD4, ELEM_SURF_ANY, ELEM_TETRA4,
                                                   ELEM_PYRA5, ELEM_PENTA6, ELEM_HEXA8, ELEM_SOLID_ANY};

/// Elements of random nodes below `limit`; a mixed matrix takes all shapes in turns.
dense2D<unsigned> random_elements(element_type kind, unsigned count, unsigned limit, test::random_source& random)
{
    dense2D<unsigned> connectivity(nbr_nodes(kind), count);
    for (unsigned e = 0; e < count; ++e)
    {
        unsigned nodes = connectivity.rows;
        if (kind == ELEM_SURF_ANY) nodes = 3 + random.below(2);
        if (kind == ELEM_SOLID_ANY) nodes = std::array<unsigned, 4>{4, 5, 6, 8}[random.below(4)];
        for (unsigned r = 0; r < connectivity.rows; ++r) connectivity(r, e) = r < nodes ? random.below(limit) : none_index;
    }
    return connectivity;
}

TEST(Neighbors, TrianglesOnACommonEdge)
{
    EXPECT_EQ(test::columns(neighbors_of(elements_of({{0, 1, 2}, {2, 1, 3}}), ELEM_TRIA3, false)),
              (table{{1, none_index, none_index}, {none_index, none_index, 0}}));
}

TEST(Neighbors, OrientationPlaysNoPart)
{
    EXPECT_EQ(test::columns(neighbors_of(elements_of({{0, 1, 2}, {1, 2, 3}}), ELEM_TRIA3, false)),
              (table{{1, none_index, none_index}, {none_index, none_index, 0}}));
}

TEST(Neighbors, ChainOfBars)
{
    EXPECT_EQ(test::columns(neighbors_of(elements_of({{0, 1}, {1, 2}}), ELEM_BAR2, false)), (table{{1, none_index}, {none_index, 0}}));
}

TEST(Neighbors, SideSharedByManyPointsAtTheEndsOfTheList)
{
    const auto three = elements_of({{0, 1}, {0, 2}, {0, 3}});
    EXPECT_EQ(test::columns(neighbors_of(three, ELEM_BAR2, true)), (table{{none_index, 2}, {none_index, 0}, {none_index, 0}}));
    EXPECT_EQ(test::columns(neighbors_of(three, ELEM_BAR2, false)), table(3, uints{none_index, none_index}));

    const auto four = elements_of({{0, 1}, {0, 2}, {0, 3}, {0, 4}});
    EXPECT_EQ(test::columns(neighbors_of(four, ELEM_BAR2, true)),
              (table{{none_index, 3}, {none_index, 0}, {none_index, 0}, {none_index, 0}}));
}

TEST(Neighbors, TriangularFaceNeverEqualsAQuadrangularOne)
{
    // The tetrahedron's face (0, 1, 2) lies within the pyramid's base (0, 1, 2, 3), and its face (0, 4, 1) is one of the pyramid's.
    const auto connectivity = elements_of({{0, 1, 2, 3, 4, none_index, none_index, none_index},
                                           {0, 1, 2, 9, none_index, none_index, none_index, none_index},
                                           {1, 7, 0, 4, none_index, none_index, none_index, none_index}});
    EXPECT_EQ(test::columns(neighbors_of(connectivity, ELEM_SOLID_ANY, false)),
              (table{{2, none_index, none_index, none_index, none_index, none_index},
                     uints(6, none_index),
                     {none_index, 0, none_index, none_index, none_index, none_index}}));
}

TEST(Neighbors, AnyRotationOfACommonTriangleMatches)
{
    const std::array<unsigned, 3> face{0, 4, 1}; // side 0 of the pyramid
    for (unsigned turn = 0; turn < 3; ++turn)
        for (const bool reversed : {false, true})
        {
            unsigned a = face[turn], b = face[(turn + 1) % 3];
            const unsigned c = face[(turn + 2) % 3];
            if (reversed) std::swap(a, b);
            const auto connectivity = elements_of(
                {{0, 1, 2, 3, 4, none_index, none_index, none_index}, {9, a, b, c, none_index, none_index, none_index, none_index}});
            const auto neighbors = neighbors_of(connectivity, ELEM_SOLID_ANY, false);
            EXPECT_EQ(neighbors(0, 0), 1u);
            EXPECT_EQ(neighbors(0, 1), 0u);
        }
}

TEST(Neighbors, QuadrangleInAnotherCyclicOrderIsAnotherSide)
{
    // Side 4 of a hexahedron is (0, 1, 2, 3) of its column.
    const auto apart = elements_of({{0, 1, 2, 3, 10, 11, 12, 13}, {0, 2, 1, 3, 20, 21, 22, 23}});
    EXPECT_EQ(neighbors_of(apart, ELEM_HEXA8, false)(4, 0), none_index);
    const auto together = elements_of({{0, 1, 2, 3, 10, 11, 12, 13}, {2, 1, 0, 3, 20, 21, 22, 23}});
    EXPECT_EQ(neighbors_of(together, ELEM_HEXA8, false)(4, 0), 1u);
}

TEST(Neighbors, RepeatedSmallestNodeCountsWhereItStandsFirst)
{
    // (1, 1, 2, 3) has 2 opposite its first 1, its reversal (3, 2, 1, 1) has 3 opposite.
    const auto connectivity = elements_of({{1, 1, 2, 3, 10, 11, 12, 13}, {3, 2, 1, 1, 20, 21, 22, 23}});
    EXPECT_EQ(neighbors_of(connectivity, ELEM_HEXA8, true)(4, 0), none_index);
    expect_outcome_of_chains(connectivity, ELEM_HEXA8);
}

TEST(Neighbors, TwoEqualSidesOfOneElementLinkItToItself)
{
    EXPECT_EQ(test::columns(neighbors_of(elements_of({{5, 5}}), ELEM_BAR2, false)), (table{{0, 0}}));
    EXPECT_EQ(test::columns(neighbors_of(elements_of({{0, 1, 1}}), ELEM_TRIA3, false)), (table{{none_index, 0, 0}}));
}

TEST(Neighbors, EmptyConnectivityComesBeforeAllTests)
{
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(7, 0), dense2D<unsigned>(0, 5)})
        for (const element_type kind : {ELEM_TRIA3, ELEM_TRIA6, ELEM_NONE})
        {
            dense2D<unsigned> neighbors(2, 5, 77u);
            EXPECT_EQ(get_neighbors(empty, kind, false, neighbors), 0);
            EXPECT_EQ(neighbors.rows, 0u);
            EXPECT_EQ(neighbors.cols, 0u);
        }
}

TEST(Neighbors, BadConnectivityGivesMinusOneAndAnEmptyMatrix)
{
    const auto refused = [](const dense2D<unsigned>& connectivity, element_type kind) {
        dense2D<unsigned> neighbors(2, 5, 77u);
        const int code = get_neighbors(connectivity, kind, true, neighbors);
        EXPECT_EQ(neighbors.cols, 0u);
        return code;
    };
    EXPECT_EQ(refused(elements_of({{0, 1, 2, 3}}), ELEM_TRIA3), -1);
    EXPECT_EQ(refused(elements_of({{0, none_index, 2}}), ELEM_TRIA3), -1);
    EXPECT_EQ(refused(elements_of({{0, 1, 2, none_index}}), ELEM_QUAD4), -1);
    EXPECT_EQ(refused(elements_of({{0, 1, none_index, 3}}), ELEM_SURF_ANY), -1);
    EXPECT_EQ(refused(elements_of({{0, 1, 2, 3}}), ELEM_TRIA6), -1); // rows before the kind
}

TEST(Neighbors, OtherKindsGiveMinusTwoAndAnEmptyMatrix)
{
    for (unsigned value = 0; value < kind_count; ++value)
    {
        const auto kind = static_cast<element_type>(value);
        if (std::find(linear_kinds.begin(), linear_kinds.end(), kind) != linear_kinds.end() || nbr_nodes(kind) == 0) continue;
        dense2D<unsigned> connectivity(nbr_nodes(kind), 1), neighbors(2, 5, 77u);
        for (unsigned r = 0; r < connectivity.rows; ++r) connectivity(r, 0) = r;
        EXPECT_EQ(get_neighbors(connectivity, kind, false, neighbors), -2) << kind;
        EXPECT_EQ(neighbors.cols, 0u);
    }
}

TEST(Neighbors, MixedKindsAreNarrowedByRows)
{
    EXPECT_EQ(neighbors_of(test::grid_of_triangles(2).connectivity, ELEM_SURF_ANY, false).rows, 3u);
    EXPECT_EQ(neighbors_of(test::grid_of_tetrahedra(1).connectivity, ELEM_SOLID_ANY, false).rows, 4u);
    EXPECT_EQ(neighbors_of(test::grid_of_pyramids(1).connectivity, ELEM_SOLID_ANY, false).rows, 5u);
    EXPECT_EQ(neighbors_of(test::grid_of_wedges(1).connectivity, ELEM_SOLID_ANY, false).rows, 5u);
}

TEST(Neighbors, AllMeshesAgreeWithChains)
{
    for (const auto& m : test::all_linear_meshes(3))
    {
        expect_outcome_of_chains(m.connectivity, m.kind);
        expect_outcome_of_chains(test::shuffled(m, 3).connectivity, m.kind);
        expect_outcome_of_chains(test::non_dense(m.connectivity, 0u), m.kind);
    }
}

TEST(Neighbors, RandomElementsWithSharedAndDegenerateSidesAgreeWithChains)
{
    test::random_source random(7);
    for (const element_type kind : linear_kinds)
        for (unsigned round = 0; round < 300; ++round)
            expect_outcome_of_chains(random_elements(kind, 1 + random.below(40), 1 + random.below(12), random), kind);
}

TEST(Neighbors, CrowdedNodesAgreeWithChains)
{
    // So many sides at every node that they are matched by sorting.
    test::random_source random(8);
    for (const element_type kind : linear_kinds)
        for (const unsigned limit : {2u, 4u, 9u}) expect_outcome_of_chains(random_elements(kind, 400, limit, random), kind);
}

TEST(Neighbors, FarApartNodeNumbersAgreeWithChains)
{
    test::random_source random(9);
    for (const element_type kind : linear_kinds)
        for (unsigned round = 0; round < 20; ++round)
        {
            auto connectivity = random_elements(kind, 30, 10, random);
            for (unsigned e = 0; e < connectivity.cols; ++e)
                for (unsigned r = 0; r < connectivity.rows; ++r)
                    if (connectivity(r, e) != none_index) connectivity(r, e) = none_index - 1 - connectivity(r, e) * 99999999u;
            expect_outcome_of_chains(connectivity, kind);
            expect_outcome_of_chains(test::non_dense(connectivity, 0u), kind);
        }
}

TEST(Neighbors, StarAndManyfoldSideTakeNoQuadraticTime)
{
    constexpr unsigned count = 300000;
    dense2D<unsigned> star(3, count), book(3, count);
    for (unsigned e = 0; e < count; ++e)
    {
        const std::array<unsigned, 3> wedge{0, 1 + e, 1 + (e + 1) % count}, page{0, 1, 2 + e};
        std::copy(wedge.begin(), wedge.end(), star.column(e));
        std::copy(page.begin(), page.end(), book.column(e));
    }
    const auto around = neighbors_of(star, ELEM_TRIA3, false);
    for (unsigned e = 0; e < count; ++e)
    {
        ASSERT_EQ(around(1, e), (e + 1) % count);
        ASSERT_EQ(around(2, e), (e + count - 1) % count);
    }
    const auto pages = neighbors_of(book, ELEM_TRIA3, true);
    ASSERT_EQ(pages(2, 0), count - 1);
    for (unsigned e = 1; e < count; ++e) ASSERT_EQ(pages(2, e), 0u);
}

TEST(Neighbors, MemoryFailureIsReported)
{
    auto far_apart = test::grid_of_triangles(3).connectivity;
    for (unsigned e = 0; e < far_apart.cols; ++e)
        for (unsigned r = 0; r < 3; ++r) far_apart(r, e) *= 1000;
    for (const auto& connectivity : {test::grid_of_triangles(3).connectivity, far_apart})
    {
        const long before = test::live_allocations();
        for (unsigned n = 1;; ++n)
        {
            dense2D<unsigned> neighbors;
            test::failing_allocation failing(n);
            const int code = get_neighbors(connectivity, ELEM_TRIA3, false, neighbors);
            if (!failing.has_failed())
            {
                EXPECT_EQ(code, 0);
                EXPECT_EQ(n, connectivity(2, 0) < 1000 ? 4u : 6u);
                break;
            }
            EXPECT_EQ(code, -199);
            EXPECT_EQ(neighbors.cols, n == 1 ? 0 : connectivity.cols);
            for (const auto& column : test::columns(neighbors)) EXPECT_EQ(column, uints(3, none_index));
        }
        EXPECT_EQ(test::live_allocations(), before);
    }
}

} // namespace
