#include "gridweave/io/text_reader.h"

#include <algorithm>

namespace tq4::gridweave
{

/// Moves what is left to the front of the window, makes the window large enough and reads on. A margin is always kept behind the bytes.
bool text_reader::fill(std::size_t count)
{
    if (!has_memory_) return false;
    const unsigned held = last_ - first_;
    std::copy_n(window_.data() + first_, held, window_.data());
    first_ = 0;
    last_ = held;
    window_[last_] = '\0';

    if (count + text_margin > window_.size)
    {
        // Doubling keeps the cost of a long line linear.
        const std::size_t wanted = std::max<std::size_t>(count + text_margin, 2 * std::size_t{window_.size});
        const auto new_size = static_cast<unsigned>(std::min<std::size_t>(wanted, none_index));
        if (count + text_margin > new_size || !window_.resize(new_size))
        {
            has_memory_ = false;
            return false;
        }
    }
    while (!exhausted_ && last_ < count)
    {
        const std::size_t room = window_.size - text_margin - last_;
        const std::size_t got = std::fread(window_.data() + last_, 1, room, file_);
        last_ += static_cast<unsigned>(got);
        exhausted_ = got < room;
    }
    window_[last_] = '\0';
    return last_ >= count;
}

/// The next line end in the window, which is filled for it; null when there is none up to the end of the file.
const char* text_reader::find_line_end()
{
    for (std::size_t searched = 0;;)
    {
        const auto held = static_cast<std::size_t>(limit() - cursor());
        if (held > searched)
        {
            if (const void* const found = std::memchr(cursor() + searched, '\n', held - searched)) return static_cast<const char*>(found);
            searched = held;
        }
        if (!require(held + 1)) return nullptr;
    }
}

bool text_reader::next_line(text_line& line)
{
    const char* line_end = find_line_end();
    if (!has_memory_) return false;
    if (!line_end)
    {
        met_end_ = true;
        if (cursor() == limit()) return false;
        line_end = limit();
    }
    line.begin = window_.data() + first_;
    line.end = line.begin + (line_end - line.begin);
    *line.end = '\0';
    first_ = last_;
    if (!met_end_) advance(line_end + 1);
    return true;
}

bool text_reader::next_piece(char* buffer, std::size_t size)
{
    require(size - 1);
    const std::size_t held = std::min(static_cast<std::size_t>(limit() - cursor()), size - 1);
    if (held == 0)
    {
        met_end_ = true;
        return false;
    }
    const void* const line_end = std::memchr(cursor(), '\n', held);
    const std::size_t length = line_end ? static_cast<std::size_t>(static_cast<const char*>(line_end) - cursor()) + 1 : held;
    std::copy_n(cursor(), length, buffer);
    buffer[length] = '\0';
    advance(cursor() + length);
    return true;
}

} // namespace tq4::gridweave
