#pragma once

namespace tq4::gridweave
{

/// Asks for the cache line of an address that will be read soon. Any address will do, one outside every block too.
inline void prefetch(const void* address)
{
#if defined(__GNUC__)
    __builtin_prefetch(address);
    // A function that does nothing but ask has no effect in the compiler's eyes, and calls of it are dropped; this is an effect.
    asm volatile("");
#else
    (void)address;
#endif
}

} // namespace tq4::gridweave
