#pragma once

namespace tq4
{

/// N values in a row.
template <class T, unsigned N>
struct vector_fixed
{
    T values[N];

    T& operator[](unsigned k) noexcept { return values[k]; }
    const T& operator[](unsigned k) const noexcept { return values[k]; }
};

/// An R × C matrix, stored column by column.
template <class T, unsigned R, unsigned C>
struct matrix_fixed
{
    T values[R * C];

    T& operator[](unsigned k) noexcept { return values[k]; }
    const T& operator[](unsigned k) const noexcept { return values[k]; }
    T& operator()(unsigned r, unsigned c) noexcept { return values[c * R + r]; }
    const T& operator()(unsigned r, unsigned c) const noexcept { return values[c * R + r]; }
};

/// A symmetric N × N matrix as its packed upper triangle, column by column: element (i, j), i ≤ j, stands at j (j + 1) / 2 + i. That is
/// LAPACK's packed upper storage: m00, m01, m11 in two dimensions; m00, m01, m11, m02, m12, m22 in three.
template <class T, unsigned N>
struct symmetric_fixed
{
    static constexpr unsigned count = N * (N + 1) / 2;

    T values[count];

    static constexpr unsigned position(unsigned i, unsigned j) noexcept { return i <= j ? j * (j + 1) / 2 + i : i * (i + 1) / 2 + j; }

    T& operator[](unsigned k) noexcept { return values[k]; }
    const T& operator[](unsigned k) const noexcept { return values[k]; }
    T& operator()(unsigned i, unsigned j) noexcept { return values[position(i, j)]; }
    const T& operator()(unsigned i, unsigned j) const noexcept { return values[position(i, j)]; }
};

} // namespace tq4
