#include "gridweave/metrics/length.h"

#include <gtest/gtest.h>

#include "metrics/tensors.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

/// The logarithmic mean in extended precision.
double exact_mean(double s0, double s1)
{
    const long double ratio = (static_cast<long double>(s1) - s0) / s0;
    return static_cast<double>(ratio == 0 ? s0 : s0 * ratio / std::log1p(ratio));
}

} // namespace

TEST(LogarithmicLength, OfEqualEndsIsThePlainQuotient)
{
    EXPECT_EQ(logarithmic_length(2, 1, 1, false), 2.0);
    EXPECT_EQ(logarithmic_length(2, 1, 1, true), 0.5);
    EXPECT_EQ(logarithmic_length(0.5, 1, 1, true), 0.5);
    EXPECT_EQ(logarithmic_length(0.5, 1, 1, false), 0.5);
    EXPECT_EQ(logarithmic_length(1, 1, 1, true), 1.0);
    EXPECT_EQ(logarithmic_length(3, 4, 4, false), 0.75);
}

TEST(LogarithmicLength, DividesByTheLogarithmicMean)
{
    const double e = 2.718281828459045;
    EXPECT_NEAR(logarithmic_length(1, 1, e, false), 1 / 1.718281828459045, 1e-15);
    EXPECT_NEAR(logarithmic_length(1, 1, e, false), 0.58198, 5e-6);
    EXPECT_EQ(logarithmic_length(1, e, 1, false), logarithmic_length(1, 1, e, false));

    random_source random(1);
    for (unsigned t = 0; t < 100000; ++t)
    {
        const double scale = random_magnitude(random, -15, 15);
        const double s0 = scale * random_magnitude(random, -4, 4);
        const double s1 = t % 2 ? scale * random_magnitude(random, -4, 4) : s0 * random.between(0.9, 1.1);
        const double length = random_magnitude(random, -15, 15);
        // Within what the series leaves out at its end, 0.1.
        const double measured = logarithmic_length(length, s0, s1, false);
        ASSERT_NEAR(measured * exact_mean(s0, s1) / length, 1.0, 3e-6) << s0 << ' ' << s1;
        ASSERT_EQ(measured, logarithmic_length(length, s1, s0, false));
        ASSERT_NEAR(logarithmic_length(length, s0, s1, true), std::min(measured, 1 / measured), 1e-15 + 1e-15 * measured);
        ASSERT_LE(logarithmic_length(length, s0, s1, true), 1.0);
    }
}

TEST(LogarithmicLength, ChangesFromSeriesToLogarithmWithoutAStep)
{
    const double below = logarithmic_length(1, 1, 1.1 - 1e-9, false);
    const double above = logarithmic_length(1, 1, 1.1 + 1e-9, false);
    EXPECT_NEAR(below / above, 1.0, 3e-6);
    EXPECT_NE(below, above);
}

TEST(LogarithmicLength, EvaluatesTheSeriesToTheLastBit)
{
    for (const double r : {0.0, 1e-12, 0.01, 0.05, 0.0999})
    {
        const double x = ((1.0 + r) - 1.0) / 2.0;
        const double mean = 1.0 + x * (1.0 - x * (1.0 / 3.0 - x * (1.0 / 3.0 - 0.42222222222222217 * x)));
        EXPECT_EQ(logarithmic_length(1, 1, 1.0 + r, false), 1.0 / mean) << r;
    }
    // Exactly a tenth is the logarithm's.
    EXPECT_EQ(logarithmic_length(1, 10, 11, false), 1.0 / (10.0 * (0.1 / std::log(1.1))));
    const double r = 0.5;
    EXPECT_EQ(logarithmic_length(1, 1, 1.5, false), 1.0 / (r / std::log(1.0 + r)));
}

TEST(LogarithmicLength, IsZeroForWhatCannotBeMeasured)
{
    for (const bool invert : {false, true})
    {
        EXPECT_EQ(logarithmic_length(1, 0, 0, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, 0, 1, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, 1, 0, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, nan, 1, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, 1, nan, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, nan, nan, invert), 0.0);
        EXPECT_EQ(logarithmic_length(1, infinity, infinity, invert), 0.0);
        EXPECT_EQ(logarithmic_length(0, 1, 2, invert), 0.0);
    }
    EXPECT_EQ(logarithmic_length(1, -1, -1, false), 0.0);
    // Nothing looks for a negative end as such: the series gives what it gives.
    EXPECT_NEAR(logarithmic_length(1, -1, 2, false), 1 / 4.5125, 1e-12);
    EXPECT_NEAR(logarithmic_length(1, -1, -1, true), -1.0, 0.0);
}

TEST(MetricEdgeLength, OfAUniformMetricIsThePlainLength)
{
    double s0 = -1;
    double s1 = -1;
    EXPECT_EQ(metric_edge_length<2>({3, 4}, {1, 0, 1}, {1, 0, 1}, false, s0, s1), 5.0);
    EXPECT_EQ(s0, 5.0);
    EXPECT_EQ(s1, 5.0);
    EXPECT_EQ(metric_edge_length<2>({3, 4}, {1, 0, 1}, {1, 0, 1}, true, s0, s1), 1.0 / 5.0);
    EXPECT_EQ(metric_edge_length<3>({1, 2, 2}, {4, 0, 4, 0, 0, 4}, {4, 0, 4, 0, 0, 4}, false, s0, s1), 6.0);
    EXPECT_EQ(s0, 6.0);
}

TEST(MetricEdgeLength, GivesTheLengthUnderEitherEnd)
{
    double s0 = 0;
    double s1 = 0;
    const double length = metric_edge_length<2>({1, 0}, {1, 0, 9}, {100, 0, 9}, false, s0, s1);
    EXPECT_EQ(s0, 1.0);
    EXPECT_EQ(s1, 10.0);
    // Sizes from 1 to 0.1 along a unit edge.
    EXPECT_NEAR(length, std::log(10.0) / 0.9, 1e-14);
}

template <unsigned D>
void expect_forms_and_length()
{
    random_source random(D);
    for (unsigned t = 0; t < 20000; ++t)
    {
        const double scale = random_magnitude(random, -15, 15);
        const auto m0 = random_tensor<D>(random, 4, scale);
        const auto m1 = random_tensor<D>(random, 4, scale);
        const auto u = random_vector<D>(random);
        double s0 = 0;
        double s1 = 0;
        const double length = metric_edge_length(u, m0, m1, false, s0, s1);
        const double r0 = std::sqrt(exact_form(m0, u));
        const double r1 = std::sqrt(exact_form(m1, u));
        ASSERT_NEAR(s0 / r0, 1.0, 1e-10);
        ASSERT_NEAR(s1 / r1, 1.0, 1e-10);
        ASSERT_EQ(length, logarithmic_length(s0 * s1, s0, s1, false));
        // Backwards along the edge the bits are the same: form values do not see the sign of u.
        auto back = u;
        for (double& x : back.values) x = -x;
        double t0 = 0;
        double t1 = 0;
        ASSERT_EQ(metric_edge_length(back, m1, m0, false, t0, t1), length);
        ASSERT_EQ(t0, s1);
        ASSERT_EQ(t1, s0);
    }
}

TEST(MetricEdgeLength, MatchesTheFormsInExtendedPrecision)
{
    expect_forms_and_length<2>();
    expect_forms_and_length<3>();
}

TEST(MetricEdgeLength, EvaluatesTheFormsInTheirOrder)
{
    const vector_fixed<double, 3> u{0.1, 0.7, -0.3};
    const tensor3 m{1.1, 0.3, 2.3, -0.7, 0.9, 5.1};
    const double x = 0.1;
    const double y = 0.7;
    const double z = -0.3;
    EXPECT_EQ(quadratic_form(m, u), (1.1 * (x * x) + y * (2.3 * y + 2 * 0.3 * x)) + z * ((2 * -0.7 * x + 2 * 0.9 * y) + 5.1 * z));
    EXPECT_EQ(quadratic_form(tensor2{1.1, 0.3, 2.3}, {x, y}), 1.1 * (x * x) + y * (2.3 * y + 2 * 0.3 * x));
}

TEST(MetricEdgeLength, IsZeroForADegenerateEdge)
{
    double s0 = -1;
    double s1 = -1;
    EXPECT_EQ(metric_edge_length<2>({0, 0}, {1, 0, 1}, {1, 0, 1}, false, s0, s1), 0.0);
    EXPECT_EQ(s0, 0.0);
    EXPECT_EQ(s1, 0.0);
    s0 = s1 = -1;
    EXPECT_EQ(metric_edge_length<3>({0, 0, 0}, {1, 0, 1, 0, 0, 1}, {1, 0, 1, 0, 0, 1}, true, s0, s1), 0.0);
    EXPECT_EQ(s0, 0.0);
    EXPECT_EQ(s1, 0.0);
}

TEST(MetricEdgeLength, LeavesTheFormsUnrootedWhereAnEndFails)
{
    double s0 = 0;
    double s1 = 0;
    EXPECT_EQ(metric_edge_length<2>({2, 0}, {-1, 0, 1}, {4, 0, 1}, false, s0, s1), 0.0);
    EXPECT_EQ(s0, -4.0);
    EXPECT_EQ(s1, 16.0);
    EXPECT_EQ(metric_edge_length<2>({2, 0}, {0, 0, 1}, {4, 0, 1}, false, s0, s1), 0.0);
    EXPECT_EQ(s0, 0.0);
    EXPECT_EQ(s1, 16.0);
    EXPECT_EQ(metric_edge_length<2>({2, 0}, {4, 0, 1}, {-1, 0, 1}, true, s0, s1), 0.0);
    EXPECT_EQ(s0, 16.0);
    EXPECT_EQ(s1, -4.0);
    EXPECT_EQ(metric_edge_length<2>({2, 0}, {4, 0, 1}, {nan, 0, 1}, false, s0, s1), 0.0);
    EXPECT_EQ(s0, 16.0);
    EXPECT_TRUE(std::isnan(s1));
    EXPECT_EQ(metric_edge_length<3>({2, 0, 0}, {nan, 0, 1, 0, 0, 1}, {4, 0, 1, 0, 0, 1}, false, s0, s1), 0.0);
    EXPECT_TRUE(std::isnan(s0));
    EXPECT_EQ(s1, 16.0);
}

} // namespace tq4::gridweave
