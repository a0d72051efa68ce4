#pragma once

// Large clouds of points for benchmarks.

#include <cmath>
#include <random>

#include <tq4/numcore/dense2d.h>

namespace bench
{

using tq4::dense2D;

class random_numbers
{
public:
    explicit random_numbers(unsigned seed) : engine_(seed) {}
    double operator()() { return static_cast<double>(engine_() >> 11) * 0x1p-53; }

private:
    std::mt19937_64 engine_;
};

inline dense2D<double> points_in_cube(unsigned count, unsigned seed)
{
    random_numbers random(seed);
    dense2D<double> pos(3, count);
    for (unsigned c = 0; c < count; ++c)
        for (unsigned k = 0; k < 3; ++k) pos(k, c) = random();
    return pos;
}

inline dense2D<double> points_on_surface(unsigned count, unsigned seed)
{
    dense2D<double> pos = points_in_cube(count, seed);
    for (unsigned c = 0; c < count; ++c) pos(2, c) = 0.2 * std::sin(6.0 * pos(0, c)) * std::cos(5.0 * pos(1, c));
    return pos;
}

/// Every point of the first half has a partner within 0.87 times `tolerance` in the second.
inline dense2D<double> points_in_pairs(unsigned count, double tolerance)
{
    random_numbers random(3);
    dense2D<double> pos = points_in_cube(count, 1);
    for (unsigned c = count / 2; c < count; ++c)
        for (unsigned k = 0; k < 3; ++k) pos(k, c) = pos(k, c - count / 2) + tolerance * (random() - 0.5);
    return pos;
}

} // namespace bench
