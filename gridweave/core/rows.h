#pragma once

// Loops over the rows of a column that the compiler can unroll.

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

} // namespace tq4::gridweave
