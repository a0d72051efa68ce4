#include <cmath>
#include <limits>
#include <utility>

#include <gtest/gtest.h>

#include <tq4/auxkit/histogram.h>

#include "support/failing_allocator.h"

namespace
{

using namespace tq4;
using auxkit::histogram;

constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double infinity = std::numeric_limits<double>::infinity();

TEST(Histogram, CountsWithoutBins)
{
    histogram h;
    EXPECT_EQ(h.count(), 0u);
    EXPECT_TRUE(std::isnan(h.min()));
    EXPECT_TRUE(std::isnan(h.max()));
    EXPECT_TRUE(std::isnan(h.mean()));

    for (const double value : {3.0, -1.0, 4.0}) h.process(value);
    EXPECT_EQ(h.count(), 3u);
    EXPECT_EQ(h.min(), -1.0);
    EXPECT_EQ(h.max(), 4.0);
    EXPECT_EQ(h.mean(), 2.0);
    EXPECT_EQ(h.bins(), 0u);
    EXPECT_EQ(h.underflow() + h.overflow(), 0u);
    EXPECT_EQ(h.render(), "");
}

TEST(Histogram, PutsEveryValueIntoItsBin)
{
    histogram h(0.0, 10.0, 5);
    EXPECT_EQ(h.bins(), 5u);
    for (const double value : {0.0, 1.9, 2.0, 9.9, 10.0, -0.1, 1e300, infinity, -infinity}) h.process(value);
    EXPECT_EQ(h.bin_count(0), 2u);
    EXPECT_EQ(h.bin_count(1), 1u);
    EXPECT_EQ(h.bin_count(2), 0u);
    EXPECT_EQ(h.bin_count(4), 1u);
    EXPECT_EQ(h.underflow(), 2u);
    EXPECT_EQ(h.overflow(), 3u);
    EXPECT_EQ(h.count(), 9u);
    EXPECT_EQ(h.max(), infinity);
    EXPECT_EQ(h.min(), -infinity);
    EXPECT_EQ(h.bin_low(0), 0.0);
    EXPECT_EQ(h.bin_low(3), 6.0);
    EXPECT_EQ(h.bin_low(5), 10.0);
    EXPECT_EQ(h.bin_count(5), 0u);
}

TEST(Histogram, CountsNotANumberApart)
{
    histogram h(0.0, 1.0, 2);
    h.process(nan);
    h.process(0.25);
    h.process(nan);
    EXPECT_EQ(h.nan_count(), 2u);
    EXPECT_EQ(h.count(), 1u);
    EXPECT_EQ(h.min(), 0.25);
    EXPECT_EQ(h.max(), 0.25);
    EXPECT_EQ(h.mean(), 0.25);
    EXPECT_EQ(h.bin_count(0) + h.bin_count(1) + h.underflow() + h.overflow(), 1u);
}

TEST(Histogram, LowerBoundsBelongToTheirBins)
{
    for (const unsigned bins : {1u, 3u, 7u, 10u, 49u, 1000u})
    {
        histogram h(-0.7, 1.3, bins);
        for (unsigned i = 0; i < bins; ++i)
        {
            h.process(h.bin_low(i));
            if (i > 0) h.process(std::nextafter(h.bin_low(i), -infinity));
        }
        for (unsigned i = 0; i < bins; ++i) EXPECT_EQ(h.bin_count(i), i + 1 < bins ? 2u : 1u) << bins << ' ' << i;
    }
}

TEST(Histogram, ServesRangesAtTheEndsOfTheNumbers)
{
    histogram wide(0.0, 1.6e308, 4);
    EXPECT_EQ(wide.bin_low(3), 1.2e308);
    wide.process(1.3e308);
    EXPECT_EQ(wide.bin_count(3), 1u);

    // Far more bins than there are numbers in the range.
    histogram narrow(1.0, std::nextafter(1.0, 2.0), 100000);
    for (int k = 0; k < 10000; ++k) narrow.process(1.0);
    histogram::counter counted = 0;
    for (unsigned i = 0; i < narrow.bins(); ++i) counted += narrow.bin_count(i);
    EXPECT_EQ(counted, 10000u);
}

TEST(Histogram, HasNoBinsOverABadRange)
{
    for (const auto& [low, high] :
         {std::pair{1.0, 1.0}, {2.0, 1.0}, {nan, 1.0}, {0.0, nan}, {0.0, infinity}, {-infinity, 0.0}, {-1.7e308, 1.7e308}})
    {
        histogram h(low, high, 4);
        EXPECT_EQ(h.bins(), 0u);
        h.process(0.5);
        EXPECT_EQ(h.count(), 1u);
    }
    EXPECT_EQ(histogram(0.0, 1.0, 0).bins(), 0u);
}

TEST(Histogram, HasNoBinsWithoutMemory)
{
    const test::failing_allocation failing(1);
    histogram h(0.0, 1.0, 4);
    EXPECT_EQ(h.bins(), 0u);
    h.process(0.5);
    EXPECT_EQ(h.count(), 1u);
}

TEST(Histogram, CopiesHaveCountersOfTheirOwn)
{
    histogram h(0.0, 1.0, 2);
    h.process(0.1);
    histogram copy(h);
    copy.process(0.1);
    EXPECT_EQ(h.bin_count(0), 1u);
    EXPECT_EQ(copy.bin_count(0), 2u);
    h = copy;
    h.process(0.9);
    EXPECT_EQ(h.bin_count(1), 1u);
    EXPECT_EQ(copy.bin_count(1), 0u);
    EXPECT_EQ(h.count(), 3u);

    const histogram moved(std::move(copy));
    EXPECT_EQ(moved.bin_count(0), 2u);
}

TEST(Histogram, AssignedToItselfKeepsItsCounts)
{
    histogram h(0.0, 4.0, 4);
    h.process(1.5);
    const histogram& same = h;
    h = same;
    EXPECT_EQ(h.count(), 1u);
    EXPECT_EQ(h.bins(), 4u);
    EXPECT_EQ(h.bin_count(1), 1u);
}

TEST(Histogram, ResetKeepsTheBins)
{
    histogram h(0.0, 1.0, 2);
    for (const double value : {0.1, 5.0, -5.0, nan}) h.process(value);
    h.reset();
    EXPECT_EQ(h.bins(), 2u);
    EXPECT_EQ(h.count() + h.nan_count() + h.underflow() + h.overflow() + h.bin_count(0) + h.bin_count(1), 0u);
    EXPECT_TRUE(std::isnan(h.mean()));
    h.process(2.0);
    EXPECT_EQ(h.min(), 2.0);
    EXPECT_EQ(h.max(), 2.0);
}

TEST(Histogram, RendersBars)
{
    histogram h(0.0, 2.0, 2);
    for (const double value : {0.5, 0.5, 1.5, 3.0, nan}) h.process(value);
    EXPECT_EQ(h.render(4), "           0 .. 1                     2  ####\n"
                           "           1 .. 2                     1  ##\n"
                           "                       above          1\n"
                           "                         NaN          1\n");
}

TEST(Histogram, PutsValuesThatRoundToTheUpperBoundIntoTheLastBin)
{
    // Beside the width of the range the distance of the value to the bound is lost.
    histogram h(-1.0, 1e-17, 4);
    h.process(5e-18);
    EXPECT_EQ(h.bin_count(3), 1u);
    EXPECT_EQ(h.overflow(), 0u);
    h.process(1e-17);
    EXPECT_EQ(h.bin_count(3), 1u);
    EXPECT_EQ(h.overflow(), 1u);
}

} // namespace
