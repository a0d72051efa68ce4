#pragma once

/// Quality: edge lengths in a size field, element shape, Jacobians, size shock.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
