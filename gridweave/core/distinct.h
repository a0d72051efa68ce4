#pragma once

// First appearances of the values in lists and ranges of matrices, without a hash table.

#include <algorithm>
#include <cstdint>

#include <tq4/gridweave/core.h>

#include "gridweave/core/bits.h"

namespace tq4::gridweave
{

// A list and a range of matrices are walked by the same operations: `total` entries, the `largest` of them where there are any, and
// `visit(worker)` over them in order. Entries are read through the view each time, since the output may share their block and move it when
// it grows.

struct list_entries
{
    const dense1D<unsigned>& ids;

    std::uint64_t total() const { return ids.size; }
    unsigned largest() const { return max_ID(ids); }

    template <class Worker>
    void visit(Worker&& worker) const
    {
        const unsigned count = ids.size; // the list may be the output, and grow
        for (unsigned i = 0; i < count; ++i) worker(ids[i]);
    }
};

struct range_entries
{
    const dense2D<unsigned>* first;
    const dense2D<unsigned>* last;

    std::uint64_t total() const
    {
        std::uint64_t count = 0;
        for (const auto* m = first; m != last; ++m) count += std::uint64_t{m->rows} * m->cols;
        return count;
    }

    unsigned largest() const
    {
        unsigned answer = 0;
        for (const auto* m = first; m != last; ++m)
            if (!m->empty()) answer = std::max(answer, max_ID(*m));
        return answer;
    }

    template <class Worker>
    void visit(Worker&& worker) const
    {
        for (const auto* m = first; m != last; ++m)
            for (unsigned c = 0; c < m->cols; ++c)
                for (unsigned r = 0; r < m->rows; ++r) worker((*m)(r, c));
    }
};

/// Calls `worker(value)` at the first appearance of every distinct value by marking values in a bit vector. False when memory runs out.
template <class Entries, class Worker>
bool visit_distinct_by_marks(const Entries& entries, unsigned largest, const dense1D<unsigned>& excluded, Worker&& worker)
{
    bit_vector seen;
    if (!seen.reset(largest + 1)) return false;
    for (const unsigned value : excluded)
        if (value <= largest) seen.set(value);
    entries.visit([&](unsigned value) {
        if (value != none_index && !seen.test_and_set(value)) worker(value);
    });
    return true;
}

/// The same by sorting (value, position) pairs, for few entries of huge values.
template <class Entries, class Worker>
bool visit_distinct_by_sorting(const Entries& entries, unsigned total, const dense1D<unsigned>& excluded, Worker&& worker)
{
    const auto value_of = [](std::uint64_t pair) { return static_cast<unsigned>(pair >> 32); };

    dense1D<std::uint64_t> pairs;
    dense1D<unsigned> refused;
    bit_vector is_first;
    if (!pairs.resize(total) || !refused.copy(excluded) || !is_first.reset(total)) return false;

    unsigned position = 0;
    entries.visit([&](unsigned value) {
        pairs[position] = std::uint64_t{value} << 32 | position;
        ++position;
    });
    std::sort(pairs.begin(), pairs.end());
    std::sort(refused.begin(), refused.end());

    const unsigned* refusal = refused.begin();
    unsigned former = none_index;
    for (const std::uint64_t pair : pairs)
    {
        const unsigned value = value_of(pair);
        if (value == none_index) break;
        if (value == former) continue;
        former = value;
        while (refusal != refused.end() && *refusal < value) ++refusal;
        if (refusal == refused.end() || *refusal != value) is_first.set(static_cast<unsigned>(pair));
    }

    position = 0;
    entries.visit([&](unsigned value) {
        if (is_first[position++]) worker(value);
    });
    return true;
}

/// Calls `worker(value)` for the distinct values in order of first appearance, without none and what is `excluded`. False, with nothing
/// called, when memory runs out.
template <class Entries, class Worker>
bool visit_distinct(const Entries& entries, const dense1D<unsigned>& excluded, Worker&& worker)
{
    // Marks pay as long as they take no more memory than the entries themselves, which have 32 bits each.
    constexpr std::uint64_t always_cheap = 1u << 16;
    const std::uint64_t total = entries.total();
    if (total == 0) return true;
    const unsigned largest = entries.largest();
    if (largest < 32 * total + always_cheap) return visit_distinct_by_marks(entries, largest, excluded, worker);
    return visit_distinct_by_sorting(entries, static_cast<unsigned>(total), excluded, worker);
}

/// Appends the distinct values. False when memory runs out; some may then be missing.
template <class Entries>
bool append_distinct(dense1D<unsigned>& out, const Entries& entries, const dense1D<unsigned>& excluded)
{
    bool complete = true;
    const bool visited = visit_distinct(entries, excluded, [&](unsigned value) {
        const unsigned former = out.size;
        out.push_back(value);
        complete &= out.size != former;
    });
    return visited && complete;
}

} // namespace tq4::gridweave
