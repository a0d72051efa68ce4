#include <algorithm>
#include <string>

#include <gtest/gtest.h>

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
using ids = std::vector<unsigned>;
using columns_of_ids = std::vector<ids>;

constexpr unsigned none = none_index;

// ---- check_IDs

TEST(CheckIDs, OfAListPassesNoneAndWhatIsBelow)
{
    EXPECT_TRUE(check_IDs(ids_of({0, 4, none, 2}), 5));
    EXPECT_FALSE(check_IDs(ids_of({0, 4, none, 2}), 4));
    EXPECT_FALSE(check_IDs(ids_of({none - 1}), 5));
    EXPECT_TRUE(check_IDs(ids_of({none}), 0));
    EXPECT_FALSE(check_IDs(ids_of({0}), 0));
    EXPECT_TRUE(check_IDs(ids_of({}), 0));
}

TEST(CheckIDs, WithoutALimitPassesAnyList)
{
    EXPECT_TRUE(check_IDs(ids_of({none, none - 1, 0}), none));
    EXPECT_TRUE(check_IDs(elements_of({{none, none - 1}}), none));
}

TEST(CheckIDs, OfAMatrixLooksAtItsOwnEntriesOnly)
{
    const auto matrix = elements_of({{0, 1}, {2, none}});
    EXPECT_TRUE(check_IDs(matrix, 3));
    EXPECT_FALSE(check_IDs(matrix, 2));
    EXPECT_TRUE(check_IDs(test::non_dense(matrix, 99u), 3));
    EXPECT_FALSE(check_IDs(test::non_dense(matrix, 0u), 2));
    EXPECT_TRUE(check_IDs(dense2D<unsigned>(3, 0), 0));
    EXPECT_TRUE(check_IDs(dense2D<unsigned>(0, 3), 0));
}

TEST(CheckIDs, OfASurfaceAllowsNoneInRowThreeAlone)
{
    EXPECT_TRUE(check_IDs(elements_of({{1, 2, 3, none}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{1, 2, none, 3}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{none, 2, 3, none}}), ELEM_SURF_ANY, 4));
    EXPECT_TRUE(check_IDs(elements_of({{0, 1, 2, 3}, {1, 2, 3, none}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{1, 2, 3, none}, {0, 1, 2, 4}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{1, 2, 4, none}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{1, 2, 3, none}}), ELEM_QUAD4, 4));
}

TEST(CheckIDs, OfASurfaceOfThreeRowsIsThatOfTriangles)
{
    for (const auto& column : {elements_of({{1, 2, 3}}), elements_of({{1, 2, none}}), elements_of({{1, 2, 9}})})
        EXPECT_EQ(check_IDs(column, ELEM_SURF_ANY, 4), check_IDs(column, ELEM_TRIA3, 4));
    EXPECT_TRUE(check_IDs(elements_of({{1, 2, 3}}), ELEM_SURF_ANY, 4));
    EXPECT_FALSE(check_IDs(elements_of({{1, 2, none}}), ELEM_SURF_ANY, 4));
    for (const unsigned rows : {1u, 2u, 5u, 8u}) EXPECT_FALSE(check_IDs(dense2D<unsigned>(rows, 1, 0), ELEM_SURF_ANY, 4)) << rows;
}

TEST(CheckIDs, OfASolidAllowsThePaddingOfItsShapes)
{
    const auto valid = [](std::initializer_list<unsigned> column) { return check_IDs(elements_of({column}), ELEM_SOLID_ANY, 9); };
    EXPECT_TRUE(valid({1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_TRUE(valid({1, 2, 3, 4, 5, 6, none, none}));
    EXPECT_TRUE(valid({1, 2, 3, 4, 5, none, none, none}));
    EXPECT_TRUE(valid({1, 2, 3, 4, none, none, none, none}));
    EXPECT_FALSE(valid({1, 2, 3, 4, 5, none, 6, none}));
    EXPECT_FALSE(valid({1, 2, 3, 4, none, 5, none, none}));
    EXPECT_FALSE(valid({1, 2, 3, 4, 5, 6, none, 7}));
    EXPECT_FALSE(valid({1, 2, 3, 4, 5, 6, 7, none}));
    EXPECT_FALSE(valid({1, 2, 3, none, none, none, none, none}));
    EXPECT_FALSE(valid({none, 2, 3, 4, none, none, none, none}));
    for (unsigned row = 0; row < 8; ++row)
    {
        auto column = elements_of({{1, 2, 3, 4, 5, 6, 7, 8}});
        column(row, 0) = 9;
        EXPECT_FALSE(check_IDs(column, ELEM_SOLID_ANY, 9)) << row;
    }
}

TEST(CheckIDs, OfASolidOfFewerRowsIsThatOfAPlainKind)
{
    for (const unsigned rows : {4u, 5u, 6u})
    {
        dense2D<unsigned> column(rows, 1, 3);
        EXPECT_TRUE(check_IDs(column, ELEM_SOLID_ANY, 4)) << rows;
        column(rows - 1, 0) = none;
        EXPECT_FALSE(check_IDs(column, ELEM_SOLID_ANY, 4)) << rows;
    }
    for (const unsigned rows : {1u, 3u, 7u, 9u}) EXPECT_FALSE(check_IDs(dense2D<unsigned>(rows, 1, 0), ELEM_SOLID_ANY, 4)) << rows;
}

TEST(CheckIDs, OfAPlainKindWantsItsRowsAndNoHoles)
{
    for (unsigned value = 0; value < 23; ++value)
    {
        const auto kind = static_cast<element_type>(value);
        if (kind == ELEM_SURF_ANY || kind == ELEM_SOLID_ANY) continue;
        for (unsigned rows = 1; rows < 30; ++rows)
            EXPECT_EQ(check_IDs(dense2D<unsigned>(rows, 2, 0), kind, 1), rows == nbr_nodes(kind)) << value << ' ' << rows;
        if (nbr_nodes(kind) == 0) continue;
        dense2D<unsigned> matrix(nbr_nodes(kind), 2, 0);
        matrix(matrix.rows - 1, 1) = none;
        EXPECT_FALSE(check_IDs(matrix, kind, 1)) << value;
        EXPECT_FALSE(check_IDs(matrix, kind, none)) << value << ": no limit, but no holes either";
        matrix(matrix.rows - 1, 1) = none - 1;
        EXPECT_TRUE(check_IDs(matrix, kind, none)) << value;
    }
    EXPECT_FALSE(check_IDs(elements_of({{0}}), static_cast<element_type>(23), 1));
}

TEST(CheckIDs, OfAnEmptyMatrixPassesForAnyKind)
{
    for (unsigned value = 0; value < 23; ++value)
    {
        EXPECT_TRUE(check_IDs(dense2D<unsigned>(7, 0), static_cast<element_type>(value), 0));
        EXPECT_TRUE(check_IDs(dense2D<unsigned>(0, 7), static_cast<element_type>(value), 0));
    }
}

TEST(CheckIDs, OfAConnectivityWalksColumnsByTheirLeadingDimension)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        const unsigned count = m.pos.cols;
        EXPECT_TRUE(check_IDs(test::non_dense(m.connectivity, 1000000u), m.kind, count)) << m.kind;
        EXPECT_FALSE(check_IDs(test::non_dense(m.connectivity, 0u), m.kind, max_ID(m.connectivity))) << m.kind;
    }
}

// ---- change_indices

TEST(ChangeIndices, LeavesWhatIsBeyondTheMap)
{
    auto list_of_ids = ids_of({0, 3, 2, none, 1, 4});
    change_indices(list_of_ids, ids_of({7, none, 3}));
    EXPECT_EQ(list(list_of_ids), (ids{7, 3, 3, none, none, 4}));
    change_indices(list_of_ids, ids_of({}));
    EXPECT_EQ(list(list_of_ids), (ids{7, 3, 3, none, none, 4}));
}

TEST(ChangeIndices, WalksAllRowsAndColumns)
{
    auto matrix = elements_of({{0, 1}, {2, none}, {1, 1}});
    auto part = test::non_dense(matrix, 0u);
    change_indices(matrix, ids_of({5, 6}));
    change_indices(part, ids_of({5, 6}));
    EXPECT_EQ(columns(matrix), (columns_of_ids{{5, 6}, {2, none}, {6, 6}}));
    EXPECT_EQ(columns(part), columns(matrix));
    EXPECT_EQ(part.block->data[0], 0u) << "entries around a part stay";
    EXPECT_EQ(part.column(0)[2], 0u);
}

// ---- shift_indices

TEST(ShiftIndices, OfAListKeepsNone)
{
    auto v = ids_of({0, none, 5});
    EXPECT_EQ(shift_indices(v, 3), 0);
    EXPECT_EQ(list(v), (ids{3, none, 8}));
    EXPECT_EQ(shift_indices(v, -4), 0);
    EXPECT_EQ(list(v), (ids{none, none, 4})); // 3 - 4 wraps
    EXPECT_EQ(shift_indices(v, 0), 0);
    EXPECT_EQ(list(v), (ids{none, none, 4}));
}

TEST(ShiftIndices, OfAMatrixKeepsNoneInMixedKindsOnly)
{
    const auto matrix = elements_of({{1, none}, {none - 1, 3}});
    for (const element_type kind : {ELEM_TRIA3, ELEM_BAR_ANY, ELEM_SURF_ANY, ELEM_SOLID_ANY})
    {
        const bool padded = kind == ELEM_SURF_ANY || kind == ELEM_SOLID_ANY;
        const columns_of_ids expected{{5, padded ? none : 3}, {2, 7}};
        dense2D<unsigned> shifted;
        shifted.copy(matrix);
        EXPECT_EQ(shift_indices(shifted, 4, kind), 0);
        EXPECT_EQ(columns(shifted), expected) << kind;
        auto part = test::non_dense(matrix, 50u);
        EXPECT_EQ(shift_indices(part, 4, kind), 0);
        EXPECT_EQ(columns(part), expected) << kind;
        EXPECT_EQ(part.column(0)[2], 50u) << "entries around a part stay";
    }
}

TEST(ShiftIndices, ByZeroChangesNothing)
{
    auto matrix = elements_of({{1, none}});
    EXPECT_EQ(shift_indices(matrix, 0, ELEM_BAR2), 0);
    EXPECT_EQ(columns(matrix), (columns_of_ids{{1, none}}));
    dense2D<unsigned> empty(3, 0);
    EXPECT_EQ(shift_indices(empty, 1, ELEM_TRIA3), 0);
}

// ---- max_ID

TEST(MaxID, PassesNoneOver)
{
    EXPECT_EQ(max_ID(ids_of({3, none, 7, 1})), 7u);
    EXPECT_EQ(max_ID(ids_of({none - 1, 0})), none - 1);
    EXPECT_EQ(max_ID(ids_of({none, none})), 0u);
    EXPECT_EQ(max_ID(ids_of({})), none);
}

TEST(MaxID, OfAMatrixDependsOnItsLeadingDimensionWhenEmpty)
{
    const auto matrix = elements_of({{3, none}, {9, 2}});
    EXPECT_EQ(max_ID(matrix), 9u);
    EXPECT_EQ(max_ID(test::non_dense(matrix, 100u)), 9u);
    EXPECT_EQ(max_ID(elements_of({{none, none}})), 0u);
    EXPECT_EQ(max_ID(dense2D<unsigned>()), none);
    EXPECT_EQ(max_ID(dense2D<unsigned>(3, 0)), none);
    auto part = matrix;
    EXPECT_EQ(max_ID(part.sub_matrix(0, 0, 1, 0)), 0u);
}

// ---- get_sorted_order

struct sorted_order
{
    int result;
    ids order;
    ids starts;
};

sorted_order sort(const dense1D<unsigned>& v)
{
    auto order = ids_of({9, 9, 9, 9, 9, 9, 9});
    auto starts = ids_of({8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8, 8});
    const int result = get_sorted_order(v, order, starts);
    return {result, list(order), list(starts)};
}

TEST(SortedOrder, ListsThePositionsOfEveryValue)
{
    const auto sorted = sort(ids_of({2, 0, 2, none}));
    EXPECT_EQ(sorted.result, 0);
    EXPECT_EQ(sorted.order, (ids{1, 0, 2}));
    EXPECT_EQ(sorted.starts, (ids{0, 1, 1, 3}));
}

TEST(SortedOrder, OfFewEntries)
{
    EXPECT_EQ(sort(ids_of({})).starts, (ids{0}));
    EXPECT_EQ(sort(ids_of({})).order, (ids{}));
    EXPECT_EQ(sort(ids_of({none, none})).starts, (ids{0, 0}));
    EXPECT_EQ(sort(ids_of({none, none})).order, (ids{}));
    EXPECT_EQ(sort(ids_of({0})).starts, (ids{0, 1}));
    EXPECT_EQ(sort(ids_of({0})).order, (ids{0}));
    EXPECT_EQ(sort(ids_of({1})).starts, (ids{0, 0, 1}));
}

TEST(SortedOrder, IsStable)
{
    test::random_source random(4);
    for (unsigned round = 0; round < 200; ++round)
    {
        dense1D<unsigned> v(1 + random.below(60));
        for (unsigned& id : v) id = random.below(7) == 0 ? none : random.below(1 + round % 20);
        const auto sorted = sort(v);
        ASSERT_EQ(sorted.result, 0);

        const unsigned last = max_ID(v);
        ids order;
        ids starts{0};
        for (unsigned value = 0; value <= last; ++value)
        {
            for (unsigned p = 0; p < v.size; ++p)
                if (v[p] == value) order.push_back(p);
            starts.push_back(static_cast<unsigned>(order.size()));
        }
        EXPECT_EQ(sorted.order, order);
        EXPECT_EQ(sorted.starts, starts);
    }
}

TEST(SortedOrder, AnswersWantOfMemoryWithEmptyOutputs)
{
    const auto v = ids_of({2, 0, 2, none});
    const long alive = test::live_allocations();
    for (unsigned n = 1; n <= 3; ++n)
    {
        dense1D<unsigned> order;
        dense1D<unsigned> starts;
        const test::failing_allocation failing(n);
        EXPECT_EQ(get_sorted_order(v, order, starts), n <= 2 ? out_of_memory : 0) << n;
        EXPECT_EQ(order.size, n <= 2 ? 0u : 3u);
        EXPECT_EQ(starts.size, n <= 2 ? 0u : 4u);
    }
    EXPECT_EQ(test::live_allocations(), alive);

    dense1D<unsigned> order;
    dense1D<unsigned> starts;
    const test::failing_allocation failing(1);
    EXPECT_EQ(get_sorted_order(dense1D<unsigned>(), order, starts), out_of_memory);
}

TEST(SortedOrder, AnswersWantOfMemoryWhereAnOutputSharesTheListsStorage)
{
    for (const bool shares_order : {true, false})
    {
        auto v = ids_of({2, 0, 2, none});
        dense1D<unsigned> order;
        dense1D<unsigned> starts = v;
        if (shares_order) std::swap(order, starts);
        {
            const test::failing_allocation failing(1);
            EXPECT_EQ(get_sorted_order(v, order, starts), out_of_memory);
        }
        EXPECT_EQ(order.size + starts.size, 0u);
        EXPECT_EQ(list(v), (std::vector<unsigned>{2, 0, 2, none}));
    }
}

TEST(SortedOrder, OfValuesBeyondTheCountsIsWantOfMemory)
{
    for (const unsigned value : {none - 1, none - 2, none - 3})
    {
        const auto sorted = sort(ids_of({3, value}));
        EXPECT_EQ(sorted.result, out_of_memory);
        EXPECT_EQ(sorted.order.size() + sorted.starts.size(), 0u);
    }
}

// ---- permutation

template <class T>
std::vector<T> permuted(std::initializer_list<T> values, std::initializer_list<unsigned> places)
{
    auto v = test::vector_of<T>(values);
    EXPECT_EQ(permutation(v, ids_of(places)), 0);
    return list(v);
}

TEST(Permutation, MovesEntriesToTheirPlaces)
{
    EXPECT_EQ(permuted<unsigned>({10, 11, 12}, {2, 0, 1}), (ids{11, 12, 10}));
    EXPECT_EQ(permuted<double>({0.5, 1.5, 2.5}, {1, 2, 0}), (std::vector<double>{2.5, 0.5, 1.5}));
}

TEST(Permutation, LeavesPlacesThatNothingLandsOn)
{
    EXPECT_EQ(permuted<unsigned>({10, 11, 12, 13}, {1}), (ids{10, 10, 12, 13}));          // a short list of places
    EXPECT_EQ(permuted<unsigned>({10, 11, 12}, {4, none, 0}), (ids{12, 11, 12}));         // places beyond the list
    EXPECT_EQ(permuted<unsigned>({10, 11}, {1, 0, 0, 0, 0}), (ids{11, 10}));              // more places than entries
    EXPECT_EQ(permuted<unsigned>({10, 11, 12, 13}, {3, 1, 3, 3}), (ids{10, 11, 12, 12})); // the later one, and 3 itself stays out
    EXPECT_EQ(permuted<unsigned>({10, 11, 12}, {}), (ids{10, 11, 12}));
    EXPECT_EQ(permuted<unsigned>({}, {0, 1}), (ids{}));
}

TEST(Permutation, MayPermuteTheListOfPlacesItself)
{
    auto p = ids_of({2, 0, 3, 1});
    EXPECT_EQ(permutation(p, p), 0);
    EXPECT_EQ(list(p), (ids{0, 1, 2, 3}));
}

TEST(Permutation, AnswersWantOfMemoryWithTheListUnchanged)
{
    auto v = ids_of({5, 6});
    const auto p = ids_of({1, 0});
    const test::failing_allocation failing(1);
    EXPECT_EQ(permutation(v, p), out_of_memory);
    EXPECT_EQ(list(v), (ids{5, 6}));
    dense1D<unsigned> empty;
    EXPECT_EQ(permutation(empty, p), 0);
}

TEST(Version, IsTheLibrarys)
{
    EXPECT_EQ(std::string(version()), "4.9.0.0");
    EXPECT_EQ(version(), version());
}

TEST(Indices, OfColumnsWithoutRowsAreLeftAlone)
{
    dense2D<unsigned> no_rows(0, 5);
    change_indices(no_rows, ids_of({1, 0}));
    EXPECT_EQ(shift_indices(no_rows, 3, ELEM_TRIA3), 0);
    EXPECT_EQ(shift_indices(no_rows, 3, ELEM_SURF_ANY), 0);
    EXPECT_TRUE(check_IDs(no_rows, 0));
    EXPECT_EQ(max_ID(no_rows), none);
    EXPECT_EQ(no_rows.cols, 5u);
}

} // namespace
