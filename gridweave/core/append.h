#pragma once

// Appending columns to a result matrix, for every family that lists columns or nodes.

#include <algorithm>

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// True when one more column stands in the block already: the usual case, told without the division of `column_capacity`.
template <class T>
bool has_room_for_column(const dense2D<T>& matrix)
{
    if (matrix.ld == 0 || !matrix.block) return matrix.cols < matrix.column_capacity();
    return matrix.offset + (std::uint64_t{matrix.cols} + 1) * matrix.ld <= matrix.block->capacity;
}

/// Appends one column of `rows` entries to `matrix`, doubling its column capacity with a floor of `least` columns. False, with nothing
/// stored, when the matrix has columns of another height or memory runs out.
template <class T>
bool append_column(dense2D<T>& matrix, const T* entries, unsigned rows, unsigned least = 4)
{
    if (matrix.cols != 0 && matrix.rows != rows) return false;
    if (!has_room_for_column(matrix))
    {
        // A non-dense matrix needs room for its leading dimension; a product beyond 32 bits fails in `reserve`.
        const std::uint64_t doubled = std::max<std::uint64_t>(2ull * matrix.cols, least);
        const auto columns = static_cast<unsigned>(std::min<std::uint64_t>(doubled, none_index));
        // Close to the limit of 32-bit counts doubling fails where one more column may still fit; `resize` decides then.
        matrix.reserve(std::max(matrix.ld, rows), columns, 1);
    }
    const unsigned end = matrix.cols;
    if (!matrix.resize(rows, end + 1)) return false;
    std::copy_n(entries, rows, matrix.column(end));
    return true;
}

/// Makes room for `extra` columns behind those of `matrix`, at least doubling its column capacity where that is short, and raises its
/// height to `rows` where it is lower. Raised rows are filled with `filler`; with a height that stays, the new columns are not set. False,
/// with nothing changed, when memory runs out.
template <class T>
bool append_columns(dense2D<T>& matrix, unsigned rows, unsigned extra, T filler)
{
    const std::uint64_t columns = std::uint64_t{matrix.cols} + extra;
    if (columns > none_index) return false;
    if (rows > matrix.rows) return matrix.resize(rows, static_cast<unsigned>(columns), filler);

    if (columns > matrix.column_capacity())
    {
        const std::uint64_t roomy = std::uint64_t{matrix.cols} + std::max(matrix.cols, extra);
        // As above: what fits only without the reserve is decided by `resize`.
        matrix.reserve(matrix.ld, static_cast<unsigned>(std::min<std::uint64_t>(roomy, none_index)), 1);
    }
    return matrix.resize(matrix.rows, static_cast<unsigned>(columns));
}

/// Appends one entry to `list`. False, with nothing stored, when memory runs out.
template <class T>
bool append_entry(dense1D<T>& list, const T& entry)
{
    const unsigned end = list.size;
    list.push_back(entry);
    return list.size != end;
}

} // namespace tq4::gridweave
