#include <cmath>
#include <type_traits>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/vector_math.h"

namespace tq4::gridweave
{

namespace
{

// ---- Which nodes move: `every_node`, or a list of them. ----

struct every_node
{
};

bool selects_nothing(every_node)
{
    return false;
}

bool selects_nothing(const dense1D<unsigned>& ids)
{
    return ids.empty();
}

dense1D<unsigned> nodes_of(const dense2D<unsigned>& connectivity)
{
    dense1D<unsigned> ids;
    unique_indices(ids, connectivity, dense1D<unsigned>());
    return ids;
}

// ---- Moving them. A move is a function from the old place to the new one that holds its parameters by value: referred to, they might be
// coordinates themselves for all the compiler knows, and the loop would read them again for each node. ----

/// The first N coordinates from `x` on.
template <unsigned N>
inline vector_fixed<double, N> load(const double* x)
{
    vector_fixed<double, N> place{};
    for (unsigned k = 0; k < N; ++k) place[k] = x[k];
    return place;
}

template <unsigned N, class Move>
inline void move_node(double* x, const Move& move)
{
    const vector_fixed<double, N> place = move(load<N>(x));
    for (unsigned k = 0; k < N; ++k) x[k] = place[k];
}

template <unsigned N, class Move>
int move_nodes(dense2D<double>& pos, every_node, const Move& move)
{
    const auto move_all = [&](auto step) {
        double* x = pos.data();
        for (unsigned node = 0; node < pos.cols; ++node, x += step) move_node<N>(x, move);
    };
    // A step that is known at compile time lets the loop run on whole registers.
    if (pos.ld == N)
        move_all(std::integral_constant<std::size_t, N>{});
    else
        move_all(std::size_t{pos.ld});
    return static_cast<int>(pos.cols);
}

template <unsigned N, class Move>
int move_nodes(dense2D<double>& pos, const dense1D<unsigned>& ids, const Move& move)
{
    int moves = 0;
    for (const unsigned node : ids)
    {
        if (node >= pos.cols) continue;
        move_node<N>(pos.column(node), move);
        ++moves;
    }
    return moves;
}

/// Gives nodes that lack coordinates zeros for them. False where there is no memory for that; then nothing may be moved.
bool raise_rows(dense2D<double>& pos, unsigned rows)
{
    return pos.rows >= rows || pos.resize(rows, pos.cols, 0.0);
}

// ---- The three transforms, for any dimension and any selection of nodes. ----

template <unsigned N, class Nodes>
int translate_nodes(dense2D<double>& pos, const vector_fixed<double, N>& v, const Nodes& nodes)
{
    if (pos.empty()) return 0;
    if (is_zero(v)) return 0;
    if (selects_nothing(nodes)) return 0;
    if (!raise_rows(pos, N)) return 0;
    return move_nodes<N>(pos, nodes, [v](const auto& x) { return add(x, v); });
}

template <unsigned N, class Nodes>
int zoom_nodes(dense2D<double>& pos, const vector_fixed<double, N>& centre, double factor, const Nodes& nodes)
{
    if (pos.empty()) return 0;
    if (factor == 1.0) return 0;
    if (selects_nothing(nodes)) return 0;
    if (!raise_rows(pos, N)) return 0;
    return move_nodes<N>(pos, nodes, [centre, growth = factor - 1](const auto& x) { return add(x, scaled(growth, subtract(x, centre))); });
}

/// A turn of the plane about the origin.
class plane_rotation
{
public:
    explicit plane_rotation(double angle) : cos_(std::cos(angle)), sin_(std::sin(angle)) {}

    vector_fixed<double, 2> operator()(const vector_fixed<double, 2>& d) const
    {
        return {d[0] * cos_ - d[1] * sin_, d[0] * sin_ + d[1] * cos_};
    }

private:
    double cos_;
    double sin_;
};

/// A turn of space about an axis through the origin, in Rodrigues' form R = I + a K + b K², with K the matrix of the cross product with the
/// rotation vector, whose length is the angle.
class space_rotation
{
public:
    explicit space_rotation(const vector_fixed<double, 3>& r)
    {
        const double squared_angle = squared_norm(r);
        const double a = sine_quotient(squared_angle);
        const double b = cosine_quotient(squared_angle);

        // K² = r rᵀ - |r|² I, with the diagonal written out: no cancellation there.
        const double xx = r[0] * r[0], yy = r[1] * r[1], zz = r[2] * r[2];
        const double xy = r[0] * r[1], xz = r[0] * r[2], yz = r[1] * r[2];
        row_[0] = {1 - b * (yy + zz), b * xy - a * r[2], b * xz + a * r[1]};
        row_[1] = {b * xy + a * r[2], 1 - b * (xx + zz), b * yz - a * r[0]};
        row_[2] = {b * xz - a * r[1], b * yz + a * r[0], 1 - b * (xx + yy)};
    }

    vector_fixed<double, 3> operator()(const vector_fixed<double, 3>& d) const
    {
        return {dot(row_[0], d), dot(row_[1], d), dot(row_[2], d)};
    }

private:
    /// Up to this angle the quotients come from their series. 1 - cos θ cancels for small θ, and both are 0 / 0 at 0; the terms kept are
    /// exact to the last place here.
    static constexpr double series_limit = 0.1;

    /// a = sin θ / θ from t = θ²
    static double sine_quotient(double t)
    {
        const double angle = std::sqrt(t);
        if (angle > series_limit) return std::sin(angle) / angle;
        return 1 - t / 6 + t * t / 120 - t * t * t / 5040 + t * t * t * t / 362880 - t * t * t * t * t / 39916800;
    }

    /// b = (1 - cos θ) / θ² from t = θ²
    static double cosine_quotient(double t)
    {
        const double angle = std::sqrt(t);
        if (angle > series_limit) return (1 - std::cos(angle)) / t;
        return 0.5 - t / 24 + t * t / 720 - t * t * t / 40320 + t * t * t * t / 3628800;
    }

    vector_fixed<double, 3> row_[3];
};

bool is_no_turn(double angle)
{
    return angle == 0.0;
}

bool is_no_turn(const vector_fixed<double, 3>& rotation)
{
    return is_zero(rotation);
}

/// `amount` is the angle in the plane or the rotation vector in space.
template <class Rotation, unsigned N, class Amount, class Nodes>
int rotate_nodes(dense2D<double>& pos, const vector_fixed<double, N>& centre, const Amount& amount, const Nodes& nodes)
{
    if (pos.empty()) return 0;
    if (is_no_turn(amount)) return 0;
    // Unlike the other transforms this one raises the rows for an empty list too; hosts see the third row.
    if (!raise_rows(pos, N)) return 0;
    if (selects_nothing(nodes)) return 0;
    return move_nodes<N>(pos, nodes,
                         [centre, turned = Rotation(amount)](const auto& x) { return add(centre, turned(subtract(x, centre))); });
}

// ---- The box. ----

/// Widens a box of its own while it runs, for the same reason that a move holds its parameters.
template <unsigned N>
class box
{
public:
    box(const vector_fixed<double, N>& min, const vector_fixed<double, N>& max) : min_(min), max_(max) {}

    /// Both comparisons are made for every node, so that a box seeded inside out is right after one; NaN fails both.
    void include(const double* x)
    {
        for (unsigned k = 0; k < N; ++k)
        {
            min_[k] = x[k] < min_[k] ? x[k] : min_[k];
            max_[k] = x[k] > max_[k] ? x[k] : max_[k];
        }
    }

    void store(vector_fixed<double, N>& min, vector_fixed<double, N>& max) const
    {
        min = min_;
        max = max_;
    }

private:
    vector_fixed<double, N> min_;
    vector_fixed<double, N> max_;
};

template <unsigned N>
int box_all(const dense2D<double>& pos, vector_fixed<double, N>& min, vector_fixed<double, N>& max)
{
    if (pos.rows != N) return -1;

    box<N> widened(min, max);
    const double* x = pos.data();
    for (unsigned node = 0; node < pos.cols; ++node, x += pos.ld) widened.include(x);
    widened.store(min, max);
    return 0;
}

template <unsigned N>
int box_listed(const dense2D<double>& pos, const dense1D<unsigned>& ids, vector_fixed<double, N>& min, vector_fixed<double, N>& max)
{
    if (ids.empty()) return 0;
    if (pos.rows != N) return -1;
    if (!check_IDs(ids, pos.cols)) return -2;

    box<N> widened(min, max);
    for (const unsigned node : ids)
        if (node < pos.cols) widened.include(pos.column(node));
    widened.store(min, max);
    return 0;
}

bool names_no_node(const dense2D<unsigned>& connectivity)
{
    for (unsigned c = 0; c < connectivity.cols; ++c)
        for (unsigned r = 0; r < connectivity.rows; ++r)
            if (connectivity(r, c) != none_index) return false;
    return true;
}

/// A node that comes again does not widen the box again, so no list of the nodes is needed, nor memory for one.
template <unsigned N>
int box_of_elements(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, vector_fixed<double, N>& min,
                    vector_fixed<double, N>& max)
{
    if (names_no_node(connectivity)) return 0;
    if (pos.rows != N) return -1;
    if (!check_IDs(connectivity, pos.cols)) return -2;

    box<N> widened(min, max);
    for (unsigned c = 0; c < connectivity.cols; ++c)
    {
        const unsigned* const nodes = connectivity.column(c);
        for (unsigned r = 0; r < connectivity.rows; ++r)
            if (nodes[r] < pos.cols) widened.include(pos.column(nodes[r]));
    }
    widened.store(min, max);
    return 0;
}

} // namespace

int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v)
{
    return translate_nodes(pos, v, every_node());
}

int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v, const dense1D<unsigned>& ids)
{
    return translate_nodes(pos, v, ids);
}

int translate(dense2D<double>& pos, const vector_fixed<double, 2>& v, const dense2D<unsigned>& connectivity)
{
    return translate_nodes(pos, v, nodes_of(connectivity));
}

int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v)
{
    return translate_nodes(pos, v, every_node());
}

int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v, const dense1D<unsigned>& ids)
{
    return translate_nodes(pos, v, ids);
}

int translate(dense2D<double>& pos, const vector_fixed<double, 3>& v, const dense2D<unsigned>& connectivity)
{
    return translate_nodes(pos, v, nodes_of(connectivity));
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle)
{
    return rotate_nodes<plane_rotation>(pos, centre, angle, every_node());
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle, const dense1D<unsigned>& ids)
{
    return rotate_nodes<plane_rotation>(pos, centre, angle, ids);
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double angle, const dense2D<unsigned>& connectivity)
{
    return rotate_nodes<plane_rotation>(pos, centre, angle, nodes_of(connectivity));
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation)
{
    return rotate_nodes<space_rotation>(pos, centre, rotation, every_node());
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
           const dense1D<unsigned>& ids)
{
    return rotate_nodes<space_rotation>(pos, centre, rotation, ids);
}

int rotate(dense2D<double>& pos, const vector_fixed<double, 3>& centre, const vector_fixed<double, 3>& rotation,
           const dense2D<unsigned>& connectivity)
{
    return rotate_nodes<space_rotation>(pos, centre, rotation, nodes_of(connectivity));
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor)
{
    return zoom_nodes(pos, centre, factor, every_node());
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor, const dense1D<unsigned>& ids)
{
    return zoom_nodes(pos, centre, factor, ids);
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 2>& centre, double factor, const dense2D<unsigned>& connectivity)
{
    return zoom_nodes(pos, centre, factor, nodes_of(connectivity));
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor)
{
    return zoom_nodes(pos, centre, factor, every_node());
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor, const dense1D<unsigned>& ids)
{
    return zoom_nodes(pos, centre, factor, ids);
}

int zoom(dense2D<double>& pos, const vector_fixed<double, 3>& centre, double factor, const dense2D<unsigned>& connectivity)
{
    return zoom_nodes(pos, centre, factor, nodes_of(connectivity));
}

int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 2>& min, vector_fixed<double, 2>& max)
{
    return box_all(pos, min, max);
}

int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& ids, vector_fixed<double, 2>& min, vector_fixed<double, 2>& max)
{
    return box_listed(pos, ids, min, max);
}

int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, vector_fixed<double, 2>& min,
                     vector_fixed<double, 2>& max)
{
    return box_of_elements(pos, connectivity, min, max);
}

int inc_bounding_box(const dense2D<double>& pos, vector_fixed<double, 3>& min, vector_fixed<double, 3>& max)
{
    return box_all(pos, min, max);
}

int inc_bounding_box(const dense2D<double>& pos, const dense1D<unsigned>& ids, vector_fixed<double, 3>& min, vector_fixed<double, 3>& max)
{
    return box_listed(pos, ids, min, max);
}

int inc_bounding_box(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, vector_fixed<double, 3>& min,
                     vector_fixed<double, 3>& max)
{
    return box_of_elements(pos, connectivity, min, max);
}

} // namespace tq4::gridweave
