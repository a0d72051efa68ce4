#include <gtest/gtest.h>

#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

TEST(ElementTypes, TablesAnswerForCornersAndSides)
{
    EXPECT_EQ(nbr_boundaries(ELEM_NODE), 0u);
    EXPECT_EQ(nbr_boundaries(ELEM_BAR3), 2u);
    EXPECT_EQ(nbr_nodes(ELEM_BAR_ANY), 2u);
}

TEST(Meshes, AllGridsAreValid)
{
    for (const auto& m : test::all_linear_meshes(3)) EXPECT_TRUE(check_IDs(m.connectivity, m.kind, m.pos.cols)) << m.kind;
}

} // namespace
