#pragma once

// What the benchmarks of mesh files have in common: where files go, and meshes and files that other programs would have made.

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>

#include "meshes.h"

namespace bench
{

/// A file in memory where the system offers that, so that the disk is not measured.
inline std::string scratch_file(const char* name)
{
    const std::filesystem::path in_memory = "/dev/shm";
    return (std::filesystem::is_directory(in_memory) ? in_memory : std::filesystem::temp_directory_path()) / name;
}

struct surface
{
    dense2D<double> pos;
    dense2D<unsigned> connect;
};

/// A wavy sheet of 2 n² triangles in space, 100 wide.
inline surface wavy_sheet(unsigned n)
{
    surface s;
    s.pos.resize(3, (n + 1) * (n + 1));
    for (unsigned j = 0; j <= n; ++j)
        for (unsigned i = 0; i <= n; ++i)
        {
            double* const x = s.pos.column(j * (n + 1) + i);
            x[0] = i * (100.0 / n);
            x[1] = j * (100.0 / n);
            x[2] = 3 * std::sin(0.3 * x[0]) * std::cos(0.2 * x[1]);
        }
    s.connect = triangles(n);
    return s;
}

/// A surface in Wavefront's format as other programs write it, with or without one normal per node.
inline bool write_obj(const std::string& file, const surface& s, bool with_normals)
{
    std::FILE* const out = std::fopen(file.c_str(), "w");
    if (!out) return false;
    for (unsigned node = 0; node < s.pos.cols; ++node)
    {
        const double* const x = s.pos.column(node);
        std::fprintf(out, "v %.6f %.6f %.6f\n", x[0], x[1], x[2]);
    }
    for (unsigned node = 0; node < s.pos.cols && with_normals; ++node)
    {
        const double slope = std::sin(0.1 * node);
        std::fprintf(out, "vn %.6f %.6f %.6f\n", 0.6 * slope, 0.8 * slope, std::sqrt(1 - slope * slope));
    }
    for (unsigned element = 0; element < s.connect.cols; ++element)
    {
        const unsigned a = s.connect(0, element) + 1, b = s.connect(1, element) + 1, c = s.connect(2, element) + 1;
        if (with_normals)
            std::fprintf(out, "f %u//%u %u//%u %u//%u\n", a, a, b, b, c, c);
        else
            std::fprintf(out, "f %u %u %u\n", a, b, c);
    }
    return std::fclose(out) == 0;
}

enum class card_fields
{
    small,
    large,
    free,
    large_coordinates ///< nodes in large fields and elements in small ones, as Gmsh has it
};

/// Tetrahedra on NASTRAN cards as other programs write them.
inline bool write_cards(const std::string& file, const dense2D<double>& pos, const dense2D<unsigned>& connectivity, card_fields fields)
{
    constexpr const char* large_node = "GRID*   %-16u                %-16.9E%-16.9E*C\n*C      %-16.9E\n";
    constexpr const char* small_element = "CTETRA  %-8u1       %-8u%-8u%-8u%-8u\n";
    constexpr const char* grid_formats[] = {"GRID    %-8u        %-8.5f%-8.5f%-8.5f\n", large_node, "GRID,%u,,%.9g,%.9g,%.9g\n",
                                            large_node};
    constexpr const char* element_formats[] = {small_element, "CTETRA* %-16u1               %-16u%-16u*C\n*C      %-16u%-16u\n",
                                               "CTETRA,%u,1,%u,%u,%u,%u\n", small_element};
    const auto layout = static_cast<unsigned>(fields);
    std::FILE* const out = std::fopen(file.c_str(), "w");
    if (!out) return false;
    for (unsigned node = 0; node < pos.cols; ++node)
    {
        const double* const x = pos.column(node);
        std::fprintf(out, grid_formats[layout], node + 1, x[0], x[1], x[2]);
    }
    for (unsigned element = 0; element < connectivity.cols; ++element)
    {
        const unsigned* const nodes = connectivity.column(element);
        std::fprintf(out, element_formats[layout], element + 1, nodes[0] + 1, nodes[1] + 1, nodes[2] + 1, nodes[3] + 1);
    }
    std::fputs("ENDDATA\n", out);
    return std::fclose(out) == 0;
}

} // namespace bench
