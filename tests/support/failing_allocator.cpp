#include "support/failing_allocator.h"

#include <cstdlib>
#include <unordered_map>

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
    unsigned misalignment = 0;
    // What the C library gave, for every misaligned block. Never destroyed: static views are freed after the locals of their thread.
    std::unordered_map<void*, void*>* aligned_of = nullptr;
};

thread_local account mine;

} // namespace

namespace tq4
{

void* __vector_num_alloc(std::size_t bytes) noexcept
{
    ++mine.calls;
    if (test::refuse_allocation()) return nullptr;
    // A product that comes out enormous by design must fail, not occupy the machine.
    if (bytes > (std::size_t{1} << 36)) return nullptr;
    void* p = std::calloc((bytes ? bytes : 1) + mine.misalignment, 1);
    if (p) ++mine.live;
    if (p && mine.misalignment != 0)
    {
        void* const aligned = p;
        p = static_cast<char*>(p) + mine.misalignment;
        (*mine.aligned_of)[p] = aligned;
    }
    return p;
}

void __vector_num_free(void* p) noexcept
{
    if (p) --mine.live;
    if (mine.aligned_of)
        if (const auto misaligned = mine.aligned_of->find(p); misaligned != mine.aligned_of->end())
        {
            p = misaligned->second;
            mine.aligned_of->erase(misaligned);
        }
    std::free(p);
}

namespace test
{

bool refuse_allocation()
{
    if (mine.countdown != 0 && --mine.countdown == 0) mine.failing = true;
    if (!mine.failing) return false;
    mine.failed = true;
    if (mine.only_once) mine.failing = false;
    return true;
}

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

misaligned_allocation::misaligned_allocation(unsigned bytes)
{
    if (!mine.aligned_of) mine.aligned_of = new std::unordered_map<void*, void*>;
    mine.misalignment = bytes;
}

misaligned_allocation::~misaligned_allocation()
{
    mine.misalignment = 0;
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
