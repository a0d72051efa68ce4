#pragma once

// The relaxation of metric fields in its plainest form, as the yardstick for results and for speed: standard containers, one function
// after the other, every edge measured whenever it is asked for, nothing remembered. Only the reduction of a pair of tensors is the
// library's own.

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstddef>
#include <vector>

#include "gridweave/metrics/reduction.h"

namespace tq4::test
{

enum class limited
{
    gradation,
    variation
};

/// What a run did.
struct relaxation_counts
{
    int moved = 0;
    unsigned long moves = 0;
    unsigned long pushes = 0;
    unsigned long stale = 0;
    std::size_t longest_queue = 0;
};

namespace literal
{

template <unsigned D>
using vec = std::array<double, D>;
template <unsigned D>
using tensor = symmetric_fixed<double, D>;

inline double logarithmic_length(double L, double s0, double s1)
{
    double lo = s0;
    double hi = s1;
    if (s1 < s0) std::swap(lo, hi);
    const double r = (hi - lo) / lo;
    double F = 0;
    if (r < 0.1)
    {
        const double x = r / 2;
        F = 1 + x * (1 - x * (1.0 / 3 - x * (1.0 / 3 - 0.42222222222222217 * x)));
    }
    else
        F = r / std::log(1 + r);
    const double H = lo * F;
    return 0 < H ? L / H : 0;
}

template <unsigned D>
double length(const vec<D>& u)
{
    double sum = u[0] * u[0];
    for (unsigned k = 1; k < D; ++k) sum += u[k] * u[k];
    return std::sqrt(sum);
}

inline double form(const tensor<2>& m, const vec<2>& u)
{
    return m[0] * (u[0] * u[0]) + u[1] * (m[2] * u[1] + 2 * m[1] * u[0]);
}

inline double form(const tensor<3>& m, const vec<3>& u)
{
    return m[0] * (u[0] * u[0]) + u[1] * (m[2] * u[1] + 2 * m[1] * u[0]) + u[2] * (2 * m[3] * u[0] + 2 * m[4] * u[1] + m[5] * u[2]);
}

template <unsigned D>
double edge_length(const vec<D>& u, double h0, double h1, double& s0, double& s1)
{
    const double d = length<D>(u);
    s0 = d / h0;
    s1 = d / h1;
    return logarithmic_length(d, h0, h1);
}

template <unsigned D>
double edge_length(const vec<D>& u, const tensor<D>& m0, const tensor<D>& m1, double& s0, double& s1)
{
    s0 = form(m0, u);
    s1 = form(m1, u);
    if (!(s0 > 0) || !(s1 > 0)) return 0;
    s0 = std::sqrt(s0);
    s1 = std::sqrt(s1);
    return logarithmic_length(s0 * s1, s0, s1);
}

inline bool equal(double a, double b)
{
    return a == b;
}

template <unsigned D>
bool equal(const tensor<D>& a, const tensor<D>& b)
{
    return std::equal(a.values, a.values + tensor<D>::count, b.values);
}

template <unsigned D, class Metric>
double edge_measure(limited what, const vec<D>& u, const Metric& m0, const Metric& m1)
{
    double s0 = 0;
    double s1 = 0;
    const double L = edge_length<D>(u, m0, m1, s0, s1);
    if (what == limited::gradation ? L < 1e-12 : L == 0) return equal(m0, m1) ? 0 : DBL_MAX;
    if (!(L < DBL_MAX)) return 0;
    if (what == limited::variation) return std::fabs(s0 - s1) / (s0 * s1);
    const double x = std::log(std::max(s0, s1) / std::min(s0, s1)) / L;
    if (!(x < 700)) return DBL_MAX;
    return std::exp(x) - 1;
}

/// The metric at the fraction t of the way from A to B.
inline bool interpolate(double t, double a, double b, double& result)
{
    result = a + t * (b - a);
    return 0 < result && result < DBL_MAX;
}

template <unsigned D>
bool interpolate(double t, const tensor<D>& A, const tensor<D>& B, tensor<D>& result)
{
    if (std::fabs(t) < 1e-12)
    {
        result = A;
        return true;
    }
    if (std::fabs(t - 1) < 1e-12)
    {
        result = B;
        return true;
    }
    gridweave::reduced_pair<D> pair;
    if (!gridweave::simultaneous_reduction(A, B, pair)) return false;
    vector_fixed<double, D> m{};
    for (unsigned k = 0; k < D; ++k)
    {
        const double ha = 1 / std::sqrt(pair.a[k]);
        const double hb = 1 / std::sqrt(pair.b[k]);
        const double h = ha + (hb - ha) * t;
        m[k] = 1 / (h * h);
        if (h < std::sqrt(DBL_MIN)) m[k] = DBL_MAX;
        if (h > std::sqrt(DBL_MAX)) m[k] = 0;
    }
    result = gridweave::compose_metric(m, pair.inverse_rows);
    return true;
}

inline bool merge(unsigned char direction, double a, double& b)
{
    if (direction == 1) b = std::max(a, b);
    if (direction == 255) b = std::min(a, b);
    return true;
}

template <unsigned D>
bool merge(unsigned char direction, const tensor<D>& a, tensor<D>& b)
{
    tensor<D> result = b;
    bool done = true;
    if (direction == 1) done = gridweave::maximum_metric_inner(a, b, result);
    if (direction == 255) done = gridweave::minimum_metric_inner(a, b, result);
    b = result;
    return done;
}

inline double change(double a, double b)
{
    return std::max(a, b) / std::min(a, b);
}

template <unsigned D>
double change(const tensor<D>& a, const tensor<D>& b)
{
    double largest = 1;
    for (unsigned k = 0; k < D; ++k) largest = std::max(largest, change(a(k, k), b(k, k)));
    return std::sqrt(largest);
}

struct record
{
    float key;
    unsigned stamp;
    unsigned node;
    unsigned neighbour;
};

class queue
{
public:
    bool empty() const { return heap_.empty(); }
    std::size_t size() const { return heap_.size(); }

    void push(const record& r)
    {
        heap_.push_back(r);
        up(heap_.size() - 1, r);
    }

    record pop()
    {
        const record top = heap_.front();
        const record last = heap_.back();
        heap_.pop_back();
        if (heap_.empty()) return top;
        std::size_t hole = 0;
        while (2 * hole + 1 < heap_.size())
        {
            const std::size_t left = 2 * hole + 1;
            const std::size_t right = left + 1;
            const std::size_t next = right < heap_.size() && !(heap_[right].key < heap_[left].key) ? right : left;
            heap_[hole] = heap_[next];
            hole = next;
        }
        up(hole, last);
        return top;
    }

private:
    void up(std::size_t hole, const record& r)
    {
        while (hole > 0 && heap_[(hole - 1) / 2].key < r.key)
        {
            heap_[hole] = heap_[(hole - 1) / 2];
            hole = (hole - 1) / 2;
        }
        heap_[hole] = r;
    }

    std::vector<record> heap_;
};

} // namespace literal

/// The plain relaxation over D dimensions for a field of `Metric` (double or symmetric_fixed<double, D>).
template <unsigned D, class Metric>
class literal_relaxation
{
public:
    literal_relaxation(limited what, double limit) : what_(what), limit_(limit) {}

    /// Moves the metrics of `field` in place.
    relaxation_counts run(const dense2D<double>& pos, const dense2D<unsigned>& connectivity, const dense1D<unsigned>& indices,
                          bool indices_frozen, int direction, std::vector<Metric>& field)
    {
        field_ = &field;
        build_graph(connectivity);
        const auto nodes = static_cast<unsigned>(graph_.size());
        pos_.resize(nodes);
        for (unsigned n = 0; n < nodes; ++n)
            for (unsigned k = 0; k < D; ++k) pos_[n][k] = pos(k, n);

        status_.assign(pos.cols, indices_frozen ? 0 : frozen);
        for (const unsigned i : indices)
            if (i != 0xFFFFFFFFu) status_[i] = indices_frozen ? frozen : 0;
        status_.resize(nodes, frozen);
        direction_.assign(nodes, static_cast<unsigned char>(direction));
        return propagate();
    }

    /// Largest measure of the edges of which `counts(i, j)` is true, in the field of the latest run.
    template <class Chosen>
    double largest_measure(Chosen&& counts) const
    {
        double largest = 0;
        for (unsigned i = 0; i < graph_.size(); ++i)
            for (const unsigned j : graph_[i])
                if (counts(i, j)) largest = std::max(largest, measure((*field_)[i], i, j));
        return largest;
    }

    const std::vector<std::vector<unsigned>>& graph() const { return graph_; }
    bool is_frozen(unsigned node) const { return status_[node] == frozen; }

private:
    static constexpr unsigned frozen = 0xFFFFFFFFu;

    void build_graph(const dense2D<unsigned>& connectivity)
    {
        unsigned nodes = 0;
        for (unsigned c = 0; c < connectivity.cols; ++c)
            for (unsigned r = 0; r < connectivity.rows; ++r)
                if (connectivity(r, c) != 0xFFFFFFFFu) nodes = std::max(nodes, connectivity(r, c) + 1);
        std::vector<std::vector<unsigned>> elements(nodes);
        for (unsigned c = 0; c < connectivity.cols; ++c)
            for (unsigned r = 0; r < connectivity.rows; ++r)
                if (connectivity(r, c) != 0xFFFFFFFFu) elements[connectivity(r, c)].push_back(c);
        graph_.assign(nodes, {});
        for (unsigned n = 0; n < nodes; ++n)
            for (const unsigned c : elements[n])
                for (unsigned r = 0; r < connectivity.rows; ++r)
                {
                    const unsigned m = connectivity(r, c);
                    if (m == 0xFFFFFFFFu || m == n) continue;
                    if (std::find(graph_[n].begin(), graph_[n].end(), m) == graph_[n].end()) graph_[n].push_back(m);
                }
    }

    literal::vec<D> edge(unsigned i, unsigned j) const
    {
        literal::vec<D> u{};
        for (unsigned k = 0; k < D; ++k) u[k] = pos_[j][k] - pos_[i][k];
        return u;
    }

    double measure(const Metric& at_i, unsigned i, unsigned j) const
    {
        return literal::edge_measure<D>(what_, edge(i, j), at_i, (*field_)[j]);
    }

    void push(double e, unsigned stamp, unsigned i, unsigned j)
    {
        queue_.push({static_cast<float>(std::min(e, 3.4028234663852886e38)), stamp, i, j});
        ++counts_.pushes;
        counts_.longest_queue = std::max(counts_.longest_queue, queue_.size());
    }

    relaxation_counts propagate()
    {
        std::vector<Metric>& field = *field_;
        counts_ = {};
        const bool any_frozen = std::any_of(status_.begin(), status_.end(), [](unsigned s) { return s != 0; });
        for (unsigned i = 0; i < graph_.size(); ++i)
        {
            if (status_[i] != 0) continue;
            for (const unsigned j : graph_[i])
            {
                const double e = measure(field[i], i, j);
                if (limit_ < e) push(e, 0, i, j);
            }
        }

        unsigned stamp = 0;
        while (!queue_.empty())
        {
            const literal::record top = queue_.pop();
            const unsigned i = top.node;
            const unsigned j = top.neighbour;
            if (status_[i] > top.stamp || (status_[j] > top.stamp && status_[j] != frozen))
            {
                ++counts_.stale;
                continue;
            }
            std::vector<unsigned> fixed;
            if (any_frozen)
                for (const unsigned k : graph_[i])
                    if (status_[k] == frozen) fixed.push_back(k);
            unsigned char direction = direction_[i];
            if (!correct(i, j, fixed, direction)) continue;
            ++counts_.moves;
            direction_[i] = direction;
            if (status_[i] == 0) ++counts_.moved;
            ++stamp;
            status_[i] = stamp;
            for (const unsigned k : graph_[i])
            {
                const double e = measure(field[i], i, k);
                if (!(limit_ < e)) continue;
                push(e, stamp, i, k);
                if (status_[k] != frozen) push(e, stamp, k, i);
            }
        }
        return counts_;
    }

    void sizes_of_edge(const literal::vec<D>& u, const double& a, const double& b, double& ha, double& hb) const
    {
        (void)u;
        ha = a;
        hb = b;
    }

    void sizes_of_edge(const literal::vec<D>& u, const literal::tensor<D>& a, const literal::tensor<D>& b, double& ha, double& hb) const
    {
        literal::vec<D> unit = u;
        const double d = literal::length<D>(u);
        double squared = u[0] * u[0];
        for (unsigned k = 1; k < D; ++k) squared += u[k] * u[k];
        if (squared != 0 && squared != 1)
            for (double& c : unit) c /= d;
        ha = literal::form(a, unit);
        if (ha > 0) ha = 1 / std::sqrt(ha);
        hb = literal::form(b, unit);
        if (hb > 0) hb = 1 / std::sqrt(hb);
    }

    bool correct(unsigned i, unsigned j, const std::vector<unsigned>& fixed, unsigned char& direction)
    {
        Metric& at_i = (*field_)[i];
        const Metric at_j = (*field_)[j];
        const literal::vec<D> u = edge(i, j);
        double hi = 0;
        double hj = 0;
        sizes_of_edge(u, at_i, at_j, hi, hj);
        const double d = literal::length<D>(u);
        const unsigned char wanted = hj > hi ? 1 : 255;
        const double dh = std::fabs(hj - hi);
        double T = 0;
        if (what_ == limited::gradation && dh > 0) T = 1 - std::log(1 + limit_) * d / dh;
        if (what_ == limited::variation && d * 1e-12 < dh) T = 1 - (d / dh) * limit_;
        if (!(T > 0)) T = 0;

        if (T > 1e-12)
        {
            if (direction == 0) direction = wanted;
            if (direction != wanted) return false;
        }
        if (!(T > 1e-12) || !(T > 0.001)) return false;

        double t = T;
        if (!fixed.empty())
        {
            const auto penalty = [&](double fraction) { return excess_penalty(fraction, i, j, fixed, direction); };
            const double F0 = penalty(0);
            if (!(0 < F0 && F0 < DBL_MAX)) return false;
            const double step = T / 6;
            double best_t = 0;
            double best_F = penalty(0);
            double s = 0;
            for (int k = 0; k < 6; ++k)
            {
                s += step;
                const double f = penalty(s);
                if (f < best_F)
                {
                    best_F = f;
                    best_t = s;
                }
            }
            double lo = best_t - step;
            if (!(lo > 0)) lo = 0;
            double hi_t = best_t + step;
            if (!(T > hi_t)) hi_t = T;
            double f = 0;
            minimize(lo, hi_t, 0, 0.001, penalty, t, f);
            if (!(t > 0.001) || !(F0 > f)) return false;
        }

        Metric result{};
        if (!literal::interpolate(t, at_i, at_j, result)) return false;
        if (!literal::merge(direction, at_i, result)) return false;
        if (!(literal::change(at_i, result) > 1.000000000001)) return false;
        at_i = result;
        return true;
    }

    double excess_penalty(double t, unsigned i, unsigned j, const std::vector<unsigned>& fixed, unsigned char direction) const
    {
        Metric m{};
        if (!literal::interpolate(t, (*field_)[i], (*field_)[j], m)) return 0;
        literal::merge(direction, (*field_)[i], m);
        double sum = 0;
        for (const unsigned k : fixed)
        {
            const double excess = measure(m, i, k) - limit_;
            if (excess > 0)
            {
                if (excess >= std::sqrt(DBL_MAX)) return DBL_MAX;
                sum += excess * excess;
            }
        }
        return sum;
    }

    template <class F>
    static void minimize(double lo, double hi, double tol_f, double tol_t, F&& f, double& t, double& value)
    {
        double mid = lo;
        double f_lo = f(lo);
        double f_mid = f_lo;
        double f_hi = f(hi);
        if (hi > lo)
        {
            mid = (lo + hi) / 2;
            f_mid = f(mid);
            while (true)
            {
                const double q1 = (lo + mid) / 2;
                const double q3 = (mid + hi) / 2;
                if (f_mid < f_lo && f_mid < f_hi)
                {
                    const double f1 = f(q1);
                    if (f1 < f_mid)
                    {
                        hi = mid;
                        f_hi = f_mid;
                        mid = q1;
                        f_mid = f1;
                    }
                    else
                    {
                        const double f3 = f(q3);
                        if (f3 < f_mid)
                        {
                            lo = mid;
                            f_lo = f_mid;
                            mid = q3;
                            f_mid = f3;
                        }
                        else
                        {
                            lo = q1;
                            f_lo = f1;
                            hi = q3;
                            f_hi = f3;
                        }
                    }
                }
                else
                {
                    if (f_hi < f_lo)
                    {
                        lo = mid;
                        f_lo = f_mid;
                        mid = q3;
                    }
                    else
                    {
                        hi = mid;
                        f_hi = f_mid;
                        mid = q1;
                    }
                    f_mid = f(mid);
                }
                const double err = std::max(std::fabs(f_mid - f_hi), std::fabs(f_mid - f_lo));
                if (err <= tol_f) break;
                if (mid - lo <= tol_t && hi - mid <= tol_t) break;
            }
            if (f_mid > f_lo && f_lo < f_hi)
            {
                if (f_mid < f_hi)
                {
                    hi = mid;
                    f_hi = f_mid;
                }
                mid = lo;
                f_mid = f_lo;
            }
            if (f_hi < f_lo && f_mid > f_hi)
            {
                if (f_mid < f_lo) lo = mid;
                mid = hi;
                f_mid = f_hi;
            }
        }
        t = mid;
        value = f_mid;
    }

    limited what_;
    double limit_;
    std::vector<std::vector<unsigned>> graph_;
    std::vector<literal::vec<D>> pos_;
    std::vector<unsigned> status_;
    std::vector<unsigned char> direction_;
    std::vector<Metric>* field_ = nullptr;
    literal::queue queue_;
    relaxation_counts counts_;
};

} // namespace tq4::test
