#pragma once

// The frame of the targets that read files.

#include <cstddef>
#include <cstdint>

#include "fuzz/limited_memory.h"
#include "fuzz/memory_file.h"

namespace tq4::fuzz
{

/// Node numbers and counts in a file can ask for this much storage in one piece. It suffices for the buffers of the readers and the sizes
/// of the inputs, and leaves the time to inputs that do not only ask for memory.
constexpr std::size_t reader_memory = std::size_t{1} << 19;

/// One reading of a file. Each target that reads defines its own.
/// @param choice  a number that depends on all of the file, for choices that the format has no place for
void read(const char* file, std::uint32_t choice);

} // namespace tq4::fuzz
