#include "support/meshes.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace tq4::test
{

namespace
{

using namespace gridweave;

dense2D<double> grid_points(unsigned n, unsigned dims, unsigned rows, unsigned extra = 0)
{
    const unsigned side = n + 1;
    const unsigned count = dims == 2 ? side * side : side * side * side;
    dense2D<double> pos(rows, count + extra, 0.0);
    for (unsigned c = 0; c < count; ++c)
    {
        pos(0, c) = static_cast<double>(c % side) / n;
        pos(1, c) = static_cast<double>(c / side % side) / n;
        if (dims == 3) pos(2, c) = static_cast<double>(c / (side * side)) / n;
    }
    return pos;
}

std::array<unsigned, 4> square_corners(unsigned n, unsigned i, unsigned j)
{
    const unsigned side = n + 1;
    const unsigned low = j * side + i;
    return {low, low + 1, low + side + 1, low + side};
}

std::array<unsigned, 8> cube_corners(unsigned n, unsigned i, unsigned j, unsigned k)
{
    const unsigned layer = (n + 1) * (n + 1);
    const auto bottom = square_corners(n, i, j);
    std::array<unsigned, 8> corners{};
    for (unsigned c = 0; c < 4; ++c)
    {
        corners[c] = bottom[c] + k * layer;
        corners[c + 4] = bottom[c] + (k + 1) * layer;
    }
    return corners;
}

void add(dense2D<unsigned>& connectivity, unsigned rows, std::initializer_list<unsigned> nodes)
{
    const unsigned end = connectivity.cols;
    if (end >= connectivity.column_capacity()) connectivity.reserve(rows, 2 * end + 4, 1);
    connectivity.resize(rows, end + 1, none_index);
    unsigned r = 0;
    for (const unsigned node : nodes) connectivity(r++, end) = node;
}

template <class Cell>
void for_each_square(unsigned n, Cell&& cell)
{
    for (unsigned j = 0; j < n; ++j)
        for (unsigned i = 0; i < n; ++i) cell(square_corners(n, i, j), j * n + i);
}

template <class Cell>
void for_each_cube(unsigned n, Cell&& cell)
{
    for (unsigned k = 0; k < n; ++k)
        for (unsigned j = 0; j < n; ++j)
            for (unsigned i = 0; i < n; ++i) cell(cube_corners(n, i, j, k), (k * n + j) * n + i);
}

/// The six faces of a cube, each running counter-clockwise seen from the middle.
constexpr unsigned faces_from_inside[6][4] = {{0, 3, 7, 4}, {1, 5, 6, 2}, {0, 4, 5, 1}, {3, 2, 6, 7}, {0, 1, 2, 3}, {4, 7, 6, 5}};

void add_pyramids(dense2D<unsigned>& connectivity, unsigned rows, const std::array<unsigned, 8>& c, unsigned middle)
{
    for (const auto& f : faces_from_inside) add(connectivity, rows, {c[f[0]], c[f[1]], c[f[2]], c[f[3]], middle});
}

void set_middles(mesh& m, unsigned n, unsigned first_middle)
{
    for_each_cube(n, [&](const auto& c, unsigned cell) {
        for (unsigned r = 0; r < 3; ++r) m.pos(r, first_middle + cell) = 0.5 * (m.pos(r, c[0]) + m.pos(r, c[6]));
    });
}

} // namespace

mesh grid_of_triangles(unsigned n, unsigned rows)
{
    mesh m{grid_points(n, 2, rows), {}, ELEM_TRIA3};
    for_each_square(n, [&](const auto& c, unsigned) {
        add(m.connectivity, 3, {c[0], c[1], c[2]});
        add(m.connectivity, 3, {c[0], c[2], c[3]});
    });
    return m;
}

mesh grid_of_quadrangles(unsigned n, unsigned rows)
{
    mesh m{grid_points(n, 2, rows), {}, ELEM_QUAD4};
    for_each_square(n, [&](const auto& c, unsigned) { add(m.connectivity, 4, {c[0], c[1], c[2], c[3]}); });
    return m;
}

mesh grid_of_tetrahedra(unsigned n)
{
    mesh m{grid_points(n, 3, 3), {}, ELEM_TETRA4};
    // Six around the diagonal from corner 0 to corner 6. A positive tetrahedron sees its first three nodes counter-clockwise from the
    // fourth one's far side: the determinant of (p0 - p3, p1 - p3, p2 - p3) is positive.
    constexpr unsigned ring[7] = {1, 2, 3, 7, 4, 5, 1};
    for_each_cube(n, [&](const auto& c, unsigned) {
        for (unsigned k = 0; k < 6; ++k) add(m.connectivity, 4, {c[ring[k]], c[ring[k + 1]], c[6], c[0]});
    });
    return m;
}

mesh grid_of_hexahedra(unsigned n)
{
    mesh m{grid_points(n, 3, 3), {}, ELEM_HEXA8};
    for_each_cube(n, [&](const auto& c, unsigned) { add(m.connectivity, 8, {c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]}); });
    return m;
}

mesh grid_of_wedges(unsigned n)
{
    mesh m{grid_points(n, 3, 3), {}, ELEM_PENTA6};
    for_each_cube(n, [&](const auto& c, unsigned) {
        add(m.connectivity, 6, {c[0], c[1], c[2], c[4], c[5], c[6]});
        add(m.connectivity, 6, {c[0], c[2], c[3], c[4], c[6], c[7]});
    });
    return m;
}

mesh grid_of_pyramids(unsigned n)
{
    const unsigned corners = (n + 1) * (n + 1) * (n + 1);
    mesh m{grid_points(n, 3, 3, n * n * n), {}, ELEM_PYRA5};
    for_each_cube(n, [&](const auto& c, unsigned cell) { add_pyramids(m.connectivity, 5, c, corners + cell); });
    set_middles(m, n, corners);
    return m;
}

mesh mixed_surface(unsigned n)
{
    mesh m{grid_points(n, 2, 2), {}, ELEM_SURF_ANY};
    for_each_square(n, [&](const auto& c, unsigned cell) {
        if (cell % 2)
        {
            add(m.connectivity, 4, {c[0], c[1], c[2]});
            add(m.connectivity, 4, {c[0], c[2], c[3]});
        }
        else
            add(m.connectivity, 4, {c[0], c[1], c[2], c[3]});
    });
    return m;
}

mesh mixed_solid(unsigned n)
{
    const unsigned corners = (n + 1) * (n + 1) * (n + 1);
    mesh m{grid_points(n, 3, 3, n * n * n), {}, ELEM_SOLID_ANY};
    constexpr unsigned ring[7] = {1, 2, 3, 7, 4, 5, 1};
    for_each_cube(n, [&](const auto& c, unsigned cell) {
        switch (cell % 4)
        {
        case 0: add(m.connectivity, 8, {c[0], c[1], c[2], c[3], c[4], c[5], c[6], c[7]}); break;
        case 1:
            add(m.connectivity, 8, {c[0], c[1], c[2], c[4], c[5], c[6]});
            add(m.connectivity, 8, {c[0], c[2], c[3], c[4], c[6], c[7]});
            break;
        case 2: add_pyramids(m.connectivity, 8, c, corners + cell); break;
        default:
            for (unsigned k = 0; k < 6; ++k) add(m.connectivity, 8, {c[ring[k]], c[ring[k + 1]], c[6], c[0]});
        }
    });
    set_middles(m, n, corners);
    return m;
}

mesh polyline(unsigned n)
{
    mesh m{dense2D<double>(2, n + 1, 0.0), {}, ELEM_BAR2};
    for (unsigned c = 0; c <= n; ++c) m.pos(0, c) = static_cast<double>(c) / n;
    for (unsigned c = 0; c < n; ++c) add(m.connectivity, 2, {c, c + 1});
    return m;
}

std::vector<mesh> all_linear_meshes(unsigned n)
{
    return {polyline(n),         grid_of_triangles(n), grid_of_quadrangles(n), mixed_surface(n), grid_of_tetrahedra(n),
            grid_of_pyramids(n), grid_of_wedges(n),    grid_of_hexahedra(n),   mixed_solid(n)};
}

mesh shuffled(const mesh& m, std::uint32_t seed)
{
    random_source random(seed);
    const auto shuffled_order = [&](unsigned count) {
        std::vector<unsigned> order(count);
        std::iota(order.begin(), order.end(), 0u);
        for (unsigned i = 1; i < count; ++i) std::swap(order[i], order[random.below(i + 1)]);
        return order;
    };
    const auto new_node = shuffled_order(m.pos.cols);
    const auto new_element = shuffled_order(m.connectivity.cols);

    mesh out{dense2D<double>(m.pos.rows, m.pos.cols), dense2D<unsigned>(m.connectivity.rows, m.connectivity.cols), m.kind};
    for (unsigned c = 0; c < m.pos.cols; ++c)
        for (unsigned r = 0; r < m.pos.rows; ++r) out.pos(r, new_node[c]) = m.pos(r, c);
    for (unsigned c = 0; c < m.connectivity.cols; ++c)
        for (unsigned r = 0; r < m.connectivity.rows; ++r)
        {
            const unsigned node = m.connectivity(r, c);
            out.connectivity(r, new_element[c]) = node == none_index ? none_index : new_node[node];
        }
    return out;
}

dense2D<double> lattice_points(unsigned rows, unsigned count, unsigned size, std::uint32_t seed)
{
    random_source random(seed);
    dense2D<double> pos(rows, count);
    for (unsigned c = 0; c < count; ++c)
        for (unsigned r = 0; r < rows; ++r) pos(r, c) = random.below(size);
    return pos;
}

dense2D<double> random_points(unsigned rows, unsigned count, std::uint32_t seed)
{
    random_source random(seed);
    dense2D<double> pos(rows, count);
    for (unsigned c = 0; c < count; ++c)
        for (unsigned r = 0; r < rows; ++r) pos(r, c) = random.between(0.0, 1.0);
    return pos;
}

} // namespace tq4::test
