#include "gridweave/io/triangle_soup.h"

#include <algorithm>
#include <cmath>
#include <numeric>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/vector_math.h"

namespace tq4::gridweave
{

namespace
{

using point = vector_fixed<double, 3>;

/// Squared distance of p to the line through the two others, measured from the nearer of them (q at equality). Where these two coincide
/// it stays undivided. The squared lengths of the sides are given; they do not depend on a side's direction.
double squared_height(const point& p, const point& q, const point& r, double pq, double pr, double qr)
{
    const bool from_r = pr < pq;
    const point& near = from_r ? r : q;
    const point& far = from_r ? q : r;
    const double area = squared_norm(cross(subtract(far, near), subtract(p, near)));
    return qr > 0 ? area / qr : area;
}

/// Makes a matrix of 3 rows `cols` wide, doubling its storage where it must grow. False when memory ran out.
template <class T>
bool lengthen(dense2D<T>& matrix, unsigned cols)
{
    if (matrix.ld == 0 || cols > matrix.column_capacity())
    {
        const std::uint64_t doubled = std::max<std::uint64_t>({cols, 2 * std::uint64_t{matrix.cols}, 1024});
        // Where doubling does not fit, one more column may.
        matrix.reserve(3, static_cast<unsigned>(std::min<std::uint64_t>(doubled, none_index / 3)), 1);
    }
    return matrix.resize(3, cols);
}

bool all_finite(const double* values, std::size_t count)
{
    bool finite = true;
    for (std::size_t k = 0; k < count; ++k) finite &= std::fabs(values[k]) <= DBL_MAX;
    return finite;
}

} // namespace

double min_triangle_height2(const vector_fixed<double, 3> (&corners)[3])
{
    const auto& [p, q, r] = corners;
    const double pq = squared_norm(subtract(q, p));
    const double qr = squared_norm(subtract(r, q));
    const double rp = squared_norm(subtract(p, r));
    return std::min({squared_height(p, q, r, pq, rp, qr), squared_height(q, r, p, qr, pq, rp), squared_height(r, p, q, rp, qr, pq)});
}

int triangle_soup::add(const vector_fixed<double, 3> (&corners)[3])
{
    const unsigned first = pos_.cols;
    if (first > none_index - 3 || !lengthen(pos_, first + 3)) return out_of_memory;
    std::copy_n(&corners[0][0], 9, pos_.column(first));

    const double height2 = min_triangle_height2(corners);
    if (height2 > 0 && height2 < least_height2_) least_height2_ = height2;
    ++raw_triangles_;
    // Before a positive altitude is met the soup may yet have to stay as it is.
    return raw_triangles_ % slice_size == 0 && has_tolerance() ? weld_slices() : 0;
}

int triangle_soup::weld()
{
    pos_.resize(3, pos_.cols); // a soup without triangles has its rows too
    if (!has_tolerance())
    {
        if (!connect_.resize(3, raw_triangles_)) return out_of_memory;
        std::iota(connect_.data(), connect_.data() + std::size_t{3} * raw_triangles_, 0u);
        return 0;
    }
    if (const int result = weld_slices(); result < 0) return result;
    table_ = {};
    slice_nodes_ = {};

    dense1D<unsigned> new_ids;
    if (const int result = merge(pos_, connect_, new_ids, std::sqrt(least_height2_) * tolerance_in_altitudes, 0); result < 0) return result;
    if (const int result = remove_degenerated(connect_, new_ids, true); result < 0) return result;
    if (const int result = simplify(pos_, connect_, new_ids, 0); result < 0) return result;
    return 0;
}

/// Makes nodes of all raw corners.
int triangle_soup::weld_slices()
{
    unsigned first_corner = nodes_;
    while (raw_triangles_ > 0)
    {
        const unsigned triangles = std::min(raw_triangles_, slice_size);
        if (const int result = weld_slice(first_corner, triangles); result < 0) return result;
        first_corner += 3 * triangles;
        raw_triangles_ -= triangles;
    }
    pos_.resize(3, nodes_);
    return 0;
}

int triangle_soup::weld_slice(unsigned first_corner, unsigned triangles)
{
    const unsigned count = 3 * triangles;
    const unsigned first_triangle = connect_.cols;
    if (!lengthen(connect_, first_triangle + triangles) || !slice_nodes_.resize(3 * count)) return out_of_memory;
    unsigned* const numbers = connect_.column(first_triangle);

    // A tree hides coincident nodes beneath NaN and never merges infinite ones, so only finite corners can do without it.
    const double* const corners = pos_.column(first_corner);
    if (!all_finite(corners, std::size_t{3} * count) || !number_by_table(corners, count, numbers))
        if (const int result = number_by_tree(first_corner, count, numbers); result < 0) return result;

    // The nodes are no more than the corners that they replace.
    std::copy_n(slice_nodes_.data(), std::size_t{3} * slice_count_, pos_.column(nodes_));
    nodes_ += slice_count_;
    return 0;
}

/// Numbers the corners of a slice by the nodes that they belong to. False, with nothing said, where a table is no way to do it.
bool triangle_soup::number_by_table(const double* corners, unsigned count, unsigned* numbers)
{
    // Slots of the table are asked for a few corners before they are looked at.
    constexpr unsigned ahead = 8;
    std::uint64_t hashes[ahead];
    const auto announce = [&](unsigned i) {
        if (i >= count) return;
        hashes[i % ahead] = point_table<3>::hash(corners + std::size_t{3} * i);
        table_.prefetch(hashes[i % ahead]);
    };

    slice_count_ = 0;
    if (!table_.reset()) return false;
    for (unsigned i = 0; i < ahead; ++i) announce(i);
    const double* const nodes = slice_nodes_.data();
    for (unsigned i = 0; i < count; ++i)
    {
        const double* const corner = corners + std::size_t{3} * i;
        const std::uint64_t hash = hashes[i % ahead];
        announce(i + ahead);
        const unsigned node = table_.find_or_enter(corner, hash, slice_count_, [=](unsigned id) { return nodes + std::size_t{3} * id; });
        if (node == none_index) return false;
        if (node == slice_count_) take_node(corner);
        numbers[i] = nodes_ + node;
    }
    return true;
}

/// The same by `merge`. 0 or a negative code.
int triangle_soup::number_by_tree(unsigned first_corner, unsigned count, unsigned* numbers)
{
    const dense2D<double> corners = pos_.sub_matrix(0, first_corner, 3, count);
    dense2D<unsigned> own_corners;
    dense1D<unsigned> survivors;
    if (!own_corners.resize(3, count / 3)) return out_of_memory;
    std::iota(own_corners.data(), own_corners.data() + count, 0u);
    if (const int result = merge(corners, own_corners, survivors, 0.0, 0); result < 0) return result;

    slice_count_ = 0;
    for (unsigned i = 0; i < count; ++i)
    {
        // A survivor stands before those that it replaces.
        const unsigned survivor = survivors[i];
        numbers[i] = survivor == i ? nodes_ + slice_count_ : numbers[survivor];
        if (survivor == i) take_node(corners.column(i));
    }
    return 0;
}

void triangle_soup::take_node(const double* x)
{
    std::copy_n(x, 3, slice_nodes_.data() + std::size_t{3} * slice_count_);
    ++slice_count_;
}

} // namespace tq4::gridweave
