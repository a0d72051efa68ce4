#include <array>

#include <tq4/gridweave/quality.h>

#include "gridweave/core/kinds.h"
#include "gridweave/core/points.h"
#include "gridweave/core/vector_math.h"

namespace tq4::gridweave
{

namespace
{

// Derivatives of the shape functions at the one sample point of each reference shape, by reference coordinate (ξ, η, ζ) and node.
template <class Shape>
using derivative_table = std::array<std::array<double, Shape::nodes>, Shape::dim>;

// The corners of the reference square and cube stand at ±1/2: nodes 1, 2 (and 5, 6) have the positive ξ, nodes 2, 3 (and 6, 7) the
// positive η, nodes from 4 on the positive ζ.
constexpr double half_x(unsigned node)
{
    return node % 4 == 1 || node % 4 == 2 ? 0.5 : -0.5;
}
constexpr double half_y(unsigned node)
{
    return node % 4 >= 2 ? 0.5 : -0.5;
}
constexpr double half_z(unsigned node)
{
    return node >= 4 ? 0.5 : -0.5;
}

constexpr derivative_table<bar> sample_derivatives(bar) // anywhere
{
    return {{{-0.5, 0.5}}};
}

constexpr derivative_table<triangle> sample_derivatives(triangle) // anywhere
{
    return {{{1, 0, -1}, {0, 1, -1}}};
}

constexpr derivative_table<quadrangle> sample_derivatives(quadrangle) // at the middle
{
    derivative_table<quadrangle> d{};
    for (unsigned node = 0; node < quadrangle::nodes; ++node)
    {
        d[0][node] = half_x(node) * 0.5;
        d[1][node] = 0.5 * half_y(node);
    }
    return d;
}

constexpr derivative_table<tetrahedron> sample_derivatives(tetrahedron) // anywhere
{
    return {{{1, 0, 0, -1}, {0, 1, 0, -1}, {0, 0, 1, -1}}};
}

// The rational pyramid, base functions (1 - ζ) v u: its derivatives depend on the direction at the apex, which is why the sample stands
// a quarter up, above the middle of the base, where ξ and η are 0.
constexpr derivative_table<pyramid> sample_derivatives(pyramid)
{
    constexpr double u = 0.5;
    constexpr double v = 0.5;
    derivative_table<pyramid> d{};
    for (unsigned node = 0; node < 4; ++node)
    {
        d[0][node] = u * half_x(node);
        d[1][node] = half_y(node) * v;
        d[2][node] = -(u * v);
    }
    d[2][4] = 1;
    return d;
}

constexpr derivative_table<wedge> sample_derivatives(wedge) // at the middle: ξ = η = 1/3, ζ = 0
{
    constexpr double third = 1.0 / 3;
    constexpr double area_coordinate[3]{third, third, 1 - third - third};
    constexpr double by_xi[3]{1, 0, -1};
    constexpr double by_eta[3]{0, 1, -1};
    derivative_table<wedge> d{};
    for (unsigned node = 0; node < wedge::nodes; ++node)
    {
        d[0][node] = by_xi[node % 3] * 0.5;
        d[1][node] = by_eta[node % 3] * 0.5;
        d[2][node] = area_coordinate[node % 3] * (node < 3 ? -0.5 : 0.5);
    }
    return d;
}

constexpr derivative_table<hexahedron> sample_derivatives(hexahedron) // at the middle
{
    derivative_table<hexahedron> d{};
    for (unsigned node = 0; node < hexahedron::nodes; ++node)
    {
        d[0][node] = half_x(node) * 0.5 * 0.5;
        d[1][node] = 0.5 * half_y(node) * 0.5;
        d[2][node] = 0.5 * 0.5 * half_z(node);
    }
    return d;
}

/// Length, area or signed volume that the tangents of the isoparametric map span.
double span(const std::array<vector_fixed<double, 3>, 1>& tangents)
{
    return norm(tangents[0]);
}
double span(const std::array<vector_fixed<double, 3>, 2>& tangents)
{
    return norm(cross(tangents[0], tangents[1]));
}
double span(const std::array<vector_fixed<double, 3>, 3>& tangents)
{
    return determinant(tangents[0], tangents[1], tangents[2]);
}

template <class Shape>
double jacobian_of(Shape shape, const point_reader<3>& at, const unsigned* nodes)
{
    constexpr auto derivatives = sample_derivatives(shape);
    std::array<vector_fixed<double, 3>, Shape::dim> tangents{};
    for (unsigned n = 0; n < Shape::nodes; ++n)
    {
        const auto p = at[nodes[n]];
        for (unsigned d = 0; d < Shape::dim; ++d)
            for (unsigned k = 0; k < 3; ++k) tangents[d][k] += p[k] * derivatives[d][n];
    }
    return span(tangents);
}

} // namespace

int jacobians(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, dense1D<double>& values)
{
    values.size = 0;
    if (connectivity.empty()) return 0;
    if (!check_IDs(connectivity, kind, pos.cols)) return -2;
    if (!values.resize(connectivity.cols, 0.0))
    {
        values.size = 0;
        return out_of_memory;
    }
    const topology shapes = linear_topology(narrow(kind, connectivity.rows));
    if (shapes == topology::none)
    {
        values.size = 0;
        return -3;
    }
    const point_reader<3> at(pos);
    for_each_element(shapes, connectivity, [&, out = values.data()](auto shape, unsigned element, const unsigned* nodes) {
        out[element] = jacobian_of(shape, at, nodes);
    });
    return 0;
}

} // namespace tq4::gridweave
