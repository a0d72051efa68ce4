#include <atomic>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/numcore/numcore.h>

namespace
{

using namespace tq4;

class counted : public numcore::ref_counted
{
public:
    explicit counted(std::atomic<int>& alive) : alive_(alive) { ++alive_; }
    ~counted() override { --alive_; }

private:
    std::atomic<int>& alive_;
};

static_assert(std::has_virtual_destructor_v<numcore::ref_counted>);
static_assert(!std::is_copy_constructible_v<numcore::ref_counted>);
static_assert(sizeof(Ptr<counted>) == sizeof(void*));

TEST(RefCounted, StartsWithoutHolders)
{
    std::atomic<int> alive{0};
    auto* const object = new counted(alive);
    EXPECT_EQ(object->references(), 0u);
    const Ptr<counted> holder(object);
    EXPECT_EQ(object->references(), 1u);
    EXPECT_EQ(alive, 1);
}

TEST(Ptr, DeletesTheObjectWithItsLastHolder)
{
    std::atomic<int> alive{0};
    {
        const Ptr<counted> first(new counted(alive));
        {
            const Ptr<counted> second(first);
            EXPECT_EQ(first->references(), 2u);
            EXPECT_EQ(second, first);
        }
        EXPECT_EQ(first->references(), 1u);
        EXPECT_EQ(alive, 1);
    }
    EXPECT_EQ(alive, 0);
}

TEST(Ptr, MayBeNull)
{
    Ptr<counted> empty;
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty.get(), nullptr);
    const Ptr<counted> copy(empty);
    EXPECT_FALSE(copy);
    empty = nullptr;
    EXPECT_EQ(empty, copy);
}

TEST(Ptr, AssignmentTakesTheNewReferenceAndDropsTheOldOne)
{
    std::atomic<int> alive{0};
    Ptr<counted> holder(new counted(alive));
    auto* const other = new counted(alive);
    Ptr<counted>& answer = (holder = other);
    EXPECT_EQ(&answer, &holder);
    EXPECT_EQ(holder.get(), other);
    EXPECT_EQ(alive, 1);

    holder = other; // what it holds already
    EXPECT_EQ(other->references(), 1u);
    EXPECT_EQ(alive, 1);

    const Ptr<counted>& itself = holder;
    holder = itself;
    EXPECT_EQ(other->references(), 1u);

    holder = static_cast<counted*>(nullptr);
    EXPECT_EQ(alive, 0);
}

TEST(Ptr, MovesWithoutCounting)
{
    std::atomic<int> alive{0};
    Ptr<counted> first(new counted(alive));
    Ptr<counted> second(std::move(first));
    EXPECT_FALSE(first); // NOLINT(bugprone-use-after-move): an empty pointer is what a move leaves
    EXPECT_EQ(second->references(), 1u);
    first = std::move(second);
    EXPECT_EQ(first->references(), 1u);
    Ptr<counted>& itself = first;
    first = std::move(itself);
    EXPECT_EQ(first->references(), 1u);
    EXPECT_EQ(alive, 1);
}

TEST(Ptr, CountsHoldersOfSeveralThreads)
{
    std::atomic<int> alive{0};
    for (int round = 0; round < 200; ++round)
    {
        Ptr<counted> holder(new counted(alive));
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([mine = holder]() mutable {
                for (int k = 0; k < 50; ++k) const Ptr<counted> passing(mine);
                mine = nullptr;
            });
        holder = nullptr; // the last holder is any of the threads
        for (auto& thread : threads) thread.join();
        ASSERT_EQ(alive, 0);
    }
}

TEST(Views, OfOneBlockMayBeDestroyedByTwoThreads)
{
    for (int round = 0; round < 200; ++round)
    {
        dense1D<unsigned> list(1000, 7);
        dense2D<double> matrix(3, 100, 1.0);
        std::thread other([list, part = matrix.sub_matrix(1, 10, 2, 20)]() mutable {
            EXPECT_EQ(list[999], 7u);
            EXPECT_EQ(part(1, 19), 1.0);
            list = dense1D<unsigned>();
            part = dense2D<double>();
        });
        list = dense1D<unsigned>();
        matrix = dense2D<double>();
        other.join();
    }
}

} // namespace
