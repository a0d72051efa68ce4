#pragma once

// The records of a FEMAP neutral file. An element has places for 20 nodes, which the kinds fill in their own ways; reading and writing are
// each other's inverse.

#include <array>
#include <cstdint>
#include <string_view>

#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

/// Opens a block, one line above its number, and closes it.
constexpr std::string_view femap_block_mark = "   -1";
constexpr std::string_view femap_node_block = "403";
constexpr std::string_view femap_element_block = "404";

constexpr unsigned femap_node_places = 20;
constexpr unsigned femap_places_per_line = 10;

struct femap_record
{
    std::uint8_t type;                                 ///< FEMAP's element type; 0 for a kind that the format does not hold
    std::uint8_t topology;                             ///< FEMAP's topology code
    std::array<std::uint8_t, femap_node_places> place; ///< for every row of a column, its place among the nodes
};

constexpr femap_record femap_in_order(std::uint8_t type, std::uint8_t topology)
{
    femap_record record{type, topology, {}};
    for (std::uint8_t row = 0; row < femap_node_places; ++row) record.place[row] = row;
    return record;
}

constexpr femap_record femap_unknown{0, 0, {}};

constexpr std::array<femap_record, kind_count> femap_records{{
    femap_unknown,                                // ELEM_NONE
    femap_in_order(10, 9),                        // ELEM_NODE
    femap_unknown,                                // ELEM_BAR_ANY
    femap_in_order(5, 0),                         // ELEM_BAR2
    femap_in_order(8, 1),                         // ELEM_BAR3
    femap_unknown,                                // ELEM_SURF_ANY
    femap_in_order(17, 2),                        // ELEM_TRIA3
    femap_in_order(17, 4),                        // ELEM_QUAD4
    {18, 3, {0, 1, 2, 4, 5, 3}},                  // ELEM_TRIA6
    femap_in_order(18, 5),                        // ELEM_QUAD8
    femap_unknown,                                // ELEM_QUAD9
    femap_unknown,                                // ELEM_SOLID_ANY
    {25, 6, {1, 0, 2, 4}},                        // ELEM_TETRA4
    {25, 10, {0, 2, 1, 4, 9, 8, 10, 12, 14, 13}}, // ELEM_TETRA10
    femap_unknown,
    femap_unknown,
    femap_unknown,               // ELEM_PYRA5, ELEM_PYRA13, ELEM_PYRA14
    {25, 7, {0, 1, 2, 4, 5, 6}}, // ELEM_PENTA6
    femap_unknown,
    femap_unknown,          // ELEM_PENTA15, ELEM_PENTA18
    femap_in_order(25, 8),  // ELEM_HEXA8
    femap_in_order(26, 12), // ELEM_HEXA20
    femap_unknown,          // ELEM_HEXA27
}};

/// The record of a kind; a value that is no kind has none.
constexpr const femap_record& femap_record_of(element_type kind)
{
    const auto value = static_cast<unsigned>(kind);
    return femap_records[value < kind_count ? value : 0];
}

constexpr unsigned femap_topologies = 13;

constexpr auto femap_kinds_by_topology = [] {
    std::array<element_type, femap_topologies> kinds{};
    for (unsigned kind = 0; kind < kind_count; ++kind)
        if (femap_records[kind].type != 0) kinds[femap_records[kind].topology] = static_cast<element_type>(kind);
    return kinds;
}();

/// The kind of a topology code; `ELEM_NONE` for a code that is unknown.
constexpr element_type femap_kind_of(int topology)
{
    const auto code = static_cast<unsigned>(topology);
    return code < femap_topologies ? femap_kinds_by_topology[code] : ELEM_NONE;
}

} // namespace tq4::gridweave
