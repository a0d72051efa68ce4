#pragma once

// Files for tests: a temporary file that goes with its object, and what is in a file.

#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include <unistd.h>

namespace tq4::test
{

/// The bytes of a file; empty when there is none.
inline std::string content_of(const std::filesystem::path& path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

/// Where tests write: in memory where the system offers that, since some of them write thousands of files.
inline std::filesystem::path scratch_folder()
{
    const std::filesystem::path in_memory = "/dev/shm";
    return std::filesystem::is_directory(in_memory) ? in_memory : std::filesystem::temp_directory_path();
}

/// A file name of its own in the scratch folder; the file, if there is one, is removed at the end.
class temporary_file
{
public:
    explicit temporary_file(const char* extension = ".txt")
    {
        static std::atomic<unsigned> count{0};
        path_ = scratch_folder() / ("gridweave_" + std::to_string(getpid()) + "_" + std::to_string(count++) + extension);
    }
    temporary_file(std::string_view content, const char* extension) : temporary_file(extension) { write(content); }
    ~temporary_file()
    {
        std::error_code ignored;
        std::filesystem::remove(path_, ignored);
    }

    temporary_file(const temporary_file&) = delete;
    temporary_file& operator=(const temporary_file&) = delete;

    const char* name() const { return path_.c_str(); }
    bool exists() const { return std::filesystem::exists(path_); }
    std::string content() const { return content_of(path_); }

    void write(std::string_view content) const
    {
        std::ofstream(path_, std::ios::binary | std::ios::trunc).write(content.data(), static_cast<std::streamsize>(content.size()));
    }

private:
    std::filesystem::path path_;
};

/// File handles that this process has open.
inline unsigned open_handles()
{
    unsigned count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) ++count;
    return count;
}

} // namespace tq4::test
