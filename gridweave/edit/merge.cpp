#include <algorithm>
#include <cfloat>
#include <cmath>
#include <numeric>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/point_table.h"
#include "gridweave/core/points.h"
#include "gridweave/search/node_tree.h"

namespace tq4::gridweave
{

namespace
{

template <unsigned D>
double squared_distance(const vector_fixed<double, D>& a, const vector_fixed<double, D>& b)
{
    double sum = (b[0] - a[0]) * (b[0] - a[0]);
    for (unsigned k = 1; k < D; ++k) sum += (b[k] - a[k]) * (b[k] - a[k]);
    return sum;
}

/// Calls `worker(b)` for the nodes of the tree in the box a ± tol, a itself left out.
template <unsigned D, class Worker>
void for_each_near(const node_tree<D>& tree, unsigned a, const vector_fixed<double, D>& x, double tol, Worker&& worker)
{
    vector_fixed<double, D> low;
    vector_fixed<double, D> high;
    for (unsigned k = 0; k < D; ++k)
    {
        low[k] = x[k] - tol;
        high[k] = x[k] + tol;
    }
    tree.visit_box(low, high, [&](unsigned b) {
        if (b != a) worker(b);
    });
}

bool set_identity(dense1D<unsigned>& new_ids, unsigned count)
{
    if (!new_ids.resize(count)) return false;
    std::iota(new_ids.begin(), new_ids.end(), 0u);
    return true;
}

/// Makes every listed node point at the end of its chain.
void resolve_chains(const dense1D<unsigned>& nodes, dense1D<unsigned>& new_ids)
{
    for (const unsigned a : nodes)
    {
        unsigned root = a;
        while (new_ids[root] != root) root = new_ids[root];
        for (unsigned node = a; new_ids[node] != root;)
        {
            const unsigned next = new_ids[node];
            new_ids[node] = root;
            node = next;
        }
    }
}

/// True when a squared distance of 0 means equal coordinates for all listed nodes, so that equal nodes can be found without a tree:
/// infinite and NaN coordinates are never at a distance of 0, and differences of tiny ones vanish when they are squared.
template <unsigned D>
bool is_distance_sound(const dense2D<double>& pos, const dense1D<unsigned>& nodes)
{
    constexpr double tiny = 1e-140;
    bool sound = true;
    for (const unsigned node : nodes)
    {
        const double* const x = pos.column(node);
        for (unsigned k = 0; k < D; ++k)
        {
            const double magnitude = std::fabs(x[k]);
            sound &= magnitude <= DBL_MAX && (magnitude == 0 || magnitude >= tiny);
        }
    }
    return sound;
}

/// Points every node of a distinct list at the first one with the same coordinates. `new_ids` comes in as the identity, and is the identity
/// again where the result is false: equal nodes were not looked for.
template <unsigned D>
bool point_at_first_equal(const dense2D<double>& pos, const dense1D<unsigned>& nodes, dense1D<unsigned>& new_ids)
{
    point_table<D> table;
    if (!is_distance_sound<D>(pos, nodes) || !table.reset()) return false;
    for (const unsigned node : nodes)
    {
        const double* const x = pos.column(node);
        const unsigned first = table.find_or_enter(x, table.hash(x), node, [&](unsigned id) { return pos.column(id); });
        if (first == none_index)
        {
            for (const unsigned n : nodes) new_ids[n] = n;
            return false;
        }
        new_ids[node] = first;
    }
    return true;
}

/// Points every node of `ids` that still points at itself at the closest target that stands earlier in `targets`, within the tolerance.
/// False when memory runs out.
template <unsigned D>
bool point_at_earlier(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets,
                      dense1D<unsigned>& new_ids, double tol)
{
    node_tree<D> tree(pos);
    dense1D<unsigned> order;
    unsigned added = 0;
    if (!order.resize(pos.cols, none_index) || !tree.insert(targets, added)) return false;
    for (unsigned i = 0; i < targets.size; ++i) order[targets[i]] = i;

    const point_reader<D> points(pos);
    for (const unsigned a : ids)
    {
        if (new_ids[a] != a) continue;
        const vector_fixed<double, D> x = points[a];
        double least = tol * tol;
        unsigned best = a;
        for_each_near(tree, a, x, tol, [&](unsigned b) {
            const double squared = squared_distance<D>(x, points[b]);
            // Of equally close ones the last in the order of the tree.
            if (squared <= least && order[b] < order[a])
            {
                least = squared;
                best = b;
            }
        });
        new_ids[a] = best;
    }
    return true;
}

/// Merges the nodes of one distinct list into those of another. `new_ids` is replaced.
template <unsigned D>
int merge_lists_in(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets, dense1D<unsigned>& new_ids,
                   double tol)
{
    if (!set_identity(new_ids, pos.cols)) return out_of_memory;
    // Within one list all that are equal end at the first of them, whichever of them a chain takes on its way: no search is needed for the
    // others, of which there may be very many in one place, and with a zero tolerance for none at all.
    const bool has_equals_done = &ids == &targets && tol >= 0 && point_at_first_equal<D>(pos, ids, new_ids);
    if (!(has_equals_done && tol == 0) && !point_at_earlier<D>(pos, ids, targets, new_ids, tol)) return out_of_memory;

    resolve_chains(ids, new_ids);
    return static_cast<int>(std::count_if(ids.begin(), ids.end(), [&](unsigned a) { return new_ids[a] != a; }));
}

int merge_lists(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets, dense1D<unsigned>& new_ids,
                double tol)
{
    return pos.rows == 2 ? merge_lists_in<2>(pos, ids, targets, new_ids, tol) : merge_lists_in<3>(pos, ids, targets, new_ids, tol);
}

} // namespace

int merge(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets, dense1D<unsigned>& new_ids,
          double tol)
{
    new_ids.size = 0;
    if (pos.cols == 0) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (!check_IDs(ids, pos.cols)) return -2;
    if (!check_IDs(targets, pos.cols)) return -3;
    if (tol < 0) return -4;

    dense1D<unsigned> sources;
    dense1D<unsigned> survivors;
    unique_indices(sources, ids, {});
    const bool is_same = targets == ids;
    if (!is_same) unique_indices(survivors, targets, {});
    const dense1D<unsigned>& distinct_targets = is_same ? sources : survivors;
    if (sources.empty() || distinct_targets.empty()) return 0;
    return merge_lists(pos, sources, distinct_targets, new_ids, tol);
}

int merge(const dense2D<double>& pos, const dense1D<unsigned>& ids, dense1D<unsigned>& new_ids, double tol)
{
    return merge(pos, ids, ids, new_ids, tol);
}

int merge(dense2D<double>& pos, dense1D<unsigned>& new_ids, double tol)
{
    new_ids.size = 0;
    if (pos.cols == 0) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (tol < 0) return -3;

    dense1D<unsigned> all;
    if (!set_identity(all, pos.cols)) return out_of_memory;
    const int moved = merge_lists(pos, all, all, new_ids, tol);
    // A survivor maps to itself, so no column is overwritten before it is read.
    if (moved > 0)
        for (unsigned i = 0; i < pos.cols; ++i)
            if (new_ids[i] != i) std::copy_n(pos.column(new_ids[i]), pos.rows, pos.column(i));
    return moved;
}

int merge(dense2D<double>& pos, double tol)
{
    dense1D<unsigned> new_ids;
    return merge(pos, new_ids, tol);
}

namespace
{

struct close_pair
{
    double squared;
    unsigned a;
    unsigned b;
};

/// Lists the pairs of nodes of one element that are within the tolerance, in both directions. False when memory runs out.
template <unsigned D>
bool list_close_pairs(const dense2D<double>& pos, const node_tree<D>& tree, const dense2D<unsigned>* first, const dense2D<unsigned>* last,
                      double tol, dense1D<close_pair>& pairs)
{
    const point_reader<D> points(pos);
    bool complete = true;
    for (const auto* m = first; m != last; ++m)
        for (unsigned c = 0; c < m->cols; ++c)
        {
            const unsigned* const begin = m->column(c);
            const unsigned* const end = begin + m->rows;
            for (const unsigned* a = begin; a != end; ++a)
            {
                if (*a == none_index) continue;
                const vector_fixed<double, D> x = points[*a];
                for_each_near(tree, *a, x, tol, [&](unsigned b) {
                    if (std::find(begin, end, b) == end) return;
                    const double squared = squared_distance<D>(x, points[b]);
                    if (!(squared <= tol * tol)) return;
                    const unsigned former = pairs.size;
                    pairs.push_back({squared, *a, b});
                    complete &= pairs.size != former;
                });
            }
        }
    return complete;
}

/// One pass over the pairs, shortest first: a node that was not merged away yet takes the other. The result is the number of nodes merged.
unsigned merge_pairs(dense1D<close_pair>& pairs, dense1D<unsigned>& alive, dense1D<unsigned>& new_ids)
{
    std::stable_sort(pairs.begin(), pairs.end(), [](const close_pair& p, const close_pair& q) { return p.squared < q.squared; });
    std::iota(alive.begin(), alive.end(), 0u);
    unsigned count = 0;
    for (const close_pair& pair : pairs)
    {
        if (alive[pair.a] != pair.a || alive[pair.b] != pair.b) continue;
        new_ids[pair.b] = pair.a;
        alive[pair.b] = pair.a;
        ++count;
    }
    return count;
}

/// Collapses short sides of elements, in one pass or until none is left. `new_ids` comes in as the identity.
template <unsigned D>
int merge_within_elements(const dense2D<double>& pos, const dense1D<unsigned>& used, dense2D<unsigned>* first, dense2D<unsigned>* last,
                          dense1D<unsigned>& new_ids, double tol, bool repeat)
{
    node_tree<D> tree(pos);
    dense1D<unsigned> alive;
    dense1D<close_pair> pairs;
    unsigned added = 0;
    if (!tree.insert(used, added) || !alive.resize(pos.cols)) return out_of_memory;

    unsigned total = 0;
    do {
        pairs.size = 0;
        if (!list_close_pairs(pos, tree, first, last, tol, pairs)) return out_of_memory;
        const unsigned count = merge_pairs(pairs, alive, new_ids);
        if (count == 0) break;
        resolve_chains(used, new_ids);
        for (auto* m = first; m != last; ++m) change_indices(*m, new_ids);
        total += count;
    } while (repeat);
    return static_cast<int>(total);
}

} // namespace

int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, dense1D<unsigned>& new_ids, double tol,
          unsigned mode)
{
    new_ids.size = 0;
    if (pos.cols == 0 || first == last) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (first > last) return -3;
    if (tol < 0) return -5;
    if (mode > 2) return -6;

    if (!set_identity(new_ids, pos.cols)) return out_of_memory;
    dense1D<unsigned> used;
    unique_indices(used, first, last, {});
    if (used.empty()) return 0;
    if (!check_IDs(used, pos.cols)) return -2;

    if (mode != 0)
        return pos.rows == 2 ? merge_within_elements<2>(pos, used, first, last, new_ids, tol, mode == 2)
                             : merge_within_elements<3>(pos, used, first, last, new_ids, tol, mode == 2);

    const int moved = merge_lists(pos, used, used, new_ids, tol);
    if (moved > 0)
        for (auto* m = first; m != last; ++m) change_indices(*m, new_ids);
    return moved;
}

int merge(const dense2D<double>& pos, dense2D<unsigned>* first, dense2D<unsigned>* last, double tol, unsigned mode)
{
    dense1D<unsigned> new_ids;
    return merge(pos, first, last, new_ids, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectivity, dense1D<unsigned>& new_ids, double tol, unsigned mode)
{
    return merge(pos, &connectivity, &connectivity + 1, new_ids, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& connectivity, double tol, unsigned mode)
{
    dense1D<unsigned> new_ids;
    return merge(pos, connectivity, new_ids, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, dense1D<unsigned>& new_ids, double tol,
          unsigned mode)
{
    dense2D<unsigned> both[] = {conn1, conn2};
    return merge(pos, both, both + 2, new_ids, tol, mode);
}

int merge(const dense2D<double>& pos, dense2D<unsigned>& conn1, dense2D<unsigned>& conn2, double tol, unsigned mode)
{
    dense1D<unsigned> new_ids;
    return merge(pos, conn1, conn2, new_ids, tol, mode);
}

} // namespace tq4::gridweave
