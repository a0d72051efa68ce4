#include <algorithm>
#include <numeric>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/edit.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::ids_of;

using indices = std::vector<unsigned>;

// ---- Distinct indices -----------------------------------------------------------------------------------------------------------------

TEST(UniqueIndices, ComeInOrderOfFirstAppearance)
{
    dense1D<unsigned> out;
    EXPECT_EQ(unique_indices(out, ids_of({5, 2, 5, none_index, 9, 2, 0}), {}), 0);
    EXPECT_EQ(test::list(out), (indices{5, 2, 9, 0}));
}

TEST(UniqueIndices, AreAppendedWithoutALookAtTheOutput)
{
    dense1D<unsigned> out;
    const auto ids = ids_of({3, 1, 3});
    unique_indices(out, ids, {});
    unique_indices(out, ids, {});
    EXPECT_EQ(test::list(out), (indices{3, 1, 3, 1}));
}

TEST(UniqueIndices, LeaveTheExcludedOut)
{
    dense1D<unsigned> out = ids_of({7});
    const auto ids = ids_of({3, 1, 3, 4000000000u, 2});
    EXPECT_EQ(unique_indices(out, ids, ids), 0);
    EXPECT_EQ(test::list(out), (indices{7}));
    EXPECT_EQ(unique_indices(out, ids, ids_of({1, 1, 5, none_index})), 0);
    EXPECT_EQ(test::list(out), (indices{7, 3, 4000000000u, 2}));
}

TEST(UniqueIndices, WalkMatricesColumnByColumn)
{
    const dense2D<unsigned> range[] = {elements_of({{4, 2, none_index}, {2, 0, 4}}), dense2D<unsigned>(5, 0), elements_of({{8, 0, 1}})};
    dense1D<unsigned> out;
    EXPECT_EQ(unique_indices(out, range, range + 3, {}), 0);
    EXPECT_EQ(test::list(out), (indices{4, 2, 0, 8, 1}));
    out.size = 0;
    EXPECT_EQ(unique_indices(out, test::non_dense(range[0], 77u), ids_of({2})), 0);
    EXPECT_EQ(test::list(out), (indices{4, 0}));
}

TEST(UniqueIndices, RefuseARangeTurnedRound)
{
    const auto m = elements_of({{1, 2}});
    dense1D<unsigned> out = ids_of({3});
    EXPECT_EQ(unique_indices(out, &m + 1, &m, {}), -3);
    EXPECT_EQ(unique_indices(out, &m, &m, {}), 0);
    EXPECT_EQ(unique_indices(out, dense1D<unsigned>(), {}), 0);
    EXPECT_EQ(unique_indices(out, dense2D<unsigned>(3, 0), {}), 0);
    EXPECT_EQ(unique_indices(out, dense2D<unsigned>(0, 3), {}), 0);
    EXPECT_EQ(test::list(out), (indices{3}));
}

TEST(UniqueIndices, MayAppendToTheListTheyRead)
{
    dense1D<unsigned> ids = ids_of({4, 4, 6, 4000000000u, 6});
    EXPECT_EQ(unique_indices(ids, ids, {}), 0);
    EXPECT_EQ(test::list(ids), (indices{4, 4, 6, 4000000000u, 6, 4, 6, 4000000000u}));

    // A view on the matrix that is read: its growth moves the shared block.
    dense2D<unsigned> m = elements_of({{1, 2, 3}, {3, 4, 5}});
    dense1D<unsigned> view = m.as_vector();
    EXPECT_EQ(unique_indices(view, m, {}), 0);
    EXPECT_EQ(test::list(view), (indices{1, 2, 3, 3, 4, 5, 1, 2, 3, 4, 5}));
}

TEST(UniqueIndices, AgreeWithASetForValuesOfAnySize)
{
    for (std::uint32_t seed = 1; seed <= 200; ++seed)
    {
        test::random_source random(seed);
        const unsigned limits[] = {3, 100, 70000, 5000000, 4294967295u};
        const unsigned limit = limits[random.below(5)];
        const unsigned upwards = random.below(2) ? 0 : none_index - limit; // a cluster of the largest values
        const auto value = [&] { return random.below(9) == 0 ? none_index : upwards + random.below(limit); };

        dense2D<unsigned> m(1 + random.below(5), random.below(100));
        for (unsigned c = 0; c < m.cols; ++c)
            for (unsigned r = 0; r < m.rows; ++r) m(r, c) = value();
        dense1D<unsigned> excluded(random.below(20));
        for (unsigned& entry : excluded) entry = value();

        std::unordered_set<unsigned> seen(excluded.begin(), excluded.end());
        seen.insert(none_index);
        indices expected;
        for (const unsigned entry : m.as_vector())
            if (seen.insert(entry).second) expected.push_back(entry);

        dense1D<unsigned> from_list;
        dense1D<unsigned> from_matrix;
        unique_indices(from_list, m.as_vector(), excluded);
        unique_indices(from_matrix, test::non_dense(m, 1u), excluded);
        ASSERT_EQ(test::list(from_list), expected) << "seed " << seed;
        ASSERT_EQ(test::list(from_matrix), expected) << "seed " << seed;

        std::unordered_set<unsigned> all(m.as_vector().begin(), m.as_vector().end());
        all.erase(none_index);
        ASSERT_EQ(count_unique_indices(m), static_cast<int>(all.size())) << "seed " << seed;
    }
}

TEST(UniqueIndices, DropSilentlyWithoutMemory)
{
    const auto small = ids_of({4, 4, 6, 7, 8, 9, 10, 11});
    const auto huge = ids_of({4, 4, 4000000000u, 7});
    for (const auto* ids : {&small, &huge})
        for (unsigned n = 1;; ++n)
        {
            const long live = test::live_allocations();
            bool refused = false;
            {
                dense1D<unsigned> out = ids_of({1});
                const dense1D<unsigned> excluded = ids_of({9, 5000000, 12});
                {
                    const test::failing_allocation failing(n);
                    EXPECT_EQ(unique_indices(out, *ids, excluded), 0);
                    refused = failing.has_failed();
                }
                EXPECT_GE(out.size, 1u);
                EXPECT_EQ(out[0], 1u);
                const unsigned complete = ids == &small ? 7 : 4;
                EXPECT_TRUE(refused || out.size == complete);
            }
            EXPECT_EQ(test::live_allocations(), live);
            if (!refused) break;
        }
}

TEST(CountUniqueIndices, CountsOverTheRangeWithoutNone)
{
    const dense2D<unsigned> range[] = {elements_of({{1, 2, 3, none_index}, {1, 2, 4, 5}}), elements_of({{5, 6}})};
    EXPECT_EQ(count_unique_indices(range[0]), 5);
    EXPECT_EQ(count_unique_indices(range, range + 2), 6);
    EXPECT_EQ(count_unique_indices(range, range), 0);
    EXPECT_EQ(count_unique_indices(range + 1, range), -2);
    EXPECT_EQ(count_unique_indices(dense2D<unsigned>()), 0);
    EXPECT_EQ(count_unique_indices(dense2D<unsigned>(3, 0)), 0);
    EXPECT_EQ(count_unique_indices(dense2D<unsigned>(2, 2, none_index)), 0);

    const test::failing_allocation failing(1);
    EXPECT_EQ(count_unique_indices(range, range + 2), out_of_memory);
}

// ---- Degenerated elements -------------------------------------------------------------------------------------------------------------

int removed_from(dense2D<unsigned> column, bool strict)
{
    dense2D<unsigned> copy;
    copy.copy(column);
    return remove_degenerated(copy, strict);
}

TEST(RemoveDegenerated, LooksForANodeNamedTwice)
{
    EXPECT_EQ(removed_from(elements_of({{1, 2, 2}}), false), 1);
    EXPECT_EQ(removed_from(elements_of({{2, 1, 2}}), true), 1);
    EXPECT_EQ(removed_from(elements_of({{1, 2, 3, none_index}}), false), 0);
    EXPECT_EQ(removed_from(elements_of({{1, 2, 3, none_index}}), true), 0);
    EXPECT_EQ(removed_from(elements_of({{1}}), true), 0);
}

TEST(RemoveDegenerated, TakesPaddingForARepeatOnlyWhenStrict)
{
    const unsigned none = none_index;
    EXPECT_EQ(removed_from(elements_of({{1, 2, 3, 4, none, none, none, none}}), false), 0);
    EXPECT_EQ(removed_from(elements_of({{1, 2, 3, 4, none, none, none, none}}), true), 1);
    EXPECT_EQ(removed_from(elements_of({{1, 2, 3, 1, none, none, none, none}}), false), 1);
    EXPECT_EQ(removed_from(elements_of({{none, none, 3}}), false), 0);
    EXPECT_EQ(removed_from(elements_of({{none, none, 3}}), true), 1);
}

TEST(RemoveDegenerated, KeepsTheOrderAndTellsTheNewPlaces)
{
    auto m = elements_of({{3, 1, 2}, {1, 1, 2}, {9, 8, 7}, {5, 6, 5}, {2, 1, 0}});
    dense1D<unsigned> new_ids = ids_of({1, 2, 3, 4, 5, 6, 7});
    EXPECT_EQ(remove_degenerated(m, new_ids, false), 2);
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{3, 1, 2}, {9, 8, 7}, {2, 1, 0}})));
    EXPECT_EQ(test::list(new_ids), (indices{0, none_index, 1, none_index, 2}));
    EXPECT_EQ(remove_degenerated(m, new_ids, false), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 2}));
}

TEST(RemoveDegenerated, ClosesGapsInAPartOfAMatrix)
{
    auto m = test::non_dense(elements_of({{1, 1}, {1, 2}, {3, 3}, {4, 3}}), 50u);
    EXPECT_EQ(remove_degenerated(m, true), 2);
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{1, 2}, {4, 3}})));
    EXPECT_EQ(m.block->data[0], 50u);
}

TEST(RemoveDegenerated, KeepsColumnsWithoutEntries)
{
    dense2D<unsigned> m(0, 3);
    dense1D<unsigned> new_ids;
    EXPECT_EQ(remove_degenerated(m, new_ids, true), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 2}));
    EXPECT_EQ(m.cols, 3u);
    dense2D<unsigned> empty(3, 0);
    EXPECT_EQ(remove_degenerated(empty, new_ids, true), 0);
    EXPECT_TRUE(new_ids.empty());
}

TEST(RemoveDegenerated, AgreesWithSortingForColumnsOfAnyHeight)
{
    for (std::uint32_t seed = 1; seed <= 300; ++seed)
    {
        test::random_source random(seed);
        const unsigned rows = 1 + random.below(40);
        const bool strict = random.below(2);
        dense2D<unsigned> m(rows, 30);
        for (unsigned c = 0; c < m.cols; ++c)
            for (unsigned r = 0; r < rows; ++r) m(r, c) = random.below(rows) == 0 ? none_index : random.below(rows * rows / 2 + 1);

        std::vector<indices> expected;
        for (indices column : test::columns(m))
        {
            const indices kept = column;
            std::sort(column.begin(), column.end());
            const auto pair = std::adjacent_find(column.begin(), column.end());
            if (pair == column.end() || (!strict && *pair == none_index)) expected.push_back(kept);
        }
        ASSERT_EQ(remove_degenerated(m, strict), 30 - static_cast<int>(expected.size())) << "seed " << seed;
        ASSERT_EQ(test::columns(m), expected) << "seed " << seed;
    }
}

TEST(RemoveDegenerated, ChangesNothingWithoutMemory)
{
    for (const unsigned rows : {3u, 40u})
        for (unsigned n = 1;; ++n)
        {
            dense2D<unsigned> m(rows, 4, 1u);
            const auto before = test::columns(m);
            dense1D<unsigned> new_ids;
            int code = 0;
            bool refused = false;
            {
                const test::failing_allocation failing(n);
                code = remove_degenerated(m, new_ids, true);
                refused = failing.has_failed();
            }
            if (!refused)
            {
                EXPECT_EQ(code, 4);
                break;
            }
            EXPECT_EQ(code, out_of_memory);
            EXPECT_EQ(test::columns(m), before);
            EXPECT_TRUE(new_ids.empty());
        }
    dense2D<unsigned> tall(40, 2, 1u);
    const test::failing_allocation failing(1);
    EXPECT_EQ(remove_degenerated(tall, true), out_of_memory);
    EXPECT_EQ(tall.cols, 2u);
}

// ---- Unused nodes ---------------------------------------------------------------------------------------------------------------------

dense2D<double> numbered_points(unsigned rows, unsigned count)
{
    dense2D<double> pos(rows, count);
    for (unsigned c = 0; c < count; ++c)
        for (unsigned r = 0; r < rows; ++r) pos(r, c) = 10.0 * c + r;
    return pos;
}

TEST(Simplify, RemovesNodesThatNoElementUses)
{
    auto pos = numbered_points(2, 5);
    auto m = elements_of({{3, 1}});
    dense1D<unsigned> new_ids = ids_of({8});
    EXPECT_EQ(simplify(pos, m, new_ids, 0), 3);
    EXPECT_EQ(test::list(new_ids), (indices{none_index, 0, none_index, 1, none_index}));
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{1, 0}})));
    EXPECT_EQ(test::columns(pos), (std::vector<std::vector<double>>{{10, 11}, {30, 31}}));
    EXPECT_EQ(simplify(pos, m, new_ids, 0), 0);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1}));
}

TEST(Simplify, ProtectsTheNodesBelowStart)
{
    auto pos = numbered_points(3, 5);
    auto m = elements_of({{3, 1}});
    dense1D<unsigned> new_ids;
    EXPECT_EQ(simplify(pos, m, new_ids, 2), 2);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, none_index, 2, none_index}));
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{2, 1}})));

    pos = numbered_points(3, 5);
    m = elements_of({{3, 1}});
    EXPECT_EQ(simplify(pos, m, new_ids, 3), 1);
    EXPECT_EQ(test::list(new_ids), (indices{0, 1, 2, 3, none_index}));
    EXPECT_EQ(test::columns(m), test::columns(elements_of({{3, 1}})));
}

TEST(Simplify, DoesNothingWhenAllNodesAreProtected)
{
    auto pos = numbered_points(2, 5);
    auto m = elements_of({{3, 1}});
    dense1D<unsigned> new_ids = ids_of({8});
    for (const unsigned start : {5u, 6u, none_index})
    {
        EXPECT_EQ(simplify(pos, m, new_ids, start), 0);
        EXPECT_TRUE(new_ids.empty());
        EXPECT_EQ(pos.cols, 5u);
    }
    EXPECT_EQ(simplify(pos, m, new_ids, 4), 1); // node 4 alone is eligible, and unused
}

TEST(Simplify, TestsInOrder)
{
    auto pos = numbered_points(2, 5);
    dense2D<unsigned> range[] = {elements_of({{3, 1}}), elements_of({{5, 1}})};
    dense1D<unsigned> new_ids = ids_of({8});
    EXPECT_EQ(simplify(pos, range + 2, range, new_ids, 0), -3);
    EXPECT_TRUE(new_ids.empty());
    EXPECT_EQ(simplify(pos, range, range + 2, new_ids, 9), -2); // before the test of start
    EXPECT_EQ(simplify(pos, range + 1, range + 1, new_ids, 0), 0);
    EXPECT_EQ(pos.cols, 5u);
    dense2D<double> nothing;
    EXPECT_EQ(simplify(nothing, range, range + 1, new_ids, 0), -2);
    dense2D<unsigned> unused(2, 2, none_index);
    EXPECT_EQ(simplify(nothing, unused, new_ids, 0), 0);
    EXPECT_TRUE(new_ids.empty());
}

TEST(Simplify, RemovesAllNodesOfAMeshWithoutElements)
{
    auto pos = numbered_points(2, 5);
    dense2D<unsigned> m(3, 0);
    dense1D<unsigned> new_ids;
    EXPECT_EQ(simplify(pos, m, new_ids, 0), 5);
    EXPECT_EQ(test::list(new_ids), indices(5, none_index));
    EXPECT_EQ(pos.cols, 0u);
    EXPECT_EQ(pos.rows, 2u);
}

TEST(Simplify, RenumbersEveryMatrixOfTheRange)
{
    auto pos = numbered_points(1, 8);
    dense2D<unsigned> range[] = {elements_of({{7, 5, none_index}}), test::non_dense(elements_of({{2, 5}, {7, 2}}), 0u)};
    dense1D<unsigned> new_ids;
    EXPECT_EQ(simplify(pos, range, range + 2, new_ids, 1), 4);
    EXPECT_EQ(test::columns(range[0]), test::columns(elements_of({{3, 2, none_index}})));
    EXPECT_EQ(test::columns(range[1]), test::columns(elements_of({{1, 2}, {3, 1}})));
    EXPECT_EQ(test::columns(pos), (std::vector<std::vector<double>>{{0}, {20}, {50}, {70}}));

    auto both = numbered_points(2, 8);
    auto conn1 = elements_of({{7, 5}});
    auto conn2 = elements_of({{2}});
    EXPECT_EQ(simplify(both, conn1, conn2, 0), 5);
    EXPECT_EQ(test::columns(conn1), test::columns(elements_of({{2, 1}})));
    EXPECT_EQ(test::columns(conn2), test::columns(elements_of({{0}})));
    EXPECT_EQ(simplify(both, conn1, 0), 1);
    EXPECT_EQ(test::columns(conn1), test::columns(elements_of({{1, 0}})));
}

TEST(Simplify, WorksOnAPartOfAMatrix)
{
    auto pos = test::non_dense(numbered_points(2, 5), -1.0);
    auto m = elements_of({{3, 1}});
    EXPECT_EQ(simplify(pos, m, 0), 3);
    EXPECT_EQ(test::columns(pos), (std::vector<std::vector<double>>{{10, 11}, {30, 31}}));
}

TEST(Simplify, ChangesNothingWithoutMemory)
{
    for (unsigned n = 1;; ++n)
    {
        auto pos = numbered_points(2, 5);
        auto m = elements_of({{3, 1}});
        dense1D<unsigned> new_ids;
        int code = 0;
        bool refused = false;
        {
            const test::failing_allocation failing(n);
            code = simplify(pos, m, new_ids, 0);
            refused = failing.has_failed();
        }
        if (!refused)
        {
            EXPECT_EQ(code, 3);
            break;
        }
        EXPECT_EQ(code, out_of_memory);
        EXPECT_TRUE(new_ids.empty());
        EXPECT_EQ(pos.cols, 5u);
        EXPECT_EQ(test::columns(m), test::columns(elements_of({{3, 1}})));
        EXPECT_EQ(simplify(pos, m, new_ids, 0), 3);
    }
}

TEST(UniqueIndices, DropWhatAListCannotCount)
{
    // The size alone is looked at: no memory could hold such a list.
    dense1D<unsigned> out;
    out.size = 0xFFFFFFFFu;
    EXPECT_EQ(unique_indices(out, ids_of({3, 4, 3}), dense1D<unsigned>()), 0);
    EXPECT_EQ(out.size, 0xFFFFFFFFu);
}

} // namespace
