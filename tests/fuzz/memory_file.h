#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tq4::fuzz
{

/// A file that never reaches a disk, with a name that can be opened.
class memory_file
{
public:
    memory_file();
    ~memory_file();

    memory_file(const memory_file&) = delete;
    memory_file& operator=(const memory_file&) = delete;

    const char* name() const { return name_.c_str(); }
    void assign(const std::uint8_t* bytes, std::size_t count);

private:
    int descriptor_;
    std::string name_;
};

} // namespace tq4::fuzz
