// Mesh editing on 1 million nodes. The transforms report the bytes of coordinates they read and write per second; "memory" is the plainest
// pass over the same matrix, one addition per number, which no transform can beat.

#include <benchmark/benchmark.h>

#include <tq4/gridweave/edit.h>

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

constexpr unsigned nodes = 1000000;

dense2D<double> million_nodes(unsigned rows)
{
    dense2D<double> pos(rows, nodes);
    for (unsigned c = 0; c < nodes; ++c)
        for (unsigned r = 0; r < rows; ++r) pos(r, c) = 1e-6 * static_cast<double>((c * 7919ull + r * 104729ull) % nodes);
    return pos;
}

/// A strip of triangles that uses every node.
dense2D<unsigned> strip()
{
    dense2D<unsigned> connectivity(3, nodes - 2);
    for (unsigned c = 0; c < connectivity.cols; ++c)
        for (unsigned r = 0; r < 3; ++r) connectivity(r, c) = c + r;
    return connectivity;
}

dense1D<unsigned> all_ids()
{
    dense1D<unsigned> ids(nodes);
    for (unsigned k = 0; k < nodes; ++k) ids[k] = k;
    return ids;
}

/// Times `call(pos)`; the coordinates are read and, with `passes` 2, written back.
template <class Call>
void time_on(benchmark::State& state, unsigned rows, unsigned passes, const Call& call)
{
    auto pos = million_nodes(rows);
    for (auto _ : state)
    {
        benchmark::DoNotOptimize(call(pos));
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * passes * rows * nodes * 8);
}

void memory(benchmark::State& state)
{
    time_on(state, static_cast<unsigned>(state.range(0)), 2, [](dense2D<double>& pos) {
        double* const x = pos.data();
        const std::size_t count = std::size_t{pos.rows} * pos.cols;
        for (std::size_t k = 0; k < count; ++k) x[k] += 1e-9;
        return 0;
    });
}

void translate_all(benchmark::State& state)
{
    if (state.range(0) == 2)
        time_on(state, 2, 2, [](dense2D<double>& pos) { return translate(pos, vector_fixed<double, 2>{1e-9, -1e-9}); });
    else
        time_on(state, 3, 2, [](dense2D<double>& pos) { return translate(pos, vector_fixed<double, 3>{1e-9, -1e-9, 1e-9}); });
}

void rotate_all(benchmark::State& state)
{
    const vector_fixed<double, 3> centre{0.5, 0.5, 0.5};
    if (state.range(0) == 2)
        time_on(state, 2, 2, [](dense2D<double>& pos) { return rotate(pos, vector_fixed<double, 2>{0.5, 0.5}, 0.1); });
    else
        time_on(state, 3, 2, [&](dense2D<double>& pos) { return rotate(pos, centre, vector_fixed<double, 3>{0.1, -0.2, 0.3}); });
}

void zoom_all(benchmark::State& state)
{
    const double factor = 1 + 1e-9;
    if (state.range(0) == 2)
        time_on(state, 2, 2, [&](dense2D<double>& pos) { return zoom(pos, vector_fixed<double, 2>{0.5, 0.5}, factor); });
    else
        time_on(state, 3, 2, [&](dense2D<double>& pos) { return zoom(pos, vector_fixed<double, 3>{0.5, 0.5, 0.5}, factor); });
}

void box_all(benchmark::State& state)
{
    vector_fixed<double, 2> low{1e9, 1e9}, high{-1e9, -1e9};
    vector_fixed<double, 3> min{1e9, 1e9, 1e9}, max{-1e9, -1e9, -1e9};
    if (state.range(0) == 2)
        time_on(state, 2, 1, [&](dense2D<double>& pos) { return inc_bounding_box(pos, low, high); });
    else
        time_on(state, 3, 1, [&](dense2D<double>& pos) { return inc_bounding_box(pos, min, max); });
}

void rotate_listed(benchmark::State& state)
{
    const auto ids = all_ids();
    const vector_fixed<double, 3> centre{0.5, 0.5, 0.5}, rotation{0.1, -0.2, 0.3};
    time_on(state, 3, 2, [&](dense2D<double>& pos) { return rotate(pos, centre, rotation, ids); });
}

void rotate_used(benchmark::State& state)
{
    const auto connectivity = strip();
    const vector_fixed<double, 3> centre{0.5, 0.5, 0.5}, rotation{0.1, -0.2, 0.3};
    time_on(state, 3, 2, [&](dense2D<double>& pos) { return rotate(pos, centre, rotation, connectivity); });
}

/// `range(0)` copies of 1 million nodes and triangles in all.
void copy_in_pattern(benchmark::State& state)
{
    const auto copies = static_cast<unsigned>(state.range(0));
    const unsigned part = nodes / copies;
    const auto connectivity = strip().sub_matrix(0, 0, 3, part - 2);
    const auto source = million_nodes(3).sub_matrix(0, 0, 3, part);
    const vector_fixed<double, 3> shift{1, 0, 0}, centre{0, 0, 0}, rotation{0, 0, 0.1};
    for (auto _ : state)
    {
        dense2D<double> pos;
        dense2D<unsigned> all_copies;
        pos.copy(source);
        benchmark::DoNotOptimize(copy_mesh(pos, all_copies, shift, centre, rotation, copies, connectivity));
    }
    state.counters["nodes"] = part * copies;
}

void clip_half(benchmark::State& state)
{
    const auto pos = million_nodes(3);
    const auto connectivity = strip();
    for (auto _ : state)
    {
        dense2D<unsigned> kept;
        benchmark::DoNotOptimize(clip(pos, connectivity, vector_fixed<double, 3>{0.5, 0.5, 0.5}, vector_fixed<double, 3>{1, 0.1, 0}, kept));
    }
    state.counters["elements"] = connectivity.cols;
}

BENCHMARK(memory)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(translate_all)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(rotate_all)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(zoom_all)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(box_all)->Arg(2)->Arg(3)->Unit(benchmark::kMillisecond);
BENCHMARK(rotate_listed)->Unit(benchmark::kMillisecond);
BENCHMARK(rotate_used)->Unit(benchmark::kMillisecond);
BENCHMARK(copy_in_pattern)->Arg(1)->Arg(100)->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(clip_half)->Unit(benchmark::kMillisecond);

} // namespace
