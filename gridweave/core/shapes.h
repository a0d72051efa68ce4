#pragma once

// What an element looks like, by shape: corner nodes, local sides, local edges. Every family reads these tables; none has its own.

#include <array>
#include <cstddef>
#include <cstdint>

namespace tq4::gridweave
{

/// Positions of the nodes of one local side in an element's column; `count` is 1, 2, 3 or 4.
struct local_side
{
    std::uint8_t count;
    std::array<std::uint8_t, 4> node;
};

/// Positions of the two nodes of one local edge.
struct local_edge
{
    std::uint8_t a;
    std::uint8_t b;
};

constexpr local_side side(std::uint8_t a)
{
    return {1, {a, 0, 0, 0}};
}
constexpr local_side side(std::uint8_t a, std::uint8_t b)
{
    return {2, {a, b, 0, 0}};
}
constexpr local_side side(std::uint8_t a, std::uint8_t b, std::uint8_t c)
{
    return {3, {a, b, c, 0}};
}
constexpr local_side side(std::uint8_t a, std::uint8_t b, std::uint8_t c, std::uint8_t d)
{
    return {4, {a, b, c, d}};
}

// The sides of simplices are numbered by the opposite node. The faces of solids have their right-handed normals pointing into a positive
// element. The order of nodes in a side and the order of sides show in results.

struct bar
{
    static constexpr unsigned dim = 1;
    static constexpr unsigned nodes = 2;
    static constexpr std::array<local_side, 2> sides{side(1), side(0)};
    static constexpr std::array<local_edge, 1> edges{{{0, 1}}};
};

struct triangle
{
    static constexpr unsigned dim = 2;
    static constexpr unsigned nodes = 3;
    static constexpr std::array<local_side, 3> sides{side(1, 2), side(2, 0), side(0, 1)};
    static constexpr std::array<local_edge, 3> edges{{{1, 2}, {2, 0}, {0, 1}}};
};

struct quadrangle
{
    static constexpr unsigned dim = 2;
    static constexpr unsigned nodes = 4;
    static constexpr std::array<local_side, 4> sides{side(0, 1), side(1, 2), side(2, 3), side(3, 0)};
    static constexpr std::array<local_edge, 4> edges{{{0, 1}, {1, 2}, {2, 3}, {3, 0}}};
};

struct tetrahedron
{
    static constexpr unsigned dim = 3;
    static constexpr unsigned nodes = 4;
    static constexpr std::array<local_side, 4> sides{side(1, 2, 3), side(2, 0, 3), side(1, 3, 0), side(2, 1, 0)};
    static constexpr std::array<local_edge, 6> edges{{{1, 2}, {2, 0}, {0, 1}, {3, 0}, {3, 1}, {3, 2}}};
};

struct pyramid
{
    static constexpr unsigned dim = 3;
    static constexpr unsigned nodes = 5;
    static constexpr std::array<local_side, 5> sides{side(0, 4, 1), side(1, 4, 2), side(2, 4, 3), side(3, 4, 0), side(0, 1, 2, 3)};
    static constexpr std::array<local_edge, 8> edges{{{0, 4}, {1, 4}, {2, 4}, {3, 4}, {0, 1}, {1, 2}, {2, 3}, {3, 0}}};
};

struct wedge
{
    static constexpr unsigned dim = 3;
    static constexpr unsigned nodes = 6;
    static constexpr std::array<local_side, 5> sides{side(0, 1, 2), side(3, 5, 4), side(2, 1, 4, 5), side(0, 2, 5, 3), side(1, 0, 3, 4)};
    static constexpr std::array<local_edge, 9> edges{{{0, 3}, {1, 4}, {2, 5}, {1, 2}, {2, 0}, {0, 1}, {4, 5}, {5, 3}, {3, 4}}};
};

struct hexahedron
{
    static constexpr unsigned dim = 3;
    static constexpr unsigned nodes = 8;
    static constexpr std::array<local_side, 6> sides{side(0, 3, 7, 4), side(1, 5, 6, 2), side(0, 4, 5, 1),
                                                     side(3, 2, 6, 7), side(0, 1, 2, 3), side(4, 7, 6, 5)};
    static constexpr std::array<local_edge, 12> edges{
        {{0, 1}, {1, 2}, {2, 3}, {3, 0}, {4, 5}, {5, 6}, {6, 7}, {7, 4}, {0, 4}, {1, 5}, {2, 6}, {3, 7}}};
};

template <class Shape>
constexpr unsigned side_count = static_cast<unsigned>(Shape::sides.size());

template <class Shape>
constexpr unsigned edge_count = static_cast<unsigned>(Shape::edges.size());

} // namespace tq4::gridweave
