#pragma once

// Large meshes for benchmarks: structured grids, and the same with nodes and elements numbered at random.

#include <algorithm>
#include <array>
#include <numeric>
#include <random>
#include <vector>

#include <tq4/gridweave/core.h>

namespace bench
{

using tq4::dense2D;

/// Two triangles per square, n × n squares.
inline dense2D<unsigned> triangles(unsigned n)
{
    dense2D<unsigned> connectivity(3, 2 * n * n);
    unsigned* out = connectivity.data();
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i)
        {
            const unsigned a = j * (n + 1) + i, b = a + 1, c = b + n + 1, d = c - 1;
            for (const unsigned node : {a, b, c, a, c, d}) *out++ = node;
        }
    return connectivity;
}

/// n × n × n cubes.
inline dense2D<unsigned> hexahedra(unsigned n)
{
    dense2D<unsigned> connectivity(8, n * n * n);
    const unsigned line = n + 1, layer = line * line;
    unsigned* out = connectivity.data();
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i)
                for (const unsigned low : {k * layer + j * line + i, (k + 1) * layer + j * line + i})
                    for (const unsigned node : {low, low + 1, low + line + 1, low + line}) *out++ = node;
    return connectivity;
}

/// Six tetrahedra around the diagonal of each cube, n × n × n cubes.
inline dense2D<unsigned> tetrahedra(unsigned n)
{
    const dense2D<unsigned> cubes = hexahedra(n);
    dense2D<unsigned> connectivity(4, 6 * cubes.cols);
    constexpr std::array<unsigned, 7> ring{1, 2, 3, 7, 4, 5, 1};
    unsigned* out = connectivity.data();
    for (unsigned cube = 0; cube < cubes.cols; ++cube)
        for (unsigned k = 0; k < 6; ++k)
            for (const unsigned corner : {ring[k], ring[k + 1], 6u, 0u}) *out++ = cubes(corner, cube);
    return connectivity;
}

inline std::vector<unsigned> random_order(unsigned count, unsigned seed)
{
    std::vector<unsigned> order(count);
    std::iota(order.begin(), order.end(), 0u);
    std::shuffle(order.begin(), order.end(), std::mt19937(seed));
    return order;
}

/// The mesh with its nodes and its elements numbered at random.
inline dense2D<unsigned> shuffled(const dense2D<unsigned>& connectivity)
{
    const auto new_node = random_order(tq4::gridweave::max_ID(connectivity) + 1, 1);
    const auto new_element = random_order(connectivity.cols, 2);
    dense2D<unsigned> out(connectivity.rows, connectivity.cols);
    for (unsigned c = 0; c < out.cols; ++c)
        for (unsigned r = 0; r < out.rows; ++r) out(r, new_element[c]) = new_node[connectivity(r, c)];
    return out;
}

} // namespace bench
