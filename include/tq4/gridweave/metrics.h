#pragma once

/// Metric fields: validity, eigenstructure and bounds, intersection and union, conversions, size generation, gradation and variation
/// limits.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
