#pragma once

/// Connectivity: node graphs, boundaries, neighbours, subdomains and colours, edges.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
