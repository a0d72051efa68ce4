#include <cstddef>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/numcore/numcore.h>

#include "support/failing_allocator.h"

template class tq4::dense2D<unsigned>;
template class tq4::dense2D<int>;
template class tq4::dense2D<double>;

namespace
{

using namespace tq4;
using test::failing_allocation;

static_assert(!std::is_polymorphic_v<dense2D<double>>);
static_assert(std::is_nothrow_copy_constructible_v<dense2D<double>> && std::is_nothrow_move_constructible_v<dense2D<double>>);
static_assert(sizeof(dense2D<double>) <= sizeof(void*) + 6 * sizeof(unsigned));

using matrix = dense2D<double>;
using contents = std::vector<std::vector<double>>;

contents columns(const matrix& m)
{
    contents all(m.cols);
    for (unsigned c = 0; c < m.cols; ++c)
        for (unsigned r = 0; r < m.rows; ++r) all[c].push_back(m(r, c));
    return all;
}

/// Element (r, c) is 10 c + r + 1, so 0 stands nowhere.
matrix numbered(unsigned rows, unsigned cols)
{
    matrix m(rows, cols);
    for (unsigned c = 0; c < cols; ++c)
        for (unsigned r = 0; r < rows; ++r) m(r, c) = 10 * c + r + 1;
    return m;
}

TEST(Dense2D, StartsEmptyWithABlockOfItsOwn)
{
    const matrix m;
    ASSERT_TRUE(m.block);
    EXPECT_EQ(m.rows + m.cols + m.ld + m.size + m.offset, 0u);
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.block->capacity, 0u);
}

TEST(Dense2D, BeginsWithTheFieldsOfAVector)
{
    const matrix m = numbered(2, 2);
    const auto* const base = reinterpret_cast<const char*>(&m);
    const dense1D<double> v;
    const auto* const vector_base = reinterpret_cast<const char*>(&v);
    EXPECT_EQ(reinterpret_cast<const char*>(&m.block) - base, reinterpret_cast<const char*>(&v.block) - vector_base);
    EXPECT_EQ(reinterpret_cast<const char*>(&m.size) - base, reinterpret_cast<const char*>(&v.size) - vector_base);
    EXPECT_EQ(reinterpret_cast<const char*>(&m.offset) - base, reinterpret_cast<const char*>(&v.offset) - vector_base);
}

TEST(Dense2D, IsColumnMajor)
{
    auto m = numbered(3, 4);
    EXPECT_EQ(m.ld, 3u);
    EXPECT_EQ(m.size, 12u);
    for (unsigned c = 0; c < 4; ++c)
        for (unsigned r = 0; r < 3; ++r)
        {
            EXPECT_EQ(&m(r, c), m.block->data + m.offset + c * m.ld + r);
            EXPECT_EQ(&m(r, c), m.column(c) + r);
        }
    EXPECT_EQ(m.data(), m.column(0));
    const auto& seen = m;
    EXPECT_EQ(&seen(2, 3), &m(2, 3));
    EXPECT_EQ(seen.column(1), m.column(1));
}

TEST(Dense2D, IsEmptyWhenEitherCountIsZero)
{
    EXPECT_TRUE(matrix(3, 0).empty());
    EXPECT_TRUE(matrix(0, 5).empty());
    EXPECT_EQ(matrix(0, 5).cols, 5u);
    EXPECT_EQ(matrix(3, 0).rows, 3u);
    EXPECT_FALSE(matrix(1, 1).empty());
}

TEST(Dense2D, IsConstructedWithAValue)
{
    EXPECT_EQ(columns(matrix(2, 2, 5.0)), (contents{{5, 5}, {5, 5}}));
    const failing_allocation failing(1);
    EXPECT_EQ(matrix(2, 2, 5.0).rows, 0u);
    EXPECT_EQ(matrix(2, 2).cols, 0u);
}

TEST(Dense2D, ResizeAppendsColumns)
{
    auto m = numbered(2, 2);
    EXPECT_TRUE(m.resize(2, 4, -1.0));
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}, {-1, -1}, {-1, -1}}));
    EXPECT_EQ(m.size, 8u);
    EXPECT_TRUE(m.resize(2, 1, -2.0));
    EXPECT_EQ(columns(m), (contents{{1, 2}}));
    EXPECT_TRUE(m.resize(2, 2, -2.0));
    EXPECT_EQ(columns(m), (contents{{1, 2}, {-2, -2}}));
}

TEST(Dense2D, ResizeWithoutAValueKeepsWhatTheStorageHolds)
{
    auto m = numbered(2, 3);
    EXPECT_TRUE(m.resize(2, 1));
    EXPECT_TRUE(m.resize(2, 3));
    EXPECT_EQ(columns(m), columns(numbered(2, 3)));
    EXPECT_TRUE(m.resize(2, 5));
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}, {21, 22}, {0, 0}, {0, 0}}));
}

TEST(Dense2D, ResizeRaisesRowsWithAFill)
{
    auto line = numbered(1, 3);
    EXPECT_TRUE(line.resize(2, 3, 0.0));
    EXPECT_EQ(columns(line), (contents{{1, 0}, {11, 0}, {21, 0}}));
    EXPECT_EQ(line.ld, 2u);
    EXPECT_TRUE(line.resize(3, 3, 7.0));
    EXPECT_EQ(columns(line), (contents{{1, 0, 7}, {11, 0, 7}, {21, 0, 7}}));
    EXPECT_TRUE(line.resize(4, 4, 8.0));
    EXPECT_EQ(columns(line), (contents{{1, 0, 7, 8}, {11, 0, 7, 8}, {21, 0, 7, 8}, {8, 8, 8, 8}}));
    EXPECT_TRUE(line.resize(5, 2, 9.0)); // taller and narrower at once
    EXPECT_EQ(columns(line), (contents{{1, 0, 7, 8, 9}, {11, 0, 7, 8, 9}}));
}

TEST(Dense2D, ResizeLowersRowsInPlace)
{
    auto m = numbered(3, 3);
    EXPECT_TRUE(m.resize(2, 3));
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}, {21, 22}}));
    EXPECT_TRUE(m.resize(2, 5, 4.0));
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}, {21, 22}, {4, 4}, {4, 4}}));
    EXPECT_TRUE(m.resize(3, 5, 6.0)); // a row that was given up is new when it comes back
    EXPECT_EQ(columns(m), (contents{{1, 2, 6}, {11, 12, 6}, {21, 22, 6}, {4, 4, 6}, {4, 4, 6}}));
}

TEST(Dense2D, ResizeOfAnEmptyMatrixSetsEverything)
{
    auto m = numbered(3, 4);
    m.cols = 0; // the ordinary way of clearing
    EXPECT_TRUE(m.resize(2, 2, 1.0));
    EXPECT_EQ(columns(m), (contents{{1, 1}, {1, 1}}));
    EXPECT_EQ(m.ld, 2u);
    m.rows = 0;
    EXPECT_TRUE(m.resize(3, 3, 2.0));
    EXPECT_EQ(columns(m), (contents{{2, 2, 2}, {2, 2, 2}, {2, 2, 2}}));
    EXPECT_TRUE(m.resize(0, 4));
    EXPECT_EQ(m.cols, 4u);
    EXPECT_TRUE(m.resize(4, 0));
    EXPECT_EQ(m.rows, 4u);
    EXPECT_TRUE(m.resize(1, 2, 3.0));
    EXPECT_EQ(columns(m), (contents{{3}, {3}}));
}

TEST(Dense2D, PartsSeeTheWholeAndTheWholeSeesThem)
{
    auto m = numbered(4, 4);
    auto part = m.sub_matrix(1, 2, 2, 2);
    EXPECT_EQ(part.ld, 4u);
    EXPECT_EQ(part.offset, 9u);
    EXPECT_EQ(columns(part), (contents{{22, 23}, {32, 33}}));
    part(0, 0) = -5;
    EXPECT_EQ(m(1, 2), -5.0);
    m(2, 3) = -6;
    EXPECT_EQ(part(1, 1), -6.0);
    EXPECT_EQ((part = 0.0), 0.0);
    EXPECT_EQ(columns(m), (contents{{1, 2, 3, 4}, {11, 12, 13, 14}, {21, 0, 0, 24}, {31, 0, 0, 34}}));

    auto inner = part.sub_matrix(1, 1, 1, 1);
    EXPECT_EQ(&inner(0, 0), &m(2, 3));
    const auto& constant = m;
    static_assert(std::is_same_v<decltype(constant.sub_matrix(0, 0, 1, 1)), const matrix>);
    EXPECT_EQ(columns(constant.sub_matrix(3, 0, 1, 2)), (contents{{4}, {14}}));
}

TEST(Dense2D, RaisingTheRowsOfAPartLeavesTheWholeAlone)
{
    auto m = numbered(3, 3);
    auto part = m.sub_matrix(0, 0, 1, 3);
    EXPECT_TRUE(part.resize(2, 3, 0.0));
    EXPECT_EQ(columns(part), (contents{{1, 0}, {11, 0}, {21, 0}}));
    EXPECT_EQ(columns(m), columns(numbered(3, 3)));
    part(0, 0) = 99; // in storage of its own
    EXPECT_EQ(m(0, 0), 1.0);

    auto plane = m.sub_matrix(0, 1, 2, 2);
    EXPECT_TRUE(plane.resize(3, 2, 0.0));
    EXPECT_EQ(columns(plane), (contents{{11, 12, 0}, {21, 22, 0}}));
    EXPECT_EQ(columns(m), columns(numbered(3, 3)));
}

TEST(Dense2D, AGrowingPartLeavesTheElementsOfOtherViews)
{
    auto m = numbered(3, 6);
    auto part = m.sub_matrix(0, 0, 3, 2);
    EXPECT_TRUE(part.reserve(3, 100, 1));
    EXPECT_EQ(columns(m), columns(numbered(3, 6)));
    EXPECT_EQ(part.block, m.block);

    auto strip = m.sub_matrix(1, 1, 1, 2);
    EXPECT_TRUE(strip.reserve(1, 1000, 1));
    EXPECT_EQ(columns(m), columns(numbered(3, 6)));
    EXPECT_EQ(columns(strip), (contents{{12}, {22}}));
}

TEST(Dense2D, APartGetsColumnsAtItsLeadingDimension)
{
    auto m = numbered(3, 3);
    auto part = m.sub_matrix(0, 1, 2, 2);
    EXPECT_TRUE(part.resize(2, 40, 5.0));
    EXPECT_EQ(part.ld, 3u);
    EXPECT_EQ(part(1, 1), 22.0);
    EXPECT_EQ(part(1, 39), 5.0);
    EXPECT_EQ(part.block->capacity, part.offset + 39 * 3 + 2);
    EXPECT_EQ(m(2, 1), 13.0); // the rows between are not the part's
}

TEST(Dense2D, GrowsInPlaceForAllViews)
{
    auto m = numbered(2, 2);
    const auto shared = m;
    EXPECT_TRUE(m.resize(2, 500, 0.0));
    EXPECT_EQ(shared.block, m.block);
    EXPECT_EQ(columns(shared), (contents{{1, 2}, {11, 12}}));
    m(0, 0) = 7;
    EXPECT_EQ(shared(0, 0), 7.0);
}

TEST(Dense2D, CopiesByConstructorShareTheBlock)
{
    auto m = numbered(2, 2);
    matrix shared(m);
    shared(0, 0) = 9;
    EXPECT_EQ(m(0, 0), 9.0);
    EXPECT_EQ(m.block->references(), 2u);

    matrix shallow = numbered(5, 5);
    const auto part = m.sub_matrix(1, 0, 1, 2);
    shallow.shallow_copy(part);
    EXPECT_EQ(shallow.block, m.block);
    EXPECT_EQ(shallow.offset, 1u);
    EXPECT_EQ(shallow.ld, 2u);
    EXPECT_EQ(shallow.rows, 1u);
    EXPECT_EQ(columns(shallow), (contents{{2}, {12}}));
    shallow.shallow_copy(shallow);
    EXPECT_EQ(columns(shallow), (contents{{2}, {12}}));
}

TEST(Dense2D, CopyDuplicatesDensely)
{
    auto m = numbered(4, 4);
    matrix copy;
    EXPECT_TRUE(copy.copy(m.sub_matrix(1, 1, 2, 3)));
    EXPECT_EQ(copy.ld, 2u);
    EXPECT_EQ(copy.offset, 0u);
    EXPECT_EQ(copy.size, 6u);
    EXPECT_EQ(columns(copy), (contents{{12, 13}, {22, 23}, {32, 33}}));
    copy(0, 0) = 0;
    EXPECT_EQ(m(1, 1), 12.0);

    auto part = m.sub_matrix(0, 0, 2, 2);
    EXPECT_TRUE(part.copy(part));
    EXPECT_NE(part.block, m.block);
    EXPECT_EQ(columns(part), (contents{{1, 2}, {11, 12}}));
    EXPECT_TRUE(part.copy(matrix(0, 3)));
    EXPECT_EQ(part.cols, 3u);

    const failing_allocation failing(1);
    EXPECT_FALSE(copy.copy(m));
    EXPECT_EQ(columns(copy), (contents{{0, 13}, {22, 23}, {32, 33}}));
}

TEST(Dense2D, FailedResizeChangesNothing)
{
    auto m = numbered(2, 2);
    for (const auto& [rows, cols] : {std::pair{2u, 100u}, {3u, 2u}, {3u, 100u}, {0xFFFFu, 0x10001u}})
    {
        const failing_allocation failing(1);
        EXPECT_FALSE(m.resize(rows, cols, 0.0)) << rows << ' ' << cols;
        EXPECT_FALSE(m.reserve(rows, cols + 100, 1));
        EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}}));
        EXPECT_EQ(m.ld, 2u);
    }
}

TEST(Dense2D, CountsBeyondThirtyTwoBitsAreWantOfMemory)
{
    const unsigned long before = test::allocation_count();
    matrix m;
    EXPECT_FALSE(m.resize(0x10000, 0x10000)); // the product wraps to 0
    EXPECT_FALSE(m.resize(3, 0x55555556));    // 2^32 + 2
    EXPECT_FALSE(m.reserve(0x10000, 0x10000, 1));
    EXPECT_FALSE(m.reserve(0xFFFFFFFFu, 0xFFFFFFFFu, 1));
    EXPECT_EQ(m.rows + m.cols, 0u);

    double array[4] = {1, 2, 3, 4};
    auto part = matrix::wrap(array, 1, 2, 2);
    part.offset = 0xFFFFFFFEu; // near the end of the index range, by its field alone
    EXPECT_FALSE(part.resize(1, 3));
    EXPECT_FALSE(part.reserve(1, 3, 1));
    EXPECT_EQ(part.cols, 2u);
    part.offset = 0;
    part.ld = 0x80000000u;
    EXPECT_FALSE(part.resize(1, 3)); // two leading dimensions
    EXPECT_EQ(test::allocation_count(), before);
}

TEST(Dense2D, CountsColumnsThatFit)
{
    matrix m(3, 4);
    EXPECT_EQ(m.column_capacity(), m.block->capacity / 3);
    EXPECT_EQ(m.sub_matrix(1, 1, 2, 2).column_capacity(), (m.block->capacity - 4) / 3);
    m.ld = 0;
    EXPECT_EQ(m.column_capacity(), m.block->capacity);
    EXPECT_EQ(matrix().column_capacity(), 0u);
}

TEST(Dense2D, ReserveKeepsShapeAndElements)
{
    auto m = numbered(2, 2);
    EXPECT_TRUE(m.reserve(2, 50, 1));
    EXPECT_EQ(m.block->capacity, 100u);
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}}));
    EXPECT_TRUE(m.reserve(2, 10, 1));
    EXPECT_EQ(m.block->capacity, 100u);
    const auto* const data = m.data();
    EXPECT_TRUE(m.resize(2, 50, 0.0));
    EXPECT_EQ(m.data(), data);
}

TEST(Dense2D, ReadsAsOneVector)
{
    auto m = numbered(2, 3);
    const auto v = m.as_vector();
    EXPECT_EQ(v.size, 6u);
    EXPECT_EQ(v.block, m.block);
    EXPECT_EQ(v[3], 12.0);
    const auto right = m.sub_matrix(0, 1, 2, 2);
    EXPECT_EQ(right.as_vector().offset, 2u);
    EXPECT_EQ(right.as_vector()[0], 11.0);
    EXPECT_EQ(matrix(3, 0).as_vector().size, 0u);
}

TEST(Dense2D, ClearsWithAndWithoutItsStorage)
{
    auto m = numbered(2, 3);
    m.clear();
    EXPECT_EQ(m.rows + m.cols + m.ld + m.size, 0u);
    EXPECT_EQ(m.block->capacity, 6u);
    m.clear_hard();
    EXPECT_EQ(m.block->capacity, 0u);
    EXPECT_TRUE(m.resize(1, 1, 3.0));
}

TEST(Dense2D, WrapsACallersArray)
{
    const long alive = test::live_allocations();
    double array[6] = {1, 2, 3, 4, 5, 6};
    {
        auto m = matrix::wrap(array, 2, 3);
        EXPECT_EQ(columns(m), (contents{{1, 2}, {3, 4}, {5, 6}}));
        EXPECT_EQ(m.size, 6u);
        EXPECT_EQ(m.block->capacity, 6u);
        m(1, 2) = 9;
        auto spaced = matrix::wrap(array, 1, 2, 4);
        EXPECT_EQ(columns(spaced), (contents{{1}, {5}}));
        EXPECT_EQ(spaced.block->capacity, 5u);
        EXPECT_EQ(test::live_allocations(), alive);

        EXPECT_TRUE(m.resize(2, 4, 0.0)); // beyond the array, so into storage of its own
        EXPECT_NE(m.data(), array);
        EXPECT_EQ(columns(m), (contents{{1, 2}, {3, 4}, {5, 9}, {0, 0}}));
        m(0, 0) = 77;

        auto taller = matrix::wrap(array, 2, 3);
        EXPECT_TRUE(taller.resize(3, 3, 0.0));
        EXPECT_EQ(columns(taller), (contents{{1, 2, 0}, {3, 4, 0}, {5, 9, 0}}));
    }
    EXPECT_EQ(array[0], 1.0);
    EXPECT_EQ(array[5], 9.0);
    EXPECT_EQ(test::live_allocations(), alive);
    EXPECT_TRUE(matrix::wrap(nullptr, 2, 2).empty());
    EXPECT_TRUE(matrix::wrap(array, 0x10000, 0x10000).empty()); // no such array
    for (const auto& nothing : {matrix::wrap(array, 2, 0), matrix::wrap(array, 0, 2)})
    {
        EXPECT_EQ(nothing.block->capacity, 0u);
        EXPECT_EQ(nothing.size, 0u);
        EXPECT_EQ(nothing.rows + nothing.cols, 2u);
    }
}

TEST(Dense2D, AMovedFromViewIsEmptyAndUsable)
{
    const auto moved_from = [] {
        matrix m = numbered(3, 3).sub_matrix(1, 1, 2, 2);
        const matrix taker(std::move(m));
        EXPECT_EQ(taker(0, 0), 12.0);
        return m;
    };
    auto m = moved_from();
    EXPECT_TRUE(m.empty());
    EXPECT_EQ(m.rows + m.cols + m.ld + m.size + m.offset, 0u);
    EXPECT_EQ(m.data(), nullptr);
    EXPECT_EQ(m.column_capacity(), 0u);
    EXPECT_EQ((m = 4.0), 4.0);
    EXPECT_EQ(m.as_vector().size, 0u);
    EXPECT_TRUE(m.resize(2, 1, 5.0));
    EXPECT_EQ(columns(m), (contents{{5, 5}}));
    m = moved_from();
    EXPECT_TRUE(m.reserve(2, 2, 1));
    EXPECT_TRUE(m.copy(moved_from()));
    m.clear_hard();
    EXPECT_TRUE(m.block);

    auto from = numbered(2, 2);
    m = std::move(from);
    EXPECT_EQ(columns(m), (contents{{1, 2}, {11, 12}}));
    auto& itself = m;
    m = std::move(itself);
    EXPECT_EQ(m.cols, 2u);
}

TEST(Dense2D, PartsKeepTheBlockAlive)
{
    const long alive = test::live_allocations();
    {
        matrix result;
        {
            auto local = numbered(3, 5);
            result.shallow_copy(local.sub_matrix(0, 1, 3, 2));
        }
        EXPECT_EQ(columns(result), (contents{{11, 12, 13}, {21, 22, 23}}));
        EXPECT_EQ(test::live_allocations(), alive + 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense2D, SurvivesFailureOfAnyAllocation)
{
    const long alive = test::live_allocations();
    bool complete = false;
    for (unsigned n = 1; !complete; ++n)
    {
        const failing_allocation failing(n);
        matrix m;
        bool good = m.resize(2, 3, 1.0);
        good &= m.resize(3, 3, 2.0);
        good &= m.reserve(3, 50, 1);
        good &= m.resize(3, 60);
        matrix other;
        good &= other.copy(m);
        complete = !failing.has_failed();
        EXPECT_EQ(good, complete) << n;
        EXPECT_LE(m.size, m.block->capacity);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

} // namespace
