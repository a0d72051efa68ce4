#include <gtest/gtest.h>

#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

struct answers
{
    element_type kind;
    unsigned value;
    unsigned dim;
    unsigned nodes;
    unsigned base_nodes;
    unsigned boundaries;
};

constexpr answers expected[] = {
    {ELEM_NONE, 0, 0, 0, 0, 0},     {ELEM_NODE, 1, 0, 1, 1, 0},      {ELEM_BAR_ANY, 2, 1, 2, 2, 2},   {ELEM_BAR2, 3, 1, 2, 2, 2},
    {ELEM_BAR3, 4, 1, 3, 2, 2},     {ELEM_SURF_ANY, 5, 2, 4, 4, 4},  {ELEM_TRIA3, 6, 2, 3, 3, 3},     {ELEM_QUAD4, 7, 2, 4, 4, 4},
    {ELEM_TRIA6, 8, 2, 6, 3, 3},    {ELEM_QUAD8, 9, 2, 8, 4, 4},     {ELEM_QUAD9, 10, 2, 9, 4, 4},    {ELEM_SOLID_ANY, 11, 3, 8, 8, 6},
    {ELEM_TETRA4, 12, 3, 4, 4, 4},  {ELEM_TETRA10, 13, 3, 10, 4, 4}, {ELEM_PYRA5, 14, 3, 5, 5, 5},    {ELEM_PYRA13, 15, 3, 13, 5, 5},
    {ELEM_PYRA14, 16, 3, 14, 5, 5}, {ELEM_PENTA6, 17, 3, 6, 6, 5},   {ELEM_PENTA15, 18, 3, 15, 6, 5}, {ELEM_PENTA18, 19, 3, 18, 6, 5},
    {ELEM_HEXA8, 20, 3, 8, 8, 6},   {ELEM_HEXA20, 21, 3, 20, 8, 6},  {ELEM_HEXA27, 22, 3, 27, 8, 6},
};

TEST(ElementTypes, AnswerForEveryKind)
{
    for (const auto& e : expected)
    {
        EXPECT_EQ(static_cast<unsigned>(e.kind), e.value);
        EXPECT_EQ(element_dim(e.kind), e.dim) << e.kind;
        EXPECT_EQ(nbr_nodes(e.kind), e.nodes) << e.kind;
        EXPECT_EQ(nbr_base_nodes(e.kind), e.base_nodes) << e.kind;
        EXPECT_EQ(nbr_boundaries(e.kind), e.boundaries) << e.kind;
    }
}

TEST(ElementTypes, AnswerZeroForWhatIsNoKind)
{
    for (const int value : {23, 24, 1000000, -1})
    {
        const auto kind = static_cast<element_type>(value);
        EXPECT_EQ(element_dim(kind) + nbr_nodes(kind) + nbr_base_nodes(kind) + nbr_boundaries(kind), 0u) << value;
    }
}

} // namespace
