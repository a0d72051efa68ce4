// The two allocation functions stand alone in this file: a program that links its own pair never pulls this object out of a static
// library, and in a shared one the program's definitions take precedence.

#include <tq4/numcore/memory.h>

#include <cstdlib>

#if defined(__linux__)
#include <cerrno>
#include <cstdint>
#include <sys/mman.h>
#endif

// GCOVR_EXCL_START: the test programs link a pair of their own, and the package test's host this one.
namespace tq4
{

namespace
{

/// Asks the system to back a large block with huge pages. Work that jumps about in a block of many megabytes otherwise waits for the
/// addresses of its pages as long as for what they hold, and taking pages one by one costs as much again when the block is first filled.
/// A system that does not have them takes no notice.
void prefer_huge_pages([[maybe_unused]] void* block, [[maybe_unused]] std::size_t bytes) noexcept
{
#if defined(__linux__)
    constexpr std::uintptr_t huge_page = 1u << 21;

    // Only pages that lie in the block as a whole are spoken of: what stands next to it is not ours.
    const auto address = reinterpret_cast<std::uintptr_t>(block);
    const std::size_t before = (huge_page - address % huge_page) % huge_page;
    if (bytes < before + huge_page) return;
    const std::size_t whole = (bytes - before) / huge_page * huge_page;
    const int saved = errno;
    madvise(static_cast<unsigned char*>(block) + before, whole, MADV_HUGEPAGE);
    errno = saved;
#endif
}

} // namespace

// calloc gives large blocks as untouched zero pages, so a fresh block costs no pass over its memory.
void* __vector_num_alloc(std::size_t bytes) noexcept
{
    void* const block = std::calloc(bytes ? bytes : 1, 1);
    if (block) prefer_huge_pages(block, bytes);
    return block;
}

void __vector_num_free(void* p) noexcept
{
    std::free(p);
}

} // namespace tq4
// GCOVR_EXCL_STOP
