#include <tq4/gridweave.h>

#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"
#include "fuzz/reader.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

/// A mesh that was read can be written and read again.
void write_and_read(const dense2D<double>& pos, const dense2D<unsigned>& connect, bool text)
{
    static memory_file file;
    const int written = STL_output(file.name(), pos, connect, text);
    promise(written == 0, "what was read can be written");
    dense2D<double> points;
    dense2D<unsigned> triangles;
    const int code = STL_input(file.name(), points, triangles);
    // Coordinates that are no numbers, or too large for those of the binary form, come back as such, and the text form cannot hold them.
    promise_code(code, {-2, -3, out_of_memory});
    if (code == 0) promise(triangles.cols <= connect.cols, "no triangle comes from nowhere");
}

} // namespace

void read(const char* file, std::uint32_t choice)
{
    dense2D<double> pos(2, 3, 1.0);
    dense2D<unsigned> connect(5, 2, 9u);
    const int code = STL_input(file, pos, connect);
    promise_code(code, {-2, -3, out_of_memory});
    promise(code <= 0, "0 or a code");
    if (code != 0)
    {
        promise(pos.empty() && connect.empty(), "matrices are empty after a failure");
        return;
    }
    promise(has_rows_or_nothing(pos, 3) && has_rows_or_nothing(connect, 3), "three rows each");
    promise(check_IDs(connect, ELEM_TRIA3, pos.cols), "triangles stand on nodes");
    if (pos.cols != 3 * connect.cols)
    {
        dense1D<unsigned> new_ids;
        dense2D<double> points;
        dense2D<unsigned> triangles;
        if (!points.copy(pos) || !triangles.copy(connect)) return;
        promise(simplify(points, triangles, new_ids, 0) <= 0, "every node of a welded surface is used");
    }

    walk_connectivity(connect, ELEM_TRIA3);
    walk_geometry(pos, connect, ELEM_TRIA3);
    if (choice % 8 == 1 && !connect.empty()) write_and_read(pos, connect, choice % 16 == 1);
}

} // namespace tq4::fuzz
