#include "gridweave/io/text_writer.h"

#include <iomanip>
#include <sstream>

namespace tq4::gridweave
{

std::FILE* open_file(const char* name, const char* mode)
{
    if (!name) return nullptr;
#if defined(_MSC_VER)
    std::FILE* file = nullptr;
    return fopen_s(&file, name, mode) == 0 ? file : nullptr;
#else
    return std::fopen(name, mode);
#endif
}

bool close_file(std::FILE* file)
{
    return std::fclose(file) == 0;
}

bool finish(text_writer& out, std::FILE* stream)
{
    const bool taken = out.flush();
    return close_file(stream) && taken;
}

text_writer::text_writer(std::FILE* file, locale_of source)
    : file_(file), by_streams_(source == locale_of::streams && !streams_use_classic_numbers())
{
    plain_integers_ = !by_streams_;
    plain_reals_ = source == locale_of::streams ? !by_streams_ : c_library_uses_decimal_point();
    const bool large = buffer_.resize(buffer_size);
    begin_ = cursor_ = large ? buffer_.data() : reserve_;
    end_ = large ? buffer_.end() : reserve_ + sizeof reserve_;
}

void text_writer::text(std::string_view characters)
{
    if (static_cast<std::size_t>(end_ - cursor_) < characters.size())
    {
        flush();
        if (static_cast<std::size_t>(end_ - begin_) < characters.size())
        {
            good_ &= std::fwrite(characters.data(), 1, characters.size(), file_) == characters.size();
            return;
        }
    }
    std::memcpy(cursor_, characters.data(), characters.size());
    cursor_ += characters.size();
}

void text_writer::real(double value, const real_format& format)
{
    if (plain_reals_)
        cursor_ = write_real(room(longest_number), value, format);
    else if (by_streams_)
        streamed_real(value, format);
    else
        cursor_ = write_real_by_c_library(room(longest_number), value, format);
}

bool text_writer::flush()
{
    const auto count = static_cast<std::size_t>(cursor_ - begin_);
    if (count) good_ &= std::fwrite(begin_, 1, count, file_) == count;
    cursor_ = begin_;
    return good_;
}

void text_writer::streamed_integer(long long value, int width)
{
    streamed([=](std::ostream& stream) { stream << std::setw(width) << value; });
}

void text_writer::streamed_real(double value, const real_format& format)
{
    streamed([&](std::ostream& stream) {
        if (format.conversion != 'g') stream << (format.conversion == 'f' ? std::fixed : std::scientific);
        if (format.conversion == 'E') stream << std::uppercase;
        stream << std::setprecision(format.precision) << std::setw(format.width) << value;
    });
}

/// Writes what `insert(stream)` puts into a stream object of the global locale. That may lack memory, and a facet of the host's locale may
/// throw: something is then missing, which is a failed write.
template <class Insert>
void text_writer::streamed(Insert&& insert)
{
    try
    {
        std::ostringstream stream;
        insert(stream);
        good_ &= !stream.fail();
        text(stream.str());
    }
    catch (...)
    {
        good_ = false;
    }
}

} // namespace tq4::gridweave
