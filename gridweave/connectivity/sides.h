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

/// A side read from its smallest node, the first one where it occurs more than once. What a side does not have is none. Two sides are
/// the same when these readings agree, be it with `next` and `previous` exchanged (the reverse direction).
struct turned_side
{
    unsigned smallest;
    unsigned opposite; ///< across the quadrangle
    unsigned next;
    unsigned previous;
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

enum class side_match
{
    none,
    same,   ///< in the same direction
    reverse ///< in the opposite direction
};

inline side_match compare(const turned_side& a, const turned_side& b)
{
    if (a.smallest != b.smallest || a.opposite != b.opposite) return side_match::none;
    if (a.next == b.next && a.previous == b.previous) return side_match::same;
    if (a.next == b.previous && a.previous == b.next) return side_match::reverse;
    return side_match::none;
}

} // namespace tq4::gridweave
