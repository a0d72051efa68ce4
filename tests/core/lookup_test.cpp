#include <algorithm>
#include <unordered_map>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::ids_of;
using test::list;
using ids = std::vector<unsigned>;

constexpr unsigned none = none_index;

struct relation
{
    int result = 0;
    ids b_in_a;
    ids a_in_b;

    friend bool operator==(const relation&, const relation&) = default;
    friend void PrintTo(const relation& r, std::ostream* out)
    {
        *out << r.result << ' ' << testing::PrintToString(r.b_in_a) << ' ' << testing::PrintToString(r.a_in_b);
    }
};

template <class Container, class... Exact>
relation relate(const Container& a, const Container& b, Exact... exact)
{
    dense1D<unsigned> b_in_a = ids_of({7, 7, 7});
    dense1D<unsigned> a_in_b = ids_of({8, 8, 8, 8, 8, 8, 8, 8, 8});
    const int result = get_IDs(a, b, b_in_a, a_in_b, exact...);
    return {result, list(b_in_a), list(a_in_b)};
}

// ---- slow references

relation reference(const dense1D<unsigned>& a, const dense1D<unsigned>& b)
{
    relation r{0, ids(b.size, none), ids(a.size, none)};
    std::unordered_map<unsigned, unsigned> first;
    for (unsigned i = a.size; i-- > 0;)
        if (a[i] != none) first[a[i]] = i;
    for (unsigned j = b.size; j-- > 0;)
        if (const auto found = first.find(b[j]); found != first.end())
        {
            r.b_in_a[j] = found->second;
            r.a_in_b[found->second] = j;
        }
    return r;
}

ids column_of(const dense2D<unsigned>& m, unsigned c)
{
    return {m.column(c), m.column(c) + m.rows};
}

unsigned key_of(const ids& column)
{
    unsigned key = 0;
    for (const unsigned entry : column) key += (entry ^ 0x811C9DC5u) * 16777619u;
    return key;
}

void rotate_largest_to_front(ids& column)
{
    std::rotate(column.begin(), std::max_element(column.begin(), column.end()), column.end());
}

relation reference(const dense2D<unsigned>& a, const dense2D<unsigned>& b, bool exact)
{
    relation r{0, ids(b.cols, none), ids(a.cols, none)};
    if (a.empty() || b.empty()) return r;
    if (a.rows != b.rows)
    {
        r.result = -2;
        return r;
    }
    std::unordered_multimap<unsigned, unsigned> columns_of_key;
    for (unsigned i = 0; i < a.cols; ++i) columns_of_key.emplace(key_of(column_of(a, i)), i);
    for (unsigned j = b.cols; j-- > 0;)
    {
        ids wanted = column_of(b, j);
        if (!exact) rotate_largest_to_front(wanted);
        unsigned best = none;
        const auto [first, last] = columns_of_key.equal_range(key_of(wanted));
        for (auto candidate = first; candidate != last; ++candidate)
        {
            const unsigned i = candidate->second;
            ids found = column_of(a, i);
            if (!exact && a.rows >= 2) rotate_largest_to_front(found);
            bool match = found == wanted;
            if (!match && !exact && a.rows > 1)
            {
                std::reverse(found.begin() + 1, found.end());
                match = found == wanted;
            }
            if (!match) continue;
            best = std::min(best, i);
            r.a_in_b[i] = std::min(r.a_in_b[i], j);
        }
        if (best < a.cols) r.b_in_a[j] = best;
    }
    return r;
}

// ---- lists

TEST(ListLookup, RelatesFirstPositionsOnly)
{
    EXPECT_EQ(relate(ids_of({5, 5}), ids_of({5})), (relation{0, {0}, {0, none}}));
    EXPECT_EQ(relate(ids_of({5}), ids_of({5, 5})), (relation{0, {0, 0}, {0}}));
    EXPECT_EQ(relate(ids_of({4, 9, 4, 1}), ids_of({1, 4, 2, 4})), (relation{0, {3, 0, none, 0}, {1, none, none, 0}}));
}

TEST(ListLookup, PassesNoneOver)
{
    EXPECT_EQ(relate(ids_of({none, 3}), ids_of({none, 3, none})), (relation{0, {none, 1, none}, {none, 1}}));
    EXPECT_EQ(relate(ids_of({none, none}), ids_of({none})), (relation{0, {none}, {none, none}}));
    EXPECT_EQ(relate(ids_of({0, 1}), ids_of({none, none})), (relation{0, {none, none}, {none, none}}));
}

TEST(ListLookup, AnswersEmptyListsWithNone)
{
    EXPECT_EQ(relate(ids_of({}), ids_of({1, 2})), (relation{0, {none, none}, {}}));
    EXPECT_EQ(relate(ids_of({1, 2}), ids_of({})), (relation{0, {}, {none, none}}));
    EXPECT_EQ(relate(ids_of({}), ids_of({})), (relation{0, {}, {}}));
}

TEST(ListLookup, TakesIndicesFromTheWholeRange)
{
    EXPECT_EQ(relate(ids_of({0xFFFFFFFEu, 0, 0x80000000u}), ids_of({0x80000000u, 0xFFFFFFFEu, 1, 0})),
              (relation{0, {2, 0, none, 1}, {1, 3, 0}}));
    // A range that is narrow but far from 0.
    EXPECT_EQ(relate(ids_of({0xFFFFFFFEu, 0xFFFFFFFCu}), ids_of({0xFFFFFFFCu, 0xFFFFFFFDu, none, 0})),
              (relation{0, {1, none, none, none}, {none, 0}}));
}

TEST(ListLookup, AgreesWithTheHashMapOnRandomLists)
{
    test::random_source random(1);
    for (unsigned round = 0; round < 2000; ++round)
    {
        // From many repeats in a narrow range to scattered entries.
        const unsigned step = round % 2 ? 1 : 100003;
        const unsigned low = round % 3 ? 0 : 4000000000u;
        const unsigned values = 1 + random.below(12);
        const auto random_list = [&] {
            dense1D<unsigned> v(random.below(12));
            for (unsigned& id : v) id = random.below(8) == 0 ? none : low + step * random.below(values);
            return v;
        };
        const auto a = random_list();
        const auto b = random_list();
        EXPECT_EQ(relate(a, b), reference(a, b)) << testing::PrintToString(list(a)) << ' ' << testing::PrintToString(list(b));
    }
}

TEST(ListLookup, LooksAtPartsOfLongerLists)
{
    auto larger = ids_of({9, 8, 7, 6, 5});
    EXPECT_EQ(relate(larger.sub_vector(1, 3), larger.sub_vector(3, 2)), (relation{0, {2, none}, {none, none, 0}}));
}

TEST(ListLookup, RelatesNothingWithoutMemory)
{
    // Near entries take a table, scattered ones are sorted; a table that is refused leaves the work to sorting.
    for (const auto& a : {ids_of({4, 2, 3}), ids_of({4, 2, 1000000})})
    {
        const auto b = ids_of({2, 4});
        const auto whole = reference(a, b);
        const long alive = test::live_allocations();
        bool complete = false;
        for (unsigned n = 1; !complete; ++n)
        {
            dense1D<unsigned> b_in_a;
            dense1D<unsigned> a_in_b;
            {
                const test::failing_allocation failing(n);
                EXPECT_EQ(get_IDs(a, b, b_in_a, a_in_b), 0);
                complete = !failing.has_failed();
            }
            if (complete)
            {
                EXPECT_EQ(list(b_in_a), whole.b_in_a);
                EXPECT_EQ(list(a_in_b), whole.a_in_b);
                EXPECT_EQ(n, 4u);
            }
            else
            {
                for (const unsigned i : list(b_in_a)) EXPECT_EQ(i, none);
                for (const unsigned i : list(a_in_b)) EXPECT_EQ(i, none);
            }
        }
        EXPECT_EQ(test::live_allocations(), alive);
    }
}

TEST(ListLookup, LeavesNothingInOutputsThatShareTheInputWhereMemoryRunsOut)
{
    const auto a = ids_of({4, 2, 3});
    const auto b = ids_of({2, 4});
    for (unsigned n = 1; n <= 2; ++n)
    {
        dense1D<unsigned> b_in_a = a;
        dense1D<unsigned> a_in_b = a;
        const test::failing_allocation failing(n);
        EXPECT_EQ(get_IDs(a, b, b_in_a, a_in_b), 0);
        EXPECT_TRUE(failing.has_failed());
        EXPECT_EQ(b_in_a.size + a_in_b.size, 0u) << n;
        EXPECT_EQ(list(a), (ids{4, 2, 3}));
    }
}

TEST(ListLookup, SortsWhereTheTableIsRefused)
{
    const auto a = ids_of({4, 2, 3});
    const auto b = ids_of({2, 4});
    dense1D<unsigned> b_in_a;
    dense1D<unsigned> a_in_b;
    const test::failing_allocation failing(3, true); // the outputs come first
    EXPECT_EQ(get_IDs(a, b, b_in_a, a_in_b), 0);
    EXPECT_TRUE(failing.has_failed());
    EXPECT_EQ(list(b_in_a), (ids{1, 0}));
    EXPECT_EQ(list(a_in_b), (ids{1, 0, none}));
}

// ---- matrices

TEST(ColumnLookup, FindsTheSameCycleInEitherDirection)
{
    const auto a = elements_of({{1, 2, 3}});
    EXPECT_EQ(relate(a, elements_of({{3, 1, 2}, {3, 2, 1}, {1, 2, 4}}), false), (relation{0, {0, 0, none}, {0}}));
    EXPECT_EQ(relate(a, elements_of({{3, 1, 2}, {3, 2, 1}, {1, 2, 3}}), true), (relation{0, {none, none, 0}, {2}}));
}

TEST(ColumnLookup, KeepsQuadranglesOfTheSameNodesButAnotherCycleApart)
{
    const auto a = elements_of({{1, 2, 3, 4}});
    EXPECT_EQ(relate(a, elements_of({{1, 3, 2, 4}, {2, 1, 4, 3}, {4, 1, 2, 3}}), false), (relation{0, {none, 0, 0}, {1}}));
}

TEST(ColumnLookup, GivesTheLowestOfEqualColumnsOnBothSides)
{
    const auto a = elements_of({{9, 9}, {1, 2}, {2, 1}, {1, 2}});
    const auto b = elements_of({{3, 4}, {2, 1}, {1, 2}});
    EXPECT_EQ(relate(a, b, false), (relation{0, {none, 1, 1}, {none, 1, 1, 1}}));
    EXPECT_EQ(relate(a, b, true), (relation{0, {none, 2, 1}, {none, 2, 1, 2}}));
}

TEST(ColumnLookup, TestsEmptinessBeforeRows)
{
    const dense2D<unsigned> no_columns(3, 0);
    dense2D<unsigned> no_rows;
    no_rows.resize(0, 2);
    const auto pairs = elements_of({{1, 2}});
    EXPECT_EQ(relate(no_columns, pairs, true), (relation{0, {none}, {}}));
    EXPECT_EQ(relate(pairs, no_columns, false), (relation{0, {}, {none}}));
    EXPECT_EQ(relate(no_rows, pairs, false), (relation{0, {none}, {none, none}}));
    EXPECT_EQ(relate(pairs, no_rows, true), (relation{0, {none, none}, {none}}));
}

TEST(ColumnLookup, RefusesDifferentRowsAfterFillingTheOutputs)
{
    EXPECT_EQ(relate(elements_of({{1, 2}}), elements_of({{1, 2, 3}, {1, 2, 3}}), false), (relation{-2, {none, none}, {none}}));
}

TEST(ColumnLookup, AgreesWithTheHashMultimapOnRandomColumns)
{
    test::random_source random(2);
    for (unsigned round = 0; round < 3000; ++round)
    {
        const unsigned rows = 1 + round % 6;
        const unsigned values = 1 + random.below(5);
        const unsigned step = round % 4 < 2 ? 1 : 100003; // dense and scattered indices
        const auto random_matrix = [&] {
            dense2D<unsigned> m(rows, 1 + random.below(14));
            for (unsigned c = 0; c < m.cols; ++c)
                for (unsigned r = 0; r < rows; ++r) m(r, c) = random.below(16) == 0 ? none : step * random.below(values);
            return m;
        };
        const auto a = random_matrix();
        const auto b = random_matrix();
        for (const bool exact : {true, false})
        {
            EXPECT_EQ(relate(a, b, exact), reference(a, b, exact))
                << testing::PrintToString(test::columns(a)) << ' ' << testing::PrintToString(test::columns(b)) << ' ' << exact;
            EXPECT_EQ(relate(test::non_dense(a, 1u), test::non_dense(b, 2u), exact), reference(a, b, exact));
        }
    }
}

TEST(ColumnLookup, MatchesEveryTurnAndMirrorImage)
{
    // Every column over {0, 1, 2} of five rows against its turns and mirror images.
    for (unsigned code = 0; code < 243; ++code)
    {
        ids cycle;
        for (unsigned rest = code, r = 0; r < 5; ++r, rest /= 3) cycle.push_back(rest % 3);
        dense2D<unsigned> a(5, 1);
        std::copy(cycle.begin(), cycle.end(), a.column(0));
        dense2D<unsigned> b(5, 10);
        for (unsigned turn = 0; turn < 5; ++turn)
        {
            std::rotate_copy(cycle.begin(), cycle.begin() + turn, cycle.end(), b.column(turn));
            std::reverse_copy(b.column(turn), b.column(turn) + 5, b.column(5 + turn));
        }
        EXPECT_EQ(relate(a, b, false), reference(a, b, false)) << testing::PrintToString(cycle);
    }
}

TEST(ColumnLookup, StandsAMillionColumnsOfOneKey)
{
    // All columns have the same nodes, so every one has the same key.
    constexpr unsigned count = 1000000;
    dense2D<unsigned> a(3, count);
    for (unsigned c = 0; c < count; ++c)
    {
        a(0, c) = 7;
        a(1, c) = c % 2 ? 7 : 8;
        a(2, c) = c % 2 ? 8 : 7;
    }
    dense1D<unsigned> b_in_a;
    dense1D<unsigned> a_in_b;
    ASSERT_EQ(get_IDs(a, a, b_in_a, a_in_b, true), 0);
    for (unsigned c = 0; c < count; ++c) ASSERT_TRUE(b_in_a[c] == c % 2 && a_in_b[c] == c % 2) << c;
    ASSERT_EQ(get_IDs(a, a, b_in_a, a_in_b, false), 0);
    for (unsigned c = 0; c < count; ++c) ASSERT_TRUE(b_in_a[c] == 0 && a_in_b[c] == 0) << c;
}

TEST(ColumnLookup, LeavesNothingInOutputsThatShareTheInputWhereMemoryRunsOut)
{
    const auto a = elements_of({{1, 2, 3}, {3, 2, 1}});
    const auto b = elements_of({{2, 1, 3}});
    for (unsigned n = 1; n <= 2; ++n)
    {
        dense1D<unsigned> b_in_a = a.as_vector();
        dense1D<unsigned> a_in_b = a.as_vector();
        const test::failing_allocation failing(n);
        EXPECT_EQ(get_IDs(a, b, b_in_a, a_in_b, false), out_of_memory);
        EXPECT_EQ(b_in_a.size + a_in_b.size, 0u) << n;
        EXPECT_EQ(list(a.as_vector()), (ids{1, 2, 3, 3, 2, 1}));
    }
}

TEST(ColumnLookup, AnswersWantOfMemory)
{
    const auto a = elements_of({{1, 2, 3}, {3, 2, 1}});
    const auto b = elements_of({{2, 1, 3}});
    const long alive = test::live_allocations();
    bool complete = false;
    for (unsigned n = 1; !complete; ++n)
    {
        dense1D<unsigned> b_in_a;
        dense1D<unsigned> a_in_b;
        const test::failing_allocation failing(n);
        const int result = get_IDs(a, b, b_in_a, a_in_b, false);
        complete = !failing.has_failed();
        // The last of five is a table that sorting can do without.
        EXPECT_EQ(result, n >= 5 ? 0 : out_of_memory) << n;
        if (result == 0)
        {
            EXPECT_EQ(list(b_in_a), (ids{0})) << n;
            EXPECT_EQ(list(a_in_b), (ids{0, 0})) << n;
        }
        EXPECT_EQ(complete, n == 6) << n;
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

} // namespace
