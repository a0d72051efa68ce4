#pragma once

// The table of runs of one kind that two of the readers fill, and their short forms.

#include <algorithm>
#include <cstdint>

#include <tq4/gridweave.h>

#include "fuzz/limited_memory.h"
#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"

namespace tq4::fuzz
{

struct run_table
{
    dense2D<unsigned> connect;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> labels; ///< property numbers or colours
};

/// A table that holds something before it is read into.
inline run_table used_run_table()
{
    return {dense2D<unsigned>(5, 2, 9u), dense1D<unsigned>(7, 3u), dense1D<int>(2, 6), dense1D<unsigned>(2, 1u)};
}

inline void promise_run_table(const run_table& table)
{
    const dense1D<unsigned>& starts = table.run_starts;
    promise(starts.size >= 2 && starts[0] == 0 && starts[starts.size - 1] == table.connect.cols, "the runs cover the elements");
    promise(std::is_sorted(starts.begin(), starts.end()), "the runs ascend");
    promise(table.connect.empty() ? table.kinds.empty() : table.kinds.size + 1 == starts.size, "every run has a kind");
    promise(table.labels.size == table.connect.cols, "every element has its label");
    for (unsigned k = 0; k < table.kinds.size; ++k)
    {
        const auto kind = static_cast<gridweave::element_type>(table.kinds[k]);
        promise(gridweave::nbr_nodes(kind) > 0 && gridweave::nbr_nodes(kind) <= table.connect.rows,
                "the matrix is as high as its elements");
    }
}

/// Whether every run is a connectivity of its kind.
inline bool has_writable_runs(const run_table& table)
{
    for (unsigned k = 0; k < table.kinds.size; ++k)
    {
        const auto kind = static_cast<gridweave::element_type>(table.kinds[k]);
        const unsigned first = table.run_starts[k];
        const auto run = table.connect.sub_matrix(0, first, gridweave::nbr_nodes(kind), table.run_starts[k + 1] - first);
        if (!gridweave::check_IDs(run, kind, gridweave::none_index)) return false;
    }
    return true;
}

/// What differs between the short forms of the two readers.
enum class run_height
{
    of_its_kind,
    any
};

/// Holds the forms for one kind and for two against the code of the general form, at some choices. `input` is the family of the reader;
/// the outputs of the general form hold what they hold.
template <class Input>
void promise_short_forms(const char* file, std::uint32_t choice, int code, dense2D<double>& pos, dense2D<unsigned>& connect,
                         run_height height, Input&& input)
{
    using namespace gridweave;
    if (choice % 4 == 2)
    {
        element_type kind = ELEM_HEXA27;
        promise(input(file, pos, connect, kind) == code || limited_memory::has_refused(), "one kind is read as the general form");
        promise(code == 0 || kind == ELEM_NONE, "no kind after a failure");
        walk_connectivity(connect, kind);
        walk_geometry(pos, connect, kind);
    }
    if (choice % 4 == 3)
    {
        dense2D<unsigned> connects[2];
        element_type kinds[2] = {ELEM_HEXA27, ELEM_HEXA27};
        promise(input(file, pos, connects[0], connects[1], kinds[0], kinds[1]) == code || limited_memory::has_refused(),
                "two runs are read as the general form");
        for (unsigned k = 0; k < 2; ++k)
        {
            if (connects[k].empty()) continue;
            promise(code == 0, "no elements after a failure");
            promise(height == run_height::any || connects[k].rows == nbr_nodes(kinds[k]), "a run has the rows of its kind");
            walk_connectivity(connects[k], kinds[k]);
            walk_geometry(pos, connects[k], kinds[k]);
        }
    }
}

} // namespace tq4::fuzz
