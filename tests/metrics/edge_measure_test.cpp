#include "gridweave/metrics/edge_measure.h"

#include <limits>

#include <gtest/gtest.h>

#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

using plane = vector_fixed<double, 2>;
using space = vector_fixed<double, 3>;

const double infinity = std::numeric_limits<double>::infinity();
const double nan = std::numeric_limits<double>::quiet_NaN();

TEST(EdgeGradation, OfEqualEndsIsZero)
{
    EXPECT_EQ(edge_gradation(plane{1, 2}, 3.0, 3.0), 0.0);
    EXPECT_EQ(edge_gradation(plane{0, 0}, 3.0, 3.0), 0.0);
    EXPECT_EQ(edge_gradation(space{1, 2, 3}, tensor<3>{2, 0, 3, 0, 0, 4}, tensor<3>{2, 0, 3, 0, 0, 4}), 0.0);
    EXPECT_EQ(edge_gradation(plane{0, 0}, tensor<2>{2, 0, 3}, tensor<2>{2, 0, 3}), 0.0);
}

// On a unit edge between the sizes 1 and 2 the size doubles over a metric length of ln(2).
TEST(EdgeGradation, IsTheGrowthPerUnitOfMetricLength)
{
    const double expected = std::exp(1.0) - 1;
    EXPECT_DOUBLE_EQ(edge_gradation(plane{1, 0}, 1.0, 2.0), expected);
    EXPECT_DOUBLE_EQ(edge_gradation(space{0, 0, 1}, 1.0, 2.0), expected);
    EXPECT_DOUBLE_EQ(edge_gradation(plane{0, 1}, tensor<2>{7, 0, 1}, tensor<2>{3, 0, 0.25}), expected);
    EXPECT_DOUBLE_EQ(edge_gradation(space{0, 1, 0}, tensor<3>{7, 0, 1, 0, 0, 5}, tensor<3>{3, 0, 0.25, 0, 0, 9}), expected);
}

TEST(EdgeGradation, OfAnEdgeWithoutMeasurableLengthIsUnbounded)
{
    EXPECT_EQ(edge_gradation(plane{0, 0}, 1.0, 2.0), DBL_MAX);
    EXPECT_EQ(edge_gradation(plane{1, 0}, 1.0, 1e300), DBL_MAX); // a metric length below 1e-12
    EXPECT_EQ(edge_gradation(plane{1, 0}, 1.0, nan), DBL_MAX);
    EXPECT_EQ(edge_gradation(plane{1, 0}, nan, nan), DBL_MAX); // NaN equals nothing
    EXPECT_EQ(edge_gradation(plane{1, 0}, tensor<2>{-1, 0, 1}, tensor<2>{1, 0, 1}), DBL_MAX);
    EXPECT_EQ(edge_gradation(plane{1, 0}, tensor<2>{-1, 0, 1}, tensor<2>{-1, 0, 1}), 0.0);
    EXPECT_EQ(edge_gradation(plane{0, 1}, tensor<2>{1, 0, nan}, tensor<2>{1, 0, nan}), DBL_MAX);
}

TEST(EdgeGradation, OfAnInfiniteOrUndefinedEdgeIsZero)
{
    EXPECT_EQ(edge_gradation(plane{infinity, 0}, 1.0, 2.0), 0.0);
    EXPECT_EQ(edge_gradation(plane{nan, 0}, 1.0, 2.0), 0.0);
}

TEST(EdgeGradation, IsUnboundedFromAnExponentOf700)
{
    EXPECT_EQ(edge_gradation(plane{1, 0}, 1.0, 1000.0), DBL_MAX); // exponent 999
    EXPECT_LT(edge_gradation(plane{1, 0}, 1.0, 690.0), DBL_MAX);
    EXPECT_GT(edge_gradation(plane{1, 0}, 1.0, 690.0), 1e290);
}

TEST(EdgeVariation, IsTheSizeGradientAlongTheEdge)
{
    EXPECT_DOUBLE_EQ(edge_variation(plane{3, 4}, 1.0, 2.0), 0.2);
    EXPECT_DOUBLE_EQ(edge_variation(space{0, 2, 0}, tensor<3>{7, 0, 1, 0, 0, 5}, tensor<3>{3, 0, 0.25, 0, 0, 9}), 0.5);
    EXPECT_EQ(edge_variation(plane{3, 4}, 2.0, 2.0), 0.0);
}

TEST(EdgeVariation, IsUnboundedOnlyAtALengthOfExactlyZero)
{
    EXPECT_EQ(edge_variation(plane{0, 0}, 1.0, 2.0), DBL_MAX);
    EXPECT_EQ(edge_variation(plane{0, 0}, 2.0, 2.0), 0.0);
    EXPECT_DOUBLE_EQ(edge_variation(plane{1e-13, 0}, 1.0, 2.0), 1e13);
    EXPECT_EQ(edge_variation(plane{infinity, 0}, 1.0, 2.0), 0.0);
    EXPECT_EQ(edge_variation(plane{nan, 0}, 1.0, 2.0), 0.0);
}

/// A double of any magnitude, now and then one that is no size.
double any_size(test::random_source& random)
{
    switch (random.below(12))
    {
    case 0: return 0.0;
    case 1: return -random.between(0.5, 2.0);
    case 2: return nan;
    case 3: return infinity;
    case 4: return DBL_MAX;
    default: return std::pow(10.0, random.between(-20.0, 20.0));
    }
}

bool same_bits(double a, double b)
{
    return a == b || (a != a && b != b);
}

// The relaxations measure an edge once for both of its directions.
TEST(EdgeMeasures, AreSymmetricToTheLastBit)
{
    test::random_source random(7);
    for (unsigned k = 0; k < 20000; ++k)
    {
        const space u{random.between(-1, 1), random.between(-1, 1), random.between(-1, 1)};
        const space back{-u[0], -u[1], -u[2]};
        const double h0 = any_size(random);
        const double h1 = random.below(2) ? h0 * random.between(0.9, 1.1) : any_size(random);
        EXPECT_TRUE(same_bits(edge_gradation(u, h0, h1), edge_gradation(back, h1, h0))) << h0 << ' ' << h1;
        EXPECT_TRUE(same_bits(edge_variation(u, h0, h1), edge_variation(back, h1, h0))) << h0 << ' ' << h1;

        tensor<3> m0{};
        tensor<3> m1{};
        for (unsigned p = 0; p < 6; ++p) m0[p] = p == 0 || p == 2 || p == 5 ? any_size(random) : random.between(-1, 1);
        for (unsigned p = 0; p < 6; ++p) m1[p] = m0[p] * random.between(0.5, 1.5);
        EXPECT_TRUE(same_bits(edge_gradation(u, m0, m1), edge_gradation(back, m1, m0)));
        EXPECT_TRUE(same_bits(edge_variation(u, m0, m1), edge_variation(back, m1, m0)));
    }
}

/// An edge between two sizes whose ratio and length are spread over many orders of magnitude.
edge_terms any_regular_edge(test::random_source& random)
{
    const bool extreme = random.below(4) == 0;
    const double h0 = std::pow(10.0, extreme ? random.between(-75, 75) : random.between(-3, 3));
    const double ratio = 1 + std::pow(10.0, random.between(-12, 3));
    const double h1 = random.below(2) ? h0 * ratio : h0 / ratio;
    return {extreme ? std::pow(10.0, random.between(-75, 75)) : h0 * std::pow(10.0, random.between(-4, 3)), h0, h1};
}

// The relaxations trust the bounds with what goes into the queue, and with what does not.
TEST(EdgeTerms, BoundBothMeasuresClosely)
{
    test::random_source random(8);
    unsigned compared = 0;
    unsigned one_key = 0;
    for (unsigned k = 0; k < 400000; ++k)
    {
        const edge_terms edge = any_regular_edge(random);
        if (!edge.is_regular() || edge.end0 == edge.end1) continue;
        const edge_lengths lengths = lengths_of_edge(edge.span, edge.end0, edge.end1);
        const edge_lengths between_tensors{logarithmic_length(edge.end0 * edge.end1, edge.end0, edge.end1, false), edge.end0, edge.end1};
        const edge_terms as_tensors{edge.end0 * edge.end1, edge.end0, edge.end1};

        ++compared;
        const measure_bounds variation = variation_bounds(edge);
        const double v = variation_of(lengths, edge.end0, edge.end1);
        ASSERT_LE(variation.low, v);
        ASSERT_LE(v, variation.high);

        if ((edge.high() - edge.low()) / edge.span < 89)
        {
            const measure_bounds gradation = gradation_bounds(edge);
            const double g = gradation_of(lengths, edge.end0, edge.end1);
            ASSERT_LE(gradation.low, g) << edge.span << ' ' << edge.end0 << ' ' << edge.end1;
            ASSERT_LE(g, gradation.high) << edge.span << ' ' << edge.end0 << ' ' << edge.end1;
            if (static_cast<float>(gradation.low) == static_cast<float>(gradation.high)) ++one_key;
        }
        if (as_tensors.is_regular() && (edge.high() - edge.low()) / as_tensors.span < 89)
        {
            const measure_bounds gradation = gradation_bounds(as_tensors);
            const double g = gradation_of(between_tensors, 0.0, 1.0);
            ASSERT_LE(gradation.low, g) << edge.end0 << ' ' << edge.end1;
            ASSERT_LE(g, gradation.high) << edge.end0 << ' ' << edge.end1;
            const measure_bounds tensor_variation = variation_bounds(as_tensors);
            const double tv = variation_of(between_tensors, 0.0, 1.0);
            ASSERT_LE(tensor_variation.low, tv);
            ASSERT_LE(tv, tensor_variation.high);
        }
    }
    EXPECT_GT(compared, 250000u);
    EXPECT_GT(one_key, 200000u);
}

TEST(EdgeTerms, AreNotRegularWhereTheMeasuresHaveSpecialCases)
{
    EXPECT_TRUE((edge_terms{1, 1, 2}.is_regular()));
    for (const double broken : {0.0, -1.0, nan, infinity, DBL_MAX, 1e-130, 1e130})
    {
        EXPECT_FALSE((edge_terms{1, broken, 2}.is_regular())) << broken;
        EXPECT_FALSE((edge_terms{1, 2, broken}.is_regular())) << broken;
        EXPECT_FALSE((edge_terms{broken, 1, 2}.is_regular())) << broken;
    }
    EXPECT_FALSE((edge_terms{1, 1, 1e12}.is_regular())); // a metric length that may be below 1e-12
    EXPECT_FALSE((edge_terms{nan, nan, nan}.is_regular()));
}

} // namespace
