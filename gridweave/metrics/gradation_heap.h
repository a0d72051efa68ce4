#pragma once

// The queue of the relaxations: a binary heap of edges, the worst on top.

#include <bit>
#include <cfloat>
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
/// of the heap alone, and results depend on it: insertion sifts up past strictly smaller keys; removal sinks a hole from the top to the
/// bottom along the larger children (the right one of equals) and sifts the last record up from there.
///
/// A removal walks the whole depth of a heap of millions of records, and what it costs is the memory. So the records themselves stay where
/// they were put, in slots, and what moves is an entry of 8 bytes: the key and the slot. Entries are numbered from 1 on a cache line, so
/// those of two siblings stand in one line, and the descendants of an entry four levels down stand in two whole lines, which are asked
/// for while the levels between are decided. The decisions are as good as random, so they are made without branches.
class gradation_heap
{
public:
    bool empty() const { return count_ == 0; }
    unsigned size() const { return count_; }

    /// False, with nothing inserted, when memory runs out.
    bool push(const gradation_record& record)
    {
        if (count_ == room_ && !grow()) return false;
        const unsigned slot = take_slot();
        ++count_;
        slots_[slot] = {record.stamp, record.node, record.neighbour};
        sift_up(count_, entry{std::bit_cast<std::uint32_t>(record.key)} << slot_bits | slot);
        return true;
    }

    /// The record on top of a heap that is not empty.
    gradation_record top() const
    {
        const entry e = heap_[root];
        const details& d = slots_[slot_of(e)];
        return {std::bit_cast<float>(key_of(e)), d.stamp, d.node, d.neighbour};
    }

    /// Takes the record on top out of a heap that is not empty.
    void pop()
    {
        // One of these two is on top next. (Entries behind the end hold former slots, or the first one.)
        prefetch(&slots_[slot_of(heap_[2 * root])]);
        prefetch(&slots_[slot_of(heap_[2 * root + 1])]);

        give_back(slot_of(heap_[root]));
        const entry last = heap_[count_];
        --count_;
        if (count_ != 0) sift_up(sink_hole(), last);
    }

private:
    /// The bits of the key, which are in the order of the keys, above the slot.
    using entry = std::uint64_t;

    static constexpr unsigned slot_bits = 32;
    static constexpr std::size_t root = 1;
    static constexpr unsigned cache_line = 64;
    static constexpr unsigned none = 0xFFFFFFFFu;

    /// What a record has beside its key. In a free slot the stamp is the next free slot.
    struct details
    {
        unsigned stamp;
        unsigned node;
        unsigned neighbour;
    };

    static std::uint32_t key_of(entry e) { return static_cast<std::uint32_t>(e >> slot_bits); }
    static unsigned slot_of(entry e) { return static_cast<unsigned>(e); }

    /// Room for twice as many records; both arrays are as long as the heap ever was.
    bool grow()
    {
        constexpr unsigned first_room = 1024;
        constexpr unsigned most_room = none - 1;

        if (room_ == most_room) return false;
        const unsigned wanted = room_ == 0 ? first_room : room_ > most_room / 2 ? most_room : 2 * room_;
        const bool grown = entries_.resize(wanted + 1) && slot_store_.resize(wanted);
        heap_ = entries_.data();
        slots_ = slot_store_.data();
        if (grown) room_ = wanted;
        return grown;
    }

    unsigned take_slot()
    {
        if (first_free_ == none) return slots_used_++;
        const unsigned slot = first_free_;
        first_free_ = slots_[slot].stamp;
        return slot;
    }

    void give_back(unsigned slot)
    {
        slots_[slot].stamp = first_free_;
        first_free_ = slot;
    }

    void sift_up(std::size_t hole, entry e)
    {
        while (hole > root && key_of(heap_[hole / 2]) < key_of(e))
        {
            heap_[hole] = heap_[hole / 2];
            hole /= 2;
        }
        heap_[hole] = e;
    }

    /// Sinks a hole from the top to the bottom of the first `count_` entries.
    std::size_t sink_hole()
    {
        constexpr std::size_t entries_per_line = cache_line / sizeof(entry);

        entry* const heap = heap_;
        const std::size_t count = count_;
        std::size_t hole = root;
        while (2 * hole + 1 <= count)
        {
            prefetch(heap + 16 * hole);
            prefetch(heap + 16 * hole + entries_per_line);
            const entry left = heap[2 * hole];
            const entry right = heap[2 * hole + 1];
            const entry to_right = key_of(right) < key_of(left) ? 0 : 1;
            // A choice by mask: compilers make a branch of the plain one, which is mispredicted every other time.
            heap[hole] = left ^ ((left ^ right) & (0 - to_right));
            hole = 2 * hole + to_right;
        }
        if (2 * hole == count)
        {
            heap[hole] = heap[count];
            hole = count;
        }
        return hole;
    }

    dense1D<entry, cache_line> entries_;
    dense1D<details> slot_store_;
    entry* heap_ = nullptr;
    details* slots_ = nullptr;
    unsigned count_ = 0;
    unsigned room_ = 0;
    unsigned slots_used_ = 0;
    unsigned first_free_ = none;
};

} // namespace tq4::gridweave
