// Solids as files: NASTRAN read, and tetrahedra written in every format.

#include "files.h"
#include "harness.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <tq4/gridweave/io.h>

#if PEERS_WITH_VTK
#include <vtkCellArray.h>
#include <vtkCellType.h>
#include <vtkDoubleArray.h>
#include <vtkIdList.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkUnstructuredGrid.h>
#include <vtkUnstructuredGridReader.h>
#include <vtkUnstructuredGridWriter.h>
#endif

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

struct solid
{
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
};

/// A cube of about so many tetrahedra, 1 wide.
solid cube_of(double tetrahedra_wanted)
{
    const unsigned n = std::max(1u, static_cast<unsigned>(std::lround(std::cbrt(tetrahedra_wanted / 6))));
    const unsigned line = n + 1;
    solid cube{dense2D<double>(3, line * line * line), tetrahedra(n)};
    for (unsigned node = 0; node < cube.pos.cols; ++node)
    {
        const unsigned steps[3] = {node % line, node / line % line, node / line / line};
        for (unsigned r = 0; r < 3; ++r) cube.pos(r, node) = 1.0 * steps[r] / n;
    }
    return cube;
}

/// Tetrahedra with their nodes in ascending order: formats differ in the orientation that they want.
std::vector<unsigned> as_sets(std::vector<unsigned> tetrahedra)
{
    for (auto first = tetrahedra.begin(); first != tetrahedra.end(); first += 4) std::sort(first, first + 4);
    return tetrahedra;
}

file_content content_of(const dense2D<double>& pos, const dense2D<unsigned>& connectivity)
{
    const unsigned* const nodes = connectivity.data();
    return {pos.cols, as_sets({nodes, nodes + std::size_t{4} * connectivity.cols}),
            std::vector<double>(pos.data(), pos.data() + std::size_t{3} * pos.cols)};
}

// ---- NASTRAN read

struct reading_case
{
    const char* name;
    card_fields fields;
};

constexpr double rounding = 1e-15; // readers of numbers need not round correctly

constexpr reading_case reading_cases[] = {
    {"NASTRAN small field, read", card_fields::small},
    {"NASTRAN large field coordinates, read", card_fields::large_coordinates},
    {"NASTRAN free field, read", card_fields::free},
};

solid read_nastran(const char* file)
{
    solid read;
    element_type kind = ELEM_NONE;
    NASTRAN_input(file, read.pos, read.connectivity, kind);
    return read;
}

void read_nastran_row(table& rows, const reading_case& reading)
{
    row<file_content> r(rows, {reading.name, "tetrahedra", 0.5 * rows.chosen().items, {{0.2, ""}}, "coordinates, nodes of the tetrahedra"},
                        equal_content{rounding});
    if (!r.chosen()) return;
    const temporary_file file("gridweave_peers_read.bdf");
    {
        const solid cube = cube_of(0.5 * rows.chosen().items);
        write_cards(file.path(), cube.pos, cube.connectivity, reading.fields);
    }

    r.ours([&] { return read_nastran(file.path()); }, [](const solid& read) { return content_of(read.pos, read.connectivity); });
#if PEERS_WITH_GMSH
    r.peer(
        "Gmsh", [&] { return std::make_unique<gmsh_model>(file.path()); },
        [](const std::unique_ptr<gmsh_model>& model) {
            file_content in = model->content(gmsh_model::tetrahedron);
            in.cells = as_sets(std::move(in.cells));
            return in;
        });
#endif
    r.run();
}

// ---- Writing

#if PEERS_WITH_VTK
vtkSmartPointer<vtkUnstructuredGrid> vtk_solid(const solid& cube)
{
    const auto grid = vtkSmartPointer<vtkUnstructuredGrid>::New();
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    for (unsigned k = 0; k < cube.pos.cols; ++k) points->InsertNextPoint(cube.pos.column(k));
    vtkNew<vtkCellArray> cells;
    for (unsigned c = 0; c < cube.connectivity.cols; ++c)
    {
        const unsigned* const n = cube.connectivity.column(c);
        cells->InsertNextCell({n[0], n[1], n[2], n[3]});
    }
    grid->SetPoints(points);
    grid->SetCells(VTK_TETRA, cells);
    return grid;
}

temporary_file vtk_write(vtkUnstructuredGrid* grid)
{
    temporary_file file("gridweave_peers_written.vtk");
    vtkNew<vtkUnstructuredGridWriter> writer;
    writer->SetFileName(file.path());
    writer->SetInputData(grid);
    writer->SetFileTypeToASCII();
    writer->Write();
    return file;
}
#endif

/// Reads a legacy file with VTK; nothing is known without it.
file_content reread_vtk([[maybe_unused]] const temporary_file& file)
{
    file_content in;
#if PEERS_WITH_VTK
    vtkNew<vtkUnstructuredGridReader> reader;
    reader->SetFileName(file.path());
    reader->Update();
    vtkUnstructuredGrid* const grid = reader->GetOutput();
    in.nodes = static_cast<std::size_t>(grid->GetNumberOfPoints());
    for (vtkIdType k = 0; k < grid->GetNumberOfPoints(); ++k)
        for (int r = 0; r < 3; ++r) in.coordinates.push_back(grid->GetPoint(k)[r]);
    vtkNew<vtkIdList> nodes;
    for (vtkIdType c = 0; c < grid->GetNumberOfCells(); ++c)
    {
        grid->GetCellPoints(c, nodes);
        for (const vtkIdType node : *nodes) in.cells.push_back(static_cast<unsigned>(node));
    }
    in.cells = as_sets(std::move(in.cells));
#endif
    return in;
}

/// Reads a MEDIT file with Gmsh; nothing is known without it.
file_content reread_medit([[maybe_unused]] const temporary_file& file)
{
    file_content in;
#if PEERS_WITH_GMSH
    in = gmsh_model(file.path()).content(gmsh_model::tetrahedron);
    in.cells = as_sets(std::move(in.cells));
#endif
    return in;
}

file_content reread_nastran(const temporary_file& file)
{
    const solid read = read_nastran(file.path());
    return content_of(read.pos, read.connectivity);
}

/// A format that we write. Where no package of Debian writes it as text, the formats that they do write are the yardstick.
struct writing_case
{
    const char* name;
    const char* file;
    int (*write)(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind);
    file_content (*reread)(const temporary_file& file);
    bool vtk_writes_it;
    const char* gmsh_file; ///< the name that makes Gmsh write it; null where it does not
    const char* compared;
};

constexpr const char* medit_file = "gridweave_peers_written.mesh";
constexpr const char* nastran_file = "gridweave_peers_written.bdf";
constexpr double digits_written = 1e-4; ///< small fields hold five

constexpr writing_case writing_cases[] = {
    {"legacy VTK text, write", "gridweave_peers_written.vtk", vtk_output, reread_vtk, true, nullptr, "the file read back by VTK"},
    {"MEDIT, write", medit_file, medit_output, reread_medit, false, medit_file, "the file read back by Gmsh"},
    {"NASTRAN, write", nastran_file, NASTRAN_output, reread_nastran, false, nastran_file, "the file read back"},
    {"FEMAP, write", "gridweave_peers_written.neu", FEMAP_output, nullptr, false, nullptr, "nothing: other formats, same mesh"},
    {"EnSight, write", "gridweave_peers_written.geo", ensight_output, nullptr, false, nullptr, "nothing: other formats, same mesh"},
};

void write_row(table& rows, const writing_case& format)
{
    row<file_content> r(rows, {format.name, "tetrahedra", 0.5 * rows.chosen().items, {{0.25, ""}}, format.compared},
                        equal_content{digits_written});
    if (!r.chosen()) return;
    const solid cube = cube_of(0.5 * rows.chosen().items);
    const auto reread = [&](const temporary_file& file) { return format.reread ? format.reread(file) : file_content(); };
    [[maybe_unused]] const bool yardstick = !format.reread;

    r.ours(
        [&] {
            temporary_file file(format.file);
            format.write(file.path(), cube.pos, cube.connectivity, ELEM_TETRA4);
            return file;
        },
        reread);
#if PEERS_WITH_VTK
    vtkSmartPointer<vtkUnstructuredGrid> vtk;
    if (format.vtk_writes_it || yardstick)
    {
        vtk = vtk_solid(cube);
        r.peer(
            yardstick ? "VTK's legacy text" : "VTK", [&] { return vtk_write(vtk); }, reread);
    }
#endif
#if PEERS_WITH_GMSH
    const gmsh_model gmsh(cube.pos, cube.connectivity, gmsh_model::tetrahedron);
    if (format.gmsh_file || yardstick)
        r.peer(
            yardstick ? "Gmsh's MEDIT" : "Gmsh",
            [&] {
                temporary_file file(format.gmsh_file ? format.gmsh_file : medit_file);
                gmsh.write(file.path(), false);
                return file;
            },
            reread);
#endif
    r.run();
}

} // namespace

void volume_file_rows(table& rows)
{
    for (const reading_case& reading : reading_cases) read_nastran_row(rows, reading);
    for (const writing_case& format : writing_cases) write_row(rows, format);
}

} // namespace bench
