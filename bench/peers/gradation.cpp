// The gradation of sizes over a mesh. No package offers the call; the peer is its literal transcription with standard containers.

#include "harness.h"

#include <algorithm>
#include <cmath>
#include <memory>

#include <tq4/gridweave/metrics.h>

#include "bench/fields.h"

#if PEERS_WITH_TRANSCRIPTION
#include "support/literal_relaxation.h"
#endif

namespace bench
{

namespace
{

using namespace tq4;
using namespace tq4::gridweave;

using sizes = std::vector<double>;

struct gradation_case
{
    const char* name;
    unsigned dims;
    double nodes_per_element;
    double (*size)(const field_mesh& m, unsigned node, field_numbers& numbers);
};

constexpr gradation_case gradation_cases[] = {
    {"gradation, triangles, 20 small places", 2, 0.5, places},
    {"gradation, triangles, noise", 2, 0.5, noise},
    {"gradation, tetrahedra, 20 small places", 3, 0.18, places},
    {"gradation, tetrahedra, noise", 3, 0.18, noise},
};

/// More would take minutes for a row.
constexpr double most_elements = 4e6;

constexpr double limit = 0.2;
constexpr int shrink = -1;

template <unsigned D>
void gradation_row(table& rows, const gradation_case& of)
{
    const double elements = std::min(rows.chosen().items, most_elements);
    row<sizes> r(rows, {of.name, "elements", elements, {{0.25, ""}}, "sizes: all bits"});
    if (!r.chosen()) return;
    field_numbers numbers;
    const field_mesh mesh = field_grid(D, static_cast<unsigned>(of.nodes_per_element * elements), numbers);
    dense1D<double> field(mesh.pos.cols);
    for (unsigned n = 0; n < field.size; ++n) field[n] = of.size(mesh, n, numbers);

    r.ours(
        [&] {
            dense1D<double> changed;
            changed.copy(field);
            bound_metric_gradations(mesh.pos, mesh.connectivity, mesh.kind, {}, true, shrink, limit, changed);
            return changed;
        },
        [](const dense1D<double>& changed) { return sizes(changed.begin(), changed.end()); });
#if PEERS_WITH_TRANSCRIPTION
    struct transcript
    {
        sizes changed;
        test::relaxation_counts counts;
    };
    r.peer(
        "transcription",
        [&] {
            transcript made{{field.begin(), field.end()}, {}};
            test::literal_relaxation<D, double> plain(test::limited::gradation, limit);
            made.counts = plain.run(mesh.pos, mesh.connectivity, {}, true, shrink, made.changed);
            return made;
        },
        [&](const transcript& made) {
            r.count("moves", static_cast<double>(made.counts.moves));
            r.count("records", static_cast<double>(made.counts.pushes));
            return made.changed;
        });
#endif
    r.run();
}

} // namespace

void gradation_rows(table& rows)
{
    for (const gradation_case& of : gradation_cases) of.dims == 2 ? gradation_row<2>(rows, of) : gradation_row<3>(rows, of);
}

} // namespace bench
