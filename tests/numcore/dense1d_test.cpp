#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/numcore/numcore.h>

#include "support/failing_allocator.h"

// Every operation exists for every element type.
template class tq4::dense1D<unsigned>;
template class tq4::dense1D<int>;
template class tq4::dense1D<double>;
template class tq4::dense1D<float>;
template class tq4::dense1D<char>;

namespace
{

using namespace tq4;
using test::failing_allocation;

static_assert(!std::is_polymorphic_v<dense1D<double>>);
static_assert(sizeof(dense1D<double>) == sizeof(void*) + 2 * sizeof(unsigned));
static_assert(!std::is_convertible_v<unsigned, dense1D<unsigned>>);
static_assert(std::is_nothrow_copy_constructible_v<dense1D<double>> && std::is_nothrow_move_constructible_v<dense1D<double>>);

template <class T>
std::vector<T> list(const dense1D<T>& v)
{
    return {v.begin(), v.end()};
}

template <class T = unsigned>
dense1D<T> counting(unsigned n)
{
    dense1D<T> v(n);
    for (unsigned k = 0; k < n; ++k) v[k] = static_cast<T>(k);
    return v;
}

using unsigneds = std::vector<unsigned>;
using doubles = std::vector<double>;

TEST(Dense1D, StartsEmptyWithABlockOfItsOwn)
{
    const dense1D<double> v;
    const dense1D<double> w;
    EXPECT_EQ(v.size, 0u);
    EXPECT_EQ(v.offset, 0u);
    ASSERT_TRUE(v.block);
    EXPECT_NE(v.block, w.block);
    EXPECT_EQ(v.block->capacity, 0u);
    EXPECT_EQ(v.block->data, nullptr);
    EXPECT_TRUE(v.empty());
    EXPECT_EQ(v.begin(), v.end());
}

TEST(Dense1D, IsConstructedWithASize)
{
    const dense1D<int> v(4, -3);
    EXPECT_EQ(list(v), (std::vector<int>{-3, -3, -3, -3}));
    EXPECT_EQ(dense1D<int>(5).size, 5u);
    EXPECT_EQ(dense1D<unsigned>(0).size, 0u);

    const failing_allocation failing(1);
    EXPECT_EQ(dense1D<int>(5).size, 0u);
    EXPECT_EQ(dense1D<int>(5, 1).size, 0u);
}

TEST(Dense1D, LooksAtItsBlockFromItsOffsetOn)
{
    auto v = counting(6);
    auto part = v.sub_vector(2, 3);
    EXPECT_EQ(part.offset, 2u);
    EXPECT_EQ(part.data(), part.block->data + 2);
    EXPECT_EQ(part.begin(), part.data());
    EXPECT_EQ(part.end(), part.data() + 3);
    EXPECT_EQ(&part[1], &part.block->data[part.offset + 1]);
    const auto& seen = part;
    EXPECT_EQ(&seen[1], &part[1]);
    EXPECT_FALSE(seen.empty());
}

TEST(Dense1D, ResizeSetsNewElementsOnly)
{
    dense1D<unsigned> v;
    EXPECT_TRUE(v.resize(3, 7));
    EXPECT_TRUE(v.resize(5, 9));
    EXPECT_EQ(list(v), (unsigneds{7, 7, 7, 9, 9}));
    EXPECT_TRUE(v.resize(2, 1));
    EXPECT_EQ(list(v), (unsigneds{7, 7}));
    EXPECT_TRUE(v.resize(4, 1));
    EXPECT_EQ(list(v), (unsigneds{7, 7, 1, 1}));
    EXPECT_TRUE(v.resize(0, 1));
    EXPECT_TRUE(v.empty());
}

TEST(Dense1D, ResizeWithoutAValueTouchesNothing)
{
    auto v = counting(5);
    EXPECT_TRUE(v.resize(2));
    EXPECT_TRUE(v.resize(5));
    EXPECT_EQ(list(v), (unsigneds{0, 1, 2, 3, 4}));
    // Elements of a fresh growth are zero.
    EXPECT_TRUE(v.resize(100));
    EXPECT_EQ(v[4], 4u);
    for (unsigned k = 5; k < 100; ++k) EXPECT_EQ(v[k], 0u);
}

TEST(Dense1D, ResizeGrowsToTheExactSize)
{
    dense1D<double> v;
    v.resize(1);
    EXPECT_EQ(v.block->capacity, 2u); // the least capacity
    v.resize(2);
    EXPECT_EQ(v.block->capacity, 2u);
    v.resize(101);
    EXPECT_EQ(v.block->capacity, 101u);
    v.resize(5);
    EXPECT_EQ(v.block->capacity, 101u);
}

TEST(Dense1D, PushBackDoublesTheCapacity)
{
    dense1D<double> v;
    std::vector<unsigned> capacities;
    for (unsigned k = 0; k < 17; ++k)
    {
        v.push_back(k);
        ASSERT_EQ(v.size, k + 1);
        if (capacities.empty() || capacities.back() != v.block->capacity) capacities.push_back(v.block->capacity);
    }
    EXPECT_EQ(capacities, (unsigneds{2, 4, 8, 16, 32}));
    for (unsigned k = 0; k < 17; ++k) EXPECT_EQ(v[k], k);

    dense1D<char> text;
    text.push_back('a');
    EXPECT_GE(text.block->capacity, 2u);
    text.push_back('b');
    text.push_back('c');
    EXPECT_GE(text.block->capacity, 4u);
    EXPECT_EQ(list(text), (std::vector<char>{'a', 'b', 'c'}));
}

TEST(Dense1D, PushBackTakesAnElementOfItself)
{
    dense1D<double> v;
    v.push_back(3.0);
    v.push_back(4.0);
    v.push_back(v[1]); // grows
    EXPECT_EQ(list(v), (doubles{3, 4, 4}));
}

TEST(Dense1D, PushBackDropsSilentlyWithoutMemory)
{
    dense1D<double> v;
    v.push_back(1.0);
    v.push_back(2.0);
    const failing_allocation failing(1);
    v.push_back(3.0);
    EXPECT_EQ(list(v), (doubles{1, 2}));
    EXPECT_EQ(v.block->capacity, 2u);
}

TEST(Dense1D, PushBackOfAPairStoresBothOrNone)
{
    dense1D<double> v;
    v.push_back(1.0, 2.0);
    EXPECT_EQ(v.block->capacity, 2u);
    v.push_back(3.0, 4.0);
    EXPECT_EQ(v.block->capacity, 4u);
    v.push_back(5.0, 6.0);
    v.push_back(7.0);
    EXPECT_EQ(list(v), (doubles{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(v.block->capacity, 8u);

    const failing_allocation failing(1);
    v.push_back(8.0, 9.0); // one place is left
    EXPECT_EQ(v.size, 7u);
    v.push_back(8.0);
    EXPECT_EQ(v.size, 8u);
}

TEST(Dense1D, PushBackNAppendsCopies)
{
    dense1D<unsigned> v;
    EXPECT_TRUE(v.push_back_n(4, 0));
    EXPECT_TRUE(v.push_back_n(4, 3));
    EXPECT_TRUE(v.push_back_n(5, 2));
    EXPECT_EQ(list(v), (unsigneds{4, 4, 4, 5, 5}));
    const failing_allocation failing(1);
    EXPECT_FALSE(v.push_back_n(6, 1000));
    EXPECT_EQ(list(v), (unsigneds{4, 4, 4, 5, 5}));
}

TEST(Dense1D, ReserveMakesRoomAndNothingElse)
{
    dense1D<double> v(3, 1.0);
    EXPECT_TRUE(v.reserve(100, 1));
    EXPECT_EQ(v.block->capacity, 100u);
    EXPECT_EQ(list(v), (doubles{1, 1, 1}));
    EXPECT_TRUE(v.reserve(101, 2));
    EXPECT_EQ(v.block->capacity, 200u);
    EXPECT_TRUE(v.reserve(50, 1));
    EXPECT_EQ(v.block->capacity, 200u);
    EXPECT_TRUE(v.reserve(300, 0)); // a factor of 0 asks for nothing beyond the room
    EXPECT_EQ(v.block->capacity, 300u);

    auto part = v.sub_vector(2, 1);
    EXPECT_TRUE(part.reserve(299, 1)); // room is counted behind the offset
    EXPECT_EQ(v.block->capacity, 301u);

    const failing_allocation failing(1);
    EXPECT_FALSE(v.reserve(1000, 1));
    EXPECT_EQ(list(v), (doubles{1, 1, 1}));
}

TEST(Dense1D, FailedResizeHoldsWhatFits)
{
    dense1D<double> v(8, 2.0);
    v.size = 3;
    {
        const failing_allocation failing(1);
        EXPECT_FALSE(v.resize(10, 5.0));
    }
    // As many elements as fit, and none of them is set.
    EXPECT_EQ(list(v), (doubles{2, 2, 2, 2, 2, 2, 2, 2}));

    auto part = v.sub_vector(5, 1);
    {
        const failing_allocation failing(1);
        EXPECT_FALSE(part.resize(10));
    }
    EXPECT_EQ(part.size, 3u);
    EXPECT_TRUE(part.resize(10));
}

TEST(Dense1D, CopiesByConstructorShareTheBlock)
{
    auto v = counting(3);
    dense1D<unsigned> shared(v);
    EXPECT_EQ(shared.block, v.block);
    EXPECT_EQ(v.block->references(), 2u);
    shared[1] = 8;
    EXPECT_EQ(v[1], 8u);

    dense1D<unsigned> assigned;
    assigned = v.sub_vector(1, 2);
    EXPECT_EQ(assigned.block, v.block);
    EXPECT_EQ(assigned.offset, 1u);
    assigned[0] = 9;
    EXPECT_EQ(v[1], 9u);
}

TEST(Dense1D, CopyDuplicates)
{
    auto v = counting(4);
    dense1D<unsigned> other;
    EXPECT_TRUE(other.copy(v.sub_vector(1, 3)));
    EXPECT_EQ(list(other), (unsigneds{1, 2, 3}));
    other[0] = 9;
    EXPECT_EQ(v[1], 1u);

    // A destination that shares the block of its source comes out separate.
    dense1D<unsigned> shared(v);
    EXPECT_TRUE(shared.copy(v));
    shared[0] = 9;
    EXPECT_EQ(v[0], 0u);
    EXPECT_TRUE(v.copy(v));
    EXPECT_EQ(list(v), (unsigneds{0, 1, 2, 3}));

    const failing_allocation failing(1);
    EXPECT_FALSE(other.copy(v));
    EXPECT_EQ(list(other), (unsigneds{9, 2, 3}));
}

TEST(Dense1D, AssignmentOfAValueFills)
{
    auto v = counting(5);
    auto part = v.sub_vector(1, 3);
    EXPECT_EQ((part = 7), 7u);
    EXPECT_EQ(list(v), (unsigneds{0, 7, 7, 7, 4}));
    EXPECT_EQ(part.block, v.block);
    dense1D<unsigned> empty;
    EXPECT_EQ((empty = 3), 3u);
    EXPECT_EQ(empty.size, 0u);
}

TEST(Dense1D, ComparesElements)
{
    auto v = counting(4);
    EXPECT_TRUE(v.sub_vector(1, 2) == v.sub_vector(1, 2));
    EXPECT_FALSE(v.sub_vector(1, 2) == v.sub_vector(2, 2));
    EXPECT_FALSE(v.sub_vector(1, 2) == v.sub_vector(1, 3));
    EXPECT_TRUE(dense1D<unsigned>() == dense1D<unsigned>());
    EXPECT_TRUE(dense1D<unsigned>() != v);
    dense1D<unsigned> other;
    other.copy(v);
    EXPECT_TRUE(other == v);
}

TEST(Dense1D, ClearHardGivesTheStorageUp)
{
    auto v = counting(4);
    const auto shared = v;
    v.clear_hard();
    EXPECT_EQ(v.size, 0u);
    EXPECT_EQ(v.block->capacity, 0u);
    EXPECT_EQ(list(shared), (unsigneds{0, 1, 2, 3}));
    v.push_back(5);
    EXPECT_EQ(list(v), (unsigneds{5}));

    auto part = shared.sub_vector(2, 2);
    dense1D<unsigned> writable(part);
    writable.clear_hard();
    EXPECT_EQ(writable.offset, 0u);
}

TEST(Dense1D, SettingTheSizeToZeroKeepsTheStorage)
{
    auto v = counting<double>(10);
    const auto* const data = v.data();
    v.size = 0;
    EXPECT_TRUE(v.empty());
    EXPECT_TRUE(v.resize(10, 4.0));
    EXPECT_EQ(v.data(), data);
    EXPECT_EQ(list(v), doubles(10, 4.0));
}

TEST(Dense1D, PartsSeeTheWholeAndTheWholeSeesThem)
{
    auto v = counting(5);
    auto part = v.sub_vector(1, 3);
    part[0] = 11;
    v[3] = 13;
    EXPECT_EQ(list(v), (unsigneds{0, 11, 2, 13, 4}));
    EXPECT_EQ(list(part), (unsigneds{11, 2, 13}));
    auto inner = part.sub_vector(1, 2);
    EXPECT_EQ(inner.offset, 2u);
    const auto& constant = v;
    static_assert(std::is_same_v<decltype(constant.sub_vector(0, 1)), const dense1D<unsigned>>);
    EXPECT_EQ(list(constant.sub_vector(3, 2)), (unsigneds{13, 4}));
}

TEST(Dense1D, ViewsOutliveTheViewTheyWereTakenFrom)
{
    const long alive = test::live_allocations();
    {
        dense1D<unsigned> part;
        {
            auto v = counting(5);
            part = v.sub_vector(3, 2);
        }
        EXPECT_EQ(list(part), (unsigneds{3, 4}));
        EXPECT_EQ(test::live_allocations(), alive + 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense1D, GrowsInPlaceForAllViews)
{
    auto v = counting(3);
    auto shared = v;
    v.push_back_n(9, 1000);
    EXPECT_EQ(shared.block, v.block);
    EXPECT_EQ(shared.data(), v.data());
    EXPECT_EQ(list(shared), (unsigneds{0, 1, 2}));
    v[0] = 5;
    EXPECT_EQ(shared[0], 5u);
}

TEST(Dense1D, AGrowingPartKeepsItsOwnElements)
{
    auto v = counting(6);
    auto part = v.sub_vector(2, 2);
    EXPECT_TRUE(part.resize(100, 1));
    EXPECT_EQ(part.offset, 2u);
    EXPECT_EQ(part[0], 2u);
    EXPECT_EQ(part[1], 3u);
    EXPECT_EQ(part[2], 1u);
    // What stood behind the part is the room it grew into.
    EXPECT_EQ(list(v), (unsigneds{0, 1, 2, 3, 1, 1}));
}

TEST(Dense1D, WrapsACallersArray)
{
    const long alive = test::live_allocations();
    double array[4] = {1, 2, 3, 4};
    {
        auto v = dense1D<double>::wrap(array, 4);
        EXPECT_EQ(v.block->shift, 65535u);
        EXPECT_EQ(v.data(), array);
        v[0] = 9;
        v.resize(2);
        v.push_back(7.0);
        EXPECT_EQ(v.data(), array);
        EXPECT_EQ(test::live_allocations(), alive);
    }
    // Nothing was freed.
    EXPECT_EQ(doubles(array, array + 4), (doubles{9, 2, 7, 4}));
    EXPECT_EQ(test::live_allocations(), alive);
    EXPECT_EQ(dense1D<double>::wrap(nullptr, 4).size, 0u);
}

TEST(Dense1D, AGrowingWrapMovesIntoStorageOfItsOwn)
{
    const long alive = test::live_allocations();
    double array[3] = {1, 2, 3};
    {
        auto v = dense1D<double>::wrap(array, 3);
        const auto shared = v;
        v.push_back(4.0);
        EXPECT_NE(v.data(), array);
        EXPECT_LT(v.block->shift, 8u);
        EXPECT_EQ(list(v), (doubles{1, 2, 3, 4}));
        EXPECT_EQ(shared.data(), v.data());
        v[0] = 5;
        EXPECT_EQ(array[0], 1.0);
        EXPECT_EQ(test::live_allocations(), alive + 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense1D, CountsBeyondThirtyTwoBitsAreWantOfMemory)
{
    const unsigned long before = test::allocation_count();
    double array[2] = {1, 2};
    auto v = dense1D<double>::wrap(array, 2);
    // A view near the end of the index range, by its fields alone.
    v.offset = 0xFFFFFFF0u;
    v.size = 0x0Fu;
    v.push_back(1.0); // offset + size + 1 is beyond 32 bits
    EXPECT_EQ(v.size, 0x0Fu);
    v.push_back(1.0, 2.0);
    EXPECT_EQ(v.size, 0x0Fu);
    EXPECT_FALSE(v.push_back_n(1.0, 0xFFFFFFFFu));
    EXPECT_FALSE(v.reserve(0x10u, 1));
    EXPECT_FALSE(v.resize(0xFFFFFFFFu));
    EXPECT_EQ(v.size, 0u);

    v.offset = 0;
    v.size = 2;
    EXPECT_FALSE(v.reserve(3, 0xFFFFFFFFu)); // capacity × factor is beyond 32 bits
    EXPECT_EQ(test::allocation_count(), before);
    EXPECT_EQ(v.data(), array);
}

TEST(Dense1D, KeepsNothingFromBeyondItsBlock)
{
    double array[2] = {1, 2};
    auto v = dense1D<double>::wrap(array, 2);
    v.size = 1000; // no such elements
    EXPECT_TRUE(v.resize(1001));
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], 0.0);
}

TEST(Dense1D, AMovedFromViewIsEmptyAndUsable)
{
    const auto moved_from = [] {
        auto v = counting(4).sub_vector(1, 2);
        const dense1D<unsigned> taker(std::move(v));
        EXPECT_EQ(list(taker), (unsigneds{1, 2}));
        return v;
    };
    auto v = moved_from();
    EXPECT_EQ(v.size, 0u);
    EXPECT_EQ(v.offset, 0u);
    EXPECT_EQ(v.data(), nullptr);
    EXPECT_TRUE(v == dense1D<unsigned>());
    EXPECT_EQ((v = 7), 7u);
    v.push_back(1);
    EXPECT_EQ(list(v), (unsigneds{1}));

    v = moved_from();
    v.push_back(1, 2);
    EXPECT_EQ(list(v), (unsigneds{1, 2}));
    v = moved_from();
    EXPECT_TRUE(v.resize(2, 5));
    EXPECT_EQ(list(v), (unsigneds{5, 5}));
    v = moved_from();
    EXPECT_TRUE(v.push_back_n(6, 2));
    EXPECT_EQ(list(v), (unsigneds{6, 6}));
    v = moved_from();
    EXPECT_TRUE(v.reserve(3, 1));
    EXPECT_TRUE(v.copy(moved_from()));
    EXPECT_EQ(v.sub_vector(0, 0).size, 0u);
    v.clear_hard();
    EXPECT_TRUE(v.block);
}

TEST(Dense1D, AssignmentByMoveDropsTheOldStorage)
{
    const long alive = test::live_allocations();
    auto v = counting(4);
    auto w = counting(2);
    v = std::move(w);
    EXPECT_EQ(list(v), (unsigneds{0, 1}));
    EXPECT_EQ(test::live_allocations(), alive + 1);
    auto& itself = v;
    v = std::move(itself);
    EXPECT_EQ(list(v), (unsigneds{0, 1}));
}

TEST(Dense1D, AlignsElementsWhateverTheAllocatorGives)
{
    const long alive = test::live_allocations();
    for (unsigned bytes = 1; bytes < 16; ++bytes)
    {
        const test::misaligned_allocation misaligned(bytes);
        dense1D<double> v(10, 1.0);
        dense1D<char> text(10, 'x');
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(v.data()) % 8, 0u);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(text.data()) % 8, 0u);
        EXPECT_EQ(v.block->shift, (8 - bytes % 8) % 8);
        EXPECT_EQ(v.block->capacity, 10u);
        EXPECT_EQ(text.block->capacity, 17u - text.block->shift);
        for (unsigned k = 0; k < 100; ++k) v.push_back(k);
        EXPECT_EQ(v[9], 1.0);
        EXPECT_EQ(v[109], 99.0);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense1D, HoldsMatricesAndDestroysThem)
{
    const long alive = test::live_allocations();
    {
        dense1D<dense2D<unsigned>> matrices;
        dense2D<unsigned> m(2, 2, 3);
        for (unsigned k = 0; k < 9; ++k) matrices.push_back(m);
        // Growing copies the elements, and copies share storage.
        EXPECT_EQ(m.block->references(), 10u);
        matrices[8](1, 1) = 7;
        EXPECT_EQ(matrices[0](1, 1), 7u);
        const auto shared = matrices;
        matrices.clear_hard();
        EXPECT_EQ(m.block->references(), 10u);
        // The elements that were not set are matrices, too.
        dense1D<dense2D<unsigned>> fresh(3);
        EXPECT_TRUE(fresh[2].block);
        EXPECT_TRUE(fresh[2].resize(1, 1, 4));
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense1D, HoldsPairs)
{
    using pair = std::pair<unsigned, unsigned>;
    dense1D<pair> pairs;
    for (unsigned k = 0; k < 5; ++k) pairs.push_back(pair{k, k + 1});
    EXPECT_EQ(pairs[4], (pair{4, 5}));
    EXPECT_TRUE(pairs.resize(10));
    EXPECT_EQ(pairs[0], (pair{0, 1}));
}

TEST(Dense1D, SurvivesFailureOfAnyAllocation)
{
    const long alive = test::live_allocations();
    bool complete = false;
    for (unsigned n = 1; !complete; ++n)
    {
        const failing_allocation failing(n);
        dense1D<unsigned> v;
        dense1D<unsigned> w;
        for (unsigned k = 0; k < 20; ++k) v.push_back(k, k);
        const bool copied = w.copy(v);
        const bool resized = w.resize(100, 3);
        const bool appended = v.push_back_n(1, 50);
        complete = !failing.has_failed();
        EXPECT_EQ(complete, copied && resized && appended && v.size == 90 && w.size == 100) << n;
        EXPECT_LE(v.size, v.block->capacity);
        EXPECT_LE(w.size, w.block->capacity);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}

TEST(Dense1D, CountsNoElementBeyondThirtyTwoBits)
{
    // The slack of the alignment would hold a few more. The pages are never touched.
    dense1D<char> v;
    if (!v.reserve(0xFFFFFFFFu, 1)) GTEST_SKIP() << "no address space for 4 GB";
    EXPECT_EQ(v.block->capacity, 0xFFFFFFFFu);
    EXPECT_TRUE(v.resize(0xFFFFFFFFu));
    v.push_back('x');
    EXPECT_EQ(v.size, 0xFFFFFFFFu);
}

} // namespace
