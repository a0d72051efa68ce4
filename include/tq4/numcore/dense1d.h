#pragma once

#include <algorithm>
#include <cstdint>
#include <utility>

#include <tq4/numcore/vector_num.h>

namespace tq4
{

/// A vector view: `size` elements of a shared storage block, from element `offset` on. Copying or assigning a view shares the block, so a
/// write through one copy is seen by the other; only `copy` duplicates elements. No access is checked. Nothing throws: an operation that
/// may run out of memory answers false and leaves a valid vector. Setting the `size` field to 0 is the ordinary way of clearing; it keeps
/// the storage for reuse.
///
/// The block is null only in a view that was moved from, or where memory ran out for the block itself; every operation accepts that
/// state and takes a block when it needs one.
template <class T, unsigned A = 8>
class dense1D
{
public:
    using block_type = vector_num<T, A>;

    Ptr<block_type> block; ///< the storage
    unsigned size = 0;     ///< number of elements
    unsigned offset = 0;   ///< index of element 0 in the block

    /// An empty vector with a block of its own.
    dense1D() noexcept : block(block_type::create()) {}

    /// `n` elements, all zero in the fresh block. Where memory runs out the size comes out as 0.
    explicit dense1D(unsigned n) noexcept : dense1D() { resize(n); }

    /// `n` elements of the given value. Where memory runs out the size comes out as 0.
    dense1D(unsigned n, T value) noexcept : dense1D() { resize(n, value); }

    dense1D(const dense1D&) noexcept = default;
    dense1D(dense1D&& other) noexcept : block(std::move(other.block)), size(other.size), offset(other.offset) { other.forget(); }
    ~dense1D() = default;

    dense1D& operator=(const dense1D&) noexcept = default;

    dense1D& operator=(dense1D&& other) noexcept
    {
        if (this != &other)
        {
            block = std::move(other.block);
            size = other.size;
            offset = other.offset;
            other.forget();
        }
        return *this;
    }

    /// Writes `value` into all elements and returns it. It never resizes.
    T operator=(T value) noexcept // NOLINT(misc-unconventional-assign-operator): filling by assignment is the interface
    {
        std::fill(begin(), end(), value);
        return value;
    }

    /// A view over the caller's array of `n` elements: nothing is copied and nothing is freed. Growing the view beyond `n` moves it into
    /// storage of its own.
    static dense1D wrap(T* array, unsigned n) noexcept
    {
        dense1D view;
        if (view.block && array)
        {
            view.block->data = array;
            view.block->capacity = n;
            view.block->shift = block_type::not_owned;
            view.size = n;
        }
        return view;
    }

    T& operator[](unsigned i) noexcept { return block->data[std::size_t{offset} + i]; }
    const T& operator[](unsigned i) const noexcept { return block->data[std::size_t{offset} + i]; }

    T* data() noexcept { return base(); }
    const T* data() const noexcept { return base(); }
    T* begin() noexcept { return base(); }
    const T* begin() const noexcept { return base(); }
    T* end() noexcept { return base() + size; }
    const T* end() const noexcept { return base() + size; }
    bool empty() const noexcept { return size == 0; }

    bool operator==(const dense1D& other) const noexcept { return size == other.size && std::equal(begin(), end(), other.begin()); }
    bool operator!=(const dense1D& other) const noexcept { return !(*this == other); }

    /// Makes this vector a separate duplicate of `other`: equal elements, no storage shared. False, with nothing changed, if memory ran
    /// out.
    bool copy(const dense1D& other) noexcept
    {
        dense1D duplicate;
        if (!duplicate.resize(other.size)) return false;
        std::copy(other.begin(), other.end(), duplicate.begin());
        *this = std::move(duplicate);
        return true;
    }

    /// Changes the size; new elements are not set (zero where the storage is fresh). When memory runs out the vector holds as many
    /// elements as fit and the result is false.
    bool resize(unsigned n) noexcept
    {
        if (n > room()) grow(std::uint64_t{offset} + n, 1);
        size = std::min(n, room());
        return size == n;
    }

    /// Changes the size; elements from the old size on take `value`, those below it stay.
    bool resize(unsigned n, T value) noexcept
    {
        const unsigned old_size = size;
        if (!resize(n)) return false;
        if (n > old_size) std::fill(begin() + old_size, end(), value);
        return true;
    }

    /// Makes room for `n` elements; size and elements stay.
    bool reserve(unsigned n, unsigned factor) noexcept { return n <= room() || grow(std::uint64_t{offset} + n, factor); }

    /// Appends one element. A failure to get memory drops the element silently.
    void push_back(T value) noexcept
    {
        if (room() <= size && !grow(std::uint64_t{offset} + size + 1, 2)) return;
        begin()[size] = value;
        ++size;
    }

    /// Appends two elements, or none where memory runs out.
    void push_back(T value, T second) noexcept
    {
        if (room() <= std::uint64_t{size} + 1 && !grow(std::uint64_t{offset} + size + 2, 2)) return;
        begin()[size] = value;
        begin()[size + 1] = second;
        size += 2;
    }

    /// Appends `n` copies of `value`. False, with nothing appended, when memory runs out.
    bool push_back_n(T value, unsigned n) noexcept
    {
        const std::uint64_t wanted = std::uint64_t{size} + n;
        if (wanted > room() && !grow(offset + wanted, 1)) return false;
        std::fill_n(end(), n, value);
        size += n;
        return true;
    }

    /// Empties the vector and gives its storage up.
    void clear_hard() noexcept
    {
        block = block_type::create();
        forget();
    }

    /// A view of the elements from `start` to `start + n - 1`; writes through it are seen here.
    dense1D sub_vector(unsigned start, unsigned n) noexcept { return part(start, n); }
    const dense1D sub_vector(unsigned start, unsigned n) const noexcept { return part(start, n); } // NOLINT(readability-const-return-type)

private:
    template <class>
    friend class dense2D;

    explicit dense1D(const Ptr<block_type>& shared) noexcept : block(shared) {}

    T* base() const noexcept { return block && block->data ? block->data + offset : nullptr; }
    unsigned room() const noexcept { return block && block->capacity > offset ? block->capacity - offset : 0; }

    bool grow(std::uint64_t min_capacity, unsigned factor) noexcept
    {
        if (!block) block = block_type::create();
        return block && block->__grow(min_capacity, offset + size, factor);
    }

    dense1D part(unsigned start, unsigned n) const noexcept
    {
        dense1D view(*this);
        view.offset += start;
        view.size = n;
        return view;
    }

    void forget() noexcept
    {
        size = 0;
        offset = 0;
    }
};

} // namespace tq4
