#include <climits>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

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
using test::temporary_file;

constexpr unsigned none = none_index;

using reals = std::vector<std::vector<double>>;
using faces = std::vector<std::vector<unsigned>>;

struct surface
{
    dense2D<double> pos;
    dense2D<double> normals;
    dense2D<double> texcoords;
    dense2D<unsigned> triangles;
    dense2D<unsigned> quadrangles;

    int read(const char* file) { return WavefrontOBJ_input(file, pos, normals, texcoords, triangles, quadrangles); }

    int read_text(std::string_view text)
    {
        const temporary_file file(text, ".obj");
        return read(file.name());
    }
};

// What the reader does, told with stream objects.

struct plain_surface
{
    reals pos, normals, texcoords;
    faces triangles, quadrangles;
    bool met_vt = false, met_vn = false;
};

int plain_doubles(std::istringstream& line, std::vector<double>& numbers)
{
    std::string rest;
    if (!std::getline(line, rest)) return -2;
    std::istringstream in(rest);
    for (double value; in >> value;) numbers.push_back(value);
    return 0;
}

int plain_index(std::istringstream& in, std::vector<int>& indices)
{
    char c;
    if (!in.get(c) || c == '/') return 0;
    in.putback(c);
    int value;
    if (!(in >> value)) return 0;
    indices.push_back(value);
    if (!in.get(c) || c == '/') return 0;
    return -2;
}

int plain_read(const char* file, plain_surface& s)
{
    std::ifstream in(file);
    if (!in) return -1;
    int status = 0;
    while (status == 0 && in.good())
    {
        std::string text;
        if (!std::getline(in, text)) break;
        std::istringstream line(text);
        std::string token;
        if (!(line >> token)) continue;
        std::vector<double> numbers;
        if (token == "v" || token == "vt" || token == "vn")
        {
            status = plain_doubles(line, numbers);
            if (status != 0) break;
        }
        if (token == "v")
        {
            if (numbers.size() < 3)
                status = -2;
            else
                s.pos.push_back({numbers[0], numbers[1], numbers[2]});
        }
        else if (token == "vt")
        {
            if (numbers.size() > 3)
                status = -2;
            else
            {
                s.met_vt = true;
                if (!numbers.empty() && (s.texcoords.empty() || s.texcoords[0].size() == numbers.size())) s.texcoords.push_back(numbers);
            }
        }
        else if (token == "vn")
        {
            if (numbers.size() != 3)
                status = -2;
            else
            {
                s.met_vn = true;
                s.normals.push_back(numbers);
            }
        }
        else if (token == "f")
        {
            std::string rest;
            if (!std::getline(line, rest))
            {
                status = -2;
                break;
            }
            std::istringstream corners(rest);
            std::vector<int> nodes, textures, normals;
            for (std::string corner; status == 0 && corners >> corner;)
            {
                std::istringstream parts(corner);
                status = plain_index(parts, nodes);
                if (status == 0) status = plain_index(parts, textures);
                if (status == 0) status = plain_index(parts, normals);
            }
            if (status != 0) break;
            if ((!textures.empty() && !s.met_vt) || (!normals.empty() && !s.met_vn))
            {
                status = -2;
                break;
            }
            if (!in.good()) continue;
            std::vector<unsigned> face;
            for (const int i : nodes) face.push_back(i == 0 ? static_cast<unsigned>(s.pos.size()) : static_cast<unsigned>(i) - 1);
            if (face.size() == 3) s.triangles.push_back(face);
            if (face.size() == 4) s.quadrangles.push_back(face);
        }
    }
    return status;
}

/// Bits, so that NaN and signs of zero are compared too.
std::vector<std::vector<std::uint64_t>> bits(const reals& values)
{
    std::vector<std::vector<std::uint64_t>> all;
    for (const auto& column : values)
    {
        all.emplace_back();
        for (const double value : column)
        {
            std::uint64_t pattern = 0;
            std::memcpy(&pattern, &value, sizeof pattern);
            all.back().push_back(pattern);
        }
    }
    return all;
}

void expect_as_told(std::string_view text)
{
    const temporary_file file(text, ".obj");
    plain_surface told;
    const int status = plain_read(file.name(), told);
    surface got;
    ASSERT_EQ(got.read(file.name()), status) << text;
    ASSERT_EQ(bits(columns(got.pos)), bits(told.pos)) << text;
    ASSERT_EQ(bits(columns(got.normals)), bits(told.normals)) << text;
    ASSERT_EQ(bits(columns(got.texcoords)), bits(told.texcoords)) << text;
    ASSERT_EQ(columns(got.triangles), told.triangles) << text;
    ASSERT_EQ(columns(got.quadrangles), told.quadrangles) << text;
}

TEST(WavefrontInput, ReadsNodesTrianglesAndQuadrangles)
{
    surface s;
    ASSERT_EQ(s.read_text("# a comment\no thing\nv 0 0 0\nv 1 0 0\n v 1 1 0\nv 0 1 0.5\nvt 0 0\nvt 1 0\nvn 0 0 1\n"
                          "g part\nusemtl steel\nf 1 2 3\nf 1/1 2/2 3/1 4/2\nf 1//1 2//1 4//1\n"),
              0);
    EXPECT_EQ(columns(s.pos), (reals{{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0.5}}));
    EXPECT_EQ(columns(s.texcoords), (reals{{0, 0}, {1, 0}}));
    EXPECT_EQ(columns(s.normals), (reals{{0, 0, 1}}));
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}, {0, 1, 3}}));
    EXPECT_EQ(columns(s.quadrangles), (faces{{0, 1, 2, 3}}));
}

TEST(WavefrontInput, DropsPolygonsAndReadsOn)
{
    surface s;
    ASSERT_EQ(s.read_text("f 1 2 3 4 5\nf 1 2\nf 1\nf 1 2 3\n"), 0);
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}}));
    EXPECT_TRUE(s.quadrangles.empty());
}

TEST(WavefrontInput, KeepsWhatWasReadBeforeAMalformedRecord)
{
    surface s;
    EXPECT_EQ(s.read_text("v 1 2 3\nv 4 5\nv 6 7 8\n"), -2);
    EXPECT_EQ(columns(s.pos), (reals{{1, 2, 3}}));
    EXPECT_EQ(s.read_text("v 1 2 3 4\nv 4 5 6 7 8 9\n"), 0);
    EXPECT_EQ(columns(s.pos), (reals{{1, 2, 3}, {4, 5, 6}}));
}

TEST(WavefrontInput, RefusesWhatHasNothingBehindItsToken)
{
    for (const char* text :
         {"v\n", "vt\n", "vn\n", "f\n", "v", "f", "v 1 2\n", "vn 1 2\n", "vn 1 2 3 4\n", "vt 1 2 3 4\n", "v \n", "vn \n"})
        EXPECT_EQ(surface().read_text(text), -2) << text;
    // Blanks are something: a face without corners is dropped, texture coordinates without numbers are passed over.
    EXPECT_EQ(surface().read_text("f \n"), 0);
    EXPECT_EQ(surface().read_text("vt \nvt 1 2\n"), 0);
}

TEST(WavefrontInput, WantsTextureAndNormalRecordsBeforeTheFacesThatNameThem)
{
    surface s;
    EXPECT_EQ(s.read_text("f 1/1 2/2 3/3\nvt 0 0\n"), -2);
    EXPECT_EQ(s.read_text("f 1//1 2//2 3//3\nvn 0 0 1\n"), -2);
    EXPECT_EQ(s.read_text("vt 0 0\nf 1/1 2/2 3/3\nf 1/1/1 2 3\n"), -2);
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}}));
    // The same on a last line without an end, where the face itself would be lost.
    EXPECT_EQ(s.read_text("f 1/1 2/2 3/3"), -2);
}

TEST(WavefrontInput, LosesAFaceOnAnUnfinishedLastLine)
{
    surface s;
    EXPECT_EQ(s.read_text("v 0 0 0\nf 1 2 3\nf 2 3 4"), 0);
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}}));
    EXPECT_EQ(s.read_text("f 2 3 4\nv 1 2 3"), 0);
    EXPECT_EQ(columns(s.pos), (reals{{1, 2, 3}}));
}

TEST(WavefrontInput, ShiftsNodeNumbersWithoutCountingFromTheEnd)
{
    surface s;
    ASSERT_EQ(s.read_text("v 0 0 0\nv 1 0 0\nf 0 1 -1\nv 2 0 0\nf 0 -2 2147483647\n"), 0);
    EXPECT_EQ(columns(s.triangles), (faces{{2, 0, none - 1}, {3, none - 2, 2147483646}}));
}

TEST(WavefrontInput, CountsIndicesAndNotCorners)
{
    surface s;
    ASSERT_EQ(s.read_text("vt 0 0\nf /1 1 2 3\nf 1 2 x 3\nf 99999999999 1 2 3\n"), 0);
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}, {0, 1, 2}, {0, 1, 2}}));
    EXPECT_EQ(surface().read_text("f 1.5 2 3\n"), -2);
    EXPECT_EQ(surface().read_text("f 1 2 3x\n"), -2);
}

TEST(WavefrontInput, DropsTextureCoordinatesOfAnotherHeight)
{
    surface s;
    ASSERT_EQ(s.read_text("vt 1 2\nvt 3\nvt 4 5 6\nvt 7 8\n"), 0);
    EXPECT_EQ(columns(s.texcoords), (reals{{1, 2}, {7, 8}}));
}

TEST(WavefrontInput, ClearsItsResultsFirst)
{
    surface s;
    ASSERT_EQ(s.read_text("v 1 2 3\nvt 1 1\nvn 1 1 1\nf 1 1 1\nf 1 1 1 1\n"), 0);
    EXPECT_EQ(s.read("/nowhere/at/all.obj"), -1);
    EXPECT_TRUE(s.pos.empty() && s.normals.empty() && s.texcoords.empty() && s.triangles.empty() && s.quadrangles.empty());
    EXPECT_EQ(s.read(nullptr), -1);
    EXPECT_EQ(s.read_text(""), 0);
}

TEST(WavefrontInput, ReadsWhatStreamsRead)
{
    for (const char* text : {"v 1-2 3 4\n",
                             "v 1.5abc 2 3\n",
                             "v 1e5 -2.5E-3 +7\n",
                             "v .5 5. 0x10\n",
                             "v inf nan 1\n",
                             "v 1e999 1 1\n",
                             "v 1 1e999 1\n",
                             "v 1e-400 2 3\n",
                             "v 4.9e-324 2 3\n",
                             "v 1,5 2 3 4\n",
                             "v 1e 2 3\n",
                             "v 1\t2\v3\r\n",
                             "vt 1 2 x\n",
                             "vn 1 2 3 x\n",
                             "f 5//\n",
                             "vt 0 0\nvn 0 0 1\nf 1/2/3/4 2/3/4 5/6/7\n",
                             "f +1 -2 3\n",
                             "f 1- 2 3\n",
                             "f 007 08 9\n",
                             "f 0x1 2 3\n",
                             "vt 0 0\nf 1/1234567890 2 3\n",
                             "vt 0 0\nf 1/12345678901 2 3\n",
                             "f - 1 2 3\n",
                             "f //\n",
                             "vn 1 2 3\nf //1 1 2 3\n",
                             "f 1 2 3\r\n",
                             "F 1 2 3\nV 1\n",
                             "f1 2 3\n",
                             "v 179769313486231570000e300 1 2\n"})
        expect_as_told(text);
    using namespace std::string_literals;
    expect_as_told("v 1 2\0 3\n"s);
    expect_as_told("v\0 1 2 3\nf 1\0 2 3\n"s);
}

TEST(WavefrontInput, ReadsMutatedFilesAsStreamsDo)
{
    const std::string original = "# part\nv 0.125 -1.5e3 2\nv 1 0 0\nv 1.0000000001 1 0\nv 0 1 7\nvt 0 0.5\nvt 1 1\nvn 0 0 1\nvn 0 1 0\n"
                                 "f 1/1/1 2/2/2 3/1/1\nf 1 2 3 4\nf 1//1 2//2 3//1 4//2\nf 4/2 3/1 2/2\n";
    constexpr char alphabet[] = " \n\t\r/+-.0123456789eEvtnfx#";
    test::random_source random(7);
    for (unsigned round = 0; round < 4000; ++round)
    {
        std::string text = original;
        for (unsigned change = random.below(4) + 1; change-- > 0 && !text.empty();)
        {
            const unsigned at = random.below(static_cast<unsigned>(text.size()));
            const char c = alphabet[random.below(sizeof alphabet - 1)];
            switch (random.below(4))
            {
            case 0: text[at] = c; break;
            case 1: text.insert(at, 1, c); break;
            case 2: text.erase(at, 1); break;
            default: text.resize(at + 1);
            }
        }
        expect_as_told(text);
        if (HasFatalFailure()) return;
    }
}

TEST(WavefrontInput, FollowsTheGlobalLocale)
{
    const test::global_locale changed(std::locale(std::locale::classic(), new test::comma_punctuation));
    surface s;
    ASSERT_EQ(s.read_text("v 1,5 1.000 2\nf 1.000 2 3\n"), 0);
    EXPECT_EQ(columns(s.pos), (reals{{1.5, 1000, 2}}));
    EXPECT_EQ(columns(s.triangles), (faces{{999, 1, 2}}));
}

TEST(WavefrontOutput, WritesEveryRecordInItsOrder)
{
    const temporary_file file(".obj");
    const auto pos = points_of({{0, 0.5, -1}, {1, 0, 1e10}, {1, 1, 0}, {0, 1, 0}});
    const auto normals = points_of({{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 1}});
    const auto texcoords = points_of({{0, 0}, {1, 0}, {1, 1}, {0, 1}});
    const auto read_back = [&] {
        surface s;
        EXPECT_EQ(s.read(file.name()), 0);
        EXPECT_EQ(columns(s.pos), columns(pos));
        return s;
    };
    ASSERT_EQ(WavefrontOBJ_output(file.name(), pos, normals, texcoords, elements_of({{0, 1, 2}}), elements_of({{0, 1, 2, 3}})), 0);
    const std::string vertices = " v 0.00000000e+00 5.00000000e-01 -1.00000000e+00 \n"
                                 " v 1.00000000e+00 0.00000000e+00 1.00000000e+10 \n"
                                 " v 1.00000000e+00 1.00000000e+00 0.00000000e+00 \n"
                                 " v 0.00000000e+00 1.00000000e+00 0.00000000e+00 \n";
    const std::string textures = " vt 0.00000000e+00 0.00000000e+00 \n"
                                 " vt 1.00000000e+00 0.00000000e+00 \n"
                                 " vt 1.00000000e+00 1.00000000e+00 \n"
                                 " vt 0.00000000e+00 1.00000000e+00 \n";
    const std::string up = " vn 0.00000000e+00 0.00000000e+00 1.00000000e+00 \n";
    EXPECT_EQ(file.content(), vertices + textures + up + up + up + up + " f 1/1/1 2/2/2 3/3/3 \n f 1/1/1 2/2/2 3/3/3 4/4/4 \n");
    EXPECT_EQ(columns(read_back().quadrangles), (faces{{0, 1, 2, 3}}));

    const dense2D<double> no_values;
    const dense2D<unsigned> no_faces;
    ASSERT_EQ(WavefrontOBJ_output(file.name(), pos, normals, no_values, no_faces, elements_of({{0, 1, 2, 3}})), 0);
    EXPECT_EQ(file.content(), vertices + up + up + up + up + " f 1//1 2//2 3//3 4//4 \n");
    ASSERT_EQ(WavefrontOBJ_output(file.name(), pos, no_values, texcoords, elements_of({{0, 1, 2}}), no_faces), 0);
    EXPECT_EQ(file.content(), vertices + textures + " f 1/1/ 2/2/ 3/3/ \n");
    ASSERT_EQ(WavefrontOBJ_output(file.name(), pos, no_values, no_values, test::non_dense(elements_of({{4, 1, 2}}), 9u), no_faces), 0);
    EXPECT_EQ(file.content(), vertices + " f 5// 2// 3// \n");
    EXPECT_EQ(columns(read_back().triangles), (faces{{4, 1, 2}}));
}

TEST(WavefrontOutput, WritesZForNodesOfThePlane)
{
    const temporary_file file(".obj");
    ASSERT_EQ(WavefrontOBJ_output(file.name(), points_of({{1, 2}}), dense2D<unsigned>(), ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), " v 1.00000000e+00 2.00000000e+00 0.00000000e+00 \n");
}

TEST(WavefrontOutput, WritesHugeNodeNumbersAsTheyAre)
{
    const temporary_file file(".obj");
    ASSERT_EQ(WavefrontOBJ_output(file.name(), points_of({{0, 0, 0}}), elements_of({{none - 1, 0x7FFFFFFF, 0}}), ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), " v 0.00000000e+00 0.00000000e+00 0.00000000e+00 \n f 4294967295// 2147483648// 1// \n");
}

TEST(WavefrontOutput, SortsMatricesByKind)
{
    const temporary_file file(".obj");
    const auto pos = points_of({{0, 0, 0}});
    const std::string node = " v 0.00000000e+00 0.00000000e+00 0.00000000e+00 \n";
    const auto triangle = elements_of({{0, 1, 2}});
    const auto other = elements_of({{3, 4, 5}});
    const auto quad = elements_of({{0, 1, 2, 3}});

    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, quad, ELEM_QUAD4), 0);
    EXPECT_EQ(file.content(), node + " f 1// 2// 3// 4// \n");
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, triangle, ELEM_SURF_ANY), 0);
    EXPECT_EQ(file.content(), node + " f 1// 2// 3// \n");
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, quad, ELEM_TETRA4), 0);
    EXPECT_EQ(file.content(), node);
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, triangle, other, ELEM_TRIA3, ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), node + " f 1// 2// 3// \n f 4// 5// 6// \n");
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, quad, triangle, ELEM_QUAD4, ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), node + " f 1// 2// 3// \n f 1// 2// 3// 4// \n");
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, quad, triangle, ELEM_TETRA4, ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), node + " f 1// 2// 3// \n");
    EXPECT_EQ(WavefrontOBJ_output(file.name(), pos, triangle, quad, ELEM_TRIA3, ELEM_TRIA3), -5);
}

TEST(WavefrontOutput, TestsItsArgumentsInOrderAndLeavesAnEmptyFile)
{
    const auto pos = points_of({{0, 0, 0}, {1, 0, 0}});
    const dense2D<double> four_rows(4, 1, 0.0);
    const dense2D<double> fits(3, 2, 0.0);
    const dense2D<double> fits_plane(2, 2, 0.0);
    const dense2D<double> nothing;
    const dense2D<unsigned> none_at_all;
    const auto bad_triangle = elements_of({{0, 1, none}});
    const auto bad_quad = elements_of({{0, 1, 2}});

    EXPECT_EQ(WavefrontOBJ_output("/nowhere/at/all.obj", four_rows, four_rows, four_rows, bad_triangle, bad_quad), -1);
    const auto refused = [&](const auto&... arguments) {
        const temporary_file file(".obj");
        const unsigned handles = open_handles();
        const int result = WavefrontOBJ_output(file.name(), arguments...);
        EXPECT_TRUE(file.exists());
        EXPECT_EQ(file.content(), "");
        EXPECT_EQ(open_handles(), handles);
        return result;
    };
    EXPECT_EQ(refused(four_rows, four_rows, four_rows, bad_triangle, bad_quad), -2);
    EXPECT_EQ(refused(pos, fits_plane, four_rows, bad_triangle, bad_quad), -3);
    EXPECT_EQ(refused(pos, four_rows, four_rows, bad_triangle, bad_quad), -3);
    EXPECT_EQ(refused(pos, dense2D<double>(3, 1, 0.0), four_rows, bad_triangle, bad_quad), -3);
    EXPECT_EQ(refused(pos, fits, fits, bad_triangle, bad_quad), -4);
    EXPECT_EQ(refused(pos, fits, dense2D<double>(2, 3, 0.0), bad_triangle, bad_quad), -4);
    EXPECT_EQ(refused(pos, fits, fits_plane, bad_triangle, bad_quad), -5);
    EXPECT_EQ(refused(pos, nothing, nothing, none_at_all, bad_quad), -6);
    EXPECT_EQ(refused(dense2D<double>(), nothing, nothing, none_at_all, none_at_all), -2);
}

TEST(WavefrontOutput, ReportsAFullDevice)
{
    EXPECT_EQ(WavefrontOBJ_output("/dev/full", points_of({{0, 0, 0}}), elements_of({{0, 1, 2}}), ELEM_TRIA3), -1);
}

TEST(WavefrontOutput, FollowsTheGlobalLocale)
{
    const temporary_file file(".obj");
    const test::global_locale changed(std::locale(std::locale::classic(), new test::comma_punctuation));
    ASSERT_EQ(WavefrontOBJ_output(file.name(), points_of({{1.5, 0, 0}}), elements_of({{999, 1, 2}}), ELEM_TRIA3), 0);
    EXPECT_EQ(file.content(), " v 1,50000000e+00 0,00000000e+00 0,00000000e+00 \n f 1.000// 2// 3// \n");
}

/// Reads a text with memory failing from the n-th request on, for every n. Every such read says so, and the next one gets all nodes.
/// Returns the number of requests.
unsigned expect_lack_of_memory_told(std::string_view text, unsigned nodes)
{
    const temporary_file file(text, ".obj");
    const long before = test::live_allocations();
    for (unsigned n = 1;; ++n)
    {
        surface s;
        int status = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            status = s.read(file.name());
            failed = failing.has_failed();
        }
        EXPECT_EQ(status, failed ? out_of_memory : 0) << n;
        EXPECT_EQ(s.read(file.name()), 0);
        EXPECT_EQ(s.pos.cols, nodes);
        if (failed) continue;
        s = {};
        EXPECT_EQ(test::live_allocations(), before);
        return n - 1;
    }
}

TEST(WavefrontInput, ReportsLackOfMemoryAnywhere)
{
    std::string text;
    for (unsigned k = 0; k < 40; ++k) text += "v 1 2 3\nvt 1 2\nvn 1 2 3\nf 1 2 3\nf 1 2 3 4\n";
    EXPECT_GT(expect_lack_of_memory_told(text, 40), 5u);
}

TEST(WavefrontInput, ReportsLackOfMemoryForALongLine)
{
    EXPECT_GT(expect_lack_of_memory_told("v 1 2 3\n# " + std::string(600000, 'x') + "\nv 4 5 6\n", 2), 2u);
}

TEST(WavefrontInput, DropsIndicesBeyondAnInt)
{
    surface s;
    ASSERT_EQ(s.read_text("f -2147483648 2147483647 +3\nf -2147483649 1 2 3\nf 2147483648 1 2 3\nf -99999999999999999999 1 2 3\n"), 0);
    EXPECT_EQ(columns(s.triangles), (faces{{0x7FFFFFFF, 0x7FFFFFFE, 2}, {0, 1, 2}, {0, 1, 2}, {0, 1, 2}}));
    EXPECT_EQ(s.quadrangles.cols, 0u);
}

// A facet of the host's own leaves the usual look to the streams.

/// Commas are blanks.
struct blank_commas : std::ctype<char>
{
    blank_commas() : std::ctype<char>(table()) {}

    static const mask* table()
    {
        static const std::vector<mask> masks = [] {
            std::vector<mask> all(classic_table(), classic_table() + table_size);
            all[','] |= space;
            return all;
        }();
        return masks.data();
    }
};

/// Reads every number as its negative.
struct negated_input : std::num_get<char>
{
    iter_type do_get(iter_type begin, iter_type end, std::ios_base& io, std::ios_base::iostate& error, double& value) const override
    {
        begin = std::num_get<char>::do_get(begin, end, io, error, value);
        value = -value;
        return begin;
    }
};

TEST(WavefrontInput, FollowsEveryFacetForNumbers)
{
    {
        const test::global_locale changed(std::locale(std::locale::classic(), new blank_commas));
        surface s;
        ASSERT_EQ(s.read_text("v 1,2,3\nf 1,2,3\n"), 0);
        EXPECT_EQ(columns(s.pos), (reals{{1, 2, 3}}));
        EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}}));
    }
    const test::global_locale changed(std::locale(std::locale::classic(), new negated_input));
    surface s;
    ASSERT_EQ(s.read_text("v 1 2.5 -3\nf 1 2 3\n"), 0);
    EXPECT_EQ(columns(s.pos), (reals{{-1, -2.5, 3}}));
    EXPECT_EQ(columns(s.triangles), (faces{{0, 1, 2}}));
}

TEST(WavefrontInput, ReadsCornersThroughStreamsAsWithout)
{
    const test::global_locale changed(std::locale(std::locale::classic(), new test::comma_punctuation));
    const auto expect = [](const char* text, int status, const faces& triangles) {
        surface s;
        EXPECT_EQ(s.read_text(text), status) << text;
        EXPECT_EQ(columns(s.triangles), triangles) << text;
    };
    const std::string lists = "vt 0 0\nvn 0 0 1\n";
    expect((lists + "f 1/1/1 2/2/2 3/3/3\n").c_str(), 0, {{0, 1, 2}});
    expect((lists + "f 1//1 2//1 3//1\n").c_str(), 0, {{0, 1, 2}});
    expect((lists + "f 1/1 2/1/ 3//\n").c_str(), 0, {{0, 1, 2}});
    expect((lists + "f /1/1 1 2 3\n").c_str(), 0, {{0, 1, 2}});
    expect("f 1/1 2 3\n", -2, {});
    expect("f 1//1 2 3\n", -2, {});
    expect("f 1x 2 3\n", -2, {});
    expect("f x 1 2 3\n", 0, {{0, 1, 2}});
    expect("f 1 2 3\nf 1 2/x 3 4\n", 0, {{0, 1, 2}});
}

} // namespace
