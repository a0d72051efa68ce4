#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>

#include <tq4/gridweave/edit.h>

#include "gridweave/core/bits.h"
#include "gridweave/core/distinct.h"
#include "gridweave/core/points.h"
#include "gridweave/core/prefetch.h"
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

/// What `point_at_earlier` works on: `new_ids` comes in as the identity.
struct merge_job
{
    const dense2D<double>& pos;
    const dense1D<unsigned>& ids;
    const dense1D<unsigned>& targets;
    bool is_one_list; ///< `ids` and `targets` are the same
    double tol;
    dense1D<unsigned>& new_ids;
};

/// Place of every target in the order of box results; none where no box finds it. That is a target with a NaN coordinate or one that
/// stands below such a target in the tree.
template <unsigned D>
bool rank_by_tree(const dense2D<double>& pos, const dense1D<unsigned>& targets, dense1D<unsigned>& rank)
{
    node_tree<D> tree(pos);
    unsigned added = 0;
    rank.size = 0;
    if (!tree.insert(targets, added) || !rank.resize(pos.cols, none_index)) return false;

    constexpr double infinity = std::numeric_limits<double>::infinity();
    vector_fixed<double, D> low;
    vector_fixed<double, D> high;
    std::fill_n(low.values, D, -infinity);
    std::fill_n(high.values, D, infinity);
    unsigned place = 0;
    tree.visit_box(low, high, [&](unsigned node) { rank[node] = place++; });
    return true;
}

/// The rules as they stand: all targets in a tree, a box query per node.
template <unsigned D>
int point_at_earlier_by_tree(const merge_job& job)
{
    node_tree<D> tree(job.pos);
    dense1D<unsigned> order;
    unsigned added = 0;
    if (!order.resize(job.pos.cols, none_index) || !tree.insert(job.targets, added)) return out_of_memory;
    for (unsigned i = 0; i < job.targets.size; ++i) order[job.targets[i]] = i;

    const point_reader<D> points(job.pos);
    int moved = 0;
    for (const unsigned a : job.ids)
    {
        const vector_fixed<double, D> x = points[a];
        double least = job.tol * job.tol;
        unsigned best = a;
        for_each_near(tree, a, x, job.tol, [&](unsigned b) {
            const double squared = squared_distance<D>(x, points[b]);
            // Of equally close ones the last in the order of the tree.
            if (squared <= least && order[b] < order[a])
            {
                least = squared;
                best = b;
            }
        });
        if (best == a) continue;
        job.new_ids[a] = best;
        ++moved;
    }
    return moved;
}

/// The places that are taken already, in a hash table of cubic cells. Nodes at one place count once: they are candidates at the same
/// distance. Which of them stands for the place is settled by rank where ranks are given, else it is the first.
template <unsigned D>
class taken_places
{
public:
    using point = vector_fixed<double, D>;

    taken_places(const dense2D<double>& pos, double tol, const unsigned* rank) : points_(pos), tol_(tol), rank_(rank) {}

    /// Makes room for `count` nodes within `low` and `high`. False when memory runs out.
    bool prepare(unsigned count, const point& low, const point& high)
    {
        std::uint64_t slots = 16;
        while (slots < 2 * std::uint64_t{count}) slots *= 2;
        if (slots > none_index || !slots_.resize(static_cast<unsigned>(slots))) return false;
        mask_ = static_cast<unsigned>(slots) - 1;

        double extent = 0.0;
        for (unsigned k = 0; k < D; ++k) extent = std::max(extent, high[k] - low[k]);
        // Cells much larger than the tolerance are rarely left by a box, and much smaller than the spacing of nodes rarely shared. The
        // spacing is that on a surface; in a volume cells come out smaller than need be, which does no harm. Not below what keeps
        // indices exact.
        const double spacing = extent / std::sqrt(static_cast<double>(count));
        double size = std::max({std::min(64 * tol_, spacing), 2 * tol_, extent * 0x1p-40});
        origin_ = low;
        inverse_size_ = 1.0 / std::max(size, 1e-290);
        return true;
    }

    /// Hash of the cell of a node. The slot that belongs to it is asked for from memory.
    std::uint64_t approach(unsigned node) const
    {
        const std::uint64_t hash = hash_of(cell_of(points_[node]));
        prefetch(slots_.data() + first_slot(hash));
        return hash;
    }

    /// The place closest to node a, whose cell has the given hash, within the box and the tolerance; or a.
    unsigned closest_to(unsigned a, std::uint64_t own_hash)
    {
        const point x = points_[a];
        point low;
        point high;
        cell first;
        cell last;
        for (unsigned k = 0; k < D; ++k)
        {
            low[k] = x[k] - tol_;
            high[k] = x[k] + tol_;
        }
        // Cell indices are monotone in the coordinate, so these cells hold all that the box does, whatever is rounded.
        first = cell_of(low);
        last = cell_of(high);

        unsigned best = a;
        double least = tol_ * tol_;
        const bool stays_in_cell = first == last;
        cell at = first;
        for (;;)
        {
            visit_cell(stays_in_cell ? own_hash : hash_of(at), [&](unsigned b) {
                const point y = points_[b];
                const double squared = squared_distance<D>(x, y);
                if (!(squared <= least) || b == a || !is_inside<D>(y.values, low, high)) return;
                if (squared == least && best != a)
                {
                    needs_rank_ |= rank_ == nullptr;
                    if (!rank_ || rank_[b] < rank_[best]) return;
                }
                least = squared;
                best = b;
            });
            unsigned k = 0;
            while (k < D && at[k] == last[k])
            {
                at[k] = first[k];
                ++k;
            }
            if (k == D) return best;
            ++at[k];
        }
    }

    /// Takes the place of a node, whose cell has the given hash.
    void take(unsigned node, std::uint64_t hash)
    {
        const point x = points_[node];
        unsigned s = first_slot(hash);
        for (; slots_[s].node_plus_1 != 0; s = (s + 1) & mask_)
        {
            if (slots_[s].tag != tag_of(hash)) continue;
            unsigned& holder = slots_[s].node_plus_1;
            if (!std::equal(x.values, x.values + D, points_[holder - 1].values)) continue;
            is_shared_ = true;
            if (rank_ && rank_[node] > rank_[holder - 1]) holder = node + 1;
            return;
        }
        slots_[s] = {tag_of(hash), node + 1};
    }

    bool needs_rank() const { return needs_rank_; }    ///< places at the same distance were met, and no rank tells which to prefer
    bool is_shared() const { return is_shared_; }      ///< two nodes stand at one place
    std::uint64_t visited() const { return visited_; } ///< slots looked at by `closest_to`

private:
    using cell = std::array<std::int64_t, D>;

    struct slot
    {
        unsigned tag;         ///< part of the hash of the cell
        unsigned node_plus_1; ///< 0 for a free slot
    };

    cell cell_of(const point& x) const
    {
        // The lowest corner of a box is at most half a cell below the origin; with that raised, cutting digits off is rounding down.
        cell c;
        for (unsigned k = 0; k < D; ++k) c[k] = static_cast<std::int64_t>((x[k] - origin_[k]) * inverse_size_ + 1.0);
        return c;
    }

    static std::uint64_t hash_of(const cell& c)
    {
        // A sum of odd multiples and the finaliser of MurmurHash3 (Appleby).
        std::uint64_t h = 0;
        for (unsigned k = 0; k < D; ++k) h = (h + static_cast<std::uint64_t>(c[k])) * 0x9E3779B97F4A7C15u;
        h ^= h >> 33;
        h *= 0xFF51AFD7ED558CCDu;
        h ^= h >> 33;
        h *= 0xC4CEB9FE1A85EC53u;
        h ^= h >> 33;
        return h;
    }

    unsigned first_slot(std::uint64_t hash) const { return static_cast<unsigned>(hash) & mask_; }
    static unsigned tag_of(std::uint64_t hash) { return static_cast<unsigned>(hash >> 32); }

    template <class Worker>
    void visit_cell(std::uint64_t hash, Worker&& worker)
    {
        for (unsigned s = first_slot(hash); slots_[s].node_plus_1 != 0; s = (s + 1) & mask_)
        {
            ++visited_;
            if (slots_[s].tag == tag_of(hash)) worker(slots_[s].node_plus_1 - 1);
        }
    }

    point_reader<D> points_;
    double tol_;
    const unsigned* rank_;
    point origin_{};
    double inverse_size_ = 1.0;
    dense1D<slot> slots_;
    unsigned mask_ = 0;
    std::uint64_t visited_ = 0;
    bool needs_rank_ = false;
    bool is_shared_ = false;
};

/// How an attempt to merge over cells ended.
enum class attempt
{
    done,
    needs_rank,
    too_dense,
    out_of_memory
};

/// Range of the finite coordinates.
template <unsigned D>
struct extent_of_nodes
{
    vector_fixed<double, D> low;
    vector_fixed<double, D> high;
    bool is_finite = true;

    extent_of_nodes()
    {
        std::fill_n(low.values, D, std::numeric_limits<double>::max());
        std::fill_n(high.values, D, std::numeric_limits<double>::lowest());
    }

    void include(const vector_fixed<double, D>& x)
    {
        for (unsigned k = 0; k < D; ++k)
        {
            if (!std::isfinite(x[k]))
            {
                is_finite = false;
                continue;
            }
            if (x[k] < low[k]) low[k] = x[k];
            if (x[k] > high[k]) high[k] = x[k];
        }
    }
};

template <unsigned D>
bool is_finite(const vector_fixed<double, D>& x)
{
    return std::all_of(x.values, x.values + D, [](double c) { return std::isfinite(c); });
}

/// Merges by letting the targets take their places one after the other: what has been taken is what stands earlier.
template <unsigned D>
attempt point_at_earlier_by_cells(const merge_job& job, const extent_of_nodes<D>& extent, const dense1D<unsigned>& rank, int& moved)
{
    constexpr unsigned ahead = 16; // nodes whose cells are asked for from memory in advance
    constexpr std::uint64_t most_visits_per_node = 256;

    const point_reader<D> points(job.pos);
    taken_places<D> taken(job.pos, job.tol, rank.empty() ? nullptr : rank.data());
    bit_vector is_source;
    bit_vector is_target;
    if (!taken.prepare(job.targets.size, extent.low, extent.high)) return attempt::out_of_memory;
    if (!job.is_one_list)
    {
        if (!is_source.reset(job.pos.cols) || !is_target.reset(job.pos.cols)) return attempt::out_of_memory;
        for (const unsigned a : job.ids) is_source.set(a);
        for (const unsigned b : job.targets) is_target.set(b);
    }

    // A node that no box finds takes no place; one that is not finite finds no place either.
    const auto is_eligible = [&](unsigned node) { return extent.is_finite || is_finite<D>(points[node]); };
    const auto approach = [&](unsigned node) { return is_eligible(node) ? taken.approach(node) : 0; };
    const auto move = [&](unsigned a, std::uint64_t hash) {
        const unsigned best = taken.closest_to(a, hash);
        job.new_ids[a] = best;
        moved += best != a;
    };
    const std::uint64_t most_visits = most_visits_per_node * (std::uint64_t{job.targets.size} + job.ids.size);

    moved = 0;
    std::uint64_t hashes[ahead];
    for (unsigned i = 0; i < std::min(ahead, job.targets.size); ++i) hashes[i] = approach(job.targets[i]);
    for (unsigned i = 0; i < job.targets.size; ++i)
    {
        const unsigned b = job.targets[i];
        const std::uint64_t hash = hashes[i % ahead];
        if (i + ahead < job.targets.size) hashes[i % ahead] = approach(job.targets[i + ahead]);
        if (!is_eligible(b)) continue;
        if (job.is_one_list || is_source[b]) move(b, hash);
        if (rank.empty() || rank[b] != none_index) taken.take(b, hash);
        if (taken.needs_rank()) return attempt::needs_rank;
        if (taken.visited() > most_visits) return attempt::too_dense;
    }
    if (job.is_one_list) return attempt::done;

    // In one list all nodes at a place end at the same root, whichever of them is taken; in two lists the choice shows.
    if (taken.is_shared() && rank.empty()) return attempt::needs_rank;
    for (const unsigned a : job.ids)
    {
        if (is_target[a] || !is_eligible(a)) continue;
        move(a, taken.approach(a));
        if (taken.needs_rank()) return attempt::needs_rank;
        if (taken.visited() > most_visits) return attempt::too_dense;
    }
    return attempt::done;
}

/// Points every node of `ids` at the closest target that stands earlier in `targets`, within the tolerance. The result is the number of
/// nodes that moved.
template <unsigned D>
int point_at_earlier(const merge_job& job)
{
    // Beyond this squares and cell indices overflow. NaN merges nothing.
    constexpr double too_large = 1e150;
    if (std::isnan(job.tol)) return 0;

    const point_reader<D> points(job.pos);
    extent_of_nodes<D> extent;
    for (const unsigned b : job.targets) extent.include(points[b]);
    if (!job.is_one_list)
        for (const unsigned a : job.ids) extent.include(points[a]);
    for (unsigned k = 0; k < D; ++k)
        if (extent.low[k] > extent.high[k] && job.tol < too_large) return 0; // no node is finite
    bool is_moderate = job.tol < too_large;
    for (unsigned k = 0; k < D; ++k) is_moderate &= std::max(std::abs(extent.low[k]), std::abs(extent.high[k])) < too_large;
    if (!is_moderate) return point_at_earlier_by_tree<D>(job);

    // The order of the tree matters where nodes hide others, and between places at the same distance.
    dense1D<unsigned> rank;
    if (!extent.is_finite && !rank_by_tree<D>(job.pos, job.targets, rank)) return out_of_memory;
    int moved = 0;
    attempt outcome = point_at_earlier_by_cells(job, extent, rank, moved);
    if (outcome == attempt::needs_rank)
    {
        std::iota(job.new_ids.begin(), job.new_ids.end(), 0u);
        if (!rank_by_tree<D>(job.pos, job.targets, rank)) return out_of_memory;
        outcome = point_at_earlier_by_cells(job, extent, rank, moved);
    }
    if (outcome == attempt::out_of_memory) return out_of_memory;
    if (outcome == attempt::done) return moved;
    std::iota(job.new_ids.begin(), job.new_ids.end(), 0u);
    return point_at_earlier_by_tree<D>(job);
}

/// Merges the nodes of one distinct list into those of another. `new_ids` is replaced.
int merge_lists(const dense2D<double>& pos, const dense1D<unsigned>& ids, const dense1D<unsigned>& targets, dense1D<unsigned>& new_ids,
                double tol)
{
    if (!set_identity(new_ids, pos.cols)) return out_of_memory;
    const merge_job job{pos, ids, targets, &ids == &targets, tol, new_ids};
    const int moved = pos.rows == 2 ? point_at_earlier<2>(job) : point_at_earlier<3>(job);
    if (moved < 2) return moved;
    resolve_chains(ids, new_ids);
    return static_cast<int>(std::count_if(ids.begin(), ids.end(), [&](unsigned a) { return new_ids[a] != a; }));
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
    if (!append_distinct(sources, list_entries{ids}, {})) return out_of_memory;
    const bool is_same = targets == ids;
    if (!is_same && !append_distinct(survivors, list_entries{targets}, {})) return out_of_memory;
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

bool is_shorter(const close_pair& p, const close_pair& q)
{
    return p.squared < q.squared;
}

/// The pairs of nodes of one element that are within the tolerance, in both directions.
template <unsigned D>
class pair_finder
{
public:
    pair_finder(const dense2D<double>& pos, const dense1D<unsigned>& used, double tol) : pos_(pos), points_(pos), used_(used), tol_(tol) {}

    /// Lists the pairs of all columns. False when memory runs out.
    bool list(const dense2D<unsigned>* first, const dense2D<unsigned>* last, dense1D<close_pair>& pairs)
    {
        if (rank_.empty() && hides_nodes() && !rank_by_tree<D>(pos_, used_, rank_)) return false;
        if (!list_in_known_order(first, last, pairs)) return false;
        if (!needs_rank_) return true;
        needs_rank_ = false;
        return rank_by_tree<D>(pos_, used_, rank_) && list_in_known_order(first, last, pairs);
    }

private:
    /// A NaN coordinate hides other nodes from boxes.
    bool hides_nodes() const
    {
        return std::any_of(used_.begin(), used_.end(), [&](unsigned node) {
            const vector_fixed<double, D> x = points_[node];
            return std::any_of(x.values, x.values + D, [](double c) { return std::isnan(c); });
        });
    }

    bool list_in_known_order(const dense2D<unsigned>* first, const dense2D<unsigned>* last, dense1D<close_pair>& pairs)
    {
        pairs.size = 0;
        for (const auto* m = first; m != last; ++m)
            for (unsigned c = 0; c < m->cols; ++c)
                for (unsigned r = 0; r < m->rows; ++r)
                {
                    const unsigned a = m->column(c)[r];
                    if (a != none_index && !list_partners(a, m->column(c), m->rows, pairs)) return false;
                    if (needs_rank_) return true;
                }
        return true;
    }

    bool list_partners(unsigned a, const unsigned* column, unsigned rows, dense1D<close_pair>& pairs)
    {
        const vector_fixed<double, D> x = points_[a];
        vector_fixed<double, D> low;
        vector_fixed<double, D> high;
        for (unsigned k = 0; k < D; ++k)
        {
            low[k] = x[k] - tol_;
            high[k] = x[k] + tol_;
        }
        const unsigned begin = pairs.size;
        for (unsigned r = 0; r < rows; ++r)
        {
            const unsigned b = column[r];
            if (b == none_index || b == a) continue;
            if (!rank_.empty() && rank_[b] == none_index) continue;
            const vector_fixed<double, D> y = points_[b];
            const double squared = squared_distance<D>(x, y);
            if (!(squared <= tol_ * tol_) || !is_inside<D>(y.values, low, high)) continue;
            if (std::find(column, column + r, b) != column + r) continue; // a repeat
            const unsigned former = pairs.size;
            pairs.push_back({squared, a, b});
            if (pairs.size == former) return false;
        }
        put_in_order(pairs.begin() + begin, pairs.end());
        return true;
    }

    /// Pairs of one node come in the order of the tree; that of their distances will do unless two are equal.
    void put_in_order(close_pair* begin, close_pair* end)
    {
        if (end - begin < 2) return;
        if (!rank_.empty())
            std::sort(begin, end, [&](const close_pair& p, const close_pair& q) { return rank_[p.b] < rank_[q.b]; });
        else
        {
            std::sort(begin, end, is_shorter);
            needs_rank_ |=
                std::adjacent_find(begin, end, [](const close_pair& p, const close_pair& q) { return p.squared == q.squared; }) != end;
        }
    }

    const dense2D<double>& pos_;
    point_reader<D> points_;
    const dense1D<unsigned>& used_;
    double tol_;
    dense1D<unsigned> rank_; ///< empty as long as it makes no difference
    bool needs_rank_ = false;
};

/// One pass over the pairs, shortest first: a node that was not merged away yet takes the other. The result is the number of nodes merged.
unsigned merge_pairs(dense1D<close_pair>& pairs, dense1D<unsigned>& alive, dense1D<unsigned>& new_ids)
{
    std::stable_sort(pairs.begin(), pairs.end(), is_shorter);
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
    pair_finder<D> finder(pos, used, tol);
    dense1D<unsigned> alive;
    dense1D<close_pair> pairs;
    if (!alive.resize(pos.cols)) return out_of_memory;

    unsigned total = 0;
    do {
        if (!finder.list(first, last, pairs)) return out_of_memory;
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
    if (!append_distinct(used, range_entries{first, last}, {})) return out_of_memory;
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
