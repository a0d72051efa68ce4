#pragma once

// Meshes with fields of sizes that ask for much work when their gradation is limited.

#include <cmath>
#include <random>

#include <tq4/gridweave/core.h>

#include "meshes.h"

namespace bench
{

/// A grid of triangles or tetrahedra with its coordinates.
struct field_mesh
{
    const char* name;
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
    tq4::gridweave::element_type kind;
    double spacing; ///< typical length of an edge
};

class field_numbers
{
public:
    double between(double low, double high) { return low + (high - low) * (static_cast<double>(engine_()) / 4294967296.0); }
    std::mt19937& engine() { return engine_; }

private:
    std::mt19937 engine_{1};
};

/// A grid over the unit square or cube, off the lattice.
inline field_mesh field_grid(unsigned dims, unsigned nodes, field_numbers& numbers)
{
    using namespace tq4::gridweave;
    const auto n = std::max(1u, static_cast<unsigned>(std::lround(dims == 2 ? std::sqrt(nodes) : std::cbrt(nodes))) - 1);
    field_mesh m{dims == 2 ? "triangles" : "tetrahedra", {}, {}, dims == 2 ? ELEM_TRIA3 : ELEM_TETRA4, 1.0 / n};
    m.connectivity = dims == 2 ? triangles(n) : tetrahedra(n);
    m.pos = dense2D<double>(dims, max_ID(m.connectivity) + 1);
    for (unsigned c = 0; c < m.pos.cols; ++c)
        for (unsigned r = 0, rest = c; r < dims; ++r, rest /= n + 1) m.pos(r, c) = (rest % (n + 1) + numbers.between(-0.2, 0.2)) / n;
    return m;
}

/// Sizes that jump from node to node over three orders of magnitude.
inline double noise(const field_mesh& m, unsigned, field_numbers& numbers)
{
    return m.spacing * std::pow(10.0, numbers.between(-1, 2));
}

/// A wide size with 20 small places.
inline double places(const field_mesh& m, unsigned node, field_numbers&)
{
    const unsigned every = std::max(1u, m.pos.cols / 20);
    return node % every == every / 2 ? 0.01 * m.spacing : 0.2;
}

} // namespace bench
