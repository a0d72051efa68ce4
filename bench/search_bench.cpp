// The search tree and node merging on a million nodes.

#include <cmath>

#include <benchmark/benchmark.h>

#include <tq4/gridweave/edit.h>
#include <tq4/gridweave/search.h>

#include "points.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using namespace bench;

using point = vector_fixed<double, 3>;

dense2D<double> make(int surface, unsigned count, unsigned seed)
{
    return surface ? points_on_surface(count, seed) : points_in_cube(count, seed);
}

void tree_build(benchmark::State& state)
{
    const auto pos = make(static_cast<int>(state.range(1)), static_cast<unsigned>(state.range(0)), 1);
    for (auto _ : state)
    {
        node_detector detector(pos);
        benchmark::DoNotOptimize(detector.size());
    }
}

void closest_point(benchmark::State& state)
{
    const auto pos = make(static_cast<int>(state.range(1)), static_cast<unsigned>(state.range(0)), 1);
    const auto queries = make(static_cast<int>(state.range(1)), static_cast<unsigned>(state.range(0)), 2);
    const node_detector detector(pos);
    for (auto _ : state)
    {
        unsigned sum = 0;
        for (unsigned c = 0; c < queries.cols; ++c)
        {
            const double* x = queries.column(c);
            sum += detector.find_closest(point{x[0], x[1], x[2]});
        }
        benchmark::DoNotOptimize(sum);
    }
}

void closest_other_node(benchmark::State& state)
{
    const auto pos = make(static_cast<int>(state.range(1)), static_cast<unsigned>(state.range(0)), 1);
    const node_detector detector(pos);
    for (auto _ : state)
    {
        unsigned sum = 0;
        for (unsigned c = 0; c < pos.cols; ++c) sum += detector.find_closest(c);
        benchmark::DoNotOptimize(sum);
    }
}

/// One query per ten nodes, each box with about 30 of them.
void boxes(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    const auto pos = points_in_cube(count, 1);
    const auto queries = points_in_cube(count / 10, 2);
    const double half = 0.5 * std::cbrt(30.0 / count);
    const node_detector detector(pos);
    dense1D<unsigned> found;
    for (auto _ : state)
    {
        std::size_t sum = 0;
        for (unsigned c = 0; c < queries.cols; ++c)
        {
            const double* x = queries.column(c);
            found.size = 0;
            detector.find_in_box(point{x[0] - half, x[1] - half, x[2] - half}, point{x[0] + half, x[1] + half, x[2] + half}, found);
            sum += found.size;
        }
        benchmark::DoNotOptimize(sum);
        state.counters["results"] = static_cast<double>(sum) / queries.cols;
    }
}

void merge_pairs(benchmark::State& state)
{
    const auto count = static_cast<unsigned>(state.range(0));
    const double tol = state.range(1) ? 1e-6 : 0.0;
    const auto pos = points_in_pairs(count, tol);
    dense1D<unsigned> all(count);
    for (unsigned c = 0; c < count; ++c) all[c] = c;
    dense1D<unsigned> new_ids;
    int merged = 0;
    for (auto _ : state) merged = merge(pos, all, new_ids, tol);
    state.counters["merged"] = merged;
}

constexpr int million = 1000000;

BENCHMARK(tree_build)->ArgNames({"points", "surface"})->ArgsProduct({{million}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(closest_point)->ArgNames({"points", "surface"})->ArgsProduct({{million}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(closest_other_node)->ArgNames({"points", "surface"})->ArgsProduct({{million}, {0, 1}})->Unit(benchmark::kMillisecond);
BENCHMARK(boxes)->ArgName("points")->Arg(million)->Unit(benchmark::kMillisecond);
BENCHMARK(merge_pairs)->ArgNames({"points", "tolerance"})->ArgsProduct({{million}, {0, 1}})->Unit(benchmark::kMillisecond);

} // namespace
