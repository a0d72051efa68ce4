#pragma once

// What the tests of the two relaxations share: calls on either of them, fields, and the comparison with the plain form.

#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <tq4/gridweave/metrics.h>

#include "support/literal_relaxation.h"
#include "support/meshes.h"

namespace tq4::test
{

/// One of the two exported families.
struct gradations
{
    static constexpr limited what = limited::gradation;

    template <class Field>
    static int call(const mesh& m, const dense1D<unsigned>& indices, bool indices_frozen, int direction, double limit, Field& field)
    {
        return gridweave::bound_metric_gradations(m.pos, m.connectivity, m.kind, indices, indices_frozen, direction, limit, field);
    }
};

struct variations
{
    static constexpr limited what = limited::variation;

    template <class Field>
    static int call(const mesh& m, const dense1D<unsigned>& indices, bool indices_frozen, int direction, double limit, Field& field)
    {
        return gridweave::bound_metric_variations(m.pos, m.connectivity, m.kind, indices, indices_frozen, direction, limit, field);
    }
};

/// A field in the form of the plain relaxation, and back.
template <unsigned D>
std::vector<double> entries_of(const dense1D<double>& sizes)
{
    return {sizes.begin(), sizes.end()};
}

template <unsigned D>
std::vector<symmetric_fixed<double, D>> entries_of(const dense2D<double>& metrics)
{
    std::vector<symmetric_fixed<double, D>> all(metrics.cols);
    for (unsigned c = 0; c < metrics.cols; ++c) std::copy_n(metrics.column(c), metrics.rows, all[c].values);
    return all;
}

/// The bits of every entry, so that NaN and the sign of zero are compared too.
template <class Metric>
std::vector<std::uint64_t> bits_of(const std::vector<Metric>& entries)
{
    std::vector<std::uint64_t> bits(entries.size() * sizeof(Metric) / sizeof(double));
    if (!bits.empty()) std::memcpy(bits.data(), entries.data(), bits.size() * sizeof(double));
    return bits;
}

template <class Field>
Field duplicate(const Field& field)
{
    Field copy;
    copy.copy(field);
    return copy;
}

/// Runs the library and the plain form on the same input and expects the same result and the same bits. The counts are the plain form's.
template <class Family, unsigned D, class Field>
relaxation_counts expect_as_plain(const mesh& m, const dense1D<unsigned>& indices, bool indices_frozen, int direction, double limit,
                                  const Field& field)
{
    auto expected = entries_of<D>(field);
    literal_relaxation<D, typename decltype(expected)::value_type> plain(Family::what, limit);
    const relaxation_counts counts = plain.run(m.pos, m.connectivity, indices, indices_frozen, direction, expected);

    Field changed = duplicate(field);
    EXPECT_EQ(Family::call(m, indices, indices_frozen, direction, limit, changed), counts.moved);
    EXPECT_EQ(bits_of(entries_of<D>(changed)), bits_of(expected));
    return counts;
}

/// Sizes with jumps over `decades` orders of magnitude around `middle`.
inline dense1D<double> jumping_sizes(unsigned nodes, double middle, double decades, random_source& random)
{
    dense1D<double> sizes(nodes);
    for (double& h : sizes) h = middle * std::pow(10.0, random.between(-0.5, 0.5) * decades);
    return sizes;
}

/// One of a few sizes per node: many edges tie exactly.
inline dense1D<double> tied_sizes(unsigned nodes, random_source& random)
{
    dense1D<double> sizes(nodes);
    for (double& h : sizes) h = std::ldexp(1.0, static_cast<int>(random.below(5)) - 4);
    return sizes;
}

/// A tensor with the sizes `h` along the axes of a random rotation.
inline symmetric_fixed<double, 2> random_tensor(const std::array<double, 2>& h, random_source& random)
{
    const double angle = random.between(0, 3.2);
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double a = 1 / (h[0] * h[0]);
    const double b = 1 / (h[1] * h[1]);
    return {a * c * c + b * s * s, (a - b) * c * s, a * s * s + b * c * c};
}

inline symmetric_fixed<double, 3> random_tensor(const std::array<double, 3>& h, random_source& random)
{
    // Gram-Schmidt on random vectors.
    std::array<std::array<double, 3>, 3> q{};
    for (unsigned k = 0; k < 3; ++k)
    {
        for (double& x : q[k]) x = random.between(-1, 1);
        for (unsigned j = 0; j < k; ++j)
        {
            const double along = q[k][0] * q[j][0] + q[k][1] * q[j][1] + q[k][2] * q[j][2];
            for (unsigned r = 0; r < 3; ++r) q[k][r] -= along * q[j][r];
        }
        const double length = std::sqrt(q[k][0] * q[k][0] + q[k][1] * q[k][1] + q[k][2] * q[k][2]);
        for (double& x : q[k]) x /= length;
    }
    symmetric_fixed<double, 3> m{};
    for (unsigned k = 0; k < 3; ++k)
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i <= j; ++i) m(i, j) += q[k][i] * q[k][j] / (h[k] * h[k]);
    return m;
}

/// Tensors with jumps over `decades` orders of magnitude of size around `middle`.
template <unsigned D>
dense2D<double> jumping_tensors(unsigned nodes, double middle, double decades, random_source& random)
{
    dense2D<double> metrics(D * (D + 1) / 2, nodes);
    for (unsigned c = 0; c < nodes; ++c)
    {
        std::array<double, D> h{};
        for (double& x : h) x = middle * std::pow(10.0, random.between(-0.5, 0.5) * decades);
        std::copy_n(random_tensor(h, random).values, metrics.rows, metrics.column(c));
    }
    return metrics;
}

/// About one node in `every`.
inline dense1D<unsigned> some_nodes(unsigned nodes, unsigned every, random_source& random)
{
    dense1D<unsigned> chosen;
    for (unsigned n = 0; n < nodes; ++n)
        if (random.below(every) == 0) chosen.push_back(n);
    return chosen;
}

/// Moves every node by up to `amount` along every axis, so that no two edges have the same length.
inline mesh shaken(const mesh& m, double amount, random_source& random)
{
    mesh out = m;
    out.pos.copy(m.pos);
    for (unsigned c = 0; c < out.pos.cols; ++c)
        for (unsigned r = 0; r < out.pos.rows; ++r) out.pos(r, c) += random.between(-amount, amount);
    return out;
}

/// The meshes of all linear kinds, on a lattice and off it, with 2 rows of coordinates for some and 3 for the others.
inline std::vector<mesh> relaxation_meshes()
{
    random_source random(3);
    std::vector<mesh> meshes;
    for (const mesh& m : all_linear_meshes(3))
    {
        meshes.push_back(m);
        meshes.push_back(shaken(shuffled(m, 5), 0.05, random));
    }
    meshes.push_back(shaken(grid_of_triangles(4, 3), 0.05, random)); // a surface in space
    mesh crossing = grid_of_tetrahedra(2);                           // coincident nodes: edges of zero length
    for (unsigned r = 0; r < 3; ++r) crossing.pos(r, 13) = crossing.pos(r, 14);
    meshes.push_back(crossing);
    return meshes;
}

/// Calls `worker(D)` for the dimension of a mesh's coordinates.
template <class Worker>
void in_dimension_of(const mesh& m, Worker&& worker)
{
    if (m.pos.rows == 2)
        worker(std::integral_constant<unsigned, 2>());
    else
        worker(std::integral_constant<unsigned, 3>());
}

/// What damaged files leave in a field.
inline double broken_value(random_source& random)
{
    constexpr double infinity = std::numeric_limits<double>::infinity();
    constexpr std::array<double, 13> values{0.0,
                                            -0.0,
                                            -1.0,
                                            1e-310,
                                            1e308,
                                            DBL_MAX,
                                            -DBL_MAX,
                                            1e-160,
                                            1e-300,
                                            1e160,
                                            infinity,
                                            -infinity,
                                            std::numeric_limits<double>::quiet_NaN()};
    return values[random.below(static_cast<unsigned>(values.size()))];
}

// The comparisons with the plain form, for one family each. They return the number of moves that the plain form made, which shows that
// there was something to compare.

template <class Family>
unsigned long compare_on_sizes()
{
    random_source random(1);
    unsigned long moves = 0;
    const auto on_mesh = [&](const mesh& m, auto dimension, int direction, double limit) {
        const unsigned nodes = m.pos.cols;
        const auto compare = [&](const dense1D<double>& sizes, const dense1D<unsigned>& list, bool frozen) {
            moves += expect_as_plain<Family, dimension()>(m, list, frozen, direction, limit, sizes).moves;
        };
        compare(jumping_sizes(nodes, 0.3, 3, random), {}, true);
        compare(jumping_sizes(nodes + 3, 5, 0.2, random), {}, true);
        compare(tied_sizes(nodes, random), {}, true);
        compare(jumping_sizes(nodes, 0.3, 2, random), some_nodes(nodes, 6, random), true);
        compare(jumping_sizes(nodes, 0.3, 2, random), some_nodes(nodes, 2, random), false);
        compare(tied_sizes(nodes, random), some_nodes(nodes, 6, random), true);
    };
    for (const mesh& m : relaxation_meshes())
        for (const int direction : {0, 1, -1, 7})
            for (const double limit : {0.0, 1e-3, 0.1, 0.3, 1.0, 4.0})
                in_dimension_of(m, [&](auto dimension) { on_mesh(m, dimension, direction, limit); });
    return moves;
}

template <class Family>
unsigned long compare_on_tensors()
{
    random_source random(4);
    unsigned long moves = 0;
    const auto on_mesh = [&](const mesh& m, auto dimension, int direction, double limit) {
        const unsigned nodes = m.pos.cols;
        const auto compare = [&](double middle, double decades, const dense1D<unsigned>& list, bool frozen) {
            const auto metrics = jumping_tensors<dimension()>(nodes, middle, decades, random);
            moves += expect_as_plain<Family, dimension()>(m, list, frozen, direction, limit, metrics).moves;
        };
        compare(0.3, 2, {}, true);
        compare(3, 0.3, some_nodes(nodes, 6, random), true);
        compare(0.3, 1, some_nodes(nodes, 2, random), false);
    };
    for (const mesh& m : relaxation_meshes())
        for (const int direction : {0, 1, -1, 7})
            for (const double limit : {0.0, 0.1, 0.5, 2.0})
                in_dimension_of(m, [&](auto dimension) { on_mesh(m, dimension, direction, limit); });
    return moves;
}

template <class Family>
unsigned long compare_on_broken_fields()
{
    random_source random(9);
    unsigned long moves = 0;
    const auto on_mesh = [&](const mesh& m, auto dimension, int direction, double limit, const dense1D<unsigned>& list) {
        const unsigned nodes = m.pos.cols;
        dense1D<double> sizes = jumping_sizes(nodes, 0.3, 2, random);
        for (double& h : sizes)
            if (random.below(4) == 0) h = broken_value(random);
        moves += expect_as_plain<Family, dimension()>(m, list, true, direction, limit, sizes).moves;

        auto metrics = jumping_tensors<dimension()>(nodes, 0.3, 2, random);
        for (unsigned k = 0; k < nodes / 4; ++k) metrics(random.below(metrics.rows), random.below(nodes)) = broken_value(random);
        moves += expect_as_plain<Family, dimension()>(m, list, true, direction, limit, metrics).moves;
    };
    for (const mesh& m : relaxation_meshes())
        for (const int direction : {0, 1, -1})
            for (const double limit : {0.0, 0.2})
                in_dimension_of(m, [&](auto dimension) {
                    on_mesh(m, dimension, direction, limit, {});
                    on_mesh(m, dimension, direction, limit, some_nodes(m.pos.cols, 5, random));
                });
    return moves;
}

template <class Family>
unsigned long compare_on_broken_coordinates()
{
    random_source random(10);
    mesh m = shaken(grid_of_triangles(5), 0.03, random);
    m.pos(0, 7) = std::numeric_limits<double>::quiet_NaN();
    m.pos(1, 15) = std::numeric_limits<double>::infinity();
    m.pos(0, 20) = 1e200;
    unsigned long moves = 0;
    for (const int direction : {0, 1, -1})
    {
        moves += expect_as_plain<Family, 2>(m, {}, true, direction, 0.2, jumping_sizes(m.pos.cols, 0.3, 2, random)).moves;
        moves += expect_as_plain<Family, 2>(m, {}, true, direction, 0.2, jumping_tensors<2>(m.pos.cols, 0.3, 2, random)).moves;
    }
    return moves;
}

/// Sizes that differ by little more than rounding, where series, cancellation and the ratio test meet.
template <class Family>
unsigned long compare_on_nearly_equal_sizes()
{
    random_source random(12);
    const mesh m = shaken(grid_of_triangles(6), 0.03, random);
    unsigned long moves = 0;
    for (const int direction : {0, 1, -1})
        for (const double spread : {1e-3, 1e-8, 1e-12, 1e-15})
            for (const double limit : {0.0, 1e-9, 1e-4})
            {
                dense1D<double> sizes(m.pos.cols);
                for (double& h : sizes) h = 0.7 * (1 + spread * random.between(-1, 1));
                moves += expect_as_plain<Family, 2>(m, {}, true, direction, limit, sizes).moves;
            }
    return moves;
}

} // namespace tq4::test
