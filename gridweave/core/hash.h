#pragma once

// The key of an unordered set of nodes.

#include <cstdint>

namespace tq4::gridweave
{

/// Contribution of one node to the key of a side or column. Keys are sums of these (modulo 2^32), so that they do not depend on the order
/// of the nodes. The constants are those of the FNV-1 hash (Fowler, Noll, Vo).
constexpr std::uint32_t node_key(std::uint32_t node)
{
    return (node ^ 0x811C9DC5u) * 16777619u;
}

} // namespace tq4::gridweave
