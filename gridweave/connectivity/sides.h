#pragma once

// When two sides are the same: the rule behind neighbours, and behind finding elements on boundaries.

#include <array>
#include <utility>

#include "gridweave/connectivity/boundaries.h"
#include "gridweave/core/kinds.h"

namespace tq4::gridweave
{

/// Calls `worker(index)` for the local sides of a shape in ascending order, with the index as a compile-time constant.
template <class Shape, class Worker>
void for_each_side(Worker&& worker)
{
    [&]<unsigned... index>(std::integer_sequence<unsigned, index...>)
    {
        (worker(std::integral_constant<unsigned, index>{}), ...);
    }
    (std::make_integer_sequence<unsigned, side_count<Shape>>{});
}

/// Nodes of the largest side of a shape.
template <class Shape>
constexpr unsigned largest_side = [] {
    unsigned count = 0;
    for (const local_side& local : Shape::sides) count = local.count > count ? local.count : count;
    return count;
}();

/// Whether the kinds whose largest side takes `slots` nodes have columns of this shape. (Tetrahedra stand among solids with quadrangular
/// faces.)
template <class Shape, unsigned slots>
constexpr bool has_slots = largest_side<Shape> == slots || (largest_side<Shape> == 3 && slots == 4);

/// The nodes of a side in the slots that the largest side of its kind needs; a triangular face among four slots has none in the last.
template <unsigned slots>
using side_nodes = std::array<unsigned, slots>;

template <unsigned slots, class Shape>
side_nodes<slots> nodes_of_side(unsigned side, const unsigned* nodes)
{
    side_nodes<slots> gathered;
    gathered.back() = none_index;
    copy_side<Shape>(side, nodes, gathered.data());
    return gathered;
}

/// A side read from its smallest node, the first one where it occurs more than once. What a side does not have is none.
struct turned_side
{
    unsigned smallest;
    unsigned opposite; ///< across the quadrangle
    unsigned next;
    unsigned previous;

    unsigned low() const { return next < previous ? next : previous; }
    unsigned high() const { return next < previous ? previous : next; }

    /// Two sides are the same when `smallest`, `opposite`, `low` and `high` agree. They run in the same direction when this agrees too.
    bool descends() const { return next > previous; }
};

inline turned_side turn(const side_nodes<1>& s)
{
    return {s[0], none_index, none_index, none_index};
}

inline turned_side turn(const side_nodes<2>& s)
{
    if (s[0] <= s[1]) return {s[0], none_index, s[1], none_index};
    return {s[1], none_index, none_index, s[0]};
}

inline turned_side turn(const side_nodes<3>& s)
{
    if (s[0] <= s[1] && s[0] <= s[2]) return {s[0], none_index, s[1], s[2]};
    if (s[1] <= s[2]) return {s[1], none_index, s[2], s[0]};
    return {s[2], none_index, s[0], s[1]};
}

inline turned_side turn(const side_nodes<4>& s)
{
    if (s[3] == none_index) return turn(side_nodes<3>{s[0], s[1], s[2]});
    const unsigned front = s[1] < s[0] ? 1 : 0;
    const unsigned back = s[3] < s[2] ? 3 : 2;
    const unsigned lead = s[back] < s[front] ? back : front;
    return {s[lead], s[(lead + 2) % 4], s[(lead + 1) % 4], s[(lead + 3) % 4]};
}

} // namespace tq4::gridweave
