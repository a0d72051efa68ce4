#pragma once

// Nodes that a file numbers itself, put at the column of their number.

#include <cstdint>

#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4::gridweave
{

/// Puts nodes into a coordinate matrix of 3 rows that grows to the largest number; the columns of numbers that never come are zero.
///
/// A single large number makes the matrix wide, and memory for it is taken from the system as zero pages. Growing copies no more than the
/// columns that were set, so the pages in a gap are never touched and a short file costs little whatever its numbers are.
class numbered_nodes
{
public:
    /// Empties `pos` and gives its storage up.
    explicit numbered_nodes(dense2D<double>& pos) : pos_(pos) { pos.clear_hard(); }

    /// Sets the node of a number from 1 on, which is column `number` - 1; a node that comes again is overwritten. False, with the matrix as
    /// it was, when memory does not hold so many columns.
    bool put(unsigned number, const vector_fixed<double, 3>& x)
    {
        if (!set_.reserve(set_.size + 1, 2) || (number > pos_.cols && !widen(number))) return false;
        double* const column = pos_.column(number - 1);
        for (unsigned k = 0; k < 3; ++k) column[k] = x[k];
        set_.push_back(number - 1);
        return true;
    }

private:
    bool widen(unsigned cols);

    dense2D<double>& pos_;
    dense1D<unsigned> set_; ///< columns in the order in which they were set
};

} // namespace tq4::gridweave
