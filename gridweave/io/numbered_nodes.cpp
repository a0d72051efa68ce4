#include "gridweave/io/numbered_nodes.h"

#include <algorithm>

#include "gridweave/io/mesh_ranges.h"

namespace tq4::gridweave
{

namespace
{

/// Reserves a power of two of columns or, where memory does not hold that, as much of the way to it as it does hold, so that a sequence of
/// growing numbers does not move the matrix at each of them.
bool reserve_ahead(dense2D<double>& pos, unsigned cols)
{
    for (unsigned ahead = columns_to_reserve(cols - 1) - cols;; ahead /= 2)
    {
        if (pos.reserve(3, cols + ahead, 1)) return true;
        if (ahead == 0) return false;
    }
}

} // namespace

bool numbered_nodes::widen(unsigned cols)
{
    if (cols <= pos_.column_capacity()) return pos_.resize(3, cols);

    dense2D<double> wider;
    if (!reserve_ahead(wider, cols) || !wider.resize(3, cols)) return false;
    for (const unsigned column : set_) std::copy_n(pos_.column(column), 3, wider.column(column));
    pos_ = wider;
    return true;
}

} // namespace tq4::gridweave
