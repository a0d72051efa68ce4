#pragma once

// Locales for tests of text and numbers.

#include <clocale>
#include <locale>
#include <string>

namespace tq4::test
{

/// Sets a locale of the C library with a decimal comma while it lives; not every machine has one.
class comma_locale
{
public:
    comma_locale()
    {
        for (const char* const name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "de_DE", "fr_FR"})
            if (!found_) found_ = std::setlocale(LC_NUMERIC, name) != nullptr;
    }
    ~comma_locale() { std::setlocale(LC_NUMERIC, "C"); }

    comma_locale(const comma_locale&) = delete;
    comma_locale& operator=(const comma_locale&) = delete;

    bool found() const { return found_; }

private:
    bool found_ = false;
};

/// A C++ locale with a decimal comma and grouped thousands, which machines without such locales have too.
struct comma_punctuation : std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\3"; }
};

class global_locale
{
public:
    explicit global_locale(const std::locale& now) : before_(std::locale::global(now)) {}
    ~global_locale() { std::locale::global(before_); }

private:
    std::locale before_;
};

} // namespace tq4::test
