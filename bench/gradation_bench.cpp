// The relaxation of metric fields against its plain form: the same moves on the same fields, so the same results, which are compared.
//
//   gradation_bench [thousands of nodes] [word ...]
//
// Words choose what is run; of a group of which none is given, all are:
//   plane, space                 grids of triangles, of tetrahedra
//   sizes, tensors               the form of the field
//   noise, places                sizes that jump from node to node; a wide size with 20 small places
//   shrink, either, grow         the directions -1, 0 and 1
//   tight, row, loose, coarse    the limits 0.1, 0.2, 0.3 and 1
// and more:
//   frozen                       5% of the nodes stay as they are
//   without                      the plain form is not run, and the counts are not known

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <tq4/gridweave/metrics.h>

#include "bench/fields.h"
#include "support/literal_relaxation.h"

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

using bench::noise;
using bench::places;
using mesh = bench::field_mesh;

bench::field_numbers numbers;

template <class Sizes>
dense1D<double> size_field(const mesh& m, Sizes&& sizes)
{
    dense1D<double> field(m.pos.cols);
    for (unsigned n = 0; n < field.size; ++n) field[n] = sizes(m, n, numbers);
    return field;
}

/// Tensors with sizes of their own along three random directions.
template <class Sizes>
dense2D<double> tensor_field(const mesh& m, Sizes&& sizes)
{
    const unsigned D = m.pos.rows;
    dense2D<double> field(D * (D + 1) / 2, m.pos.cols, 0.0);
    std::normal_distribution<double> normal;
    for (unsigned n = 0; n < field.cols; ++n)
    {
        double q[3][3];
        for (unsigned k = 0; k < D; ++k)
        {
            for (unsigned r = 0; r < D; ++r) q[k][r] = normal(numbers.engine());
            for (unsigned j = 0; j <= k; ++j)
            {
                double along = 0;
                for (unsigned r = 0; r < D; ++r) along += q[k][r] * q[j][r];
                for (unsigned r = 0; r < D; ++r) q[k][r] = j < k ? q[k][r] - along * q[j][r] : q[k][r] / std::sqrt(along);
            }
            const double h = sizes(m, n, numbers);
            for (unsigned j = 0; j < D; ++j)
                for (unsigned i = 0; i <= j; ++i) field(j * (j + 1) / 2 + i, n) += q[k][i] * q[k][j] / (h * h);
        }
    }
    return field;
}

/// Processor time, which other work on the machine disturbs least.
double seconds()
{
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

std::vector<double> entries(const dense1D<double>& field)
{
    return {field.begin(), field.end()};
}

template <unsigned D>
std::vector<tensor<D>> entries(const dense2D<double>& field)
{
    std::vector<tensor<D>> all(field.cols);
    for (unsigned c = 0; c < field.cols; ++c) std::copy_n(field.column(c), field.rows, all[c].values);
    return all;
}

template <class Field, class Metric, unsigned D>
void measure(const mesh& m, const char* name, const Field& field, std::vector<Metric> expected, const dense1D<unsigned>& frozen,
             int direction, double g, bool with_plain)
{
    Field changed;
    changed.copy(field);
    double start = seconds();
    const int moved = bound_metric_gradations(m.pos, m.connectivity, m.kind, frozen, true, direction, g, changed);
    const double ours = seconds() - start;
    std::printf("%-10s %-14s %4d %5.2f %9.3f s", m.name, name, direction, g, ours);
    if (with_plain)
    {
        test::literal_relaxation<D, Metric> plain(test::limited::gradation, g);
        start = seconds();
        const test::relaxation_counts counts = plain.run(m.pos, m.connectivity, frozen, true, direction, expected);
        const double theirs = seconds() - start;
        std::printf(
            " %9.3f s  %5.2fx %8d moved %9lu moves %10lu records (%3.0f%% stale) %9zu longest  %6.0f ns/move %5.0f ns/record%s", theirs,
            theirs / ours, counts.moved, counts.moves, counts.pushes,
            100.0 * static_cast<double>(counts.stale) / static_cast<double>(counts.pushes), counts.longest_queue,
            ours / static_cast<double>(counts.moves) * 1e9, ours / static_cast<double>(counts.pushes) * 1e9,
            moved == counts.moved && std::memcmp(changed.data(), expected.data(), sizeof(Metric) * m.pos.cols) == 0 ? "" : "  DIFFERENT");
    }
    std::printf("\n");
    std::fflush(stdout);
}

/// The words of the command line.
class choice
{
public:
    choice(int argc, char** argv) : words_(argv + std::min(argc, 2), argv + argc) {}

    bool has(std::string_view word) const { return std::find(words_.begin(), words_.end(), word) != words_.end(); }

    /// Whether the word of a group was given, or none of the group.
    bool takes(std::string_view word, std::initializer_list<std::string_view> group) const
    {
        return has(word) || std::none_of(group.begin(), group.end(), [&](std::string_view other) { return has(other); });
    }

private:
    std::vector<std::string> words_;
};

template <unsigned D, class Sizes>
void measure_fields(const mesh& m, const std::string& name, Sizes&& sizes, const choice& chosen)
{
    struct named_limit
    {
        const char* word;
        double g;
    };
    struct named_direction
    {
        const char* word;
        int direction;
    };

    dense1D<unsigned> frozen;
    if (chosen.has("frozen"))
        for (unsigned n = 0; n < m.pos.cols; ++n)
            if (numbers.engine()() % 20 == 0) frozen.push_back(n);

    const bool with_plain = !chosen.has("without");
    for (const auto& [limit_word, g] : {named_limit{"tight", 0.1}, {"row", 0.2}, {"loose", 0.3}, {"coarse", 1.0}})
        for (const auto& [way_word, direction] : {named_direction{"shrink", -1}, {"either", 0}, {"grow", 1}})
        {
            if (!chosen.takes(limit_word, {"tight", "row", "loose", "coarse"})) continue;
            if (!chosen.takes(way_word, {"shrink", "either", "grow"})) continue;
            if (chosen.takes("sizes", {"sizes", "tensors"}))
            {
                const dense1D<double> field = size_field(m, sizes);
                measure<dense1D<double>, double, D>(m, ("sizes " + name).c_str(), field, entries(field), frozen, direction, g, with_plain);
            }
            if (chosen.takes("tensors", {"sizes", "tensors"}))
            {
                const dense2D<double> field = tensor_field(m, sizes);
                measure<dense2D<double>, tensor<D>, D>(m, ("tensors " + name).c_str(), field, entries<D>(field), frozen, direction, g,
                                                       with_plain);
            }
        }
}

template <unsigned D>
void measure_mesh(unsigned nodes, const choice& chosen)
{
    const mesh m = bench::field_grid(D, nodes, numbers);
    if (chosen.takes("noise", {"noise", "places"})) measure_fields<D>(m, "noise", noise, chosen);
    if (chosen.takes("places", {"noise", "places"})) measure_fields<D>(m, "places", places, chosen);
}

} // namespace

int main(int argc, char** argv)
{
    const unsigned nodes = 1000 * static_cast<unsigned>(argc > 1 ? std::atoi(argv[1]) : 100);
    const choice chosen(argc, argv);
    if (chosen.takes("plane", {"plane", "space"})) measure_mesh<2>(nodes, chosen);
    if (chosen.takes("space", {"plane", "space"})) measure_mesh<3>(nodes, chosen);
}
