#include "fuzz/limited_memory.h"

#include <cstdint>
#include <cstdlib>

#include <tq4/numcore/memory.h>

namespace tq4
{

namespace
{

std::size_t largest_request = SIZE_MAX;
unsigned request_refused = 0;
unsigned request_count = 0;
bool refusal_met = false;
unsigned ample_depth = 0;

} // namespace

void* __vector_num_alloc(std::size_t bytes) noexcept
{
    if (ample_depth == 0) ++request_count;
    if (ample_depth == 0 && (bytes > largest_request || (request_refused && request_count >= request_refused)))
    {
        refusal_met = true;
        return nullptr;
    }
    return std::calloc(bytes ? bytes : 1, 1);
}

void __vector_num_free(void* p) noexcept
{
    std::free(p);
}

namespace fuzz
{

limited_memory::limited_memory(std::size_t largest, unsigned n)
{
    largest_request = largest;
    request_refused = n;
    request_count = 0;
    refusal_met = false;
}

limited_memory::~limited_memory()
{
    largest_request = SIZE_MAX;
    request_refused = 0;
}

bool limited_memory::has_refused()
{
    return refusal_met;
}

ample_memory::ample_memory()
{
    ++ample_depth;
}

ample_memory::~ample_memory()
{
    --ample_depth;
}

unsigned limited_memory::requests()
{
    return request_count;
}

} // namespace fuzz

} // namespace tq4
