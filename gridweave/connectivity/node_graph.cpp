#include "gridweave/connectivity/node_graph.h"

#include <algorithm>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/rows.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// Calls `worker(element, node)` for every entry that is not none, in storage order.
template <class Worker>
void for_each_entry(const dense2D<unsigned>& connectivity, Worker&& worker)
{
    with_rows(connectivity.rows, [&](auto rows) {
        const unsigned* column = connectivity.data();
        for (unsigned element = 0; element < connectivity.cols; ++element, column += connectivity.ld)
            for (unsigned r = 0; r < rows; ++r)
                if (column[r] != none_index) worker(element, column[r]);
    });
}

int give_up(dense1D<unsigned>& first, dense1D<unsigned>& list)
{
    first.clear_hard();
    list.clear_hard();
    return out_of_memory;
}

/// One walk over the graph: for each node in ascending order, `visit(neighbor, is_new)` for all nodes of its elements, where `is_new`
/// tells a first encounter, and then `close(node)`. The marker holds the node that an entry was last met from, so nothing is cleared
/// between nodes. Whether an entry is new is a coin toss that no branch predictor gets right; hence a number to add and not a branch.
template <bool padded, class Rows, class Visit, class Close>
void walk_graph(const dense2D<unsigned>& connectivity, Rows rows, const dense1D<unsigned>& element_first,
                const dense1D<unsigned>& element_list, dense1D<unsigned>& marker, Visit&& visit, Close&& close)
{
    constexpr unsigned fetched_ahead = 16;
    marker = none_index;
    unsigned* const met_from = marker.data();
    const unsigned nodes = marker.size;
    const unsigned* const starts = element_first.data();
    const unsigned* const elements = element_list.data();
    const unsigned last = element_list.size - 1;
    const unsigned* const columns = connectivity.data();
    const std::size_t step = connectivity.ld;
    for (unsigned node = 0; node < nodes; ++node)
    {
        met_from[node] = node;
        const unsigned end = starts[node + 1];
        for (unsigned k = starts[node]; k < end; ++k)
        {
            __builtin_prefetch(columns + step * elements[std::min(k + fetched_ahead, last)]);
            const unsigned* const column = columns + step * elements[k];
            for (unsigned r = 0; r < rows; ++r)
            {
                const unsigned neighbor = column[r];
                if (padded && neighbor == none_index) continue;
                visit(neighbor, met_from[neighbor] != node);
                met_from[neighbor] = node;
            }
        }
        close(node);
    }
}

} // namespace

int build_node_elements(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list, bool clear_all)
{
    first.size = 0;
    list.size = 0;
    if (!detach(first, connectivity) || !detach(list, connectivity, first)) return give_up(first, list);
    if (connectivity.empty()) return first.resize(1, 0) ? 0 : give_up(first, list);

    unsigned largest = 0;
    unsigned smallest = none_index;
    for_each_entry(connectivity, [&](unsigned, unsigned node) {
        largest = std::max(largest, node);
        smallest = std::min(smallest, node);
    });
    // Starts of nodes this close to the index limit can't be counted in 32 bits.
    if (largest > none_index - 3 || !first.resize(largest + 3)) return give_up(first, list);
    const unsigned lowest = std::min(smallest, largest);
    std::fill(first.begin() + (clear_all ? 0 : lowest), first.end(), 0u);

    // Counts stand two places up and are summed there; the fill then moves each start on to the place where it belongs.
    unsigned* const starts = first.data();
    for_each_entry(connectivity, [&](unsigned, unsigned node) { ++starts[node + 2]; });
    for (unsigned place = lowest + 3; place < first.size; ++place) starts[place] += starts[place - 1];

    if (!list.resize(starts[largest + 2])) return give_up(first, list);
    unsigned* const elements = list.data();
    for_each_entry(connectivity, [&](unsigned element, unsigned node) { elements[starts[node + 1]++] = element; });
    --first.size;
    return 0;
}

int build_node_graph(const dense2D<unsigned>& connectivity, const dense1D<unsigned>& element_first, const dense1D<unsigned>& element_list,
                     dense1D<unsigned>& first, dense1D<unsigned>& list)
{
    first.size = 0;
    list.size = 0;
    if (!detach(first, connectivity) || !detach(list, connectivity, first)) return give_up(first, list);
    if (connectivity.empty()) return first.resize(1, 0) ? 0 : give_up(first, list);

    const unsigned nodes = element_first.size - 1;
    dense1D<unsigned> marker;
    if (!first.resize(nodes + 1) || !marker.resize(nodes)) return give_up(first, list);
    first[0] = 0;

    // The node-to-element form leaves none entries out, so its length tells whether there are any.
    const bool padded = element_list.size != std::uint64_t{connectivity.rows} * connectivity.cols;
    const auto walk = [&](auto&& visit, auto&& close) {
        with_rows(connectivity.rows, [&](auto rows) {
            padded ? walk_graph<true>(connectivity, rows, element_first, element_list, marker, visit, close)
                   : walk_graph<false>(connectivity, rows, element_first, element_list, marker, visit, close);
        });
    };

    std::uint64_t total = 0;
    walk([&](unsigned, bool is_new) { total += is_new; }, [&](unsigned node) { first[node + 1] = static_cast<unsigned>(total); });

    // Every neighbour is written and the place moves on only for a new one, so one entry behind the last is written to.
    if (total >= none_index || !list.resize(static_cast<unsigned>(total) + 1)) return give_up(first, list);
    unsigned* next = list.data();
    walk(
        [&](unsigned neighbor, bool is_new) {
            *next = neighbor;
            next += is_new;
        },
        [](unsigned) {}); // GCOVR_EXCL_LINE: gcov counts no calls of an empty body
    --list.size;
    return 0;
}

int get_connected_elements(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list)
{
    return build_node_elements(connectivity, first, list, true);
}

int get_node_graph(const dense2D<unsigned>& connectivity, dense1D<unsigned>& first, dense1D<unsigned>& list)
{
    dense1D<unsigned> element_first, element_list;
    if (const int code = build_node_elements(connectivity, element_first, element_list, true))
    {
        give_up(first, list);
        return code;
    }
    return build_node_graph(connectivity, element_first, element_list, first, list);
}

int get_ancestors(const dense2D<unsigned>& connectivity, dense1D<unsigned>& ancestors)
{
    if (connectivity.empty()) return 0;
    if (ancestors.empty() && !ancestors.resize(max_ID(connectivity) + 1, none_index))
    {
        ancestors.clear_hard();
        return out_of_memory;
    }

    const unsigned known = ancestors.size;
    unsigned* const holder = ancestors.data();
    for_each_entry(connectivity, [&](unsigned element, unsigned node) {
        if (node < known) holder[node] = element;
    });
    return 0;
}

} // namespace tq4::gridweave
