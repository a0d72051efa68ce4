#pragma once

// Locales for tests of text and numbers.

#include <clocale>
#include <cstdlib>
#include <initializer_list>
#include <locale>
#include <string>

#if !defined(GRIDWEAVE_TEST_LOCALES)
#define GRIDWEAVE_TEST_LOCALES ""
#endif

namespace tq4::test
{

/// Sets one category of the C library's locale while it lives: to a locale of the machine or, where it has none of the names, to one that
/// the build makes if it can.
class c_library_locale
{
public:
    c_library_locale(int category, std::initializer_list<const char*> names) : category_(category)
    {
        find(names);
        if (found_ || setenv("LOCPATH", GRIDWEAVE_TEST_LOCALES, 1) != 0) return;
        find(names);
        unsetenv("LOCPATH");
    }
    ~c_library_locale() { std::setlocale(category_, "C"); }

    c_library_locale(const c_library_locale&) = delete;
    c_library_locale& operator=(const c_library_locale&) = delete;

    bool found() const { return found_; }

private:
    void find(std::initializer_list<const char*> names)
    {
        for (const char* const name : names)
            if (!found_) found_ = std::setlocale(category_, name) != nullptr;
    }

    int category_;
    bool found_ = false;
};

/// Numbers have a decimal comma.
struct comma_locale : c_library_locale
{
    comma_locale() : c_library_locale(LC_NUMERIC, {"de_DE.UTF-8", "de_DE.utf8", "fr_FR.UTF-8", "fr_FR.utf8", "de_DE", "fr_FR"}) {}
};

/// The small letter to I is one without a dot.
struct turkish_locale : c_library_locale
{
    turkish_locale() : c_library_locale(LC_CTYPE, {"tr_TR.ISO-8859-9", "tr_TR.iso88599"}) {}
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
