#include <algorithm>

#include <tq4/gridweave/connectivity.h>

#include "gridweave/connectivity/sides.h"
#include "gridweave/core/append.h"
#include "gridweave/core/storage.h"

namespace tq4::gridweave
{

namespace
{

/// The local sides that hold one node of an element, in the order in which the walk around the node lists them. The order decides which of
/// several matches is the first or the last, so it is a table of its own.
struct sides_of_node
{
    std::uint8_t count;
    std::array<std::uint8_t, 4> side;
};

template <class Shape>
constexpr std::array<sides_of_node, Shape::nodes> sides_at{};

template <>
constexpr std::array<sides_of_node, 2> sides_at<bar>{{{1, {1}}, {1, {0}}}};
template <>
constexpr std::array<sides_of_node, 3> sides_at<triangle>{{{2, {1, 2}}, {2, {2, 0}}, {2, {0, 1}}}};
template <>
constexpr std::array<sides_of_node, 4> sides_at<quadrangle>{{{2, {3, 0}}, {2, {0, 1}}, {2, {1, 2}}, {2, {2, 3}}}};
template <>
constexpr std::array<sides_of_node, 4> sides_at<tetrahedron>{{{3, {1, 2, 3}}, {3, {0, 2, 3}}, {3, {0, 1, 3}}, {3, {0, 1, 2}}}};
template <>
constexpr std::array<sides_of_node, 5> sides_at<pyramid>{
    {{3, {3, 0, 4}}, {3, {0, 1, 4}}, {3, {1, 2, 4}}, {3, {2, 3, 4}}, {4, {0, 1, 2, 3}}}};
template <>
constexpr std::array<sides_of_node, 6> sides_at<wedge>{
    {{3, {0, 3, 4}}, {3, {0, 4, 2}}, {3, {0, 2, 3}}, {3, {1, 3, 4}}, {3, {1, 4, 2}}, {3, {1, 2, 3}}}};
template <>
constexpr std::array<sides_of_node, 8> sides_at<hexahedron>{
    {{3, {0, 2, 4}}, {3, {1, 2, 4}}, {3, {1, 3, 4}}, {3, {0, 3, 4}}, {3, {0, 2, 5}}, {3, {1, 2, 5}}, {3, {1, 3, 5}}, {3, {0, 3, 5}}}};

template <class Shape>
constexpr bool lists_all_sides()
{
    for (unsigned position = 0; position < Shape::nodes; ++position)
    {
        const sides_of_node& around = sides_at<Shape>[position];
        unsigned holding = 0;
        for (unsigned s = 0; s < side_count<Shape>; ++s)
            for (unsigned k = 0; k < Shape::sides[s].count; ++k) holding += Shape::sides[s].node[k] == position;
        unsigned listed = 0;
        for (unsigned i = 0; i < around.count; ++i)
            for (unsigned k = 0; k < Shape::sides[around.side[i]].count; ++k) listed += Shape::sides[around.side[i]].node[k] == position;
        if (around.count != holding || listed != holding) return false;
    }
    return true;
}
static_assert(lists_all_sides<bar>() && lists_all_sides<triangle>() && lists_all_sides<quadrangle>() && lists_all_sides<tetrahedron>() &&
              lists_all_sides<pyramid>() && lists_all_sides<wedge>() && lists_all_sides<hexahedron>());

/// The walk around a node, from element to element through the sides that hold it.
class ball_walker
{
public:
    ball_walker(topology shape_of_all, const dense2D<unsigned>& connectivity, const dense2D<unsigned>& neighbors)
        : topology_(shape_of_all), connectivity_(connectivity), neighbors_(neighbors)
    {
    }

    bool prepare() { return met_from_.resize(connectivity_.cols, none_index); }

    /// Finds the elements around `node` that links connect with `start`.
    /// @return 0; -4 `start` does not hold the node; -3 an element reached through a link does not; -199 out of memory
    int walk(unsigned node, unsigned start)
    {
        stack_.size = 0;
        found_.size = 0;
        if (!push(node, start)) return out_of_memory;
        for (bool at_start = true; stack_.size != 0; at_start = false)
        {
            const unsigned element = stack_[--stack_.size];
            const int code = with_shape_of(topology_, connectivity_.column(element), [&](auto shape) {
                using shape_type = decltype(shape);
                const unsigned* const nodes = connectivity_.column(element);
                const auto position = static_cast<unsigned>(std::find(nodes, nodes + shape_type::nodes, node) - nodes);
                if (position == shape_type::nodes) return at_start ? -4 : -3;

                const sides_of_node& around = sides_at<shape_type>[position];
                for (unsigned k = around.count; k-- > 0;)
                {
                    const unsigned across = neighbors_.column(element)[around.side[k]];
                    if (across != none_index && met_from_[across] != node && !push(node, across)) return out_of_memory;
                }
                return 0;
            });
            if (code != 0) return code;
            if (!append_entry(found_, element)) return out_of_memory;
        }
        return 0;
    }

    /// What the latest walk found, depth first.
    const dense1D<unsigned>& found() const { return found_; }

private:
    bool push(unsigned node, unsigned element)
    {
        met_from_[element] = node;
        return append_entry(stack_, element);
    }

    topology topology_;
    const dense2D<unsigned>& connectivity_;
    const dense2D<unsigned>& neighbors_;
    dense1D<unsigned> met_from_; ///< by element, the node of the latest walk that met it
    dense1D<unsigned> stack_;
    dense1D<unsigned> found_;
};

/// What the walk around a node found of one side: the boundary ids of the first and the last element that have it, by direction.
struct found_side
{
    std::array<unsigned, 4> key;
    std::array<unsigned, 2> first{none_index, none_index};
    std::array<unsigned, 2> last{none_index, none_index};
};

std::array<unsigned, 4> key_of(const turned_side& side)
{
    return {side.smallest, side.opposite, side.low(), side.high()};
}

/// The sides that the boundaries at one node ask for, in ascending order of their keys.
class wanted_sides
{
public:
    bool collect(const turned_side& side) { return append_entry(sides_, found_side{key_of(side)}); }

    void sort()
    {
        std::sort(sides_.begin(), sides_.end(), [](const found_side& a, const found_side& b) { return a.key < b.key; });
        const auto* const end =
            std::unique(sides_.begin(), sides_.end(), [](const found_side& a, const found_side& b) { return a.key == b.key; });
        sides_.size = static_cast<unsigned>(end - sides_.begin());
    }

    void clear() { sides_.size = 0; }

    void note(const turned_side& side, unsigned id)
    {
        found_side* const wanted = find(side);
        if (!wanted) return;
        const bool direction = side.descends();
        if (wanted->first[direction] == none_index) wanted->first[direction] = id;
        wanted->last[direction] = id;
    }

    /// The first id with the side in the same direction, else the last one with it in reverse, else none.
    unsigned answer(const turned_side& side)
    {
        const found_side* const wanted = find(side);
        const bool direction = side.descends();
        return wanted->first[direction] != none_index ? wanted->first[direction] : wanted->last[!direction];
    }

private:
    found_side* find(const turned_side& side)
    {
        const auto key = key_of(side);
        found_side* const place =
            std::lower_bound(sides_.begin(), sides_.end(), key, [](const found_side& a, const auto& wanted) { return a.key < wanted; });
        return place != sides_.end() && place->key == key ? place : nullptr;
    }

    dense1D<found_side> sides_;
};

/// Boundaries are taken by their first node, so that one walk serves all that begin at a node. A walk that fails ends the call at the first
/// boundary of its node; the lowest such boundary is the one at which a search in the order of the columns would have ended.
template <unsigned slots>
int find_elements(topology shape_of_all, unsigned stride, const dense2D<unsigned>& boundaries, const dense2D<unsigned>& connectivity,
                  const dense2D<unsigned>& neighbors, const dense1D<unsigned>& ancestors, dense1D<unsigned>& ids)
{
    dense1D<unsigned> first_nodes, order, starts;
    if (!first_nodes.resize(boundaries.cols)) return out_of_memory;
    for (unsigned b = 0; b < boundaries.cols; ++b)
    {
        const unsigned node = boundaries(0, b);
        first_nodes[b] = node < ancestors.size && ancestors[node] != none_index ? node : none_index;
    }
    if (const int code = get_sorted_order(first_nodes, order, starts)) return code;

    ball_walker ball(shape_of_all, connectivity, neighbors);
    if (!ball.prepare()) return out_of_memory;
    wanted_sides wanted;
    const auto turned_boundary = [&](unsigned b) {
        side_nodes<slots> nodes;
        std::copy_n(boundaries.column(b), slots, nodes.begin());
        return turn(nodes);
    };

    int failure = 0;
    unsigned failed_boundary = boundaries.cols;
    for (unsigned node = 0; node + 1 < starts.size; ++node)
    {
        const unsigned* const begin = order.data() + starts[node];
        const unsigned* const end = order.data() + starts[node + 1];
        if (begin == end) continue;

        wanted.clear();
        for (const unsigned* b = begin; b != end; ++b)
            if (!wanted.collect(turned_boundary(*b))) return out_of_memory;
        wanted.sort();

        const int code = ball.walk(node, ancestors[node]);
        if (code == out_of_memory) return code;
        if (code != 0)
        {
            if (*begin < failed_boundary) failure = code;
            failed_boundary = std::min(failed_boundary, *begin);
            continue;
        }
        for (const unsigned element : ball.found())
        {
            const unsigned* const nodes = connectivity.column(element);
            with_shape_of(shape_of_all, nodes, [&](auto shape) {
                using shape_type = decltype(shape);
                if constexpr (has_slots<shape_type, slots>)
                    for_each_side<shape_type>(
                        [&](auto side) { wanted.note(turn(nodes_of_side<slots, shape_type>(side, nodes)), element * stride + side); });
            });
        }
        for (const unsigned* b = begin; b != end; ++b) ids[*b] = wanted.answer(turned_boundary(*b));
    }
    std::fill(ids.begin() + failed_boundary, ids.end(), none_index);
    return failure;
}

} // namespace

int get_elements_on_boundaries(const dense2D<unsigned>& boundaries, const dense2D<unsigned>& connectivity,
                               const dense2D<unsigned>& neighbors, const dense1D<unsigned>& ancestors, element_type kind,
                               dense1D<unsigned>& ids, unsigned& stride)
{
    ids.size = 0;
    stride = 0;
    if (boundaries.empty()) return 0;
    kind = narrow(kind, connectivity.rows);
    if (boundaries.rows != nbr_boundary_nodes(kind)) return -1;
    if (connectivity.rows != nbr_nodes(kind)) return -2;
    if (neighbors.cols != connectivity.cols || neighbors.rows != nbr_boundaries(kind) || !check_IDs(neighbors, connectivity.cols))
        return -3;
    if (!check_IDs(ancestors, connectivity.cols)) return -4;
    stride = nbr_boundaries(kind);
    const topology shape_of_all = linear_topology(kind);
    if (shape_of_all == topology::none) return -5;

    int code = out_of_memory;
    detach_empty(ids, boundaries, connectivity, neighbors, ancestors);
    if (ids.resize(boundaries.cols, none_index)) switch (boundaries.rows)
        {
        case 1: code = find_elements<1>(shape_of_all, stride, boundaries, connectivity, neighbors, ancestors, ids); break;
        case 2: code = find_elements<2>(shape_of_all, stride, boundaries, connectivity, neighbors, ancestors, ids); break;
        case 3: code = find_elements<3>(shape_of_all, stride, boundaries, connectivity, neighbors, ancestors, ids); break;
        default: code = find_elements<4>(shape_of_all, stride, boundaries, connectivity, neighbors, ancestors, ids); break;
        }
    if (code == out_of_memory) ids.size = 0;
    return code;
}

} // namespace tq4::gridweave
