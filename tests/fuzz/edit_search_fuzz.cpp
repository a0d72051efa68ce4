// Edits of one mesh, each on what the edits before have left, and searches among its nodes.

#include <algorithm>
#include <cmath>
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

/// Patterns may multiply a mesh; one of more nodes is not edited further.
constexpr unsigned enough_nodes = 600;

struct state
{
    dense2D<double> pos;
    dense2D<unsigned> elements;
    dense2D<unsigned> others; ///< a second matrix over the same nodes
    element_type kind = ELEM_NONE;
    dense1D<unsigned> ids;
    dense1D<unsigned> targets;
    dense1D<unsigned> new_ids;
    node_detector detector;
    unsigned most_cols = 0;         ///< nodes that the detector may hold, also where `pos` was cut since
    bool is_plain = false;          ///< whether no search can be wrong: the nodes were inserted as they are now
    std::vector<unsigned> searched; ///< nodes of the detector while `is_plain`
};

template <unsigned N>
void transform(mesh_source& source, state& s)
{
    vector_fixed<double, N> v;
    for (unsigned k = 0; k < N; ++k) v[k] = source.number();
    const double factor = source.number();
    const unsigned cols = s.pos.cols;
    int moved = 0;
    switch (source.below(9))
    {
    case 0: moved = translate(s.pos, v); break;
    case 1: moved = translate(s.pos, v, s.ids); break;
    case 2: moved = translate(s.pos, v, s.elements); break;
    case 3: moved = zoom(s.pos, v, factor); break;
    case 4: moved = zoom(s.pos, v, factor, s.ids); break;
    case 5: moved = zoom(s.pos, v, factor, s.elements); break;
    default:
        if constexpr (N == 2)
        {
            switch (source.below(3))
            {
            case 0: moved = rotate(s.pos, v, factor); break;
            case 1: moved = rotate(s.pos, v, factor, s.ids); break;
            default: moved = rotate(s.pos, v, factor, s.elements);
            }
        }
        else
        {
            const vector_fixed<double, 3> rotation = source.space_point();
            switch (source.below(3))
            {
            case 0: moved = rotate(s.pos, v, rotation); break;
            case 1: moved = rotate(s.pos, v, rotation, s.ids); break;
            default: moved = rotate(s.pos, v, rotation, s.elements);
            }
        }
    }
    promise(moved >= 0, "moves are counted");
    promise(s.pos.cols == cols, "no node comes or goes by a transform");
    s.is_plain = false;
}

template <unsigned N>
void measure(mesh_source& source, state& s)
{
    vector_fixed<double, N> low;
    vector_fixed<double, N> high;
    for (unsigned k = 0; k < N; ++k)
    {
        low[k] = 1e9;
        high[k] = -1e9;
    }
    int code = 0;
    switch (source.below(3))
    {
    case 0: code = inc_bounding_box(s.pos, low, high); break;
    case 1: code = inc_bounding_box(s.pos, s.ids, low, high); break;
    default: code = inc_bounding_box(s.pos, s.elements, low, high);
    }
    promise_code(code, {-1, -2});
    for (unsigned k = 0; k < N; ++k)
        promise(low[k] <= 1e9 && high[k] >= -1e9 && (code == 0 || (low[k] == 1e9 && high[k] == -1e9)), "a box only widens");
}

void copy_part(mesh_source& source, state& s)
{
    if (s.pos.cols > enough_nodes || s.elements.cols > enough_nodes) return;
    dense2D<unsigned> part = s.elements;
    dense2D<unsigned>& result = source.flip() ? s.others : part;
    const unsigned n = source.below(5);
    int code = 0;
    switch (source.below(5))
    {
    case 0: code = copy_mesh(s.pos, result, part); break;
    case 1: code = copy_mesh(s.pos, result, source.plane_point(), source.plane_point(), source.number(), n, part); break;
    case 2: code = copy_mesh(s.pos, result, source.space_point(), source.space_point(), source.space_point(), n, part); break;
    case 3: code = copy_sym_mesh(s.pos, result, source.plane_point(), source.plane_point(), part); break;
    default: code = copy_sym_mesh(s.pos, result, source.space_point(), source.space_point(), part);
    }
    promise_code(code, {-4, out_of_memory});
    s.is_plain = false;
}

void list_distinct(mesh_source& source, state& s)
{
    const dense2D<unsigned> range[2] = {s.elements, s.others};
    dense1D<unsigned> distinct;
    const dense1D<unsigned> excluded = source.flip() ? s.targets : dense1D<unsigned>();
    int count = -1;
    switch (source.below(3))
    {
    case 0: promise(unique_indices(distinct, s.ids, excluded) == 0, "lists have distinct entries"); break;
    case 1:
        promise(unique_indices(distinct, s.elements, excluded) == 0, "matrices have distinct entries");
        count = count_unique_indices(s.elements);
        break;
    default:
        promise(unique_indices(distinct, range, range + 2, excluded) == 0, "ranges have distinct entries");
        count = count_unique_indices(range, range + 2);
    }
    if (limited_memory::has_refused()) return;
    if (excluded.empty() && count != -1) promise(count == static_cast<int>(distinct.size), "distinct indices are counted");
    std::vector<unsigned> sorted(distinct.begin(), distinct.end());
    std::sort(sorted.begin(), sorted.end());
    promise(std::adjacent_find(sorted.begin(), sorted.end()) == sorted.end(), "distinct indices are distinct");
    promise(sorted.empty() || sorted.back() != none_index, "none is no index");
    for (const unsigned each : excluded) promise(!std::binary_search(sorted.begin(), sorted.end(), each), "excluded indices stay out");
}

void compact(mesh_source& source, state& s)
{
    const unsigned nodes = s.pos.cols;
    const unsigned start = source.below(4) == 0 ? source.below(nodes + 2) : 0;
    int code = 0;
    switch (source.below(4))
    {
    case 0:
    {
        const unsigned cols = s.elements.cols;
        code = remove_degenerated(s.elements, s.new_ids, source.flip());
        promise_code(code, {out_of_memory});
        if (code >= 0) promise(s.elements.empty() || s.elements.cols + static_cast<unsigned>(code) == cols, "removed columns are gone");
        return;
    }
    case 1: code = simplify(s.pos, s.elements, s.new_ids, start); break;
    case 2: code = simplify(s.pos, s.elements, s.others, start); break;
    default: code = simplify(s.pos, s.elements, start);
    }
    promise_code(code, {-2, out_of_memory});
    promise(s.pos.cols + static_cast<unsigned>(std::max(code, 0)) == nodes, "removed nodes are gone");
    if (code > 0 && nodes > 0) promise(check_IDs(s.elements, s.pos.cols), "elements name the nodes that are left");
    s.is_plain = false;
}

void weld(mesh_source& source, state& s)
{
    const double tol = source.number();
    const unsigned mode = source.below(4);
    const unsigned nodes = s.pos.cols;
    int merged = 0;
    switch (source.below(6))
    {
    case 0:
        merged = merge(s.pos, s.new_ids, tol);
        promise_code(merged, {-1, -3, out_of_memory});
        s.is_plain = false;
        break;
    case 1:
        merged = merge(s.pos, s.ids, s.targets, s.new_ids, tol);
        promise_code(merged, {-1, -2, -3, -4, out_of_memory});
        break;
    case 2:
        merged = merge(s.pos, s.ids, s.new_ids, tol);
        promise_code(merged, {-1, -2, -3, -4, out_of_memory});
        break;
    case 3:
        merged = merge(s.pos, s.elements, s.new_ids, tol, mode);
        promise_code(merged, {-1, -2, -5, -6, out_of_memory});
        break;
    case 4:
        merged = merge(s.pos, s.elements, s.others, s.new_ids, tol, mode);
        promise_code(merged, {-1, -2, -5, -6, out_of_memory});
        break;
    default:
        merged = merge(s.pos, s.elements, tol, mode);
        promise_code(merged, {-1, -2, -5, -6, out_of_memory});
        return;
    }
    if (limited_memory::has_refused()) return;
    if (merged > 0 || (merged == 0 && !s.new_ids.empty())) promise_survivors(s.new_ids, nodes, merged);
    promise(tol >= 0 || std::isnan(tol) || merged <= 0, "no tolerance is negative");
    promise(!std::isnan(tol) || merged <= 0, "a tolerance that is no number merges nothing");
}

void cut(mesh_source& source, state& s)
{
    const unsigned before = s.others.cols;
    const int code = clip(s.pos, s.elements, source.space_point(), source.space_point(), s.others);
    promise_code(code, {-2, -4, -5, out_of_memory});
    const unsigned after = s.others.cols;
    promise(code == 0 ? after >= before && after - before <= s.elements.cols : after == before, "clipping appends elements");
}

/// Whether squared distances among the nodes neither overflow nor lack numbers.
bool is_measurable(const dense2D<double>& pos)
{
    for (unsigned c = 0; c < pos.cols; ++c)
        for (unsigned r = 0; r < pos.rows; ++r)
            if (!(std::fabs(pos(r, c)) < 1e100)) return false;
    return true;
}

void gather_nodes(mesh_source& source, state& s)
{
    const dense2D<unsigned> range[2] = {s.elements, s.others};
    int code = 0;
    dense1D<unsigned> nodes;
    const unsigned form = source.below(4);
    switch (form)
    {
    case 0: code = s.detector.reinit(s.pos); break;
    case 1:
        code = s.detector.reinit(s.pos, s.ids);
        unique_indices(nodes, s.ids, dense1D<unsigned>());
        break;
    case 2:
        code = s.detector.reinit(s.pos, s.elements);
        unique_indices(nodes, s.elements, dense1D<unsigned>());
        break;
    default: code = s.detector.reinit(s.pos, range, range + 2); unique_indices(nodes, range, range + 2, dense1D<unsigned>());
    }
    promise_code(code, {-1, -2, out_of_memory});
    // What is refused for its arguments keeps the former content, but for the form without a list.
    if (code == out_of_memory || (code != 0 && form == 0)) promise(s.detector.size() == 0, "a detector is empty after a failure");
    s.is_plain = false;
}

/// A detector of all nodes, which the questions below know.
void gather_all(state& s)
{
    s.searched.clear();
    s.is_plain = s.detector.reinit(s.pos) == 0 && is_measurable(s.pos) && !limited_memory::has_refused();
    if (!s.is_plain) return;
    for (unsigned n = 0; n < s.pos.cols; ++n) s.searched.push_back(n);
    promise(s.detector.size() == s.pos.cols, "every node has a record");
}

void insert_nodes(mesh_source& source, state& s)
{
    const unsigned before = s.detector.size();
    const unsigned added = source.flip() ? s.detector.insert(s.ids) : s.detector.insert(s.elements);
    promise(s.detector.size() >= before && added <= s.detector.size(), "added nodes are counted");
    if (source.below(4) == 0)
    {
        const node_detector copy = s.detector; // NOLINT(performance-unnecessary-copy-initialization): the copy is what is looked at
        promise(copy.find_closest(vector_fixed<double, 2>{}) == s.detector.find_closest(vector_fixed<double, 2>{}) ||
                    limited_memory::has_refused(),
                "a copy answers as the original");
    }
    s.is_plain = false;
}

double squared_distance(const dense2D<double>& pos, unsigned node, const vector_fixed<double, 3>& p)
{
    double sum = 0;
    for (unsigned r = 0; r < pos.rows; ++r) sum += (pos(r, node) - p[r]) * (pos(r, node) - p[r]);
    return sum;
}

void ask_closest(mesh_source& source, state& s)
{
    const vector_fixed<double, 3> p = source.space_point();
    const unsigned planar = s.detector.find_closest(vector_fixed<double, 2>{p[0], p[1]});
    const unsigned spatial = s.detector.find_closest(p);
    const unsigned node = source.index(s.pos.cols);
    const unsigned other = s.detector.find_closest(node);
    for (const unsigned each : {planar, spatial, other}) promise(each == none_index || each < s.most_cols, "what is found is a node");
    promise(other == none_index || other != node, "a node is not its own closest one");
    if (!s.is_plain || s.searched.empty() || !(std::fabs(p[0]) < 1e100 && std::fabs(p[1]) < 1e100 && std::fabs(p[2]) < 1e100)) return;
    promise(spatial != none_index, "some node is closest");
    const double found = squared_distance(s.pos, spatial, p);
    for (const unsigned each : s.searched) promise(!(squared_distance(s.pos, each, p) < found), "no node is closer than the closest");
}

void ask_box(mesh_source& source, state& s)
{
    const vector_fixed<double, 3> low = source.space_point();
    const vector_fixed<double, 3> high = source.space_point();
    dense1D<unsigned> found;
    if (source.below(4) == 0)
    {
        s.detector.find_in_box(vector_fixed<double, 2>{low[0], low[1]}, vector_fixed<double, 2>{high[0], high[1]}, found);
        for (const unsigned each : found) promise(each < s.most_cols, "what is found is a node");
        return;
    }
    s.detector.find_in_box(low, high, found);
    for (const unsigned each : found)
    {
        promise(each < s.most_cols, "what is found is a node");
        for (unsigned r = 0; each < s.pos.cols && r < std::min(s.pos.rows, 2u); ++r)
            promise(s.pos(r, each) >= low[r] && s.pos(r, each) <= high[r], "what is found is in the box");
    }
    if (!s.is_plain || limited_memory::has_refused()) return;
    const auto is_inside = [&](unsigned node) {
        for (unsigned r = 0; r < s.pos.rows; ++r)
            if (!(s.pos(r, node) >= low[r] && s.pos(r, node) <= high[r])) return false;
        return true;
    };
    const auto inside = std::count_if(s.searched.begin(), s.searched.end(), is_inside);
    promise(static_cast<unsigned>(inside) == found.size, "every node in the box is found");
}

void replace(mesh_source& source, state& s)
{
    switch (source.below(12))
    {
    case 0: s.ids = source.indices(s.pos.cols); break;
    case 1: s.targets = source.indices(s.pos.cols); break;
    case 2: s.others = source.connectivity(source.kind(), s.pos.cols); break;
    case 3: source.damage(s.elements, s.pos.cols); break;
    case 4: source.damage(s.pos); break;
    case 5: s.others = s.elements; break;
    case 6: s.pos.resize(s.pos.rows, source.below(s.pos.cols + 1)); break;
    case 7: s.targets = s.new_ids = s.ids; break; // outputs that share an input's storage
    case 8:
        if (s.elements.ld == s.elements.rows) s.ids = s.elements.as_vector();
        break;
    case 9: s.others = s.elements.sub_matrix(0, 0, s.elements.rows, s.elements.cols / 2); break;
    case 10: s.others = s.others.sub_matrix(0, s.others.cols / 2, s.others.rows, s.others.cols - s.others.cols / 2); break;
    default: s.pos.resize(source.below(5), s.pos.cols, 0.5);
    }
    s.is_plain = false;
}

void call(mesh_source& source, state& s)
{
    s.most_cols = std::max(s.most_cols, s.pos.cols);
    switch (source.below(16))
    {
    case 0: transform<2>(source, s); break;
    case 1: transform<3>(source, s); break;
    case 2: measure<2>(source, s); break;
    case 3: measure<3>(source, s); break;
    case 4: copy_part(source, s); break;
    case 5: list_distinct(source, s); break;
    case 6: compact(source, s); break;
    case 7:
    case 8: weld(source, s); break;
    case 9: cut(source, s); break;
    case 10: gather_nodes(source, s); break;
    case 11: gather_all(s); break;
    case 12: insert_nodes(source, s); break;
    case 13: ask_closest(source, s); break;
    case 14: ask_box(source, s); break;
    default: replace(source, s);
    }
}

} // namespace

void run(mesh_source& source)
{
    state s;
    const test::mesh mesh = source.mesh();
    s.pos = mesh.pos;
    s.elements = mesh.connectivity;
    s.kind = mesh.kind;
    const unsigned failing = source.failing_request();
    limited_memory memory(mesh_memory, failing);
    for (unsigned k = 0; k < 16 && !source.is_exhausted(); ++k) call(source, s);
}

} // namespace tq4::fuzz
