#pragma once

// Arguments for mesh functions out of the bytes of an input: meshes that are nearly right, so that calls come far, and wrong in all ways.

#include <cstddef>
#include <cstdint>

#include <fuzzer/FuzzedDataProvider.h>
#include <tq4/gridweave.h>

#include "fuzz/limited_memory.h"
#include "support/meshes.h"

namespace tq4::fuzz
{

class mesh_source
{
public:
    mesh_source(const std::uint8_t* bytes, std::size_t count) : data_(bytes, count) {}

    bool is_exhausted() { return data_.remaining_bytes() == 0; }
    unsigned below(unsigned limit) { return data_.ConsumeIntegralInRange<unsigned>(0, limit - 1); }
    bool flip() { return data_.ConsumeBool(); }

    /// Small numbers of few digits, so that many are equal, and the limits of what a double holds.
    double number();
    vector_fixed<double, 2> plane_point() { return {number(), number()}; }
    vector_fixed<double, 3> space_point() { return {number(), number(), number()}; }

    /// One of the kinds, seldom a value that is none.
    gridweave::element_type kind();

    /// Mostly `count` kinds.
    dense1D<int> kinds(unsigned count);

    /// Mostly an index below `limit`, at times none or any other.
    unsigned index(unsigned limit);
    dense1D<unsigned> indices(unsigned limit);
    dense1D<double> numbers(unsigned count);

    dense2D<double> matrix(unsigned rows, unsigned cols);

    /// A connectivity with the rows of its kind, mostly.
    dense2D<unsigned> connectivity(gridweave::element_type kind, unsigned nodes);

    /// A small grid that was damaged, or a mesh without any order.
    test::mesh mesh();

    void damage(dense2D<unsigned>& matrix, unsigned limit);
    void damage(dense2D<double>& matrix);

    /// The same matrix as it is or with storage between its columns.
    template <class T>
    dense2D<T> placed(const dense2D<T>& matrix)
    {
        const ample_memory enough;
        return below(4) == 0 ? test::non_dense(matrix, T{}) : matrix;
    }

    /// The allocation that is to fail, 0 for none.
    unsigned failing_request() { return flip() ? 0 : below(64); }

private:
    FuzzedDataProvider data_;
};

/// Small meshes ask for little.
constexpr std::size_t mesh_memory = std::size_t{1} << 17;

/// One input of a target that calls mesh functions. Each such target defines its own.
void run(mesh_source& source);

} // namespace tq4::fuzz
