#pragma once

// Minimum of a function of one variable on an interval, by bisection of three points.

#include <cmath>

namespace tq4::gridweave
{

struct minimum_on_interval
{
    double t;
    double value;
};

/// Searches the interval `lo` to `hi` for a minimum of `f`, until the values at its ends differ from the one in its middle by at most
/// `value_tolerance`, or both halves are at most `step_tolerance` long. Every round halves the interval: towards the quarter that lies
/// lower than the middle, around the middle when none does, and towards the lower end while the middle is no minimum itself.
template <class Function>
minimum_on_interval minimize_on_interval(double lo, double hi, double value_tolerance, double step_tolerance, Function&& f)
{
    double f_lo = f(lo);
    double mid = lo;
    double f_mid = f_lo;
    double f_hi = f(hi);
    if (!(hi > lo)) return {mid, f_mid};

    mid = (lo + hi) / 2;
    f_mid = f(mid);
    for (;;)
    {
        const double q1 = (lo + mid) / 2;
        const double q3 = (mid + hi) / 2;
        if (f_mid < f_lo && f_mid < f_hi)
        {
            const double f1 = f(q1);
            if (f1 < f_mid)
            {
                hi = mid, f_hi = f_mid;
                mid = q1, f_mid = f1;
            }
            else
            {
                const double f3 = f(q3);
                if (f3 < f_mid)
                {
                    lo = mid, f_lo = f_mid;
                    mid = q3, f_mid = f3;
                }
                else
                {
                    lo = q1, f_lo = f1;
                    hi = q3, f_hi = f3;
                }
            }
        }
        else
        {
            if (f_hi < f_lo)
            {
                lo = mid, f_lo = f_mid;
                mid = q3;
            }
            else
            {
                hi = mid, f_hi = f_mid;
                mid = q1;
            }
            f_mid = f(mid);
        }

        const double to_hi = std::fabs(f_mid - f_hi);
        const double to_lo = std::fabs(f_mid - f_lo);
        if ((to_hi > to_lo ? to_hi : to_lo) <= value_tolerance) break;
        if (mid - lo <= step_tolerance && hi - mid <= step_tolerance) break;
    }

    if (f_mid > f_lo && f_lo < f_hi) return {lo, f_lo};
    if (f_hi < f_lo && f_mid > f_hi) return {hi, f_hi};
    return {mid, f_mid};
}

} // namespace tq4::gridweave
