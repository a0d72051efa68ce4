#pragma once

// The search tree told plainly: records are inserted one by one, queries recurse. The library's results are held against it.

#include <cmath>
#include <limits>
#include <random>
#include <utility>
#include <vector>

#include <tq4/gridweave/core.h>

namespace tq4::test
{

class reference_tree
{
public:
    explicit reference_tree(const dense2D<double>& coords) : coords_(coords), dim_(coords.rows) {}

    unsigned insert(const dense1D<unsigned>& ids)
    {
        std::vector<unsigned> order(ids.begin(), ids.end());
        std::mt19937 next(1);
        for (unsigned i = 1; i < order.size(); ++i)
        {
            const auto j = static_cast<unsigned>(next() % (i + 1));
            if (j != i) std::swap(order[i], order[j]);
        }
        unsigned linked = 0;
        for (const unsigned id : order) linked += insert_one(id);
        return linked;
    }

    unsigned size() const { return static_cast<unsigned>(records_.size()); }

    /// `excluded` is passed over; none for a plain point.
    unsigned closest(const std::vector<double>& p, unsigned excluded) const
    {
        best_search s{p, excluded, gridweave::none_index, largest, largest};
        if (records_.empty()) return s.best;
        unsigned axis = 0;
        for (unsigned at = 0; at != gridweave::none_index; axis = (axis + 1) % dim_)
        {
            const record& r = records_[at];
            if (r.node != excluded && squared(r.node, p) < s.best_squared)
            {
                s.best = r.node;
                s.best_squared = squared(r.node, p);
                if (s.best_squared == 0) break;
            }
            at = p[axis] < x(r.node, axis) ? r.left : r.right;
        }
        if (s.best != gridweave::none_index) s.best_distance = std::sqrt(s.best_squared);
        search(s, 0, 0);
        return s.best;
    }

    std::vector<unsigned> in_box(const std::vector<double>& low, const std::vector<double>& high) const
    {
        std::vector<unsigned> found;
        if (!records_.empty()) walk_box(low, high, 0, 0, found);
        return found;
    }

private:
    static constexpr double largest = std::numeric_limits<double>::max();

    struct record
    {
        unsigned node;
        unsigned left = gridweave::none_index;
        unsigned right = gridweave::none_index;
    };

    struct best_search
    {
        const std::vector<double>& p;
        unsigned excluded;
        unsigned best;
        double best_squared;
        double best_distance;
    };

    double x(unsigned node, unsigned axis) const { return coords_(axis, node); }

    double squared(unsigned node, const std::vector<double>& p) const
    {
        double sum = 0;
        for (unsigned k = 0; k < dim_; ++k) sum += (x(node, k) - p[k]) * (x(node, k) - p[k]);
        return sum;
    }

    unsigned take_record(unsigned id)
    {
        if (!free_.empty())
        {
            const unsigned r = free_.back();
            free_.pop_back();
            records_[r] = {id};
            return r;
        }
        records_.push_back({id});
        return static_cast<unsigned>(records_.size() - 1);
    }

    unsigned insert_one(unsigned id)
    {
        if (id >= coords_.cols) return 0;
        const unsigned r = take_record(id);
        unsigned parent = gridweave::none_index;
        unsigned axis = 0;
        bool is_right = false;
        for (unsigned at = 0; at < r; axis = (axis + 1) % dim_)
        {
            if (records_[at].node == id)
            {
                free_.push_back(r);
                return 0;
            }
            parent = at;
            is_right = !(x(id, axis) < x(records_[at].node, axis));
            at = is_right ? records_[at].right : records_[at].left;
        }
        if (parent != gridweave::none_index) (is_right ? records_[parent].right : records_[parent].left) = r;
        return 1;
    }

    void search(best_search& s, unsigned at, unsigned axis) const
    {
        for (;; axis = (axis + 1) % dim_)
        {
            const record& r = records_[at];
            if (s.best_distance == 0) return;
            bool is_near = true;
            if (s.best_distance != largest)
                for (unsigned k = 0; k < dim_; ++k) is_near = is_near && std::abs(x(r.node, k) - s.p[k]) <= s.best_distance;
            if (is_near && r.node != s.excluded && squared(r.node, s.p) < s.best_squared)
            {
                s.best = r.node;
                s.best_squared = squared(r.node, s.p);
                s.best_distance = std::sqrt(s.best_squared);
            }
            const double e = x(r.node, axis) - s.p[axis];
            if (r.right != gridweave::none_index && e <= s.best_distance) search(s, r.right, (axis + 1) % dim_);
            if (r.left == gridweave::none_index) return;
            if (-e > s.best_distance) return;
            at = r.left;
        }
    }

    void walk_box(const std::vector<double>& low, const std::vector<double>& high, unsigned at, unsigned axis,
                  std::vector<unsigned>& found) const
    {
        for (;; axis = (axis + 1) % dim_)
        {
            const record& r = records_[at];
            const double t = x(r.node, axis);
            const bool a = t >= low[axis];
            const bool b = t <= high[axis];
            if (b && a)
            {
                bool inside = true;
                for (unsigned k = 0; k < dim_; ++k) inside = inside && x(r.node, k) >= low[k] && x(r.node, k) <= high[k];
                if (inside) found.push_back(r.node);
            }
            if (a && r.left != gridweave::none_index) walk_box(low, high, r.left, (axis + 1) % dim_, found);
            if (!b || r.right == gridweave::none_index) return;
            at = r.right;
        }
    }

    const dense2D<double>& coords_;
    unsigned dim_;
    std::vector<record> records_;
    std::vector<unsigned> free_;
};

} // namespace tq4::test
