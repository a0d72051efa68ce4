#pragma once

// The queue of the relaxations: a binary heap of edges, the worst on top.

#include <array>
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
/// A removal walks nearly the whole depth of a heap of millions of records, and what that costs is the wait for the memory of the lower
/// levels. So a hole goes no further at first than to a level whose records are at hand, and waits there until there is a group of holes;
/// these have nothing in common below, and sink together, each asking for its next records while the others take their step. Whatever
/// would touch the records below a waiting hole lets the group go on before: so the heap looks to its user as if none had waited.
///
/// The records are numbered from 1 on a cache line: two siblings stand in one line, and so do their four children. The decisions are as
/// good as random, so they are made without branches.
class gradation_heap
{
public:
    bool empty() const { return count_ == 0; }
    unsigned size() const { return count_; }

    /// False, with nothing inserted, when memory runs out.
    bool push(const gradation_record& record)
    {
        if (count_ == room_ && !grow()) return false;
        if (is_below_waiting(count_ + 1)) finish_waiting();
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

    /// Calls `worker(record)` for the two records one of which mostly comes out after the one on top.
    template <class Worker>
    void for_each_next(Worker&& worker) const
    {
        for (std::size_t child = 2 * root; child < 2 * root + 2 && child <= count_; ++child) worker(heap_[child]);
    }

    /// Takes the record on top out of a heap that is not empty.
    void pop()
    {
        if (is_below_waiting(count_)) finish_waiting();
        const gradation_record last = heap_[count_--];
        std::size_t hole = root;
        while (hole < parents_of_waiting)
            if (!sink(hole, last)) return;
        // The next step looks at records into which a waiting hole may have to take one.
        if (is_parent_of_waiting(hole)) finish_waiting();
        if (!sink(hole, last)) return;

        if (waiting_ == most_waiting) finish_waiting();
        ask_for_descendants(hole);
        holes_[waiting_] = static_cast<unsigned>(hole);
        lasts_[waiting_++] = last;
    }

private:
    static constexpr std::size_t root = 1;
    static constexpr unsigned cache_line = 64;

    static constexpr unsigned waiting_level = 12; ///< records above it fit into the nearest caches
    static constexpr std::size_t parents_of_waiting = std::size_t{1} << (waiting_level - 1); ///< the first of them
    static constexpr unsigned most_waiting = 16;                                             ///< as many lines as memory gives at a time

    /// The bits of a key, which are in the order of the keys and quicker to compare.
    static std::uint32_t bits_of(const gradation_record& record) { return std::bit_cast<std::uint32_t>(record.key); }

    /// Moves a hole one level down, or puts `record` into it when its children have smaller keys or there are none; false then.
    bool sink(std::size_t& hole, const gradation_record& record)
    {
        gradation_record* const children = heap_ + 2 * hole;
        if (2 * hole >= count_)
        {
            const bool above_only_child = 2 * hole == count_ && !(bits_of(*children) < bits_of(record));
            if (above_only_child) heap_[hole] = *children;
            (above_only_child ? *children : heap_[hole]) = record;
            return false;
        }
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

    /// Asks for the records that the next two steps of a hole look at.
    void ask_for_descendants(std::size_t hole) const
    {
        prefetch(heap_ + 2 * hole);
        prefetch(heap_ + 4 * hole);
    }

    bool is_below_waiting(unsigned position) const
    {
        const auto level = static_cast<unsigned>(std::bit_width(position)) - 1;
        if (level < waiting_level) return false;
        const unsigned ancestor = position >> (level - waiting_level);
        unsigned found = 0;
        for (const unsigned hole : holes_) found |= static_cast<unsigned>(hole == ancestor);
        return found != 0;
    }

    bool is_parent_of_waiting(std::size_t hole) const
    {
        unsigned found = 0;
        for (const unsigned child : holes_) found |= static_cast<unsigned>(child / 2 == hole);
        return found != 0;
    }

    /// Takes all waiting holes to their ends.
    void finish_waiting()
    {
        while (waiting_ != 0)
            for (unsigned k = 0; k < waiting_;)
            {
                std::size_t hole = holes_[k];
                if (sink(hole, lasts_[k]) && sink(hole, lasts_[k]))
                {
                    ask_for_descendants(hole);
                    holes_[k++] = static_cast<unsigned>(hole);
                    continue;
                }
                --waiting_;
                holes_[k] = holes_[waiting_];
                holes_[waiting_] = 0;
                lasts_[k] = lasts_[waiting_];
            }
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

    // The removals underway: their holes, all at the waiting level while others are made, and the records that will fill these.
    unsigned waiting_ = 0;
    std::array<unsigned, most_waiting> holes_{};
    std::array<gradation_record, most_waiting> lasts_{};
};

static_assert(sizeof(gradation_record) == 16, "four records to a cache line");

} // namespace tq4::gridweave
