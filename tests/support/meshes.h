#pragma once

// Meshes and containers for tests: literals, regular grids of every shape, random and non-dense variants, and ways to look at results.

#include <cstdint>
#include <initializer_list>
#include <ostream>
#include <random>
#include <vector>

#include <tq4/gridweave/core.h>
#include <tq4/numcore/numcore.h>

namespace tq4::test
{

using gridweave::none_index;

/// A vector of the listed values.
template <class T>
dense1D<T> vector_of(std::initializer_list<T> values)
{
    dense1D<T> v(static_cast<unsigned>(values.size()));
    unsigned k = 0;
    for (const T& value : values) v[k++] = value;
    return v;
}

inline dense1D<unsigned> ids_of(std::initializer_list<unsigned> values)
{
    return vector_of<unsigned>(values);
}

/// A matrix of the listed columns, which are all of one height.
template <class T>
dense2D<T> matrix_of(std::initializer_list<std::initializer_list<T>> columns)
{
    const unsigned rows = columns.size() ? static_cast<unsigned>(columns.begin()->size()) : 0;
    dense2D<T> m(rows, static_cast<unsigned>(columns.size()));
    unsigned c = 0;
    for (const auto& column : columns)
    {
        unsigned r = 0;
        for (const T& value : column) m(r++, c) = value;
        ++c;
    }
    return m;
}

inline dense2D<unsigned> elements_of(std::initializer_list<std::initializer_list<unsigned>> columns)
{
    return matrix_of<unsigned>(columns);
}
inline dense2D<double> points_of(std::initializer_list<std::initializer_list<double>> columns)
{
    return matrix_of<double>(columns);
}

/// The same matrix as a part of a larger one: `ld` above `rows`, an offset, and `filler` around it.
template <class T>
dense2D<T> non_dense(const dense2D<T>& m, T filler)
{
    dense2D<T> larger(m.rows + 3, m.cols + 2, filler);
    for (unsigned c = 0; c < m.cols; ++c)
        for (unsigned r = 0; r < m.rows; ++r) larger(r + 1, c + 1) = m(r, c);
    return larger.sub_matrix(1, 1, m.rows, m.cols);
}

/// The contents, for exact comparison and readable failure messages.
template <class T>
std::vector<T> list(const dense1D<T>& v)
{
    return std::vector<T>(v.begin(), v.end());
}

template <class T>
std::vector<std::vector<T>> columns(const dense2D<T>& m)
{
    std::vector<std::vector<T>> all(m.cols);
    for (unsigned c = 0; c < m.cols; ++c)
        for (unsigned r = 0; r < m.rows; ++r) all[c].push_back(m(r, c));
    return all;
}

/// A mesh with its coordinates.
struct mesh
{
    dense2D<double> pos;
    dense2D<unsigned> connectivity;
    gridweave::element_type kind = gridweave::ELEM_NONE;
};

/// Regular grids over [0, 1]^d with n cells along every axis, all elements positive.
mesh grid_of_triangles(unsigned n, unsigned rows = 2);
mesh grid_of_quadrangles(unsigned n, unsigned rows = 2);
mesh grid_of_tetrahedra(unsigned n); ///< 6 per cell
mesh grid_of_hexahedra(unsigned n);
mesh grid_of_wedges(unsigned n);   ///< 2 per cell
mesh grid_of_pyramids(unsigned n); ///< 6 per cell, with a node in its middle
mesh mixed_surface(unsigned n);    ///< `ELEM_SURF_ANY`: triangles and quadrangles in turns, 4 rows
mesh mixed_solid(unsigned n);      ///< `ELEM_SOLID_ANY`: hexahedra, wedges and pyramids, each cell cut in its own way, 8 rows
mesh polyline(unsigned n);         ///< `ELEM_BAR2` along the x axis, 2 rows of coordinates

/// The grids above for every linear kind.
std::vector<mesh> all_linear_meshes(unsigned n);

/// Numbers for random tests; the same on every machine.
class random_source
{
public:
    explicit random_source(std::uint32_t seed) : engine_(seed) {}

    unsigned below(unsigned limit) { return next() % limit; }
    double between(double low, double high) { return low + (high - low) * (next() / 4294967296.0); }

private:
    std::uint32_t next() { return static_cast<std::uint32_t>(engine_()); }

    std::mt19937 engine_;
};

/// The mesh with its nodes renumbered and its elements reordered at random.
mesh shuffled(const mesh& m, std::uint32_t seed);

/// `count` points on the integer lattice {0 .. size - 1}^rows, so with many exact ties.
dense2D<double> lattice_points(unsigned rows, unsigned count, unsigned size, std::uint32_t seed);

/// `count` points in the unit square or cube.
dense2D<double> random_points(unsigned rows, unsigned count, std::uint32_t seed);

} // namespace tq4::test
