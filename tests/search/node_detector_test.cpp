#include <cmath>
#include <functional>
#include <numeric>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/search.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"
#include "support/reference_tree.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::ids_of;
using test::points_of;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

using point_2d = vector_fixed<double, 2>;
using point_3d = vector_fixed<double, 3>;

dense1D<unsigned> all_of(const dense2D<double>& pos)
{
    dense1D<unsigned> ids(pos.cols);
    std::iota(ids.begin(), ids.end(), 0u);
    return ids;
}

unsigned closest(const node_detector& detector, const std::vector<double>& p)
{
    return p.size() == 2 ? detector.find_closest(point_2d{p[0], p[1]}) : detector.find_closest(point_3d{p[0], p[1], p[2]});
}

std::vector<unsigned> in_box(const node_detector& detector, const std::vector<double>& low, const std::vector<double>& high)
{
    dense1D<unsigned> found;
    if (low.size() == 2)
        detector.find_in_box(point_2d{low[0], low[1]}, point_2d{high[0], high[1]}, found);
    else
        detector.find_in_box(point_3d{low[0], low[1], low[2]}, point_3d{high[0], high[1], high[2]}, found);
    return test::list(found);
}

/// Asks both for nodes near those of the mesh, near random points, and for boxes of several sizes.
void expect_same_answers(const node_detector& detector, const test::reference_tree& reference, const dense2D<double>& pos, unsigned queries,
                         std::uint32_t seed)
{
    test::random_source random(seed);
    ASSERT_EQ(detector.size(), reference.size());
    for (unsigned q = 0; q < queries; ++q)
    {
        const unsigned node = random.below(pos.cols);
        std::vector<double> at(pos.column(node), pos.column(node) + pos.rows);
        ASSERT_EQ(detector.find_closest(node), reference.closest(at, node)) << "node " << node;
        ASSERT_EQ(closest(detector, at), reference.closest(at, none_index)) << "at node " << node;

        std::vector<double> halfway = at;
        for (double& x : halfway) x += random.below(3) * 0.5;
        ASSERT_EQ(closest(detector, halfway), reference.closest(halfway, none_index));
        for (double& x : halfway) x = random.between(-1.0, 5.0);
        ASSERT_EQ(closest(detector, halfway), reference.closest(halfway, none_index));

        std::vector<double> low = at;
        std::vector<double> high = at;
        for (double& x : low) x -= random.below(3) * 0.5;
        for (double& x : high) x += random.below(3) * 0.5;
        ASSERT_EQ(in_box(detector, low, high), reference.in_box(low, high));
    }
}

TEST(NodeDetector, FindsNothingWhileEmpty)
{
    node_detector detector;
    dense1D<unsigned> found;
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.find_closest(point_2d{0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(point_3d{0, 0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(0u), none_index);
    detector.find_in_box(point_2d{-1, -1}, point_2d{1, 1}, found);
    detector.find_in_box(point_3d{-1, -1, -1}, point_3d{1, 1, 1}, found);
    EXPECT_TRUE(found.empty());
    EXPECT_EQ(detector.insert(ids_of({0, 1})), 0u);
    EXPECT_EQ(detector.insert(elements_of({{0, 1}})), 0u);
}

TEST(NodeDetector, IsEmptyAfterClear)
{
    const auto pos = points_of({{0, 0}, {1, 0}});
    node_detector detector(pos);
    EXPECT_EQ(detector.size(), 2u);
    detector.clear();
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.find_closest(point_2d{0, 0}), none_index);
    detector.clear();
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.reinit(pos), 0);
    EXPECT_EQ(detector.size(), 2u);
}

TEST(NodeDetector, IsEmptyAfterARefusedMatrixWithoutAList)
{
    const auto good = points_of({{0, 0}, {1, 0}});
    const dense2D<double> bad(4, 2, 0.0);
    node_detector detector(good);
    EXPECT_EQ(detector.reinit(bad), -1);
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.reinit(dense2D<double>(1, 2, 0.0)), -1);
}

TEST(NodeDetector, KeepsItsTreeAfterARefusedList)
{
    const auto good = points_of({{0, 0}, {1, 0}});
    const dense2D<double> bad(4, 2, 0.0);
    node_detector detector(good);
    EXPECT_EQ(detector.reinit(bad, ids_of({0})), -1);
    EXPECT_EQ(detector.reinit(bad, ids_of({7})), -1);
    EXPECT_EQ(detector.reinit(good, ids_of({0, 2})), -2);
    EXPECT_EQ(detector.reinit(good, elements_of({{0, 2}})), -2);
    EXPECT_EQ(detector.reinit(bad, elements_of({{0, 1}})), -1);
    const auto connectivity = elements_of({{0, 1}});
    EXPECT_EQ(detector.reinit(good, &connectivity + 1, &connectivity), -3);
    EXPECT_EQ(detector.reinit(bad, &connectivity + 1, &connectivity), -3);
    EXPECT_EQ(detector.size(), 2u);
    EXPECT_EQ(detector.find_closest(0u), 1u);
}

TEST(NodeDetector, ReplacesItsTreeByAnEmptyOne)
{
    const auto pos = points_of({{0, 0}, {1, 0}});
    node_detector detector(pos);
    EXPECT_EQ(detector.reinit(pos, dense1D<unsigned>()), 0);
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.find_closest(0u), none_index);
    EXPECT_EQ(detector.insert(ids_of({1})), 1u); // it has a matrix
    EXPECT_EQ(detector.reinit(pos, static_cast<const dense2D<unsigned>*>(nullptr), nullptr), 0);
    EXPECT_EQ(detector.size(), 0u);
}

TEST(NodeDetector, SkipsNoneAndIndicesBeyondTheColumns)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {2, 0}});
    node_detector detector;
    EXPECT_EQ(detector.reinit(pos, ids_of({none_index, 1})), 0);
    EXPECT_EQ(detector.size(), 1u);
    EXPECT_EQ(detector.insert(ids_of({3, none_index, 2, 100})), 1u);
    EXPECT_EQ(detector.size(), 2u);
    dense1D<unsigned> strays(1000, 3);
    strays[500] = none_index;
    EXPECT_EQ(detector.insert(strays), 0u);
    EXPECT_EQ(detector.size(), 2u);
    strays[500] = 0;
    EXPECT_EQ(detector.insert(strays), 1u);
    EXPECT_EQ(detector.find_closest(point_2d{-1, 0}), 0u);
}

TEST(NodeDetector, CountsTheRecordOfARefusedRepeatUntilItsReuse)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {2, 0}, {3, 0}});
    node_detector detector(pos, ids_of({0, 1, 2}));
    EXPECT_EQ(detector.size(), 3u);
    EXPECT_EQ(detector.insert(ids_of({0, 1, 2})), 0u);
    EXPECT_EQ(detector.size(), 4u);
    EXPECT_EQ(detector.insert(ids_of({0, 1, 2})), 0u);
    EXPECT_EQ(detector.size(), 4u);
    EXPECT_EQ(detector.insert(ids_of({3})), 1u);
    EXPECT_EQ(detector.size(), 4u);
}

TEST(NodeDetector, TakesTheNodesOfConnectivities)
{
    const auto pos = points_of({{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}});
    const dense2D<unsigned> range[] = {elements_of({{1, 2}, {2, none_index}}), elements_of({{4}})};
    EXPECT_EQ(node_detector(pos, range[0]).size(), 2u);
    const node_detector detector(pos, range, range + 2);
    EXPECT_EQ(detector.size(), 3u);
    EXPECT_EQ(detector.find_closest(0u), 1u);
    EXPECT_EQ(detector.find_closest(3u), detector.find_closest(point_3d{3, 0, 0}));

    node_detector other;
    EXPECT_EQ(other.reinit(pos, range[0]), 0);
    EXPECT_EQ(other.insert(range[1]), 1u);
    EXPECT_EQ(other.size(), 3u);
    EXPECT_EQ(other.reinit(pos, range, range + 2), 0);
    EXPECT_EQ(other.size(), 3u);
}

TEST(NodeDetector, FindsTheOtherOfTwoNodesAtOnePlace)
{
    const auto pos = points_of({{1, 1}, {1, 1}, {5, 5}});
    const node_detector detector(pos);
    EXPECT_EQ(detector.find_closest(0u), 1u);
    EXPECT_EQ(detector.find_closest(1u), 0u);
    const unsigned chosen = detector.find_closest(point_2d{1, 1});
    EXPECT_TRUE(chosen == 0 || chosen == 1);
    EXPECT_EQ(node_detector(pos).find_closest(point_2d{1, 1}), chosen);
}

TEST(NodeDetector, HasNoOtherNodeBesideASingleOne)
{
    const auto pos = points_of({{1, 1}, {2, 2}});
    const node_detector detector(pos, ids_of({1}));
    EXPECT_EQ(detector.find_closest(1u), none_index);
    EXPECT_EQ(detector.find_closest(0u), 1u); // need not be in the detector
    EXPECT_EQ(detector.find_closest(2u), none_index);
    EXPECT_EQ(detector.find_closest(none_index), none_index);
}

TEST(NodeDetector, IncludesTheBoundsOfABoxAndAppends)
{
    const auto pos = points_of({{1, 1}, {2, 3}});
    const node_detector detector(pos);
    dense1D<unsigned> found = ids_of({9});
    detector.find_in_box(point_2d{0, 0}, point_2d{1, 1}, found);
    detector.find_in_box(point_2d{1, 1}, point_2d{1.5, 1.5}, found);
    EXPECT_EQ(test::list(found), (std::vector<unsigned>{9, 0, 0}));
    detector.find_in_box(point_2d{3, 3}, point_2d{0, 0}, found);
    detector.find_in_box(point_2d{0, 3}, point_2d{5, 0}, found);
    EXPECT_EQ(found.size, 3u);
}

TEST(NodeDetector, TakesPlanarArgumentsAtZZero)
{
    const auto pos = points_of({{1, 1, 0}, {2, 2, 0.001}, {1, 1, -5}});
    const node_detector detector(pos);
    dense1D<unsigned> found;
    detector.find_in_box(point_2d{0, 0}, point_2d{3, 3}, found);
    EXPECT_EQ(test::list(found), (std::vector<unsigned>{0}));
    EXPECT_EQ(detector.find_closest(point_2d{2, 2}), 1u);
    EXPECT_EQ(detector.find_closest(point_2d{1, 1}), 0u);
}

TEST(NodeDetector, IgnoresZOverAPlane)
{
    const auto pos = points_of({{1, 1}, {2, 2}});
    const node_detector detector(pos);
    dense1D<unsigned> found;
    detector.find_in_box(point_3d{0, 0, 100}, point_3d{1, 1, -100}, found);
    EXPECT_EQ(test::list(found), (std::vector<unsigned>{0}));
    EXPECT_EQ(detector.find_closest(point_3d{2, 2, 1e300}), 1u);
}

TEST(NodeDetector, AnswersForPointsFarOutside)
{
    const auto pos = points_of({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    const node_detector detector(pos);
    EXPECT_EQ(detector.find_closest(point_3d{1e6, 0, 0}), 1u);
    test::reference_tree reference(pos);
    reference.insert(all_of(pos));
    // All squares are equal so far out: the first met wins.
    EXPECT_EQ(detector.find_closest(point_3d{0, 1e150, 0}), reference.closest({0, 1e150, 0}, none_index));
    EXPECT_EQ(detector.find_closest(point_3d{1e200, 0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(point_3d{infinity, 0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(point_3d{nan, 0, 0}), none_index);
}

TEST(NodeDetector, AgreesWithThePlainTree)
{
    for (const unsigned rows : {2u, 3u})
        for (const unsigned count : {1u, 2u, 3u, 16u, 17u, 33u, 40u, 100u, 700u, 9000u, 30000u})
            for (const unsigned lattice : {0u, 1u, 4u, 13u})
            {
                // One place for all makes a chain, which the plain tree pays for by the square.
                if (lattice == 1 && count > 700) continue;
                const auto pos = lattice ? test::lattice_points(rows, count, lattice, count) : test::random_points(rows, count, count);
                node_detector detector(pos);
                test::reference_tree reference(pos);
                reference.insert(all_of(pos));
                expect_same_answers(detector, reference, pos, count > 1000 ? 100 : 50, count + lattice);
                if (::testing::Test::HasFatalFailure()) FAIL() << rows << " rows, " << count << " nodes, lattice " << lattice;
            }
}

TEST(NodeDetector, AgreesOnLargeListsInAnyOrder)
{
    constexpr unsigned count = 18000;
    const auto pos = test::random_points(3, count, 5);
    dense1D<unsigned> falling(count);
    dense1D<unsigned> odd(count / 2);
    for (unsigned c = 0; c < count; ++c) falling[c] = count - 1 - c;
    for (unsigned k = 0; k < odd.size; ++k) odd[k] = 2 * k + 1;
    for (const auto& ids : {all_of(pos), falling, odd})
    {
        const node_detector detector(pos, ids);
        test::reference_tree reference(pos);
        reference.insert(ids);
        EXPECT_EQ(detector.size(), ids.size);
        expect_same_answers(detector, reference, pos, 100, ids[0]);
        if (HasFatalFailure()) FAIL() << ids.size << " from " << ids[0];
    }
}

TEST(NodeDetector, AgreesWhereManyNodesOfALargeCloudShareAPlace)
{
    for (const unsigned rows : {2u, 3u})
        for (const unsigned crowd : {500u, 1500u, 4000u})
        {
            auto pos = test::random_points(rows, 12000, crowd);
            for (unsigned c = 0; c < crowd; ++c)
                for (unsigned k = 0; k < rows; ++k) pos(k, 3 * c) = 0.5;
            node_detector detector(pos);
            test::reference_tree reference(pos);
            reference.insert(all_of(pos));
            expect_same_answers(detector, reference, pos, 50, crowd);
            EXPECT_EQ(closest(detector, std::vector<double>(rows, 0.5)), reference.closest(std::vector<double>(rows, 0.5), none_index));
            if (::testing::Test::HasFatalFailure()) FAIL() << rows << " rows, " << crowd << " at one place";
        }
}

TEST(NodeDetector, AgreesOnListsWithRepeatsNoneAndLaterInsertions)
{
    for (std::uint32_t seed = 1; seed <= 120; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 2 + random.below(2);
        const unsigned count = 1 + random.below(seed % 10 == 0 ? 20000 : 400);
        auto pos = test::lattice_points(rows, count, 1 + random.below(12), seed);
        if (seed % 3 == 0) pos = test::non_dense(pos, -1.0);

        node_detector detector(pos, dense1D<unsigned>());
        test::reference_tree reference(pos);
        for (unsigned round = 0; round < 5; ++round)
        {
            dense1D<unsigned> ids(random.below(2) ? random.below(20) : random.below(2 * count));
            for (unsigned& id : ids)
            {
                id = random.below(count + count / 20 + 1);
                if (random.below(30) == 0) id = none_index;
            }
            ASSERT_EQ(detector.insert(ids), reference.insert(ids)) << "seed " << seed;
            expect_same_answers(detector, reference, pos, 20, seed);
            if (HasFatalFailure()) FAIL() << "seed " << seed;
        }
        const node_detector copy(detector);
        expect_same_answers(copy, reference, pos, 5, seed);
    }
}

TEST(NodeDetector, AgreesOnCoordinatesThatAreNoNumbers)
{
    const double values[] = {nan, infinity, -infinity, 0.0, -0.0, 1.0, 2.0, 1e308, -1e308, 5e-324};
    for (std::uint32_t seed = 1; seed <= 60; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 2 + random.below(2);
        const unsigned count = 10 + random.below(seed % 10 == 0 ? 15000 : 300);
        auto pos = test::lattice_points(rows, count, 5, seed);
        for (unsigned c = 0; c < count; ++c)
            if (random.below(4) == 0) pos(random.below(rows), c) = values[random.below(10)];

        dense1D<unsigned> half(count / 2);
        std::iota(half.begin(), half.end(), 0u);
        node_detector detector(pos, half);
        test::reference_tree reference(pos);
        reference.insert(half);
        expect_same_answers(detector, reference, pos, 60, seed);
        ASSERT_EQ(detector.insert(all_of(pos)), reference.insert(all_of(pos)));
        expect_same_answers(detector, reference, pos, 60, seed);
        if (HasFatalFailure()) FAIL() << "seed " << seed;
        for (unsigned q = 0; q < 50; ++q)
        {
            std::vector<double> p(rows);
            std::vector<double> high(rows);
            for (double& x : p) x = values[random.below(10)];
            for (double& x : high) x = values[random.below(10)];
            ASSERT_EQ(closest(detector, p), reference.closest(p, none_index)) << "seed " << seed;
            ASSERT_EQ(in_box(detector, p, high), reference.in_box(p, high)) << "seed " << seed;
        }
    }
}

TEST(NodeDetector, ReadsTheMatrixAsItIsAtTheCall)
{
    for (std::uint32_t seed = 1; seed <= 20; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 2 + random.below(2);
        const unsigned count = seed == 1 ? 10000 : 20 + random.below(500);
        auto pos = test::lattice_points(rows, count, 9, seed);
        node_detector detector(pos);
        test::reference_tree reference(pos);
        reference.insert(all_of(pos));
        for (unsigned c = 0; c < count; ++c)
            if (random.below(3) == 0) pos(random.below(rows), c) = random.below(9);
        expect_same_answers(detector, reference, pos, 60, seed);
        // Insertion follows the coordinates of now too, so a node that moved may enter a second time.
        ASSERT_EQ(detector.insert(all_of(pos)), reference.insert(all_of(pos))) << "seed " << seed;
        expect_same_answers(detector, reference, pos, 60, seed);
        if (HasFatalFailure()) FAIL() << "seed " << seed;
    }
}

TEST(NodeDetector, TakesColumnsAppendedToTheMatrix)
{
    auto pos = test::random_points(3, 50, 1);
    node_detector detector(pos);
    ASSERT_TRUE(pos.resize(3, 200));
    for (unsigned c = 50; c < 200; ++c)
        for (unsigned k = 0; k < 3; ++k) pos(k, c) = 0.01 * c + k;
    test::reference_tree reference(pos);
    dense1D<unsigned> first(50);
    std::iota(first.begin(), first.end(), 0u);
    reference.insert(first);
    EXPECT_EQ(detector.insert(all_of(pos)), 150u);
    reference.insert(all_of(pos));
    expect_same_answers(detector, reference, pos, 100, 1);
}

/// A list that comes out of the shuffle in ascending order.
dense1D<unsigned> sorted_by_the_shuffle(unsigned count)
{
    std::vector<std::pair<unsigned, unsigned>> swaps;
    std::mt19937 next(1);
    for (unsigned i = 1; i < count; ++i) swaps.emplace_back(i, static_cast<unsigned>(next() % (i + 1)));
    dense1D<unsigned> ids(count);
    std::iota(ids.begin(), ids.end(), 0u);
    for (auto s = swaps.rbegin(); s != swaps.rend(); ++s) std::swap(ids[s->first], ids[s->second]);
    return ids;
}

TEST(NodeDetector, TraversesTreesOfAnyDepth)
{
    // A list made against the shuffle gives a tree as deep as it likes: here a spine with a leaf or a small tree at each of its records.
    for (const unsigned count : {30u, 200u, 600u, 9000u})
        for (const bool descending : {false, true})
        {
            dense2D<double> pos(2, count);
            for (unsigned c = 0; c < count; ++c)
            {
                const double along = c % 2 ? c - 3.5 : c;
                pos(0, c) = descending ? -along : along;
                pos(1, c) = descending ? -along : along;
            }
            const auto ids = sorted_by_the_shuffle(count);
            node_detector detector(pos, ids);
            test::reference_tree reference(pos);
            reference.insert(ids);
            expect_same_answers(detector, reference, pos, 30, count);
            if (HasFatalFailure()) FAIL() << count;
            for (double x = -5.0; x < 300.0; x += 1.25)
            {
                const std::vector<double> p = {descending ? -x : x, descending ? -x - 0.5 : x + 0.5};
                ASSERT_EQ(closest(detector, p), reference.closest(p, none_index));
                ASSERT_EQ(in_box(detector, {p[0] - 7, p[1] - 3}, {p[0] + 7, p[1] + 9}),
                          reference.in_box({p[0] - 7, p[1] - 3}, {p[0] + 7, p[1] + 9}));
            }
        }
}

TEST(NodeDetector, GrowsDeepNodeByNode)
{
    dense2D<double> pos(2, 400, 0.0);
    for (unsigned c = 0; c < 400; ++c) pos(0, c) = pos(1, c) = c % 2 ? c - 2.5 : c;
    node_detector detector(pos, dense1D<unsigned>());
    test::reference_tree reference(pos);
    for (unsigned c = 0; c < 400; ++c)
    {
        ASSERT_EQ(detector.insert(ids_of({c})), 1u);
        reference.insert(ids_of({c}));
        if (c % 50 == 49) expect_same_answers(detector, reference, pos, 10, c);
    }
    const node_detector copy(detector);
    expect_same_answers(copy, reference, pos, 50, 1);
    for (unsigned n = 1;; ++n)
    {
        const test::failing_allocation failing(n);
        const node_detector limited(detector);
        EXPECT_EQ(limited.size(), failing.has_failed() ? 0u : 400u);
        if (!failing.has_failed()) break;
    }
}

TEST(NodeDetector, StaysAsItIsWhereMemoryRunsOutWhileItGrowsDeep)
{
    dense2D<double> pos(2, 200, 0.0);
    for (unsigned c = 0; c < 200; ++c) pos(0, c) = pos(1, c) = c;
    node_detector detector(pos, dense1D<unsigned>());
    for (unsigned c = 0; c < 200; ++c)
        for (unsigned n = 1;; ++n)
        {
            const auto next = ids_of({c});
            unsigned added = 0;
            bool refused = false;
            {
                const test::failing_allocation failing(n);
                added = detector.insert(next);
                refused = failing.has_failed();
            }
            ASSERT_EQ(added, refused ? 0u : 1u) << c;
            ASSERT_EQ(detector.size(), c + added) << c;
            ASSERT_EQ(detector.find_closest(point_2d{300, 300}), refused ? c - 1 : c) << c;
            if (!refused) break;
        }
}

TEST(NodeDetector, TakesAMillionNodesAtOnePlace)
{
    constexpr unsigned count = 1000000;
    const dense2D<double> pos(3, count, 1.0);
    node_detector detector(pos);
    EXPECT_EQ(detector.size(), count);
    EXPECT_EQ(detector.insert(all_of(pos)), 0u);
    EXPECT_EQ(detector.size(), count + 1);
    EXPECT_EQ(detector.find_closest(point_3d{1, 1, 1}), detector.find_closest(point_3d{1, 1, 1}));
    EXPECT_NE(detector.find_closest(point_3d{1, 1, 2}), none_index);
    dense1D<unsigned> found;
    detector.find_in_box(point_3d{1, 1, 1}, point_3d{1, 1, 1}, found);
    EXPECT_EQ(found.size, count);
}

TEST(NodeDetector, TakesAMillionNodesThatCannotBeTold)
{
    constexpr unsigned count = 1000000;
    dense2D<double> pos(2, count, nan);
    for (unsigned c = 0; c < count; ++c) pos(c % 2, c) = 3.0;
    node_detector detector(pos);
    EXPECT_EQ(detector.size(), count);
    EXPECT_EQ(detector.find_closest(point_2d{3, 3}), none_index);
}

TEST(NodeDetector, TakesAMillionNodesOnALine)
{
    constexpr unsigned count = 1000000;
    dense2D<double> pos(3, count, 7.0);
    for (unsigned c = 0; c < count; ++c) pos(2, c) = c;
    const node_detector detector(pos);
    for (unsigned c = 0; c < count; c += 1000) ASSERT_EQ(detector.find_closest(point_3d{7, 8, c + 0.25}), c);
}

TEST(NodeDetector, TakesMillionsInFewPlaces)
{
    constexpr unsigned count = 1000000;
    const auto pos = test::lattice_points(3, count, 4, 5);
    node_detector detector(pos);
    EXPECT_EQ(detector.insert(all_of(pos)), 0u);
    dense1D<unsigned> found;
    detector.find_in_box(point_3d{0, 0, 0}, point_3d{3, 3, 3}, found);
    EXPECT_EQ(found.size, count);
}

TEST(NodeDetector, CopiesAreIndependent)
{
    const auto pos = test::random_points(3, 300, 1);
    const auto plane = points_of({{0, 0}, {1, 1}});
    dense1D<unsigned> half(150);
    std::iota(half.begin(), half.end(), 0u);
    test::reference_tree reference(pos);
    reference.insert(half);

    node_detector detector(pos, half);
    node_detector copy(detector);
    EXPECT_EQ(copy.insert(all_of(pos)), 150u);
    expect_same_answers(detector, reference, pos, 50, 1);
    detector.clear();
    test::reference_tree full(pos);
    full.insert(half);
    full.insert(all_of(pos));
    expect_same_answers(copy, full, pos, 50, 2);

    const node_detector planar(plane);
    copy = planar;
    EXPECT_EQ(copy.size(), 2u);
    EXPECT_EQ(copy.find_closest(point_2d{1, 2}), 1u);
    const node_detector& itself = copy;
    copy = itself;
    EXPECT_EQ(copy.size(), 2u);
    copy = node_detector();
    EXPECT_EQ(copy.size(), 0u);
    EXPECT_EQ(copy.insert(ids_of({0})), 0u);
}

TEST(NodeDetector, DoesNotReadBeyondAMatrixThatShrank)
{
    dense2D<double> pos = test::random_points(3, 300, 1);
    const node_detector detector(pos);
    pos.clear_hard();
    EXPECT_EQ(detector.find_closest(point_3d{0, 0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(0u), none_index);
    dense1D<unsigned> found;
    detector.find_in_box(point_3d{0, 0, 0}, point_3d{1, 1, 1}, found);
    EXPECT_TRUE(found.empty());
}

TEST(NodeDetector, TakesNothingThroughAMatrixThatShrank)
{
    dense2D<double> pos = test::random_points(3, 1000, 1);
    node_detector detector(pos);
    pos = dense2D<double>(3, 10, 2.0);
    EXPECT_EQ(detector.insert(ids_of({9})), 0u);
    dense1D<unsigned> many(100);
    std::iota(many.begin(), many.end(), 0u);
    EXPECT_EQ(detector.insert(many), 0u);
    EXPECT_EQ(detector.find_closest(9u), none_index);
    EXPECT_EQ(detector.size(), 1000u);
}

TEST(NodeDetector, TakesNothingThroughAMatrixThatLostAnAxis)
{
    for (const unsigned former : {1u, 2u, 1000u})
    {
        dense2D<double> pos = test::random_points(3, former, 1);
        node_detector detector(pos);
        pos = dense2D<double>(2, 4, 2.0);
        EXPECT_EQ(detector.insert(ids_of({3})), 0u) << former;
        EXPECT_EQ(detector.insert(ids_of({0, 1, 2, 3})), 0u) << former;
        EXPECT_EQ(detector.find_closest(3u), none_index) << former;
        EXPECT_EQ(detector.size(), former);
    }
    dense2D<double> pos = test::random_points(3, 4, 1);
    node_detector detector(pos, ids_of({}));
    pos = dense2D<double>(2, 4, 2.0);
    EXPECT_EQ(detector.insert(ids_of({3})), 0u);
    EXPECT_EQ(detector.size(), 0u);
}

TEST(NodeDetector, AllocatesNothingToFindTheClosest)
{
    const auto pos = test::random_points(3, 20000, 1);
    const node_detector detector(pos);
    const unsigned long before = test::allocation_count();
    for (unsigned c = 0; c < 100; ++c)
    {
        detector.find_closest(c);
        detector.find_closest(point_3d{0.01 * c, 0, 0});
        detector.find_closest(point_2d{0.01 * c, 0});
    }
    EXPECT_EQ(test::allocation_count(), before);
}

TEST(NodeDetector, SurvivesMemoryRunningOut)
{
    const auto large = test::random_points(3, 10000, 1);
    const auto small = test::lattice_points(2, 100, 2, 1);
    dense1D<unsigned> repeats(200);
    for (unsigned i = 0; i < 200; ++i) repeats[i] = i % 100;
    const dense2D<unsigned> lines = elements_of({{0, 1}, {1, 2}});

    const std::vector<std::function<int(node_detector&)>> calls = {
        [&](node_detector& d) { return d.reinit(large); },
        [&](node_detector& d) { return d.reinit(small); },
        [&](node_detector& d) { return d.reinit(small, repeats); },
        [&](node_detector& d) { return d.reinit(small, lines); },
    };
    for (const auto& call : calls)
        for (unsigned n = 1;; ++n)
        {
            const long live = test::live_allocations();
            bool refused = false;
            {
                node_detector detector(small, ids_of({0}));
                int code = 0;
                {
                    const test::failing_allocation failing(n);
                    code = call(detector);
                    refused = failing.has_failed();
                }
                EXPECT_EQ(code, refused ? out_of_memory : 0);
                EXPECT_EQ(detector.size() == 0, refused);
                EXPECT_EQ(call(detector), 0);
            }
            EXPECT_EQ(test::live_allocations(), live);
            if (!refused) break;
        }

    dense2D<double> line(2, 300, 0.0);
    for (unsigned c = 0; c < 300; ++c) line(0, c) = line(1, c) = c;
    const auto deep = sorted_by_the_shuffle(300);
    for (unsigned n = 1;; ++n)
    {
        // Nothing is added when memory runs out on the way, and the tree answers as before.
        node_detector detector(line, ids_of({0, 5}));
        unsigned added = 0;
        bool refused = false;
        {
            const test::failing_allocation failing(n);
            added = detector.insert(deep);
            refused = failing.has_failed();
        }
        EXPECT_EQ(added, refused ? 0u : 298u);
        EXPECT_EQ(detector.find_closest(point_2d{200, 200}), refused ? 5u : 200u);
        if (!refused) break;
    }
    const auto three = ids_of({7, 8, 9});
    for (unsigned n = 1;; ++n)
    {
        node_detector detector(line, ids_of({0, 5}));
        unsigned added = 0;
        bool refused = false;
        {
            const test::failing_allocation failing(n);
            added = detector.insert(three);
            refused = failing.has_failed();
        }
        EXPECT_EQ(added, refused ? 0u : 3u);
        EXPECT_EQ(detector.size(), refused ? 2u : 5u);
        EXPECT_EQ(detector.find_closest(point_2d{9, 9}), refused ? 5u : 9u);
        if (!refused) break;
    }
    {
        const node_detector detector(small);
        const test::failing_allocation failing(1);
        const node_detector copy(detector);
        EXPECT_EQ(copy.size(), 0u);
        dense1D<unsigned> found;
        detector.find_in_box(point_2d{0, 0}, point_2d{5, 5}, found);
        EXPECT_TRUE(found.empty());
    }
}

TEST(NodeDetector, AnswersSeveralThreadsAtOnce)
{
    const auto pos = test::random_points(3, 5000, 1);
    const node_detector detector(pos);
    std::vector<unsigned> answers(pos.cols);
    const auto ask = [&](unsigned first) {
        for (unsigned c = first; c < pos.cols; c += 2) answers[c] = detector.find_closest(c);
    };
    std::thread other(ask, 0u);
    ask(1);
    other.join();
    for (unsigned c = 0; c < pos.cols; ++c) ASSERT_EQ(answers[c], detector.find_closest(c));
}

TEST(NodeDetector, AgreesOnFewNodesOfALargeMatrix)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto pos = test::lattice_points(rows, 20000, 30, 4);
        test::random_source random(rows);
        dense1D<unsigned> ids(60);
        for (unsigned& id : ids) id = random.below(pos.cols);
        for (const bool repeated : {false, true})
        {
            if (repeated) ids[59] = ids[3];
            const node_detector detector(pos, ids);
            test::reference_tree reference(pos);
            reference.insert(ids);
            expect_same_answers(detector, reference, pos, 200, rows);
        }
    }
}

TEST(NodeDetector, ReadsNothingThroughAMatrixThatWasMovedFrom)
{
    dense2D<double> pos = test::random_points(3, 300, 1);
    node_detector detector(pos);
    const dense2D<double> moved = std::move(pos);
    EXPECT_EQ(detector.find_closest(point_3d{0, 0, 0}), none_index);
    EXPECT_EQ(detector.find_closest(0u), none_index);
    EXPECT_TRUE(in_box(detector, {0, 0, 0}, {1, 1, 1}).empty());
    EXPECT_EQ(detector.insert(ids_of({1})), 0u);
}

TEST(NodeDetector, RefusesAMatrixOfMoreNodesThanItCanMark)
{
    // All columns of the view are one and the same.
    double x[2] = {1, 2};
    const auto pos = dense2D<double>::wrap(x, 2, none_index, 0);
    ASSERT_EQ(pos.cols, none_index);
    node_detector detector;
    EXPECT_EQ(detector.reinit(pos, ids_of({0, 7})), out_of_memory);
    EXPECT_EQ(detector.size(), 0u);
    EXPECT_EQ(detector.find_closest(point_2d{1, 2}), none_index);
}

} // namespace
