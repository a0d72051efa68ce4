#include <algorithm>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/connectivity/numbering.h"
#include "gridweave/connectivity/sides.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

// Sides are matched in buckets by their smallest node: a counting sort puts the sides of a bucket next to each other, in the order of
// their ids, so that matching reads memory in order and compares a side with a handful of others.

/// What tells a side apart within its bucket, the same for both directions, and the side's id: element times stride plus local number,
/// which is also its place in the neighbour matrix.
template <unsigned slots>
struct side_record
{
    std::array<unsigned, slots - 1> key;
    unsigned id;

    bool equals(const side_record& other) const
    {
        unsigned difference = 0;
        for (unsigned k = 0; k + 1 < slots; ++k) difference |= key[k] ^ other.key[k];
        return difference == 0;
    }

    bool precedes(const side_record& other) const
    {
        for (unsigned k = 0; k + 1 < slots; ++k)
            if (key[k] != other.key[k]) return key[k] < other.key[k];
        return id < other.id;
    }
};

template <unsigned slots>
side_record<slots> record_side(const turned_side& side, unsigned id)
{
    if constexpr (slots == 1) return {{}, id};
    if constexpr (slots == 2) return {{side.low()}, id};
    if constexpr (slots == 3) return {{side.low(), side.high()}, id};
    if constexpr (slots == 4) return {{side.opposite, side.low(), side.high()}, id};
}

/// Matches the sides of one bucket. A side meets all later ones that equal it; when they are two they become each other's neighbours. A
/// side that more elements share is left unlinked, or with `link_shared` the first points at the last and all others at the first.
template <unsigned slots, unsigned stride>
void match_bucket(side_record<slots>* begin, side_record<slots>* end, bool link_shared, unsigned* neighbors)
{
    // Comparing all with all suits the few sides that meshes have at a node. Larger buckets are sorted, so that equal sides are adjacent.
    constexpr std::ptrdiff_t few = 48;
    const bool sorted = end - begin > few;
    if (sorted) std::sort(begin, end, [](const auto& a, const auto& b) { return a.precedes(b); });

    for (side_record<slots>* first = begin; first != end; ++first)
    {
        if (first->id == none_index) continue;
        unsigned matches = 0;
        unsigned latest = none_index;
        for (side_record<slots>* other = first + 1; other != end; ++other)
        {
            if (!other->equals(*first))
            {
                if (sorted) break;
                continue;
            }
            ++matches;
            latest = other->id;
            other->id = none_index;
            if (link_shared) neighbors[latest] = first->id / stride;
        }
        if (matches == 1 || (matches > 1 && link_shared))
        {
            neighbors[first->id] = latest / stride;
            neighbors[latest] = first->id / stride;
        }
    }
}

template <unsigned slots, unsigned stride>
int match_sides(topology shape_of_all, const dense2D<unsigned>& connectivity, bool link_shared, dense2D<unsigned>& neighbors)
{
    const auto for_each = [&](auto&& worker) {
        for_each_element(shape_of_all, connectivity, [&](auto shape, unsigned element, const unsigned* nodes) {
            using shape_type = decltype(shape);
            if constexpr (has_slots<shape_type, slots>)
                for_each_side<shape_type>(
                    [&](auto side) { worker(nodes_of_side<slots, shape_type>(side, nodes), element * stride + side); });
        });
    };

    dense1D<unsigned> starts;
    if (!starts.resize(max_ID(connectivity) + 3, 0)) return out_of_memory;
    unsigned* const start = starts.data();
    for_each([&](const side_nodes<slots>& nodes, unsigned) { ++start[*std::min_element(nodes.begin(), nodes.end()) + 2]; });
    for (unsigned k = 3; k < starts.size; ++k) start[k] += start[k - 1];

    dense1D<side_record<slots>> records;
    if (!records.resize(start[starts.size - 1])) return out_of_memory;
    side_record<slots>* const record = records.data();
    for_each([&](const side_nodes<slots>& nodes, unsigned id) {
        const turned_side side = turn(nodes);
        record[start[side.smallest + 1]++] = record_side<slots>(side, id);
    });

    for (unsigned node = 0; node + 2 < starts.size; ++node)
        match_bucket<slots, stride>(record + start[node], record + start[node + 1], link_shared, neighbors.data());
    return 0;
}

/// The connectivity with its nodes numbered from 0 without gaps, in the same order, for meshes whose numbers are far apart: a table by
/// node would take memory by the largest number and not by the mesh. False when memory runs out.
bool close_gaps(const dense2D<unsigned>& connectivity, dense2D<unsigned>& closed)
{
    if (!closed.copy(connectivity)) return false;
    dense1D<unsigned> used;
    if (!used.copy(closed.as_vector())) return false;
    std::sort(used.begin(), used.end());
    used.size = static_cast<unsigned>(std::unique(used.begin(), used.end()) - used.begin());

    unsigned* const entries = closed.data();
    for (unsigned k = 0; k < closed.size; ++k)
        if (entries[k] != none_index)
            entries[k] = static_cast<unsigned>(std::lower_bound(used.begin(), used.end(), entries[k]) - used.begin());
    return true;
}

int match_all_sides(topology shape, const dense2D<unsigned>& connectivity, bool link_shared, dense2D<unsigned>& neighbors)
{
    switch (shape)
    {
    case topology::bar: return match_sides<1, 2>(shape, connectivity, link_shared, neighbors);
    case topology::triangle: return match_sides<2, 3>(shape, connectivity, link_shared, neighbors);
    case topology::quadrangle:
    case topology::mixed_surface: return match_sides<2, 4>(shape, connectivity, link_shared, neighbors);
    case topology::tetrahedron: return match_sides<3, 4>(shape, connectivity, link_shared, neighbors);
    case topology::pyramid:
    case topology::wedge: return match_sides<4, 5>(shape, connectivity, link_shared, neighbors);
    case topology::hexahedron:
    case topology::mixed_solid: return match_sides<4, 6>(shape, connectivity, link_shared, neighbors);
    case topology::none: break; // GCOVR_EXCL_LINE: the caller has refused them
    }
    return 0; // GCOVR_EXCL_LINE: all shapes have returned
}

} // namespace

int get_neighbors(const dense2D<unsigned>& connectivity, element_type kind, bool link_shared, dense2D<unsigned>& neighbors)
{
    neighbors.clear();
    if (connectivity.empty()) return 0;
    kind = narrow(kind, connectivity.rows);
    if (!check_IDs(connectivity, kind, none_index)) return -1;
    const topology shape = linear_topology(kind);
    if (shape == topology::none) return -2;
    detach_empty(neighbors, connectivity);
    if (!neighbors.resize(nbr_boundaries(kind), connectivity.cols, none_index)) return out_of_memory;

    if (suits_node_table(max_ID(connectivity), std::uint64_t{connectivity.rows} * connectivity.cols))
        return match_all_sides(shape, connectivity, link_shared, neighbors);

    dense2D<unsigned> closed;
    if (!close_gaps(connectivity, closed)) return out_of_memory;
    return match_all_sides(shape, closed, link_shared, neighbors);
}

} // namespace tq4::gridweave
