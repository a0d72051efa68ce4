// Reading and writing of mesh files: STL of a million triangles both ways, viewer formats of half a million tetrahedra.

#include <cstdio>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include <tq4/gridweave.h>

#include "files.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

const bench::surface& wavy_sheet()
{
    static const bench::surface sheet = bench::wavy_sheet(707);
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
    const bench::surface& sheet = wavy_sheet();
    const std::string file = bench::scratch_file("gridweave_bench.stl");
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
    const bench::surface& sheet = wavy_sheet();
    const std::string file = bench::scratch_file("gridweave_bench.stl");
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
    const std::string file = bench::scratch_file("gridweave_bench.txt");
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
