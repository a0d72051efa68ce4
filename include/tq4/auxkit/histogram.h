#pragma once

#include <string>

#include <tq4/export.h>
#include <tq4/numcore/dense1d.h>

namespace tq4
{
namespace auxkit
{

/// Counts values, for reports: how many, smallest, largest, mean, and how they spread over equal bins. NaN is counted apart and enters
/// nothing else. Nothing throws.
class TQ4_AUXKIT_API histogram
{
public:
    using counter = unsigned long long;

    /// Counts without bins.
    histogram() noexcept;

    /// `bins` equal bins over [low, high), with an underflow and an overflow counter beside them. Without bins where the range is empty or
    /// not finite, `bins` is 0, or memory runs out.
    histogram(double low, double high, unsigned bins) noexcept;

    histogram(const histogram& other) noexcept;
    histogram(histogram&& other) noexcept;
    histogram& operator=(const histogram& other) noexcept;
    histogram& operator=(histogram&& other) noexcept;
    ~histogram();

    /// Counts one value. A value equal to `bin_low(i)` falls into bin i; one below `low` counts as underflow, one at or above `high`
    /// (infinity too) as overflow.
    void process(double value) noexcept;

    counter count() const noexcept;     ///< values processed, NaN left out
    counter nan_count() const noexcept; ///< NaN values processed
    double min() const noexcept;        ///< smallest value, NaN when there is none
    double max() const noexcept;        ///< largest value, NaN when there is none
    double mean() const noexcept;       ///< arithmetic mean, NaN when there is no value

    unsigned bins() const noexcept;               ///< number of bins, 0 when counting without bins
    counter bin_count(unsigned i) const noexcept; ///< values in bin i, 0 when there is no such bin
    double bin_low(unsigned i) const noexcept;    ///< lower bound of bin i; the upper bound of the last one for i = bins()
    counter underflow() const noexcept;           ///< values below the range
    counter overflow() const noexcept;            ///< values at or above its end

    /// Forgets all values and keeps the bins.
    void reset() noexcept;

    /// One line per bin as text, "low .. high  count  bar", the longest bar `width` characters long, with lines for underflow, overflow
    /// and NaN where there are any. Empty where memory runs out.
    std::string render(unsigned width = 50) const noexcept;

private:
    double low_ = 0.0;
    double high_ = 0.0;
    dense1D<counter> bins_;
    counter count_ = 0;
    counter nan_count_ = 0;
    counter underflow_ = 0;
    counter overflow_ = 0;
    double min_ = 0.0;
    double max_ = 0.0;
    double sum_ = 0.0;
};

} // namespace auxkit
} // namespace tq4
