#pragma once

// How a fuzz target says what the documentation promises.

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace tq4::fuzz
{

/// Ends the process where a promise is broken; the fuzzer then keeps the input.
inline void promise(bool holds, const char* text, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (holds) return;
    std::fprintf(stderr, "%s:%d: broken promise: %s\n", file, line, text);
    std::abort();
}

/// A result is a count, or one of the codes that are told.
inline void promise_code(int code, std::initializer_list<int> told, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (code >= 0) return;
    for (const int each : told)
        if (code == each) return;
    std::fprintf(stderr, "%s:%d: broken promise: the code %d is not among those told\n", file, line, code);
    std::abort();
}

} // namespace tq4::fuzz
