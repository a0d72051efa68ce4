#include "gridweave/connectivity/boundaries.h"

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
using test::ids_of;
using test::list;

using uints = std::vector<unsigned>;
using table = std::vector<uints>;
constexpr unsigned none = none_index;

/// Positions of the nodes of all sides, in order, as a host sees them.
const std::vector<std::pair<element_type, table>> side_tables{
    {ELEM_BAR2, {{1}, {0}}},
    {ELEM_TRIA3, {{1, 2}, {2, 0}, {0, 1}}},
    {ELEM_QUAD4, {{0, 1}, {1, 2}, {2, 3}, {3, 0}}},
    {ELEM_TETRA4, {{1, 2, 3}, {2, 0, 3}, {1, 3, 0}, {2, 1, 0}}},
    {ELEM_PYRA5, {{0, 4, 1, none}, {1, 4, 2, none}, {2, 4, 3, none}, {3, 4, 0, none}, {0, 1, 2, 3}}},
    {ELEM_PENTA6, {{0, 1, 2, none}, {3, 5, 4, none}, {2, 1, 4, 5}, {0, 2, 5, 3}, {1, 0, 3, 4}}},
    {ELEM_HEXA8, {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}}}};

/// One element of the kind with the nodes 0, 1, 2, … in a column of the given height.
dense2D<unsigned> single(element_type kind, unsigned rows)
{
    dense2D<unsigned> connectivity(rows, 1, none);
    for (unsigned r = 0; r < nbr_nodes(kind); ++r) connectivity(r, 0) = r;
    return connectivity;
}

dense2D<unsigned> no_neighbors(element_type kind, unsigned elements)
{
    return {nbr_boundaries(kind), elements, none};
}

element_type mixed_kind_of(element_type kind)
{
    return element_dim(kind) == 2 ? ELEM_SURF_ANY : ELEM_SOLID_ANY;
}

table element_boundaries(const dense2D<unsigned>& connectivity, element_type kind)
{
    dense2D<unsigned> boundaries;
    EXPECT_EQ(get_element_boundaries(connectivity, kind, boundaries), 0);
    return columns(boundaries);
}

table mesh_boundaries(const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors, element_type kind)
{
    dense2D<unsigned> boundaries;
    EXPECT_EQ(get_mesh_boundaries(connectivity, neighbors, kind, boundaries), 0);
    return columns(boundaries);
}

dense2D<unsigned> neighbors_of(const test::mesh& m)
{
    dense2D<unsigned> neighbors;
    EXPECT_EQ(get_neighbors(m.connectivity, m.kind, false, neighbors), 0);
    return neighbors;
}

/// Quadratic kinds, ELEM_BAR_ANY and ELEM_NODE: every kind with nodes that these functions do not serve.
std::vector<element_type> other_kinds()
{
    std::vector<element_type> kinds;
    for (unsigned value = 0; value < kind_count; ++value)
    {
        const auto kind = static_cast<element_type>(value);
        if (nbr_nodes(kind) != 0 && linear_topology(kind) == topology::none) kinds.push_back(kind);
    }
    return kinds;
}

TEST(Boundaries, EverySideStandsInTheOrderOfItsTable)
{
    for (const auto& [kind, sides] : side_tables)
    {
        EXPECT_EQ(element_boundaries(single(kind, nbr_nodes(kind)), kind), sides) << kind;
        EXPECT_EQ(mesh_boundaries(single(kind, nbr_nodes(kind)), no_neighbors(kind, 1), kind), sides) << kind;
    }
}

TEST(Boundaries, BarSidesAreTheOppositeNodes)
{
    EXPECT_EQ(mesh_boundaries(elements_of({{4, 9}}), no_neighbors(ELEM_BAR2, 1), ELEM_BAR2), (table{{9}, {4}}));
}

TEST(Boundaries, MixedColumnsHaveTheSidesOfTheirShape)
{
    for (const auto& [kind, sides] : side_tables)
    {
        if (kind == ELEM_BAR2) continue;
        const element_type mixed = mixed_kind_of(kind);
        table padded = sides;
        for (auto& side : padded) side.resize(mixed == ELEM_SURF_ANY ? 2 : 4, none);
        const auto connectivity = single(kind, nbr_nodes(mixed));
        EXPECT_EQ(element_boundaries(connectivity, mixed), padded) << kind;

        // Rows beyond the sides of the shape are not read: an entry there makes no side, and none does not either.
        for (const unsigned beyond : {0u, none})
        {
            auto neighbors = no_neighbors(mixed, 1);
            for (auto r = static_cast<unsigned>(sides.size()); r < neighbors.rows; ++r) neighbors(r, 0) = beyond;
            EXPECT_EQ(mesh_boundaries(connectivity, neighbors, mixed), padded) << kind;

            dense1D<unsigned> ids;
            unsigned stride = 0;
            EXPECT_EQ(get_mesh_bounding_elements(connectivity, neighbors, mixed, ids, stride), 0);
            EXPECT_EQ(stride, mixed == ELEM_SURF_ANY ? 4u : 6u);
            EXPECT_EQ(ids.size, sides.size());
        }
    }
}

TEST(Boundaries, IdsOfMixedColumnsUseTheStrideOfTheKind)
{
    const auto connectivity = elements_of({{0, 1, 2, none}, {2, 1, 3, none}});
    const auto neighbors = elements_of({{1, none, none, none}, {none, none, 0, none}});
    dense1D<unsigned> ids;
    unsigned stride = 0;
    EXPECT_EQ(get_mesh_bounding_elements(connectivity, neighbors, ELEM_SURF_ANY, ids, stride), 0);
    EXPECT_EQ(stride, 4u);
    EXPECT_EQ(list(ids), (uints{1, 2, 4, 5}));
}

TEST(Boundaries, MixedKindsAreNarrowedByRows)
{
    const auto expect_stride = [](const test::mesh& m, element_type mixed, unsigned expected) {
        dense1D<unsigned> ids;
        unsigned stride = 0;
        EXPECT_EQ(get_mesh_bounding_elements(m.connectivity, neighbors_of(m), mixed, ids, stride), 0);
        EXPECT_EQ(stride, expected);
        EXPECT_EQ(mesh_boundaries(m.connectivity, neighbors_of(m), mixed), mesh_boundaries(m.connectivity, neighbors_of(m), m.kind));
        EXPECT_EQ(element_boundaries(m.connectivity, mixed), element_boundaries(m.connectivity, m.kind));
    };
    expect_stride(test::grid_of_triangles(2), ELEM_SURF_ANY, 3);
    expect_stride(test::grid_of_tetrahedra(2), ELEM_SOLID_ANY, 4);
    expect_stride(test::grid_of_pyramids(2), ELEM_SOLID_ANY, 5);
    expect_stride(test::grid_of_wedges(2), ELEM_SOLID_ANY, 5);
}

TEST(Boundaries, FreeSidesOfGridsAreThoseOfTheirOutline)
{
    const std::vector<unsigned> expected{2, 12, 12, 12, 108, 54, 72, 54}; // n = 3; the mixed solid is compared below
    const auto meshes = test::all_linear_meshes(3);
    for (unsigned k = 0; k < expected.size(); ++k)
        EXPECT_EQ(mesh_boundaries(meshes[k].connectivity, neighbors_of(meshes[k]), meshes[k].kind).size(), expected[k]) << k;
}

TEST(Boundaries, FreeSidesAreTheSidesOfTheIds)
{
    for (const auto& m : test::all_linear_meshes(3))
        for (const bool dense : {true, false})
        {
            const auto all = neighbors_of(m);
            const auto neighbors = dense ? all : test::non_dense(all, none);
            const auto connectivity = dense ? m.connectivity : test::non_dense(m.connectivity, 0u);
            dense1D<unsigned> ids;
            unsigned stride = 0;
            ASSERT_EQ(get_mesh_bounding_elements(connectivity, neighbors, m.kind, ids, stride), 0);
            ASSERT_GT(ids.size, 0u);

            table expected;
            for (const unsigned id : ids)
            {
                EXPECT_EQ(all(id % stride, id / stride), none);
                expected.push_back(
                    element_boundaries(m.connectivity.sub_matrix(0, id / stride, m.connectivity.rows, 1), m.kind)[id % stride]);
            }
            EXPECT_EQ(mesh_boundaries(connectivity, neighbors, m.kind), expected) << m.kind;
            for (unsigned k = 1; k < ids.size; ++k) EXPECT_LT(ids[k - 1], ids[k]);
        }
}

TEST(Boundaries, ResultsAreAppended)
{
    const auto m = test::grid_of_tetrahedra(1);
    const auto neighbors = neighbors_of(m);
    dense2D<unsigned> sides, free_sides;
    dense1D<unsigned> ids;
    unsigned stride = 0;
    for (unsigned call = 1; call <= 2; ++call)
    {
        ASSERT_EQ(get_element_boundaries(m.connectivity, m.kind, sides), 0);
        ASSERT_EQ(get_mesh_boundaries(m.connectivity, neighbors, m.kind, free_sides), 0);
        ASSERT_EQ(get_mesh_bounding_elements(m.connectivity, neighbors, m.kind, ids, stride), 0);
        EXPECT_EQ(sides.cols, 24 * call);
        EXPECT_EQ(free_sides.cols, 12 * call);
        EXPECT_EQ(ids.size, 12 * call);
    }
    EXPECT_EQ(columns(sides.sub_matrix(0, 0, 3, 24)), columns(sides.sub_matrix(0, 24, 3, 24)));
    EXPECT_EQ(list(ids.sub_vector(0, 12)), list(ids.sub_vector(12, 12)));
}

TEST(Boundaries, EmptyConnectivityComesBeforeAllTests)
{
    dense2D<unsigned> boundaries(7, 1, 5u);
    dense1D<unsigned> ids;
    for (const auto& empty : {dense2D<unsigned>(), dense2D<unsigned>(3, 0)})
    {
        unsigned stride = 9;
        EXPECT_EQ(get_element_boundaries(empty, ELEM_TRIA6, boundaries), 0);
        EXPECT_EQ(get_mesh_boundaries(empty, boundaries, ELEM_TRIA6, boundaries), 0);
        EXPECT_EQ(get_mesh_bounding_elements(empty, boundaries, ELEM_TRIA6, ids, stride), 0);
        EXPECT_EQ(stride, 0u);
    }
    EXPECT_EQ(columns(boundaries), table{uints(7, 5u)});

    // No rows but columns: empty for two of them, and of a wrong height for the third.
    const dense2D<unsigned> flat(0, 5);
    unsigned stride = 9;
    EXPECT_EQ(get_element_boundaries(flat, ELEM_TRIA3, boundaries), 0);
    EXPECT_EQ(get_mesh_bounding_elements(flat, boundaries, ELEM_TRIA3, ids, stride), 0);
    EXPECT_EQ(stride, 0u);
    EXPECT_EQ(get_mesh_boundaries(flat, boundaries, ELEM_TRIA3, boundaries), -1);
}

TEST(ElementBoundaries, TestsRunInTheirOrder)
{
    dense2D<unsigned> tall(3, 1, 5u), result;
    EXPECT_EQ(get_element_boundaries(elements_of({{0, 1, 2, 3}}), ELEM_TRIA3, result), -1);
    EXPECT_EQ(get_element_boundaries(elements_of({{0, 1, none}}), ELEM_TRIA3, tall), -1);
    EXPECT_EQ(get_element_boundaries(elements_of({{0, 1, 2}}), ELEM_TRIA6, result), -1);
    EXPECT_EQ(get_element_boundaries(elements_of({{0, 1, 2}}), ELEM_TRIA3, tall), -2);
    for (const element_type kind : other_kinds())
        EXPECT_EQ(get_element_boundaries(single(kind, nbr_nodes(kind)), kind, result), -2) << kind;
    EXPECT_EQ(result.cols, 0u);
    EXPECT_EQ(columns(tall), table{uints(3, 5u)});
}

TEST(MeshBoundaries, TestsRunInTheirOrder)
{
    const auto one = elements_of({{0, 1, 2}});
    const auto alone = no_neighbors(ELEM_TRIA3, 1);
    dense2D<unsigned> tall(3, 1, 5u), result;

    EXPECT_EQ(get_mesh_boundaries(elements_of({{0, 1, 2, 3}}), dense2D<unsigned>(), ELEM_TRIA3, tall), -1);
    EXPECT_EQ(get_mesh_boundaries(one, no_neighbors(ELEM_TRIA3, 2), ELEM_TRIA3, tall), -2);
    EXPECT_EQ(get_mesh_boundaries(one, no_neighbors(ELEM_QUAD4, 1), ELEM_TRIA3, tall), -2);
    EXPECT_EQ(get_mesh_boundaries(one, elements_of({{1, none, none}}), ELEM_TRIA3, tall), -2);
    EXPECT_EQ(get_mesh_boundaries(one, alone, ELEM_TRIA3, tall), -4);
    for (const element_type kind : other_kinds())
    {
        const auto connectivity = single(kind, nbr_nodes(kind));
        EXPECT_EQ(get_mesh_boundaries(connectivity, no_neighbors(ELEM_HEXA8, 7), kind, result), -2) << kind;
        if (kind == ELEM_NODE) continue; // it has no sides, so no neighbour matrix with entries fits it
        dense2D<unsigned> other(nbr_boundary_nodes(kind) + 1, 1);
        EXPECT_EQ(get_mesh_boundaries(connectivity, no_neighbors(kind, 1), kind, other), -4) << kind;
        EXPECT_EQ(get_mesh_boundaries(connectivity, no_neighbors(kind, 1), kind, result), -3) << kind;
    }
    EXPECT_EQ(get_mesh_boundaries(single(ELEM_NODE, 1), dense2D<unsigned>(0, 1), ELEM_NODE, result), -3);
    EXPECT_EQ(result.cols, 0u);
    EXPECT_EQ(columns(tall), table{uints(3, 5u)});
}

TEST(BoundingElements, TestsRunInTheirOrder)
{
    dense1D<unsigned> ids;
    unsigned stride = 9;
    EXPECT_EQ(get_mesh_bounding_elements(elements_of({{0, 1, 2, 3}}), dense2D<unsigned>(), ELEM_TRIA3, ids, stride), -1);
    EXPECT_EQ(stride, 0u);
    for (const element_type kind : other_kinds())
    {
        EXPECT_EQ(get_mesh_bounding_elements(single(kind, nbr_nodes(kind)), dense2D<unsigned>(), kind, ids, stride), -2) << kind;
        EXPECT_EQ(stride, nbr_boundaries(kind));
    }
    const auto one = elements_of({{0, 1, 2}});
    EXPECT_EQ(get_mesh_bounding_elements(one, no_neighbors(ELEM_TRIA3, 2), ELEM_TRIA3, ids, stride), -2);
    EXPECT_EQ(get_mesh_bounding_elements(one, no_neighbors(ELEM_QUAD4, 1), ELEM_TRIA3, ids, stride), -2);
    EXPECT_EQ(stride, 3u);
    EXPECT_TRUE(ids.empty());

    // An entry beyond the elements is a neighbour like any other here.
    EXPECT_EQ(get_mesh_bounding_elements(one, elements_of({{70, none, 80}}), ELEM_TRIA3, ids, stride), 0);
    EXPECT_EQ(list(ids), (uints{1}));
}

TEST(Boundaries, OutputOfNoRowsAndSomeColumnsTakesNoAppend)
{
    const auto one = elements_of({{0, 1, 2}});
    dense2D<unsigned> flat(0, 5);
    EXPECT_EQ(get_element_boundaries(one, ELEM_TRIA3, flat), -199);
    EXPECT_EQ(get_mesh_boundaries(one, no_neighbors(ELEM_TRIA3, 1), ELEM_TRIA3, flat), -199);
    EXPECT_EQ(flat.cols, 5u);
}

TEST(Boundaries, PartOfALargerMatrixTakesAppends)
{
    auto part = test::non_dense(elements_of({{7, 8}}), 6u);
    ASSERT_EQ(get_element_boundaries(elements_of({{0, 1, 2}}), ELEM_TRIA3, part), 0);
    EXPECT_EQ(columns(part), (table{{7, 8}, {1, 2}, {2, 0}, {0, 1}}));
}

/// Fails the n-th allocation for n = 1, 2, … and hands what was appended until then to `check(columns or ids)`.
template <class Output, class Call, class Check>
void expect_partial_results(Call call, Check check)
{
    const long before = test::live_allocations();
    for (unsigned n = 1;; ++n)
    {
        Output output;
        test::failing_allocation failing(n);
        const int code = call(output);
        check(output, failing.has_failed());
        EXPECT_EQ(code, failing.has_failed() ? -199 : 0);
        if (!failing.has_failed()) break;
    }
    EXPECT_EQ(test::live_allocations(), before);
}

TEST(Boundaries, MemoryFailureKeepsWhatWasAppended)
{
    const auto m = test::grid_of_tetrahedra(2);
    const auto neighbors = neighbors_of(m);
    const auto begins_like = [](const auto& part, const auto& all, bool failed) {
        ASSERT_LE(part.size(), all.size());
        EXPECT_EQ(part, std::decay_t<decltype(all)>(all.begin(), all.begin() + static_cast<std::ptrdiff_t>(part.size())));
        EXPECT_EQ(part.size() < all.size(), failed);
    };

    const table all_sides = element_boundaries(m.connectivity, m.kind);
    expect_partial_results<dense2D<unsigned>>([&](auto& out) { return get_element_boundaries(m.connectivity, m.kind, out); },
                                              [&](const auto& out, bool failed) { begins_like(columns(out), all_sides, failed); });

    const table free_sides = mesh_boundaries(m.connectivity, neighbors, m.kind);
    expect_partial_results<dense2D<unsigned>>([&](auto& out) { return get_mesh_boundaries(m.connectivity, neighbors, m.kind, out); },
                                              [&](const auto& out, bool failed) { begins_like(columns(out), free_sides, failed); });

    dense1D<unsigned> ids;
    unsigned stride = 0;
    ASSERT_EQ(get_mesh_bounding_elements(m.connectivity, neighbors, m.kind, ids, stride), 0);
    expect_partial_results<dense1D<unsigned>>(
        [&](auto& out) { return get_mesh_bounding_elements(m.connectivity, neighbors, m.kind, out, stride); },
        [&](const auto& out, bool failed) { begins_like(list(out), list(ids), failed); });
}

TEST(Boundaries, FaceCopiesEndBehindTheLastNode)
{
    const std::array<unsigned, 8> nodes{10, 11, 12, 13, 14, 15, 16, 17};
    using copy = unsigned* (*)(unsigned, const unsigned*, unsigned*);
    const auto expect_table = [&](copy face, const table& sides) {
        for (unsigned s = 0; s < sides.size(); ++s)
        {
            uints out(5, 99);
            uints expected;
            for (const unsigned position : sides[s])
                if (position != none) expected.push_back(10 + position);
            unsigned* const end = face(s, nodes.data(), out.data());
            EXPECT_EQ(end - out.data(), static_cast<std::ptrdiff_t>(expected.size()));
            expected.resize(5, 99);
            EXPECT_EQ(out, expected);
        }
    };
    expect_table(copy_tetra_face, side_tables[3].second);
    expect_table(copy_pyramid_face, side_tables[4].second);
    expect_table(copy_wedge_face, side_tables[5].second);
    expect_table(copy_hexa_face, side_tables[6].second);
}

} // namespace
