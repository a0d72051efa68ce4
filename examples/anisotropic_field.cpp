// An anisotropic metric field over a tetrahedral mesh: a thin boundary layer on one face of a cube and a curved shock through it, each with
// small sizes across and large ones along it. The field jumps where a layer ends; limiting its gradation makes it one that a mesher can
// follow.
//
//   anisotropic_field output_folder [cells_per_side] [growth_limit]

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <tq4/gridweave.h>

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

using vector3 = vector_fixed<double, 3>;
using tensor3 = symmetric_fixed<double, 3>;

[[noreturn]] void fail(const std::string& sentence)
{
    std::fprintf(stderr, "anisotropic_field: %s\n", sentence.c_str());
    std::exit(1);
}

/// The unit cube in n × n × n cells of six tetrahedra each.
void make_cube(unsigned n, dense2D<double>& pos, dense2D<unsigned>& tetrahedra)
{
    const unsigned side = n + 1;
    pos = dense2D<double>(3, side * side * side);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        pos(0, node) = static_cast<double>(node % side) / n;
        pos(1, node) = static_cast<double>(node / side % side) / n;
        pos(2, node) = static_cast<double>(node / (side * side)) / n;
    }
    tetrahedra = dense2D<unsigned>(4, 6 * n * n * n);
    if (pos.empty() || tetrahedra.empty()) fail("there is not enough memory for the mesh.");

    // Six tetrahedra round the diagonal of a cell; a corner is named by its offsets along x, y and z as bits.
    constexpr unsigned round_diagonal[7] = {1, 3, 2, 6, 4, 5, 1};
    unsigned element = 0;
    for (unsigned k = 0; k < n; ++k)
    {
        for (unsigned j = 0; j < n; ++j)
        {
            for (unsigned i = 0; i < n; ++i)
            {
                const auto corner = [&](unsigned bits) { return i + (bits & 1) + side * (j + (bits >> 1 & 1) + side * (k + (bits >> 2))); };
                for (unsigned step = 0; step < 6; ++step, ++element)
                {
                    tetrahedra(0, element) = corner(round_diagonal[step]);
                    tetrahedra(1, element) = corner(round_diagonal[step + 1]);
                    tetrahedra(2, element) = corner(7);
                    tetrahedra(3, element) = corner(0);
                }
            }
        }
    }
}

/// The metric that asks for the size `across` along the unit vector `normal` and for `along` at right angles to it.
tensor3 layer_metric(const vector3& normal, double across, double along)
{
    const double large = 1.0 / (across * across);
    const double small = 1.0 / (along * along);
    tensor3 m{};
    for (unsigned j = 0; j < 3; ++j)
        for (unsigned i = 0; i <= j; ++i) m(i, j) = (large - small) * normal[i] * normal[j] + (i == j ? small : 0.0);
    return m;
}

/// The wanted metric at a point: a boundary layer at z = 0 and a spherical shock, united where they meet.
tensor3 wanted_metric(const vector3& x)
{
    constexpr double background = 0.1;
    constexpr double layer_thickness = 0.08;
    constexpr double layer_size = 0.002;
    constexpr double shock_radius = 0.7;
    constexpr double shock_thickness = 0.05;
    constexpr double shock_size = 0.004;

    tensor3 wanted{};
    metric_iso_to_aniso(background, wanted);
    if (x[2] < layer_thickness) wanted = layer_metric({0.0, 0.0, 1.0}, layer_size, background);

    const double radius = std::sqrt(x[0] * x[0] + x[1] * x[1] + x[2] * x[2]);
    if (radius > 0.0 && std::fabs(radius - shock_radius) < 0.5 * shock_thickness)
    {
        const tensor3 shock = layer_metric({x[0] / radius, x[1] / radius, x[2] / radius}, shock_size, background);
        // The smaller size wins in every direction.
        minimum_metric(wanted, shock, wanted);
    }
    return wanted;
}

tensor3 metric_at(const dense2D<double>& metrics, unsigned node)
{
    tensor3 m{};
    std::copy_n(metrics.column(node), 6, m.values);
    return m;
}

/// Ratio of the largest size to the smallest one at every node.
auxkit::histogram anisotropy(const dense2D<double>& metrics)
{
    auxkit::histogram spread;
    for (unsigned node = 0; node < metrics.cols; ++node)
    {
        vector3 values{};
        matrix_fixed<double, 3, 3> vectors{};
        if (eigen_pairs(metric_at(metrics, node), values, vectors)) spread.process(std::sqrt(values[2] / values[0]));
    }
    return spread;
}

/// Gradation at every node: how fast the size grows along its worst edge.
auxkit::histogram gradation(const dense2D<double>& pos, const dense2D<unsigned>& edges, const dense2D<double>& metrics)
{
    dense1D<double> shocks;
    if (H_shock(pos, edges, metrics, shocks) != 0) fail("the gradation cannot be measured.");
    auxkit::histogram spread;
    for (const double shock : shocks) spread.process(shock);
    return spread;
}

void print(const char* what, const auxkit::histogram& before, const auxkit::histogram& after)
{
    std::printf("  %-28s %12.6g (mean %.6g) before, %12.6g (mean %.6g) after\n", what, before.max(), before.mean(), after.max(),
                after.mean());
}

/// The mesh with the size across the layers before and after as point data.
int write_vtk(const std::string& file, const dense2D<double>& pos, const dense2D<unsigned>& tetrahedra, const dense2D<double>& before,
              const dense2D<double>& after)
{
    unsigned nbr_cells = 0;
    dense1D<unsigned> cells;
    dense1D<unsigned> cell_types;
    if (const int result = vtk_convert(tetrahedra, ELEM_TETRA4, nbr_cells, cells, cell_types); result != 0) return result;
    std::FILE* const stream = std::fopen(file.c_str(), "w");
    if (!stream) return -1;
    int result = vtk_output(stream, pos, nbr_cells, cells, cell_types);
    std::fprintf(stream, "\nPOINT_DATA %u\n", pos.cols);
    const auto smallest_sizes = [&](const char* name, const dense2D<double>& metrics) {
        std::fprintf(stream, "SCALARS %s double 1\nLOOKUP_TABLE default\n", name);
        for (unsigned node = 0; node < metrics.cols; ++node)
        {
            vector3 values{};
            matrix_fixed<double, 3, 3> vectors{};
            eigen_pairs(metric_at(metrics, node), values, vectors);
            std::fprintf(stream, "%.9g\n", 1.0 / std::sqrt(values[2]));
        }
    };
    smallest_sizes("smallest_size_before", before);
    smallest_sizes("smallest_size_after", after);
    if (std::ferror(stream)) result = -1;
    return std::fclose(stream) == 0 ? result : -1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || argc > 4)
    {
        std::fprintf(stderr, "usage: anisotropic_field output_folder [cells_per_side] [growth_limit]\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const int cells = argc > 2 ? std::atoi(argv[2]) : 24;
    const double limit = argc > 3 ? std::atof(argv[3]) : 0.5;
    if (cells < 1 || cells > 500) fail("cells_per_side is a number from 1 to 500.");
    if (!(limit >= 0.0)) fail("growth_limit is a number from 0 up.");
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) fail("the folder " + folder.string() + " cannot be made.");

    dense2D<double> pos;
    dense2D<unsigned> tetrahedra;
    make_cube(static_cast<unsigned>(cells), pos, tetrahedra);
    dense2D<double> metrics(6, pos.cols);
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const tensor3 wanted = wanted_metric({pos(0, node), pos(1, node), pos(2, node)});
        std::copy_n(wanted.values, 6, metrics.column(node));
    }
    if (!are_valid_metrics(metrics)) fail("the field holds an invalid tensor.");
    dense2D<double> graded;
    dense2D<unsigned> edges;
    if (!graded.copy(metrics) || copy_edges(tetrahedra, ELEM_TETRA4, edges) != 0) fail("there is not enough memory.");

    // No node is frozen. Sizes may only shrink, so what the field asks for is kept and the jumps are bridged from the small side.
    constexpr int only_shrink = -1;
    const dense1D<unsigned> nothing_frozen;
    const auto start = std::chrono::steady_clock::now();
    const int moved = bound_metric_gradations(pos, tetrahedra, ELEM_TETRA4, nothing_frozen, true, only_shrink, limit, graded);
    const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - start;
    if (moved < 0) fail("the gradation cannot be limited.");

    std::printf("%u nodes, %u tetrahedra, growth limit %g\n", pos.cols, tetrahedra.cols, limit);
    std::printf("  %-28s %12d in %.1f ms\n", "nodes moved", moved, time.count());
    print("largest gradation", gradation(pos, edges, metrics), gradation(pos, edges, graded));
    print("largest anisotropy", anisotropy(metrics), anisotropy(graded));

    const auto write = [&](const char* name, auto&& writer) {
        const std::string path = (folder / name).string();
        if (writer(path) != 0) fail(path + " cannot be written.");
        std::printf("  %-28s %s\n", "written", path.c_str());
    };
    write("field.mesh", [&](const std::string& file) { return medit_output(file.c_str(), pos, tetrahedra, ELEM_TETRA4); });
    write("metric_before.bb", [&](const std::string& file) { return medit_tensor(file.c_str(), metrics); });
    write("metric_after.bb", [&](const std::string& file) { return medit_tensor(file.c_str(), graded); });
    write("field.vtk", [&](const std::string& file) { return write_vtk(file, pos, tetrahedra, metrics, graded); });
    return 0;
}
