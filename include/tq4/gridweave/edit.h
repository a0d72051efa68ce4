#pragma once

/// Mesh editing: transforms, copies, compaction, node merging, clipping.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
