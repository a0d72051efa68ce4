#pragma once

// The metrics on the way from one end of an edge to the other: sizes change linearly, tensors in the sizes of their common basis.

#include <cfloat>
#include <cmath>

#include "gridweave/metrics/reduction.h"

namespace tq4::gridweave
{

constexpr double size_from_eigenvalue(double eigenvalue)
{
    return 1 / std::sqrt(eigenvalue);
}

/// Sizes whose square leaves the range of normal numbers stand for no limit at all, below or above.
inline double eigenvalue_from_size(double size)
{
    static const double smallest = std::sqrt(DBL_MIN);
    static const double largest = std::sqrt(DBL_MAX);
    if (size < smallest) return DBL_MAX;
    if (size > largest) return 0;
    return 1 / (size * size);
}

template <class Metric>
class metric_path;

/// From one size to another.
template <>
class metric_path<double>
{
public:
    metric_path(double start, double goal) : start_(start), goal_(goal) {}

    /// True when the fraction 0 is the start itself: not so on a way to infinity.
    bool begins_at_start() const { return std::isfinite(goal_ - start_); }

    /// The size at the fraction `t` of the way. False when it is no valid size.
    bool at(double t, double& size) const
    {
        size = start_ + t * (goal_ - start_);
        return 0 < size && size < DBL_MAX;
    }

private:
    double start_;
    double goal_;
};

/// From one tensor to another. The pair is reduced to its common basis once, when a fraction first asks for it.
template <unsigned D>
class metric_path<tensor<D>>
{
public:
    using metric = tensor<D>;

    metric_path(const metric& start, const metric& goal) : start_(start), goal_(goal) {}

    bool begins_at_start() const { return true; }

    /// The tensor at the fraction `t` of the way, from 0 to 1. False, with `result` as it was, when the pair has no common basis. The ends
    /// are given back as they stand, whatever they are.
    bool at(double t, metric& result)
    {
        constexpr double end_tolerance = 1e-12;
        if (std::fabs(t) < end_tolerance)
        {
            result = start_;
            return true;
        }
        if (std::fabs(t - 1) < end_tolerance)
        {
            result = goal_;
            return true;
        }
        if (!reduce()) return false;
        vector_fixed<double, D> m{};
        for (unsigned k = 0; k < D; ++k) m[k] = eigenvalue_from_size(size0_[k] + (size1_[k] - size0_[k]) * t);
        result = compose_metric(m, pair_.inverse_rows);
        return true;
    }

private:
    bool reduce()
    {
        if (state_ == state::unknown)
        {
            state_ = simultaneous_reduction(start_, goal_, pair_) ? state::reduced : state::irreducible;
            for (unsigned k = 0; k < D; ++k)
            {
                size0_[k] = size_from_eigenvalue(pair_.a[k]);
                size1_[k] = size_from_eigenvalue(pair_.b[k]);
            }
        }
        return state_ == state::reduced;
    }

    enum class state : unsigned char
    {
        unknown,
        reduced,
        irreducible
    };

    const metric& start_;
    const metric& goal_;
    reduced_pair<D> pair_;
    vector_fixed<double, D> size0_;
    vector_fixed<double, D> size1_;
    state state_ = state::unknown;
};

} // namespace tq4::gridweave
