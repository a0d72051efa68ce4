#pragma once

// What the tests of the writers share: small meshes, and the run of a writer without memory.

#include <gtest/gtest.h>

#include <tq4/gridweave/core.h>

#include "io/files.h"
#include "support/failing_allocator.h"

namespace tq4::test
{

/// Nodes 0, 1, 2, … on the x axis.
inline dense2D<double> nodes_in_line(unsigned count, unsigned rows = 3)
{
    dense2D<double> pos(rows, count, 0.0);
    for (unsigned node = 0; node < count; ++node) pos(0, node) = node;
    return pos;
}

/// One element of the nodes 0, 1, 2, …
inline dense2D<unsigned> column_of(unsigned rows)
{
    dense2D<unsigned> connect(rows, 1);
    for (unsigned row = 0; row < rows; ++row) connect(row, 0) = row;
    return connect;
}

/// Runs `write(file name)` with the n-th allocation failing for n = 1, 2, 3, … until it succeeds. Every failure gives -199 and leaks
/// nothing, and in the end the file is the one that is written with all memory at hand.
template <class Writer>
void expect_clean_failures(Writer&& write)
{
    const temporary_file file;
    ASSERT_EQ(write(file.name()), 0);
    const std::string expected = file.content();
    const long before = live_allocations();
    int result = gridweave::out_of_memory;
    unsigned failures = 0;
    for (unsigned n = 1; result == gridweave::out_of_memory; ++n)
    {
        ASSERT_LT(n, 1000u);
        const failing_allocation failing(n);
        result = write(file.name());
        failures += result == gridweave::out_of_memory;
        ASSERT_EQ(live_allocations(), before);
    }
    EXPECT_EQ(result, 0);
    EXPECT_GT(failures, 0u);
    EXPECT_EQ(file.content(), expected);
}

} // namespace tq4::test
