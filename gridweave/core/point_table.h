#pragma once

// Finding equal points without a tree.

#include <bit>
#include <cstdint>
#include <utility>

#include <tq4/gridweave/core.h>

#include "gridweave/core/prefetch.h"

namespace tq4::gridweave
{

/// A hash table of points of D finite coordinates, by their values; -0 and 0 are one. The points stay where they are: the table holds ids
/// and a caller tells where the coordinates of an id stand. It starts small, so that a few thousand points stay in the nearest cache.
template <unsigned D>
class point_table
{
public:
    /// Empties the table. False when memory ran out.
    bool reset()
    {
        entered_ = 0;
        probes_left_ = least_slots;
        return set_slots(least_slots);
    }

    /// What `find_or_enter` and `prefetch` take; its high bits choose the slot.
    static std::uint64_t hash(const double* x)
    {
        // Coordinates on a lattice, or widened from floats, differ in their high bits only: these are folded down before each product.
        // The constants are those of the finalizer of MurmurHash3 (Appleby).
        std::uint64_t h = 0;
        for (unsigned k = 0; k < D; ++k)
        {
            h ^= std::bit_cast<std::uint64_t>(x[k] + 0.0);
            h = (h ^ h >> 32) * (k % 2 ? 0xC4CEB9FE1A85EC53u : 0xFF51AFD7ED558CCDu);
        }
        return (h ^ h >> 29) * 0xC4CEB9FE1A85EC53u;
    }

    /// Brings the slot of a point into the cache, for a lookup that follows soon.
    void prefetch(std::uint64_t hash_of_x) const { gridweave::prefetch(&ids_[static_cast<unsigned>(hash_of_x >> shift_)]); }

    /// The id that was entered first for a point equal to `x`; when there is none, `id` is entered and returned. `point_of(id)` points at
    /// the coordinates of an id that was entered.
    ///
    /// The result is `none_index`, and the table is of no more use, when memory ran out or the points were made to collide: the caller
    /// then takes a way whose cost does not hang on hashing.
    template <class PointOf>
    unsigned find_or_enter(const double* x, std::uint64_t hash_of_x, unsigned id, PointOf&& point_of)
    {
        if (entered_ >= ids_.size / 2 && !grow(point_of)) return none_index;
        probes_left_ += probes_per_point;
        const unsigned mask = ids_.size - 1;
        for (auto slot = static_cast<unsigned>(hash_of_x >> shift_);; slot = (slot + 1) & mask)
        {
            unsigned& entry = ids_[slot];
            if (entry == none_index)
            {
                ++entered_;
                return entry = id;
            }
            if (equal(x, point_of(entry))) return entry;
            if (--probes_left_ == 0) return none_index;
        }
    }

private:
    static constexpr unsigned least_slots = 1u << 14;
    static constexpr unsigned growth = 4;
    static constexpr std::uint64_t probes_per_point = 32;

    bool set_slots(std::uint64_t slots)
    {
        shift_ = static_cast<unsigned>(std::countl_zero(slots) + 1);
        ids_.size = 0;
        return slots <= none_index && ids_.resize(static_cast<unsigned>(slots), none_index);
    }

    template <class PointOf>
    bool grow(PointOf&& point_of)
    {
        dense1D<unsigned> former;
        std::swap(former, ids_);
        if (!set_slots(std::uint64_t{growth} * former.size)) return false;
        const unsigned mask = ids_.size - 1;
        for (const unsigned id : former)
        {
            if (id == none_index) continue;
            // What collides here will collide in the lookups, where probes are counted.
            auto slot = static_cast<unsigned>(hash(point_of(id)) >> shift_);
            while (ids_[slot] != none_index) slot = (slot + 1) & mask;
            ids_[slot] = id;
        }
        return true;
    }

    static bool equal(const double* x, const double* y)
    {
        bool same = true;
        for (unsigned k = 0; k < D; ++k) same &= x[k] == y[k];
        return same;
    }

    dense1D<unsigned> ids_;
    unsigned shift_ = 0;
    unsigned entered_ = 0;
    std::uint64_t probes_left_ = 0;
};

} // namespace tq4::gridweave
