// Reading and writing of mesh files: STL of a million triangles both ways, viewer formats of half a million tetrahedra.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include <tq4/gridweave.h>

#include "meshes.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// A file in memory where the system offers that, so that the disk is not measured.
std::string scratch_file(const char* name)
{
    const std::filesystem::path in_memory = "/dev/shm";
    return (std::filesystem::is_directory(in_memory) ? in_memory : std::filesystem::temp_directory_path()) / name;
}

/// A wavy sheet of 2 n² triangles in space.
struct surface
{
    dense2D<double> pos;
    dense2D<unsigned> connect;
};

const surface& wavy_sheet()
{
    static const surface sheet = [] {
        constexpr unsigned n = 707;
        surface s;
        s.pos.resize(3, (n + 1) * (n + 1));
        for (unsigned j = 0; j <= n; ++j)
            for (unsigned i = 0; i <= n; ++i)
            {
                double* const x = s.pos.column(j * (n + 1) + i);
                x[0] = i * (100.0 / n);
                x[1] = j * (100.0 / n);
                x[2] = 3 * std::sin(0.3 * x[0]) * std::cos(0.2 * x[1]);
            }
        s.connect = bench::triangles(n);
        return s;
    }();
    return sheet;
}

void set_rates(benchmark::State& state, const std::string& file, unsigned items)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * items);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(std::filesystem::file_size(file)));
    std::filesystem::remove(file);
}

void read_stl(benchmark::State& state, bool text)
{
    const surface& sheet = wavy_sheet();
    const std::string file = scratch_file("gridweave_bench.stl");
    STL_output(file.c_str(), sheet.pos, sheet.connect, text);
    for (auto _ : state)
    {
        dense2D<double> pos;
        dense2D<unsigned> connect;
        if (STL_input(file.c_str(), pos, connect) != 0 || pos.cols != sheet.pos.cols) state.SkipWithError("not read as written");
        benchmark::DoNotOptimize(pos.data());
    }
    set_rates(state, file, sheet.connect.cols);
}
BENCHMARK_CAPTURE(read_stl, text, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read_stl, binary, false)->Unit(benchmark::kMillisecond);

void write_stl(benchmark::State& state, bool text)
{
    const surface& sheet = wavy_sheet();
    const std::string file = scratch_file("gridweave_bench.stl");
    for (auto _ : state)
        if (STL_output(file.c_str(), sheet.pos, sheet.connect, text) != 0) state.SkipWithError("not written");
    set_rates(state, file, sheet.connect.cols);
}
BENCHMARK_CAPTURE(write_stl, text, true)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(write_stl, binary, false)->Unit(benchmark::kMillisecond);

template <class Output>
void write_tetrahedra(benchmark::State& state, Output output)
{
    static const test::mesh solid = test::grid_of_tetrahedra(44);
    const std::string file = scratch_file("gridweave_bench.txt");
    for (auto _ : state)
        if (output(file.c_str(), solid.pos, solid.connectivity) != 0) state.SkipWithError("not written");
    set_rates(state, file, solid.connectivity.cols);
}

void write_vtk(benchmark::State& state)
{
    write_tetrahedra(state,
                     [](const char* file, const auto& pos, const auto& connect) { return vtk_output(file, pos, connect, ELEM_TETRA4); });
}
BENCHMARK(write_vtk)->Unit(benchmark::kMillisecond);

void write_medit(benchmark::State& state)
{
    write_tetrahedra(state,
                     [](const char* file, const auto& pos, const auto& connect) { return medit_output(file, pos, connect, ELEM_TETRA4); });
}
BENCHMARK(write_medit)->Unit(benchmark::kMillisecond);

} // namespace
