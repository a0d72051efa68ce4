// The typical job: read a surface from an STL file, weld it, look at its connectivity and quality, derive a size field from it for a
// remesher and limit how fast the field grows, and write everything for viewers.
//
//   surface_job part.stl output_folder

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <utility>

#include <tq4/gridweave.h>

using namespace tq4;
using namespace tq4::gridweave;

namespace
{

/// Ends the program with one sentence.
[[noreturn]] void fail(const std::string& sentence)
{
    std::fprintf(stderr, "surface_job: %s\n", sentence.c_str());
    std::exit(1);
}

/// Why a surface could not be read, in words.
std::string reading_failure(const std::string& file, int code)
{
    if (!std::filesystem::exists(file)) return "there is no file " + file + ".";
    switch (code)
    {
    case -1: return file + " cannot be opened for reading.";
    case -2: return file + " is no STL file: it has neither a \"solid\" line nor a binary header.";
    case -3: return file + " is malformed or ends before its last triangle.";
    case out_of_memory: return "there is not enough memory to read " + file + ".";
    default: return file + " cannot be read (code " + std::to_string(code) + ").";
    }
}

/// Triangles as the file counts them, before welding drops any: from the size of a binary file, else from its facet lines.
unsigned long triangles_in_file(const std::string& file)
{
    std::FILE* const stream = std::fopen(file.c_str(), "rb");
    if (!stream) return 0;
    unsigned char head[84] = {};
    const bool has_head = std::fread(head, 1, sizeof head, stream) == sizeof head;
    const unsigned long counted = head[80] | head[81] << 8 | head[82] << 16 | static_cast<unsigned long>(head[83]) << 24;
    const bool binary = has_head && std::filesystem::file_size(file) >= 84 + 50 * counted && counted > 0;
    unsigned long facets = 0;
    if (!binary)
    {
        std::rewind(stream);
        char line[256];
        while (std::fgets(line, sizeof line, stream))
        {
            const std::string text = line;
            const auto word = text.find_first_not_of(" \t");
            if (word != std::string::npos && (text[word] == 'f' || text[word] == 'F')) ++facets;
        }
    }
    std::fclose(stream);
    return binary ? counted : facets;
}

/// Prints one line of the report with the time since the line before.
class report
{
public:
    void line(const char* what, const std::string& value)
    {
        const auto now = std::chrono::steady_clock::now();
        std::printf("  %-28s %-44s %8.1f ms\n", what, value.c_str(), std::chrono::duration<double, std::milli>(now - last_).count());
        last_ = std::chrono::steady_clock::now();
    }

    void note(const char* what, const std::string& value) const { std::printf("  %-28s %s\n", what, value.c_str()); }

private:
    std::chrono::steady_clock::time_point last_ = std::chrono::steady_clock::now();
};

std::string number(double value)
{
    char text[32];
    std::snprintf(text, sizeof text, "%.6g", value);
    return text;
}

/// A field over the nodes for the solution file: the quality of the worst element round each node, 1 where there is none.
dense1D<double> worst_quality_at_nodes(const dense2D<unsigned>& connectivity, const dense1D<double>& quality, unsigned nodes)
{
    dense1D<double> worst(nodes, 1.0);
    for (unsigned element = 0; element < connectivity.cols; ++element)
    {
        for (unsigned row = 0; row < connectivity.rows; ++row)
        {
            double& value = worst[connectivity(row, element)];
            if (quality[element] < value) value = quality[element];
        }
    }
    return worst;
}

/// The mesh and fields over its nodes as one VTK file: the library writes the mesh to the open stream, the host adds its data sections.
int write_vtk(const char* file, const dense2D<double>& pos, const dense2D<unsigned>& connectivity,
              std::initializer_list<std::pair<const char*, const dense1D<double>*>> fields)
{
    unsigned nbr_cells = 0;
    dense1D<unsigned> cells;
    dense1D<unsigned> cell_types;
    if (const int result = vtk_convert(connectivity, ELEM_TRIA3, nbr_cells, cells, cell_types); result != 0) return result;
    std::FILE* const stream = std::fopen(file, "w");
    if (!stream) return -1;
    int result = vtk_output(stream, pos, nbr_cells, cells, cell_types);
    std::fprintf(stream, "\nPOINT_DATA %u\n", pos.cols);
    for (const auto& [name, values] : fields)
    {
        std::fprintf(stream, "SCALARS %s double 1\nLOOKUP_TABLE default\n", name);
        for (const double value : *values) std::fprintf(stream, "%.9g\n", value);
    }
    if (std::ferror(stream)) result = -1;
    return std::fclose(stream) == 0 ? result : -1;
}

/// Some nodes spread over the mesh at which the size is to become much smaller than around them.
dense1D<unsigned> nodes_to_refine(unsigned nodes)
{
    constexpr unsigned wanted = 8;
    dense1D<unsigned> chosen;
    for (unsigned k = 0; k < wanted && k < nodes; ++k) chosen.push_back(static_cast<unsigned>((2ull * k + 1) * nodes / (2 * wanted)));
    return chosen;
}

/// How a size field fits the mesh and how violent it is: mean length of the edges measured in the field, and the largest gradation.
struct field_state
{
    double mean_length;
    double largest_shock;
};

field_state examine(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, const dense2D<unsigned>& edges,
                    const dense1D<double>& sizes)
{
    auxkit::histogram lengths;
    const dense2D<unsigned> nothing_skipped;
    if (edge_qualities(pos, connectivity, ELEM_TRIA3, sizes, lengths, nothing_skipped) < 0) fail("the edges cannot be measured.");
    dense1D<double> shocks;
    if (H_shock(pos, edges, sizes, shocks) != 0) fail("the shock cannot be measured.");
    auxkit::histogram spread;
    for (const double shock : shocks) spread.process(shock);
    return {lengths.mean(), spread.max()};
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3)
    {
        std::fprintf(stderr, "usage: surface_job part.stl output_folder\n");
        return 2;
    }
    const std::string input = argv[1];
    const std::filesystem::path folder = argv[2];
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    if (error) fail("the folder " + folder.string() + " cannot be made.");

    std::printf("%s\n", input.c_str());
    report out;

    // Read: the file's separate triangles become a mesh with shared nodes.
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
    const int read = STL_input(input.c_str(), pos, connectivity);
    if (read != 0) fail(reading_failure(input, read));
    if (connectivity.cols == 0) fail(input + " holds no triangle.");
    out.line("read and welded", std::to_string(connectivity.cols) + " triangles");
    const unsigned long triangles = triangles_in_file(input);
    out.note("corners read", std::to_string(3 * triangles));
    out.note("nodes after welding", std::to_string(pos.cols));
    out.note("triangles dropped", std::to_string(triangles - connectivity.cols));

    // Connectivity: who is beside whom, where the surface ends, which pieces hang together.
    dense2D<unsigned> neighbors;
    if (get_neighbors(connectivity, ELEM_TRIA3, true, neighbors) != 0) fail("the neighbours cannot be found.");
    out.line("neighbours", std::to_string(neighbors.cols) + " triangles");

    dense2D<unsigned> free_edges;
    if (get_mesh_boundaries(connectivity, neighbors, ELEM_TRIA3, free_edges) != 0) fail("the free edges cannot be listed.");
    out.line("free edges", std::to_string(free_edges.cols));

    dense1D<unsigned> order;
    dense1D<unsigned> offsets;
    if (get_subdomains(neighbors, order, offsets) != 0) fail("the subdomains cannot be found.");
    out.line("subdomains", std::to_string(offsets.size - 1));

    // Quality of the triangles' shapes: 1 is equilateral, 0 degenerate.
    dense1D<double> quality;
    if (shape_qualities(pos, connectivity, ELEM_TRIA3, quality) != 0) fail("the quality cannot be measured.");
    auxkit::histogram spread(0.0, 1.0, 10);
    for (const double value : quality) spread.process(value);
    double worst = 1.0;
    unsigned worst_element = none_index;
    min_quality(pos, connectivity, ELEM_TRIA3, worst, worst_element);
    out.line("worst quality", number(worst) + (worst_element == none_index ? "" : " (triangle " + std::to_string(worst_element) + ")"));
    out.note("mean quality", number(spread.mean()));

    // A size field that asks for the density of the mesh, with some nodes that ask for much more.
    constexpr double mean_of_edges = 1.0;
    constexpr double refinement = 20.0;
    constexpr double growth = 0.3;
    constexpr int only_shrink = -1;
    dense1D<double> sizes;
    if (metrics_gen_iso(pos, connectivity, ELEM_TRIA3, sizes, mean_of_edges) != 0) fail("the sizes cannot be derived.");
    out.line("sizes from edges", std::to_string(sizes.size) + " nodes");
    const dense1D<unsigned> refined = nodes_to_refine(sizes.size);
    for (const unsigned node : refined) sizes[node] /= refinement;
    dense2D<unsigned> edges;
    if (copy_edges(connectivity, ELEM_TRIA3, edges) != 0) fail("the edges cannot be listed.");
    const field_state before = examine(pos, connectivity, edges, sizes);
    dense1D<double> graded;
    if (!graded.copy(sizes)) fail("there is not enough memory.");
    out.line("refined nodes", std::to_string(refined.size));

    // The refined nodes keep their sizes; around them sizes shrink until none grows faster than the limit.
    const int moved = bound_metric_gradations(pos, connectivity, ELEM_TRIA3, refined, true, only_shrink, growth, graded);
    if (moved < 0) fail("the gradation cannot be limited.");
    out.line("nodes moved by gradation", std::to_string(moved) + " (limit " + number(growth) + ")");
    const field_state after = examine(pos, connectivity, edges, graded);
    out.line("largest gradation", number(before.largest_shock) + " before, " + number(after.largest_shock) + " after");
    out.note("mean edge length in field", number(before.mean_length) + " before, " + number(after.mean_length) + " after");

    // Files for viewers.
    const auto write = [&](const char* name, auto&& writer) {
        const std::string path = (folder / name).string();
        if (writer(path.c_str()) != 0) fail(path + " cannot be written.");
        out.line("written", path);
    };
    const auto node_quality = worst_quality_at_nodes(connectivity, quality, pos.cols);
    write("surface.mesh", [&](const char* file) { return medit_output(file, pos, connectivity, ELEM_TRIA3); });
    write("quality.bb", [&](const char* file) { return medit_scalar(file, 3, node_quality); });
    write("sizes_before.bb", [&](const char* file) { return medit_scalar(file, 3, sizes); });
    write("sizes_after.bb", [&](const char* file) { return medit_scalar(file, 3, graded); });
    write("surface.vtk", [&](const char* file) {
        return write_vtk(file, pos, connectivity, {{"quality", &node_quality}, {"size_before", &sizes}, {"size_after", &graded}});
    });

    std::printf("\n  quality of the triangles\n%s", spread.render(40).c_str());
    return 0;
}
