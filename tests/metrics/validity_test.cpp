#include "gridweave/metrics/validity.h"

#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>
#include <tq4/numcore/lapack.h>

#include "metrics/tensors.h"
#include "support/failing_allocator.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

const tensor2 unit2{1, 0, 1};
const tensor2 bad2{1, 0, -1};
const tensor3 unit3{1, 0, 1, 0, 0, 1};
const tensor3 bad3{1, 0, 1, 0, 0, 0};

/// What LAPACK says of the smallest eigenvalue.
bool has_positive_eigenvalues(tensor3 m)
{
    double w[3] = {};
    double work[10] = {};
    long info = 0;
    lapack::dspev('N', 'U', 3, m.values, w, nullptr, 1, work, info);
    return 0.0 < w[0];
}

template <class Tensor>
void expect_invalid_with_any_broken_entry(const Tensor& good)
{
    ASSERT_TRUE(is_valid_metric(good));
    for (const double broken : {nan, infinity, -infinity})
        for (unsigned k = 0; k < Tensor::count; ++k)
        {
            Tensor m = good;
            m[k] = broken;
            EXPECT_FALSE(is_valid_metric(m)) << broken << " at " << k;
        }
    for (const double broken : {nan, infinity, -infinity})
    {
        Tensor m;
        std::fill(std::begin(m.values), std::end(m.values), broken);
        EXPECT_FALSE(is_valid_metric(m));
    }
}

} // namespace

TEST(MetricValidity, OfTensorsOfThePlane)
{
    EXPECT_TRUE(is_valid_metric(tensor2{1, 0, 1}));
    EXPECT_FALSE(is_valid_metric(tensor2{1, 1, 1}));
    EXPECT_FALSE(is_valid_metric(tensor2{0, 0, 0}));
    EXPECT_FALSE(is_valid_metric(tensor2{1, 0, -1}));
    EXPECT_FALSE(is_valid_metric(tensor2{-1, 0, -1}));
    EXPECT_FALSE(is_valid_metric(tensor2{1, 2, 1}));
    EXPECT_TRUE(is_valid_metric(tensor2{1, 0.999, 1}));
}

TEST(MetricValidity, SeesASmallEigenvalueBehindCancellation)
{
    // The eigenvalues are 2 and about 1e-15; half the difference of sum and root alone would give 0 or noise.
    const double b = 1.0 - 1e-15;
    EXPECT_TRUE(is_valid_metric(tensor2{1, b, 1}));
    EXPECT_FALSE(is_valid_metric(tensor2{b, 1, 1}));
    EXPECT_TRUE(is_valid_metric(tensor2{1e30, 0, 1e-30}));
    EXPECT_FALSE(is_valid_metric(tensor2{1e30, 0, -1e-30}));
}

TEST(MetricValidity, OfTensorsOfSpace)
{
    EXPECT_TRUE(is_valid_metric(tensor3{1, 0, 1, 0, 0, 1}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, 0, 1, 0, 0, 0}));
    EXPECT_FALSE(is_valid_metric(tensor3{0, 0, 0, 0, 0, 0}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, 0, 1, 0, 0, -1e-3}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, 2, 1, 0, 0, 1}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, 0, 1, 2, 0, 1}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, 0, 1, 0, 2, 1}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, -0.9, 1, -0.9, -0.9, 1})); // all 2 × 2 minors are positive, the determinant is not
    EXPECT_FALSE(is_valid_metric(tensor3{-1, 0, -1, 0, 0, 1}));        // the determinant is positive, nothing else is
}

TEST(MetricValidity, RefusesNaNAndInfinityAnywhere)
{
    expect_invalid_with_any_broken_entry(tensor2{2, 0.5, 3});
    expect_invalid_with_any_broken_entry(tensor3{2, 0.5, 3, 0.25, -0.5, 4});
    EXPECT_FALSE(is_valid_metric(tensor2{infinity, 0, infinity}));
    EXPECT_FALSE(is_valid_metric(tensor3{infinity, 0, infinity, 0, 0, infinity}));
}

TEST(MetricValidity, TakesTheExtremesOfDoubles)
{
    constexpr double tiny = std::numeric_limits<double>::denorm_min();
    EXPECT_TRUE(is_valid_metric(tensor2{tiny, 0, tiny * 4}));
    for (const double value : {tiny, 1e-300, 1e-200, 1e-31, 1e-29, 1e29, 1e31, 1e200, 1e300, largest})
    {
        const tensor3 m{value, 0, value, 0, 0, value};
        EXPECT_EQ(is_valid_metric(m), has_positive_eigenvalues(m)) << value;
        EXPECT_FALSE(is_valid_metric(tensor3{value, 0, value, 0, 0, -value})) << value;
    }
    EXPECT_TRUE(is_valid_metric(tensor3{1e200, 0, 1e200, 0, 0, 1e200}));
    EXPECT_FALSE(is_valid_metric(tensor3{1, largest, 1, largest, largest, 1}));
}

// The answer in space is defined by LAPACK's eigenvalues; minors only save the call where they leave no doubt.

TEST(MetricValidity, EqualsLapackOnRandomEigenvalues)
{
    random_source random(1);
    unsigned valid = 0;
    constexpr unsigned trials = 700000;
    for (unsigned t = 0; t < trials; ++t)
    {
        // Smallest eigenvalues of both signs, from the size of the others down to what rounding leaves of them.
        const double range = t % 8 ? 35 : 140;
        const double scale = random_magnitude(random, -range, range);
        const double smallest = (random.below(2) ? 1 : -1) * random_magnitude(random, -18, 0);
        const auto m = rotated<3>(random, {scale * random_magnitude(random, -8, 0), scale, scale * smallest});
        const bool expected = has_positive_eigenvalues(m);
        valid += expected;
        ASSERT_EQ(is_valid_metric(m), expected) << t;
    }
    EXPECT_GT(valid, trials / 4);
    EXPECT_LT(valid, 3 * (trials / 4));
}

TEST(MetricValidity, EqualsLapackOnRandomEntries)
{
    random_source random(2);
    unsigned valid = 0;
    for (unsigned t = 0; t < 700000; ++t)
    {
        tensor3 m;
        for (unsigned k = 0; k < 3; ++k) m(k, k) = random_magnitude(random, -15, 15);
        if (t % 3 == 0) m(random.below(3), random.below(3)) *= -1;
        for (unsigned j = 1; j < 3; ++j)
            for (unsigned i = 0; i < j; ++i) m(i, j) = random.between(-1.0, 1.0) * std::sqrt(std::abs(m(i, i) * m(j, j)));
        const bool expected = has_positive_eigenvalues(m);
        valid += expected;
        ASSERT_EQ(is_valid_metric(m), expected) << t;
    }
    EXPECT_GT(valid, 10000u);
}

TEST(MetricValidity, EqualsLapackOnSingularTensors)
{
    random_source random(3);
    for (unsigned t = 0; t < 700000; ++t)
    {
        // Exact tensors of rank one and two, and the same with one entry off by some last digits.
        vector_fixed<double, 3> v{};
        vector_fixed<double, 3> w{};
        for (unsigned k = 0; k < 3; ++k)
        {
            v[k] = random.below(9) - 4.0;
            w[k] = t % 2 ? random.below(9) - 4.0 : 0.0;
        }
        tensor3 m;
        for (unsigned j = 0; j < 3; ++j)
            for (unsigned i = 0; i <= j; ++i) m(i, j) = std::ldexp(v[i] * v[j] + w[i] * w[j], static_cast<int>(t % 301) - 150);
        if (t % 4 > 1) m[random.below(6)] *= 1.0 + random.between(-1.0, 1.0) * random_magnitude(random, -16, -10);
        ASSERT_EQ(is_valid_metric(m), has_positive_eigenvalues(m)) << t;
    }
}

TEST(EigenvaluesWithinLimits, AreCertainOnlyWhereLapackAgrees)
{
    random_source random(4);
    unsigned certain = 0;
    unsigned inside = 0;
    constexpr unsigned trials = 500000;
    for (unsigned t = 0; t < trials; ++t)
    {
        // Limits at an eigenvalue, off by anything from a last digit to much.
        const double scale = random_magnitude(random, -32, 32);
        const vector_fixed<double, 3> values{scale * random_magnitude(random, -6, 0), scale, scale * random_magnitude(random, -6, 0)};
        const double smallest = std::min(values[0], values[2]);
        const double lower = t % 5 ? smallest * (1 - random.between(-0.1, 1.0) * random_magnitude(random, -16, 0)) : 0;
        const double upper = t % 7 ? scale * (1 + random.between(-0.1, 1.0) * random_magnitude(random, -16, 1)) : largest;
        tensor3 m = rotated<3>(random, values);
        const bool is_certain = has_eigenvalues_within(m, lower, upper);
        double w[3] = {};
        double work[10] = {};
        long info = 0;
        lapack::dspev('N', 'U', 3, m.values, w, nullptr, 1, work, info);
        const bool is_inside = lower <= w[0] && w[2] <= upper;
        ASSERT_TRUE(is_inside || !is_certain) << t;
        certain += is_certain;
        inside += is_inside;
    }
    // Limits within rounding of an eigenvalue, and magnitudes beyond 2^100, are left open.
    EXPECT_GT(certain, inside / 3);
    EXPECT_LT(inside, trials);
    EXPECT_FALSE(has_eigenvalues_within(tensor3{nan, 0, 1, 0, 0, 1}, 0, largest));
    EXPECT_FALSE(has_eigenvalues_within(tensor3{infinity, 0, 1, 0, 0, 1}, 0, largest));
    EXPECT_FALSE(has_eigenvalues_within(tensor3{1, 0, 1, 0, 0, 1}, infinity, largest));
    EXPECT_FALSE(has_eigenvalues_within(tensor3{1, 0, 1, 0, 0, 1}, 0, 0));
    EXPECT_TRUE(has_eigenvalues_within(tensor3{1, 0, 1, 0, 0, 1}, 0, infinity));
    EXPECT_TRUE(has_eigenvalues_within(tensor3{1, 0, 1, 0, 0, 1}, 0.5, 1.5));
    EXPECT_FALSE(has_eigenvalues_within(tensor3{1, 0, 1, 0, 0, 1}, 1.5, 2));
}

TEST(FirstInvalidMetric, AmongSizes)
{
    EXPECT_EQ(first_invalid_metric(dense1D<double>()), 0u);
    EXPECT_TRUE(are_valid_metrics(dense1D<double>()));
    EXPECT_EQ(first_invalid_metric(vector_of({1.0, 2.0, 3.0})), 3u);
    EXPECT_TRUE(are_valid_metrics(vector_of({1.0, 2.0, 3.0})));
    for (const double broken : {0.0, -0.0, -1.0, largest, infinity, -infinity, nan})
    {
        EXPECT_EQ(first_invalid_metric(vector_of({1.0, 2.0, broken, broken})), 2u) << broken;
        EXPECT_FALSE(are_valid_metrics(vector_of({1.0, broken}))) << broken;
    }
    EXPECT_TRUE(are_valid_metrics(vector_of({std::nextafter(largest, 0.0), std::numeric_limits<double>::denorm_min()})));
}

TEST(FirstInvalidMetric, AmongTensors)
{
    EXPECT_EQ(first_invalid_metric(field_of({unit2, unit2, bad2, bad2})), 2u);
    EXPECT_EQ(first_invalid_metric(field_of({unit2, unit2})), 2u);
    EXPECT_EQ(first_invalid_metric(field_of({unit3, bad3})), 1u);
    EXPECT_EQ(first_invalid_metric(field_of({unit3, unit3, unit3})), 3u);
    EXPECT_TRUE(are_valid_metrics(field_of({unit3, unit3, unit3})));
    EXPECT_FALSE(are_valid_metrics(field_of({unit3, bad3})));
    EXPECT_EQ(first_invalid_metric(non_dense(field_of({unit3, unit3, bad3}), nan)), 2u);
    EXPECT_TRUE(are_valid_metrics(non_dense(field_of({unit2, unit2}), nan)));
}

TEST(FirstInvalidMetric, TakesNoFieldOfOtherRows)
{
    for (const unsigned rows : {0u, 1u, 2u, 4u, 5u, 7u})
    {
        EXPECT_EQ(first_invalid_metric(dense2D<double>(rows, 5, 1.0)), 0u);
        dense2D<double> without_columns;
        without_columns.rows = rows;
        EXPECT_TRUE(are_valid_metrics(without_columns));
        EXPECT_EQ(first_invalid_metric(ids_of({0, 1}), dense2D<double>(rows, 5, 1.0)), 0u);
        EXPECT_FALSE(are_valid_metrics(ids_of({0, 1}), dense2D<double>(rows, 5, 1.0)));
        EXPECT_TRUE(are_valid_metrics(dense1D<unsigned>(), dense2D<double>(rows, 5, 1.0)));
    }
    EXPECT_FALSE(are_valid_metrics(dense2D<double>(4, 5, 1.0)));
    dense2D<double> rowless;
    rowless.cols = 5;
    EXPECT_EQ(first_invalid_metric(rowless), 0u);
    EXPECT_FALSE(are_valid_metrics(rowless));
}

TEST(FirstInvalidMetric, AmongListedNodes)
{
    const auto sizes = vector_of({1.0, 0.0, 2.0});
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 1, 0}), sizes), 2u);
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 2}), sizes), 3u);
    EXPECT_TRUE(are_valid_metrics(ids_of({2, 0, 2}), sizes));
    EXPECT_EQ(first_invalid_metric(ids_of({0, 3, 1}), sizes), 1u);
    EXPECT_EQ(first_invalid_metric(ids_of({none_index}), sizes), 0u);
    EXPECT_FALSE(are_valid_metrics(ids_of({0, 3}), sizes));
    EXPECT_EQ(first_invalid_metric(dense1D<unsigned>(), sizes), 0u);
    EXPECT_TRUE(are_valid_metrics(dense1D<unsigned>(), sizes));

    const auto metrics = field_of({unit3, bad3, unit3});
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 1, 0}), metrics), 2u);
    EXPECT_EQ(first_invalid_metric(ids_of({2, 0, 3}), metrics), 2u);
    EXPECT_EQ(first_invalid_metric(ids_of({2, none_index}), metrics), 1u);
    EXPECT_TRUE(are_valid_metrics(ids_of({2, 0, 2, 0}), metrics));
    EXPECT_EQ(first_invalid_metric(ids_of({0, 1}), non_dense(field_of({unit2, bad2}), 1.0)), 1u);
}

TEST(FirstInvalidMetric, DoesNotLookBehindTheField)
{
    // The storage goes on with valid values, the field does not.
    auto sizes = vector_of({1.0, 1.0, 1.0});
    sizes.size = 2;
    EXPECT_EQ(first_invalid_metric(ids_of({0, 1, 2}), sizes), 2u);
    EXPECT_EQ(first_invalid_metric(ids_of({0, 1, 2}), field_of({unit2, unit2, unit2}).sub_matrix(0, 0, 3, 2)), 2u);
}

TEST(ValidMetrics, AppendsTheValidColumns)
{
    dense1D<unsigned> indices = ids_of({7});
    valid_metrics(field_of({bad2, unit2, bad2, unit2}), indices);
    EXPECT_EQ(list(indices), (std::vector<unsigned>{7, 1, 3}));
    valid_metrics(non_dense(field_of({unit3, bad3, unit3}), nan), indices);
    EXPECT_EQ(list(indices), (std::vector<unsigned>{7, 1, 3, 0, 2}));
    valid_metrics(dense2D<double>(4, 3, 1.0), indices);
    valid_metrics(dense2D<double>(), indices);
    EXPECT_EQ(indices.size, 5u);
}

TEST(ValidMetrics, DropsIndicesSilentlyWithoutMemory)
{
    dense2D<double> metrics(3, 20, 0.0);
    for (unsigned c = 0; c < 20; ++c) metrics(0, c) = metrics(2, c) = 1.0;
    const long live = live_allocations();
    for (unsigned n = 1;; ++n)
    {
        dense1D<unsigned> indices;
        failing_allocation failing(n);
        valid_metrics(metrics, indices);
        for (unsigned k = 0; k < indices.size; ++k) ASSERT_EQ(indices[k], k);
        if (!failing.has_failed())
        {
            EXPECT_GT(n, 2u);
            EXPECT_EQ(indices.size, 20u);
            break;
        }
        ASSERT_LT(indices.size, 20u);
    }
    EXPECT_EQ(live_allocations(), live);
}

TEST(OverwriteInvalidMetrics, ReplacesSizesOfZeroOrLess)
{
    auto sizes = vector_of({0.0, -1.0, -infinity, 5.0, nan, infinity, largest, -2.0, -3.0, -4.0, -5.0});
    const auto fallback = vector_of({1.0, 2.0, 3.0, 4.0, 5.0, 6.0, 7.0, 0.0, -1.0, nan, infinity});
    EXPECT_EQ(overwrite_invalid_metrics(sizes, fallback), 4);
    EXPECT_EQ(sizes[0], 1.0);
    EXPECT_EQ(sizes[1], 2.0);
    EXPECT_EQ(sizes[2], 3.0);
    EXPECT_EQ(sizes[3], 5.0);
    EXPECT_TRUE(std::isnan(sizes[4]));
    EXPECT_EQ(sizes[5], infinity);
    EXPECT_EQ(sizes[6], largest);
    EXPECT_EQ(sizes[7], -2.0);
    EXPECT_EQ(sizes[8], -3.0);
    EXPECT_EQ(sizes[9], -4.0);
    EXPECT_EQ(sizes[10], infinity);
}

TEST(OverwriteInvalidMetrics, LeavesWhatTheFallbackDoesNotReach)
{
    auto sizes = vector_of({-1.0, -1.0, -1.0});
    EXPECT_EQ(overwrite_invalid_metrics(sizes, vector_of({4.0, 5.0})), 2);
    EXPECT_EQ(list(sizes), (std::vector<double>{4, 5, -1}));
    EXPECT_EQ(overwrite_invalid_metrics(sizes, vector_of({4.0, 5.0, 6.0, 7.0})), 1);
    EXPECT_EQ(list(sizes), (std::vector<double>{4, 5, 6}));
    dense1D<double> nothing;
    EXPECT_EQ(overwrite_invalid_metrics(nothing, sizes), 0);
    EXPECT_EQ(overwrite_invalid_metrics(sizes, nothing), 0);
}

TEST(OverwriteInvalidMetrics, CopiesValidColumns)
{
    const tensor2 spare{5, 1, 6};
    auto metrics = field_of({unit2, bad2, bad2, tensor2{nan, 0, 1}, bad2});
    EXPECT_EQ(overwrite_invalid_metrics(metrics, field_of({spare, spare, bad2, spare})), 2);
    EXPECT_EQ(columns(metrics), (std::vector<std::vector<double>>{{1, 0, 1}, {5, 1, 6}, {1, 0, -1}, {5, 1, 6}, {1, 0, -1}}));

    const tensor3 spare3{5, 1, 6, 1, 1, 7};
    auto larger = non_dense(field_of({bad3, unit3, bad3}), nan);
    EXPECT_EQ(overwrite_invalid_metrics(larger, non_dense(field_of({spare3, spare3, spare3, spare3}), nan)), 2);
    EXPECT_EQ(columns(larger), (std::vector<std::vector<double>>{{5, 1, 6, 1, 1, 7}, {1, 0, 1, 0, 0, 1}, {5, 1, 6, 1, 1, 7}}));
}

TEST(OverwriteInvalidMetrics, TestsRowsInOrder)
{
    dense2D<double> empty;
    dense2D<double> four_rows(4, 2, 1.0);
    auto plane = field_of({bad2, bad2});
    auto space = field_of({bad3, bad3});
    EXPECT_EQ(overwrite_invalid_metrics(empty, four_rows), 0);
    EXPECT_EQ(overwrite_invalid_metrics(four_rows, four_rows), -1);
    EXPECT_EQ(overwrite_invalid_metrics(four_rows, plane), -1);
    EXPECT_EQ(overwrite_invalid_metrics(plane, four_rows), -2);
    EXPECT_EQ(overwrite_invalid_metrics(plane, space), -2);
    EXPECT_EQ(overwrite_invalid_metrics(space, plane), -2);
    EXPECT_EQ(overwrite_invalid_metrics(plane, empty), -2);
    EXPECT_EQ(overwrite_invalid_metrics(empty, vector_of({1.0})), 0);
    EXPECT_EQ(overwrite_invalid_metrics(four_rows, vector_of({1.0})), -1);
    EXPECT_EQ(overwrite_invalid_metrics(plane, dense1D<double>()), 0);
    EXPECT_EQ(columns(plane), columns(field_of({bad2, bad2})));
}

TEST(OverwriteInvalidMetrics, WritesTensorsOfSizes)
{
    auto plane = field_of({bad2, unit2, bad2, bad2, bad2, bad2});
    EXPECT_EQ(overwrite_invalid_metrics(plane, vector_of({2.0, 2.0, 0.0, nan, 0.5})), 2);
    EXPECT_EQ(columns(plane),
              (std::vector<std::vector<double>>{{0.25, 0, 0.25}, {1, 0, 1}, {1, 0, -1}, {1, 0, -1}, {4, 0, 4}, {1, 0, -1}}));
    auto space = non_dense(field_of({bad3, unit3}), nan);
    EXPECT_EQ(overwrite_invalid_metrics(space, vector_of({2.0, 2.0, 2.0})), 1);
    EXPECT_EQ(columns(space), (std::vector<std::vector<double>>{{0.25, 0, 0.25, 0, 0, 0.25}, {1, 0, 1, 0, 0, 1}}));
}

TEST(OverwriteInvalidMetrics, LeavesInvalidColumnsWithoutAValidFallback)
{
    auto space = field_of({bad3, bad3, bad3});
    EXPECT_EQ(overwrite_invalid_metrics(space, field_of({unit3, bad3, tensor3{1, 0, 1, 0, 0, nan}})), 1);
    EXPECT_EQ(columns(space), columns(field_of({unit3, bad3, bad3})));
    space = field_of({bad3, bad3, bad3, bad3});
    EXPECT_EQ(overwrite_invalid_metrics(space, vector_of({0.0, -1.0, nan, 0.5})), 1);
    EXPECT_EQ(columns(space), columns(field_of({bad3, bad3, bad3, tensor3{4, 0, 4, 0, 0, 4}})));
}

} // namespace tq4::gridweave
