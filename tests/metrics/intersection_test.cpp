#include "gridweave/metrics/reduction.h"

#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>

#include "metrics/tensors.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

template <class Tensor>
std::vector<double> smaller_sizes(const Tensor& A, const Tensor& B)
{
    Tensor result{};
    EXPECT_TRUE(minimum_metric(A, B, result));
    return entries(result);
}

template <class Tensor>
std::vector<double> larger_sizes(const Tensor& A, const Tensor& B)
{
    Tensor result{};
    EXPECT_TRUE(maximum_metric(A, B, result));
    return entries(result);
}

/// Both calls fail, and the result is A to the bit.
template <class Tensor>
void expect_no_reduction(const Tensor& A, const Tensor& B)
{
    Tensor result{};
    EXPECT_FALSE(minimum_metric(A, B, result));
    EXPECT_TRUE(same_bits(result, A));
    result = {};
    EXPECT_FALSE(maximum_metric(A, B, result));
    EXPECT_TRUE(same_bits(result, A));
}

template <unsigned D>
void expect_failure_with_any_broken_entry()
{
    random_source random(D);
    const auto good = random_tensor<D>(random, 2);
    for (const double broken : {nan, infinity, -infinity})
        for (unsigned k = 0; k < symmetric_fixed<double, D>::count; ++k)
        {
            auto bad = good;
            bad[k] = broken;
            expect_no_reduction(bad, good);
            expect_no_reduction(good, bad);
            expect_no_reduction(bad, bad);
        }
}

/// Along any vector the intersection measures at least what either metric does, and the union at most; on the common basis they measure
/// exactly the larger and the smaller of both.
template <unsigned D>
void expect_bounds_of_both()
{
    random_source random(10 + D);
    for (unsigned t = 0; t < 20000; ++t)
    {
        const double scale = random_magnitude(random, -15, 15);
        const auto A = random_tensor<D>(random, 3, scale);
        const auto B = random_tensor<D>(random, 3, scale);
        symmetric_fixed<double, D> both;
        symmetric_fixed<double, D> either;
        ASSERT_TRUE(minimum_metric(A, B, both));
        ASSERT_TRUE(maximum_metric(A, B, either));

        const double rounding = 1e-10 * scale;
        const auto u = random_vector<D>(random);
        ASSERT_GE(exact_form(both, u), std::max(exact_form(A, u), exact_form(B, u)) - rounding);
        ASSERT_LE(exact_form(either, u), std::min(exact_form(A, u), exact_form(B, u)) + rounding);

        reduced_pair<D> pair;
        ASSERT_TRUE(simultaneous_reduction(A, B, pair));
        for (unsigned k = 0; k < D; ++k)
        {
            const auto e = basis_vector(pair.vectors, k);
            ASSERT_NEAR(pair.a[k], exact_form(A, e), rounding);
            ASSERT_NEAR(pair.b[k], exact_form(B, e), rounding);
            ASSERT_NEAR(exact_form(both, e), std::max(pair.a[k], pair.b[k]), 10 * rounding);
            ASSERT_NEAR(exact_form(either, e), std::min(pair.a[k], pair.b[k]), 10 * rounding);
            for (unsigned j = 0; j < D; ++j) ASSERT_NEAR(dot(basis_vector(pair.inverse_rows, j), e), j == k ? 1.0 : 0.0, 1e-10);
        }
    }
}

template <unsigned D>
void expect_the_same_with_aliased_results()
{
    random_source random(20 + D);
    for (unsigned t = 0; t < 200; ++t)
    {
        const auto A = random_tensor<D>(random, 3);
        const auto B = random_tensor<D>(random, 3);
        symmetric_fixed<double, D> apart;

        ASSERT_TRUE(minimum_metric(A, B, apart));
        auto a = A;
        ASSERT_TRUE(minimum_metric(a, B, a));
        ASSERT_EQ(entries(a), entries(apart));
        auto b = B;
        ASSERT_TRUE(minimum_metric(A, b, b));
        ASSERT_EQ(entries(b), entries(apart));

        ASSERT_TRUE(maximum_metric(A, B, apart));
        a = A;
        ASSERT_TRUE(maximum_metric(a, B, a));
        ASSERT_EQ(entries(a), entries(apart));
        b = B;
        ASSERT_TRUE(maximum_metric(A, b, b));
        ASSERT_EQ(entries(b), entries(apart));
    }
}

/// A and A give A, over 30 decades and for all conditions that a pair reduces at.
template <unsigned D>
void expect_equal_tensors_to_stay()
{
    random_source random(30 + D);
    for (unsigned t = 0; t < 20000; ++t)
    {
        const auto A = random_tensor<D>(random, t % 7, random_magnitude(random, -15, 15));
        symmetric_fixed<double, D> result;
        ASSERT_TRUE(minimum_metric(A, A, result));
        for (unsigned k = 0; k < result.count; ++k) ASSERT_NEAR(result[k], A[k], 1e-8 * norm_of(A));
        ASSERT_TRUE(maximum_metric(A, A, result));
        for (unsigned k = 0; k < result.count; ++k) ASSERT_NEAR(result[k], A[k], 1e-8 * norm_of(A));
    }
}

/// Nearly singular pairs either fail with A as the result or give a finite tensor; nothing else can happen.
template <unsigned D>
void expect_nearly_singular_pairs_to_end_well()
{
    random_source random(40 + D);
    unsigned merged = 0;
    unsigned refused = 0;
    for (unsigned t = 0; t < 50000; ++t)
    {
        const auto A = random_tensor<D>(random, 40, random_magnitude(random, -100, 100));
        const auto B = random_tensor<D>(random, 40, random_magnitude(random, -100, 100));
        symmetric_fixed<double, D> result;
        if (minimum_metric(A, B, result))
            ++merged;
        else
        {
            ++refused;
            ASSERT_TRUE(same_bits(result, A));
        }
    }
    EXPECT_GT(merged, 1000u);
    EXPECT_GT(refused, 1000u);
}

tensor3 diagonal(double a, double b, double c)
{
    return {a, 0, b, 0, 0, c};
}

} // namespace

TEST(MinimumMetric, TakesTheLargerValueOnTheCommonBasis)
{
    EXPECT_EQ(smaller_sizes(tensor2{1, 0, 1}, tensor2{4, 0, 9}), (std::vector<double>{4, 0, 9}));
    EXPECT_EQ(smaller_sizes(tensor2{1, 0, 4}, tensor2{4, 0, 1}), (std::vector<double>{4, 0, 4}));
    EXPECT_EQ(smaller_sizes(diagonal(1, 4, 9), diagonal(4, 1, 9)), entries(diagonal(4, 4, 9)));
    EXPECT_EQ(smaller_sizes(diagonal(1, 1, 1), diagonal(4, 9, 16)), entries(diagonal(4, 9, 16)));
}

TEST(MaximumMetric, TakesTheSmallerValueOnTheCommonBasis)
{
    EXPECT_EQ(larger_sizes(tensor2{1, 0, 1}, tensor2{4, 0, 9}), (std::vector<double>{1, 0, 1}));
    EXPECT_EQ(larger_sizes(tensor2{1, 0, 4}, tensor2{4, 0, 1}), (std::vector<double>{1, 0, 1}));
    EXPECT_EQ(larger_sizes(diagonal(1, 4, 9), diagonal(4, 1, 9)), entries(diagonal(1, 1, 9)));
    EXPECT_EQ(larger_sizes(diagonal(1, 1, 1), diagonal(4, 9, 16)), entries(diagonal(1, 1, 1)));
}

TEST(MergedMetrics, OfEqualTensorsStay)
{
    expect_equal_tensors_to_stay<2>();
    expect_equal_tensors_to_stay<3>();
}

TEST(MergedMetrics, BoundBothTensors)
{
    expect_bounds_of_both<2>();
    expect_bounds_of_both<3>();
}

TEST(MergedMetrics, MayReplaceAnArgument)
{
    expect_the_same_with_aliased_results<2>();
    expect_the_same_with_aliased_results<3>();
}

TEST(MergedMetrics, NeedAPositiveDefiniteFirstTensor)
{
    const tensor2 unit{1, 0, 1};
    expect_no_reduction(tensor2{0, 0, 1}, unit);
    expect_no_reduction(tensor2{0, 0, 1}, tensor2{nan, 0, -1});
    expect_no_reduction(tensor2{1, 1, 1}, unit);
    expect_no_reduction(tensor2{1, 0, -1}, unit);
    expect_no_reduction(diagonal(1, 1, -1), diagonal(1, 1, 1));
    for (const tensor3& semidefinite : {diagonal(0, 1, 1), diagonal(1, 0, 1), diagonal(1, 1, 0), diagonal(0, 0, 0)})
        expect_no_reduction(semidefinite, diagonal(1, 2, 3));
    expect_no_reduction(tensor3{0, 0, 2, 0, 1, 1}, tensor3{2, 1, 3, 1, 1, 4});
    expect_no_reduction(tensor3{2, 0, 0, 1, 0, 1}, tensor3{2, 1, 3, 1, 1, 4});
}

TEST(MergedMetrics, OfANegativeDefiniteTensorOfThePlaneAreLeftToTheirValues)
{
    EXPECT_EQ(smaller_sizes(tensor2{-1, 0, -1}, tensor2{1, 0, 1}), (std::vector<double>{1, 0, 1}));
    tensor2 result;
    EXPECT_FALSE(maximum_metric(tensor2{-1, 0, -1}, tensor2{1, 0, 1}, result));
}

TEST(MergedMetrics, TakeWhatIsPositiveOfAnIndefiniteSecondTensor)
{
    // The larger values are all A's and positive; the smaller ones are not.
    EXPECT_EQ(smaller_sizes(tensor2{1, 0, 1}, tensor2{-1, 0, 4}), (std::vector<double>{1, 0, 4}));
    EXPECT_EQ(smaller_sizes(diagonal(1, 1, 1), diagonal(-1, 4, 0)), entries(diagonal(1, 4, 1)));
    tensor2 plane{};
    EXPECT_FALSE(maximum_metric(tensor2{1, 0, 1}, tensor2{-1, 0, 4}, plane));
    EXPECT_EQ(entries(plane), (std::vector<double>{1, 0, 1}));
    tensor3 space{};
    EXPECT_FALSE(maximum_metric(diagonal(1, 1, 1), diagonal(-1, 4, 0), space));
    EXPECT_EQ(entries(space), entries(diagonal(1, 1, 1)));
}

TEST(MergedMetrics, TakeTheFirstTensorWhereTheSecondOneDropsOut)
{
    // The reduced problem underflows to 0 and its scale to infinity: the values of B are NaN.
    const tensor3 tiny = diagonal(1e-120, 1e-120, 1e-120);
    for (const unsigned entry : {0u, 2u, 5u})
    {
        EXPECT_DOUBLE_EQ(smaller_sizes(tiny, tiny)[entry], 1e-120);
        EXPECT_DOUBLE_EQ(larger_sizes(tiny, tiny)[entry], 1e-120);
    }
}

TEST(MergedMetrics, RefuseNaNAndInfinityAnywhere)
{
    expect_failure_with_any_broken_entry<2>();
    expect_failure_with_any_broken_entry<3>();
}

TEST(MergedMetrics, FailIntoAnAliasedResult)
{
    const tensor2 A{0, 0, 1};
    tensor2 b{1, 0, 1};
    EXPECT_FALSE(minimum_metric(A, b, b));
    EXPECT_TRUE(same_bits(b, A));
    tensor2 a = A;
    EXPECT_FALSE(maximum_metric(a, tensor2{1, 0, 1}, a));
    EXPECT_TRUE(same_bits(a, A));
    tensor3 c = diagonal(1, 1, 1);
    EXPECT_FALSE(minimum_metric(diagonal(1, 1, nan), c, c));
    EXPECT_TRUE(same_bits(c, diagonal(1, 1, nan)));
}

TEST(MergedMetrics, OfNearlySingularTensorsEndWell)
{
    expect_nearly_singular_pairs_to_end_well<2>();
    expect_nearly_singular_pairs_to_end_well<3>();
}

TEST(MergedMetrics, LeaveTheInnerResultAloneOnFailure)
{
    tensor2 plane{7, 8, 9};
    EXPECT_FALSE(minimum_metric_inner<2>({0, 0, 1}, {1, 0, 1}, plane));
    EXPECT_FALSE(maximum_metric_inner<2>({1, 0, 1}, {-1, 0, 1}, plane));
    EXPECT_EQ(entries(plane), (std::vector<double>{7, 8, 9}));
    tensor3 space{7, 8, 9, 10, 11, 12};
    EXPECT_FALSE(minimum_metric_inner<3>(diagonal(1, 0, 1), diagonal(1, 1, 1), space));
    EXPECT_EQ(entries(space), (std::vector<double>{7, 8, 9, 10, 11, 12}));
}

TEST(SimultaneousReduction, ZeroesTheRecordWhereThereAreNoPairs)
{
    reduced_pair<2> pair{{1, 2, 3, 4}, {1, 2, 3, 4}, {1, 2}, {3, 4}};
    EXPECT_FALSE(simultaneous_reduction<2>({0, 0, 1}, {1, 0, 1}, pair));
    EXPECT_EQ(entries(pair.vectors), std::vector<double>(4, 0.0));
    EXPECT_EQ(entries(pair.inverse_rows), std::vector<double>(4, 0.0));
    EXPECT_EQ(entries(pair.a), std::vector<double>(2, 0.0));
    EXPECT_EQ(entries(pair.b), std::vector<double>(2, 0.0));
}

TEST(SimultaneousReduction, LeavesTheRecordAsComputedForValuesOutOfRange)
{
    reduced_pair<3> pair;
    EXPECT_FALSE(simultaneous_reduction(diagonal(1, 1, 1), diagonal(-1, 4, 9), pair));
    EXPECT_EQ(entries(pair.a), (std::vector<double>{1, 1, 1}));
    EXPECT_EQ(entries(pair.b), (std::vector<double>{-1, 4, 9}));
}

TEST(DualBasis, OfVectorsThatSpanNothing)
{
    EXPECT_EQ(entries(dual_basis(basis<2>{1, 2, 2, 4})), std::vector<double>(4, 0.0));
    // In space the cross products stay, undivided.
    EXPECT_EQ(entries(dual_basis(basis<3>{1, 0, 0, 0, 1, 0, 1, 1, 0})), (std::vector<double>{0, 0, -1, 0, 0, -1, 0, 0, 1}));
}

} // namespace tq4::gridweave
