#pragma once

// Records of the usual look, read straight from the window of a file.
//
// Readers that follow the C library or the streams into every corner are slow, and most lines stand in no corner. So a reader first tries
// to take a record with a scanner, which takes only what both are certain to read in the same way; where the scanner does not take the
// record whole, nothing is said about it, and the reader goes through it line by line from its beginning.

#include <string_view>

#include "gridweave/io/decimal_digits.h"
#include "gridweave/io/number_text.h"

namespace tq4::gridweave
{

/// A place in a text with a margin. Every step takes what it is named after, and is false where that does not stand there; the place is
/// then of no more use.
class text_scanner
{
public:
    explicit text_scanner(const char* text) : at_(text) {}

    const char* at() const { return at_; }

    bool take(char c)
    {
        if (*at_ != c) return false;
        ++at_;
        return true;
    }

    /// Letters in any case; `words` has them in lower case.
    bool take_words(std::string_view words)
    {
        for (const char c : words)
        {
            const bool is_letter = c >= 'a';
            if ((is_letter ? *at_ | 0x20 : *at_) != c) return false;
            ++at_;
        }
        return true;
    }

    /// One blank or more within a line.
    bool take_blanks()
    {
        const char* const begin = at_;
        while (*at_ == ' ' || *at_ == '\t') ++at_;
        return at_ != begin;
    }

    /// One to nine digits and nothing else, which are an int in any case.
    bool take_natural(int& value)
    {
        const char* const begin = at_;
        unsigned number = 0;
        for (; is_digit(*at_); ++at_) number = 10 * number + static_cast<unsigned>(*at_ - '0');
        value = static_cast<int>(number);
        return at_ != begin && at_ - begin <= 9;
    }

    bool take_real(double& value)
    {
        const char* const end = scan_real(at_, value);
        if (end) at_ = end;
        return end != nullptr;
    }

    /// The end of a line and blanks before it. Where something else stands, the place does not change.
    bool take_line_end()
    {
        const char* end = at_;
        while (*end == ' ' || *end == '\t' || *end == '\r') ++end;
        if (*end != '\n') return false;
        at_ = end + 1;
        return true;
    }

    /// The next eight columns of a line. Those behind its end are blanks, and the place stays at the end. Where the text ends in them, they
    /// are zeros, which stand for no field, and the place stays there.
    std::uint64_t take_columns()
    {
        const std::uint64_t columns = load_eight(at_);
        // No column is at the end of a line if all are blanks or higher, as most often; a byte above 127 may look lower.
        const std::uint64_t lower = (columns - eight_of(' ')) & eight_of('\x80');
        if (lower == 0 || (!has_character('\n', columns) && !has_character('\0', columns)))
        {
            at_ += 8;
            return columns;
        }
        const char* end = at_;
        while (*end != '\n' && *end != '\0') ++end;
        auto held = static_cast<unsigned>(end - at_);
        at_ = end;
        if (*end == '\0') return 0;
        // A line may end in CR LF.
        if (held > 0 && end[-1] == '\r') --held;
        const std::uint64_t behind = ~std::uint64_t{0} << (8 * held);
        return (columns & ~behind) | (eight_of(' ') & behind);
    }

    /// True at the end of a line.
    bool at_line_end() const { return *at_ == '\n' || (*at_ == '\r' && at_[1] == '\n'); }

    /// Whatever comes up to the end of the line, if none of the `unwanted` characters is among it.
    bool skip_line_without(std::string_view unwanted)
    {
        for (; *at_ != '\n'; ++at_)
        {
            if (*at_ == '\0') return false;
            for (const char c : unwanted)
                if (*at_ == c) return false;
        }
        return take('\n');
    }
    bool skip_line() { return skip_line_without({}); }

    /// Characters of which it is known that they are there.
    void pass(std::size_t count) { at_ += count; }

private:
    const char* at_;
};

} // namespace tq4::gridweave
