// What several threads may do at once: query one detector, call any function on views that share blocks for reading, copy and drop such
// views. The preset `tsan` tells what these tests cannot see.

#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "memory/every_call.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::arguments;

constexpr unsigned thread_count = 4;

/// Runs `job(thread)` in all threads.
template <class Job>
void run_in_threads(Job&& job)
{
    std::vector<std::thread> threads;
    for (unsigned thread = 0; thread < thread_count; ++thread) threads.emplace_back([&job, thread] { job(thread); });
    for (auto& thread : threads) thread.join();
}

/// How many of the queries of a detector have the expected answers.
unsigned count_answers(const node_detector& detector, const dense2D<double>& pos, const std::vector<unsigned>& others,
                       const std::vector<unsigned>& in_box)
{
    unsigned right = 0;
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const vector_fixed<double, 3> p{pos(0, node), pos(1, node), pos.rows == 3 ? pos(2, node) : 0.0};
        right += detector.find_closest(node) == others[node];
        right += detector.find_closest(p) == node;
    }
    dense1D<unsigned> found;
    detector.find_in_box({0.2, 0.2, 0.2}, {0.7, 0.8, 0.9}, found);
    right += test::list(found) == in_box;
    return right;
}

TEST(Threads, QueryOneDetector)
{
    for (const unsigned rows : {2u, 3u})
    {
        const auto pos = test::random_points(rows, 2000, rows);
        const node_detector detector(pos);
        std::vector<unsigned> others(pos.cols);
        for (unsigned node = 0; node < pos.cols; ++node) others[node] = detector.find_closest(node);
        dense1D<unsigned> found;
        detector.find_in_box({0.2, 0.2, 0.2}, {0.7, 0.8, 0.9}, found);
        ASSERT_FALSE(found.empty());
        const auto in_box = test::list(found);

        std::vector<unsigned> right(thread_count, 0);
        run_in_threads([&](unsigned thread) { right[thread] = count_answers(detector, pos, others, in_box); });
        EXPECT_EQ(right, std::vector<unsigned>(thread_count, 2 * pos.cols + 1));
    }
}

TEST(Threads, CopyAndDropDetectors)
{
    const auto pos = test::random_points(3, 500, 1);
    const node_detector detector(pos);
    std::vector<unsigned> nodes(thread_count, 0);
    run_in_threads([&](unsigned thread) {
        node_detector assigned;
        for (unsigned round = 0; round < 20; ++round)
        {
            const node_detector copied(detector);
            assigned = copied;
            nodes[thread] += assigned.size();
        }
    });
    EXPECT_EQ(nodes, std::vector<unsigned>(thread_count, 20 * 500));
}

TEST(Threads, CopyAndDropViewsOfOneBlock)
{
    auto matrix = std::make_unique<dense2D<unsigned>>(3, 100, 7u);
    auto list = std::make_unique<dense1D<double>>(100, 0.5);
    // One of the threads drops the last view, whichever it is.
    std::vector<dense2D<unsigned>> matrices(thread_count, *matrix);
    std::vector<dense1D<double>> lists(thread_count, *list);
    matrix.reset();
    list.reset();
    std::vector<double> sums(thread_count, 0);
    run_in_threads([&](unsigned thread) {
        for (unsigned round = 0; round < 1000; ++round)
        {
            const auto part = matrices[thread].sub_matrix(0, round % 100, 3, 1);
            const auto all = part;
            const auto values = lists[thread].sub_vector(round % 100, 1);
            sums[thread] += all(2, 0) + values[0];
        }
        matrices[thread] = dense2D<unsigned>();
        lists[thread].clear_hard();
    });
    EXPECT_EQ(sums, std::vector<double>(thread_count, 7500.0));
}

/// A call with what it gives.
struct expected_call
{
    const test::exported_call* call;
    arguments success;
    int result;
};

/// Makes the calls on storage that is shared where a call only reads. The result is the number of calls with another outcome.
unsigned make_calls(const std::vector<expected_call>& calls, const arguments& base)
{
    unsigned wrong = 0;
    for (const auto& [call, success, result] : calls)
    {
        arguments mine = call->is_in_place ? duplicate_of(base) : shared_with(base, success);
        mine.file = std::make_shared<test::temporary_file>();
        wrong += call->make(mine) != result || !are_same(mine, success);
    }
    return wrong;
}

TEST(Threads, CallEveryFunctionOnSharedStorage)
{
    const auto families = test::every_call();
    for (const auto& mesh : {test::grid_of_triangles(2, 3), test::grid_of_quadrangles(2), test::mixed_solid(2)})
    {
        const arguments base = test::arguments_for(mesh);
        for (const auto& family : families)
        {
            std::vector<expected_call> calls;
            for (const auto& call : family.calls)
            {
                if (call.suits && !call.suits(base)) continue;
                arguments success = duplicate_of(base);
                const int result = call.make(success);
                calls.push_back({&call, success, result});
            }
            std::vector<unsigned> wrong(thread_count, 0);
            run_in_threads([&](unsigned thread) { wrong[thread] = make_calls(calls, base); });
            EXPECT_EQ(wrong, std::vector<unsigned>(thread_count, 0)) << family.name;
        }
    }
}

} // namespace
