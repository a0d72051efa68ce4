#pragma once

// Cards of NASTRAN bulk data as they are read, line by line or at one go.

#include <algorithm>
#include <array>
#include <cstdint>
#include <string_view>

#include <tq4/numcore/fixed.h>

#include "gridweave/io/nastran_tables.h"

namespace tq4::gridweave
{

/// A name of at most eight characters as one number, the first character lowest.
constexpr std::uint64_t packed(std::string_view name)
{
    std::uint64_t value = 0;
    for (std::size_t k = 0; k < name.size(); ++k) value |= std::uint64_t{static_cast<unsigned char>(name[k])} << (8 * k);
    return value;
}

struct card_name
{
    std::uint64_t name;
    element_type kind; ///< kind before the number of nodes has its say
};

constexpr card_name card_names[] = {
    {packed("BAR"), ELEM_BAR2},     {packed("BEAM"), ELEM_BAR2},     {packed("ROD"), ELEM_BAR2},     {packed("CBAR"), ELEM_BAR2},
    {packed("CBEAM"), ELEM_BAR2},   {packed("CROD"), ELEM_BAR2},     {packed("TRIA3"), ELEM_TRIA3},  {packed("CTRIA"), ELEM_TRIA3},
    {packed("CTRIA3"), ELEM_TRIA3}, {packed("TRIA6"), ELEM_TRIA6},   {packed("CTRIA6"), ELEM_TRIA6}, {packed("QUAD4"), ELEM_QUAD4},
    {packed("CQUAD"), ELEM_QUAD4},  {packed("CQUAD4"), ELEM_QUAD4},  {packed("QUAD8"), ELEM_QUAD8},  {packed("CQUAD8"), ELEM_QUAD8},
    {packed("TETRA"), ELEM_TETRA4}, {packed("CTETRA"), ELEM_TETRA4}, {packed("PYRA"), ELEM_PYRA5},   {packed("PYRAM"), ELEM_PYRA5},
    {packed("CPYRA"), ELEM_PYRA5},  {packed("CPYRAM"), ELEM_PYRA5},  {packed("PENTA"), ELEM_PENTA6}, {packed("CPENTA"), ELEM_PENTA6},
    {packed("HEXA"), ELEM_HEXA8},   {packed("CHEXA"), ELEM_HEXA8},
};

constexpr element_type kind_of_name(std::uint64_t name)
{
    for (const card_name& known : card_names)
        if (known.name == name) return known.kind;
    return ELEM_NONE;
}

/// Solids share their names with the quadratic kinds; the number of nodes decides. `ELEM_NONE` where the count does not fit.
constexpr element_type refined_by_nodes(element_type kind, std::uint64_t nodes)
{
    if (kind == ELEM_TETRA4 && nodes == 10) return ELEM_TETRA10;
    if (kind == ELEM_PYRA5 && nodes == 13) return ELEM_PYRA13;
    if (kind == ELEM_PENTA6 && nodes == 15) return ELEM_PENTA15;
    if (kind == ELEM_HEXA8 && nodes == 20) return ELEM_HEXA20;
    return nodes == record_of(kind).nodes ? kind : ELEM_NONE;
}

// Lines in fields of fixed widths: columns 0 to 7 name the card, columns 72 to 79 may mark a continuation, between them stand eight
// fields of 8 or four of 16 characters.

constexpr unsigned name_width = 8;
constexpr unsigned mark_column = 72;
constexpr unsigned line_width = 80;

struct field_layout
{
    unsigned width;
    unsigned count;
    char mark; ///< what a continuation mark begins with
};

constexpr field_layout small_fields{8, 8, '+'};
constexpr field_layout large_fields{16, 4, '*'};

/// A reading of a node card: its number, 0 where the card cannot be read, and its place.
struct node_card
{
    int number;
    vector_fixed<double, 3> x;
};

/// A line of an element card with fewer fields than this ends the card.
constexpr unsigned least_fields = 3;

/// A longer continuation counts up to here and is the last one.
constexpr std::size_t longest_continuation = 255;

/// The numbers of an element card, of all its lines.
struct element_card
{
    std::uint64_t name = 0;
    std::uint64_t numbers = 0; ///< element number, property and nodes
    int property = 0;
    std::array<int, most_card_nodes> node{}; ///< the first nodes; no kind has more

    /// `ELEM_NONE` where the name is unknown or the nodes do not fit it. The card has an element number and a property.
    element_type kind() const { return refined_by_nodes(kind_of_name(name), numbers - 2); }

    void take(int number)
    {
        if (numbers == 1) property = number;
        if (numbers >= 2 && numbers - 2 < node.size()) node[numbers - 2] = number;
        ++numbers;
    }
};

} // namespace tq4::gridweave
