// Shape quality, Jacobians and edge lengths of about a million elements, every shape; nodes are moved off the grid so that no face is
// plane.

#include <benchmark/benchmark.h>

#include <string>

#include <tq4/gridweave/connectivity.h>
#include <tq4/gridweave/quality.h>

#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// Moves every node by up to a fifth of a cell.
test::mesh roughened(test::mesh m, double cell)
{
    test::random_source random(1);
    for (unsigned c = 0; c < m.pos.cols; ++c)
        for (unsigned r = 0; r < m.pos.rows; ++r) m.pos(r, c) += cell * random.between(-0.2, 0.2);
    return m;
}

const test::mesh& mesh_of(int choice)
{
    static const test::mesh meshes[]{
        roughened(test::grid_of_triangles(707, 3), 1.0 / 707),   // 1.0 million
        roughened(test::grid_of_triangles(707, 2), 1.0 / 707),   // 1.0 million
        roughened(test::grid_of_quadrangles(707, 3), 1.0 / 707), // 0.5 million
        roughened(test::grid_of_tetrahedra(55), 1.0 / 55),       // 1.0 million
        roughened(test::grid_of_hexahedra(67), 1.0 / 67),        // 0.3 million
        roughened(test::grid_of_wedges(54), 1.0 / 54),           // 0.3 million
        roughened(test::grid_of_pyramids(37), 1.0 / 37),         // 0.3 million
        test::grid_of_hexahedra(67),                             // plane faces
        roughened(test::mixed_solid(44), 1.0 / 44),              // 0.3 million
    };
    return meshes[choice];
}

const char* const names[]{"triangles", "triangles_2d", "quadrangles", "tetrahedra", "hexahedra", "wedges", "pyramids", "cubes", "mixed"};

void shape_quality(benchmark::State& state)
{
    const test::mesh& m = mesh_of(static_cast<int>(state.range(0)));
    dense1D<double> qualities;
    for (auto _ : state) benchmark::DoNotOptimize(shape_qualities(m.pos, m.connectivity, m.kind, qualities));
    state.SetLabel(names[state.range(0)]);
    state.SetItemsProcessed(state.iterations() * m.connectivity.cols);
}
BENCHMARK(shape_quality)->DenseRange(0, 8)->Unit(benchmark::kMillisecond);

void lowest_quality(benchmark::State& state)
{
    const test::mesh& m = mesh_of(static_cast<int>(state.range(0)));
    double lowest = 0;
    unsigned index = 0;
    for (auto _ : state) benchmark::DoNotOptimize(min_quality(m.pos, m.connectivity, m.kind, lowest, index));
    state.SetLabel(names[state.range(0)]);
    state.SetItemsProcessed(state.iterations() * m.connectivity.cols);
}
BENCHMARK(lowest_quality)->Arg(0)->Arg(3)->Arg(4)->Unit(benchmark::kMillisecond);

void jacobian(benchmark::State& state)
{
    const test::mesh& m = mesh_of(static_cast<int>(state.range(0)));
    dense1D<double> values;
    for (auto _ : state) benchmark::DoNotOptimize(jacobians(m.pos, m.connectivity, m.kind, values));
    state.SetLabel(names[state.range(0)]);
    state.SetItemsProcessed(state.iterations() * m.connectivity.cols);
}
BENCHMARK(jacobian)->DenseRange(0, 8)->Unit(benchmark::kMillisecond);

dense2D<double> tensors_of(const dense1D<double>& sizes, unsigned dim)
{
    dense2D<double> metrics(dim * (dim + 1) / 2, sizes.size, 0.0);
    for (unsigned c = 0; c < sizes.size; ++c)
        for (unsigned k = 0; k < dim; ++k) metrics((k + 1) * (k + 2) / 2 - 1, c) = 1 / (sizes[c] * sizes[c]);
    return metrics;
}

/// Random sizes over two decades.
dense1D<double> random_sizes(unsigned count)
{
    test::random_source random(2);
    dense1D<double> sizes(count);
    for (double& size : sizes) size = random.between(0.01, 1);
    return sizes;
}

void edge_lengths(benchmark::State& state)
{
    const test::mesh& m = mesh_of(static_cast<int>(state.range(0)));
    const auto sizes = random_sizes(m.pos.cols);
    const auto metrics = tensors_of(sizes, m.pos.rows);
    const dense2D<unsigned> none;
    int edges = 0;
    for (auto _ : state)
    {
        auxkit::histogram lengths(0, 10, 100);
        edges = state.range(1) ? edge_qualities(m.pos, m.connectivity, m.kind, metrics, lengths, none)
                               : edge_qualities(m.pos, m.connectivity, m.kind, sizes, lengths, none);
    }
    state.SetLabel(std::string(names[state.range(0)]) + (state.range(1) ? ", tensors" : ", sizes"));
    state.SetItemsProcessed(state.iterations() * edges);
}
BENCHMARK(edge_lengths)->ArgsProduct({{0, 3, 4}, {0, 1}})->Unit(benchmark::kMillisecond);

void shock(benchmark::State& state)
{
    const test::mesh& m = mesh_of(3);
    const auto sizes = random_sizes(m.pos.cols);
    const auto metrics = tensors_of(sizes, m.pos.rows);
    dense2D<unsigned> edges;
    copy_edges(m.connectivity, m.kind, edges);
    dense1D<double> shocks;
    for (auto _ : state)
        benchmark::DoNotOptimize(state.range(0) ? H_shock(m.pos, edges, metrics, shocks) : H_shock(m.pos, edges, sizes, shocks));
    state.SetLabel(state.range(0) ? "tensors" : "sizes");
    state.SetItemsProcessed(state.iterations() * edges.cols);
}
BENCHMARK(shock)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

} // namespace
