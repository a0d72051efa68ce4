#pragma once

// Reading a metric field, of sizes or of tensors, by node. A field may be shorter than the mesh, or have too few rows for its dimension:
// nothing is read beyond what it has.

#include "gridweave/metrics/tensor.h"

namespace tq4::gridweave
{

class size_reader
{
public:
    explicit size_reader(const dense1D<double>& sizes) : sizes_(sizes.data()), count_(sizes.size) {}

    bool has(unsigned node) const { return node < count_; }
    double operator[](unsigned node) const { return sizes_[node]; }

private:
    const double* sizes_;
    unsigned count_;
};

template <unsigned D>
class tensor_reader
{
public:
    explicit tensor_reader(const dense2D<double>& metrics)
        : base_(metrics.data()), step_(metrics.ld), count_(metrics.rows < tensor<D>::count ? 0 : metrics.cols)
    {
    }

    bool has(unsigned node) const { return node < count_; }
    tensor<D> operator[](unsigned node) const { return tensor_at<D>(base_ + step_ * node); }

private:
    const double* base_;
    std::size_t step_;
    unsigned count_;
};

/// The reader of a field over a mesh of D dimensions.
template <unsigned D>
size_reader read_field(const dense1D<double>& sizes)
{
    return size_reader(sizes);
}

template <unsigned D>
tensor_reader<D> read_field(const dense2D<double>& metrics)
{
    return tensor_reader<D>(metrics);
}

} // namespace tq4::gridweave
