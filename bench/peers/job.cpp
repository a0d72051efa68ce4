// The typical job on a large surface, with the memory that each step takes: read and weld, neighbours, free edges, quality, sizes,
// gradation, write.

#include "files.h"
#include "harness.h"

#include <cmath>
#include <cstdio>

#include <tq4/gridweave.h>

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// Prints a step: its time, and the bytes per triangle in use before it and at its peak.
class steps
{
public:
    explicit steps(double triangles_wanted) : triangles_(triangles_wanted), start_(memory_in_use())
    {
        std::puts("| Step | s | Held before, bytes per triangle | Peak, bytes per triangle | Held from it |");
        std::puts("|---|---|---|---|---|");
    }

    template <class Call>
    void step(const char* name, const char* held, Call call)
    {
        const meter measuring(true);
        const double before = memory_in_use() - start_;
        const int result = call();
        const cost taken = measuring.stop();
        const double peak = before + taken.bytes;
        highest_ = std::max(highest_, peak);
        seconds_ += taken.seconds;
        std::printf("| %s%s | %.2f | %.0f | %.0f | %s |\n", name, result < 0 ? " (failed)" : "", taken.seconds, before / triangles_,
                    peak / triangles_, held);
    }

    void sum() const
    {
        std::printf("\nIn all %.1f s; at the peak %.2f GB, %.0f bytes per triangle.\n", seconds_, 1e-9 * highest_, highest_ / triangles_);
    }

private:
    double triangles_;
    double start_;
    double highest_ = 0;
    double seconds_ = 0;
};

} // namespace

void typical_job(double triangles_wanted)
{
    const temporary_file input("gridweave_peers_job.stl"), output("gridweave_peers_job.vtk");
    {
        const surface sheet = wavy_sheet(std::max(1u, static_cast<unsigned>(std::lround(std::sqrt(triangles_wanted / 2)))));
        STL_output(input.path(), sheet.pos, sheet.connect, false);
    }

    dense2D<double> pos;
    dense2D<unsigned> connect, neighbors, free_edges;
    dense1D<double> qualities, sizes;
    steps job(triangles_wanted);
    job.step("read a binary STL file and weld it", "nodes 12, triangles 12", [&] { return STL_input(input.path(), pos, connect); });
    job.step("neighbours", "12", [&] { return get_neighbors(connect, ELEM_TRIA3, true, neighbors); });
    job.step("free edges", "0", [&] { return get_mesh_boundaries(connect, neighbors, ELEM_TRIA3, free_edges); });
    job.step("quality", "8", [&] { return shape_qualities(pos, connect, ELEM_TRIA3, qualities); });
    job.step("sizes", "4", [&] { return metrics_gen_iso(pos, connect, ELEM_TRIA3, sizes, 1); });
    // One node in a thousand asks for a tenth of the size, so that there is something to limit.
    for (unsigned node = 0; node < sizes.size; node += 1000) sizes[node] *= 0.1;
    job.step("gradation", "0", [&] { return bound_metric_gradations(pos, connect, ELEM_TRIA3, {}, true, -1, 0.2, sizes); });
    job.step("write a VTK file", "0", [&] { return vtk_output(output.path(), pos, connect, ELEM_TRIA3); });
    job.sum();
}

} // namespace bench
