#pragma once

#include <cstddef>

#include <tq4/export.h>

namespace tq4
{

/// Raw memory for the storage blocks, `bytes` long and all zero; no alignment is promised. Null when memory is exhausted; never throws.
/// This function and its counterpart are the only door to the heap for numeric storage, so a program that needs an allocator of its own
/// (or a test that needs one that fails) replaces the pair at link time.
TQ4_NUMCORE_API void* __vector_num_alloc(std::size_t bytes) noexcept;

/// Releases what `__vector_num_alloc` gave. `p` is the pointer it returned, which is not in general the first element of a block.
TQ4_NUMCORE_API void __vector_num_free(void* p) noexcept;

} // namespace tq4
