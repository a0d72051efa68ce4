// Writes meshes of all kinds in all formats for other packages to read, and beside them what they should find.
//
//   write_meshes folder
//
// NAME.txt holds "kind nodes elements", then the coordinates of each node and the nodes of each element, 0-based, a line each.

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <tq4/gridweave.h>

#include "../../gridweave/core/shapes.h"
#include "support/meshes.h"

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

void check(int code, const std::string& what)
{
    if (code == 0) return;
    std::fprintf(stderr, "%s: code %d\n", what.c_str(), code);
    std::exit(1);
}

/// The quadratic mesh of a linear one, with a node in the middle of each edge. Elements do not share these nodes.
template <class Shape>
test::mesh quadratic(const test::mesh& linear, element_type kind)
{
    const unsigned corners = linear.connectivity.rows, edges = static_cast<unsigned>(Shape::edges.size());
    unsigned next = linear.pos.cols;
    test::mesh m{linear.pos, dense2D<unsigned>(corners + edges, linear.connectivity.cols), kind};
    m.pos.resize(3, next + edges * linear.connectivity.cols);
    for (unsigned element = 0; element < linear.connectivity.cols; ++element)
    {
        for (unsigned row = 0; row < corners; ++row) m.connectivity(row, element) = linear.connectivity(row, element);
        for (unsigned edge = 0; edge < edges; ++edge, ++next)
        {
            const unsigned a = m.connectivity(Shape::edges[edge].a, element), b = m.connectivity(Shape::edges[edge].b, element);
            for (unsigned row = 0; row < 3; ++row) m.pos(row, next) = (m.pos(row, a) + m.pos(row, b)) / 2;
            m.connectivity(corners + edge, element) = next;
        }
    }
    return m;
}

void write_expectation(const std::string& file, const test::mesh& m)
{
    std::FILE* const stream = std::fopen(file.c_str(), "w");
    check(stream ? 0 : -1, file);
    std::fprintf(stream, "%d %u %u\n", m.kind, m.pos.cols, m.connectivity.cols);
    for (unsigned node = 0; node < m.pos.cols; ++node)
        std::fprintf(stream, "%.17g %.17g %.17g\n", m.pos(0, node), m.pos(1, node), m.pos(2, node));
    for (unsigned element = 0; element < m.connectivity.cols; ++element)
    {
        for (unsigned row = 0; row < m.connectivity.rows; ++row)
            if (m.connectivity(row, element) != none_index) std::fprintf(stream, "%u ", m.connectivity(row, element));
        std::fprintf(stream, "\n");
    }
    check(std::fclose(stream), file);
}

void write(const std::filesystem::path& folder, const std::string& name, const test::mesh& m)
{
    const std::string stem = (folder / name).string();
    const auto file = [&stem](const char* end) { return stem + end; };
    write_expectation(file(".txt"), m);
    check(medit_output(file(".mesh").c_str(), m.pos, m.connectivity, m.kind), file(".mesh"));
    if (m.kind != ELEM_PENTA15) check(vtk_output(file(".vtk").c_str(), m.pos, m.connectivity, m.kind), file(".vtk"));
    check(ensight_output(file(".geo").c_str(), m.pos, m.connectivity, m.kind), file(".geo"));
    check(NASTRAN_output(file(".bdf").c_str(), m.pos, m.connectivity, m.kind), file(".bdf"));
    if (m.kind == ELEM_TRIA3 || m.kind == ELEM_QUAD4)
        check(WavefrontOBJ_output(file(".obj").c_str(), m.pos, m.connectivity, m.kind), file(".obj"));
    if (m.kind == ELEM_TRIA3)
    {
        check(STL_output(file(".stl").c_str(), m.pos, m.connectivity, false), file(".stl"));
        check(STL_output(file("_text.stl").c_str(), m.pos, m.connectivity, true), file("_text.stl"));
    }
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2) return 2;
    const std::filesystem::path folder = argv[1];
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);

    constexpr unsigned n = 3;
    test::mesh lines = test::polyline(n);
    lines.pos.resize(3, lines.pos.cols, 0.0);
    write(folder, "bar2", lines);
    write(folder, "tria3", test::grid_of_triangles(n, 3));
    write(folder, "quad4", test::grid_of_quadrangles(n, 3));
    write(folder, "tetra4", test::grid_of_tetrahedra(n));
    write(folder, "pyra5", test::grid_of_pyramids(n));
    write(folder, "penta6", test::grid_of_wedges(n));
    write(folder, "hexa8", test::grid_of_hexahedra(n));
    write(folder, "tria6", quadratic<triangle>(test::grid_of_triangles(n, 3), ELEM_TRIA6));
    write(folder, "quad8", quadratic<quadrangle>(test::grid_of_quadrangles(n, 3), ELEM_QUAD8));
    write(folder, "tetra10", quadratic<tetrahedron>(test::grid_of_tetrahedra(n), ELEM_TETRA10));
    write(folder, "penta15", quadratic<wedge>(test::grid_of_wedges(n), ELEM_PENTA15));
    write(folder, "hexa20", quadratic<hexahedron>(test::grid_of_hexahedra(n), ELEM_HEXA20));
    write(folder, "solid", test::mixed_solid(n));
    test::mesh surface = test::mixed_surface(n);
    if (surface.pos.rows == 2) surface.pos.resize(3, surface.pos.cols, 0.0);
    write(folder, "surface", surface);
    return 0;
}
