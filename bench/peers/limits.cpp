#include "limits.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <numeric>
#include <random>

#include "bench/files.h"

namespace bench
{

namespace
{

enum class effort
{
    streamed,
    fresh,
    scattered,
    chased,
    read,
    written,
    parsed,
    parsed_whole,
    printed,
    printed_whole,
    compared,
    root,
    logarithm,
    kinds
};

constexpr std::size_t kinds = static_cast<std::size_t>(effort::kinds);

constexpr const char* words[kinds] = {"bytes streamed",
                                      "bytes of results and work space",
                                      "lines fetched at random",
                                      "lines fetched one after the other",
                                      "bytes read from a file",
                                      "bytes written to a file",
                                      "decimal numbers parsed",
                                      "whole numbers parsed",
                                      "decimal numbers printed",
                                      "whole numbers printed",
                                      "comparisons",
                                      "roots or divisions",
                                      "logarithms or exponentials"};

struct share
{
    effort what;
    double amount;
    const char* per = ""; ///< a count of the row; per item without one
};

/// The least for each family of rows, by the start of their names; the longest start that fits counts. "log2 n" is added by `per` "log".
struct work
{
    const char* row;
    std::array<share, 5> shares;
};

constexpr work least[] = {
    {"search tree", {{{effort::streamed, 24}, {effort::fresh, 16}, {effort::compared, 1, "log"}}}},
    {"closest", {{{effort::compared, 1, "log"}, {effort::chased, 2}, {effort::scattered, 10}, {effort::fresh, 4}}}},
    {"nodes in a box", {{{effort::compared, 1, "log"}, {effort::chased, 2}, {effort::scattered, 45}}}},
    {"merge", {{{effort::streamed, 24}, {effort::scattered, 2}, {effort::fresh, 12}}}},

    {"neighbours, triangles", {{{effort::streamed, 48}, {effort::fresh, 24}}}},
    {"neighbours, triangles numbered at random", {{{effort::streamed, 48}, {effort::fresh, 24}, {effort::scattered, 6}}}},
    {"neighbours, tetrahedra", {{{effort::streamed, 96}, {effort::fresh, 48}}}},
    {"neighbours, hexahedra", {{{effort::streamed, 168}, {effort::fresh, 72}}}},
    {"distinct edges, triangles", {{{effort::streamed, 36}, {effort::fresh, 24}}}},
    {"distinct edges, triangles numbered at random", {{{effort::streamed, 36}, {effort::fresh, 24}, {effort::scattered, 3}}}},
    {"distinct edges, tetrahedra", {{{effort::streamed, 56}, {effort::fresh, 33}}}},
    {"distinct edges, hexahedra", {{{effort::streamed, 120}, {effort::fresh, 80}}}},
    {"node graph, triangles", {{{effort::streamed, 48}, {effort::fresh, 28}}}},
    {"node graph, triangles numbered at random", {{{effort::streamed, 48}, {effort::fresh, 28}, {effort::scattered, 6}}}},
    {"node graph, tetrahedra", {{{effort::streamed, 64}, {effort::fresh, 28}}}},
    {"node graph, hexahedra", {{{effort::streamed, 160}, {effort::fresh, 148}}}},
    {"node-to-element lists, triangles", {{{effort::streamed, 36}, {effort::fresh, 14}}}},
    {"node-to-element lists, triangles numbered at random", {{{effort::streamed, 36}, {effort::fresh, 14}, {effort::scattered, 3}}}},
    {"node-to-element lists, tetrahedra", {{{effort::streamed, 48}, {effort::fresh, 17}}}},
    {"node-to-element lists, hexahedra", {{{effort::streamed, 96}, {effort::fresh, 36}}}},
    {"components, triangles", {{{effort::streamed, 16}, {effort::fresh, 4}}}},
    {"components, triangles numbered at random", {{{effort::streamed, 16}, {effort::fresh, 4}, {effort::scattered, 1}}}},
    {"components, tetrahedra", {{{effort::streamed, 20}, {effort::fresh, 4}}}},
    {"components, hexahedra", {{{effort::streamed, 28}, {effort::fresh, 4}}}},

    {"STL text, read", {{{effort::read, 269}, {effort::parsed, 9}, {effort::scattered, 3}, {effort::fresh, 24}}}},
    {"STL binary, read", {{{effort::read, 50}, {effort::scattered, 3}, {effort::fresh, 24}}}},
    {"STL text, write", {{{effort::written, 269}, {effort::printed, 12}, {effort::root, 2}}}},
    {"STL binary, write", {{{effort::written, 50}, {effort::root, 2}}}},
    {"OBJ, read", {{{effort::read, 38}, {effort::parsed, 1.5}, {effort::parsed_whole, 3}, {effort::fresh, 24}}}},
    {"OBJ with normals, read", {{{effort::read, 73}, {effort::parsed, 3}, {effort::parsed_whole, 6}, {effort::fresh, 36}}}},
    {"OBJ, write", {{{effort::written, 50}, {effort::printed, 1.5}, {effort::printed_whole, 3}}}},
    {"NASTRAN small", {{{effort::read, 66}, {effort::parsed, 0.53}, {effort::parsed_whole, 6.2}, {effort::fresh, 20}}}},
    {"NASTRAN large", {{{effort::read, 75}, {effort::parsed, 0.53}, {effort::parsed_whole, 6.2}, {effort::fresh, 20}}}},
    {"NASTRAN free", {{{effort::read, 41}, {effort::parsed, 0.53}, {effort::parsed_whole, 6.2}, {effort::fresh, 20}}}},
    {"NASTRAN, write", {{{effort::written, 60}, {effort::printed, 0.53}, {effort::printed_whole, 6.2}}}},
    {"legacy VTK", {{{effort::written, 37}, {effort::printed, 0.53}, {effort::printed_whole, 6}}}},
    {"MEDIT", {{{effort::written, 35}, {effort::printed, 0.53}, {effort::printed_whole, 5}}}},
    {"FEMAP", {{{effort::written, 190}, {effort::printed, 0.53}, {effort::printed_whole, 6.2}}}},
    {"EnSight", {{{effort::written, 55}, {effort::printed, 0.53}, {effort::printed_whole, 5.2}}}},

    {"quality of triangles", {{{effort::streamed, 24}, {effort::fresh, 8}, {effort::root, 2}}}},
    {"quality of tetrahedra", {{{effort::streamed, 20}, {effort::fresh, 8}, {effort::root, 2}}}},
    {"quality of hexahedra", {{{effort::streamed, 56}, {effort::fresh, 8}, {effort::root, 40}}}},
    {"validity", {{{effort::streamed, 48}}}},

    // A move measures the edges round its node, a record goes into the queue and out of it.
    {"gradation, triangles",
     {{{effort::logarithm, 12, "moves"}, {effort::root, 12, "moves"}, {effort::chased, 1, "records"}, {effort::compared, 20, "records"}}}},
    {"gradation, tetrahedra",
     {{{effort::logarithm, 27, "moves"}, {effort::root, 27, "moves"}, {effort::chased, 1, "records"}, {effort::compared, 20, "records"}}}},
};

// ---- What one of each takes, in nanoseconds.

/// The least time of several calls, divided by what a call does.
template <class Call>
double nanoseconds(double amount, Call call)
{
    double best = 1e30;
    for (int repetition = 0; repetition < 3; ++repetition)
    {
        const std::clock_t start = std::clock();
        call();
        best = std::min(best, 1e9 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC);
    }
    return best / amount;
}

volatile double sink_number;
volatile std::size_t sink_index;

constexpr std::size_t many = std::size_t{1} << 25;  ///< doubles, beyond any cache
constexpr std::size_t usual = std::size_t{3} << 20; ///< doubles: the coordinates of a million nodes
constexpr std::size_t some = 200000;

double streaming()
{
    const std::vector<double> from(many, 1.0);
    std::vector<double> to(many);
    return nanoseconds(16.0 * many, [&] {
        std::copy(from.begin(), from.end(), to.begin());
        sink_number = to[many / 2];
    });
}

/// Memory that is taken, written and given up by one call after the other, as by the calls that are measured.
double work_space()
{
    return nanoseconds(8.0 * usual, [] {
        const std::unique_ptr<double[]> fresh(new double[usual]);
        std::fill_n(fresh.get(), usual, 1.0);
        sink_number = fresh[usual / 2];
    });
}

/// A walk through all lines in random order: each tells where the next one is.
double chasing()
{
    constexpr std::size_t lines = usual / 8, steps = lines;
    std::vector<std::array<std::size_t, 8>> ring(lines);
    std::vector<std::size_t> order(lines);
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::shuffle(order.begin(), order.end(), std::mt19937(1));
    for (std::size_t k = 0; k < lines; ++k) ring[order[k]][0] = order[(k + 1) % lines];
    return nanoseconds(1.0 * steps, [&] {
        std::size_t at = order[0];
        for (std::size_t k = 0; k < steps; ++k) at = ring[at][0];
        sink_index = at;
    });
}

double scattering()
{
    const std::vector<double> numbers(usual, 1.0);
    constexpr std::size_t steps = usual / 2;
    std::vector<std::uint32_t> places(steps);
    std::mt19937 engine(1);
    for (std::uint32_t& place : places) place = static_cast<std::uint32_t>(engine() % usual);
    return nanoseconds(1.0 * steps, [&] {
        double sum = 0;
        for (const std::uint32_t place : places) sum += numbers[place];
        sink_number = sum;
    });
}

constexpr std::size_t file_bytes = std::size_t{1} << 27;

double file_writing(const std::string& file)
{
    const std::vector<char> buffer(std::size_t{1} << 16, 'x');
    return nanoseconds(1.0 * file_bytes, [&] {
        std::remove(file.c_str());
        std::FILE* const out = std::fopen(file.c_str(), "wb");
        if (!out) return;
        std::setvbuf(out, nullptr, _IONBF, 0);
        for (std::size_t done = 0; done < file_bytes; done += buffer.size()) std::fwrite(buffer.data(), 1, buffer.size(), out);
        std::fclose(out);
    });
}

double file_reading(const std::string& file)
{
    std::vector<char> buffer(std::size_t{1} << 16);
    return nanoseconds(1.0 * file_bytes, [&] {
        std::FILE* const in = std::fopen(file.c_str(), "rb");
        if (!in) return;
        std::setvbuf(in, nullptr, _IONBF, 0);
        while (std::fread(buffer.data(), 1, buffer.size(), in) == buffer.size()) sink_index = static_cast<std::size_t>(buffer[0]);
        std::fclose(in);
    });
}

/// Numbers with so many digits as coordinates have in mesh files.
std::vector<double> coordinates()
{
    std::mt19937_64 engine(1);
    std::vector<double> all(some);
    for (double& x : all) x = 1e-7 * static_cast<double>(engine() % 1000000000u);
    return all;
}

/// The digits of such numbers, without their exponents and their rounding.
std::vector<std::uint64_t> digits()
{
    std::vector<std::uint64_t> all;
    for (const double x : coordinates()) all.push_back(static_cast<std::uint64_t>(1e7 * x) + 1000000000u);
    return all;
}

template <class Number>
double printing(const std::vector<Number>& numbers)
{
    char text[64];
    return nanoseconds(static_cast<double>(numbers.size()), [&] {
        for (const Number x : numbers) sink_index = static_cast<std::size_t>(std::to_chars(text, text + sizeof text, x).ptr - text);
    });
}

template <class Number>
double parsing(const std::vector<Number>& numbers)
{
    std::vector<char> texts;
    char text[64];
    for (const Number x : numbers) texts.insert(texts.end(), text, std::to_chars(text, text + sizeof text, x).ptr + 1);
    return nanoseconds(static_cast<double>(numbers.size()), [&] {
        Number sum = 0;
        const char* const end = texts.data() + texts.size();
        for (const char* at = texts.data(); at < end;)
        {
            Number x = 0;
            at = std::from_chars(at, end, x).ptr + 1;
            sum += x;
        }
        sink_number = static_cast<double>(sum);
    });
}

double comparing()
{
    const std::vector<double> all = coordinates();
    std::vector<double> sorted;
    return nanoseconds(static_cast<double>(some) * std::log2(some), [&] {
        sorted = all;
        std::sort(sorted.begin(), sorted.end());
        sink_number = sorted[0];
    });
}

template <class Function>
double evaluating(Function function)
{
    const std::vector<double> all = coordinates();
    return nanoseconds(static_cast<double>(some), [&] {
        double sum = 0;
        for (const double x : all) sum += function(x);
        sink_number = sum;
    });
}

using prices = std::array<double, kinds>;

prices measured()
{
    const std::string file = scratch_file("gridweave_peers_limits");
    const std::vector<std::uint64_t> decimal = digits();
    std::vector<unsigned> whole(some);
    std::mt19937 engine(1);
    for (unsigned& number : whole) number = static_cast<unsigned>(engine() % 1000000);

    prices ns{};
    const auto set = [&](effort what, double value) { ns[static_cast<std::size_t>(what)] = value; };
    set(effort::streamed, streaming());
    set(effort::fresh, work_space());
    set(effort::scattered, scattering());
    set(effort::chased, chasing());
    set(effort::written, file_writing(file));
    set(effort::read, file_reading(file));
    std::remove(file.c_str());
    set(effort::parsed, parsing(decimal));
    set(effort::parsed_whole, parsing(whole));
    set(effort::printed, printing(decimal));
    set(effort::printed_whole, printing(whole));
    set(effort::compared, comparing());
    set(effort::root, evaluating([](double x) { return 1 / (1 + x); }));
    set(effort::logarithm, evaluating([](double x) { return std::log(1 + x); }));
    return ns;
}

const prices& machine_prices()
{
    static const prices once = measured();
    return once;
}

/// How many times a share is taken.
double times(const share& part, double items, const std::vector<std::pair<std::string, double>>& counts)
{
    if (*part.per == '\0') return items;
    if (std::strcmp(part.per, "log") == 0) return items * std::log2(std::max(2.0, items));
    for (const auto& [of, count] : counts)
        if (of == part.per) return count;
    return 0;
}

std::string in_words(const share& part)
{
    const std::string what = words[static_cast<std::size_t>(part.what)];
    const std::string per = part.per;
    if (per == "log") return "log2 n " + what;
    char amount[32];
    std::snprintf(amount, sizeof amount, "%g ", part.amount);
    return amount + what + (per.empty() ? "" : " for each of the " + per);
}

} // namespace

void print_prices()
{
    std::printf("One of each takes, in nanoseconds:");
    for (std::size_t k = 0; k < kinds; ++k) std::printf("%s %s %.3g", k ? ";" : "", words[k], machine_prices()[k]);
    std::puts(".");
}

limit limit_of(const std::string& row, double items, const std::vector<std::pair<std::string, double>>& counts)
{
    const work* known = nullptr;
    for (const work& each : least)
        if (row.compare(0, std::strlen(each.row), each.row) == 0 && (!known || std::strlen(each.row) > std::strlen(known->row)))
            known = &each;
    limit result;
    if (!known) return result;
    for (const share& part : known->shares)
    {
        if (part.amount == 0) continue;
        result.work += (result.work.empty() ? "" : ", ") + in_words(part);
        result.seconds += 1e-9 * part.amount * machine_prices()[static_cast<std::size_t>(part.what)] * times(part, items, counts);
    }
    return result;
}

} // namespace bench
