#include <tq4/gridweave/metrics.h>

#include <gtest/gtest.h>

#include "metrics/relaxation_cases.h"
#include "support/failing_allocator.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::ids_of;
using test::mesh;
using test::points_of;
using test::random_source;
using test::vector_of;

const double nan = std::numeric_limits<double>::quiet_NaN();
const double infinity = std::numeric_limits<double>::infinity();

/// One bar of unit length.
mesh unit_bar()
{
    return {points_of({{0, 0}, {1, 0}}), test::elements_of({{0, 1}}), ELEM_BAR2};
}

/// Unit bars in a row.
mesh unit_path(unsigned bars)
{
    mesh m = test::polyline(bars);
    for (unsigned c = 0; c < m.pos.cols; ++c) m.pos(0, c) = c;
    return m;
}

int bound(const mesh& m, int direction, double g, dense1D<double>& sizes, const dense1D<unsigned>& indices = {}, bool frozen = true)
{
    return bound_metric_gradations(m.pos, m.connectivity, m.kind, indices, frozen, direction, g, sizes);
}

// ------------------------------------------------------------------------------------------------------------------- one bar, by hand

// The record of node 0 comes out first; the record of node 1 is stale then.
TEST(Gradation, GrowsTheNodeThatComesOutFirst)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 0, 0.5, sizes), 1);
    EXPECT_EQ(sizes[0], 1 + (1 - std::log(1.5) / 9) * 9);
    EXPECT_DOUBLE_EQ(sizes[0], 10 - std::log(1.5));
    EXPECT_EQ(sizes[1], 10);
}

TEST(Gradation, ShrinksOnlyUnderDirectionMinusOne)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), -1, 0.5, sizes), 1);
    EXPECT_EQ(sizes[0], 1);
    EXPECT_NEAR(sizes[1], 1 + std::log(1.5), 1e-14);
}

TEST(Gradation, GrowsOnlyUnderDirectionOne)
{
    dense1D<double> sizes = vector_of({10.0, 1.0});
    EXPECT_EQ(bound(unit_bar(), 1, 0.5, sizes), 1);
    EXPECT_EQ(sizes[0], 10);
    EXPECT_DOUBLE_EQ(sizes[1], 10 - std::log(1.5));
}

TEST(Gradation, LeavesANodeThatWouldHaveToGoAgainstTheDirection)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 1, 0.5, sizes, ids_of({0})), 0);
    EXPECT_EQ(sizes, vector_of({1.0, 10.0}));
}

TEST(Gradation, MovesANodeBesideAFrozenOneAsFarAsTheExcessFalls)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 0, 0.5, sizes, ids_of({0})), 1);
    EXPECT_EQ(sizes[0], 1);
    EXPECT_LT(sizes[1], 10);
    EXPECT_NEAR(sizes[1], 1 + std::log(1.5), 0.02);
}

TEST(Gradation, TakesTheDirectionAsAByte)
{
    for (const int grow : {1, 257, -255})
    {
        dense1D<double> sizes = vector_of({1.0, 10.0});
        EXPECT_EQ(bound(unit_bar(), grow, 0.5, sizes), 1);
        EXPECT_GT(sizes[0], 9) << grow;
    }
    for (const int shrink : {-1, 255, -257})
    {
        dense1D<double> sizes = vector_of({1.0, 10.0});
        EXPECT_EQ(bound(unit_bar(), shrink, 0.5, sizes), 1);
        EXPECT_LT(sizes[1], 2) << shrink;
    }
    for (const int none : {7, 2, -2, 254})
    {
        dense1D<double> sizes = vector_of({1.0, 10.0});
        EXPECT_EQ(bound(unit_bar(), none, 0.5, sizes), 0);
        EXPECT_EQ(sizes, vector_of({1.0, 10.0})) << none;
    }
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 256, 0.5, sizes), 1); // either way
    EXPECT_GT(sizes[0], 9);
}

TEST(Gradation, ClosesAnEdgeOfZeroLengthBetweenSizes)
{
    mesh m = unit_bar();
    m.pos(0, 1) = 0;
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(m, 0, 0.5, sizes), 1);
    EXPECT_EQ(sizes, vector_of({10.0, 10.0}));
}

TEST(Gradation, LeavesAnEdgeOfZeroLengthBetweenTensors)
{
    mesh m = unit_bar();
    m.pos(0, 1) = 0;
    dense2D<double> metrics = points_of({{1, 0, 1}, {4, 0, 4}});
    EXPECT_EQ(bound_metric_gradations(m.pos, m.connectivity, m.kind, {}, true, 0, 0.5, metrics), 0);
    EXPECT_EQ(test::columns(metrics), (std::vector<std::vector<double>>{{1, 0, 1}, {4, 0, 4}}));
}

TEST(Gradation, DrivesSizesTogetherUnderALimitOfZero)
{
    dense1D<double> sizes = vector_of({5.0, 2.0, 3.0});
    EXPECT_EQ(bound(unit_path(2), -1, 0, sizes), 2);
    EXPECT_EQ(sizes, vector_of({2.0, 2.0, 2.0}));
    sizes = vector_of({5.0, 2.0, 3.0});
    EXPECT_EQ(bound(unit_path(2), 1, 0, sizes), 2);
    EXPECT_EQ(sizes, vector_of({5.0, 5.0, 5.0}));
}

// Nodes that are locked to grow meet nodes that are locked to shrink: the empty queue is the only end.
TEST(Gradation, MayLeaveEdgesAboveTheLimitWhenNodesGoBothWays)
{
    dense1D<double> sizes = vector_of({8.0, 1.0, 8.0});
    EXPECT_EQ(bound(unit_path(2), 0, 0, sizes), 2);
    EXPECT_EQ(sizes, vector_of({1.0, 8.0, 8.0}));
}

TEST(Gradation, MovesAnisotropicTensorsAlongTheirCommonBasis)
{
    const mesh m = unit_bar();
    dense2D<double> metrics = points_of({{1, 0, 1}, {0.01, 0, 0.25}});
    EXPECT_EQ(bound_metric_gradations(m.pos, m.connectivity, m.kind, {}, true, -1, 0.5, metrics), 1);
    const double t = 1 - std::log(1.5) / 9;
    EXPECT_NEAR(1 / std::sqrt(metrics(0, 1)), 10 - 9 * t, 1e-12); // along the edge it meets the limit
    EXPECT_NEAR(metrics(1, 1), 0, 1e-12);
    EXPECT_NEAR(1 / std::sqrt(metrics(2, 1)), 2 - 1 * t, 1e-12); // across it goes the same fraction
    EXPECT_EQ(metrics(0, 0), 1);
}

// ------------------------------------------------------------------------------------------------------------------- arguments and codes

TEST(Gradation, AsksForNothingOnEmptyInputOrWithoutALimit)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    dense2D<double> metrics(5, 1);
    const mesh m = unit_bar();
    const dense2D<double> bad_pos(7, 2);
    const dense1D<unsigned> bad_indices = ids_of({99});
    for (const dense2D<unsigned>& none : {dense2D<unsigned>(), dense2D<unsigned>(3, 0), dense2D<unsigned>(0, 4)})
    {
        EXPECT_EQ(bound_metric_gradations(bad_pos, none, ELEM_BAR2, bad_indices, true, 0, -1, sizes), 0);
        EXPECT_EQ(bound_metric_gradations(bad_pos, none, ELEM_BAR2, bad_indices, true, 0, -1, metrics), 0);
    }
    EXPECT_EQ(bound_metric_gradations(bad_pos, m.connectivity, ELEM_HEXA8, bad_indices, true, 0, DBL_MAX, sizes), 0);
    EXPECT_EQ(bound_metric_gradations(bad_pos, m.connectivity, ELEM_HEXA8, bad_indices, true, 0, DBL_MAX, metrics), 0);
    EXPECT_EQ(sizes, vector_of({1.0, 10.0}));
}

// Each call breaks one rule more from the end of the order, so each code is seen above all later ones.
TEST(Gradation, TestsItsArgumentsInOrder)
{
    const mesh m = unit_bar();
    const dense2D<double> flat(1, 2);
    const dense2D<double> four(4, 2);
    const dense1D<unsigned> beyond = ids_of({0, 2});
    dense1D<double> one = vector_of({1.0});
    dense2D<double> rows_of_space(6, 2, 1.0);
    dense2D<double> one_column(3, 1, 1.0);

    const auto sizes_call = [&](const dense2D<double>& pos, element_type kind, const dense1D<unsigned>& indices, double g) {
        return bound_metric_gradations(pos, m.connectivity, kind, indices, true, 0, g, one);
    };
    EXPECT_EQ(sizes_call(m.pos, ELEM_BAR2, {}, 0.5), -8);
    EXPECT_EQ(sizes_call(m.pos, ELEM_BAR2, {}, -0.5), -7);
    EXPECT_EQ(sizes_call(m.pos, ELEM_BAR2, beyond, -0.5), -4);
    EXPECT_EQ(sizes_call(m.pos, ELEM_TRIA3, beyond, -0.5), -2);
    EXPECT_EQ(sizes_call(flat, ELEM_TRIA3, beyond, -0.5), -1);
    EXPECT_EQ(sizes_call(four, ELEM_TRIA3, beyond, -0.5), -1);

    const auto tensor_call = [&](const dense2D<double>& pos, element_type kind, const dense1D<unsigned>& indices, double g,
                                 dense2D<double>& metrics) {
        return bound_metric_gradations(pos, m.connectivity, kind, indices, true, 0, g, metrics);
    };
    EXPECT_EQ(tensor_call(m.pos, ELEM_BAR2, {}, 0.5, one_column), -8);
    EXPECT_EQ(tensor_call(m.pos, ELEM_BAR2, {}, 0.5, rows_of_space), -8);
    EXPECT_EQ(tensor_call(m.pos, ELEM_BAR2, {}, -0.5, rows_of_space), -7);
    EXPECT_EQ(tensor_call(m.pos, ELEM_BAR2, beyond, -0.5, rows_of_space), -4);
    EXPECT_EQ(tensor_call(m.pos, ELEM_TRIA3, beyond, -0.5, rows_of_space), -2);
    EXPECT_EQ(tensor_call(flat, ELEM_TRIA3, beyond, -0.5, rows_of_space), -1);

    dense2D<double> rows_of_plane(3, 2, 1.0);
    EXPECT_EQ(tensor_call(dense2D<double>(3, 2, 0.0), ELEM_BAR2, {}, 0.5, rows_of_plane), -8);
    EXPECT_EQ(one, vector_of({1.0}));
}

TEST(Gradation, RefusesNodesBeyondTheCoordinates)
{
    mesh m = unit_bar();
    m.connectivity(1, 0) = 2;
    dense1D<double> sizes = vector_of({1.0, 10.0, 100.0});
    EXPECT_EQ(bound(m, 0, 0.5, sizes), -2);
    m.connectivity(1, 0) = none_index;
    EXPECT_EQ(bound(m, 0, 0.5, sizes), -2);
}

// A limit that is no number compares below nothing.
TEST(Gradation, MovesNothingUnderANaNLimit)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 0, nan, sizes), 0);
    EXPECT_EQ(sizes, vector_of({1.0, 10.0}));
}

TEST(Gradation, MovesNothingWhenAllNodesAreFrozen)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 0, 0.5, sizes, ids_of({0, 1}), true), 0);
    EXPECT_EQ(bound(unit_bar(), 0, 0.5, sizes, {}, false), 0);
    EXPECT_EQ(sizes, vector_of({1.0, 10.0}));
}

TEST(Gradation, MovesOnlyTheListedNodesWhenTheListIsOfMovableOnes)
{
    dense1D<double> sizes = vector_of({1.0, 10.0, 100.0});
    EXPECT_EQ(bound(unit_path(2), 0, 0.5, sizes, ids_of({1, none_index, 1}), false), 1);
    EXPECT_EQ(sizes[0], 1);
    EXPECT_NE(sizes[1], 10);
    EXPECT_EQ(sizes[2], 100);
}

TEST(Gradation, SkipsNoneInTheList)
{
    dense1D<double> sizes = vector_of({1.0, 10.0});
    EXPECT_EQ(bound(unit_bar(), 0, 0.5, sizes, ids_of({none_index})), 1);
}

TEST(Gradation, ChangesTheStorageThatTheCallersViewShares)
{
    dense1D<double> longer = vector_of({7.0, 1.0, 10.0, 7.0});
    dense1D<double> view = longer.sub_vector(1, 2);
    EXPECT_EQ(bound(unit_bar(), -1, 0.5, view), 1);
    EXPECT_NEAR(longer[2], 1 + std::log(1.5), 1e-14);
    EXPECT_EQ(longer[0], 7);
    EXPECT_EQ(longer[3], 7);
}

TEST(Gradation, WalksNonDenseMatrices)
{
    random_source random(11);
    const mesh m = test::shaken(test::mixed_solid(2), 0.05, random);
    const mesh parts{test::non_dense(m.pos, nan), test::non_dense(m.connectivity, 0xFFFFFFF0u), m.kind};
    dense2D<double> metrics = test::jumping_tensors<3>(m.pos.cols, 0.2, 2, random);
    dense2D<double> parted = test::non_dense(metrics, nan);
    const int moved = test::gradations::call(m, {}, true, 0, 0.3, metrics);
    EXPECT_GT(moved, 0);
    EXPECT_EQ(test::gradations::call(parts, {}, true, 0, 0.3, parted), moved);
    EXPECT_EQ(test::columns(parted), test::columns(metrics));
}

TEST(Gradation, LeavesTheFieldBehindTheMeshAlone)
{
    mesh m = unit_bar();
    m.pos = points_of({{0, 0}, {1, 0}, {0, 1}, {1, 1}});
    dense1D<double> sizes = vector_of({1.0, 10.0, 1e9, nan, 5.0});
    EXPECT_EQ(bound(m, -1, 0.5, sizes, ids_of({3})), 1); // a frozen node that no element has counts for nothing
    EXPECT_NEAR(sizes[1], 1 + std::log(1.5), 1e-14);
    EXPECT_EQ(sizes[2], 1e9);
    EXPECT_EQ(sizes[4], 5);
}

// ------------------------------------------------------------------------------------------------------------------- memory

TEST(Gradation, ReportsExhaustedMemoryWhereverItStrikes)
{
    random_source random(2);
    const mesh m = test::grid_of_triangles(6);
    const mesh parts{m.pos, test::non_dense(m.connectivity, 0u), m.kind};
    const dense1D<double> sizes = test::jumping_sizes(m.pos.cols, 0.2, 3, random);
    const dense1D<unsigned> frozen = ids_of({8, 30});

    dense1D<double> expected = test::duplicate(sizes);
    const int moved = test::gradations::call(parts, frozen, true, 0, 0.2, expected);
    ASSERT_GT(moved, 0);

    for (const bool only_once : {false, true})
        for (unsigned n = 1;; ++n)
        {
            ASSERT_LT(n, 100u);
            dense1D<double> field = test::duplicate(sizes);
            const long alive = test::live_allocations();
            test::failing_allocation failing(n, only_once);
            const int result = test::gradations::call(parts, frozen, true, 0, 0.2, field);
            EXPECT_EQ(test::live_allocations(), alive);
            if (!failing.has_failed())
            {
                EXPECT_EQ(result, moved);
                EXPECT_EQ(field, expected);
                EXPECT_GT(n, 6u);
                break;
            }
            EXPECT_EQ(result, -199) << n;
            EXPECT_EQ(field[8], sizes[8]);
        }
}

// ------------------------------------------------------------------------------------------------------------------- the plain form

TEST(Gradation, IsThePlainRelaxationOnSizes)
{
    EXPECT_GT(test::compare_on_sizes<test::gradations>(), 50000u);
}

TEST(Gradation, IsThePlainRelaxationOnTensors)
{
    EXPECT_GT(test::compare_on_tensors<test::gradations>(), 20000u);
}

TEST(Gradation, IsThePlainRelaxationOnBrokenFields)
{
    EXPECT_GT(test::compare_on_broken_fields<test::gradations>(), 10000u);
}

TEST(Gradation, IsThePlainRelaxationOnBrokenCoordinates)
{
    EXPECT_GT(test::compare_on_broken_coordinates<test::gradations>(), 100u);
}

TEST(Gradation, IsThePlainRelaxationOnNearlyEqualSizes)
{
    EXPECT_GT(test::compare_on_nearly_equal_sizes<test::gradations>(), 100u);
}

// ------------------------------------------------------------------------------------------------------------------- properties

/// Largest gradation that a run under one direction may leave: moves of a thousandth of the way or less are not made.
double tolerated(double g)
{
    return (std::exp(std::log(1 + g) / 0.999) - 1) * (1 + 1e-9) + 1e-12;
}

TEST(Gradation, LeavesNoEdgeAboveTheLimitUnderOneDirection)
{
    random_source random(20);
    for (const mesh& m :
         {test::shaken(test::grid_of_triangles(60), 0.005, random), test::shaken(test::grid_of_tetrahedra(12), 0.02, random)})
        test::in_dimension_of(m, [&](auto dimension) {
            for (const int direction : {1, -1})
                for (const double g : {0.0, 0.1, 1.0})
                {
                    const dense1D<double> before = test::jumping_sizes(m.pos.cols, 0.02, 3, random);
                    dense1D<double> after = test::duplicate(before);
                    EXPECT_GT(test::gradations::call(m, {}, true, direction, g, after), 0);
                    for (unsigned n = 0; n < after.size; ++n) EXPECT_TRUE(direction == 1 ? after[n] >= before[n] : after[n] <= before[n]);

                    auto field = test::entries_of<dimension()>(after);
                    test::literal_relaxation<dimension(), double> plain(test::limited::gradation, DBL_MAX);
                    plain.run(m.pos, m.connectivity, {}, true, direction, field);
                    EXPECT_LE(plain.largest_measure([](unsigned, unsigned) { return true; }), tolerated(g));

                    dense1D<double> again = test::duplicate(after);
                    test::gradations::call(m, {}, true, direction, g, again);
                    EXPECT_EQ(again, after);
                }
        });
}

TEST(Gradation, LeavesNoTensorEdgeAboveTheLimitUnderOneDirection)
{
    random_source random(21);
    const mesh m = test::shaken(test::grid_of_tetrahedra(5), 0.02, random);
    for (const int direction : {1, -1})
        for (const double g : {0.2, 1.0})
        {
            dense2D<double> metrics = test::jumping_tensors<3>(m.pos.cols, 0.1, 1.5, random);
            EXPECT_GT(test::gradations::call(m, {}, true, direction, g, metrics), 0);
            EXPECT_TRUE(are_valid_metrics(metrics));
            dense2D<double> again = test::duplicate(metrics);
            EXPECT_EQ(test::gradations::call(m, {}, true, direction, g, again), 0);
            EXPECT_EQ(test::columns(again), test::columns(metrics));
            auto field = test::entries_of<3>(metrics);
            test::literal_relaxation<3, tensor<3>> plain(test::limited::gradation, DBL_MAX);
            plain.run(m.pos, m.connectivity, {}, true, direction, field);
            EXPECT_LE(plain.largest_measure([](unsigned, unsigned) { return true; }), tolerated(g));
        }
}

TEST(Gradation, TouchesNoFrozenNode)
{
    random_source random(22);
    const mesh m = test::shaken(test::grid_of_triangles(40), 0.005, random);
    const dense1D<unsigned> frozen = test::some_nodes(m.pos.cols, 20, random);
    for (const int direction : {0, 1, -1})
    {
        const dense1D<double> before = test::jumping_sizes(m.pos.cols, 0.03, 2, random);
        dense1D<double> after = test::duplicate(before);
        EXPECT_GT(test::gradations::call(m, frozen, true, direction, 0.2, after), 0);
        for (const unsigned n : frozen) EXPECT_EQ(after[n], before[n]);

        // Away from frozen nodes the limit holds under one direction.
        if (direction == 0) continue;
        auto field = test::entries_of<2>(after);
        test::literal_relaxation<2, double> plain(test::limited::gradation, DBL_MAX);
        plain.run(m.pos, m.connectivity, frozen, true, direction, field);
        const auto touches_frozen = [&](unsigned n) {
            const auto& around = plain.graph()[n];
            return plain.is_frozen(n) || std::any_of(around.begin(), around.end(), [&](unsigned k) { return plain.is_frozen(k); });
        };
        EXPECT_LE(plain.largest_measure([&](unsigned i, unsigned j) { return !touches_frozen(i) && !touches_frozen(j); }), tolerated(0.2));
    }
}

// Nothing bounds the number of moves but the field itself: the worst that is known ends all the same.
TEST(Gradation, EndsOnTheWorstFields)
{
    random_source random(30);
    const mesh m = test::grid_of_triangles(30);
    for (const int direction : {0, 1, -1})
        for (const double g : {0.0, 1e-12, 1e-3})
            for (unsigned kind = 0; kind < 5; ++kind)
            {
                dense1D<double> sizes(m.pos.cols);
                for (unsigned n = 0; n < sizes.size; ++n) switch (kind)
                    {
                    case 0: sizes[n] = n % 2 ? 1.0 : 1e-3; break;               // alternating
                    case 1: sizes[n] = 1 + 1e-11 * random.between(0, 1); break; // nearly equal
                    case 2: sizes[n] = n + 1; break;                            // every node another size
                    case 3: sizes[n] = n % 7 ? random.between(0, 1) : nan; break;
                    default: sizes[n] = std::pow(10.0, random.between(-300, 300));
                    }
                EXPECT_GE(test::gradations::call(m, {}, true, direction, g, sizes), 0);
            }
}

std::vector<double> contents(const dense1D<double>& sizes)
{
    return test::list(sizes);
}
std::vector<std::vector<double>> contents(const dense2D<double>& metrics)
{
    return test::columns(metrics);
}

/// Memory that is refused once, at every place in turn: unless less of it does, the run ends there with -199 and the field as it was, and
/// asks for no more. What it built from half a graph would ask for memory without end, and only that would stop it.
template <class Field>
void expect_end_at_refused_memory(const mesh& m, const Field& field)
{
    const dense1D<unsigned> frozen = ids_of({8});
    Field expected = test::duplicate(field);
    const int moved = test::gradations::call(m, frozen, true, 0, 0.2, expected);
    unsigned failures = 0;
    for (unsigned n = 1;; ++n)
    {
        ASSERT_LT(n, 100u);
        Field bounded = test::duplicate(field);
        const unsigned long before = test::allocation_count();
        const test::failing_allocation failing(n, true);
        const int result = test::gradations::call(m, frozen, true, 0, 0.2, bounded);
        if (result == -199)
        {
            ++failures;
            EXPECT_EQ(test::allocation_count(), before + n);
            EXPECT_EQ(contents(bounded), contents(field));
            continue;
        }
        EXPECT_EQ(result, moved) << n;
        EXPECT_EQ(contents(bounded), contents(expected));
        if (!failing.has_failed()) break;
    }
    EXPECT_GT(failures, 8u);
}

TEST(Gradation, AsksForNoMoreMemoryOnceItIsRefused)
{
    random_source random(5);
    const mesh flat = test::grid_of_triangles(4);
    expect_end_at_refused_memory(flat, test::jumping_sizes(flat.pos.cols, 0.2, 3, random));
    expect_end_at_refused_memory(flat, test::jumping_tensors<2>(flat.pos.cols, 0.2, 3, random));
    const mesh solid = test::grid_of_tetrahedra(2);
    expect_end_at_refused_memory(solid, test::jumping_sizes(solid.pos.cols, 0.2, 3, random));
    expect_end_at_refused_memory(solid, test::jumping_tensors<3>(solid.pos.cols, 0.2, 3, random));
}

TEST(Gradation, IsThePlainRelaxationUnderALimitBeyondAllKeys)
{
    random_source random(41);
    const mesh m = test::grid_of_triangles(8);
    unsigned long moves = 0;
    for (const double g : {3e38, 3.5e38, 1e39, 1e300})
        for (const int direction : {0, 1, -1})
            moves += test::expect_as_plain<test::gradations, 2>(m, {}, true, direction, g, test::jumping_sizes(m.pos.cols, 1e3, 12, random))
                         .moves;
    EXPECT_GT(moves, 100u);
}

TEST(Gradation, IsThePlainRelaxationOnTensorsAtTheEndsOfTheNumbers)
{
    // The squares of such sizes, along one axis, are beyond the normal numbers.
    random_source random(42);
    const mesh m = test::grid_of_tetrahedra(2);
    unsigned long moves = 0;
    for (const double scale : {1e307, 8e307, 1e-307, 4e-309})
        for (const int direction : {0, 1, -1})
        {
            auto metrics = test::jumping_tensors<3>(m.pos.cols, 0.3, 1, random);
            for (unsigned c = 0; c < metrics.cols; ++c)
            {
                const double along[] = {scale * random.between(0.5, 2), 0, metrics(2, c), 0, 0, metrics(5, c)};
                std::copy_n(along, 6, metrics.column(c));
            }
            moves += test::expect_as_plain<test::gradations, 3>(m, {}, true, direction, 0.1, metrics).moves;
        }
    EXPECT_GT(moves, 0u);
}

} // namespace
