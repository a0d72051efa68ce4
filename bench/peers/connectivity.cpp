// Connectivity: neighbours, distinct edges, node graph, node-to-element lists, connected components.

#include "harness.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>

#include <tq4/gridweave/connectivity.h>

#include "bench/meshes.h"

#if PEERS_WITH_VTK
#include <vtkCellArray.h>
#include <vtkCellLinks.h>
#include <vtkCellType.h>
#include <vtkExtractEdges.h>
#include <vtkHexahedron.h>
#include <vtkIdList.h>
#include <vtkIdTypeArray.h>
#include <vtkNew.h>
#include <vtkPoints.h>
#include <vtkPolyData.h>
#include <vtkStaticCellLinks.h>
#include <vtkStaticCellLinksTemplate.h>
#include <vtkStaticEdgeLocatorTemplate.h>
#include <vtkTetra.h>
#include <vtkUnstructuredGrid.h>
#endif

#if PEERS_WITH_METIS
#include <metis.h>
#endif

#if PEERS_WITH_CGAL
#include <CGAL/Simple_cartesian.h>
#include <CGAL/Surface_mesh.h>
#endif

#if PEERS_WITH_OPENMESH
#include <OpenMesh/Core/Mesh/TriMesh_ArrayKernelT.hh>
#endif

#if PEERS_WITH_BOOST
#include <boost/pending/disjoint_sets.hpp>
#endif

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

/// A mesh and what is asked of the rows about it.
struct mesh_case
{
    const char* name;
    element_type kind;
    double share; ///< elements per item asked for
    bool random_numbers;
    double neighbours_to_vtk; ///< required ratio
};

constexpr mesh_case cases[] = {
    {"triangles", ELEM_TRIA3, 1, false, 0.7},
    {"triangles numbered at random", ELEM_TRIA3, 1, true, 0.7},
    {"tetrahedra", ELEM_TETRA4, 1, false, 0.1},
    {"hexahedra", ELEM_HEXA8, 0.3, false, 0.2},
};

/// The grid with its nodes and elements in order.
dense2D<unsigned> make_grid(const mesh_case& mesh, double items)
{
    const double elements = mesh.share * items;
    const auto per_axis = [](double cells) { return std::max(1u, static_cast<unsigned>(std::lround(cells))); };
    if (mesh.kind == ELEM_TRIA3) return triangles(per_axis(std::sqrt(elements / 2)));
    if (mesh.kind == ELEM_TETRA4) return tetrahedra(per_axis(std::cbrt(elements / 6)));
    return hexahedra(per_axis(std::cbrt(elements)));
}

dense2D<unsigned> make_mesh(const mesh_case& mesh, double items)
{
    const dense2D<unsigned> grid = make_grid(mesh, items);
    return mesh.random_numbers ? shuffled(grid) : grid;
}

/// The mesh cut in two parts that share no node: elements of the second half get nodes of their own.
dense2D<unsigned> make_mesh_in_two_parts(const mesh_case& mesh, double items)
{
    dense2D<unsigned> grid = make_grid(mesh, items);
    const unsigned nodes = max_ID(grid) + 1;
    for (unsigned c = grid.cols / 2; c < grid.cols; ++c)
        for (unsigned r = 0; r < grid.rows; ++r) grid(r, c) += nodes;
    return mesh.random_numbers ? shuffled(grid) : grid;
}

/// Lists of numbers, one behind the other, each with its length before it and in ascending order: lists as sets.
using lists = std::vector<unsigned>;

template <class Numbers>
void append_sorted(lists& all, const Numbers& numbers, std::size_t count)
{
    const auto start = static_cast<std::ptrdiff_t>(all.size()) + 1;
    all.push_back(static_cast<unsigned>(count));
    for (std::size_t k = 0; k < count; ++k) all.push_back(static_cast<unsigned>(numbers[k]));
    std::sort(all.begin() + start, all.end());
}

/// Lists in the compressed form.
template <class Index>
lists sorted_lists(const Index* starts, const Index* numbers, std::size_t count)
{
    lists all;
    for (std::size_t k = 0; k < count; ++k)
        append_sorted(all, numbers + starts[k], static_cast<std::size_t>(starts[k + 1]) - static_cast<std::size_t>(starts[k]));
    return all;
}

/// The elements in each column of a matrix of neighbours, in which `none` stands for no element.
template <class Index>
lists sorted_columns(const Index* matrix, unsigned rows, unsigned cols, Index none)
{
    lists all;
    std::vector<Index> column;
    for (unsigned c = 0; c < cols; ++c)
    {
        column.clear();
        for (unsigned r = 0; r < rows; ++r)
            if (const Index element = matrix[std::size_t{c} * rows + r]; element != none) column.push_back(element);
        append_sorted(all, column, column.size());
    }
    return all;
}

/// Edges as sorted numbers.
class edge_set
{
public:
    void add(std::uint64_t a, std::uint64_t b) { edges_.push_back(std::min(a, b) << 32 | std::max(a, b)); }

    std::vector<std::uint64_t> sorted()
    {
        std::sort(edges_.begin(), edges_.end());
        return std::move(edges_);
    }

private:
    std::vector<std::uint64_t> edges_;
};

// ---- The packages' own forms of a mesh.

#if PEERS_WITH_VTK
/// Cells with VTK's numbers; nodes are where they may.
struct vtk_mesh
{
    vtkNew<vtkCellArray> cells;
    vtkNew<vtkPoints> points;
    int type;

    vtk_mesh(const dense2D<unsigned>& connectivity, element_type kind)
        : type(kind == ELEM_TRIA3    ? VTK_TRIANGLE
               : kind == ELEM_TETRA4 ? VTK_TETRA
                                     : VTK_HEXAHEDRON)
    {
        vtkNew<vtkIdTypeArray> offsets, nodes;
        offsets->SetNumberOfValues(connectivity.cols + 1);
        nodes->SetNumberOfValues(vtkIdType{connectivity.cols} * connectivity.rows);
        for (vtkIdType c = 0; c <= connectivity.cols; ++c) offsets->SetValue(c, c * connectivity.rows);
        for (vtkIdType k = 0; k < nodes->GetNumberOfValues(); ++k) nodes->SetValue(k, connectivity.data()[k]);
        cells->SetData(offsets, nodes);
        points->SetNumberOfPoints(max_ID(connectivity) + 1);
        for (vtkIdType k = 0; k < points->GetNumberOfPoints(); ++k) points->SetPoint(k, 0, 0, 0);
    }

    vtkIdType nodes_per_cell() const { return type == VTK_TRIANGLE ? 3 : type == VTK_TETRA ? 4 : 8; }
    vtkIdType sides_per_cell() const { return type == VTK_TRIANGLE ? 3 : type == VTK_TETRA ? 4 : 6; }
    vtkIdType edges_per_cell() const { return type == VTK_TRIANGLE ? 3 : type == VTK_TETRA ? 6 : 12; }

    const vtkIdType* face(vtkIdType k) const { return type == VTK_TETRA ? vtkTetra::GetFaceArray(k) : vtkHexahedron::GetFaceArray(k); }
    const vtkIdType* edge(vtkIdType k) const
    {
        static constexpr vtkIdType of_triangle[3][2] = {{0, 1}, {1, 2}, {2, 0}};
        return type == VTK_TRIANGLE ? of_triangle[k] : type == VTK_TETRA ? vtkTetra::GetEdgeArray(k) : vtkHexahedron::GetEdgeArray(k);
    }
    const vtkIdType* nodes_of(vtkIdType cell) const
    {
        return static_cast<vtkIdTypeArray*>(cells->GetConnectivityArray())->GetPointer(cell * nodes_per_cell());
    }
};

constexpr vtkIdType no_cell = -1;

/// Neighbours by the sides of every cell, asked for one by one: VTK has no call that makes them all.
std::vector<vtkIdType> vtk_neighbours(const vtk_mesh& mesh)
{
    const vtkIdType cells = mesh.cells->GetNumberOfCells();
    std::vector<vtkIdType> neighbours;
    neighbours.reserve(static_cast<std::size_t>(cells * mesh.sides_per_cell()));
    vtkNew<vtkIdList> found;
    const auto take = [&] { neighbours.push_back(found->GetNumberOfIds() == 1 ? found->GetId(0) : no_cell); };
    if (mesh.type == VTK_TRIANGLE)
    {
        vtkNew<vtkPolyData> surface;
        surface->SetPoints(mesh.points);
        surface->SetPolys(mesh.cells);
        surface->BuildLinks();
        for (vtkIdType c = 0; c < cells; ++c)
            for (vtkIdType k = 0; k < 3; ++k)
            {
                const vtkIdType* const nodes = mesh.nodes_of(c);
                surface->GetCellEdgeNeighbors(c, nodes[k], nodes[(k + 1) % 3], found);
                take();
            }
        return neighbours;
    }
    vtkNew<vtkUnstructuredGrid> solid;
    solid->SetPoints(mesh.points);
    solid->SetCells(mesh.type, mesh.cells);
    solid->BuildLinks();
    const int corners = mesh.type == VTK_TETRA ? 3 : 4;
    for (vtkIdType c = 0; c < cells; ++c)
        for (vtkIdType k = 0; k < mesh.sides_per_cell(); ++k)
        {
            vtkIdType side[4];
            for (int corner = 0; corner < corners; ++corner) side[corner] = mesh.nodes_of(c)[mesh.face(k)[corner]];
            solid->GetCellNeighbors(c, corners, side, found);
            take();
        }
    return neighbours;
}
#endif

#if PEERS_WITH_METIS
/// METIS's form of a mesh.
struct metis_mesh
{
    std::vector<idx_t> starts, nodes;
    idx_t elements, node_count;

    explicit metis_mesh(const dense2D<unsigned>& connectivity)
        : starts(connectivity.cols + 1),
          nodes(connectivity.data(), connectivity.data() + std::size_t{connectivity.rows} * connectivity.cols),
          elements(static_cast<idx_t>(connectivity.cols)),
          node_count(static_cast<idx_t>(max_ID(connectivity) + 1))
    {
        for (std::size_t k = 0; k < starts.size(); ++k) starts[k] = static_cast<idx_t>(k * connectivity.rows);
    }
};

/// A graph that METIS gave.
struct metis_graph
{
    struct metis_free
    {
        void operator()(idx_t* list) const { METIS_Free(list); }
    };
    std::unique_ptr<idx_t, metis_free> starts, list;

    void take(idx_t* new_starts, idx_t* new_list)
    {
        starts.reset(new_starts);
        list.reset(new_list);
    }
};

metis_graph metis_dual(metis_mesh& mesh, idx_t common_nodes)
{
    metis_graph graph;
    idx_t base = 0, *starts = nullptr, *list = nullptr;
    METIS_MeshToDual(&mesh.elements, &mesh.node_count, mesh.starts.data(), mesh.nodes.data(), &common_nodes, &base, &starts, &list);
    graph.take(starts, list);
    return graph;
}

metis_graph metis_nodal(metis_mesh& mesh)
{
    metis_graph graph;
    idx_t base = 0, *starts = nullptr, *list = nullptr;
    METIS_MeshToNodal(&mesh.elements, &mesh.node_count, mesh.starts.data(), mesh.nodes.data(), &base, &starts, &list);
    graph.take(starts, list);
    return graph;
}
#endif

#if PEERS_WITH_CGAL
using cgal_mesh = CGAL::Surface_mesh<CGAL::Simple_cartesian<double>::Point_3>;

std::unique_ptr<cgal_mesh> cgal_surface(const dense2D<unsigned>& connectivity)
{
    auto mesh = std::make_unique<cgal_mesh>();
    const unsigned nodes = max_ID(connectivity) + 1;
    mesh->reserve(nodes, nodes + connectivity.cols, connectivity.cols);
    for (unsigned k = 0; k < nodes; ++k) mesh->add_vertex();
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const v = connectivity.column(c);
        mesh->add_face(cgal_mesh::Vertex_index(v[0]), cgal_mesh::Vertex_index(v[1]), cgal_mesh::Vertex_index(v[2]));
    }
    return mesh;
}
#endif

#if PEERS_WITH_OPENMESH
using open_mesh = OpenMesh::TriMesh_ArrayKernelT<>;

std::unique_ptr<open_mesh> openmesh_surface(const dense2D<unsigned>& connectivity)
{
    auto mesh = std::make_unique<open_mesh>();
    const unsigned nodes = max_ID(connectivity) + 1;
    mesh->reserve(nodes, nodes + connectivity.cols, connectivity.cols);
    for (unsigned k = 0; k < nodes; ++k) mesh->add_vertex(open_mesh::Point(0, 0, 0));
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const v = connectivity.column(c);
        mesh->add_face(open_mesh::VertexHandle(static_cast<int>(v[0])), open_mesh::VertexHandle(static_cast<int>(v[1])),
                       open_mesh::VertexHandle(static_cast<int>(v[2])));
    }
    return mesh;
}
#endif

// ---- The rows.

void neighbours_row(table& rows, const mesh_case& mesh)
{
    const std::string name = std::string("neighbours, ") + mesh.name;
    row<lists> r(rows,
                 {name, "elements", mesh.share * rows.chosen().items, {{0.9, "METIS"}, {mesh.neighbours_to_vtk, "VTK"}}, "neighbours"});
    if (!r.chosen()) return;
    const dense2D<unsigned> connectivity = make_mesh(mesh, rows.chosen().items);

    r.ours(
        [&] {
            dense2D<unsigned> neighbors;
            get_neighbors(connectivity, mesh.kind, false, neighbors);
            return neighbors;
        },
        [](const dense2D<unsigned>& m) { return sorted_columns(m.data(), m.rows, m.cols, none_index); });
#if PEERS_WITH_METIS
    metis_mesh metis(connectivity);
    const idx_t common = mesh.kind == ELEM_TRIA3 ? 2 : mesh.kind == ELEM_TETRA4 ? 3 : 4;
    r.peer(
        "METIS", [&] { return metis_dual(metis, common); },
        [&](const metis_graph& dual) { return sorted_lists(dual.starts.get(), dual.list.get(), connectivity.cols); });
#endif
#if PEERS_WITH_VTK
    const vtk_mesh vtk(connectivity, mesh.kind);
    r.peer(
        "VTK", [&] { return vtk_neighbours(vtk); },
        [&](const std::vector<vtkIdType>& neighbours) {
            return sorted_columns(neighbours.data(), static_cast<unsigned>(vtk.sides_per_cell()), connectivity.cols, no_cell);
        });
#endif
    if (mesh.kind != ELEM_TRIA3) return r.run();
#if PEERS_WITH_CGAL
    r.peer(
        "CGAL", [&] { return cgal_surface(connectivity); },
        [&](const std::unique_ptr<cgal_mesh>& surface) {
            lists all;
            for (const auto face : surface->faces())
            {
                std::vector<unsigned> others;
                for (const auto side : surface->halfedges_around_face(surface->halfedge(face)))
                    if (const auto other = surface->face(surface->opposite(side)); other != cgal_mesh::null_face()) others.push_back(other);
                append_sorted(all, others, others.size());
            }
            return all;
        });
#endif
#if PEERS_WITH_OPENMESH
    r.peer(
        "OpenMesh", [&] { return openmesh_surface(connectivity); },
        [&](const std::unique_ptr<open_mesh>& surface) {
            lists all;
            for (const auto face : surface->faces())
            {
                std::vector<int> others;
                for (const auto side : face.halfedges())
                    if (const auto other = side.opp().face(); other.is_valid()) others.push_back(other.idx());
                append_sorted(all, others, others.size());
            }
            return all;
        });
#endif
    r.run();
}

void edges_row(table& rows, const mesh_case& mesh)
{
    row<std::vector<std::uint64_t>> r(
        rows, {std::string("distinct edges, ") + mesh.name, "elements", mesh.share * rows.chosen().items, {{0.25, ""}}, "edges"});
    if (!r.chosen()) return;
    const dense2D<unsigned> connectivity = make_mesh(mesh, rows.chosen().items);

    r.ours(
        [&] {
            dense2D<unsigned> edges;
            copy_edges(connectivity, mesh.kind, edges);
            return edges;
        },
        [](const dense2D<unsigned>& edges) {
            edge_set set;
            for (unsigned c = 0; c < edges.cols; ++c) set.add(edges(0, c), edges(1, c));
            return set.sorted();
        });
#if PEERS_WITH_VTK
    const vtk_mesh vtk(connectivity, mesh.kind);
    using locator = vtkStaticEdgeLocatorTemplate<int, int>;
    struct merged_edges
    {
        std::vector<locator::EdgeTupleType> tuples;
        std::vector<int> starts;
    };
    r.peer(
        "VTK edge locator",
        [&] {
            const vtkIdType cells = vtk.cells->GetNumberOfCells();
            merged_edges edges;
            edges.tuples.reserve(static_cast<std::size_t>(cells * vtk.edges_per_cell()));
            for (vtkIdType c = 0; c < cells; ++c)
                for (vtkIdType k = 0; k < vtk.edges_per_cell(); ++k)
                {
                    const vtkIdType* const nodes = vtk.nodes_of(c);
                    edges.tuples.emplace_back(static_cast<int>(nodes[vtk.edge(k)[0]]), static_cast<int>(nodes[vtk.edge(k)[1]]), 0);
                }
            vtkIdType count = 0;
            locator merger;
            const int* const starts = merger.MergeEdges(static_cast<vtkIdType>(edges.tuples.size()), edges.tuples.data(), count);
            edges.starts.assign(starts, starts + count);
            return edges;
        },
        [](const merged_edges& edges) {
            edge_set set;
            for (const int start : edges.starts)
            {
                const auto& edge = edges.tuples[static_cast<std::size_t>(start)];
                set.add(static_cast<unsigned>(edge.V0), static_cast<unsigned>(edge.V1));
            }
            return set.sorted();
        });
    r.peer(
        "VTK filter",
        [&] {
            const auto extract = vtkSmartPointer<vtkExtractEdges>::New();
            vtkNew<vtkUnstructuredGrid> grid;
            grid->SetPoints(vtk.points);
            grid->SetCells(vtk.type, vtk.cells);
            extract->UseAllPointsOn();
            extract->SetInputData(grid);
            extract->Update();
            return extract;
        },
        [](const vtkSmartPointer<vtkExtractEdges>& extract) {
            edge_set set;
            vtkCellArray* const lines = extract->GetOutput()->GetLines();
            vtkNew<vtkIdList> ends;
            for (vtkIdType k = 0; k < lines->GetNumberOfCells(); ++k)
            {
                lines->GetCellAtId(k, ends);
                set.add(static_cast<std::uint64_t>(ends->GetId(0)), static_cast<std::uint64_t>(ends->GetId(1)));
            }
            return set.sorted();
        });
#endif
    if (mesh.kind != ELEM_TRIA3) return r.run();
#if PEERS_WITH_CGAL
    r.peer(
        "CGAL", [&] { return cgal_surface(connectivity); },
        [](const std::unique_ptr<cgal_mesh>& surface) {
            edge_set set;
            for (const auto edge : surface->edges()) set.add(surface->vertex(edge, 0), surface->vertex(edge, 1));
            return set.sorted();
        });
#endif
#if PEERS_WITH_OPENMESH
    r.peer(
        "OpenMesh", [&] { return openmesh_surface(connectivity); },
        [](const std::unique_ptr<open_mesh>& surface) {
            edge_set set;
            for (const auto edge : surface->edges())
                set.add(static_cast<unsigned>(edge.v0().idx()), static_cast<unsigned>(edge.v1().idx()));
            return set.sorted();
        });
#endif
    r.run();
}

/// Lists as our calls give them.
struct compressed_lists
{
    dense1D<unsigned> first, list;
};

lists sets_of(const compressed_lists& made)
{
    return sorted_lists(made.first.data(), made.list.data(), made.first.size - 1);
}

void node_graph_row(table& rows, const mesh_case& mesh)
{
    row<lists> r(rows,
                 {std::string("node graph, ") + mesh.name, "elements", mesh.share * rows.chosen().items, {{1.0, "METIS"}}, "neighbours"});
    if (!r.chosen()) return;
    const dense2D<unsigned> connectivity = make_mesh(mesh, rows.chosen().items);

    r.ours(
        [&] {
            compressed_lists graph;
            get_node_graph(connectivity, graph.first, graph.list);
            return graph;
        },
        sets_of);
#if PEERS_WITH_METIS
    metis_mesh metis(connectivity);
    r.peer(
        "METIS", [&] { return metis_nodal(metis); },
        [&](const metis_graph& graph) {
            return sorted_lists(graph.starts.get(), graph.list.get(), static_cast<std::size_t>(metis.node_count));
        });
#endif
    r.run();
}

void node_to_element_row(table& rows, const mesh_case& mesh)
{
    row<lists> r(rows, {std::string("node-to-element lists, ") + mesh.name,
                        "elements",
                        mesh.share * rows.chosen().items,
                        {{0.3, "VTK static links"}},
                        "lists"});
    if (!r.chosen()) return;
    const dense2D<unsigned> connectivity = make_mesh(mesh, rows.chosen().items);

    r.ours(
        [&] {
            compressed_lists links;
            get_connected_elements(connectivity, links.first, links.list);
            return links;
        },
        sets_of);
#if PEERS_WITH_VTK
    const vtk_mesh vtk(connectivity, mesh.kind);
    const vtkIdType nodes = vtk.points->GetNumberOfPoints();
    vtkNew<vtkUnstructuredGrid> grid;
    grid->SetPoints(vtk.points);
    grid->SetCells(vtk.type, vtk.cells);
    const auto lists_of = [&](const auto& links) {
        lists all;
        for (vtkIdType k = 0; k < nodes; ++k) append_sorted(all, links->GetCells(k), static_cast<std::size_t>(links->GetNcells(k)));
        return all;
    };
    r.peer(
        "VTK static links",
        [&] {
            const auto links = vtkSmartPointer<vtkStaticCellLinks>::New();
            links->BuildLinks(grid);
            return links;
        },
        lists_of);
    using static_links = vtkStaticCellLinksTemplate<int>;
    r.peer(
        "VTK static links of 32 bits",
        [&] {
            auto links = std::make_unique<static_links>();
            links->SerialBuildLinks(nodes, vtk.cells->GetNumberOfCells(), vtk.cells);
            return links;
        },
        lists_of);
    r.peer(
        "VTK links",
        [&] {
            const auto links = vtkSmartPointer<vtkCellLinks>::New();
            links->BuildLinks(grid);
            return links;
        },
        lists_of);
#endif
    r.run();
}

void components_row(table& rows, const mesh_case& mesh)
{
    row<std::vector<unsigned>> r(rows, {std::string("components, ") + mesh.name,
                                        "elements",
                                        mesh.share * rows.chosen().items,
                                        {{0.9, ""}},
                                        "lowest element of each element's component"});
    if (!r.chosen()) return;
    dense2D<unsigned> neighbors;
    get_neighbors(make_mesh_in_two_parts(mesh, rows.chosen().items), mesh.kind, false, neighbors);

    r.ours(
        [&] {
            compressed_lists components;
            get_subdomains(neighbors, components.list, components.first);
            return components;
        },
        [&](const compressed_lists& components) {
            std::vector<unsigned> lowest(neighbors.cols);
            for (unsigned k = 0; k + 1 < components.first.size; ++k)
                for (unsigned place = components.first[k]; place < components.first[k + 1]; ++place)
                    lowest[components.list[place]] = components.list[components.first[k]];
            return lowest;
        });
#if PEERS_WITH_BOOST
    struct parents
    {
        std::vector<unsigned> parent, rank;
    };
    r.peer(
        "Boost disjoint sets",
        [&] {
            parents made{std::vector<unsigned>(neighbors.cols), std::vector<unsigned>(neighbors.cols)};
            boost::disjoint_sets<unsigned*, unsigned*> sets(made.rank.data(), made.parent.data());
            for (unsigned c = 0; c < neighbors.cols; ++c) sets.make_set(c);
            for (unsigned c = 0; c < neighbors.cols; ++c)
                for (unsigned k = 0; k < neighbors.rows; ++k)
                    if (const unsigned other = neighbors(k, c); other < c) sets.union_set(c, other); // none is above c
            for (unsigned c = 0; c < neighbors.cols; ++c) made.parent[c] = sets.find_set(c);
            return made;
        },
        [](const parents& made) {
            std::vector<unsigned> first(made.parent.size(), none_index), lowest(made.parent.size());
            for (unsigned c = 0; c < lowest.size(); ++c)
            {
                unsigned& of_component = first[made.parent[c]];
                of_component = std::min(of_component, c);
                lowest[c] = of_component;
            }
            return lowest;
        });
#endif
    r.run();
}

} // namespace

void connectivity_rows(table& rows)
{
    for (const auto family : {neighbours_row, edges_row, node_graph_row, node_to_element_row, components_row})
        for (const mesh_case& mesh : cases) family(rows, mesh);
}

} // namespace bench
