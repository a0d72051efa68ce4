#include <algorithm>
#include <functional>
#include <limits>
#include <numeric>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/edit.h>

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

using indices = std::vector<unsigned>;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

// ---- The rules told plainly -------------------------------------------------------------------------------------------------------------

dense1D<unsigned> as_vector(const indices& values)
{
    dense1D<unsigned> v(static_cast<unsigned>(values.size()));
    std::copy(values.begin(), values.end(), v.begin());
    return v;
}

indices distinct(const indices& ids)
{
    indices out;
    for (const unsigned id : ids)
        if (id != none_index && std::find(out.begin(), out.end(), id) == out.end()) out.push_back(id);
    return out;
}

double squared(const dense2D<double>& pos, unsigned a, unsigned b)
{
    double sum = 0;
    for (unsigned k = 0; k < pos.rows; ++k) sum += (pos(k, a) - pos(k, b)) * (pos(k, a) - pos(k, b));
    return sum;
}

indices near(const dense2D<double>& pos, const test::reference_tree& tree, unsigned a, double tol)
{
    std::vector<double> low(pos.rows);
    std::vector<double> high(pos.rows);
    for (unsigned k = 0; k < pos.rows; ++k)
    {
        low[k] = pos(k, a) - tol;
        high[k] = pos(k, a) + tol;
    }
    indices found = tree.in_box(low, high);
    found.erase(std::remove(found.begin(), found.end(), a), found.end());
    return found;
}

void follow_chains(const indices& nodes, indices& new_ids)
{
    for (const unsigned a : nodes)
    {
        unsigned root = a;
        while (new_ids[root] != root) root = new_ids[root];
        for (unsigned node = a; node != root;) node = std::exchange(new_ids[node], root);
    }
}

/// The lists form after its tests; `new_ids` is replaced.
int plain_merge(const dense2D<double>& pos, const indices& ids, const indices& targets, indices& new_ids, double tol)
{
    new_ids.clear();
    const indices sources = distinct(ids);
    const indices survivors = distinct(targets);
    if (sources.empty() || survivors.empty()) return 0;
    test::reference_tree tree(pos);
    tree.insert(as_vector(survivors));

    new_ids.resize(pos.cols);
    std::iota(new_ids.begin(), new_ids.end(), 0u);
    indices order(pos.cols, none_index);
    for (unsigned i = 0; i < survivors.size(); ++i) order[survivors[i]] = i;
    int count = 0;
    for (const unsigned a : sources)
    {
        unsigned best = a;
        double least = tol * tol;
        for (const unsigned b : near(pos, tree, a, tol))
            if (squared(pos, a, b) <= least && order[b] < order[a])
            {
                best = b;
                least = squared(pos, a, b);
            }
        if (best == a) continue;
        new_ids[a] = best;
        ++count;
    }
    if (count < 2) return count;
    follow_chains(sources, new_ids);
    return static_cast<int>(std::count_if(sources.begin(), sources.end(), [&](unsigned a) { return new_ids[a] != a; }));
}

using columns = std::vector<indices>;

void renumber(std::vector<columns>& mesh, const indices& new_ids)
{
    for (columns& m : mesh)
        for (indices& column : m)
            for (unsigned& node : column)
                if (node < new_ids.size()) node = new_ids[node];
}

/// The range form after its tests.
int plain_merge(const dense2D<double>& pos, std::vector<columns>& mesh, indices& new_ids, double tol, unsigned mode)
{
    new_ids.resize(pos.cols);
    std::iota(new_ids.begin(), new_ids.end(), 0u);
    indices entries;
    for (const columns& m : mesh)
        for (const indices& column : m) entries.insert(entries.end(), column.begin(), column.end());
    const indices used = distinct(entries);
    if (used.empty()) return 0;
    if (mode == 0)
    {
        const int count = plain_merge(pos, used, used, new_ids, tol);
        renumber(mesh, new_ids);
        return count;
    }

    test::reference_tree tree(pos);
    tree.insert(as_vector(used));
    int total = 0;
    for (;;)
    {
        struct triple
        {
            double squared;
            unsigned a;
            unsigned b;
        };
        std::vector<triple> pairs;
        for (const columns& m : mesh)
            for (const indices& column : m)
                for (const unsigned a : column)
                {
                    if (a == none_index) continue;
                    for (const unsigned b : near(pos, tree, a, tol))
                        if (std::find(column.begin(), column.end(), b) != column.end() && squared(pos, a, b) <= tol * tol)
                            pairs.push_back({squared(pos, a, b), a, b});
                }
        std::stable_sort(pairs.begin(), pairs.end(), [](const triple& p, const triple& q) { return p.squared < q.squared; });
        indices alive(pos.cols);
        std::iota(alive.begin(), alive.end(), 0u);
        int count = 0;
        for (const triple& pair : pairs)
        {
            if (alive[pair.a] != pair.a || alive[pair.b] != pair.b) continue;
            new_ids[pair.b] = pair.a;
            alive[pair.b] = pair.a;
            ++count;
        }
        if (count == 0) return total;
        follow_chains(used, new_ids);
        renumber(mesh, new_ids);
        total += count;
        if (mode == 1) return total;
    }
}

// ---- All forms --------------------------------------------------------------------------------------------------------------------------

TEST(Merge, MakesCoincidentNodesOne)
{
    auto pos = points_of({{1, 1}, {1, 1}, {2, 1}, {1, 1}});
    dense1D<unsigned> new_ids = ids_of({9, 9, 9, 9, 9, 9});
    EXPECT_EQ(merge(pos, new_ids, 0.0), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 0, 2, 0}));
    EXPECT_EQ(merge(pos, 0.0), 2);

    auto signs = points_of({{0.0, 1}, {-0.0, 1}});
    EXPECT_EQ(merge(signs, new_ids, 0.0), 1);
    EXPECT_FALSE(std::signbit(signs(0, 1)));
}

TEST(Merge, IncludesTheTolerance)
{
    const auto pos = points_of({{0, 0}, {0.5, 0}, {1.0000001, 0}});
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, ids_of({0, 1, 2}), new_ids, 0.5), 1);
    EXPECT_EQ(test::list(new_ids), (indices{0, 0, 2}));
}

TEST(Merge, FollowsChainsToTheRoot)
{
    auto pos = points_of({{0, 0, 0}, {0.9, 0, 0}, {1.8, 0, 0}});
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, new_ids, 1.0), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 0, 0}));
    EXPECT_EQ(test::columns(pos), (std::vector<std::vector<double>>{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}));
}

TEST(Merge, WritesSurvivorsOverMergedNodesInPlace)
{
    auto pos = test::non_dense(points_of({{0, 0}, {5, 5}, {0.1, 0}, {5, 5.1}}), 77.0);
    EXPECT_EQ(merge(pos, 0.2), 2);
    EXPECT_EQ(test::columns(pos), (std::vector<std::vector<double>>{{0, 0}, {5, 5}, {0, 0}, {5, 5}}));
}

TEST(Merge, MovesToTheClosestTarget)
{
    const auto pos = points_of({{9, 9}, {9, 9}, {0, 0}, {0.3, 0}, {9, 9}, {0.2, 0}});
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, ids_of({5}), ids_of({2, 3}), new_ids, 1.0), 1);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 2, 3, 4, 3}));
    // In both lists a target moves to one that stands earlier.
    EXPECT_EQ(merge(pos, ids_of({5, 3}), ids_of({2, 3}), new_ids, 1.0), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 2, 2, 4, 2}));
    EXPECT_EQ(merge(pos, ids_of({5, 3, 2}), ids_of({3, 2}), new_ids, 1.0), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 3, 3, 4, 3}));
}

TEST(Merge, TakesTheLastOfEquallyCloseOnesInTreeOrder)
{
    const auto pos = points_of({{-1, 0}, {1, 0}, {0, 1}, {0, -1}, {0, 0}});
    test::reference_tree tree(pos);
    tree.insert(ids_of({0, 1, 2, 3, 4}));
    const indices found = tree.in_box({-1, -1}, {1, 1});
    const unsigned last = found.back() == 4 ? found[3] : found.back();
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, ids_of({0, 1, 2, 3, 4}), new_ids, 1.0), 1);
    EXPECT_EQ(new_ids[4], last);
}

TEST(Merge, TestsTheArgumentsOfTheCoordinatesFormInOrder)
{
    dense1D<unsigned> new_ids = ids_of({1});
    dense2D<double> nothing(4, 0);
    EXPECT_EQ(merge(nothing, new_ids, -1.0), 0);
    EXPECT_TRUE(new_ids.empty());
    dense2D<double> four(4, 2, 0.0);
    EXPECT_EQ(merge(four, new_ids, -1.0), -1);
    dense2D<double> two(2, 2, 0.0);
    EXPECT_EQ(merge(two, new_ids, -1.0), -3);
    EXPECT_EQ(merge(two, -1e-300), -3);
    EXPECT_EQ(merge(two, -0.0), 1);
    EXPECT_TRUE(new_ids.empty());
    EXPECT_EQ(merge(two, new_ids, nan), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1}));
}

TEST(Merge, TestsTheArgumentsOfTheListsFormInOrder)
{
    dense1D<unsigned> new_ids = ids_of({1});
    const auto good = ids_of({0, 1});
    const auto bad = ids_of({0, 2});
    EXPECT_EQ(merge(dense2D<double>(4, 0), bad, bad, new_ids, -1.0), 0);
    EXPECT_TRUE(new_ids.empty());
    EXPECT_EQ(merge(dense2D<double>(4, 2, 0.0), bad, bad, new_ids, -1.0), -1);
    const dense2D<double> pos(2, 2, 0.0);
    EXPECT_EQ(merge(pos, bad, bad, new_ids, -1.0), -2);
    EXPECT_EQ(merge(pos, good, bad, new_ids, -1.0), -3);
    EXPECT_EQ(merge(pos, good, good, new_ids, -1.0), -4);
    EXPECT_EQ(merge(pos, bad, new_ids, -1.0), -2);
    EXPECT_EQ(merge(pos, good, new_ids, -1.0), -4);
    EXPECT_EQ(merge(pos, dense1D<unsigned>(), new_ids, -1.0), -4);
    EXPECT_EQ(merge(pos, dense1D<unsigned>(), good, new_ids, 1.0), 0);
    EXPECT_TRUE(new_ids.empty());
    EXPECT_EQ(merge(pos, good, ids_of({none_index}), new_ids, 1.0), 0);
    EXPECT_TRUE(new_ids.empty());
    EXPECT_EQ(merge(pos, good, good, new_ids, nan), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1}));
}

TEST(Merge, TestsTheArgumentsOfTheRangeFormInOrder)
{
    dense1D<unsigned> new_ids = ids_of({1});
    dense2D<unsigned> range[] = {elements_of({{0, 1}}), elements_of({{0, 2}})};
    EXPECT_EQ(merge(dense2D<double>(4, 0), range + 1, range, new_ids, -1.0, 3), 0);
    EXPECT_TRUE(new_ids.empty());
    const dense2D<double> four(4, 2, 0.0);
    EXPECT_EQ(merge(four, range, range, new_ids, -1.0, 3), 0);
    EXPECT_EQ(merge(four, range + 1, range, new_ids, -1.0, 3), -1);
    const dense2D<double> pos(3, 2, 0.0);
    EXPECT_EQ(merge(pos, range + 1, range, new_ids, -1.0, 3), -3);
    EXPECT_EQ(merge(pos, range, range + 2, new_ids, -1.0, 3), -5);
    EXPECT_EQ(merge(pos, range, range + 2, new_ids, 1.0, 3), -6);
    EXPECT_TRUE(new_ids.empty());
    for (const unsigned mode : {0u, 1u, 2u})
    {
        EXPECT_EQ(merge(pos, range, range + 2, new_ids, 1.0, mode), -2);
        EXPECT_EQ(test::list(new_ids), (indices{0, 1}));
    }
    dense2D<unsigned> empty[] = {dense2D<unsigned>(3, 0), dense2D<unsigned>(2, 2, none_index)};
    EXPECT_EQ(merge(pos, empty, empty + 2, new_ids, 1.0, 0), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1}));
    EXPECT_EQ(test::columns(range[0]), test::columns(elements_of({{0, 1}})));
    EXPECT_EQ(merge(pos, range, range + 1, new_ids, nan, 2), 0);
    EXPECT_EQ(merge(pos, range, range + 1, nan, 1), 0);
}

TEST(Merge, ConsidersOnlyNodesOfTheMesh)
{
    const auto pos = points_of({{0, 0}, {0, 0}, {0, 0}, {1, 1}});
    auto m = elements_of({{2, 3, none_index}, {1, 3, 2}});
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, m, new_ids, 0.0, 0), 1);
    EXPECT_EQ(test::list(new_ids), (indices{0, 2, 2, 3})); // 2 appears first
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{2, 3, none_index}, {2, 3, 2}})));
    EXPECT_EQ(merge(pos, m, 0.0, 0), 0);
}

TEST(Merge, RewritesBothMatrices)
{
    const auto pos = points_of({{0, 0}, {0, 0}, {1, 1}});
    auto conn1 = elements_of({{1, 2}});
    auto conn2 = test::non_dense(elements_of({{0}, {2}}), 5u);
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, conn1, conn2, new_ids, 0.0, 0), 1);
    EXPECT_EQ(test::list(new_ids), (indices{1, 1, 2}));
    EXPECT_EQ(test::columns(conn2), test::columns(elements_of({{1}, {2}})));
    EXPECT_EQ(merge(pos, conn1, conn2, 2.0, 1), 1);
    EXPECT_EQ(test::columns(conn1), test::columns(elements_of({{1, 1}})));
    EXPECT_EQ(test::columns(conn2), test::columns(elements_of({{1}, {1}})));
}

TEST(Merge, CollapsesShortSidesOncePerPass)
{
    // 0 -- 1 -- 2 -- 3 at distances 0.9, 0.8, 1.0
    const auto pos = points_of({{0, 0}, {0.9, 0}, {1.7, 0}, {2.7, 0}});
    const auto sides = elements_of({{0, 1}, {1, 2}, {2, 3}});
    dense1D<unsigned> new_ids;
    dense2D<unsigned> m;
    m.copy(sides);
    // 2 goes into 1 first, then 1 into 0; 3 finds 2 gone.
    EXPECT_EQ(merge(pos, m, new_ids, 1.0, 1), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 0, 0, 3}));
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{0, 0}, {0, 0}, {0, 3}})));

    m.copy(sides);
    EXPECT_EQ(merge(pos, m, new_ids, 1.0, 2), 2); // the side from 0 to 3 is too long now
    m.copy(sides);
    EXPECT_EQ(merge(pos, m, new_ids, 3.0, 2), 3);
    EXPECT_EQ(test::list(new_ids), (indices{0, 0, 0, 0}));
}

TEST(Merge, LeavesNodesOfDifferentElementsApart)
{
    const auto pos = points_of({{0, 0}, {0, 0}, {5, 5}, {6, 6}});
    auto m = elements_of({{0, 2}, {1, 3}});
    EXPECT_EQ(merge(pos, m, 0.5, 2), 0);
    EXPECT_EQ(merge(pos, m, 0.5, 0), 1);
}

TEST(Merge, AgreesWithThePlainRulesOnLists)
{
    const double tolerances[] = {0.0, 1.0, 1.0, 1.4142135623730951, 2.0, 0.5, 5.0, 1e-200, 1e200, infinity, nan};
    for (std::uint32_t seed = 1; seed <= 900; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 2 + random.below(2);
        const unsigned count = 1 + random.below(seed % 50 == 0 ? 1500 : 120);
        auto pos = test::lattice_points(rows, count, 1 + random.below(20), seed);
        if (seed % 4 == 1) pos = test::random_points(rows, count, seed);
        if (seed % 7 == 1) pos = test::non_dense(pos, 1.0);
        if (seed % 5 == 2)
        {
            const double odd[] = {nan, infinity, -infinity, -0.0, 1e308, -1e308, 5e-324, 1e-170};
            for (unsigned k = 0; k < 1 + count / 8; ++k) pos(random.below(rows), random.below(count)) = odd[random.below(8)];
        }
        double tol = tolerances[random.below(11)];
        if (seed % 4 == 1 && tol >= 1.0) tol *= 0.1;

        const auto some = [&] {
            indices ids(random.below(count + 5));
            for (unsigned& id : ids) id = random.below(10) ? random.below(count) : none_index;
            return ids;
        };
        const indices ids = some();
        const indices targets = random.below(2) ? ids : some();
        indices expected;
        dense1D<unsigned> new_ids;
        const int code = plain_merge(pos, ids, targets, expected, tol);
        ASSERT_EQ(merge(pos, as_vector(ids), as_vector(targets), new_ids, tol), code) << "seed " << seed;
        ASSERT_EQ(test::list(new_ids), expected) << "seed " << seed;

        indices all(count);
        std::iota(all.begin(), all.end(), 0u);
        const int whole = plain_merge(pos, all, all, expected, tol);
        auto moved = test::columns(pos);
        for (unsigned i = 0; i < count; ++i)
            for (unsigned k = 0; k < rows; ++k) moved[i][k] = pos(k, expected[i]);
        ASSERT_EQ(merge(pos, new_ids, tol), whole) << "seed " << seed;
        ASSERT_EQ(test::list(new_ids), expected) << "seed " << seed;
        const auto written = test::columns(pos);
        for (unsigned i = 0; i < count; ++i)
            for (unsigned k = 0; k < rows; ++k)
                ASSERT_TRUE(written[i][k] == moved[i][k] || (std::isnan(written[i][k]) && std::isnan(moved[i][k]))) << "seed " << seed;
    }
}

TEST(Merge, AgreesWithThePlainRulesWhereHundredsOfPlacesAreWithinTheTolerance)
{
    constexpr unsigned count = 1200;
    indices all(count);
    std::iota(all.begin(), all.end(), 0u);
    const indices later(all.begin() + count / 2, all.end());
    for (const unsigned rows : {2u, 3u})
        for (const indices& targets : {all, later})
        {
            const auto pos = test::random_points(rows, count, rows);
            const double tol = rows; // above the size of all
            indices expected;
            dense1D<unsigned> new_ids;
            const int code = plain_merge(pos, all, targets, expected, tol);
            ASSERT_EQ(merge(pos, as_vector(all), as_vector(targets), new_ids, tol), code) << rows << " rows";
            ASSERT_EQ(test::list(new_ids), expected) << rows << " rows";
        }
}

TEST(Merge, AgreesWithThePlainRulesOnMeshes)
{
    const double tolerances[] = {0.0, 1.0, 1.0, 1.4142135623730951, 2.0, 0.5, 5.0, infinity};
    for (std::uint32_t seed = 1; seed <= 900; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 2 + random.below(2);
        const unsigned count = 1 + random.below(150);
        auto pos = test::lattice_points(rows, count, 1 + random.below(12), seed);
        if (seed % 4 == 1) pos = test::random_points(rows, count, seed);
        if (seed % 5 == 2)
        {
            const double odd[] = {nan, infinity, -infinity, 1e308};
            for (unsigned k = 0; k < 1 + count / 8; ++k) pos(random.below(rows), random.below(count)) = odd[random.below(4)];
        }
        double tol = tolerances[random.below(8)];
        if (seed % 4 == 1) tol *= 0.2;
        const unsigned mode = random.below(3);

        std::vector<dense2D<unsigned>> mesh;
        std::vector<columns> expected_mesh;
        for (unsigned k = 0; k < 1 + random.below(3); ++k)
        {
            dense2D<unsigned> m(1 + random.below(8), random.below(60));
            for (unsigned c = 0; c < m.cols; ++c)
                for (unsigned r = 0; r < m.rows; ++r)
                    m(r, c) = random.below(12) == 0 ? none_index : random.below(std::min(count, 20 + 2 * c)); // neighbours share nodes
            expected_mesh.push_back(test::columns(m));
            mesh.push_back(random.below(2) ? m : test::non_dense(m, 0u));
        }
        indices expected;
        dense1D<unsigned> new_ids;
        const int code = plain_merge(pos, expected_mesh, expected, tol, mode);
        ASSERT_EQ(merge(pos, mesh.data(), mesh.data() + mesh.size(), new_ids, tol, mode), code) << "seed " << seed;
        ASSERT_EQ(test::list(new_ids), expected) << "seed " << seed;
        for (unsigned k = 0; k < mesh.size(); ++k) ASSERT_EQ(test::columns(mesh[k]), expected_mesh[k]) << "seed " << seed;
    }
}

TEST(Merge, WeldsAMillionNodesAtOnePlace)
{
    constexpr unsigned count = 1000000;
    dense2D<double> pos(3, count, 1.0);
    dense1D<unsigned> new_ids;
    EXPECT_EQ(merge(pos, new_ids, 0.0), static_cast<int>(count - 1));
    EXPECT_EQ(max_ID(new_ids), 0u);
    EXPECT_EQ(merge(pos, new_ids, 0.5), static_cast<int>(count - 1));
    EXPECT_EQ(max_ID(new_ids), 0u);
}

TEST(Merge, ReportsMemoryRunningOut)
{
    struct inputs
    {
        dense2D<double> pos = test::lattice_points(3, 300, 5, 1);
        dense2D<double> odd = test::lattice_points(2, 300, 5, 1);
        dense1D<unsigned> ids = ids_of({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
        dense1D<unsigned> others = ids_of({9, 7, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22});
        test::mesh mesh = test::grid_of_tetrahedra(3);
        dense2D<unsigned> second = elements_of({{0, 1, 5}, {1, 5, 6}});
        dense1D<unsigned> new_ids;
    };
    using call = std::function<int(inputs&)>;
    const std::vector<call> calls = {
        [](inputs& in) { return merge(in.pos, in.new_ids, 0.0); },
        [](inputs& in) { return merge(in.pos, in.new_ids, 1.0); },
        [](inputs& in) {
            in.odd(0, 7) = nan;
            return merge(in.odd, in.new_ids, 1.0);
        },
        [](inputs& in) { return merge(in.pos, in.new_ids, 1e200); },
        [](inputs& in) { return merge(in.pos, in.ids, in.new_ids, 1.0); },
        [](inputs& in) { return merge(in.pos, in.ids, in.others, in.new_ids, 1.0); },
        [](inputs& in) { return merge(in.pos, in.ids, in.others, in.new_ids, 5.0); },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.new_ids, 0.5, 0); },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.new_ids, 0.5, 1); },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.new_ids, 0.5, 2); },
        [](inputs& in) {
            in.mesh.pos(0, 0) = nan;
            return merge(in.mesh.pos, in.mesh.connectivity, in.new_ids, 0.5, 2);
        },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.second, in.new_ids, 0.5, 0); },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.second, in.new_ids, 0.5, 1); },
        [](inputs& in) { return merge(in.mesh.pos, in.mesh.connectivity, in.second, in.new_ids, 0.5, 2); },
    };
    for (const bool only_once : {false, true})
        for (std::size_t c = 0; c < calls.size(); ++c)
        {
            inputs plain;
            const int expected = calls[c](plain);
            ASSERT_GT(expected, 0) << c;
            for (unsigned n = 1;; ++n)
            {
                const long live = test::live_allocations();
                int code = 0;
                bool refused = false;
                {
                    inputs in;
                    const test::failing_allocation failing(n, only_once);
                    code = calls[c](in);
                    refused = failing.has_failed();
                }
                EXPECT_EQ(test::live_allocations(), live) << c << ' ' << n;
                if (!refused)
                {
                    EXPECT_EQ(code, expected) << c;
                    break;
                }
                // A single refusal may hit what only saves time.
                EXPECT_TRUE(code == out_of_memory || (only_once && code == expected)) << c << ' ' << n << ' ' << code;
            }
        }
}

TEST(Merge, ReadsNothingAtAStrayIndexWhenMemoryRunsOut)
{
    for (const unsigned mode : {0u, 1u, 2u})
        for (unsigned n = 1;; ++n)
        {
            const auto pos = points_of({{0, 0}, {1, 0}, {0, 1}});
            auto triangle = elements_of({{4000000000, 1, 2}});
            int code = 0;
            bool refused = false;
            {
                const test::failing_allocation failing(n, true);
                code = merge(pos, triangle, 0.5, mode);
                refused = failing.has_failed();
            }
            EXPECT_EQ(code, refused ? out_of_memory : -2) << n;
            EXPECT_EQ(triangle(0, 0), 4000000000u);
            if (!refused) break;
        }
}

TEST(Merge, MovesNothingWhereNoNodeIsFinite)
{
    for (const double bad : {nan, std::numeric_limits<double>::infinity()})
        for (const unsigned rows : {2u, 3u})
            for (const double tol : {0.0, 1.0, 1e200})
            {
                const dense2D<double> pos(rows, 5, bad);
                dense1D<unsigned> new_ids = ids_of({7});
                EXPECT_EQ(merge(pos, ids_of({0, 1, 2, 3}), ids_of({1, 2, 3, 4}), new_ids, tol), 0);
                EXPECT_EQ(test::list(new_ids), (std::vector<unsigned>{0, 1, 2, 3, 4}));
                dense2D<unsigned> connectivity = elements_of({{0, 1, 2}, {2, 3, 4}});
                EXPECT_EQ(merge(pos, connectivity, new_ids, tol, 0), 0);
                EXPECT_EQ(test::columns(connectivity), (std::vector<std::vector<unsigned>>{{0, 1, 2}, {2, 3, 4}}));
            }
}

} // namespace
