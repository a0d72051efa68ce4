#include "fuzz/reader.h"

namespace tq4::fuzz
{

namespace
{

/// A number that depends on all bytes of the input (FNV-1a).
std::uint32_t choice_of(const std::uint8_t* bytes, std::size_t count)
{
    std::uint32_t hash = 0x811C9DC5u;
    for (std::size_t k = 0; k < count; ++k) hash = (hash ^ bytes[k]) * 16777619u;
    return hash ^ hash >> 15;
}

/// Has the input read once with enough memory and, for one input in four, once more with memory that ends at some point of the first run.
void read_twice(const std::uint8_t* bytes, std::size_t count)
{
    static memory_file file;
    file.assign(bytes, count);
    const std::uint32_t choice = choice_of(bytes, count);
    unsigned requests = 0;
    {
        limited_memory memory(reader_memory);
        read(file.name(), choice);
        requests = limited_memory::requests();
    }
    if (choice % 4 == 0 && requests > 0)
    {
        limited_memory memory(reader_memory, choice / 4 % requests + 1);
        read(file.name(), choice);
    }
}

} // namespace

} // namespace tq4::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    tq4::fuzz::read_twice(bytes, count);
    return 0;
}
