#pragma once

// The queue of the relaxations: the records of edges to correct, the worst first.

#include <algorithm>
#include <array>
#include <bit>
#include <bitset>
#include <cfloat>
#include <cstddef>
#include <cstdint>
#include <utility>

#include <tq4/gridweave/core.h>

#include "gridweave/core/prefetch.h"

namespace tq4::gridweave
{

/// A node to correct because of one of its edges.
struct gradation_record
{
    unsigned stamp;     ///< number of moves that had been made when the edge was measured
    unsigned node;      ///< the node to correct
    unsigned neighbour; ///< the other end of the edge
    unsigned position;  ///< where the edge stands in the lists of the graph
};

static_assert(sizeof(gradation_record) == 16, "four records to a cache line");

/// The key of an edge of the given measure, which is positive.
inline float gradation_key(double measure)
{
    return static_cast<float>(measure < static_cast<double>(FLT_MAX) ? measure : static_cast<double>(FLT_MAX));
}

/// Moves the elements to a larger block. False, with nothing changed, when memory runs out.
template <class T, unsigned A>
bool move_to_larger(dense1D<T, A>& elements, unsigned room)
{
    dense1D<T, A> larger;
    if (!larger.resize(room)) return false;
    std::copy(elements.begin(), elements.end(), larger.begin());
    elements = std::move(larger);
    return true;
}

/// A binary max-heap on keys, which are not negative, each with a ticket for what it stands for. Which of several tickets with the largest
/// key comes out first is told by the way of the heap alone, and results depend on it: insertion sifts up past strictly smaller keys;
/// removal sinks the last entry from the top along the larger children (the right one of equals) as long as their keys are not below its
/// own. (A hole that sinks to the bottom, and the last entry sifted up from there past strictly smaller keys, leave the same heap.)
///
/// A removal walks nearly the whole depth of a heap of millions of entries, and what that costs is the wait for memory: for the nearest
/// caches on the upper levels, for the farthest on the lower ones.
///
/// - Entries take eight bytes. Two siblings and their four children share a cache line, a page, so that a line serves two levels.
/// - The decisions are as good as random, so they are made without branches, and those of a page all at once.
/// - A hole goes no further at first than to a level whose entries are at hand, and waits there until there is a group of holes; these
///   have nothing in common below, and sink together, each asking for its next page while the others take their step. Whatever would touch
///   the entries below a waiting hole takes that one to its end before: so the heap looks to its user as if none had waited.
class gradation_heap
{
public:
    gradation_heap() { way_.fill(root); }

    bool empty() const { return count_ == 0; }
    unsigned size() const { return count_; }

    /// False, with nothing inserted, when memory runs out.
    bool push(float key, unsigned ticket)
    {
        const place last = place_of(count_ + 1);
        if (last.page >= pages_in_use_ && !take_page_into_use()) return false;
        finish_waiting_in(guard_of(count_ + 1));
        ++count_;
        rise(last, {ticket, rank_of(key)});
        return true;
    }

    /// The ticket on top of a heap that is not empty, and its key.
    unsigned top() const { return at(root).ticket; }
    float top_key() const { return std::bit_cast<float>(at(root).rank - 1); }

    /// Takes the top out of a heap that is not empty.
    void pop()
    {
        const place tail = place_of(count_);
        finish_waiting_in(guard_of(count_));
        const entry last = at(tail);
        at(tail) = missing;
        if (--count_ < least_to_wait)
        {
            finish_waiting();
            if (count_ != 0) sink_to_end(root, last);
            return;
        }

        place hole = root;
        for (place& passed : way_)
        {
            // The last step looks at entries into which a waiting hole may have to take one.
            if (&passed == &way_.back()) finish_waiting_in(page_below(hole));
            passed = hole = descend(hole);
        }
        // It is seldom that the hole has come too far.
        if (at(parent_of(hole)).rank < last.rank) return rise(hole, last);
        if (waiting_ == most_waiting) finish_waiting();
        ask_for_page_below(hole);
        is_waiting_[hole.page] = true;
        holes_[waiting_] = hole;
        lasts_[waiting_++] = last;
    }

    /// The levels below the top of which `risen` tells.
    static constexpr unsigned levels_of_risen = 4;

    /// The ticket that stands, where the latest removal of a large heap passed, as many levels below the top: it has mostly just risen
    /// there, and comes out soon. In a small heap any ticket in use will do, or 0.
    unsigned risen(unsigned level) const
    {
        const place& lower = way_[(level - 1) / 2];
        return at(level % 2 == 0 ? lower : place{lower.page, lower.slot / 2}).ticket;
    }

private:
    struct entry
    {
        unsigned ticket;
        std::uint32_t rank; ///< the bits of the key, which are in the order of the keys, and 1
    };

    /// Stands where there is no entry, below all others.
    static constexpr entry missing{0, 0};

    /// The siblings stand at 2 and 3 of a page, their children at 4 and 5, 6 and 7. The children of those have pages of their own, one
    /// after the other: a page with the number p is followed by 4 p - 2 and three more. In page 0 there is only the root.
    using page = std::array<entry, 8>;
    static constexpr unsigned cache_line = 64;
    static_assert(sizeof(page) == cache_line, "a page is a cache line");

    struct place
    {
        std::size_t page;
        std::size_t slot;
    };

    static constexpr place root{0, 7};

    /// Holes wait after so many steps of two levels each. The entries above fit into the nearer caches.
    static constexpr unsigned steps_to_waiting = 6;
    static constexpr unsigned waiting_level = 2 * steps_to_waiting;
    static constexpr unsigned most_waiting = 16;                               ///< as many lines as memory gives at a time
    static constexpr unsigned least_to_wait = (1u << (waiting_level + 1)) - 1; ///< entries that fill the levels down to the waiting one

    static std::uint32_t rank_of(float key) { return std::bit_cast<std::uint32_t>(key) + 1; }

    entry& at(const place& where) { return all_[where.page][where.slot]; }
    const entry& at(const place& where) const { return all_[where.page][where.slot]; }

    /// The number of the page that holds the children of an entry in the lower half of its page, and of their children.
    static std::size_t page_below(const place& where) { return 4 * where.page + where.slot - 6; }

    static place parent_of(const place& where)
    {
        if (where.slot >= 4) return {where.page, where.slot / 2};
        return {(where.page + 2) / 4, 4 + (where.page + 2) % 4};
    }

    /// A level of the heap: where its entries are by their positions, which count from 1 on, level after level.
    struct level_places
    {
        unsigned begin = 0; ///< position of its first entry; 0 for no level
        unsigned shift = 0; ///< 2^shift of its entries share a page,
        unsigned slot = 0;  ///< from this place of the page on
        unsigned pages = 0; ///< what is to be added to a position over 2^shift for the number of its page
        unsigned guarding_shift = 0;
        unsigned guarding_pages = 0; ///< the same for the page on the waiting level that stands above; page 0 where none does
    };

    /// To be added to numbers 4^k to 2 * 4^k - 1 of entries above pages for the numbers of these pages.
    static constexpr unsigned pages_by_entry_above(unsigned first_above) { return 1 + (0x55555555u & (first_above - 1)) - first_above; }

    static level_places places_of_level(unsigned begin)
    {
        if (begin == 1) return {1, 1, root.slot - 1, 0, 1, 0}; // the remainder is 1
        const bool lower = std::countr_zero(begin) % 2 == 0;
        const unsigned shift = lower ? 2 : 1;
        level_places places{begin, shift, lower ? 4u : 2u, pages_by_entry_above(begin >> shift), 31, 0};
        if (begin >> waiting_level != 0)
        {
            places.guarding_shift = static_cast<unsigned>(std::countr_zero(begin)) - waiting_level + 2;
            places.guarding_pages = pages_by_entry_above(1u << (waiting_level - 2));
        }
        return places;
    }

    /// The place of an entry by its position: that of the last entry or of the one behind it.
    place place_of(unsigned position)
    {
        if ((position ^ last_level_.begin) >= last_level_.begin) last_level_ = places_of_level(std::bit_floor(position));
        const unsigned number = last_level_.pages + (position >> last_level_.shift);
        const unsigned within = position & ((1u << last_level_.shift) - 1);
        return {number, last_level_.slot + within};
    }

    /// The page on the waiting level above a position whose place has just been asked for, or close to that.
    std::size_t guard_of(unsigned position) const { return last_level_.guarding_pages + (position >> last_level_.guarding_shift); }

    /// Puts an entry into the first place from a hole up that has no smaller key above it.
    void rise(place hole, const entry& risen)
    {
        while (hole.page != root.page)
        {
            const place parent = parent_of(hole);
            if (!(at(parent).rank < risen.rank)) break;
            at(hole) = at(parent);
            hole = parent;
        }
        at(hole) = risen;
    }

    /// The slots of the larger child of the entry above a page, and of the larger child of that.
    struct larger_two
    {
        std::size_t child;
        std::size_t grandchild;
    };

    static larger_two larger_of(const page& of)
    {
        const auto not_below = [&](unsigned right, unsigned left) { return static_cast<std::size_t>(of[right].rank >= of[left].rank); };
        const std::size_t side = not_below(3, 2);
        const std::size_t left = 4 + not_below(5, 4);
        const std::size_t right = 6 + not_below(7, 6);
        return {2 + side, left ^ ((left ^ right) & (0 - side))};
    }

    /// Moves a hole two levels down, whatever is to be put into it.
    place descend(const place& hole)
    {
        const std::size_t below = page_below(hole);
        page& there = all_[below];
        const larger_two larger = larger_of(there);
        at(hole) = there[larger.child];
        there[larger.child] = there[larger.grandchild];
        return {below, larger.grandchild};
    }

    /// Moves a hole two levels down, or puts `last` into the first place from it on whose children have smaller keys or are missing; false
    /// then. Called, it would pass the place from step to step through memory.
    [[gnu::always_inline]] bool sink(place& hole, const entry& last)
    {
        const std::size_t below = page_below(hole);
        if (below >= pages_in_use_)
        {
            at(hole) = last;
            return false;
        }
        page& there = all_[below];
        const larger_two larger = larger_of(there);
        if (there[larger.child].rank < last.rank)
        {
            at(hole) = last;
            return false;
        }
        at(hole) = there[larger.child];
        if (there[larger.grandchild].rank < last.rank)
        {
            there[larger.child] = last;
            return false;
        }
        there[larger.child] = there[larger.grandchild];
        hole = {below, larger.grandchild};
        return true;
    }

    void ask_for_page_below(const place& hole) const { prefetch(all_ + page_below(hole)); }

    void sink_to_end(place hole, const entry& last)
    {
        while (sink(hole, last)) {}
    }

    /// Takes the hole that waits in a page, if there is one, to its end.
    void finish_waiting_in(std::size_t number)
    {
        if (!is_waiting_[number]) return;
        unsigned k = 0;
        while (holes_[k].page != number) ++k;
        sink_to_end(holes_[k], lasts_[k]);
        is_waiting_[number] = false;
        forget_waiting(k);
    }

    void forget_waiting(unsigned k)
    {
        --waiting_;
        holes_[k] = holes_[waiting_];
        lasts_[k] = lasts_[waiting_];
    }

    /// Takes all waiting holes to their ends.
    void finish_waiting()
    {
        if (waiting_ == 0) return;
        while (waiting_ != 0)
            for (unsigned k = 0; k < waiting_;)
            {
                if (sink(holes_[k], lasts_[k]))
                {
                    ask_for_page_below(holes_[k++]);
                    continue;
                }
                forget_waiting(k);
            }
        is_waiting_.reset();
    }

    /// Empties one more page for entries.
    bool take_page_into_use()
    {
        constexpr unsigned first_pages = 256;

        if (pages_in_use_ == pages_.size)
        {
            if (pages_in_use_ == none_index) return false;
            const unsigned wanted = pages_in_use_ == 0 ? first_pages : pages_in_use_ > none_index / 2 ? none_index : 2 * pages_in_use_;
            if (!move_to_larger(pages_, wanted)) return false;
            all_ = pages_.data();
        }
        all_[pages_in_use_++].fill(missing);
        return true;
    }

    dense1D<page, cache_line> pages_;
    page* all_ = nullptr;
    unsigned pages_in_use_ = 0;
    unsigned count_ = 0;
    level_places last_level_; ///< the level of the last entry or of the one behind it

    std::array<place, steps_to_waiting> way_; ///< where the latest removal passed, two levels apart

    // The removals underway: their holes, all at the waiting level while others are made, the pages of these, and the entries that will
    // fill them.
    unsigned waiting_ = 0;
    std::array<place, most_waiting> holes_{};
    std::array<entry, most_waiting> lasts_{};
    std::bitset<(1u << waiting_level) / 3 + 1> is_waiting_;
};

/// The records to correct, the worst first: a heap of tickets, and the records that these stand for.
///
/// Of many records it is known from the start that nothing will come of them. They are queued all the same, since the order of others with
/// equal keys depends on them, but they all have one ticket and are no records of their own: `idle`.
class gradation_queue
{
public:
    /// `idle` is what comes out for a record of which nothing will come.
    explicit gradation_queue(const gradation_record& idle) : idle_(idle) {}

    bool empty() const { return heap_.empty(); }
    unsigned size() const { return heap_.size(); }

    /// False, with nothing inserted, when memory runs out.
    bool push(float key, const gradation_record& record)
    {
        if (free_ == idle_ticket && used_ == records_.size && !grow()) return false;
        const bool again = free_ != idle_ticket;
        const unsigned ticket = again ? free_ : used_;
        if (!heap_.push(key, ticket)) return false;
        if (again)
        {
            free_ = all_[ticket].stamp;
            prefetch(all_ + free_); // the next one to come
        }
        else
            ++used_;
        all_[ticket] = record;
        return true;
    }

    /// The same for a record of which nothing will come.
    bool push_idle(float key) { return (used_ != 0 || grow()) && heap_.push(key, idle_ticket); }

    /// The record on top of a queue that is not empty, and its key.
    const gradation_record& top() const { return all_[heap_.top()]; }
    float top_key() const { return heap_.top_key(); }

    /// Takes the record on top out of a queue that is not empty.
    void pop()
    {
        if (const unsigned ticket = heap_.top(); ticket != idle_ticket)
        {
            all_[ticket].stamp = free_;
            free_ = ticket;
        }
        heap_.pop();
    }

    /// A record that has mostly just risen to so many levels below the top, as `gradation_heap::risen` tells; the record itself has been
    /// asked for when it was one level lower.
    const gradation_record& risen(unsigned level) const
    {
        prefetch(all_ + heap_.risen(level + 1));
        return all_[heap_.risen(level)];
    }

private:
    static constexpr unsigned idle_ticket = 0;

    /// Room for twice as many records.
    bool grow()
    {
        constexpr unsigned first_room = 1024;

        const unsigned wanted = used_ == 0 ? first_room : used_ > none_index / 2 ? none_index : 2 * used_;
        if (wanted == used_ || !move_to_larger(records_, wanted)) return false;
        all_ = records_.data();
        if (used_ == 0) all_[used_++] = idle_;
        return true;
    }

    gradation_heap heap_;
    gradation_record idle_;
    dense1D<gradation_record, 64> records_; ///< by ticket
    gradation_record* all_ = nullptr;
    unsigned used_ = 0;
    unsigned free_ = idle_ticket; ///< a ticket that is free again; its stamp is the next one
};

} // namespace tq4::gridweave
