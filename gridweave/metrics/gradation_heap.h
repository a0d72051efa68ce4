#pragma once

// The queue of the relaxations: a binary heap of edges, the worst on top.

#include <bit>
#include <cfloat>
#include <cstddef>
#include <cstdint>

#include <tq4/numcore/dense1d.h>

#include "gridweave/core/prefetch.h"

namespace tq4::gridweave
{

/// A node to correct because of one of its edges.
struct gradation_record
{
    float key;          ///< measure of the edge
    unsigned stamp;     ///< number of moves that had been made when the edge was measured
    unsigned node;      ///< the node to correct
    unsigned neighbour; ///< the other end of the edge
};

/// The key of an edge of the given measure, which is positive.
inline float gradation_key(double measure)
{
    return static_cast<float>(measure < static_cast<double>(FLT_MAX) ? measure : static_cast<double>(FLT_MAX));
}

/// A binary max-heap on the keys, which are not negative. Which of several records with the largest key comes out first is told by the way
/// of the heap alone, and results depend on it: insertion sifts up past strictly smaller keys; removal sinks the last record from the top
/// along the larger children (the right one of equals) as long as their keys are not below its own. (A hole that sinks to the bottom, and
/// the last record sifted up from there past strictly smaller keys, leave the same heap.)
///
/// A removal walks nearly the whole depth of a heap of millions of records, and what that costs is the memory. The records are numbered
/// from 1 on a cache line, so those of two siblings stand in one line, and the descendants of a record four levels down fill four lines in
/// a row; these are asked for while the levels between are decided. The decisions are as good as random, so they are made without branches.
class gradation_heap
{
public:
    bool empty() const { return count_ == 0; }
    unsigned size() const { return count_; }

    /// False, with nothing inserted, when memory runs out.
    bool push(const gradation_record& record)
    {
        if (count_ == room_ && !grow()) return false;
        std::size_t hole = ++count_;
        while (hole > root && bits_of(heap_[hole / 2]) < bits_of(record))
        {
            heap_[hole] = heap_[hole / 2];
            hole /= 2;
        }
        heap_[hole] = record;
        return true;
    }

    /// The record on top of a heap that is not empty.
    const gradation_record& top() const { return heap_[root]; }

    /// Takes the record on top out of a heap that is not empty.
    void pop()
    {
        const gradation_record last = heap_[count_--];
        const std::size_t count = count_;
        std::size_t hole = root;
        // Nothing is asked for behind the end: addresses that have no memory cost more than those that have.
        while (records_ahead * hole <= count)
        {
            for (std::size_t k = 0; k < records_ahead; k += records_per_line) prefetch(heap_ + records_ahead * hole + k);
            if (!sink(hole, last)) return;
        }
        while (2 * hole + 1 <= count)
            if (!sink(hole, last)) return;
        if (2 * hole == count && !(bits_of(heap_[count]) < bits_of(last)))
        {
            heap_[hole] = heap_[count];
            hole = count;
        }
        heap_[hole] = last;
    }

private:
    static constexpr std::size_t root = 1;
    static constexpr unsigned cache_line = 64;
    static constexpr std::size_t records_per_line = cache_line / sizeof(gradation_record);
    static constexpr std::size_t records_ahead = 16;

    /// The bits of a key, which are in the order of the keys and quicker to compare.
    static std::uint32_t bits_of(const gradation_record& record) { return std::bit_cast<std::uint32_t>(record.key); }

    /// Moves a hole with two children one level down, or puts `record` into it when both have smaller keys; false then.
    bool sink(std::size_t& hole, const gradation_record& record)
    {
        const gradation_record* const children = heap_ + 2 * hole;
        const std::uint32_t left = bits_of(children[0]);
        const std::uint32_t right = bits_of(children[1]);
        if ((right < left ? left : right) < bits_of(record))
        {
            heap_[hole] = record;
            return false;
        }
        const std::size_t to_right = right < left ? 0 : 1;
        heap_[hole] = children[to_right];
        hole = 2 * hole + to_right;
        return true;
    }

    /// Room for twice as many records.
    bool grow()
    {
        constexpr unsigned first_room = 1024;
        constexpr unsigned most_room = 0xFFFFFFFEu;

        if (room_ == most_room) return false;
        const unsigned wanted = room_ == 0 ? first_room : room_ > most_room / 2 ? most_room : 2 * room_;
        if (!records_.resize(wanted + 1)) return false;
        heap_ = records_.data();
        room_ = wanted;
        return true;
    }

    dense1D<gradation_record, cache_line> records_;
    gradation_record* heap_ = nullptr;
    unsigned count_ = 0;
    unsigned room_ = 0;
};

static_assert(sizeof(gradation_record) == 16, "four records to a cache line");

} // namespace tq4::gridweave
