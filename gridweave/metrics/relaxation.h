#pragma once

// The relaxation that limits how much a field changes from node to node: the worst edge first, until no edge is left that a move would
// improve. One template over the dimension, the form of the field (sizes or tensors) and the measure of an edge (gradation or variation).
//
// The idea of limiting the growth of a size field over the edges of a mesh follows H. Borouchaki, F. Hecht and P. J. Frey, "Mesh gradation
// control", International Journal for Numerical Methods in Engineering 43 (1998), and F. Alauzet, "Size gradation control of anisotropic
// meshes", Finite Elements in Analysis and Design 46 (2010). Where those sweep over the edges, a priority queue corrects the worst first.

#include <algorithm>
#include <array>
#include <cfloat>
#include <cmath>
#include <limits>

#include <tq4/gridweave/core.h>

#include "gridweave/connectivity/node_graph.h"
#include "gridweave/core/points.h"
#include "gridweave/core/prefetch.h"
#include "gridweave/core/vector_math.h"
#include "gridweave/metrics/edge_measure.h"
#include "gridweave/metrics/gradation_heap.h"
#include "gridweave/metrics/interpolation.h"
#include "gridweave/metrics/minimize.h"
#include "gridweave/metrics/reduction.h"

namespace tq4::gridweave
{

/// What the terms of an edge tell of it.
enum class judgement
{
    within, ///< the limit holds
    above,  ///< it does not, and the key is known
    unsure  ///< the measure itself must be taken
};

/// The judgement on an edge whose measure lies between the bounds.
inline judgement judge_bounds(const measure_bounds& bounds, double limit, float& key)
{
    if (bounds.high < limit) return judgement::within;
    key = gradation_key(bounds.low);
    return bounds.low > limit && key == gradation_key(bounds.high) ? judgement::above : judgement::unsure;
}

/// The measure that `bound_metric_gradations` limits.
class gradation_limit
{
public:
    explicit gradation_limit(double g)
        : limit_(g), log_growth_(std::log(1 + g)), certain_slope_((log_growth_ - 4e-15 * (1 + log_growth_)) * (1 - 1e-13))
    {
    }

    double limit() const { return limit_; }

    template <class Metric>
    static double measure(const edge_lengths& edge, const Metric& m0, const Metric& m1)
    {
        return gradation_of(edge, m0, m1);
    }

    /// What the terms tell. Edges are judged by the dozen with every move, where a call would pass all of it through memory.
    [[gnu::always_inline]] judgement judge(const edge_terms& edge, float& key) const
    {
        // The gradation is beyond the largest key from here on.
        constexpr double largest_exponent = 89;

        if (!edge.is_regular()) return judgement::unsure;
        const double rise = edge.high() - edge.low();
        if (rise == 0 || rise + 2e-15 * edge.low() < certain_slope_ * edge.span) return judgement::within;
        if (rise > largest_exponent * edge.span)
        {
            key = FLT_MAX;
            return limit_ < static_cast<double>(FLT_MAX) ? judgement::above : judgement::unsure;
        }
        return judge_bounds(gradation_bounds(edge), limit_, key);
    }

    /// The fraction of the way to the neighbour's size after which an edge of length `d` meets the limit, for sizes that differ by `dh`:
    /// exact for a size linear along the edge. 0 where there is no way to go.
    double fraction(double d, double dh) const
    {
        if (!(dh > 0)) return 0;
        const double t = 1 - log_growth_ * d / dh;
        return t > 0 ? t : 0;
    }

private:
    double limit_;
    double log_growth_;
    double certain_slope_; ///< a rise over the span below this is within the limit, whatever is lost to rounding
};

/// The measure that `bound_metric_variations` limits.
class variation_limit
{
public:
    explicit variation_limit(double v) : limit_(v) {}

    double limit() const { return limit_; }

    template <class Metric>
    static double measure(const edge_lengths& edge, const Metric& m0, const Metric& m1)
    {
        return variation_of(edge, m0, m1);
    }

    judgement judge(const edge_terms& edge, float& key) const
    {
        if (!edge.is_regular()) return judgement::unsure;
        if (edge.end0 == edge.end1) return judgement::within;
        return judge_bounds(variation_bounds(edge), limit_, key);
    }

    /// As for the gradation; here differences that are negligible beside the edge's length leave nothing to correct.
    double fraction(double d, double dh) const
    {
        constexpr double negligible_slope = 1e-12;
        if (!(d * negligible_slope < dh)) return 0;
        const double t = 1 - (d / dh) * limit_;
        return t > 0 ? t : 0;
    }

private:
    double limit_;
};

/// The edges at every node: row i of the lists, from `first[i]` to `first[i + 1]`, holds the neighbours of node i.
struct node_graph
{
    dense1D<unsigned> first;
    dense1D<unsigned> list;

    unsigned nodes() const { return first.size - 1; }
};

/// The way that a node's size may go, as stored per node.
enum class travel : unsigned char
{
    either = 0,
    grow = 1,
    shrink = 255
};

/// Length of an edge and the sizes of its two ends along it.
struct edge_sizes
{
    double d;
    double h0;
    double h1;
};

/// A field of sizes over a mesh.
template <unsigned D>
class size_field
{
public:
    using metric = double;

    size_field(const point_reader<D>& pos, dense1D<double>& sizes) : pos_(pos), sizes_(sizes.data()) {}

    double operator[](unsigned node) const { return sizes_[node]; }
    void set(unsigned node, double size) { sizes_[node] = size; }

    /// Notes the lengths of all edges, which are asked for again with every move. False when memory runs out.
    bool prepare(const node_graph& graph)
    {
        if (!lengths_.resize(graph.list.size)) return false;
        for (unsigned i = 0; i < graph.nodes(); ++i)
        {
            const auto here = pos_[i];
            for (unsigned p = graph.first[i]; p < graph.first[i + 1]; ++p) lengths_[p] = norm(subtract(pos_[graph.list[p]], here));
        }
        length_at_ = lengths_.data();
        return true;
    }

    // The edge at position p of the row of node i, which leads to node k, if i had the size `mine`: in cheap terms, its lengths, and the
    // sizes along it.
    edge_terms terms(double mine, unsigned, unsigned k, unsigned p) const { return {length_at_[p], mine, sizes_[k]}; }
    edge_lengths lengths(double mine, unsigned, unsigned k, unsigned p) const { return lengths_of_edge(length_at_[p], mine, sizes_[k]); }
    edge_sizes sizes_along(double mine, unsigned, unsigned k, unsigned p) const { return {length_at_[p], mine, sizes_[k]}; }

    void ask_for_node(unsigned k) const { prefetch(sizes_ + k); }
    void ask_for_edge(unsigned p) const { prefetch(length_at_ + p); }

private:
    point_reader<D> pos_;
    double* sizes_;
    dense1D<double> lengths_;
    const double* length_at_ = nullptr;
};

/// A field of tensors over a mesh, one column per node.
template <unsigned D>
class tensor_field
{
public:
    using metric = tensor<D>;

    tensor_field(const point_reader<D>& pos, dense2D<double>& metrics) : pos_(pos), base_(metrics.data()), step_(metrics.ld) {}

    metric operator[](unsigned node) const { return tensor_at<D>(base_ + step_ * node); }
    void set(unsigned node, const metric& m) { store(m, base_ + step_ * node); }

    bool prepare(const node_graph&) { return true; }

    edge_terms terms(const metric& mine, unsigned i, unsigned k, unsigned) const
    {
        const auto u = edge(i, k);
        const double s0 = std::sqrt(quadratic_form(mine, u));
        const double s1 = std::sqrt(quadratic_form((*this)[k], u));
        return {s0 * s1, s0, s1};
    }

    edge_lengths lengths(const metric& mine, unsigned i, unsigned k, unsigned) const
    {
        return lengths_of_edge(edge(i, k), mine, (*this)[k]);
    }

    edge_sizes sizes_along(const metric& mine, unsigned i, unsigned k, unsigned) const
    {
        const auto u = edge(i, k);
        const double squared_length = squared_norm(u);
        const double d = std::sqrt(squared_length);
        auto unit = u;
        if (squared_length != 0 && squared_length != 1)
            for (unsigned c = 0; c < D; ++c) unit[c] = u[c] / d;
        const auto size = [&](const metric& m) {
            const double q = quadratic_form(m, unit);
            return q > 0 ? 1 / std::sqrt(q) : q;
        };
        return {d, size(mine), size((*this)[k])};
    }

    void ask_for_node(unsigned k) const { prefetch(base_ + step_ * k); }
    void ask_for_edge(unsigned) const {}

private:
    vector_fixed<double, D> edge(unsigned i, unsigned k) const { return subtract(pos_[k], pos_[i]); }

    point_reader<D> pos_;
    double* base_;
    std::size_t step_;
};

/// Keeps a metric that a node is to take from giving ground against the node's way of travel.
inline bool keep_to_way(travel way, double start, double& size)
{
    if (way == travel::grow && !(size > start)) size = start;
    if (way == travel::shrink && !(size < start)) size = start;
    return true;
}

/// The same for tensors, in every direction of their common basis, for a way that is decided. False, with the tensor as it was, when they
/// have none.
template <unsigned D>
bool keep_to_way(travel way, const tensor<D>& start, tensor<D>& m)
{
    const tensor<D> asked = m;
    return way == travel::grow ? maximum_metric_inner(start, asked, m) : minimum_metric_inner(start, asked, m);
}

/// How far two metrics are apart, as a ratio of sizes from 1 up; what does not compare counts as no change.
inline double metric_change_ratio(double before, double after)
{
    return after > before ? after / before : before / after;
}

template <unsigned D>
double metric_change_ratio(const tensor<D>& before, const tensor<D>& after)
{
    double largest = 1;
    for (unsigned k = 0; k < D; ++k)
    {
        const double ratio = metric_change_ratio(before(k, k), after(k, k));
        if (ratio > largest) largest = ratio;
    }
    return std::sqrt(largest);
}

/// One run of the relaxation.
template <class Limit, class Field>
class relaxation
{
public:
    using metric = typename Field::metric;

    /// Value of a node's status when it never moves; 0 is a node that has not moved yet, any other value the stamp of its latest move.
    static constexpr unsigned frozen = none_index;

    /// `status` has one entry more than there are nodes, which is frozen.
    relaxation(const node_graph& graph, dense1D<unsigned>& status, dense1D<travel>& ways, const Limit& limit, Field& field)
        : first_(graph.first.data()),
          list_(graph.list.data()),
          nodes_(graph.nodes()),
          status_(status.data()),
          ways_(ways.data()),
          limit_(limit),
          field_(field),
          queue_({0, nodes_, nodes_, 0})
    {
    }

    /// Runs until no edge is left to correct. The number of nodes moved, or -199 with the moves made so far kept.
    int propagate_bounds()
    {
        any_frozen_ = std::any_of(status_, status_ + nodes_, [](unsigned s) { return s != 0; });
        if (any_frozen_ && !note_frozen_neighbours()) return out_of_memory;

        for (unsigned i = 0; i < nodes_; ++i)
            if (status_[i] == 0 && !queue_edges_from(i)) return out_of_memory;

        unsigned stamp = 0;
        int moved = 0;
        while (!queue_.empty())
        {
            const gradation_record worst = queue_.top();
            queue_.pop();
            look_ahead();
            if (is_stale(worst)) continue;

            const unsigned i = worst.node;
            travel way = ways_[i];
            if (!correct_node(worst, way)) continue;

            ways_[i] = way;
            if (status_[i] == 0) ++moved;
            status_[i] = ++stamp;
            if (!queue_edges_around(i, stamp)) return out_of_memory;
        }
        return moved;
    }

private:
    /// Smaller moves are not worth the work that they cause around them.
    static constexpr double least_fraction = 0.001;

    /// Most records are stale when they come out: one of the ends has moved since. An idle one is so from the start, its node being frozen.
    bool is_stale(const gradation_record& record) const
    {
        const unsigned j = status_[record.neighbour];
        return (status_[record.node] > record.stamp) | ((j > record.stamp) & (j != frozen));
    }

    /// Asks in time for what the records will need that come out soon.
    void look_ahead() const
    {
        constexpr unsigned edges_at_once = 32; // nothing hangs on those of nodes that have more

        const gradation_record& later = queue_.risen(3);
        prefetch(status_ + later.node);
        prefetch(status_ + later.neighbour);
        prefetch(first_ + later.node);

        const gradation_record& soon = queue_.risen(2);
        if (!is_stale(soon))
        {
            const unsigned end = std::min(first_[soon.node + 1], first_[soon.node] + edges_at_once);
            for (unsigned p = first_[soon.node]; p < end; p += 8)
            {
                prefetch(list_ + p);
                field_.ask_for_edge(p);
            }
            field_.ask_for_edge(end);
        }
        const gradation_record& next = queue_.risen(1);
        if (!is_stale(next))
        {
            const unsigned end = std::min(first_[next.node + 1], first_[next.node] + edges_at_once);
            field_.ask_for_node(next.node);
            for (unsigned p = first_[next.node]; p < end; ++p) field_.ask_for_node(list_[p]);
        }
    }

    double measure(const metric& m, unsigned i, unsigned p) const
    {
        const unsigned k = list_[p];
        return Limit::measure(field_.lengths(m, i, k, p), m, field_[k]);
    }

    /// Whether the edge at position p of the row of node i, whose metric is `mine`, is above the limit, and the key that it is queued
    /// under.
    [[gnu::always_inline]] bool is_above(const metric& mine, unsigned i, unsigned p, float& key) const
    {
        const judgement verdict = limit_.judge(field_.terms(mine, i, list_[p], p), key);
        if (verdict != judgement::unsure) return verdict == judgement::above;
        const double e = measure(mine, i, p);
        key = gradation_key(e);
        return limit_.limit() < e;
    }

    /// Queues an edge for the correction of `record.node`, an end of it. What will come of it is certain now: when one of its ends moves
    /// before, the record gets stale. So where it is cheap to know that nothing will, nothing is kept.
    bool queue(float key, const edge_sizes& edge, const gradation_record& record)
    {
        travel way = ways_[record.node];
        return fraction_to_go(edge, way) > 0 ? queue_.push(key, record) : queue_.push_idle(key);
    }

    /// Queues the edges of a node that are above the limit, for the node's own correction.
    bool queue_edges_from(unsigned i)
    {
        const metric mine = field_[i];
        float key = 0;
        for (unsigned p = first_[i]; p < first_[i + 1]; ++p)
        {
            if (!is_above(mine, i, p, key)) continue;
            const unsigned k = list_[p];
            if (!queue(key, field_.sizes_along(mine, i, k, p), {0, i, k, p})) return false;
        }
        return true;
    }

    /// Queues the edges of a moved node that are above the limit, for both of their ends.
    bool queue_edges_around(unsigned i, unsigned stamp)
    {
        const metric mine = field_[i];
        float key = 0;
        for (unsigned p = first_[i]; p < first_[i + 1]; ++p)
        {
            if (!is_above(mine, i, p, key)) continue;
            const unsigned k = list_[p];
            const edge_sizes edge = field_.sizes_along(mine, i, k, p);
            if (!queue(key, edge, {stamp, i, k, p})) return false;
            if (status_[k] != frozen && !queue(key, {edge.d, edge.h1, edge.h0}, {stamp, k, i, p})) return false;
        }
        return true;
    }

    /// Notes for every movable node which of its edges lead to frozen nodes. False when memory runs out.
    bool note_frozen_neighbours()
    {
        if (!frozen_first_.resize(nodes_ + 1)) return false;
        const auto for_each_frozen = [&](unsigned i, auto&& worker) {
            if (status_[i] == frozen) return;
            for (unsigned p = first_[i]; p < first_[i + 1]; ++p)
                if (status_[list_[p]] == frozen) worker(p);
        };
        unsigned total = 0;
        for (unsigned i = 0; i < nodes_; ++i)
        {
            frozen_first_[i] = total;
            for_each_frozen(i, [&](unsigned) { ++total; });
        }
        frozen_first_[nodes_] = total;

        constexpr double unknown = std::numeric_limits<double>::quiet_NaN();
        if (!frozen_at_.resize(total) || !present_excess_.resize(nodes_, unknown) || !present_way_.resize(nodes_)) return false;
        unsigned end = 0;
        for (unsigned i = 0; i < nodes_; ++i) for_each_frozen(i, [&](unsigned p) { frozen_at_[end++] = p; });
        return true;
    }

    bool has_frozen_neighbours(unsigned i) const { return any_frozen_ && frozen_first_[i] != frozen_first_[i + 1]; }

    /// The fraction of the way from the first end of an edge to the other after which the edge meets the limit, or 0 when the first end
    /// stays for what is known of this edge. A way that was open becomes the one that it goes.
    double fraction_to_go(const edge_sizes& edge, travel& way) const
    {
        const travel wanted = edge.h1 > edge.h0 ? travel::grow : travel::shrink;
        if (way == travel::either) way = wanted;
        if (way != wanted) return 0;
        const double t = limit_.fraction(edge.d, std::fabs(edge.h1 - edge.h0));
        return t > least_fraction ? t : 0;
    }

    /// Moves the metric of a node towards that of its neighbour until their edge meets the limit. False when the node stays.
    bool correct_node(const gradation_record& record, travel& way)
    {
        constexpr double least_ratio = 1.000000000001;

        const unsigned i = record.node;
        const metric start = field_[i];
        const metric goal = field_[record.neighbour];
        double t = fraction_to_go(field_.sizes_along(start, i, record.neighbour, record.position), way);
        if (!(t > 0)) return false;

        const bool beside_frozen = has_frozen_neighbours(i);
        metric_path<metric> path(start, goal);
        if (beside_frozen)
        {
            t = best_fraction(i, start, path, way, t);
            if (!(t > least_fraction)) return false;
        }

        metric result;
        if (!path.at(t, result) || !keep_to_way(way, start, result)) return false;
        if (!(metric_change_ratio(start, result) > least_ratio)) return false;
        field_.set(i, result);
        if (beside_frozen) forget_present_excess(i);
        return true;
    }

    /// A node beside frozen ones moves only to reduce an excess on the edges to them: the fraction of the way, up to `whole`, that leaves
    /// the least of it, or 0 when there is no excess or no gain.
    double best_fraction(unsigned i, const metric& start, metric_path<metric>& path, travel way, double whole)
    {
        constexpr unsigned coarse_steps = 6;
        constexpr double fraction_tolerance = 0.001;

        const double present = present_excess(i, start, path, way);
        if (!(0 < present && present < DBL_MAX)) return 0;

        const double step = whole / coarse_steps;
        std::array<double, coarse_steps + 1> ts{};
        std::array<double, coarse_steps + 1> values{present};
        unsigned best = 0;
        for (unsigned k = 1; k <= coarse_steps; ++k)
        {
            ts[k] = ts[k - 1] + step;
            values[k] = excess_penalty(i, start, path, way, ts[k]);
            if (values[k] < values[best]) best = k;
        }

        double lo = ts[best] - step;
        if (!(lo > 0)) lo = 0;
        double hi = ts[best] + step;
        if (!(whole > hi)) hi = whole;
        // The search starts from fractions that the scan has mostly been at.
        const auto penalty = [&](double t) {
            for (unsigned k = 0; k <= coarse_steps; ++k)
                if (t == ts[k]) return values[k];
            return excess_penalty(i, start, path, way, t);
        };
        const minimum_on_interval found = minimize_on_interval(lo, hi, 0, fraction_tolerance, penalty);
        return present > found.value ? found.t : 0;
    }

    /// The penalty of node i as it stands, which every record of the node asks for and which stays until the node moves.
    double present_excess(unsigned i, const metric& start, metric_path<metric>& path, travel way)
    {
        if (!path.begins_at_start()) return excess_penalty(i, start, path, way, 0);
        if (std::isnan(present_excess_[i]) || present_way_[i] != way)
        {
            present_excess_[i] = excess_penalty(i, start, path, way, 0);
            present_way_[i] = way;
        }
        return present_excess_[i];
    }

    void forget_present_excess(unsigned i) { present_excess_[i] = std::numeric_limits<double>::quiet_NaN(); }

    /// Sum of the squared excesses over the limit on the edges to frozen neighbours, with node i at the fraction `t` of its way.
    double excess_penalty(unsigned i, const metric& start, metric_path<metric>& path, travel way, double t) const
    {
        static const double largest_excess = std::sqrt(DBL_MAX);

        metric m;
        if (!path.at(t, m)) return 0;
        keep_to_way(way, start, m); // on failure the metric stays unmerged here
        double sum = 0;
        float key = 0;
        for (unsigned f = frozen_first_[i]; f < frozen_first_[i + 1]; ++f)
        {
            const unsigned p = frozen_at_[f];
            if (limit_.judge(field_.terms(m, i, list_[p], p), key) == judgement::within) continue;
            const double excess = measure(m, i, p) - limit_.limit();
            if (!(excess > 0)) continue;
            if (excess >= largest_excess) return DBL_MAX;
            sum += excess * excess;
        }
        return sum;
    }

    const unsigned* first_;
    const unsigned* list_;
    unsigned nodes_;
    unsigned* status_;
    travel* ways_;
    Limit limit_;
    Field& field_;
    gradation_queue queue_;

    // Of use only where there are frozen nodes.
    bool any_frozen_ = false;
    dense1D<unsigned> frozen_first_; ///< where the edges to frozen nodes stand in the next, by node
    dense1D<unsigned> frozen_at_;    ///< positions of such edges in the rows of the graph
    dense1D<double> present_excess_; ///< penalty of a node as it stands, NaN where it is not known,
    dense1D<travel> present_way_;    ///< and the way for which it was computed
};

/// The node-to-node form of a connectivity; the node-to-element form that it is made from is dropped.
inline int build_graph(const dense2D<unsigned>& connectivity, node_graph& graph)
{
    dense1D<unsigned> element_first;
    dense1D<unsigned> element_list;
    if (const int result = build_node_elements(connectivity, element_first, element_list, true); result < 0) return result;
    return build_node_graph(connectivity, element_first, element_list, graph.first, graph.list);
}

inline size_field<2> field_over(const point_reader<2>& pos, dense1D<double>& sizes)
{
    return {pos, sizes};
}
inline size_field<3> field_over(const point_reader<3>& pos, dense1D<double>& sizes)
{
    return {pos, sizes};
}
inline tensor_field<2> field_over(const point_reader<2>& pos, dense2D<double>& metrics)
{
    return {pos, metrics};
}
inline tensor_field<3> field_over(const point_reader<3>& pos, dense2D<double>& metrics)
{
    return {pos, metrics};
}

/// Sets a run up for arguments that have been tested, and makes it. `Values` holds the sizes or the tensors.
template <unsigned D, class Limit, class Values>
int relax(const dense2D<double>& coordinates, const dense2D<unsigned>& connectivity, const dense1D<unsigned>& indices, bool indices_frozen,
          travel way, const Limit& limit, Values& values)
{
    const point_reader<D> pos(coordinates);
    auto field = field_over(pos, values);
    using run = relaxation<Limit, decltype(field)>;

    // No move goes any other way.
    if (way != travel::either && way != travel::grow && way != travel::shrink) return 0;

    dense1D<unsigned> status;
    if (!status.resize(coordinates.cols, indices_frozen ? 0 : run::frozen)) return out_of_memory;
    for (const unsigned index : indices)
        if (index < status.size) status[index] = indices_frozen ? run::frozen : 0;

    node_graph graph;
    if (const int result = build_graph(connectivity, graph); result < 0) return result;

    dense1D<travel> ways;
    if (!status.resize(graph.nodes(), run::frozen) || !status.resize(graph.nodes() + 1, run::frozen)) return out_of_memory;
    if (!ways.resize(graph.nodes(), way) || !field.prepare(graph)) return out_of_memory;
    return run(graph, status, ways, limit, field).propagate_bounds();
}

inline bool holds_metrics_of(unsigned, const dense1D<double>&)
{
    return true;
}
inline bool holds_metrics_of(unsigned dimension, const dense2D<double>& metrics)
{
    return metrics.rows == dimension * (dimension + 1) / 2;
}

inline unsigned entries(const dense1D<double>& sizes)
{
    return sizes.size;
}
inline unsigned entries(const dense2D<double>& metrics)
{
    return metrics.cols;
}

/// The whole of an exported call: the four of them have the same tests and codes. `Values` is a vector of sizes or a matrix of tensors.
template <class Limit, class Values>
int limit_field(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, element_type kind, const dense1D<unsigned>& indices,
                bool indices_frozen, int direction, double limit, Values& values)
{
    if (connectivity.empty() || limit == DBL_MAX) return 0;
    if (pos.rows != 2 && pos.rows != 3) return -1;
    if (!check_IDs(connectivity, kind, pos.cols)) return -2;
    if (!check_IDs(indices, pos.cols)) return -4;
    if (limit < 0) return -7;
    if (!holds_metrics_of(pos.rows, values)) return -8;
    if (max_ID(connectivity) >= entries(values)) return -8;

    const auto way = static_cast<travel>(static_cast<unsigned char>(direction));
    if (pos.rows == 2) return relax<2>(pos, connectivity, indices, indices_frozen, way, Limit(limit), values);
    return relax<3>(pos, connectivity, indices, indices_frozen, way, Limit(limit), values);
}

} // namespace tq4::gridweave
