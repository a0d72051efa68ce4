#include <array>
#include <cmath>
#include <limits>
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
using test::ids_of;
using test::points_of;

using plane = vector_fixed<double, 2>;
using space = vector_fixed<double, 3>;
using column_list = std::vector<std::vector<double>>;

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();
constexpr double pi = 3.14159265358979323846;

/// Five nodes at (k, 10 k, 100 k), in 1 to 3 rows.
dense2D<double> five_nodes(unsigned rows)
{
    dense2D<double> pos(rows, 5);
    const double scale[3] = {1, 10, 100};
    for (unsigned c = 0; c < 5; ++c)
        for (unsigned r = 0; r < rows; ++r) pos(r, c) = scale[r] * c;
    return pos;
}

/// Two triangles that use nodes 1, 3 and 4, some of them twice, and a stray node 9.
dense2D<unsigned> used_1_3_4()
{
    return elements_of({{3, 1, none_index}, {4, 3, 9}});
}

// ---- Literal references, in the order of operations of the documentation. ----

std::vector<double> turned(const std::vector<double>& x, const plane& centre, double angle)
{
    const double c = std::cos(angle), s = std::sin(angle);
    const double dx = x[0] - centre[0], dy = x[1] - centre[1];
    std::vector<double> y = x;
    y[0] = centre[0] + (dx * c - dy * s);
    y[1] = centre[1] + (dx * s + dy * c);
    return y;
}

std::array<std::array<double, 3>, 3> rodrigues(const space& r)
{
    const double t = r[0] * r[0] + r[1] * r[1] + r[2] * r[2];
    const double angle = std::sqrt(t);
    double a = std::sin(angle) / angle;
    double b = (1 - std::cos(angle)) / t;
    if (!(angle > 0.1))
    {
        a = 1 - t / 6 + t * t / 120 - t * t * t / 5040 + t * t * t * t / 362880 - t * t * t * t * t / 39916800;
        b = 0.5 - t / 24 + t * t / 720 - t * t * t / 40320 + t * t * t * t / 3628800;
    }
    const double k[3][3] = {{0, -r[2], r[1]}, {r[2], 0, -r[0]}, {-r[1], r[0], 0}};
    std::array<std::array<double, 3>, 3> m{};
    for (unsigned i = 0; i < 3; ++i)
        for (unsigned j = 0; j < 3; ++j)
        {
            double squared = 0;
            for (unsigned l = 0; l < 3; ++l) squared += k[i][l] * k[l][j];
            m[i][j] = (i == j ? 1.0 : 0.0) + a * k[i][j] + b * squared;
        }
    return m;
}

std::vector<double> turned(const std::vector<double>& x, const space& centre, const space& rotation)
{
    const auto m = rodrigues(rotation);
    const double d[3] = {x[0] - centre[0], x[1] - centre[1], x[2] - centre[2]};
    std::vector<double> y = x;
    for (unsigned i = 0; i < 3; ++i) y[i] = centre[i] + (m[i][0] * d[0] + m[i][1] * d[1] + m[i][2] * d[2]);
    return y;
}

template <class Transform>
column_list each(const dense2D<double>& pos, Transform&& transform)
{
    column_list all = columns(pos);
    for (auto& x : all) x = transform(x);
    return all;
}

// ---- translate ----

TEST(Translate, MovesEveryNode)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(translate(pos, plane{0, 1}), 5);
    EXPECT_EQ(columns(pos), (column_list{{0, 1}, {1, 11}, {2, 21}, {3, 31}, {4, 41}}));

    pos = five_nodes(3);
    EXPECT_EQ(translate(pos, space{1, 2, -3}), 5);
    EXPECT_EQ(columns(pos), (column_list{{1, 2, -3}, {2, 12, 97}, {3, 22, 197}, {4, 32, 297}, {5, 42, 397}}));
}

TEST(Translate, ByZeroDoesNothing)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(translate(pos, plane{0, -0.0}), 0);
    EXPECT_EQ(translate(pos, plane{0, 0}, ids_of({1})), 0);
    EXPECT_EQ(translate(pos, plane{0, 0}, used_1_3_4()), 0);
    EXPECT_EQ(translate(pos, space{0, 0, 0}), 0);
    EXPECT_EQ(translate(pos, space{0, 0, 0}, ids_of({1})), 0);
    EXPECT_EQ(translate(pos, space{0, 0, 0}, used_1_3_4()), 0);
    EXPECT_EQ(columns(pos), columns(five_nodes(1)));
}

TEST(Translate, ListedNodesMoveOncePerEntry)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(translate(pos, plane{0.5, 0}, ids_of({3, 3, 7})), 2);
    EXPECT_EQ(columns(pos), (column_list{{0, 0}, {1, 10}, {2, 20}, {4, 30}, {4, 40}}));
    EXPECT_EQ(translate(pos, plane{1, 1}, ids_of({none_index, 5, 0})), 1);
    EXPECT_EQ(pos(0, 0), 1);

    pos = five_nodes(3);
    EXPECT_EQ(translate(pos, space{0, 0, 1}, ids_of({4, none_index, 4, 2, 0xFFFFFFFEu})), 3);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {1, 10, 100}, {2, 20, 201}, {3, 30, 300}, {4, 40, 402}}));
}

TEST(Translate, UsedNodesMoveOnce)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(translate(pos, plane{0.5, 0}, used_1_3_4()), 3);
    EXPECT_EQ(columns(pos), (column_list{{0, 0}, {1.5, 10}, {2, 20}, {3.5, 30}, {4.5, 40}}));

    pos = five_nodes(3);
    EXPECT_EQ(translate(pos, space{0.5, 0, 0}, test::non_dense(used_1_3_4(), 0u)), 3);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {1.5, 10, 100}, {2, 20, 200}, {3.5, 30, 300}, {4.5, 40, 400}}));
}

TEST(Translate, RaisesMissingRowsWithZeros)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(translate(pos, plane{1, 7}), 5);
    EXPECT_EQ(columns(pos), (column_list{{1, 7}, {2, 7}, {3, 7}, {4, 7}, {5, 7}}));

    pos = five_nodes(2);
    EXPECT_EQ(translate(pos, space{0, 0, 7}, ids_of({1})), 1);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {1, 10, 7}, {2, 20, 0}, {3, 30, 0}, {4, 40, 0}}));
}

TEST(Translate, AnEmptyListRaisesNothing)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(translate(pos, plane{1, 1}, dense1D<unsigned>()), 0);
    EXPECT_EQ(translate(pos, space{1, 1, 1}, dense1D<unsigned>()), 0);
    EXPECT_EQ(translate(pos, space{1, 1, 1}, elements_of({{none_index, none_index}})), 0);
    EXPECT_EQ(pos.rows, 1u);
}

TEST(Translate, KeepsRowsBeyondItsDimension)
{
    auto pos = five_nodes(3);
    EXPECT_EQ(translate(pos, plane{1, 1}), 5);
    EXPECT_EQ(columns(pos), (column_list{{1, 1, 0}, {2, 11, 100}, {3, 21, 200}, {4, 31, 300}, {5, 41, 400}}));
}

TEST(Translate, NanPassesTheTestAndFillsTheNodes)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(translate(pos, plane{nan_value, 0}), 5);
    for (unsigned c = 0; c < 5; ++c)
    {
        EXPECT_TRUE(std::isnan(pos(0, c)));
        EXPECT_EQ(pos(1, c), 10.0 * c);
    }
}

// ---- rotate ----

TEST(Rotate, AQuarterTurnTakesXToY)
{
    auto pos = points_of({{1, 0}});
    EXPECT_EQ(rotate(pos, plane{0, 0}, pi / 2), 1);
    EXPECT_NEAR(pos(0, 0), 0, 1e-16);
    EXPECT_EQ(pos(1, 0), 1);
}

TEST(Rotate, FollowsThePlaneFormulaToTheLastBit)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto before = test::random_points(rows, 1001, 7);
        const plane centre{0.3, -1.7};
        const auto expected = each(before, [&](const auto& x) { return turned(x, centre, 2.1); });

        dense2D<double> pos;
        ASSERT_TRUE(pos.copy(before));
        EXPECT_EQ(rotate(pos, centre, 2.1), 1001);
        EXPECT_EQ(columns(pos), expected);

        auto part = test::non_dense(before, 5.0);
        EXPECT_EQ(rotate(part, centre, 2.1), 1001);
        EXPECT_EQ(columns(part), expected);
    }
}

TEST(Rotate, FollowsTheSpaceFormulaToTheLastBit)
{
    const auto before = test::random_points(3, 1001, 8);
    const space centre{0.3, -1.7, 11};
    for (const space& rotation : {space{0.5, -1, 2}, space{0.03, 0.04, -0.05}, space{1e-9, 0, 2e-9}, space{0.1, 0, 0}, space{0, 0, -4}})
    {
        const auto expected = each(before, [&](const auto& x) { return turned(x, centre, rotation); });

        dense2D<double> pos;
        ASSERT_TRUE(pos.copy(before));
        EXPECT_EQ(rotate(pos, centre, rotation), 1001);
        EXPECT_EQ(columns(pos), expected);

        auto part = test::non_dense(before, 5.0);
        EXPECT_EQ(rotate(part, centre, rotation), 1001);
        EXPECT_EQ(columns(part), expected);
    }
}

TEST(Rotate, TurnsListedNodesOncePerEntryAndUsedNodesOnce)
{
    const auto before = five_nodes(3);
    const space centre{1, 2, 3};
    const space rotation{0.1, 0.2, 0.3};
    const auto once = each(before, [&](const auto& x) { return turned(x, centre, rotation); });

    auto pos = five_nodes(3);
    EXPECT_EQ(rotate(pos, centre, rotation, ids_of({3, 3, 7, none_index, 0})), 3);
    auto expected = columns(before);
    expected[0] = once[0];
    expected[3] = turned(once[3], centre, rotation);
    EXPECT_EQ(columns(pos), expected);

    pos = five_nodes(3);
    EXPECT_EQ(rotate(pos, centre, rotation, used_1_3_4()), 3);
    expected = columns(before);
    for (const unsigned node : {1u, 3u, 4u}) expected[node] = once[node];
    EXPECT_EQ(columns(pos), expected);
}

TEST(Rotate, TurnsListedAndUsedNodesInThePlane)
{
    const plane centre{1, 2};
    const auto once = each(five_nodes(2), [&](const auto& x) { return turned(x, centre, 0.7); });

    auto pos = five_nodes(2);
    EXPECT_EQ(rotate(pos, centre, 0.7, ids_of({4, 5, 4})), 2);
    auto expected = columns(five_nodes(2));
    expected[4] = turned(once[4], centre, 0.7);
    EXPECT_EQ(columns(pos), expected);

    pos = five_nodes(2);
    EXPECT_EQ(rotate(pos, centre, 0.7, used_1_3_4()), 3);
    expected = columns(five_nodes(2));
    for (const unsigned node : {1u, 3u, 4u}) expected[node] = once[node];
    EXPECT_EQ(columns(pos), expected);
}

TEST(Rotate, AboutZActsAsInThePlane)
{
    auto flat = five_nodes(3);
    auto solid = five_nodes(3);
    EXPECT_EQ(rotate(flat, plane{0, 0}, pi / 2), 5);
    EXPECT_EQ(rotate(solid, space{0, 0, 0}, space{0, 0, pi / 2}), 5);
    for (unsigned c = 0; c < 5; ++c)
        for (unsigned r = 0; r < 3; ++r) EXPECT_NEAR(flat(r, c), solid(r, c), 1e-13) << r << ' ' << c;
    EXPECT_EQ(flat(2, 4), 400);
    EXPECT_EQ(solid(2, 4), 400);
}

TEST(Rotate, ByZeroDoesNothing)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(rotate(pos, plane{1, 1}, 0.0), 0);
    EXPECT_EQ(rotate(pos, plane{1, 1}, -0.0, ids_of({1})), 0);
    EXPECT_EQ(rotate(pos, plane{1, 1}, 0.0, used_1_3_4()), 0);
    EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{0, -0.0, 0}), 0);
    EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{0, 0, 0}, ids_of({1})), 0);
    EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{0, 0, 0}, used_1_3_4()), 0);
    EXPECT_EQ(columns(pos), columns(five_nodes(1)));
}

TEST(Rotate, AnEmptyListRaisesTheRowsAllTheSame)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(rotate(pos, plane{1, 1}, 1.0, dense1D<unsigned>()), 0);
    EXPECT_EQ(columns(pos), (column_list{{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}}));
    EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{1, 0, 0}, dense1D<unsigned>()), 0);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}}));

    pos = five_nodes(2);
    EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{1, 0, 0}, elements_of({{none_index}})), 0);
    EXPECT_EQ(pos.rows, 3u);
}

TEST(Rotate, ByZeroWinsOverRaisingForAnEmptyList)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(rotate(pos, plane{1, 1}, 0.0, dense1D<unsigned>()), 0);
    EXPECT_EQ(pos.rows, 1u);
}

TEST(Rotate, NanFillsTheNodes)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(rotate(pos, plane{0, 0}, nan_value), 5);
    EXPECT_TRUE(std::isnan(pos(0, 2)) && std::isnan(pos(1, 2)));

    pos = five_nodes(3);
    EXPECT_EQ(rotate(pos, space{0, 0, 0}, space{0, nan_value, 0}), 5);
    for (unsigned r = 0; r < 3; ++r) EXPECT_TRUE(std::isnan(pos(r, 2)));
}

/// The rotation in more digits than the library's, by the direct form of the coefficients where they are sound.
std::array<long double, 3> turned_exactly(const space& x, const space& r)
{
    const long double rx = r[0], ry = r[1], rz = r[2];
    const long double t = rx * rx + ry * ry + rz * rz;
    const long double angle = std::sqrt(t);
    const long double half = std::sin(angle / 2) / (angle / 2);
    const long double a = std::sin(angle) / angle;
    const long double b = half * half / 2; // (1 - cos θ) / θ² without the cancellation
    const long double k[3] = {ry * x[2] - rz * x[1], rz * x[0] - rx * x[2], rx * x[1] - ry * x[0]};
    const long double kk[3] = {ry * k[2] - rz * k[1], rz * k[0] - rx * k[2], rx * k[1] - ry * k[0]};
    return {x[0] + a * k[0] + b * kk[0], x[1] + a * k[1] + b * kk[1], x[2] + a * k[2] + b * kk[2]};
}

TEST(Rotate, SmallVectorsKeepFullAccuracy)
{
    // Axis points, so that an entry of the matrix shows by itself, off-diagonal ones far below 1 included.
    const space direction{0.6, -0.48, 0.64};
    for (const double length : {1e-150, 1e-30, 1e-12, 1e-8, 1e-5, 1e-3, 0.03, 0.0999, 0.1, 0.1001, 0.5})
    {
        const space rotation{length * direction[0], length * direction[1], length * direction[2]};
        for (unsigned axis = 0; axis < 3; ++axis)
        {
            space x{0, 0, 0};
            x[axis] = 1;
            auto pos = points_of({{x[0], x[1], x[2]}});
            EXPECT_EQ(rotate(pos, space{0, 0, 0}, rotation), 1);
            const auto expected = turned_exactly(x, rotation);
            for (unsigned r = 0; r < 3; ++r)
            {
                const auto difference = static_cast<double>(std::abs(pos(r, 0) - expected[r]));
                // Above the limit the direct form of b is good to some 2e-14 by itself.
                const double accuracy = length > 0.1 ? 2e-15 : 4e-16;
                EXPECT_LE(difference, accuracy * std::abs(static_cast<double>(expected[r]))) << length << ' ' << axis << ' ' << r;
            }
        }
    }
}

TEST(Rotate, SeriesAndDirectFormsMeetAtATenth)
{
    const double above = std::nextafter(0.1, 1.0);
    const double root = std::sqrt(0.5);
    for (const space& direction : {space{1, 0, 0}, space{0, root, root}})
    {
        auto low = points_of({{1, 2, 3}});
        auto high = points_of({{1, 2, 3}});
        rotate(low, space{0, 0, 0}, space{0.1 * direction[0], 0.1 * direction[1], 0.1 * direction[2]});
        rotate(high, space{0, 0, 0}, space{above * direction[0], above * direction[1], above * direction[2]});
        for (unsigned r = 0; r < 3; ++r) EXPECT_NEAR(low(r, 0), high(r, 0), 1e-14);
    }
}

TEST(Rotate, TheSeriesServesATenthItself)
{
    // With no y component in the rotation, the entry that takes z to x is b × r.x × r.z, and shows which form b came from.
    const space rotation{0.06, 0, 0.08};
    const double t = rotation[0] * rotation[0] + rotation[2] * rotation[2];
    ASSERT_EQ(std::sqrt(t), 0.1);
    const double series = 0.5 - t / 24 + t * t / 720 - t * t * t / 40320 + t * t * t * t / 3628800;
    const double direct = (1 - std::cos(std::sqrt(t))) / t;
    ASSERT_NE(series * (rotation[0] * rotation[2]), direct * (rotation[0] * rotation[2]));

    auto pos = points_of({{0, 0, 1}});
    EXPECT_EQ(rotate(pos, space{0, 0, 0}, rotation), 1);
    EXPECT_EQ(pos(0, 0), series * (rotation[0] * rotation[2]));
}

// ---- zoom ----

TEST(Zoom, ScalesTheDistanceFromTheCentre)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(zoom(pos, plane{1, 10}, 2.0), 5);
    EXPECT_EQ(columns(pos), (column_list{{-1, -10}, {1, 10}, {3, 30}, {5, 50}, {7, 70}}));

    pos = five_nodes(3);
    EXPECT_EQ(zoom(pos, space{1, 10, 100}, 0.0), 5);
    EXPECT_EQ(columns(pos), column_list(5, {1, 10, 100}));
}

TEST(Zoom, FollowsItsFormulaToTheLastBit)
{
    const auto before = test::random_points(3, 999, 9);
    const space centre{0.1, 0.7, -3};
    const double factor = 1.37;
    auto expected = columns(before);
    for (auto& x : expected)
        for (unsigned r = 0; r < 3; ++r) x[r] = x[r] + (x[r] - centre[r]) * (factor - 1);

    auto part = test::non_dense(before, 1.0);
    EXPECT_EQ(zoom(part, centre, factor), 999);
    EXPECT_EQ(columns(part), expected);
    dense2D<double> pos;
    ASSERT_TRUE(pos.copy(before));
    EXPECT_EQ(zoom(pos, centre, factor), 999);
    EXPECT_EQ(columns(pos), expected);
}

TEST(Zoom, ByOneDoesNothing)
{
    auto pos = five_nodes(1);
    EXPECT_EQ(zoom(pos, plane{1, 1}, 1.0), 0);
    EXPECT_EQ(zoom(pos, plane{1, 1}, 1.0, ids_of({0})), 0);
    EXPECT_EQ(zoom(pos, plane{1, 1}, 1.0, used_1_3_4()), 0);
    EXPECT_EQ(zoom(pos, space{1, 1, 1}, 1.0), 0);
    EXPECT_EQ(zoom(pos, space{1, 1, 1}, 1.0, ids_of({0})), 0);
    EXPECT_EQ(zoom(pos, space{1, 1, 1}, 1.0, used_1_3_4()), 0);
    EXPECT_EQ(columns(pos), columns(five_nodes(1)));
}

TEST(Zoom, ListedAndUsedNodes)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(zoom(pos, plane{0, 0}, 3.0, ids_of({1, 1, 8})), 2);
    EXPECT_EQ(columns(pos), (column_list{{0, 0}, {9, 90}, {2, 20}, {3, 30}, {4, 40}}));
    EXPECT_EQ(zoom(pos, plane{0, 0}, 2.0, used_1_3_4()), 3);
    EXPECT_EQ(columns(pos), (column_list{{0, 0}, {18, 180}, {2, 20}, {6, 60}, {8, 80}}));

    pos = five_nodes(3);
    EXPECT_EQ(zoom(pos, space{0, 0, 0}, 3.0, ids_of({1, none_index, 1})), 2);
    EXPECT_EQ(zoom(pos, space{0, 0, 0}, 2.0, used_1_3_4()), 3);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {18, 180, 1800}, {2, 20, 200}, {6, 60, 600}, {8, 80, 800}}));
}

TEST(Zoom, RaisesRowsButNotForAnEmptyList)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(zoom(pos, space{0, 0, 1}, 2.0, dense1D<unsigned>()), 0);
    EXPECT_EQ(zoom(pos, space{0, 0, 1}, 2.0, elements_of({{none_index}})), 0);
    EXPECT_EQ(pos.rows, 2u);
    EXPECT_EQ(zoom(pos, space{0, 0, 1}, 2.0, ids_of({3})), 1);
    EXPECT_EQ(columns(pos), (column_list{{0, 0, 0}, {1, 10, 0}, {2, 20, 0}, {6, 60, -1}, {4, 40, 0}}));
}

TEST(Zoom, NanFillsTheNodes)
{
    auto pos = five_nodes(2);
    EXPECT_EQ(zoom(pos, plane{0, 0}, nan_value), 5);
    EXPECT_TRUE(std::isnan(pos(0, 0)) && std::isnan(pos(1, 4)));
}

// ---- What the three have in common ----

TEST(Transforms, EmptyCoordinatesAreNoFailure)
{
    dense2D<double> none, no_rows(0, 5), no_columns(3, 0);
    for (dense2D<double>* pos : {&none, &no_rows, &no_columns})
    {
        const unsigned rows = pos->rows;
        EXPECT_EQ(translate(*pos, space{1, 1, 1}), 0);
        EXPECT_EQ(translate(*pos, plane{1, 1}, ids_of({0})), 0);
        EXPECT_EQ(rotate(*pos, plane{1, 1}, 1.0, used_1_3_4()), 0);
        EXPECT_EQ(rotate(*pos, space{1, 1, 1}, space{1, 0, 0}, dense1D<unsigned>()), 0);
        EXPECT_EQ(zoom(*pos, space{1, 1, 1}, 2.0), 0);
        EXPECT_EQ(pos->rows, rows);
    }
}

TEST(Transforms, ChangeOnlyTheirPartOfALargerMatrix)
{
    dense2D<double> larger(4, 6, -1.0);
    auto part = larger.sub_matrix(1, 2, 2, 3);
    part = 0.0;
    EXPECT_EQ(translate(part, plane{1, 2}), 3);
    for (unsigned c = 0; c < 6; ++c)
        for (unsigned r = 0; r < 4; ++r)
        {
            const bool inside = c >= 2 && c < 5 && (r == 1 || r == 2);
            EXPECT_EQ(larger(r, c), inside ? r : -1.0);
        }
}

TEST(Transforms, MoveNothingWhereRowsCannotBeRaised)
{
    auto pos = five_nodes(2);
    const long live = test::live_allocations();
    {
        const test::failing_allocation failing(1);
        EXPECT_EQ(translate(pos, space{1, 1, 1}), 0);
        EXPECT_EQ(rotate(pos, space{1, 1, 1}, space{1, 0, 0}), 0);
        EXPECT_EQ(zoom(pos, space{1, 1, 1}, 2.0), 0);
        EXPECT_TRUE(failing.has_failed());
    }
    EXPECT_EQ(test::live_allocations(), live);
    EXPECT_EQ(columns(pos), columns(five_nodes(2)));
    EXPECT_EQ(translate(pos, space{1, 1, 1}), 5);
}

TEST(Transforms, UsedNodesSurviveFailuresOfMemory)
{
    for (unsigned n = 1;; ++n)
    {
        auto pos = five_nodes(2);
        const auto connectivity = used_1_3_4();
        const long live = test::live_allocations();
        bool failed = false;
        int moves = 0;
        {
            const test::failing_allocation failing(n);
            moves = translate(pos, plane{0.5, 0}, connectivity);
            failed = failing.has_failed();
        }
        EXPECT_EQ(test::live_allocations(), live);
        EXPECT_GE(moves, 0);
        EXPECT_LE(moves, 3);
        if (failed) continue;
        EXPECT_EQ(moves, 3);
        break;
    }
}

// ---- inc_bounding_box ----

TEST(BoundingBox, WidensWhatTheCallerSeeds)
{
    const auto pos = points_of({{1, 5}, {-2, 7}, {0, 6}});
    plane min{1e300, 1e300}, max{-1e300, -1e300};
    EXPECT_EQ(inc_bounding_box(pos, min, max), 0);
    EXPECT_EQ(min[0], -2);
    EXPECT_EQ(min[1], 5);
    EXPECT_EQ(max[0], 1);
    EXPECT_EQ(max[1], 7);

    EXPECT_EQ(inc_bounding_box(points_of({{9, 6}}), min, max), 0);
    EXPECT_EQ(min[0], -2);
    EXPECT_EQ(max[0], 9);
    EXPECT_EQ(max[1], 7);
}

TEST(BoundingBox, OneNodeRightsASeedThatIsInsideOut)
{
    space min{5, 5, 5}, max{-5, -5, -5};
    EXPECT_EQ(inc_bounding_box(points_of({{1, 2, 3}}), min, max), 0);
    for (unsigned k = 0; k < 3; ++k)
    {
        EXPECT_EQ(min[k], k + 1.0);
        EXPECT_EQ(max[k], k + 1.0);
    }
}

TEST(BoundingBox, ListedAndUsedNodes)
{
    const auto pos = five_nodes(3);
    space min{1e9, 1e9, 1e9}, max{-1e9, -1e9, -1e9};
    EXPECT_EQ(inc_bounding_box(pos, ids_of({3, 1, 3}), min, max), 0);
    EXPECT_EQ(min[0], 1);
    EXPECT_EQ(min[2], 100);
    EXPECT_EQ(max[0], 3);
    EXPECT_EQ(max[2], 300);
    EXPECT_EQ(inc_bounding_box(pos, elements_of({{4, 2, none_index}}), min, max), 0);
    EXPECT_EQ(min[0], 1);
    EXPECT_EQ(max[0], 4);

    const auto flat = five_nodes(2);
    plane low{1e9, 1e9}, high{-1e9, -1e9};
    EXPECT_EQ(inc_bounding_box(flat, ids_of({2}), low, high), 0);
    EXPECT_EQ(inc_bounding_box(flat, test::non_dense(elements_of({{2, 3}}), 0u), low, high), 0);
    EXPECT_EQ(low[1], 20);
    EXPECT_EQ(high[1], 30);
}

TEST(BoundingBox, NoneIndexIsSkipped)
{
    const auto pos = five_nodes(2);
    plane min{7, 7}, max{7, 7};
    EXPECT_EQ(inc_bounding_box(pos, ids_of({none_index}), min, max), 0);
    EXPECT_EQ(min[0], 7);
    EXPECT_EQ(inc_bounding_box(pos, ids_of({none_index, 4}), min, max), 0);
    EXPECT_EQ(min[0], 4);
    EXPECT_EQ(max[1], 40);
}

TEST(BoundingBox, RowsMustFitExactly)
{
    plane low{1, 2}, high{3, 4};
    space min{1, 2, 3}, max{4, 5, 6};
    EXPECT_EQ(inc_bounding_box(five_nodes(3), low, high), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(1), low, high), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(2), min, max), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(3), ids_of({0}), low, high), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(2), ids_of({0}), min, max), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(3), used_1_3_4(), low, high), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(2), used_1_3_4(), min, max), -1);
    EXPECT_EQ(inc_bounding_box(dense2D<double>(), min, max), -1);
    EXPECT_EQ(low[0], 1);
    EXPECT_EQ(max[2], 6);
}

TEST(BoundingBox, AnEmptyListWinsOverTheRows)
{
    plane low{1, 2}, high{3, 4};
    EXPECT_EQ(inc_bounding_box(five_nodes(3), dense1D<unsigned>(), low, high), 0);
    EXPECT_EQ(inc_bounding_box(five_nodes(3), dense2D<unsigned>(), low, high), 0);
    EXPECT_EQ(inc_bounding_box(five_nodes(3), elements_of({{none_index}}), low, high), 0);
    EXPECT_EQ(low[0], 1);
    EXPECT_EQ(high[1], 4);
}

TEST(BoundingBox, RowsComeBeforeStrayIndices)
{
    plane low{1, 2}, high{3, 4};
    EXPECT_EQ(inc_bounding_box(five_nodes(3), ids_of({5}), low, high), -1);
    EXPECT_EQ(inc_bounding_box(five_nodes(2), ids_of({0, 5}), low, high), -2);
    EXPECT_EQ(inc_bounding_box(five_nodes(2), elements_of({{0, 5}}), low, high), -2);
    EXPECT_EQ(low[0], 1);
    EXPECT_EQ(high[0], 3);
}

TEST(BoundingBox, NoColumnsLeaveTheBox)
{
    space min{1, 2, 3}, max{4, 5, 6};
    EXPECT_EQ(inc_bounding_box(dense2D<double>(3, 0), min, max), 0);
    EXPECT_EQ(min[0], 1);
    EXPECT_EQ(max[2], 6);
}

TEST(BoundingBox, NanIsSkippedAndTheFirstOfEqualZerosStays)
{
    plane min{0.0, 5}, max{-0.0, 5};
    EXPECT_EQ(inc_bounding_box(points_of({{-0.0, nan_value}, {0.0, 6}, {-0.0, nan_value}}), min, max), 0);
    EXPECT_FALSE(std::signbit(min[0]));
    EXPECT_TRUE(std::signbit(max[0]));
    EXPECT_EQ(min[1], 5);
    EXPECT_EQ(max[1], 6);
}

TEST(BoundingBox, NonDenseMatricesAreReadWithinTheirRows)
{
    const auto part = test::non_dense(five_nodes(2), 1e6);
    plane min{1e9, 1e9}, max{-1e9, -1e9};
    EXPECT_EQ(inc_bounding_box(part, min, max), 0);
    EXPECT_EQ(max[0], 4);
    EXPECT_EQ(max[1], 40);
    EXPECT_EQ(min[1], 0);
}

} // namespace
