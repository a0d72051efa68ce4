#include "gridweave/io/text_writer.h"

#include <limits>
#include <locale>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "io/files.h"
#include "io/locales.h"
#include "support/failing_allocator.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::comma_punctuation;
using test::global_locale;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

/// What `job` writes.
template <class Job>
std::string written(Job&& job, text_writer::locale_of source = text_writer::locale_of::c_library)
{
    test::temporary_file file;
    std::FILE* const stream = open_file(file.name(), "w");
    {
        text_writer out(stream, source);
        job(out);
        EXPECT_TRUE(out.flush());
    }
    EXPECT_TRUE(close_file(stream));
    return file.content();
}

TEST(TextWriter, WritesTextAndNumbers)
{
    EXPECT_EQ(written([](text_writer& out) {
                  out.text("Vertices\n");
                  out.integer(42u);
                  out.character('\n');
                  out.integer(7, 8);
                  out.integer(none_index);
                  out.real(1.5, {'E', 6, 16});
              }),
              "Vertices\n42\n       7-1    1.500000E+00");
}

/// All kinds of fields, of `out` itself or of a record of it.
template <class Fields>
void put_fields(Fields& out, unsigned k)
{
    out.text("x ");
    out.integer(k * 977);
    out.character(' ');
    out.integer(-static_cast<int>(k));
    out.integer(k * 977, 8);
    out.integer(k * 977, 3);
    out.integer(none_index - k, 16);
    out.character(' ');
    out.natural(k * 70001);
    out.natural(none_index - k);
    for (const double value : {k / 7.0, -1e200 * k, k == 5 ? infinity : 0.25}) out.real(value, {'E', 6, 16});
    out.character('\n');
}

TEST(TextWriter, WritesRecordsAsItsFieldsOneByOne)
{
    constexpr unsigned count = 100000;
    const auto by_fields = [](text_writer& out) {
        for (unsigned k = 0; k < count; ++k) put_fields(out, k);
    };
    const auto by_records = [](text_writer& out) {
        for (unsigned k = 0; k < count; ++k) out.record([&](auto& fields) { put_fields(fields, k); });
    };
    const auto longest = [](text_writer& out) {
        out.record([](auto& fields) {
            for (unsigned k = 0; k < 3; ++k) fields.real(-1e308, {'f', 16});
        });
    };
    const std::string expected = written(by_fields);
    EXPECT_EQ(written(by_records), expected);
    EXPECT_EQ(written(by_records, text_writer::locale_of::streams), expected);
    EXPECT_EQ(written(longest).size(), 3u * (1 + 309 + 1 + 16));
    test::failing_allocation failing(1);
    EXPECT_EQ(written(by_records), expected);
    EXPECT_TRUE(failing.has_failed());
}

TEST(TextWriter, SpellsWhatIsNotFiniteAsTheCLibrary)
{
    const auto reference = [](const char* format, double value) {
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, format, value);
        return std::string(buffer);
    };
    for (const double value : {infinity, -infinity, not_a_number, -not_a_number})
    {
        EXPECT_EQ(written([&](text_writer& out) { out.real(value, {'E'}); }), reference("%E", value));
        EXPECT_EQ(written([&](text_writer& out) { out.real(value, {'e', 5, 12}); }), reference("%12.5e", value));
        EXPECT_EQ(written([&](text_writer& out) { out.real(value, {'f'}); }), reference("%f", value));
    }
}

TEST(TextWriter, WritesMoreThanItsBufferHolds)
{
    std::string expected;
    const std::string written_text = written([&](text_writer& out) {
        for (unsigned k = 0; k < 200000; ++k)
        {
            out.integer(k);
            out.text(" x\n");
            expected += std::to_string(k) + " x\n";
        }
        const std::string large(1000000, 'L');
        out.text(large);
        expected += large;
    });
    EXPECT_EQ(written_text, expected);
}

TEST(TextWriter, NeedsNoMemoryOfItsOwn)
{
    const auto job = [](text_writer& out) {
        for (unsigned k = 0; k < 1000; ++k) out.real(k * 0.25, {'f'});
        out.real(-1e300, {'f'});
        out.text(std::string(5000, 'T'));
    };
    const std::string expected = written(job);
    test::failing_allocation failing(1);
    EXPECT_EQ(written(job), expected);
    EXPECT_TRUE(failing.has_failed());
}

TEST(TextWriter, FollowsTheGlobalLocaleWhereStreamsDo)
{
    const global_locale comma(std::locale(std::locale::classic(), new comma_punctuation));
    const auto job = [](text_writer& out) {
        out.integer(1234567);
        out.text(" 1234567 ");
        out.real(1234.5, {'g'});
        out.text(" ");
        out.real(0.125, {'e', 8});
        out.text(" ");
        out.real(-1234.5, {'f', 2, 12});
        out.text(" ");
        out.real(0.125, {'E', 3});
    };
    EXPECT_EQ(written(job, text_writer::locale_of::streams), "1.234.567 1234567 1.234,5 1,25000000e-01    -1.234,50 1,250E-01");
    const auto record = [](text_writer& out) {
        out.record([](auto& fields) {
            fields.natural(1234567);
            fields.text(" ");
            fields.real(1234.5, {'g'});
        });
    };
    EXPECT_EQ(written(record, text_writer::locale_of::streams), "1.234.567 1.234,5");
    // Formatted output of the C library is another matter: `std::locale::global` of a locale without a name leaves it alone.
    EXPECT_EQ(written(job), "1234567 1234567 1234.5 1.25000000e-01     -1234.50 1.250E-01");
}

/// A facet that fails.
struct throwing_output : std::num_put<char>
{
    iter_type do_put(iter_type, std::ios_base&, char_type, long) const override { throw 1; }
    iter_type do_put(iter_type, std::ios_base&, char_type, long long) const override { throw 1; }
    iter_type do_put(iter_type, std::ios_base&, char_type, double) const override { throw 1; }
};

TEST(TextWriter, TakesAThrowingFacetForAFailedWrite)
{
    const global_locale broken(std::locale(std::locale::classic(), new throwing_output));
    const test::temporary_file file;
    std::FILE* const stream = open_file(file.name(), "w");
    for (const bool whole : {true, false})
    {
        text_writer out(stream, text_writer::locale_of::streams);
        if (whole)
            out.integer(1);
        else
            out.real(1.5, {'g'});
        EXPECT_FALSE(out.good());
        EXPECT_FALSE(out.flush());
    }
    close_file(stream);
}

TEST(TextWriter, LooksAsAStreamInTheClassicLocale)
{
    std::ostringstream reference;
    for (const double value : {0.0, 1.0, 1234567.0, 1e-7, -2.5, infinity, -infinity}) reference << value << ' ';
    EXPECT_EQ(written(
                  [](text_writer& out) {
                      for (const double value : {0.0, 1.0, 1234567.0, 1e-7, -2.5, infinity, -infinity})
                      {
                          out.real(value, {'g'});
                          out.character(' ');
                      }
                  },
                  text_writer::locale_of::streams),
              reference.str());
}

TEST(TextWriter, FollowsTheLocaleOfTheCLibrary)
{
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    EXPECT_EQ(written([](text_writer& out) { out.real(1.5, {'f'}); }), "1,500000");
    const auto record = [](text_writer& out) {
        out.record([](auto& fields) {
            fields.natural(1234567);
            fields.character(' ');
            fields.real(-1234.5, {'e', 3, 12});
            fields.integer(7, 4);
            fields.real(0.25, {'g'});
        });
    };
    EXPECT_EQ(written(record), "1234567   -1,234e+03   70,25");
}

TEST(TextWriter, TellsOfAFullDevice)
{
    std::FILE* const full = open_file("/dev/full", "w");
    if (!full) GTEST_SKIP() << "no device that is always full";
    text_writer out(full);
    out.text("x");
    EXPECT_TRUE(out.good()); // it stands in the buffers
    out.text(std::string(1000000, 'x'));
    EXPECT_FALSE(out.flush());
    EXPECT_FALSE(out.good());
    close_file(full);
}

TEST(OpenFile, GivesNullForWhatCannotBeOpened)
{
    EXPECT_EQ(open_file("/no such folder/file", "w"), nullptr);
    EXPECT_EQ(open_file(nullptr, "r"), nullptr);
}

} // namespace
