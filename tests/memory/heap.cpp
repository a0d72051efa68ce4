#include "memory/heap.h"

#include <cstdlib>
#include <new>

#include "support/failing_allocator.h"

namespace
{

thread_local long live = 0;

void* allocate(std::size_t bytes) noexcept
{
    if (tq4::test::refuse_allocation()) return nullptr;
    void* const p = std::malloc(bytes ? bytes : 1);
    if (p) ++live;
    return p;
}

void release(void* p) noexcept
{
    if (p) --live;
    std::free(p);
}

} // namespace

// The forms for arrays call these.
void* operator new(std::size_t bytes)
{
    if (void* const p = allocate(bytes)) return p;
    throw std::bad_alloc();
}

void* operator new(std::size_t bytes, const std::nothrow_t&) noexcept
{
    return allocate(bytes);
}

void operator delete(void* p) noexcept
{
    release(p);
}

void operator delete(void* p, std::size_t) noexcept
{
    release(p);
}

void operator delete(void* p, const std::nothrow_t&) noexcept
{
    release(p);
}

long tq4::test::live_objects()
{
    return live;
}
