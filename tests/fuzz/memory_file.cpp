#include "fuzz/memory_file.h"

#include <sys/mman.h>
#include <unistd.h>

#include "fuzz/promise.h"

namespace tq4::fuzz
{

memory_file::memory_file() : descriptor_(memfd_create("input", 0)), name_("/proc/self/fd/" + std::to_string(descriptor_))
{
    promise(descriptor_ >= 0, "the machine has files in memory");
}

memory_file::~memory_file()
{
    close(descriptor_);
}

void memory_file::assign(const std::uint8_t* bytes, std::size_t count)
{
    promise(ftruncate(descriptor_, 0) == 0, "a file in memory can be emptied");
    promise(count == 0 || pwrite(descriptor_, bytes, count, 0) == static_cast<ssize_t>(count), "a file in memory takes the input");
}

} // namespace tq4::fuzz
