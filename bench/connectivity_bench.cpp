// Connectivity of large meshes: 1 million triangles, 1 million tetrahedra, 0.3 million hexahedra.

#include <benchmark/benchmark.h>

#include <tq4/gridweave/connectivity.h>

#include "meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

struct sample
{
    const char* name;
    dense2D<unsigned> connectivity;
    element_type kind;
    dense2D<unsigned> neighbors;

    sample(const char* title, const dense2D<unsigned>& elements, element_type type) : name(title), connectivity(elements), kind(type)
    {
        get_neighbors(connectivity, kind, false, neighbors);
    }
};

const std::vector<sample>& samples()
{
    static const std::vector<sample> all{
        {"triangles", bench::triangles(707), ELEM_TRIA3},   {"random triangles", bench::shuffled(bench::triangles(707)), ELEM_TRIA3},
        {"tetrahedra", bench::tetrahedra(55), ELEM_TETRA4}, {"random tetrahedra", bench::shuffled(bench::tetrahedra(55)), ELEM_TETRA4},
        {"hexahedra", bench::hexahedra(67), ELEM_HEXA8},
    };
    return all;
}

/// Registers a timing of `call(sample)` for every mesh.
template <class Call>
bool for_all_meshes(const char* family, Call call)
{
    for (const sample& mesh : samples())
        benchmark::RegisterBenchmark((std::string(family) + "/" + mesh.name).c_str(), [call, &mesh](benchmark::State& state) {
            for (auto _ : state) call(mesh);
            state.counters["elements"] = mesh.connectivity.cols;
        })->Unit(benchmark::kMillisecond);
    return true;
}

const bool neighbors_registered = for_all_meshes("neighbors", [](const sample& mesh) {
    dense2D<unsigned> neighbors;
    benchmark::DoNotOptimize(get_neighbors(mesh.connectivity, mesh.kind, false, neighbors));
});

const bool node_to_element_registered = for_all_meshes("node to element", [](const sample& mesh) {
    dense1D<unsigned> first, list;
    benchmark::DoNotOptimize(get_connected_elements(mesh.connectivity, first, list));
});

const bool node_graph_registered = for_all_meshes("node graph", [](const sample& mesh) {
    dense1D<unsigned> first, list;
    benchmark::DoNotOptimize(get_node_graph(mesh.connectivity, first, list));
});

const bool edges_registered = for_all_meshes("edges", [](const sample& mesh) {
    dense2D<unsigned> edges;
    benchmark::DoNotOptimize(copy_edges(mesh.connectivity, mesh.kind, edges));
});

const bool subdomains_registered = for_all_meshes("subdomains", [](const sample& mesh) {
    dense1D<unsigned> indices, offsets;
    benchmark::DoNotOptimize(get_subdomains(mesh.neighbors, indices, offsets));
});

/// The skin of a mesh, to be located on it.
struct skinned
{
    dense2D<unsigned> skin;
    dense1D<unsigned> ancestors;

    explicit skinned(const sample& mesh)
    {
        get_mesh_boundaries(mesh.connectivity, mesh.neighbors, mesh.kind, skin);
        get_ancestors(mesh.connectivity, ancestors);
    }
};

const bool elements_on_boundaries_registered = for_all_meshes("elements on boundaries", [](const sample& mesh) {
    static const std::vector<skinned> all(samples().begin(), samples().end());
    const skinned& surface = all[static_cast<std::size_t>(&mesh - samples().data())];
    dense1D<unsigned> ids;
    unsigned stride = 0;
    benchmark::DoNotOptimize(
        get_elements_on_boundaries(surface.skin, mesh.connectivity, mesh.neighbors, surface.ancestors, mesh.kind, ids, stride));
});

const bool all_boundaries_registered = for_all_meshes("element boundaries", [](const sample& mesh) {
    dense2D<unsigned> sides;
    benchmark::DoNotOptimize(get_element_boundaries(mesh.connectivity, mesh.kind, sides));
});

const bool free_boundaries_registered = for_all_meshes("free boundaries", [](const sample& mesh) {
    dense2D<unsigned> sides;
    benchmark::DoNotOptimize(get_mesh_boundaries(mesh.connectivity, mesh.neighbors, mesh.kind, sides));
});

} // namespace
