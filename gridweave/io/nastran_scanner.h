#pragma once

// Cards of NASTRAN bulk data of the usual look, taken from a text at one go.

#include "gridweave/io/nastran_cards.h"
#include "gridweave/io/text_scanner.h"

namespace tq4::gridweave
{

/// A node card in any of the three layouts, with the lines that belong to it. False where the card is not certain to be read in the same
/// way line by line. Numbers have a decimal point.
bool take_node_card(text_scanner& in, node_card& card);

/// The same for the card of an element of a known kind.
bool take_element_card(text_scanner& in, element_card& card);

} // namespace tq4::gridweave
