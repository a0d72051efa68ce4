#include "support/failing_allocator.h"

#include <cstdlib>

#include <tq4/numcore/memory.h>

namespace
{

struct account
{
    unsigned long calls = 0;
    long live = 0;
    unsigned countdown = 0; // 0: nothing fails
    bool failing = false;
    bool only_once = false;
    bool failed = false;
};

thread_local account mine;

} // namespace

namespace tq4
{

void* __vector_num_alloc(std::size_t bytes) noexcept
{
    ++mine.calls;
    if (mine.countdown != 0 && --mine.countdown == 0) mine.failing = true;
    if (mine.failing)
    {
        mine.failed = true;
        if (mine.only_once) mine.failing = false;
        return nullptr;
    }
    // A product that comes out enormous by design must fail, not occupy the machine.
    if (bytes > (std::size_t{1} << 36)) return nullptr;
    void* const p = std::calloc(bytes ? bytes : 1, 1);
    if (p) ++mine.live;
    return p;
}

void __vector_num_free(void* p) noexcept
{
    if (p) --mine.live;
    std::free(p);
}

namespace test
{

failing_allocation::failing_allocation(unsigned n, bool only_once)
{
    mine.countdown = n;
    mine.failing = false;
    mine.only_once = only_once;
    mine.failed = false;
}

failing_allocation::~failing_allocation()
{
    mine.countdown = 0;
    mine.failing = false;
}

bool failing_allocation::has_failed() const
{
    return mine.failed;
}

unsigned long allocation_count()
{
    return mine.calls;
}

long live_allocations()
{
    return mine.live;
}

} // namespace test
} // namespace tq4
