#include "gridweave/connectivity/node_graph.h"

#include <algorithm>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/core/prefetch.h"
#include "gridweave/core/rows.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// Calls `worker(element, node)` for every entry that is not none, in storage order. Only `padded` ones hold any.
template <bool padded, class Worker>
void for_each_entry(const dense2D<unsigned>& connectivity, Worker&& worker)
{
    with_rows(connectivity.rows, [&](auto rows) {
        const unsigned* column = connectivity.data();
        for (unsigned element = 0; element < connectivity.cols; ++element, column += connectivity.ld)
            for (unsigned r = 0; r < rows; ++r)
                if (!padded || column[r] != none_index) worker(element, column[r]);
    });
}

/// The node-to-element form leaves none entries out, so its length tells whether there are any.
bool has_none(const dense2D<unsigned>& connectivity, const dense1D<unsigned>& element_list)
{
    return element_list.size != std::uint64_t{connectivity.rows} * connectivity.cols;
}

/// The smallest entry; 0 where there are only none.
unsigned smallest_entry(const dense2D<unsigned>& connectivity)
{
    unsigned smallest = none_index;
    for_each_entry<false>(connectivity, [&](unsigned, unsigned node) { smallest = std::min(smallest, node); });
    return smallest == none_index ? 0 : smallest;
}

/// The largest entry of some columns.
unsigned sample_largest(const dense2D<unsigned>& connectivity)
{
    constexpr unsigned samples = 128;
    unsigned above = 1; // none + 1 is 0
    for (unsigned i = 0; i < samples; ++i)
    {
        const auto element = static_cast<unsigned>(std::uint64_t{connectivity.cols} * (i + 1) / samples);
        if (element == 0) continue;
        const unsigned* const column = connectivity.column(element - 1);
        for (unsigned r = 0; r < connectivity.rows; ++r) above = std::max(above, column[r] + 1);
    }
    return above - 1;
}

/// Makes room for the start of a node and the two places behind it, and for some more nodes, with counts of 0. False when memory runs out,
/// and for nodes whose starts can't be counted in 32 bits.
bool make_room(dense1D<unsigned>& starts, unsigned node)
{
    constexpr unsigned last = none_index - 3;
    if (node > last) return false;
    return starts.resize(node + 3 + std::min(node / 16, last - node), 0u);
}

/// Counts the entries of each node two places up, behind the starts that are there, in one pass: the starts grow with the nodes that it
/// meets. They end two places behind the largest. False when memory runs out.
bool count_entries(const dense2D<unsigned>& connectivity, dense1D<unsigned>& starts)
{
    if (!make_room(starts, std::max(starts.size, sample_largest(connectivity)))) return false;
    // None is counted in place 1, where no node is, which is less work than a look at each entry. What the place held stays.
    static_assert(none_index + 1 == 0);
    const unsigned kept = starts[1];
    const auto count = [&](const unsigned* run, std::size_t length) {
        const unsigned* const end = run + length;
        for (;;)
        {
            unsigned* const above = starts.data() + 1;
            const unsigned room = starts.size - 1;
            while (run != end && *run + 1 < room) ++above[*run++ + 1];
            if (run == end) return true;
            if (!make_room(starts, *run)) return false;
        }
    };
    if (!for_each_run(connectivity.data(), connectivity.rows, connectivity.cols, connectivity.ld, count)) return false;

    starts[1] = kept;
    while (starts.size > 3 && starts[starts.size - 1] == 0) --starts.size;
    return true;
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
            prefetch(columns + step * elements[std::min(k + fetched_ahead, last)]);
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
    detach_empty(first, connectivity);
    detach_empty(list, connectivity, first);
    if (connectivity.empty()) return first.resize(1, 0) ? 0 : give_up(first, list);

    const unsigned lowest = clear_all ? 0 : smallest_entry(connectivity);
    if (!first.resize(lowest) || !count_entries(connectivity, first)) return give_up(first, list);

    // The fill moves each start on to the place where it belongs.
    unsigned* const starts = first.data();
    unsigned sum = 0;
    for (unsigned place = lowest + 2; place < first.size; ++place) starts[place] = sum += starts[place];

    if (!list.resize(sum)) return give_up(first, list);
    unsigned* const elements = list.data();
    const auto fill = [&](unsigned element, unsigned node) { elements[starts[node + 1]++] = element; };
    has_none(connectivity, list) ? for_each_entry<true>(connectivity, fill) : for_each_entry<false>(connectivity, fill);
    --first.size;
    return 0;
}

int build_node_graph(const dense2D<unsigned>& connectivity, const dense1D<unsigned>& element_first, const dense1D<unsigned>& element_list,
                     dense1D<unsigned>& first, dense1D<unsigned>& list)
{
    first.size = 0;
    list.size = 0;
    detach_empty(first, connectivity);
    detach_empty(list, connectivity, first);
    if (connectivity.empty()) return first.resize(1, 0) ? 0 : give_up(first, list);

    const unsigned nodes = element_first.size - 1;
    dense1D<unsigned> marker;
    if (!first.resize(nodes + 1) || !marker.resize(nodes)) return give_up(first, list);
    first[0] = 0;

    const bool padded = has_none(connectivity, element_list);
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
    for_each_entry<true>(connectivity, [&](unsigned element, unsigned node) {
        if (node < known) holder[node] = element;
    });
    return 0;
}

} // namespace tq4::gridweave
