#pragma once

// Formatted text into a C stream, byte for byte what `fprintf` writes, through one large buffer.

#include <cstdio>
#include <cstring>
#include <string_view>

#include <tq4/gridweave/core.h>

#include "gridweave/io/decimal_digits.h"
#include "gridweave/io/number_text.h"

namespace tq4::gridweave
{

/// Opens a file by the name as given; null when it cannot be opened or there is no name.
std::FILE* open_file(const char* name, const char* mode);

/// Closes a file. False when what was still in its buffer could not be written.
bool close_file(std::FILE* file);

class text_writer;

/// Hands everything to the stream and closes it. False when something could not be written.
bool finish(text_writer& out, std::FILE* stream);

/// The fields of one record, put down one behind the other as in the "C" locale in room that is there already. The members are those of
/// `text_writer`.
class record_fields
{
public:
    explicit record_fields(char* at) : at_(at) {}

    char* end() const { return at_; }

    void text(std::string_view characters)
    {
        std::memcpy(at_, characters.data(), characters.size());
        at_ += characters.size();
    }
    void character(char c) { *at_++ = c; }

    void integer(int value, int width = 0)
    {
        const auto natural = static_cast<unsigned>(value);
        if (value >= 0 && width == 0)
            at_ = put_natural(at_, natural);
        else if (width >= 8 && natural < end_of_eight_digits)
            at_ = put_aligned_natural(at_, natural, width);
        else
            at_ = write_integer(at_, value, width);
    }
    void integer(unsigned value, int width = 0) { integer(static_cast<int>(value), width); }

    void natural(unsigned value) { at_ = put_natural(at_, value); }
    void real(double value, const real_format& format) { at_ = write_real(at_, value, format); }

private:
    char* at_;
};

/// A writer of text and binary fields. What it takes stands in the stream after `flush`, or when the writer goes; the stream stays open.
///
/// Numbers follow the locale that the host has set: those of formats written with C streams that of the C library, those of formats
/// written with stream objects the global C++ locale, where thousands may be grouped. The writer looks at the locale once, when it is
/// made.
class text_writer
{
public:
    enum class locale_of
    {
        c_library,
        streams
    };

    explicit text_writer(std::FILE* file, locale_of source = locale_of::c_library);
    ~text_writer() { flush(); }

    text_writer(const text_writer&) = delete;
    text_writer& operator=(const text_writer&) = delete;

    /// The text as it stands.
    void text(std::string_view characters);
    void character(char c) { *room(1) = c, ++cursor_; }

    /// A record: `put(fields)` puts down its text and numbers, with the functions below that do so. What it puts down is at most
    /// `longest_record` characters, of which a real takes up to `longest_number`.
    ///
    /// In the common case the fields go straight into the buffer, with one look at its end for all of them.
    template <class Put>
    void record(Put&& put)
    {
        if (plain_integers_ && plain_reals_)
        {
            record_fields fields(room(longest_record));
            put(fields);
            cursor_ = fields.end();
        }
        else
            put(*this);
    }

    static constexpr std::size_t longest_record = 4 * longest_number;

    /// "%{width}d". An unsigned value is written as the int of the same bits, as "%d" does.
    void integer(int value, int width = 0) { any_integer(value, width); }
    void integer(unsigned value, int width = 0) { integer(static_cast<int>(value), width); }

    /// An unsigned number as stream objects write it, whatever its size.
    void natural(unsigned value) { any_integer(value, 0); }

    /// A number in the given format.
    void real(double value, const real_format& format);

    /// The bytes of a binary field, in the order of the machine.
    template <class T>
    void bytes_of(const T& field)
    {
        text({reinterpret_cast<const char*>(&field), sizeof(T)});
    }

    /// Hands everything to the stream. False when the stream has not taken something that was written up to now.
    bool flush();

    /// False as soon as the stream has refused something.
    bool good() const { return good_; }

private:
    static constexpr std::size_t longest_integer = 32;
    static constexpr unsigned buffer_size = 1u << 18;

    /// The place of the next `count` characters; `count` is at most `longest_record`.
    char* room(std::size_t count)
    {
        if (static_cast<std::size_t>(end_ - cursor_) < count) flush();
        return cursor_;
    }

    void any_integer(long long value, int width)
    {
        if (plain_integers_)
            cursor_ = write_integer(room(longest_integer), value, width);
        else
            streamed_integer(value, width);
    }

    template <class Insert>
    void streamed(Insert&& insert);
    void streamed_integer(long long value, int width);
    void streamed_real(double value, const real_format& format);

    std::FILE* file_;
    dense1D<char> buffer_;
    char reserve_[longest_record]; ///< the buffer where there is no memory for a large one
    char* begin_;
    char* cursor_;
    char* end_;
    bool good_ = true;
    bool plain_reals_;    ///< numbers look as in the "C" locale
    bool plain_integers_; ///< integers do
    bool by_streams_;     ///< numbers go through a stream object
};

} // namespace tq4::gridweave
