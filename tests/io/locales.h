#pragma once

// Locales for tests of text and numbers.

#include <clocale>
#include <cstdlib>
#include <locale>
#include <string>

#if !defined(GRIDWEAVE_TEST_LOCALES)
#define GRIDWEAVE_TEST_LOCALES ""
#endif

namespace tq4::test
{

/// Sets a locale of the C library with a decimal comma while it lives: one of the machine's or, where it has none, the one that the build
/// makes if it can.
class comma_locale
{
public:
    comma_locale()
    {
        find();
        if (found_ || setenv("LOCPATH", GRIDWEAVE_TEST_LOCALES, 1) != 0) return;
        find();
        unsetenv("LOCPATH");
    }
    ~comma_locale() { std::setlocale(LC_NUMERIC, "C"); }

    comma_locale(const comma_locale&) = delete;
    comma_locale& operator=(const comma_locale&) = delete;

    bool found() const { return found_; }

private:
    void find()
    {
        for (const char* const name : {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "de_DE", "fr_FR"})
            if (!found_) found_ = std::setlocale(LC_NUMERIC, name) != nullptr;
    }

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
