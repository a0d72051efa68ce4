#pragma once

/// Mesh files: readers and writers of the seven formats.

#include <tq4/export.h>
#include <tq4/gridweave/core.h>

namespace tq4
{
namespace gridweave
{

} // namespace gridweave
} // namespace tq4
