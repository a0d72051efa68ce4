// The two allocation functions stand alone in this file: a program that links its own pair never pulls this object out of a static
// library, and in a shared one the program's definitions take precedence.

#include <tq4/numcore/memory.h>

#include <cstdlib>

// GCOVR_EXCL_START: the test programs link a pair of their own, and the package test's host this one.
namespace tq4
{

// calloc gives large blocks as untouched zero pages, so a fresh block costs no pass over its memory.
void* __vector_num_alloc(std::size_t bytes) noexcept
{
    return std::calloc(bytes ? bytes : 1, 1);
}

void __vector_num_free(void* p) noexcept
{
    std::free(p);
}

} // namespace tq4
// GCOVR_EXCL_STOP
