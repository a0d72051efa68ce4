#pragma once

// Appending a column to a result matrix, for every family that lists columns.

#include <algorithm>

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// Appends one column of `rows` entries to `matrix`, doubling its column capacity with a floor of `least` columns. False, with nothing
/// stored, when the matrix has columns of another height or memory runs out.
template <class T>
bool append_column(dense2D<T>& matrix, const T* entries, unsigned rows, unsigned least = 4)
{
    if (matrix.cols != 0 && matrix.rows != rows) return false;
    if (matrix.cols >= matrix.column_capacity())
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

} // namespace tq4::gridweave
