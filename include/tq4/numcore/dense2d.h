#pragma once

#include <algorithm>
#include <cstdint>

#include <tq4/numcore/dense1d.h>

namespace tq4
{

/// A column-major matrix view on a shared storage block: element (r, c) is `block->data[offset + c * ld + r]`. Copying or assigning a
/// view shares the block; only `copy` duplicates elements. A matrix whose `ld` equals `rows` is one run of rows × cols elements; a part
/// of a matrix (`sub_matrix`) keeps the `ld` of its parent. A matrix is empty when rows × cols is 0. No access is checked, nothing throws.
template <class T>
class dense2D
{
public:
    using block_type = vector_num<T, 8>;

    Ptr<block_type> block; ///< the storage (null only in a moved-from view, or where memory ran out for the block itself)
    unsigned size = 0;     ///< rows × cols; meaningful when `ld` equals `rows`
    unsigned offset = 0;   ///< index of element (0, 0) in the block
    unsigned rows = 0;
    unsigned cols = 0;
    unsigned ld = 0; ///< distance in elements between two columns

    /// 0 × 0 with a block of its own.
    dense2D() noexcept : block(block_type::create()) {}

    /// rows × cols, all zero in the fresh block. Where memory runs out the matrix comes out as 0 × 0.
    dense2D(unsigned nbr_rows, unsigned nbr_cols) noexcept : dense2D() { resize(nbr_rows, nbr_cols); }

    /// rows × cols elements of the given value. Where memory runs out the matrix comes out as 0 × 0.
    dense2D(unsigned nbr_rows, unsigned nbr_cols, T value) noexcept : dense2D() { resize(nbr_rows, nbr_cols, value); }

    dense2D(const dense2D&) noexcept = default;

    dense2D(dense2D&& other) noexcept
        : block(std::move(other.block)), size(other.size), offset(other.offset), rows(other.rows), cols(other.cols), ld(other.ld)
    {
        other.forget();
    }

    ~dense2D() = default;

    dense2D& operator=(const dense2D&) noexcept = default;

    dense2D& operator=(dense2D&& other) noexcept
    {
        if (this != &other)
        {
            block = std::move(other.block);
            take_shape(other);
            other.forget();
        }
        return *this;
    }

    /// Writes `value` into all elements and returns it. It never resizes.
    T operator=(T value) noexcept // NOLINT(misc-unconventional-assign-operator): filling by assignment is the interface
    {
        fill(0, 0, value);
        return value;
    }

    /// A view over the caller's array, column by column with `leading` elements from column to column: nothing is copied and nothing is
    /// freed. Growing the view beyond the array moves it into storage of its own.
    static dense2D wrap(T* array, unsigned nbr_rows, unsigned nbr_cols, unsigned leading) noexcept
    {
        dense2D view;
        const std::uint64_t extent = nbr_cols && nbr_rows ? std::uint64_t{nbr_cols - 1} * leading + nbr_rows : 0;
        if (view.block && array && extent <= 0xFFFFFFFFu)
        {
            view.block->data = array;
            view.block->capacity = static_cast<unsigned>(extent);
            view.block->shift = block_type::not_owned;
            view.rows = nbr_rows;
            view.cols = nbr_cols;
            view.ld = leading;
            view.size = static_cast<unsigned>(std::uint64_t{nbr_rows} * nbr_cols);
        }
        return view;
    }

    static dense2D wrap(T* array, unsigned nbr_rows, unsigned nbr_cols) noexcept { return wrap(array, nbr_rows, nbr_cols, nbr_rows); }

    T& operator()(unsigned r, unsigned c) noexcept { return block->data[place(r, c)]; }
    const T& operator()(unsigned r, unsigned c) const noexcept { return block->data[place(r, c)]; }

    T* data() noexcept { return base(); }
    const T* data() const noexcept { return base(); }
    T* column(unsigned c) noexcept { return base() + std::size_t{c} * ld; }
    const T* column(unsigned c) const noexcept { return base() + std::size_t{c} * ld; }
    bool empty() const noexcept { return rows == 0 || cols == 0; }

    /// Number of columns that the storage can hold at the present `ld`.
    unsigned column_capacity() const noexcept { return ld ? room() / ld : room(); }

    /// Makes this matrix a separate duplicate of `other`, with `ld` equal to `rows`. False, with nothing changed, if memory ran out.
    bool copy(const dense2D& other) noexcept
    {
        dense2D duplicate;
        if (!duplicate.resize(other.rows, other.cols)) return false;
        duplicate.copy_columns(other, other.rows, other.cols);
        *this = std::move(duplicate);
        return true;
    }

    /// Makes this matrix look at the same elements as `other`.
    void shallow_copy(const dense2D& other) noexcept { *this = other; }

    /// Changes the shape; every element that stays keeps its (row, column), new elements are not set (zero where the storage is fresh).
    /// More rows under existing columns move the matrix into storage of its own with `ld` equal to `rows`; otherwise `ld` stays. False,
    /// with nothing changed, if memory ran out or rows × cols is beyond 32 bits.
    bool resize(unsigned nbr_rows, unsigned nbr_cols) noexcept
    {
        const std::uint64_t elements = std::uint64_t{nbr_rows} * nbr_cols;
        if (elements > 0xFFFFFFFFu) return false;

        if (!empty() && nbr_cols && nbr_rows > rows)
        {
            dense2D taller;
            if (!taller.resize(nbr_rows, nbr_cols)) return false;
            taller.copy_columns(*this, rows, std::min(cols, nbr_cols));
            *this = std::move(taller);
            return true;
        }

        const unsigned new_ld = empty() || elements == 0 ? nbr_rows : ld;
        const std::uint64_t needed = elements ? std::uint64_t{nbr_cols - 1} * new_ld + nbr_rows : 0;
        if (needed > room() && !grow(offset + needed, 1)) return false;
        rows = nbr_rows;
        cols = nbr_cols;
        ld = new_ld;
        size = static_cast<unsigned>(elements);
        return true;
    }

    /// Changes the shape; new elements take `value`.
    bool resize(unsigned nbr_rows, unsigned nbr_cols, T value) noexcept
    {
        const unsigned old_rows = rows;
        const unsigned old_cols = old_rows ? cols : 0;
        if (!resize(nbr_rows, nbr_cols)) return false;
        fill(old_rows, old_cols, value);
        return true;
    }

    /// Makes room for nbr_rows × nbr_cols elements behind `offset`; shape and elements stay.
    bool reserve(unsigned nbr_rows, unsigned nbr_cols, unsigned factor) noexcept
    {
        const std::uint64_t needed = std::uint64_t{nbr_rows} * nbr_cols;
        return needed <= room() || (needed <= 0xFFFFFFFFu && grow(offset + needed, factor));
    }

    /// Sets the shape to 0 × 0 and keeps the storage for reuse.
    void clear() noexcept { size = rows = cols = ld = 0; }

    /// Sets the shape to 0 × 0 and gives the storage up.
    void clear_hard() noexcept
    {
        block = block_type::create();
        forget();
    }

    /// All elements as one vector that shares the block. Only for a matrix whose `ld` equals `rows`.
    const dense1D<T, 8> as_vector() const noexcept // NOLINT(readability-const-return-type)
    {
        dense1D<T, 8> view(block);
        view.size = static_cast<unsigned>(std::uint64_t{rows} * cols);
        view.offset = offset;
        return view;
    }

    /// A view of the rectangle of `nbr_rows` × `nbr_cols` elements from (row0, col0) on; writes through it are seen here.
    dense2D sub_matrix(unsigned row0, unsigned col0, unsigned nbr_rows, unsigned nbr_cols) noexcept
    {
        return part(row0, col0, nbr_rows, nbr_cols);
    }
    const dense2D sub_matrix(unsigned row0, unsigned col0, unsigned nbr_rows, unsigned nbr_cols) const noexcept // NOLINT
    {
        return part(row0, col0, nbr_rows, nbr_cols);
    }

private:
    std::size_t place(unsigned r, unsigned c) const noexcept { return std::size_t{offset} + std::size_t{c} * ld + r; }
    T* base() const noexcept { return block && block->data ? block->data + offset : nullptr; }
    unsigned room() const noexcept { return block && block->capacity > offset ? block->capacity - offset : 0; }

    /// Elements from (0, 0) to the last one, the gaps between columns included.
    std::uint64_t extent() const noexcept { return empty() ? 0 : std::uint64_t{cols - 1} * ld + rows; }

    bool grow(std::uint64_t min_capacity, unsigned factor) noexcept
    {
        if (!block) block = block_type::create();
        if (!block) return false;
        // Other views on the block, such as the matrix that this one is a part of, may look at elements behind the last one of this view.
        const std::uint64_t in_use = block->references() > 1 ? block->capacity : offset + extent();
        return block->__grow(min_capacity, static_cast<unsigned>(in_use), factor);
    }

    void copy_columns(const dense2D& other, unsigned nbr_rows, unsigned nbr_cols) noexcept
    {
        if (nbr_rows == 0) return;
        if (ld == nbr_rows && other.ld == nbr_rows)
        {
            std::copy_n(other.data(), std::size_t{nbr_rows} * nbr_cols, data());
            return;
        }
        for (unsigned c = 0; c < nbr_cols; ++c) std::copy_n(other.column(c), nbr_rows, column(c));
    }

    /// Sets all elements but those of the leading kept_rows × kept_cols.
    void fill(unsigned kept_rows, unsigned kept_cols, const T& value) noexcept
    {
        if (empty()) return;
        for (unsigned c = 0; c < std::min(kept_cols, cols) && kept_rows < rows; ++c)
            std::fill(column(c) + kept_rows, column(c) + rows, value);
        if (kept_cols >= cols) return;
        if (ld == rows)
            std::fill_n(column(kept_cols), std::size_t{cols - kept_cols} * rows, value);
        else
            for (unsigned c = kept_cols; c < cols; ++c) std::fill_n(column(c), rows, value);
    }

    dense2D part(unsigned row0, unsigned col0, unsigned nbr_rows, unsigned nbr_cols) const noexcept
    {
        dense2D view(*this);
        view.offset = static_cast<unsigned>(place(row0, col0));
        view.rows = nbr_rows;
        view.cols = nbr_cols;
        view.size = static_cast<unsigned>(std::uint64_t{nbr_rows} * nbr_cols);
        return view;
    }

    void take_shape(const dense2D& other) noexcept
    {
        size = other.size;
        offset = other.offset;
        rows = other.rows;
        cols = other.cols;
        ld = other.ld;
    }

    void forget() noexcept { size = offset = rows = cols = ld = 0; }
};

} // namespace tq4
