#include <algorithm>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/bits.h"
#include "gridweave/core/distinct.h"

namespace tq4::gridweave
{

int unique_indices(dense1D<unsigned>& out, const dense1D<unsigned>& ids, dense1D<unsigned> excluded)
{
    const std::uint64_t room = std::uint64_t{out.size} + ids.size;
    if (room <= none_index) out.reserve(static_cast<unsigned>(room), 1);
    append_distinct(out, list_entries{ids}, excluded);
    return 0;
}

int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>& ids, dense1D<unsigned> excluded)
{
    return unique_indices(out, &ids, &ids + 1, excluded);
}

int unique_indices(dense1D<unsigned>& out, const dense2D<unsigned>* first, const dense2D<unsigned>* last, dense1D<unsigned> excluded)
{
    if (first > last) return -3;
    append_distinct(out, range_entries{first, last}, excluded);
    return 0;
}

int count_unique_indices(const dense2D<unsigned>& ids)
{
    return count_unique_indices(&ids, &ids + 1);
}

int count_unique_indices(const dense2D<unsigned>* first, const dense2D<unsigned>* last)
{
    if (first == last) return 0;
    if (first > last) return -2;
    unsigned count = 0;
    const dense1D<unsigned> nothing_excluded;
    if (!visit_distinct(range_entries{first, last}, nothing_excluded, [&](unsigned) { ++count; })) return out_of_memory;
    return static_cast<int>(count);
}

namespace
{

/// Columns up to this height are tested pair by pair, which beats sorting a copy for all element kinds.
constexpr unsigned pairwise_rows = 32;

bool has_repeat_pairwise(const unsigned* column, unsigned rows, bool strict)
{
    for (unsigned i = 1; i < rows; ++i)
    {
        if (column[i] == none_index && !strict) continue;
        for (unsigned j = 0; j < i; ++j)
            if (column[i] == column[j]) return true;
    }
    return false;
}

bool has_repeat_sorted(const unsigned* column, dense1D<unsigned>& scratch, bool strict)
{
    std::copy_n(column, scratch.size, scratch.begin());
    std::sort(scratch.begin(), scratch.end());
    // None sorts behind every node, so a pair of none is found only where no node is doubled.
    const unsigned* pair = std::adjacent_find(scratch.begin(), scratch.end());
    return pair != scratch.end() && (strict || *pair != none_index);
}

/// Closes the gaps of the columns that `is_dropped(column)`; `note(from, to)` hears of every kept one. The result is the number dropped.
template <class Test, class Note>
unsigned drop_columns(dense2D<unsigned>& connectivity, Test&& is_dropped, Note&& note)
{
    const unsigned former = connectivity.cols;
    const unsigned rows = connectivity.rows;
    unsigned kept = 0;
    for (unsigned c = 0; c < former; ++c)
    {
        const unsigned* column = connectivity.column(c);
        if (is_dropped(column)) continue;
        if (kept != c) std::copy_n(column, rows, connectivity.column(kept));
        note(c, kept++);
    }
    connectivity.resize(rows, kept);
    return former - kept;
}

/// Removes degenerated columns; `note(from, to)` hears of every kept one.
template <class Note>
int drop_degenerated(dense2D<unsigned>& connectivity, bool strict, Note&& note)
{
    const unsigned rows = connectivity.rows;
    unsigned dropped = 0;
    if (rows == 3)
        dropped = drop_columns(
            connectivity, [&](const unsigned* column) { return has_repeat_pairwise(column, 3, strict); }, note);
    else if (rows <= pairwise_rows)
        dropped = drop_columns(
            connectivity, [&](const unsigned* column) { return has_repeat_pairwise(column, rows, strict); }, note);
    else
    {
        dense1D<unsigned> scratch;
        if (!scratch.resize(rows)) return out_of_memory;
        dropped = drop_columns(
            connectivity, [&](const unsigned* column) { return has_repeat_sorted(column, scratch, strict); }, note);
    }
    return static_cast<int>(dropped);
}

} // namespace

int remove_degenerated(dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, bool strict)
{
    new_ids.size = 0;
    const bool has_room = new_ids.resize(connectivity.cols, none_index);
    const int removed =
        has_room ? drop_degenerated(connectivity, strict, [&](unsigned from, unsigned to) { new_ids[from] = to; }) : out_of_memory;
    if (removed < 0) new_ids.size = 0;
    return removed;
}

int remove_degenerated(dense2D<unsigned>& connectivity, bool strict)
{
    return drop_degenerated(connectivity, strict, [](unsigned, unsigned) {});
}

namespace
{

/// Moves the columns of the nodes that are marked, or below `start`, to the front and notes their new places. The result is their number.
unsigned close_gaps(dense2D<double>& pos, const bit_vector& used, unsigned start, dense1D<unsigned>& new_ids)
{
    unsigned kept = start;
    for (unsigned node = 0; node < start; ++node) new_ids[node] = node;
    for (unsigned node = start; node < pos.cols; ++node)
    {
        if (!used[node]) continue;
        if (node > kept) std::copy_n(pos.column(node), pos.rows, pos.column(kept));
        new_ids[node] = kept++;
    }
    return kept;
}

} // namespace

int simplify(dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<unsigned>& new_ids, unsigned start)
{
    new_ids.size = 0;
    if (first == last) return 0;
    if (first > last) return -3;
    for (const auto* m = first; m != last; ++m)
        if (!check_IDs(*m, pos.cols)) return -2;
    if (pos.empty() || start >= pos.cols) return 0;

    bit_vector used;
    if (!new_ids.resize(pos.cols, none_index) || !used.reset(pos.cols))
    {
        new_ids.size = 0;
        return out_of_memory;
    }
    range_entries{first, last}.visit([&](unsigned node) {
        if (node != none_index) used.set(node);
    });

    const unsigned kept = close_gaps(pos, used, start, new_ids);
    const unsigned removed = pos.cols - kept;
    pos.resize(pos.rows, kept);
    if (removed != 0)
        for (auto* m = first; m != last; ++m) change_indices(*m, new_ids);
    return static_cast<int>(removed);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, unsigned start)
{
    return simplify(pos, &connectivity, &connectivity + 1, new_ids, start);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& connectivity, unsigned start)
{
    dense1D<unsigned> new_ids;
    return simplify(pos, connectivity, new_ids, start);
}

int simplify(dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, unsigned start)
{
    dense1D<unsigned> new_ids;
    dense2D<unsigned> both[] = {conn1, conn2};
    return simplify(pos, both, both + 2, new_ids, start);
}

} // namespace tq4::gridweave
