#pragma once

// What the rows about mesh files have in common.

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/files.h"

#if PEERS_WITH_GMSH
#include <gmsh.h>
#endif

namespace bench
{

/// A file that is removed when nothing needs it any more.
class temporary_file
{
public:
    explicit temporary_file(const char* name) : path_(scratch_file(name)) {}
    ~temporary_file() { std::filesystem::remove(path_); }

    temporary_file(const temporary_file&) = delete;
    temporary_file(temporary_file&& other) noexcept : path_(std::move(other.path_)) { other.path_.clear(); }
    temporary_file& operator=(const temporary_file&) = delete;
    temporary_file& operator=(temporary_file&&) = delete;

    const char* path() const { return path_.c_str(); }

private:
    std::string path_;
};

/// What a file says, in the form in which readers agree: nodes of cells (0-based), and coordinates. A part that a reader does not give is
/// empty.
struct file_content
{
    std::size_t nodes = 0; ///< 0 where the reader does not weld or does not tell
    std::vector<unsigned> cells;
    std::vector<double> coordinates;
};

inline bool within(const std::vector<double>& a, const std::vector<double>& b, double tolerance)
{
    if (a.size() != b.size()) return false;
    for (std::size_t k = 0; k < a.size(); ++k)
        if (!(std::fabs(a[k] - b[k]) <= tolerance)) return false;
    return true;
}

/// Equality but for coordinates rounded to the digits that a writer gives or to the floats that a reader keeps.
struct equal_content
{
    double tolerance;

    bool operator()(const file_content& a, const file_content& b) const
    {
        if (a.nodes != 0 && b.nodes != 0 && a.nodes != b.nodes) return false;
        if (!a.cells.empty() && !b.cells.empty() && a.cells != b.cells) return false;
        return within(a.coordinates, b.coordinates, tolerance);
    }
};

/// The coordinates of the corners of triangles, one after the other: what is left of a mesh whatever its nodes are numbered like.
template <class Coordinate, class Index>
std::vector<double> corners(const Coordinate* pos, const Index* nodes, std::size_t count)
{
    std::vector<double> all;
    all.reserve(3 * count);
    for (std::size_t k = 0; k < count; ++k)
        for (std::size_t r = 0; r < 3; ++r) all.push_back(static_cast<double>(pos[3 * static_cast<std::size_t>(nodes[k]) + r]));
    return all;
}

#if PEERS_WITH_GMSH
/// A mesh inside of Gmsh, which keeps its models in one place for the whole process.
class gmsh_model
{
public:
    static constexpr int triangle = 2, tetrahedron = 4; ///< Gmsh's numbers of the shapes

    /// Reads a file.
    explicit gmsh_model(const std::string& file)
    {
        start();
        gmsh::model::add("read");
        gmsh::merge(file);
    }

    /// Takes a mesh over.
    gmsh_model(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, int type)
    {
        start();
        gmsh::model::add("written");
        const int dimension = type == triangle ? 2 : 3;
        gmsh::model::addDiscreteEntity(dimension, 1);
        std::vector<std::size_t> tags(pos.cols), nodes;
        for (std::size_t k = 0; k < tags.size(); ++k) tags[k] = k + 1;
        gmsh::model::mesh::addNodes(dimension, 1, tags, std::vector<double>(pos.data(), pos.data() + std::size_t{3} * pos.cols));
        const unsigned* const all = connectivity.data();
        for (std::size_t k = 0; k < std::size_t{connectivity.rows} * connectivity.cols; ++k) nodes.push_back(all[k] + std::size_t{1});
        gmsh::model::mesh::addElementsByType(1, type, {}, nodes);
    }

    ~gmsh_model() { gmsh::model::remove(); }

    gmsh_model(const gmsh_model&) = delete;
    gmsh_model& operator=(const gmsh_model&) = delete;

    void write(const char* file, bool binary) const
    {
        gmsh::option::setNumber("Mesh.Binary", binary);
        gmsh::write(file);
    }

    file_content content(int type) const
    {
        std::vector<std::size_t> node_tags, element_tags, nodes;
        std::vector<double> pos, parameters;
        gmsh::model::mesh::getNodes(node_tags, pos, parameters);
        gmsh::model::mesh::getElementsByType(type, element_tags, nodes);
        file_content in{node_tags.size(), {}, std::vector<double>(pos.size())};
        for (std::size_t k = 0; k < node_tags.size(); ++k)
            for (std::size_t r = 0; r < 3 && node_tags[k] <= node_tags.size(); ++r)
                in.coordinates[3 * (node_tags[k] - 1) + r] = pos[3 * k + r];
        for (const std::size_t node : nodes) in.cells.push_back(static_cast<unsigned>(node - 1));
        return in;
    }

private:
    static void start()
    {
        static const bool started = [] {
            gmsh::initialize(0, nullptr, false);
            gmsh::option::setNumber("General.Terminal", 0);
            gmsh::option::setNumber("General.NumThreads", 1);
            return true;
        }();
        (void)started;
    }
};
#endif

} // namespace bench
