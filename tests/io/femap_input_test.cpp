#include <cstring>
#include <fstream>
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
using test::ids_of;
using test::list;
using test::points_of;
using test::temporary_file;
using test::vector_of;

constexpr unsigned none = none_index;

using ids = std::vector<unsigned>;
using faces = std::vector<std::vector<unsigned>>;
using reals = std::vector<std::vector<double>>;

struct neutral
{
    dense2D<double> pos;
    dense2D<unsigned> connect;
    dense1D<unsigned> run_starts;
    dense1D<int> kinds;
    dense1D<unsigned> colors;

    int read(const char* file) { return FEMAP_input(file, pos, connect, run_starts, kinds, colors); }

    int read_text(const std::string& text)
    {
        const temporary_file file(text, ".neu");
        return read(file.name());
    }
};

std::string node(const char* number, const char* coordinates)
{
    return std::string(number) + ",0,0,1,0,0,0,0,0,0,0," + coordinates + ",0,\n";
}

std::string nodes(const std::string& records)
{
    return "   -1\n403\n" + records + "   -1\n";
}

/// An element of topology `topology`; `places` are its two lines of nodes without their ends.
std::string element(const char* color, const char* topology, const std::string& first_places,
                    const std::string& last_places = "0,0,0,0,0,0,0,0,0,0,")
{
    return std::string("1,") + color + ",1,17," + topology + ",1,0,0,0,0,0,0,0,\n" + first_places + "\n" + last_places +
           "\n0.,0.,0.,0,0,0,0,0,0,\n0.,0.,0.,\n0.,0.,0.,\n0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,0,\n";
}

std::string elements(const std::string& records)
{
    return "   -1\n404\n" + records + "   -1\n";
}

const std::string triangle = element("4", "2", "1,2,3,0,0,0,0,0,0,0,");
const std::string quadrangle = element("5", "4", "1,2,3,4,0,0,0,0,0,0,");
const std::string unknown = element("6", "11", "1,2,3,4,0,0,0,0,0,0,");

TEST(FemapInput, GivesEmptyResultsForAFileWithoutBlocks)
{
    neutral mesh;
    for (const char* text : {"", "\n", "403x\n1,2,3\n", "   -1\n   -1\n", "nothing\n"})
    {
        EXPECT_EQ(mesh.read_text(text), 0) << text;
        EXPECT_TRUE(mesh.pos.empty() && mesh.connect.empty() && mesh.kinds.empty() && mesh.colors.empty());
        EXPECT_EQ(list(mesh.run_starts), (ids{0, 0}));
    }
}

TEST(FemapInput, PutsNodesAtTheirNumbers)
{
    neutral mesh;
    ASSERT_EQ(mesh.read_text(nodes(node("3", "1,2,3") + node("1", " 1.5e2 , -0.25,7") + node("3", "4,5,6"))), 0);
    EXPECT_EQ(columns(mesh.pos), (reals{{150, -0.25, 7}, {0, 0, 0}, {4, 5, 6}}));
}

TEST(FemapInput, ReadsEveryKindFromItsPlaces)
{
    struct expectation
    {
        const char* topology;
        element_type kind;
        ids column;
    };
    const expectation table[] = {
        {"0", ELEM_BAR2, {100, 101}},
        {"1", ELEM_BAR3, {100, 101, 102}},
        {"2", ELEM_TRIA3, {100, 101, 102}},
        {"3", ELEM_TRIA6, {100, 101, 102, 104, 105, 103}},
        {"4", ELEM_QUAD4, {100, 101, 102, 103}},
        {"5", ELEM_QUAD8, {100, 101, 102, 103, 104, 105, 106, 107}},
        {"6", ELEM_TETRA4, {101, 100, 102, 104}},
        {"7", ELEM_PENTA6, {100, 101, 102, 104, 105, 106}},
        {"8", ELEM_HEXA8, {100, 101, 102, 103, 104, 105, 106, 107}},
        {"9", ELEM_NODE, {100}},
        {"10", ELEM_TETRA10, {100, 102, 101, 104, 109, 108, 110, 112, 114, 113}},
        {"12", ELEM_HEXA20, {100, 101, 102, 103, 104, 105, 106, 107, 108, 109, 110, 111, 112, 113, 114, 115, 116, 117, 118, 119}},
    };
    for (const expectation& expected : table)
    {
        neutral mesh;
        ASSERT_EQ(mesh.read_text(elements(element("7", expected.topology, "101,102,103,104,105,106,107,108,109,110,",
                                                  "111,112,113,114,115,116,117,118,119,120,"))),
                  0);
        EXPECT_EQ(columns(mesh.connect), faces{expected.column}) << expected.topology;
        EXPECT_EQ(list(mesh.kinds), std::vector<int>{expected.kind});
        EXPECT_EQ(list(mesh.run_starts), (ids{0, 1}));
        EXPECT_EQ(list(mesh.colors), ids{7});
    }
}

TEST(FemapInput, CutsElementsIntoRunsAndPadsThem)
{
    neutral mesh;
    ASSERT_EQ(mesh.read_text(elements(triangle + triangle + quadrangle + triangle) + nodes(node("2", "1,1,1")) + elements(triangle)), 0);
    EXPECT_EQ(columns(mesh.connect), (faces{{0, 1, 2, none}, {0, 1, 2, none}, {0, 1, 2, 3}, {0, 1, 2, none}, {0, 1, 2, none}}));
    EXPECT_EQ(list(mesh.run_starts), (ids{0, 2, 3, 5}));
    EXPECT_EQ(list(mesh.kinds), (std::vector<int>{ELEM_TRIA3, ELEM_QUAD4, ELEM_TRIA3}));
    EXPECT_EQ(list(mesh.colors), (ids{4, 4, 5, 4, 4}));
}

TEST(FemapInput, NotesUnknownElementsAmongTheKinds)
{
    neutral mesh;
    for (const char* topology : {"11", "13", "-1"})
    {
        const std::string strange = element("6", topology, "garbage", "more");
        ASSERT_EQ(mesh.read_text(elements(triangle + strange + triangle + quadrangle)), 0) << topology;
        EXPECT_EQ(mesh.connect.cols, 3u);
        EXPECT_EQ(list(mesh.kinds), (std::vector<int>{ELEM_TRIA3, ELEM_NONE, ELEM_TRIA3, ELEM_QUAD4}));
        EXPECT_EQ(list(mesh.run_starts), (ids{0, 0, 2, 3}));
    }
    ASSERT_EQ(mesh.read_text(elements(unknown + unknown + triangle)), 0);
    EXPECT_EQ(list(mesh.kinds), (std::vector<int>{ELEM_NONE, ELEM_NONE, ELEM_TRIA3}));
    EXPECT_EQ(list(mesh.run_starts), (ids{0, 1}));
}

TEST(FemapInput, OpensAndClosesBlocksByTheirLines)
{
    neutral mesh;
    // Any line that reads 403 without its white space opens a block, also without the mark above it.
    ASSERT_EQ(mesh.read_text(" 4 0\t3 \r\n" + node("1", "1,2,3") + "   -1 \t\r\n" + node("2", "1,2,3")), 0);
    EXPECT_EQ(mesh.pos.cols, 1u);
    // Other blanks before the mark do not close a block: the line is a node with too few fields.
    EXPECT_EQ(mesh.read_text("403\n" + node("1", "1,2,3") + "  -1\n"), -102);
    EXPECT_EQ(mesh.read_text("403\n" + node("1", "1,2,3") + "-1\n"), -102);
    // Inside a block the number of another one is a record like any other.
    EXPECT_EQ(mesh.read_text("403\n404\n"), -102);
}

TEST(FemapInput, RefusesRecordsWithTooFewFields)
{
    neutral mesh;
    EXPECT_EQ(mesh.read_text(nodes(node("1", "1,2,3") + "2,0,0,1,0,0,0,0,0,0,0,1,2\n" + node("3", "1,2,3"))), -102);
    EXPECT_EQ(columns(mesh.pos), (reals{{1, 2, 3}}));
    EXPECT_EQ(list(mesh.run_starts), (ids{0, 0}));
    EXPECT_EQ(mesh.read_text(nodes(node("0", "1,2,3"))), -102);
    EXPECT_EQ(mesh.read_text(nodes(node("x", "1,2,3"))), -102);
    EXPECT_EQ(mesh.read_text(nodes("\n")), -102);
    EXPECT_EQ(mesh.read_text(elements(triangle + "1,2,3\n")), -102);
    EXPECT_EQ(mesh.read_text(elements(triangle + "1,2,3,4\n")), -102);
    EXPECT_EQ(list(mesh.run_starts), (ids{0, 1}));
    EXPECT_EQ(mesh.read_text(elements(element("1", "2", "1,2,3,0,0,0,0,0,0"))), -102);
    EXPECT_EQ(mesh.read_text(elements(element("1", "2", "1,2,3,0,0,0,0,0,0,0,", "1"))), -102);
    EXPECT_TRUE(mesh.connect.empty());
}

TEST(FemapInput, MovesFieldsUpPastEmptyOnes)
{
    neutral mesh;
    // 14 fields in all, of which one is empty.
    EXPECT_EQ(mesh.read_text(nodes("1,,0,1,0,0,0,0,0,0,0,1,2,3\n")), -102);
    ASSERT_EQ(mesh.read_text(nodes("1,,0,1,0,0,0,0,0,0,0,1,2,3,4\n")), 0);
    EXPECT_EQ(columns(mesh.pos), (reals{{2, 3, 4}}));
    // A field of blanks is a field.
    ASSERT_EQ(mesh.read_text(nodes("1, ,0,1,0,0,0,0,0,0,0,1,2,3\n")), 0);
    EXPECT_EQ(columns(mesh.pos), (reals{{1, 2, 3}}));
}

TEST(FemapInput, RefusesAFileThatEndsInsideAnElement)
{
    std::string lines = elements(triangle);
    lines.resize(lines.size() - std::strlen("   -1\n"));
    neutral mesh;
    ASSERT_EQ(mesh.read_text(lines), 0);
    std::size_t cut = lines.size() - 1;
    for (unsigned missing = 1; missing <= 6; ++missing)
    {
        cut = lines.rfind('\n', cut - 1);
        EXPECT_EQ(mesh.read_text(lines.substr(0, cut + 1)), -102) << missing;
        EXPECT_EQ(list(mesh.run_starts), (ids{0, 0})) << missing;
        EXPECT_TRUE(mesh.colors.empty() && mesh.kinds.empty()) << missing;
    }
    EXPECT_EQ(mesh.read_text("404\n" + unknown.substr(0, unknown.size() / 2)), -102);
}

TEST(FemapInput, RefusesNumbersThatMemoryDoesNotHold)
{
    for (const char* number : {"-1", "-2147483648", "-99999999999"})
    {
        neutral mesh;
        EXPECT_EQ(mesh.read_text(nodes(node("1", "1,2,3") + node(number, "4,5,6"))), out_of_memory) << number;
        EXPECT_EQ(columns(mesh.pos), (reals{{1, 2, 3}})) << number;
        EXPECT_EQ(list(mesh.run_starts), (ids{0, 0}));
    }
    // 3 × 2^31 entries are beyond the counts of a matrix.
    neutral mesh;
    EXPECT_EQ(mesh.read_text(nodes(node("4000000000", "4,5,6"))), out_of_memory);
    EXPECT_TRUE(mesh.pos.empty());
    // Node numbers of elements are anything.
    ASSERT_EQ(mesh.read_text(elements(element("-1", "2", "0,-5,4000000000,0,0,0,0,0,0,0,"))), 0);
    EXPECT_EQ(columns(mesh.connect), (faces{{none, 0xFFFFFFFAu, 0x7FFFFFFEu}}));
    EXPECT_EQ(list(mesh.colors), ids{none});
}

TEST(FemapInput, MakesAWideMatrixForALargeNumberWithoutTouchingIt)
{
    neutral mesh;
    ASSERT_EQ(mesh.read_text(nodes(node("1", "1,2,3") + node("20000000", "4,5,6"))), 0);
    ASSERT_EQ(mesh.pos.cols, 20000000u);
    EXPECT_EQ(mesh.pos(2, 0), 3.0);
    EXPECT_EQ(mesh.pos(0, 10000000), 0.0);
    EXPECT_EQ(mesh.pos(2, 19999999), 6.0);
}

TEST(FemapInput, ReportsAFileThatCannotBeOpened)
{
    neutral mesh;
    ASSERT_EQ(mesh.read_text(nodes(node("1", "1,2,3")) + elements(triangle)), 0);
    EXPECT_EQ(mesh.read("/nowhere/at/all.neu"), -1);
    EXPECT_TRUE(mesh.pos.empty() && mesh.connect.empty() && mesh.run_starts.empty() && mesh.kinds.empty() && mesh.colors.empty());
    EXPECT_EQ(mesh.read(nullptr), -1);
}

TEST(FemapInput, NamesTheKindOfAUniformFile)
{
    const auto kind_of = [](const std::string& text, int expected, unsigned cols) {
        const temporary_file file(text, ".neu");
        dense2D<double> pos;
        dense2D<unsigned> connect;
        element_type kind = ELEM_HEXA8;
        EXPECT_EQ(FEMAP_input(file.name(), pos, connect, kind), expected);
        EXPECT_EQ(connect.cols, cols);
        return kind;
    };
    EXPECT_EQ(kind_of(elements(triangle + triangle), 0, 2), ELEM_TRIA3);
    EXPECT_EQ(kind_of(elements(triangle + quadrangle), 0, 2), ELEM_NONE);
    EXPECT_EQ(kind_of("", 0, 0), ELEM_NONE);
    EXPECT_EQ(kind_of(elements(triangle + "1\n"), -102, 1), ELEM_NONE);
}

TEST(FemapInput, HandsTwoRunsOverAsMatrices)
{
    dense2D<double> pos;
    dense2D<unsigned> connect1 = elements_of({{9}});
    dense2D<unsigned> connect2 = elements_of({{9}});
    element_type kind1 = ELEM_HEXA8;
    element_type kind2 = ELEM_HEXA8;
    const auto read = [&](const std::string& text) {
        const temporary_file file(text, ".neu");
        return FEMAP_input(file.name(), pos, connect1, connect2, kind1, kind2);
    };
    ASSERT_EQ(read(elements(quadrangle + triangle + triangle + quadrangle)), 0);
    EXPECT_EQ(kind1, ELEM_QUAD4);
    EXPECT_EQ(columns(connect1), (faces{{0, 1, 2, 3}}));
    EXPECT_EQ(kind2, ELEM_TRIA3);
    EXPECT_EQ(columns(connect2), (faces{{0, 1, 2}, {0, 1, 2}}));

    // The first run keeps the rows of the largest element.
    ASSERT_EQ(read(elements(triangle + quadrangle)), 0);
    EXPECT_EQ(columns(connect1), (faces{{0, 1, 2, none}}));
    EXPECT_EQ(columns(connect2), (faces{{0, 1, 2, 3}}));

    ASSERT_EQ(read(elements(triangle)), 0);
    EXPECT_EQ(columns(connect1), (faces{{0, 1, 2}}));
    EXPECT_TRUE(connect2.empty());
    EXPECT_EQ(kind2, ELEM_NONE);

    for (const std::string& text : {std::string(), elements(triangle + "1\n")})
    {
        read(text);
        EXPECT_TRUE(connect1.empty() && connect2.empty());
        EXPECT_EQ(kind1, ELEM_NONE);
        EXPECT_EQ(kind2, ELEM_NONE);
    }
}

TEST(FemapInput, TakesBackWhatTheWriterWrites)
{
    const auto pos = points_of({{0, 0, 0}, {1234567.0, 0, 0}, {0, 1, 0.5}});
    const auto written = [&](element_type kind, dense2D<unsigned>& connect, neutral& mesh) {
        connect = dense2D<unsigned>(nbr_nodes(kind), 2);
        for (unsigned k = 0; k < connect.size; ++k) connect(k % connect.rows, k / connect.rows) = 3 * k + 1;
        const temporary_file file(".neu");
        EXPECT_EQ(FEMAP_output(file.name(), pos, connect, kind), 0) << kind;
        EXPECT_EQ(mesh.read(file.name()), 0) << kind;
        EXPECT_EQ(columns(mesh.pos), (reals{{0, 0, 0}, {1.23457e+06, 0, 0}, {0, 1, 0.5}}));
    };
    for (const element_type kind : {ELEM_NODE, ELEM_BAR2, ELEM_BAR3, ELEM_TRIA3, ELEM_QUAD4, ELEM_TRIA6, ELEM_QUAD8, ELEM_TETRA4,
                                    ELEM_TETRA10, ELEM_PENTA6, ELEM_HEXA8, ELEM_HEXA20})
    {
        dense2D<unsigned> connect;
        neutral mesh;
        written(kind, connect, mesh);
        // The corners of 6-node triangles come back one lower.
        if (kind == ELEM_TRIA6)
            for (unsigned c = 0; c < connect.cols; ++c)
                for (unsigned r = 0; r < 3; ++r) --connect(r, c);
        EXPECT_EQ(columns(mesh.connect), columns(connect)) << kind;
        EXPECT_EQ(list(mesh.kinds), std::vector<int>{kind});
        EXPECT_EQ(list(mesh.colors), (ids{1, 1}));
    }
    for (const element_type kind :
         {ELEM_BAR_ANY, ELEM_QUAD9, ELEM_PYRA5, ELEM_PYRA13, ELEM_PYRA14, ELEM_PENTA15, ELEM_PENTA18, ELEM_HEXA27})
    {
        dense2D<unsigned> connect;
        neutral mesh;
        written(kind, connect, mesh);
        EXPECT_TRUE(mesh.connect.empty()) << kind;
    }
}

TEST(FemapInput, SurvivesMutatedFiles)
{
    const std::string original = nodes(node("1", "1,2,3") + node("2", "1e3,-2,0.5")) + elements(triangle + quadrangle + unknown + triangle);
    constexpr char alphabet[] = "\n\r ,-.0123456789e\t";
    test::random_source random(11);
    for (unsigned round = 0; round < 3000; ++round)
    {
        std::string text = original;
        for (unsigned change = random.below(5) + 1; change-- > 0 && !text.empty();)
        {
            const unsigned at = random.below(static_cast<unsigned>(text.size()));
            const char c = alphabet[random.below(sizeof alphabet - 1)];
            switch (random.below(4))
            {
            case 0: text[at] = c; break;
            case 1: text.insert(at, 1, c); break;
            case 2: text.erase(at, 1 + random.below(20)); break;
            default: text.resize(at + 1);
            }
        }
        neutral mesh;
        const int status = mesh.read_text(text);
        ASSERT_TRUE(status == 0 || status == -102 || status == out_of_memory) << text;
        ASSERT_GE(mesh.run_starts.size, 2u) << text;
        ASSERT_EQ(mesh.run_starts[mesh.run_starts.size - 1], mesh.colors.size) << text;
        ASSERT_EQ(status == 0 ? mesh.connect.cols : mesh.colors.size, mesh.colors.size) << text;
    }
}

TEST(FemapInput, ReportsLackOfMemoryAnywhere)
{
    std::string records;
    for (unsigned k = 0; k < 30; ++k) records += triangle + quadrangle;
    const temporary_file file(nodes(node("1", "1,2,3") + node("40", "1,2,3")) + elements(records), ".neu");
    const long before = test::live_allocations();
    for (unsigned n = 1;; ++n)
    {
        neutral mesh;
        int status = 0;
        bool failed = false;
        {
            const test::failing_allocation failing(n);
            status = mesh.read(file.name());
            failed = failing.has_failed();
        }
        EXPECT_EQ(status, failed ? out_of_memory : 0) << n;
        ASSERT_EQ(mesh.read(file.name()), 0);
        EXPECT_EQ(mesh.connect.cols, 60u);
        if (!failed) break;
    }
    EXPECT_EQ(test::live_allocations(), before);
}

TEST(FemapInput, FollowsTheLocaleOfTheCLibrary)
{
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    neutral mesh;
    // The points end the numbers; a comma always ends a field.
    ASSERT_EQ(mesh.read_text(nodes(node("1", "1.5,-2.75,3") + node("3", "4e1,0.5,-7")) + elements(triangle + quadrangle)), 0);
    EXPECT_EQ(columns(mesh.pos), (reals{{1, -2, 3}, {0, 0, 0}, {40, 0, -7}}));
    EXPECT_EQ(columns(mesh.connect), (faces{{0, 1, 2, none}, {0, 1, 2, 3}}));
    EXPECT_EQ(list(mesh.colors), (ids{4, 5}));
}

/// Reads a file with memory failing at every place in turn, for good and once. Every refusal that is not made good gives -199.
void expect_clean_failures(const std::string& text)
{
    const temporary_file file(text, ".neu");
    neutral whole;
    ASSERT_EQ(whole.read(file.name()), 0);
    for (const bool only_once : {false, true})
        for (unsigned n = 1;; ++n)
        {
            ASSERT_LT(n, 100u);
            neutral mesh;
            int status = 0;
            bool failed = false;
            {
                const test::failing_allocation failing(n, only_once);
                status = mesh.read(file.name());
                failed = failing.has_failed();
            }
            if (status == 0)
            {
                EXPECT_EQ(columns(mesh.pos), columns(whole.pos));
                EXPECT_EQ(columns(mesh.connect), columns(whole.connect));
                EXPECT_EQ(list(mesh.run_starts), list(whole.run_starts));
            }
            else
                EXPECT_EQ(status, out_of_memory) << n;
            if (!failed) break;
            // Room ahead of need may be had in a smaller measure.
            EXPECT_TRUE(only_once || status == out_of_memory) << n;
        }
}

TEST(FemapInput, ReportsLackOfMemoryForItsTables)
{
    // The end of the third run is the fourth entry of the table of runs.
    expect_clean_failures(elements(triangle + quadrangle + triangle));
    // Records with blanks are read line by line.
    expect_clean_failures(nodes(node(" 1", "1,2,3")) + elements(element(" 4", "2", "1,2, 3,0,0,0,0,0,0,0,")));
}

TEST(FemapInput, ReportsLackOfMemoryForLongLines)
{
    // Longer than the window of the reader, outside of blocks and inside of an element.
    const std::string rest(600000, 'x');
    expect_clean_failures("a banner " + rest + "\n" + nodes(node("1", "1,2,3")));
    expect_clean_failures(elements(element("4", "2", "1,2,3,0,0,0,0,0,0,0,", "0,0,0,0,0,0,0,0,0,0," + rest)));
    expect_clean_failures(elements(unknown + element("4", "2", "1,2,3,0,0,0,0,0,0,0," + rest)));
}

} // namespace
