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

/// The tickets in the order in which they come out with these keys; k is the k-th one pushed.
std::vector<unsigned> order_of(const std::vector<float>& keys)
{
    gradation_heap heap;
    for (unsigned k = 0; k < keys.size(); ++k) EXPECT_TRUE(heap.push(keys[k], k));
    std::vector<unsigned> order;
    while (!heap.empty())
    {
        order.push_back(heap.top());
        EXPECT_EQ(heap.top_key(), keys[heap.top()]);
        heap.pop();
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
            ASSERT_TRUE(heap.push(key, k));
            plain.push({key, 0, k, 0});
        };
        const auto pop = [&] {
            const test::literal::record expected = plain.pop();
            ASSERT_EQ(heap.top_key(), expected.key);
            ASSERT_EQ(heap.top(), expected.node);
            heap.pop();
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

// A heap deep enough for holes to wait, in the way of the relaxations: what has just been inserted is taken out soon, and ties abound.
TEST(GradationHeap, GoesThePlainWayWhileHolesWait)
{
    for (const unsigned distinct : {1u, 3u, 1000u, 1000000u})
    {
        test::random_source random(distinct + 50);
        gradation_heap heap;
        test::literal::queue plain;
        unsigned pushed = 0;
        const auto push = [&](float key) {
            ASSERT_TRUE(heap.push(key, pushed));
            plain.push({key, 0, pushed++, 0});
        };
        const auto pop = [&] {
            const test::literal::record expected = plain.pop();
            ASSERT_EQ(heap.top_key(), expected.key);
            ASSERT_EQ(heap.top(), expected.node);
            heap.pop();
        };
        const auto key = [&] { return static_cast<float>(random.below(distinct)) / 3.0f; };
        for (unsigned k = 0; k < 70000; ++k) push(key());
        for (unsigned round = 0; round < 30000; ++round)
        {
            const float high = static_cast<float>(distinct);
            for (unsigned k = random.below(7); k > 0; --k) push(random.below(3) == 0 ? high : key());
            // Around the sizes at which levels begin, too.
            for (unsigned k = random.below(round % 2000 < 1000 ? 9 : 5); k > 0 && !plain.empty(); --k) pop();
            ASSERT_EQ(heap.size(), plain.size());
        }
        while (!plain.empty()) pop();
        EXPECT_TRUE(heap.empty());
    }
}

TEST(GradationHeap, TellsOfTicketsInUseThatRise)
{
    test::random_source random(5);
    gradation_heap heap;
    EXPECT_TRUE(heap.push(1, 1));
    for (unsigned level = 1; level <= gradation_heap::levels_of_risen; ++level) EXPECT_EQ(heap.risen(level), level % 2 == 0 ? 1u : 0u);
    for (unsigned k = 2; k <= 40000; ++k) EXPECT_TRUE(heap.push(static_cast<float>(random.below(1000000)), k));
    std::vector<bool> out(40001);
    unsigned soon = 0;
    unsigned risen_before = 0;
    while (heap.size() > 10000)
    {
        const unsigned top = heap.top();
        ASSERT_FALSE(out[top]);
        out[top] = true;
        heap.pop();
        if (heap.top() == risen_before) ++soon;
        for (unsigned level = 1; level <= gradation_heap::levels_of_risen; ++level) ASSERT_FALSE(out[heap.risen(level)]);
        risen_before = heap.risen(1);
    }
    EXPECT_GT(soon, 10000u); // of 30000 that came out: one of two below the top is the next
}

TEST(GradationHeap, TellsWhenMemoryRunsOutAndKeepsWhatItHolds)
{
    for (unsigned n = 1; n < 6; ++n)
    {
        gradation_heap heap;
        unsigned held = 0;
        {
            test::failing_allocation failing(n);
            while (held < 100000 && heap.push(static_cast<float>(held % 10), held)) ++held;
            EXPECT_TRUE(failing.has_failed());
        }
        EXPECT_EQ(heap.size(), held);
        EXPECT_TRUE(heap.push(100, 0)); // with memory back it goes on
        float before = FLT_MAX;
        for (unsigned k = 0; k <= held; ++k)
        {
            const float key = heap.top_key();
            heap.pop();
            EXPECT_LE(key, before);
            before = key;
        }
        EXPECT_TRUE(heap.empty());
    }
}

const gradation_record idle{0, 77, 78, 79};

void expect_record(const gradation_record& found, const gradation_record& expected)
{
    EXPECT_EQ(found.stamp, expected.stamp);
    EXPECT_EQ(found.node, expected.node);
    EXPECT_EQ(found.neighbour, expected.neighbour);
    EXPECT_EQ(found.position, expected.position);
}

TEST(GradationQueue, GivesTheRecordsBackByTheirKeys)
{
    gradation_queue queue(idle);
    EXPECT_TRUE(queue.empty());
    EXPECT_TRUE(queue.push(2, {1, 2, 3, 4}));
    EXPECT_TRUE(queue.push_idle(3));
    EXPECT_TRUE(queue.push(1, {5, 6, 7, 8}));
    EXPECT_TRUE(queue.push_idle(1.5f));
    EXPECT_EQ(queue.size(), 4u);

    EXPECT_EQ(queue.top_key(), 3);
    expect_record(queue.top(), idle);
    queue.pop();
    EXPECT_EQ(queue.top_key(), 2);
    expect_record(queue.top(), {1, 2, 3, 4});
    queue.pop();
    EXPECT_TRUE(queue.push(0.5f, {9, 10, 11, 12})); // in the room of the one before
    expect_record(queue.top(), idle);
    queue.pop();
    expect_record(queue.top(), {5, 6, 7, 8});
    queue.pop();
    expect_record(queue.top(), {9, 10, 11, 12});
    queue.pop();
    EXPECT_TRUE(queue.empty());
}

// Idle records take their places among the others: the order of equal keys is that of the plain form.
TEST(GradationQueue, GoesThePlainWayThroughRandomHistories)
{
    test::random_source random(8);
    gradation_queue queue(idle);
    test::literal::queue plain;
    unsigned pushed = 0;
    for (unsigned round = 0; round < 60; ++round)
    {
        for (unsigned k = random.below(round < 30 ? 2000 : 200); k > 0; --k)
        {
            const auto key = static_cast<float>(random.below(20));
            const bool known_idle = random.below(2) == 0;
            const unsigned n = ++pushed;
            ASSERT_TRUE(known_idle ? queue.push_idle(key) : queue.push(key, {n, n + 1, n + 2, n + 3}));
            plain.push({key, known_idle ? idle.stamp : n, known_idle ? idle.node : n + 1, known_idle ? idle.neighbour : n + 2});
        }
        for (unsigned k = random.below(round < 30 ? 400 : 4000); k > 0 && !plain.empty(); --k)
        {
            const test::literal::record expected = plain.pop();
            ASSERT_EQ(queue.top_key(), expected.key);
            ASSERT_EQ(queue.top().stamp, expected.stamp);
            ASSERT_EQ(queue.top().node, expected.node);
            ASSERT_EQ(queue.top().neighbour, expected.neighbour);
            queue.pop();
        }
        ASSERT_EQ(queue.size(), plain.size());
    }
}

TEST(GradationQueue, TellsWhenMemoryRunsOutAndKeepsWhatItHolds)
{
    for (const bool only_idle : {false, true})
        for (unsigned n = 1; n < 9; ++n)
        {
            gradation_queue queue(idle);
            const auto push = [&](unsigned k) { return only_idle ? queue.push_idle(1) : queue.push(1, {0, k, k, k}); };
            unsigned held = 0;
            {
                test::failing_allocation failing(n);
                while (held < 200000 && push(held)) ++held;
                EXPECT_TRUE(failing.has_failed());
            }
            EXPECT_EQ(queue.size(), held);
            EXPECT_TRUE(push(held)); // with memory back it goes on
            std::vector<bool> out(held + 1);
            for (unsigned k = 0; k <= held; ++k)
            {
                ASSERT_FALSE(queue.empty());
                const unsigned node = queue.top().node;
                ASSERT_TRUE(only_idle ? node == idle.node : node <= held && !out[node]);
                if (!only_idle) out[node] = true;
                queue.pop();
            }
            EXPECT_TRUE(queue.empty());
        }
}

} // namespace
