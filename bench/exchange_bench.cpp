// Exchange formats: half a million tetrahedra as NASTRAN, FEMAP and EnSight files, half a million triangles as Wavefront OBJ.

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

const std::string file_name = bench::scratch_file("gridweave_exchange_bench.txt");

const test::mesh& solid()
{
    static const test::mesh mesh = test::grid_of_tetrahedra(44);
    return mesh;
}

const test::mesh& sheet()
{
    static const test::mesh mesh = [] {
        constexpr unsigned n = 500;
        test::mesh m;
        m.connectivity = bench::triangles(n);
        m.pos.resize(3, (n + 1) * (n + 1));
        for (unsigned node = 0; node < m.pos.cols; ++node)
        {
            const double x = (node % (n + 1)) * (100.0 / n);
            const double y = (node / (n + 1)) * (100.0 / n);
            m.pos(0, node) = x;
            m.pos(1, node) = y;
            m.pos(2, node) = x * y / 70;
        }
        return m;
    }();
    return mesh;
}

void set_rates(benchmark::State& state, unsigned items)
{
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * items);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) *
                            static_cast<std::int64_t>(std::filesystem::file_size(file_name)));
    std::filesystem::remove(file_name);
}

/// Measures `output(file, mesh)`.
template <class Output>
void measure_writing(benchmark::State& state, const test::mesh& mesh, Output output)
{
    for (auto _ : state)
        if (output(file_name.c_str(), mesh) != 0) state.SkipWithError("not written");
    set_rates(state, mesh.connectivity.cols);
}

/// Measures `input(file, pos, connectivity)` on a file that stands already.
template <class Input>
void measure_reading(benchmark::State& state, const test::mesh& mesh, Input input)
{
    for (auto _ : state)
    {
        dense2D<double> pos;
        dense2D<unsigned> connectivity;
        if (input(file_name.c_str(), pos, connectivity) != 0 || pos.cols != mesh.pos.cols || connectivity.cols != mesh.connectivity.cols)
            state.SkipWithError("not read as written");
        benchmark::DoNotOptimize(pos.data());
    }
    set_rates(state, mesh.connectivity.cols);
}

int write_as_nastran(const char* file, const test::mesh& mesh)
{
    return NASTRAN_output(file, mesh.pos, mesh.connectivity, ELEM_TETRA4);
}

int write_as_femap(const char* file, const test::mesh& mesh)
{
    return FEMAP_output(file, mesh.pos, mesh.connectivity, ELEM_TETRA4);
}

int write_as_obj(const char* file, const test::mesh& mesh)
{
    return WavefrontOBJ_output(file, mesh.pos, mesh.connectivity, ELEM_TRIA3);
}

int write_as_ensight(const char* file, const test::mesh& mesh)
{
    return ensight_output(file, mesh.pos, mesh.connectivity, ELEM_TETRA4);
}

int read_nastran_file(const char* file, dense2D<double>& pos, dense2D<unsigned>& connectivity)
{
    element_type kind;
    return NASTRAN_input(file, pos, connectivity, kind);
}

void read_nastran(benchmark::State& state)
{
    write_as_nastran(file_name.c_str(), solid());
    measure_reading(state, solid(), read_nastran_file);
}
BENCHMARK(read_nastran)->Unit(benchmark::kMillisecond);

void read_nastran_cards(benchmark::State& state, bench::card_fields fields)
{
    bench::write_cards(file_name, solid().pos, solid().connectivity, fields);
    measure_reading(state, solid(), read_nastran_file);
}
BENCHMARK_CAPTURE(read_nastran_cards, small, bench::card_fields::small)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read_nastran_cards, large, bench::card_fields::large)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(read_nastran_cards, free, bench::card_fields::free)->Unit(benchmark::kMillisecond);

void write_nastran(benchmark::State& state)
{
    measure_writing(state, solid(), write_as_nastran);
}
BENCHMARK(write_nastran)->Unit(benchmark::kMillisecond);

void read_femap(benchmark::State& state)
{
    write_as_femap(file_name.c_str(), solid());
    measure_reading(state, solid(), [](const char* file, auto& pos, auto& connectivity) {
        element_type kind;
        return FEMAP_input(file, pos, connectivity, kind);
    });
}
BENCHMARK(read_femap)->Unit(benchmark::kMillisecond);

void write_femap(benchmark::State& state)
{
    measure_writing(state, solid(), write_as_femap);
}
BENCHMARK(write_femap)->Unit(benchmark::kMillisecond);

void read_obj(benchmark::State& state)
{
    write_as_obj(file_name.c_str(), sheet());
    measure_reading(state, sheet(), [](const char* file, auto& pos, auto& triangles) {
        dense2D<double> normals;
        dense2D<double> texcoords;
        dense2D<unsigned> quadrangles;
        return WavefrontOBJ_input(file, pos, normals, texcoords, triangles, quadrangles);
    });
}
BENCHMARK(read_obj)->Unit(benchmark::kMillisecond);

void write_obj(benchmark::State& state)
{
    measure_writing(state, sheet(), write_as_obj);
}
BENCHMARK(write_obj)->Unit(benchmark::kMillisecond);

void write_ensight(benchmark::State& state)
{
    measure_writing(state, solid(), write_as_ensight);
}
BENCHMARK(write_ensight)->Unit(benchmark::kMillisecond);

} // namespace
