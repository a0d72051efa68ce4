#pragma once

// Metric tensors for benchmarks.

#include <algorithm>
#include <cmath>
#include <random>

#include <tq4/numcore/numcore.h>

namespace bench
{

using tensor3 = tq4::symmetric_fixed<double, 3>;

/// Positive definite tensors with sizes over three decades in random directions, 6 rows × count.
inline tq4::dense2D<double> random_tensors(unsigned count, unsigned seed)
{
    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> exponent(-3.0, 3.0);
    std::normal_distribution<double> component;
    tq4::dense2D<double> metrics(6, count);
    for (unsigned c = 0; c < count; ++c)
    {
        double q[4];
        double length = 0;
        for (double& x : q)
        {
            x = component(engine);
            length += x * x;
        }
        for (double& x : q) x /= std::sqrt(length);
        const double w = q[0], x = q[1], y = q[2], z = q[3]; // a unit quaternion: a random rotation
        const double axes[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                                   {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                                   {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}};
        tensor3 m{};
        for (const auto& axis : axes)
        {
            const double value = std::pow(10.0, exponent(engine));
            for (unsigned j = 0; j < 3; ++j)
                for (unsigned i = 0; i <= j; ++i) m(i, j) += value * axis[i] * axis[j];
        }
        std::copy_n(m.values, 6, metrics.column(c));
    }
    return metrics;
}

inline tensor3 tensor_of(const tq4::dense2D<double>& metrics, unsigned c)
{
    tensor3 m;
    std::copy_n(metrics.column(c), 6, m.values);
    return m;
}

} // namespace bench
