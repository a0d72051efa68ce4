#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

#include <tq4/numcore/memory.h>
#include <tq4/numcore/ref_counted.h>

namespace tq4
{

template <class T, unsigned A>
class dense1D;
template <class T>
class dense2D;

/// The storage block that the views `dense1D` and `dense2D` look at: a reference-counted array of `capacity` elements whose first one is
/// aligned to `A` bytes. A block grows in place, so all views on it see the new data; a raw element pointer is dead after a growth.
template <class T, unsigned A = 8>
class vector_num : public numcore::ref_counted
{
    static_assert(A != 0 && (A & (A - 1)) == 0, "the alignment is a power of two");

public:
    /// Value of `shift` that marks memory which the block does not own.
    static constexpr std::uint16_t not_owned = 65535;

    T* data = nullptr;       ///< first element; null while the block is empty
    unsigned capacity = 0;   ///< number of elements the block can hold
    std::uint16_t shift = 0; ///< bytes between what the allocator returned and `data`, or `not_owned`

    vector_num() noexcept = default;
    ~vector_num() override { release(); }

    vector_num(const vector_num&) = delete;
    vector_num& operator=(const vector_num&) = delete;

    /// A fresh empty block, or null when there is no memory for the block itself.
    static vector_num* create() noexcept { return new (std::nothrow) vector_num; }

private:
    template <class, unsigned>
    friend class dense1D;
    template <class>
    friend class dense2D;

    /// Makes room for at least `min_capacity` elements and for `factor` times the present capacity, keeping the first `keep` elements;
    /// the others are default-constructed (zero for numbers). False, with nothing changed, when that many elements are beyond 32 bits
    /// or beyond memory.
    bool __grow(std::uint64_t min_capacity, unsigned keep, unsigned factor) noexcept
    {
        constexpr std::uint64_t max_count = 0xFFFFFFFFu;
        constexpr std::uint64_t slack = (A > sizeof(T) ? A : sizeof(T)) - 1;

        std::uint64_t wanted = std::uint64_t{capacity} * factor;
        if (wanted > max_count || min_capacity > max_count) return false;
        if (wanted < 2) wanted = 2;
        if (wanted < min_capacity) wanted = min_capacity;
        if (wanted > (SIZE_MAX - slack) / sizeof(T)) return false;

        const std::uint64_t bytes = wanted * sizeof(T) + slack;
        auto* const raw = static_cast<unsigned char*>(__vector_num_alloc(static_cast<std::size_t>(bytes)));
        if (!raw) return false;
        const auto address = reinterpret_cast<std::uintptr_t>(raw);
        const auto new_shift = static_cast<std::uint16_t>((A - address % A) % A);
        T* const new_data = reinterpret_cast<T*>(raw + new_shift);
        std::uint64_t new_capacity = (bytes - new_shift) / sizeof(T);
        if (new_capacity > max_count) new_capacity = max_count;
        // A view whose fields were set beyond the block has no elements there to keep.
        if (keep > capacity) keep = capacity;

        if constexpr (std::is_trivially_copyable_v<T>)
        {
            // The allocator hands out zeroed memory, so the elements behind `keep` need no pass of their own.
            if (data && keep) std::memcpy(static_cast<void*>(new_data), data, std::size_t{keep} * sizeof(T));
        }
        else
        {
            unsigned k = 0;
            if (data)
            {
                for (; k < keep; ++k) new (new_data + k) T(data[k]);
            }
            for (; k < new_capacity; ++k) new (new_data + k) T();
        }

        release();
        data = new_data;
        capacity = static_cast<unsigned>(new_capacity);
        shift = new_shift;
        return true;
    }

    void release() noexcept
    {
        if (data && shift < not_owned)
        {
            if constexpr (!std::is_trivially_destructible_v<T>) std::destroy_n(data, capacity);
            __vector_num_free(reinterpret_cast<unsigned char*>(data) - shift);
        }
        data = nullptr;
        capacity = 0;
        shift = 0;
    }
};

} // namespace tq4
