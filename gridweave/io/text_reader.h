#pragma once

// Reading a file of any length through one window of memory, by lines or by bytes.

#include <cstdio>
#include <cstring>
#include <string_view>

#include <tq4/gridweave/core.h>

#include "gridweave/io/number_text.h"

namespace tq4::gridweave
{

/// A line in the reader's own memory, without its line end and with a terminating zero and a margin at `end`, so that conversions can read
/// it in place and a caller can cut it into fields by writing zeros of its own. It is good until the next call of the reader. Zero
/// bytes of the file stand in it as they came.
struct text_line
{
    char* begin = nullptr;
    char* end = nullptr;

    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
    bool empty() const { return begin == end; }
    std::string_view view() const { return {begin, size()}; }

    /// The line as functions on C strings see it: it ends at its first zero byte.
    std::string_view c_text() const { return {begin, std::strlen(begin)}; }
};

/// Reads a stream from its present position. The stream stays open; its position is undefined afterwards.
///
/// The window holds some 256 KB, and more only where one line or one `require` is longer, so a file's size matters neither for memory nor
/// for indices, and a pipe is as good as a file. A read error counts as the end of the file.
class text_reader
{
public:
    static constexpr unsigned window_size = 1u << 18;

    explicit text_reader(std::FILE* file) : file_(file) { has_memory_ = window_.resize(window_size); }

    text_reader(const text_reader&) = delete;
    text_reader& operator=(const text_reader&) = delete;

    /// False when memory ran out, here or in an earlier call; reads have then given no more than what there was.
    bool has_memory() const { return has_memory_; }

    // Lines of any length, as `std::getline` reads them.

    /// The next line. False when there is none or memory ran out. A last line without a line end is a line, and reading it meets the end
    /// of the file, so that `good` is false while the line is there.
    bool next_line(text_line& line);

    /// What a stream object tells after `next_line`: nothing has failed and the end of the file has not been met.
    bool good() const { return !met_end_; }

    // Pieces of lines, as `std::fgets` reads them.

    /// Fills `buffer` as `std::fgets(buffer, size, file)`: up to a line end, which stands in it, or to size - 1 characters. False at the
    /// end of the file, with `buffer` unchanged.
    bool next_piece(char* buffer, std::size_t size);

    // Bytes.

    /// Brings at least `count` bytes into the window if the file has so many. False when it has fewer or memory ran out; the window then
    /// holds what is left.
    bool require(std::size_t count) { return static_cast<std::size_t>(limit() - cursor()) >= count || fill(count); }

    /// The bytes in the window; there is none without memory for it. A zero stands at their end, with a margin.
    const char* cursor() const { return window_.data() + first_; }
    const char* limit() const { return window_.data() + last_; }

    /// True when the window holds all that is left of the file.
    bool window_is_last() const { return exhausted_; }

    /// Passes over the bytes before `to`, a place in the window.
    void advance(const char* to) { first_ = static_cast<unsigned>(to - window_.data()); }

private:
    bool fill(std::size_t count);
    const char* find_line_end();

    std::FILE* file_;
    dense1D<char> window_;
    unsigned first_ = 0; ///< the bytes of the window that are not read yet are [first_, last_)
    unsigned last_ = 0;
    bool exhausted_ = false;
    bool met_end_ = false;
    bool has_memory_;
};

} // namespace tq4::gridweave
