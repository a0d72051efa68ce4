#pragma once

// Finding equal points without a tree.

#include <bit>
#include <cstdint>

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// A hash table of points of D finite coordinates, by their values; -0 and 0 are one. The points stay where they are: the table holds ids,
/// and a caller tells where the coordinates of an id stand.
template <unsigned D>
class point_table
{
public:
    /// Empties the table and makes room for `points` entries. False when memory ran out.
    bool reset(unsigned points)
    {
        const std::uint64_t slots = std::bit_ceil(std::uint64_t{points} * 2 | 1024);
        if (slots > none_index) return false;
        shift_ = static_cast<unsigned>(std::countl_zero(slots) + 1);
        probes_left_ = probes_per_point * (std::uint64_t{points} + 1024);
        ids_.size = 0;
        return ids_.resize(static_cast<unsigned>(slots), none_index);
    }

    /// The id that was entered first for a point equal to `x`; when there is none, `id` is entered and returned. `point_of(id)` points at
    /// the coordinates of an id.
    ///
    /// The result is `none_index` when the points were made to collide: the caller then takes a way whose cost does not hang on hashing.
    template <class PointOf>
    unsigned find_or_enter(const double* x, unsigned id, PointOf&& point_of)
    {
        const unsigned mask = ids_.size - 1;
        for (std::uint64_t slot = hash(x) >> shift_;; ++slot)
        {
            unsigned& entry = ids_[static_cast<unsigned>(slot) & mask];
            if (entry == none_index) return entry = id;
            if (equal(x, point_of(entry))) return entry;
            if (probes_left_ == 0) return none_index;
            --probes_left_;
        }
    }

    /// Brings the slot of a point into the cache, for a lookup that follows soon.
    void prefetch(const double* x) const
    {
#if defined(__GNUC__)
        __builtin_prefetch(&ids_[static_cast<unsigned>(hash(x) >> shift_)]);
#endif
    }

private:
    static constexpr std::uint64_t probes_per_point = 32;

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

    static bool equal(const double* x, const double* y)
    {
        bool same = true;
        for (unsigned k = 0; k < D; ++k) same &= x[k] == y[k];
        return same;
    }

    dense1D<unsigned> ids_;
    unsigned shift_ = 0;
    std::uint64_t probes_left_ = 0;
};

} // namespace tq4::gridweave
