#pragma once

// Reading nodes out of a coordinate matrix.

#include <tq4/gridweave/core.h>
#include <tq4/numcore/fixed.h>

namespace tq4::gridweave
{

/// Reads a coordinate matrix as points of D components; rows that the matrix does not have read as 0, so a 2-row mesh lies at z = 0.
template <unsigned D>
class point_reader
{
public:
    explicit point_reader(const dense2D<double>& pos) : base_(pos.data()), step_(pos.ld), rows_(pos.rows < D ? pos.rows : D) {}

    vector_fixed<double, D> operator[](unsigned node) const
    {
        const double* x = base_ + step_ * node;
        vector_fixed<double, D> point{};
        if (rows_ == D)
            for (unsigned k = 0; k < D; ++k) point[k] = x[k];
        else
            for (unsigned k = 0; k < rows_; ++k) point[k] = x[k];
        return point;
    }

private:
    const double* base_;
    std::size_t step_;
    unsigned rows_;
};

} // namespace tq4::gridweave
