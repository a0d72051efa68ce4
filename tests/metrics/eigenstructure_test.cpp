#include "gridweave/metrics/eigen.h"

#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>

#include "metrics/tensors.h"
#include "support/failing_allocator.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

using columns_of_doubles = std::vector<std::vector<double>>;

template <unsigned D>
struct pairs
{
    vector_fixed<double, D> values;
    matrix_fixed<double, D, D> vectors;
};

/// The largest entry of B x - lambda A x over all pairs, in extended precision, relative to the terms that it is the difference of.
template <unsigned D>
double residual(const symmetric_fixed<double, D>& A, const symmetric_fixed<double, D>& B, const pairs<D>& p)
{
    double worst = 0;
    for (unsigned k = 0; k < D; ++k)
        for (unsigned i = 0; i < D; ++i)
        {
            long double difference = 0;
            for (unsigned j = 0; j < D; ++j)
                difference += (static_cast<long double>(B(i, j)) - static_cast<long double>(p.values[k]) * A(i, j)) * p.vectors(j, k);
            worst = std::max(worst, std::abs(static_cast<double>(difference)) / (norm_of(B) + std::abs(p.values[k]) * norm_of(A)));
        }
    return worst;
}

template <unsigned D>
constexpr symmetric_fixed<double, D> unit_tensor()
{
    symmetric_fixed<double, D> unit{};
    for (unsigned k = 0; k < D; ++k) unit(k, k) = 1;
    return unit;
}

template <unsigned D>
double departure_from_unit_length(const matrix_fixed<double, D, D>& vectors)
{
    double worst = 0;
    for (unsigned k = 0; k < D; ++k)
    {
        double squared = 0;
        for (unsigned r = 0; r < D; ++r) squared += vectors(r, k) * vectors(r, k);
        worst = std::max(worst, std::abs(squared - 1));
    }
    return worst;
}

template <unsigned D>
void expect_eigen_pairs_of_random_tensors()
{
    random_source random(D);
    for (unsigned t = 0; t < 50000; ++t)
    {
        const auto m = random_tensor<D>(random, t % 31, random_magnitude(random, -15, 15));
        pairs<D> p;
        ASSERT_TRUE(eigen_pairs(m, p.values, p.vectors));
        ASSERT_LT(residual(unit_tensor<D>(), m, p), 4e-15) << t;
        ASSERT_LT(departure_from_unit_length(p.vectors), 3e-15);
        for (unsigned k = 1; k < D; ++k) ASSERT_LE(p.values[k - 1], p.values[k]);
    }
}

template <unsigned D>
void expect_pairs_of_random_tensors()
{
    random_source random(10 + D);
    for (unsigned t = 0; t < 50000; ++t)
    {
        const auto A = random_tensor<D>(random, 4, random_magnitude(random, -15, 15));
        const auto B = random_tensor<D>(random, 4, random_magnitude(random, -15, 15));
        pairs<D> p;
        ASSERT_TRUE(eigen_pairs(A, B, p.values, p.vectors));
        ASSERT_LT(residual(A, B, p), 1e-10) << t;
        ASSERT_LT(departure_from_unit_length(p.vectors), 3e-15);
        for (unsigned k = 1; k < D; ++k) ASSERT_LE(p.values[k - 1], p.values[k]);
    }
}

/// Scaling by a power of four scales factors by one of two: eigenvalues follow exactly and vectors keep their bits.
template <unsigned D>
void expect_exact_scaling()
{
    random_source random(20 + D);
    for (unsigned t = 0; t < 2000; ++t)
    {
        const auto A = random_tensor<D>(random, 3);
        const auto B = random_tensor<D>(random, 3);
        auto scaled_A = A;
        auto scaled_B = B;
        const int up = 2 * (static_cast<int>(random.below(51)) - 25);
        const int down = 2 * (static_cast<int>(random.below(51)) - 25);
        for (double& entry : scaled_A.values) entry = std::ldexp(entry, up);
        for (double& entry : scaled_B.values) entry = std::ldexp(entry, down);
        pairs<D> p;
        pairs<D> scaled;
        ASSERT_TRUE(eigen_pairs(A, B, p.values, p.vectors));
        ASSERT_TRUE(eigen_pairs(scaled_A, scaled_B, scaled.values, scaled.vectors));
        for (unsigned k = 0; k < D; ++k) ASSERT_EQ(scaled.values[k], std::ldexp(p.values[k], down - up));
        ASSERT_EQ(entries(scaled.vectors), entries(p.vectors));
    }
}

template <unsigned D>
void expect_failure_with_any_broken_entry()
{
    random_source random(30 + D);
    const auto good = random_tensor<D>(random, 1);
    for (const double broken : {nan, infinity, -infinity})
        for (unsigned k = 0; k < symmetric_fixed<double, D>::count; ++k)
        {
            auto m = good;
            m[k] = broken;
            pairs<D> p;
            EXPECT_FALSE(eigen_pairs(m, p.values, p.vectors)) << broken << " at " << k;
            EXPECT_FALSE(eigen_pairs(m, good, p.values, p.vectors)) << broken << " at " << k;
            EXPECT_FALSE(eigen_pairs(good, m, p.values, p.vectors)) << broken << " at " << k;
        }
}

tensor3 diagonal(double a, double b, double c)
{
    return {a, 0, b, 0, 0, c};
}

} // namespace

TEST(EigenPairs, OfTheUnitTensor)
{
    pairs<2> p;
    EXPECT_TRUE(eigen_pairs(tensor2{1, 0, 1}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{1, 1}));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{1, 0, 0, 1}));
    pairs<3> q;
    EXPECT_TRUE(eigen_pairs(diagonal(1, 1, 1), q.values, q.vectors));
    EXPECT_EQ(entries(q.values), (std::vector<double>{1, 1, 1}));
    EXPECT_EQ(entries(q.vectors), (std::vector<double>{1, 0, 0, 0, 1, 0, 0, 0, 1}));
}

TEST(EigenPairs, AscendInThePlaneWithARightHandedBasis)
{
    pairs<2> p;
    EXPECT_TRUE(eigen_pairs(tensor2{9, 0, 4}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{4, 9}));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{0, -1, 1, 0}));
    EXPECT_TRUE(eigen_pairs(tensor2{4, 0, 9}, p.values, p.vectors));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{-1, 0, 0, -1}));
    EXPECT_TRUE(eigen_pairs(tensor2{5, 4, 5}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{1, 9}));
    EXPECT_GT(p.vectors[0], 0.0); // rows of equal length: the lower one gives the vector
    EXPECT_EQ(p.vectors[0], -p.vectors[1]);
    EXPECT_EQ(p.vectors[2], -p.vectors[1]);
    EXPECT_EQ(p.vectors[3], p.vectors[0]);

    random_source random(3);
    for (unsigned t = 0; t < 1000; ++t)
    {
        EXPECT_TRUE(eigen_pairs(random_tensor<2>(random, 8), p.values, p.vectors));
        EXPECT_EQ(p.vectors(0, 1), -p.vectors(1, 0));
        EXPECT_EQ(p.vectors(1, 1), p.vectors(0, 0));
    }
}

TEST(EigenPairs, TakeTheAxesForNearlyMultiplesOfTheUnit)
{
    pairs<2> p;
    EXPECT_TRUE(eigen_pairs(tensor2{3, 1e-12, 3}, p.values, p.vectors));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{1, 0, 0, 1}));
    EXPECT_TRUE(eigen_pairs(tensor2{3, 3e-12, 3}, p.values, p.vectors));
    EXPECT_NE(p.vectors[0], 1.0);
    EXPECT_TRUE(eigen_pairs(tensor2{0, 0, 0}, p.values, p.vectors));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{1, 0, 0, 1}));
    // The squares overflow and are infinite, which is above any distance.
    EXPECT_TRUE(eigen_pairs(tensor2{1e200, 0, 1e200}, p.values, p.vectors));
    EXPECT_EQ(entries(p.vectors), (std::vector<double>{1, 0, 0, 1}));
}

TEST(EigenPairs, RepairTheSmallerEigenvalueByTheDeterminant)
{
    double small = 0;
    double large = 0;
    EXPECT_TRUE(symmetric_eigenvalues_2d(1, 1, 1, small, large));
    EXPECT_EQ(small, 0.0);
    EXPECT_EQ(large, 2.0);
    // det / large exactly, where the difference of sum and root has no digit left.
    EXPECT_TRUE(symmetric_eigenvalues_2d(1e20, 1e8, 1, small, large));
    EXPECT_EQ(large, 1e20);
    EXPECT_EQ(small, (1e20 * 1.0 - 1e8 * 1e8) / large);
    EXPECT_TRUE(symmetric_eigenvalues_2d(1e20, 0, 3, small, large));
    EXPECT_EQ(small, 3.0);
    EXPECT_TRUE(symmetric_eigenvalues_2d(-1e20, 0, -3, small, large));
    EXPECT_EQ(small, -1e20);
    EXPECT_EQ(large, -3.0);
    // At a ratio above 1e-12 nothing is repaired, whatever it costs.
    const double difference = 0.5 * (2.5e11 + 1.3 - (2.5e11 - 1.3));
    EXPECT_NE(difference, 1.3);
    EXPECT_TRUE(symmetric_eigenvalues_2d(2.5e11, 0, 1.3, small, large));
    EXPECT_EQ(small, difference);
    EXPECT_TRUE(symmetric_eigenvalues_2d(2.5e12, 0, 1.3, small, large));
    EXPECT_EQ(small, 1.3);
}

TEST(EigenPairs, SeeNonFiniteEigenvalues)
{
    double small = 0;
    double large = 0;
    EXPECT_FALSE(symmetric_eigenvalues_2d(nan, 0, 1, small, large));
    EXPECT_FALSE(symmetric_eigenvalues_2d(1e200, 0, 1, small, large));
    EXPECT_TRUE(symmetric_eigenvalues_2d(0, 0, 0, small, large));
    expect_failure_with_any_broken_entry<2>();
    expect_failure_with_any_broken_entry<3>();
}

TEST(EigenPairs, SatisfyTheirEquation)
{
    expect_eigen_pairs_of_random_tensors<2>();
    expect_eigen_pairs_of_random_tensors<3>();
}

TEST(EigenPairs, OfTensorsOfSpaceAtTheEdgesOfDoubles)
{
    for (const double scale : {1e-307, 1e-200, 1e200, 1e307})
    {
        pairs<3> p;
        ASSERT_TRUE(eigen_pairs(diagonal(3 * scale, 1 * scale, 2 * scale), p.values, p.vectors));
        EXPECT_NEAR(p.values[0] / scale, 1.0, 1e-14);
        EXPECT_NEAR(p.values[2] / scale, 3.0, 1e-14);
    }
}

TEST(GeneralizedEigenPairs, OfTwoDiagonals)
{
    pairs<2> p;
    EXPECT_TRUE(eigen_pairs(tensor2{1, 0, 1}, tensor2{4, 0, 9}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{4, 9}));
    EXPECT_TRUE(eigen_pairs(tensor2{4, 0, 1}, tensor2{4, 0, 9}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{1, 9}));
    pairs<3> q;
    EXPECT_TRUE(eigen_pairs(diagonal(4, 1, 16), diagonal(4, 9, 32), q.values, q.vectors));
    EXPECT_EQ(entries(q.values), (std::vector<double>{1, 2, 9}));
    EXPECT_EQ(std::abs(q.vectors(0, 0)), 1.0);
    EXPECT_EQ(std::abs(q.vectors(2, 1)), 1.0);
    EXPECT_EQ(std::abs(q.vectors(1, 2)), 1.0);
}

TEST(GeneralizedEigenPairs, SatisfyTheirEquation)
{
    expect_pairs_of_random_tensors<2>();
    expect_pairs_of_random_tensors<3>();
}

TEST(GeneralizedEigenPairs, ScaleExactly)
{
    expect_exact_scaling<2>();
    expect_exact_scaling<3>();
}

TEST(GeneralizedEigenPairs, NeedAPositiveDefiniteFirstTensorOfThePlane)
{
    const tensor2 unit{1, 0, 1};
    pairs<2> p;
    EXPECT_FALSE(eigen_pairs(tensor2{0, 0, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor2{0, 1, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor2{1, 0, 0}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor2{1, 1, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor2{1, 0, -1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor2{1e200, 0, 1e200}, unit, p.values, p.vectors)); // the determinant is infinite
    // A negative definite one passes; its eigenvalues come with the opposite sign and order.
    EXPECT_TRUE(eigen_pairs(tensor2{-1, 0, -1}, tensor2{4, 0, 9}, p.values, p.vectors));
    EXPECT_EQ(entries(p.values), (std::vector<double>{-4, -9}));
}

TEST(GeneralizedEigenPairs, NeedAPositiveDefiniteFirstTensorOfSpace)
{
    const tensor3 unit = diagonal(1, 1, 1);
    pairs<3> p;
    EXPECT_FALSE(eigen_pairs(diagonal(-1, 1, 1), unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(diagonal(1, -1, 1), unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(diagonal(1, 1, -1), unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor3{1, 1, 1, 0, 0, 1}, unit, p.values, p.vectors));   // the leading block is singular
    EXPECT_FALSE(eigen_pairs(tensor3{0, 1, 1, 0, 0, 1}, unit, p.values, p.vectors));   // its first entry is 0, its first row is not
    EXPECT_FALSE(eigen_pairs(tensor3{1, 0, 1, 1, 1, 1.5}, unit, p.values, p.vectors)); // the remainder is negative
    EXPECT_FALSE(eigen_pairs(tensor3{0, 0, -1, 0, 0, 1}, unit, p.values, p.vectors));  // zero rows do not hide a negative block
    EXPECT_FALSE(eigen_pairs(tensor3{0, 0, 1, 0, 2, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor3{0, 0, 0, 0, 0, -1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor3{0, 0, 0, 0, 1, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor3{-1, 0, 0, 0, 0, 1}, unit, p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(tensor3{1, 0, 0, 2, 0, 1}, unit, p.values, p.vectors));
}

TEST(GeneralizedEigenPairs, LeaveSemidefiniteTensorsToTheCaller)
{
    const tensor3 B = diagonal(2, 3, 5);
    const tensor3 semidefinite[] = {diagonal(0, 1, 1), diagonal(1, 0, 1), diagonal(1, 1, 0),  diagonal(0, 0, 1), diagonal(0, 1, 0),
                                    diagonal(1, 0, 0), diagonal(0, 0, 0), {0, 0, 2, 0, 1, 1}, {2, 0, 0, 1, 0, 1}};
    for (const tensor3& A : semidefinite)
    {
        pairs<3> p{};
        EXPECT_TRUE(eigen_pairs(A, B, p.values, p.vectors));
        for (const double value : p.values.values) EXPECT_FALSE(std::isfinite(value)) << ::testing::PrintToString(entries(A));
        for (const double entry : p.vectors.values) EXPECT_TRUE(std::isfinite(entry)) << ::testing::PrintToString(entries(A));
    }
}

TEST(GeneralizedEigenPairs, NeverHandAnOverflowToLapack)
{
    pairs<3> p;
    EXPECT_FALSE(eigen_pairs(diagonal(1e150, 1e150, 1e150), diagonal(1e150, 1e150, 1e150), p.values, p.vectors));
    EXPECT_FALSE(eigen_pairs(diagonal(largest, largest, largest), diagonal(1, 1, 1), p.values, p.vectors));
}

TEST(BoundMetric, LooksAtNothingWithoutBounds)
{
    tensor2 plane{nan, -1, 4};
    const tensor2 before = plane;
    EXPECT_EQ(bound_metric(plane, 0, largest), 0);
    EXPECT_EQ(bound_metric(plane, -1, largest), 0);
    EXPECT_EQ(bound_metric(plane, -infinity, largest), 0);
    EXPECT_TRUE(same_bits(plane, before));
    tensor3 space = diagonal(nan, infinity, -1);
    EXPECT_EQ(bound_metric(space, 0, largest), 0);
}

TEST(BoundMetric, TestsTheBoundsInOrder)
{
    tensor2 plane{4, 0, 4};
    tensor3 space = diagonal(4, 4, 4);
    for (const double broken : {nan, infinity, -infinity})
    {
        EXPECT_EQ(bound_metric(plane, broken, broken), -2);
        EXPECT_EQ(bound_metric(space, broken, 1), -2);
        EXPECT_EQ(bound_metric(plane, 1, broken), -3);
        EXPECT_EQ(bound_metric(space, 0, broken), -3);
    }
    EXPECT_EQ(bound_metric(plane, nan, largest), -2);
    EXPECT_EQ(bound_metric(plane, infinity, largest), -2);
    EXPECT_EQ(entries(plane), (std::vector<double>{4, 0, 4}));
}

TEST(BoundMetric, RaisesAndLowersSizes)
{
    tensor2 m{4, 0, 4};
    EXPECT_EQ(bound_metric(m, 1, 2), 1);
    EXPECT_EQ(entries(m), (std::vector<double>{1, 0, 1}));
    EXPECT_EQ(bound_metric(m, 1, 2), 0);
    EXPECT_EQ(entries(m), (std::vector<double>{1, 0, 1}));
    m = {100, 0, 0.01};
    EXPECT_EQ(bound_metric(m, 0.5, 2), 1);
    EXPECT_EQ(entries(m), (std::vector<double>{4, 0, 0.25}));
    m = {0.01, 0, 0.01};
    EXPECT_EQ(bound_metric(m, 0, 2), 1); // the larger value follows the smaller one
    EXPECT_EQ(entries(m), (std::vector<double>{0.25, 0, 0.25}));
    m = {100, 0, 1};
    EXPECT_EQ(bound_metric(m, 0.5, largest), 1);
    EXPECT_EQ(entries(m), (std::vector<double>{4, 0, 1}));
    m = {-1, 0, 1};
    EXPECT_EQ(bound_metric(m, 0, 2), 1); // a negative value is a size without limit
    EXPECT_EQ(entries(m), (std::vector<double>{0.25, 0, 1}));
}

TEST(BoundMetric, BoundsEveryValueOfATensorOfSpace)
{
    tensor3 m = diagonal(100, 0.01, 1);
    EXPECT_EQ(bound_metric(m, 0.5, 2), 1);
    EXPECT_EQ(entries(m), entries(diagonal(4, 0.25, 1)));
    EXPECT_EQ(bound_metric(m, 0.5, 2), 0);
    m = diagonal(100, 0.01, 100);
    EXPECT_EQ(bound_metric(m, 0.5, largest), 1);
    EXPECT_EQ(entries(m), entries(diagonal(4, 0.01, 4)));
    m = diagonal(0.01, 0.02, 0.03);
    EXPECT_EQ(bound_metric(m, 0, 2), 1);
    EXPECT_EQ(entries(m), entries(diagonal(0.25, 0.25, 0.25)));
    m = diagonal(0.01, 0.02, 0.03);
    EXPECT_EQ(bound_metric(m, 0, 8), 1); // only the smallest value is below 1 / 64
    EXPECT_EQ(entries(m), entries(diagonal(1.0 / 64, 0.02, 0.03)));
    m = diagonal(1, 2, 100);
    EXPECT_EQ(bound_metric(m, 0.5, largest), 1); // only the largest value is above
    EXPECT_EQ(entries(m), entries(diagonal(1, 2, 4)));
}

TEST(BoundMetric, LetsTheLargestSizeWinWhenBoundsCross)
{
    tensor2 plane{1, 0, 9};
    EXPECT_EQ(bound_metric(plane, 4, 0.5), 1);
    EXPECT_EQ(entries(plane), (std::vector<double>{4, 0, 4}));
    tensor3 space = diagonal(1, 100, 9);
    EXPECT_EQ(bound_metric(space, 4, 0.5), 1);
    EXPECT_EQ(entries(space), entries(diagonal(4, 4, 4)));
}

TEST(BoundMetric, ReplacesABrokenTensorByTheSmallestSize)
{
    tensor2 plane{nan, 0, 1};
    EXPECT_EQ(bound_metric(plane, 0.5, largest), 1);
    EXPECT_EQ(entries(plane), (std::vector<double>{4, 0, 4}));
    for (const double broken : {nan, infinity, -infinity})
        for (unsigned k = 0; k < 6; ++k)
        {
            tensor3 space = diagonal(1, 2, 3);
            space[k] = broken;
            EXPECT_EQ(bound_metric(space, 0.5, 10), 1);
            EXPECT_EQ(entries(space), entries(diagonal(4, 4, 4)));
            space[k] = broken;
            const tensor3 before = space;
            EXPECT_EQ(bound_metric(space, 0, 10), 0);
            EXPECT_TRUE(same_bits(space, before));
        }
    plane = {1, nan, 1};
    EXPECT_EQ(bound_metric(plane, 0, 10), 0);
    EXPECT_TRUE(std::isnan(plane[1]));
}

TEST(BoundMetric, GivesUpWhereALimitIsOutOfRange)
{
    // 1 / h^2 overflows.
    tensor2 m{1, 0, 1};
    EXPECT_EQ(bound_metric(m, 0, 1e-200), 0);
    EXPECT_EQ(entries(m), (std::vector<double>{1, 0, 1}));
    m = {nan, 0, 1};
    EXPECT_EQ(bound_metric(m, 1e-200, 1), 0);
    // An hmax of 0 or less is no limit for tensors.
    m = {1, 0, 1};
    EXPECT_EQ(bound_metric(m, 0, 0), 0);
    EXPECT_EQ(bound_metric(m, 0, -1), 0);
    EXPECT_EQ(bound_metric(m, 2, 0), 1);
    EXPECT_EQ(entries(m), (std::vector<double>{0.25, 0, 0.25}));
    m = {1, 0, 1};
    EXPECT_EQ(bound_metric(m, 2, -1), 1);
    EXPECT_EQ(entries(m), (std::vector<double>{0.25, 0, 0.25}));
}

TEST(BoundMetric, KeepsDirections)
{
    random_source random(5);
    for (unsigned t = 0; t < 5000; ++t)
    {
        const auto before = random_tensor<3>(random, 6);
        auto m = before;
        const int result = bound_metric(m, 0.3, 3.0);
        pairs<3> p;
        ASSERT_TRUE(eigen_pairs(before, p.values, p.vectors));
        bool inside = true;
        for (unsigned k = 0; k < 3; ++k)
        {
            const vector_fixed<double, 3> direction{p.vectors(0, k), p.vectors(1, k), p.vectors(2, k)};
            const double bounded = std::min(std::max(p.values[k], 1 / 9.0), 1 / 0.09);
            inside = inside && bounded == p.values[k];
            ASSERT_NEAR(exact_form(m, direction), bounded, 1e-13);
        }
        ASSERT_EQ(result, inside ? 0 : 1);
        ASSERT_TRUE(!inside || same_bits(m, before));
    }
}

TEST(BoundMetrics, OfSizes)
{
    auto sizes = vector_of({0.1, 1.0, 5.0, nan, -3.0, infinity, 0.5, 2.0});
    EXPECT_EQ(bound_metrics(sizes, 0.5, 2), 4);
    const double expected[] = {0.5, 1, 2, nan, 0.5, 2, 0.5, 2};
    for (unsigned i = 0; i < sizes.size; ++i)
        if (i == 3)
            EXPECT_TRUE(std::isnan(sizes[i]));
        else
            EXPECT_EQ(sizes[i], expected[i]) << i;
}

TEST(BoundMetrics, TakesBoundsOfSizesAsTheyStand)
{
    auto sizes = vector_of({-5.0, 0.0, 3.0});
    EXPECT_EQ(bound_metrics(sizes, -1, 2), 2);
    EXPECT_EQ(list(sizes), (std::vector<double>{-1, 0, 2}));
    sizes = vector_of({1.0, -2.0});
    EXPECT_EQ(bound_metrics(sizes, -5, 0), 1);
    EXPECT_EQ(list(sizes), (std::vector<double>{0, -2}));
    sizes = vector_of({infinity, 1.0});
    EXPECT_EQ(bound_metrics(sizes, 0.5, largest), 1);
    EXPECT_EQ(list(sizes), (std::vector<double>{largest, 1}));
    sizes = vector_of({infinity, -1.0});
    EXPECT_EQ(bound_metrics(sizes, 0, largest), 0);
    EXPECT_EQ(list(sizes), (std::vector<double>{infinity, -1}));
    // Crossed bounds: hmin wins below it, hmax elsewhere.
    sizes = vector_of({1.0, 3.0, 5.0});
    EXPECT_EQ(bound_metrics(sizes, 4, 2), 3);
    EXPECT_EQ(list(sizes), (std::vector<double>{4, 4, 2}));
}

TEST(BoundMetrics, OfTensors)
{
    const tensor2 good{1, 0, 1};
    auto metrics = non_dense(field_of({good, tensor2{4, 0, 4}, tensor2{nan, 0, 1}, good, tensor2{100, 0, 1}}), 9.0);
    dense1D<unsigned> changed = ids_of({7, 8});
    EXPECT_EQ(bound_metrics(metrics, 1, 2, changed), 3);
    EXPECT_EQ(list(changed), (std::vector<unsigned>{1, 2, 4}));
    EXPECT_EQ(columns(metrics), (columns_of_doubles{{1, 0, 1}, {1, 0, 1}, {1, 0, 1}, {1, 0, 1}, {1, 0, 1}}));

    auto space = field_of({diagonal(4, 4, 4), diagonal(1, 1, 1)});
    EXPECT_EQ(bound_metrics(space, 1, 2), 1);
    EXPECT_EQ(columns(space), columns(field_of({diagonal(1, 1, 1), diagonal(1, 1, 1)})));
}

TEST(BoundMetrics, WritesBackWhatRoundingMadeInvalid)
{
    // Eigenvalues 1e-20 and 1 along the diagonals: in the entries the small one is lost.
    tensor2 m{2, 2, 2};
    EXPECT_EQ(bound_metric(m, 1, 1e10), 0);
    EXPECT_NEAR(m[0], 0.5, 1e-15);
    EXPECT_NEAR(m[1], 0.5, 1e-15);
    EXPECT_FALSE(is_valid_metric(m));

    auto metrics = field_of({tensor2{2, 2, 2}, tensor2{4, 0, 4}});
    dense1D<unsigned> changed;
    EXPECT_EQ(bound_metrics(metrics, 1, 1e10, changed), 1);
    EXPECT_EQ(list(changed), (std::vector<unsigned>{1}));
    EXPECT_EQ(columns(metrics)[0], entries(m));
}

TEST(BoundMetrics, TestsItsArgumentsInOrder)
{
    dense1D<double> no_sizes;
    auto sizes = vector_of({1.0});
    dense2D<double> empty;
    dense2D<double> four_rows(4, 1, 1.0);
    auto metrics = field_of({tensor2{1, 0, 1}});
    dense1D<unsigned> changed;
    const auto result_and_emptied = [&](auto&& call) {
        changed = ids_of({1, 2, 3});
        const int result = call();
        EXPECT_EQ(changed.size, 0u);
        return result;
    };

    EXPECT_EQ(bound_metrics(no_sizes, nan, nan), 0);
    EXPECT_EQ(bound_metrics(sizes, 0, largest), 0);
    EXPECT_EQ(bound_metrics(sizes, nan, nan), -2);
    EXPECT_EQ(bound_metrics(sizes, infinity, largest), -2);
    EXPECT_EQ(bound_metrics(sizes, -infinity, 1), -2);
    EXPECT_EQ(bound_metrics(sizes, 1, infinity), -3);
    EXPECT_EQ(bound_metrics(sizes, 0, nan), -3);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(no_sizes, nan, nan, changed); }), 0);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(sizes, 0, largest, changed); }), 0);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(sizes, nan, nan, changed); }), -2);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(sizes, 1, nan, changed); }), -3);

    EXPECT_EQ(bound_metrics(empty, nan, nan), 0);
    EXPECT_EQ(bound_metrics(four_rows, 0, largest), 0);
    EXPECT_EQ(bound_metrics(four_rows, nan, nan), -1);
    EXPECT_EQ(bound_metrics(metrics, nan, nan), -2);
    EXPECT_EQ(bound_metrics(metrics, 1, nan), -3);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(empty, nan, nan, changed); }), 0);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(four_rows, 0, largest, changed); }), 0);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(four_rows, nan, nan, changed); }), -1);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(metrics, nan, nan, changed); }), -2);
    EXPECT_EQ(result_and_emptied([&] { return bound_metrics(metrics, 1, nan, changed); }), -3);
}

TEST(BoundMetrics, DropsIndicesSilentlyWithoutMemory)
{
    const long live = live_allocations();
    {
        dense1D<double> sizes(40);
        dense2D<double> metrics(3, 40);
        for (unsigned n = 1;; ++n)
        {
            sizes = 0.1;
            metrics = 0.0;
            for (unsigned c = 0; c < 40; ++c) metrics(0, c) = metrics(2, c) = 100.0;
            dense1D<unsigned> changed_sizes;
            dense1D<unsigned> changed_columns;
            const auto bounded = [&] {
                failing_allocation failing(n);
                const int of_sizes = bound_metrics(sizes, 1, 2, changed_sizes);
                const int of_columns = bound_metrics(metrics, 1, 2, changed_columns);
                EXPECT_EQ(of_sizes, static_cast<int>(changed_sizes.size));
                EXPECT_EQ(of_columns, static_cast<int>(changed_columns.size));
                return !failing.has_failed();
            }();
            for (unsigned k = 0; k < changed_sizes.size; ++k) ASSERT_EQ(changed_sizes[k], k);
            for (unsigned k = 0; k < changed_columns.size; ++k) ASSERT_EQ(changed_columns[k], k);
            ASSERT_EQ(list(sizes), std::vector<double>(40, 1.0));
            for (unsigned c = 0; c < 40; ++c) ASSERT_EQ(metrics(0, c), 1.0);
            ASSERT_EQ(changed_sizes.size + changed_columns.size == 80, bounded);
            if (bounded)
            {
                EXPECT_GT(n, 4u);
                break;
            }
        }
    }
    EXPECT_EQ(live_allocations(), live);
}

} // namespace tq4::gridweave
