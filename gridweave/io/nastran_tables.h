#pragma once

// Element cards of NASTRAN bulk data: what reader and writer agree on.

#include <array>
#include <cstdint>

#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

constexpr unsigned most_card_nodes = 20;

/// For each place of one side the place of the other side that its node comes from.
using node_order = std::array<std::uint8_t, most_card_nodes>;

struct card_layout
{
    const char* name;   ///< null for a kind without a card
    std::uint8_t nodes; ///< nodes on the card; the kind may have more, which the card leaves out
    node_order order;   ///< row of a column for each place on the card
};

constexpr card_layout in_stored_order(const char* name, std::uint8_t nodes)
{
    card_layout layout{name, nodes, {}};
    for (std::uint8_t k = 0; k < nodes; ++k) layout.order[k] = k;
    return layout;
}

/// The card of each kind. The mixed kinds go column by column and have none of their own.
constexpr std::array<card_layout, kind_count> card_layouts = [] {
    std::array<card_layout, kind_count> layouts{};
    layouts[ELEM_BAR2] = in_stored_order("CBAR", 2);
    layouts[ELEM_BAR3] = in_stored_order("CBAR", 2);
    layouts[ELEM_TRIA3] = in_stored_order("CTRIA3", 3);
    layouts[ELEM_QUAD4] = in_stored_order("CQUAD4", 4);
    layouts[ELEM_TRIA6] = {"CTRIA6", 6, {0, 1, 2, 5, 3, 4}};
    layouts[ELEM_QUAD8] = in_stored_order("CQUAD8", 8);
    layouts[ELEM_QUAD9] = layouts[ELEM_QUAD8];
    layouts[ELEM_TETRA4] = {"CTETRA", 4, {0, 2, 1, 3}};
    layouts[ELEM_TETRA10] = {"CTETRA", 10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}};
    layouts[ELEM_PYRA5] = in_stored_order("CPYRAM", 5);
    layouts[ELEM_PYRA13] = in_stored_order("CPYRAM", 13);
    layouts[ELEM_PYRA14] = layouts[ELEM_PYRA13];
    layouts[ELEM_PENTA6] = in_stored_order("CPENTA", 6);
    layouts[ELEM_PENTA15] = {"CPENTA", 15, {0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13}};
    layouts[ELEM_PENTA18] = layouts[ELEM_PENTA15];
    layouts[ELEM_HEXA8] = in_stored_order("CHEXA", 8);
    layouts[ELEM_HEXA20] = {"CHEXA", 20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 12, 13, 14, 15}};
    layouts[ELEM_HEXA27] = layouts[ELEM_HEXA20];
    return layouts;
}();

/// The place on the card for each row of a column that is read.
///
/// Reading applies the order of writing once more, which is its own inverse for all kinds but two. `ELEM_TRIA6` has an inverse of its own
/// here. `ELEM_PENTA15` deliberately has none: such elements do not come back in the order in which they were written, and hosts that
/// exchange files with other programs rely on both orders as they are.
constexpr node_order order_when_read(element_type kind)
{
    if (kind == ELEM_TRIA6) return {0, 1, 2, 4, 5, 3};
    return card_layouts[static_cast<unsigned>(kind)].order;
}

} // namespace tq4::gridweave
