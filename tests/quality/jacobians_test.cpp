#include <cmath>
#include <limits>

#include <gtest/gtest.h>

#include <tq4/gridweave/quality.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::elements_of;
using test::points_of;

double jacobian_of(const dense2D<double>& pos, element_type kind)
{
    dense2D<unsigned> element(pos.cols, 1);
    for (unsigned r = 0; r < pos.cols; ++r) element(r, 0) = r;
    dense1D<double> values;
    EXPECT_EQ(jacobians(pos, element, kind, values), 0);
    return values.size == 1 ? values[0] : std::numeric_limits<double>::quiet_NaN();
}

dense2D<double> cube()
{
    return points_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}});
}

} // namespace

TEST(Jacobians, BarHasHalfItsLength)
{
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {2, 0}}), ELEM_BAR2), 1);
    EXPECT_EQ(jacobian_of(points_of({{2, 0}, {0, 0}}), ELEM_BAR2), 1);
    EXPECT_EQ(jacobian_of(points_of({{1, 1, 1}, {3, 4, 7}}), ELEM_BAR2), 3.5);
}

TEST(Jacobians, TriangleHasTwiceItsArea)
{
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {1, 0}, {0, 1}}), ELEM_TRIA3), 1);
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {0, 1}, {1, 0}}), ELEM_TRIA3), 1); // a norm has no sign
    EXPECT_EQ(jacobian_of(points_of({{5, 0, 0}, {5, 3, 0}, {5, 0, 4}}), ELEM_TRIA3), 12);
}

TEST(Jacobians, QuadrangleHasAQuarterOfItsArea)
{
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}}), ELEM_QUAD4), 0.25);
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {0, 1}, {1, 1}, {1, 0}}), ELEM_QUAD4), 0.25);
    EXPECT_EQ(jacobian_of(points_of({{0, 2, 0}, {4, 2, 0}, {4, 2, 8}, {0, 2, 8}}), ELEM_QUAD4), 8);
}

TEST(Jacobians, TetrahedronHasSixTimesItsSignedVolume)
{
    EXPECT_EQ(jacobian_of(points_of({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_TETRA4), 1);
    EXPECT_EQ(jacobian_of(points_of({{0, 1, 0}, {1, 0, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_TETRA4), -1);
}

TEST(Jacobians, PyramidOfBaseTwoHasItsHeight)
{
    for (const double height : {1.0, 0.25, 7.0})
    {
        const auto pos = points_of({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, 0, height}});
        EXPECT_EQ(jacobian_of(pos, ELEM_PYRA5), height);
    }
    EXPECT_EQ(jacobian_of(points_of({{-1, 1, 0}, {1, 1, 0}, {1, -1, 0}, {-1, -1, 0}, {0, 0, 1}}), ELEM_PYRA5), -1);
    // The vertical tangent goes from the mean of the base nodes to the apex: the apex may stand anywhere at its height.
    EXPECT_EQ(jacobian_of(points_of({{0, 0, 0}, {2, 0, 0}, {2, 2, 0}, {0, 2, 0}, {9, -3, 5}}), ELEM_PYRA5), 5);
}

TEST(Jacobians, StraightWedgeHasItsVolume)
{
    const auto wedge = points_of({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}});
    EXPECT_DOUBLE_EQ(jacobian_of(wedge, ELEM_PENTA6), 0.5);
    const auto upside_down = points_of({{0, 0, 1}, {1, 0, 1}, {0, 1, 1}, {0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    EXPECT_DOUBLE_EQ(jacobian_of(upside_down, ELEM_PENTA6), -0.5);
}

TEST(Jacobians, CubeHasAnEighthOfItsVolume)
{
    EXPECT_EQ(jacobian_of(cube(), ELEM_HEXA8), 0.125);
    auto mirrored = cube();
    for (unsigned c = 0; c < 8; ++c) mirrored(0, c) = -mirrored(0, c);
    EXPECT_EQ(jacobian_of(mirrored, ELEM_HEXA8), -0.125);
}

TEST(Jacobians, ParallelepipedsHaveTheDeterminantOfTheirEdges)
{
    for (unsigned trial = 0; trial < 200; ++trial)
    {
        const auto e = test::random_points(3, 4, trial);
        dense2D<double> pos(3, 8);
        const auto unit = cube();
        for (unsigned c = 0; c < 8; ++c)
            for (unsigned r = 0; r < 3; ++r) pos(r, c) = e(r, 3) + unit(0, c) * e(r, 0) + unit(1, c) * e(r, 1) + unit(2, c) * e(r, 2);
        const double det = e(0, 0) * (e(1, 1) * e(2, 2) - e(2, 1) * e(1, 2)) + e(1, 0) * (e(2, 1) * e(0, 2) - e(0, 1) * e(2, 2)) +
                           e(2, 0) * (e(0, 1) * e(1, 2) - e(1, 1) * e(0, 2));
        EXPECT_NEAR(jacobian_of(pos, ELEM_HEXA8), det / 8, 1e-14);
    }
}

TEST(Jacobians, SignsAgreeWithTheShapeQuality)
{
    for (auto m : test::all_linear_meshes(3))
    {
        test::random_source random(8);
        for (unsigned c = 0; c < m.pos.cols; ++c)
            for (unsigned r = 0; r < m.pos.rows; ++r) m.pos(r, c) += random.between(-0.03, 0.03);
        dense1D<double> values;
        dense1D<double> qualities;
        ASSERT_EQ(jacobians(m.pos, m.connectivity, m.kind, values), 0);
        ASSERT_EQ(shape_qualities(m.pos, m.connectivity, m.kind, qualities), 0);
        ASSERT_EQ(values.size, m.connectivity.cols);
        for (unsigned e = 0; e < values.size; ++e)
        {
            EXPECT_GT(values[e], 0) << "kind " << m.kind;
            EXPECT_GT(qualities[e], 0) << "kind " << m.kind;
        }
    }
}

TEST(Jacobians, MixedKindsTakeTheShapeOfEachColumn)
{
    const unsigned none = none_index;
    const auto pos = points_of({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}});
    const auto solids = elements_of({{0, 1, 2, 3, 4, 5, 6, 7},
                                     {0, 1, 3, 4, 5, 7, none, none},
                                     {0, 1, 2, 3, 4, none, none, none},
                                     {1, 3, 4, 0, none, none, none, none}});
    dense1D<double> values;
    ASSERT_EQ(jacobians(pos, solids, ELEM_SOLID_ANY, values), 0);
    ASSERT_EQ(values.size, 4u);
    EXPECT_EQ(values[0], 0.125);
    EXPECT_DOUBLE_EQ(values[1], 0.5);
    EXPECT_EQ(values[2], 0.25);
    EXPECT_EQ(values[3], 1);

    ASSERT_EQ(jacobians(pos, elements_of({{0, 1, 3, none}, {0, 1, 2, 3}}), ELEM_SURF_ANY, values), 0);
    EXPECT_EQ(test::list(values), (std::vector<double>{1, 0.25}));
}

TEST(Jacobians, MixedKindsWithFewerRowsArePlain)
{
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {1, 0}, {0, 1}}), ELEM_SURF_ANY), 1);
    EXPECT_EQ(jacobian_of(points_of({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}), ELEM_SOLID_ANY), 1);
    EXPECT_EQ(jacobian_of(points_of({{-1, -1, 0}, {1, -1, 0}, {1, 1, 0}, {-1, 1, 0}, {0, 0, 3}}), ELEM_SOLID_ANY), 3);
    EXPECT_DOUBLE_EQ(jacobian_of(points_of({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 0, 1}, {0, 1, 1}}), ELEM_SOLID_ANY), 0.5);
}

TEST(Jacobians, SolidsOverTwoRowsAreFlat)
{
    EXPECT_EQ(jacobian_of(points_of({{1, 0}, {0, 1}, {0, 0}, {3, 4}}), ELEM_TETRA4), 0);
    EXPECT_EQ(jacobian_of(points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}, {0, 0}, {1, 0}, {1, 1}, {0, 1}}), ELEM_HEXA8), 0);
}

TEST(Jacobians, NonDenseMatricesGiveTheSame)
{
    for (const auto& m : test::all_linear_meshes(2))
    {
        dense1D<double> plain, spread;
        ASSERT_EQ(jacobians(m.pos, m.connectivity, m.kind, plain), 0);
        ASSERT_EQ(jacobians(test::non_dense(m.pos, -1e9), test::non_dense(m.connectivity, 77777u), m.kind, spread), 0);
        EXPECT_EQ(test::list(plain), test::list(spread));
        EXPECT_EQ(plain.size, m.connectivity.cols);
    }
}

TEST(Jacobians, ReplaceTheResultAndTestInOrder)
{
    const auto pos = points_of({{0, 0}, {1, 0}, {0, 1}});
    const auto two = [] { return test::vector_of<double>({1, 2}); };
    auto values = two();
    EXPECT_EQ(jacobians(dense2D<double>(), dense2D<unsigned>(), ELEM_TRIA6, values), 0);
    EXPECT_EQ(values.size, 0u);
    values = two();
    EXPECT_EQ(jacobians(pos, dense2D<unsigned>(0, 3), ELEM_TRIA3, values), 0);
    EXPECT_EQ(values.size, 0u);
    values = two();
    EXPECT_EQ(jacobians(pos, elements_of({{0, 1, 3}}), ELEM_TRIA3, values), -2);
    EXPECT_EQ(values.size, 0u);
    EXPECT_EQ(jacobians(pos, elements_of({{0, 1, 3}}), ELEM_BAR3, values), -2); // an index and the kind are wrong
    values = two();
    EXPECT_EQ(jacobians(pos, elements_of({{0, 1, 2}}), ELEM_BAR3, values), -3);
    EXPECT_EQ(values.size, 0u);
    values = two();
    EXPECT_EQ(jacobians(pos, elements_of({{0, 1, 2}}), ELEM_TRIA3, values), 0);
    EXPECT_EQ(test::list(values), (std::vector<double>{1}));
}

TEST(Jacobians, KindsThatAreNotServed)
{
    const dense2D<double> pos(3, 27, 0.0);
    for (const element_type kind : {ELEM_NODE, ELEM_BAR_ANY, ELEM_BAR3, ELEM_TRIA6, ELEM_QUAD8, ELEM_QUAD9, ELEM_TETRA10, ELEM_PYRA13,
                                    ELEM_PYRA14, ELEM_PENTA15, ELEM_PENTA18, ELEM_HEXA20, ELEM_HEXA27})
    {
        auto values = test::vector_of<double>({1, 2, 3});
        EXPECT_EQ(jacobians(pos, dense2D<unsigned>(nbr_nodes(kind), 2, 0u), kind, values), -3) << kind;
        EXPECT_EQ(values.size, 0u);
    }
}

TEST(Jacobians, ReportExhaustedMemory)
{
    const auto m = test::grid_of_hexahedra(3);
    const long alive = test::live_allocations();
    bool done = false;
    for (unsigned n = 1; !done; ++n)
    {
        ASSERT_LT(n, 10u);
        dense1D<double> values;
        values.push_back(4.0);
        test::failing_allocation fail(n);
        const int code = jacobians(m.pos, m.connectivity, m.kind, values);
        done = !fail.has_failed();
        EXPECT_EQ(code, done ? 0 : out_of_memory);
        EXPECT_EQ(values.size, done ? m.connectivity.cols : 0u);
        EXPECT_FALSE(done && n == 1);
    }
    EXPECT_EQ(test::live_allocations(), alive);
}
