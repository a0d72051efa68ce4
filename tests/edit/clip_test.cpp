#include <cmath>
#include <limits>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/edit.h>

#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;
using test::points_of;

using space = vector_fixed<double, 3>;
using element_list = std::vector<std::vector<unsigned>>;

constexpr double nan_value = std::numeric_limits<double>::quiet_NaN();

/// Nodes at x = -2, -1, 0, 1, 2, 3.
dense2D<double> on_x(unsigned rows = 3)
{
    dense2D<double> pos(rows, 6, 0.0);
    for (unsigned c = 0; c < 6; ++c) pos(0, c) = c - 2.0;
    return pos;
}

const space origin{0, 0, 0};
const space along_x{1, 0, 0};

TEST(Clip, KeepsWhatLiesWhollyInFront)
{
    dense2D<unsigned> kept;
    EXPECT_EQ(clip(on_x(), elements_of({{3, 4, 5}, {5, 4, 1}, {2, 3, 4}, {4, 4, 5}}), origin, along_x, kept), 0);
    EXPECT_EQ(columns(kept), (element_list{{3, 4, 5}, {4, 4, 5}}));
}

TEST(Clip, NodesOnThePlaneAreNotInFront)
{
    auto pos = on_x();
    for (unsigned c = 0; c < 6; ++c) pos(0, c) = 0;
    dense2D<unsigned> kept;
    EXPECT_EQ(clip(pos, elements_of({{0, 1, 2}, {3, 4, 5}}), origin, along_x, kept), 0);
    EXPECT_EQ(kept.cols, 0u);
}

TEST(Clip, TheOtherSideStaysWithTheNormalReversedAndCrossingElementsGoBothTimes)
{
    const auto elements = elements_of({{0, 1}, {1, 2}, {2, 3}, {1, 3}, {3, 4}});
    dense2D<unsigned> front, back;
    EXPECT_EQ(clip(on_x(), elements, origin, along_x, front), 0);
    EXPECT_EQ(clip(on_x(), elements, origin, space{-5, 0, 0}, back), 0);
    EXPECT_EQ(columns(front), (element_list{{3, 4}}));
    EXPECT_EQ(columns(back), (element_list{{0, 1}}));
}

TEST(Clip, PaddingEndsAColumn)
{
    dense2D<unsigned> kept;
    // The second column has a rejected node behind its padding; a column of padding alone has no rejected node.
    EXPECT_EQ(clip(on_x(), elements_of({{3, 4, 5, none_index}, {3, 4, none_index, 0}, {0, 4, 5, none_index}, {none_index, 0, 0, 0}}),
                   origin, along_x, kept),
              0);
    EXPECT_EQ(columns(kept), (element_list{{3, 4, 5, none_index}, {3, 4, none_index, 0}, {none_index, 0, 0, 0}}));
}

TEST(Clip, AppendsBehindWhatIsThere)
{
    auto kept = elements_of({{9, 9, 9}, {8, 8, 8}});
    EXPECT_EQ(clip(on_x(), elements_of({{3, 4, 5}, {0, 1, 2}}), origin, along_x, kept), 0);
    EXPECT_EQ(columns(kept), (element_list{{9, 9, 9}, {8, 8, 8}, {3, 4, 5}}));

    auto part = test::non_dense(elements_of({{9, 9, 9}}), 77u);
    EXPECT_EQ(clip(on_x(), test::non_dense(elements_of({{3, 4, 5}, {0, 1, 2}, {5, 5, 5}}), 0u), origin, along_x, part), 0);
    EXPECT_EQ(columns(part), (element_list{{9, 9, 9}, {3, 4, 5}, {5, 5, 5}}));
}

TEST(Clip, AnEmptyResultTakesTheLargerHeight)
{
    const auto elements = elements_of({{3, 4, 5}});
    dense2D<unsigned> tall(5, 0), low(2, 0), none, columns_only(0, 2);
    EXPECT_EQ(clip(on_x(), elements, origin, along_x, tall), 0);
    EXPECT_EQ(columns(tall), (element_list{{3, 4, 5, none_index, none_index}}));
    EXPECT_EQ(clip(on_x(), elements, origin, along_x, low), 0);
    EXPECT_EQ(columns(low), (element_list{{3, 4, 5}}));
    EXPECT_EQ(clip(on_x(), elements, origin, space{-1, 0, 0}, none), 0);
    EXPECT_EQ(none.rows, 3u);
    EXPECT_EQ(none.cols, 0u);
    EXPECT_EQ(clip(on_x(), elements, origin, along_x, columns_only), 0);
    EXPECT_EQ(columns(columns_only), (element_list{{none_index, none_index, none_index}, {none_index, none_index, none_index}, {3, 4, 5}}));
}

TEST(Clip, ResultAndSourceMayBeOneMatrix)
{
    auto elements = elements_of({{3, 4}, {0, 1}, {4, 5}});
    EXPECT_EQ(clip(on_x(), elements, origin, along_x, elements), 0);
    EXPECT_EQ(columns(elements), (element_list{{3, 4}, {0, 1}, {4, 5}, {3, 4}, {4, 5}}));

    auto part = test::non_dense(elements_of({{3, 4}, {0, 1}, {4, 5}}), 0u);
    EXPECT_EQ(clip(on_x(), part, origin, along_x, part), 0);
    EXPECT_EQ(columns(part), (element_list{{3, 4}, {0, 1}, {4, 5}, {3, 4}, {4, 5}}));
}

TEST(Clip, ChecksInOrder)
{
    auto kept = elements_of({{9, 9}});
    const auto stray = elements_of({{3, 4, 6}});
    const auto good = elements_of({{3, 4, 5}});
    const space no_normal{0, 0, 0};

    EXPECT_EQ(clip(on_x(), dense2D<unsigned>(3, 0), origin, no_normal, kept), 0);
    EXPECT_EQ(clip(dense2D<double>(), dense2D<unsigned>(0, 3), origin, no_normal, kept), 0);
    EXPECT_EQ(clip(on_x(), stray, origin, no_normal, kept), -2);
    EXPECT_EQ(clip(on_x(), good, origin, no_normal, kept), -4);
    EXPECT_EQ(clip(on_x(), good, origin, along_x, kept), -5);
    EXPECT_EQ(columns(kept), (element_list{{9, 9}}));
    EXPECT_EQ(clip(on_x(), elements_of({{0xFFFFFFFEu}}), origin, along_x, kept), -2);
}

TEST(Clip, AShortNormalIsRefused)
{
    const auto elements = elements_of({{3, 4, 5}});
    dense2D<unsigned> kept;
    EXPECT_EQ(clip(on_x(), elements, origin, space{1e-13, 0, 0}, kept), -4);
    EXPECT_EQ(clip(on_x(), elements, origin, space{0, 0, -9.99e-13}, kept), -4);
    EXPECT_EQ(kept.cols, 0u);
    EXPECT_EQ(clip(on_x(), elements, origin, space{1.01e-12, 0, 0}, kept), 0);
    EXPECT_EQ(kept.cols, 1u);
}

TEST(Clip, NanIsNotInFront)
{
    const auto elements = elements_of({{3, 4, 5}});
    dense2D<unsigned> kept;
    EXPECT_EQ(clip(on_x(), elements, origin, space{nan_value, 1, 1}, kept), 0);
    EXPECT_EQ(clip(on_x(), elements, space{0, nan_value, 0}, along_x, kept), 0);
    auto pos = on_x();
    pos(2, 4) = nan_value;
    EXPECT_EQ(clip(pos, elements, origin, along_x, kept), 0);
    EXPECT_EQ(kept.cols, 0u);
    EXPECT_EQ(clip(pos, elements_of({{3, 5, 5}}), origin, along_x, kept), 0);
    EXPECT_EQ(kept.cols, 1u);
}

TEST(Clip, MissingCoordinatesMakeNoDifferenceToThePoint)
{
    const auto elements = elements_of({{3, 4, 5}});
    for (const unsigned rows : {1u, 2u})
    {
        dense2D<unsigned> kept;
        EXPECT_EQ(clip(on_x(rows), elements, space{0, rows == 1 ? 9.0 : 0.0, 9}, space{1, rows == 1 ? 5.0 : 0.0, 5}, kept), 0);
        EXPECT_EQ(kept.cols, 1u) << rows;
        // Only z in the normal: the difference is 0 there, so everything lies on the plane.
        EXPECT_EQ(clip(on_x(rows), elements, space{0, 0, -1}, space{0, 0, 1}, kept), 0);
        EXPECT_EQ(kept.cols, 1u) << rows;
    }
}

TEST(Clip, AgreesWithASlowTestOnAnyMesh)
{
    const space point{0.4, 0.5, 0.25};
    for (const auto& m : test::all_linear_meshes(4))
        for (const space& normal : {space{1, 2, -0.5}, space{0, -1, 0}, space{1e-3, 0, 0}})
        {
            const auto mixed = test::shuffled(m, 11);
            element_list expected;
            for (const auto& element : columns(mixed.connectivity))
            {
                bool stays = true;
                for (const unsigned node : element)
                {
                    if (node == none_index) break;
                    double along = 0;
                    for (unsigned r = 0; r < mixed.pos.rows; ++r) along += (mixed.pos(r, node) - point[r]) * normal[r];
                    stays = stays && along > 0;
                }
                if (stays) expected.push_back(element);
            }
            dense2D<unsigned> kept;
            EXPECT_EQ(clip(mixed.pos, mixed.connectivity, point, normal, kept), 0);
            EXPECT_EQ(columns(kept), expected);
            EXPECT_FALSE(m.kind != ELEM_BAR2 && expected.empty());
        }
}

TEST(Clip, ColumnsBeyondThirtyTwoBitsAreALackOfMemory)
{
    dense2D<unsigned> kept(0, 0xFFFFFFFFu);
    EXPECT_EQ(clip(on_x(), elements_of({{3}}), origin, along_x, kept), -199);
    EXPECT_EQ(kept.rows, 0u);
    EXPECT_EQ(kept.cols, 0xFFFFFFFFu);
}

TEST(Clip, FailuresOfMemoryLeaveTheResult)
{
    for (unsigned n = 1;; ++n)
    {
        auto kept = elements_of({{9, 9, 9}});
        const auto elements = elements_of({{3, 4, 5}, {5, 4, 3}, {4, 5, 3}});
        const auto pos = on_x();
        const long live = test::live_allocations();
        int result = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            result = clip(pos, elements, origin, along_x, kept);
            failed = failing.has_failed();
        }
        EXPECT_EQ(test::live_allocations(), live);
        EXPECT_EQ(result, failed ? -199 : 0);
        if (!failed)
        {
            EXPECT_EQ(kept.cols, 4u);
            EXPECT_GE(n, 4u);
            break;
        }
        EXPECT_EQ(columns(kept), (element_list{{9, 9, 9}}));
    }
}

} // namespace
