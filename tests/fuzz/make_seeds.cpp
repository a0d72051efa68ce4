// Writes small files of every format that is read, with the library's own writers, into the directories stl, wavefront_obj, nastran and
// femap below the one that is given.

#include <cstdio>
#include <filesystem>
#include <string>

#include <tq4/gridweave.h>

#include "support/meshes.h"

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

/// The nodes with a third coordinate.
dense2D<double> in_space(const dense2D<double>& pos)
{
    dense2D<double> raised;
    raised.copy(pos);
    raised.resize(3, pos.cols, 0.25);
    return raised;
}

/// A column of every node number from 0 up, for kinds that no grid is made of.
dense2D<unsigned> one_element(element_type kind)
{
    dense2D<unsigned> connect(nbr_nodes(kind), 1);
    for (unsigned r = 0; r < connect.rows; ++r) connect(r, 0) = r;
    return connect;
}

bool write_surfaces(const std::string& directory)
{
    bool written = true;
    for (const unsigned n : {1u, 2u})
    {
        const test::mesh grid = test::grid_of_triangles(n);
        const dense2D<double> pos = in_space(grid.pos);
        const std::string name = "/grid" + std::to_string(n);
        written &= STL_output((directory + "/stl" + name + "-text").c_str(), pos, grid.connectivity, true) == 0;
        written &= STL_output((directory + "/stl" + name + "-binary").c_str(), pos, grid.connectivity, false) == 0;

        const test::mesh squares = test::grid_of_quadrangles(n);
        const std::string obj = directory + "/wavefront_obj" + name;
        written &= WavefrontOBJ_output((obj + "-triangles").c_str(), grid.pos, grid.connectivity, ELEM_TRIA3) == 0;
        written &= WavefrontOBJ_output((obj + "-both").c_str(), pos, pos, grid.pos, grid.connectivity, squares.connectivity) == 0;
    }
    return written;
}

bool write_cards(const std::string& directory)
{
    bool written = true;
    for (const test::mesh& grid : test::all_linear_meshes(1))
    {
        const std::string name = "/grid-of-kind" + std::to_string(grid.kind);
        written &= NASTRAN_output((directory + "/nastran" + name).c_str(), grid.pos, grid.connectivity, grid.kind) == 0;
        written &= FEMAP_output((directory + "/femap" + name).c_str(), grid.pos, grid.connectivity, grid.kind) == 0;
    }
    for (const element_type kind : {ELEM_NODE, ELEM_BAR3, ELEM_TRIA6, ELEM_QUAD8, ELEM_TETRA10, ELEM_PYRA13, ELEM_PENTA15, ELEM_HEXA20})
    {
        const std::string name = "/element-of-kind" + std::to_string(kind);
        const dense2D<double> pos = test::lattice_points(3, nbr_nodes(kind), 3, 1);
        if (kind != ELEM_NODE) written &= NASTRAN_output((directory + "/nastran" + name).c_str(), pos, one_element(kind), kind) == 0;
        written &= FEMAP_output((directory + "/femap" + name).c_str(), pos, one_element(kind), kind) == 0;
    }
    const dense2D<double> pos = test::lattice_points(3, nbr_nodes(ELEM_HEXA8), 2, 1);
    const auto triangle = one_element(ELEM_TRIA3);
    const auto hexahedron = one_element(ELEM_HEXA8);
    written &= NASTRAN_output((directory + "/nastran/two-kinds").c_str(), pos, triangle, hexahedron, ELEM_TRIA3, ELEM_HEXA8) == 0;
    written &= FEMAP_output((directory + "/femap/two-kinds").c_str(), pos, triangle, hexahedron, ELEM_TRIA3, ELEM_HEXA8) == 0;
    return written;
}

/// The layouts that the library reads and does not write.
bool write_fixed_fields(const std::string& file)
{
    std::FILE* const stream = std::fopen(file.c_str(), "w");
    if (!stream) return false;
    std::fputs("$ small and large fields\n"
               "BEGIN BULK\n"
               "GRID           1              0.     1.5   2.5+1\n"
               "GRID*                  2                             1.0             0.5*\n"
               "*                  -2.-1\n"
               "CTETRA         1       1       1       2       3       4       5       6+\n"
               "+              7       8       9      10\n"
               "CQUAD4*                2               1               1               2*\n"
               "*                      3               4\n"
               "CBAR           3       7       1       2\n"
               "ENDDATA\n",
               stream);
    return std::fclose(stream) == 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 2)
    {
        std::fprintf(stderr, "usage: %s directory\n", argv[0]);
        return 2;
    }
    const std::string directory = argv[1];
    for (const char* const target : {"stl", "wavefront_obj", "nastran", "femap"})
        std::filesystem::create_directories(directory + "/" + target);
    if (!write_surfaces(directory) || !write_cards(directory) || !write_fixed_fields(directory + "/nastran/fixed-fields"))
    {
        std::fprintf(stderr, "%s: cannot write to %s\n", argv[0], argv[1]);
        return 1;
    }
    return 0;
}
