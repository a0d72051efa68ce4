#include "fuzz/mesh_source.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t count)
{
    tq4::fuzz::mesh_source source(bytes, count);
    tq4::fuzz::run(source);
    return 0;
}
