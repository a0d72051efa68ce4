#include <array>
#include <bit>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
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
using test::list;
using test::open_handles;
using test::points_of;
using test::temporary_file;

constexpr unsigned none = none_index;

/// What the general form returns and leaves.
struct reading
{
    int code = 0;
    std::vector<std::vector<double>> pos;
    std::vector<std::vector<unsigned>> connect;
    std::vector<unsigned> run_starts;
    std::vector<int> kinds;
    std::vector<unsigned> property_ids;
};

reading read_file(const char* name)
{
    dense2D<double> pos(2, 1, 9.0);
    dense2D<unsigned> connect(2, 3, 9u);
    dense1D<unsigned> run_starts(4, 9u);
    dense1D<int> kinds(4, 9);
    dense1D<unsigned> property_ids(4, 9u);
    reading result;
    result.code = NASTRAN_input(name, pos, connect, run_starts, kinds, property_ids);
    EXPECT_TRUE(pos.cols == 0 || pos.rows == 3);
    result.pos = columns(pos);
    result.connect = columns(connect);
    result.run_starts = list(run_starts);
    result.kinds = list(kinds);
    result.property_ids = list(property_ids);
    return result;
}

reading read_text(std::string_view text)
{
    const temporary_file file(text, ".bdf");
    return read_file(file.name());
}

/// A line of small fields.
std::string small(std::initializer_list<const char*> fields)
{
    std::string line;
    for (const char* field : fields)
    {
        line += field;
        line.resize((line.size() + 7) / 8 * 8, ' ');
        if (!*field) line += "        ";
    }
    return line + "\n";
}

using lists = std::vector<std::vector<unsigned>>;
using points = std::vector<std::vector<double>>;
using numbers = std::vector<unsigned>;

// The reader told plainly with the standard library's streams and scans.

namespace literal
{

int clamped(long long value)
{
    return static_cast<int>(std::min<long long>(std::max<long long>(value, INT_MIN), INT_MAX));
}

int integer(const char* text)
{
    return clamped(std::strtoll(text, nullptr, 10));
}

double real(const char* field)
{
    std::string text;
    for (const char* c = field; *c; ++c)
        if (!std::isspace(static_cast<unsigned char>(*c))) text += *c;
    const std::size_t sign = text.find_last_of("+-");
    int exponent = 0;
    if (sign != std::string::npos && sign > 0 && text[sign - 1] != 'E' && text[sign - 1] != 'e')
    {
        exponent = integer(text.c_str() + sign);
        text.resize(sign);
    }
    const double value = std::atof(text.c_str());
    if (exponent == 0) return value;
    return exponent == 2 ? value * 100.0 : value * std::pow(10.0, exponent);
}

using field = char[17];

int scan_small(std::string line, field (&f)[10])
{
    line.resize(80, ' ');
    for (auto& one : f) std::fill(one, one + 17, '\0');
    return std::sscanf(line.c_str(), "%8c%8c%8c%8c%8c%8c%8c%8c%8c%8c", f[0], f[1], f[2], f[3], f[4], f[5], f[6], f[7], f[8], f[9]);
}

int scan_large(std::string line, field (&f)[10])
{
    line.resize(80, ' ');
    for (auto& one : f) std::fill(one, one + 17, '\0');
    return std::sscanf(line.c_str(), "%8c%16c%16c%16c%16c%8c", f[0], f[1], f[2], f[3], f[4], f[5]);
}

struct card
{
    std::string name;
    int element = 0;
    int property = 0;
    std::vector<int> nodes;
};

class reader
{
public:
    /// The code for a file that would make the coordinates wider than is worth comparing.
    static constexpr int too_wide = -1000;
    static constexpr std::size_t widest = 300;

    reading read(const char* name)
    {
        stream_.open(name);
        out_.run_starts.push_back(0);
        out_.code = cards();
        out_.run_starts.push_back(static_cast<unsigned>(out_.connect.size()));
        return out_;
    }

private:
    int cards()
    {
        std::string line;
        while (std::getline(stream_, line))
        {
            if (line.empty() || line[0] == '$') continue;
            if (line.size() >= 10 && line.find("BEGIN BULK") != std::string::npos) continue;
            if (line.size() >= 7 && line.find("ENDDATA") != std::string::npos) return 0;
            const int status = line.compare(0, 4, "GRID") == 0 ? grid(line) : element(line);
            if (status < 0) return status;
        }
        return 0;
    }

    int grid(const std::string& line)
    {
        long long number = 0;
        double x = 0, y = 0, z = 0;
        field f[10];
        if (line.compare(0, 5, "GRID*") == 0)
        {
            std::string second;
            std::getline(stream_, second);
            if (scan_large(line, f) < 6) return -1;
            number = integer(f[1]);
            x = real(f[3]);
            y = real(f[4]);
            if (scan_large(second, f) < 2) return -1;
            z = real(f[1]);
        }
        else if (line.find(',') != std::string::npos)
        {
            long long c;
            int rest[4];
            if (std::sscanf(line.c_str(), "GRID , %lld , %lld , %lf , %lf , %lf , %d , %d , %d , %d", &number, &c, &x, &y, &z, rest,
                            rest + 1, rest + 2, rest + 3) < 5 &&
                std::sscanf(line.c_str(), "GRID , %lld , , %lf , %lf , %lf , %d , %d , %d , %d ", &number, &x, &y, &z, rest, rest + 1,
                            rest + 2, rest + 3) < 4)
                return -1;
        }
        else
        {
            if (scan_small(line, f) < 6) return -1;
            number = integer(f[1]);
            x = real(f[3]);
            y = real(f[4]);
            z = real(f[5]);
        }
        if (number == 0) return -1;
        // More columns of three than 32 bits count.
        if (number < 0 || number > 1431655765) return -199;
        const auto node = static_cast<std::size_t>(number);
        if (node > widest) return too_wide;
        if (node > out_.pos.size()) out_.pos.resize(node, {0.0, 0.0, 0.0});
        out_.pos[node - 1] = {x, y, z};
        return 0;
    }

    int element(std::string line)
    {
        card c;
        std::vector<int> list;
        int sum = 0;
        for (bool first = true;; first = false)
        {
            std::string name;
            bool flag = false;
            const int count = line.find(',') != std::string::npos   ? free_card(line, name, list, flag)
                              : line.find('*') != std::string::npos ? large_card(line, name, list, flag)
                                                                    : small_card(line, name, list, flag);
            sum += count;
            if (count < 3) break;
            if (first)
            {
                if (list.size() < 2) return 0;
                c.name = name;
                std::rotate(list.begin(), list.begin() + 2, list.end());
                c.property = list.back();
                list.pop_back();
                c.element = list.back();
                list.pop_back();
            }
            if (!flag || !stream_.good() || stream_.eof()) break;
            char next[256] = "";
            stream_.getline(next, 256);
            line = next;
            if (stream_.fail() && !stream_.eof())
            {
                // Too long: it counts so far, the rest is dropped and the card ends.
                stream_.clear();
                std::string rest;
                std::getline(stream_, rest);
                name.clear();
                line.find(',') != std::string::npos   ? free_card(line, name, list, flag)
                : line.find('*') != std::string::npos ? large_card(line, name, list, flag)
                                                      : small_card(line, name, list, flag);
                break;
            }
        }
        c.nodes = list;
        return sum < 1 ? 0 : store(c);
    }

    static int small_card(const std::string& line, std::string& name, std::vector<int>& list, bool& flag)
    {
        field f[10];
        scan_small(line, f);
        name = f[0];
        name = name.substr(0, name.find(' '));
        int count = 0;
        for (int k = 1; k <= 8; ++k, ++count)
        {
            const int number = integer(f[k]);
            if (number == 0) break;
            list.push_back(number);
        }
        flag = f[9][0] == '+';
        return count;
    }

    static int large_card(const std::string& line, std::string& name, std::vector<int>& list, bool& flag)
    {
        field f[10];
        scan_large(line, f);
        name = f[0];
        name = name.substr(0, name.find(' '));
        const std::size_t star = name.find('*');
        if (star != std::string::npos && star > 0)
        {
            flag = true;
            name = name.substr(0, star);
        }
        int count = 0;
        for (int k = 1; k <= 4; ++k, ++count)
        {
            const int number = integer(f[k]);
            if (number == 0) break;
            list.push_back(number);
        }
        if (f[5][0] == '*') flag = true;
        return count;
    }

    static int free_card(const std::string& line, std::string& name, std::vector<int>& list, bool& flag)
    {
        std::istringstream stream(line);
        std::vector<std::string> fields;
        char one[9];
        while (stream.getline(one, 9, ',')) fields.emplace_back(one);
        const int count = static_cast<int>(fields.size());
        if (!fields.empty() && (fields.back()[0] == '+' || fields.back()[0] == '*'))
        {
            flag = true;
            fields.pop_back();
        }
        if (!fields.empty()) name = fields[0];
        for (std::size_t k = 1; k < fields.size(); ++k) list.push_back(integer(fields[k].c_str()));
        return count;
    }

    int store(const card& c)
    {
        static const std::map<std::string, element_type> names = {
            {"BAR", ELEM_BAR2},     {"BEAM", ELEM_BAR2},    {"ROD", ELEM_BAR2},      {"CBAR", ELEM_BAR2},     {"CBEAM", ELEM_BAR2},
            {"CROD", ELEM_BAR2},    {"TRIA3", ELEM_TRIA3},  {"CTRIA", ELEM_TRIA3},   {"CTRIA3", ELEM_TRIA3},  {"TRIA6", ELEM_TRIA6},
            {"CTRIA6", ELEM_TRIA6}, {"QUAD4", ELEM_QUAD4},  {"CQUAD", ELEM_QUAD4},   {"CQUAD4", ELEM_QUAD4},  {"QUAD8", ELEM_QUAD8},
            {"CQUAD8", ELEM_QUAD8}, {"TETRA", ELEM_TETRA4}, {"CTETRA", ELEM_TETRA4}, {"PYRA", ELEM_PYRA5},    {"PYRAM", ELEM_PYRA5},
            {"CPYRA", ELEM_PYRA5},  {"CPYRAM", ELEM_PYRA5}, {"PENTA", ELEM_PENTA6},  {"CPENTA", ELEM_PENTA6}, {"HEXA", ELEM_HEXA8},
            {"CHEXA", ELEM_HEXA8}};
        static const std::map<element_type, std::vector<unsigned>> orders = {
            {ELEM_TRIA6, {0, 1, 2, 4, 5, 3}},
            {ELEM_TETRA4, {0, 2, 1, 3}},
            {ELEM_TETRA10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}},
            {ELEM_PENTA15, {0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13}},
            {ELEM_HEXA20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 12, 13, 14, 15}}};
        const auto found = names.find(c.name);
        if (found == names.end()) return 0;
        element_type kind = found->second;
        const std::size_t count = c.nodes.size();
        if (kind == ELEM_TETRA4 && count == 10) kind = ELEM_TETRA10;
        if (kind == ELEM_PYRA5 && count == 13) kind = ELEM_PYRA13;
        if (kind == ELEM_PENTA6 && count == 15) kind = ELEM_PENTA15;
        if (kind == ELEM_HEXA8 && count == 20) kind = ELEM_HEXA20;
        if (count != nbr_nodes(kind)) return 0;

        const std::size_t rows = out_.connect.empty() ? 0 : out_.connect[0].size();
        std::vector<unsigned> column;
        for (std::size_t i = 0; i < count; ++i)
            column.push_back(static_cast<unsigned>(c.nodes[orders.count(kind) ? orders.at(kind)[i] : i]) - 1);
        if (count > rows)
            for (auto& earlier : out_.connect) earlier.resize(count, 0);
        else
            column.resize(rows, none);
        out_.connect.push_back(column);
        out_.property_ids.push_back(static_cast<unsigned>(c.property));
        if (out_.kinds.empty())
            out_.kinds.push_back(kind);
        else if (out_.kinds.back() != kind)
        {
            out_.kinds.push_back(kind);
            out_.run_starts.push_back(static_cast<unsigned>(out_.connect.size() - 1));
        }
        return 0;
    }

    std::ifstream stream_;
    reading out_;
};

} // namespace literal

std::vector<std::uint64_t> bits_of(const points& all)
{
    std::vector<std::uint64_t> bits;
    for (const auto& column : all)
        for (const double x : column) bits.push_back(std::bit_cast<std::uint64_t>(x));
    return bits;
}

/// Reads the text in both ways and compares everything.
void expect_like_literal(const std::string& text)
{
    const temporary_file file(text, ".bdf");
    const reading expected = literal::reader().read(file.name());
    if (expected.code == literal::reader::too_wide) return;
    const reading result = read_file(file.name());
    const bool same = result.code == expected.code && bits_of(result.pos) == bits_of(expected.pos) && result.connect == expected.connect &&
                      result.run_starts == expected.run_starts && result.kinds == expected.kinds &&
                      result.property_ids == expected.property_ids;
    if (same) return;
    std::string shown;
    for (const char c : text) shown += c == '\0' ? std::string("\\0") : c == '\r' ? std::string("\\r") : std::string(1, c);
    EXPECT_EQ(result.code, expected.code) << shown;
    EXPECT_EQ(result.pos, expected.pos) << shown;
    EXPECT_EQ(result.connect, expected.connect) << shown;
    EXPECT_EQ(result.run_starts, expected.run_starts) << shown;
    EXPECT_EQ(result.kinds, expected.kinds) << shown;
    EXPECT_EQ(result.property_ids, expected.property_ids) << shown;
}

// The file as a whole.

TEST(NastranInput, ReadsNodesAndElements)
{
    const reading r = read_text("SOL 101\nBEGIN BULK\n"
                                "GRID    1               0.0     1.0     2.0\n"
                                "GRID    2       0       1.5     -1.     1.E+2\n"
                                "CROD    7       3       2       1\n"
                                "ENDDATA\n");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.pos, (points{{0, 1, 2}, {1.5, -1, 100}}));
    EXPECT_EQ(r.connect, (lists{{1, 0}}));
    EXPECT_EQ(r.run_starts, (numbers{0, 1}));
    EXPECT_EQ(r.kinds, (std::vector<int>{ELEM_BAR2}));
    EXPECT_EQ(r.property_ids, (numbers{3}));
}

TEST(NastranInput, ReadsAnEmptyFileAsNoMesh)
{
    for (const char* text : {"", "\n", "$ nothing\n", "BEGIN BULK\nENDDATA\n", "\n\n\n$"})
    {
        const reading r = read_text(text);
        EXPECT_EQ(r.code, 0);
        EXPECT_TRUE(r.pos.empty() && r.connect.empty() && r.kinds.empty() && r.property_ids.empty());
        EXPECT_EQ(r.run_starts, (numbers{0, 0}));
    }
}

TEST(NastranInput, LeavesAllResultsEmptyWithoutAFile)
{
    const unsigned handles = open_handles();
    const reading r = read_file("/nowhere/at/all.bdf");
    EXPECT_EQ(r.code, -1);
    EXPECT_TRUE(r.pos.empty() && r.connect.empty() && r.run_starts.empty() && r.kinds.empty() && r.property_ids.empty());
    EXPECT_EQ(read_file(nullptr).code, -1);

    dense2D<double> pos(2, 2);
    dense2D<unsigned> one(2, 2), two(2, 2);
    element_type kind1 = ELEM_HEXA8, kind2 = ELEM_HEXA8;
    EXPECT_EQ(NASTRAN_input(nullptr, pos, one, kind1), -1);
    EXPECT_TRUE(pos.empty() && one.empty());
    EXPECT_EQ(kind1, ELEM_NONE);
    pos.resize(3, 1);
    one.resize(3, 1);
    kind1 = ELEM_HEXA8;
    EXPECT_EQ(NASTRAN_input(nullptr, pos, one, two, kind1, kind2), -1);
    EXPECT_TRUE(pos.empty() && one.empty() && two.empty());
    EXPECT_EQ(kind1, ELEM_NONE);
    EXPECT_EQ(kind2, ELEM_NONE);
    EXPECT_EQ(open_handles(), handles);
}

TEST(NastranInput, StopsAtEnddataAnywhereInALine)
{
    const std::string node = "GRID    1               1.      2.      3.\n";
    EXPECT_EQ(read_text("ENDDATA\n" + node).pos.size(), 0u);
    EXPECT_EQ(read_text("xx ENDDATA ea1281a2\n" + node).pos.size(), 0u);
    EXPECT_EQ(read_text(node + "GRID    0       ENDDATA\n").code, 0);
    EXPECT_EQ(read_text("$ENDDATA\n" + node).pos.size(), 1u);
    EXPECT_EQ(read_text("ENDDAT\n" + node).pos.size(), 1u);
    // A line with both keywords is passed over.
    EXPECT_EQ(read_text("BEGIN BULK ENDDATA\n" + node).pos.size(), 1u);
    EXPECT_EQ(read_text("GRID    0       BEGIN BULK\n" + node).code, 0);
}

TEST(NastranInput, ReadsCardsBeforeTheBulkBegins)
{
    EXPECT_EQ(read_text("GRID    1               1.      2.      3.\nBEGIN BULK\n").pos, (points{{1, 2, 3}}));
}

// Nodes.

TEST(NastranInput, KeepsNodeNumbersAndFillsGapsWithZero)
{
    const reading r = read_text("GRID    5               1.      2.      3.\n"
                                "GRID    2               4.      5.      6.\n"
                                "GRID    5               7.      8.      9.\n");
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(r.pos, (points{{0, 0, 0}, {4, 5, 6}, {0, 0, 0}, {0, 0, 0}, {7, 8, 9}}));
}

TEST(NastranInput, ReadsTheThreeLayoutsOfANode)
{
    const points expected{{0.5, -1.25, 300}};
    EXPECT_EQ(read_text("GRID    1               .5      -1.25   3.+2\n").pos, expected);
    EXPECT_EQ(read_text("GRID    1       7       .5      -1.25   3.+2    7       123\n").pos, expected);
    EXPECT_EQ(read_text("GRID*                  1                              .5           -1.25*C\n*C                  3.+2\n").pos,
              expected);
    EXPECT_EQ(read_text("GRID,1,0,.5,-1.25,300.\n").pos, expected);
    EXPECT_EQ(read_text("GRID,1,,.5,-1.25,300.\n").pos, expected);
    EXPECT_EQ(read_text("GRID , 1 , , .5 , -1.25 , 3.e2 , 4, 5\n").pos, expected);
    EXPECT_EQ(read_text("GRID\t,+1,\t7,5e-1,-1.25,300,,,\r\n").pos, expected);
}

TEST(NastranInput, ReadsShortExponentsInFixedFields)
{
    const auto real = [](const std::string& text) {
        const reading small_field = read_text("GRID    1               " + text + "\n");
        EXPECT_EQ(small_field.code, 0) << text;
        std::string padded = text;
        padded.resize(16, ' ');
        const reading large_field = read_text("GRID*   1                               " + padded + "\n");
        const double value = small_field.pos.at(0).at(0);
        EXPECT_EQ(std::bit_cast<std::uint64_t>(large_field.pos.at(0).at(0)), std::bit_cast<std::uint64_t>(value)) << text;
        return value;
    };
    EXPECT_EQ(real("1.5+3"), 1500);
    EXPECT_EQ(real("1.1+2"), 110.00000000000001);
    EXPECT_EQ(real("-1.5-3"), -1.5 * std::pow(10.0, -3));
    EXPECT_EQ(real("1.5E+3"), 1500);
    EXPECT_EQ(real("1.5e-3"), 1.5e-3);
    EXPECT_EQ(real("1.5E3"), 1500);
    EXPECT_EQ(real("1.5D+3"), 1500);
    EXPECT_EQ(real("1.5D3"), 1.5);
    EXPECT_EQ(real("1.5+0"), 1.5);
    EXPECT_EQ(real("1.5+"), 1.5);
    EXPECT_EQ(real("1 .5 + 3"), 1500);
    EXPECT_EQ(real("-7"), -7);
    EXPECT_EQ(real("+7."), 7);
    EXPECT_EQ(real("--7"), 0);
    EXPECT_EQ(real("1E+2-2"), 100 * std::pow(10.0, -2));
    EXPECT_EQ(real("text"), 0);
    EXPECT_EQ(real("0x10"), 16);
    EXPECT_EQ(real("1.+999"), INFINITY);
    EXPECT_TRUE(std::isnan(real("0.+999")));
    EXPECT_TRUE(std::isnan(real("nan")));
}

TEST(NastranInput, CutsAndPadsFixedLinesTo80Columns)
{
    EXPECT_EQ(read_text("GRID    1").pos, (points{{0, 0, 0}}));
    EXPECT_EQ(read_text("GRID    1               1.      2.").pos, (points{{1, 2, 0}}));
    EXPECT_EQ(read_text("GRID    1               12345678876543219").pos, (points{{12345678, 87654321, 9}}));
    EXPECT_EQ(read_text("GRID    00012345678").pos.size(), 12345u);
}

TEST(NastranInput, ReadsALargeNodeOnTheLastLineAtHeightZero)
{
    const std::string line = "GRID*   1                               1.              2.              ";
    EXPECT_EQ(read_text(line).pos, (points{{1, 2, 0}}));
    EXPECT_EQ(read_text(line + "*C\n").pos, (points{{1, 2, 0}}));
    EXPECT_EQ(read_text(line + "*C\n\n").pos, (points{{1, 2, 0}}));
    // The second line belongs to the node whatever it is.
    const reading r = read_text(line + "\nENDDATA 5\nGRID    2               1.      2.      3.\n");
    EXPECT_EQ(r.pos, (points{{1, 2, 5}, {1, 2, 3}}));
}

TEST(NastranInput, EndsAtANodeThatCannotBeRead)
{
    const std::string start = "GRID,2,,1.,2.,3.\nCROD,1,1,1,2\n";
    for (const char* line : {"GRID,1,,1.,2.", "GRID,1,0,,2.,3.", "GRID,1,1.5,1.,2.,3.", "GRID,", "GRID,,,1.,2.,3.", "GRID,1,0,x,2.,3.",
                             "GRID,0,,1.,2.,3.", "GRID    0               1.      2.      3.", "GRID", "GRIDSET", "GRID*", "GRID*   x"})
    {
        const reading r = read_text(start + line + "\n" + "GRID,7,,1.,2.,3.\n");
        EXPECT_EQ(r.code, -1) << line;
        EXPECT_EQ(r.pos, (points{{0, 0, 0}, {1, 2, 3}})) << line;
        EXPECT_EQ(r.connect, (lists{{0, 1}})) << line;
        EXPECT_EQ(r.run_starts, (numbers{0, 1})) << line;
        EXPECT_EQ(r.kinds, (std::vector<int>{ELEM_BAR2})) << line;
        EXPECT_EQ(r.property_ids, (numbers{1})) << line;
    }
}

TEST(NastranInput, EndsAtANodeNumberBeyondMemory)
{
    const std::string start = "GRID,2,,1.,2.,3.\nCROD,1,1,1,2\n";
    for (const char* line :
         {"GRID,4000000000,,1.,2.,3.", "GRID,2147483648,,1.,2.,3.", "GRID,99999999999999999999,,1.,2.,3.", "GRID,1431655766,,1.,2.,3.",
          "GRID,-1,,1.,2.,3.", "GRID    -1              1.      2.      3.", "GRID,-99999999999999999999,,1.,2.,3.",
          "GRID*   4294967297                      1.              2.", "GRID*   4294967296                      1.              2."})
    {
        const reading r = read_text(start + line + "\nGRID,7,,1.,2.,3.\n");
        EXPECT_EQ(r.code, -199) << line;
        EXPECT_EQ(r.pos, (points{{0, 0, 0}, {1, 2, 3}})) << line;
        EXPECT_EQ(r.connect, (lists{{0, 1}})) << line;
        EXPECT_EQ(r.run_starts, (numbers{0, 1})) << line;
    }
}

TEST(NastranInput, TouchesNoMemoryInAWideGap)
{
    // Twice the width at each node: copying whole matrices would touch gigabytes.
    const temporary_file file("GRID,7,,1.,2.,3.\nGRID,20000000,,4.,5.,6.\nGRID,40000000,,7.,8.,9.\nGRID,80000000,,1.,1.,1.\n", ".bdf");
    dense2D<double> pos;
    dense2D<unsigned> connect;
    element_type kind;
    ASSERT_EQ(NASTRAN_input(file.name(), pos, connect, kind), 0);
    ASSERT_EQ(pos.cols, 80000000u);
    for (const auto& [node, x] : std::map<unsigned, std::array<double, 3>>{
             {1, {0, 0, 0}}, {7, {1, 2, 3}}, {20000000, {4, 5, 6}}, {40000000, {7, 8, 9}}, {79999999, {0, 0, 0}}, {80000000, {1, 1, 1}}})
        for (unsigned k = 0; k < 3; ++k) EXPECT_EQ(pos(k, node - 1), x[k]) << node;

    std::ifstream status("/proc/self/statm");
    std::size_t pages = 0, resident = 0;
    status >> pages >> resident;
    EXPECT_LT(resident, pages);
#if !defined(__SANITIZE_ADDRESS__)
    EXPECT_LT(resident * 4096, std::size_t{1} << 30);
#endif
}

// Elements.

TEST(NastranInput, KnowsTheNamesOfElements)
{
    const std::map<std::string, element_type> names = {
        {"BAR", ELEM_BAR2},     {"BEAM", ELEM_BAR2},    {"ROD", ELEM_BAR2},      {"CBAR", ELEM_BAR2},     {"CBEAM", ELEM_BAR2},
        {"CROD", ELEM_BAR2},    {"TRIA3", ELEM_TRIA3},  {"CTRIA", ELEM_TRIA3},   {"CTRIA3", ELEM_TRIA3},  {"TRIA6", ELEM_TRIA6},
        {"CTRIA6", ELEM_TRIA6}, {"QUAD4", ELEM_QUAD4},  {"CQUAD", ELEM_QUAD4},   {"CQUAD4", ELEM_QUAD4},  {"QUAD8", ELEM_QUAD8},
        {"CQUAD8", ELEM_QUAD8}, {"TETRA", ELEM_TETRA4}, {"CTETRA", ELEM_TETRA4}, {"PYRA", ELEM_PYRA5},    {"PYRAM", ELEM_PYRA5},
        {"CPYRA", ELEM_PYRA5},  {"CPYRAM", ELEM_PYRA5}, {"PENTA", ELEM_PENTA6},  {"CPENTA", ELEM_PENTA6}, {"HEXA", ELEM_HEXA8},
        {"CHEXA", ELEM_HEXA8}};
    for (const auto& [name, kind] : names)
    {
        std::string card = name + ",1,4";
        for (unsigned k = 0; k < nbr_nodes(kind); ++k) card += ',' + std::to_string(k + 1);
        const reading r = read_text(card + "\n");
        EXPECT_EQ(r.kinds, (std::vector<int>{kind})) << name;
        EXPECT_EQ(r.property_ids, (numbers{4})) << name;
    }
    for (const char* name : {"CTRIA7", "TRIA", "QUAD", "TRI", "cbar", "CBARS", " CBAR", "CBAR ", "", "CTETRA10"})
        EXPECT_EQ(read_text(std::string(name) + ",1,4,1,2\n").code, 0);
    for (const char* name : {"CTRIA7", "TRIA", "TRI", "ctria3", " CTRIA3", "CTRIA3 "})
        EXPECT_TRUE(read_text(std::string(name) + ",1,4,1,2,3\n").kinds.empty()) << name;
}

TEST(NastranInput, OrdersTheNodesOfEveryKind)
{
    struct expectation
    {
        const char* name;
        element_type kind;
        std::vector<unsigned> column;
    };
    const expectation table[] = {
        {"CBAR", ELEM_BAR2, {0, 1}},
        {"CTRIA3", ELEM_TRIA3, {0, 1, 2}},
        {"CQUAD4", ELEM_QUAD4, {0, 1, 2, 3}},
        {"CTRIA6", ELEM_TRIA6, {0, 1, 2, 4, 5, 3}},
        {"CQUAD8", ELEM_QUAD8, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"CTETRA", ELEM_TETRA4, {0, 2, 1, 3}},
        {"CTETRA", ELEM_TETRA10, {0, 2, 1, 3, 5, 4, 6, 7, 9, 8}},
        {"CPYRAM", ELEM_PYRA5, {0, 1, 2, 3, 4}},
        {"CPYRAM", ELEM_PYRA13, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}},
        {"CPENTA", ELEM_PENTA6, {0, 1, 2, 3, 4, 5}},
        {"CPENTA", ELEM_PENTA15, {0, 1, 2, 3, 4, 5, 11, 9, 10, 6, 7, 8, 14, 12, 13}},
        {"CHEXA", ELEM_HEXA8, {0, 1, 2, 3, 4, 5, 6, 7}},
        {"CHEXA", ELEM_HEXA20, {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 16, 17, 18, 19, 12, 13, 14, 15}},
    };
    for (const expectation& expected : table)
    {
        std::string card = std::string(expected.name) + ",1,1";
        for (unsigned k = 0; k < expected.column.size(); ++k) card += ',' + std::to_string(k + 1);
        const reading r = read_text(card + "\n");
        EXPECT_EQ(r.kinds, (std::vector<int>{expected.kind})) << expected.kind;
        EXPECT_EQ(r.connect, (lists{expected.column})) << expected.kind;
        // One node more or less fits no kind.
        EXPECT_TRUE(read_text(card + ",99\n").kinds.empty()) << expected.kind;
        EXPECT_TRUE(read_text(card.substr(0, card.rfind(',')) + "\n").kinds.empty()) << expected.kind;
    }
}

TEST(NastranInput, FollowsContinuationsInSmallFields)
{
    const std::string first = small({"CTETRA", "1", "5", "1", "2", "3", "4", "5", "6", "+A"});
    const std::string second = small({"+A", "7", "8", "9", "10"});
    const reading r = read_text(first + second);
    EXPECT_EQ(r.kinds, (std::vector<int>{ELEM_TETRA10}));
    EXPECT_EQ(r.connect, (lists{{0, 2, 1, 3, 5, 4, 6, 7, 9, 8}}));
    EXPECT_EQ(r.property_ids, (numbers{5}));

    // Without the mark the continuation is a card of its own, and no known one.
    EXPECT_TRUE(read_text(small({"CTETRA", "1", "5", "1", "2", "3", "4", "5", "6"}) + second).kinds.empty());
    // A continuation in free fields does as well.
    EXPECT_EQ(read_text(first + "+A,7,8,9,10\n").connect, r.connect);
}

TEST(NastranInput, EndsACardAtAShortContinuation)
{
    // Six nodes on the first line and two on the second: the element is complete although the second line is marked too.
    const std::string card =
        small({"CHEXA", "1", "5", "1", "2", "3", "4", "5", "6", "+A"}) + small({"+A", "7", "8", "", "", "", "", "", "", "+B"});
    const reading r = read_text(card + small({"CROD", "2", "5", "1", "2"}));
    EXPECT_EQ(r.kinds, (std::vector<int>{ELEM_HEXA8, ELEM_BAR2}));
    EXPECT_EQ(r.connect, (lists{{0, 1, 2, 3, 4, 5, 6, 7}, {0, 1, none, none, none, none, none, none}}));
}

TEST(NastranInput, LosesTheFieldsBehindABlankOne)
{
    EXPECT_TRUE(read_text(small({"CQUAD4", "1", "5", "1", "", "3", "4", "5"})).kinds.empty());
    // It ends the list of its line, not the card.
    const reading r = read_text(small({"CQUAD4", "1", "5", "1", "", "9", "9", "9", "9", "+A"}) + small({"+A", "2", "3", "4"}));
    EXPECT_EQ(r.connect, (lists{{0, 1, 2, 3}}));
    // Free fields count zeros.
    EXPECT_EQ(read_text("CQUAD4,1,,1,,3,4\n").connect, (lists{{0, none, 2, 3}}));
    EXPECT_EQ(read_text("CQUAD4,1,,1,,3,4\n").property_ids, (numbers{0}));
}

TEST(NastranInput, LetsAMarkedLineTakeTheNextOne)
{
    const std::string next = small({"CROD", "2", "5", "1", "2"});
    EXPECT_TRUE(read_text("PLOAD4,1,2,3,+\n" + next).kinds.empty());
    EXPECT_TRUE(read_text(small({"FORCE", "1", "2", "3", "", "", "", "", "", "+"}) + next).kinds.empty());
    EXPECT_TRUE(read_text(small({"FORCE*", "1", "", "2", "", "3"}) + next).kinds.empty());
    // A first line of fewer than 3 fields takes none.
    EXPECT_EQ(read_text("PARAM,+\n" + next).kinds.size(), 1u);
    EXPECT_EQ(read_text(small({"FORCE", "1", "2", "", "", "", "", "", "", "+"}) + next).kinds.size(), 1u);
    // Nor does one with fewer than two numbers.
    EXPECT_EQ(read_text("CROD,1,+\n" + next).kinds.size(), 1u);
    // Keywords are no exception.
    EXPECT_EQ(read_text("PLOAD4,1,2,3,+\nENDDATA\n" + next).kinds.size(), 1u);
}

TEST(NastranInput, ReadsLargeFields)
{
    const auto large = [](const char* name, const std::string& a, const std::string& b, const std::string& c, const std::string& d,
                          const char* mark) {
        std::string line = name;
        line.resize(8, ' ');
        for (const std::string& field : {a, b, c, d}) (line += field).resize((line.size() + 15 - 8) / 16 * 16 + 8, ' ');
        return line + mark + "\n";
    };
    const reading r = read_text(large("CTETRA*", "1", "5", "1", "2", "*A") + large("*A", "3", "4", "", "", ""));
    EXPECT_EQ(r.connect, (lists{{0, 2, 1, 3}}));
    EXPECT_EQ(r.property_ids, (numbers{5}));
    // The name is mark enough, and without it so is field 5.
    EXPECT_EQ(read_text(large("CTETRA*", "1", "5", "1", "2", "") + large("*", "3", "4", "", "", "")).connect, r.connect);
    EXPECT_EQ(read_text(large("CTETRA", "1", "5", "1", "2", "*A") + large("*A", "3", "4", "", "", "")).connect, r.connect);
    // A star alone is no mark.
    const reading hexa =
        read_text(large("CHEXA*", "1", "5", "1", "2", "*A") + large("*A", "3", "4", "5", "6", "") + large("*B", "7", "8", "", "", ""));
    EXPECT_TRUE(hexa.kinds.empty());
    const reading marked =
        read_text(large("CHEXA*", "1", "5", "1", "2", "*A") + large("*A", "3", "4", "5", "6", "*B") + large("*B", "7", "8", "", "", ""));
    EXPECT_EQ(marked.kinds, (std::vector<int>{ELEM_HEXA8}));
}

TEST(NastranInput, SplitsFreeFields)
{
    const lists tria{{0, 1, 2}};
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,3\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,3,\n").connect, tria); // no field behind the last comma
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,3\r\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3, 1, 5, 1, 2 , 3x\n").connect, tria);
    EXPECT_TRUE(read_text("CTRIA3,1,5,1,2,3,,\n").kinds.empty());
    // A long field goes, with all behind it.
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,3,123456789,4\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,00000003\n").connect, tria);
    EXPECT_TRUE(read_text("CTRIA3,1,5,1,2,000000003\n").kinds.empty());
    EXPECT_TRUE(read_text("CTRIA3   ,1,5,1,2,3\n").kinds.empty());
    // Marks, on their own and with a name.
    EXPECT_EQ(read_text("CTRIA3,1,5,1,+\n+,2,3\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3,1,5,1,*abc\n*abc,2,3\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3,1,5,1,+C\n+C,2,+D\n+D,3,\n").connect, tria);
    // "+C,3" has two fields: it ends the card with its number.
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,+C\n+C,3\n").connect, tria);
    EXPECT_EQ(read_text("CTRIA3,1,5,1,2,+C\n+C,3,+D\n+D,\nCROD,1,1,1,2\n").kinds, (std::vector<int>{ELEM_TRIA3, ELEM_BAR2}));
}

TEST(NastranInput, SkipsBarsWithAnOrientation)
{
    EXPECT_TRUE(read_text(small({"CBAR", "1", "1", "1", "2", "3", "4", "5"})).kinds.empty());
    EXPECT_EQ(read_text(small({"CBAR", "1", "1", "1", "2", "0.", "1.", "0."})).kinds.size(), 1u);
    EXPECT_TRUE(read_text("CBAR,1,1,1,2,0.,1.,0.\n").kinds.empty());
}

TEST(NastranInput, ClampsIntegersBeyondTheirRange)
{
    EXPECT_EQ(read_text("CROD*   99999999999999999999999         1               -99999999999   \n").code, 0);
    const reading r = read_text("CROD*   1               5000000000      5000000000      -999999999999999\n");
    EXPECT_EQ(r.property_ids, (numbers{2147483647u}));
    EXPECT_EQ(r.connect, (lists{{2147483646u, 2147483647u}}));
}

TEST(NastranInput, EndsACardAtALongContinuation)
{
    const std::string first = small({"CTETRA", "1", "5", "1", "2", "3", "4", "5", "6", "+A"});
    std::string second = small({"+A", "7", "8", "9", "10", "", "", "", "", "+B"});
    second.pop_back();
    const std::string third = small({"CROD", "2", "5", "1", "2"});
    const auto read_with = [&](std::size_t length, const std::string& line_end) {
        std::string line = second;
        line.resize(length, ' ');
        return read_text(first + line + line_end + third).kinds;
    };
    // 255 characters: the mark takes the CROD into the card. 256: it does not.
    EXPECT_EQ(read_with(255, "\n"), (std::vector<int>{}));
    EXPECT_EQ(read_with(256, "\n"), (std::vector<int>{ELEM_TETRA10, ELEM_BAR2}));
    EXPECT_EQ(read_with(300000, "\n"), (std::vector<int>{ELEM_TETRA10, ELEM_BAR2}));
    EXPECT_EQ(read_with(300000, ""), (std::vector<int>{ELEM_TETRA10}));
}

TEST(NastranInput, FillsRowsThatComeLaterWithZero)
{
    const reading r = read_text("CTRIA3,1,1,5,6,7\nCHEXA,2,2,1,2,3,4,5,6,7,8\nCTRIA3,3,3,2,3,4\n");
    EXPECT_EQ(r.connect, (lists{{4, 5, 6, 0, 0, 0, 0, 0}, {0, 1, 2, 3, 4, 5, 6, 7}, {1, 2, 3, none, none, none, none, none}}));
    EXPECT_EQ(r.kinds, (std::vector<int>{ELEM_TRIA3, ELEM_HEXA8, ELEM_TRIA3}));
    EXPECT_EQ(r.run_starts, (numbers{0, 1, 2, 3}));
    EXPECT_EQ(r.property_ids, (numbers{1, 2, 3}));
}

// The short forms.

TEST(NastranInput, FindsOneKindForAllElements)
{
    const std::string tria = "CTRIA3,1,1,1,2,3\n", quad = "CQUAD4,1,1,1,2,3,4\n", rod = "CROD,1,1,1,2\n",
                      tria6 = "CTRIA6,1,1,1,2,3,4,5,6\n";
    const std::string tetra = "CTETRA,1,1,1,2,3,4\n", pyra = "CPYRA,1,1,1,2,3,4,5\n", penta = "CPENTA,1,1,1,2,3,4,5,6\n";
    const std::string hexa = "CHEXA,1,1,1,2,3,4,5,6,7,8\n";
    const std::pair<std::string, element_type> table[] = {
        {"", ELEM_NONE},
        {rod, ELEM_BAR2},
        {tria6 + tria6, ELEM_TRIA6},
        {tria + quad, ELEM_SURF_ANY},
        {quad + tria + quad + tria, ELEM_SURF_ANY},
        {tetra + pyra, ELEM_SOLID_ANY},
        {hexa + penta + pyra + tetra, ELEM_SOLID_ANY},
        {tria + tetra, ELEM_NONE},
        {tria + tetra + tria, ELEM_NONE},
        {tetra + pyra + tria + hexa, ELEM_NONE},
        {tria + tria6, ELEM_NONE},
        {rod + tria, ELEM_NONE},
        {rod + tria + rod, ELEM_NONE},
    };
    for (const auto& [text, expected] : table)
    {
        const temporary_file file("GRID,3,,1.,2.,3.\n" + text, ".bdf");
        dense2D<double> pos;
        dense2D<unsigned> connect;
        element_type kind = ELEM_HEXA27;
        EXPECT_EQ(NASTRAN_input(file.name(), pos, connect, kind), 0);
        EXPECT_EQ(kind, expected) << text;
        EXPECT_EQ(pos.cols, 3u);
        EXPECT_EQ(connect.cols, static_cast<unsigned>(std::count(text.begin(), text.end(), '\n')));
    }
}

TEST(NastranInput, SplitsTheFirstTwoRuns)
{
    const temporary_file file("GRID,1,,1.,2.,3.\nCTRIA3,1,1,1,2,3\nCTRIA3,1,1,4,5,6\nCROD,1,1,7,8\nCTRIA3,1,1,1,2,3\n", ".bdf");
    dense2D<double> pos;
    dense2D<unsigned> one, two;
    element_type kind1, kind2;
    ASSERT_EQ(NASTRAN_input(file.name(), pos, one, two, kind1, kind2), 0);
    EXPECT_EQ(columns(pos), (points{{1, 2, 3}}));
    EXPECT_EQ(kind1, ELEM_TRIA3);
    EXPECT_EQ(kind2, ELEM_BAR2);
    EXPECT_EQ(columns(one), (lists{{0, 1, 2}, {3, 4, 5}}));
    EXPECT_EQ(columns(two), (lists{{6, 7}}));

    const temporary_file single("CROD,1,1,7,8\n", ".bdf");
    ASSERT_EQ(NASTRAN_input(single.name(), pos, one, two, kind1, kind2), 0);
    EXPECT_TRUE(pos.empty());
    EXPECT_EQ(columns(one), (lists{{6, 7}}));
    EXPECT_EQ(kind1, ELEM_BAR2);
    EXPECT_TRUE(two.empty());
    EXPECT_EQ(kind2, ELEM_NONE);

    const temporary_file damaged("CROD,1,1,7,8\nGRID,1\n", ".bdf");
    EXPECT_EQ(NASTRAN_input(damaged.name(), pos, one, two, kind1, kind2), -1);
    EXPECT_TRUE(one.empty());
    EXPECT_EQ(kind1, ELEM_NONE);
    element_type kind = ELEM_HEXA8;
    EXPECT_EQ(NASTRAN_input(damaged.name(), pos, one, kind), -1);
    EXPECT_EQ(kind, ELEM_NONE);
    EXPECT_EQ(one.cols, 1u);
}

TEST(NastranInput, LeavesOtherViewsOfItsResultsAlone)
{
    const temporary_file file("GRID,1,,1.,2.,3.\nCROD,1,1,7,8\n", ".bdf");
    dense2D<double> pos(3, 2, 5.0);
    dense2D<unsigned> connect(2, 2, 5u);
    const dense2D<double> old_pos = pos;
    const dense2D<unsigned> old_connect = connect;
    element_type kind;
    ASSERT_EQ(NASTRAN_input(file.name(), pos, connect, kind), 0);
    EXPECT_EQ(columns(old_pos), (points{{5, 5, 5}, {5, 5, 5}}));
    EXPECT_EQ(columns(old_connect), (lists{{5, 5}, {5, 5}}));
}

// Against the literal reader.

std::string random_number(test::random_source& random)
{
    static const char* const odd[] = {"0", "-1", "+4", "007", "1.", "-", "", "299", "-0", "2x", "3000000000", "1431655766", "99999999999"};
    return random.below(12) == 0 ? odd[random.below(13)] : std::to_string(random.below(30) + 1);
}

std::string random_real(test::random_source& random)
{
    static const char* const odd[] = {"0",   "-1",    "+4.", "1.5+3", "1.1+2", "-1.5-3", "1.5E+3", "1e-5",   "1D+2",    "1.7-12",
                                      "",    ".",     "1.e", "nan",   "inf",   "0x1p3",  "1.+400", "1.-400", "4.9-324", "1e5-3",
                                      "--1", "1 2.5", "1.+", "0.-0",  "9e307", "1.5 ",   "7.E5",   "-.5",    "+.5-0"};
    if (random.below(3) == 0) return odd[random.below(29)];
    char text[40];
    const double value = (random.between(-1, 1)) * std::pow(10.0, static_cast<double>(random.below(9)) - 4);
    static const char* const formats[] = {"%.3f", "%g", "%.1e", "%.6E", "%.15g"};
    std::snprintf(text, sizeof text, formats[random.below(5)], value);
    return text;
}

void put_field(std::string& line, std::string field, std::size_t width, test::random_source& random)
{
    if (random.below(4) == 0) field.insert(0, random.below(3), ' ');
    field.resize(width, ' ');
    line += field;
}

/// The lines of a card in one of the layouts; continuation by continuation the layout may change.
std::string random_card(test::random_source& random)
{
    static const char* const names[] = {"CBAR",   "CROD",   "CTRIA3", "TRIA6", "CQUAD4", "QUAD8",
                                        "CTETRA", "CPYRAM", "CPENTA", "CHEXA", "PSHELL", "FORCE"};
    static const unsigned counts[] = {2, 2, 3, 6, 4, 8, 4, 5, 6, 8, 3, 5, 10, 13, 15, 20};
    const unsigned which = random.below(12);
    unsigned count = counts[which];
    if (which >= 6 && which < 10 && random.below(2)) count = counts[which + 6];
    if (random.below(15) == 0) count += random.below(3);
    std::vector<std::string> fields{random_number(random), random_number(random)};
    for (unsigned k = 0; k < count; ++k) fields.push_back(random.below(10) ? std::to_string(random.below(30) + 1) : random_number(random));

    std::string text;
    std::size_t next = 0;
    unsigned layout = random.below(3);
    for (bool first = true; first || next < fields.size(); first = false)
    {
        if (random.below(12) == 0) layout = random.below(3);
        const std::string name = first ? names[which] : layout == 1 ? "*C" : "+C";
        const bool mark_always = random.below(20) == 0;
        const std::size_t take = std::min<std::size_t>(fields.size() - next, layout == 1 ? 4 : 8);
        const bool more = next + take < fields.size();
        std::string line;
        if (layout == 2)
        {
            line = name;
            for (std::size_t k = 0; k < take; ++k) line += ',' + fields[next + k];
            if (more || mark_always) line += random.below(2) ? ",+C" : ",*";
        }
        else
        {
            put_field(line, first && layout == 1 ? name + "*" : name, 8, random);
            for (std::size_t k = 0; k < take; ++k) put_field(line, fields[next + k], layout == 1 ? 16 : 8, random);
            if (more || mark_always)
            {
                line.resize(72, ' ');
                line += layout == 1 ? "*C" : "+C";
            }
        }
        next += take;
        text += line + (random.below(10) ? "\n" : "\r\n");
    }
    return text;
}

std::string random_grid(test::random_source& random)
{
    const std::string number = random.below(30) ? std::to_string(random.below(40) + 1) : random_number(random);
    const std::string system = random.below(2) ? "" : "0";
    const std::string x = random_real(random), y = random_real(random), z = random_real(random);
    std::string line;
    switch (random.below(3))
    {
    case 0:
        put_field(line, "GRID", 8, random);
        if (line[0] == ' ') line.erase(0, line.find('G'));
        for (const std::string& field : {number, system, x, y, z}) put_field(line, field, 8, random);
        break;
    case 1:
        line = "GRID*   ";
        for (const std::string& field : {number, system, x, y}) put_field(line, field, 16, random);
        line += "*C\n*C      ";
        put_field(line, z, 16, random);
        break;
    default:
        for (const char* const separator = random.below(3) ? "," : " , "; const std::string& field : {number, system, x, y, z})
            line += separator + field;
        line.insert(0, "GRID");
    }
    return line + (random.below(10) ? "\n" : "\r\n");
}

std::string random_file(test::random_source& random)
{
    std::string text;
    for (unsigned k = random.below(12) + 1; k > 0; --k)
    {
        switch (random.below(12))
        {
        case 0: text += "$ comment, with * and +\n"; break;
        case 1: text += random.below(4) ? "BEGIN BULK\n" : "ENDDATA\n"; break;
        case 2:
        case 3:
        case 4: text += random_grid(random); break;
        default: text += random_card(random);
        }
    }
    return text;
}

/// Damage: characters changed, put in and taken out, lines cut.
void mutate(std::string& text, test::random_source& random)
{
    static const char alphabet[] = " ,*+-.eEdDN$G0123456789\t\r\n\n,,  \v\f\x7f\xe9x";
    for (unsigned k = random.below(6); k > 0 && !text.empty(); --k)
    {
        const unsigned place = random.below(static_cast<unsigned>(text.size()));
        // The terminating zero is one of the characters.
        const char c = alphabet[random.below(sizeof alphabet)];
        switch (random.below(5))
        {
        case 0: text[place] = c; break;
        case 1: text.insert(place, 1, c); break;
        case 2: text.erase(place, random.below(9) + 1); break;
        case 3: text.insert(place, text.substr(random.below(static_cast<unsigned>(text.size())), random.below(90))); break;
        default:
            if (random.below(8) == 0) text.insert(place, 250 + random.below(12), ' ');
            if (random.below(8) == 0) text.resize(place);
        }
    }
}

TEST(NastranInput, ReadsRandomFilesLikeTheLiteralReader)
{
    test::random_source random(7);
    for (unsigned round = 0; round < 4000 && !HasFailure(); ++round) expect_like_literal(random_file(random));
}

TEST(NastranInput, ReadsDamagedFilesLikeTheLiteralReader)
{
    test::random_source random(8);
    for (unsigned round = 0; round < 8000 && !HasFailure(); ++round)
    {
        std::string text = random_file(random);
        mutate(text, random);
        expect_like_literal(text);
    }
}

TEST(NastranInput, ReadsEveryTruncationLikeTheLiteralReader)
{
    test::random_source random(9);
    for (unsigned round = 0; round < 4; ++round)
    {
        const std::string text = random_file(random);
        for (std::size_t length = 0; length <= text.size() && !HasFailure(); ++length) expect_like_literal(text.substr(0, length));
    }
}

TEST(NastranInput, SeesZeroBytesAsTheEndOfTheirLine)
{
    using namespace std::string_literals;
    for (std::size_t at = 0; at < 90; ++at)
    {
        for (std::string text :
             {"GRID    1               1.      2.      3.                                     x\nCROD,1,1,1,2\n"s,
              "GRID*   1                               1.              2.              *C\n*C      3.\n"s, "GRID,1,,1.,2.,3.,4,5,6\n"s,
              "CTRIA3  1       1       1       2       3\n"s, "CTRIA3,1,1,1,2,+\n+,3\n"s,
              "CTETRA* 1               2               3               4               *C\n*C      5               6\n"s})
        {
            if (at < text.size()) text[at] = '\0';
            expect_like_literal(text);
        }
    }
}

TEST(NastranInput, ReadsLongLinesInLinearTime)
{
    std::string fields = "CTRIA3,1,1,1,2,3";
    for (unsigned k = 0; k < 200000; ++k) fields += ",7";
    EXPECT_TRUE(read_text(fields).kinds.empty());
    std::string marked = "CTRIA3,1,1,1,2,3,+\n";
    for (unsigned k = 0; k < 200000; ++k) marked += "+,1,2,+\n";
    EXPECT_TRUE(read_text(marked).kinds.empty());
    EXPECT_EQ(read_text("GRID,1,,1.,2.,3.," + std::string(3000000, ' ')).pos.size(), 1u);
}

TEST(NastranInput, SurvivesMemoryFailingAnywhere)
{
    std::string text;
    test::random_source random(3);
    for (unsigned k = 0; k < 300; ++k)
    {
        text += "GRID," + std::to_string(k + 1) + ",,1.,2.,3.\n";
        text += k % 3 == 0 ? "CTRIA3,1,1,1,2,3\n" : k % 3 == 1 ? "CTETRA,1,1,1,2,3,4\n" : "CTETRA,1,1,1,2,3,4\n";
    }
    text += "CHEXA,1,1,1,2,3,4,5,6,7,8\n" + std::string(600000, 'x') + "\n";
    const temporary_file file(text, ".bdf");
    const unsigned handles = open_handles();
    for (const bool only_once : {false, true})
        for (unsigned n = 1;; ++n)
        {
            ASSERT_LT(n, 1000u);
            const long live = test::live_allocations();
            bool failed = false;
            int code = 0;
            {
                dense2D<double> pos;
                dense2D<unsigned> connect;
                dense1D<unsigned> run_starts, property_ids;
                dense1D<int> kinds;
                {
                    const test::failing_allocation failing(n, only_once);
                    code = NASTRAN_input(file.name(), pos, connect, run_starts, kinds, property_ids);
                    failed = failing.has_failed();
                }
                EXPECT_TRUE(pos.cols == 0 || pos.rows == 3);
                EXPECT_EQ(property_ids.size, connect.cols);
                if (!run_starts.empty())
                {
                    EXPECT_EQ(run_starts.size, std::max(kinds.size + 1, 2u));
                    EXPECT_EQ(run_starts[run_starts.size - 1], connect.cols);
                }
                EXPECT_TRUE(code == 0 || code == -199) << code;
                if (code == 0)
                {
                    EXPECT_EQ(pos.cols, 300u);
                    EXPECT_EQ(connect.cols, 301u);
                    EXPECT_EQ(kinds.size, 201u);
                }
            }
            EXPECT_EQ(test::live_allocations(), live);
            EXPECT_EQ(open_handles(), handles);
            if (!failed) break;
            // A failed reservation ahead of need is made good by a smaller one.
            EXPECT_TRUE(only_once || code == -199);
        }
}

TEST(NastranInput, FollowsTheLocaleOfTheCLibrary)
{
    const test::comma_locale comma;
    if (!comma.found()) GTEST_SKIP() << "no locale with a decimal comma on this machine";
    // The points end the numbers in fixed fields, but not an exponent without its letter; a comma always makes the fields free.
    const reading fixed = read_text(small({"GRID", "1", "", "1.5", "2.5+1", "-3.75"}) +
                                    "GRID*                  2                           12.25         -4.5E+1*\n"
                                    "*                    7.5\n"
                                    "CTRIA3,9,4,1,2,3\n");
    EXPECT_EQ(fixed.code, 0);
    EXPECT_EQ(fixed.pos, (points{{1, 20, -3}, {12, -4, 7}}));
    EXPECT_EQ(fixed.connect, (lists{{0, 1, 2}}));
    EXPECT_EQ(fixed.property_ids, numbers{4});
    // In free fields a comma right behind a digit belongs to the number, and a point is no part of it.
    EXPECT_EQ(read_text("GRID,1,, 1 , 2 , 3\nGRID,2,0,4,5,5,5,6\n").pos, (points{{1, 2, 3}, {4.5, 5.5, 6}}));
    EXPECT_EQ(read_text("GRID,1,,1,2,3\n").code, -1);
    EXPECT_EQ(read_text("GRID,1,,1.5,2,3\n").code, -1);
}

/// Reads a file with memory failing at every place in turn, for good and once: the read gives -199, or all that there is.
void expect_clean_failures(const std::string& text)
{
    const temporary_file file(text, ".bdf");
    const reading whole = read_file(file.name());
    ASSERT_EQ(whole.code, 0);
    for (const bool only_once : {false, true})
        for (unsigned n = 1;; ++n)
        {
            ASSERT_LT(n, 100u);
            dense2D<double> pos;
            dense2D<unsigned> connect;
            dense1D<unsigned> run_starts, property_ids;
            dense1D<int> kinds;
            int code = 0;
            bool failed = false;
            {
                const test::failing_allocation failing(n, only_once);
                code = NASTRAN_input(file.name(), pos, connect, run_starts, kinds, property_ids);
                failed = failing.has_failed();
            }
            if (code == 0)
            {
                EXPECT_EQ(columns(pos), whole.pos);
                EXPECT_EQ(columns(connect), whole.connect);
            }
            else
                EXPECT_EQ(code, -199) << n;
            if (!failed) break;
            EXPECT_TRUE(only_once || code == -199) << n;
        }
}

TEST(NastranInput, ReportsLackOfMemoryForLongLines)
{
    // Longer than the window of the reader: the second line of a large node, and the continuation of an element.
    const std::string rest(600000, ' ');
    expect_clean_failures("GRID*                  1                             1.5             2.5*\n*                    3.5" + rest +
                          "\n");
    expect_clean_failures("GRID,1,,1.,2.,3.\nCTRIA3,1,1,1,2,+\n+,3,4,5" + rest + "\nCBAR,1,1,1,2\n");
}

} // namespace
