#include <cmath>
#include <limits>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/edit.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;
using test::points_of;

using plane = vector_fixed<double, 2>;
using space = vector_fixed<double, 3>;
using point_list = std::vector<std::vector<double>>;
using element_list = std::vector<std::vector<unsigned>>;

constexpr double pi = 3.14159265358979323846;

/// Ten nodes at (k, -k), with zeros in a third row.
dense2D<double> ten_nodes(unsigned rows = 2)
{
    dense2D<double> pos(rows, 10, 0.0);
    for (unsigned c = 0; c < 10; ++c)
    {
        pos(0, c) = c;
        if (rows > 1) pos(1, c) = -1.0 * c;
    }
    return pos;
}

/// A plain copy told slowly: a map from the used nodes to their copies.
void copy_slowly(point_list& pos, element_list& copy, const element_list& connectivity)
{
    const auto old_count = pos.size();
    std::map<unsigned, unsigned> new_node;
    copy = connectivity;
    for (auto& element : copy)
        for (unsigned& node : element)
        {
            if (node == none_index) continue;
            const auto [entry, fresh] = new_node.insert({node, static_cast<unsigned>(old_count + new_node.size())});
            if (fresh) pos.push_back(std::vector<double>(pos[node]));
            node = entry->second;
        }
}

/// The contents of a matrix by value, whatever shares its block.
template <class T>
dense2D<T> duplicate(const dense2D<T>& m)
{
    dense2D<T> copy;
    copy.copy(m);
    return copy;
}

// ---- One copy ----

TEST(CopyMesh, AppendsTheUsedNodesInOrderOfFirstAppearance)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy = elements_of({{7, 7}, {7, 7}});
    EXPECT_EQ(copy_mesh(pos, copy, elements_of({{5, 2}})), 0);
    EXPECT_EQ(pos.cols, 12u);
    EXPECT_EQ(columns(pos)[10], (std::vector<double>{5, -5}));
    EXPECT_EQ(columns(pos)[11], (std::vector<double>{2, -2}));
    EXPECT_EQ(columns(copy), (element_list{{10, 11}}));
}

TEST(CopyMesh, KeepsPaddingAndSharedNodes)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_mesh(pos, copy, elements_of({{3, 1, 4, none_index}, {4, 1, 5, 9}})), 0);
    EXPECT_EQ(columns(copy), (element_list{{10, 11, 12, none_index}, {12, 11, 13, 14}}));
    EXPECT_EQ(pos(0, 12), 4);
    EXPECT_EQ(pos.cols, 15u);
}

TEST(CopyMesh, ReplacesItsOutputAlsoWhenThatIsTheSource)
{
    auto pos = ten_nodes();
    auto connectivity = elements_of({{5, 2}, {2, 0}});
    const dense2D<unsigned> view = connectivity;
    EXPECT_EQ(copy_mesh(pos, connectivity, connectivity), 0);
    EXPECT_EQ(columns(connectivity), (element_list{{10, 11}, {11, 12}}));
    EXPECT_EQ(columns(view), (element_list{{5, 2}, {2, 0}})) << "other views of the source keep it";
}

TEST(CopyMesh, OfNothingAddsNothing)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy = elements_of({{1}});
    EXPECT_EQ(copy_mesh(pos, copy, dense2D<unsigned>(3, 0)), 0);
    EXPECT_EQ(copy.cols, 0u);
    EXPECT_EQ(copy_mesh(pos, copy, dense2D<unsigned>(0, 3)), 0);
    EXPECT_EQ(copy_mesh(pos, copy, elements_of({{none_index, none_index}})), 0);
    EXPECT_EQ(columns(copy), (element_list{{none_index, none_index}}));
    EXPECT_EQ(columns(pos), columns(ten_nodes()));

    dense2D<double> empty;
    EXPECT_EQ(copy_mesh(empty, copy, dense2D<unsigned>()), 0);
    EXPECT_EQ(empty.cols, 0u);
}

TEST(CopyMesh, EntriesThatAreNoNodeStay)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_mesh(pos, copy, elements_of({{5, 10}, {0xFFFFFFFEu, 5}})), 0);
    EXPECT_EQ(columns(copy), (element_list{{10, 10}, {0xFFFFFFFEu, 10}}));
    EXPECT_EQ(pos.cols, 11u);

    dense2D<double> empty;
    EXPECT_EQ(copy_mesh(empty, copy, elements_of({{0, 1}})), 0);
    EXPECT_EQ(columns(copy), (element_list{{0, 1}}));
}

TEST(CopyMesh, AgreesWithASlowCopyOnAnyLayout)
{
    for (const auto& m : test::all_linear_meshes(4))
    {
        const auto shuffled = test::shuffled(m, 5);
        // Every third element, so that nodes are left out.
        dense2D<unsigned> part(shuffled.connectivity.rows, shuffled.connectivity.cols / 3);
        for (unsigned c = 0; c < part.cols; ++c) std::copy_n(shuffled.connectivity.column(3 * c), part.rows, part.column(c));

        auto expected_pos = columns(shuffled.pos);
        element_list expected;
        copy_slowly(expected_pos, expected, columns(part));

        auto pos = duplicate(shuffled.pos);
        dense2D<unsigned> copy;
        EXPECT_EQ(copy_mesh(pos, copy, part), 0);
        EXPECT_EQ(columns(pos), expected_pos);
        EXPECT_EQ(columns(copy), expected);

        auto wide = test::non_dense(shuffled.pos, -7.0);
        EXPECT_EQ(copy_mesh(wide, copy, test::non_dense(part, 1u)), 0);
        EXPECT_EQ(columns(wide), expected_pos);
        EXPECT_EQ(columns(copy), expected);
    }
}

TEST(CopyMesh, FailuresOfMemoryChangeNothing)
{
    for (unsigned n = 1;; ++n)
    {
        auto pos = ten_nodes();
        auto copy = elements_of({{7}});
        const auto connectivity = elements_of({{5, 2}, {3, none_index}});
        const long live = test::live_allocations();
        int result = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n, n % 2 == 0);
            result = copy_mesh(pos, copy, connectivity);
            failed = failing.has_failed();
        }
        if (!failed || result == 0)
        {
            EXPECT_GT(n, 3u);
            EXPECT_EQ(columns(copy), (element_list{{10, 11}, {12, none_index}}));
            if (!failed) break;
            continue;
        }
        EXPECT_EQ(result, -199);
        EXPECT_EQ(columns(pos), columns(ten_nodes()));
        EXPECT_EQ(columns(copy), (element_list{{7}}));
        EXPECT_EQ(test::live_allocations(), live);
        EXPECT_EQ(copy_mesh(pos, copy, connectivity), 0);
    }
}

// ---- Patterns ----

TEST(CopyPattern, PutsCopiesAtMultiplesOfTheTranslation)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copies;
    EXPECT_EQ(copy_mesh(pos, copies, plane{1, 0}, plane{0, 0}, 0.0, 3, elements_of({{5, 2}, {2, 4}})), 0);
    EXPECT_EQ(pos.cols, 19u);
    for (unsigned k = 1; k <= 3; ++k)
    {
        const unsigned first = 7 + 3 * k;
        EXPECT_EQ(columns(pos)[first], (std::vector<double>{5.0 + k, -5}));
        EXPECT_EQ(columns(pos)[first + 1], (std::vector<double>{2.0 + k, -2}));
        EXPECT_EQ(columns(pos)[first + 2], (std::vector<double>{4.0 + k, -4}));
    }
    EXPECT_EQ(columns(copies), (element_list{{10, 11}, {11, 12}, {13, 14}, {14, 15}, {16, 17}, {17, 18}}));
}

TEST(CopyPattern, WithoutAMotionStillCopies)
{
    auto pos = ten_nodes();
    auto solid = ten_nodes(1);
    dense2D<unsigned> copies;
    EXPECT_EQ(copy_mesh(pos, copies, plane{0, 0}, plane{3, 3}, 0.0, 2, elements_of({{5, 2}})), 0);
    EXPECT_EQ(columns(copies), (element_list{{10, 11}, {12, 13}}));
    EXPECT_EQ(columns(pos)[12], (std::vector<double>{5, -5}));

    copies.clear();
    EXPECT_EQ(copy_mesh(solid, copies, space{0, 0, 0}, space{3, 3, 3}, space{0, 0, 0}, 2, elements_of({{5, 2}})), 0);
    EXPECT_EQ(solid.cols, 14u);
    EXPECT_EQ(solid.rows, 1u) << "what does nothing raises no rows";
}

/// The documented steps, copy by copy, through the exported calls themselves.
template <class Vector, class Turn, class ScaledTurn>
void check_pattern(const test::mesh& m, const Vector& translation, const Vector& centre, const Turn& turn, ScaledTurn&& scaled_turn)
{
    constexpr unsigned n = 4;
    auto expected_pos = duplicate(m.pos);
    element_list expected;
    for (unsigned k = 1; k <= n; ++k)
    {
        dense2D<unsigned> copy;
        ASSERT_EQ(copy_mesh(expected_pos, copy, m.connectivity), 0);
        rotate(expected_pos, centre, scaled_turn(k), copy);
        Vector shift = translation;
        for (double& component : shift.values) component = k * component;
        translate(expected_pos, shift, copy);
        for (const auto& element : columns(copy)) expected.push_back(element);
    }

    auto pos = duplicate(m.pos);
    dense2D<unsigned> copies;
    ASSERT_EQ(copy_mesh(pos, copies, translation, centre, turn, n, m.connectivity), 0);
    EXPECT_EQ(columns(pos), columns(expected_pos));
    EXPECT_EQ(columns(copies), expected);

    auto wide = test::non_dense(m.pos, 3.0);
    copies.clear();
    ASSERT_EQ(copy_mesh(wide, copies, translation, centre, turn, n, test::non_dense(m.connectivity, 0u)), 0);
    EXPECT_EQ(columns(wide), columns(expected_pos));
    EXPECT_EQ(columns(copies), expected);
}

TEST(CopyPattern, TurnsThenMovesEveryCopyFromTheSource)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        const auto angle = [](unsigned k) { return k * 0.3; };
        check_pattern(m, plane{0.1, 2}, plane{0.5, 0.25}, 0.3, angle);

        const auto vector = [](unsigned k) { return space{k * 0.02, k * -0.3, k * 0.05}; };
        check_pattern(m, space{1, 2, 3}, space{0.5, 0.25, 1}, space{0.02, -0.3, 0.05}, vector);
        const auto none = [](unsigned) { return space{0, 0, 0}; };
        check_pattern(m, space{0, 0, 3}, space{0.5, 0.25, 1}, space{0, 0, 0}, none);
    }
}

TEST(CopyPattern, TheCentreDoesNotMove)
{
    // A quarter turn about the origin, then one unit along x per copy: (2, 0) goes to (0, 2) + (1, 0), then to (-2, 0) + (2, 0).
    auto pos = points_of({{2, 0}});
    dense2D<unsigned> copies;
    EXPECT_EQ(copy_mesh(pos, copies, plane{1, 0}, plane{0, 0}, pi / 2, 2, elements_of({{0}})), 0);
    EXPECT_NEAR(pos(0, 1), 1, 1e-15);
    EXPECT_NEAR(pos(1, 1), 2, 1e-15);
    EXPECT_NEAR(pos(0, 2), 0, 1e-15);
    EXPECT_NEAR(pos(1, 2), 0, 1e-15);
}

TEST(CopyPattern, RaisesTheRowsOfAllNodes)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copies;
    EXPECT_EQ(copy_mesh(pos, copies, space{0, 0, 2}, space{0, 0, 0}, space{0, 0, 0}, 1, elements_of({{5, 2}})), 0);
    EXPECT_EQ(pos.rows, 3u);
    EXPECT_EQ(columns(pos)[4], (std::vector<double>{4, -4, 0}));
    EXPECT_EQ(columns(pos)[10], (std::vector<double>{5, -5, 2}));
}

TEST(CopyPattern, OfNothingRaisesTheRowsForATurnOnly)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copies;
    const dense2D<unsigned> nothing(3, 0);
    EXPECT_EQ(copy_mesh(pos, copies, space{0, 0, 2}, space{0, 0, 0}, space{0, 0, 0}, 0xFFFFFFFFu, nothing), 0);
    EXPECT_EQ(pos.rows, 2u);
    EXPECT_EQ(copy_mesh(pos, copies, space{0, 0, 2}, space{0, 0, 0}, space{1, 0, 0}, 0xFFFFFFFFu, nothing), 0);
    EXPECT_EQ(pos.rows, 3u);
    EXPECT_EQ(pos.cols, 10u);
    EXPECT_EQ(copies.cols, 0u);
    EXPECT_EQ(copy_mesh(pos, copies, space{0, 0, 2}, space{0, 0, 0}, space{1, 0, 0}, 5, dense2D<unsigned>(0, 3)), 0);
    EXPECT_EQ(copies.cols, 0u);
}

TEST(CopyPattern, EmptyCoordinatesOrNoCopiesDoNothing)
{
    dense2D<double> empty(2, 0);
    auto pos = ten_nodes();
    auto copies = elements_of({{1, 2}});
    EXPECT_EQ(copy_mesh(empty, copies, plane{1, 0}, plane{0, 0}, 1.0, 3, elements_of({{5, 2}})), 0);
    EXPECT_EQ(copy_mesh(pos, copies, plane{1, 0}, plane{0, 0}, 1.0, 0, elements_of({{5, 2}})), 0);
    EXPECT_EQ(copy_mesh(pos, copies, space{1, 0, 0}, space{0, 0, 0}, space{1, 0, 0}, 0, elements_of({{5, 2}})), 0);
    EXPECT_EQ(columns(copies), (element_list{{1, 2}}));
    EXPECT_EQ(columns(pos), columns(ten_nodes()));
}

TEST(CopyPattern, SourceAndResultMayBeOneMatrix)
{
    const auto source = elements_of({{5, 2}, {2, 4}});
    const element_list expected{{5, 2}, {2, 4}, {10, 11}, {11, 12}, {13, 14}, {14, 15}};

    auto pos = ten_nodes();
    auto dense = duplicate(source);
    EXPECT_EQ(copy_mesh(pos, dense, plane{1, 0}, plane{0, 0}, 0.0, 2, dense), 0);
    EXPECT_EQ(columns(dense), expected);

    auto wide_pos = ten_nodes();
    auto wide = test::non_dense(source, 99u);
    EXPECT_EQ(copy_mesh(wide_pos, wide, plane{1, 0}, plane{0, 0}, 0.0, 2, wide), 0);
    EXPECT_EQ(columns(wide), expected);
    EXPECT_EQ(columns(wide_pos), columns(pos));

    // Two views of one block, of which one grows.
    pos = ten_nodes();
    dense = duplicate(source);
    dense2D<unsigned> view = dense;
    EXPECT_EQ(copy_mesh(pos, view, plane{1, 0}, plane{0, 0}, 0.0, 2, dense), 0);
    EXPECT_EQ(columns(view), expected);
    EXPECT_EQ(columns(dense), columns(source));
}

TEST(CopyPattern, AppendsToARaisedMatrixWithPadding)
{
    auto pos = ten_nodes();
    auto copies = elements_of({{0, 1, 2, 3}});
    EXPECT_EQ(copy_mesh(pos, copies, plane{1, 0}, plane{0, 0}, 0.0, 1, elements_of({{5, 2, 4}})), 0);
    EXPECT_EQ(columns(copies), (element_list{{0, 1, 2, 3}, {10, 11, 12, none_index}}));

    auto narrow = elements_of({{0, 1}});
    EXPECT_EQ(copy_mesh(pos, narrow, plane{1, 0}, plane{0, 0}, 0.0, 1, elements_of({{5, 2, 4}})), 0);
    EXPECT_EQ(columns(narrow), (element_list{{0, 1}, {13, 14}}));

    dense2D<unsigned> tall(5, 0);
    EXPECT_EQ(copy_mesh(pos, tall, plane{1, 0}, plane{0, 0}, 0.0, 1, elements_of({{5, 2, 4}})), 0);
    EXPECT_EQ(columns(tall), (element_list{{16, 17, 18, none_index, none_index}}));
}

TEST(CopyPattern, FailuresOfMemoryKeepTheCopiesMade)
{
    const auto connectivity = elements_of({{5, 2}, {2, none_index}});
    for (unsigned n = 1;; ++n)
    {
        auto pos = ten_nodes();
        dense2D<unsigned> copies;
        const long live = test::live_allocations();
        int result = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            result = copy_mesh(pos, copies, space{1, 0, 1}, space{0, 0, 0}, space{0, 0, 0.1}, 9, connectivity);
            failed = failing.has_failed();
        }
        EXPECT_EQ(result, failed ? -199 : 0);
        ASSERT_EQ(copies.cols % 2, 0u);
        const unsigned made = copies.cols / 2;
        EXPECT_EQ(pos.cols, 10 + 2 * made);
        for (unsigned k = 0; k < made; ++k)
        {
            EXPECT_EQ(copies(0, 2 * k), 10 + 2 * k);
            EXPECT_EQ(copies(1, 2 * k + 1), none_index);
            EXPECT_EQ(pos(2, 10 + 2 * k), k + 1.0);
        }
        if (!failed)
        {
            EXPECT_EQ(made, 9u);
            EXPECT_GT(n, 6u);
            break;
        }
        pos.clear_hard();
        copies.clear_hard();
        EXPECT_LE(test::live_allocations(), live);
    }
}

// ---- Mirror images ----

TEST(CopySymMesh, MirrorsInALine)
{
    auto pos = points_of({{3, 0}, {1, 5}});
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_sym_mesh(pos, copy, plane{1, 0}, plane{1, 0}, elements_of({{0, 1}})), 0);
    EXPECT_EQ(columns(pos), (point_list{{3, 0}, {1, 5}, {-1, 0}, {1, 5}}));
    EXPECT_EQ(columns(copy), (element_list{{2, 3}})) << "columns keep their order";
}

TEST(CopySymMesh, FollowsItsFormulaToTheLastBit)
{
    const space point{0.2, 0.3, -0.7};
    const space normal{0.3, -2, 1.1};
    const double squared = normal[0] * normal[0] + normal[1] * normal[1] + normal[2] * normal[2];

    auto pos = test::random_points(3, 100, 3);
    const auto before = columns(pos);
    dense2D<unsigned> all(1, 100);
    for (unsigned c = 0; c < 100; ++c) all(0, c) = c;
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_sym_mesh(pos, copy, point, normal, all), 0);
    ASSERT_EQ(pos.cols, 200u);
    for (unsigned c = 0; c < 100; ++c)
    {
        const auto& x = before[c];
        const double t = ((x[0] - point[0]) * normal[0] + (x[1] - point[1]) * normal[1] + (x[2] - point[2]) * normal[2]) * (-2 / squared);
        for (unsigned r = 0; r < 3; ++r)
        {
            EXPECT_EQ(pos(r, c), x[r]);
            EXPECT_EQ(pos(r, 100 + c), x[r] + t * normal[r]);
        }
    }
}

TEST(CopySymMesh, RaisesMissingRowsAndKeepsFurtherOnes)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_sym_mesh(pos, copy, space{0, 0, 1}, space{0, 0, 2}, elements_of({{5, 2}})), 0);
    EXPECT_EQ(pos.rows, 3u);
    EXPECT_EQ(columns(pos)[4], (std::vector<double>{4, -4, 0}));
    EXPECT_EQ(columns(pos)[10], (std::vector<double>{5, -5, 2}));

    auto solid = points_of({{3, 0, 8}});
    EXPECT_EQ(copy_sym_mesh(solid, copy, plane{1, 0}, plane{1, 0}, elements_of({{0}})), 0);
    EXPECT_EQ(columns(solid), (point_list{{3, 0, 8}, {-1, 0, 8}}));

    auto line = ten_nodes(1);
    EXPECT_EQ(copy_sym_mesh(line, copy, plane{0, 1}, plane{0, 1}, dense2D<unsigned>()), 0);
    EXPECT_EQ(line.rows, 2u);
    EXPECT_EQ(line.cols, 10u);
}

TEST(CopySymMesh, AZeroNormalIsRefused)
{
    auto pos = ten_nodes();
    auto copy = elements_of({{7}});
    EXPECT_EQ(copy_sym_mesh(pos, copy, plane{1, 0}, plane{0, -0.0}, elements_of({{5, 2}})), -4);
    EXPECT_EQ(copy_sym_mesh(pos, copy, space{1, 0, 0}, space{0, 0, 0}, elements_of({{5, 2}})), -4);
    EXPECT_EQ(copy_sym_mesh(pos, copy, plane{1, 0}, plane{1e-200, 0}, elements_of({{5, 2}})), -4) << "its squared length is 0";
    EXPECT_EQ(columns(pos), columns(ten_nodes()));
    EXPECT_EQ(columns(copy), (element_list{{7}}));

    dense2D<double> empty;
    EXPECT_EQ(copy_sym_mesh(empty, copy, plane{1, 0}, plane{0, 0}, elements_of({{5, 2}})), 0) << "empty input is tested first";
    EXPECT_EQ(columns(copy), (element_list{{7}}));
}

TEST(CopySymMesh, AnyOtherNormalServes)
{
    auto pos = points_of({{3, 0}});
    dense2D<unsigned> copy;
    EXPECT_EQ(copy_sym_mesh(pos, copy, plane{1, 0}, plane{1e-100, 0}, elements_of({{0}})), 0);
    EXPECT_NEAR(pos(0, 1), -1, 1e-14);
}

TEST(CopySymMesh, ANanNormalGoesOn)
{
    auto pos = ten_nodes();
    dense2D<unsigned> copy;
    const double nan_value = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(copy_sym_mesh(pos, copy, plane{0, 0}, plane{nan_value, 1}, elements_of({{5, 2}})), 0);
    EXPECT_TRUE(std::isnan(pos(0, 10)) && std::isnan(pos(1, 11)));
    EXPECT_EQ(pos(0, 5), 5);
}

TEST(CopySymMesh, FailuresOfMemoryChangeNothing)
{
    for (unsigned n = 1;; ++n)
    {
        auto pos = ten_nodes();
        auto copy = elements_of({{7}});
        const auto connectivity = elements_of({{5, 2}});
        int result = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            result = copy_sym_mesh(pos, copy, space{0, 0, 1}, space{0, 0, 2}, connectivity);
            failed = failing.has_failed();
        }
        EXPECT_EQ(result, failed ? -199 : 0);
        if (!failed)
        {
            EXPECT_GT(n, 3u);
            break;
        }
        EXPECT_EQ(columns(pos), columns(ten_nodes()));
        EXPECT_EQ(columns(copy), (element_list{{7}}));
    }
}

} // namespace
