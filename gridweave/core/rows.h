#pragma once

// Loops over the entries of a matrix that the compiler can unroll.

#include <cstddef>
#include <type_traits>

namespace tq4::gridweave
{

/// Calls `worker(rows)` with a row count, as a compile-time constant for those of linear elements and of their sides.
template <class Worker>
auto with_rows(unsigned rows, Worker&& worker)
{
    switch (rows)
    {
    case 2: return worker(std::integral_constant<unsigned, 2>{});
    case 3: return worker(std::integral_constant<unsigned, 3>{});
    case 4: return worker(std::integral_constant<unsigned, 4>{});
    case 5: return worker(std::integral_constant<unsigned, 5>{});
    case 6: return worker(std::integral_constant<unsigned, 6>{});
    case 8: return worker(std::integral_constant<unsigned, 8>{});
    default: return worker(rows);
    }
}

/// Calls `worker(run, length)` for the entries of a matrix: for all of them at once where they are contiguous, else column by column.
/// Ends with false as soon as the worker gives false.
template <class Entry, class Worker>
bool for_each_run(Entry* base, unsigned rows, unsigned cols, unsigned ld, Worker&& worker)
{
    if (rows == 0 || cols == 0) return true;
    if (ld == rows) return worker(base, std::size_t{rows} * cols);
    for (unsigned c = 0; c < cols; ++c, base += ld)
        if (!worker(base, std::size_t{rows})) return false;
    return true;
}

} // namespace tq4::gridweave
