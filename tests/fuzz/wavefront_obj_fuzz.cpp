#include <utility>

#include <tq4/gridweave.h>

#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"
#include "fuzz/reader.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

void write_and_read(const dense2D<double>& pos, const dense2D<double>& normals, const dense2D<double>& texcoords,
                    const dense2D<unsigned>& connect_tria, const dense2D<unsigned>& connect_quad)
{
    static memory_file file;
    const int written = WavefrontOBJ_output(file.name(), pos, normals, texcoords, connect_tria, connect_quad);
    promise_code(written, {-2, -3, -4, -5, -6});
    if (written != 0) return;
    dense2D<double> points[3];
    dense2D<unsigned> faces[2];
    const int code = WavefrontOBJ_input(file.name(), points[0], points[1], points[2], faces[0], faces[1]);
    // A coordinate that is no number is written as a word.
    promise_code(code, {-2, out_of_memory});
    if (code != 0) return;
    promise(points[0].cols == pos.cols && points[1].cols == normals.cols && points[2].cols == texcoords.cols, "all points come back");
    // Numbers beyond those of `int` are written, but end a corner when they are read, and a quadrangle without one is a triangle.
    constexpr unsigned readable = 0x7FFFFFFF;
    if (!check_IDs(connect_tria, readable) || !check_IDs(connect_quad, readable)) return;
    promise(faces[0].cols == connect_tria.cols && faces[1].cols == connect_quad.cols, "all faces come back");
}

} // namespace

void read(const char* file, std::uint32_t choice)
{
    dense2D<double> pos(2, 3, 1.0);
    dense2D<double> normals(1, 1, 1.0);
    dense2D<double> texcoords(4, 1, 1.0);
    dense2D<unsigned> connect_tria(5, 2, 9u);
    dense2D<unsigned> connect_quad(5, 2, 9u);
    const int code = WavefrontOBJ_input(file, pos, normals, texcoords, connect_tria, connect_quad);
    promise_code(code, {-2, out_of_memory});
    promise(code <= 0, "0 or a code");
    promise(has_rows_or_nothing(pos, 3) && has_rows_or_nothing(normals, 3), "three rows of coordinates and normals");
    promise(texcoords.empty() || texcoords.rows <= 3, "up to three rows of texture coordinates");
    promise(has_rows_or_nothing(connect_tria, 3) && has_rows_or_nothing(connect_quad, 4), "faces of three and four corners");

    for (const auto& [connect, kind] : {std::pair{&connect_tria, ELEM_TRIA3}, std::pair{&connect_quad, ELEM_QUAD4}})
    {
        walk_connectivity(*connect, kind);
        walk_geometry(pos, *connect, kind);
    }
    if (choice % 8 == 1) write_and_read(pos, normals, texcoords, connect_tria, connect_quad);
}

} // namespace tq4::fuzz
