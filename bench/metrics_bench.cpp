// Metric tensors by the million. "dspev" and "dspgv" are the plain LAPACK calls on the same tensors: what eigenpairs, intersection and
// validity are measured against.

#include <cmath>
#include <limits>
#include <vector>

#include <benchmark/benchmark.h>

#include <tq4/gridweave/metrics.h>
#include <tq4/numcore/lapack.h>

#include "meshes.h"
#include "tensors.h"

extern "C" void dspgv_(const int* itype, const char* jobz, const char* uplo, const int* n, double* ap, double* bp, double* w, double* z,
                       const int* ldz, double* work, int* info, std::size_t jobz_length, std::size_t uplo_length);

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

constexpr unsigned count = 1000000;

using bench::tensor3;

const dense2D<double>& tensors()
{
    static const dense2D<double> all = bench::random_tensors(count, 1);
    return all;
}

const dense2D<double>& other_tensors()
{
    static const dense2D<double> all = bench::random_tensors(count, 2);
    return all;
}

/// Runs `call(tensor, other tensor)` over all pairs.
template <class Call>
void for_all_pairs(benchmark::State& state, Call call)
{
    const auto& first = tensors();
    const auto& second = other_tensors();
    for (auto _ : state)
        for (unsigned c = 0; c < count; ++c) call(bench::tensor_of(first, c), bench::tensor_of(second, c));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
}

void plain_dspev(char jobz, tensor3 m)
{
    double w[3];
    double z[9];
    double work[10];
    long info = 0;
    lapack::dspev(jobz, 'U', 3, m.values, w, z, 3, work, info);
    benchmark::DoNotOptimize(w);
}

void plain_dspgv(tensor3 a, tensor3 b)
{
    const int kind = 1, n = 3, ldz = 3;
    int info = 0;
    double w[3];
    double z[9];
    double work[10];
    dspgv_(&kind, "V", "U", &n, b.values, a.values, w, z, &ldz, work, &info, 1, 1);
    benchmark::DoNotOptimize(w);
}

void eigen_pairs_dspev(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& m, const tensor3&) { plain_dspev('V', m); });
}

void eigen_pairs_ours(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& m, const tensor3&) {
        vector_fixed<double, 3> values;
        matrix_fixed<double, 3, 3> vectors;
        benchmark::DoNotOptimize(eigen_pairs(m, values, vectors));
    });
}

void pairs_dspgv(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& a, const tensor3& b) { plain_dspgv(a, b); });
}

void pairs_ours(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& a, const tensor3& b) {
        vector_fixed<double, 3> values;
        matrix_fixed<double, 3, 3> vectors;
        benchmark::DoNotOptimize(eigen_pairs(a, b, values, vectors));
    });
}

void intersection_ours(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& a, const tensor3& b) {
        tensor3 result;
        benchmark::DoNotOptimize(minimum_metric(a, b, result));
    });
}

void intersection_in_the_plane_ours(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& a, const tensor3& b) {
        symmetric_fixed<double, 2> result;
        benchmark::DoNotOptimize(minimum_metric({a[0], a[1], a[2]}, {b[0], b[1], b[2]}, result));
    });
}

void validity_dspev(benchmark::State& state)
{
    for_all_pairs(state, [](const tensor3& m, const tensor3&) { plain_dspev('N', m); });
}

void validity_ours(benchmark::State& state)
{
    const auto& metrics = tensors();
    for (auto _ : state) benchmark::DoNotOptimize(first_invalid_metric(metrics));
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
}

/// `range(0)` tells whether the bounds touch the field.
void bounds_ours(benchmark::State& state)
{
    dense2D<double> metrics;
    for (auto _ : state)
    {
        state.PauseTiming();
        metrics.copy(tensors());
        state.ResumeTiming();
        benchmark::DoNotOptimize(state.range(0) ? bound_metrics(metrics, 0.1, 10) : bound_metrics(metrics, 1e-3, 1e3));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * count);
}

/// Sizes at the nodes of 1 million triangles; `range(0)` tells the power, -1 standing for the longest edge.
void size_generation_ours(benchmark::State& state)
{
    constexpr unsigned n = 707;
    const dense2D<unsigned> connectivity = bench::triangles(n);
    dense2D<double> pos(3, (n + 1) * (n + 1));
    for (unsigned c = 0; c < pos.cols; ++c)
    {
        pos(0, c) = c % (n + 1);
        pos(1, c) = c / (n + 1);
        pos(2, c) = std::sin(0.1 * c);
    }
    const double p = state.range(0) < 0 ? std::numeric_limits<double>::max() : static_cast<double>(state.range(0));
    for (auto _ : state)
    {
        dense1D<double> sizes;
        benchmark::DoNotOptimize(metrics_gen_iso(pos, connectivity, ELEM_TRIA3, sizes, p));
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()) * connectivity.cols);
}

BENCHMARK(eigen_pairs_dspev)->Unit(benchmark::kMillisecond);
BENCHMARK(eigen_pairs_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(pairs_dspgv)->Unit(benchmark::kMillisecond);
BENCHMARK(pairs_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(intersection_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(intersection_in_the_plane_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(validity_dspev)->Unit(benchmark::kMillisecond);
BENCHMARK(validity_ours)->Unit(benchmark::kMillisecond);
BENCHMARK(bounds_ours)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(size_generation_ours)->Arg(0)->Arg(1)->Arg(2)->Arg(-1)->Unit(benchmark::kMillisecond);

} // namespace
