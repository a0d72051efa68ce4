#pragma once

/// Spatial search: the closest node and the nodes in a box.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
