#include <tq4/auxkit/histogram.h>

#include <cmath>
#include <cstdio>
#include <limits>

namespace tq4::auxkit
{

histogram::histogram() noexcept = default;

histogram::histogram(double low, double high, unsigned bins) noexcept
{
    if (!(low < high) || !std::isfinite(low) || !std::isfinite(high) || !std::isfinite(high - low)) return;
    if (!bins_.resize(bins, 0)) bins_.size = 0;
    low_ = low;
    high_ = high;
}

histogram::histogram(const histogram& other) noexcept
{
    *this = other;
}
histogram::histogram(histogram&& other) noexcept = default;
histogram& histogram::operator=(histogram&& other) noexcept = default;
histogram::~histogram() = default;

histogram& histogram::operator=(const histogram& other) noexcept
{
    if (this == &other) return *this;
    // The counters must not be shared, which is what copying a view would do.
    if (!bins_.copy(other.bins_)) bins_.size = 0;
    low_ = other.low_;
    high_ = other.high_;
    count_ = other.count_;
    nan_count_ = other.nan_count_;
    underflow_ = other.underflow_;
    overflow_ = other.overflow_;
    min_ = other.min_;
    max_ = other.max_;
    sum_ = other.sum_;
    return *this;
}

void histogram::process(double value) noexcept
{
    if (std::isnan(value))
    {
        ++nan_count_;
        return;
    }
    min_ = count_ == 0 || value < min_ ? value : min_;
    max_ = count_ == 0 || value > max_ ? value : max_;
    sum_ += value;
    ++count_;

    if (bins_.empty()) return;
    if (value < low_)
        ++underflow_;
    else if (value >= high_)
        ++overflow_;
    else
    {
        const double scaled = (value - low_) / (high_ - low_) * bins_.size;
        unsigned i = scaled < bins_.size ? static_cast<unsigned>(scaled) : bins_.size - 1;
        // Rounding may put a value on the wrong side of a bound; where bins are narrower than the spacing of doubles, far from it.
        if (value < bin_low(i) || value >= bin_low(i + 1))
        {
            i = 0;
            for (unsigned end = bins_.size; end - i > 1;)
            {
                const unsigned middle = i + (end - i) / 2;
                (value < bin_low(middle) ? end : i) = middle;
            }
        }
        ++bins_[i];
    }
}

histogram::counter histogram::count() const noexcept
{
    return count_;
}
histogram::counter histogram::nan_count() const noexcept
{
    return nan_count_;
}
double histogram::min() const noexcept
{
    return count_ ? min_ : std::numeric_limits<double>::quiet_NaN();
}
double histogram::max() const noexcept
{
    return count_ ? max_ : std::numeric_limits<double>::quiet_NaN();
}
double histogram::mean() const noexcept
{
    return count_ ? sum_ / static_cast<double>(count_) : std::numeric_limits<double>::quiet_NaN();
}
unsigned histogram::bins() const noexcept
{
    return bins_.size;
}
histogram::counter histogram::bin_count(unsigned i) const noexcept
{
    return i < bins_.size ? bins_[i] : 0;
}
histogram::counter histogram::underflow() const noexcept
{
    return underflow_;
}
histogram::counter histogram::overflow() const noexcept
{
    return overflow_;
}

double histogram::bin_low(unsigned i) const noexcept
{
    if (i >= bins_.size) return high_;
    const double below = (high_ - low_) * i;
    // A range close to the largest double is divided first, which rounds more.
    return low_ + (std::isfinite(below) ? below / bins_.size : (high_ - low_) / bins_.size * i);
}

void histogram::reset() noexcept
{
    bins_ = 0;
    count_ = nan_count_ = underflow_ = overflow_ = 0;
    min_ = max_ = sum_ = 0.0;
}

std::string histogram::render(unsigned width) const noexcept
{
    try
    {
        counter longest = 1;
        for (const counter n : bins_) longest = n > longest ? n : longest;

        std::string text;
        char line[96];
        for (unsigned i = 0; i < bins_.size; ++i)
        {
            const auto bar = static_cast<std::size_t>(std::lround(static_cast<double>(bins_[i]) / static_cast<double>(longest) * width));
            std::snprintf(line, sizeof line, "%12.5g .. %-12.5g %10llu  ", bin_low(i), bin_low(i + 1), bins_[i]);
            text.append(line).append(bar, '#').append("\n");
        }
        const auto counted = [&](const char* what, counter n) {
            if (n == 0) return;
            std::snprintf(line, sizeof line, "%28s %10llu\n", what, n);
            text.append(line);
        };
        counted("below", underflow_);
        counted("above", overflow_);
        counted("NaN", nan_count_);
        return text;
    }
    catch (...)
    {
        return {};
    }
}

} // namespace tq4::auxkit
