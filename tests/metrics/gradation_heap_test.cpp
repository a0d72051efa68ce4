#include "gridweave/metrics/gradation_heap.h"

#include <cfloat>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include "support/failing_allocator.h"
#include "support/literal_relaxation.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

TEST(GradationKey, IsTheMeasureInSinglePrecisionUpToTheLargestFloat)
{
    EXPECT_EQ(gradation_key(0.5), 0.5f);
    EXPECT_EQ(gradation_key(1.0 / 3), static_cast<float>(1.0 / 3));
    EXPECT_EQ(gradation_key(3.4028234663852886e38), FLT_MAX);
    EXPECT_EQ(gradation_key(1e39), FLT_MAX);
    EXPECT_EQ(gradation_key(DBL_MAX), FLT_MAX);
    EXPECT_EQ(gradation_key(std::numeric_limits<double>::infinity()), FLT_MAX);
    EXPECT_EQ(gradation_key(1e-60), 0.0f);
}

/// The nodes in the order in which records of these keys come out; node k is the k-th one pushed.
std::vector<unsigned> order_of(const std::vector<float>& keys)
{
    gradation_heap heap;
    for (unsigned k = 0; k < keys.size(); ++k) EXPECT_TRUE(heap.push({keys[k], k + 7, k, k + 100}));
    std::vector<unsigned> order;
    while (!heap.empty())
    {
        const gradation_record top = heap.top();
        heap.pop();
        EXPECT_EQ(top.key, keys[top.node]);
        EXPECT_EQ(top.stamp, top.node + 7);
        EXPECT_EQ(top.neighbour, top.node + 100);
        order.push_back(top.node);
    }
    return order;
}

TEST(GradationHeap, GivesTheLargestKeyFirst)
{
    EXPECT_EQ(order_of({3, 1, 4, 1.5, 9, 2.5, 6}), (std::vector<unsigned>{4, 6, 2, 0, 5, 3, 1}));
    EXPECT_EQ(order_of({}), (std::vector<unsigned>{}));
    EXPECT_EQ(order_of({7}), (std::vector<unsigned>{0}));
}

// By hand: the hole goes right among equals, and the last record never rises past an equal key.
TEST(GradationHeap, TellsEqualKeysApartByItsWayAlone)
{
    EXPECT_EQ(order_of({5, 5}), (std::vector<unsigned>{0, 1}));
    EXPECT_EQ(order_of({5, 5, 5}), (std::vector<unsigned>{0, 1, 2}));
    EXPECT_EQ(order_of({5, 5, 5, 5}), (std::vector<unsigned>{0, 2, 1, 3}));
    EXPECT_EQ(order_of({5, 5, 5, 5, 5}), (std::vector<unsigned>{0, 2, 4, 1, 3}));
}

// Long random histories of few distinct keys, growing through many sizes and shrinking again.
TEST(GradationHeap, GoesThePlainWayThroughRandomHistories)
{
    for (const unsigned distinct : {1u, 2u, 7u, 1000u, 1000000u})
    {
        test::random_source random(distinct);
        gradation_heap heap;
        test::literal::queue plain;
        unsigned pushed = 0;
        const auto push = [&] {
            const float key = random.below(4) == 0 ? FLT_MAX : static_cast<float>(random.below(distinct)) / 7.0f;
            const unsigned k = pushed++;
            ASSERT_TRUE(heap.push({key, k, k ^ 1u, ~k}));
            plain.push({key, k, k ^ 1u, ~k});
        };
        const auto pop = [&] {
            const gradation_record mine = heap.top();
            heap.pop();
            const test::literal::record expected = plain.pop();
            ASSERT_EQ(mine.key, expected.key);
            ASSERT_EQ(mine.stamp, expected.stamp);
            ASSERT_EQ(mine.node, expected.node);
            ASSERT_EQ(mine.neighbour, expected.neighbour);
        };
        for (unsigned round = 0; round < 40; ++round)
        {
            for (unsigned k = random.below(round < 20 ? 4000 : 500); k > 0; --k) push();
            for (unsigned k = random.below(round < 20 ? 500 : 4000); k > 0 && !plain.empty(); --k) pop();
            ASSERT_EQ(heap.size(), plain.size());
        }
        while (!plain.empty()) pop();
        EXPECT_TRUE(heap.empty());
    }
}

TEST(GradationHeap, TellsWhenMemoryRunsOutAndKeepsWhatItHolds)
{
    for (unsigned n = 1; n < 6; ++n)
    {
        gradation_heap heap;
        unsigned held = 0;
        {
            test::failing_allocation failing(n);
            while (held < 100000 && heap.push({static_cast<float>(held % 10), 0, held, 0})) ++held;
            EXPECT_TRUE(failing.has_failed());
        }
        EXPECT_EQ(heap.size(), held);
        EXPECT_TRUE(heap.push({100, 0, 0, 0})); // with memory back it goes on
        float before = FLT_MAX;
        for (unsigned k = 0; k <= held; ++k)
        {
            const float key = heap.top().key;
            heap.pop();
            EXPECT_LE(key, before);
            before = key;
        }
        EXPECT_TRUE(heap.empty());
    }
}

} // namespace
