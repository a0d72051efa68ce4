// Surfaces as files: STL read and written, Wavefront OBJ read and written.

#include "files.h"
#include "harness.h"

#include <cmath>
#include <memory>

#include <tq4/gridweave/io.h>

#if PEERS_WITH_VTK
#include <vtkCellArray.h>
#include <vtkDoubleArray.h>
#include <vtkIdTypeArray.h>
#include <vtkNew.h>
#include <vtkOBJReader.h>
#include <vtkOBJWriter.h>
#include <vtkPointData.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkSTLReader.h>
#include <vtkSTLWriter.h>
#include <vtkSmartPointer.h>
#endif

#if PEERS_WITH_ASSIMP
#include <assimp/Exporter.hpp>
#include <assimp/Importer.hpp>
#include <assimp/config.h>
#include <assimp/mesh.h>
#include <assimp/postprocess.h>
#include <assimp/scene.h>
#endif

#if PEERS_WITH_ADMESH
#include <admesh/stl.h>
#endif

#if PEERS_WITH_TINYOBJ
#include <tiny_obj_loader.h>
#endif

#if PEERS_WITH_OPENMESH
#include <OpenMesh/Core/IO/MeshIO.hh>

#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#endif

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// A sheet of about so many triangles.
surface sheet_of(double triangles_wanted)
{
    return wavy_sheet(std::max(1u, static_cast<unsigned>(std::lround(std::sqrt(triangles_wanted / 2)))));
}

/// What our calls read.
struct our_surface
{
    dense2D<double> pos;
    dense2D<unsigned> connect;
};

file_content content_of(const our_surface& read)
{
    return {read.pos.cols, {}, corners(read.pos.data(), read.connect.data(), std::size_t{3} * read.connect.cols)};
}

// ---- What the packages read, as corners.

#if PEERS_WITH_VTK
template <class Reader>
vtkSmartPointer<Reader> vtk_read(const char* file)
{
    const auto reader = vtkSmartPointer<Reader>::New();
    reader->SetFileName(file);
    reader->Update();
    return reader;
}

template <class Reader>
file_content vtk_content(const vtkSmartPointer<Reader>& reader)
{
    vtkPolyData* const read = reader->GetOutput();
    file_content in;
    in.nodes = static_cast<std::size_t>(read->GetNumberOfPoints());
    vtkNew<vtkIdList> nodes;
    for (vtkIdType c = 0; c < read->GetPolys()->GetNumberOfCells(); ++c)
    {
        read->GetPolys()->GetCellAtId(c, nodes);
        for (const vtkIdType node : *nodes)
            for (int r = 0; r < 3; ++r) in.coordinates.push_back(read->GetPoint(node)[r]);
    }
    return in;
}

/// A surface in VTK's containers.
vtkSmartPointer<vtkPolyData> vtk_surface(const surface& sheet)
{
    const auto data = vtkSmartPointer<vtkPolyData>::New();
    vtkNew<vtkPoints> points;
    points->SetDataTypeToDouble();
    for (unsigned k = 0; k < sheet.pos.cols; ++k) points->InsertNextPoint(sheet.pos.column(k));
    vtkNew<vtkCellArray> cells;
    for (unsigned c = 0; c < sheet.connect.cols; ++c)
        cells->InsertNextCell({sheet.connect(0, c), sheet.connect(1, c), sheet.connect(2, c)});
    data->SetPoints(points);
    data->SetPolys(cells);
    return data;
}
#endif

#if PEERS_WITH_ASSIMP
/// Welded by coordinates alone: with the normals of the facets kept, no two corners would be equal.
std::unique_ptr<Assimp::Importer> assimp_read(const char* file, bool with_normals)
{
    auto importer = std::make_unique<Assimp::Importer>();
    importer->SetPropertyInteger(AI_CONFIG_PP_RVC_FLAGS, aiComponent_NORMALS);
    importer->ReadFile(file, aiProcess_JoinIdenticalVertices | (with_normals ? 0u : unsigned{aiProcess_RemoveComponent}));
    return importer;
}

file_content assimp_content(const std::unique_ptr<Assimp::Importer>& importer)
{
    file_content in;
    const aiScene* const scene = importer->GetScene();
    if (!scene || scene->mNumMeshes != 1) return in;
    const aiMesh& mesh = *scene->mMeshes[0];
    in.nodes = mesh.mNumVertices;
    for (unsigned f = 0; f < mesh.mNumFaces; ++f)
        for (unsigned k = 0; k < mesh.mFaces[f].mNumIndices; ++k)
        {
            const aiVector3D& x = mesh.mVertices[mesh.mFaces[f].mIndices[k]];
            for (const float part : {x.x, x.y, x.z}) in.coordinates.push_back(static_cast<double>(part));
        }
    return in;
}
#endif

#if PEERS_WITH_OPENMESH
using open_mesh = OpenMesh::TriMesh_ArrayKernelT<>;

std::unique_ptr<open_mesh> openmesh_read(const char* file)
{
    auto mesh = std::make_unique<open_mesh>();
    OpenMesh::IO::read_mesh(*mesh, file);
    return mesh;
}

file_content openmesh_content(const std::unique_ptr<open_mesh>& mesh)
{
    file_content in;
    in.nodes = mesh->n_vertices();
    for (const auto face : mesh->faces())
        for (const auto node : mesh->fv_range(face))
            for (unsigned r = 0; r < 3; ++r) in.coordinates.push_back(static_cast<double>(mesh->point(node)[r]));
    return in;
}
#endif

#if PEERS_WITH_ADMESH
struct admesh_close
{
    void operator()(stl_file* stl) const
    {
        stl_close(stl);
        delete stl;
    }
};
using admesh_file = std::unique_ptr<stl_file, admesh_close>;

admesh_file admesh_read(const char* file)
{
    admesh_file stl(new stl_file{});
    std::string name(file);
    stl_open(stl.get(), name.data());
    return stl;
}

admesh_file admesh_read_and_weld(const char* file)
{
    admesh_file stl = admesh_read(file);
    stl_check_facets_exact(stl.get());
    stl_generate_shared_vertices(stl.get());
    return stl;
}

file_content admesh_content(const admesh_file& stl)
{
    return {static_cast<std::size_t>(stl->stats.shared_vertices),
            {},
            corners(&stl->v_shared->x, &stl->v_indices->vertex[0], 3 * static_cast<std::size_t>(stl->stats.number_of_facets))};
}
#endif

// ---- The rows. Files hold seven significant digits of numbers up to 100, and most readers keep floats.

constexpr double rounding = 2e-5;
constexpr double digits_written = 1e-3; // some write six digits

void read_stl_row(table& rows, bool text)
{
    row<file_content> r(rows,
                        {text ? "STL text, read and weld" : "STL binary, read and weld",
                         "triangles",
                         rows.chosen().items,
                         {{text ? 0.5 : 0.9, ""}},
                         "number of nodes, corners of the triangles"},
                        equal_content{rounding});
    if (!r.chosen()) return;
    const temporary_file file("gridweave_peers_read.stl");
    {
        const surface sheet = sheet_of(rows.chosen().items);
        STL_output(file.path(), sheet.pos, sheet.connect, text);
    }

    r.ours(
        [&] {
            our_surface read;
            STL_input(file.path(), read.pos, read.connect);
            return read;
        },
        content_of);
#if PEERS_WITH_ASSIMP
    r.peer(
        "Assimp", [&] { return assimp_read(file.path(), false); }, assimp_content);
#endif
#if PEERS_WITH_VTK
    r.peer(
        "VTK", [&] { return vtk_read<vtkSTLReader>(file.path()); }, vtk_content<vtkSTLReader>);
#endif
#if PEERS_WITH_ADMESH
    r.peer(
        "ADMesh", [&] { return admesh_read_and_weld(file.path()); }, admesh_content);
#endif
#if PEERS_WITH_OPENMESH
    r.peer(
        "OpenMesh", [&] { return openmesh_read(file.path()); }, openmesh_content);
#endif
    r.run();
}

/// What stands in a file that was written.
file_content reread_stl(const temporary_file& file)
{
    our_surface read;
    STL_input(file.path(), read.pos, read.connect);
    return content_of(read);
}

file_content reread_obj(const temporary_file& file)
{
    our_surface read;
    dense2D<double> normals, texcoords;
    dense2D<unsigned> quadrangles;
    WavefrontOBJ_input(file.path(), read.pos, normals, texcoords, read.connect, quadrangles);
    return content_of(read);
}

constexpr const char* written_stl = "gridweave_peers_written.stl";
constexpr const char* written_obj = "gridweave_peers_written.obj";

void write_stl_row(table& rows, bool text)
{
    row<file_content> r(rows,
                        {text ? "STL text, write" : "STL binary, write",
                         "triangles",
                         rows.chosen().items,
                         {{text ? 0.4 : 0.5, ""}},
                         "the file read back, to its digits"},
                        equal_content{digits_written});
    if (!r.chosen()) return;
    const surface sheet = sheet_of(rows.chosen().items);

    r.ours(
        [&] {
            temporary_file file(written_stl);
            STL_output(file.path(), sheet.pos, sheet.connect, text);
            return file;
        },
        reread_stl);
#if PEERS_WITH_ADMESH
    admesh_file admesh;
    {
        const temporary_file file("gridweave_peers_given.stl");
        STL_output(file.path(), sheet.pos, sheet.connect, false);
        admesh = admesh_read(file.path());
    }
    r.peer(
        "ADMesh",
        [&] {
            temporary_file file(written_stl);
            (text ? stl_write_ascii : stl_write_binary)(admesh.get(), file.path(), "sheet");
            return file;
        },
        reread_stl);
#endif
#if PEERS_WITH_VTK
    const vtkSmartPointer<vtkPolyData> vtk = vtk_surface(sheet);
    r.peer(
        "VTK",
        [&] {
            temporary_file file(written_stl);
            vtkNew<vtkSTLWriter> writer;
            writer->SetFileName(file.path());
            writer->SetInputData(vtk);
            text ? writer->SetFileTypeToASCII() : writer->SetFileTypeToBinary();
            writer->Write();
            return file;
        },
        reread_stl);
#endif
#if PEERS_WITH_GMSH
    const gmsh_model gmsh(sheet.pos, sheet.connect, gmsh_model::triangle);
    r.peer(
        "Gmsh",
        [&] {
            temporary_file file(written_stl);
            gmsh.write(file.path(), !text);
            return file;
        },
        reread_stl);
#endif
    r.run();
}

void read_obj_row(table& rows, bool with_normals)
{
    row<file_content> r(rows,
                        {with_normals ? "OBJ with normals, read" : "OBJ, read",
                         "triangles",
                         0.5 * rows.chosen().items,
                         {{0.3, ""}},
                         "number of nodes, corners of the triangles"},
                        equal_content{rounding});
    if (!r.chosen()) return;
    const temporary_file file("gridweave_peers_read.obj");
    write_obj(file.path(), sheet_of(0.5 * rows.chosen().items), with_normals);

    struct our_object
    {
        our_surface surface;
        dense2D<double> normals, texcoords;
        dense2D<unsigned> quadrangles;
    };
    r.ours(
        [&] {
            our_object read;
            WavefrontOBJ_input(file.path(), read.surface.pos, read.normals, read.texcoords, read.surface.connect, read.quadrangles);
            return read;
        },
        [](const our_object& read) { return content_of(read.surface); });
#if PEERS_WITH_TINYOBJ
    struct tiny_object
    {
        tinyobj::attrib_t attributes;
        std::vector<tinyobj::shape_t> shapes;
    };
    r.peer(
        "tinyobjloader",
        [&] {
            tiny_object read;
            std::vector<tinyobj::material_t> materials;
            std::string warning, error;
            tinyobj::LoadObj(&read.attributes, &read.shapes, &materials, &warning, &error, file.path(), nullptr, false);
            return read;
        },
        [](const tiny_object& read) {
            std::vector<int> nodes;
            for (const tinyobj::shape_t& shape : read.shapes)
                for (const tinyobj::index_t& corner : shape.mesh.indices) nodes.push_back(corner.vertex_index);
            return file_content{
                read.attributes.vertices.size() / 3, {}, corners(read.attributes.vertices.data(), nodes.data(), nodes.size())};
        });
#endif
#if PEERS_WITH_VTK
    r.peer(
        "VTK", [&] { return vtk_read<vtkOBJReader>(file.path()); }, vtk_content<vtkOBJReader>);
#endif
#if PEERS_WITH_ASSIMP
    r.peer(
        "Assimp", [&] { return assimp_read(file.path(), true); }, assimp_content);
#endif
#if PEERS_WITH_OPENMESH
    r.peer(
        "OpenMesh", [&] { return openmesh_read(file.path()); }, openmesh_content);
#endif
    r.run();
}

void write_obj_row(table& rows)
{
    row<file_content> r(rows, {"OBJ, write", "triangles", 0.5 * rows.chosen().items, {{0.25, ""}}, "the file read back, to its digits"},
                        equal_content{digits_written});
    if (!r.chosen()) return;
    const surface sheet = sheet_of(0.5 * rows.chosen().items);

    r.ours(
        [&] {
            temporary_file file(written_obj);
            WavefrontOBJ_output(file.path(), sheet.pos, sheet.connect, ELEM_TRIA3);
            return file;
        },
        reread_obj);
#if PEERS_WITH_VTK
    const vtkSmartPointer<vtkPolyData> vtk = vtk_surface(sheet);
    r.peer(
        "VTK",
        [&] {
            temporary_file file(written_obj);
            vtkNew<vtkOBJWriter> writer;
            writer->SetFileName(file.path());
            writer->SetInputData(vtk);
            writer->Write();
            return file;
        },
        reread_obj);
#endif
#if PEERS_WITH_ASSIMP
    std::unique_ptr<Assimp::Importer> assimp;
    {
        const temporary_file file("gridweave_peers_given.stl");
        STL_output(file.path(), sheet.pos, sheet.connect, false);
        assimp = assimp_read(file.path(), false);
    }
    r.peer(
        "Assimp",
        [&] {
            temporary_file file(written_obj);
            Assimp::Exporter().Export(assimp->GetScene(), "objnomtl", file.path());
            return file;
        },
        reread_obj);
#endif
    r.run();
}

} // namespace

void surface_file_rows(table& rows)
{
    for (const bool text : {true, false}) read_stl_row(rows, text);
    for (const bool text : {true, false}) write_stl_row(rows, text);
    for (const bool with_normals : {false, true}) read_obj_row(rows, with_normals);
    write_obj_row(rows);
}

} // namespace bench
