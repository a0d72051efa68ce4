#include <algorithm>
#include <array>
#include <cctype>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <tq4/gridweave/edit.h>
#include <tq4/gridweave/io.h>

#include "io/files.h"
#include "io/locales.h"
#include "support/failing_allocator.h"
#include "support/meshes.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;
using test::columns;
using test::elements_of;
using test::open_handles;
using test::points_of;

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double not_a_number = std::numeric_limits<double>::quiet_NaN();

using point = std::array<double, 3>;
using soup = std::vector<std::array<point, 3>>;

// A reader that does what the format asks for, one step after the other.

double reference_height2(const std::array<point, 3>& corners)
{
    double least = 0;
    for (std::size_t k = 0; k < 3; ++k)
    {
        const point& p = corners[k];
        const point* a = &corners[(k + 1) % 3];
        const point* b = &corners[(k + 2) % 3];
        const auto squared = [](const point& x, const point& y) {
            return (y[0] - x[0]) * (y[0] - x[0]) + (y[1] - x[1]) * (y[1] - x[1]) + (y[2] - x[2]) * (y[2] - x[2]);
        };
        if (squared(p, *b) < squared(p, *a)) std::swap(a, b);
        const point u{(*b)[0] - (*a)[0], (*b)[1] - (*a)[1], (*b)[2] - (*a)[2]};
        const point w{p[0] - (*a)[0], p[1] - (*a)[1], p[2] - (*a)[2]};
        const point n{u[1] * w[2] - u[2] * w[1], u[2] * w[0] - u[0] * w[2], u[0] * w[1] - u[1] * w[0]};
        const double base = u[0] * u[0] + u[1] * u[1] + u[2] * u[2];
        double height2 = n[0] * n[0] + n[1] * n[1] + n[2] * n[2];
        if (base > 0) height2 /= base;
        if (k == 0 || height2 < least) least = height2;
    }
    return least;
}

int reference_weld(const soup& triangles, dense2D<double>& pos, dense2D<unsigned>& connect)
{
    double least = DBL_MAX;
    const auto count = static_cast<unsigned>(triangles.size());
    pos.resize(3, 3 * count);
    connect.resize(3, count);
    for (unsigned t = 0; t < count; ++t)
    {
        const double height2 = reference_height2(triangles[t]);
        if (height2 > 0 && height2 < least) least = height2;
        for (unsigned k = 0; k < 3; ++k)
        {
            connect(k, t) = 3 * t + k;
            std::copy_n(triangles[t][k].data(), 3, pos.column(3 * t + k));
        }
    }
    if (!(least > 0 && least < DBL_MAX)) return 0;

    dense1D<unsigned> new_ids;
    constexpr unsigned slice_size = 100000;
    for (unsigned first = 0; first < count; first += slice_size)
    {
        dense2D<unsigned> slice = connect.sub_matrix(0, first, 3, std::min(slice_size, count - first));
        if (merge(pos, slice, new_ids, 0.0, 0) < 0) return -1000;
    }
    if (merge(pos, connect, new_ids, std::sqrt(least) * 0.05, 0) < 0) return -1000;
    if (remove_degenerated(connect, new_ids, true) < 0) return -1000;
    if (simplify(pos, connect, new_ids, 0) < 0) return -1000;
    return 0;
}

bool reference_line(std::FILE* file, char (&line)[256])
{
    if (!std::fgets(line, sizeof line, file)) return false;
    for (char* c = line; *c; ++c) *c = static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
    return true;
}

int reference_text(std::FILE* file, soup& triangles)
{
    char line[256];
    if (!reference_line(file, line) || !std::strstr(line, "solid")) return -2;
    for (;;)
    {
        if (!reference_line(file, line)) return -3;
        if (std::strstr(line, "color")) continue;
        if (std::strstr(line, "endsolid"))
        {
            if (!reference_line(file, line)) return 0;
            if (std::strstr(line, "solid")) continue;
        }
        double ignored[3];
        if (std::sscanf(line, " facet normal %lg %lg %lg\n", ignored, ignored + 1, ignored + 2) != 3) return -3;
        if (!reference_line(file, line) || !std::strstr(line, "outer loop")) return -3;
        std::array<point, 3> corners;
        for (point& x : corners)
            if (!reference_line(file, line) || std::sscanf(line, " vertex %lg %lg %lg\n", &x[0], &x[1], &x[2]) != 3) return -3;
        if (!reference_line(file, line) || !std::strstr(line, "endloop")) return -3;
        if (!reference_line(file, line) || !std::strstr(line, "endfacet")) return -3;
        triangles.push_back(corners);
    }
}

int reference_binary(std::FILE* file, soup& triangles)
{
    char header[80];
    std::int32_t count = 0;
    if (std::fread(header, 1, 80, file) != 80) return -2;
    if (std::fread(&count, 1, 4, file) != 4) return -3;
    for (std::int32_t t = 0; t < count; ++t)
    {
        float fields[12];
        char attribute[2];
        if (std::fread(fields, 1, 48, file) != 48 || std::fread(attribute, 1, 2, file) != 2) return -3;
        std::array<point, 3> corners;
        for (std::size_t k = 0; k < 9; ++k) corners[k / 3][k % 3] = static_cast<double>(fields[3 + k]);
        triangles.push_back(corners);
    }
    return 0;
}

int reference_input(const char* name, dense2D<double>& pos, dense2D<unsigned>& connect)
{
    pos.clear();
    connect.clear();
    soup triangles;
    std::FILE* const text = std::fopen(name, "rt");
    int result = reference_text(text, triangles);
    std::fclose(text);
    if (result < 0)
    {
        triangles.clear();
        std::FILE* const binary = std::fopen(name, "rb");
        result = reference_binary(binary, triangles);
        std::fclose(binary);
    }
    return result == 0 ? reference_weld(triangles, pos, connect) : result;
}

/// The bits of a matrix, so that NaN and the sign of zero count.
std::vector<std::uint64_t> bits_of(const dense2D<double>& m)
{
    std::vector<std::uint64_t> bits;
    for (unsigned c = 0; c < m.cols; ++c)
        for (unsigned r = 0; r < m.rows; ++r)
        {
            bits.emplace_back();
            std::memcpy(&bits.back(), m.column(c) + r, sizeof(double));
        }
    return bits;
}

void expect_as_reference(const char* name, const std::string& what)
{
    dense2D<double> pos;
    dense2D<double> expected_pos;
    dense2D<unsigned> connect;
    dense2D<unsigned> expected_connect;
    const int expected = reference_input(name, expected_pos, expected_connect);
    ASSERT_EQ(STL_input(name, pos, connect), expected) << what;
    ASSERT_EQ(bits_of(pos), bits_of(expected_pos)) << what;
    ASSERT_EQ(columns(connect), columns(expected_connect)) << what;
    ASSERT_EQ(pos.rows, expected == 0 ? 3u : 0u) << what;
    ASSERT_EQ(connect.rows, expected == 0 ? 3u : 0u) << what;
}

// Files.

std::string number(double value, const char* format = "%le")
{
    char text[512];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string facet_text(const std::array<point, 3>& corners, const char* format = "%le")
{
    std::string text = "   facet normal 0 0 1\n      outer loop\n";
    for (const point& x : corners)
        text += "         vertex " + number(x[0], format) + " " + number(x[1], format) + " " + number(x[2], format) + "\n";
    return text + "      endloop\n   endfacet\n";
}

std::string text_file(const soup& triangles, const char* format = "%le")
{
    std::string text = "solid test\n";
    for (const auto& corners : triangles) text += facet_text(corners, format);
    return text + "endsolid test\n";
}

std::string binary_file(const soup& triangles, std::int32_t count)
{
    std::string bytes(80, 'h');
    const auto put = [&](const void* field, std::size_t size) { bytes.append(static_cast<const char*>(field), size); };
    put(&count, 4);
    for (const auto& corners : triangles)
    {
        const float normal[3] = {0, 0, 1};
        put(normal, sizeof normal);
        for (const point& x : corners)
            for (const double value : x)
            {
                const auto narrow = static_cast<float>(value);
                put(&narrow, 4);
            }
        put("ab", 2);
    }
    return bytes;
}

std::string binary_file(const soup& triangles)
{
    return binary_file(triangles, static_cast<std::int32_t>(triangles.size()));
}

soup square()
{
    return {{{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}}, {{{0, 0, 0}, {1, 1, 0}, {0, 1, 0}}}};
}

/// Triangles between points of an integer lattice, so with many equal corners, equal distances and triangles without area.
soup lattice_soup(std::size_t count, unsigned size, std::uint32_t seed)
{
    test::random_source random(seed);
    soup triangles(count);
    for (auto& corners : triangles)
    {
        const point base{static_cast<double>(random.below(size)), static_cast<double>(random.below(size)),
                         static_cast<double>(random.below(size))};
        for (point& x : corners)
            for (std::size_t k = 0; k < 3; ++k) x[k] = base[k] + random.below(3);
    }
    return triangles;
}

/// Well shaped triangles whose corners miss the lattice by less than the tolerance, at many equal distances from each other. Each stands
/// there several times.
soup jittered_soup(std::size_t count, unsigned size, std::uint32_t seed)
{
    test::random_source random(seed);
    soup distinct(count / 8);
    for (auto& corners : distinct)
    {
        point base{};
        for (double& x : base) x = random.below(size);
        const std::size_t axis = random.below(3);
        corners = {base, base, base};
        corners[1][axis] += 1;
        corners[2][(axis + 1) % 3] += 1;
        for (point& x : corners)
            for (double& value : x) value += (static_cast<int>(random.below(3)) - 1) / 64.0;
    }
    soup triangles(count);
    for (auto& corners : triangles) corners = distinct[random.below(static_cast<unsigned>(distinct.size()))];
    return triangles;
}

struct surface
{
    int result = 0;
    dense2D<double> pos;
    dense2D<unsigned> connect;
};

surface read(std::string_view content)
{
    const test::temporary_file file(content, ".stl");
    surface got;
    const unsigned handles = open_handles();
    got.result = STL_input(file.name(), got.pos, got.connect);
    EXPECT_EQ(open_handles(), handles);
    return got;
}

using ids = std::vector<std::vector<unsigned>>;

TEST(StlInput, WeldsTextIntoAMesh)
{
    const surface got = read(text_file(square()));
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(columns(got.pos), (std::vector<std::vector<double>>{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}));
    EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {0, 2, 3}}));
}

TEST(StlInput, WeldsBinaryIntoAMesh)
{
    const surface got = read(binary_file(square()));
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(columns(got.pos), (std::vector<std::vector<double>>{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}}));
    EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {0, 2, 3}}));
}

TEST(StlInput, ReplacesItsOutputs)
{
    const test::temporary_file file(text_file(square()), ".stl");
    dense2D<double> pos = test::non_dense(points_of({{1, 2, 3, 4}, {5, 6, 7, 8}}), 0.0);
    dense2D<unsigned> connect(8, 5, 7u);
    EXPECT_EQ(STL_input(file.name(), pos, connect), 0);
    EXPECT_EQ(pos.rows, 3u);
    EXPECT_EQ(pos.cols, 4u);
    EXPECT_EQ(columns(connect), (ids{{0, 1, 2}, {0, 2, 3}}));
    EXPECT_EQ(STL_input("/no such folder/a.stl", pos, connect), -1);
    EXPECT_EQ(pos.rows, 0u);
    EXPECT_EQ(connect.cols, 0u);
    EXPECT_EQ(STL_input(nullptr, pos, connect), -1);
}

TEST(StlInput, JoinsSeveralSolids)
{
    std::string text;
    for (const auto& corners : square()) text += text_file({corners});
    const surface got = read(text);
    EXPECT_EQ(got.result, 0);
    EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {0, 2, 3}}));
}

TEST(StlInput, TakesAFacetBehindEndsolidAndRefusesABlankLineThere)
{
    const soup s = square();
    EXPECT_EQ(read("solid a\n" + facet_text(s[0]) + "endsolid a\n" + facet_text(s[1]) + "endsolid\n").connect.cols, 2u);
    EXPECT_EQ(read("solid a\n" + facet_text(s[0]) + "endsolid a\n\n").result, -3);
    EXPECT_EQ(read("solid a\nendsolid a\n\n").result, -2); // too short for a binary header
}

TEST(StlInput, SkipsLinesWithColor)
{
    const soup s = square();
    EXPECT_EQ(read("solid a\nCOLOR 1 2 3\n" + facet_text(s[0]) + " some color\n" + facet_text(s[1]) + "endsolid a\n").connect.cols, 2u);
    // A facet line is skipped with it, and what follows is then no facet.
    EXPECT_EQ(read("solid a\nfacet normal 0 0 1 color\nouter loop\n" + facet_text(s[0]) + "endsolid a\n").result, -3);
}

TEST(StlInput, MatchesKeywordsInAnyCaseAndAnywhereInALine)
{
    std::string upper = text_file(square());
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_EQ(read(upper).connect.cols, 2u);
    EXPECT_EQ(read("xsolidx\nFacet\tNormal 0 0 1\n  an outer loop here\nvertex0 0 0\nVERTEX 1 0 0 and more\n vertex 0 1 0\nxendloopx\n"
                   "the endfacet\nthe endsolid\n")
                  .connect.cols,
              1u);
}

TEST(StlInput, TakesCarriageReturns)
{
    std::string text;
    for (const char c : text_file(square()))
    {
        if (c == '\n') text += '\r';
        text += c;
    }
    EXPECT_EQ(columns(read(text).connect), (ids{{0, 1, 2}, {0, 2, 3}}));
}

TEST(StlInput, CutsLinesAtTheBuffer)
{
    const auto file = [](std::size_t name_length) {
        std::string text = "solid ";
        text.append(name_length, 'n');
        text += '\n';
        for (const auto& corners : square()) text += facet_text(corners);
        return text + "endsolid\n";
    };
    EXPECT_EQ(read(file(248)).result, 0);  // 254 characters and the line end
    EXPECT_EQ(read(file(249)).result, -3); // the line end is a line of its own
    // Blanks behind the numbers up to the same limit.
    const auto padded = [](std::size_t blanks) {
        std::string text = "solid\nfacet normal 0 0 1";
        text.append(blanks, ' ');
        text += "\nouter loop\nvertex 0 0 0\nvertex 1 0 0\nvertex 0 1 0\nendloop\nendfacet\nendsolid\n";
        return text;
    };
    EXPECT_EQ(read(padded(254 - 18)).result, 0);
    EXPECT_EQ(read(padded(255 - 18)).result, -3);
}

TEST(StlInput, FallsBackToBinaryWhereTextFails)
{
    std::string file = binary_file(square());
    std::memcpy(file.data(), "solid but binary", 16);
    EXPECT_EQ(columns(read(file).connect), (ids{{0, 1, 2}, {0, 2, 3}}));
    std::memcpy(file.data(), "solid\nfacet normal", 18);
    EXPECT_EQ(columns(read(file).connect), (ids{{0, 1, 2}, {0, 2, 3}}));
}

TEST(StlInput, TellsTruncatedAndMalformedFiles)
{
    EXPECT_EQ(read("").result, -2);
    EXPECT_EQ(read("solid").result, -2);
    EXPECT_EQ(read("no text\n").result, -2);
    EXPECT_EQ(read(std::string(79, 'x')).result, -2);
    EXPECT_EQ(read(std::string(80, 'x')).result, -3);
    EXPECT_EQ(read(std::string(83, 'x')).result, -3);
    EXPECT_EQ(read("solid a\n" + facet_text(square()[0])).result, -3); // no endsolid: long enough for a binary header
    EXPECT_EQ(read("solid a\nfacet normal 0 0 1\n").result, -2);       // too short for one
    for (const char* const line : {"facet normal 0 0\n", "facet 0 0 1\n", "vertex 0 0 1\n", "\n", "facet normal x 0 1\n"})
        EXPECT_EQ(read("solid a\n" + std::string(line) + text_file(square()).substr(11)).result, -3) << line;
}

TEST(StlInput, KeepsNothingOfAFailedRead)
{
    const surface text = read("solid a\n" + facet_text(square()[0]));
    EXPECT_EQ(text.pos.rows, 0u);
    EXPECT_EQ(text.pos.cols, 0u);
    EXPECT_EQ(text.connect.cols, 0u);
    const surface binary = read(binary_file(square(), 3));
    EXPECT_EQ(binary.result, -3);
    EXPECT_EQ(binary.pos.cols, 0u);
    EXPECT_EQ(binary.connect.cols, 0u);
}

TEST(StlInput, TrustsACountOnlyAsFarAsTheFileGoes)
{
    EXPECT_EQ(read(binary_file(square(), std::numeric_limits<std::int32_t>::max())).result, -3);
    EXPECT_EQ(read(binary_file(square(), 1)).connect.cols, 1u); // what follows is ignored
    EXPECT_EQ(read(binary_file(square()) + "tail").connect.cols, 2u);
    const surface negative = read(binary_file(square(), -1));
    EXPECT_EQ(negative.result, 0);
    EXPECT_EQ(negative.pos.cols, 0u);
    EXPECT_EQ(negative.connect.cols, 0u);
    EXPECT_EQ(negative.pos.rows, 3u);
    EXPECT_EQ(negative.connect.rows, 3u);
}

TEST(StlInput, ReturnsASoupWithoutAreaAsItIs)
{
    const soup lines{{{{0, 0, 0}, {1, 0, 0}, {2, 0, 0}}}, {{{0, 0, 0}, {-0.0, 0, 0}, {0, 0, 0}}}};
    for (const std::string& file : {text_file(lines), binary_file(lines)})
    {
        const surface got = read(file);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(got.pos.cols, 6u);
        EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {3, 4, 5}}));
        EXPECT_TRUE(std::signbit(got.pos(0, 4)));
    }
    EXPECT_EQ(read("solid a\nendsolid a\n").result, 0);
}

TEST(StlInput, RemovesTrianglesThatTheWeldingCollapses)
{
    soup s = square();
    s.push_back({{{0, 0, 0}, {0, 0, 0}, {1, 0, 0}}});   // two equal corners
    s.push_back({{{5, 5, 5}, {5, 5, 5}, {5, 5, 5}}});   // its node goes too
    s.push_back({{{0, 0, 0}, {0.5, 0, 0}, {1, 0, 0}}}); // collinear, but farther apart than the tolerance
    const surface got = read(text_file(s));
    EXPECT_EQ(got.pos.cols, 5u);
    EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {0, 2, 3}, {0, 4, 1}}));
}

TEST(StlInput, JoinsPointsWithinFivePercentOfTheSmallestAltitude)
{
    const double height = std::sqrt(0.5); // of either triangle of the square
    const auto nodes_with = [&](double gap, const soup& more = {}) {
        soup s = square();
        s[1][0][0] = gap;
        s.insert(s.end(), more.begin(), more.end());
        return read(text_file(s, "%.17g")).pos.cols;
    };
    EXPECT_EQ(nodes_with(0.0499 * height), 4u);
    EXPECT_EQ(nodes_with(0.0501 * height), 5u);
    // A single sliver tightens the tolerance for all.
    EXPECT_EQ(nodes_with(0.0499 * height, {{{{9, 0, 0}, {19, 0, 0}, {14, 0.1, 0}}}}), 5u + 3u);
}

TEST(StlInput, TakesCoordinatesThatAreNotFinite)
{
    soup s = square();
    s.push_back({{{not_a_number, 0, 0}, {1, 0, 0}, {1, 1, 0}}});
    s.push_back({{{infinity, 0, 0}, {infinity, 0, 0}, {1, 1, 0}}});
    s.push_back({{{0, 0, 0}, {1, 1, 0}, {0, 1, 0}}});
    for (const std::string& content : {text_file(s), binary_file(s)})
    {
        const test::temporary_file file(content, ".stl");
        expect_as_reference(file.name(), "not finite");
    }
}

TEST(StlInput, NumbersTheCornersOfASliceWithNothingToWeld)
{
    // NaN keeps it from hashing, and the tree finds no pair.
    const soup s{{{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}}, {{{9, not_a_number, 9}, {8, 9, 9}, {9, 8, 9}}}};
    for (const std::string& content : {text_file(s), binary_file(s)})
    {
        const surface got = read(content);
        EXPECT_EQ(got.result, 0);
        EXPECT_EQ(columns(got.connect), (ids{{0, 1, 2}, {3, 4, 5}}));
        ASSERT_EQ(got.pos.cols, 6u);
        EXPECT_EQ(got.pos(1, 2), 1.0);
        EXPECT_TRUE(std::isnan(got.pos(1, 3)));
        EXPECT_EQ(got.pos(0, 4), 8.0);
    }
}

TEST(StlInput, WeldsAcrossSlices)
{
    // More than a slice of 100,000 triangles; in the second file it cannot be welded by hashing, and is over before the
    // first positive altitude.
    soup s = jittered_soup(110000, 20, 1);
    const test::temporary_file file(".stl");
    file.write(binary_file(s));
    expect_as_reference(file.name(), "finite");

    for (std::size_t t = 1000; t < 1010; ++t) s[t][1][2] = not_a_number;
    s[105000][0][0] = infinity;
    for (std::size_t t = 0; t < 101000; ++t) s[t][2] = s[t][1];
    file.write(binary_file(s));
    expect_as_reference(file.name(), "not finite");
}

TEST(StlInput, ReadsManyNumberFormatsToTheSameBits)
{
    test::random_source random(3);
    for (const char* const format : {"%le", "%.17g", "%lf", "%lg", "%.3le", "%.25le", "%+.9E", "%a"})
    {
        soup s(50);
        for (auto& corners : s)
            for (point& x : corners)
                for (double& value : x) value = std::ldexp(random.between(-1, 1), static_cast<int>(random.below(80)) - 40);
        const test::temporary_file file(text_file(s, format), ".stl");
        expect_as_reference(file.name(), format);
    }
}

TEST(StlInput, FollowsTheLocaleOfTheCLibrary)
{
    const test::temporary_file file(text_file(square(), "%.3f"), ".stl");
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    expect_as_reference(file.name(), "points in a locale of commas");
    file.write(text_file(square(), "%.3f"));
    expect_as_reference(file.name(), "commas in a locale of commas");
}

TEST(StlInput, ReadsMutatedTextAsTheReferenceDoes)
{
    const std::string fragments[] = {"solid",      "endsolid",
                                     "color",      "facet normal 0 0 1",
                                     "outer loop", "vertex 1 2 3",
                                     "endloop",    "endfacet",
                                     "\n",         "\r\n",
                                     "\t",         " ",
                                     "1e",         "0x1p3",
                                     "nan",        "inf",
                                     "1e999",      "-",
                                     "+",          ".",
                                     "e5",         "VERTEX",
                                     "\xFF\xC3",   "\v",
                                     "endsolid\n", "solid\n",
                                     "\n\n"};
    std::mt19937 engine(4);
    const test::temporary_file file(".stl");
    for (unsigned round = 0; round < 3000; ++round)
    {
        const soup s = lattice_soup(2 + engine() % 6, 3, static_cast<std::uint32_t>(engine()));
        std::string text = text_file(s, round % 3 ? "%le" : "%g");
        if (engine() % 4 == 0) text += text_file(s);
        for (unsigned mutations = engine() % 4; mutations > 0; --mutations)
        {
            const std::size_t place = engine() % text.size();
            switch (engine() % 6)
            {
            case 0: text[place] = static_cast<char>(engine()); break;
            case 1: text.erase(place, 1 + engine() % 12); break;
            case 2: text.insert(place, fragments[engine() % std::size(fragments)]); break;
            case 3: text.insert(place, std::string(1 + engine() % 300, " x\n"[engine() % 3])); break;
            case 4: text.resize(place); break;
            default: text.insert(place, 1, '\0'); break;
            }
            if (text.empty()) text.push_back('s');
        }
        file.write(text);
        expect_as_reference(file.name(), text);
        if (HasFatalFailure()) return;
    }
}

TEST(StlInput, ReadsTruncatedFilesAsTheReferenceDoes)
{
    const soup s = lattice_soup(20, 3, 5);
    const test::temporary_file file(".stl");
    for (const std::string& content : {text_file(s), binary_file(s)})
        for (std::size_t length = 0; length < content.size(); ++length)
        {
            if (length > 1024 && content.size() - length > 1024) continue;
            file.write(content.substr(0, length));
            expect_as_reference(file.name(), "truncated to " + std::to_string(length));
            if (HasFatalFailure()) return;
        }
}

TEST(StlInput, ReadsAcrossTheReadersWindow)
{
    // Long enough that every part of a facet stands across a window's end somewhere.
    const soup s = lattice_soup(6000, 20, 6);
    const test::temporary_file file(text_file(s), ".stl");
    expect_as_reference(file.name(), "long text");
    file.write(binary_file(s));
    expect_as_reference(file.name(), "long binary");
}

TEST(StlInput, GivesOutOfMemoryAndLeaksNothing)
{
    const soup s = lattice_soup(3000, 10, 7);
    for (const std::string& content : {text_file(s), binary_file(s), text_file({})})
    {
        const test::temporary_file file(content, ".stl");
        surface expected;
        ASSERT_EQ(STL_input(file.name(), expected.pos, expected.connect), 0);
        const long before = test::live_allocations();
        const unsigned handles = open_handles();
        bool failed = true;
        for (unsigned n = 1; failed; ++n)
        {
            ASSERT_LT(n, 1000u);
            {
                surface got;
                const test::failing_allocation failing(n);
                got.result = STL_input(file.name(), got.pos, got.connect);
                failed = failing.has_failed();
                if (got.result != 0)
                {
                    ASSERT_EQ(got.result, out_of_memory);
                    ASSERT_EQ(got.pos.cols, 0u);
                    ASSERT_EQ(got.connect.cols, 0u);
                }
                else if (!failed) { ASSERT_EQ(columns(got.connect), columns(expected.connect)); }
            }
            ASSERT_EQ(test::live_allocations(), before);
            ASSERT_EQ(open_handles(), handles);
        }
    }
}

TEST(StlOutput, WritesText)
{
    const test::temporary_file file(".stl");
    const unsigned handles = open_handles();
    EXPECT_EQ(STL_output(file.name(), points_of({{0, 0, 0}, {2, 0, 0}, {0, -3, 0}}), elements_of({{0, 1, 2}, {1, 1, 1}}), true), 0);
    EXPECT_EQ(open_handles(), handles);
    EXPECT_EQ(file.content(), "solid TQ4\n"
                              "   facet normal 0.000000e+00 0.000000e+00 -1.000000e+00\n"
                              "      outer loop\n"
                              "         vertex 0.000000e+00 0.000000e+00 0.000000e+00\n"
                              "         vertex 2.000000e+00 0.000000e+00 0.000000e+00\n"
                              "         vertex 0.000000e+00 -3.000000e+00 0.000000e+00\n"
                              "      endloop\n"
                              "   endfacet\n"
                              "   facet normal 0.000000e+00 0.000000e+00 0.000000e+00\n"
                              "      outer loop\n"
                              "         vertex 2.000000e+00 0.000000e+00 0.000000e+00\n"
                              "         vertex 2.000000e+00 0.000000e+00 0.000000e+00\n"
                              "         vertex 2.000000e+00 0.000000e+00 0.000000e+00\n"
                              "      endloop\n"
                              "   endfacet\n"
                              "endsolid TQ4\n");
}

TEST(StlOutput, WritesBinary)
{
    const test::temporary_file file(".stl");
    EXPECT_EQ(STL_output(file.name(), points_of({{0, 0, 0}, {2, 0, 0}, {0, 0.1, 0}}), elements_of({{0, 1, 2}}), false), 0);
    std::string expected = "TQ4 STL Binary";
    expected.resize(80, '\0');
    const std::uint32_t count = 1;
    const float fields[12] = {0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 0.1f, 0};
    expected.append(reinterpret_cast<const char*>(&count), 4);
    expected.append(reinterpret_cast<const char*>(fields), sizeof fields);
    expected.append(2, '\0');
    EXPECT_EQ(file.content(), expected);
}

TEST(StlOutput, TakesTheNormalFromShortSides)
{
    // The two products differ in their last bits only; the reference says which one is taken.
    test::random_source random(8);
    const test::temporary_file file(".stl");
    for (unsigned round = 0; round < 300; ++round)
    {
        dense2D<double> pos(3, 3);
        for (unsigned k = 0; k < 9; ++k) pos.data()[k] = std::ldexp(random.between(-1, 1), static_cast<int>(random.below(6)));
        ASSERT_EQ(STL_output(file.name(), pos, elements_of({{0, 1, 2}}), true), 0);
        const auto difference = [&](unsigned from, unsigned to) {
            return point{pos(0, to) - pos(0, from), pos(1, to) - pos(1, from), pos(2, to) - pos(2, from)};
        };
        const auto squared = [](const point& x) { return x[0] * x[0] + x[1] * x[1] + x[2] * x[2]; };
        const point a = difference(2, 0);
        const point b = difference(2, 1);
        const point e = difference(0, 1);
        const point& second = squared(e) <= std::min(squared(a), squared(b)) ? e : b;
        point n{a[1] * second[2] - a[2] * second[1], a[2] * second[0] - a[0] * second[2], a[0] * second[1] - a[1] * second[0]};
        const double length2 = squared(n);
        if (length2 != 0 && length2 != 1)
            for (double& x : n) x /= std::sqrt(length2);
        const std::string line = "   facet normal " + number(n[0]) + " " + number(n[1]) + " " + number(n[2]) + "\n";
        ASSERT_NE(file.content().find(line), std::string::npos) << file.content() << line;
    }
}

TEST(StlOutput, LeavesAUnitNormalUntouched)
{
    const test::temporary_file file(".stl");
    EXPECT_EQ(STL_output(file.name(), points_of({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}), elements_of({{0, 1, 2}}), true), 0);
    EXPECT_NE(file.content().find("facet normal -0.000000e+00 0.000000e+00 1.000000e+00\n"), std::string::npos);
}

TEST(StlOutput, TakesTheThirdCoordinateOfTwoRowsFromTheStorage)
{
    const test::temporary_file file(".stl");
    // Behind the last node the storage ends, and 0 is taken.
    double coordinates[] = {1, 2, 3, 4, 5, 6};
    const auto pos = dense2D<double>::wrap(coordinates, 2, 3);
    EXPECT_EQ(STL_output(file.name(), pos, elements_of({{0, 1, 2}}), true), 0);
    EXPECT_NE(file.content().find("vertex 1.000000e+00 2.000000e+00 3.000000e+00\n"
                                  "         vertex 3.000000e+00 4.000000e+00 5.000000e+00\n"
                                  "         vertex 5.000000e+00 6.000000e+00 0.000000e+00\n"),
              std::string::npos)
        << file.content();
}

TEST(StlOutput, WritesASurfaceWithoutTriangles)
{
    const test::temporary_file file(".stl");
    for (const auto& connect : {dense2D<unsigned>(), dense2D<unsigned>(0, 4), dense2D<unsigned>(7, 0)})
    {
        EXPECT_EQ(STL_output(file.name(), dense2D<double>(3, 0), connect, true), 0);
        EXPECT_EQ(file.content(), "solid TQ4\nendsolid TQ4\n");
        EXPECT_EQ(STL_output(file.name(), dense2D<double>(3, 0), connect, false), 0);
        EXPECT_EQ(file.content().size(), 84u);
        EXPECT_EQ(file.content()[80], '\0');
    }
}

TEST(StlOutput, LeavesAnEmptyFileAndItsHandleAfterAFailedTest)
{
    for (const bool text : {true, false})
    {
        const auto expect = [&](int code, const dense2D<double>& pos, const dense2D<unsigned>& connect) {
            const test::temporary_file file("former content", ".stl");
            const unsigned handles = open_handles();
            EXPECT_EQ(STL_output(file.name(), pos, connect, text), code);
            EXPECT_TRUE(file.exists());
            EXPECT_EQ(file.content(), "");
            EXPECT_EQ(open_handles(), handles + 1);
        };
        expect(-2, dense2D<double>(4, 3, 0.0), elements_of({{0, 1, 2, 3}}));
        expect(-2, dense2D<double>(1, 3, 0.0), elements_of({{0, 1, 2}}));
        expect(-3, dense2D<double>(3, 4, 0.0), elements_of({{0, 1, 2, 3}}));
        expect(-3, dense2D<double>(3, 3, 0.0), elements_of({{0, 1, 3}}));
        expect(-3, dense2D<double>(3, 3, 0.0), elements_of({{0, 1, none_index}}));
        EXPECT_EQ(STL_output("/no such folder/a.stl", dense2D<double>(4, 3, 0.0), dense2D<unsigned>(), text), -1);
        EXPECT_EQ(STL_output(nullptr, dense2D<double>(3, 3, 0.0), dense2D<unsigned>(), text), -1);
    }
}

TEST(StlOutput, TellsOfAFullDevice)
{
    if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no device that is always full";
    const unsigned handles = open_handles();
    const auto mesh = test::grid_of_triangles(100, 3);
    for (const bool text : {true, false})
    {
        EXPECT_EQ(STL_output("/dev/full", mesh.pos, elements_of({{0, 1, 2}}), text), -1);
        EXPECT_EQ(STL_output("/dev/full", mesh.pos, mesh.connectivity, text), -1);
    }
    EXPECT_EQ(open_handles(), handles);
}

TEST(StlOutput, ComesBackThroughTheReader)
{
    const auto mesh = test::shuffled(test::grid_of_triangles(20, 3), 9);
    const test::temporary_file file(".stl");
    for (const bool text : {true, false})
    {
        ASSERT_EQ(STL_output(file.name(), test::non_dense(mesh.pos, 7.0), test::non_dense(mesh.connectivity, 3u), text), 0);
        surface got;
        ASSERT_EQ(STL_input(file.name(), got.pos, got.connect), 0);
        EXPECT_EQ(got.pos.cols, mesh.pos.cols);
        ASSERT_EQ(got.connect.cols, mesh.connectivity.cols);
        for (unsigned c = 0; c < got.connect.cols; ++c)
            for (unsigned k = 0; k < 3; ++k)
                for (unsigned r = 0; r < 3; ++r) ASSERT_NEAR(got.pos(r, got.connect(k, c)), mesh.pos(r, mesh.connectivity(k, c)), 1e-6);
    }
}

TEST(StlOutput, NeedsNoMemory)
{
    const auto mesh = test::grid_of_triangles(5, 3);
    const test::temporary_file file(".stl");
    ASSERT_EQ(STL_output(file.name(), mesh.pos, mesh.connectivity, true), 0);
    const std::string expected = file.content();
    const test::failing_allocation failing(1);
    EXPECT_EQ(STL_output(file.name(), mesh.pos, mesh.connectivity, true), 0);
    EXPECT_EQ(file.content(), expected);
}

TEST(StlOutput, FollowsTheLocaleOfTheCLibrary)
{
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    const test::temporary_file file(".stl");
    EXPECT_EQ(STL_output(file.name(), points_of({{0, 0, 0.5}, {2, 0, 0.5}, {0, -3, 0.5}}), elements_of({{0, 1, 2}}), true), 0);
    EXPECT_EQ(file.content(), "solid TQ4\n"
                              "   facet normal 0,000000e+00 0,000000e+00 -1,000000e+00\n"
                              "      outer loop\n"
                              "         vertex 0,000000e+00 0,000000e+00 5,000000e-01\n"
                              "         vertex 2,000000e+00 0,000000e+00 5,000000e-01\n"
                              "         vertex 0,000000e+00 -3,000000e+00 5,000000e-01\n"
                              "      endloop\n"
                              "   endfacet\n"
                              "endsolid TQ4\n");
}

TEST(StlInput, KeepsItsResultWhereATableOfPointsFindsNoMemory)
{
    // More distinct corners than the first table of points holds, corners that no table takes, and triangles without area.
    soup spread(4000), infinite(2000), flat(2000);
    test::random_source random(11);
    for (auto& corners : spread)
        for (point& x : corners)
            for (double& c : x) c = static_cast<float>(random.between(0, 1000));
    infinite.front() = {point{0, 0, 0}, point{1, 0, 0}, point{0, 1, 0}};
    for (std::size_t t = 1; t < infinite.size(); ++t)
        infinite[t] = {point{0, 0, 0}, point{1, 0, 0}, point{infinity, 1.0 * static_cast<double>(t), 0}};
    for (std::size_t t = 0; t < flat.size(); ++t) flat[t] = {point{0, 0, 0}, point{1, 0, 0}, point{1.0 * static_cast<double>(t), 0, 0}};
    for (const soup& s : {spread, infinite, flat})
    {
        const test::temporary_file file(binary_file(s), ".stl");
        surface whole;
        ASSERT_EQ(STL_input(file.name(), whole.pos, whole.connect), 0);
        unsigned made_good = 0;
        for (const bool only_once : {false, true})
            for (unsigned n = 1;; ++n)
            {
                ASSERT_LT(n, 200u);
                surface got;
                bool failed = false;
                {
                    const test::failing_allocation failing(n, only_once);
                    got.result = STL_input(file.name(), got.pos, got.connect);
                    failed = failing.has_failed();
                }
                if (got.result == 0)
                {
                    ASSERT_EQ(columns(got.pos), columns(whole.pos)) << n;
                    ASSERT_EQ(columns(got.connect), columns(whole.connect)) << n;
                    made_good += failed;
                }
                else
                {
                    ASSERT_EQ(got.result, out_of_memory) << n;
                    ASSERT_EQ(got.pos.cols, 0u);
                    ASSERT_EQ(got.connect.cols, 0u);
                }
                if (!failed) break;
            }
        EXPECT_GT(made_good, 0u);
    }
}

TEST(StlInput, TakesLettersAsTheLocaleOfTheCLibraryDoes)
{
    const std::string lower = text_file(square());
    std::string upper = lower;
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const test::turkish_locale turkish;
    if (!turkish.found()) GTEST_SKIP() << "no Turkish locale on this machine";
    const auto result_of = [](const std::string& text) {
        const test::temporary_file file(text, ".stl");
        expect_as_reference(file.name(), text);
        surface s;
        return STL_input(file.name(), s.pos, s.connect);
    };
    EXPECT_EQ(result_of(lower), 0);
    // The word that begins the file has an I, so a file in capitals is no text there, and too short for its count as a binary one.
    EXPECT_EQ(result_of(upper), -3);
    const std::size_t second_line = upper.find('\n');
    const std::size_t last_line = upper.rfind("ENDSOLID");
    EXPECT_EQ(result_of("solid\n" + upper.substr(second_line + 1)), -3);
    EXPECT_EQ(result_of("solid\n" + upper.substr(second_line + 1, last_line - second_line - 1) + "endsolid\n"), 0);
}

} // namespace
