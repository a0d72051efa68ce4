#include <gtest/gtest.h>

#include <tq4/gridweave/metrics.h>

#include "metrics/tensors.h"

namespace tq4::gridweave
{

using namespace test;

namespace
{

using columns_of_doubles = std::vector<std::vector<double>>;
using tangent_basis = matrix_fixed<double, 3, 2>;

const tangent_basis stretched{2, 0, 0, 0, 3, 0};

tensor2 seen_through(double h, const tangent_basis& basis)
{
    tensor2 m{7, 7, 7};
    metric_iso_to_aniso2d(h, basis, m);
    return m;
}

tensor2 seen_through(const tensor3& m3, const tangent_basis& basis)
{
    tensor2 m{7, 7, 7};
    metric_aniso3d_to_aniso2d(m3, basis, m);
    return m;
}

tangent_basis random_tangent_basis(random_source& random)
{
    tangent_basis basis;
    for (double& x : basis.values) x = random.between(-1.0, 1.0);
    return basis;
}

} // namespace

TEST(MetricConversion, OfASizeToATensor)
{
    tensor3 space{7, 7, 7, 7, 7, 7};
    metric_iso_to_aniso(2, space);
    EXPECT_EQ(entries(space), (std::vector<double>{0.25, 0, 0.25, 0, 0, 0.25}));
    tensor2 plane{7, 7, 7};
    metric_iso_to_aniso(2, plane);
    EXPECT_EQ(entries(plane), (std::vector<double>{0.25, 0, 0.25}));

    for (const double h : {0.0, -1.0, -infinity, nan})
    {
        metric_iso_to_aniso(h, space = {7, 7, 7, 7, 7, 7});
        metric_iso_to_aniso(h, plane = {7, 7, 7});
        EXPECT_EQ(entries(space), std::vector<double>(6, 0.0)) << h;
        EXPECT_EQ(entries(plane), std::vector<double>(3, 0.0)) << h;
    }
}

TEST(MetricConversion, OfASizeSeenThroughATangentBasis)
{
    EXPECT_EQ(entries(seen_through(1.0, stretched)), (std::vector<double>{4, 0, 9}));
    EXPECT_EQ(entries(seen_through(2.0, stretched)), (std::vector<double>{1, 0, 2.25}));
    EXPECT_EQ(entries(seen_through(1.0, {1, 2, 3, 4, 5, 6})), (std::vector<double>{14, 32, 77}));
    for (const double h : {0.0, -1.0, nan}) EXPECT_EQ(entries(seen_through(h, stretched)), std::vector<double>(3, 0.0)) << h;
    // A factor of exactly 0 adds nothing, not even the NaN of 0 times infinity.
    EXPECT_EQ(entries(seen_through(infinity, {infinity, 0, 0, 0, nan, 0})), std::vector<double>(3, 0.0));
}

TEST(MetricConversion, OfATensorSeenThroughATangentBasis)
{
    EXPECT_EQ(entries(seen_through(tensor3{1, 0, 1, 0, 0, 1}, stretched)), (std::vector<double>{4, 0, 9}));
    const tensor3 m{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(entries(seen_through(m, {1, 0, 0, 0, 1, 0})), (std::vector<double>{1, 2, 3}));
    EXPECT_EQ(entries(seen_through(m, {1, 0, 0, 0, 0, 1})), (std::vector<double>{1, 4, 6}));
    EXPECT_EQ(entries(seen_through(m, {0, 1, 0, 0, 0, 1})), (std::vector<double>{3, 5, 6}));
}

TEST(MetricConversion, KeepsSizesOfTheTangentPlane)
{
    random_source random(1);
    for (unsigned t = 0; t < 1000; ++t)
    {
        const auto m3 = random_tensor<3>(random, 6, random_magnitude(random, -15, 15));
        const auto basis = random_tangent_basis(random);
        const auto u = random_vector<2>(random);
        vector_fixed<double, 3> in_space;
        for (unsigned r = 0; r < 3; ++r) in_space[r] = basis(r, 0) * u[0] + basis(r, 1) * u[1];
        ASSERT_NEAR(exact_form(seen_through(m3, basis), u), exact_form(m3, in_space), 1e-14 * norm_of(m3));
    }
}

TEST(MetricsConversion, WritesTensorsOfPositiveSizes)
{
    dense2D<double> plane(3, 5, 7.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(vector_of({2.0, -1.0, nan, 0.5}), plane), 0);
    EXPECT_EQ(columns(plane), (columns_of_doubles{{0.25, 0, 0.25}, {7, 7, 7}, {7, 7, 7}, {4, 0, 4}, {7, 7, 7}}));

    auto space = non_dense(dense2D<double>(6, 3, 7.0), 9.0);
    EXPECT_EQ(metrics_iso_to_aniso3d(vector_of({2.0, 0.0}), space), 0);
    EXPECT_EQ(columns(space), (columns_of_doubles{{0.25, 0, 0.25, 0, 0, 0.25}, {7, 7, 7, 7, 7, 7}, {7, 7, 7, 7, 7, 7}}));
}

TEST(MetricsConversion, TestsTheFieldForSizes)
{
    dense1D<double> no_sizes;
    const auto sizes = vector_of({1.0, 1.0});
    dense2D<double> empty;
    dense2D<double> plane(3, 2, 7.0);
    dense2D<double> space(6, 2, 7.0);
    dense2D<double> one(3, 1, 7.0);
    dense2D<double> one_in_space(6, 1, 7.0);

    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, empty), 0);
    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, plane), 0);
    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, space), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, empty), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, space), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, one), -2);
    EXPECT_EQ(metrics_iso_to_aniso3d(no_sizes, empty), 0);
    EXPECT_EQ(metrics_iso_to_aniso3d(no_sizes, space), 0);
    EXPECT_EQ(metrics_iso_to_aniso3d(no_sizes, plane), -2);
    EXPECT_EQ(metrics_iso_to_aniso3d(sizes, empty), -2);
    EXPECT_EQ(metrics_iso_to_aniso3d(sizes, plane), -2);
    EXPECT_EQ(metrics_iso_to_aniso3d(sizes, one_in_space), -2);
    EXPECT_EQ(columns(one), (columns_of_doubles{{7, 7, 7}}));
}

TEST(MetricsConversion, WritesEveryColumnWhereThereAreBases)
{
    const dense2D<double> bases = points_of({{2, 0, 0, 0, 3, 0}, {2, 0, 0, 0, 3, 0}, {1, 2, 3, 4, 5, 6}});
    dense2D<double> metrics(3, 4, 7.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(vector_of({1.0, -1.0, 0.5}), bases, metrics), 0);
    EXPECT_EQ(columns(metrics), (columns_of_doubles{{4, 0, 9}, {0, 0, 0}, {56, 128, 308}, {7, 7, 7}}));
    auto part = non_dense(dense2D<double>(3, 3, 7.0), 9.0);
    EXPECT_EQ(metrics_iso_to_aniso2d(vector_of({1.0, nan, 0.5}), non_dense(bases, 9.0), part), 0);
    EXPECT_EQ(columns(part), (columns_of_doubles{{4, 0, 9}, {0, 0, 0}, {56, 128, 308}}));
}

TEST(MetricsConversion, TestsBasesBeforeTheField)
{
    dense1D<double> no_sizes;
    const auto sizes = vector_of({1.0, 1.0});
    const dense2D<double> empty;
    const dense2D<double> bases(6, 2, 1.0);
    const dense2D<double> one_basis(6, 1, 1.0);
    const dense2D<double> three_bases(6, 3, 1.0);
    const dense2D<double> short_bases(5, 2, 1.0);
    dense2D<double> no_metrics;
    dense2D<double> metrics(3, 2, 7.0);
    dense2D<double> few(3, 1, 7.0);
    dense2D<double> space(6, 2, 7.0);

    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, empty, no_metrics), 0);
    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, empty, metrics), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(no_sizes, bases, no_metrics), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, empty, metrics), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, one_basis, metrics), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, three_bases, metrics), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, short_bases, few), -2);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, bases, no_metrics), -3);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, bases, few), -3);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, bases, space), -3);
    EXPECT_EQ(metrics_iso_to_aniso2d(sizes, bases, metrics), 0);
}

TEST(MetricsConversion, ProjectsTensorsOfSpace)
{
    random_source random(2);
    dense2D<double> metrics3d(6, 50);
    dense2D<double> bases(6, 50);
    dense2D<double> metrics2d(3, 51, 7.0);
    for (unsigned c = 0; c < 50; ++c)
        for (unsigned r = 0; r < 6; ++r)
        {
            metrics3d(r, c) = random.between(-1.0, 1.0); // not tested for validity
            bases(r, c) = random.between(-1.0, 1.0);
        }
    auto part = non_dense(metrics2d, 9.0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(metrics3d, bases, metrics2d), 0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(non_dense(metrics3d, 9.0), non_dense(bases, 9.0), part), 0);
    EXPECT_EQ(columns(part), columns(metrics2d));
    for (unsigned c = 0; c < 50; ++c)
    {
        tensor3 m3;
        tangent_basis basis;
        std::copy_n(metrics3d.column(c), 6, m3.values);
        std::copy_n(bases.column(c), 6, basis.values);
        EXPECT_EQ(columns(metrics2d)[c], entries(seen_through(m3, basis)));
    }
    EXPECT_EQ(columns(metrics2d)[50], (std::vector<double>{7, 7, 7}));
}

TEST(MetricsConversion, TestsProjectedFieldsInOrder)
{
    const dense2D<double> empty;
    const dense2D<double> six(6, 2, 1.0);
    const dense2D<double> one(6, 1, 1.0);
    const dense2D<double> five(5, 2, 1.0);
    dense2D<double> no_result;
    dense2D<double> result(3, 2, 7.0);
    dense2D<double> few(3, 1, 7.0);

    EXPECT_EQ(metrics_aniso3d_to_aniso2d(empty, empty, no_result), 0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(empty, empty, result), -1);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(five, five, few), -1);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(empty, six, result), -1);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, five, few), -2);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, one, few), -2);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, empty, result), -2);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, six, few), -3);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, six, no_result), -3);
    dense2D<double> wrong(6, 2, 7.0);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, six, wrong), -3);
    EXPECT_EQ(metrics_aniso3d_to_aniso2d(six, six, result), 0);
}

} // namespace tq4::gridweave
