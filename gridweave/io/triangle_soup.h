#pragma once

// Triangles that come with three points of their own each, and their welding into a mesh with shared nodes.

#include <cfloat>

#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

#include "gridweave/core/point_table.h"

namespace tq4::gridweave
{

/// The squared smallest altitude of a triangle; 0 for one with two equal corners.
double min_triangle_height2(const vector_fixed<double, 3> (&corners)[3]);

/// Collects triangles and welds them. The outcome is that of the following steps, in which every corner is a node at first:
///   1. `merge` with tolerance 0 in each slice of 100,000 triangles by itself,
///   2. `merge` over all triangles with 5% of the smallest positive altitude as tolerance,
///   3. `remove_degenerated` (strict), `simplify`.
/// Without any positive altitude the soup stays as it is.
///
/// Step 1 is done while triangles come in, and the nodes that it leaves without an element go at once, so that memory holds little more
/// than the mesh. That changes neither the order of the nodes nor what the later steps see of them.
class triangle_soup
{
public:
    static constexpr unsigned slice_size = 100000;
    static constexpr double tolerance_in_altitudes = 0.05;

    /// The matrices are replaced; `weld` leaves the result in them.
    triangle_soup(dense2D<double>& pos, dense2D<unsigned>& connect) : pos_(pos), connect_(connect) {}

    /// Appends a triangle. 0 or a negative code.
    int add(const vector_fixed<double, 3> (&corners)[3]);

    /// Welds what was collected. 0 or a negative code.
    int weld();

private:
    bool has_tolerance() const { return least_height2_ < DBL_MAX; }
    int weld_slices();
    int weld_slice(unsigned first_corner, unsigned triangles);
    bool number_by_table(const double* corners, unsigned count, unsigned* numbers);
    int number_by_tree(unsigned first_corner, unsigned count, unsigned* numbers);
    void take_node(const double* x);

    dense2D<double>& pos_;
    dense2D<unsigned>& connect_;
    double least_height2_ = DBL_MAX; ///< smallest positive altitude so far, squared
    unsigned nodes_ = 0;             ///< columns of pos_ that are nodes already; raw corners follow
    unsigned raw_triangles_ = 0;     ///< triangles whose corners are raw, from the start of a slice on

    // Working memory of a slice.
    point_table<3> table_;
    dense1D<double> slice_nodes_; ///< coordinates of the slice's nodes
    unsigned slice_count_ = 0;    ///< how many there are
};

} // namespace tq4::gridweave
