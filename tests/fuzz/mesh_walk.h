#pragma once

// What all fuzz targets ask of the meshes that they come by. Every answer is held against the documentation and against other answers.

#include <tq4/gridweave.h>

namespace tq4::fuzz
{

/// Questions of connectivity; the indices may be arbitrary.
void walk_connectivity(const dense2D<unsigned>& connectivity, gridweave::element_type kind);

/// Questions about the places of the nodes, and the edits that follow a reader.
void walk_geometry(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, gridweave::element_type kind);

/// Holds a neighbour matrix against the connectivity that it was made of.
void promise_neighbors(const dense2D<unsigned>& neighbors, const dense2D<unsigned>& connectivity, bool link_shared);

/// A replacement list of merging: every node is replaced by a survivor, which stays itself.
void promise_survivors(const dense1D<unsigned>& new_ids, unsigned nodes, int merged);

/// Whether a matrix is rows × anything, or has no entries.
template <class T>
bool has_rows_or_nothing(const dense2D<T>& matrix, unsigned rows)
{
    return matrix.empty() || matrix.rows == rows;
}

} // namespace tq4::fuzz
