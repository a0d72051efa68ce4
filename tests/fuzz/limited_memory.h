#pragma once

// Memory with bounds for the fuzz targets, which define the library's pair of allocation functions themselves. A number in the input that
// asks for gigabytes would otherwise get them, and take all the time.

#include <cstddef>

namespace tq4::fuzz
{

/// While it lives, the library's requests for numeric storage are refused when they are for more than `largest` bytes, and from the n-th
/// one on where n is above 0.
class limited_memory
{
public:
    explicit limited_memory(std::size_t largest, unsigned n = 0);
    ~limited_memory();

    limited_memory(const limited_memory&) = delete;
    limited_memory& operator=(const limited_memory&) = delete;

    static bool has_refused();  ///< whether a request was refused under the latest one
    static unsigned requests(); ///< how many there were
};

/// While it lives, nothing is refused: for what the fuzz target itself keeps.
class ample_memory
{
public:
    ample_memory();
    ~ample_memory();

    ample_memory(const ample_memory&) = delete;
    ample_memory& operator=(const ample_memory&) = delete;
};

} // namespace tq4::fuzz
