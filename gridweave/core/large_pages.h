#pragma once

#include <cstddef>
#include <cstdint>

#if defined(__linux__)
#include <sys/mman.h>
#endif

namespace tq4::gridweave
{

/// Asks the system to back a large block that is about to be filled, and then accessed at random, with large pages: a translation of
/// addresses covers more of it, and it is taken into use in fewer steps. Nothing else depends on it; where the system knows no such thing
/// nothing is asked.
inline void prefer_large_pages(void* data, std::size_t bytes)
{
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr std::size_t large_page = std::size_t{1} << 21;
    constexpr std::size_t least_bytes = 4 * large_page; // smaller blocks are not worth the call

    if (bytes < least_bytes) return;
    const std::size_t skipped = (large_page - reinterpret_cast<std::uintptr_t>(data) % large_page) % large_page;
    const std::size_t whole = (bytes - skipped) / large_page * large_page;
    madvise(static_cast<unsigned char*>(data) + skipped, whole, MADV_HUGEPAGE); // a refusal changes nothing
#else
    (void)data;
    (void)bytes;
#endif
}

} // namespace tq4::gridweave
