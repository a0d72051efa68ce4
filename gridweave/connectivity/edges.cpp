#include "gridweave/connectivity/edges.h"

#include <algorithm>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/connectivity/numbering.h"
#include "gridweave/core/kinds.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// A range of matrices with one kind each, and edges that are there already: one source of edges, which may repeat.
struct edge_source
{
    const dense2D<unsigned>* first;
    const dense2D<unsigned>* last;
    const int* kinds;
    const edge_list& present;

    /// Calls `worker(connectivity, topology)` for every matrix.
    template <class Worker>
    void for_each_matrix(Worker&& worker) const
    {
        const int* kind = kinds;
        for (const dense2D<unsigned>* matrix = first; matrix != last; ++matrix, ++kind)
            worker(*matrix, matrix->empty() ? topology::none : edge_topology(narrow(static_cast<element_type>(*kind), matrix->rows)));
    }

    /// Calls `worker(low, high)` for every edge.
    template <class Worker>
    void for_each_edge(Worker&& worker) const
    {
        for (const auto& [low, high] : present) worker(low, high);
        for_each_matrix([&](const dense2D<unsigned>& connectivity, topology shape_of_all) {
            for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned, const unsigned* nodes) {
                for (const local_edge& local : decltype(shape)::edges)
                {
                    const unsigned a = nodes[local.a];
                    const unsigned b = nodes[local.b];
                    worker(std::min(a, b), std::max(a, b));
                }
            });
        });
    }
};

/// Sorts the edges as pairs: n log n, whatever the nodes are.
template <class Sink>
int collect_by_sorting(const edge_source& source, unsigned most, Sink&& sink)
{
    edge_list all;
    if (!all.reserve(most, 1)) return out_of_memory;
    source.for_each_edge([&](unsigned low, unsigned high) { all.data()[all.size++] = {low, high}; });
    std::sort(all.begin(), all.end());
    all.size = static_cast<unsigned>(std::unique(all.begin(), all.end()) - all.begin());
    if (!sink.begin(all.size)) return out_of_memory;
    for (const auto& [low, high] : all) sink.add(low, high);
    return 0;
}

/// Sorts the edges by a counting sort on their low nodes, so that what remains is to sort the few distinct high nodes at each: linear but
/// for nodes with very many.
template <class Sink>
int collect_in_buckets(const edge_source& source, unsigned largest_node, Sink&& sink)
{
    const unsigned nodes = largest_node + 1;
    dense1D<unsigned> starts, highs, met_from;
    if (!starts.resize(nodes + 2, 0) || !met_from.resize(nodes, none_index)) return out_of_memory;
    unsigned* const start = starts.data();
    source.for_each_edge([&](unsigned low, unsigned) { ++start[low + 2]; });
    for (unsigned k = 2; k <= nodes; ++k) start[k + 1] += start[k];
    if (!highs.resize(start[nodes + 1])) return out_of_memory;
    unsigned* const high_of = highs.data();
    source.for_each_edge([&](unsigned low, unsigned high) { high_of[start[low + 1]++] = high; });

    // Repeats go first. The kept ones move up within the same vector; whether one is kept is hard to predict, hence no branch.
    unsigned kept = 0;
    unsigned next = 0;
    for (unsigned low = 0; low < nodes; ++low)
    {
        const unsigned end = start[low + 1];
        start[low] = kept;
        for (; next < end; ++next)
        {
            const unsigned high = high_of[next];
            high_of[kept] = high;
            kept += met_from[high] != low;
            met_from[high] = low;
        }
        std::sort(high_of + start[low], high_of + kept);
    }
    start[nodes] = kept;

    if (!sink.begin(kept)) return out_of_memory;
    for (unsigned low = 0; low < nodes; ++low)
        for (unsigned k = start[low]; k < start[low + 1]; ++k) sink.add(low, high_of[k]);
    return 0;
}

/// Edges of the largest shape that columns of a topology have.
unsigned most_edges(topology shape_of_all)
{
    constexpr unsigned full_column[8]{};
    return with_shape_of(shape_of_all, full_column, [](auto shape) { return edge_count<decltype(shape)>; });
}

/// Hands the distinct edges of a source to `sink`, in ascending order: first their number to `sink.begin`, which answers false when it has
/// no room, then each to `sink.add`.
template <class Sink>
int collect_edges(const edge_source& source, Sink&& sink)
{
    std::uint64_t most = source.present.size;
    unsigned largest_node = 0;
    for (const auto& [low, high] : source.present) largest_node = std::max(largest_node, high);
    source.for_each_matrix([&](const dense2D<unsigned>& connectivity, topology shape_of_all) {
        if (shape_of_all == topology::none) return;
        most += std::uint64_t{connectivity.cols} * most_edges(shape_of_all);
        largest_node = std::max(largest_node, max_ID(connectivity));
    });
    if (most > none_index) return out_of_memory;
    if (suits_node_table(largest_node, most)) return collect_in_buckets(source, largest_node, sink);
    return collect_by_sorting(source, static_cast<unsigned>(most), sink);
}

/// Replaces the contents of an edge list.
struct list_sink
{
    edge_list& edges;

    bool begin(unsigned count)
    {
        if (!edges.reserve(count, 1)) return false;
        edges.size = 0;
        return true;
    }
    void add(unsigned low, unsigned high) { edges.data()[edges.size++] = {low, high}; }
};

/// Appends columns to a matrix.
struct column_sink
{
    dense2D<unsigned>& edges;
    bool had_room = true;
    unsigned* next = nullptr;

    bool begin(unsigned count)
    {
        if (count == 0) return true;
        const std::uint64_t columns = std::uint64_t{edges.cols} + count;
        const unsigned end = edges.cols;
        had_room = (end == 0 || edges.rows == 2) && columns <= none_index && edges.resize(2, static_cast<unsigned>(columns));
        if (had_room) next = edges.column(end);
        return had_room;
    }
    void add(unsigned low, unsigned high)
    {
        next[0] = low;
        next[1] = high;
        next += edges.ld;
    }
};

int append_edges(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const int* kinds, dense2D<unsigned>& edges)
{
    // Only a lack of room in the result is reported. Edges that could not be gathered are missing; this is deliberate.
    const edge_list none;
    column_sink sink{edges};
    collect_edges({first, last, kinds, none}, sink);
    return sink.had_room ? 0 : out_of_memory;
}

} // namespace

int gather_edges(const dense2D<unsigned>& connectivity, element_type kind, edge_list& edges)
{
    const int kind_value = kind;
    return collect_edges({&connectivity, &connectivity + 1, &kind_value, edges}, list_sink{edges});
}

void gather_edges_range(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const int* kinds, edge_list& edges)
{
    collect_edges({first, last, kinds, edges}, list_sink{edges});
}

int copy_edges(const dense2D<unsigned>& connectivity, element_type kind, dense2D<unsigned>& edges)
{
    if (connectivity.empty()) return 0;
    if (!check_IDs(connectivity, kind, none_index)) return -1;
    if (!edges.empty() && edges.rows != 2) return -3;
    if (!detach(edges, connectivity)) return out_of_memory;
    const int kind_value = kind;
    return append_edges(&connectivity, &connectivity + 1, &kind_value, edges);
}

int copy_edges(const dense2D<unsigned>* first, const dense2D<unsigned>* last, const dense1D<int>& kinds, dense2D<unsigned>& edges)
{
    if (first == last) return 0;
    if (first > last) return -2;
    if (last - first != static_cast<std::ptrdiff_t>(kinds.size)) return -3;
    if (!edges.empty() && edges.rows != 2) return -4;
    for (unsigned k = 0; k < kinds.size; ++k)
        if (!check_IDs(first[k], static_cast<element_type>(kinds[k]), none_index)) return -1;
    for (const auto* m = first; m != last; ++m)
        if (!detach(edges, *m)) return out_of_memory;
    return append_edges(first, last, kinds.data(), edges);
}

} // namespace tq4::gridweave
