#pragma once

// Locales for tests of text and numbers.

#include <clocale>

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

} // namespace tq4::test
