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

/// A number that depends on all bytes of the input (FNV-1a). It makes choices that the format has no place for.
inline std::uint32_t choice_of(const std::uint8_t* bytes, std::size_t count)
{
    std::uint32_t hash = 0x811C9DC5u;
    for (std::size_t k = 0; k < count; ++k) hash = (hash ^ bytes[k]) * 16777619u;
    return hash ^ hash >> 15;
}

/// Has the input read once with enough memory and, for one input in four, once more with memory that ends at some point of the first run.
template <class Read>
void read_twice(const std::uint8_t* bytes, std::size_t count, Read&& read)
{
    static memory_file file;
    file.assign(bytes, count);
    const std::uint32_t choice = choice_of(bytes, count);
    unsigned requests = 0;
    {
        limited_memory memory(reader_memory);
        read(file.name(), choice);
        requests = limited_memory::requests();
    }
    if (choice % 4 == 0 && requests > 0)
    {
        limited_memory memory(reader_memory, choice / 4 % requests + 1);
        read(file.name(), choice);
    }
}

} // namespace tq4::fuzz
