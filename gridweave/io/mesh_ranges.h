#pragma once

// The two forms in which a mixed mesh goes to and from files: a range of matrices, and one matrix cut into runs of one kind.

#include <algorithm>
#include <bit>
#include <cstdint>

#include <tq4/gridweave/core.h>

namespace tq4::gridweave
{

/// The matrices of a range as pieces of one plain kind each.
struct plain_pieces
{
    dense1D<dense2D<unsigned>> matrices;
    dense1D<int> kinds;           ///< `element_type` of each piece
    dense1D<unsigned> references; ///< place in the range of the matrix that the piece came from

    unsigned size() const { return matrices.size; }
    element_type kind(unsigned piece) const { return static_cast<element_type>(kinds[piece]); }
};

/// Cuts the matrices [first, last) into pieces of one plain kind; `kinds` has one kind per matrix. A mixed matrix gives one piece per
/// node count, largest first, on a sorted copy; columns of a node count that is no element of its dimension are left out without a
/// report. Any other matrix is a piece as it stands, sharing storage. Matrices with no entries are left out, but counted as places.
/// False when memory ran out.
bool split_by_kind(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds, plain_pieces& pieces);

/// Calls `output(first, last, kinds)` with the given matrices as a range: the short forms of the writers.
template <std::size_t N, class Output>
int as_range(const dense2D<unsigned> (&matrices)[N], const element_type (&kinds)[N], Output&& output)
{
    int values[N];
    std::copy(kinds, kinds + N, values);
    const auto kind_list = dense1D<int>::wrap(values, N);
    return kind_list.size == N ? output(matrices, matrices + N, kind_list) : out_of_memory;
}

/// What a reader finds: all elements in one matrix, its runs, and one number per element.
struct element_runs
{
    dense2D<unsigned> connect;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> numbers; ///< property or colour
};

/// Kind of one column of a run: that of the run, or what the padding of the column says in a mixed run. Rows that the matrix does not
/// have count as none.
element_type kind_of_column(element_type run_kind, const unsigned* column, unsigned rows);

/// The columns of one run of a run table, as the half-open [begin, end) cut to the matrix; a run whose starts descend is empty.
struct column_run
{
    unsigned begin;
    unsigned end;
};
inline column_run run_of(const dense1D<unsigned>& run_starts, unsigned run, unsigned cols)
{
    const unsigned begin = std::min(run_starts[run], cols);
    return {begin, std::max(begin, std::min(run_starts[run + 1], cols))};
}

/// True when the columns of a run, cut to the rows of its kind, are elements of the kind; node indices have no upper limit. A run that
/// needs more rows than the matrix has is none.
bool is_valid_run(const dense2D<unsigned>& connectivity, const column_run& run, element_type kind);

/// Copies two matrices side by side into one of `rows` rows, filled with none below a lower matrix. A taller matrix does not fit: its
/// columns stay none, which the test of a run refuses. False when memory ran out.
bool join_matrices(const dense2D<unsigned>& first, const dense2D<unsigned>& second, unsigned rows, dense2D<unsigned>& joined);

/// The columns that a growing matrix reserves when column `index` does not fit: the next power of two above it.
inline unsigned columns_to_reserve(unsigned index)
{
    return static_cast<unsigned>(std::min<std::uint64_t>(std::bit_ceil(std::uint64_t{index} + 1), none_index));
}

} // namespace tq4::gridweave
