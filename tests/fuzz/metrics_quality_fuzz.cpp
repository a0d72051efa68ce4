// Calls of the metric and quality functions on one mesh and its fields, each on what the calls before have left.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <vector>

#include <tq4/gridweave.h>

#include "fuzz/mesh_source.h"
#include "fuzz/mesh_walk.h"
#include "fuzz/promise.h"

namespace tq4::fuzz
{

using namespace gridweave;

namespace
{

struct state
{
    test::mesh mesh;
    dense1D<double> sizes;
    dense2D<double> tensors;
    dense1D<unsigned> ids;
};

template <class T>
bool same_bytes(const T& a, const T& b)
{
    return std::memcmp(&a, &b, sizeof(T)) == 0;
}

template <unsigned N>
symmetric_fixed<double, N> tensor(mesh_source& source)
{
    symmetric_fixed<double, N> M{};
    switch (source.below(4))
    {
    case 0:
        for (double& each : M.values) each = source.number();
        break;
    case 1:
        for (unsigned k = 0; k < N; ++k) M(k, k) = source.number();
        break;
    default:
    {
        // The square of a symmetric matrix is positive in all directions.
        symmetric_fixed<double, N> root{};
        for (double& each : root.values) each = source.number();
        for (unsigned i = 0; i < N; ++i)
            for (unsigned j = i; j < N; ++j)
                for (unsigned k = 0; k < N; ++k) M(i, j) += root(i, k) * root(k, j);
    }
    }
    return M;
}

unsigned components(const state& s)
{
    return s.mesh.pos.rows == 2 ? 3 : 6;
}

dense2D<double> tensors(mesh_source& source, unsigned rows, unsigned cols)
{
    const ample_memory enough;
    dense2D<double> field(rows, source.below(8) == 0 ? source.below(cols + 3) : cols);
    for (unsigned c = 0; c < field.cols; ++c)
    {
        if (rows == 3)
            std::copy_n(tensor<2>(source).values, 3, field.column(c));
        else if (rows == 6)
            std::copy_n(tensor<3>(source).values, 6, field.column(c));
        else
            for (unsigned r = 0; r < rows; ++r) field(r, c) = source.number();
    }
    return source.placed(field);
}

bool all_finite(const double* values, unsigned count)
{
    return std::all_of(values, values + count, [](double v) { return std::isfinite(v); });
}

template <unsigned N>
void treat_tensors(mesh_source& source)
{
    const auto A = tensor<N>(source);
    const auto B = tensor<N>(source);
    const bool is_valid = is_valid_metric(A);
    promise(!is_valid || all_finite(A.values, A.count), "a valid metric is finite");

    vector_fixed<double, N> values{};
    matrix_fixed<double, N, N> vectors{};
    const bool has_pairs = eigen_pairs(A, values, vectors);
    if (has_pairs) promise(std::is_sorted(values.values, values.values + N), "eigenvalues ascend");
    promise(N == 2 || !is_valid || has_pairs, "a valid metric has eigenvalues");
    eigen_pairs(A, B, values, vectors);

    for (const bool smaller : {true, false})
    {
        auto result = B;
        const bool reduced = smaller ? minimum_metric(A, B, result) : maximum_metric(A, B, result);
        promise(reduced || same_bytes(result, A), "a pair that cannot be reduced gives the first");
        auto in_place = B;
        const bool again = smaller ? minimum_metric(A, in_place, in_place) : maximum_metric(A, in_place, in_place);
        promise(again == reduced && same_bytes(in_place, result), "the result may be an argument");
    }

    auto bounded = A;
    const double hmin = source.number();
    const double hmax = source.number();
    const int changed = bound_metric(bounded, hmin, hmax);
    promise_code(changed, {-2, -3});
    promise(changed <= 1, "changed or not");
    if (changed == 1) promise(is_valid_metric(bounded), "what counts as changed is valid");
    if (changed < 0) promise(same_bytes(bounded, A), "a refused tensor stays");

    metric_iso_to_aniso(hmin, bounded);
    matrix_fixed<double, 3, 2> basis{};
    for (double& each : basis.values) each = source.number();
    symmetric_fixed<double, 2> planar{};
    metric_iso_to_aniso2d(hmax, basis, planar);
    if constexpr (N == 3) metric_aniso3d_to_aniso2d(A, basis, planar);
}

void judge_fields(mesh_source& source, state& s)
{
    const unsigned first_size = first_invalid_metric(s.sizes);
    promise(first_size <= s.sizes.size, "a place in the field or its end");
    promise(are_valid_metrics(s.sizes) == (first_size == s.sizes.size), "valid is what has none that is invalid");
    const bool has_tensors = s.tensors.rows == 3 || s.tensors.rows == 6;
    const unsigned first_tensor = first_invalid_metric(s.tensors);
    promise(first_tensor <= s.tensors.cols, "a place in the field or its end");
    promise(are_valid_metrics(s.tensors) == (first_tensor == s.tensors.cols), "valid is what has none that is invalid");

    dense1D<unsigned> valid;
    valid_metrics(s.tensors, valid);
    promise(std::is_sorted(valid.begin(), valid.end()), "valid columns ascend");
    if (!limited_memory::has_refused() && has_tensors)
    {
        promise((valid.size == s.tensors.cols) == are_valid_metrics(s.tensors), "all columns of a valid field are valid");
        promise(are_valid_metrics(valid, s.tensors), "valid columns are valid");
    }
    promise(first_invalid_metric(s.ids, s.sizes) <= s.ids.size && first_invalid_metric(s.ids, s.tensors) <= s.ids.size,
            "a place in the list or its end");
    promise(are_valid_metrics(s.ids, s.sizes) == (first_invalid_metric(s.ids, s.sizes) == s.ids.size), "the same of listed nodes");

    const dense1D<double> fallback = source.numbers(s.sizes.size);
    switch (source.below(3))
    {
    case 0: promise(overwrite_invalid_metrics(s.sizes, fallback) >= 0, "sizes are replaced"); break;
    case 1: promise_code(overwrite_invalid_metrics(s.tensors, fallback), {-1}); break;
    default: promise_code(overwrite_invalid_metrics(s.tensors, tensors(source, components(s), s.tensors.cols)), {-1, -2});
    }
}

dense1D<double> duplicate(const dense1D<double>& field)
{
    const ample_memory enough;
    dense1D<double> copy;
    copy.copy(field);
    return copy;
}

dense2D<double> duplicate(const dense2D<double>& field)
{
    const ample_memory enough;
    dense2D<double> copy;
    copy.copy(field);
    return copy;
}

bool is_changed(const dense1D<double>& now, const dense1D<double>& before, unsigned node)
{
    return !same_bytes(now[node], before[node]);
}

bool is_changed(const dense2D<double>& now, const dense2D<double>& before, unsigned node)
{
    return now.rows > 0 && std::memcmp(now.column(node), before.column(node), now.rows * sizeof(double)) != 0;
}

unsigned length(const dense1D<double>& field)
{
    return field.size;
}

unsigned length(const dense2D<double>& field)
{
    return field.cols;
}

template <class Field>
void bound_field(mesh_source& source, Field& field)
{
    const Field before = duplicate(field);
    dense1D<unsigned> changed;
    const double hmin = source.number();
    const double hmax = source.number();
    const int count = bound_metrics(field, hmin, hmax, changed);
    promise_code(count, {-1, -2, -3});
    if (!limited_memory::has_refused()) promise(static_cast<unsigned>(std::max(count, 0)) == changed.size, "changes are listed");
    promise(std::is_sorted(changed.begin(), changed.end()), "changes ascend");
    for (const unsigned each : changed)
    {
        // A tensor with a bound on one of its sizes can come out of rounding as it was.
        promise(each < length(field), "what is listed is in the field");
        if (std::is_same_v<Field, dense1D<double>>) promise(is_changed(field, before, each), "what is listed has changed");
    }
    if (count < 0)
        for (unsigned k = 0; k < length(field); ++k) promise(!is_changed(field, before, k), "a refused field stays");
}

void convert_fields(mesh_source& source, state& s)
{
    switch (source.below(5))
    {
    case 0: promise_code(metrics_iso_to_aniso2d(s.sizes, s.tensors), {-2}); break;
    case 1: promise_code(metrics_iso_to_aniso3d(s.sizes, s.tensors), {-2}); break;
    case 2: promise_code(metrics_iso_to_aniso2d(s.sizes, source.matrix(source.below(8) ? 6 : 5, s.sizes.size), s.tensors), {-2, -3}); break;
    case 3:
    {
        dense2D<double> planar = tensors(source, 3, s.tensors.cols);
        promise_code(metrics_aniso3d_to_aniso2d(s.tensors, source.matrix(6, s.tensors.cols), planar), {-1, -2, -3});
        break;
    }
    default:
    {
        const int code = metrics_gen_iso(s.mesh.pos, s.mesh.connectivity, s.mesh.kind, s.sizes, source.number());
        promise_code(code, {-1, -2, -3, -5, out_of_memory});
        if (code == 0 && !s.mesh.connectivity.empty()) promise(s.sizes.size >= s.mesh.pos.cols, "every node has a size");
    }
    }
}

/// Whether a size or a tensor may stand under a direction of growth or shrinking, as far as that can be told without more arithmetic.
bool went(const dense1D<double>& now, const dense1D<double>& before, unsigned node, int direction)
{
    if (!is_changed(now, before, node)) return true;
    return direction == -1 ? !(now[node] > before[node]) : !(now[node] < before[node]);
}

bool went(const dense2D<double>&, const dense2D<double>&, unsigned, int)
{
    return true;
}

bool has_ordinary_sizes(const dense1D<double>& sizes)
{
    return std::all_of(sizes.begin(), sizes.end(), [](double h) { return h >= 0.01 && h <= 100; });
}

template <unsigned N>
bool is_ordinary_tensor(const double* entries)
{
    symmetric_fixed<double, N> M;
    std::copy_n(entries, M.count, M.values);
    vector_fixed<double, N> values{};
    matrix_fixed<double, N, N> vectors{};
    return eigen_pairs(M, values, vectors) && values[0] >= 1e-4 && values[N - 1] <= 1e4;
}

bool has_ordinary_sizes(const dense2D<double>& tensors)
{
    for (unsigned c = 0; c < tensors.cols; ++c)
        if (!(tensors.rows == 3 ? is_ordinary_tensor<2>(tensors.column(c)) : is_ordinary_tensor<3>(tensors.column(c)))) return false;
    return true;
}

/// Whether edges and sizes are of ordinary magnitude, so that rounding has no say in the gradation.
template <class Field>
bool is_ordinary(const test::mesh& mesh, const Field& sizes)
{
    if (!has_ordinary_sizes(sizes)) return false;
    for (unsigned a = 0; a < mesh.pos.cols; ++a)
    {
        for (unsigned b = 0; b <= a; ++b)
        {
            double squared = 0;
            for (unsigned r = 0; r < mesh.pos.rows; ++r) squared += (mesh.pos(r, a) - mesh.pos(r, b)) * (mesh.pos(r, a) - mesh.pos(r, b));
            if (!(squared == 0 || (squared >= 1e-4 && squared <= 1e4))) return false;
        }
    }
    return true;
}

/// No edge of the node graph is left above the limit, but for what moves of less than a thousandth of the way would mend.
template <class Field>
void promise_gradation(const test::mesh& mesh, const Field& sizes, double limit)
{
    const ample_memory enough;
    if (!is_ordinary(mesh, sizes)) return;
    dense1D<unsigned> first;
    dense1D<unsigned> list;
    if (get_node_graph(mesh.connectivity, first, list) != 0) return;
    dense2D<unsigned> edges(2, list.size);
    for (unsigned n = 0; n + 1 < first.size; ++n)
    {
        for (unsigned k = first[n]; k < first[n + 1]; ++k)
        {
            // Between different tensors at one place nothing moves.
            const bool is_edge = std::is_same_v<Field, dense1D<double>> ||
                                 !std::equal(mesh.pos.column(n), mesh.pos.column(n) + mesh.pos.rows, mesh.pos.column(list[k]));
            edges(0, k) = n;
            edges(1, k) = is_edge ? list[k] : n;
        }
    }
    dense1D<double> shocks;
    if (H_shock(mesh.pos, edges, sizes, shocks) != 0) return;
    const double told = std::expm1(std::log1p(limit) / 0.999);
    for (const double each : shocks) promise(each <= told * (1 + 1e-6) + 1e-6, "no edge is left above the limit");
}

/// Among invalid tensors one of next to nothing can be moved by roundings alone, a little by each of billions of moves.
void stop_creeping(dense2D<double>& tensors)
{
    for (unsigned c = 0; c < tensors.cols; ++c)
        for (unsigned r = 0; r < tensors.rows; ++r)
            if (std::fabs(tensors(r, c)) < 1e-150) tensors(r, c) = 0.0;
}

void stop_creeping(const dense1D<double>&) {}

template <class Field>
void relax(mesh_source& source, state& s, Field& field)
{
    stop_creeping(field);
    constexpr int directions[] = {-1, 0, 1, 255, 2};
    const int direction = directions[source.below(source.below(8) ? 3 : 5)];
    const bool frozen = source.flip();
    const bool limits_variation = source.flip();
    const double limit = source.below(4) ? (1 + source.below(16)) / 8.0 : source.number();
    // With frozen nodes around, a move is a compromise between them.
    const dense1D<unsigned> indices = source.flip() ? source.indices(s.mesh.pos.cols) : dense1D<unsigned>();
    const auto call = [&](Field& on) {
        return limits_variation
                   ? bound_metric_variations(s.mesh.pos, s.mesh.connectivity, s.mesh.kind, indices, frozen, direction, limit, on)
                   : bound_metric_gradations(s.mesh.pos, s.mesh.connectivity, s.mesh.kind, indices, frozen, direction, limit, on);
    };

    const Field before = duplicate(field);
    const int moved = call(field);
    promise_code(moved, {-1, -2, -4, -7, -8, out_of_memory});

    int changes = 0;
    for (unsigned n = 0; n < length(field); ++n)
    {
        const bool is_listed = std::find(indices.begin(), indices.end(), n) != indices.end();
        if (is_listed == frozen) promise(!is_changed(field, before, n), "frozen nodes stay");
        changes += is_changed(field, before, n);
        if (direction == 1 || direction == -1) promise(went(field, before, n, direction), "metrics go one way");
    }
    if (moved >= 0) promise(changes <= moved, "moved nodes are counted");
    if (moved < 0 && moved != out_of_memory) promise(changes == 0, "a refused field stays");

    const bool moves_nodes = field.block == s.mesh.pos.block;
    if (moved > 0 && !moves_nodes && frozen && indices.empty() && (direction == 1 || direction == -1) && !limited_memory::has_refused())
    {
        if (!limits_variation) promise_gradation(s.mesh, field, limit);
        const Field once = duplicate(field);
        call(field);
        if (!limited_memory::has_refused())
            for (unsigned n = 0; n < length(field); ++n) promise(!is_changed(field, once, n), "a second call changes nothing");
    }
}

void measure_edges(mesh_source& source, state& s)
{
    auxkit::histogram lengths(0.0, 4.0, 16);
    dense2D<unsigned> skipped;
    if (source.flip()) skipped = source.connectivity(ELEM_BAR2, s.mesh.pos.cols);
    const dense2D<unsigned> range[2] = {s.mesh.connectivity, source.connectivity(ELEM_TRIA3, s.mesh.pos.cols)};
    dense1D<int> kinds = source.kinds(2);
    if (!kinds.empty()) kinds[0] = s.mesh.kind;
    int edges = 0;
    switch (source.below(4))
    {
    case 0:
        edges = edge_qualities(s.mesh.pos, s.mesh.connectivity, s.mesh.kind, s.sizes, lengths, skipped);
        promise_code(edges, {-1, -2, -4, -6});
        break;
    case 1:
        edges = edge_qualities(s.mesh.pos, s.mesh.connectivity, s.mesh.kind, s.tensors, lengths, skipped);
        promise_code(edges, {-1, -2, -4, -6});
        break;
    case 2:
        edges = edge_qualities(s.mesh.pos, range, range + 2, kinds, s.sizes, lengths, skipped);
        promise_code(edges, {-1, -2, -4, -5, -7});
        break;
    default:
        edges = edge_qualities(s.mesh.pos, range, range + 2, kinds, s.tensors, lengths, skipped);
        promise_code(edges, {-1, -2, -4, -5, -7});
    }
    if (edges >= 0) promise(lengths.count() + lengths.nan_count() == static_cast<unsigned>(edges), "every edge is counted");

    double q = 7;
    const int code = edge_quality(source.number(), source.number(), source.number(), q);
    promise_code(code, {-2, -3});
    promise(code == 0 || q == 7, "no length after a failure");
}

void measure_shocks(mesh_source& source, state& s)
{
    dense2D<unsigned> edges;
    if (source.below(4) == 0)
        edges = source.connectivity(ELEM_BAR2, s.mesh.pos.cols);
    else
        copy_edges(s.mesh.connectivity, s.mesh.kind, edges);
    dense1D<double> shocks = source.numbers(source.below(4));
    const dense1D<double> before = duplicate(shocks);
    const int code = source.flip() ? H_shock(s.mesh.pos, edges, s.sizes, shocks) : H_shock(s.mesh.pos, edges, s.tensors, shocks);
    promise_code(code, {-1, -2});
    if (edges.empty() || code != 0)
    {
        promise(shocks.size == before.size, "shocks stay without edges");
        return;
    }
    if (!limited_memory::has_refused()) promise(shocks.size == s.mesh.pos.cols, "every node has its shock");
    for (unsigned n = 0; n < std::min(shocks.size, before.size); ++n) promise(!(shocks[n] < before[n]), "entries take part in the maximum");
}

void replace(mesh_source& source, state& s)
{
    switch (source.below(9))
    {
    case 0: s.ids = source.indices(s.mesh.pos.cols); break;
    case 1: s.sizes = source.numbers(s.mesh.pos.cols); break;
    case 2: s.tensors = tensors(source, source.below(8) ? components(s) : source.below(8), s.mesh.pos.cols); break;
    case 3: source.damage(s.mesh.connectivity, s.mesh.pos.cols); break;
    case 4: source.damage(s.mesh.pos); break;
    case 5: source.damage(s.tensors); break;
    case 6: s.tensors = s.mesh.pos; break;
    case 7:
        if (s.mesh.pos.ld == s.mesh.pos.rows) s.sizes = s.mesh.pos.as_vector();
        break;
    default: s.mesh.kind = source.kind();
    }
}

void call(mesh_source& source, state& s)
{
    switch (source.below(12))
    {
    case 0: treat_tensors<2>(source); break;
    case 1: treat_tensors<3>(source); break;
    case 2: judge_fields(source, s); break;
    case 3: bound_field(source, s.sizes); break;
    case 4: bound_field(source, s.tensors); break;
    case 5: convert_fields(source, s); break;
    case 6: relax(source, s, s.sizes); break;
    case 7: relax(source, s, s.tensors); break;
    case 8: measure_edges(source, s); break;
    case 9: measure_shocks(source, s); break;
    case 10: replace(source, s); break;
    default: walk_geometry(s.mesh.pos, s.mesh.connectivity, s.mesh.kind);
    }
}

} // namespace

void run(mesh_source& source)
{
    state s;
    s.mesh = source.mesh();
    s.sizes = source.numbers(s.mesh.pos.cols);
    s.tensors = tensors(source, components(s), s.mesh.pos.cols);
    const unsigned failing = source.failing_request();
    limited_memory memory(mesh_memory, failing);
    for (unsigned k = 0; k < 10 && !source.is_exhausted(); ++k) call(source, s);
}

} // namespace tq4::fuzz
