#pragma once

// Gathering the distinct edges of meshes, for families that need them as a list.

#include <utility>

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// An edge as (low, high), low not above high.
using edge = std::pair<unsigned, unsigned>;
using edge_list = dense1D<edge>;

/// Adds the edges of a connectivity, one that passes `check_IDs` for its kind, to a list and leaves the list sorted and free of repeats. Of
/// quadratic kinds the corner nodes count; a kind that has no edges (see `copy_edges`) adds none.
/// @return 0; -199 out of memory, with the list as it was
int gather_edges(const dense2D<unsigned>& connectivity, element_type kind, edge_list& edges);

/// The same for a range of matrices; `kinds` holds one kind for each. Where memory runs out the list stays as it was, and that is not
/// reported.
void gather_edges_range(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const int* kinds, edge_list& edges);

} // namespace tq4::gridweave
